#include "controller/procedures/NozzleChange.h"

#include <string>
#include <utility>
#include <vector>

#include "controller/texts/ProcedureTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Umotionchecks.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::int32_t kMoveLimitMs = 5000;  // a cap or stage that takes longer does not come

using TItems = std::vector<TSequenceItem>;

// A cap or stage on its way to one end.
struct TRackMove {
  const TText& Desc;
  std::int32_t Off;  // the opposite end's output; below 1: not fitted
  std::int32_t On;
  const TInportParamsConfig& Arrived;
};

TSequenceItem Switch(std::int32_t command, std::int32_t port, std::string desc) {
  return {command, std::move(desc),
          [port](TStateMotion& step) { dynamic_cast<TSmtSwitchOutport&>(step).FPort = port; }};
}

TSequenceItem Wait(const TRackMove& move, std::int32_t switched) {
  const bool fitted = move.Arrived.Port >= 1;
  const std::int32_t inport = fitted ? move.Arrived.Port : -1;
  const bool level = move.Arrived.Level != 0;
  return {TSmtWaitInport::Cmd, Format(SRackWait.Get(), move.Desc.Get()), [=](TStateMotion& step) {
            auto& wait = dynamic_cast<TSmtWaitInport&>(step);
            wait.FOutport = switched;
            wait.FNeedOutport = false;
            wait.FWaitInport = inport;
            wait.FWaitTime = kMoveLimitMs;
            wait.FInportLogic = level;
          }};
}

TSequenceItem Check(const TRackMove& move) {
  return {0, Format(SRackCheck.Get(), move.Desc.Get()), nullptr,
          [port = move.Arrived.Port, level = move.Arrived.Level != 0](TCustomMotionState* ctrl) -> TStepPtr {
            auto check = MakeStepOf<TSmtInputCheck>(ctrl);
            check->SetInput(port, level);
            return check;
          }};
}

void Add(TItems& items, const TRackMove& move) {
  if (move.Off >= 1) items.push_back(Switch(TSmtCloseOutport::Cmd, move.Off, move.Desc.Get()));
  if (move.On >= 1) items.push_back(Switch(TSmtOpenOutport::Cmd, move.On, move.Desc.Get()));
  const std::int32_t switched = move.On >= 1 ? move.On : move.Off >= 1 ? move.Off : -1;
  items.push_back(Wait(move, switched));
  items.push_back(Check(move));
}

TSequenceItem Over(const TNozzlePosItem& slot) {
  const TPoint2 target{static_cast<double>(slot.X), static_cast<double>(slot.Y)};
  return {TSmtSafeMoveToAssistXY::Cmd, Format(SRackOver.Get(), slot.Row + 1, slot.Col + 1),
          [target](TStateMotion& step) { dynamic_cast<TSmtSafeMoveToAssistXY&>(step).FTarget = target; }};
}

TSequenceItem InSlot(std::int32_t command, const TNozzlePosItem& slot, std::string desc) {
  return {command, std::move(desc), [row = slot.Row, col = slot.Col](TStateMotion& step) {
            auto& nozzle = dynamic_cast<TSmtNozzleStep&>(step);
            nozzle.FRow = row;
            nozzle.FCol = col;
          }};
}

TSequenceItem Raise() { return {TSmtSafeMoveToZ::Cmd, SRackRaise.Get(), nullptr}; }

TNozzleChangeConfig& Config() {
  if (!FNozzleChangeCfg) throw EProblem(pbUnusable, Tr("the machine has no configuration of a nozzle changer"));
  if (!FNozzleChangeCfg->ChangeNozzleEnabled)
    throw EProblem(pbUnusable, Tr("NozzleChange: ChangeNozzleEnabled is false"));
  return *FNozzleChangeCfg;
}

const TNozzleItem& FindNozzle(const TNozzleChangeConfig& config, std::int32_t id) {
  if (const TNozzleItem* const nozzle = config.NozzleItems.Search(id)) return *nozzle;
  std::string known;
  for (std::int32_t i = 0; i < config.NozzleItems.GetCount(); ++i) {
    const TNozzleItem& item = *config.NozzleItems.GetItem(i);
    AddToList(known, Format("%d (%s)", item.ID, item.Name.c_str()));
  }
  throw EProblem(pbRequest, Format(Tr("there is no nozzle %d; the machine's nozzles: %s"), id,
                                   known.empty() ? Tr("none") : known.c_str()));
}

