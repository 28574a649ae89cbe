#include "controller/wire/EventFeed.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "controller/process/RealTime.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kCatchUpEvents = 64;  // that are read from the ring at once

std::string Json(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string IdOf(const std::string& epoch, std::uint64_t number) { return epoch + "-" + std::to_string(number); }

TProblem BadKind(const std::string& kind) {
  std::string known;
  TNearestName nearest(kind);
  for (std::size_t i = 0; i < kEventKinds; ++i) {
    const char* const name = EventName(static_cast<TEventKind>(i));
    nearest.Consider(name);
    AddToList(known, name);
  }
  return {.What = Format(Tr("there are no events of the kind \"%s\""), kind.c_str()),
          .Where = "kinds",
          .Why = {},
          .Remedy = nearest.DidYouMean(Format(Tr("the kinds are %s"), known.c_str()))};
}

}  // namespace

TResult<TFeedWish> ReadFeedWish(const std::map<std::string, std::string>& query) {
  TFeedWish wish;
  const auto kinds = query.find("kinds");
  if (kinds == query.end()) wish.Kinds.fill(true);
  for (std::string_view left = kinds == query.end() ? "" : std::string_view(kinds->second); !left.empty();) {
    const std::size_t end = std::min(left.find(','), left.size());
    const std::string kind(left.substr(0, end));
    left.remove_prefix(std::min(end + 1, left.size()));
    std::size_t at = 0;
    while (at < kEventKinds && kind != EventName(static_cast<TEventKind>(at))) ++at;
    if (at == kEventKinds) return BadKind(kind);
    wish.Kinds[at] = true;
  }
  if (const auto rate = query.find("rate"); rate != query.end()) {
    const auto hertz = ParseExactly<std::uint32_t>(rate->second);
    if (!hertz || *hertz < 1 || *hertz > TFeedWish::kMostRate)
      return TProblem{.What = Format(Tr("the rate must be a whole number from 1 to %u"), TFeedWish::kMostRate),
                      .Where = "rate"};
    wish.Rate = *hertz;
  }
  return wish;
}

// --- one client ---

TEventFeed::TEventFeed(TEventHub& hub, TFeedWish wish, std::function<void()> more)
    : FHub(hub), FWish(std::move(wish)), FMore(std::move(more)) {}

std::string TEventFeed::Take() {
  FUnderWay = 0;
  if (FItems.empty() && FBehind) FHub.CatchUp(*this);
  std::string bytes;
  while (!FItems.empty() && (bytes.empty() || bytes.size() + FItems.front().Text->size() <= kChunkBytes)) {
    bytes += *FItems.front().Text;
    FBytes -= FItems.front().Text->size();
    FItems.pop_front();
  }
  FUnderWay = bytes.size();
  return bytes;
}

void TEventFeed::DropSignals() {
  std::erase_if(FItems, [&](const TItem& item) {
    if (item.Signals) FBytes -= item.Text->size();
    return item.Signals;
  });
}

void TEventFeed::Push(TItem item) {
  if (FEnding) return;
  const bool waited = !FItems.empty() || FUnderWay != 0;
  const std::size_t size = item.Text->size();
  if (FUnderWay + FBytes + size > kMostBytes) {
    DropSignals();
    if (item.Signals) return;
  }
  if (FUnderWay + FBytes + size > kMostBytes) {
    const auto lost = std::ranges::find_if(FItems, [](const TItem& i) { return i.Number != 0; });
    const std::uint64_t from = lost == FItems.end() ? item.Number : lost->Number;
    FItems.clear();
    item = FHub.Note("missed", {{"from", from}, {"why", "slow"}});
    FBytes = 0;
    FEnding = true;
  }
  FBytes += item.Text->size();
  FItems.push_back(std::move(item));
  if (!waited) FMore();
}

// --- all of them ---

TEventFeed::TItem TEventHub::Note(const char* name, const nlohmann::ordered_json& data, std::uint64_t number) {
  std::string text;
  if (number != 0) text = "id: " + IdOf(FRing.Epoch(), number) + "\n";
  text += Format("event: %s\ndata: %s\n\n", name, Json(data).c_str());
  return {0, false, std::make_shared<const std::string>(std::move(text))};
}

std::shared_ptr<TEventFeed> TEventHub::Open(TFeedWish wish, std::uint64_t nowMs, std::function<void()> more) {
  Pump(nowMs);
  auto feed = std::make_shared<TEventFeed>(*this, std::move(wish), std::move(more));
  feed->FSentMs = nowMs;
  feed->FCursor = FCursor;
  feed->FSignals = FCursor;
  feed->Push(Note("hello", {{"epoch", FRing.Epoch()}, {"last", FCursor}}));
  if (const std::string_view id = feed->FWish.LastId; !id.empty()) {
    const std::size_t dash = id.rfind('-');
    const auto number =
        dash == std::string_view::npos ? std::nullopt : ParseExactly<std::uint64_t>(id.substr(dash + 1));
    const bool ours = number && id.substr(0, dash) == FRing.Epoch();
    if (!ours) feed->Push(Note("epoch", {{"epoch", FRing.Epoch()}}));
    feed->FCursor = ours ? std::min(*number, FCursor) : 0;
    feed->FBehind = true;
  }
  FFeeds.push_back(feed);
  return feed;
}

