#include "controller/config/ConfigShape.h"

#include <algorithm>
#include <cctype>

#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

const std::vector<TSimProperty>& Asked() {
  static const std::vector<TSimProperty> asked = TSimConfig::Properties();
  return asked;
}

TConfigShape& Entry(std::vector<TConfigShape::TNamed>& entries, std::string_view name) {
  const auto it = std::ranges::find(entries, name, &TConfigShape::TNamed::Name);
  if (it != entries.end()) return *it->Shape;
  return *entries.emplace_back(TConfigShape::TNamed{std::string(name), std::make_shared<TConfigShape>()}).Shape;
}

// "Axis[2]" and "Axis[]" are the same place.
std::string WithoutNumbers(std::string_view path) {
  std::string text;
  bool inside = false;
  for (const char c : path) {
    inside = c == '[' || (inside && c != ']');
    if (!inside || c == '[') text += c;
  }
  return text;
}

// What the program reads and no record of `config` has.
std::shared_ptr<TConfigShape> OthersOf(TXmlSubConfig& config) {
  auto shape = std::make_shared<TConfigShape>();
  for (const TSimProperty& property : Asked())
    if (!config.SubConfig(property.Path.substr(0, property.Path.find('/')))) shape->Add(property.Path, property);
  return shape;
}

}  // namespace

void TConfigShape::Add(std::string_view path, const TSimProperty& property) {
  const auto slash = path.find('/');
  if (slash == std::string_view::npos) {
    Values.push_back(property);
    Values.back().Path = path;
    return;
  }
  std::string_view name = path.substr(0, slash);
  const bool isList = name.ends_with("[]");
  if (isList) name.remove_suffix(2);
  Entry(isList ? Lists : Children, name).Add(path.substr(slash + 1), property);
}

class TShapedRecord::TItems final : public TXmlListBase {
 public:
  explicit TItems(std::shared_ptr<const TConfigShape> shape) : FShape(std::move(shape)) {}
  void Clear() override { FItems.clear(); }
  TXmlSubConfig& AddForLoad() override { return *FItems.emplace_back(std::make_unique<TShapedRecord>(FShape)); }
  [[nodiscard]] std::size_t Size() const override { return FItems.size(); }
  TXmlSubConfig& At(std::size_t index) override { return *FItems[index]; }
  [[nodiscard]] std::unique_ptr<TXmlSubConfig> MakeItem() const override {
    auto item = std::make_unique<TShapedRecord>(FShape);
    item->Initialize();
    return item;
  }

 private:
  const std::shared_ptr<const TConfigShape> FShape;
  std::vector<std::unique_ptr<TShapedRecord>> FItems;
};

TShapedRecord::TShapedRecord(std::shared_ptr<const TConfigShape> shape) : FShape(std::move(shape)) {
  for (const TSimProperty& value : FShape->Values) FValues.push_back(value.Default);
  for (const auto& child : FShape->Children) FChildren.push_back(std::make_unique<TShapedRecord>(child.Shape));
  for (const auto& list : FShape->Lists) FLists.push_back(std::make_unique<TItems>(list.Shape));
}

TShapedRecord::~TShapedRecord() = default;

void TShapedRecord::Publish(TPublisher& p) {
  for (std::size_t i = 0; i < FValues.size(); ++i) {
    const TSimProperty& property = FShape->Values[i];
    const TPropName name = TPropName::Of(property.Path);
    std::visit(
        [&](auto& value) {
          using T = std::decay_t<decltype(value)>;
          const T& def = std::get<T>(property.Default);
          if constexpr (std::is_same_v<T, std::string>)
            p.Field(name, value, def.c_str(), kOptional);
          else if constexpr (std::is_same_v<T, bool>)
            p.Field(name, value, def, kOptional);
          else
            p.Field(name, value, def, Within(property.Min, property.Max));
        },
        FValues[i]);
  }
  for (std::size_t i = 0; i < FChildren.size(); ++i) p.Child(TPropName::Of(FShape->Children[i].Name), *FChildren[i]);
  for (std::size_t i = 0; i < FLists.size(); ++i) p.List(TPropName::Of(FShape->Lists[i].Name), *FLists[i]);
}

TWholeConfig::TWholeConfig() {
  AddSubConfig("Alarms", FAlarms);
  AddSubConfig(kKeyDefinitionSection, FKeys);
  FOthers = std::make_unique<TShapedRecord>(OthersOf(*this));
}

TWholeConfig::~TWholeConfig() { Die(); }

void TWholeConfig::Publish(TPublisher& p) {
  if (FOthers) FOthers->Publish(p);
  FJog.Publish(p);
}

const TSimProperty* AskedFor(std::string_view path) {
  const std::string plain = WithoutNumbers(path);
  const auto it =
      std::ranges::find_if(Asked(), [&](const TSimProperty& p) { return SameFolded(WithoutNumbers(p.Path), plain); });
  return it == Asked().end() ? nullptr : &*it;
}

std::string RangeOf(const TSimProperty& property) {
  if (std::holds_alternative<bool>(property.Default) || std::holds_alternative<std::string>(property.Default))
    return {};
  return Format("%.10g..%.10g", property.Min, property.Max);
}

}  // namespace ixocontroller
