// Watches the nozzles over the table: what would break on a real machine is told and counted, and nothing else comes of
// it. mm.
//
// The plate covers the work area, at the height that each head's sensor has under it; without a plate there are the
// slats that carry it. Brushes and rack stand beside the table, or on it where the work area is not narrowed. What has
// no state is for any thread, and does not fail.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "machines/simulated/Axes.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Follower.h"

namespace ixocamglue {

[[nodiscard]] inline bool Inside(const TNcArea& area, TPoint2 p) {
  return p.X >= area.Min.X && p.X <= area.Max.X && p.Y >= area.Min.Y && p.Y <= area.Max.Y;
}

class TSimCollisions final : public ISimPart {
 public:
  static constexpr double kSlats = 10.0;  // below the plate's surface as the machine file has it

  // Followers: null where none is fitted; without any, the driver's Z is the head's. All outlive this.
  TSimCollisions(TSimCore& core, const TSimConfig& config, const TSimMotion& motion, const TSimFollower* first,
                 const TSimFollower* second);

  void Step(std::uint64_t nowMs) override;

 private:
  enum class TContact : std::uint8_t { None, Pressed, Dragged };
  struct THead {
    const char* Device;
    const TSimFollower* Follower;  // null: the driver's Z
    TContact Contact = TContact::None;
  };

  void Watch(THead& head) IXO_REQUIRES(FCore.Lock);
  [[nodiscard]] bool OverTable(TPoint2 at) const;

  TSimCore& FCore;
  const TSimMotion& FMotion;
  const TNcArea FTable;
  const double FPlateZ;  // where no sensor has another
  std::vector<TNcArea> FBeside;
  std::array<THead, 2> FHeads IXO_GUARDED_BY(FCore.Lock);
};

}  // namespace ixocamglue
