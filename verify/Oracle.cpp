#include "verify/Oracle.h"

#include <algorithm>
#include <cstdlib>

#include "ixocamglue/support/Format.h"

namespace ixoverify {
namespace {

bool Harmless(TVerbKind kind) {
  switch (kind) {
    case vkRead:
    case vkLock:
    case vkStop:
    case vkOff: return true;
    case vkSet:
    case vkStart: return false;
  }
  return false;
}

class TCheck {
 public:
  TCheck(std::span<const TJournalEntry> entries, const TMachineSnapshot& snapshot, const TExpectations& expected)
      : FEntries(entries), FSnapshot(snapshot), FExpected(expected) {}

  std::vector<std::string> Run() {
    TOracle atAbort;
    for (std::size_t i = 0; i < FEntries.size(); ++i) {
      if (FExpected.AbortIndex == i) atAbort = FOracle;
      FOracle.Read(FEntries[i]);
    }
    if (FExpected.AbortIndex && *FExpected.AbortIndex >= FEntries.size()) atAbort = FOracle;
    FViolations = FOracle.Contradictions();
    End();
    Snapshot();
    States();
    if (FExpected.AbortIndex) AfterAbort(atAbort);
    return std::move(FViolations);
  }

 private:
  void Require(bool holds, std::string otherwise) {
    if (!holds) FViolations.push_back(std::move(otherwise));
  }
  [[nodiscard]] bool Exempt(const std::string& device) const { return device == FExpected.ExemptDevice; }

  void End() {
    Require(!FOracle.Laser(), "the laser is on at the end");
    Require(!FOracle.Emission(), "emission is on at the end");
    const bool mayStayOn = FExpected.Success && FExpected.GasMayStayOn;
    Require(!FOracle.Gas() || mayStayOn || Exempt("gas"), "gas is on at the end");
    Require(FSnapshot.GasVolt == 0.0 || mayStayOn || Exempt("gas"),
            Format("the gas valve's voltage is %.2f V at the end", FSnapshot.GasVolt));
    if (!Exempt("ports") && !FExpected.OutputsMayStayOn)
      for (const std::int32_t port : FOracle.OutputsOn()) Require(false, Format("output %d is on at the end", port));
    for (const std::string& device : FOracle.Moving()) Require(Exempt(device), device + " still moves at the end");
    const bool mayFollow = FExpected.Success && FExpected.MayFollow;
    for (const std::string& device : FOracle.Following())
      Require(mayFollow || Exempt(device), device + " still follows at the end");
    for (const std::string& device : FOracle.Calibrating())
      Require(Exempt(device), device + " still calibrates at the end");
  }

  void Snapshot() {
    const auto same = [&](bool told, bool is, const char* what) {
      Require(told == is, Format("%s is %s, the journal tells otherwise", what, is ? "true" : "false"));
    };
    const auto moves = [&](bool (*ofKind)(const std::string&)) {
      return std::ranges::any_of(FOracle.Moving(), ofKind);
    };
    same(FOracle.Laser(), FSnapshot.Laser, "laser on");
    same(FOracle.Emission(), FSnapshot.Emission, "emission on");
    same(FOracle.Gas(), FSnapshot.Gas, "gas on");
    same(FOracle.OutputsOn() == std::set(FSnapshot.OutputsOn.begin(), FSnapshot.OutputsOn.end()), true,
         "the set of outputs that are on");
    same(moves([](const std::string& device) { return device == "axes"; }), FSnapshot.AxesMoving, "axes moving");
    same(moves([](const std::string& device) { return device == "head"; }), FSnapshot.FocusMoving, "focus moving");
    same(moves([](const std::string& device) { return device.starts_with("follower"); }), FSnapshot.ZMoving,
         "Z moving");
    same(!FOracle.Following().empty(), FSnapshot.Following, "following");
    same(!FOracle.Calibrating().empty(), FSnapshot.Calibrating, "calibrating");
    Require(FOracle.State() == FSnapshot.State,
            Format("the state is %d, the journal tells %d", FSnapshot.State, FOracle.State()));
  }

  void States() {
    const std::string procedure = Format("%d", FExpected.ProcedureState);
    std::optional<std::size_t> changes;
    for (const TJournalEntry& entry : FEntries) {
      if (!entry.IsState()) continue;
      if (changes) {
        ++*changes;
        Require(entry.Args != procedure, "the procedure's state was entered again");
      } else if (entry.Args == procedure) {
        changes = 0;
      }
    }
    if (changes) Require(*changes == 1, Format("%zu changes of state after the procedure began, not 1", *changes));
  }

