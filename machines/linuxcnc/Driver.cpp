#include "machines/linuxcnc/Driver.h"

#include <algorithm>
#include <deque>
#include <sstream>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/linuxcnc/Axes.h"
#include "machines/linuxcnc/Follower.h"
#include "machines/linuxcnc/Link.h"
#include "machines/linuxcnc/Pins.h"
#include "machines/linuxcnc/Points.h"

namespace ixocamglue {
namespace {

class TLinuxcncDriver final : public IMachineDriver {
 public:
  TLinuxcncDriver(const TLncConfig& config, const TDriverContext& context)
      : FLink(config, context.Events), FMotion(FLink), FFocus(FLink), FFollower(FLink) {
    FLink.OnFrame([this](std::uint64_t now) { FFollower.Take(now); });
  }

  ~TLinuxcncDriver() override { FLink.End(); }
  TLinuxcncDriver(const TLinuxcncDriver&) = delete;
  TLinuxcncDriver& operator=(const TLinuxcncDriver&) = delete;

  TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) override {
    for (THalPoint& point : FPoints)
      if (point.Kind() == kind && point.Address() == address) return &point;
    const TResult<std::string> name = HalPointName(kind, address);
    if (!name) return name.Problem();
    return &FPoints.emplace_back(FLink, kind, std::string(address), *name);
  }
  TNcMotionDriver* Axes() override { return &FMotion; }
  TNcFollower* Follower(std::int32_t index) override { return index == 0 ? &FFollower : nullptr; }
  TNcCutHeadCtrl* Focus() override { return FLink.Config().Axes[laFocus].Fitted ? &FFocus : nullptr; }

  TResult<> Connect() override {
    if (TResult<> started = FLink.Start(); !started) return started;
    for (const THalPoint& point : FPoints)
      if (TResult<> there = point.Check(); !there) return there;
    return {};
  }
  void NoteState(std::int32_t state) override { FLink.NoteState(state); }
  void StopNow() override {
    FFollower.Stop(1);
    FLink.StopAll();
  }
  void Show(TMachineSnapshot& now) override;
  std::vector<TPortFacts> Ports() override;

 private:
  TLncLink FLink;
  TLncMotion FMotion;
  TLncFocus FFocus;
  TLncFollower FFollower;
  std::deque<THalPoint> FPoints;
};

void TLinuxcncDriver::Show(TMachineSnapshot& now) {
  now.AxesMoving = FLink.Moving(laX) || FLink.Moving(laY) || FLink.Moving(laTurn);
  now.ZMoving = FLink.Moving(laZ);
  now.FocusMoving = FLink.Moving(laFocus);
  now.Calibrating = FFollower.Calibrating();
  try {
    now.Focus = FLink.Config().Axes[laFocus].Fitted ? FLink.Pos(laFocus) : 0.0;
    now.Following = FFollower.IsFollowing();
    now.Turns = FMotion.GetPos(FLink.Config().TurnAxisNo);
  } catch (const EDeviceAway&) {  // what is not known keeps its default
  }
}

std::vector<TPortFacts> TLinuxcncDriver::Ports() {
  std::vector<TPortFacts> all;
  const std::string reason = FLink.NotReady();
  for (std::size_t i = 0; i < kLncAxes; ++i) {
    const auto axis = static_cast<TLncAxis>(i);
    const TLncAxisFacts& known = FLink.Config().Axes[i];
    if (!known.Fitted) continue;
    const char* const unit = axis == laTurn ? Tr("deg") : Tr("mm");
    TPortFacts facts{.Port = AxisName(axis), .AgeMs = FLink.AgeMs()};
    if (axis != laTurn)
      facts.Limits = Format("%g..%g %s, %g mm/s", known.Limits.SoftLimitNeg, known.Limits.SoftLimitPos, unit,
                            known.Limits.MaxSpeed);
    try {
      facts.Value = Format("%.3f %s", FLink.Config().ToOurs(axis, FLink.Pos(axis)), unit);
      facts.Readable = true;
      facts.Warning = !reason.empty() ? reason : FLink.Homed(axis) ? "" : Tr("not homed");
    } catch (const EDeviceAway& away) {
      facts.Warning = away.what();
    }
    all.push_back(std::move(facts));
  }
  for (THalPoint& point : FPoints) all.push_back(point.Facts());
  return all;
}

TResult<TLncConfig> ConfigOf(const TConfigSection& root) {
  std::vector<TProblem> problems;
  TLncConfig config = TLncConfig::FromRoot(root, problems);
  if (!problems.empty()) return problems.front();
  return config;
}

// Orders of a person, one after the other, until what they are for has come.
class TByHand {
 public:
  explicit TByHand(const TLncConfig& config) : FRsh(config.Rsh, "ixocut-hand", FTurn) {}

