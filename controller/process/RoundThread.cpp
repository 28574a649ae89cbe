#include "controller/process/RoundThread.h"

#include <pthread.h>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {

void LogFault(const char* where, const std::exception_ptr& error) {
  try {
    LogMsg(lkException, 0, Format("%s: %s", where, DescribeException(error).c_str()));
  } catch (...) {  // no memory for the line
  }
}

TRoundThread::TRoundThread(const char* name, std::uint32_t periodMs, std::function<void(std::uint64_t)> round)
    : TRoundThread(
          name, [periodMs] { return periodMs; }, std::move(round)) {}

TRoundThread::TRoundThread(const char* name, std::function<std::uint32_t()> periodMs,
                           std::function<void(std::uint64_t)> round)
    : FThread([this, name, period = std::move(periodMs), call = std::move(round)] {
        pthread_setname_np(pthread_self(), name);
        TThreadSign sign(name, tkOther);
        do {
          sign.Beat();
          try {
            call(Clock().MonotonicMs());
          } catch (...) {
            LogFault(name, std::current_exception());
          }
        } while (!Clock().Pause(FStop, period()));
      }) {}

TRoundThread::~TRoundThread() {
  FStop.Ask();
  FThread.join();
}

}  // namespace ixocontroller
