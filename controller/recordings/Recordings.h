// The recordings of a controller that stays up: monitor files in one folder, known by their names, and the one that is
// being made. Interface thread, which waits for no disk; in real time a thread of its own samples the machine, in
// virtual time a timer of the clock.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/process/DiskWork.h"
#include "controller/recordings/LiveRecording.h"

namespace ixocontroller {

struct TRecordingInfo {
  std::string Name;
  std::uint64_t Bytes = 0;
  std::int64_t UnixMs = 0;  // of the last change
};

// Where a recording is read from its file, at most so much of it.
struct TRecordingPart {
  std::string Signals;  // as ParseSignals takes them; empty: all
  std::int64_t FromMs = 0;
  std::int64_t ToMs = INT64_MAX;
  std::size_t Points = 1000;  // of each signal
};

class TRecordings {
 public:
  static constexpr std::size_t kMostFiles = 200;
  static constexpr std::uint64_t kUsualMs = 60'000;
  static constexpr std::uint64_t kLongestMs = 600'000;
  static constexpr std::uint64_t kMostValues = 4'000'000;  // of all signals together
  static constexpr std::uint64_t kMostBytes = 48U << 20U;  // of a file that is read here

  // The controller outlives it. The folder is made with the first recording. `onDisk` may call back when this is no
  // more.
  TRecordings(TController& controller, std::filesystem::path folder, TDiskWork onDisk);
  ~TRecordings();  // what is being made is finished
  TRecordings(const TRecordings&) = delete;
  TRecordings& operator=(const TRecordings&) = delete;

  struct TNow {
    std::string Name;
    std::size_t Signals = 0;
    std::uint64_t LimitMs = 0;
    std::uint64_t Ms = 0;  // so far
  };
  [[nodiscard]] std::optional<TNow> Now() const;  // none is being made
  // Each throws EProblem for what is refused at once, else `done` is told; in the language in which it was asked.
  // Records for so long, or until it is stopped. Refused for a name that is no name or is there already, and while
  // another one is being made.
  void Start(const std::string& name, std::vector<TMonitorSignalKey> signals, std::uint64_t limitMs, TDiskDone done);
  // Told how many samples it has. Refused where it is not being made.
  void Stop(const std::string& name, TDiskDone done);
  // Refused while it is being made, and for one that is not there.
  void Delete(const std::string& name, TDiskDone done);
  // Of the folder, by name. Any thread; waits for the disk. Empty where there is no folder, or it cannot be read.
  [[nodiscard]] static std::vector<TRecordingInfo> List(const std::filesystem::path& folder);
  // Of the recording in the folder, the signals over time, each in at most so many points: of the samples that a point
  // stands for, the lowest and the highest. Throws EProblem for a file that cannot be read. Any thread; waits for the
  // disk.
  [[nodiscard]] static TResult<nlohmann::ordered_json> Read(const std::filesystem::path& folder,
                                                            const std::string& name, const TRecordingPart& part);
  // The whole file. Likewise.
  [[nodiscard]] static TResult<std::string> File(const std::filesystem::path& folder, const std::string& name);
  // Ends the one whose time is over; every few ms. What it cannot finish is logged.
  void Round();

 private:
  class TSampler;

  // `work` answers the number that `done` is told, or throws; `then` comes before.
  void OnDisk(std::function<std::uint64_t()> work, std::function<void()> then, TDiskDone done);
  void Finish(TDiskDone done);
  void RefuseWhileMaking() const;

  TController& FController;
  const std::filesystem::path FFolder;
  const TDiskWork FOnDisk;
  const std::shared_ptr<const bool> FHere = std::make_shared<const bool>(true);  // what is on its way looks for it
  std::string FName;                                                             // empty: none is being made
  std::shared_ptr<TSampler> FSampler;                                            // null: its file is not open yet
  bool FFinishing = false;                                                       // it samples no more
};

}  // namespace ixocontroller
