#include "ixocamglue/platform/xml/XmlSubConfig.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/XmlElement.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

struct TXmlSubConfig::TExtras {
  struct TNamed {
    std::string Name;
    std::string Text;
    bool Set = false;  // by the program, so a save writes it
  };
  struct TUnread {
    std::string_view Name;  // a property's, so it lives as long as the program
    std::string Shown;      // what the property was when its text could not be read
  };
  struct TSub {
    std::string Name;
    std::unique_ptr<TXmlSubConfig> Record;
    void* Global = nullptr;
    TClearGlobal Clear = nullptr;
  };
  std::vector<TNamed> Values;
  std::vector<TUnread> Unread;
  std::vector<TSub> Subs;
  std::unique_ptr<pugi::xml_document> Kept;  // the element of a section without properties
  std::int32_t Saved = -1;                   // FOrdinal as the save has numbered it

  TNamed* Find(std::string_view name) {
    auto it = std::ranges::find(Values, name, &TNamed::Name);
    if (it == Values.end())
      it = std::ranges::find_if(Values, [&](const TNamed& v) { return SameFolded(v.Name, name); });
    return it == Values.end() ? nullptr : &*it;
  }
};

namespace {

class TDefaultsPublisher final : public TFieldPublisher<TDefaultsPublisher> {
 public:
  template <class T, class D>
  void Value(TPropName, T& value, const D& def, const TFieldRule&) {
    value = def;
  }
  void Child(TPropName, TXmlSubConfig& child) override { child.Initialize(); }
  void List(TPropName, TXmlListBase& list) override { list.Clear(); }
  void Indexed(TPropName, std::map<std::int32_t, std::string>& texts) override { texts.clear(); }
};

// The number behind `prefix`, when the name is that.
std::optional<std::int32_t> IndexOf(std::string_view name, std::string_view prefix) {
  if (name.size() <= prefix.size() || !SameFolded(name.substr(0, prefix.size()), prefix)) return std::nullopt;
  const auto digits = name.substr(prefix.size());
  if (digits.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  return ParseNumber<std::int32_t>(digits);
}

// The entries of texts by number: of several spellings of a number the exact one, else the first.
std::map<std::int32_t, TXmlElement::TEntry*> IndexedEntries(TXmlElement& element, std::string_view prefix) {
  std::map<std::int32_t, TXmlElement::TEntry*> found;
  const std::string start(prefix);
  for (auto& entry : element.Entries()) {
    if (!entry.Attribute && !entry.Element) continue;
    const auto index = IndexOf(entry.Name(), prefix);
    if (!index || !TXmlElement::IsValue(entry)) continue;
    auto& best = found[*index];
    const std::string exact = start + ValueText(*index);
    if (!best || (best->Name() != exact && entry.Name() == exact)) best = &entry;
  }
  return found;
}

// Finds one published property or child by name, an item of a list by "Name[2]".
class TFindPublisher final : public TFieldPublisher<TFindPublisher> {
 public:
  explicit TFindPublisher(std::string_view name, const std::string* set = nullptr) : FName(name), FSet(set) {}
  template <class T, class D>
  void Value(TPropName name, T& value, const D&, const TFieldRule& rule) {
    if (Found || !SameFolded(name.Text, FName)) return;
    Found = true;
    if (FSet) {
      const auto parsed = ParseValue<T>(*FSet);
      bool allowed = parsed.has_value();
      if constexpr (!std::is_same_v<T, std::string>) allowed = allowed && rule.Allows(*parsed);
      if (allowed) value = *parsed;
      Refused = !allowed;
    }
    Text = ValueText(value);
  }
  void Child(TPropName name, TXmlSubConfig& child) override {
    if (!Record && SameFolded(name.Text, FName)) Record = &child;
  }
  void List(TPropName itemName, TXmlListBase& list) override {
    const auto bracket = FName.find('[');
    if (Record || bracket == std::string_view::npos || !FName.ends_with(']') ||
        !SameFolded(itemName.Text, FName.substr(0, bracket)))
      return;
    const auto number = ParseNumber<std::uint32_t>(FName.substr(bracket + 1, FName.size() - bracket - 2));
    if (number && *number >= 1 && *number <= list.Size()) Record = &list.At(*number - 1);
  }
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) override {
    const auto index = IndexOf(FName, prefix.Text);
    if (Found || !index) return;
    const auto text = texts.find(*index);
    if (text == texts.end() && !FSet) return;
    Found = true;
    if (FSet) texts.insert_or_assign(*index, *FSet);
    Text = texts[*index];
  }

  bool Found = false;
  bool Refused = false;
  std::string Text;
  TXmlSubConfig* Record = nullptr;

 private:
  const std::string_view FName;
  const std::string* const FSet;
};

class TSettlePublisher final : public TFieldPublisher<TSettlePublisher> {
 public:
  template <class T, class D>
  void Value(TPropName, T&, const D&, const TFieldRule&) {}
  void Child(TPropName, TXmlSubConfig& child) override { child.Settle(); }
  void List(TPropName, TXmlListBase& list) override { Lists.push_back(&list); }
  std::vector<TXmlListBase*> Lists;
};

}  // namespace

