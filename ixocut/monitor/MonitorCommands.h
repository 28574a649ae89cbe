// `ixocut monitor ...`: looks at monitor files. Each returns the exit code and throws EProblem for a file that cannot
// be used; what it says, or its document, goes to the console. Main thread.
#pragma once

#include <string>

#include "ixocut/Console.h"

namespace ixocut {

// Head, motors, signals with counts and spans, and everything that is wrong with the file. Reads in one pass.
[[nodiscard]] int ShowMonitorFile(const std::string& file, TConsole& console);
// The largest difference per signal, over the time that both runs have, laid over each other by `align` (one of
// kAlignments). 1 when there is any, and when nothing could be compared.
[[nodiscard]] int DiffMonitorFiles(const std::string& a, const std::string& b, const std::string& align,
                                   TConsole& console);
inline constexpr const char* kAlignments[] = {"auto", "beam", "procedure", "start"};  // in TAlignment's order
// Of a file that "--out" names: a recording or a table of ours replaces one of them, or nothing; any other file keeps
// what it has.
void CheckMonitorTarget(const std::string& target);
// One row per sample time, one column per signal. As Recover, refuses a target that is its own source.
[[nodiscard]] int ConvertMonitorFile(const std::string& file, const std::string& target, TConsole& console);
// The file without a last line that was cut off.
[[nodiscard]] int RecoverMonitorFile(const std::string& file, const std::string& target, TConsole& console);
// A panel per kind of signal over time, drawn by gnuplot.
[[nodiscard]] int PlotMonitorFile(const std::string& file, const std::string& target, TConsole& console);

}  // namespace ixocut
