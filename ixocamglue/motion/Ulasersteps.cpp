#include "ixocamglue/motion/Ulasersteps.h"

#include <algorithm>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kEmissionOnDelayMs = 5000;
constexpr std::uint32_t kEmissionSettleMs = 100;

constinit TLaserTimes GLaserTimes;

struct TLaserAccess {
  TNcCutSystem* Cut = nullptr;
  TNcLaser* Laser = nullptr;
};

TLaserAccess FindLaser() {
  TNcCutSystem* const cut = CutSystem();
  return {cut, cut ? cut->Laser() : nullptr};
}

}  // namespace

TLaserTimes& LaserTimes() { return GLaserTimes; }

// Kept: the stamp of the last laser-on stays; it is the machine's, not the procedure's.
void ClearTimeStamps() {
  const TDateTime laserOn = GLaserTimes.LaserOn;
  GLaserTimes = {};
  GLaserTimes.LaserOn = laserOn;
}

void SwitchLaserDark() {
  const TLaserAccess access = FindLaser();
  if (!access.Laser) return;
  TTryAll tryAll;
  bool locked = false;
  tryAll([&] {
    access.Cut->Lock();
    locked = true;
  });
  tryAll([&] { access.Cut->SwitchLaser(false); });
  tryAll([&] {
    // Kept: emission that was asked for and is not confirmed yet is withdrawn by the platform's safe entry.
    if (access.Laser->GetEmission()) access.Laser->EmissionOff();
  });
  if (locked) tryAll([&] { access.Cut->Unlock(); });
  tryAll.Rethrow();
}

TStepType TSmtLaserOn::DoMotion(std::int32_t) {
  if (!StateCtrl()) return Fail();
  std::uint32_t startTick = Clock().TickMs();
  const auto limitMs = ConfigSection("Laser").GetInt("EmissionOnDelay", kEmissionOnDelayMs);
  if (const auto [cut, laser] = FindLaser(); laser) {
    if (!laser->GetEmission()) {
      laser->EmissionOn();
      startTick = Clock().TickMs();
    }
    Clock().Sleep(kEmissionSettleMs);
    PollEmission(*laser, startTick, static_cast<std::uint32_t>(std::max(limitMs, 0)));
    // Kept: also when emission never came. The device holds the beam back, and the next step decides.
    if (StopAsked()) {
      laser->EmissionOff();
    } else {
      cut->SwitchLaser(true);
      GLaserTimes.LaserOn = Clock().Now();
    }
  }
  return Await(csbtEnsure);
}

// Kept: a stop does not shorten it. The device holds the beam back meanwhile, and the step closes emission behind it.
void TSmtLaserOn::PollEmission(TNcLaser& laser, std::uint32_t startTick, std::uint32_t limitMs) {
  while (!laser.GetEmission() && Clock().TickMs() - startTick <= limitMs) Clock().Spin();
}

TStepType TSmtLaserOff::DoMotion(std::int32_t) {
  if (const auto [cut, laser] = FindLaser(); laser) {
    const TCutSystemGuard guard(*cut);
    if (!GLaserTimes.LaserOff.IsSet()) {
      GLaserTimes.LaserOff = Clock().Now();
      const TDateTime on = GLaserTimes.LaserOn.IsSet() ? GLaserTimes.LaserOn : GLaserTimes.LaserOff;
      if (TDiag d{dlMessage}) d("相纸检测耗费时间：%s", FormatSpan(on, GLaserTimes.LaserOff).c_str());
    }
    cut->SwitchLaser(false);
    if (laser->GetEmission()) laser->EmissionOff();
  }
  return Await(csbtEnsure);
}

TStepType TSmtEmissionOn::DoMotion(std::int32_t) {
  const auto [cut, laser] = FindLaser();
  if (!laser) return FailWithout(SNameLaser);
  if (!StateCtrl()) return Fail();
  if (!laser->GetEmission()) laser->EmissionOn();
  return Await(csbtEnsure);
}

TStepType TSmtWaitForEmissionOn::DoMotion(std::int32_t) {
  const auto [cut, laser] = FindLaser();
  if (!laser) return FailWithout(SNameLaser);
  return laser->GetEmission() ? Await(csbtEnsure) : PollAgain(csbtEnsure);
}

TStepType TSmtLaserOnOnly::DoMotion(std::int32_t) {
  const auto [cut, laser] = FindLaser();
  if (!laser) return FailWithout(SNameLaser);
  if (!StateCtrl()) return Fail();
  if (!laser->GetLaser()) {
    cut->SwitchLaser(true);
    GLaserTimes.LaserOn = Clock().Now();
  }
  return Await(csbtEnsure);
}

TStepType TSmtLaserOffOnly::DoMotion(std::int32_t) {
  if (const auto [cut, laser] = FindLaser(); laser) {
    const TCutSystemGuard guard(*cut);
    cut->SwitchLaser(false);
  }
  return Await(csbtEnsure);
}

std::string TSmtLaserOnTimeState::GetDesc() { return SLaserOnTimeDesc.Get(); }

void TSmtLaserOnTimeState::BuildMotionList() {
  ClearTimeStamps();
  Add(518, SOpenShutter);
  Add(519, SWaitShutter);
  Add(520, SLaserOn);
  Add<TSmtDelay>(612, SDelay).SetDelay(FDuration);
  Add(517, SLaserOff);
}

void TSmtLaserOnTimeState::DoLeaveMotion() {
  TTryAll tryAll;
  tryAll([this] { TSmtComposite::DoLeaveMotion(); })([] { SwitchLaserDark(); });
  tryAll.Rethrow();
}

}  // namespace ixocamglue
