#include "controller/recordings/Recordings.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <map>
#include <utility>

#include "controller/StateFolder.h"
#include "controller/Supervisor.h"
#include "controller/recordings/Recording.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kEnding = ".csv";
constexpr std::uint32_t kSampleMs = 1;

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
  TSampler(TController& controller, const std::filesystem::path& file, std::vector<TMonitorSignalKey> signals,
           std::uint64_t limitMs)
      : FController(controller),
        FRecording(file, std::move(signals)),
        FStartMs(Clock().MonotonicMs()),
        FEndMs(FStartMs + limitMs) {
    const auto sample = [this](std::uint64_t nowMs) { Sample(nowMs); };
    if (TVirtualClock* const clock = controller.VirtualClock())
      FTimer = clock->Every(kSampleMs, sample);
    else
      FThread.emplace("ixo-record", kSampleMs, sample);
  }
  ~TSampler() { End(); }
  TSampler(const TSampler&) = delete;
  TSampler& operator=(const TSampler&) = delete;

  [[nodiscard]] bool Over() const { return FOver.load(std::memory_order_acquire); }
  [[nodiscard]] std::uint64_t LimitMs() const { return FEndMs - FStartMs; }
  [[nodiscard]] std::uint64_t Ms() const { return std::min(Clock().MonotonicMs() - FStartMs, LimitMs()); }
  [[nodiscard]] std::size_t Signals() const { return FRecording.Signals(); }

  std::uint64_t Finish() {
    End();
    FRecording.Finish();
    return FRecording.Samples();
  }

 private:
  void Sample(std::uint64_t nowMs) {
    if (Over()) return;
    FRecording.Sample(std::min(nowMs, FEndMs), FController.Machine().Snapshot());
    if (nowMs >= FEndMs || FRecording.Failed()) FOver.store(true, std::memory_order_release);
  }
  void End() {
    if (FTimer) FController.VirtualClock()->Remove(*std::exchange(FTimer, std::nullopt));
    FThread.reset();
  }

  TController& FController;
  TLiveRecording FRecording;  // the sampler's until End
  const std::uint64_t FStartMs, FEndMs;
  std::atomic<bool> FOver{false};
  std::optional<std::size_t> FTimer;
  std::optional<TRoundThread> FThread;
};

// --- TRecordings ---

TRecordings::TRecordings(TController& controller, std::filesystem::path folder)
    : FController(controller), FFolder(std::move(folder)) {}

TRecordings::~TRecordings() {
  if (FSampler) try {
      Finish();
    } catch (const EProblem& problem) {
      LogMsg(lkError, 0, problem.Problem.Text(), "TPHost");
    } catch (...) {
      LogFault("recording", std::current_exception());
    }
}

bool TRecordings::Makes(const std::string& name) const { return FSampler && FName == name; }

std::optional<TRecordings::TNow> TRecordings::Now() const {
  if (!FSampler) return std::nullopt;
  return TNow{FName, FSampler->Signals(), FSampler->LimitMs(), FSampler->Ms()};
}

std::vector<TRecordingInfo> TRecordings::List() const {
  std::vector<TRecordingInfo> list;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(FFolder, error)) {
    const std::string name = entry.path().stem().string();
    std::error_code none;
    if (entry.path().extension() != kEnding || !CheckStoredName(name) || !entry.is_regular_file(none)) continue;
    const auto time = entry.last_write_time(none);
    if (!none) list.push_back({name, entry.file_size(none), UnixMsOf(time)});
  }
  std::ranges::sort(list, {}, &TRecordingInfo::Name);
  return list;
}

TResult<> TRecordings::Start(const std::string& name, std::vector<TMonitorSignalKey> signals, std::uint64_t limitMs) {
  const auto path = PathOf(FFolder, name);
  if (!path) return path.Problem();
  if (FSampler) return TProblem{.What = Format(Tr("the recording %s is being made"), FName.c_str())};
  std::error_code error;
  if (std::filesystem::exists(*path, error))
    return TProblem{.What = Format(Tr("there is a recording %s already"), name.c_str()),
                    .Remedy = Tr("delete it, or take another name")};
  if (List().size() >= kMostFiles)
    return TProblem{.What = Format(Tr("there are %d recordings, and no more are kept"), static_cast<int>(kMostFiles)),
                    .Remedy = Tr("delete those that are not needed any more")};
  if (signals.size() * limitMs > kMostValues)
    return TProblem{.What = Format(Tr("%zu signals over %llu s are more than a recording holds"), signals.size(),
                                   static_cast<unsigned long long>(limitMs / 1000)),
                    .Remedy = Tr("record fewer signals, or for a shorter time")};
  std::filesystem::create_directories(FFolder, error);
  FSampler = std::make_unique<TSampler>(FController, *path, std::move(signals), limitMs);
  FName = name;
  return {};
}

std::uint64_t TRecordings::Finish() {
  const auto sampler = std::move(FSampler);
  return sampler->Finish();
}

TResult<std::uint64_t> TRecordings::Stop(const std::string& name) {
  if (!Makes(name)) return TProblem{.What = Format(Tr("the recording %s is not being made"), name.c_str())};
  return Finish();
}

TResult<> TRecordings::Delete(const std::string& name) {
  const auto path = PathOf(FFolder, name);
  if (!path) return path.Problem();
  if (Makes(name)) return TProblem{.What = Format(Tr("the recording %s is being made"), name.c_str())};
  std::error_code error;
  if (std::filesystem::remove(*path, error)) return {};
  if (error) return TProblem{.What = Tr("the file cannot be removed"), .Where = path->string(), .Why = error.message()};
  return TProblem{.What = Format(Tr("there is no recording %s"), name.c_str())};
}

void TRecordings::Round() {
  if (!FSampler || !FSampler->Over()) return;
  try {
    Finish();
  } catch (const EProblem& problem) {
    LogMsg(lkError, 0, problem.Problem.Text(), "TPHost");
  }
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
