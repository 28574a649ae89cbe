// Reads a monitor file frame by frame, in one pass and a small buffer: a recording need not fit into memory.
//
// Lines end in "\n", "\r\n" or "\r"; a byte order mark is passed over. Bad content never stops the reading: a data line
// with fewer than 11 fields is skipped, a field that is no number counts as zero, and the report says where. One
// thread. What fails is said by Open, and in the report; nothing throws.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/monitor/Usystemmonitordef.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

enum class TMonitorNoteKind : std::uint8_t { mnSkippedLine, mnBadField, mnClampedCount, mnFewerValues, mnMoreFields };
using enum TMonitorNoteKind;

struct TMonitorNote {
  TMonitorNoteKind Kind = mnSkippedLine;
  std::uint64_t Line = 0;   // from 1
  std::uint32_t Field = 0;  // from 1; 0 for the line as a whole
  std::string Text;         // the field or the line, shortened
};

// What a file was found to hold.
struct TMonitorLoadReport {
  static constexpr std::size_t kMaxNotes = 1000;

  std::string FileName;
  std::optional<TProblem> Problem;  // why the file could not be read
  std::string Version;              // the text behind "Version" in the head line; empty without one
  std::vector<std::string> Motors;  // the file's names, in axis order
  std::uint64_t Bytes = 0;
  std::uint64_t Lines = 0;
  std::uint64_t Frames = 0;
  std::uint64_t SkippedLines = 0;   // data lines with fewer than 11 fields
  std::uint64_t BadFields = 0;      // no number: counted as zero
  std::uint64_t ClampedCounts = 0;  // frames that announce more than 32 values
  std::uint64_t FewerValues = 0;    // lines that hold fewer values than they announce; the others are zero
  std::uint64_t MoreFields = 0;     // lines with fields behind their last value
  std::uint64_t CutLines = 0;       // lines of which only the first 64 MiB were looked at
  bool OpenEnd = false;             // the last line has no line end: it may have been cut off
  std::vector<TMonitorNote> Notes;  // the first kMaxNotes, in the file's order

  [[nodiscard]] bool Clean() const {
    return !Problem && !OpenEnd && SkippedLines + BadFields + ClampedCounts + FewerValues + MoreFields + CutLines == 0;
  }
};

class TMonitorReader {
 public:
  TMonitorReader() = default;
  ~TMonitorReader();
  TMonitorReader(const TMonitorReader&) = delete;
  TMonitorReader& operator=(const TMonitorReader&) = delete;

  // Reads the lines in front of the data. Once.
  TResult<void> Open(const std::string& fileName);
  [[nodiscard]] bool IsEmpty() const { return FEmpty; }
  // The flags of the head line: what its first field "Version" is followed by.
  [[nodiscard]] bool Is1P0() const { return FReport.Version == SProvider_Ver1P0; }
  [[nodiscard]] bool Is1P2() const { return FReport.Version == SProvider_Version; }

  // The next data line's frame, whatever the version. False at the end, and when reading failed (Report().Problem).
  // Allocates nothing for a line as the writer makes it.
  [[nodiscard]] bool Next(TMonitorDataFrame& frame);

  // Frames and lines so far.
  [[nodiscard]] const TMonitorLoadReport& Report() const { return FReport; }
  [[nodiscard]] std::uint64_t Line() const { return FReport.Lines; }

 private:
  TProblem Failed(const char* what, int error);
  [[nodiscard]] bool NextLine(std::string_view& line);  // valid until the next call
  [[nodiscard]] bool Refill();
  [[nodiscard]] bool ReadMore();
  void DropRestOfLine();
  void FindWholeLines(std::size_t from);
  void LoadMonitorHead();
  void ParseMonitorHead(std::string_view line);
  void ParseMonitorMotor(std::string_view line);
  [[nodiscard]] bool LoadMonitorData1P2_Item(std::string_view line, TMonitorDataFrame& frame);
  void Note(TMonitorNoteKind kind, std::uint32_t field, std::string_view text);

  TMonitorLoadReport FReport;
  int FFile = -1;
  bool FEmpty = true;
  bool FAtEnd = false;     // the file's, not the buffer's
  bool FDropping = false;  // the rest of a line that is too long
  bool FDropLf = false;    // behind such a line's "\r" at the buffer's end
  std::vector<char> FBuffer;
  std::size_t FPos = 0;    // the next line
  std::size_t FWhole = 0;  // the end of the last whole line
  std::size_t FEnd = 0;    // of the data
};

}  // namespace ixocamglue
