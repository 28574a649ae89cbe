// Panel keys that are held down over a connection, and come up by themselves.
//
// A press has an id that its client makes; heartbeats (every kHeartbeatMs) and the release name it. A key comes up when
// it is released, after kGapMs without a heartbeat, with its connection, its lease or a change of the form; then only a
// new press, with a new id, holds it again. A release that comes before its press cancels it.
//
// How old a message is, without clocks that agree: answers of the controller hold "serverMs", its RealMs(). A client
// keeps the largest (serverMs - its own steady ms on receipt) that it has seen, and sends with each press and heartbeat
// `atMs`: its own steady ms of that moment plus this difference. It is behind the controller's time by what the
// fastest answer took, never ahead, so a message looks rather too old than too young. A press older than kLatestMs is
// dropped; a heartbeat older than that counts for nothing.
//
// Stop keys (kStopKeys) get through whatever their age, whoever holds them, and without a lease.
//
// Interface thread. Times are real (RealMs), also where the machine's are virtual.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "controller/panel/PanelGuard.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

enum class TKeyUp : std::uint8_t { kuReleased, kuGap, kuConnection, kuLease, kuForm, kuEnd };
using enum TKeyUp;
// Does not fail.
[[nodiscard]] const char* KeyUpWord(TKeyUp why);  // "released", "gap", "connection", "lease", "form", "end"

struct TKeyPress {
  std::string Id;  // 1 to 64 printable characters without blanks, the client's own; used once
  TKeyCode Key{};
  std::int32_t Param = 0;
  std::uint64_t Connection = 0;  // that it came by; 0: none
  std::uint64_t AtMs = 0;
};

// What is not refused does not fail: what a device throws at a press is logged.
class THeldKeys {
 public:
  static constexpr std::uint64_t kHeartbeatMs = 50;
  static constexpr std::uint64_t kGapMs = 200;
  static constexpr std::uint64_t kLatestMs = 200;
  static constexpr std::uint64_t kAheadMs = 50;   // clocks drift; further ahead is a mistake of the client's
  static constexpr std::uint64_t kKeptMs = 1000;  // ids that are over
  static constexpr std::size_t kMostKept = 256;

  // `press`, where it is given, is called instead of the guard's (the panel host's turns the knob). `told` is called
  // behind each key that has come up, with its press's id. The guard outlives this.
  explicit THeldKeys(TPanelGuard& guard, std::function<bool(TKeyCode, std::int32_t)> press = {},
                     std::function<void(const TKeyPress&, TKeyUp)> told = {});
  ~THeldKeys() { ReleaseAll(kuEnd, 0); }
  THeldKeys(const THeldKeys&) = delete;
  THeldKeys& operator=(const THeldKeys&) = delete;

  [[nodiscard]] static bool NeedsLease(TKeyCode key);

  // The same press once more (a request that was sent again) is done already. Refused: too old, over or cancelled, the
  // key is held by another press, the panel takes no keys now.
  TResult<> Press(const TKeyPress& press, std::uint64_t nowMs);
  // Refused with the first id whose key is up; the others are kept down all the same.
  TResult<> Heartbeat(std::span<const std::string> ids, std::uint64_t connection, std::uint64_t atMs,
                      std::uint64_t nowMs);
  // Of an id that is not known: cancels the press that has not come yet.
  TResult<> Release(const std::string& id, std::uint64_t nowMs);

  // What has lost its heartbeat comes up. At least every 20 ms of real time, and between two passes in virtual time: it
  // is the guard's sign of life too while a key is held.
  void Watch(std::uint64_t nowMs);
  void ConnectionGone(std::uint64_t connection, std::uint64_t nowMs);
  void ReleaseAll(TKeyUp why, std::uint64_t nowMs);

  [[nodiscard]] bool Any() const { return !FHeld.empty(); }

 private:
  struct THeld {
    TKeyPress Press;
    std::uint64_t AliveMs;
  };

  [[nodiscard]] static TResult<> CheckAge(std::uint64_t atMs, std::uint64_t nowMs);
  [[nodiscard]] TResult<> MayPress(const TKeyPress& press, std::uint64_t nowMs);
  [[nodiscard]] std::vector<THeld>::iterator Find(std::string_view id);
  [[nodiscard]] bool IsHeld(TKeyCode key) const;
  void Up(std::size_t index, TKeyUp why, std::uint64_t nowMs);
  void Keep(const std::string& id, std::uint64_t nowMs);

  TPanelGuard& FGuard;
  const std::function<bool(TKeyCode, std::int32_t)> FPress;
  const std::function<void(const TKeyPress&, TKeyUp)> FTold;
  std::vector<THeld> FHeld;
  std::map<std::string, std::uint64_t, std::less<>> FOver;  // ids that hold nothing any more, and since when
  std::uint64_t FFullUntilMs = 0;                           // more ids were over than are kept: no press is taken
};

}  // namespace ixocontroller
