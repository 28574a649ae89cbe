// A panel key that is held down on the controller that is asked; how that works stands in
// controller/service/HeldKeys.h. The lease, where the key needs one, is the client's. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "controller/client/WireClient.h"
#include "ixocamglue/panel/Kbpkeys.h"

namespace ixocontroller {

// Whatever asks the controller, the release too, throws EProblem where that refuses or has gone; its end throws
// nothing.
class TWireKeys {
 public:
  // Asks for the panel once, to know the controller's time.
  explicit TWireKeys(TWireClient& client);
  ~TWireKeys();
  TWireKeys(const TWireKeys&) = delete;
  TWireKeys& operator=(const TWireKeys&) = delete;

  // What was held comes up. Answers what the press does; throws EProblem where it is refused.
  nlohmann::ordered_json Press(TKeyCode key, std::int32_t param = 0);
  void Release();
  // To be called every few ms. Throws EProblem when the key has come up by itself, or the controller has gone.
  void Beat();
  [[nodiscard]] bool Held() const { return FPress.has_value(); }
  // The panel as GET panel answers it.
  [[nodiscard]] nlohmann::ordered_json Panel();

 private:
  void Heard(const nlohmann::ordered_json& answer);
  [[nodiscard]] std::uint64_t ServerMs() const;

  TWireClient& FClient;
  std::int64_t FAheadMs;  // of the controller's clock, at least
  std::optional<std::string> FPress;
  std::chrono::steady_clock::time_point FBeatAt;
};

}  // namespace ixocontroller
