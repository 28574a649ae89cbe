#include "ixocamglue/panel/Uknob.h"

#include <memory>
#include <string>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr const char* kUnit = "uKnob";
constexpr const char* kTooLow = "JogSpeed too low";
constexpr std::int32_t kTwoHeads = 2;  // the head mode

std::unique_ptr<TKnob>& KnobSlot() {
  static constinit std::unique_ptr<TKnob> slot;
  return slot;
}

bool HasTwoHeads() {
  const TMachineConfig* const config = MachineConfig();
  return config && config->Root().GetInt("DHMode", 0) == kTwoHeads;
}

TJogSections* LoadedSections() {
  TJogSections* const jog = JogSections();
  return jog && jog->Loaded() ? jog : nullptr;
}

// The same change in the Z section of each head that there is.
template <class Change>
void ForEachHead(TJogSections& jog, bool twoHeads, Change change) {
  for (std::size_t head = 0; head < (twoHeads ? TJogSections::kHeads : 1); ++head) {
    TJogZSection section = jog.Z(head);
    change(section);
    jog.SetZ(head, section);
  }
}

}  // namespace

TKnob::TKnob() : FDHEnabled(HasTwoHeads()) { LoadConfig(); }

void TKnob::LoadConfig() {
  const TJogSections* const jog = LoadedSections();
  const auto load = [](TAxisSpeedData& axis, double low, double normal, double high) {
    for (TSpeedData* speed : {&axis.ShowSpeed, &axis.UsedSpeed}) {
      speed->LowSpeed = low;
      speed->NormalSpeed = normal;
      speed->HighSpeed = high;
    }
  };
  const TJogXYSection xy = jog ? jog->XY() : TJogXYSection{};
  const TJogZSection z = jog ? jog->Z(0) : TJogZSection{};
  load(XYSpeed, xy.LowJogSpeed, xy.NormalJogSpeed, xy.HighJogSpeed);
  load(ZSpeed, z.LowJogSpeed, z.NormalJogSpeed, static_cast<double>(z.HighJogSpeed));
  // Kept: the XY records' speed in force is never set, and the high level has none.
  for (TSpeedData* speed : {&ZSpeed.ShowSpeed, &ZSpeed.UsedSpeed}) {
    if (FSpeedState == ssLow) speed->Init = speed->LowSpeed;
    if (FSpeedState == ssNormal) speed->Init = speed->NormalSpeed;
  }
}

void TKnob::SaveConfig() {
  TJogSections* const jog = LoadedSections();
  if (!jog) return;
  jog->SetXY({XYSpeed.ShowSpeed.LowSpeed, XYSpeed.ShowSpeed.NormalSpeed, XYSpeed.ShowSpeed.HighSpeed});
  ForEachHead(*jog, FDHEnabled, [&](TJogZSection& z) {
    z.LowJogSpeed = ZSpeed.ShowSpeed.LowSpeed;
    z.NormalJogSpeed = ZSpeed.ShowSpeed.NormalSpeed;
    z.HighJogSpeed = static_cast<float>(ZSpeed.ShowSpeed.HighSpeed);
  });
  (void)jog->Save();  // a failure is in the log
  try {
    if (TNcFollower* const follower = GFollower()) follower->LoadParams();
  } catch (...) {
    LogMsg(lkError, 0, "follower: " + DescribeException(std::current_exception()), kUnit);
  }
}

void TKnob::SetSpeedState(TSpeedState value) {
  TJogSections* const jog = LoadedSections();
  if (value == FSpeedState || !jog) return;
  if (BeforeCheckSpeedState) BeforeCheckSpeedState(value);
  FSpeedState = value;

  TNcParams* const params = NcParams();
  if (params) {
    params->SetBool("JogFast", value == ssHigh);
    params->SetBool("JogSlow", value == ssLow);
  }
  TJogXYSection xy = jog->XY();
  double jogSpeed = 0.0;
  switch (value) {
    case ssLow:
    case ssNormal: {
      const bool low = value == ssLow;
      for (TSpeedData* speed : {&ZSpeed.UsedSpeed, &ZSpeed.ShowSpeed})
        speed->Init = low ? speed->LowSpeed : speed->NormalSpeed;
      jogSpeed = low ? XYSpeed.UsedSpeed.LowSpeed : XYSpeed.UsedSpeed.NormalSpeed;
      (low ? xy.LowJogSpeed : xy.NormalJogSpeed) = jogSpeed;
      const double z = low ? ZSpeed.UsedSpeed.LowSpeed : ZSpeed.UsedSpeed.NormalSpeed;
      ForEachHead(*jog, FDHEnabled, [&](TJogZSection& section) { section.JogSpeed = static_cast<float>(z); });
      jog->SetXY(xy);
      break;
    }
    case ssHigh:
      xy.HighJogSpeed = XYSpeed.UsedSpeed.HighSpeed;
      ForEachHead(*jog, FDHEnabled, [&](TJogZSection& section) {
        section.HighJogSpeed = static_cast<float>(ZSpeed.UsedSpeed.HighSpeed);
      });
      jog->SetXY(xy);
      jogSpeed = jog->XY().HighJogSpeed;
      break;
  }
  if (params) params->SetDouble("JogSpeed", jogSpeed);
  (void)jog->Save();  // a failure is in the log

  const TJogXYSection set = jog->XY();
  // Negated, so that what is no number fails too.
  if (!(set.NormalJogSpeed > kLowestJogSpeed) || !(set.HighJogSpeed > kLowestJogSpeed)) {
    if (TDiag d{dlError, kUnit}) d("%s", kTooLow);
    throw EDesignFault(kTooLow, kUnit);
  }
}

TKnob& Knob() {
  if (!KnobSlot()) KnobSlot() = std::make_unique<TKnob>();
  return *KnobSlot();
}

void FreeKnob() { KnobSlot().reset(); }

}  // namespace ixocamglue
