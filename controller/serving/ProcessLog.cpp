#include "controller/serving/ProcessLog.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr int kJournalWaitMs = 1000;

const char* LevelWord(int priority) {
  switch (priority) {
    case 2: return "fault";
    case 3: return "error";
    case 4: return "warning";
    case 6: return "info";
    default: return "trace";
  }
}

// "source: text" with `between` behind each line end; what would move a terminal's cursor becomes a question mark.
std::string LogText(const TLogRecord& record, std::string_view between) {
  std::string text;
  const auto add = [&](std::string_view part) {
    for (const char c : part) {
      const auto byte = static_cast<unsigned char>(c);
      text += (byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F ? '?' : c;
      if (c == '\n') text += between;
    }
  };
  if (!record.Source.empty()) {
    add(record.Source);
    text += ": ";
  }
  add(record.Text);
  return text + "\n";
}

// All of it, or an errno value. `written` counts also what was written before a failure.
int WriteAll(int handle, std::string_view bytes, std::size_t& written) {
  for (written = 0; written < bytes.size();) {
    const auto now = ::write(handle, bytes.data() + written, bytes.size() - written);
    if (now >= 0) {
      written += static_cast<std::size_t>(now);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    pollfd ready{handle, POLLOUT, 0};
    if (::poll(&ready, 1, kJournalWaitMs) == 0) return EAGAIN;
  }
  return 0;
}

class TJournalOutput final : public ILogOutput {
 public:
  explicit TJournalOutput(int handle) : FHandle(handle) {}
  int Write(const TLogRecord& record) override {
    const std::string prefix = Format("<%d>", JournalPriority(record));
    std::size_t written = 0;
    return WriteAll(FHandle, prefix + LogText(record, prefix), written);
  }

 private:
  const int FHandle;
};

class TFileOutput final : public ILogOutput {
 public:
  TFileOutput(std::filesystem::path file, int files, std::uint64_t bytes)
      : FFile(std::move(file)), FFiles(files), FBytes(bytes) {}
  ~TFileOutput() override { Close(); }

  int Write(const TLogRecord& record) override {
    std::string line =
        FormatDateTime(record.Stamp) + " " + LevelWord(JournalPriority(record)) + " " + LogText(record, "    ");
    if (FTorn) line.insert(0, 1, '\n');
    if (const int error = Open()) return error;
    if (FSize > 0 && FSize + line.size() > FBytes) {
      if (const int error = Rotate()) return error;
      if (const int error = Open()) return error;
    }
    std::size_t written = 0;
    const int error = WriteAll(FHandle, line, written);
    FSize += written;
    FTorn = error != 0 && (FTorn || written > 0);
    if (error != 0) Close();
    return error;
  }

 private:
  int Open() {
    if (FHandle >= 0) return 0;
    FHandle = ::open(FFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    struct stat status {};
    if (FHandle < 0 || ::fstat(FHandle, &status) != 0) {
      const int error = errno;
      Close();
      return error;
    }
    FSize = static_cast<std::uint64_t>(status.st_size);
    return 0;
  }
  void Close() {
    if (FHandle >= 0) ::close(FHandle);
    FHandle = -1;
  }
  [[nodiscard]] std::string Name(int number) const {
    return number == 0 ? FFile.string() : Format("%s.%d", FFile.c_str(), number);
  }
  int Rotate() {
    Close();
    for (int number = FFiles - 1; number > 0; --number)
      if (::rename(Name(number - 1).c_str(), Name(number).c_str()) != 0 && errno != ENOENT) return errno;
    FTorn = false;
    return 0;
  }

  const std::filesystem::path FFile;
  const int FFiles;
  const std::uint64_t FBytes;
  int FHandle = -1;
  std::uint64_t FSize = 0;
  bool FTorn = false;  // the file ends within a line
};

}  // namespace

int JournalPriority(const TLogRecord& record) {
  if (record.Diagnostic) return record.Level == dlError ? 3 : record.Level == dlProgress ? 6 : 7;
  if (record.Kind >= lkException) return 2;
  if (record.Kind >= lkError) return 3;
  if (record.Kind >= lkWarning) return 4;
  return record.Kind == lkTrace ? 7 : 6;
}

std::unique_ptr<ILogOutput> MakeJournalOutput(int handle) { return std::make_unique<TJournalOutput>(handle); }

std::unique_ptr<ILogOutput> MakeFileOutput(const std::filesystem::path& file, int files, std::uint64_t bytes) {
  return std::make_unique<TFileOutput>(file, files, bytes);
}

// --- TProcessLog ---

struct TProcessLog::TCore {
  struct TLine {
    TLogRecord Record;
    std::uint64_t StandsFor = 1;  // lines that are missing with it
  };

  std::unique_ptr<ILogOutput> Output;
  TCriticalSection Lock;
  std::condition_variable Work;  // and the end of it
  std::deque<TLine> Lines IXO_GUARDED_BY(Lock);
  std::uint64_t Missing IXO_GUARDED_BY(Lock) = 0;  // found no room, or were not written
  int Trouble IXO_GUARDED_BY(Lock) = 0;            // of the last line; an errno value
  bool Ending IXO_GUARDED_BY(Lock) = false;
  bool Done IXO_GUARDED_BY(Lock) = false;
};

TProcessLog::TProcessLog(std::unique_ptr<ILogOutput> output, std::function<void(const TProblem&)> told)
    : FCore(std::make_shared<TCore>()), FTold(std::move(told)) {
  FCore->Output = std::move(output);
  std::thread([core = FCore] {
    pthread_setname_np(pthread_self(), "ixo-logfile");
    Run(*core);
  }).detach();
}

TProcessLog::~TProcessLog() {
  {
    TGuard guard(FCore->Lock);
    FCore->Ending = true;
  }
  FCore->Work.notify_all();
  std::unique_lock lock(FCore->Lock.Native());
  FCore->Work.wait_for(lock, std::chrono::milliseconds(kEndsWithinMs),
                       [this]() IXO_NO_ANALYSIS { return FCore->Done; });
}

void TProcessLog::Write(const TLogRecord& record) {
  if (record.Diagnostic && record.Level != dlError && record.Level != dlProgress) return;
  int trouble = 0;
  {
    TGuard guard(FCore->Lock);
    trouble = FCore->Trouble;
    auto& lines = FCore->Lines;
    // What is missing is said in front of the next line, here: the own thread may outlive the texts.
    if (const std::uint64_t missing = FCore->Missing; missing > 0 && lines.size() + 1 < kMostLines) {
      TLogRecord gap = record;
      gap.Diagnostic = false;
      gap.Kind = lkWarning;
      gap.Source = "TProcessLog";
      gap.Text = Format(Tr("%llu lines of the log are missing here"), static_cast<unsigned long long>(missing));
      lines.push_back({std::move(gap), missing});
      FCore->Missing = 0;
    }
    if (lines.size() < kMostLines)
      lines.push_back({record});
    else
      ++FCore->Missing;
  }
  FCore->Work.notify_all();
  if (trouble != 0 && !FToldTrouble && FTold)
    FTold({.What = Tr("the log cannot be written"), .Where = {}, .Why = SystemErrorText(trouble)});
  FToldTrouble = trouble != 0;
}

void TProcessLog::Run(TCore& core) {
  for (bool ending = false; !ending;) {
    std::deque<TCore::TLine> lines;
    {
      std::unique_lock lock(core.Lock.Native());
      core.Work.wait(lock, [&core]() IXO_NO_ANALYSIS { return core.Ending || !core.Lines.empty(); });
    }
    {
      TGuard guard(core.Lock);
      lines.swap(core.Lines);
      ending = core.Ending && lines.empty();
    }
    for (const TCore::TLine& line : lines) {
      const int error = core.Output->Write(line.Record);
      TGuard guard(core.Lock);
      core.Trouble = error;
      if (error != 0) core.Missing += line.StandsFor;
    }
  }
  {
    TGuard guard(core.Lock);
    core.Done = true;
  }
  core.Work.notify_all();
}

bool HasServiceManager() {
  if (const char* const notify = std::getenv("NOTIFY_SOCKET"); notify && *notify) return true;
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  return stream && ::fstat(STDERR_FILENO, &status) == 0 &&
         Format("%llu:%llu", static_cast<unsigned long long>(status.st_dev),
                static_cast<unsigned long long>(status.st_ino)) == stream;
}

std::unique_ptr<TProcessLog> MakeProcessLog(const std::filesystem::path& stateFolder) {
  if (HasServiceManager()) return std::make_unique<TProcessLog>(MakeJournalOutput(STDERR_FILENO), nullptr);
  const std::filesystem::path file = stateFolder / kProcessLogFile;
  return std::make_unique<TProcessLog>(MakeFileOutput(file), [file](const TProblem& problem) {
    LogMsg(lkError, 0, file.string() + ": " + problem.Text(), "TProcessLog");
  });
}

}  // namespace ixocontroller
