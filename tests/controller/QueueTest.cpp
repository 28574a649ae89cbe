// Jobs one after the other, on real files and with a machine that the test plays.
#include <deque>
#include <fstream>

#include <gmock/gmock.h>

#include "controller/service/Queue.h"
#include "controller/service/Sequences.h"
#include "fixture/Faults.h"
#include "fixture/TempDir.h"

namespace ixocontroller {
namespace {

using ixocamglue::test::TTempDir;
using ixocamglue::test::TTexts;
using testing::HasSubstr;

const TAsker kLi{"Li", roOperator, 1, true};

class Queue : public testing::Test {
 protected:
  Queue() { Open(); }
  void Open() {
    FQueue.emplace(Folder.Path(),
                   TQueue::TSeam{[this] { return Busy; },
                                 [](const TJob& job) {
                                   if (job.Name == "unknown") throw EProblem(pbRequest, "no such procedure");
                                   return std::vector<TMotionCall>();
                                 },
                                 [this](std::span<const TMotionCall>) -> TResult<> {
                                   if (NotReady.empty()) return {};
                                   return TProblem{.What = NotReady};
                                 },
                                 [this](const TJob& job, const auto&, auto ends) -> TResult<std::uint64_t> {
                                   Started.push_back(job.Name);
                                   StartedBehind = ends;
                                   return Started.size();
                                 },
                                 [](const TJob& job) {
                                   return job.Name == "shot" ? std::optional<std::int64_t>(60) : std::nullopt;
                                 },
                                 [] {}, [] { return "en"; },
                                 [this](std::function<void()> work, const std::function<void()>& then) {
                                   FDisk.emplace_back([work = std::move(work), then] {
                                     work();
                                     then();
                                   });
                                   if (!SlowDisk) Write();
                                 },
                                 [this] { return Ends; }});
  }
  // The next one that the disk has not taken yet.
  void Write() {
    const auto next = std::move(FDisk.front());
    FDisk.pop_front();
    next();
  }
  // What is told when the disk has taken it.
  static std::uint64_t Told(const std::function<void(TDiskDone)>& ask) {
    std::uint64_t job = 0;
    std::exception_ptr failed;
    ask([&](std::uint64_t number, const std::exception_ptr& why) { job = number, failed = why; });
    if (failed) std::rethrow_exception(failed);
    return job;
  }
  static TJobAsked Asked(const std::string& name) { return {name, false, {{"ms", 5}}, "note", {}, {}}; }
  std::uint64_t Add(const std::string& name, const std::string& question = {}, std::vector<TJobChoice> choices = {}) {
    TJobAsked asked = Asked(name);
    asked.Question = question;
    asked.Choices = std::move(choices);
    return Told([&](TDiskDone done) { FQueue->Add(asked, kLi, std::move(done)); });
  }
  void Remove(std::uint64_t id) {
    (void)Told([&](TDiskDone done) { FQueue->Remove(id, kLi, std::move(done)); });
  }
  void Answer(std::uint64_t id, const char* answer) {
    (void)Told([&](TDiskDone done) { FQueue->Answer(id, answer, kLi, std::move(done)); });
  }
  void End(const char* outcome) { FQueue->RunEnded(Started.size(), outcome, TProblem{.What = "ended"}); }
  // "shot waits, pierce asks | held: why"
  std::string Shown() {
    const auto json = FQueue->Show();
    std::string text;
    for (const auto& job : json["jobs"])
      text += (text.empty() ? "" : ", ") + job["name"].get<std::string>() + " " + job["state"].get<std::string>();
    if (json["held"] == true) text += " | held: " + json["why"]["what"].get<std::string>();
    return text;
  }

  const TTempDir Folder;
  bool Busy = false;
  bool SlowDisk = false;
  std::uint32_t Ends = 0, StartedBehind = 0;
  std::string NotReady;
  TTexts Started;
  std::optional<TQueue> FQueue;

