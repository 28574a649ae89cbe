#include "machines/simulated/Collisions.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr double kScratch = 0.1;  // sideways; less is what a height that is followed closely may vary by
constexpr double kPressed = 1.0;  // straight down; a calibration comes to rest within less

}  // namespace

TSimCollisions::TSimCollisions(TSimCore& core, const TSimConfig& config, const TSimMotion& motion,
                               const TSimFollower* first, const TSimFollower* second)
    : FCore(core),
      FMotion(motion),
      FTable(config.WorkArea),
      FPlateZ(config.Physics.PlateZ),
      FHeads{{{first ? "follower" : "axes", first}, {"follower2", second}}} {
  for (const TSimBrushPlace& brush : config.Brushes)
    FBeside.push_back({{brush.X - brush.Half, brush.Y - brush.Half}, {brush.X + brush.Half, brush.Y + brush.Half}});
  for (const TSimSlot& slot : config.Rack.Slots)
    FBeside.push_back({{slot.X - TSimRackConfig::kHeadWidth, slot.Y - TSimRackConfig::kHeadWidth},
                       {slot.X + TSimRackConfig::kHeadWidth, slot.Y + TSimRackConfig::kHeadWidth}});
}

void TSimCollisions::Step(std::uint64_t) {
  FCore.AssertLocked();
  const bool axes = FMotion.Active();
  for (THead& head : FHeads) {
    if (&head != FHeads.data() && !head.Follower) continue;
    if (axes || head.Contact != TContact::None || (head.Follower && head.Follower->Moving())) Watch(head);
  }
}

void TSimCollisions::Watch(THead& head) {
  const double z = head.Follower ? head.Follower->Z() : FMotion.Z();
  double surface = head.Follower ? head.Follower->PlateZ() : FPlateZ;
  const bool plate = std::isfinite(surface);
  if (!plate) surface = FPlateZ + kSlats;
  const double below = z - surface;
  TContact contact = TContact::None;
  if (OverTable(FMotion.Pos())) {
    if (FMotion.PathSpeed() != 0.0 && below > kScratch)
      contact = TContact::Dragged;
    else if (below > kPressed)
      contact = TContact::Pressed;
  }
  if (contact > head.Contact) {
    const bool dragged = contact == TContact::Dragged;
    const char* const text = dragged
                                 ? (plate ? TrMark("the nozzle is dragged through the plate, %.2f mm below its surface")
                                          : TrMark("the nozzle is dragged through a slat, %.2f mm below its surface"))
                                 : (plate ? TrMark("the nozzle is pressed into the plate, %.2f mm below its surface")
                                          : TrMark("the nozzle is pressed into a slat, %.2f mm below its surface"));
    FCore.Collide(head.Device, Format(text, below), Format(Tr(text), below));
  }
  head.Contact = contact;
}

bool TSimCollisions::OverTable(TPoint2 at) const {
  return Inside(FTable, at) && std::ranges::none_of(FBeside, [&](const TNcArea& area) { return Inside(area, at); });
}

}  // namespace ixocamglue
