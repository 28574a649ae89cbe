#include "controller/config/ConfigView.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"

namespace ixocontroller {
namespace {

template <class T>
constexpr const char* kTypeName = nullptr;
template <>
constexpr const char* kTypeName<bool> = "Boolean";
template <>
constexpr const char* kTypeName<std::int32_t> = "Integer";
template <>
constexpr const char* kTypeName<std::uint32_t> = "Cardinal";
template <>
constexpr const char* kTypeName<double> = "Double";
template <>
constexpr const char* kTypeName<long double> = "Extended";
template <>
constexpr const char* kTypeName<std::string> = "string";

std::string RangeText(const TFieldRule& rule) {
  if (std::isinf(rule.Min) && std::isinf(rule.Max)) return {};
  return Format("%.10g..%.10g", rule.Min, rule.Max);
}

std::string Joined(const std::string& path, std::string_view name) {
  return path.empty() ? std::string(name) : path + "/" + std::string(name);
}

class TViewer final : public TFieldPublisher<TViewer>, private TFieldListener {
 public:
  TViewer(std::vector<TPropertyView>& out, std::string path, bool schema, bool isItem)
      : FOut(out), FPath(std::move(path)), FSchema(schema), FIsItem(isItem) {
    FListener = this;
  }

  static void Visit(TXmlSubConfig& record, std::vector<TPropertyView>& out, const std::string& path, bool schema,
                    bool isItem) {
    TViewer viewer(out, path, schema, isItem);
    record.Publish(viewer);
    for (const auto& [name, sub] : record.SubConfigs()) Visit(*sub, out, Joined(path, name), schema, isItem);
  }

  template <class T, class D>
  void Value(TPropName name, T& value, const D& def, const TFieldRule& rule) {
    FOut.push_back(
        {Joined(FPath, name.Text), kTypeName<T>, ValueText(T(def)), ValueText(value), RangeText(rule), FIsItem, {}});
  }
  void Child(TPropName name, TXmlSubConfig& child) override {
    Visit(child, FOut, Joined(FPath, name.Text), FSchema, FIsItem);
  }
  void List(TPropName itemName, TXmlListBase& list) override {
    if (FSchema) {
      const auto item = list.MakeItem();
      return Visit(*item, FOut, Joined(FPath, itemName.Text) + "[]", FSchema, true);
    }
    for (std::size_t i = 0; i < list.Size(); ++i)
      Visit(list.At(i), FOut, Format("%s[%zu]", Joined(FPath, itemName.Text).c_str(), i + 1), FSchema, true);
  }
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) override {
    const std::string path = Joined(FPath, prefix.Text);
    if (FSchema) FOut.push_back({path + "<n>", "string", "", "", "", true, {}});
    if (FSchema) return;
    for (const auto& [index, text] : texts) FOut.push_back({path + ValueText(index), "string", "", text, "", true, {}});
  }

 private:
  void Said(const TFieldFacts& facts) override { FOut.back().Facts = facts; }

  std::vector<TPropertyView>& FOut;
  const std::string FPath;
  const bool FSchema;
  const bool FIsItem;
};

// The names that a record knows.
class TNames final : public TFieldPublisher<TNames> {
 public:
  template <class T, class D>
  void Value(TPropName name, T&, const D&, const TFieldRule& rule) {
    Values.push_back({name.Text, [rule](std::string_view text) -> std::string {
                        if constexpr (std::is_same_v<T, std::string>)
                          return (void)rule, std::string();  // any text will do
                        else {
                          const auto value = ParseValue<T>(text);
                          if (TrimXml(text).empty() || (value && rule.Allows(*value))) return {};
                          if (!value)
                            return Format("\"%s\" is no %s; the default is used", std::string(text).c_str(),
                                          kTypeName<T>);
                          return Format("%s is outside %s; the default is used", std::string(TrimXml(text)).c_str(),
                                        RangeText(rule).c_str());
                        }
                      }});
  }
  void Child(TPropName name, TXmlSubConfig& child) override { Children.push_back({name.Text, &child}); }
  void List(TPropName itemName, TXmlListBase& list) override { Lists.push_back({itemName.Text, list.MakeItem()}); }
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>&) override { Prefixes.push_back(prefix.Text); }
  void WriteOnly(TPropName name, const std::string&) override { Ignored.push_back(name.Text); }

