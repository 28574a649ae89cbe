#include "controller/service/HeldKeys.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kMostIdBytes = 64;

bool IsPressId(std::string_view id) {
  return !id.empty() && id.size() <= kMostIdBytes &&
         std::ranges::all_of(id, [](char c) { return c > ' ' && c < 0x7F; });
}

TProblem NoPressId() { return {.What = Tr("a press needs an id of 1 to 64 printable characters without blanks")}; }

TProblem KeyIsUp(const std::string& id) {
  return {.What = Format(Tr("the press \"%s\" holds no key any more"), id.c_str()),
          .Why = {},
          .Remedy = Tr("press the key again, with a new id")};
}

}  // namespace

const char* KeyUpWord(TKeyUp why) {
  switch (why) {
    case kuReleased: return "released";
    case kuGap: return "gap";
    case kuConnection: return "connection";
    case kuLease: return "lease";
    case kuForm: return "form";
    case kuEnd: return "end";
  }
  return "";
}

THeldKeys::THeldKeys(TPanelGuard& guard, std::function<bool(TKeyCode, std::int32_t)> press,
                     std::function<void(const TKeyPress&, TKeyUp)> told)
    : FGuard(guard), FPress(std::move(press)), FTold(std::move(told)) {}

bool THeldKeys::NeedsLease(TKeyCode key) { return (KeyBit(key) & kStopKeys) == 0; }

TResult<> THeldKeys::CheckAge(std::uint64_t atMs, std::uint64_t nowMs) {
  if (atMs > nowMs + kAheadMs)
    return TProblem{.What = Format(Tr("\"atMs\" is %llu ms ahead of the controller's time"),
                                   static_cast<unsigned long long>(atMs - nowMs)),
                    .Why = {},
                    .Remedy = Tr("count it from the \"serverMs\" of an answer")};
  if (nowMs > atMs && nowMs - atMs > kLatestMs)
    return TProblem{.What = Format(Tr("it came %llu ms after the key was pressed, and was dropped"),
                                   static_cast<unsigned long long>(nowMs - atMs)),
                    .Why = Format(Tr("at most %d ms"), static_cast<int>(kLatestMs)),
                    .Remedy = Tr("press the key again, with a new id")};
  return {};
}

TResult<> THeldKeys::MayPress(const TKeyPress& press, std::uint64_t nowMs) {
  if (!IsPressId(press.Id)) return NoPressId();
  if (FOver.contains(press.Id)) return KeyIsUp(press.Id);
  if (auto age = CheckAge(press.AtMs, nowMs); !age) return age;
  TProblem problem{.What = {}, .Why = {}, .Remedy = Tr("press the key again, with a new id")};
  if (nowMs < FFullUntilMs)
    problem.What = Tr("too many keys were released at once");
  else if (Find(press.Id) != FHeld.end())
    problem.What = Format(Tr("the id \"%s\" is another key's"), press.Id.c_str());
  else if (IsHeld(press.Key))
    problem = {.What = Tr("the key is held by another press"), .Why = {}, .Remedy = Tr("wait until it is released")};
  else
    return {};
  return problem;
}

TResult<> THeldKeys::Press(const TKeyPress& press, std::uint64_t nowMs) {
  Watch(nowMs);
  if (NeedsLease(press.Key)) {
    if (const auto same = Find(press.Id); same != FHeld.end() && same->Press.Key == press.Key) return {};
    if (auto may = MayPress(press, nowMs); !may) return may;
  }
  if (!(FPress ? FPress(press.Key, press.Param) : FGuard.Press(press.Key, press.Param)))
    return TProblem{.What = Tr("the panel takes no keys now"),
                    .Why = Tr("its permissions are not up to date"),
                    .Remedy = Tr("try again")};
  // A stop key that another holds has had its effect; it stays with the other.
  if (!IsHeld(press.Key)) FHeld.push_back({press, nowMs});
  return {};
}

TResult<> THeldKeys::Heartbeat(std::span<const std::string> ids, std::uint64_t connection, std::uint64_t atMs,
                               std::uint64_t nowMs) {
  Watch(nowMs);
  if (auto age = CheckAge(atMs, nowMs); !age) return age;
  TResult<> result;
  for (const std::string& id : ids) {
    const auto held = Find(id);
    if (held == FHeld.end()) {
      if (result) result = KeyIsUp(id);
      continue;
    }
    held->AliveMs = nowMs;
    held->Press.Connection = connection;  // a browser has several, and closes those that it does not need
  }
  if (Any()) FGuard.Alive();
  return result;
}

TResult<> THeldKeys::Release(const std::string& id, std::uint64_t nowMs) {
  if (!IsPressId(id)) return NoPressId();
  const auto held = Find(id);
  if (held != FHeld.end())
    Up(static_cast<std::size_t>(held - FHeld.begin()), kuReleased, nowMs);
  else
    Keep(id, nowMs);
  Watch(nowMs);
  return {};
}

std::vector<THeldKeys::THeld>::iterator THeldKeys::Find(std::string_view id) {
  return std::ranges::find_if(FHeld, [id](const THeld& held) { return held.Press.Id == id; });
}

bool THeldKeys::IsHeld(TKeyCode key) const {
  return std::ranges::any_of(FHeld, [key](const THeld& held) { return held.Press.Key == key; });
}

void THeldKeys::Watch(std::uint64_t nowMs) {
  for (std::size_t i = FHeld.size(); i-- > 0;)
    if (nowMs > FHeld[i].AliveMs && nowMs - FHeld[i].AliveMs > kGapMs) Up(i, kuGap, nowMs);
  if (Any()) FGuard.Alive();
}

void THeldKeys::ConnectionGone(std::uint64_t connection, std::uint64_t nowMs) {
  for (std::size_t i = FHeld.size(); i-- > 0;)
    if (FHeld[i].Press.Connection == connection) Up(i, kuConnection, nowMs);
}

void THeldKeys::ReleaseAll(TKeyUp why, std::uint64_t nowMs) {
  for (std::size_t i = FHeld.size(); i-- > 0;) Up(i, why, nowMs);
}

void THeldKeys::Up(std::size_t index, TKeyUp why, std::uint64_t nowMs) {
  const TKeyPress press = std::move(FHeld[index].Press);
  FHeld.erase(FHeld.begin() + static_cast<std::ptrdiff_t>(index));
  Keep(press.Id, nowMs);
  FGuard.Release(press.Key);
  if (FTold) FTold(press, why);
}

void THeldKeys::Keep(const std::string& id, std::uint64_t nowMs) {
  if (FOver.size() >= kMostKept) {
    std::erase_if(FOver, [nowMs](const auto& over) { return nowMs - over.second > kKeptMs; });
    if (FOver.size() >= kMostKept) {
      // What is forgotten could be a press that is still on its way; by then it is too old.
      FOver.erase(std::ranges::min_element(FOver, {}, [](const auto& over) { return over.second; }));
      FFullUntilMs = nowMs + kLatestMs + kAheadMs;
    }
  }
  FOver[id] = nowMs;
}

}  // namespace ixocontroller
