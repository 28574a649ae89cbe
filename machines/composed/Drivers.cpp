#include "machines/composed/Drivers.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/composed/Ports.h"

namespace ixocamglue {
namespace {

// What a driver's own port is on the machine, where its name says so.
std::string AxisLabel(const std::string& port) {
  constexpr std::string_view kAxes[] = {"X", "Y", "Z", "Z2", "Focus"};
  return std::ranges::find(kAxes, port) == std::end(kAxes) ? std::string() : Format(Tr("axis %s"), port.c_str());
}

[[noreturn]] void ThrowOwned(const std::string& address, const std::string& label) {
  throw EProblem(pbUnusable, TProblem{.What = Format(Tr("%s is to be switched by nothing else"), label.c_str()),
                                      .Where = address,
                                      .Why = Tr("another device of the machine file has the same output"),
                                      .Remedy = Tr("give each its own address")});
}

}  // namespace

// One driver, what it may tell the observer, and whether its device answers.
struct TDriverSet::TSlot final : IMachineObserver, IDriverEvents {
  TSlot(TDriverSet& owner, std::string name, std::int32_t number)
      : Owner(owner), Name(std::move(name)), Number(number), Context{owner.FCore.Context.Framework,
                                                                     owner.FCore.Context.Config,
                                                                     owner.FCore.Context.Alarms,
                                                                     static_cast<IMachineObserver&>(*this),
                                                                     owner.FCore.Context.Clock,
                                                                     owner.FCore.Context.Seed} {}

  void Called(TDeviceCall) override {}
  void Happened(std::uint64_t ms, std::string_view device, std::string_view text) override {
    Owner.FCore.Context.Observer.Happened(ms, device, text);
  }
  void Signalled(const TSignal& signal) override {
    switch (signal.Kind) {
      case sgState:
      case sgOutput: return;
      case sgEmission:
      case sgLaser:
      case sgAiming:
        if (!TellsLaser) return;
        break;
      case sgGas:
      case sgGasVolt:
        if (!TellsGas) return;
    }
    Owner.FCore.Context.Observer.Signalled(signal);
  }

  // The alarm first: a beam that is switched on meanwhile finds it, or is found lit.
  void Away(const std::string& why) override {
    {
      TGuard guard(Lock);
      if (Serial == 0) {
        Serial = Owner.FCore.Context.Alarms.Raise(
            {.IdPrefix = kDriverAlarmPrefix,
             .Desc = Format(Tr("the devices of the driver \"%s\" cannot be used: %s"), Name.c_str(), why.c_str()),
             .Id = Number,
             .Attrs = kDriverAwayForbids});
        Owner.FCore.Event("driver", Format("%s away: %s", Name.c_str(), why.c_str()));
      }
    }
    Owner.TellAway();
  }
  void Back() override {
    TGuard guard(Lock);
    if (Serial == 0) return;
    Owner.FCore.Context.Alarms.ClearSerial(std::exchange(Serial, 0));
    Owner.FCore.Event("driver", Format("%s back", Name.c_str()));
  }

