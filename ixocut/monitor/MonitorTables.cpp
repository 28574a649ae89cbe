#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include <nlohmann/json.hpp>

#include "controller/recordings/Recording.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/CommandLine.h"
#include "ixocut/OutputFile.h"
#include "ixocut/Table.h"
#include "ixocut/monitor/MonitorCommands.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr const char* kTimeColumn = "time (ms)";  // what a table begins with

constexpr const char* kAlignedBy[] = {"", TrMark("0 ms is the first beam of each run"),
                                      TrMark("0 ms is the first procedure's start of each run"),
                                      TrMark("0 ms is the first sample of each run")};

struct TDifference {
  std::uint64_t Samples = 0;
  double Largest = 0.0;  // infinite where only one of the two is a number
  std::int64_t AtMs = 0;
  double A = 0.0;
  double B = 0.0;
};

double Distance(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0.0;
  const double distance = std::abs(a - b);
  return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
}

TDifference Compare(const TSeries& a, const TSeries& b) {
  TDifference out;
  std::size_t j = 0;
  for (std::size_t i = 0; i < a.Ms.size(); ++i) {
    const std::int64_t ms = a.Ms[i];
    if (b.Ms.empty() || ms < b.Ms.front()) continue;
    if (ms > b.Ms.back()) break;
    while (j + 1 < b.Ms.size() && b.Ms[j + 1] <= ms) ++j;
    ++out.Samples;
    const double distance = Distance(a.Values[i], b.Values[j]);
    if (distance <= out.Largest) continue;
    out.Largest = distance;
    out.AtMs = ms;
    out.A = a.Values[i];
    out.B = b.Values[j];
  }
  return out;
}

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

void RefuseOwnSource(const std::string& file, const std::string& target) {
  std::error_code absent;
  if (std::filesystem::equivalent(file, target, absent))
    throw EProblem(pbRequest, {.What = Tr("is the file that is read"),
                               .Where = "--out " + target,
                               .Remedy = Tr("name another one; nothing was written")});
}

void CheckTarget(const std::string& file, const std::string& target) {
  RefuseOwnSource(file, target);
  CheckMonitorTarget(target);
}

}  // namespace

void CheckMonitorTarget(const std::string& target) {
  CheckOutputFile("--out", target, [](std::string_view head) {
    const std::string_view text = WithoutMark(head);
    const std::string_view first = text.substr(0, text.find_first_of("\r\n"));
    return first.starts_with(kTimeColumn) || first.find(SFileVersion) != std::string_view::npos;
  });
}

int DiffMonitorFiles(const std::string& a, const std::string& b, const std::string& align, TConsole& console) {
  TRecording left = LoadRecording(a, TDetail::Whole);
  TRecording right = LoadRecording(b, TDetail::Whole);
  const auto asked = static_cast<TAlignment>(std::ranges::find(kAlignments, align) - std::begin(kAlignments));
  const auto used = static_cast<std::size_t>(Align(left, right, asked));
  bool differ = false;
  std::uint64_t compared = 0;
  auto signals = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows{
      {Tr("signal"), Tr("compared"), Tr("largest"), Tr("at ms"), "A", "B", Tr("caption")}};
  const auto onlyIn = [&](const char* side, const char* text, const TMonitorSignalKey& key, const TSeries& series) {
    rows.push_back({SignalName(key), "0", "", "", "", "", Format(text, series.Ms.size())});
    signals.push_back({{"name", SignalName(key)}, {"onlyIn", side}, {"samples", series.Ms.size()}});
    differ = true;
  };
  for (const auto& [key, series] : left.Series) {
    const auto other = right.Series.find(key);
    if (other == right.Series.end()) {
      onlyIn("A", Tr("only in A (%zu samples)"), key, series);
      continue;
    }
    const TDifference d = Compare(series, other->second);
    compared += d.Samples;
    const std::size_t countA = series.Ms.size(), countB = other->second.Ms.size();
    rows.push_back({SignalName(key), std::to_string(d.Samples), Format("%.8g", d.Largest), std::to_string(d.AtMs),
                    Format("%.8g", d.A), Format("%.8g", d.B),
                    SignalCaption(key, left.Report.Motors) +
                        (countA == countB ? "" : Format(Tr("; %zu samples in A, %zu in B"), countA, countB))});
    signals.push_back({{"name", SignalName(key)},
                       {"compared", d.Samples},
                       {"largest", d.Largest},
                       {"atMs", d.AtMs},
                       {"a", d.A},
                       {"b", d.B},
                       {"samplesA", countA},
                       {"samplesB", countB}});
    differ = differ || d.Largest > 0.0 || countA != countB || (d.Samples == 0 && countA > 0);
  }
  for (const auto& [key, series] : right.Series)
    if (!left.Series.contains(key)) onlyIn("B", Tr("only in B (%zu samples)"), key, series);
  std::optional<TProblem> problem;
  if (compared == 0)
    problem = {.What = Tr("nothing was compared: the runs have no signal with samples at the same time")};
  else if (differ)
    problem = {.What = Tr("the runs differ")};
  console.Say(Tr(kAlignedBy[used]));
  for (const std::string& line : DrawTable(rows)) console.Say(line);
  console.Say(problem ? problem->What : Tr("no difference"));
  console.Print("monitor diff", {{"alignedBy", kAlignments[used]}, {"signals", std::move(signals)}}, problem);
  return problem ? kExitOtherwise : kExitSuccess;
}

int ConvertMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckTarget(file, target);
  const TRecording recording = LoadRecording(file, TDetail::Whole);
  TMonitorFileSink sink(target);
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
  std::uint64_t rows = 0;
  for (;;) {
    sink.Write(row += '\n');
    std::int64_t ms = std::numeric_limits<std::int64_t>::max();
    for (const TColumn& column : columns)
      if (column.Next < column.Series.Ms.size()) ms = std::min(ms, column.Series.Ms[column.Next]);
    if (ms == std::numeric_limits<std::int64_t>::max()) break;
    row = std::to_string(ms);
    for (TColumn& column : columns) {
      row += ',';
      if (column.Next == column.Series.Ms.size() || column.Series.Ms[column.Next] != ms) continue;
      AddCell(row, column.Series.Values[column.Next++]);
    }
    ++rows;
  }
  sink.Commit();
  console.Say(
      Format(Tr("%s: %llu rows, %zu signals"), target.c_str(), static_cast<unsigned long long>(rows), columns.size()));
  console.Print("monitor convert", {{"file", target}, {"rows", rows}, {"signals", columns.size()}});
  return kExitSuccess;
}

int RecoverMonitorFile(const std::string& file, const std::string& target, TConsole& console) {
  CheckTarget(file, target);
  std::ifstream in(file, std::ios::binary);
  const auto fail = [&](const char* why) { throw EProblem(pbUnusable, {why, file, "", ""}); };
  if (!in || in.peek() == std::ifstream::traits_type::eof())
    fail(in.bad() || !in.eof() ? Tr("cannot be read") : Tr("is empty"));

  // Everything but what stands behind the latest line end is copied; that part waits.
  TMonitorFileSink sink(target);
  std::string waiting;
  std::uint64_t copied = 0;
  std::string chunk(256 * 1024, '\0');
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
    copied += waiting.size() + end + 1;
    waiting = bytes.substr(end + 1);
  }
  if (in.bad()) fail(Tr("cannot be read"));
  if (copied == 0) fail(Tr("holds no whole line: there is nothing to recover"));
  sink.Commit();
  console.Say(target + ": " +
              (waiting.empty()
                   ? Tr("the last line is whole, nothing was dropped")
                   : Format(Tr("the last line was cut off and is dropped: %zu bytes: \"%s\""), waiting.size(),
                            (waiting.substr(0, 60) + (waiting.size() > 60 ? "..." : "")).c_str())));
  console.Print("monitor recover", {{"file", target}, {"copiedBytes", copied}, {"droppedBytes", waiting.size()}});
  return kExitSuccess;
}

}  // namespace ixocut
