// GET health, status: answered on the caller's thread from the last status, whatever the controller is at.
#include "controller/api/Api.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kBeatMs = 2000;  // a state thread that is silent for longer does not live

TApiReply Health(TService& service, const TApiRequest&) {
  const auto status = service.Status();
  const bool lives = status->BeatAgeMs < kBeatMs;
  TApiReply reply;
  reply.Status = lives ? 200 : 503;
  reply.Body = {{"lives", lives},
                {"state", StateWord(status->State)},
                {"beatAgeMs", status->BeatAgeMs},
                {"epoch", service.Events().Epoch()}};
  return reply;
}

TApiReply ShowStatus(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body = StatusJson(*service.Status());
  return reply;
}

constexpr TApiRoute kRoutes[] = {
    {"GET", "/api/v1/health", roNone, false, false, &Health, "Whether the controller lives"},
    {"GET", "/api/v1/status", roNone, false, false, &ShowStatus, "What the machine does now"},
};

}  // namespace

std::span<const TApiRoute> StatusRoutes() { return kRoutes; }

}  // namespace ixocontroller
