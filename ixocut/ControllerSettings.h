// What the command line says about the controller that a command starts: the one place where its options are filled.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "controller/client/Attachment.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/Console.h"

namespace ixocamglue {
struct TMachineLimits;
}  // namespace ixocamglue
namespace ixocontroller {
struct TControllerOptions;
}  // namespace ixocontroller

namespace ixocommandline {
class TCommand;
}

namespace ixocut {

struct TControllerSettings : TOutputSettings {
  std::optional<std::filesystem::path> Machine, State;
  std::uint64_t Seed = 1;
  bool Realtime = false;
  bool Saves = false;  // the command saves the machine file
  std::string Db;      // with Realtime the alarm store; empty: none

  ixocontroller::TAttachOptions Attach = {};

  // The user's machine file. Throws EProblem when it cannot be made.
  [[nodiscard]] std::filesystem::path MachineFile() const;
  // What the machine of that file allows. Throws EProblem for one that cannot be used.
  [[nodiscard]] ixocamglue::TMachineLimits Limits() const;
  // The options with that file, the machines that the program knows, and with the texts and the alarm definitions that
  // come with the program. `sink`, where there is one, outlives the controller. Throws as MachineFile.
  [[nodiscard]] ixocontroller::TControllerOptions Options(ixocamglue::ILogSink* sink = nullptr) const;
};

// What a controller that was made with these options has not been able to switch off at its end; once.
[[nodiscard]] std::optional<ixocamglue::TProblem> TakeEndFailure();

// --machine, --state, --lang: what a command is given that looks at a machine's file.
void AddMachineSettings(ixocommandline::TCommand command, TControllerSettings& settings);
// These and --seed.
void AddControllerSettings(ixocommandline::TCommand command, TControllerSettings& settings);

}  // namespace ixocut
