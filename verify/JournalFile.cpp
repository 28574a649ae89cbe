#include "verify/JournalFile.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixoverify {
namespace {

constexpr const char* kKinds[] = {"read", "lock", "stop", "off", "set", "start"};  // by TVerbKind
constexpr const char* kMarks[] = {kCause, kHang, kMended, kEnded};

// A quantity of a sample, or of what was expected, as a number.
template <class Record>
struct TQuantity {
  const char* Name;
  double (*Get)(const Record&);
  void (*Set)(Record&, double);
};

template <auto Member>
constexpr TQuantity<TJournalSample> Of(const char* name) {
  return {name, [](const TJournalSample& s) { return static_cast<double>(s.Machine.*Member); },
          [](TJournalSample& s, double value) {
            s.Machine.*Member = static_cast<std::remove_cvref_t<decltype(s.Machine.*Member)>>(value);
          }};
}
template <double TPoint2::*Member>
constexpr TQuantity<TJournalSample> OfPos(const char* name) {
  return {name, [](const TJournalSample& s) { return s.Machine.Pos.*Member; },
          [](TJournalSample& s, double value) { s.Machine.Pos.*Member = value; }};
}
template <auto Member>
constexpr TQuantity<TJournalSample> Own(const char* name) {
  return {name, [](const TJournalSample& s) { return static_cast<double>(s.*Member); },
          [](TJournalSample& s, double value) {
            s.*Member = static_cast<std::remove_cvref_t<decltype(s.*Member)>>(value);
          }};
}
template <auto Member>
constexpr TQuantity<TExpectations> Wish(const char* name) {
  return {
      name, [](const TExpectations& e) { return static_cast<double>(e.*Member); },
      [](TExpectations& e, double value) { e.*Member = static_cast<std::remove_cvref_t<decltype(e.*Member)>>(value); }};
}

constexpr TQuantity<TJournalSample> kQuantities[] = {
    Of<&TMachineSnapshot::Laser>("light"),
    Of<&TMachineSnapshot::Emission>("emission"),
    Of<&TMachineSnapshot::LatchTripped>("latch"),
    Of<&TMachineSnapshot::Aiming>("aiming"),
    Own<&TJournalSample::LaserAllowed>("allowed"),
    Of<&TMachineSnapshot::Gas>("gas"),
    Of<&TMachineSnapshot::GasBranch>("branch"),
    Of<&TMachineSnapshot::GasSetBar>("set-bar"),
    Of<&TMachineSnapshot::GasBar>("bar"),
    Of<&TMachineSnapshot::GasVolt>("volt"),
    Of<&TMachineSnapshot::GasValveOpen>("valve"),
    OfPos<&TPoint2::X>("x"),
    OfPos<&TPoint2::Y>("y"),
    Of<&TMachineSnapshot::Z>("z"),
    Of<&TMachineSnapshot::Z2>("z2"),
    Of<&TMachineSnapshot::Focus>("focus"),
    Of<&TMachineSnapshot::Turns>("turns"),
    Of<&TMachineSnapshot::AxesMoving>("axes-move"),
    Of<&TMachineSnapshot::ZMoving>("z-moves"),
    Of<&TMachineSnapshot::FocusMoving>("focus-moves"),
    Of<&TMachineSnapshot::RackMoving>("rack-moves"),
    Of<&TMachineSnapshot::Following>("following"),
    Of<&TMachineSnapshot::Calibrating>("calibrating"),
    Of<&TMachineSnapshot::DockedTable>("docked"),
    Of<&TMachineSnapshot::Collisions>("collisions"),
    Of<&TMachineSnapshot::State>("state"),
    Own<&TJournalSample::Leaf>("leaf"),
};

constexpr TQuantity<TExpectations> kWishes[] = {
    Wish<&TExpectations::Success>("success"),        Wish<&TExpectations::GasMayStayOn>("gas"),
    Wish<&TExpectations::MayFollow>("follow"),       Wish<&TExpectations::OutputsMayStayOn>("outputs"),
    Wish<&TExpectations::ProcedureState>("state"),   Wish<&TExpectations::LightMs>("light"),
    Wish<&TExpectations::LightMostMs>("light-most"),
};

// --- reading ---

// The text up to the separator, which goes too; the rest stays.
std::string_view Cut(std::string_view& text, char at) {
  const std::size_t end = text.find(at);
  const std::string_view head = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return head;
}

bool TakeOutputs(std::string_view text, TJournalSample& sample) {
  sample.Machine.OutputsOn.clear();
  while (!text.empty()) {
    const auto port = ParseExactly<std::int32_t>(Cut(text, ','));
    if (!port) return false;
    sample.Machine.OutputsOn.push_back(*port);
  }
  return true;
}
bool TakeOutputs(std::string_view, TExpectations&) { return false; }

// "light=1 x=12.5"; what is wrong with it.
template <class Record, std::size_t N>
std::string TakeQuantities(std::string_view text, const TQuantity<Record> (&table)[N], Record& record) {
  while (!text.empty()) {
    std::string_view value = Cut(text, ' ');
    const std::string_view name = Cut(value, '=');
    const auto* const row = std::ranges::find(table, name, &TQuantity<Record>::Name);
    if (row == std::end(table)) {
      if (name == "outputs" && TakeOutputs(value, record)) continue;
      return "unknown quantity \"" + std::string(name) + "\"";
    }
    const auto number = ParseExactly<double>(value);
    if (!number) return "\"" + std::string(value) + "\" is no number";
    row->Set(record, *number);
  }
  return {};
}

// "laser.SwitchLaser on -> refused"
std::string TakeCommand(std::string_view text, TJournalEntry& entry) {
  constexpr std::pair<std::string_view, TOutcome> kOutcomes[] = {{" -> refused", toRefused}, {" -> failed", toThrew}};
  for (const auto& [ending, outcome] : kOutcomes)
    if (text.ends_with(ending)) {
      text.remove_suffix(ending.size());
      entry.Outcome = outcome;
    }
  entry.Device = Cut(text, '.');
  entry.Verb = Cut(text, ' ');
  entry.Args = text;
  return entry.Verb.empty() ? "a command is \"device.Verb\"" : "";
}

std::string TakeLine(std::string_view line, TJournalFile& journal, TJournalSample& sample, std::uint64_t& calls) {
  const std::string_view first = Cut(line, ' ');
  if (first == "expect") return TakeQuantities(line, kWishes, journal.Expected);
  const auto ms = ParseExactly<std::uint64_t>(first);
  if (!ms) return "\"" + std::string(first) + "\" is no time in ms";
  const std::string_view word = Cut(line, ' ');
  if (word == "sample") {
    sample.At = journal.Entries.size();
    sample.Machine.Ms = *ms;
    std::string wrong = TakeQuantities(line, kQuantities, sample);
    journal.Samples.push_back(sample);
    return wrong;
  }
  TJournalEntry entry{*ms, 0, std::string(word), std::string(line), {}, vkRead, toDone};
  if (word == "state") {
    entry.Args = std::exchange(entry.Verb, {});
  } else if (word == "told") {
    entry.Device = Cut(line, ':');
    entry.Verb = TrimXml(line);
  } else if (const auto* const kind = std::ranges::find(kKinds, word); kind != std::end(kKinds)) {
    entry.Call = ++calls;
    entry.Kind = static_cast<TVerbKind>(kind - std::begin(kKinds));
    if (std::string wrong = TakeCommand(line, entry); !wrong.empty()) return wrong;
  } else if (std::ranges::find(kMarks, word) == std::end(kMarks)) {
    return "unknown word \"" + std::string(word) + "\"";
  }
  journal.Entries.push_back(std::move(entry));
  return {};
}

// --- writing ---

template <class Record, std::size_t N>
std::string Differences(const TQuantity<Record> (&table)[N], const Record& before, const Record& now) {
  std::string text;
  for (const TQuantity<Record>& row : table)
    if (row.Get(now) != row.Get(before)) text += Format(" %s=%.10g", row.Name, row.Get(now));
  return text;
}

std::string SampleText(const TJournalSample& before, const TJournalSample& now) {
  std::string text = "sample" + Differences(kQuantities, before, now);
  if (now.Machine.OutputsOn == before.Machine.OutputsOn) return text;
  text += " outputs=";
  for (const std::int32_t port : now.Machine.OutputsOn) text += Format("%s%d", text.ends_with('=') ? "" : ",", port);
  return text;
}

std::string EntryText(const TJournalEntry& entry) {
  const auto with = [](const std::string& text, const std::string& more) {
    return more.empty() ? text : text + " " + more;
  };
  if (entry.IsCommand()) {
    constexpr const char* kEndings[] = {"", " -> refused", " -> failed"};  // by TOutcome
    return std::string(kKinds[static_cast<std::size_t>(entry.Kind)]) + " " +
           with(entry.Device + "." + entry.Verb, entry.Args) + kEndings[static_cast<std::size_t>(entry.Outcome)];
  }
  if (entry.IsState()) return "state " + entry.Args;
  if (std::ranges::find(kMarks, entry.Device) != std::end(kMarks)) return with(entry.Device, entry.Verb);
  return "told " + with(entry.Device + ":", entry.Verb);
}

}  // namespace

