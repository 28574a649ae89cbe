#include "controller/procedures/SequenceFile.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>

#include <nlohmann/json.hpp>

#include "controller/procedures/BeamCheck.h"
#include "controller/procedures/Calls.h"
#include "controller/procedures/ListCheck.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

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
  // `from`: the file, or what else it was read from.
  TReader(std::filesystem::path from, const TMachineLimits& machine) : FFile(std::move(from)), FMachine(machine) {}

  TSequenceFile Read(const std::string& text);

 private:
  void Problem(const std::string& place, const std::string& what);
  [[noreturn]] void GiveUp() const;
  TJson Parse(const std::string& text);
  void ReadCommand(const TJson& item, const std::string& place, TSequenceFile& out);
  const TProcedure* ReadRow(const TJson& item, const std::string& place);
  bool ReadValue(const TMotionParam& param, const TJson& value, const std::string& place, double& read);

  const std::filesystem::path FFile;
  const TMachineLimits& FMachine;
  TBlame FBlame = pbUnusable;
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
  for (std::size_t i = 0; i < std::min(FProblems.size(), kMostShown); ++i) AddToList(text, FProblems[i], "\n");
  if (FProblems.size() > kMostShown) text += Format(Tr("\nand %zu more"), FProblems.size() - kMostShown);
  throw EProblem(FBlame, text);
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
    if (level.IsArray) return Format("%s[%zu]", level.Place.c_str(), ++level.Items);
    return level.Place.empty() ? level.Key : level.Place + "." + level.Key;
  };
  const auto event = [&](int depth, TEvent kind, TJson& parsed) {
    switch (kind) {
      case TEvent::object_start:
      case TEvent::array_start: {
        if (static_cast<std::size_t>(depth) >= kMostDepth) {
          Problem({}, Format(Tr("line %zu: lists within lists are no sequence"), read.Line));
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
          FProblems.push_back(Format(Tr("%s:%zu: %s: is there twice"), FFile.c_str(), read.Line, at.c_str()));
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
  } catch (const TJson::exception&) {
    TProblem problem = JsonProblem(text);
    problem.Where = FFile.string() + ":" + problem.Where;
    throw EProblem(pbUnusable, std::move(problem));
  }
}

TSequenceFile TReader::Read(const std::string& text) {
  const TJson document = Parse(text);
  TSequenceFile sequence{FFile.stem().string(), {}};
  if (!document.is_object()) {
    Problem({}, Tr("is no object with a list \"commands\""));
    GiveUp();
  }
  for (const auto& [name, value] : document.items()) {
    if (name == "commands") continue;
    if (name != "name")
      Problem(name, Tr("unknown name; a file has \"name\" and \"commands\""));
    else if (!value.is_string() || value.get_ref<const std::string&>().empty())
      Problem(name, Tr("is no text"));
    else
      sequence.Name = value.get<std::string>();
  }
  const auto commands = document.find("commands");
  if (commands == document.end() || !commands->is_array() || commands->empty())
    Problem(commands == document.end() ? "" : "commands", Tr("\"commands\" is a list of at least one command"));
  else if (commands->size() > kMostCommands)
    Problem("commands", Format(Tr("%zu commands are more than %zu"), commands->size(), kMostCommands));
  else
    for (std::size_t i = 0; i < commands->size(); ++i)
      ReadCommand((*commands)[i], Format("commands[%zu]", i + 1), sequence);
  if (FProblems.empty())
    for (const auto check : {&CheckList, &CheckBeam})
      if (const auto wrong = check(sequence.Calls, FMachine))
        Problem(Format("commands[%zu]", wrong->first + 1), wrong->second.Text());
  if (!FProblems.empty()) GiveUp();
  return sequence;
}

const TProcedure* TReader::ReadRow(const TJson& item, const std::string& place) {
  const auto found = item.find("command");
  if (found == item.end()) {
    Problem(place, Tr("\"command\" is missing: a number or a name; `ixocut procedures` lists them"));
    return nullptr;
  }
  const std::string at = place + ".command";
  if (found->is_number_integer()) {
    const auto number = found->get<std::int64_t>();
    const TProcedure* const row =
        number > 0 && number <= 0xFFFF ? FindProcedure(static_cast<std::int32_t>(number)) : nullptr;
    if (!row) Problem(at, Format(Tr("%lld is no command"), static_cast<long long>(number)));
    return row;
  }
  if (!found->is_string()) {
    Problem(at, Tr("is neither a number nor a name"));
    return nullptr;
  }
  const auto& name = found->get_ref<const std::string&>();
  const auto row = AskProcedure(name);
  if (row) return *row;
  if (WasProcedure(name)) FBlame = pbRequest;
  Problem(at, row.Problem().Text());
  return nullptr;
}

void TReader::ReadCommand(const TJson& item, const std::string& place, TSequenceFile& out) {
  if (!item.is_object()) return Problem(place, Tr("is no object with a \"command\""));
  const TProcedure* const row = ReadRow(item, place);
  if (!row) return;
  TMotionCall call{row, TMotionValues(row->Params.size()), {}};
  std::vector<std::pair<const TMotionParam*, std::string>> read;
  for (const auto& [name, value] : item.items()) {
    if (name == "command") continue;
    const std::string at = Format("%s.%s", place.c_str(), name.c_str());
    if (name == "description") {
      if (value.is_string())
        call.Desc = value.get<std::string>();
      else
        Problem(at, Tr("is no text"));
      continue;
    }
    const auto param =
        std::ranges::find(row->Params, name, [](const TMotionParam& p) { return std::string_view(p.Name); });
    if (param == row->Params.end()) {
      Problem(at, NoParameter(*row, name));
      continue;
    }
    auto& target = call.Values[static_cast<std::size_t>(param - row->Params.begin())].emplace(0.0);  // there, if wrong
    if (ReadValue(*param, value, at, target)) read.emplace_back(&*param, at);
  }
  for (const auto& [param, at] : read)  // a value's range can depend on another one
    if (const auto checked = call.Check(*param, FMachine.Bounds); !checked) Problem(at, checked.Problem().Text());
  if (const auto whole = call.CheckNeeds(""); !whole)
    Problem(place, std::string(row->Name) + ": " + whole.Problem().Text());
  out.Calls.push_back(std::move(call));
}

bool TReader::ReadValue(const TMotionParam& param, const TJson& value, const std::string& place, double& read) {
  if (param.At.Kind == pkSwitch ? !value.is_boolean() : !value.is_number()) {
    const std::string unit = UnitText(param.Unit);
    Problem(place, param.At.Kind == pkSwitch ? Tr("is neither true nor false")
                                             : Tr("is no number") + (unit.empty() ? unit : " (" + unit + ")"));
    return false;
  }
  read = value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
  return true;
}

}  // namespace

TSequenceFile ReadSequenceFile(const std::filesystem::path& file, const TMachineLimits& machine) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error))
    throw EProblem(pbUnusable, file.string() + ": " + Tr("is no file that can be read"));
  std::string text;
  if (const int failed = ReadFile(file.string(), kMostBytes, text))
    throw EProblem(pbUnusable, file.string() + ": " +
                                   (failed == EFBIG ? std::string(Tr("is too large for a sequence"))
                                                    : Tr("cannot be read") + (": " + SystemErrorText(failed))));
  return TReader(file, machine).Read(text);
}

TSequenceFile ReadSequence(const std::string& name, const std::string& text, const TMachineLimits& machine) try {
  if (text.size() > kMostBytes) throw EProblem(pbRequest, name + ": " + Tr("is too large for a sequence"));
  return TReader(name, machine).Read(text);
} catch (const EProblem& problem) {
  throw EProblem(pbRequest, problem.Problem);
}

}  // namespace ixocontroller
