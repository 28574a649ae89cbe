// The links to devices of the running machine configuration, the doctor who looks at one of them on a thread of his
// own, and the registers that somebody watches. Interface thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/links/ConfiguredLinks.h"
#include "controller/links/LinkDoctor.h"
#include "controller/links/LinkWatch.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// [{"device", "driver", "address", "readable", "value", "ageMs", "limits", "warning"}]. Any thread. Does not fail.
[[nodiscard]] nlohmann::ordered_json PortsJson(const std::vector<TMachinePort>& ports);

// What is only shown does not fail.
class TLinkDesk {
 public:
  TLinkDesk() = default;
  ~TLinkDesk();  // ends an examination, within 100 ms of its waits
  TLinkDesk(const TLinkDesk&) = delete;
  TLinkDesk& operator=(const TLinkDesk&) = delete;

  // Examines the link in real time, for about 15 s at most; a watch ends before. Refused while another examination
  // runs, in virtual time, and for a name that no link has. `addr`: without one TDoctorOptions::RegisterOf. `language`:
  // of its findings.
  TResult<> Examine(const std::string& name, std::uint8_t unit, std::optional<std::uint16_t> addr,
                    const std::string& language);
  // Reads registers of the link again and again while their readings are looked at; its Name and Link are filled in
  // here. One watch at a time, the last one that was asked for. It only reads, on a connection of its own; a serial
  // line has one master, so one that the machine uses is refused. Refused too as an examination is, and while one runs.
  TResult<> Watch(const std::string& name, TWatched watched);
  [[nodiscard]] TLinkWatch& Watched() { return FWatch; }
  // The configured links, and the devices' threads with their last signs of life.
  [[nodiscard]] nlohmann::ordered_json Json() const;
  // The last examination; null: there was none.
  [[nodiscard]] nlohmann::ordered_json ExaminationJson() const;

 private:
  struct TExamination;

  void End();

  // The link that may be asked something now, which is nobody else's.
  [[nodiscard]] TResult<TConfiguredLink> Free(const std::string& name) const;

  TLinkWatch FWatch;  // outlives the doctor's thread
  std::shared_ptr<TExamination> FExamination;
  std::thread FThread;
};

}  // namespace ixocontroller
