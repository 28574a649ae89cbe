// The NC alarm package: which alarms stand, what they permit, and two events that tell of every raise and clear.
//
// A raise or clear changes the permissions at once, lock-free for their readers. Its event follows on the package's
// event thread (or in DrainOnce, where somebody cranks by hand), in the order of the raises and clears, and the records
// that GetAlarm shows change in the same moment: inside a read bracket of another thread neither happens. Any thread
// calls unless a line says otherwise. What a source throws is caught, and its report is left out; nothing else fails
// but memory.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "ixocamglue/platform/alarms/NcAlarmEvent.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/TextHash.h"

namespace ixocamglue {

class TNcAlarmManager : public TNcAlarms {
 public:
  static constexpr std::uint32_t kPollMs = 10;  // how often the event thread asks the sources

  TNcAlarmManager();
  ~TNcAlarmManager() override;
  TNcAlarmManager(const TNcAlarmManager&) = delete;
  TNcAlarmManager& operator=(const TNcAlarmManager&) = delete;

  bool AllowCut() override { return !Has(naForbidCut); }
  bool AllowLaser() override { return !Has(naForbidLaser); }
  bool AllowFollower() override { return !Has(naForbidFollower); }
  bool AllowHoming() override { return !Has(naForbidHoming); }
  bool AllowMove() override { return !Has(naForbidMove); }
  bool AllowMoveAxis(std::int32_t axis, bool positive) override {
    return !Has(naForbidMove | NcAlarmAxis(axis, positive));
  }
  bool RequireStop() override { return Has(naRequireStop); }
  bool RequireOrg() override { return Has(naRequireOrg); }

  // The alarm stands from now on; standing already, it stands twice. The package fills in time and serial; returns the
  // serial.
  std::uint64_t Raise(TNcAlarmRecord record);
  // Ends the newest standing alarm of this identifier, or the one with this serial. False when none stands.
  bool Clear(std::string_view identifier);
  bool ClearSerial(std::uint64_t serial);
  void ClearAll();
  [[nodiscard]] std::vector<TNcAlarmRecord> Standing() const;  // in the order of their raises
  [[nodiscard]] std::size_t Count() const;                     // of those
  [[nodiscard]] bool Stands(std::uint64_t serial) const;
  // Told each alarm in the moment of its raise, on the raising thread, who may hold locks: it calls nobody back. Set
  // before the first raise.
  void OnRaised(TNcAlarmEvent::THandler told) { FOnRaised = std::move(told); }

  // Sources are asked from the event thread and by ResetAlarms. Not owned; removing waits for a call in flight and
  // clears what the source raised. The caller holds no lock that the source's operations take.
  void AddSource(INcAlarmSource20& source);
  void RemoveSource(INcAlarmSource20& source);
  // What the sources have registered: prefix, number and attributes of each.
  [[nodiscard]] std::vector<TNcAlarmRecord> Registered();
  // The operator's reset: every source is told to reset each alarm that it has raised, and asked for its report at
  // once, on the caller's thread. What that still reports stands.
  void ResetAlarms();

  // The read bracket; may be nested. Inside it the records stand still.
  void BeginRead() IXO_NO_ANALYSIS { FReadLock.lock(); }
  void EndRead() IXO_NO_ANALYSIS { FReadLock.unlock(); }
  // Inside a bracket only.
  [[nodiscard]] std::int32_t GetAlarmCount() IXO_NO_ANALYSIS;
  // Likewise; the oldest is 0. Throws std::out_of_range for one outside.
  [[nodiscard]] const TNcAlarmRecord& GetAlarm(std::int32_t index) IXO_NO_ANALYSIS;

  TNcAlarmEvent& AlarmAdded() { return FAdded; }
  TNcAlarmEvent& AlarmRemoved() { return FRemoved; }

  // One round of the event thread: asks the sources, then fires what is queued. Returns the number of events. One
  // caller at a time.
  std::size_t DrainOnce();
  // An event is queued or being fired. Conditions that a source has not reported yet do not count.
  [[nodiscard]] bool HasPending() const;
  void Start();  // the event thread, until Stop or the package's end
  void Stop();   // what is queued stays queued

 private:
  using TRecordPtr = std::shared_ptr<const TNcAlarmRecord>;
  struct TPending {
    TRecordPtr Record;
    bool Removed = false;
    TDateTime Time;
  };
  class TSource;

  [[nodiscard]] bool Has(TNcAlarmAttrs bits) const { return (FEffects.load(std::memory_order_acquire) & bits) != 0; }
  void EndLocked(const TRecordPtr& record) IXO_REQUIRES(FLock);
  void CountLocked(TNcAlarmAttrs attrs, int change) IXO_REQUIRES(FLock);
  void Apply(const TPending& pending);

  TNcAlarmEvent::THandler FOnRaised;
  std::atomic<TNcAlarmAttrs> FEffects{0};

  mutable TCriticalSection FLock;
  std::array<std::uint32_t, 32> FCounts IXO_GUARDED_BY(FLock){};  // standing alarms per attribute member
  std::uint64_t FSerials IXO_GUARDED_BY(FLock) = 0;
  std::map<std::uint64_t, TRecordPtr> FStanding IXO_GUARDED_BY(FLock);
  std::unordered_map<std::string, std::vector<TRecordPtr>, TTextHash, std::equal_to<>> FByIdentifier
      IXO_GUARDED_BY(FLock);  // newest last
  std::deque<TPending> FPending IXO_GUARDED_BY(FLock);
  bool FFiring IXO_GUARDED_BY(FLock) = false;

  // Held over a bracket, and while an event changes the records and fires.
  TRecursiveSection FReadLock;
  std::list<TRecordPtr> FShown IXO_GUARDED_BY(FReadLock);
  std::unordered_map<std::uint64_t, std::list<TRecordPtr>::iterator> FShownBySerial IXO_GUARDED_BY(FReadLock);
  std::vector<TRecordPtr> FView IXO_GUARDED_BY(FReadLock);  // FShown by index, made when asked for
  bool FViewFresh IXO_GUARDED_BY(FReadLock) = false;

  TRecursiveSection FSourcesLock;  // held while a source is asked
  std::vector<std::unique_ptr<TSource>> FSources IXO_GUARDED_BY(FSourcesLock);

  TNcAlarmEvent FAdded;
  TNcAlarmEvent FRemoved;
  std::unique_ptr<TStop> FStop;
  std::thread FThread;
};

}  // namespace ixocamglue
