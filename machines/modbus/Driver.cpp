#include "machines/modbus/Driver.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/modbus/Line.h"

namespace ixocamglue {
namespace {

class TModbusPoint final : public IMachinePoint {
 public:
  TModbusPoint(TModbusLine& line, std::size_t index) : FLine(line), FIndex(index) {}
  double Read() override { return FLine.Read(FIndex); }
  void Write(double value) override { FLine.Write(FIndex, value); }
  bool Settled() override { return FLine.Settled(FIndex); }
  std::optional<std::uint64_t> AgeMs() override { return FLine.AgeMs(FIndex); }
  [[nodiscard]] TPortFacts Facts() const { return FLine.Facts(FIndex); }
  void NoteUse(TPointUse use) { FLine.NoteUse(FIndex, use); }

 private:
  TModbusLine& FLine;
  const std::size_t FIndex;
};

bool IsOutput(TPointKind kind) { return kind == pkOutput || kind == pkAnalogOut; }

// The address with its station.
struct TFound {
  TModbusAddress Address;
  const TModbusStationConfig* Station;
};
TResult<TFound> Find(const TModbusRecord& record, TPointKind kind, std::string_view text) {
  auto address = TModbusAddress::Parse(kind, text);
  if (!address) return address.Problem();
  auto station = record.Find(address->Station);
  if (!station) {
    TProblem problem = station.Problem();
    if (!problem.Where.empty()) problem.What = problem.Where + ": " + problem.What;
    problem.Where = text;
    return problem;
  }
  if (IsOutput(kind) && address->Cell.Table == mtHolding && address->Cell.Addr == (*station)->WatchdogRegister)
    return TProblem{.What = Tr("it is the station's watchdog register, which the driver writes"),
                    .Where = std::string(text)};
  return TFound{*std::move(address), *station};
}

class TModbusDriver final : public IMachineDriver, public IModbusStations {
 public:
  explicit TModbusDriver(const TDriverContext& context) : FContext(context) {
    FContext.Machine.Config.Section(TModbusRecord::kSection).Load(FRecord);
  }

  TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) override {
    auto found = Find(FRecord, kind, address);
    if (!found) return found.Problem();
    const TModbusAddress& at = found->Address;
    FAsked.emplace(std::string(address), std::pair(kind, at.Text() + " " + at.Limits()));
    const auto known = FPoints.find({kind, at.Text() + " " + at.Limits()});
    if (known != FPoints.end()) return &known->second;
    // Two outputs that write the same would never settle.
    if (IsOutput(kind))
      for (const auto& [bit, other] : FOutputs)
        if (bit.first == at.Station + ":" + at.Cell.Text() && (!bit.second || !at.Bit || bit.second == at.Bit))
          return TProblem{.What = Format(Tr("another output writes it already: %s"), other.c_str()),
                          .Where = std::string(address)};
    const auto [line, station] = StationOf(*found->Station);
    const std::size_t index = line->AddPoint(station, kind, at);
    if (IsOutput(kind)) FOutputs.push_back({{at.Station + ":" + at.Cell.Text(), at.Bit}, std::string(address)});
    return &FPoints.try_emplace({kind, at.Text() + " " + at.Limits()}, *line, index).first->second;
  }

  void NoteUse(IMachinePoint& point, TPointUse use) override { dynamic_cast<TModbusPoint&>(point).NoteUse(use); }

  TResult<> Connect() override {
    for (const auto& line : FLines)
      if (auto connected = line->Connect(); !connected) return connected;
    return {};
  }

  std::vector<TPortFacts> Ports() override {
    std::vector<TPortFacts> all;
    for (const auto& line : FLines)
      for (TPortFacts& facts : line->StationFacts()) all.push_back(std::move(facts));
    for (const auto& [asked, point] : FAsked) {
      const auto it = FPoints.find(point);
      if (it == FPoints.end()) continue;  // it was refused
      all.push_back(it->second.Facts());
      all.back().Port = asked;
    }
    return all;
  }

  // IModbusStations, on a line's thread
  void StationAway(const std::string& name, const std::string& why) override {
    TGuard guard(FLock);
    FAway[name] = Format(Tr("station %s: %s"), name.c_str(), why.c_str());
    FContext.Events.Away(FAway[name]);
  }
  void StationBack(const std::string& name) override {
    TGuard guard(FLock);
    FAway.erase(name);
    if (FAway.empty())
      FContext.Events.Back();
    else
      FContext.Events.Away(FAway.begin()->second);  // another one's
  }

 private:
  std::pair<TModbusLine*, std::size_t> StationOf(const TModbusStationConfig& config) {
    if (const auto it = FStations.find(config.Name); it != FStations.end()) return it->second;
    TModbusLine* line = nullptr;
    for (const auto& known : FLines)  // those on the same serial device share its line
      if (!config.Device.empty() && known->Link().Device == config.Device) line = known.get();
    if (!line)
      line =
          FLines.emplace_back(std::make_unique<TModbusLine>(config.Link(), FContext.Machine.Framework.Watch(), *this))
              .get();
    return FStations[config.Name] = {line, line->AddStation(config)};
  }

  const TDriverContext FContext;
  TModbusRecord FRecord;
  TCriticalSection FLock;  // held over the events, so that they come in their order
  std::map<std::string, std::string> FAway IXO_GUARDED_BY(FLock);      // why, by station
  std::map<std::pair<TPointKind, std::string>, TModbusPoint> FPoints;  // by address and range
  std::map<std::string, std::pair<TPointKind, std::string>> FAsked;    // the key of each text
  std::vector<std::pair<std::pair<std::string, std::optional<std::int32_t>>, std::string>> FOutputs;  // what writes it
  std::map<std::string, std::pair<TModbusLine*, std::size_t>> FStations;
  std::vector<std::unique_ptr<TModbusLine>> FLines;  // freed first: their threads call the rest
};

// The section's values within their ranges, and no station that contradicts itself.
TResult<> CheckStations(const TConfigSection& section) {
  TModbusRecord record;
  section.Load(record);
  std::vector<TProblem> problems;
  CheckRecord(section, record, {}, problems);
  if (!problems.empty()) return problems.front();
  for (const auto& station : record.Stations)
    if (auto found = record.Find(station->Name); !found) return found.Problem();
  return {};
}

TResult<std::unique_ptr<IMachineDriver>> Make(const TDriverContext& context) {
  if (auto good = CheckStations(context.Machine.Config.Section(TModbusRecord::kSection)); !good) return good.Problem();
  return std::unique_ptr<IMachineDriver>(std::make_unique<TModbusDriver>(context));
}

TResult<> CheckPoint(const TConfigSection& root, TPointKind kind, std::string_view address) {
  TModbusRecord record;
  record.Initialize();
  root.Child(TModbusRecord::kSection).LoadOver(record);
  if (auto found = Find(record, kind, address); !found) return found.Problem();
  return {};
}

}  // namespace

TDriverFactory ModbusDriver() {
  return {.Name = "modbus",
          .Make = Make,
          .Sections = {{TModbusRecord::kSection, [] { return std::make_unique<TModbusRecord>(); }}},
          .CheckPoint = CheckPoint};
}

}  // namespace ixocamglue
