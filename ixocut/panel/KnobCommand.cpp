// ixocut knob show, knob state, knob speed.
#include "controller/client/ClientLease.h"
#include "controller/panel/PanelHost.h"
#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

struct TKnobOptions : TControllerSettings {
  std::string Level;
  std::string XY, Z;
};

std::optional<double> SpeedOf(const char* option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  const auto value = ParseExactly<double>(text);
  if (!value) throw EProblem(pbRequest, Format(Tr("%s: \"%s\" is not a number (mm/s)"), option, text.c_str()));
  return value;
}

// The levels, and the parameters and jog sections that follow from the one in force, as KnobJson has them.
int Tell(const nlohmann::ordered_json& knob, TConsole& console) {
  console.Say(Format(Tr("state %s%s"), ShownLevel(LevelOf(knob.at("state"))),
                     knob.at("twoHeads") == true ? Tr(", two heads") : ""));
  console.Say("   " + SetRight(Tr("low"), 8) + " " + SetRight(Tr("normal"), 9) + " " + SetRight(Tr("high"), 9) +
              "  mm/s");
  for (const auto& [name, member] : {std::pair{"XY", "xy"}, std::pair{"Z", "z"}}) {
    const auto& speed = knob.at(member);
    console.Say(Format("%-2s %8.6g  %8.6g  %8.6g", name, speed.at("low").get<double>(),
                       speed.at("normal").get<double>(), speed.at("high").get<double>()));
  }
  if (!knob.contains("JogSpeed")) return console.Print(knob);
  const bool fast = knob.at("JogFast") == true;
  const char* const jog = fast ? Tr("fast jog") : knob.at("JogSlow") == true ? Tr("slow jog") : Tr("normal jog");
  console.Say(Format(Tr("applied: %s, X and Y %.6g mm/s, Z %.6g mm/s"), jog, knob.at("JogSpeed").get<double>(),
                     fast ? knob.at("z").at("high").get<double>() : knob.at("zJogSpeed").get<double>()));
  return console.Print(knob);
}

// What a sub-command of `knob` does.
enum class TKnobDo : std::uint8_t { Show, State, Speed };

// On the controller that runs.
nlohmann::ordered_json TurnThere(TWireClient& client, TKnobDo what, TSpeedState level, std::optional<double> xy,
                                 std::optional<double> z) {
  if (what == TKnobDo::Show) return client.Get("/api/v1/panel").at("knob");
  const TClientLease lease(client, true);
  nlohmann::ordered_json body{{"level", LevelName(level)}};
  if (xy) body["xy"] = *xy;
  if (z) body["z"] = *z;
  auto knob = client.Post("/api/v1/panel/knob", body);
  knob.erase("dropped");  // of a knob that is turned by counts
  return knob;
}

int RunKnob(TKnobOptions options, TKnobDo what, TConsole& console) {
  const TSpeedState level = what == TKnobDo::Show ? ssLow : LevelOf(options.Level);
  const std::optional<double> xy = SpeedOf("--xy", options.XY);
  const std::optional<double> z = SpeedOf("--z", options.Z);
  if (what == TKnobDo::Speed && !xy && !z) throw EProblem(pbRequest, Tr("--xy or --z is needed"));

  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return Tell(TurnThere(*client, what, level, xy, z), console);
  TController session(options.Options());
  if (what == TKnobDo::Speed)
    SetKnobSpeeds(level, xy, z);
  else if (what == TKnobDo::State)
    SetKnobLevel(session, level).OrThrow(pbRefused);
  if (what != TKnobDo::Show) (void)session.Jog().Save().OrThrow(pbUnusable);
  return Tell(KnobJson(session), console);
}

}  // namespace

void AddKnobCommand(TCommand program) {
  const TCommand knob = program.AddGroup("knob", Tr("The jog knob: its speeds and its level"));
  knob.Help({Tr("The speeds are kept in the machine file; the level lasts as long as the controller process. Without a "
                "controller\nthat runs that is the command itself: state shows what the level applies and stores its Z "
                "speed. On one that runs,\nstate and speed take over control from whoever has it, and give it back."),
             {},
             {"ixocut knob show", "ixocut knob state high", "ixocut knob speed normal --xy 120 --z 40"}});
  const auto add = [&](const char* name, const char* about, TKnobDo what, std::vector<const char*> examples) {
    auto [command, options] = AddOwn<TKnobOptions>(
        knob, name, about, [what](TKnobOptions& own, TConsole& console) { return RunKnob(own, what, console); });
    options.Saves = what != TKnobDo::Show;
    if (what != TKnobDo::Show) command.Text("LEVEL", options.Level, Tr("low, normal or high"), "").Required();
    if (what == TKnobDo::Speed) {
      command.Text("--xy", options.XY, Tr("Speed of X and Y"), "MM_S");
      command.Text("--z", options.Z, Tr("Speed of Z"), "MM_S");
    }
    AddClientOptions(command, options, true);
    command.Help({{}, {}, std::move(examples)});
  };
  add("show", Tr("Print the speeds"), TKnobDo::Show, {"ixocut knob show", "ixocut knob show --json"});
  add("state", Tr("Apply a level"), TKnobDo::State, {"ixocut knob state low", "ixocut knob state high --json"});
  add("speed", Tr("Set the speeds of a level"), TKnobDo::Speed,
      {"ixocut knob speed normal --xy 120 --z 40", "ixocut knob speed low --z 5"});
}

}  // namespace ixocut
