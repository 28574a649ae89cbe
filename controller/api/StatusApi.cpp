// GET health, status: answered on the caller's thread from the last status, whatever the controller is at.
#include <algorithm>

#include "controller/api/Api.h"
#include "controller/process/RealTime.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kSilentMs = 2000;  // a thread that is silent for longer does not live

TApiReply Health(TService& service, const TApiRequest&) {
  const auto status = service.Status();
  const std::uint64_t now = RealMs();
  const std::uint64_t ageMs = now - std::min(now, status->RealMs);  // the interface thread's silence
  const bool lives = status->BeatAgeMs < kSilentMs && ageMs < kSilentMs;
  TApiReply reply;
  reply.Status = lives ? 200 : 503;
  reply.Body = {{"lives", lives},       {"state", StateWord(status->State)}, {"beatAgeMs", status->BeatAgeMs},
                {"statusAgeMs", ageMs}, {"faults", service.Faults()},        {"epoch", service.Events().Epoch()}};
  return reply;
}

TApiReply ShowStatus(TService& service, const TApiRequest& request) {
  TApiReply reply;
  reply.Text = *service.StatusText(request.Language);
  reply.ContentType = "application/json";
  return reply;
}

constexpr TApiRoute kRoutes[] = {
    {"GET", "/api/v1/health", roNone, false, false, &Health, "Whether the controller lives"},
    {"GET", "/api/v1/status", roNone, false, false, &ShowStatus, "What the machine does now"},
};

}  // namespace

std::span<const TApiRoute> StatusRoutes() { return kRoutes; }

}  // namespace ixocontroller
