#include "controller/config/ConfigView.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"

namespace ixocontroller {
namespace {

std::string BelowPath(const std::string& path, std::string_view name) {
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
    for (const auto& [name, sub] : record.SubConfigs()) Visit(*sub, out, BelowPath(path, name), schema, isItem);
  }

  template <class T, class D>
  void Value(TPropName name, T& value, const D& def, const TFieldRule& rule) {
    FOut.push_back({BelowPath(FPath, name.Text),
                    TypeName<T>(),
                    ValueText(T(def)),
                    ValueText(value),
                    ixocontroller::RangeText(rule),
                    FIsItem,
                    {}});
  }
  void Child(TPropName name, TXmlSubConfig& child) override {
    Visit(child, FOut, BelowPath(FPath, name.Text), FSchema, FIsItem);
  }
  void List(TPropName itemName, TXmlListBase& list) override {
    if (FSchema) {
      const auto item = list.MakeItem();
      return Visit(*item, FOut, BelowPath(FPath, itemName.Text) + "[]", FSchema, true);
    }
    for (std::size_t i = 0; i < list.Size(); ++i)
      Visit(list.At(i), FOut, Format("%s[%zu]", BelowPath(FPath, itemName.Text).c_str(), i + 1), FSchema, true);
  }
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) override {
    const auto add = [&](const std::string& number, const std::string& text) {
      const std::string path = BelowPath(FPath, prefix.Text) + number;
      FOut.push_back({path, TypeName<std::string>(), "", text, "", true, {.Text = FIndexedText}});
    };
    if (FSchema) return add("<n>", "");
    for (const auto& [index, text] : texts) add(ValueText(index), text);
  }

 private:
  void Said(const TFieldFacts& facts) override { FOut.back().Facts = facts; }

  std::vector<TPropertyView>& FOut;
  const std::string FPath;
  const bool FSchema;
  const bool FIsItem;
};

// What stands directly in a section: "CleanCount, CleanSpeed", "ClientWork/", "PosItem[]/".
std::string ContentsOf(const std::vector<TPropertyView>& views, std::string_view section) {
  std::string names;
  std::string_view last;
  for (const TPropertyView& view : views) {
    if (view.Path.size() <= section.size() + 1 || !IsUnder(view.Path, section)) continue;
    const std::string_view rest = std::string_view(view.Path).substr(section.size() + 1);
    const std::string_view name =
        rest.substr(0, rest.find('/') == std::string_view::npos ? rest.size() : rest.find('/') + 1);
    if (name == last) continue;
    last = name;
    AddToList(names, name);
  }
  return names;
}

// "MarkPoints/MarkPoint[3]/Enabled" as the schema names it: "MarkPoints/MarkPoint[]/Enabled".
std::string WithoutNumbers(std::string_view path) {
  std::string plain;
  for (std::size_t i = 0; i < path.size(); ++i) {
    plain += path[i];
    if (path[i] != '[') continue;
    const std::size_t end = path.find(']', i);
    if (end == std::string_view::npos) return std::string(path);
    i = end - 1;
  }
  return plain;
}

TProblem Wrong(std::string what, std::string remedy = {}) {
  return {.What = std::move(what), .Remedy = std::move(remedy)};
}