  void AfterAbort(const TOracle& atAbort) {
    std::set<std::string> stopped;
    for (std::size_t i = *FExpected.AbortIndex; i < FEntries.size(); ++i) {
      const TJournalEntry& entry = FEntries[i];
      if (!entry.IsCommand()) continue;
      if (entry.Kind == vkStop) stopped.insert(entry.Device);
      Require(Harmless(entry.Kind), "after the abort: " + entry.Line());
    }
    for (const std::string& device : atAbort.Moving())
      Require(stopped.contains(device) || Exempt(device), device + " moved at the abort and was not told to stop");
    for (const std::string& device : atAbort.Following())
      Require(stopped.contains(device) || Exempt(device), device + " followed at the abort and was not told to stop");
    for (const std::string& device : atAbort.Calibrating())
      Require(stopped.contains(device) || Exempt(device), device + " calibrated at the abort and was not told to stop");
  }

  const std::span<const TJournalEntry> FEntries;
  const TMachineSnapshot& FSnapshot;
  const TExpectations& FExpected;
  TOracle FOracle;
  std::vector<std::string> FViolations;
};

}  // namespace

void TOracle::Read(const TJournalEntry& entry) {
  if (entry.Outcome != toDone) return;
  if (entry.IsState()) {
    FState = std::atoi(entry.Args.c_str());
  } else if (entry.Device == "laser") {
    ReadLaser(entry);
  } else if (entry.Device == "gas") {
    if (entry.IsCommand() && entry.Verb == "SwitchOn") FGas = true;
    if (entry.IsCommand() && entry.Verb == "SwitchOff") FGas = false;
  } else if (entry.Device == "ports") {
    int port = 0;
    if (entry.Verb == "SwitchOutport") {
      port = std::atoi(entry.Args.c_str());
      if (entry.Kind == vkStart)
        FOutputs.insert(port);
      else
        FOutputs.erase(port);
    } else if (entry.Verb.starts_with("output ") && entry.Verb.ends_with(" is not fitted")) {
      FOutputs.erase(std::atoi(entry.Verb.c_str() + 7));
    }
  } else if (!entry.IsCommand() && entry.Verb.starts_with(kCollision)) {
    FContradictions.push_back(entry.Line());
  } else if (!entry.IsCommand()) {
    if (entry.Verb == "moving") FMoving.insert(entry.Device);
    if (entry.Verb == "at rest") FMoving.erase(entry.Device);
    if (entry.Verb == "following") FFollowing.insert(entry.Device);
    if (entry.Verb == "follow ended") FFollowing.erase(entry.Device);
    if (entry.Verb == "calibrating") FCalibrating.insert(entry.Device);
    if (entry.Verb.starts_with("calibration ended")) FCalibrating.erase(entry.Device);
  }
}

void TOracle::ReadLaser(const TJournalEntry& entry) {
  const auto deny = [&](bool is, const char* why) {
    if (is) FContradictions.push_back(entry.Line() + ": " + why);
  };
  if (entry.IsCommand()) {
    if (entry.Verb == "EmissionOn") FAskEmission = true;
    if (entry.Verb == "EmissionOff") Dark();
    if (entry.Verb == "SwitchLaser") FAskLaser = entry.Kind == vkStart;
  } else if (entry.Verb == "emission up") {
    deny(!FAskEmission, "nobody asked for it");
    deny(FTripped, "the latch is tripped");
    FEmission = true;
  } else if (entry.Verb == "emission lost") {
    Dark();
  } else if (entry.Verb == "emission down") {
    deny(FEmission, "nobody switched it off");
  } else if (entry.Verb == "beam lit") {
    deny(!Laser(), "nobody asked for it, or emission is missing");
    deny(FTripped, "the latch is tripped");
  } else if (entry.Verb == "beam dark") {
    deny(Laser(), "nobody switched it off");
  } else if (entry.Verb.starts_with("latch tripped")) {
    Dark();
    FTripped = true;
  } else if (entry.Verb == "latch reset") {
    Dark();
    FTripped = false;
  }
}

void TOracle::Dark() { FAskLaser = FAskEmission = FEmission = false; }

std::vector<std::string> CheckRun(std::span<const TJournalEntry> entries, const TMachineSnapshot& snapshot,
                                  const TExpectations& expected) {
  return TCheck(entries, snapshot, expected).Run();
}

}  // namespace ixoverify
