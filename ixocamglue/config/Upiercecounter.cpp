#include "ixocamglue/config/Upiercecounter.h"

#include <algorithm>
#include <limits>

#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

void TPierceCounter::SetConfig(TAutoCleanHeadConfig* config, TMachineConfig* machine) {
  TGuard guard(FLock);
  FConfig = config;
  FMachine = machine;
}

std::int32_t TPierceCounter::TotalLocked() const { return FMachine ? FMachine->NcParams().PierceTotal.load() : 0; }

// Kept: the stored total is not used; the machine may have been reset, or have pierced without us.
void TPierceCounter::LoadParam() {
  TGuard guard(FLock);
  FCount = FConfig ? FConfig->LastPierceCount.load() : 0;
  FNeedClean = false;
  FLastTotal = TotalLocked();
}

bool TPierceCounter::SaveParam() {
  TMachineConfig* machine = nullptr;
  {
    TGuard guard(FLock);
    if (!FConfig) return false;
    FConfig->LastPierceCount.store(FCount);
    FConfig->LastPierceTotal.store(FLastTotal);
    machine = FMachine;
  }
  return machine && machine->Save().Ok();
}

void TPierceCounter::CalcPierceCount() {
  TGuard guard(FLock);
  const std::int32_t total = TotalLocked();
  const std::int64_t delta = std::int64_t{total} - FLastTotal;
  FLastTotal = total;
  FCount =
      delta < 0
          ? 0
          : static_cast<std::int32_t>(std::min<std::int64_t>(FCount + delta, std::numeric_limits<std::int32_t>::max()));
  const std::int32_t preset = FConfig ? FConfig->PresetPierceCount.load() : 0;
  FNeedClean = preset > 0 && preset <= FCount;
}

void TPierceCounter::ResetPierceCount() {
  TGuard guard(FLock);
  FLastTotal = TotalLocked();
  FCount = 0;
  FNeedClean = false;
}

std::int32_t TPierceCounter::GetPierceCount() {
  TGuard guard(FLock);
  return FCount;
}

bool TPierceCounter::NeedClean() {
  TGuard guard(FLock);
  return FNeedClean;
}

}  // namespace ixocamglue
