// What one machine has and can do, as its file says, and how a section is held against it. Lengths mm, speeds mm/s,
// pressures bar, times ms. Values: any thread, while nobody changes the configuration. Nothing throws; what is wrong is
// added to the problems.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// The defaults are a complete machine; what a file does not say keeps them.
struct TMachineBounds {
  TLaserConfig Laser;
  TAxisConfig X{"X", 0.0, 3000.0, 1500.0, 10'000.0};
  TAxisConfig Y{"Y", 0.0, 1500.0, 1500.0, 10'000.0};
  TAxisConfig Z{"Z", 0.0, 120.0, 300.0, 5000.0};
  TAxisConfig Focus{"Focus", -25.0, 25.0, 100.0, 2000.0};
  double SafeZ = 10.0;  // at this Z and above, XY may travel over the table
  std::vector<TGasBranchConfig> GasBranches{{1, "Air", 33, 16.0}, {2, "O2", 34, 10.0}, {3, "N2", 35, 25.0}};
  std::vector<TPortConfig> Inports{{1, "Input 1"}, {2, "Input 2"}, {3, "Input 3"}, {4, "Input 4"}};
  std::vector<TPortConfig> Outports{
      {1, "Output 1"}, {2, "Output 2"}, {3, "Output 3"}, {4, "Output 4"}, {5, "Output 5"}};
  std::vector<TSlaveConfig> Slaves;
  std::int32_t DockedTable = 1;  // 1 or 2; 0 none
  std::int32_t Followers = 1;
  TSupervisorConfig Supervisor;

  // `branch`: the branch that a pressure belongs to; another number, as 0, when it is not known: what any of them can
  // have. Without effect on anything else.
  [[nodiscard]] TLimits Of(const TBound& bound, std::int32_t branch = 0) const;

  // Takes what a file with this document element says of any machine. Each value that is no number, outside its bound
  // or given twice adds a problem, in the order of the sections: a machine is made only without any. A section with one
  // keeps its defaults.
  void Read(const TConfigSection& root, std::vector<TProblem>& problems);

  // Reads a section over what the record holds, unless something in it is wrong.
  template <class Record>
  void Take(const TConfigSection& section, Record& record, std::vector<TProblem>& problems) const;
};

// What CheckRecord tells of: all, or only what keeps a machine from being made.
enum class TJudging : std::uint8_t { jdAll, jdRefused };
using enum TJudging;

// Adds a problem for each value with a bound, here and in all that belongs to the record, that is no value of its
// property or outside: Where is its path, What begins with its text in quotation marks, Why is the property's sentence.
// The record lends its lines only.
void CheckRecord(const TConfigSection& section, TXmlSubConfig& record, const TMachineBounds& machine,
                 std::vector<TProblem>& problems, TJudging judging = jdRefused);

[[nodiscard]] TProblem ProblemAt(const TConfigSection& section, std::string_view name, const std::string& value,
                                 const std::string& why);

template <class Record>
void TMachineBounds::Take(const TConfigSection& section, Record& record, std::vector<TProblem>& problems) const {
  Record read = record;
  section.LoadOver(read);
  const std::size_t before = problems.size();
  CheckRecord(section, read, *this, problems);
  if (problems.size() == before) record = read;
}

}  // namespace ixocamglue
