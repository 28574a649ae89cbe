// The simulated laser source: shutter ("emission") with a delay, beam, and the latch that keeps both off.
//
// A beam that is asked for while emission is missing is held back and comes with it. Switching off is immediate, and
// without emission nothing stays asked for at the device. What LaserForbidden forbids is refused, a tripped latch
// included; what was asked for before the trip is forgotten. Reads answer the physical state; refused ones answer "no
// emission" and "beam may be on". Any thread; Step with the core's lock held.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/platform/states/LaserLatch.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Random.h"

namespace ixocamglue {

// When emission comes after it was asked for.
struct TEmissionScript {
  enum class TMode : std::uint8_t { emDelay, emPolls, emNever };
  TMode Mode = TMode::emDelay;
  std::uint32_t Polls = 0;  // emPolls: so many reads answer "no" before

  static TEmissionScript Delayed() { return {}; }  // by the machine's delay and jitter
  static TEmissionScript AfterPolls(std::uint32_t polls) { return {TMode::emPolls, polls}; }
  static TEmissionScript Never() { return {TMode::emNever, 0}; }
};

// What befalls a lit beam, once.
enum class TLitFault : std::uint8_t { None, EmissionDrops, InterlockOpens, OffHangs };

class TSimLaser final : public IMachineLaser, public ISimPart {
 public:
  TSimLaser(TSimCore& core, const TSimConfig& config, std::uint64_t seed);
  ~TSimLaser() override;

  bool GetEmission() override;
  void EmissionOn() override;
  void EmissionOff() override;
  bool GetLaser() override;
  bool GetAiming() override;
  void SetAiming(bool on) override;  // neither latch nor emission matter
  void AimingOff() override;
  void SwitchLaser(bool on) override;  // the cutting system's SwitchLaser ends here

  const char* LatchReason() override { return FLatch.Reason(); }
  void Trip(const char* reason) override { FLatch.Trip(reason); }
  void ResetLatch() override;
  [[nodiscard]] bool LatchTripped() const { return FLatch.Tripped(); }

  // --- what is so, past the gate; any thread ---
  [[nodiscard]] bool Lit() const { return FAskLaser && Emitting(); }
  [[nodiscard]] bool Emitting() const { return FEmission && !FLatch.Tripped(); }
  [[nodiscard]] bool Aiming() const { return FAiming; }
  [[nodiscard]] bool EmissionAsked() const { return FAskEmission; }
  [[nodiscard]] bool BeamAsked() const { return FAskLaser; }

  void SetEmissionScript(TEmissionScript script);
  void LoseEmission();  // the source drops emission by itself; it has to be asked for again
  // While the beam is lit, kLitFaultMs after it came; or in the call that switches it off, which then takes kHangMs.
  void PlanFault(TLitFault fault) { FFault = fault; }

  void Step(std::uint64_t nowMs) override;
  // Notices what the latch did since the last step; the core's lock is held.
  void Settle();

 private:
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
  static constexpr std::uint64_t kLitFaultMs = 30;
  static constexpr std::uint32_t kHangMs = 300;

  void Drop() IXO_REQUIRES(FCore.Lock);
  void Befall() IXO_REQUIRES(FCore.Lock);
  void Rise() IXO_REQUIRES(FCore.Lock);
  [[nodiscard]] bool ForbiddenMeanwhile() IXO_REQUIRES(FCore.Lock);
  void Watch() IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  const std::uint64_t FDelayMs;
  const std::uint64_t FJitterMs;
  TLaserLatch FLatch;
  // Written with the core's lock held, read by anyone.
  std::atomic<bool> FAskEmission{false};
  std::atomic<bool> FEmission{false};
  std::atomic<bool> FAskLaser{false};
  std::atomic<bool> FAiming{false};
  std::atomic<TLitFault> FFault{TLitFault::None};
  TSimRandom FRandom IXO_GUARDED_BY(FCore.Lock);
  TEmissionScript FScript IXO_GUARDED_BY(FCore.Lock);
  std::uint64_t FUpAtMs IXO_GUARDED_BY(FCore.Lock) = kNever;
  std::uint32_t FPolls IXO_GUARDED_BY(FCore.Lock) = 0;
  bool FShownTrip IXO_GUARDED_BY(FCore.Lock) = false;
  bool FShownEmission IXO_GUARDED_BY(FCore.Lock) = false;
  bool FShownLaser IXO_GUARDED_BY(FCore.Lock) = false;
  bool FToldLit IXO_GUARDED_BY(FCore.Lock) = false;  // to the watch
  bool FToldEmission IXO_GUARDED_BY(FCore.Lock) = false;
  std::uint64_t FLitAtMs IXO_GUARDED_BY(FCore.Lock) = 0;  // since when it is shown
};

}  // namespace ixocamglue
