#include "controller/config/ConfigCheck.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "controller/config/ConfigView.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"

namespace ixocontroller {
namespace {

// The names that a record knows.
class TNames final : public TFieldPublisher<TNames>, private TFieldListener {
 public:
  TNames() { FListener = this; }

  template <class T, class D>
  void Value(TPropName name, T&, const D& def, const TFieldRule& rule) {
    Values.push_back({name.Text, nullptr, [rule, def = ValueText(T(def))](std::string_view text) -> std::string {
                        if constexpr (std::is_same_v<T, std::string>) {
                          return (void)rule, std::string();  // any text will do
                        } else {
                          const auto value = ParseValue<T>(text);
                          if (TrimXml(text).empty() || (value && rule.Allows(*value))) return {};
                          const std::string quoted = "\"" + std::string(text) + "\"";
                          const std::string inForce = Format(Tr("; the default %s is in force"), def.c_str());
                          if (!value) return Format(Tr("%s is no %s"), quoted.c_str(), Tr(TypeName<T>())) + inForce;
                          return Format(Tr("%s is outside %s"), quoted.c_str(), RangeText(rule).c_str()) + inForce;
                        }
                      }});
  }
  void Child(TPropName name, TXmlSubConfig& child) override { Children.push_back({name.Text, &child}); }
  void List(TPropName itemName, TXmlListBase& list) override { Lists.push_back({itemName.Text, list.MakeItem()}); }
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>&) override { Prefixes.push_back(prefix.Text); }
  void WriteOnly(TPropName name, const std::string&) override { Ignored.push_back(name.Text); }

  struct TValue {
    std::string_view Name;
    const char* Text;                                    // the property's sentence
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

 private:
  void Said(const TFieldFacts& facts) override { Values.back().Text = facts.Text; }
};

std::string Folded(std::string_view name) {
  std::string text(name);
  std::ranges::transform(text, text.begin(), FoldAscii);
  return text;
}

std::size_t ElementOffset(const TXmlNode& node) {
  return static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.Offset(), 0));
}

class TChecker {
  template <class Items>
  static auto* Find(const Items& items, std::string_view name) {
    const auto it = std::ranges::find_if(items, [&](const auto& item) { return SameFolded(item.Name, name); });
    return it == items.end() ? nullptr : &*it;
  }

 public:
  TChecker(const TXmlDocument& document, std::vector<TConfigFinding>& out) : FDocument(document), FOut(out) {}

  void Check(const TXmlNode& node, const std::string& path, TXmlSubConfig& record, bool isRoot) {
    TNames names;
    record.Publish(names);
    for (const auto& [name, sub] : record.SubConfigs()) names.Children.push_back({name, sub});
    TElement element{node, path, names, isRoot};
    element.IsOpen = !isRoot && names.Values.empty() && names.Children.empty() && names.Lists.empty();
    const auto attributes = node.Attributes();
    const auto offsets = attributes.empty() ? std::vector<std::size_t>() : FDocument.AttributeOffsets(node);
    for (std::size_t i = 0; i < attributes.size(); ++i) {
      const auto& [name, text] = attributes[i];
      const std::size_t at = i < offsets.size() ? offsets[i] : ElementOffset(node);
      if (const auto* const value = Find(names.Values, name))
        CheckValue(*value, at, element, name, text);
      else
        CheckForeign(at, element, std::string(name));
    }
    CheckChildren(element);
  }

 private:
  static constexpr int kMostSuggested = 1000;  // in one element: no person reads more, and it takes its time

  struct TElement {
    const TXmlNode& Node;
    const std::string& Path;
    TNames& Names;
    bool IsRoot;
    bool IsOpen = false;                   // the section belongs to the interface
    std::vector<std::string_view> Seen{};  // of the names that the record knows
    int Unknown = 0;
    [[nodiscard]] std::string At(std::string_view name) const {
      return Path.empty() ? std::string(name) : Path + "/" + std::string(name);
    }
    // Whether the name is there for the second time.
    [[nodiscard]] bool Again(std::string_view name) {
      if (std::ranges::find(Seen, name) != Seen.end()) return true;
      Seen.push_back(name);
      return false;
    }
  };

  TConfigFinding& Add(std::size_t offset, std::string path, std::string text) {
    return FOut.emplace_back(TConfigFinding{offset, {}, std::move(path), std::move(text)});
  }

  void CheckValue(const TNames::TValue& value, std::size_t at, TElement& element, std::string_view name,
                  const std::string_view text) {
    if (element.Again(value.Name)) {
      Add(at, element.At(name), Tr("is there already; this one is not read"));
      return;
    }
    std::string fault = value.Fault(text);
    if (fault.empty()) return;
    if (value.Text) fault += Format(" (%s)", Tr(value.Text));
    Add(at, element.At(value.Name), std::move(fault));
  }

  void CheckChildren(TElement& element) {
    const TNames& names = element.Names;
    const auto children = element.Node.Children();
    std::map<std::string, std::pair<std::size_t, std::size_t>, std::less<>> counts;  // all of a name, and so far
    for (const TXmlNode& child : children) ++counts[Folded(child.Name())].first;
    for (const TXmlNode& child : children) {
      const std::size_t at = ElementOffset(child);
      const std::string_view name = child.Name();
      auto& [all, number] = counts[Folded(name)];
      ++number;
      const auto* const item = Find(names.Lists, name);
      const std::string numbered = std::string(name) + (all > 1 || item ? Format("[%zu]", number) : "");
      if (const auto* const sub = Find(names.Children, name)) {
        if (element.Again(sub->Name))
          Add(at, element.At(numbered), Tr("a section of this name is there already; this one is not read"));
        else
          Check(child, element.At(sub->Name), *sub->Record, false);
      } else if (item) {
        Check(child, element.At(numbered), *item->Record, false);
      } else if (const auto* const value = Find(names.Values, name); value && !child.HasElements()) {
        CheckValue(*value, at, element, number > 1 ? std::string_view(numbered) : name, child.Text());
      } else {
        CheckForeign(at, element, numbered);
      }
    }
  }

