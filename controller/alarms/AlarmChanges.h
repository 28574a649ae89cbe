// What becomes of the alarms of a store, also while another process writes it, or makes it again. One thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/alarms/store/AlarmHistory.h"

namespace ixocontroller {
using namespace ixocamglue;

class TAlarmChanges {
 public:
  // Throws ESqlite where there is no such file, or it is no alarm store.
  explicit TAlarmChanges(std::filesystem::path file);

  // The rows that are new since the last call, or in another state; at first the active ones. None that are suppressed.
  // Nothing while a writer holds the file: the next call tells it.
  [[nodiscard]] std::vector<TAlarmRow> Next();

 private:
  [[nodiscard]] std::vector<TAlarmRow> Read();

  const std::filesystem::path FFile;
  std::optional<TAlarmHistory> FHistory;
  std::map<std::int64_t, std::string> FKnown;  // the state of each row that was told or is old
  std::int64_t FVersion = -1;
  bool FFirst = true;
};

}  // namespace ixocontroller
