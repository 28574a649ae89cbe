#include "controller/safety/SafeEnd.h"

#include <chrono>
#include <memory>
#include <pthread.h>
#include <system_error>
#include <thread>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kRoundMs = 50;  // well below the latch's patience
constexpr std::uint32_t kTripMs = 200;
constexpr std::int32_t kStopAtOnce = 1;

// What has to be off. True: it is; false: it was told.
struct TDevice {
  const char* Name;
  bool (*Off)();
};

// Whoever cannot say whether it is on is told, too, and has not acknowledged.
template <class On, class Off>
bool MadeOff(const On& on, const Off& off) {
  try {
    if (!on()) return true;
  } catch (...) {
    off();
    throw;
  }
  off();
  return !on();
}

template <class Device>
bool AtRest(Device* device, void (*stop)(Device&)) {
  return !device || MadeOff([&] { return device->IsBusy(); }, [&] { stop(*device); });
}

bool FollowerOff(TNcFollower* follower) {
  return !follower ||
         MadeOff([&] { return follower->IsFollowing() || follower->IsBusy(); }, [&] { follower->Stop(kStopAtOnce); });
}

constexpr TDevice kDevices[] = {
    {TrMark("laser"),
     [] {
       TNcLaser* const laser = FittedLaser();
       const TNcWatch* const watch = NcWatch();
       // Also one that the source holds back.
       return !laser || MadeOff([&] { return laser->GetLaser() || (watch && watch->LaserAsked.Runs()); },
                                [] { CutSystem()->SwitchLaser(false); });
     }},
    {TrMark("emission"),
     [] {
       TNcLaser* const laser = FittedLaser();
       const TNcWatch* const watch = NcWatch();
       return !laser || MadeOff([&] { return laser->GetEmission() || (watch && watch->EmissionAsked.Runs()); },
                                [&] { laser->EmissionOff(); });
     }},
    {TrMark("pilot light"),
     [] {
       TNcLaser* const laser = FittedLaser();
       if (laser) (void)MadeOff([&] { return laser->GetAiming(); }, [&] { laser->AimingOff(); });
       return true;  // it harms nobody, and not every source can switch it off
     }},
    {TrMark("gas"),
     [] {
       TNcGas* const gas = FittedGas();
       return !gas || MadeOff([&] { return gas->GetGas(); }, [&] { gas->SwitchOff(); });
     }},
    {TrMark("axes"), [] { return AtRest<TNcMotionDriver>(MotionDriver(), [](TNcMotionDriver& d) { d.StopAll(0); }); }},
    {TrMark("follower"),
     [] {
       TNcMultiFollower* const followers = CutSystem() ? CutSystem()->MultiFollower() : nullptr;
       bool off = true;
       TTryAll tryAll;
       tryAll([&] { off = FollowerOff(GFollower()); });
       for (std::int32_t head = 0; followers && head < 2; ++head)  // of two the service is one
         tryAll([&] {
           TNcFollower* const follower = followers->GetFollower(head);
           off = (follower == GFollower() || FollowerOff(follower)) && off;
         });
       tryAll.Rethrow();
       return off;
     }},
    {TrMark("focus"),
     [] {
       TNcCutHeadCtrl* const head = CutSystem() ? CutSystem()->CutHeadCtrl() : nullptr;
       return AtRest<TNcCutHeadCtrl>(head, [](TNcCutHeadCtrl& h) { h.Stop(kStopAtOnce); });
     }},
};

}  // namespace

void TSafeEnd::Run() {
  FBegun.store(true);
  EndState();
  const std::uint64_t until = Clock().MonotonicMs() + kSafeEndMs;
  while (!Round() && Clock().MonotonicMs() < until) {
    Clock().Sleep(kRoundMs);
    FFramework.RunOnce();  // a sign of life for the latch, which would trip without one
  }
}

void TSafeEnd::EndState() {
  if (!FFramework.ChangePending() && FFramework.CurrentState() == nsStandby) return;
  try {
    FFramework.Stop();
  } catch (...) {  // out of a step's own answer to a stop, which is posted all the same
  }
  FFramework.RunOnce();
}

// Each device is told, whatever those before it do.
bool TSafeEnd::Round() {
  const char* missing = nullptr;
  for (const TDevice& device : kDevices) {
    FMissing.store(device.Name);
    bool off = false;
    try {
      FFramework.RunAside([&] { off = device.Off(); });
    } catch (...) {
      if (TDiag d{dlError}) d("%s, end: %s", device.Name, DescribeException(std::current_exception()).c_str());
    }
    if (!off && !missing) missing = device.Name;
  }
  FMissing.store(missing);
  return !missing;
}

void TSafeEnd::StopDevices() {
  for (const TDevice& device : kDevices) try {
      (void)device.Off();
    } catch (...) {
      if (TDiag d{dlError}) d("%s, all off: %s", device.Name, DescribeException(std::current_exception()).c_str());
    }
}

bool TSafeEnd::TripLatch(bool mayHang) {
  const auto trip = [] {
    try {
      if (TNcLaser* const laser = FittedLaser()) laser->Trip(TrMark("controller ended"));
    } catch (...) {  // it has nobody to tell
    }
  };
  const auto done = std::make_shared<std::atomic<bool>>(false);
  const auto tripped = [done, trip] {
    trip();
    done->store(true);
  };
  try {
    if (mayHang)
      std::thread([tripped] {
        pthread_setname_np(pthread_self(), "ixo-latch");
        tripped();
      }).detach();
    else
      tripped();
  } catch (const std::system_error&) {  // there is no thread to be had
    tripped();
  }
  for (std::uint32_t ms = 0; ms < kTripMs && !done->load(); ++ms)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return done->load();
}

}  // namespace ixocontroller