// What was probably meant by a path that there is not: the same name in another section, or a name that is near.
TProblem NoSuchPath(TXmlSubConfig& root, std::string_view path, const char* what) {
  constexpr std::size_t kMostNames = 4;
  const std::vector<TPropertyView> views = ViewProperties(root, false);
  std::vector<std::string> sections;
  for (const TPropertyView& view : views)
    for (auto slash = view.Path.find('/'); slash != std::string::npos; slash = view.Path.find('/', slash + 1))
      if (std::string section = view.Path.substr(0, slash); sections.empty() || sections.back() != section)
        sections.push_back(std::move(section));

  std::vector<std::string_view> meant;
  const std::string tail = "/" + std::string(path);
  const auto ends = [&](std::string_view known) {
    return known.size() > tail.size() && SameFolded(known.substr(known.size() - tail.size()), tail);
  };
  for (const TPropertyView& view : views)
    if (ends(view.Path)) meant.push_back(view.Path);
  TNearestName nearest(path);
  for (const TPropertyView& view : views) nearest.Consider(view.Path);
  for (const std::string& section : sections) nearest.Consider(section);
  if (meant.empty() && !nearest.Found().empty()) meant.push_back(nearest.Found());
  if (meant.empty() && path.find('/') == std::string_view::npos) {  // a misspelt name without its section
    TNearestName name(path);
    const auto nameOf = [](std::string_view known) { return known.substr(known.rfind('/') + 1); };
    for (const TPropertyView& view : views) name.Consider(nameOf(view.Path));
    for (const TPropertyView& view : views)
      if (!name.Found().empty() && nameOf(view.Path) == name.Found()) meant.push_back(view.Path);
  }
  std::string names;
  for (std::size_t i = 0; i < std::min(meant.size(), kMostNames); ++i)
    names += (i == 0 ? "" : ", ") + std::string(meant[i]);
  return Wrong(Format(what, std::string(path).c_str()),
               names.empty() ? Tr("\"ixocut config schema\" lists what there is") : DidYouMean(names));
}

// The item of a list that is not there, if the path asks for one that there could be.
std::optional<TProblem> NoSuchItem(TXmlSubConfig& root, std::string_view path) {
  const auto bracket = path.rfind('[');
  if (bracket == std::string_view::npos) return std::nullopt;
  const std::string plain = WithoutNumbers(path);
  const auto schema = ViewProperties(root, true);
  if (std::ranges::none_of(schema, [&](const auto& view) { return IsUnder(view.Path, plain); })) return std::nullopt;
  // The first number in the path that there is not.
  const auto views = ViewProperties(root, false);
  const auto there = [&](std::string_view part) {
    return std::ranges::any_of(views, [&](const auto& view) { return IsUnder(view.Path, part); });
  };
  for (auto end = path.find(']'); end != std::string_view::npos; end = path.find(']', end + 1)) {
    const std::string_view item = path.substr(0, end + 1);
    if (there(item)) continue;
    const std::string_view list = item.substr(0, item.rfind('['));
    std::size_t count = 0;
    while (there(Format("%s[%zu]", std::string(list).c_str(), count + 1))) ++count;
    return Wrong(Format(Tr("there is no %s: the list has %zu, counted from 1"), std::string(item).c_str(), count));
  }
  return std::nullopt;
}

}  // namespace

bool IsUnder(std::string_view path, std::string_view section) {
  if (section.empty() || SameFolded(path, section)) return true;
  return path.size() > section.size() && SameFolded(path.substr(0, section.size()), section) &&
         (path[section.size()] == '/' || path[section.size()] == '[');
}

std::string RangeText(const TFieldRule& rule) {
  if (std::isinf(rule.Min) && std::isinf(rule.Max)) return {};
  return Format("%.10g..%.10g", rule.Min, rule.Max);
}

std::string TPropertyView::RangeText() const {
  if (!Range.empty()) return Range;
  if (std::string bound = BoundText(Facts.Bound); !bound.empty()) return bound;
  return Type == TypeName<std::string>() || Type == TypeName<bool>() ? "" : Tr("any");
}

std::vector<TPropertyView> ViewProperties(TXmlSubConfig& root, bool schema) {
  std::vector<TPropertyView> views;
  TViewer::Visit(root, views, {}, schema, false);
  return views;
}

