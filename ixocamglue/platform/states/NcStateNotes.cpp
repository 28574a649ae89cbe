// What adapters and owners tell the running framework, where there is one.
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcStateTexts.h"

namespace ixocamglue {

void NoteGasOff() {
  if (TNcWatch* const watch = NcWatch()) watch->GasToldOff.store(true, std::memory_order_release);
  if (OnStateThread()) return;
  TNcStateFramework* const states = NcStates();
  if (states && states->CurrentState() == nsZemGasAdjust) states->Stop();
}

void NoteGasOn() {
  if (TNcWatch* const watch = NcWatch()) watch->GasToldOff.store(false, std::memory_order_release);
}

void NotePlateLost() {
  const std::string why = Show(SPlateLost);
  LogMsg(lkError, 0, why);
  if (TNcStateFramework* const states = NcStates()) states->Abort(srError, why);
}

void ReleaseOnStateThread(std::shared_ptr<void> object) {
  TNcStateFramework* const states = NcStates();
  if (states && !(OnStateThread() && object.use_count() == 1)) states->Release(std::move(object));
}

}  // namespace ixocamglue
