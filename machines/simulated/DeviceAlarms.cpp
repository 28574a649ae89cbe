#include "machines/simulated/DeviceAlarms.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

using TRow = TNcSimpleAlarmSource::TRow;

constexpr const char* kDevices[] = {TrMark("laser"),  TrMark("gas"),      TrMark("axes"),
                                    TrMark("head"),   TrMark("follower"), TrMark("ports"),
                                    TrMark("inport"), TrMark("table"),    TrMark("cut")};
constexpr std::int32_t kGasTypes = 6;
constexpr std::uint32_t kDeviceQuietMs = 1000;  // a device that answers again is believed after this time

std::vector<TRow> AxisRows() {
  std::vector<TRow> rows;
  std::int32_t axis = 0;
  for (const char* const name : {"X", "Y", "Z", "Focus"}) {
    for (const bool positive : {false, true})
      rows.push_back({1 + 2 * axis + (positive ? 1 : 0), NcAlarmAxis(axis, positive),
                      Format(Tr("%s%s soft limit"), name, positive ? "+" : "-")});
    ++axis;
  }
  return rows;
}

std::vector<TRow> GasRows() {
  std::vector<TRow> rows;
  for (std::int32_t type = 1; type <= kGasTypes; ++type)
    rows.push_back({type, naForbidCut, Format(Tr("gas pressure low, gas type %d"), type)});
  return rows;
}

std::vector<TRow> DeviceRows() {
  std::vector<TRow> rows;
  for (const char* const device : kDevices)
    rows.push_back({static_cast<std::int32_t>(rows.size()) + 1, naShownOnly,
                    Format(Tr("device \"%s\" does not answer"), Tr(device)), 0, kDeviceQuietMs});
  return rows;
}

}  // namespace

TSimDeviceAlarms::TSimDeviceAlarms()
    : FAxes(kAxisPrefix, AxisRows()),
      FGas(kGasPrefix, GasRows()),
      FLaser(kLaserPrefix, {{1, naForbidCut, Tr("emission lost")}, {3, naForbidLaser, Tr("interlock open")}}),
      FPallets(kPalletPrefix,
               {{4, naForbidMove | naForbidFollower | naForbidLaser, Tr("pallets are being exchanged")}}),
      FDevices(kDevicePrefix, DeviceRows()) {}

void TSimDeviceAlarms::AddTo(TNcAlarmManager& alarms) {
  for (TNcSimpleAlarmSource* const source : {&FAxes, &FGas, &FLaser, &FPallets, &FDevices}) alarms.AddSource(*source);
}

void TSimDeviceAlarms::RemoveFrom(TNcAlarmManager& alarms) {
  for (TNcSimpleAlarmSource* const source : {&FAxes, &FGas, &FLaser, &FPallets, &FDevices})
    alarms.RemoveSource(*source);
}

void TSimDeviceAlarms::GasLow(std::int32_t gasType, bool low) {
  if (gasType >= 1 && gasType <= kGasTypes) FGas.Set(gasType, low);
}

void TSimDeviceAlarms::Communication(std::string_view device, bool works) {
  const auto found = std::ranges::find(kDevices, device);
  if (found != std::end(kDevices)) FDevices.Set(static_cast<std::int32_t>(found - std::begin(kDevices)) + 1, !works);
}

}  // namespace ixocamglue