TResult<TPropertyView> FindProperty(TXmlSubConfig& root, std::string_view path) {
  auto views = ViewProperties(root, false);
  const auto view = std::ranges::find_if(views, [&](const auto& v) { return SameFolded(v.Path, path); });
  if (view != views.end()) return std::move(*view);
  if (auto none = NoSuchItem(root, path)) return *std::move(none);
  for (const bool schema : {false, true})
    if (const std::string names = ContentsOf(schema ? ViewProperties(root, true) : views, path);
        !names.empty() && !path.empty())
      return Wrong(Format(Tr("\"%s\" is a section; it holds %s"), std::string(path).c_str(), names.c_str()));
  return NoSuchPath(root, path, Tr("\"%s\" is no property of the configuration"));
}

TResult<std::vector<TPropertyView>> FindSection(TXmlSubConfig& root, std::string_view path) {
  auto views = ViewProperties(root, false);
  std::erase_if(views, [&](const auto& view) { return !IsUnder(view.Path, path); });
  if (!views.empty()) return views;
  if (auto none = NoSuchItem(root, path)) return *std::move(none);
  const auto schema = ViewProperties(root, true);
  if (std::ranges::any_of(schema, [&](const auto& view) { return IsUnder(view.Path, path); })) return views;
  if (root.SubConfig(path)) return views;
  return NoSuchPath(root, path, Tr("\"%s\" is no section of the configuration"));
}

TResult<> SetProperty(TXmlSubConfig& root, std::string_view path, const std::string& value) {
  std::size_t wrong = 0;
  if (!IsXmlText(value, wrong)) return Wrong(Tr("the value is no text that an XML file can hold"));
  TXmlSubConfig* record = &root;
  const TXmlSubConfig* parent = nullptr;
  std::string_view rest = path;
  for (auto slash = rest.find('/'); record && slash != std::string_view::npos; slash = rest.find('/')) {
    parent = record;
    record = record->SubConfig(rest.substr(0, slash));
    rest.remove_prefix(slash + 1);
  }
  if (record)
    for (auto& view : ViewProperties(*record, true)) {
      if (view.Path.ends_with("<n>")) {  // any number
        view.Path.resize(view.Path.size() - 3);
        const auto digits = rest.substr(std::min(view.Path.size(), rest.size()));
        if (ParseNumber<std::uint32_t>(digits)) view.Path += digits;
      }
      if (!SameFolded(view.Path, rest)) continue;
      if (std::string why = parent ? parent->RefusesInItem(*record, rest, value) : std::string(); !why.empty())
        return TProblem{.What = std::move(why), .Where = std::string(path)};
      if (record->SetText(rest, value)) return {};
      const std::string range = view.Range.empty() ? BoundText(view.Facts.Bound) : view.Range;
      return TProblem{.What = range.empty() ? Format(Tr("\"%s\" is no %s"), value.c_str(), Tr(view.Type.c_str()))
                                            : Format(Tr("\"%s\" is no %s in %s"), value.c_str(), Tr(view.Type.c_str()),
                                                     range.c_str()),
                      .Where = std::string(path),
                      .Why = view.Text()};
    }
  if (auto found = FindProperty(root, path); !found) return found.Problem();
  return Wrong(Format(Tr("\"%s\" is no property of the configuration"), std::string(path).c_str()));
}

std::optional<std::string> ForeignValue(TConfigSection section, const std::string& path) {
  std::string rest = path;
  for (auto slash = rest.find('/'); slash != std::string::npos; slash = rest.find('/')) {
    std::string part = rest.substr(0, slash);
    std::size_t number = 1;
    if (const auto bracket = part.find('['); bracket != std::string::npos && part.ends_with(']')) {
      number = ParseNumber<std::uint32_t>(part.substr(bracket + 1, part.size() - bracket - 2)).value_or(0);
      part.resize(bracket);
    }
    const auto children = section.Children(part);
    if (number < 1 || number > children.size()) return std::nullopt;
    section = children[number - 1];
    rest.erase(0, slash + 1);
  }
  // Two different defaults tell a missing value from any text.
  const std::string text = section.GetText(rest, "a");
  if (text == "a" && section.GetText(rest, "b") == "b") return std::nullopt;
  return text;
}

}  // namespace ixocontroller
