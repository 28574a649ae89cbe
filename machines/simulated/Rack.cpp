#include "machines/simulated/Rack.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Collisions.h"

namespace ixocamglue {
namespace {

constexpr double kOverSlot = 0.5;  // mm; a head further off the slot's middle does not grip the nozzle
constexpr double kAtHeight = 1.0;  // mm
constexpr double kHeadWidth = TSimRackConfig::kHeadWidth;
constexpr double kNozzleLength = 5.0;  // mm by which a nozzle in the head reaches between the slots

}  // namespace

// --- TSimRack ---

TSimRack::TSimRack(TSimCore& core, const TSimRackConfig& config, TSimPorts& ports, const TSimMotion& motion,
                   const TSimFollower* follower, const TSimFollower* second)
    : FCore(core),
      FPorts(ports),
      FMotion(motion),
      FFollower(follower),
      FSecond(second),
      FConfig(config),
      FSlots(config.Slots),
      FCap{"cap open", "cap closed", config.OutCapOpen, config.OutCapClose, config.InCapOpen, config.InCapClose},
      FStage{"stage up", "stage down", config.OutStageUp, config.OutStageDown, config.InStageUp, config.InStageDown},
      FHead(config.HeadNozzle) {
  if (FSlots.empty()) return;
  const auto [minX, maxX] = std::ranges::minmax(FSlots, {}, &TSimSlot::X);
  const auto [minY, maxY] = std::ranges::minmax(FSlots, {}, &TSimSlot::Y);
  FRegion = {{minX.X - kHeadWidth, minY.Y - kHeadWidth}, {maxX.X + kHeadWidth, maxY.Y + kHeadWidth}};
  FTopZ = std::ranges::min(FSlots, {}, &TSimSlot::UninstZ).UninstZ - kNozzleLength;
  const TSimScope scope(FCore);
  Show(FCap);
  Show(FStage);
  for (std::size_t i = 0; i < FSlots.size(); ++i) ShowSlot(i);
  FPorts.OnSwitch([this](std::int32_t port) {
    FCore.AssertLocked();
    Switched(port);
  });
}

TSimRack::~TSimRack() { FPorts.OnSwitch({}); }

void TSimRack::Show(const TMover& mover) {
  FPorts.Drive(mover.InOpen, mover.Pos == 1.0);
  FPorts.Drive(mover.InClose, mover.Pos == 0.0);
}

void TSimRack::ShowSlot(std::size_t slot) {
  if (!FInputsStuck) FPorts.Drive(FSlots[slot].Ready, FSlots[slot].Nozzle != 0);
}

void TSimRack::Switched(std::int32_t port) {
  for (TMover* const mover : {&FCap, &FStage}) {
    if (port <= 0 || (port != mover->OutOpen && port != mover->OutClose)) continue;
    mover->Direction = (FPorts.IsOn(mover->OutOpen) ? 1 : 0) - (FPorts.IsOn(mover->OutClose) ? 1 : 0);
    if (mover->Direction != 0) FTravelling = true;
  }
}

void TSimRack::Move(TMover& mover) {
  const double end = mover.Direction > 0 ? 1.0 : 0.0;
  if (mover.Direction == 0 || mover.Stuck || mover.Pos == end) return;
  const double step = 1.0 / std::max(FConfig.TravelMs, 1);
  const bool leaves = mover.Pos == 0.0 || mover.Pos == 1.0;
  mover.Pos = std::clamp(mover.Pos + mover.Direction * step, 0.0, 1.0);
  if (std::abs(mover.Pos - end) < step / 2) mover.Pos = end;
  if (leaves || mover.Pos == end) Show(mover);
  if (mover.Pos == end)
    FCore.Event("rack", end == 1.0 ? mover.OpenText : mover.CloseText);
  else
    FTravelling = true;
}

bool TSimRack::Travelling() const {
  FCore.AssertLocked();
  return FTravelling;
}

std::int32_t TSimRack::Nozzle() const {
  FCore.AssertLocked();
  return FHead;
}

void TSimRack::Step(std::uint64_t) {
  FCore.AssertLocked();
  const bool parts = FTravelling;
  if (parts) {
    FTravelling = false;
    Move(FCap);
    Move(FStage);
  }
  if (FSlots.empty()) return;
  const bool axes = FMotion.Active();
  if (axes) Turn();
  if (axes || parts || (FFollower && FFollower->Moving()) || (FSecond && FSecond->Moving())) WatchHead();
}

TSimSlot* TSimRack::SlotUnderHead() {
  if (FStage.Pos != 1.0 || FCap.Pos != 1.0) return nullptr;
  const TPoint2 pos = FMotion.Pos();
  const double z = HeadZ();
  const auto it = std::ranges::find_if(FSlots, [&](const TSimSlot& slot) {
    return std::abs(pos.X - slot.X) <= kOverSlot && std::abs(pos.Y - slot.Y) <= kOverSlot &&
           (std::abs(z - slot.Z) <= kAtHeight || std::abs(z - slot.UninstZ) <= kAtHeight);
  });
  return it == FSlots.end() ? nullptr : &*it;
}

void TSimRack::Turn() {
  const double now = FMotion.TurnPos(FConfig.MotorAxis);
  const double turned = (now - FTurned) * (FConfig.MotorDir ? -1.0 : 1.0);
  FTurned = now;
  TSimSlot* const slot = turned == 0.0 ? nullptr : SlotUnderHead();
  if (!slot) {
    if (!FMotion.Turning()) FThread = 0.0;
    return;
  }
  // An empty head only screws on, a full one only off: the other way the thread slips.
  FThread = FHead == 0 ? std::max(FThread + turned, 0.0) : std::min(FThread + turned, 0.0);
  if (!FJammed && std::abs(FThread) >= FConfig.ThreadTurns) Transfer(*slot);
}

void TSimRack::Transfer(TSimSlot& slot) {
  if ((FHead == 0) == (slot.Nozzle == 0)) return;
  FThread = 0.0;
  std::swap(FHead, slot.Nozzle);
  ShowSlot(static_cast<std::size_t>(&slot - FSlots.data()));
  if (FHead != 0)
    FCore.Event("rack", Format("nozzle %d from slot %d,%d into the head", FHead, slot.Row, slot.Col));
  else
    FCore.Event("rack", Format("nozzle %d from the head into slot %d,%d", slot.Nozzle, slot.Row, slot.Col));
}

void TSimRack::WatchHead() {
  const double lowest = FSecond ? std::max(HeadZ(), FSecond->Z()) : HeadZ();
  const bool low = FStage.Pos > 0.5 && lowest > FTopZ && Inside(FRegion, FMotion.Pos());
  const bool struck = low && (FMotion.PathSpeed() != 0.0 || FCap.Pos != 1.0 || FStage.Pos != 1.0);
  if (struck && !FStruck) FCore.Collide("rack", "struck by the head", Tr("struck by the head"));
  FStruck = struck;
}

void TSimRack::Open() {
  const TSimScope scope(FCore);
  FCap.Pos = FStage.Pos = 1.0;
  Show(FCap);
  Show(FStage);
}

void TSimRack::SetCapStuck(bool stuck) {
  const TSimScope scope(FCore);
  FCap.Stuck = stuck;
}

void TSimRack::SetStageStuck(bool stuck) {
  const TSimScope scope(FCore);
  FStage.Stuck = stuck;
}

void TSimRack::SetJammed(bool jammed) {
  const TSimScope scope(FCore);
  FJammed = jammed;
}

void TSimRack::SetSlotInputsStuck(bool stuck) {
  const TSimScope scope(FCore);
  FInputsStuck = stuck;
}

void TSimRack::PutNozzle(std::size_t slot, std::int32_t nozzle) {
  const TSimScope scope(FCore);
  if (slot >= FSlots.size()) return;
  FSlots[slot].Nozzle = nozzle;
  ShowSlot(slot);
}

void TSimRack::PutNozzleInHead(std::int32_t nozzle) {
  const TSimScope scope(FCore);
  FHead = nozzle;
}

std::int32_t TSimRack::HeadNozzle() const {
  const TSimScope scope(FCore);
  return FHead;
}

std::int32_t TSimRack::NozzleIn(std::size_t slot) const {
  const TSimScope scope(FCore);
  return slot < FSlots.size() ? FSlots[slot].Nozzle : 0;
}

// --- TSimBrush ---

void TSimBrush::Remove() {
  const TSimScope scope(FCore);
  FRemoved = true;
}

std::uint32_t TSimBrush::Uses() const {
  const TSimScope scope(FCore);
  return FUses;
}

const TSimBrushPlace* TSimBrush::UnderNozzle() const {
  const TPoint2 pos = FMotion.Pos();
  const double z = FFollower ? FFollower->Z() : FMotion.Z();
  const auto it = std::ranges::find_if(FPlaces, [&](const TSimBrushPlace& place) {
    return z >= place.TopZ && std::abs(pos.X - place.X) <= place.Half && std::abs(pos.Y - place.Y) <= place.Half;
  });
  return it == FPlaces.end() ? nullptr : &*it;
}

void TSimBrush::Step(std::uint64_t) {
  FCore.AssertLocked();
  if (!FInside && !FMotion.Active() && !(FFollower && FFollower->Moving())) return;
  const bool inside = !FRemoved && UnderNozzle() != nullptr;
  if (inside) FWay += std::abs(FMotion.PathSpeed()) * TTrapezoid::kStepS;
  if (inside == FInside) return;
  FInside = inside;
  if (inside) return FCore.Event("brush", "nozzle in the bristles");
  const bool used = FWay >= kLeastWay;
  if (used) ++FUses;
  FCore.Event("brush", Format("nozzle out of the bristles after %.1f mm%s", FWay, used ? "" : ", not a use"));
  FWay = 0.0;
}

}  // namespace ixocamglue
