// Finds out what is wrong with the link to a Modbus device, step by step from the name to the reply. On the caller's
// thread; what it finds is told, nothing is thrown.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "controller/links/DeviceLink.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocontroller {

enum class TDoctorMark : std::uint8_t { dmGood, dmNote, dmBad };
using enum TDoctorMark;

struct TDoctorStep {
  TDoctorMark Mark = dmGood;
  const char* Id = "";  // of what was found, the same in every language: "echo", "late"
  std::string Finding;
  std::string NextThing;  // to try; empty when there is nothing to do
};

struct TDoctorOptions {
  TLinkAddress Link;
  std::uint8_t Unit = 1;
  std::uint16_t Addr = 0;

  // A register that the device has, with another behind it, as far as its link tells: the probe register, else 0.
  [[nodiscard]] static std::uint16_t RegisterOf(const TLinkAddress& link);
};

// Runs in real time, up to about 15 s; only reads registers. `tell` gets each step as it is found. Returns whether it
// came to its end and no step was bad. A stop ends its waits within 100 ms, after which it tells nothing. `owing`
// becomes the serial line on which the reply to the last request may still come.
[[nodiscard]] bool ExamineLink(const TDoctorOptions& options, const std::function<void(const TDoctorStep&)>& tell,
                               TStop& stop, std::shared_ptr<INcDataTransIntf>* owing = nullptr);

}  // namespace ixocontroller
