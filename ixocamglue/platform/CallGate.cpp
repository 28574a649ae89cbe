#include "ixocamglue/platform/CallGate.h"

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

void Beat() {
  if (!OnStateThread()) return;
  if (TNcWatch* const watch = NcWatch()) watch->BeatMs.store(Clock().MonotonicMs(), std::memory_order_release);
}

}  // namespace

bool TCallGate::Enter(const char* device, const char* verb, TVerbKind kind, std::string args,
                      const char* (*forbids)()) {
  return Pass(device, verb, kind, std::move(args), forbids) != 0;
}

std::uint64_t TCallGate::Pass(const char* device, const char* verb, TVerbKind kind, std::string args,
                              const char* (*forbids)()) {
  const std::uint64_t call = FCalls.fetch_add(1, std::memory_order_relaxed) + 1;
  Beat();
  if (TGatePlan plan; FArmed.load(std::memory_order_acquire) && Hit(call, device, verb, plan)) {
    switch (plan.Fault) {
      case gfThrow:
        Tell(call, device, verb, kind, std::move(args), toThrew);
        FFailed.store(true, std::memory_order_relaxed);
        if (FOnAnswer) FOnAnswer(device, false);
        throw EDeviceFault(Format(Tr("%s.%s: the device does not answer"), device, verb));
      case gfRefuse: Tell(call, device, verb, kind, std::move(args), toRefused); return 0;
      case gfHang: Clock().Sleep(plan.HangMs); break;
      case gfCallback:
        if (plan.Callback) plan.Callback();
        break;
    }
  }
  if (FFailed.load(std::memory_order_relaxed) && FOnAnswer) FOnAnswer(device, true);
  if (const char* const why = forbids ? forbids() : nullptr) {
    Tell(call, device, verb, kind, std::move(args), toRefused);
    if (FObserver) FObserver->Happened(Clock().MonotonicMs(), device, Format("%s refused: %s", verb, why));
    return 0;
  }
  if (kind != vkRead && kind != vkLock) Tell(call, device, verb, kind, std::move(args), toDone);
  return call;
}

void TCallGate::Threw(std::uint64_t call, const char* device, const char* verb, TVerbKind kind,
                      const std::string& args) {
  Tell(call, device, verb, kind, args, toThrew);
  FFailed.store(true, std::memory_order_relaxed);
  if (FOnAnswer) FOnAnswer(device, false);
}

bool TCallGate::Hit(std::uint64_t call, const char* device, const char* verb, TGatePlan& plan) {
  TGuard guard(FLock);
  const bool planned = call == FPlan.Call;
  if (!planned && !(FStuck && FStuck->first == device && FStuck->second == verb)) return false;
  if (planned) {
    FFired.store(true, std::memory_order_release);
    if (FPlan.Sticky)
      FStuck.emplace(device, verb);
    else
      FArmed.store(false, std::memory_order_release);
  }
  plan = FPlan;
  return true;
}

void TCallGate::Tell(std::uint64_t call, const char* device, const char* verb, TVerbKind kind, std::string args,
                     TOutcome outcome) {
  if (FObserver) FObserver->Called({Clock().MonotonicMs(), call, device, verb, std::move(args), kind, outcome});
}

void TCallGate::PlanSet(TGatePlan plan) {
  TGuard guard(FLock);
  FStuck.reset();
  FFired.store(false, std::memory_order_release);
  FArmed.store(plan.Call != 0, std::memory_order_release);
  FPlan = std::move(plan);
}

void TCallGate::Reset() {
  PlanSet({});
  FCalls.store(0, std::memory_order_relaxed);
}

std::optional<std::pair<std::string, std::string>> TCallGate::Stuck() const {
  TGuard guard(FLock);
  return FStuck;
}

}  // namespace ixocamglue
