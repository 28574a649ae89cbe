// The log of a process that runs for months: to the service manager's journal, else to files of the state folder whose
// number and size are bounded. Lines go through a queue of their own to the thread `ixo-logfile`: who drains the log
// waits for no disk and no journal, and what does not fit is counted and said later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// How loud a line is for a journal: 2 critical, 3 error, 4 warning, 6 information, 7 trace.
[[nodiscard]] int JournalPriority(const TLogRecord& record);

// Where whole lines go; the own thread only, which it may keep waiting.
class ILogOutput {
 public:
  virtual ~ILogOutput() = default;
  // Answers 0 or an errno value. Throws nothing.
  virtual int Write(const TLogRecord& record) = 0;
};

// "<4>TPHost: text" to a descriptor that stays open; each line of a text has its prefix. No time: a journal has its
// own. Does not fail; a write does.
[[nodiscard]] std::unique_ptr<ILogOutput> MakeJournalOutput(int handle);

// "2026-05-01 09:00:00.000 warning TPHost: text". A file that would grow beyond `bytes` becomes "<file>.1", that one
// "<file>.2" and so on; `files` in all. Does not fail; a write opens the file, and fails where that cannot be opened.
[[nodiscard]] std::unique_ptr<ILogOutput> MakeFileOutput(const std::filesystem::path& file, int files = 5,
                                                         std::uint64_t bytes = 4U << 20U);

class TProcessLog final : public ILogSink {
 public:
  static constexpr std::size_t kMostLines = 4096;      // that wait
  static constexpr std::uint32_t kEndsWithinMs = 500;  // a journal or a disk that hangs is left alone then

  // `told` is called once for each trouble that begins, by the next Write.
  TProcessLog(std::unique_ptr<ILogOutput> output, std::function<void(const TProblem&)> told);
  ~TProcessLog() override;  // what waits is written first
  TProcessLog(const TProcessLog&) = delete;
  TProcessLog& operator=(const TProcessLog&) = delete;

  // Application lines, errors and progress; the rest of the diagnostic channel is for those who trace.
  void Write(const TLogRecord& record) override;

 private:
  struct TCore;
  static void Run(TCore& core);

  const std::shared_ptr<TCore> FCore;  // the thread's too, which may outlive this
  const std::function<void(const TProblem&)> FTold;
  bool FToldTrouble = false;  // the draining thread's
};

// Whether a service manager takes what is written to the error output (JOURNAL_STREAM), or waits to be told
// (NOTIFY_SOCKET).
[[nodiscard]] bool HasServiceManager();
// The journal, or "controller.log" in the folder; trouble with the file is logged, for the other sinks. Does not fail
// because of it.
[[nodiscard]] std::unique_ptr<TProcessLog> MakeProcessLog(const std::filesystem::path& stateFolder);

}  // namespace ixocontroller
