#include "controller/procedures/SequenceFile.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/procedures/Shot.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;
using TEvent = TJson::parse_event_t;

constexpr std::size_t kMostShown = 10;
constexpr std::size_t kMostCommands = 1000;  // a composite holds no more
constexpr std::size_t kMostBytes = 4U << 20U;
constexpr std::size_t kMostDepth = 8;

struct TReadSoFar {
  std::size_t Line = 1;
  char Last = 0;
  // The parser has read the character after a number when it tells of it.
  [[nodiscard]] std::size_t LineOf(const TJson& value) const { return Line - (value.is_number() && Last == '\n'); }
};

// Characters of a text for the parser, counting the lines it has passed.
class TCountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  TCountingIterator(const char* at, TReadSoFar& read) : FAt(at), FRead(&read) {}
  reference operator*() const { return *FAt; }
  TCountingIterator& operator++() {
    FRead->Last = *FAt++;
    if (FRead->Last == '\n') ++FRead->Line;
    return *this;
  }
  TCountingIterator operator++(int) {
    TCountingIterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator!=(const TCountingIterator& a, const TCountingIterator& b) { return a.FAt != b.FAt; }

 private:
  const char* FAt;
  TReadSoFar* FRead;
};

class TReader {
 public:
  TReader(std::filesystem::path file, const TMotionLimits& limits) : FFile(std::move(file)), FLimits(limits) {}

  TSequenceFile Read();

 private:
  void Problem(const std::string& place, const std::string& what);
  [[noreturn]] void GiveUp() const;
  TJson Parse(const std::string& text);
  void ReadCommand(const TJson& item, const std::string& place, TSequenceFile& out);
  const TMotionRow* ReadRow(const TJson& item, const std::string& place);
  void ReadValue(const TMotionRow& row, const std::string& name, const TJson& value, const std::string& place,
                 TMotionCall& call);
  void CheckBeam(const TSequenceFile& sequence);

  const std::filesystem::path FFile;
  const TMotionLimits& FLimits;
  std::map<std::string, std::size_t> FLines;  // of each value, by its place
  std::vector<std::string> FProblems;
};

void TReader::Problem(const std::string& place, const std::string& what) {
  const auto line = FLines.find(place);
  FProblems.push_back(FFile.string() + (line == FLines.end() ? "" : ":" + std::to_string(line->second)) + ": " +
                      (place.empty() ? "" : place + ": ") + what);
}

void TReader::GiveUp() const {
  std::string text;
  for (std::size_t i = 0; i < std::min(FProblems.size(), kMostShown); ++i)
    text += (text.empty() ? "" : "\n") + FProblems[i];
  if (FProblems.size() > kMostShown) text += Format("\nand %zu more", FProblems.size() - kMostShown);
  throw EProblem(pbUnusable, text);
}

// The parser tells of each value when it has read it; what it stands in is known from the events before.
TJson TReader::Parse(const std::string& text) {
  struct TLevel {
    std::string Place;
    bool IsArray;
    std::size_t Items;
    std::string Key;
    std::vector<std::string> Keys;
  };
  TReadSoFar read;
  std::vector<TLevel> levels;
  const auto place = [&]() -> std::string {
    if (levels.empty()) return {};
    TLevel& level = levels.back();
    if (level.IsArray) return Format("%s[%zu]", level.Place.c_str(), level.Items++);
    return level.Place.empty() ? level.Key : level.Place + "." + level.Key;
  };
  const auto event = [&](int depth, TEvent kind, TJson& parsed) {
    switch (kind) {
      case TEvent::object_start:
      case TEvent::array_start: {
        if (static_cast<std::size_t>(depth) >= kMostDepth) {
          Problem({}, Format("line %zu: lists within lists are no sequence", read.Line));
          GiveUp();
        }
        const std::string at = place();
        FLines.emplace(at, read.Line);
        levels.push_back({at, kind == TEvent::array_start, 0, {}, {}});
        break;
      }
      case TEvent::object_end:
      case TEvent::array_end: levels.pop_back(); break;
      case TEvent::key: {
        TLevel& level = levels.back();
        level.Key = parsed.get<std::string>();
        const std::string at = level.Place.empty() ? level.Key : level.Place + "." + level.Key;
        if (std::ranges::find(level.Keys, level.Key) != level.Keys.end())
          FProblems.push_back(Format("%s:%zu: %s: is there twice", FFile.c_str(), read.Line, at.c_str()));
        level.Keys.push_back(level.Key);
        break;
      }
      case TEvent::value: FLines.emplace(place(), read.LineOf(parsed)); break;
    }
    return true;
  };
  try {
    return TJson::parse(TCountingIterator(text.data(), read), TCountingIterator(text.data() + text.size(), read),
                        event);
  } catch (const TJson::exception& e) {
    std::string what = e.what();  // "[json.exception...] parse error at line 3, column 5: what is wrong"
    for (const char* const start : {"column", "number"})
      what = what.substr(std::min(what.find(start), what.size()) % what.size());
    throw EProblem(pbUnusable, Format("%s:%zu: no JSON: %s", FFile.c_str(), read.Line, what.c_str()));
  }
}

