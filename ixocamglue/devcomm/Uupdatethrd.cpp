#include "ixocamglue/devcomm/Uupdatethrd.h"

#include <cstdlib>
#include <cxxabi.h>
#include <pthread.h>
#include <string>
#include <typeinfo>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

// Of the exception being handled.
std::string CurrentTypeName() {
  const std::type_info* type = abi::__cxa_current_exception_type();
  if (!type) return "exception";
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type->name(), nullptr, nullptr, &status),
                                                    std::free);
  return status == 0 && name ? name.get() : type->name();
}

// Gives the lock back whatever the round does.
struct TUnlock {
  INcThrdStateIntf& State;
  ~TUnlock() { State.UnLockData(); }
};

}  // namespace

TNcUpdateStateThrd::TNcUpdateStateThrd(INcThrdStateIntf& state) : FStateIntf(&state) {
  FThread = std::thread([this] { Execute(); });
}

void TNcUpdateStateThrd::Start() {
  FGate.store(true, std::memory_order_release);
  FGate.notify_all();
}

void TNcUpdateStateThrd::Stop() {
  FStop.Ask();
  Start();
  if (std::this_thread::get_id() == FThread.get_id()) return;
  TGuard guard(FJoining);
  if (FThread.joinable()) FThread.join();
}

bool TNcUpdateStateThrd::RunRound() {
  try {
    if (FSign) FSign->Beat();
    if (FStateIntf && FStateIntf->TryLockData()) {
      const TUnlock unlock{*FStateIntf};
      FStateIntf->UpdateStatus();
    }
    return true;
  } catch (...) {
    if (FLogFirstError) {
      LogMsg(lkInfo, 0, CurrentTypeName() + ": " + DescribeException(std::current_exception()));
      LogMsg(lkException, 0, "uDevThrdComm Error!");
      FLogFirstError = false;
    }
    FFailed.store(true, std::memory_order_release);
    if (FSign) FSign->Failed();
    return false;
  }
}

void TNcUpdateStateThrd::Execute() {
  constexpr char kName[] = "TNcUpdateStateThrd";
  pthread_setname_np(pthread_self(), std::string(kName, 15).c_str());  // the system takes no more
  FGate.wait(false, std::memory_order_acquire);
  if (!FStop.Asked()) {
    std::string name = "device";
    try {
      name = FStateIntf->DeviceName();
    } catch (...) {  // a driver's own
    }
    FSign.emplace(name, tkDevice);
  }
  bool good = true;
  while (good && !FStop.Asked() && !Clock().Pause(FStop, Interval)) good = RunRound();
  if (FSign && good) FSign->Park();
  FStateIntf = nullptr;
}

TNcThrdStateBase::TNcThrdStateBase() : FThread(std::make_unique<TNcUpdateStateThrd>(*this)) {}

bool TNcThrdStateBase::TryLockData() { return FLock.try_lock(); }
void TNcThrdStateBase::LockData() { FLock.lock(); }
void TNcThrdStateBase::UnLockData() { FLock.unlock(); }

void TNcThrdStateBase::EndUse() {
  BreakOff();
  StopUpdates();
  TGuard idle(FLock);
}

}  // namespace ixocamglue