  void CheckForeign(std::size_t at, TElement& element, const std::string& numbered) {
    const TNames& names = element.Names;
    const std::string_view name = std::string_view(numbered).substr(0, numbered.find('['));
    if (std::ranges::any_of(names.Ignored, [&](auto ignored) { return SameFolded(ignored, name); })) return;
    for (const auto prefix : names.Prefixes)
      if (name.size() > prefix.size() && SameFolded(name.substr(0, prefix.size()), prefix) &&
          ParseNumber<std::uint32_t>(name.substr(prefix.size())))
        return;
    if (element.IsOpen) return;
    TNearestName nearest(name);
    if (element.Unknown++ < kMostSuggested) {
      for (const auto& value : names.Values) nearest.Consider(value.Name);
      for (const auto& child : names.Children) nearest.Consider(child.Name);
      for (const auto& item : names.Lists) nearest.Consider(item.Name);
    }
    std::string text = element.IsRoot ? Tr("unknown section") : Tr("unknown name");
    const bool isForeign = nearest.Found().empty();
    if (!isForeign) text += "; " + nearest.DidYouMean();
    Add(at, element.At(numbered), std::move(text)).Foreign = isForeign;
  }

  const TXmlDocument& FDocument;
  std::vector<TConfigFinding>& FOut;
};

// Where the elements and attributes of paths stand; of what is missing, where it would belong. The children of an
// element are looked through once, however many of them are asked for.
class TPlaces {
 public:
  explicit TPlaces(const TXmlDocument& document) : FDocument(document), FRoot(document.Root(FContext)) {}

  std::size_t OffsetOf(std::string_view path) {
    const auto slash = path.rfind('/');
    const auto [node, whole] =
        slash == std::string_view::npos ? std::pair(FRoot, true) : Element(path.substr(0, slash));
    if (!whole) return ElementOffset(node);
    const std::string_view name = path.substr(slash + 1);  // all of it where there is no slash
    const auto attributes = node.Attributes();
    const auto it = std::ranges::find_if(attributes, [&](const auto& a) { return SameFolded(a.Name, name); });
    if (it != attributes.end()) {
      const auto offsets = FDocument.AttributeOffsets(node);
      if (const auto index = static_cast<std::size_t>(it - attributes.begin()); index < offsets.size())
        return offsets[index];
    }
    const TXmlNode child = node.Child(name);
    return ElementOffset(child ? child : node);
  }

 private:
  using TChildren = std::unordered_map<std::string, std::vector<TXmlNode>>;  // by name

  // The element, or the last one on its path that there is.
  std::pair<TXmlNode, bool> Element(std::string_view path) {
    TXmlNode node = FRoot;
    while (!path.empty()) {
      const std::string_view part = path.substr(0, path.find('/'));
      path.remove_prefix(std::min(part.size() + 1, path.size()));
      const auto bracket = std::min(part.find('['), part.size());
      std::size_t number = 1;
      if (bracket < part.size())
        number = ParseNumber<std::uint32_t>(part.substr(bracket + 1, part.size() - bracket - 2)).value_or(1);
      const auto& children = ChildrenOf(node);
      const auto named = children.find(Folded(part.substr(0, bracket)));
      if (named == children.end() || number < 1 || number > named->second.size()) return {node, false};
      node = named->second[number - 1];
    }
    return {node, true};
  }

  const TChildren& ChildrenOf(const TXmlNode& node) {
    const auto [it, isNew] = FChildren.try_emplace(node.Handle());
    if (isNew)
      for (const TXmlNode& child : node.Children()) it->second[Folded(child.Name())].push_back(child);
    return it->second;
  }

  const TXmlDocument& FDocument;
  TXmlContext FContext;
  TXmlNode FRoot;
  std::unordered_map<const void*, TChildren> FChildren;
};

// Brings them into the order of the document and says the place of each, in one way through the text.
void Settle(const TXmlDocument& document, std::vector<TConfigFinding>& findings) {
  std::ranges::stable_sort(findings, {}, &TConfigFinding::Offset);
  const std::string& text = document.Text();
  std::size_t line = 1;
  std::size_t start = 0;  // of the line
  std::size_t at = 0;
  for (TConfigFinding& finding : findings) {
    for (; at < std::min(finding.Offset, text.size()); ++at) {
      if (text[at] != '\n') continue;
      ++line;
      start = at + 1;
    }
    finding.Place = Format("%zu:%zu", line, at - start + 1);
  }
}

}  // namespace

std::vector<TConfigFinding> CheckDocument(const TXmlDocument& document, TXmlSubConfig& root) {
  std::vector<TConfigFinding> findings;
  TXmlContext context;
  TChecker(document, findings).Check(document.Root(context), {}, root, true);
  Settle(document, findings);
  return findings;
}

void AddFindings(const TXmlDocument& document, const std::vector<TProblem>& problems,
                 std::vector<TConfigFinding>& findings) {
  std::unordered_set<std::size_t> known;
  for (const TConfigFinding& finding : findings) known.insert(finding.Offset);
  TPlaces places(document);
  for (const TProblem& problem : problems) {
    const std::size_t offset = places.OffsetOf(problem.Where);
    if (known.contains(offset)) continue;
    findings.push_back({offset,
                        {},
                        problem.Where,
                        TProblem{.What = problem.What, .Why = problem.Why, .Remedy = problem.Remedy}.Text()});
  }
  Settle(document, findings);
}

}  // namespace ixocontroller