class TLoadPublisher final : public TFieldPublisher<TLoadPublisher> {
 public:
  TLoadPublisher(TXmlSubConfig& record, TXmlNode node) : FRecord(record), FNode(node), FElement(node) {}

  template <class T, class D>
  void Value(TPropName name, T& value, const D&, const TFieldRule& rule) {
    ++FPublished;
    auto* const entry = FElement.Value(name);
    if (!entry) return;
    entry->Used = true;
    const std::string_view text = TXmlElement::Text(*entry, FScratch);
    if constexpr (std::is_same_v<T, std::string>) {
      value = text;
    } else {
      if (TrimXml(text).empty()) return;
      if (const auto parsed = ParseValue<T>(text); parsed && rule.Allows(*parsed)) {
        value = *parsed;
        return;
      }
      Tell(name, std::string(text), ParseValue<T>(text).has_value(), rule);
      FRecord.Extras().Unread.push_back({name.Text, ValueText(value)});
    }
  }

  void Child(TPropName name, TXmlSubConfig& child) override {
    ++FPublished;
    auto* const entry = FElement.Element(name);
    if (!entry) return;
    entry->Used = true;
    child.LoadFromXmlNode({entry->Element.internal_object(), &FNode.Context()});
  }

  void List(TPropName itemName, TXmlListBase& list) override {
    ++FPublished;
    list.Clear();
    list.FForeign.clear();
    std::int32_t ordinal = 0;
    for (auto& entry : FElement.Entries()) {
      if (!entry.Element || entry.Hash != itemName.Hash || !SameFolded(entry.Name(), itemName.Text)) continue;
      entry.Used = true;
      TXmlSubConfig& item = list.AddForLoad();
      item.Initialize();
      item.FOrdinal = ordinal++;
      item.LoadFromXmlNode({entry.Element.internal_object(), &FNode.Context()});
    }
    list.EndLoad();
  }

  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) override {
    ++FPublished;
    texts.clear();
    for (const auto& [index, entry] : IndexedEntries(FElement, prefix.Text)) {
      entry->Used = true;
      texts.emplace(index, TXmlElement::Text(*entry, FScratch));
    }
  }

  void WriteOnly(TPropName name, const std::string&) override {
    ++FPublished;
    if (auto* const entry = FElement.Value(name)) entry->Used = true;
  }

  void Sub(std::string_view name, TXmlSubConfig& sub) {
    const auto prop = TPropName::Of(name);
    if (FElement.Element(prop)) return Child(prop, sub);
    if (const TXmlNode other = FRecord.Elsewhere(FNode.Parent(), name)) return sub.LoadFromXmlNode(other);
    for (const auto& [deeper, record] :
         sub.SubConfigs())  // the section is missing, what belongs in it may be elsewhere
      if (const TXmlNode other = sub.Elsewhere(FNode, deeper)) record->LoadFromXmlNode(other);
  }

  // What nobody asked for stays readable by name.
  void End() {
    if (!FRecord.KeepsUnknown()) return;
    for (const auto& entry : FElement.Entries()) {
      if (entry.Used || !TXmlElement::IsValue(entry)) continue;
      FRecord.Extras().Values.push_back(
          {std::string(entry.Name()), std::string(TXmlElement::Text(entry, FScratch)), false});
    }
    if (FPublished != 0 || (FRecord.FExtras && !FRecord.FExtras->Subs.empty()) || !FElement.Node().first_child())
      return;
    auto& kept = FRecord.Extras().Kept = std::make_unique<pugi::xml_document>();
    kept->append_copy(FElement.Node());
  }

 private:
  void Tell(const TPropName& name, const std::string& text, bool isValue, const TFieldRule& rule) {
    if (FNode.Context().Quiet) return;
    const std::string path = FNode.Path();
    LogMsg(
        lkWarning, 0,
        Format(Tr("%s: %s%s%s: \"%s\" %s; the default is used"), FNode.Context().File.c_str(), path.c_str(),
               path.empty() ? "" : "/", name.Text.data(), text.c_str(),
               isValue ? Format(Tr("is outside %.10g to %.10g"), rule.Min, rule.Max).c_str() : Tr("cannot be read")));
  }

  TXmlSubConfig& FRecord;
  const TXmlNode FNode;
  TXmlElement FElement;
  std::string FScratch;
  int FPublished = 0;
};

