// Alarms by hand: raised, cleared, acknowledged, hidden, and devices that fail, a line each. Interface thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/alarms/AlarmFeed.h"

namespace ixocontroller {

inline constexpr std::uint32_t kMostSuppressedMinutes = 10'080;  // a week

enum class TAlarmVerb : std::uint8_t { Nothing, Raise, Clear, Ack, Suppress, Wait, Fault, Mend };

struct TAlarmScriptLine {
  TAlarmVerb Verb = TAlarmVerb::Nothing;
  std::string Name;          // identifier or device
  std::int32_t Id = 0;       // raise: behind the '#'
  std::uint64_t Number = 0;  // minutes or milliseconds
  std::string Reason;
};

// What a line says, and nothing that it does.
[[nodiscard]] TResult<TAlarmScriptLine> ParseAlarmLine(const std::string& text);
// The whole file, before its first line runs. Throws EProblem with file, line and reason.
[[nodiscard]] std::vector<TAlarmScriptLine> ReadAlarmScript(const std::filesystem::path& file);

// On a controller in real time, with a store, whose threads run.
class TAlarmScript {
 public:
  // `stops` ends a wait. All outlive the script.
  TAlarmScript(TController& controller, TAlarmFeed& feed, std::function<bool()> stops);

  // Says why a line is refused. Throws what a device throws that is to fail.
  TResult<> Do(const TAlarmScriptLine& line);

 private:
  [[nodiscard]] bool Stands(const std::string& id, std::uint8_t lowest = 0) const;
  void Raise(const TAlarmScriptLine& line);
  TResult<> Clear(const std::string& id);
  TResult<> Ack(const std::string& id);
  TResult<> Suppress(const TAlarmScriptLine& line);
  TResult<> SetTrouble(const std::string& device, bool fails);
  void Wait(std::uint64_t ms) const;

  TController& FController;
  TAlarmFeed& FFeed;
  const std::function<bool()> FStops;
  std::map<std::string, std::vector<std::uint64_t>> FRaised;  // by hand: serials by identifier, newest last
};

}  // namespace ixocontroller
