// Writes a monitor file frame by frame: a recording need not fit into memory. One thread.
//
// UTF-8 without a mark, "\n" after every line. Byte-identical to TSystemMonitorFile::SaveToFile with the same frames.
// What the sink throws (EProblem) passes through.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/monitor/Usystemmonitordef.h"

namespace ixocamglue {

class TMonitorWriter {
 public:
  // Writes the four lines in front of the data: the head, the configuration with the motors' names, "MonitorData" and
  // the column header. A line break within a name becomes one blank; a comma stays as it is. `sink` is not owned.
  TMonitorWriter(IMonitorSink& sink, std::span<const std::string> motors);

  // A frame that is not to be saved is passed over, see IsSaved.
  void Write(const TMonitorDataFrame& frame);
  // Hands over what is still buffered. Nothing is lost before it only if it is called.
  void Finish();

  // All four throw what the sink throws.

 private:
  void SaveMonitorHead();
  void SaveMonitorConfig(std::span<const std::string> motors);
  void SaveMonitorData_Head();
  void PutLine(std::string line);

  IMonitorSink& FSink;
  std::unique_ptr<char[]> FBuffer;
  char* FEnd = nullptr;  // of what is buffered
};

// Appends a frame's line without its line break at `out`, which has kLongestDataLine characters of room, and returns
// the end.
extern const std::size_t kLongestDataLine;
char* PutDataLine(char* out, const TMonitorDataFrame& frame);

}  // namespace ixocamglue
