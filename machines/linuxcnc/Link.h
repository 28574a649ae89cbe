// The driver's connection with one LinuxCNC: its threads, what they know of it, and the moves that wait for it.
//
// Three threads. "linuxcnc-hal" talks to ixocut-hal: positions, points, the beat that keeps the beam's latch up, the
// pin that holds the axes. "linuxcnc-status" asks how LinuxCNC stands. "linuxcnc" commands it: one line of G-code after
// the other, abort, and while something runs a sign of life. Everything public is for any thread and waits for no
// network. Lengths mm and speeds mm/s in LinuxCNC's coordinates; angles in degrees.
//
// LinuxCNC has one queue, and so have the moves: each waits for those before it. A move has ended when its last line
// was acknowledged, LinuxCNC says IDLE after that, and the axes stand within kArrivedMm of the target; IDLE elsewhere
// is somebody's abort. A stop holds the axes by HAL at once, drops what waits, and is over when LinuxCNC has
// acknowledged an abort and the axes rest; only then they are let go, as what LinuxCNC has queued would go on.
//
// It is away from the moment that a connection ends, LinuxCNC's task is silent, another one commands it, the axes do
// not rest 5 s after an abort, or, while the controller is not in standby, it falls into emergency stop, is switched
// off, unhomed or brought into another mode. Then nothing beats, what waits is dropped, and the axes are held. It is
// back when all connections stand, an abort was acknowledged, the axes rest and the controller is in standby. That
// arms, homes and moves nothing.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Locks.h"
#include "machines/linuxcnc/Config.h"
#include "machines/linuxcnc/HalClient.h"
#include "machines/linuxcnc/RshClient.h"

namespace ixocamglue {

// Whose a move is.
enum TLncUnit : std::uint8_t { luXY, luZ, luFocus, luTurn, kLncUnits };

struct TLncMove {
  struct TTarget {
    TLncAxis Axis;
    double At;  // when it has ended
  };

  TLncUnit Unit = luXY;
  std::vector<std::string> Lines;  // complete ones, in their order; may be none
  std::vector<TTarget> Targets;
  bool ClearOffset = false;    // of the height loop, first
  bool NeedsMdi = false;       // also without a line
  std::function<void()> Then;  // last; on the commanding thread
};

// How LinuxCNC stands, as its text interface says.
struct TLncStatus {
  bool Estop = true;
  bool On = false;
  bool Idle = false;
  std::string Mode;                // "MANUAL", "AUTO", "MDI"
  std::int32_t FeedOverride = -1;  // %; -1: not known
  std::uint64_t AskedMs = 0;       // when it was asked for
};

class TLncLink {
 public:
  static constexpr double kArrivedMm = 0.005;
  static constexpr std::uint64_t kOldMs = 200;  // what is older counts as unreadable

  TLncLink(const TLncConfig& config, IDriverEvents& events);
  ~TLncLink();
  TLncLink(const TLncLink&) = delete;
  TLncLink& operator=(const TLncLink&) = delete;

  // Connects and starts the threads; what does not answer.
  [[nodiscard]] TResult<> Start();
  // Ends the threads; nothing is called back any more.
  void End();

  // Queues it; one of the same unit that is not done is stopped first. Throws with the reason where LinuxCNC is away,
  // not ready for moves, or an axis is not homed.
  void Move(TLncMove move);
  // By so much at this speed, also of an axis that is not homed; only while the controller jogs.
  void JogUnhomed(TLncUnit unit, TLncAxis axis, double way, double speed);
  // From the call until it has ended, a stop of it included. Throws what it failed of, until the next Move or Stop.
  [[nodiscard]] bool Busy(TLncUnit unit);
  // Nothing where the unit has nothing to do. The axes share one queue: what runs there is stopped as a whole.
  void Stop(TLncUnit unit);
  void StopAll();

  [[nodiscard]] double Pos(TLncAxis axis) const;   // throws EDeviceAway
  [[nodiscard]] bool Moving(TLncAxis axis) const;  // until it was seen to rest for 50 ms
  [[nodiscard]] bool Homed(TLncAxis axis) const;
  [[nodiscard]] TLncStatus Status() const;
  // Why nothing may move; empty: it may.
  [[nodiscard]] std::string NotReady() const;
  [[nodiscard]] std::string WhyAway() const;  // empty: it is not away
  [[nodiscard]] std::optional<std::uint64_t> AgeMs() const;

  [[nodiscard]] THalClient& Hal() { return FHal; }
  [[nodiscard]] const THalClient& Hal() const { return FHal; }
  [[nodiscard]] const TLncConfig& Config() const { return FConfig; }
  void RequireFresh() const;               // throws EDeviceAway where what HAL has said is too old
  void RequireHomed(TLncAxis axis) const;  // throws with what is to be done
  // An abort, then the latch's rearm edge; the beam has to be off.
  void Rearm();
  [[nodiscard]] bool RearmDue() const;
  void NoteState(std::int32_t state) { FState.store(state, std::memory_order_release); }
  // Called with each frame of HAL, on its thread; before Start.
  void OnFrame(std::function<void(std::uint64_t nowMs)> take) { FOnFrame = std::move(take); }

