// One line of the diagnostic channel, nobody listening and somebody listening, beside the same line of spdlog.
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>

#include "bench/Rows.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue::bench {
namespace {

constexpr int kLines = 16;  // per run

// One log point after the other: a loop would take as long as a disabled one. spdlog keeps the loop, in which it is the
// faster.
template <class F>
void ForEachLine(F line) {
  [&]<int... I>(std::integer_sequence<int, I...>) { (line(I), ...); }
  (std::make_integer_sequence<int, kLines>{});
}

class TNullSink final : public ILogSink {
 public:
  void Write(const TLogRecord&) override {}
};

// Posts the lines and, as the draining thread would, hands them to the sink; spdlog does both at once.
template <TDiagMask Mask>
class TDiagLines {
 public:
  TDiagLines() {
    FLogs.AddSink(FSink);
    TLogService::Listen(Mask);
  }
  ~TDiagLines() {
    TLogService::Listen(0);
    if (FLogs.Dropped() != 0) std::abort();  // dropped lines cost less: nothing was measured
  }
  TDiagLines(const TDiagLines&) = delete;
  TDiagLines& operator=(const TDiagLines&) = delete;

  void Run() {
    ForEachLine([this](int i) {
      if (TDiag d{dlMessage}) d("[%d][%s]: Level = %d", i, FDesc.c_str(), 3);
    });
    if constexpr (Mask != 0) FLogs.DrainOnce();
  }

 private:
  TNullSink FSink;
  TLogService FLogs;
  TInstalled<TLogService> FInstalled{FLogs};
  std::string FDesc = "开光闸";
};

template <spdlog::level::level_enum Level>
class TSpdlogLines {
 public:
  TSpdlogLines() { FLogger.set_level(Level); }
  void Run() {
    for (int i = 0; i < kLines; ++i) FLogger.debug("[{}][{}]: Level = {}", i, FDesc, 3);
  }

 private:
  spdlog::logger FLogger{"bench", std::make_shared<spdlog::sinks::null_sink_mt>()};
  std::string FDesc = "开光闸";
};

}  // namespace

std::vector<TRow> LogRows() {
  return {
      Measure<TDiagLines<0>>({.Id = "line_off",
                              .Name = "diagnostic line, disabled",
                              .Parts = kLines,
                              .Peer = "spdlog_off",
                              .PeerName = "spdlog, disabled",
                              .MaxAllocations = 0,
                              .MaxRatio = 0.15}),
      Measure<TSpdlogLines<spdlog::level::info>>({.Id = "spdlog_off", .Parts = kLines}),
      Measure<TDiagLines<kDiagAll>>({.Id = "line_on",
                                     .Name = "diagnostic line, enabled",
                                     .Parts = kLines,
                                     .Peer = "spdlog_on",
                                     .PeerName = "spdlog, null sink"}),
      Measure<TSpdlogLines<spdlog::level::debug>>({.Id = "spdlog_on", .Parts = kLines}),
  };
}

}  // namespace ixocamglue::bench