namespace {

// Whether its element would be empty in a new file.
bool SaysNothing(TXmlSubConfig& record) {
  pugi::xml_document document;
  TXmlContext context;
  const pugi::xml_node element = document.append_child("x");
  record.SaveToXmlNode({element.internal_object(), &context});
  return !element.first_attribute() && !element.first_child();
}

}  // namespace

class TSavePublisher final : public TFieldPublisher<TSavePublisher> {
 public:
  TSavePublisher(TXmlSubConfig& record, TXmlNode node) : FRecord(record), FNode(node), FElement(node) {}

  template <class T, class D>
  void Value(TPropName name, T& value, const D& def, const TFieldRule& rule) {
    if constexpr (std::is_floating_point_v<T>)
      if (!std::isfinite(value)) return;  // no text reads back as this; what the file says stays
    auto* const entry = FElement.Value(name);
    if (!entry) {
      if (!rule.Optional || value != T(def)) FElement.AddValue(name.Text, ValueText(value));
      return;
    }
    FElement.Rename(*entry, name.Text);
    if (entry->Attribute) FElement.RemoveShadows(*entry, name);
    if (!Says(*entry, name, value, T(def), rule)) FElement.SetText(*entry, ValueText(value));
  }

  void Child(TPropName name, TXmlSubConfig& child) override {
    auto* const entry = FElement.Element(name);
    if (FRecord.FSparse) child.AddNothingEmpty();
    if (!entry && child.FSparse && SaysNothing(child)) return;
    if (entry) FElement.Rename(*entry, name.Text);
    const auto element = entry ? entry->Element : FElement.AppendElement(name.Text);
    child.SaveToXmlNode({element.internal_object(), &FNode.Context()});
  }

