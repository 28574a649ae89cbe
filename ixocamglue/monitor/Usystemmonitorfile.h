// Saves a list of monitor frames to a file and loads one. One thread per object.
//
// Loading never throws for the file's content; saving throws EProblem when the file cannot be written.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ixocamglue/monitor/Statusmonitorsys.h"
#include "ixocamglue/monitor/Umonitorreader.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/monitor/Umonitorwriter.h"
#include "ixocamglue/monitor/Usystemmonitordef.h"

namespace ixocamglue {

using TMonitorFrameEvent = std::function<void(std::unique_ptr<TMonitorDataFrame> frame)>;

class TSystemMonitorFile {
 public:
  // The frames to save; neither the list nor what it points to is owned, and both outlive the saving. A null entry is
  // passed over.
  using TFrames = std::span<const TMonitorDataFrame* const>;

  TSystemMonitorFile() = default;
  explicit TSystemMonitorFile(TFrames frames) : FFrames(frames) {}
  void SetFrames(TFrames frames) { FFrames = frames; }

  // Replaces `fileName` as TMonitorFileSink does.
  void SaveToFile(const std::string& fileName) const;
  // The same bytes elsewhere.
  void SaveToSink(IMonitorSink& sink) const;
  // The expanded-data file: a line per saved frame, each caption followed by its value, then the samples.
  void SaveExpandToFile(const std::string& fileName) const;

  // Hands every frame to `onFrame`, in the file's order; an empty `onFrame` only reads. True for an empty file and for
  // one of an unknown version, which hold no frames. False, with one line in the log, for a file that cannot be read
  // (frames read before are handed over); false, with a message to the operator, for a file of version 1.0. What
  // `onFrame` throws comes out.
  bool LoadFromFile(const std::string& fileName, TMonitorFrameEvent onFrame, TMonitorLoadReport* report = nullptr);
  void ResetOpenFlag();
  [[nodiscard]] bool Is1P0() const { return FIs1P0; }
  [[nodiscard]] bool Is1P2() const { return FIs1P2; }

  // The machine's motors; the names of the file that was loaded last are kept apart. Outside the count as
  // TStatusMonitorSys says.
  [[nodiscard]] std::int32_t GetMotorCount() const { return FStatus.GetMotorCount(); }
  // The first High+1, no more than there are; a negative `high` gives none.
  void GetMotorNames(std::vector<std::string>& names, std::int32_t high) const { FStatus.GetMotorNames(names, high); }
  // From 0. At or beyond the count "A" and index+1; negative: empty.
  [[nodiscard]] std::string GetMotorName(std::int32_t index) const { return FStatus.GetMotorName(index); }
  [[nodiscard]] const std::vector<std::string>& FileMotorNames() const { return FFileMotors; }

 private:
  [[nodiscard]] std::vector<std::string> Motors() const;
  void SaveMonitorData_Content(TMonitorWriter& writer) const;
  static void SaveExpandData_Head(std::string& line, const TMonitorDataFrame& frame);
  static void SaveExpandData_List(std::string& line, const TMonitorDataFrame& frame);

  void LoadMonitorData1P2_Content(TMonitorReader& reader) const;
  // Kept: version 1.0 is recognised and refused; these are not reached, and refuse whatever they are given.
  [[nodiscard]] static bool Parse1P0SignalInfo(std::string_view line);
  [[nodiscard]] static bool LoadMonitorData1P0_Item(std::string_view line, TMonitorDataFrame& frame);
  [[nodiscard]] static bool LoadMonitorData1P0_Content(TMonitorReader& reader);

  const TStatusMonitorSys FStatus;
  TFrames FFrames;
  TMonitorFrameEvent FOnFrame;
  std::vector<std::string> FFileMotors;
  std::vector<std::string> F1P0Signals;  // never filled: see the readers of version 1.0
  bool FIs1P0 = false;
  bool FIs1P2 = false;
};

}  // namespace ixocamglue
