#include "controller/recordings/Recordings.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <map>
#include <utility>

#include "controller/process/RoundThread.h"
#include "controller/process/StateFolder.h"
#include "controller/recordings/Recording.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kEnding = ".csv";
constexpr std::uint32_t kSamplePeriodMs = 1;

std::int64_t UnixMsOf(std::filesystem::file_time_type time) {
  using namespace std::chrono;
  return duration_cast<milliseconds>(file_clock::to_sys(time).time_since_epoch()).count();
}

// Values of one signal, thinned out while they come.
class TThinned {
 public:
  TThinned(std::int64_t from, std::int64_t width) : FFrom(from), FWidth(width) {}

  void Add(std::int64_t ms, double value) {
    const std::int64_t slot = (ms - FFrom) / FWidth;
    if (slot != FSlot) Flush();
    FSlot = slot;
    if (FCount == 0 || value < FLow) FLow = value;
    if (FCount == 0 || value > FHigh) FHigh = value;
    ++FCount;
  }
  nlohmann::ordered_json Take() {
    Flush();
    return {{"ms", std::move(FMs)}, {"low", std::move(FLows)}, {"high", std::move(FHighs)}};
  }

 private:
  void Flush() {
    if (FCount == 0) return;
    FMs.push_back(FFrom + FSlot * FWidth);
    FLows.push_back(FLow);
    FHighs.push_back(FHigh);
    FCount = 0;
  }

  const std::int64_t FFrom, FWidth;
  std::int64_t FSlot = -1;
  std::uint64_t FCount = 0;
  double FLow = 0.0, FHigh = 0.0;
  std::vector<std::int64_t> FMs;
  std::vector<double> FLows, FHighs;
};

TResult<std::filesystem::path> PathOf(const std::filesystem::path& folder, const std::string& name) {
  if (const auto good = CheckStoredName(name); !good) return good.Problem();
  return folder / (name + kEnding);
}

// A recording that is there and is not too large.
TResult<std::filesystem::path> ReadableIn(const std::filesystem::path& folder, const std::string& name) {
  auto path = PathOf(folder, name);
  if (!path) return path;
  std::error_code error;
  const std::uint64_t bytes = std::filesystem::file_size(*path, error);
  if (error) return TProblem{.What = Format(Tr("there is no recording %s"), name.c_str())};
  if (bytes > TRecordings::kMostBytes)
    throw EProblem(pbUnusable, TProblem{.What = Format(Tr("%llu MiB, and no more than %llu are read here"),
                                                       static_cast<unsigned long long>(bytes >> 20U),
                                                       static_cast<unsigned long long>(TRecordings::kMostBytes >> 20U)),
                                        .Where = path->string(),
                                        .Remedy = Tr("look at it with \"ixocut monitor plot\" on this machine")});
  return path;
}

// First and last time of a file.
struct TSpan {
  std::int64_t First = std::numeric_limits<std::int64_t>::max();
  std::int64_t Last = std::numeric_limits<std::int64_t>::min();
};

}  // namespace

// --- what samples ---

class TRecordings::TSampler {
 public:
  TSampler(TController& controller, std::unique_ptr<TLiveRecording> recording, std::uint64_t limitMs)
      : FController(controller),
        FRecording(std::move(recording)),
        FStartMs(Clock().MonotonicMs()),
        FEndMs(FStartMs + limitMs) {
    const auto sample = [this](std::uint64_t nowMs) { Sample(nowMs); };
    if (TVirtualClock* const clock = controller.VirtualClock())
      FTimer = clock->Every(kSamplePeriodMs, sample);
    else
      FThread.emplace("ixo-record", kSamplePeriodMs, sample);
  }
  ~TSampler() { Cease(); }
  TSampler(const TSampler&) = delete;
  TSampler& operator=(const TSampler&) = delete;

  [[nodiscard]] bool Over() const { return FOver.load(std::memory_order_acquire); }
  [[nodiscard]] std::uint64_t LimitMs() const { return FEndMs - FStartMs; }
  [[nodiscard]] std::uint64_t Ms() const { return std::min(Clock().MonotonicMs() - FStartMs, LimitMs()); }
  [[nodiscard]] std::size_t Signals() const { return FRecording->Signals(); }

  // On the thread that made it: nothing is sampled behind it in virtual time, and in real time one more at most.
  void Cease() {
    FOver.store(true, std::memory_order_release);
    if (FTimer) FController.VirtualClock()->Remove(*std::exchange(FTimer, std::nullopt));
  }
  // Behind that, on any thread: waits for the disk. The number of its samples.
  std::uint64_t Finish() {
    FThread.reset();
    FRecording->Finish();
    return FRecording->Samples();
  }

 private:
  void Sample(std::uint64_t nowMs) {
    if (Over()) return;
    FRecording->Sample(std::min(nowMs, FEndMs), FController.Machine().Snapshot());
    if (nowMs >= FEndMs || FRecording->Failed()) FOver.store(true, std::memory_order_release);
  }

