// The runs of a controller that stays up: one at a time, each with its report, the last kKept of them at hand.
// Interface thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/procedures/MotionTrace.h"
#include "controller/procedures/ProcedureRun.h"
#include "controller/service/Asker.h"

namespace ixocontroller {

// A run that has come to its end; never changed.
struct TRunRecord {
  std::uint64_t Id = 0;  // from 1 on, of this start of the controller
  std::string Procedure;
  std::vector<std::string> Calls;  // "gas-on --branch 2 --pressure 1.5"
  TAsker Starter;
  bool Detached = false;
  std::int64_t StartUnixMs = 0;
  std::int64_t EndUnixMs = 0;
  TRunReport Report;
  nlohmann::ordered_json Json;  // as `ixocut run --json` has it
  std::vector<TTracePoint> Trace;
};
using TRunRecordPtr = std::shared_ptr<const TRunRecord>;

class TRunner {
 public:
  static constexpr std::size_t kKept = 20;
  using TEnded = std::function<void(const TRunRecordPtr&)>;

  // Called with each run that has ended; set before the first one.
  void OnEnd(TEnded told) { FTold.push_back(std::move(told)); }
  [[nodiscard]] const std::deque<TRunRecordPtr>& Records() const { return FRecords; }  // the newest last
  [[nodiscard]] TRunRecordPtr Find(std::uint64_t id) const;                            // null: gone, or never was

 private:
  void Keep(TRunRecordPtr record);

  std::vector<TEnded> FTold;
  std::deque<TRunRecordPtr> FRecords;
};

}  // namespace ixocontroller
