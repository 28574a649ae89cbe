// The walk of the step tree, without a machine: scripted leaves write down what happens to them.
#include <set>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/OwnConfig.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
namespace {

TTexts GStory;

// Answers DoMotion from a list (the last answer repeats) and tells every hook.
class TScripted : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TScripted";
  std::int32_t GetID() override { return 42; }
  std::string GetDesc() override { return Name; }
  TStepType DoMotion(std::int32_t reason) override {
    Tell(Format("motion(%d)", reason));
    const TStepType answer = Answers.front();
    if (Answers.size() > 1) Answers.erase(Answers.begin());
    if (answer == kThrow) throw std::runtime_error("device");
    return answer;
  }
  void DoEnterMotion() override {
    Tell("enter");
    TSmtAtomic::DoEnterMotion();
  }
  void DoLeaveMotion() override {
    Tell(Format("leave at %d level %d", GetStep(), GetLevel()));
    TSmtAtomic::DoLeaveMotion();
  }
  void DoBeforeStep(std::int32_t a, std::int32_t b) override { Tell(Format("before(%d,%d)", a, b)); }
  void DoAfterStep(std::int32_t a, std::int32_t b) override { Tell(Format("after(%d,%d)", a, b)); }
  void UpdateThread(std::uint32_t&) override { Tell("update"); }
  using TSmtAtomic::SetStep;
  bool Stopped() const { return StopAsked(); }

  static constexpr TStepType kThrow = -99;
  std::string Name = "leaf";
  std::vector<TStepType> Answers{mstpStep};

 private:
  void Tell(const std::string& what) const { GStory.push_back(Name + " " + what); }
};

// A composite whose list a test writes down.
class TTree : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TTree";
  std::int32_t GetID() override { return 7; }
  std::string GetDesc() override { return Name; }
  void BuildMotionList() override {
    if (Build) Build(*this);
  }
  void ResetParams() override {
    TSmtComposite::ResetParams();
    FBuildFirst = !Late;
  }
  TScripted& Leaf(const std::string& name, std::vector<TStepType> answers = {mstpStep}) {
    auto leaf = MakeStepOf<TScripted>(nullptr);
    leaf->Name = name;
    leaf->Answers = std::move(answers);
    return static_cast<TScripted&>(PlaceStep(42, std::move(leaf), name));
  }
  TTree& Branch(const std::string& name, std::function<void(TTree&)> build, bool late = false) {
    auto tree = MakeStepOf<TTree>(nullptr);
    tree->Name = name;
    tree->Build = std::move(build);
    tree->Late = late;
    tree->ResetParams();
    return static_cast<TTree&>(PlaceStep(7, std::move(tree), name));
  }
  void Put(TStepPtr step) { PlaceStep(42, std::move(step), "put"); }
  using TSmtComposite::Add;
  using TSmtComposite::AddAs;

  std::string Name = "root";
  std::function<void(TTree&)> Build;
  bool Late = false;
};

class StepTree : public testing::Test {
 protected:
  // Everything is traced: whatever a trace says, the walk is the same.
  StepTree() {
    GStory.clear();
    TLogService::Listen(kDiagAll);
  }
  ~StepTree() override { TLogService::Listen(0); }

  static auto Root(std::function<void(TTree&)> build, bool late = false) {
    auto root = MakeStepOf<TTree>(nullptr);
    root->Build = std::move(build);
    root->Late = late;
    root->ResetParams();
    root->BuildData();
    return root;
  }
  // Ticks until the root answers an end, at most `limit` times; the answers.
  static std::vector<TStepType> Run(TStateMotion& root, int limit = 50) {
    std::vector<TStepType> answers;
    while (limit-- > 0) {
      answers.push_back(root.Motion(srDone));
      if (answers.back() == mstpExit || answers.back() == mstpError) break;
    }
    return answers;
  }

  TLogService Log;
  TInstalled<TLogService> LogInstalled{Log};
  TFaultWatch Faults;
};

TEST_F(StepTree, ALeafRunsItsHooksInOrder) {
  auto root = Root([](TTree& t) { t.Leaf("a"); });
  Run(*root);
  EXPECT_EQ(GStory, (TTexts{"a enter", "a before(-2,0)", "a motion(0)", "a after(0,1000)", "a before(0,1000)",
                            "a leave at 10001 level 1"}));
}