  TController& FController;
  const std::unique_ptr<TLiveRecording> FRecording;  // what samples has it, then Finish
  const std::uint64_t FStartMs, FEndMs;
  std::atomic<bool> FOver{false};
  std::optional<std::size_t> FTimer;
  std::optional<TRoundThread> FThread;
};

// --- TRecordings ---

namespace {

void LogFailed(const std::exception_ptr& failed) {
  try {
    std::rethrow_exception(failed);
  } catch (const EProblem& problem) {
    LogMsg(lkError, 0, problem.Problem.Text(), "TPHost");
  } catch (...) {
    LogFault("recording", failed);
  }
}

}  // namespace

TRecordings::TRecordings(TController& controller, std::filesystem::path folder, TDiskWork onDisk)
    : FController(controller), FFolder(std::move(folder)), FOnDisk(std::move(onDisk)) {}

// Nobody else waits any more: the last one is finished here, unless that is under way.
TRecordings::~TRecordings() {
  if (!FSampler || FFinishing) return;
  try {
    FSampler->Cease();
    (void)FSampler->Finish();
  } catch (...) {
    LogFailed(std::current_exception());
  }
}

void TRecordings::OnDisk(std::function<std::uint64_t()> work, std::function<void()> then, TDiskDone done) {
  struct TOutcome {
    std::uint64_t Number = 0;
    std::exception_ptr Failed;
  };
  const auto outcome = std::make_shared<TOutcome>();
  const std::string language = ThreadLanguage();
  const auto answers = [outcome, language, work = std::move(work)] {
    const TLanguageScope scope(language);
    try {
      outcome->Number = work();
    } catch (...) {
      outcome->Failed = std::current_exception();
    }
  };
  FOnDisk(answers, [outcome, language, here = std::weak_ptr(FHere), then = std::move(then), done = std::move(done)] {
    if (here.expired()) return;
    const TLanguageScope scope(language);
    try {
      then();
    } catch (...) {
      outcome->Failed = std::current_exception();
    }
    done(outcome->Number, outcome->Failed);
  });
}

std::optional<TRecordings::TNow> TRecordings::Now() const {
  if (!FSampler) return std::nullopt;
  return TNow{FName, FSampler->Signals(), FSampler->LimitMs(), FSampler->Ms()};
}

std::vector<TRecordingInfo> TRecordings::List(const std::filesystem::path& folder) {
  std::vector<TRecordingInfo> list;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::filesystem::directory_entry& entry = *it;
    const std::string name = entry.path().stem().string();
    std::error_code none;
    if (entry.path().extension() != kEnding || !CheckStoredName(name) || !entry.is_regular_file(none)) continue;
    const auto time = entry.last_write_time(none);
    if (!none) list.push_back({name, entry.file_size(none), UnixMsOf(time)});
  }
  std::ranges::sort(list, {}, &TRecordingInfo::Name);
  return list;
}

namespace {

// The file of a recording that is to be made, open.
std::unique_ptr<TLiveRecording> OpenNew(const std::filesystem::path& path, const std::string& name,
                                        const std::vector<TMonitorSignalKey>& signals,
                                        const std::vector<std::string>& motors) {
  std::error_code error;
  if (std::filesystem::exists(path, error))
    throw EProblem(pbRefused, {.What = Format(Tr("there is a recording %s already"), name.c_str()),
                               .Where = {},
                               .Why = {},
                               .Remedy = Tr("delete it, or take another name")});
  if (TRecordings::List(path.parent_path()).size() >= TRecordings::kMostFiles)
    throw EProblem(pbRefused, {.What = Format(Tr("there are %d recordings, and no more are kept"),
                                              static_cast<int>(TRecordings::kMostFiles)),
                               .Where = {},
                               .Why = {},
                               .Remedy = Tr("delete those that are not needed any more")});
  MakeFolder(path.parent_path()).OrThrow(pbUnusable);
  return std::make_unique<TLiveRecording>(path, signals, motors);
}

void Remove(const std::filesystem::path& path, const std::string& name) {
  std::error_code error;
  if (std::filesystem::remove(path, error)) return;
  if (!error) throw EProblem(pbRefused, Format(Tr("there is no recording %s"), name.c_str()));
  throw EProblem(pbRefused, {.What = Tr("the file cannot be removed"),
                             .Where = path.string(),
                             .Why = SystemErrorText(error.value()),
                             .Remedy = {}});
}

}  // namespace

void TRecordings::RefuseWhileMaking() const {
  if (!FName.empty()) throw EProblem(pbRefused, Format(Tr("the recording %s is being made"), FName.c_str()));
}

