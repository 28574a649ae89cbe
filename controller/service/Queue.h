// Jobs: procedures and sequences that are run one after the other, each with its checks before it and, where it has
// one, a question to the operator. Kept in queue.json of the state folder; after a restart nothing starts by itself.
//
// The queue is held until somebody starts it: when it was read, when a check or a job fails, and when it is empty. What
// a job runs is taken into the queue when the job is added: a sequence that is changed afterwards changes no job.
// Interface thread; each change is on the disk before it counts.
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

#include "controller/procedures/Procedures.h"
#include "controller/service/Asker.h"

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
    std::function<TResult<std::uint64_t>(const TJob&, std::vector<TMotionCall>)> Start;  // the run's number
    std::function<std::optional<std::int64_t>(const TJob&)> EstimateMs;
    std::function<void()> Changed;          // after each change, for who follows the queue
    std::function<std::string()> Language;  // of the problems that are kept
  };

  // Reads the file. One that cannot be read is left as it is, and the queue takes nothing.
  TQueue(std::filesystem::path folder, TSeam seam);

  // Throw EProblem for what is wrong with the job, or refused.
  std::uint64_t Add(TJobAsked asked, const TAsker& who);
  void Remove(std::uint64_t id, const TAsker& who);
  void Answer(std::uint64_t id, std::string_view answer, const TAsker& who);
  void Start(const TAsker& who);
  // What runs goes on, and nothing follows it.
  void Hold(const TAsker& who);

  // Starts what is due; every few ms.
  void Round();
  void RunEnded(std::uint64_t run, std::string_view outcome, const std::optional<TProblem>& problem);

  [[nodiscard]] const TJob* Find(std::uint64_t id) const;  // null: no job that waits, asks, runs or has failed
  [[nodiscard]] bool Held() const { return FHeld; }
  // The first job where it waits for an answer, as Show has it; else null.
  [[nodiscard]] nlohmann::ordered_json Asks() const;
  [[nodiscard]] nlohmann::ordered_json Show() const;

 private:
  // Made where it is shown, in the reader's language; one that exists only as text carries its language.
  struct TWhy {
    std::function<TProblem()> Problem;
    std::string Language;
  };

  TJob& At(std::uint64_t id);  // throws EProblem
  void Read();
  [[nodiscard]] TResult<> Save() const;
  // Nothing has changed where it cannot be saved; then EProblem.
  void Change(const std::function<void()>& change);
  // What has happened has happened, also where it cannot be saved.
  void Happened();
  void HoldFor(std::function<TProblem()> why, std::string language = {});
  void HoldFor(const TProblem& why);
  void Leave(std::uint64_t id, TJobState state);
  void Begin();

  const std::filesystem::path FFile;
  const TSeam FSeam;
  std::deque<TJob> FJobs;
  std::deque<TJob> FEnded;  // the newest last
  std::uint64_t FLastId = 0;
  bool FHeld = true;
  TWhy FWhy;  // it is held
  std::optional<TProblem> FUnreadable;
};

}  // namespace ixocontroller