  struct TValue {
    std::string_view Name;
    std::function<std::string(std::string_view)> Fault;  // of a text; empty: none
  };
  struct TChild {
    std::string_view Name;
    TXmlSubConfig* Record;
  };
  struct TItem {
    std::string_view Name;
    std::unique_ptr<TXmlSubConfig> Record;
  };
  std::vector<TValue> Values;
  std::vector<TChild> Children;
  std::vector<TItem> Lists;
  std::vector<std::string_view> Prefixes;
  std::vector<std::string_view> Ignored;
};

std::size_t ElementOffset(const TXmlNode& node) {
  return static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.Offset(), 0));
}

// Of the attribute of this name, else of the child element, else of the element itself.
std::size_t AttributeOffset(const TXmlDocument& document, const TXmlNode& node, std::string_view name) {
  const auto attributes = node.Attributes();
  const auto offsets = document.AttributeOffsets(node);
  for (std::size_t i = 0; i < std::min(attributes.size(), offsets.size()); ++i)
    if (attributes[i].Name == name) return offsets[i];
  const TXmlNode child = node.Child(name);
  return ElementOffset(child ? child : node);
}

class TChecker {
  template <class Items>
  static auto* Find(const Items& items, std::string_view name) {
    const auto it = std::ranges::find_if(items, [&](const auto& item) { return SameFolded(item.Name, name); });
    return it == items.end() ? nullptr : &*it;
  }

 public:
  TChecker(const TXmlDocument& document, std::vector<TConfigFinding>& out) : FDocument(document), FOut(out) {}

  void Check(const TXmlNode& node, TXmlSubConfig& record, const std::string& path) {
    const bool isRoot = path.empty();
    TNames names;
    record.Publish(names);
    for (const auto& [name, sub] : record.SubConfigs()) names.Children.push_back({name, sub});
    const bool isOpen = !isRoot && names.Values.empty() && names.Children.empty() && names.Lists.empty();
    std::vector<std::string> seen;
    const auto attributes = node.Attributes();
    const auto offsets = FDocument.AttributeOffsets(node);
    for (std::size_t i = 0; i < attributes.size(); ++i) {
      const std::size_t at = i < offsets.size() ? offsets[i] : ElementOffset(node);
      if (const auto* const value = Find(names.Values, attributes[i].Name))
        CheckValue(*value, at, path, attributes[i].Name, attributes[i].Value, seen);
      else
        CheckForeign(names, at, path, attributes[i].Name, isOpen, false);
    }
    const auto children = node.Children();
    std::unordered_map<std::string, std::size_t> several, number;
    for (const TXmlNode& child : children) ++several[Folded(child.Name())];
    TCells cells;
    for (const TXmlNode& child : children) {
      const std::string folded = Folded(child.Name());
      const std::string own = Joined(path, child.Name());
      const std::size_t i = ++number[folded];
      CheckChild(names, node, child, path, several[folded] > 1 ? Format("%s[%zu]", own.c_str(), i) : own, cells, seen,
                 isOpen, isRoot);
    }
  }

 private:
  using TCells = std::map<std::pair<std::int32_t, std::int32_t>, std::string>;  // path of the rack's item by its cell

  static std::string Folded(std::string_view name) {
    std::string text(name);
    std::ranges::transform(text, text.begin(), FoldAscii);
    return text;
  }

  void Add(std::size_t offset, const std::string& path, std::string_view name, std::string text, bool foreign = false) {
    FOut.push_back({offset, FDocument.Place(offset), Joined(path, name), std::move(text), foreign});
  }