TEST_F(StepTree, ARootWithNLeavesTakesTwoNPlusTwoTicksAndRunsAgainAfterANewBuild) {
  for (const int n : {1, 2, 5}) {
    auto root = Root([n](TTree& t) {
      for (int i = 0; i < n; ++i) t.Leaf(std::to_string(i));
    });
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(Run(*root).size(), static_cast<std::size_t>(2 * n + 2));
      EXPECT_FALSE(root->IsLoaded());
      EXPECT_EQ(root->GetLevel(), 0);
      root->BuildData();
    }
  }
}

TEST_F(StepTree, APollingLeafIsCalledAgainWithoutHooksAndWithoutAdvancing) {
  auto root = Root([](TTree& t) { t.Leaf("a", {mstpPolling, mstpPolling, mstpStep}); });
  EXPECT_EQ(root->Motion(srDone), mstpPolling);
  EXPECT_EQ(root->GetStep(), 0);
  GStory.clear();
  EXPECT_EQ(root->Motion(srDone), mstpPolling);
  EXPECT_EQ(GStory, TTexts{"a motion(0)"});
  EXPECT_EQ(Run(*root).back(), mstpExit);
}

TEST_F(StepTree, AFailingLeafEndsTheWholeTreeAndItsPathSurvivesTheLeave) {
  auto root = Root([](TTree& t) {
    t.Leaf("a");
    t.Branch("mid", [](TTree& m) {
      m.Leaf("b");
      m.Leaf("c", {mstpError});
    });
  });
  EXPECT_EQ(Run(*root).back(), mstpError);
  EXPECT_FALSE(root->IsLoaded());
  EXPECT_EQ(root->GetErrorDesc(), "->root(7)(FStep = 1)->mid(7)(FStep = 1)->c(42)(FStep = 0)");
  EXPECT_EQ(GStory.back(), "c leave at 0 level 2");
}

TEST_F(StepTree, AnAbortReachesTheActiveLeafOnlyAndAnswersErrorFromEveryPosition) {
  // Every tick of a two-level tree: whatever its position, an abort answers -2 and leaves nothing loaded.
  for (int ticks = 0; ticks < 12; ++ticks) {
    for (const std::int32_t reason : {srStop, 2, srPause, srAlarm, srError}) {
      auto root = Root([](TTree& t) {
        t.Leaf("a", {mstpPolling, mstpStep});
        t.Branch(
            "late", [](TTree& m) { m.Leaf("b"); }, true);
        t.Leaf("c");
      });
      for (int i = 0; i < ticks; ++i) root->Motion(srDone);
      GStory.clear();
      EXPECT_EQ(root->Motion(reason), mstpError) << ticks;
      EXPECT_FALSE(root->IsLoaded()) << ticks;
      for (const auto& line : GStory) EXPECT_EQ(line.find("motion("), std::string::npos) << line;
    }
  }
}

TEST_F(StepTree, ALateCompositeIsBuiltOnEntryAndAnUnbuildableOneFails) {
  auto root = Root([](TTree& t) {
    t.Branch(
        "late", [](TTree& m) { m.Leaf("b"); }, true);
  });
  EXPECT_EQ(root->GetMotionItem(0)->GetStepType(), mstpUnbuilt);
  EXPECT_EQ(Run(*root).back(), mstpExit);

  auto empty = Root([](TTree& t) {
    t.Branch(
        "late", [](TTree&) {}, true);
  });
  EXPECT_EQ(Run(*empty).back(), mstpError);
  // Without type codes the position stays where it was if that is a valid number, else it is an error.
  auto none = Root([](TTree&) {});
  EXPECT_EQ(none->GetStepType(), mstpError);
  none->SetStep(mstpExit);
  none->BuildData();
  EXPECT_EQ(none->GetStep(), mstpExit);
}

TEST_F(StepTree, ACompositeWhoseBuildingThrewIsBuiltOnEntryAgain) {
  auto root = Root([](TTree&) { throw std::runtime_error("config"); }, true);
  EXPECT_THROW(root->Motion(srDone), std::runtime_error);
  root->Build = [](TTree& t) { t.Leaf("a"); };
  root->BuildData();
  EXPECT_EQ(root->GetStep(), mstpUnbuilt);
  EXPECT_EQ(Run(*root).back(), mstpExit);
}

