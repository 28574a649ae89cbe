#include "controller/runs/ProcedureRun.h"

#include <algorithm>
#include <utility>

#include "controller/procedures/Procedures.h"
#include "controller/safety/LaserLatch.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kReadyWithinMs = 5'000;  // the machine acknowledges standby
constexpr std::uint32_t kLookEveryMs = 5;        // real time

}  // namespace

void WaitForStandby(TController& controller, const std::function<void()>& look) {
  TNcStateFramework& framework = controller.Framework();
  const std::uint64_t until = Clock().MonotonicMs() + kReadyWithinMs;
  while (framework.SafePending()) {
    if (Clock().MonotonicMs() >= until)
      throw EProblem(pbUnusable, Tr("the machine does not acknowledge standby: laser or emission stays on"));
    if (controller.VirtualClock()) {
      controller.RunPass();
      continue;
    }
    Clock().Sleep(kLookEveryMs);
    if (look) look();
  }
}

TProcedureRun::TProcedureRun(TControllerOptions options, TRunTriggers triggers, TDiagMask listen)
    : FListening(listen), FController(std::move(options)) {
  FWatch.Begin(std::move(triggers));
}

// Its end still moves the clock and changes the state.
TProcedureRun::~TProcedureRun() {
  FOnLook = nullptr;
  FController.StopThreads();
}

void TProcedureRun::OnPass(std::function<void()> before, std::function<void()> after) {
  FBeforePass = std::move(before);
  FAfterPass = std::move(after);
}

// --- the main thread; in virtual time from within each step of the clock ---

void TProcedureRun::Watch(std::uint64_t nowMs) {
  if (FOnLook) FOnLook(nowMs);
  FWatch.Look(nowMs);
}

void TProcedureRun::CheckSignal() {
  if (!FSignal || !FSignal->Asked() || FSignalled) return;
  FSignalled = Clock().MonotonicMs();
  LogMsg(lkWarning, 0, SSignalStop.Get(), "TPHost");
  FWatch.StopAsked();
  FController.Framework().Stop();
}

// True when `done` came within the limit.
template <class Done>
bool TProcedureRun::WaitFor(std::uint64_t limitMs, Done done) {
  const std::uint64_t end = Clock().MonotonicMs() + limitMs;
  while (!done()) {
    if (Clock().MonotonicMs() >= (FSignalled ? std::min(end, *FSignalled + kSignalEndsWithinMs) : end)) return false;
    if (FController.VirtualClock()) {
      if (FBeforePass) FBeforePass();
      FController.RunPass();
      if (FAfterPass) FAfterPass();
    } else {
      Clock().Sleep(kLookEveryMs);
      Watch(Clock().MonotonicMs());
      CheckSignal();
    }
  }
  return true;
}

void TProcedureRun::Ready() {
  for (const std::string& notice : FController.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  FController.OnState([this](std::int32_t from, std::int32_t to) { FWatch.Changed(from, to); });
  if (TVirtualClock* clock = FController.VirtualClock()) {
    clock->OnStep([this](std::uint64_t nowMs) { Watch(nowMs); });
  } else {
    FSignal.emplace();
    FController.StartThreads();
  }
  WaitForStandby(FController, [this] {
    Watch(Clock().MonotonicMs());
    CheckSignal();
  });
  SetLatch();
}

// A source's own latch is down as long as no controller lives. Whoever runs a procedure on a controller of its own has
// it set before, as the operator of one that stays up does by his reset; what stays latched refuses by itself.
void TProcedureRun::SetLatch() {
  constexpr std::uint64_t kSetWithinMs = 3'000;
  try {
    if (LatchReason() && FController.ResetLatch())
      static_cast<void>(WaitFor(kSetWithinMs, [] { return !LatchReason(); }));
  } catch (const std::exception&) {  // the laser cannot be reached: the procedure says so where it needs one
  }
}

void TProcedureRun::Drive(std::shared_ptr<IStateMotion> root, std::uint64_t limitMs, std::uint64_t endWithinMs) {
  FController.Start(std::move(root)).OrThrow(pbUnusable);
  if (WaitFor(limitMs, [&] { return !FController.Running(); })) return;
  FWatch.TimeIsOver();
  FController.Framework().Stop();
  WaitFor(endWithinMs, [&] { return !FController.Running(); });
}

TRunReport TProcedureRun::Run(const std::function<TStepPtr()>& make, std::uint64_t limitMs, std::uint64_t tailMs) {
  FController.MotionState().AddObserver(FSteps);
  Ready();
  if (!FSignalled) {
    Drive(ShareRoot(make()), limitMs);
    WaitFor(kReadyWithinMs, [&] { return !FController.Framework().SafePending(); });
    WaitFor(tailMs, [] { return false; });
  }
  return FWatch.Report();
}

}  // namespace ixocontroller