  void CheckValue(const TNames::TValue& value, std::size_t at, const std::string& path, std::string_view name,
                  const std::string_view text, std::vector<std::string>& seen) {
    if (std::ranges::find(seen, value.Name) != seen.end()) {
      Add(at, path, name, "is there already; this one is not read");
      return;
    }
    seen.emplace_back(value.Name);
    if (std::string fault = value.Fault(text); !fault.empty()) Add(at, path, name, std::move(fault));
  }

  // `path` is the node's, `own` the child's.
  void CheckChild(TNames& names, const TXmlNode& node, const TXmlNode& child, const std::string& path,
                  const std::string& own, TCells& cells, std::vector<std::string>& seen, bool isOpen, bool isRoot) {
    const std::size_t at = ElementOffset(child);
    const std::string_view name = child.Name();
    if (const auto* const sub = Find(names.Children, name)) {
      if (std::ranges::find(seen, sub->Name) != seen.end()) {
        Add(at, path, name, "a section of this name is there already; this one is not read");
        return;
      }
      seen.emplace_back(sub->Name);
      Check(child, *sub->Record, own);
    } else if (const auto* const item = Find(names.Lists, name)) {
      Check(child, *item->Record, own);
      if (item->Name == "PosItem") CheckCell(node, child, own, cells);
    } else if (const auto* const value = Find(names.Values, name); value && !child.HasElements()) {
      CheckValue(*value, at, path, name, child.Text(), seen);
    } else {
      CheckForeign(names, at, path, name, isOpen, isRoot);
    }
  }

  // An item of the nozzle rack that names no cell of it, or one that another has.
  void CheckCell(const TXmlNode& grid, const TXmlNode& child, const std::string& path, TCells& cells) {
    const auto number = [](const TXmlNode& node, const char* name) {
      return ParseNumber<std::int32_t>(TConfigSection(node.Handle(), "").GetText(name, "")).value_or(0);
    };
    bool inside = true;
    const auto check = [&](const char* name, const char* count) {
      const std::int32_t at = number(child, name);
      const std::int32_t most = number(grid, count);
      if (at >= 0 && at < most) return at;
      Add(ElementOffset(child), path, name,
          Format("%d is outside the grid (%s is %d); the item is not used", at, count, most));
      inside = false;
      return at;
    };
    const std::int32_t row = check("Row", "RowCount");
    const std::int32_t col = check("Col", "ColCount");
    if (!inside || !(child.HasValue("Row") || child.HasValue("Col"))) return;
    const auto [there, isNew] = cells.try_emplace({row, col}, path);
    if (!isNew)
      Add(ElementOffset(child), path, "Row",
          Format("the cell of row %d, column %d is %s's already; the item is not used", row, col,
                 there->second.c_str()));
  }

  void CheckForeign(const TNames& names, std::size_t at, const std::string& path, std::string_view name, bool isOpen,
                    bool isRoot) {
    if (std::ranges::any_of(names.Ignored, [&](auto ignored) { return SameFolded(ignored, name); })) return;
    for (const auto prefix : names.Prefixes)
      if (name.size() > prefix.size() && SameFolded(name.substr(0, prefix.size()), prefix) &&
          ParseNumber<std::uint32_t>(name.substr(prefix.size())))
        return;
    if (isOpen) return;  // the section belongs to the interface
    TNearestName nearest(name);
    for (const auto& value : names.Values) nearest.Consider(value.Name);
    for (const auto& child : names.Children) nearest.Consider(child.Name);
    for (const auto& item : names.Lists) nearest.Consider(item.Name);
    const char* const what = isRoot ? "unknown section" : "unknown name";
    if (!nearest.Found().empty())
      Add(at, path, name, Format("%s; did you mean %s?", what, std::string(nearest.Found()).c_str()));
    else
      Add(at, path, name, what, true);
  }

  const TXmlDocument& FDocument;
  std::vector<TConfigFinding>& FOut;
};

