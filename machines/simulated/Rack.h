// The simulated nozzle rack: a cap and a stage that outputs move and inputs report, slots with nozzles, and the turning
// axis that screws them. mm.
//
// Cap and stage keep their position while no output is on. A nozzle changes between head and slot when the stage is up,
// the cap open, the head stands at the slot's height over it, and the axis has turned the thread's length the right
// way; the slot's input changes with it. A head that drives sideways between the slots or down onto the closed cap, or
// that cap or stage moves against, is a collision ("rack: collision: struck by the head"). Nothing here fails.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "machines/simulated/Axes.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Follower.h"
#include "machines/simulated/Ports.h"

namespace ixocamglue {

class TSimRack final : public ISimPart {
 public:
  // `follower`: whose Z is the head's; null where the driver has it. `second`: of the head beside it, null: none. All
  // outlive the rack.
  TSimRack(TSimCore& core, const TSimRackConfig& config, TSimPorts& ports, const TSimMotion& motion,
           const TSimFollower* follower, const TSimFollower* second);
  ~TSimRack() override;

  // --- by hand and on request; any thread ---
  void Open();  // cap and stage, at once
  void SetCapStuck(bool stuck);
  void SetStageStuck(bool stuck);
  void SetJammed(bool jammed);                            // the thread does not let go
  void SetSlotInputsStuck(bool stuck);                    // they keep their level
  void PutNozzle(std::size_t slot, std::int32_t nozzle);  // 0: takes it out
  void PutNozzleInHead(std::int32_t nozzle);

  [[nodiscard]] std::int32_t HeadNozzle() const;  // 0: none; any thread
  [[nodiscard]] std::int32_t NozzleIn(std::size_t slot) const;
  // The core's lock is held.
  [[nodiscard]] bool Travelling() const;      // cap or stage
  [[nodiscard]] std::int32_t Nozzle() const;  // as HeadNozzle

  void Step(std::uint64_t nowMs) override;

 private:
  struct TMover {
    const char* OpenText;
    const char* CloseText;
    std::int32_t OutOpen;
    std::int32_t OutClose;
    TSimSwitch InOpen;
    TSimSwitch InClose;
    bool Fitted = OutOpen > 0 || OutClose > 0;
    bool Stuck = false;
    double Pos = Fitted ? 0.0 : 1.0;  // 0 closed or down, 1 open or up
    int Direction = 0;
  };

  void Switched(std::int32_t port) IXO_REQUIRES(FCore.Lock);
  void Show(const TMover& mover) IXO_REQUIRES(FCore.Lock);
  void Move(TMover& mover) IXO_REQUIRES(FCore.Lock);
  void ShowSlot(std::size_t slot) IXO_REQUIRES(FCore.Lock);
  void Turn() IXO_REQUIRES(FCore.Lock);
  void Transfer(TSimSlot& slot) IXO_REQUIRES(FCore.Lock);
  void WatchHead() IXO_REQUIRES(FCore.Lock);
  [[nodiscard]] double HeadZ() const { return FFollower ? FFollower->Z() : FMotion.Z(); }
  [[nodiscard]] TSimSlot* SlotUnderHead() IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  TSimPorts& FPorts;
  const TSimMotion& FMotion;
  const TSimFollower* const FFollower;
  const TSimFollower* const FSecond;
  const TSimRackConfig FConfig;
  TNcArea FRegion;     // of the slots and a head's width around them
  double FTopZ = 0.0;  // of the nozzles in their slots
  std::vector<TSimSlot> FSlots IXO_GUARDED_BY(FCore.Lock);
  TMover FCap IXO_GUARDED_BY(FCore.Lock);
  TMover FStage IXO_GUARDED_BY(FCore.Lock);
  bool FTravelling IXO_GUARDED_BY(FCore.Lock) = false;
  std::int32_t FHead IXO_GUARDED_BY(FCore.Lock);
  double FTurned IXO_GUARDED_BY(FCore.Lock) = 0.0;  // the axis when it was last looked at
  double FThread IXO_GUARDED_BY(FCore.Lock) = 0.0;  // turns in the slot; positive: screwing on
  bool FJammed IXO_GUARDED_BY(FCore.Lock) = false;
  bool FInputsStuck IXO_GUARDED_BY(FCore.Lock) = false;
  bool FStruck IXO_GUARDED_BY(FCore.Lock) = false;
};

// The brushes beside the table. A use is a way of at least kLeastWay with the nozzle in the bristles.
class TSimBrush final : public ISimPart {
 public:
  static constexpr double kLeastWay = 5.0;  // mm

  TSimBrush(TSimCore& core, const std::vector<TSimBrushPlace>& places, const TSimMotion& motion,
            const TSimFollower* follower)
      : FCore(core), FPlaces(places), FMotion(motion), FFollower(follower) {}

  void Remove();                             // there are none any more; any thread
  [[nodiscard]] std::uint32_t Uses() const;  // any thread

  void Step(std::uint64_t nowMs) override;

 private:
  [[nodiscard]] const TSimBrushPlace* UnderNozzle() const;

  TSimCore& FCore;
  const std::vector<TSimBrushPlace> FPlaces;
  const TSimMotion& FMotion;
  const TSimFollower* const FFollower;
  bool FRemoved IXO_GUARDED_BY(FCore.Lock) = false;
  bool FInside IXO_GUARDED_BY(FCore.Lock) = false;
  double FWay IXO_GUARDED_BY(FCore.Lock) = 0.0;
  std::uint32_t FUses IXO_GUARDED_BY(FCore.Lock) = 0;
};

}  // namespace ixocamglue