 private:
  std::deque<std::function<void()>> FDisk;
};

TEST_F(Queue, JobsRunOneAfterTheOtherUntilOneFailsAndNothingStartsBeforeSomebodyStartsIt) {
  Add("shot");
  Add("pierce");
  Add("square");
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{});
  FQueue->Start(kLi);
  Busy = true;  // somebody's own run
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{});
  Busy = false;
  FQueue->Round();
  FQueue->Round();
  EXPECT_EQ(Shown(), "shot runs, pierce waits, square waits");
  EXPECT_EQ(FQueue->Show()["estimateMs"].get<int>() + 1000 * FQueue->Show()["withoutEstimate"].get<int>(), 2060);
  EXPECT_THROW(Remove(1), EProblem);
  End("success");
  FQueue->Round();
  End("alarm");
  FQueue->Round();
  EXPECT_EQ(Shown(), "pierce failed, square waits | held: job 2 has not succeeded");
  EXPECT_THROW(FQueue->Start(kLi), EProblem);
  Answer(2, "again");
  EXPECT_EQ(Shown(), "pierce waits, square waits | held: job 2 has not succeeded");
  FQueue->Start(kLi);
  FQueue->Round();
  End("stopped");
  Answer(2, "skip");
  FQueue->Start(kLi);
  NotReady = "an alarm stands";
  FQueue->Round();
  EXPECT_EQ(Shown(), "square waits | held: an alarm stands");
  NotReady.clear();
  FQueue->Start(kLi);
  FQueue->Round();
  End("success");
  FQueue->Round();
  Add("shot");
  FQueue->Round();
  EXPECT_EQ(Shown(), "shot waits | held: every job has come to its end");
  EXPECT_EQ(Started, (TTexts{"shot", "pierce", "pierce", "square"}));
}

TEST_F(Queue, AStopBetweenTwoJobsStartsNoOther) {
  for (const char* const name : {"shot", "pierce", "square"}) Add(name);
  ++Ends;
  FQueue->Start(kLi);
  FQueue->Round();
  End("success");
  ++Ends;
  FQueue->Round();
  EXPECT_EQ(Shown(), "pierce waits, square waits | held: a stop or a pause was asked for");
  FQueue->Start(kLi);
  SlowDisk = true;
  FQueue->Round();
  ++Ends;
  SlowDisk = false;
  Write();
  EXPECT_EQ(Shown(), "pierce waits, square waits | held: a stop or a pause was asked for") << "while it was marked";
  EXPECT_EQ(Started, TTexts{"shot"});
  FQueue->Start(kLi);
  FQueue->Round();
  EXPECT_EQ(Started, (TTexts{"shot", "pierce"}));
  EXPECT_EQ(StartedBehind, 3U) << "an end behind these stops it";
}

TEST_F(Queue, AQuestionIsAskedWhenItsJobIsDueAndOnlyItsChoicesAnswerIt) {
  Add("shot", "is the plate on?", {{"yes", jtRun}, {"no plate", jtSkip}, {"wait", jtHold}});
  EXPECT_THROW(Answer(1, "yes"), EProblem);
  FQueue->Start(kLi);
  FQueue->Round();
  EXPECT_EQ(Shown(), "shot asks");
  EXPECT_THROW(Answer(1, "perhaps"), EProblem);
  Answer(1, "wait");
  EXPECT_EQ(Shown(), "shot asks | held: Li holds it");
  Open();  // it asks again
  EXPECT_THAT(Shown(), HasSubstr("shot waits | held: the controller was started again"));
  FQueue->Start(kLi);
  FQueue->Round();
  Answer(1, "yes");
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{"shot"});
  Add("pierce", "go on?");
  End("success");
  FQueue->Round();
  Answer(2, "skip");
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{"shot"});
  EXPECT_THROW(Add("shot", "?", {{"", jtRun}}), EProblem);
  EXPECT_THROW(Add("unknown"), EProblem);
}

