// Ctrl-C, and whatever else asks a program in real time to end, as a request to stop. One object at a time; main
// thread.
#pragma once

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>

namespace ixocontroller {

// How long what runs may take to end after a signal; the controller's end does the rest.
inline constexpr std::uint64_t kSignalEndsWithinMs = 700;

// SIGINT, SIGTERM, SIGHUP and SIGPIPE as a request, for as long as this lives; a second and a third one change nothing.
// One that the process was started to ignore, a background job's for example, stays ignored. Made before the controller
// and its threads, ended after them: a signal then never keeps the end from switching off. SIGPIPE stays ignored once
// it has come: what is left to be written fails, and says so.
class TSignalStop {
 public:
  TSignalStop() {
    GAsked.store(false);
    GPipeBroken.store(false);
    struct sigaction action {};
    action.sa_handler = [](int signal) {
      if (signal == SIGPIPE) GPipeBroken.store(true);
      GAsked.store(true);
    };
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &FBefore[i]);
      if (FBefore[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
  }
  ~TSignalStop() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      if (kSignals[i] == SIGPIPE && GPipeBroken.load()) FBefore[i].sa_handler = SIG_IGN;
      sigaction(kSignals[i], &FBefore[i], nullptr);
    }
  }
  TSignalStop(const TSignalStop&) = delete;
  TSignalStop& operator=(const TSignalStop&) = delete;
  [[nodiscard]] static bool Asked() { return GAsked.load(); }

 private:
  static constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP, SIGPIPE};
  static_assert(std::atomic<bool>::is_always_lock_free);  // the handler writes them
  static inline std::atomic<bool> GAsked{false};
  static inline std::atomic<bool> GPipeBroken{false};
  std::array<struct sigaction, kSignals.size()> FBefore{};
};

}  // namespace ixocontroller