 private:
  struct TJob {
    TLncMove Move;
    TLncAxis JogAxis = kLncAxes;  // an unhomed jog instead of lines
    double JogWay = 0.0, JogSpeed = 0.0;
    std::size_t NextLine = 0;
    std::uint64_t BeganMs = 0;
    std::uint64_t AckMs = 0;        // of the last line
    std::uint64_t ElsewhereMs = 0;  // since when it is idle, but not at the target
    bool Begun = false;
    bool Clearing = false;
  };

  // --- the threads, one round each ---
  void Run(const char* name, void (TLncLink::*round)());
  void HalRound();
  void StatusRound();
  void CommandRound();

  [[nodiscard]] TResult<> CheckPins() const;
  [[nodiscard]] TResult<> CheckUnits();
  void OutliveLatch();
  [[nodiscard]] TResult<> CheckLimits() const;
  void Reopen(TRshClient& rsh, std::uint64_t& triedMs, bool enable);
  void CloseCommands();
  void HoldUntilAborted() IXO_REQUIRES(FLock);
  void Track(std::uint64_t now);
  [[nodiscard]] bool MayBeat(std::uint64_t now) const;
  void WatchTakeover(const TLncStatus& status);
  void WatchHands();
  [[nodiscard]] std::optional<std::uint64_t> OrdersDone() const;  // none while one is not
  void Lose(const std::string& why);
  void TryReturn();

  // --- the commanding thread's ---
  void CarryOutAbort();
  void StepJob();
  [[nodiscard]] bool Begin(TJob& job);
  [[nodiscard]] bool EnsureMode(const char* mode);
  [[nodiscard]] bool OffsetCleared(TJob& job);
  [[nodiscard]] bool Arrived(TJob& job);
  void SignOfLife(std::uint64_t now);
  void Fail(std::string why);  // of the present job
  // Sends "set WHAT". A problem: it is refused; or LinuxCNC does not answer, or another one commands it, and is away.
  // One that says nothing: the driver ends.
  [[nodiscard]] TResult<> Command(const std::string& what);
  [[nodiscard]] bool AbortDue() const;

  void Enqueue(TJob job);
  void BeginStop(unsigned units) IXO_REQUIRES(FLock);
  void Mark(bool on);
  [[nodiscard]] std::string NotReadyLocked() const IXO_REQUIRES(FLock);
  [[nodiscard]] bool Rests(TLncUnit unit) const;
  [[nodiscard]] bool AllRest() const;
  [[nodiscard]] double At(TLncAxis axis) const;  // however old

  const TLncConfig FConfig;
  IDriverEvents& FEvents;
  std::function<void(std::uint64_t)> FOnFrame;
  THalClient FHal;
  TRshTurn FTurn;
  TRshClient FCommands;  // the commanding thread's
  TRshClient FAsks;      // the status thread's
  std::atomic<std::int32_t> FState{0};

  struct TTrack {
    double At = 0.0;
    double From = 0.0;            // where it was when it last counted as moved
    std::uint64_t ChangedMs = 0;  // when that was
  };
  mutable TCriticalSection FTrackLock;
  std::array<TTrack, kLncAxes> FTracks IXO_GUARDED_BY(FTrackLock);
  std::uint64_t FTrackedMs IXO_GUARDED_BY(FTrackLock) = 0;  // when the frame came that they are of

  TCriticalSection FTelling;  // from what makes it away or back until that is told, so that both come in their order
  mutable TCriticalSection FLock;
  std::condition_variable_any FWake;  // something to do for the commanding thread
  TLncStatus FStatus IXO_GUARDED_BY(FLock);
  std::deque<TJob> FWaiting IXO_GUARDED_BY(FLock);
  TLncUnit FActiveUnit IXO_GUARDED_BY(FLock) = kLncUnits;  // whose job FActive is
  std::array<std::string, kLncUnits> FFailed IXO_GUARDED_BY(FLock);
  std::string FAway IXO_GUARDED_BY(FLock);
  std::string FModeSet IXO_GUARDED_BY(FLock);    // the one that was asked for last
  unsigned FStopping IXO_GUARDED_BY(FLock) = 0;  // the units whose stop is not over
  std::uint64_t FStops IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FMoves IXO_GUARDED_BY(FLock) = 0;  // that were ordered
  bool FAbortDue IXO_GUARDED_BY(FLock) = false;
  bool FRearmDue IXO_GUARDED_BY(FLock) = false;
  // The connections stand; of HAL's the pins were looked at as well.
  bool FHalOpen IXO_GUARDED_BY(FLock) = false;
  bool FCommandsOpen IXO_GUARDED_BY(FLock) = false;
  bool FAsksOpen IXO_GUARDED_BY(FLock) = false;

  // The commanding thread's own.
  std::optional<TJob> FActive;
  std::uint64_t FCommandsTriedMs = 0;
  std::uint64_t FLifeMs = 0;
  // The status thread's own.
  std::uint64_t FAsksTriedMs = 0;
  bool FRan = false;  // the controller was not in standby
  TLncStatus FThen;   // since it left it
  std::array<bool, kLncAxes> FHomedThen{};
  std::array<double, kLncAxes> FOurs{};       // where each stood at the first look after the last order
  std::optional<std::uint64_t> FRestedAfter;  // so many orders, at the last look
  std::uint64_t FFollowedMs = 0;              // the first look behind following
  bool FFollows = false, FLetGo = false;      // at the last look
  // The HAL thread's own.
  std::uint64_t FHalTriedMs = 0;

  TStop FStop;
  std::vector<std::thread> FThreads;
};

}  // namespace ixocamglue