// Where the element or attribute of this path stands; what is missing, where it would belong.
std::size_t OffsetOf(const TXmlDocument& document, std::string_view path) {
  TXmlContext context;
  TXmlNode node = document.Root(context);
  while (true) {
    const auto slash = path.find('/');
    std::string_view part = path.substr(0, slash);
    if (slash == std::string_view::npos) return AttributeOffset(document, node, part);
    path.remove_prefix(slash + 1);
    std::uint32_t number = 1;
    if (const auto bracket = part.find('['); bracket != std::string_view::npos) {
      number = ParseNumber<std::uint32_t>(part.substr(bracket + 1, part.size() - bracket - 2)).value_or(1);
      part = part.substr(0, bracket);
    }
    const auto children = node.Children();
    const auto next = std::ranges::find_if(
        children, [&](const TXmlNode& child) { return SameFolded(child.Name(), part) && --number == 0; });
    if (next == children.end()) return ElementOffset(node);
    node = *next;
  }
}

}  // namespace

std::vector<TPropertyView> ViewProperties(TXmlSubConfig& root, bool schema) {
  std::vector<TPropertyView> views;
  TViewer::Visit(root, views, {}, schema, false);
  return views;
}

TResult<> SetProperty(TXmlSubConfig& root, std::string_view path, const std::string& value,
                      const TMachineBounds* machine) {
  const auto refuse = [](std::string why) { return TProblem{.What = std::move(why)}; };
  TXmlSubConfig* record = &root;
  const TXmlSubConfig* parent = nullptr;
  std::string_view rest = path;
  for (auto slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
    const std::string_view part = rest.substr(0, slash);
    parent = record;
    record = record->SubConfig(part);
    if (!record) return refuse(Format("\"%s\" is no section of the configuration", std::string(part).c_str()));
    rest.remove_prefix(slash + 1);
  }
  std::size_t wrong = 0;
  if (!IsXmlText(value, wrong)) return refuse("the value is no UTF-8 text, or holds a control character");
  for (auto& view : ViewProperties(*record, true)) {
    if (view.Path.ends_with("<n>")) {  // any number
      view.Path.resize(view.Path.size() - 3);
      const auto digits = rest.substr(std::min(view.Path.size(), rest.size()));
      if (ParseNumber<std::uint32_t>(digits)) view.Path += digits;
    }
    if (!SameFolded(view.Path, rest)) continue;
    const TBound& bound = view.Facts.Bound;
    if (const auto number = ParseNumber<double>(value); machine && number) {
      const TLimits limits = machine->Of(bound, bound.Branch ? record->GetInt(bound.Branch, 0) : 0);
      if (!limits.Allows(*number))
        return refuse(
            Format("%s is %s %s", value.c_str(), limits.IsChoice ? "not one of" : "outside", limits.Text().c_str()));
    }
    if (std::string why = parent ? parent->RefusesInItem(*record, rest, value) : std::string(); !why.empty())
      return refuse(std::move(why));
    if (record->SetText(rest, value)) return {};
    const std::string range = view.Range.empty() ? BoundText(bound) : view.Range;
    return refuse(
        Format("\"%s\" is no %s%s%s", value.c_str(), view.Type.c_str(), range.empty() ? "" : " in ", range.c_str()));
  }
  return refuse(Format("\"%s\" is no property of the configuration", std::string(path).c_str()));
}

std::vector<TConfigFinding> CheckDocument(const TXmlDocument& document, TXmlSubConfig& root) {
  std::vector<TConfigFinding> findings;
  TXmlContext context;
  TChecker(document, findings).Check(document.Root(context), root, {});
  return findings;
}

void AddFindings(const TXmlDocument& document, const std::vector<TProblem>& problems,
                 std::vector<TConfigFinding>& findings) {
  std::unordered_set<std::size_t> known;
  for (const TConfigFinding& finding : findings) known.insert(finding.Offset);
  for (const TProblem& problem : problems) {
    const std::size_t offset = OffsetOf(document, problem.Where);
    if (!known.contains(offset)) findings.push_back({offset, document.Place(offset), problem.Where, problem.What});
  }
  std::ranges::stable_sort(findings, {}, &TConfigFinding::Offset);
}

}  // namespace ixocontroller
