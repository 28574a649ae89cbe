// Jobs one after the other, on real files and with a machine that the test plays.
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
                                 [this](const TJob& job, std::vector<TMotionCall>) -> TResult<std::uint64_t> {
                                   Started.push_back(job.Name);
                                   return Started.size();
                                 },
                                 [](const TJob& job) {
                                   return job.Name == "shot" ? std::optional<std::int64_t>(60) : std::nullopt;
                                 },
                                 [] {}, [] { return "en"; }});
  }
  std::uint64_t Add(const std::string& name, const std::string& question = {}, std::vector<TJobChoice> choices = {}) {
    return FQueue->Add({name, false, {{"ms", 5}}, "note", question, std::move(choices)}, kLi);
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
  std::string NotReady;
  TTexts Started;
  std::optional<TQueue> FQueue;
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
  EXPECT_THROW(FQueue->Remove(1, kLi), EProblem);
  End("success");
  FQueue->Round();
  End("alarm");
  FQueue->Round();
  EXPECT_EQ(Shown(), "pierce failed, square waits | held: job 2 has not succeeded");
  EXPECT_THROW(FQueue->Start(kLi), EProblem);
  FQueue->Answer(2, "again", kLi);
  EXPECT_EQ(Shown(), "pierce waits, square waits | held: job 2 has not succeeded");
  FQueue->Start(kLi);
  FQueue->Round();
  End("stopped");
  FQueue->Answer(2, "skip", kLi);
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

TEST_F(Queue, AQuestionIsAskedWhenItsJobIsDueAndOnlyItsChoicesAnswerIt) {
  Add("shot", "is the plate on?", {{"yes", jtRun}, {"no plate", jtSkip}, {"wait", jtHold}});
  EXPECT_THROW(FQueue->Answer(1, "yes", kLi), EProblem);
  FQueue->Start(kLi);
  FQueue->Round();
  EXPECT_EQ(Shown(), "shot asks");
  EXPECT_THROW(FQueue->Answer(1, "perhaps", kLi), EProblem);
  FQueue->Answer(1, "wait", kLi);
  EXPECT_EQ(Shown(), "shot asks | held: Li holds it");
  Open();  // it asks again
  EXPECT_THAT(Shown(), HasSubstr("shot waits | held: the controller was started again"));
  FQueue->Start(kLi);
  FQueue->Round();
  FQueue->Answer(1, "yes", kLi);
  FQueue->Round();
  EXPECT_EQ(Started, TTexts{"shot"});
  Add("pierce", "go on?");
  End("success");
  FQueue->Round();
  FQueue->Answer(2, "skip", kLi);
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
  FQueue->Answer(1, "skip", kLi);
  EXPECT_EQ(Add("square"), 3U);  // numbers go on

  std::ofstream(Folder.Path() / "queue.json") << "{\"version\": 1, \"jobs\": [7]}";
  Open();
  EXPECT_THROW(Add("shot"), EProblem);
  EXPECT_THROW(FQueue->Start(kLi), EProblem);
  std::ifstream kept(Folder.Path() / "queue.json");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "{\"version\": 1, \"jobs\": [7]}");
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