TEST_F(StepTree, AFailedAddNeverConfiguresThePreviousChild) {
  TSmtDelay* first = nullptr;
  auto root = Root([&](TTree& t) {
    first = &t.AddAs<TSmtDelay>(1, 612, "delay");
    auto& wrong = t.AddAs<TSmtDelay>(2, 999, "unknown");
    EXPECT_NE(&wrong, first);
  });
  EXPECT_EQ(Faults.Claim().size(), 1u);
  EXPECT_EQ(root->GetStep(), mstpError);
  EXPECT_EQ(Run(*root), std::vector<TStepType>{mstpError});

  auto mismatched = Root([](TTree& t) { t.AddAs<TSmtGasOnState>(1, 612, "a delay is no gas").FGasPressure = 3.0; });
  EXPECT_EQ(mismatched->GetStep(), mstpError);
}

TEST_F(StepTree, TheStopFlagIsOneForTheWholeTreeAndStays) {
  TScripted* deep = nullptr;
  auto root = Root([&](TTree& t) { t.Branch("mid", [&](TTree& m) { deep = &m.Leaf("b"); }); });
  EXPECT_FALSE(deep->Stopped());
  root->StopExec();
  EXPECT_TRUE(deep->Stopped());
  root->BuildData();
  EXPECT_TRUE(deep->Stopped());

  TScripted* ready = nullptr;
  auto other = Root([&](TTree& t) {
    auto built = Root([&](TTree& b) { ready = &b.Leaf("built before"); });
    t.Put(std::move(built));
    t.AddMotion(MakeStep<TScripted>(nullptr));  // without a row of its own
  });
  other->StopExec();
  EXPECT_TRUE(ready->Stopped());
}

TEST_F(StepTree, ALeafThatAnswersItsExitHasDoneItsMotion) {
  auto root = Root([](TTree& t) { t.Leaf("a", {mstpExit}); });
  EXPECT_EQ(root->Motion(srDone), mstpStep);
  EXPECT_EQ(Run(*root).back(), mstpExit);
}

TEST_F(StepTree, UpdateThreadReachesTheCurrentLeaf) {
  auto root = Root([](TTree& t) {
    t.Leaf("a");
    t.Leaf("b");
  });
  root->Motion(srDone);
  root->Motion(srDone);
  std::uint32_t delay = kLoopDelayMs;
  GStory.clear();
  root->UpdateThread(delay);
  EXPECT_EQ(GStory, TTexts{"b update"});
  root->Motion(srStop);
}

TEST_F(StepTree, DestroyingALoadedTreeLeavesThroughTheErrorPathWhateverDevicesDo) {
  {
    auto root = Root([](TTree& t) { t.Leaf("a", {mstpPolling}); });
    root->Motion(srDone);
    GStory.clear();
  }
  EXPECT_EQ(GStory, TTexts{"a leave at -2 level 1"});
  EXPECT_EQ(Faults.Claim(), TTexts{"执行了强制退出操作"});

  auto throwing = Root([](TTree& t) { t.Leaf("a", {TScripted::kThrow}); });
  EXPECT_THROW(throwing->Motion(srDone), std::runtime_error);
  EXPECT_TRUE(throwing->IsLoaded());
  throwing.reset();
  EXPECT_EQ(Faults.Claim(), TTexts{"执行了强制退出操作"});

  // A child that cannot be left keeps its composite from nothing.
  struct TStuck : TScripted {
    void DoLeaveMotion() override { throw std::runtime_error("device"); }
  };
  struct TLeaving : TTree {
    void DoLeaveMotion() override {
      GStory.push_back("root leave");
      TTree::DoLeaveMotion();
    }
  };
  auto stuck = MakeStepOf<TLeaving>(nullptr);
  stuck->Build = [](TTree& t) { t.Put(MakeStepOf<TStuck>(nullptr)); };
  stuck->BuildData();
  stuck->Motion(srDone);
  GStory.clear();
  stuck.reset();
  EXPECT_EQ(GStory, TTexts{"root leave"});
  EXPECT_EQ(Faults.Claim(), (TTexts{"执行了强制退出操作", "执行了强制退出操作"}));
}

