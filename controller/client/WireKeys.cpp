#include "controller/client/WireKeys.h"

#include <algorithm>
#include <limits>
#include <random>

#include "controller/service/HeldKeys.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

std::int64_t SteadyMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string NewPress() {
  std::random_device random;
  return Format("%08x%08x", random(), random());
}

}  // namespace

TWireKeys::TWireKeys(TWireClient& client) : FClient(client), FAheadMs(std::numeric_limits<std::int64_t>::min()) {
  (void)Panel();
}

TWireKeys::~TWireKeys() {
  try {
    Release();
  } catch (const EProblem&) {  // it comes up by itself
  }
}

TJson TWireKeys::Panel() {
  TJson panel = FClient.Get("/api/v1/panel");
  Heard(panel);
  return panel;
}

void TWireKeys::Heard(const TJson& answer) {
  FAheadMs = std::max(FAheadMs, answer.at("serverMs").get<std::int64_t>() - SteadyMs());
}

std::uint64_t TWireKeys::ServerMs() const {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(SteadyMs() + FAheadMs, 0));
}

TJson TWireKeys::Press(TKeyCode key, std::int32_t param) {
  Release();
  const std::string press = NewPress();
  TJson body{{"key", KeyName(key)}, {"press", press}, {"atMs", ServerMs()}};
  if (param != 0) body["param"] = param;
  TJson answer = FClient.Post("/api/v1/panel/press", body);
  FPress = press;
  FBeatAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(THeldKeys::kHeartbeatMs);
  Heard(answer);
  return answer;
}

void TWireKeys::Release() {
  if (const auto press = std::exchange(FPress, std::nullopt))
    Heard(FClient.Post("/api/v1/panel/release", {{"press", *press}}));
}

void TWireKeys::Beat() {
  const auto now = std::chrono::steady_clock::now();
  if (!FPress || now < FBeatAt) return;
  FBeatAt = now + std::chrono::milliseconds(THeldKeys::kHeartbeatMs);
  try {
    Heard(FClient.Post("/api/v1/panel/heartbeat", {{"presses", TJson::array({*FPress})}, {"atMs", ServerMs()}}));
  } catch (const EProblem&) {
    FPress.reset();
    throw;
  }
}

}  // namespace ixocontroller
