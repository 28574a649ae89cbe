#include "ixocamglue/monitor/Umonitorwriter.h"

#include "ixocamglue/monitor/Umonitornumbers.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
constexpr char kSeparator = ',';

// A name as one field's line allows it.
std::string OneLine(std::string_view name) {
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\r' && i + 1 < name.size() && name[i + 1] == '\n') continue;
    out += name[i] == '\n' || name[i] == '\r' ? ' ' : name[i];
  }
  return out;
}

}  // namespace

constexpr std::size_t kLongestFrameLine =
    kHeaderFields * (kLongestInt + 1) + kFrameValues * (kLongestFloat + 1) + kPutSlack;
static_assert(kLongestFrameLine < kBufferSize / 8);
const std::size_t kLongestDataLine = kLongestFrameLine;

char* PutDataLine(char* out, const TMonitorDataFrame& frame) {
  const std::size_t count = frame.Count();
  const auto put = [&out](std::uint32_t value) {
    out = PutInt(out, static_cast<std::int32_t>(value));
    *out++ = kSeparator;
  };
  put(frame.MainType);
  put(frame.SubType);
  put(frame.Param1);
  put(frame.Param2);
  put(frame.SampleTime);
  put(frame.TimeInterval);
  put(static_cast<std::uint32_t>(count));
  put(frame.Version);
  put(frame.ShareDw);
  put(frame.Reserve1);
  put(frame.Reserve2);
  if (frame.IsInteger()) {
    for (std::size_t i = 0; i < count; ++i) put(frame.Data[i]);
  } else {
    for (std::size_t i = 0; i < count; ++i) {
      out = PutFloat(out, frame.GetFloat(i));
      *out++ = kSeparator;
    }
  }
  return out - 1;
}

TMonitorWriter::TMonitorWriter(IMonitorSink& sink, std::span<const std::string> motors)
    : FSink(sink), FBuffer(new char[kBufferSize]), FEnd(FBuffer.get()) {
  SaveMonitorHead();
  SaveMonitorConfig(motors);
  PutLine(std::string(SMonitorData));
  SaveMonitorData_Head();
}

void TMonitorWriter::SaveMonitorHead() {
  std::string line;
  AddString(line, SMonitorHead, false);
  AddString(line, SProvider, true);
  AddString(line, SProvider_Name, true);
  AddString(line, SFileVersion, true);
  AddString(line, SProvider_Version, true);
  PutLine(std::move(line));
}

void TMonitorWriter::SaveMonitorConfig(std::span<const std::string> motors) {
  std::string line;
  AddString(line, SMonitorConfig, false);
  AddString(line, SMonitorConfig_Motor, true);
  for (const std::string& motor : motors) AddString(line, OneLine(motor), true);
  PutLine(std::move(line));
}

void TMonitorWriter::SaveMonitorData_Head() {
  std::string line;
  for (const std::string_view column : kMonitorColumns) AddString(line, column, !line.empty());
  PutLine(std::move(line));
}

void TMonitorWriter::PutLine(std::string line) {
  line += '\n';
  Finish();
  FSink.Write(line);
}

void TMonitorWriter::Write(const TMonitorDataFrame& frame) {
  if (!IsSaved(frame)) return;
  if (FBuffer.get() + kBufferSize - FEnd < static_cast<std::ptrdiff_t>(kLongestFrameLine)) Finish();
  FEnd = PutDataLine(FEnd, frame);
  *FEnd++ = '\n';
}

void TMonitorWriter::Finish() {
  const std::string_view bytes(FBuffer.get(), static_cast<std::size_t>(FEnd - FBuffer.get()));
  FEnd = FBuffer.get();
  if (!bytes.empty()) FSink.Write(bytes);
}

}  // namespace ixocamglue