TEST_F(StepTree, ListsAreReachedThroughTheirCommandsOnly) {
  auto root = Root([](TTree& t) {
    t.AddAs<TSmtDelay>(5, 612, "first");
    t.AddAs<TSmtDelay>(5, 612, "second");
    t.AddMotion(MakeStep<TSmtDelay>(nullptr));  // no command number
  });
  EXPECT_EQ(root->GetStepByType(5), 0);
  EXPECT_EQ(root->GetStepByType(6), -1);
  EXPECT_TRUE(root->GetMotionItem(1));
  EXPECT_FALSE(root->GetMotionItem(2));
  EXPECT_FALSE(root->GetMotionItem(-1));
  EXPECT_TRUE(root->IsMotionStep(2));
  EXPECT_EQ(root->GetMotionItem(0)->GetLevel(), 1);

  auto full = MakeStepOf<TTree>(nullptr);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(full->AddMotion(MakeStep<TSmtDelay>(nullptr)), i);
  EXPECT_EQ(full->AddMotion(MakeStep<TSmtDelay>(nullptr)), -1);
  EXPECT_EQ(Faults.Claim().size(), 1u);
  auto crowded = Root([](TTree& t) {
    for (int i = 0; i < 1001; ++i) t.Leaf("a");
  });
  EXPECT_EQ(crowded->GetStep(), mstpError) << "a procedure without its last step is none";
}

// Overrides nothing that it must.
class TBare : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TBare";
};

// A leaf that commands nothing, and may lose its place.
class TIdle : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TIdle";
  std::int32_t GetID() override { return 43; }
  std::string GetDesc() override { return "idle"; }
  void Lose() { FStep = 7; }
};

class TBareComposite : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TBareComposite";
  std::string GetDesc() override { return "bare"; }
};

TEST_F(StepTree, DesignFaultsAreToldVerbatimAndGoOnWithTheirSafeValue) {
  auto bare = MakeStepOf<TBare>(nullptr);
  EXPECT_EQ(bare->GetID(), 0);
  EXPECT_EQ(bare->GetDesc(), "");
  EXPECT_EQ(Faults.Claim(), (TTexts{"该函数一定要被继承实现", "该函数一定要被继承实现"}));

  const auto params = MakeStepWithParams<TScripted>({});
  EXPECT_EQ(Faults.Claim(), (TTexts{"该函数一定要被继承实现", "目前不支持该自动化接口"}));

  auto leaf = MakeStepOf<TScripted>(nullptr);
  EXPECT_TRUE(leaf->IsMotionStep(0) && !leaf->IsMotionStep(1) && !leaf->IsMotionStep(mstpEnd));
  leaf->SetStep(3);
  EXPECT_EQ(leaf->GetStep(), mstpError);
  leaf->SetStep(mstpPolling);  // an answer, never a position
  EXPECT_EQ(leaf->GetStep(), mstpError);
  leaf->DoLeaveMotion();
  leaf->DoNext();
  EXPECT_EQ(Faults.Claim(), (TTexts{"[Step-Error]leaf: Step = 3", "[Step-Error]leaf: Step = 20001",
                                    "不具备调用LeaveMotion条件", "leaf: FStep Error; TStateMotion.DoNext"}));

  auto idle = MakeStepOf<TIdle>(nullptr);
  idle->BuildData();
  EXPECT_EQ(Run(*idle).back(), mstpExit);
  idle->SetStep(mstpUnbuilt);  // nothing builds a leaf on entry
  EXPECT_EQ(idle->Motion(srDone), mstpError);
  EXPECT_EQ(Faults.Claim(), TTexts{});
  idle->Lose();
  EXPECT_EQ(idle->GetStepType(), mstpError);
  EXPECT_EQ(Faults.Claim(), TTexts{"idle: Can not find the motionsteptype 7"});

  auto composite = MakeStepOf<TBareComposite>(nullptr);
  composite->BuildData();
  EXPECT_EQ(composite->GetStep(), mstpError);
  EXPECT_EQ(composite->DoMotion(srDone), mstpError);
  composite->DoNext();
  EXPECT_EQ(Faults.Claim(), (TTexts{"bare: 子类一定要重载TSmtComposite.BuildMotionList", "bare: TSmtComposite.DoMotion",
                                    "bare: TSmtComposite.DoNext"}));

  TSmtMotionDic dic;
  EXPECT_TRUE(dic.RegisterStateMotion(300, &MakeStep<TBare>));
  EXPECT_FALSE(dic.RegisterStateMotion(300, &MakeStep<TScripted>));
  EXPECT_EQ(dic.Find(300), &MakeStep<TBare>);
  EXPECT_EQ(dic.Find(301), nullptr);
  EXPECT_EQ(Faults.Claim(), TTexts{"该状态动作已被注册！"});
}

// Answers 100 to an abort, as no step may.
class TDisobedient : public TTree {
 public:
  static constexpr std::string_view kClassName = "TDisobedient";
  TStepType DoMotion(std::int32_t reason) override {
    return reason == srDone ? TSmtComposite::DoMotion(reason) : mstpStep;
  }
};