  void List(TPropName itemName, TXmlListBase& list) override {
    const auto isItem = [&](const pugi::xml_node& node) {
      return node.type() == pugi::node_element && SameFolded(node.name(), itemName.Text);
    };
    std::vector<pugi::xml_node> there;
    for (const auto& entry : FElement.Entries())
      if (entry.Hash == itemName.Hash && entry.Element && isItem(entry.Element)) there.push_back(entry.Element);

    enum class TOwner : std::uint8_t { Nobody, Item, Foreign };
    std::vector<TOwner> owner(there.size(), TOwner::Nobody);
    for (const auto& [ordinal, key] : list.FForeign)
      if (InRange(ordinal, there)) owner[static_cast<std::size_t>(ordinal)] = TOwner::Foreign;
    std::vector<pugi::xml_node> nodes(list.Size());
    for (std::size_t i = 0; i < list.Size(); ++i) {
      const auto ordinal = list.At(i).FOrdinal;
      if (!InRange(ordinal, there) || owner[static_cast<std::size_t>(ordinal)] != TOwner::Nobody) continue;
      owner[static_cast<std::size_t>(ordinal)] = TOwner::Item;
      nodes[i] = there[static_cast<std::size_t>(ordinal)];
    }
    pugi::xml_node first;
    for (std::size_t k = 0; k < there.size(); ++k) {
      if (owner[k] == TOwner::Nobody)
        FElement.RemoveElement(there[k]);
      else if (!first)
        first = there[k];
    }

    pugi::xml_node previous;
    std::int32_t reached = -1;  // the last element that stands where it stood
    for (std::size_t i = 0; i < list.Size(); ++i) {
      TXmlSubConfig& item = list.At(i);
      if (!nodes[i])
        nodes[i] = FElement.InsertElement(itemName.Text, previous, first);
      else if (list.IsOrdered() && item.FOrdinal < reached)
        FElement.MoveAfter(nodes[i], previous);
      else
        reached = item.FOrdinal;
      previous = nodes[i];
      FElement.Rename(nodes[i], itemName.Text);
      item.SaveToXmlNode({nodes[i].internal_object(), &FNode.Context()});
    }
    Number(list, isItem, there, nodes);
  }

  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) override {
    const auto there = IndexedEntries(FElement, prefix.Text);
    for (auto& entry : FElement.Entries()) {  // no other spelling of a text that is gone may come in its place
      if (!entry.Attribute && !entry.Element) continue;
      const auto index = IndexOf(entry.Name(), prefix.Text);
      if (index && TXmlElement::IsValue(entry) && !texts.contains(*index)) FElement.Remove(entry);
    }
    for (const auto& [index, text] : texts) {
      const std::string name = std::string(prefix.Text) + ValueText(index);
      const auto it = there.find(index);
      if (it == there.end()) {
        FElement.AddValue(name, text);
        continue;
      }
      FElement.Rename(*it->second, name);
      if (TXmlElement::Text(*it->second, FScratch) != text) FElement.SetText(*it->second, text);
    }
  }

  void WriteOnly(TPropName name, const std::string& text) override {
    std::string shown = text;
    Value(name, shown, "", {});
  }

  void End() {
    if (!FRecord.FExtras) return;
    for (const auto& value : FRecord.FExtras->Values) {
      if (!value.Set) continue;
      auto* const entry = FElement.Value(TPropName::Of(value.Name));
      if (!entry)
        FElement.AddValue(value.Name, value.Text);
      else if (TXmlElement::Text(*entry, FScratch) != value.Text)
        FElement.SetText(*entry, value.Text);
    }
    for (auto& sub : FRecord.FExtras->Subs) {
      auto* const entry = FElement.Element(TPropName::Of(sub.Name));
      if (entry) FElement.Rename(*entry, sub.Name);
      const TXmlNode other = entry ? TXmlNode() : FRecord.Elsewhere(FNode.Parent(), sub.Name);
      const auto element = entry   ? entry->Element
                           : other ? pugi::xml_node(other.Handle())
                                   : FElement.AppendElement(sub.Name);
      sub.Record->SaveToXmlNode({element.internal_object(), &FNode.Context()});
    }
  }

 private:
  static bool InRange(std::int32_t ordinal, const std::vector<pugi::xml_node>& there) {
    return ordinal >= 0 && static_cast<std::size_t>(ordinal) < there.size();
  }

  // Whether reading the text would give the present value, or must not be touched.
  template <class T>
  bool Says(const TXmlElement::TEntry& entry, const TPropName& name, const T& value, const T& def,
            const TFieldRule& rule) {
    const std::string_view text = TXmlElement::Text(entry, FScratch);
    if constexpr (std::is_same_v<T, std::string>) {
      return text == value;
    } else {
      if (TrimXml(text).empty()) return value == def;
      if (const auto parsed = ParseValue<T>(text); parsed && rule.Allows(*parsed)) return *parsed == value;
      return FRecord.FExtras && std::ranges::any_of(FRecord.FExtras->Unread, [&](const auto& unread) {
               return unread.Name == name.Text && unread.Shown == ValueText(value);
             });
    }
  }

  // Notes which element each item has now, for when the file has been replaced.
  template <class IsItem>
  void Number(TXmlListBase& list, IsItem isItem, const std::vector<pugi::xml_node>& there,
              const std::vector<pugi::xml_node>& nodes) {
    std::map<pugi::xml_node_struct*, std::int32_t> numbers;
    std::int32_t number = 0;
    for (const auto& child : FElement.Node().children())
      if (isItem(child)) numbers[child.internal_object()] = number++;
    for (std::size_t i = 0; i < list.Size(); ++i) list.At(i).Extras().Saved = numbers[nodes[i].internal_object()];
    list.FSettled.clear();
    for (const auto& [ordinal, key] : list.FForeign)
      if (InRange(ordinal, there))
        list.FSettled.push_back({numbers[there[static_cast<std::size_t>(ordinal)].internal_object()], key});
  }

  TXmlSubConfig& FRecord;
  const TXmlNode FNode;
  TXmlElement FElement;
  std::string FScratch;
};

