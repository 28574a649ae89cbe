// A Modbus slave of ours that keeps what is written to it, and does what a test wants of it.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "fixture/Texts.h"
#include "tests/threaded/ModbusSlaves.h"

namespace ixocamglue::test {

// 1000 of each table as memory, a log of what was written, and what a test makes of it.
class TRecorder final : public IPlcDevice {
 public:
  bool Has(TPlcTable table, std::size_t addr) const override {
    const std::lock_guard guard(FLock);
    return addr < 1000 && !FHoles.contains({table, addr});
  }
  std::uint16_t Get(TPlcTable table, std::size_t addr) override {
    const std::lock_guard guard(FLock);
    return FMemory[{table, addr}];
  }
  void Set(TPlcTable table, std::size_t addr, std::uint16_t value) override {
    for (HasWrite = true; KeepsWrites;) Clock().Sleep(1);
    const std::lock_guard guard(FLock);
    FWritten.push_back((table == ptCoils ? "coil " : "hreg ") + std::to_string(addr) + "=" + std::to_string(value));
    if (!FDeaf.contains(addr)) FMemory[{table, addr}] = value;
  }
  void CatchUp() override {
    while (Held) Clock().Sleep(1);
  }
  TTexts Written() const {
    const std::lock_guard guard(FLock);
    return FWritten;
  }
  void Put(TPlcTable table, std::size_t addr, std::uint16_t value) {
    const std::lock_guard guard(FLock);
    FMemory[{table, addr}] = value;
  }
  void Hole(TPlcTable table, std::size_t addr, bool hole) {
    const std::lock_guard guard(FLock);
    hole ? static_cast<void>(FHoles.emplace(table, addr)) : static_cast<void>(FHoles.erase({table, addr}));
  }
  void Deafen(std::size_t addr) {
    const std::lock_guard guard(FLock);
    FDeaf.insert(addr);
  }
  std::atomic<bool> Held{false};                          // answers nothing meanwhile
  std::atomic<bool> KeepsWrites{false}, HasWrite{false};  // the first one's answer is still to come, and it is here

 private:
  mutable std::mutex FLock;
  std::map<std::pair<TPlcTable, std::size_t>, std::uint16_t> FMemory;
  std::set<std::pair<TPlcTable, std::size_t>> FHoles;
  std::set<std::size_t> FDeaf;
  TTexts FWritten;
};

// A server with a recorder behind it.
struct TRecording {
  explicit TRecording(std::uint16_t port = 0) {
    Serving.Plc.Bank.Device = &Recorder;
    Port = Serving.Tcp(port);
  }
  ~TRecording() { Recorder.Held = Recorder.KeepsWrites = false; }
  TRecorder Recorder;
  TServing Serving;
  std::uint16_t Port = 0;
};

}  // namespace ixocamglue::test
