// ixocut knob show, knob state, knob speed.
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/CommandLine.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
#include "ixocut/panel/PanelHost.h"

namespace ixocut {
namespace {

struct TKnobOptions : TControllerSettings {
  bool Json = false;
  std::string Level;
  std::string XY, Z;
};

constexpr const char* kLevels[] = {"low", "normal", "high"};

std::optional<double> SpeedOf(const char* option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  const auto value = ParseExactly<double>(text);
  if (!value) throw EProblem(pbRequest, Format("%s: \"%s\" is not a number (mm/s)", option, text.c_str()));
  return value;
}

double& Level(TSpeedData& speed, TSpeedState level) {
  return level == ssLow ? speed.LowSpeed : level == ssNormal ? speed.NormalSpeed : speed.HighSpeed;
}

nlohmann::ordered_json JsonOf(const TSpeedData& speed) {
  return {{"init", speed.Init}, {"low", speed.LowSpeed}, {"normal", speed.NormalSpeed}, {"high", speed.HighSpeed}};
}

// The levels, and the parameters and jog sections that follow from the one in force.
void Print(const TKnobOptions& options, TController& session, std::ostream& out) {
  const TKnob& knob = Knob();
  const char* const level = kLevels[static_cast<std::size_t>(knob.GetSpeedState())];
  const TNcParams& params = session.Params();
  if (options.Json) {
    nlohmann::ordered_json document{{"state", level},
                                    {"twoHeads", knob.GetDHEnabled()},
                                    {"xy", JsonOf(knob.XYSpeed.UsedSpeed)},
                                    {"z", JsonOf(knob.ZSpeed.UsedSpeed)},
                                    {"JogFast", params.GetBool("JogFast", false)},
                                    {"JogSlow", params.GetBool("JogSlow", false)},
                                    {"zJogSpeed", session.Jog().Z(0).JogSpeed}};
    const double jogSpeed = params.GetDouble("JogSpeed", -1.0);
    if (jogSpeed >= 0.0) document["JogSpeed"] = jogSpeed;
    PrintDocument(out, "knob", document);
    return;
  }
  out << Format("state %s%s", level, knob.GetDHEnabled() ? ", two heads" : "") << '\n';
  out << "        low    normal      high  mm/s\n";
  for (const auto& [name, speed] : {std::pair{"XY", &knob.XYSpeed.UsedSpeed}, std::pair{"Z", &knob.ZSpeed.UsedSpeed}})
    out << Format("%-2s %8.6g  %8.6g  %8.6g", name, speed->LowSpeed, speed->NormalSpeed, speed->HighSpeed) << '\n';
  const double jogSpeed = params.GetDouble("JogSpeed", -1.0);
  if (jogSpeed < 0.0) return;
  const bool fast = params.GetBool("JogFast", false);
  const TJogZSection z = session.Jog().Z(0);
  out << Format("applied: JogFast %d, JogSlow %d, JogSpeed %.6g, Z %.6g", fast ? 1 : 0,
                params.GetBool("JogSlow", false) ? 1 : 0, jogSpeed,
                static_cast<double>(fast ? z.HighJogSpeed : z.JogSpeed))
      << '\n';
}

int RunKnob(const TKnobOptions& options, bool setsState, bool setsSpeed, std::ostream& out) {
  std::optional<TSpeedState> level;
  if (setsState || setsSpeed) level = LevelOf(options.Level);
  const std::optional<double> xy = SpeedOf("--xy", options.XY);
  const std::optional<double> z = SpeedOf("--z", options.Z);
  if (setsSpeed && !xy && !z) throw EProblem(pbRequest, "--xy or --z is needed");

  TController session(options.Options());
  TKnob& knob = Knob();
  const auto check = [&] {
    if (const std::string problem = CheckKnob(); !problem.empty()) throw EProblem(pbRefused, problem);
  };
  if (setsSpeed) {
    if (xy) Level(knob.XYSpeed.ShowSpeed, *level) = *xy;
    if (z) Level(knob.ZSpeed.ShowSpeed, *level) = *z;
    check();
    knob.SaveConfig();
    knob.LoadConfig();
  } else if (setsState) {
    check();
    try {
      knob.SetSpeedState(*level);
    } catch (const EDesignFault& fault) {
      throw EProblem(pbRefused, Format("%s: %s", fault.Unit(), fault.what()));
    }
  }
  if (setsState || setsSpeed) (void)session.Jog().Save().OrThrow(pbUnusable);
  Print(options, session, out);
  return kExitSuccess;
}

}  // namespace

TSpeedState LevelOf(const std::string& word) {
  for (std::size_t i = 0; i < std::size(kLevels); ++i)
    if (word == kLevels[i]) return static_cast<TSpeedState>(i);
  throw EProblem(pbRequest, "\"" + word + "\" is not one of low, normal, high");
}

void AddKnobCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const knob = program.add_subcommand("knob", "The jog knob: its speeds and its level");
  knob->require_subcommand(1);
  knob->footer(
      "The speeds are kept in the machine file; the level lasts as long as the controller process, which for these\n"
      "commands is the command itself: state shows what the level applies and stores its Z speed.\n"
      "\n"
      "Examples:\n"
      "  ixocut knob show\n"
      "  ixocut knob state high\n"
      "  ixocut knob speed normal --xy 120 --z 40\n"
      "\n"
      "Software is not the emergency stop.");
  const auto add = [&](const char* name, const char* what, bool setsState, bool setsSpeed) {
    const auto options = std::make_shared<TKnobOptions>();
    CLI::App* const command = knob->add_subcommand(name, what);
    if (setsState || setsSpeed)
      command->add_option("LEVEL", options->Level, "low, normal or high")->required()->type_name("");
    if (setsSpeed) {
      command->add_option("--xy", options->XY, "Speed of X and Y")->type_name("MM_S");
      command->add_option("--z", options->Z, "Speed of Z")->type_name("MM_S");
    }
    AddJsonOption(*command, options->Json);
    AddMachineOptions(*command, options->Machine, options->State);
    AddLanguageOption(*command, options->Language);
    command->callback([options, setsState, setsSpeed, &run] {
      run = [options, setsState, setsSpeed] { return RunKnob(*options, setsState, setsSpeed, std::cout); };
    });
  };
  add("show", "Print the speeds", false, false);
  add("state", "Apply a level", true, false);
  add("speed", "Set the speeds of a level", false, true);
}

}  // namespace ixocut