TXmlSubConfig::TXmlSubConfig() = default;

TXmlSubConfig::~TXmlSubConfig() { DropSubConfigs(); }

void TXmlSubConfig::DropSubConfigs() {
  if (!FExtras) return;
  for (const auto& sub : FExtras->Subs) sub.Clear(sub.Global, sub.Record.get());
  FExtras->Subs.clear();
}

TXmlSubConfig::TXmlSubConfig(const TXmlSubConfig& other) { *this = other; }

TXmlSubConfig& TXmlSubConfig::operator=(const TXmlSubConfig& other) {
  if (this == &other) return *this;
  if (FExtras) FExtras->Values.clear();
  if (other.FExtras && !other.FExtras->Values.empty()) {
    Extras().Values = other.FExtras->Values;
    for (auto& value : FExtras->Values) value.Set = true;
  }
  return *this;
}

TXmlSubConfig::TExtras& TXmlSubConfig::Extras() {
  if (!FExtras) FExtras = std::make_unique<TExtras>();
  return *FExtras;
}

void TXmlSubConfig::Initialize() {
  TDefaultsPublisher defaults;
  Publish(defaults);
  if (!FExtras) return;
  FExtras->Values.clear();
  FExtras->Unread.clear();
  FExtras->Kept.reset();
  for (const auto& sub : FExtras->Subs) sub.Record->Initialize();
}

void TXmlSubConfig::LoadFromXmlNode(TXmlNode node) {
  if (!node) return;
  if (FExtras) {
    FExtras->Values.clear();
    FExtras->Unread.clear();
    FExtras->Kept.reset();
  }
  TLoadPublisher load(*this, node);
  Publish(load);
  if (FExtras)
    for (const auto& sub : FExtras->Subs) load.Sub(sub.Name, *sub.Record);
  load.End();
}

void TXmlSubConfig::SaveToXmlNode(TXmlNode node) {
  if (!node) return;
  pugi::xml_node element(node.Handle());
  if (FExtras && FExtras->Kept && !element.first_attribute() && !element.first_child()) {
    node.Context().Changed = true;
    const auto kept = FExtras->Kept->first_child();
    for (const auto& attribute : kept.attributes()) element.append_copy(attribute);
    for (const auto& child : kept.children()) element.append_copy(child);
  }
  TSavePublisher save(*this, node);
  Publish(save);
  save.End();
}

