#include "motion/Usequence.h"

#include <algorithm>
#include <utility>

#include "motion/Ulasersteps.h"
#include "motion/Uwaitsteps.h"
#include "platform/CutSystem.h"
#include "support/Faults.h"

namespace ixocamglue {
namespace {

void SwitchGasOff() {
  TNcCutSystem* const cut = CutSystem();
  if (TNcGas* gas = cut ? cut->Gas() : nullptr) gas->SwitchOff();
}

}  // namespace

void TSmtSequence::Define(std::int32_t id, std::string desc, std::vector<TSequenceItem> items, bool buildLate) {
  FId = id;
  FDesc = std::move(desc);
  FItems = std::move(items);
  FBuildLate = buildLate;
  FBuildFirst = !buildLate;
}

void TSmtSequence::ResetParams() {
  TSmtComposite::ResetParams();
  FBuildFirst = !FBuildLate;
}

void TSmtSequence::BuildMotionList() {
  for (const TSequenceItem& item : FItems) {
    TStateMotion& step =
        item.Make ? PlaceStep(0, item.Make(StateCtrl()), item.Desc) : Place(item.Command, item.Command, item.Desc);
    if (item.Configure) item.Configure(step);
  }
}

void TSmtSequence::DoLeaveMotion() {
  const bool success = GetStep() == mstpExit;
  TTryAll tryAll;
  tryAll([this] { TSmtComposite::DoLeaveMotion(); });
  if (Has(TSmtLaserOn::Cmd) || Has(TSmtEmissionOn::Cmd) || Has(TSmtLaserOnOnly::Cmd)) tryAll([] { SwitchLaserDark(); });
  if (!success && Has(TSmtGasOnState::Cmd)) tryAll([] { SwitchGasOff(); });
  tryAll.Rethrow();
}

bool TSmtSequence::Has(std::int32_t command) const {
  return std::ranges::any_of(FItems, [&](const TSequenceItem& i) { return !i.Make && i.Command == command; });
}

}  // namespace ixocamglue
