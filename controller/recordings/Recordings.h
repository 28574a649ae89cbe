// The recordings of a controller that stays up: monitor files in one folder, known by their names, and the one that is
// being made. Interface thread; in real time a thread of its own samples the machine, in virtual time a timer of the
// clock.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
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

  // The controller outlives it. The folder is made with the first recording.
  TRecordings(TController& controller, std::filesystem::path folder);
  ~TRecordings();  // what is being made is finished
  TRecordings(const TRecordings&) = delete;
  TRecordings& operator=(const TRecordings&) = delete;

  struct TNow {
    std::string Name;
    std::size_t Signals = 0;
    std::uint64_t LimitMs = 0;
    std::uint64_t Ms = 0;  // so far
  };
  [[nodiscard]] std::optional<TNow> Now() const;           // none is being made
  [[nodiscard]] std::vector<TRecordingInfo> List() const;  // by name
  // Records for so long, or until it is stopped. Refused for a name that is no name or is there already, and while
  // another one is being made. Throws EProblem where the file cannot be written.
  TResult<> Start(const std::string& name, std::vector<TMonitorSignalKey> signals, std::uint64_t limitMs);
  // Its samples. Refused where it is not being made. Throws EProblem where the file could not be written.
  TResult<std::uint64_t> Stop(const std::string& name);
  // Refused while it is being made, and for one that is not there.
  TResult<> Delete(const std::string& name);
  // Of the recording in the folder, the signals over time, each in at most so many points: of the samples that a point
  // stands for, the lowest and the highest. Throws EProblem for a file that cannot be read. Any thread; waits for the
  // disk.
  [[nodiscard]] static TResult<nlohmann::ordered_json> Read(const std::filesystem::path& folder,
                                                            const std::string& name, const TRecordingPart& part);
  // The whole file. Likewise.
  [[nodiscard]] static TResult<std::string> File(const std::filesystem::path& folder, const std::string& name);
  // Ends the one whose time is over; every few ms.
  void Round();

 private:
  class TSampler;

  [[nodiscard]] bool Makes(const std::string& name) const;
  std::uint64_t Finish();

  TController& FController;
  const std::filesystem::path FFolder;
  std::string FName;
  std::unique_ptr<TSampler> FSampler;  // null: none is being made
};

}  // namespace ixocontroller
