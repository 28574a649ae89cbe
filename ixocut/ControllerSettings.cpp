#include "ixocut/ControllerSettings.h"

#include <iostream>
#include <utility>

#include "controller/Controller.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocut/Commands.h"
#include "ixocut/Machines.h"

namespace ixocut {
using namespace ixocontroller;

std::filesystem::path TControllerSettings::MachineFile() const { return ixocontroller::MachineFile(Machine, State); }

TMachineLimits TControllerSettings::Limits() const {
  TMachineConfig config;
  config.Load(MachineFile()).OrThrow(pbUnusable);
  return LimitsOf(config, Machines()).OrThrow(pbUnusable);
}

namespace {

std::optional<TProblem> GEndFailure;  // main thread

}  // namespace

std::optional<TProblem> TakeEndFailure() { return std::exchange(GEndFailure, std::nullopt); }

TControllerOptions TControllerSettings::Options(ILogSink* sink) const {
  TControllerOptions options;
  options.Machines = Machines();
  options.MachineFile = MachineFile();
  options.LocaleFolder = ShareFolder() / "locale";
  options.AlarmFolder = ShareFolder() / "alarms";
  options.Language = Language;
  options.Seed = Seed;
  options.Realtime = Realtime;
  options.SavesMachineFile = Saves;
  if (sink) options.Sinks = {sink};
  options.EndFailed = [](const TProblem& problem, bool processEnds) {
    if (processEnds || GEndFailure)
      std::cerr << "ixocut: " << problem.Text() << std::endl;
    else
      GEndFailure = problem;
  };
  options.AlarmsTold = [](const TProblem& problem) { std::cerr << "ixocut: " + problem.Text() + "\n" << std::flush; };
  if (Realtime) options.AlarmDb = Db;
  return options;
}

void AddMachineSettings(TCommand command, TControllerSettings& settings) {
  AddMachineOptions(command, settings.Machine, settings.State);
  AddLanguageOption(command, settings.Language);
}

void AddControllerSettings(TCommand command, TControllerSettings& settings) {
  AddSeedOption(command, settings.Seed);
  AddMachineSettings(command, settings);
}

}  // namespace ixocut
