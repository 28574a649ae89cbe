// ixo_bench: the benchmarks, and the table that ./bench/run prints.
//
//   ixo_bench [options of Google Benchmark]   the times as Google Benchmark prints them
//   ixo_bench --list                          the items, one a line
//   ixo_bench --alarm-bytes                   memory per alarm event
//   ixo_bench --day                           a mixed day of procedures: ticks per second, virtual by real time
//   ixo_bench --count ITEM RUNS               runs one item, for callgrind; prints allocations per run
//   ixo_bench --table FILE [options]          times everything and prints the table; FILE has a line "ITEM COUNT" with
//                                             the instructions of one run for each item counted
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/Rows.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue::bench {
namespace {

std::vector<TRow> AllRows() {
  std::vector<TRow> rows;
  for (const auto& topic : {TickRows(), TreeRows(), ShotRows(), LogRows(), ConfigRows(), FilterRows(), DeviceRows(),
                            AlarmRows(), PanelRows(), GasRows()})
    rows.insert(rows.end(), topic.begin(), topic.end());
  return rows;
}

using TFigures = std::map<std::string, double, std::less<>>;  // by item, per run

// Keeps each item's best time: what others run on the machine only ever makes it worse.
class TBestTimes final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double ns = run.GetAdjustedRealTime();
      const auto [best, isNew] = Ns.emplace(run.run_name.function_name, ns);
      if (!isNew) best->second = std::min(best->second, ns);
    }
  }

  TFigures Ns;
};

class TTable {
 public:
  TTable(TFigures ns, TFigures instructions) : FNs(std::move(ns)), FInstructions(std::move(instructions)) {}

  void Print(const std::vector<TRow>& rows) {
    Line("what", "ns", "allocations", "instructions", "peer", "peer ns", "ratio", "target", "reached");
    for (const TRow& row : rows)
      if (row.Name) PrintRow(row);
  }

 private:
  static void Line(const char* what, const std::string& ns, const std::string& allocations,
                   const std::string& instructions, const char* peer, const std::string& peerNs,
                   const std::string& ratio, const std::string& target, const std::string& reached) {
    std::printf("%-28s %12s %12s %13s  %-17s %8s %7s  %-41s %s\n", what, ns.c_str(), allocations.c_str(),
                instructions.c_str(), peer, peerNs.c_str(), ratio.c_str(), target.c_str(), reached.c_str());
  }

  static std::string Number(double value) {
    if (std::isnan(value)) return "-";
    const int decimals = value >= 100 || value == std::floor(value) ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
    return Format("%.*f", decimals, value);
  }

  static double Find(const TFigures& figures, const char* id) {
    const auto it = id ? figures.find(std::string_view(id)) : figures.end();
    return it == figures.end() ? std::nan("") : it->second;
  }

  void PrintRow(const TRow& row) {
    constexpr std::uint64_t kRuns = 50;
    const double ns = Find(FNs, row.Id) / row.Parts;
    const double allocations = static_cast<double>(row.Repeat(kRuns)) / static_cast<double>(kRuns) / row.Parts;
    const double instructions = Find(FInstructions, row.Id) / row.Parts;
    const double peerNs = Find(FNs, row.Peer) / row.Parts;
    const double ratio = ns / peerNs;

    std::string target;
    std::string missed;
    const auto judge = [&](const char* what, double value, double limit) {
      if (limit == kNoLimit) return;
      target += (target.empty() ? "" : ", ") + Number(limit) + " " + what;
      if (std::isnan(value))
        missed += Format(" (%s not measured)", what);
      else if (value > limit)
        missed += Format(" (%s)", what);
    };
    judge("allocations", allocations, row.MaxAllocations);
    judge("instructions", instructions, row.MaxInstructions);
    judge("x peer", ratio, row.MaxRatio);
    const std::string reached = target.empty() ? "" : missed.empty() ? "yes" : "no" + missed;
    Line(row.Name, Number(ns), Number(allocations), Number(instructions), row.PeerName ? row.PeerName : "",
         row.Peer ? Number(peerNs) : "", row.Peer ? Number(ratio) : "", target, reached);
  }

  const TFigures FNs;
  const TFigures FInstructions;
};

void Register(const std::vector<TRow>& rows) {
  for (const TRow& row : rows) {
    auto* const registered = benchmark::RegisterBenchmark(row.Id, row.Time);
    if (row.ManualTime) registered->UseManualTime();
  }
}

int Complain(const std::string& text) {
  std::fprintf(stderr, "ixo_bench: %s\n", text.c_str());
  return 2;
}

int CountOne(const std::vector<TRow>& rows, std::string_view id, std::string_view number) {
  const auto runs = ixocamglue::ParseExactly<std::uint64_t>(number).value_or(0);
  if (runs == 0) return Complain("--count ITEM RUNS: RUNS is a number from 1, not \"" + std::string(number) + "\"");
  const auto row = std::ranges::find(rows, id, [](const TRow& r) { return std::string_view(r.Id); });
  if (row == rows.end()) return Complain("no item is called \"" + std::string(id) + "\"; --list names them");
  std::printf("%g\n", static_cast<double>(row->Repeat(runs)) / static_cast<double>(runs));
  return 0;
}

int PrintTable(const std::vector<TRow>& rows, const char* file, std::vector<std::string> options) {
  TFigures instructions;
  std::ifstream in(file);
  if (!in) return Complain(std::string(file) + " cannot be read");
  for (std::string id; in >> id;)
    if (double count = 0; in >> count) instructions[id] = count;
  if (!in.eof()) return Complain(std::string(file) + ": a line is not \"ITEM COUNT\"");

  options.insert(options.begin(), {"ixo_bench", "--benchmark_repetitions=7", "--benchmark_min_time=0.05",
                                   "--benchmark_enable_random_interleaving=true"});
  std::vector<char*> arguments;
  for (std::string& option : options) arguments.push_back(option.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  Register(rows);
  TBestTimes times;
  benchmark::RunSpecifiedBenchmarks(&times);
  TTable(std::move(times.Ns), std::move(instructions)).Print(rows);
  return 0;
}

int Main(int argc, char** argv) {
  const std::vector<TRow> rows = AllRows();
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 1 && words[0] == "--list") {
    for (const TRow& row : rows) std::printf("%s\n", row.Id);
    return 0;
  }
  if (words.size() == 1 && words[0] == "--alarm-bytes") {
    std::printf("bytes per alarm event, a million events, one consumer: %.0f (target 400)\n", AlarmBytesPerEvent());
    return 0;
  }
  if (words.size() == 1 && words[0] == "--day") {
    std::printf("%s\n", MixedDay().c_str());
    return 0;
  }
  if (!words.empty() && words[0] == "--count") {
    if (words.size() != 3) return Complain("--count takes ITEM and RUNS");
    return CountOne(rows, words[1], words[2]);
  }
  if (!words.empty() && words[0] == "--table") {
    if (words.size() < 2) return Complain("--table takes the file with the instruction counts");
    return PrintTable(rows, argv[2], {words.begin() + 2, words.end()});
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Register(rows);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace
}  // namespace ixocamglue::bench

int main(int argc, char** argv) {
  try {
    return ixocamglue::bench::Main(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ixo_bench: %s\n", e.what());
    return 1;
  }
}
