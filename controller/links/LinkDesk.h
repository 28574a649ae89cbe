// The links to devices of the running machine configuration, and the doctor who looks at one of them on a thread of his
// own.
// Interface thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "controller/links/ConfiguredLinks.h"
#include "controller/links/LinkDoctor.h"

namespace ixocontroller {

class TLinkDesk {
 public:
  TLinkDesk() = default;
  ~TLinkDesk();  // ends an examination, within 100 ms of its waits
  TLinkDesk(const TLinkDesk&) = delete;
  TLinkDesk& operator=(const TLinkDesk&) = delete;

  // Examines the link in real time, for about 15 s at most. Refused while another examination runs, in virtual time,
  // and for a name that no link has.
  // `addr`: without one TDoctorOptions::RegisterOf. `language`: of its findings.
  TResult<> Examine(const std::string& name, std::uint8_t unit, std::optional<std::uint16_t> addr,
                    const std::string& language);
  // The configured links, and the devices' threads with their last signs of life.
  [[nodiscard]] nlohmann::ordered_json Json() const;
  // The last examination; null: there was none.
  [[nodiscard]] nlohmann::ordered_json ExaminationJson() const;

 private:
  struct TExamination;

  void End();

  std::shared_ptr<TExamination> FExamination;
  std::thread FThread;
};

}  // namespace ixocontroller
