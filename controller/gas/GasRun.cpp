#include "controller/gas/GasRun.h"

#include <utility>

#include "controller/runs/ProcedureRun.h"

namespace ixocontroller {

TGasRun::TGasRun(TControllerOptions options, TGasOrder order, const std::vector<std::string>& faults,
                 TGasJob::TTold told)
    : FController(std::move(options)), FJob(FController, std::move(order), std::move(told)) {
  for (const std::string& fault : faults) FController.Machine().Inject(fault);
}

void TGasRun::Ready() {
  for (const std::string& notice : FController.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  if (!FController.VirtualClock()) {
    FSignal.emplace();
    FController.StartThreads();
  }
  WaitForStandby(FController);
}

bool TGasRun::Round(const std::function<void()>& look) {
  const bool goesOn = FJob.Round(Clock().MonotonicMs());
  look();
  return goesOn;
}

void TGasRun::Drive(const std::function<void()>& look) {
  constexpr std::uint32_t kRoundEveryMs = 20;
  FJob.Start().OrThrow(pbUnusable);
  if (FController.VirtualClock()) {
    do FController.RunPass();
    while (Round(look));
  } else {
    std::optional<std::uint64_t> signalledAt;
    do {
      if (signalledAt && Clock().MonotonicMs() >= *signalledAt + kSignalEndsWithinMs) break;
      Clock().Sleep(kRoundEveryMs);
      if (TSignalStop::Asked() && !signalledAt) {
        signalledAt = Clock().MonotonicMs();
        FJob.Stop();
      }
    } while (Round(look));
  }
  FController.StopThreads();  // where the state thread hangs, what was measured is still its own
  FJob.Conclude();
}

}  // namespace ixocontroller