void TXmlSubConfig::Settle() {
  TSettlePublisher settle;
  Publish(settle);
  for (TXmlListBase* const list : settle.Lists) {
    list->FForeign = list->FSettled;
    for (std::size_t i = 0; i < list->Size(); ++i) {
      TXmlSubConfig& item = list->At(i);
      item.FOrdinal = item.Extras().Saved;
      item.Settle();
    }
  }
  if (FExtras)
    for (const auto& sub : FExtras->Subs) sub.Record->Settle();
}

TXmlNode TXmlSubConfig::Elsewhere(TXmlNode, std::string_view) const { return {}; }

TXmlSubConfig* TXmlSubConfig::TakenSubConfig(std::string_view name) {
  if (!FExtras) return nullptr;
  const auto it = std::ranges::find(FExtras->Subs, name, &TExtras::TSub::Name);
  if (it == FExtras->Subs.end()) return nullptr;
  return FaultOr(it->Record.get(), Format("AddSubConfig: \"%s\" is there already", it->Name.c_str()));
}

void TXmlSubConfig::AddMade(std::string_view name, std::unique_ptr<TXmlSubConfig> made, void* global,
                            TClearGlobal clear) {
  TXmlSubConfig& record = *made;
  Extras().Subs.push_back({std::string(name), std::move(made), global, clear});
  record.Initialize();
}

TXmlSubConfig* TXmlSubConfig::SubConfig(std::string_view name) {
  if (FExtras)
    for (const auto& sub : FExtras->Subs)
      if (SameFolded(sub.Name, name)) return sub.Record.get();
  TFindPublisher find(name);
  Publish(find);
  return find.Record;
}

std::vector<TXmlSubConfig::TNamedRecord> TXmlSubConfig::SubConfigs() const {
  std::vector<TNamedRecord> subs;
  if (FExtras)
    for (const auto& sub : FExtras->Subs) subs.push_back({sub.Name, sub.Record.get()});
  return subs;
}

std::string TXmlSubConfig::ReadNamed(std::string_view name, bool& found) const {
  TFindPublisher find(name);
  const_cast<TXmlSubConfig*>(this)->Publish(find);  // the visitor only reads
  found = find.Found;
  if (found) return std::move(find.Text);
  const auto* const named = FExtras ? FExtras->Find(name) : nullptr;
  found = named != nullptr;
  return named ? named->Text : std::string();
}

bool TXmlSubConfig::HasValue(std::string_view name) const {
  bool found = false;
  (void)ReadNamed(name, found);
  return found;
}

bool TXmlSubConfig::GetBool(std::string_view name, bool defValue) const {
  bool found = false;
  return ParseBool(ReadNamed(name, found)).value_or(defValue);
}
std::int32_t TXmlSubConfig::GetInt(std::string_view name, std::int32_t defValue) const {
  bool found = false;
  return ParseNumber<std::int32_t>(ReadNamed(name, found)).value_or(defValue);
}
double TXmlSubConfig::GetFloat(std::string_view name, double defValue) const {
  bool found = false;
  return ParseNumber<double>(ReadNamed(name, found)).value_or(defValue);
}
std::string TXmlSubConfig::GetText(std::string_view name, std::string_view defValue) const {
  bool found = false;
  std::string text = ReadNamed(name, found);
  return found ? text : std::string(defValue);
}

bool TXmlSubConfig::SetText(std::string_view name, std::string_view text) {
  const std::string wanted(text);
  TFindPublisher find(name, &wanted);
  Publish(find);
  if (find.Found && !find.Refused && FExtras)  // what the file says is no longer kept, whatever the value is now
    std::erase_if(FExtras->Unread, [&](const TExtras::TUnread& unread) { return SameFolded(unread.Name, name); });
  if (find.Found) return !find.Refused;
  if (auto* const named = Extras().Find(name)) {
    named->Text = wanted;
    named->Set = true;
  } else {
    FExtras->Values.push_back({std::string(name), wanted, true});
  }
  return true;
}

}  // namespace ixocamglue
