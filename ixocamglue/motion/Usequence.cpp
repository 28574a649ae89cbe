#include "ixocamglue/motion/Usequence.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {

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
  if (!success && MayOpenGas()) tryAll([] { SwitchGasOff(); });
  tryAll.Rethrow();
}

// An abort between the leave and the end of the procedure comes this way only.
void TSmtSequence::DoLeaveError() {
  TTryAll tryAll;
  tryAll([this] { TSmtComposite::DoLeaveError(); });
  if (MayOpenGas()) tryAll([] { SwitchGasOff(); });
  tryAll.Rethrow();
}

bool TSmtSequence::NeedsLaser() {
  return std::ranges::any_of(FItems, [](const TSequenceItem& item) {
    return item.Make ? item.Make(nullptr)->NeedsLaser() : IsLaserCommand(item.Command);
  });
}

bool TSmtSequence::MayOpenGas() const {
  return Has(TSmtGasOnState::Cmd) ||
         std::ranges::any_of(FItems, [](const TSequenceItem& i) { return i.Make != nullptr; });
}

bool TSmtSequence::Has(std::int32_t command) const {
  return std::ranges::any_of(FItems, [&](const TSequenceItem& i) { return !i.Make && i.Command == command; });
}

}  // namespace ixocamglue