TSequenceFile TReader::Read() {
  std::error_code error;
  if (!std::filesystem::is_regular_file(FFile, error))
    throw EProblem(pbUnusable, FFile.string() + ": is no file that can be read");
  if (std::filesystem::file_size(FFile, error) > kMostBytes)
    throw EProblem(pbUnusable, FFile.string() + ": is too large for a sequence");
  std::ifstream in(FFile, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw EProblem(pbUnusable, FFile.string() + ": cannot be read");

  const TJson document = Parse(text);
  TSequenceFile sequence{FFile.stem().string(), {}};
  if (!document.is_object()) {
    Problem({}, "is no object with a list \"commands\"");
    GiveUp();
  }
  for (const auto& [name, value] : document.items()) {
    if (name == "commands") continue;
    if (name != "name")
      Problem(name, "unknown name; a file has \"name\" and \"commands\"");
    else if (!value.is_string() || value.get_ref<const std::string&>().empty())
      Problem(name, "is no text");
    else
      sequence.Name = value.get<std::string>();
  }
  const auto commands = document.find("commands");
  if (commands == document.end() || !commands->is_array() || commands->empty())
    Problem(commands == document.end() ? "" : "commands", "\"commands\" is a list of at least one command");
  else if (commands->size() > kMostCommands)
    Problem("commands", Format("%zu commands are more than %zu", commands->size(), kMostCommands));
  else
    for (std::size_t i = 0; i < commands->size(); ++i)
      ReadCommand((*commands)[i], Format("commands[%zu]", i), sequence);
  if (FProblems.empty()) CheckBeam(sequence);
  if (!FProblems.empty()) GiveUp();
  return sequence;
}

const TMotionRow* TReader::ReadRow(const TJson& item, const std::string& place) {
  const auto found = item.find("command");
  if (found == item.end()) {
    Problem(place, "\"command\" is missing: a number or a name; `ixocut procedures` lists them");
    return nullptr;
  }
  const std::string at = place + ".command";
  if (found->is_number_integer()) {
    const auto number = found->get<std::int64_t>();
    const TMotionRow* const row =
        number > 0 && number <= 0xFFFF ? FindMotionRow(static_cast<std::int32_t>(number)) : nullptr;
    if (!row) Problem(at, Format("%lld is no command", static_cast<long long>(number)));
    return row;
  }
  if (!found->is_string()) {
    Problem(at, "is neither a number nor a name");
    return nullptr;
  }
  const auto& name = found->get_ref<const std::string&>();
  const TMotionRow* const row = FindMotionRow(name);
  if (!row) {
    TNearestName nearest(name);
    std::vector<std::string> known;
    for (const TMotionRow& r : MotionRows()) known.push_back(r.FullName());
    for (const std::string& k : known) nearest.Consider(k);
    Problem(at, "\"" + name + "\" is no command" +
                    (nearest.Found().empty() ? "" : "; did you mean \"" + std::string(nearest.Found()) + "\"?"));
  }
  return row;
}

void TReader::ReadCommand(const TJson& item, const std::string& place, TSequenceFile& out) {
  if (!item.is_object()) return Problem(place, "is no object with a \"command\"");
  const TMotionRow* const row = ReadRow(item, place);
  if (!row) return;
  TMotionCall call{row, TMotionValues(row->Params.size()), {}};
  for (const auto& [name, value] : item.items()) {
    if (name == "command") continue;
    const std::string at = place + "." + name;
    if (name != "description")
      ReadValue(*row, name, value, at, call);
    else if (value.is_string())
      call.Desc = value.get<std::string>();
    else
      Problem(at, "is no text");
  }
  if (const std::string missing = TMotionLimits::CheckNeeds(*row, call.Values, ""); !missing.empty())
    Problem(place, row->FullName() + ": " + missing);
  out.Calls.push_back(std::move(call));
}

void TReader::ReadValue(const TMotionRow& row, const std::string& name, const TJson& value, const std::string& place,
                        TMotionCall& call) {
  const auto param =
      std::ranges::find(row.Params, name, [](const TMotionParam& p) { return std::string_view(p.Name); });
  if (param == row.Params.end()) {
    TNearestName nearest(name);
    std::string names;
    nearest.Consider("description");
    for (const TMotionParam& p : row.Params) {
      nearest.Consider(p.Name);
      names += (names.empty() ? "" : ", ") + std::string(p.Name);
    }
    const std::string hint = !nearest.Found().empty() ? "did you mean \"" + std::string(nearest.Found()) + "\"?"
                             : names.empty()          ? "it has none"
                                                      : "it has " + names;
    return Problem(place, "is no parameter of " + row.FullName() + "; " + hint);
  }
  auto& target = call.Values[static_cast<std::size_t>(param - row.Params.begin())];
  target = 0.0;  // it is there, if wrong
  if (param->Kind == pkSwitch) {
    if (!value.is_boolean()) return Problem(place, "is neither true nor false");
    target = value.get<bool>() ? 1.0 : 0.0;
    return;
  }
  if (!value.is_number()) return Problem(place, "is no number" + (*param->Unit ? Format(" (%s)", param->Unit) : ""));
  target = value.get<double>();
  if (const std::string problem = FLimits.Check(*param, *target); !problem.empty()) Problem(place, problem);
}

// The supervisor and the laser's latch would end a longer beam as well; it never starts here.
void TReader::CheckBeam(const TSequenceFile& sequence) {
  bool on = false;
  double ms = 0.0;
  for (std::size_t i = 0; i < sequence.Calls.size(); ++i) {
    const TMotionCall& call = sequence.Calls[i];
    if (call.Row->Beam == bmOff) on = false;
    if (call.Row->Beam == bmOn && !on) {
      on = true;
      ms = 0.0;
    }
    if (!on || call.Row->Command != 612) continue;
    ms += call.Values[0].value_or(0.0);
    if (ms > static_cast<double>(kShotLimitMs))
      return Problem(Format("commands[%zu]", i), Format("the beam would be on for %s ms, which is more than %s ms",
                                                        ValueText(ms).c_str(), ValueText(kShotLimitMs).c_str()));
  }
}

}  // namespace

TSequenceFile ReadSequenceFile(const std::filesystem::path& file, const TMotionLimits& limits) {
  return TReader(file, limits).Read();
}

}  // namespace ixocontroller
