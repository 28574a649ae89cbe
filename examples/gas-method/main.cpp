// The whole program with a method of calibrating a gas valve of one's own, which `gas study` judges beside the others:
// it halves the gap with the largest rise of pressure, again and again.
#include <cmath>
#include <vector>

#include <ixocut/Main.h>

namespace {
using namespace ixocamglue;

class THalvesRises final : public ixoverify::IGasMethod {
 public:
  THalvesRises() { FCurve.AddItem({0.0, 0.0}); }

  std::optional<double> NextVolt() override {
    FReadings.clear();
    const std::int32_t count = FCurve.Count();
    if (count > kPoints) return std::nullopt;
    if (count <= kFirst) return FVolt = 10.0 * count / kFirst;
    std::int32_t steepest = 1;
    for (std::int32_t i = 2; i < count; ++i)
      if (Rise(i) > Rise(steepest)) steepest = i;
    return FVolt = (FCurve[steepest - 1].X + FCurve[steepest].X) / 2;
  }

  std::int64_t PauseMs() override { return 300; }

  // Settled: the mean of the last 200 ms is that of the 200 ms before.
  std::optional<double> Sample(std::int64_t, double bar) override {
    FReadings.push_back(bar);
    if (FReadings.size() < 2 * kWindow) return std::nullopt;
    const double now = Mean(0), before = Mean(kWindow);
    if (std::abs(now - before) > 0.002 * now + 0.005) return std::nullopt;
    FCurve.AddItem({FVolt, now});
    return now;
  }

  TIncList Table() override { return FCurve; }

 private:
  static constexpr std::int32_t kPoints = 12, kFirst = 4;
  static constexpr std::size_t kWindow = 40;  // readings, 5 ms apart

  double Rise(std::int32_t i) const { return FCurve[i].Y - FCurve[i - 1].Y; }
  // Of a window that ends so many readings ago.
  double Mean(std::size_t ago) const {
    double sum = 0.0;
    for (std::size_t i = 0; i < kWindow; ++i) sum += FReadings[FReadings.size() - 1 - ago - i];
    return sum / kWindow;
  }

  TIncList FCurve;                // V, bar
  double FVolt = 0.0;             // being measured
  std::vector<double> FReadings;  // at this voltage
};

}  // namespace

int main(int argc, char** argv) {
  return ixocut::IxocutMain(
      argc, argv, {.GasMethods = {{"halves-rises", [](std::int32_t) { return std::make_unique<THalvesRises>(); }}}});
}
