// SIGHUP under a service manager: files are to be read again, at rest. In a terminal it stays what TSignalStop makes of
// it: the terminal is gone, and the program ends. One object at a time, made after TSignalStop and ended before it;
// main thread. Nothing here fails: a handler that cannot be set leaves SIGHUP as it was.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace ixocontroller {

class TReloadSignal {
 public:
  // A service manager started this process when it is listening (NOTIFY_SOCKET).
  TReloadSignal() : TReloadSignal(std::getenv("NOTIFY_SOCKET") != nullptr) {}
  explicit TReloadSignal(bool rereads) : FRereads(rereads) {
    GAsked.store(false);
    if (!FRereads) return;
    struct sigaction action {};
    action.sa_handler = [](int) { GAsked.store(true); };
    action.sa_flags = SA_RESTART;
    sigaction(SIGHUP, &action, &FBefore);
  }
  ~TReloadSignal() {
    if (FRereads) sigaction(SIGHUP, &FBefore, nullptr);
  }
  TReloadSignal(const TReloadSignal&) = delete;
  TReloadSignal& operator=(const TReloadSignal&) = delete;

  // Whether it came since the last call. Who asks and finds a procedure running asks again later, and remembers.
  [[nodiscard]] static bool Take() { return GAsked.exchange(false); }

 private:
  static_assert(std::atomic<bool>::is_always_lock_free);  // the handler writes it
  static inline std::atomic<bool> GAsked{false};
  const bool FRereads;
  struct sigaction FBefore {};
};

}  // namespace ixocontroller
