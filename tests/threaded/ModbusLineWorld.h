// A line of Modbus stations, a state thread that beats for it, and what it tells.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include "fixture/Texts.h"
#include "fixture/Waiting.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/modbus/Line.h"

namespace ixocamglue::test {

class ModbusLine : public testing::Test, public IModbusStations {
 protected:
  ModbusLine() {
    Station.Initialize();
    Station.Name = "io";
    Station.Host = "127.0.0.1";
    FBeat.KeepDoing(5, [this] {
      if (Beats) Watch.BeatMs = Clock().MonotonicMs();
    });
  }
  // Before the destructor: the line's thread calls what only the whole test has.
  void TearDown() override {
    Line.reset();
    FBeat.End();
  }
  void Make(std::uint16_t port) {
    Station.Port = port;
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    Line->AddStation(Station);
  }
  std::size_t Point(TPointKind kind, const char* address, std::size_t station = 0) {
    return Line->AddPoint(station, kind, TModbusAddress::Parse(kind, address).OrThrow(pbRequest));
  }
  std::string Connect() {
    const auto connected = Line->Connect();
    return connected ? "" : connected.Problem().Text();
  }
  // What a read says: the number, or the reason.
  std::string Read(std::size_t point) {
    try {
      return NumberText(Line->Read(point));
    } catch (const EDeviceAway& away) {
      return away.what();
    }
  }
  bool ComesTo(std::size_t point, double value) {
    return Comes([&] { return Read(point) == NumberText(value); }, 3000);
  }
  void StationAway(const std::string& name, const std::string& why) override {
    const std::lock_guard guard(FLock);
    FEvents.push_back("away " + name + ": " + why);
  }
  void StationBack(const std::string& name) override {
    const std::lock_guard guard(FLock);
    FEvents.push_back("back " + name);
  }
  TTexts Events() {
    const std::lock_guard guard(FLock);
    return FEvents;
  }

  TNcWatch Watch;
  std::atomic<bool> Beats{true};
  TModbusStationConfig Station;
  std::unique_ptr<TModbusLine> Line;

 private:
  std::mutex FLock;
  TTexts FEvents;
  TSideThreads FBeat;
};

}  // namespace ixocamglue::test
