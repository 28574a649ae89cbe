// Jobs: procedures and sequences that are run one after the other, each with its checks before it and, where it has
// one, a question to the operator. Kept in queue.json of the state folder; after a restart nothing starts by itself.
//
// The queue is held until somebody starts it: when it was read, when a check or a job fails, when a stop or a pause was
// asked for, also between two jobs, and when it is empty. What a job runs is taken into the queue when the job is
// added: a sequence that is changed afterwards changes no job. Interface thread, which waits for no disk; each change
// is on the disk before it counts, and one is written after the other.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/access/Asker.h"
#include "controller/procedures/Procedures.h"
#include "controller/process/DiskWork.h"

namespace ixocontroller {

inline constexpr std::size_t kMostJobs = 500;
inline constexpr std::size_t kJobsShown = 20;  // that have come to their end
inline constexpr std::size_t kMostChoices = 10;

enum class TJobState : std::uint8_t { jsWaits, jsAsks, jsRuns, jsFailed, jsDone, jsSkipped, jsRemoved };
using enum TJobState;
[[nodiscard]] const char* JobWord(TJobState state);  // "waits"

// What an answer does with the job; "hold" leaves it asking.
enum class TJobThen : std::uint8_t { jtRun, jtSkip, jtHold };
using enum TJobThen;

struct TJobChoice {
  std::string Answer;  // what is answered, as the operator sees it
  TJobThen Then = jtRun;
};

struct TJob {
  std::uint64_t Id = 0;
  std::string Name;  // of the procedure, or of the sequence
  bool Sequence = false;
  nlohmann::ordered_json Content;  // a procedure's parameters; a sequence's file
  std::string Note, Who, Added;
  std::string Question;  // empty: none
  std::vector<TJobChoice> Choices;
  std::string Answer, AnsweredBy;
  TJobState State = jsWaits;
  std::uint64_t Run = 0;  // its number in the history; 0: none
  std::string Outcome;
  std::optional<TProblem> Problem;  // why it failed
};

// What somebody adds.
struct TJobAsked {
  std::string Name;
  bool Sequence = false;
  nlohmann::ordered_json Content;
  std::string Note, Question;
  std::vector<TJobChoice> Choices;  // with a question only; none: run, skip, hold
};

class TQueue {
 public:
  // What the queue needs of the controller.
  struct TSeam {
    std::function<bool()> Busy;  // something runs, or is about to
    // The calls of a job; throws EProblem for what is not possible on this machine.
    std::function<std::vector<TMotionCall>(const TJob&)> Calls;
    std::function<TResult<>(std::span<const TMotionCall>)> Ready;
    // The run's number. One end more than `ends` was asked for: it is stopped.
    std::function<TResult<std::uint64_t>(const TJob&, std::vector<TMotionCall>, std::uint32_t ends)> Start;
    std::function<std::optional<std::int64_t>(const TJob&)> EstimateMs;
    std::function<void()> Changed;          // after each change, for who follows the queue
    std::function<std::string()> Language;  // of the problems that are kept
    TDiskWork OnDisk;                       // calls nobody when the queue has ended
    std::function<std::uint32_t()> Ends;    // TNcStateFramework::EndsAsked
  };

  // Reads the file. One that cannot be read is left as it is, and the queue takes nothing.
  TQueue(const std::filesystem::path& folder, TSeam seam);

  // `done` is told of the job's number when the change is on the disk, or of the EProblem for what is refused or cannot
  // be written; in the language in which it was asked. What is wrong at once may be thrown instead.
  void Add(TJobAsked asked, const TAsker& who, TDiskDone done);
  void Remove(std::uint64_t id, const TAsker& who, TDiskDone done);
  void Answer(std::uint64_t id, const std::string& answer, const TAsker& who, TDiskDone done);
  void Start(const TAsker& who);  // throws EProblem
  // What runs goes on, and nothing follows it.
  void Hold(const TAsker& who);

  // Starts what is due; every few ms.
  void Round();
  // Nothing starts any more, not even what is being marked on the disk.
  void Close() { FHeld = true; }
  void RunEnded(std::uint64_t run, std::string_view outcome, const std::optional<TProblem>& problem);

  [[nodiscard]] const TJob* Find(std::uint64_t id) const;  // null: no job that waits, asks, runs or has failed
  [[nodiscard]] bool Held() const { return FHeld; }
  // The first job where it waits for an answer, as Show has it; else null.
  [[nodiscard]] nlohmann::ordered_json Asks() const;
  [[nodiscard]] nlohmann::ordered_json Show() const;  // without changes that are not on the disk yet

 private:
  // What the file holds.
  struct TContent {
    std::deque<TJob> Jobs;
    std::deque<TJob> Ended;  // the newest last
    std::uint64_t LastId = 0;

    [[nodiscard]] TJob& At(std::uint64_t id);  // throws EProblem
    void Leave(std::uint64_t id, TJobState state);
    [[nodiscard]] nlohmann::ordered_json Json() const;
  };
  // Checks and changes; answers the number of the job. Called on a copy before it is written, and then once more;
  // empty: what has happened is written.
  using TApply = std::function<std::uint64_t(TContent&)>;
  struct TChange {
    TApply Apply;
    TDiskDone Done;
    std::string Language;
  };
  // Made where it is shown, in the reader's language; one that exists only as text carries its language.
  struct TWhy {
    std::function<TProblem()> Problem;
    std::string Language;
  };

  void Read();
  // Nothing has changed where it cannot be written.
  void Change(TApply apply, TDiskDone done);
  void WriteNext();
  void Written(const TChange& change, const TResult<>& saved);
  // What has happened has happened, also where it cannot be written.
  void Happened();
  void HoldFor(std::function<TProblem()> why, std::string language = {});
  void HoldFor(const TProblem& why);
  void Begin();
  // Behind the change that marks it as running.
  void Launch(std::vector<TMotionCall> calls);
  void PutBack();
  // True, and held: an end was asked for since somebody started it.
  [[nodiscard]] bool EndAsked();

  const std::filesystem::path FFile;
  const TSeam FSeam;
  TContent FNow;
  std::deque<TChange> FChanges;  // that wait
  bool FWriting = false;
  bool FHeld = true;
  std::uint32_t FEnds = 0;  // that were asked for before it was started
  TWhy FWhy;                // it is held
  std::optional<TProblem> FUnreadable;
};

}  // namespace ixocontroller