  [[nodiscard]] TResult<> Open() { return FRsh.Open(true); }
  [[nodiscard]] TResult<> Set(const char* what) {
    if (FRsh.Set(what, kLimitMs) == roAck) return {};
    return TProblem{Format(Tr("LinuxCNC refuses \"%s\""), what), {}, Said(), {}};
  }
  // Until `get NAME` answers what `good` takes.
  template <class Good>
  [[nodiscard]] TResult<> Until(const char* name, std::uint32_t limitMs, const Good& good) {
    std::string value;
    for (const std::uint64_t end = Clock().MonotonicMs() + limitMs;;) {
      if (FRsh.Get(name, kLimitMs, value) != roAck)
        return TProblem{Tr("LinuxCNC's text interface is silent"), {}, {}, {}};
      if (good(value)) return {};
      if (Clock().MonotonicMs() >= end)
        return TProblem{Format(Tr("LinuxCNC still says \"%s %s\""), name, value.c_str()), {}, Said(), {}};
      Clock().Sleep(kSliceMs);
    }
  }

 private:
  static constexpr std::uint32_t kLimitMs = 1000;
  static constexpr std::uint32_t kSliceMs = 20;

  [[nodiscard]] std::string Said() {
    std::string error;
    return FRsh.Get("error", kLimitMs, error) == roAck && error != "OK" ? error : std::string();
  }

  TRshTurn FTurn;
  TRshClient FRsh;
};

// Releases LinuxCNC's emergency stop and switches its machine on.
TResult<> ArmLinuxcnc(const TConfigSection& root) {
  constexpr std::uint32_t kArmMs = 3000;
  const TResult<TLncConfig> config = ConfigOf(root);
  if (!config) return config.Problem();
  TByHand hand(*config);
  if (TResult<> done = hand.Open(); !done) return done;
  if (TResult<> done = hand.Set("estop off"); !done) return done;
  if (TResult<> done = hand.Until("estop", kArmMs, [](const std::string& v) { return v == "OFF"; }); !done) return done;
  if (TResult<> done = hand.Set("machine on"); !done) return done;
  return hand.Until("machine", kArmMs, [](const std::string& v) { return v == "ON"; });
}

// Homes all of its axes.
TResult<> HomeLinuxcnc(const TConfigSection& root) {
  constexpr std::uint32_t kHomeMs = 120'000;
  const TResult<TLncConfig> config = ConfigOf(root);
  if (!config) return config.Problem();
  TByHand hand(*config);
  if (TResult<> done = hand.Open(); !done) return done;
  if (TResult<> done = hand.Set("mode manual"); !done) return done;
  if (TResult<> done = hand.Set("home -1"); !done) return done;
  // It answers for more joints than there are.
  const auto joints = std::ranges::count_if(config->Axes, &TLncAxisFacts::Fitted);
  return hand.Until("joint_homed", kHomeMs, [&](const std::string& homed) {
    std::istringstream words(homed);
    std::string word;
    for (auto left = joints; left > 0; --left)
      if (!(words >> word) || word != "YES") return false;
    return true;
  });
}

// While the latch in HAL is down it holds the axes: somebody has to see it, and to set it again.
void CheckLatch(const TConfigSection& root, std::vector<TProblem>& problems) {
  const TConfigSection devices = root.Child("Devices");
  const auto moves = [&](const char* device) { return devices.Child(device).GetText("Driver", "") == "linuxcnc"; };
  if (!moves("Axes") && !moves("NozzleMotor") && !moves("Follower") && !moves("Focus")) return;
  const TConfigSection laser = devices.Child("Laser");
  const auto names = [](const TConfigSection& section, const char* ok, const char* rearm) {
    return section.GetText(ok, "").ends_with("hal:latch") && section.GetText(rearm, "").ends_with("hal:rearm");
  };
  if (names(laser, "LatchOk", "Rearm") ||
      std::ranges::any_of(laser.Children("Latch"), [&](const auto& latch) { return names(latch, "Ok", "Rearm"); }))
    return;
  problems.push_back({.What = Tr("nobody sets the latch in HAL again, which holds LinuxCNC's axes while it is down"),
                      .Where = "Devices/Laser",
                      .Why = {},
                      .Remedy = Tr("give the laser <Latch Ok=\"linuxcnc@hal:latch\" Rearm=\"linuxcnc@hal:rearm\"/>, or "
                                   "these two as its LatchOk and Rearm")});
}

}  // namespace

TDriverFactory LinuxcncDriver() {
  TDriverFactory factory;
  factory.Name = "linuxcnc";
  factory.Make = [](const TDriverContext& context) -> TResult<std::unique_ptr<IMachineDriver>> {
    const TResult<TLncConfig> config = ConfigOf(context.Machine.Config.Root());
    if (!config) return config.Problem();
    return std::unique_ptr<IMachineDriver>(std::make_unique<TLinuxcncDriver>(*config, context));
  };
  factory.Sections = {{kLinuxcncSection, [] { return std::make_unique<TLinuxcncRecord>(); }}};
  factory.CheckPoint = [](const TConfigSection&, TPointKind kind, std::string_view address) -> TResult<> {
    const TResult<std::string> name = HalPointName(kind, address);
    if (!name) return name.Problem();
    return {};
  };
  factory.Devices = {"Axes", "Follower", "Focus"};
  factory.Arm = &ArmLinuxcnc;
  factory.Home = &HomeLinuxcnc;
  factory.Check = &CheckLatch;
  return factory;
}

}  // namespace ixocamglue
