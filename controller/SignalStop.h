// Ctrl-C as a request to stop a procedure in real time. One object at a time; main thread.
#pragma once

#include <atomic>
#include <csignal>
#include <cstddef>
#include <iterator>

namespace ixocontroller {

// SIGINT, SIGTERM and SIGHUP as a request; a second one has its usual effect. One that the process was started to
// ignore, a background job's for example, stays ignored.
class TSignalStop {
 public:
  TSignalStop() {
    GAsked.store(false);
    struct sigaction action {};
    action.sa_handler = [](int) { GAsked.store(true); };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
      sigaction(kSignals[i], nullptr, &FBefore[i]);
      if (FBefore[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
  }
  ~TSignalStop() {
    for (std::size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &FBefore[i], nullptr);
  }
  TSignalStop(const TSignalStop&) = delete;
  TSignalStop& operator=(const TSignalStop&) = delete;
  [[nodiscard]] static bool Asked() { return GAsked.load(); }

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
  static_assert(std::atomic<bool>::is_always_lock_free);  // the handler writes it
  static inline std::atomic<bool> GAsked{false};
  struct sigaction FBefore[3]{};
};

}  // namespace ixocontroller
