// What keeps a panel safe that the machine logic takes at its word.
//
// Press, Release, Enable and the forms belong to the user-interface thread; Refresh (every 100 ms) and Watch (as
// WatchInMs says) to a thread or timer each, so that a device that hangs in a refresh holds up neither keys nor
// releases. Alive is called by whoever reads the keys, at least every 100 ms. A device that throws in a refresh, a
// press or a release keeps nothing else from being done: it is logged, or the masks grow old and let stop keys through
// only.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/states/NcWatch.h"

namespace ixocontroller {
using namespace ixocamglue;

class TPanelGuard {
 public:
  static constexpr std::uint32_t kRefreshMs = 100;
  static constexpr std::uint32_t kWatchMs = 20;
  static constexpr std::uint32_t kRestMs = 100;    // between two looks while no key is held that they are for
  static constexpr std::uint64_t kStaleMs = 500;   // masks older than this let stop keys through only
  static constexpr std::uint64_t kSilentMs = 150;  // with a watch round on top still below 200 ms

  static constexpr std::uint64_t kStopHeldMs = 3000;

  // `emergency` goes past panel and cutting system. `stopHeld` is called by Watch, once when the stop key has been held
  // for kStopHeldMs in standby. Both may be empty. The manager outlives the guard.
  TPanelGuard(TKBPManager& manager, std::function<void()> emergency, std::function<void()> stopHeld = {});

  // Refreshes once; presses are taken from then on.
  void Enable();
  // False: dropped, because the panel is not enabled or its masks are stale. Stop keys are never dropped.
  bool Press(TKeyCode key, std::int32_t param = 0);
  void Release(TKeyCode key);
  void ReleaseAll();

  void Alive();
  void Refresh();
  // Releases, at the cutting system and with the command that was pressed, what acts while it is held and whose key bit
  // has gone, or whose panel has fallen silent.
  void Watch(std::uint64_t nowMs);
  // Until the next Watch: kWatchMs, or kRestMs. A key that is pressed within these is seen before its panel can be
  // silent for kSilentMs.
  [[nodiscard]] std::uint32_t WatchInMs() const;
  [[nodiscard]] TKeyMask Leds() const { return FLeds.load(std::memory_order_acquire); }

 private:
  void WatchStop(bool down, std::uint64_t nowMs);
  static void SetKeyBit(TKeyCode key, bool down);
  static void ReleaseCommand(std::int32_t command) noexcept;

  TKBPManager& FManager;
  const std::function<void()> FEmergency;
  const std::function<void()> FStopHeld;
  std::atomic<bool> FEnabled{false};
  std::atomic<std::uint64_t> FRefreshedMs{0};
  std::atomic<std::uint64_t> FAliveMs{0};
  std::atomic<TKeyMask> FLeds{0};
  std::array<std::atomic<std::int32_t>, kKeys> FHeld{};  // the command that was pressed, while it is held
  // The watch.
  TNcSince FStopSince;
  bool FStopTold = false;
};

// Keeps shows and hides nested, as the manager relies on: a form that is hidden from underneath others is taken out
// with them, and they are shown again in their order. Showing an open form brings it to the top; hiding one that is not
// open does nothing.
class TFormTracker {
 public:
  explicit TFormTracker(TKBPManager& manager) : FManager(manager) {}

  void Show(std::string_view form);
  void Hide(std::string_view form);
  [[nodiscard]] const std::vector<std::string>& Open() const { return FOpen; }

 private:
  TKBPManager& FManager;
  std::vector<std::string> FOpen;  // the last one is on top
};

}  // namespace ixocontroller
