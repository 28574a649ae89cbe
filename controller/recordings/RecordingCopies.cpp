#include "controller/recordings/RecordingCopies.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <vector>

#include "ixocamglue/support/Csv.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kChunkBytes = 262'144;

// The shortest text that reads back as the sample.
void AddCell(std::string& row, double value) {
  if (std::isnan(value) || std::isinf(value)) {
    row += std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
    return;
  }
  char text[64];
  const double whole = std::nearbyint(value);
  const auto end = whole == value && std::abs(value) < 1e15
                       ? std::to_chars(text, text + sizeof text, static_cast<std::int64_t>(value))
                       : std::to_chars(text, text + sizeof text, static_cast<float>(value));
  row.append(text, end.ptr);
}

}  // namespace

std::uint64_t WriteTable(const TRecording& recording, IMonitorSink& sink) {
  struct TColumn {
    const TSeries& Series;
    std::size_t Next = 0;
  };
  std::vector<TColumn> columns;
  std::string row = kTimeColumn;
  for (const auto& [key, series] : recording.Series) {
    columns.push_back({series});
    row += "," + CsvField(SignalCaption(key, recording.Report.Motors));
  }
  for (std::uint64_t rows = 0;; ++rows) {
    sink.Write(row += '\n');
    std::int64_t ms = std::numeric_limits<std::int64_t>::max();
    for (const TColumn& column : columns)
      if (column.Next < column.Series.Ms.size()) ms = std::min(ms, column.Series.Ms[column.Next]);
    if (ms == std::numeric_limits<std::int64_t>::max()) return rows;
    row = std::to_string(ms);
    for (TColumn& column : columns) {
      row += ',';
      if (column.Next == column.Series.Ms.size() || column.Series.Ms[column.Next] != ms) continue;
      AddCell(row, column.Series.Values[column.Next++]);
    }
  }
}

TWholeLines CopyWholeLines(const std::string& file, IMonitorSink& sink) {
  std::ifstream in(file, std::ios::binary);
  const auto fail = [&](const char* why) { throw EProblem(pbUnusable, {why, file, "", ""}); };
  if (!in || in.peek() == std::ifstream::traits_type::eof())
    fail(in.bad() || !in.eof() ? Tr("cannot be read") : Tr("is empty"));
  // Everything but what stands behind the latest line end is copied; that part waits.
  TWholeLines lines;
  std::string& waiting = lines.Dropped;
  std::string chunk(kChunkBytes, '\0');
  while (in) {
    in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    const std::string_view bytes(chunk.data(), static_cast<std::size_t>(in.gcount()));
    const std::size_t end = bytes.find_last_of("\r\n");
    if (end == std::string_view::npos) {
      waiting += bytes;
      continue;
    }
    sink.Write(waiting);
    sink.Write(bytes.substr(0, end + 1));
    lines.Copied += waiting.size() + end + 1;
    waiting = bytes.substr(end + 1);
  }
  if (in.bad()) fail(Tr("cannot be read"));
  if (lines.Copied == 0) fail(Tr("holds no whole line: there is nothing to recover"));
  return lines;
}

}  // namespace ixocontroller
