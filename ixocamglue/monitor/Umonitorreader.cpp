#include "ixocamglue/monitor/Umonitorreader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "ixocamglue/monitor/Umonitordataline.h"
#include "ixocamglue/monitor/Umonitornumbers.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kFirstBuffer = std::size_t{256} * 1024;
// What stands in a line behind that many bytes is not looked at: a damaged file must not take the memory.
constexpr std::size_t kLongestLine = std::size_t{64} * 1024 * 1024;
constexpr std::size_t kShownText = 60;
constexpr std::uint32_t kFieldDataCount = 7;

bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }

// Cuts the first field off the rest of a line. False when there is none left.
bool TakeField(std::string_view& rest, bool& more, std::string_view& field) {
  if (!more) return false;
  const std::size_t end = rest.find(SSeparatorChar);
  more = end != std::string_view::npos;
  field = rest.substr(0, end);
  rest.remove_prefix(more ? end + 1 : rest.size());
  return true;
}

}  // namespace

TMonitorReader::~TMonitorReader() {
  if (FFile >= 0) ::close(FFile);
}

TProblem TMonitorReader::Failed(const char* what, int error) {
  FReport.Problem = {what, FReport.FileName, SystemErrorText(error), ""};
  return *FReport.Problem;
}

TResult<void> TMonitorReader::Open(const std::string& fileName) {
  FReport.FileName = fileName;
  FFile = ::open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
  if (FFile < 0) return Failed(Tr("cannot be opened"), errno);
  FBuffer.resize(kFirstBuffer + kParseSlack);
  LoadMonitorHead();
  FEmpty = FReport.Bytes == 0;
  return FReport.Problem ? TResult<void>(*FReport.Problem) : TResult<void>();
}

bool TMonitorReader::ReadMore() {
  const std::size_t room = FBuffer.size() - kParseSlack - FEnd;
  ssize_t count = 0;
  do count = ::read(FFile, FBuffer.data() + FEnd, room);
  while (count < 0 && errno == EINTR);
  if (count < 0) (void)Failed(Tr("cannot be read"), errno);
  if (count <= 0) {
    FAtEnd = true;
    return false;
  }
  FEnd += static_cast<std::size_t>(count);
  FReport.Bytes += static_cast<std::uint64_t>(count);
  return true;
}

void TMonitorReader::DropRestOfLine() {
  while (FDropping && ReadMore()) {
    const auto begin = FBuffer.begin();
    const auto end = begin + static_cast<std::ptrdiff_t>(FEnd);
    const auto found = std::find_if(begin, end, IsLineEnd);
    if (found == end) {
      FEnd = 0;
      continue;
    }
    FDropping = false;
    FDropLf = *found == '\r';
    FEnd = static_cast<std::size_t>(std::move(found + 1, end, begin) - begin);
  }
}

// Sets FWhole when the bytes from `from` on hold a line end. A "\r" in front of bytes that are still to come may be
// half of one.
void TMonitorReader::FindWholeLines(std::size_t from) {
  for (std::size_t i = FEnd; i > from; --i) {
    if (FBuffer[i - 1] == '\n' || (FBuffer[i - 1] == '\r' && i < FEnd)) {
      FWhole = i;
      return;
    }
  }
}

// Makes at least one whole line available. False at the end of the file.
bool TMonitorReader::Refill() {
  std::memmove(FBuffer.data(), FBuffer.data() + FPos, FEnd - FPos);
  FEnd -= FPos;
  FPos = FWhole = 0;
  DropRestOfLine();
  std::size_t from = 0;
  while (!FAtEnd) {
    if (FEnd == FBuffer.size() - kParseSlack) {
      if (FEnd >= kLongestLine) {
        FBuffer[FEnd++] = '\n';
        FWhole = FEnd;
        FDropping = true;
        ++FReport.CutLines;
        return true;
      }
      FBuffer.resize(2 * FEnd + kParseSlack);
    }
    if (!ReadMore()) break;
    if (FDropLf) {
      FDropLf = false;
      if (FBuffer[0] == '\n') std::memmove(FBuffer.data(), FBuffer.data() + 1, --FEnd);
    }
    FindWholeLines(from);
    if (FWhole > 0) return true;
    from = FEnd > 0 ? FEnd - 1 : 0;
  }
  if (FEnd == 0 || FReport.Problem) return false;
  if (!IsLineEnd(FBuffer[FEnd - 1])) {
    FBuffer[FEnd++] = '\n';
    FReport.OpenEnd = true;
  }
  FWhole = FEnd;
  return true;
}

