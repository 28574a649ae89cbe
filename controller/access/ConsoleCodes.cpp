#include "controller/access/ConsoleCodes.h"

#include <algorithm>

namespace ixocontroller {
namespace {

constexpr std::size_t kCodeBytes = 16;
constexpr std::size_t kSessionBytes = 32;

// What is over goes, and then the one with the smallest `order` until there is room for one more.
template <class Map, class Order>
void MakeRoom(Map& map, std::size_t most, std::uint64_t nowMs, Order order) {
  std::erase_if(map, [nowMs](const auto& row) { return row.second.UntilMs <= nowMs; });
  while (map.size() >= most)
    map.erase(std::ranges::min_element(map, {}, [order](const auto& row) { return row.second.*order; }));
}

}  // namespace

std::string TConsoleCodes::MakeCode(TRole role, std::uint64_t nowMs) {
  MakeRoom(FCodes, kMostCodes, nowMs, &TCode::UntilMs);
  std::string code = RandomHex(kCodeBytes);
  FCodes[Sha256(code)] = {role, nowMs + kCodeMs};
  return code;
}

std::optional<TConsoleCodes::TOpened> TConsoleCodes::Exchange(std::string_view code, std::uint64_t nowMs) {
  const auto found = FCodes.find(Sha256(code));
  if (found == FCodes.end()) return std::nullopt;
  const TCode taken = found->second;
  FCodes.erase(found);
  if (taken.UntilMs <= nowMs) return std::nullopt;
  MakeRoom(FSessions, kMostSessions, nowMs, &TOpen::UsedMs);
  TOpened opened{RandomHex(kSessionBytes), {++FLast, taken.Role}};
  FSessions[Sha256(opened.Secret)] = {opened.Session, nowMs + kSessionMs, nowMs};
  return opened;
}

std::optional<TConsoleSession> TConsoleCodes::Find(std::string_view secret, std::uint64_t nowMs) {
  const auto found = FSessions.find(Sha256(secret));
  if (found == FSessions.end() || found->second.UntilMs <= nowMs) return std::nullopt;
  found->second.UsedMs = nowMs;
  return found->second.Session;
}

bool TConsoleCodes::End(std::uint64_t number) {
  return std::erase_if(FSessions, [number](const auto& row) { return row.second.Session.Number == number; }) != 0;
}

}  // namespace ixocontroller
