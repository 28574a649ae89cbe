// The component in LinuxCNC's HAL: its pins by the list. The only source that knows LinuxCNC's library. One thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ixocamglue/support/Problem.h"
#include "machines/linuxcnc/hal/HalServer.h"

namespace ixocamglue {

inline constexpr const char* kHalComponent = "ixocut-hal";

class THalComponent final : public IHalPins {
 public:
  explicit THalComponent(const std::vector<THalPin>& list);
  ~THalComponent() override;  // its pins vanish; their signals keep their values
  THalComponent(const THalComponent&) = delete;
  THalComponent& operator=(const THalComponent&) = delete;

  // Says why there is no such component, e.g. that a program of this name lives. One whose process was killed is
  // removed from HAL first; `recovered` says so: its signals are there, and nothing is netted to them any more.
  [[nodiscard]] TResult<> Make(bool& recovered);
  // What waits for it in HAL ("loadusr -W") goes on.
  [[nodiscard]] TResult<> Ready();

  [[nodiscard]] double Read(std::size_t pin) const override;
  void Write(std::size_t pin, double value) override;
  [[nodiscard]] double ServoSeconds() const override;
  void SetHeartbeat(bool on) override;
  void SetRearm(bool on) override;
  void SetClient(bool on) override;

 private:
  union TCell;  // a pointer to the pin's value, in HAL's memory
  [[nodiscard]] bool MakePin(const THalPin& pin, TCell& cell) const;

  const std::size_t FOwn;            // where the own ones begin
  const std::vector<THalPin> FPins;  // those of the list, then the own ones
  int FComponent = -1;
  TCell* FCells = nullptr;  // in HAL's memory
};

}  // namespace ixocamglue