TResult<TJournalFile> ReadJournal(std::string_view text) {
  TJournalFile journal;
  TJournalSample sample;
  std::uint64_t calls = 0;
  for (int number = 1; !text.empty(); ++number) {
    const std::string_view line = TrimXml(Cut(text, '\n'));
    if (line.empty() || line.starts_with('#')) continue;
    if (std::string wrong = TakeLine(line, journal, sample, calls); !wrong.empty())
      return TProblem{.What = std::move(wrong), .Where = Format("line %d", number)};
  }
  return journal;
}

void WriteJournal(std::ostream& out, const TJournalFile& journal) {
  const auto line = [&](std::uint64_t ms, const std::string& text) {
    out << Format("%08llu ", static_cast<unsigned long long>(ms)) << text << '\n';
  };
  if (const std::string wishes = Differences(kWishes, TExpectations(), journal.Expected); !wishes.empty())
    out << "expect" << wishes << '\n';
  TJournalSample before;
  auto sample = journal.Samples.begin();
  for (std::size_t i = 0; i <= journal.Entries.size(); ++i) {
    for (; sample != journal.Samples.end() && sample->At <= i; before = *sample++)
      line(sample->Machine.Ms, SampleText(before, *sample));
    if (i == journal.Entries.size()) break;
    if (journal.Expected.FaultAt == i) line(journal.Entries[i].Ms, std::string(kCause) + " fault");
    line(journal.Entries[i].Ms, EntryText(journal.Entries[i]));
  }
}

}  // namespace ixoverify
