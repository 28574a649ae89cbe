#include "controller/recordings/Recorder.h"

#include <algorithm>
#include <string_view>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::int32_t kWindow = 5;  // values that the filter averages
constexpr double kIntervalMs = 1.0;
constexpr std::uint8_t kFrameLayout = 1;

void AddSignal(std::vector<TMonitorSignalKey>& keys, const TMonitorSignal& signal, std::uint16_t axis) {
  const TMonitorSignalKey key{signal.MainType, signal.SubType, axis, 0};
  if (std::ranges::find(keys, key) == keys.end()) keys.push_back(key);
}

void AddAllAxes(std::vector<TMonitorSignalKey>& keys, const TMonitorSignal& signal) {
  if (!signal.PerAxis) return AddSignal(keys, signal, 0);
  for (std::uint16_t axis = 1; axis <= kRecordedAxes; ++axis) AddSignal(keys, signal, axis);
}

std::string SignalNames() { return Joined(MonitorSignals(), &TMonitorSignal::Name); }

}  // namespace

std::vector<TMonitorSignalKey> AllSignals() {
  std::vector<TMonitorSignalKey> keys;
  for (const TMonitorSignal& signal : MonitorSignals()) AddAllAxes(keys, signal);
  return keys;
}

TResult<std::vector<TMonitorSignalKey>> ParseSignals(const std::string& list) {
  if (list.empty()) return AllSignals();
  std::vector<TMonitorSignalKey> keys;
  for (const std::string& word : SplitAt(list, ',')) {
    const std::size_t dot = word.find('.');
    const TMonitorSignal* const signal = FindMonitorSignal(std::string_view(word).substr(0, dot));
    if (!signal)
      return TProblem{.What = Format(Tr("\"%s\" is no signal"), word.c_str()),
                      .Remedy = Format(Tr("the signals are: %s"), SignalNames().c_str())};
    if (dot == std::string::npos) {
      AddAllAxes(keys, *signal);
      continue;
    }
    const auto axis = ParseExactly<std::uint16_t>(std::string_view(word).substr(dot + 1)).value_or(0);
    if (!signal->PerAxis || axis < 1 || axis > kRecordedAxes)
      return TProblem{.What = Format("\"%s\": %s", word.c_str(),
                                     signal->PerAxis ? Tr("the axes are 1 to 4") : Tr("this signal has no axes"))};
    AddSignal(keys, *signal, axis);
  }
  return keys;
}

TRecorder::TAxis::TAxis() : Speed(kWindow, kIntervalMs), Acceleration(kWindow, kIntervalMs) {}

TRecorder::TRecorder(TMonitorWriter& writer, const std::vector<TMonitorSignalKey>& signals) : FWriter(writer) {
  for (const TMonitorSignalKey& key : signals) {
    TChannel channel{FindMonitorSignal(key.MainType, key.SubType), {}};
    channel.Frame.MainType = key.MainType;
    channel.Frame.SubType = key.SubType;
    channel.Frame.Param1 = key.Param1;
    channel.Frame.TimeInterval = 1;
    channel.Frame.Version = kFrameLayout;
    FChannels.push_back(channel);
  }
}

void TRecorder::Sample(const TMachineSnapshot& now) {
  const double positions[kRecordedAxes] = {now.Pos.X, now.Pos.Y, now.Z, now.Focus};
  for (std::size_t i = 0; i < kRecordedAxes; ++i) {
    TAxis& axis = FAxes[i];
    axis.Mm = positions[i];
    axis.MmPerS = axis.Speed.Add(axis.Mm).Derivative;
    axis.MmPerS2 = axis.Acceleration.Add(axis.MmPerS).Derivative;
    axis.Error = now.FollowingError[i];
  }
  for (TChannel& channel : FChannels) Put(channel, now);
  ++FSamples;
}

void TRecorder::Put(TChannel& channel, const TMachineSnapshot& now) {
  TMonitorDataFrame& frame = channel.Frame;
  if (frame.DataCount == 0) frame.SampleTime = static_cast<std::uint32_t>(FSamples);
  const std::size_t i = frame.DataCount++;
  const TAxis& axis = FAxes[frame.Param1 > 0 ? frame.Param1 - 1 : 0];
  switch (channel.Signal->Kind) {
    case skPosition: frame.SetFloat(i, static_cast<float>(axis.Mm)); break;
    case skSpeed: frame.SetFloat(i, static_cast<float>(axis.MmPerS)); break;
    case skAcceleration: frame.SetFloat(i, static_cast<float>(axis.MmPerS2)); break;
    case skFollowingError: frame.SetFloat(i, static_cast<float>(axis.Error)); break;
    case skGasPressure: frame.SetFloat(i, static_cast<float>(now.GasBar)); break;
    case skLaser: frame.SetInt(i, now.Laser ? 1 : 0); break;
    case skEmission: frame.SetInt(i, now.Emission ? 1 : 0); break;
    case skState: frame.SetInt(i, now.State); break;
    case skGasBranch: frame.SetInt(i, now.Gas ? now.GasBranch : 0); break;
  }
  if (frame.Count() < kFrameValues) return;
  FWriter.Write(frame);
  frame.DataCount = 0;
}

void TRecorder::Finish() {
  for (TChannel& channel : FChannels)
    if (channel.Frame.DataCount > 0) FWriter.Write(channel.Frame);
  FWriter.Finish();
}

}  // namespace ixocontroller