  TDriverSet& Owner;
  const std::string Name;
  const std::int32_t Number;  // of its alarm
  const TMachineContext Context;
  bool TellsLaser = false;
  bool TellsGas = false;
  TCriticalSection Lock;
  std::uint64_t Serial IXO_GUARDED_BY(Lock) = 0;  // of the alarm that stands; 0: none
  std::unique_ptr<IMachineDriver> Driver;         // ends before what it tells
};

TDriverSet::TDriverSet(TComposedCore& core, std::span<const TDriverFactory> factories)
    : FCore(core), FFactories(factories) {}

TDriverSet::~TDriverSet() {
  for (const auto& slot : FSlots) slot->Driver.reset();
  for (const auto& slot : FSlots) slot->Back();
}

void TDriverSet::OnAway(std::function<void()> listener) {
  TGuard guard(FAwayLock);
  FOnAway = std::move(listener);
}

void TDriverSet::TellAway() {
  TGuard guard(FAwayLock);
  if (FOnAway) FOnAway();
}

TDriverSet::TSlot& TDriverSet::Slot(const std::string& name) {
  const auto made = std::ranges::find(FSlots, name, [](const auto& slot) { return slot->Name; });
  if (made != FSlots.end()) return **made;
  const auto factory = std::ranges::find(FFactories, name, &TDriverFactory::Name);
  if (factory == FFactories.end()) throw EProblem(pbUnusable, Format(Tr("there is no driver \"%s\""), name.c_str()));
  if (FCore.Context.Clock && !factory->VirtualTime)
    throw EProblem(
        pbUnusable,
        TProblem{.What = Format(Tr("the driver \"%s\" works in real time only"), name.c_str()),
                 .Where = {},
                 .Why = Tr("its devices do not wait for a clock that is made of software"),
                 .Remedy = Tr("run it with --realtime where the command has that, or on a controller that serves")});
  auto slot = std::make_unique<TSlot>(*this, name, static_cast<std::int32_t>(factory - FFactories.begin()) + 1);
  slot->Driver = factory->Make({slot->Context, *slot}).OrThrow(pbUnusable);
  FDrivers.push_back(slot->Driver.get());
  return *FSlots.emplace_back(std::move(slot));
}

IMachineDriver& TDriverSet::Driver(const std::string& name) { return *Slot(name).Driver; }
void TDriverSet::TellsLaser(const std::string& name) { Slot(name).TellsLaser = true; }
void TDriverSet::TellsGas(const std::string& name) { Slot(name).TellsGas = true; }

IMachinePoint* TDriverSet::Point(TPointKind kind, const std::string& address, const std::string& driver,
                                 std::string label, const char* unit) {
  if (address.empty()) return nullptr;
  const TPointName name = PointName(address, driver, FFactories);
  TSlot& slot = Slot(name.Driver);
  IMachinePoint* point = slot.Driver->Point(kind, name.Address).OrThrow(pbUnusable);
  if (kind == pkOutput || kind == pkAnalogOut) {
    auto& steady = FSteady[point];
    if (!steady) steady = std::make_unique<TSteadyPoint>(*point);
    point = steady.get();
    if (const auto own = FOwned.find(point); own != FOwned.end()) ThrowOwned(address, own->second);
  }
  if (name.Inverted) point = FInverted.emplace_back(std::make_unique<TInvertedPoint>(*point)).get();
  if (!label.empty()) FPoints.push_back({std::move(label), &slot, name.Address, kind, point, unit});
  return point;
}

IMachinePoint* TDriverSet::OwnOutput(const std::string& address, const std::string& driver, std::string label) {
  if (address.empty()) return nullptr;
  const std::size_t before = FSteady.size();
  IMachinePoint* const point = Point(pkOutput, address, driver, label);
  if (FSteady.size() == before) ThrowOwned(address, label);
  FOwned.emplace(point, std::move(label));
  return point;
}

void TDriverSet::NoteUse(TPointKind kind, const std::string& address, const std::string& driver, TPointUse use) {
  if (address.empty()) return;
  const TPointName name = PointName(address, driver, FFactories);
  IMachineDriver& owner = Driver(name.Driver);
  owner.NoteUse(*owner.Point(kind, name.Address).OrThrow(pbUnusable), use);
}

TResult<> TDriverSet::Connect() {
  for (const auto& slot : FSlots)
    if (TResult<> connected = slot->Driver->Connect(); !connected) {
      TProblem problem = connected.Problem();
      problem.What = Format(Tr("driver \"%s\": %s"), slot->Name.c_str(), problem.What.c_str());
      return problem;
    }
  return {};
}

std::vector<TMachinePort> TDriverSet::PortFacts() const {
  std::vector<TMachinePort> ports;
  for (const auto& slot : FSlots) {
    const std::vector<TPortFacts> facts = slot->Driver->Ports();
    for (const TPortFacts& fact : facts)
      if (std::ranges::none_of(
              FPoints, [&](const TNamed& point) { return point.Slot == slot.get() && point.Address == fact.Port; }))
        ports.push_back({AxisLabel(fact.Port), slot->Name, fact});
    for (const TNamed& point : FPoints) {
      if (point.Slot != slot.get()) continue;
      const auto said = std::ranges::find(facts, point.Address, &TPortFacts::Port);
      TPortFacts fact;
      if (said != facts.end()) fact = *said;
      fact.Port = point.Address;
      fact.AgeMs = point.Point->AgeMs();
      fact.Readable = WhereReached([&] {
        const double value = point.Point->Read();
        if (IsDigital(point.Kind))
          fact.Value = value != 0.0 ? "1" : "0";
        else if (*point.Unit != '\0')
          fact.Value = Format("%.3f %s", value, point.Unit);
        else if (fact.Value.empty())
          fact.Value = ValueText(value);
      });
      ports.push_back({point.Label, slot->Name, std::move(fact)});
    }
  }
  return ports;
}

}  // namespace ixocamglue