const TNozzlePosItem& SlotOf(TNozzleChangeConfig& config, const TNozzleItem& nozzle) {
  const TNozzlePosItem* const slot = config.TryGetNozzlePosItem(nozzle.PosRow, nozzle.PosCol);
  if (!slot)
    throw EProblem(pbUnusable, Format(Tr("nozzle %d: the rack has no slot in row %d, column %d"), nozzle.ID,
                                      nozzle.PosRow + 1, nozzle.PosCol + 1));
  if (slot->X == 0.0L && slot->Y == 0.0L && slot->Z == 0.0L)
    throw EProblem(pbUnusable,
                   Format(Tr("nozzle %d: the position of the slot in row %d, column %d was never configured"),
                          nozzle.ID, nozzle.PosRow + 1, nozzle.PosCol + 1));
  return *slot;
}

}  // namespace

std::string TSmtInputCheck::GetDesc() { return Format(SInputCheckDesc.Get(), FPort); }

void TSmtInputCheck::SetInput(std::int32_t port, bool level) {
  FPort = port;
  FLevel = level;
}

TStepType TSmtInputCheck::DoMotion(std::int32_t) {
  TInportParamsConfig input;
  input.Port = FPort;
  input.Level = FLevel ? 1 : 0;
  const bool met = InputIsMet(input);
  const std::string name = met ? "" : PortName("Inport", FPort);
  TPreCheck check(*this);
  check.Require(met || name.empty(), SNamedInputNotMet, name.c_str(), FPort).Require(met, SInputNotMet, FPort);
  if (!check) return Fail();
  return Await(csbtEnsure);
}

TStepPtr MakeNozzleChange(TCustomMotionState* ctrl, std::int32_t from, std::int32_t to) {
  TNozzleChangeConfig& config = Config();
  if (from == to) throw EProblem(pbRequest, Format(Tr("the nozzle to take off is the one to install: %d"), from));
  const TNozzleItem& off = FindNozzle(config, from);
  const TNozzleItem& on = FindNozzle(config, to);
  const TNozzlePosItem& offSlot = SlotOf(config, off);
  const TNozzlePosItem& onSlot = SlotOf(config, on);
  if (&offSlot == &onSlot)
    throw EProblem(pbUnusable, Format(Tr("nozzles %d and %d share one slot of the rack"), from, to));

  TItems items;
  items.push_back(Over(offSlot));
  Add(items, {SRackCapOpen, config.OutCapClose, config.OutCapOpen, config.InCapOpenOK});
  Add(items, {SRackStageUp, config.OutStageDown, config.OutStageUp, config.InStageUpOK});
  items.push_back(InSlot(TSmtUninstallNozzle::Cmd, offSlot, Format(SRackTakeOff.Get(), from, off.Name.c_str())));
  items.push_back(Raise());
  items.push_back(Over(onSlot));
  items.push_back(InSlot(TSmtInstallNozzle::Cmd, onSlot, Format(SRackPutOn.Get(), to, on.Name.c_str())));
  items.push_back(Raise());
  Add(items, {SRackStageDown, config.OutStageUp, config.OutStageDown, config.InStageDownOK});
  Add(items, {SRackCapClose, config.OutCapOpen, config.OutCapClose, config.InCapCloseOK});
  for (const std::int32_t port : {config.OutStageDown, config.OutCapClose})
    if (port >= 1) items.push_back(Switch(TSmtCloseOutport::Cmd, port, SRackOutputsOff.Get()));
  if (config.CapCaliAfterChange) items.push_back({TSmtAutoCaliState::Cmd, SRackCalibrate.Get(), nullptr});

  // Kept: no leave switches the outputs off. A cap or stage with a spring would move, maybe onto the head.
  auto change = MakeStepOf<TSmtSequence>(ctrl);
  change->Define(kNozzleChangeId, SNozzleChangeDesc.Get(), std::move(items));
  return change;
}

TStepPtr MakeNozzleChange(TCustomMotionState* ctrl) {
  const TNozzleChangeConfig& config = Config();
  return MakeNozzleChange(ctrl, config.UninstallID, config.InstallID);
}

}  // namespace ixocontroller