TEST_F(Queue, ARestartStartsNothingAndTheJobThatRanHasFailed) {
  Add("shot");
  Add("pierce");
  FQueue->Start(kLi);
  FQueue->Round();
  Open();
  FQueue->Round();
  EXPECT_THAT(Shown(), HasSubstr("shot failed, pierce waits | held: the controller was started again"));
  EXPECT_EQ(FQueue->Show()["jobs"][0]["problem"]["what"], "the controller ended while it ran");
  EXPECT_EQ(FQueue->Show()["jobs"][1]["addedBy"], "Li");
  Answer(1, "skip");
  EXPECT_EQ(Add("square"), 3U);  // numbers go on

  std::ofstream(Folder.Path() / "queue.json") << "{\"version\": 1, \"jobs\": [7]}";
  Open();
  EXPECT_THROW(Add("shot"), EProblem);
  EXPECT_THROW(FQueue->Start(kLi), EProblem);
  EXPECT_EQ(ixocamglue::test::FileText(Folder.Path() / "queue.json"), "{\"version\": 1, \"jobs\": [7]}");
}

TEST_F(Queue, AJobThatCannotBeKeptIsRefusedAndOneThatCannotBeMarkedNeverStarts) {
  Add("shot");
  FQueue->Start(kLi);
  std::filesystem::remove(Folder.Path() / "queue.json");
  std::filesystem::create_directories(Folder.Path() / "queue.json" / "in the way");
  EXPECT_THROW(Add("pierce"), EProblem);
  FQueue->Round();
  EXPECT_THAT(Shown(), HasSubstr("shot waits | held: the file cannot be written"));
  EXPECT_EQ(Started, TTexts{});
}

TEST_F(Queue, WhatADiskHasNotTakenYetDoesNotCountAndWhatHappensMeanwhileStays) {
  Add("shot");
  Add("pierce");
  FQueue->Start(kLi);
  FQueue->Round();
  SlowDisk = true;
  std::vector<std::uint64_t> told;
  const auto tell = [&](std::uint64_t job, const std::exception_ptr& failed) { told.push_back(failed ? 0 : job); };
  FQueue->Add(Asked("square"), kLi, tell);
  FQueue->Remove(2, kLi, tell);
  FQueue->Remove(2, kLi, tell);
  End("success");
  FQueue->Round();
  EXPECT_EQ(Shown(), "pierce waits");
  EXPECT_THAT(told, testing::IsEmpty());
  Write();
  EXPECT_EQ(Shown(), "pierce waits, square waits");
  Write();
  EXPECT_EQ(Shown(), "square waits");
  EXPECT_THAT(told, testing::ElementsAre(3, 2, 0));  // the second one finds it gone
  Write();
  EXPECT_EQ(FQueue->Show()["ended"][0]["name"], "shot");

  // It is marked as running first; who holds the queue meanwhile is heard.
  FQueue->Round();
  FQueue->Hold(kLi);
  Write();
  EXPECT_EQ(Shown(), "square waits | held: Li holds it");
  Write();
  FQueue->Start(kLi);
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{"shot"});
  Write();
  EXPECT_EQ(Started, (TTexts{"shot", "square"}));
  Open();
  EXPECT_THAT(Shown(), HasSubstr("square failed | held: the controller was started again"));
  EXPECT_EQ(FQueue->Show()["ended"].size(), 2U);
}

TEST(Sequences, ANameIsNeverAPath) {
  const TTempDir folder;
  const TSequences files(folder.Path());
  for (const std::string name : {"", ".", "..", "../a", "a/b", ".hidden", "a\\b", "a b", "a\nb", "\xC3\xA4"})
    EXPECT_THROW(files.Put(name, "{}"), EProblem) << name;
  EXPECT_THROW(files.Put(std::string(65, 'a'), "{}"), EProblem);
  EXPECT_EQ(files.List().Value().size(), 0U);
  EXPECT_FALSE(files.Put("purge-2.old_1", "{}"));
  EXPECT_TRUE(files.Put("purge-2.old_1", "{ }"));
  EXPECT_EQ(files.Read("purge-2.old_1"), "{ }");
  EXPECT_EQ(files.List().Value().front().Name, "purge-2.old_1");
  files.Remove("purge-2.old_1");
  EXPECT_THROW(files.Remove("purge-2.old_1"), EProblem);
}

}  // namespace
}  // namespace ixocontroller