TEST_F(StepTree, AnAbortAnsweredOtherwiseIsForcedToAnErrorAndStillLeavesWithItsPath) {
  auto root = MakeStepOf<TDisobedient>(nullptr);
  root->Build = [](TTree& t) { t.Leaf("a"); };
  root->BuildData();
  root->Motion(srDone);
  EXPECT_EQ(root->Motion(srStop), mstpError);
  EXPECT_FALSE(root->IsLoaded());
  EXPECT_EQ(root->GetErrorDesc(), "->root(7)(FStep = 0)->a(42)(FStep = 1000)");
  EXPECT_EQ(Faults.Claim(), (TTexts{"AReason(1) <> srDone(0)时返回值需为mstpError", "执行了强制退出操作"}));
}

TEST_F(StepTree, TheHeadModeIsReadFromTheMachineFile) {
  EXPECT_FALSE(TStateMotion::DHEnabled());
  for (const int mode : {0, 1, 2}) {
    TOwnConfig own(Format("<MachineConfig DHMode='%d'/>", mode));
    const TInstalled<TMachineConfig> installed(own.Config);
    EXPECT_EQ(TStateMotion::DHEnabled(), mode == 2);
  }
}

TEST_F(StepTree, TheFactoryKnowsItsCommandsAndNoOther) {
  const std::set<std::int32_t> expected{131, 133, 134, 136, 137, 138, 139, 141, 142, 151, 152, 153, 154, 163, 164, 172,
                                        173, 176, 181, 350, 421, 422, 513, 514, 516, 517, 518, 519, 520, 522, 612};
  auto tree = MakeStepOf<TTree>(nullptr);
  for (std::int32_t command = -10; command < 1200; ++command) {
    const bool known = AddMotionByCmd(command, *tree, true);
    ASSERT_EQ(known, expected.contains(command)) << command;
    if (!known) continue;
    const TStepPtr& step = tree->MotionList().back();
    EXPECT_EQ(step->GetID(), command);
    EXPECT_NE(step->GetDesc(), "");
    const bool late = command == 152 || command == 513 || command == 514;
    EXPECT_EQ(step->GetStep(), late ? mstpUnbuilt : 0) << command;
  }
  EXPECT_EQ(tree->IDList().size(), expected.size());
  EXPECT_EQ(CommandDesc(999), "");
  EXPECT_EQ(CommandClass(999), "");
  EXPECT_EQ(Faults.Claim().size(), 2u);
  while (tree->MotionList().size() < 1000) tree->AddMotion(MakeStep<TScripted>(nullptr));
  EXPECT_FALSE(AddMotionByCmd(612, *tree, true));
  EXPECT_EQ(Faults.Claim(), TTexts{"root: a composite holds at most 1000 steps"});
}

TEST_F(StepTree, WithoutAMachineNoWayIsKnownNothingIsMetAndNoAlarmStands) {
  std::vector<TPoint2> way;
  auto curve = MakeStepOf<TSmtCleanHeadCurve>(nullptr);
  curve->AddWay(way);
  MakeStepOf<TSmtLubricateCurve>(nullptr)->AddWay(way);
  MakeStepOf<TSmtSafeMoveToWorkXY>(nullptr)->AddWay(way);
  EXPECT_TRUE(way.empty());
  curve->FUseConfig = false;
  curve->FCount = 3;
  curve->AddWay(way);
  EXPECT_EQ(way.size(), 6u);
  curve->FStyle = TSmtCleanHeadCurve::kEllipses;
  curve->AddWay(way);
  EXPECT_EQ(way.size(), 6u + 37u) << "each round goes the same way";
  TInportParamsConfig input;
  EXPECT_TRUE(InputIsMet(input)) << "not fitted";
  input.Port = 3;
  EXPECT_FALSE(InputIsMet(input));
  EXPECT_TRUE(CanCleanHead()) << "no table that had to be docked";
  EXPECT_FALSE(MakeStepOf<TScripted>(nullptr)->CheckStateAlarm());
  for (const TStepPtr& step :
       {MakeStep<TSmtGasOnState>(nullptr), MakeStep<TSmtMoveToF>(nullptr), MakeStep<TSmtFollow>(nullptr)})
    EXPECT_EQ(step->DoMotion(srDone), mstpError);
}

}  // namespace
}  // namespace ixocamglue::test