bool TMonitorReader::NextLine(std::string_view& line) {
  if (FPos == FWhole && !Refill()) return false;
  if (FReport.Lines == 0 && std::string_view(FBuffer.data(), FWhole).starts_with(kByteOrderMark))
    FPos = kByteOrderMark.size();
  const char* const begin = FBuffer.data() + FPos;
  const char* const end = std::find_if(begin, static_cast<const char*>(FBuffer.data() + FWhole), IsLineEnd);
  line = std::string_view(begin, static_cast<std::size_t>(end - begin));
  FPos += line.size() + (end[0] == '\r' && end[1] == '\n' ? 2 : 1);
  ++FReport.Lines;
  return true;
}

void TMonitorReader::LoadMonitorHead() {
  std::string_view line;
  if (NextLine(line)) ParseMonitorHead(line);
  if (NextLine(line)) ParseMonitorMotor(line);
  // Kept: the two lines in front of the data are passed over, whatever they hold.
  for (int i = 0; i < 2; ++i)
    if (!NextLine(line)) return;
}

void TMonitorReader::ParseMonitorHead(std::string_view line) {
  bool more = true;
  for (std::string_view field; TakeField(line, more, field);) {
    if (field != SFileVersion) continue;
    if (TakeField(line, more, field)) FReport.Version = field;
    return;
  }
}

void TMonitorReader::ParseMonitorMotor(std::string_view line) {
  bool more = true;
  std::string_view field;
  if (!TakeField(line, more, field) || field != SMonitorConfig) return;
  if (!TakeField(line, more, field) || field != SMonitorConfig_Motor) return;
  while (TakeField(line, more, field)) FReport.Motors.emplace_back(field);
}

bool TMonitorReader::Next(TMonitorDataFrame& frame) {
  for (;;) {
    if (FPos == FWhole && !Refill()) return false;
    if (const char* const next = ParseExactLine(FBuffer.data() + FPos, frame)) [[likely]] {
      FPos = static_cast<std::size_t>(next - FBuffer.data());
      ++FReport.Lines;
      ++FReport.Frames;
      return true;
    }
    std::string_view line;
    if (NextLine(line) && LoadMonitorData1P2_Item(line, frame)) {
      ++FReport.Frames;
      return true;
    }
  }
}

bool TMonitorReader::LoadMonitorData1P2_Item(std::string_view line, TMonitorDataFrame& frame) {
  std::string_view rest = line;
  bool more = true;
  std::string_view header[kHeaderFields];
  for (std::string_view& field : header) {
    if (TakeField(rest, more, field)) continue;
    ++FReport.SkippedLines;
    Note(mnSkippedLine, 0, line);
    return false;
  }

  std::uint32_t number = 0;
  std::string_view text;
  const auto toInt = [&]() -> std::uint32_t {
    const auto value = ParseInt(text);
    if (!value) {
      ++FReport.BadFields;
      Note(mnBadField, number, text);
    }
    return value.value_or(0);
  };
  // Narrow fields keep their low bits.
  const auto store = [&](auto& field) {
    text = header[number++];
    field = static_cast<std::remove_reference_t<decltype(field)>>(toInt());
  };
  frame = {};
  store(frame.MainType);
  store(frame.SubType);
  store(frame.Param1);
  store(frame.Param2);
  store(frame.SampleTime);
  store(frame.TimeInterval);
  store(frame.DataCount);
  store(frame.Version);
  store(frame.ShareDw);
  store(frame.Reserve1);
  store(frame.Reserve2);
  if (frame.DataCount > kFrameValues) {
    ++FReport.ClampedCounts;
    Note(mnClampedCount, kFieldDataCount, header[kFieldDataCount - 1]);
    frame.DataCount = kFrameValues;
  }

  for (std::size_t i = 0; i < frame.Count(); ++i) {
    ++number;
    if (!TakeField(rest, more, text)) {
      ++FReport.FewerValues;
      Note(mnFewerValues, number, {});
      break;
    }
    if (frame.IsInteger()) {
      frame.Data[i] = toInt();
    } else if (const auto value = ParseFloat(text)) {
      frame.SetFloat(i, *value);
    } else {
      ++FReport.BadFields;
      Note(mnBadField, number, text);
    }
  }
  if (more) {
    ++FReport.MoreFields;
    Note(mnMoreFields, number + 1, rest);
  }
  return true;
}

void TMonitorReader::Note(TMonitorNoteKind kind, std::uint32_t field, std::string_view text) {
  if (FReport.Notes.size() < TMonitorLoadReport::kMaxNotes)
    FReport.Notes.push_back({kind, FReport.Lines, field, std::string(text.substr(0, kShownText))});
}

}  // namespace ixocamglue
