// The controller's events as server-sent events: one hub, and a feed for each client that follows them. It knows no
// socket. One thread, but for the ring; ms of real time.
//
//   id: 5f0c9a1e22b7d3f4-17      epoch and number, which Last-Event-ID gives back; signals have none: they are not kept
//   event: state
//   data: {"number":17,"time":"2026-05-01T07:00:00.000+00:00",...}
//
// "hello" comes first, with the epoch and the newest number. "epoch" follows where Last-Event-ID is of another start of
// the controller; all that is kept of this start comes behind it. "missed" names the numbers that are gone.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "controller/service/Events.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

struct TFeedWish {
  static constexpr std::uint32_t kMostRate = 50;  // Hz

  std::array<bool, kEventKinds> Kinds{};
  std::uint32_t Rate = 10;  // of signals, Hz
  std::string Language;
  std::string LastId;
};
// `query` of "?kinds=state,step&rate=20"; without kinds: all.
[[nodiscard]] TResult<TFeedWish> ReadFeedWish(const std::map<std::string, std::string>& query);

class TEventHub;

class TEventFeed {
 public:
  static constexpr std::size_t kMostBytes = 256U << 10U;  // that wait for this client
  static constexpr std::size_t kChunkBytes = 32U << 10U;

  TEventFeed(TEventHub& hub, TFeedWish wish, std::function<void()> more);

  // What is sent next, behind the bytes of the last Take, which are sent. Empty: nothing waits.
  [[nodiscard]] std::string Take();
  // Nothing comes behind what waits: this client was too slow.
  [[nodiscard]] bool Ending() const { return FEnding; }

 private:
  friend class TEventHub;
  struct TItem {
    std::uint64_t Number = 0;  // 0: none of the ring's
    bool Signals = false;
    std::shared_ptr<const std::string> Text;
  };

  void Push(TItem item);
  void DropSignals();

  TEventHub& FHub;
  const TFeedWish FWish;
  const std::function<void()> FMore;  // something waits
  std::deque<TItem> FItems;
  std::size_t FBytes = 0;     // of FItems
  std::size_t FUnderWay = 0;  // of the last Take
  std::uint64_t FCursor = 0;  // the ring's number up to which it has had everything
  bool FBehind = false;       // it is fed from the ring, until it has caught up
  bool FEnding = false;
  std::uint64_t FSignals = 0;  // the number of the last ones that it had
  std::uint64_t FSignalsMs = 0;
  std::uint64_t FSentMs = 0;
};

// Nothing of it fails: a client that is too slow is ended, and nobody else notices.
class TEventHub {
 public:
  explicit TEventHub(TEventRing& ring) : FRing(ring) {}

  // `more` is called when something waits after nothing did; it does not call back.
  [[nodiscard]] std::shared_ptr<TEventFeed> Open(TFeedWish wish, std::uint64_t nowMs, std::function<void()> more);
  void Close(const std::shared_ptr<TEventFeed>& feed);
  [[nodiscard]] std::size_t Feeds() const { return FFeeds.size(); }
  // Hands on what is new; whenever the ring tells, and every kRoundMs for signals that were too early.
  void Pump(std::uint64_t nowMs);
  static constexpr std::uint64_t kRoundMs = 10;
  // Says something to whoever has heard nothing for so long.
  void Beat(std::uint64_t nowMs, std::uint64_t silentMs);

 private:
  friend class TEventFeed;
  struct TText {
    std::string Language;
    std::shared_ptr<const std::string> Text;
  };

  void CatchUp(TEventFeed& feed);
  void HandOnSignals(std::uint64_t nowMs);
  [[nodiscard]] std::shared_ptr<const std::string> Render(const TServiceEvent& event, const std::string& language);
  [[nodiscard]] std::shared_ptr<const std::string> RenderNow(const TServiceEvent& event, const std::string& language);
  [[nodiscard]] TEventFeed::TItem Note(const char* name, const nlohmann::ordered_json& data, std::uint64_t number = 0);

  TEventRing& FRing;
  std::vector<std::shared_ptr<TEventFeed>> FFeeds;
  std::uint64_t FCursor = 0;
  TServiceEvent FSignals;
  std::uint64_t FRenderedNumber = 0;  // the event that FRendered is made of
  std::vector<TText> FRendered;
};

}  // namespace ixocontroller