void TRecordings::Start(const std::string& name, std::vector<TMonitorSignalKey> signals, std::uint64_t limitMs,
                        TDiskDone done) {
  const std::filesystem::path path = PathOf(FFolder, name).OrThrow(pbRequest);
  RefuseWhileMaking();
  if (signals.size() * limitMs > kMostValues)
    throw EProblem(pbRefused, {.What = Format(Tr("%zu signals over %llu s are more than a recording holds"),
                                              signals.size(), static_cast<unsigned long long>(limitMs / 1000)),
                               .Where = {},
                               .Why = {},
                               .Remedy = Tr("record fewer signals, or for a shorter time")});
  FName = name;
  const auto opened = std::make_shared<std::unique_ptr<TLiveRecording>>();
  const auto open = [opened, path, name, signals = std::move(signals), motors = MotorNames()]() -> std::uint64_t {
    *opened = OpenNew(path, name, signals, motors);
    return 0;
  };
  const auto begin = [this, opened, name, limitMs] {
    FName.clear();
    if (!*opened) return;
    FSampler = std::make_shared<TSampler>(FController, std::move(*opened), limitMs);
    FName = name;
  };
  OnDisk(open, begin, std::move(done));
}

void TRecordings::Finish(TDiskDone done) {
  FFinishing = true;
  FSampler->Cease();
  const auto end = [this] {
    FSampler.reset();
    FName.clear();
    FFinishing = false;
  };
  OnDisk([sampler = FSampler] { return sampler->Finish(); }, end, std::move(done));
}

void TRecordings::Stop(const std::string& name, TDiskDone done) {
  if (!FSampler || FFinishing || FName != name)
    throw EProblem(pbRefused, Format(Tr("the recording %s is not being made"), name.c_str()));
  Finish(std::move(done));
}

void TRecordings::Delete(const std::string& name, TDiskDone done) {
  const std::filesystem::path path = PathOf(FFolder, name).OrThrow(pbRefused);
  if (FName == name) RefuseWhileMaking();
  const auto remove = [path, name]() -> std::uint64_t {
    Remove(path, name);
    return 0;
  };
  OnDisk(
      remove, [] {}, std::move(done));
}

void TRecordings::Round() {
  if (!FSampler || FFinishing || !FSampler->Over()) return;
  Finish([](std::uint64_t, const std::exception_ptr& failed) {
    if (failed) LogFailed(failed);
  });
}

TResult<nlohmann::ordered_json> TRecordings::Read(const std::filesystem::path& folder, const std::string& name,
                                                  const TRecordingPart& part) {
  const auto path = ReadableIn(folder, name);
  if (!path) return path.Problem();
  const auto wanted =
      part.Signals.empty() ? std::vector<TMonitorSignalKey>() : ParseSignals(part.Signals).OrThrow(pbRequest);

  TSpan span;
  const TMonitorLoadReport report = ReadFrames(path->string(), [&](const TMonitorDataFrame& frame, std::int64_t start) {
    if (frame.Count() == 0) return;
    span.First = std::min(span.First, start);
    span.Last = std::max(span.Last, start + static_cast<std::int64_t>(frame.Count() - 1) * frame.TimeInterval);
  });
  const std::int64_t from = std::max(part.FromMs, std::min(span.First, span.Last));
  const std::int64_t to = std::min(part.ToMs, span.Last);
  const auto points = static_cast<std::int64_t>(part.Points);
  const std::int64_t width = std::max<std::int64_t>(1, (to - from + points) / points);

  std::map<TMonitorSignalKey, TThinned> thinned;
  ReadFrames(path->string(), [&](const TMonitorDataFrame& frame, std::int64_t start) {
    const TMonitorSignalKey key = KeyOf(frame);
    if (!wanted.empty() && std::ranges::find(wanted, key) == wanted.end()) return;
    TThinned& signal = thinned.try_emplace(key, from, width).first->second;
    for (std::size_t i = 0; i < frame.Count(); ++i) {
      const std::int64_t ms = start + static_cast<std::int64_t>(i) * frame.TimeInterval;
      if (ms >= from && ms <= to) signal.Add(ms, frame.GetValue(i));
    }
  });
  auto signals = nlohmann::ordered_json::array();
  for (auto& [key, values] : thinned) {
    const TMonitorSignal* const row = FindMonitorSignal(key.MainType, key.SubType);
    nlohmann::ordered_json json{
        {"name", SignalName(key)}, {"caption", SignalCaption(key, report.Motors)}, {"unit", row ? row->Unit : ""}};
    json.update(values.Take());
    signals.push_back(std::move(json));
  }
  return nlohmann::ordered_json{{"name", name},
                                {"bytes", std::filesystem::file_size(*path)},
                                {"everyMs", width},
                                {"signals", std::move(signals)}};
}

TResult<std::string> TRecordings::File(const std::filesystem::path& folder, const std::string& name) {
  const auto path = ReadableIn(folder, name);
  if (!path) return path.Problem();
  return ReadFile(*path).OrThrow(pbUnusable);
}

}  // namespace ixocontroller
