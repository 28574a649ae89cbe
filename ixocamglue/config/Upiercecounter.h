// Counts pierces since the last nozzle cleaning against the machine's running total. Any thread: every operation runs
// under the counter's own, recursive lock; the cutting thread counts while the interface reads and resets.
#pragma once

#include <cstdint>

#include "ixocamglue/config/Uclientconfig.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

class TMachineConfig;

// Nothing fails but SaveParam: false, the file does not hold them.
class TPierceCounter {
 public:
  // Both outlive the counter or are taken back with null. Without a configuration the total is 0, and nothing is saved;
  // without a record the preset is 0.
  void SetConfig(TAutoCleanHeadConfig* config, TMachineConfig* machine);

  // From the stored count; the stored total is not used, because the machine may have pierced without us.
  void LoadParam();
  // Stores the count and the total, then saves the machine configuration, after the lock has been released unless the
  // caller holds it. True: the file holds them.
  bool SaveParam();
  void CalcPierceCount();  // a total that went down counts from 0 again
  void ResetPierceCount();
  [[nodiscard]] std::int32_t GetPierceCount();
  // Whether cleaning was due at the last CalcPierceCount.
  [[nodiscard]] bool NeedClean();

  void Lock() IXO_ACQUIRE(FLock) { FLock.lock(); }
  void Unlock() IXO_RELEASE(FLock) { FLock.unlock(); }

 private:
  [[nodiscard]] std::int32_t TotalLocked() const IXO_REQUIRES(FLock);

  TRecursiveSection FLock;
  TAutoCleanHeadConfig* FConfig IXO_GUARDED_BY(FLock) = nullptr;
  TMachineConfig* FMachine IXO_GUARDED_BY(FLock) = nullptr;
  std::int32_t FCount IXO_GUARDED_BY(FLock) = 0;
  std::int32_t FLastTotal IXO_GUARDED_BY(FLock) = 0;
  bool FNeedClean IXO_GUARDED_BY(FLock) = false;
};

}  // namespace ixocamglue