void TEventHub::Close(const std::shared_ptr<TEventFeed>& feed) { std::erase(FFeeds, feed); }

void TEventHub::CatchUp(TEventFeed& feed) {
  while (feed.FItems.empty() && feed.FBehind) {
    const TEventRing::TRead read = FRing.Read(feed.FCursor, kCatchUpEvents);
    if (read.MissedFrom != 0)
      feed.Push(Note("missed", {{"from", read.MissedFrom}, {"to", read.MissedTo}, {"why", "old"}}, read.MissedTo));
    for (const TServiceEvent& event : read.Events) {
      if (event.Number > FCursor) break;
      feed.FCursor = event.Number;
      if (event.Kind == evSignals || !feed.FWish.Kinds[static_cast<std::size_t>(event.Kind)]) continue;
      feed.Push({event.Number, false, Render(event, feed.FWish.Language)});
    }
    if (read.Events.empty() || read.Events.back().Number >= FCursor) {
      feed.FCursor = FCursor;
      feed.FBehind = false;
    }
  }
}

std::shared_ptr<const std::string> TEventHub::Render(const TServiceEvent& event, const std::string& language) {
  if (FRenderedNumber != event.Number) {
    FRendered.clear();
    FRenderedNumber = event.Number;
  }
  for (const TText& text : FRendered)
    if (text.Language == language) return text.Text;
  FRendered.push_back({language, RenderNow(event, language)});
  return FRendered.back().Text;
}

// One whose text cannot be made is told as missed: the others go on.
std::shared_ptr<const std::string> TEventHub::RenderNow(const TServiceEvent& event, const std::string& language) try {
  const TLanguageScope scope(language);
  nlohmann::ordered_json data{{"number", event.Number}, {"time", UtcText(event.UnixMs)}};
  nlohmann::ordered_json body = event.Body();
  if (body.is_object())
    data.update(body);
  else
    data["value"] = std::move(body);
  std::string text;
  if (event.Kind != evSignals) text = "id: " + IdOf(FRing.Epoch(), event.Number) + "\n";
  text += Format("event: %s\ndata: ", EventName(event.Kind));
  text += Json(data);
  text += "\n\n";
  return std::make_shared<const std::string>(std::move(text));
} catch (...) {
  const std::string what = DescribeException(std::current_exception());
  return Note("missed", {{"from", event.Number}, {"to", event.Number}, {"why", "fault"}, {"text", what}}, event.Number)
      .Text;
}

void TEventHub::Pump(std::uint64_t nowMs) {
  if (FFeeds.empty()) {
    FCursor = FRing.Last();
    return;
  }
  const TEventRing::TRead read = FRing.Read(FCursor);
  // More has happened between two pumps than the ring holds: everybody has missed it.
  if (read.MissedFrom != 0)
    for (const auto& feed : FFeeds)
      if (!feed->FBehind)
        feed->Push(Note("missed", {{"from", read.MissedFrom}, {"to", read.MissedTo}, {"why", "fast"}}, read.MissedTo));
  for (const TServiceEvent& event : read.Events) {
    FCursor = std::max(FCursor, event.Number);
    if (event.Kind == evSignals) {
      FSignals = event;
      continue;
    }
    for (const auto& feed : FFeeds) {
      if (feed->FBehind) continue;
      feed->FCursor = event.Number;
      if (!feed->FWish.Kinds[static_cast<std::size_t>(event.Kind)]) continue;
      feed->Push({event.Number, false, Render(event, feed->FWish.Language)});
      feed->FSentMs = nowMs;
    }
  }
  HandOnSignals(nowMs);
}

void TEventHub::HandOnSignals(std::uint64_t nowMs) {
  if (FSignals.Number == 0) return;
  for (const auto& feed : FFeeds) {
    const bool due = nowMs - feed->FSignalsMs >= 1000 / feed->FWish.Rate;
    if (!due || feed->FSignals >= FSignals.Number || !feed->FWish.Kinds[static_cast<std::size_t>(evSignals)]) continue;
    feed->FSignals = FSignals.Number;
    feed->FSignalsMs = nowMs;
    feed->FSentMs = nowMs;
    feed->Push({FSignals.Number, true, Render(FSignals, feed->FWish.Language)});
  }
}

void TEventHub::Beat(std::uint64_t nowMs, std::uint64_t silentMs) {
  static const auto kBeat = std::make_shared<const std::string>(": still here\n\n");
  for (const auto& feed : FFeeds) {
    if (nowMs - feed->FSentMs < silentMs) continue;
    feed->FSentMs = nowMs;
    if (feed->FItems.empty() && feed->FUnderWay == 0) feed->Push({0, false, kBeat});
  }
}

}  // namespace ixocontroller
