// Configuration records: how a class with published properties is stored in an XML element.
//
// A record lists its properties once, in Publish; defaults, load, save, `ixocut config` and the tests all use that
// list. A value is an attribute of the record's element, or else the text of a child element. Names are found by their
// exact spelling, else by the first that matches without regard to case; a save corrects the spelling. What a record
// does not know stays in the file.
//
// No locks: records are edited while no procedure runs; the file's save takes turns (see XmlConfig.h). Nothing here
// throws: what cannot be read is logged and has its default, what cannot be written is told by the save of the file
// (XmlConfig.h).
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "ixocamglue/platform/xml/FieldFacts.h"
#include "ixocamglue/platform/xml/XmlDocument.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

// A stored name with its hash without regard to case; made from a literal while compiling.
struct TPropName {
  consteval TPropName(const char* text) : Text(text), Hash(HashOf(Text)) {}  // a literal is a name
  static TPropName Of(std::string_view text) { return TPropName(text, HashOf(text)); }

  // Length and three letters: cheap, and enough to tell the names of one record apart.
  static constexpr std::uint32_t HashOf(std::string_view text) {
    if (text.empty()) return 0;
    const auto at = [&](std::size_t i) { return std::uint32_t{static_cast<unsigned char>(FoldAscii(text[i]))}; };
    return static_cast<std::uint32_t>(text.size() & 0xFF) | at(text.size() / 2) << 8 | at(text.size() - 1) << 16 |
           at(text.size() / 3) << 24;
  }

  std::string_view Text;
  std::uint32_t Hash;

 private:
  TPropName(std::string_view text, std::uint32_t hash) : Text(text), Hash(hash) {}
};

// How a property is stored. A number outside Min to Max counts as unreadable: that is for what the record itself cannot
// hold; what a machine can use is said by Within, which changes no load and no save.
struct TFieldRule {
  double Min = -std::numeric_limits<double>::infinity();
  double Max = std::numeric_limits<double>::infinity();
  bool Optional = false;  // a save does not add it while it has its default
  [[nodiscard]] bool Allows(long double value) const { return value >= Min && value <= Max; }
};
inline constexpr TFieldRule kOptional{.Optional = true};

class TXmlSubConfig;
class TXmlListBase;

// Who visits a record's properties, in their order.
class TPublisher {
 public:
  virtual ~TPublisher() = default;
  virtual TFieldLine Field(TPropName name, bool& value, bool def = false, const TFieldRule& rule = {}) = 0;
  virtual TFieldLine Field(TPropName name, std::int32_t& value, std::int32_t def = 0, const TFieldRule& rule = {}) = 0;
  virtual TFieldLine Field(TPropName name, std::uint32_t& value, std::uint32_t def = 0,
                           const TFieldRule& rule = {}) = 0;
  virtual TFieldLine Field(TPropName name, double& value, double def = 0, const TFieldRule& rule = {}) = 0;
  virtual TFieldLine Field(TPropName name, long double& value, long double def = 0, const TFieldRule& rule = {}) = 0;
  virtual TFieldLine Field(TPropName name, std::string& value, const char* def = "", const TFieldRule& rule = {}) = 0;
  virtual void Child(TPropName name, TXmlSubConfig& child) = 0;
  virtual void List(TPropName itemName, TXmlListBase& list) = 0;
  // Texts by number, stored under `prefix` and the decimal number. Another spelling of a number ("Name01") is read
  // where that one is missing; beside it, it is as unknown as any other name.
  virtual void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts) = 0;
  // With the sentence that is said of each; see TFieldFacts::Text.
  void Indexed(TPropName prefix, std::map<std::int32_t, std::string>& texts, const char* text) {
    FIndexedText = text;
    Indexed(prefix, texts);
  }
  // Written, never read.
  virtual void WriteOnly(TPropName name, const std::string& text) = 0;

  // Single precision; its shortest text is what the file says.
  TFieldLine Field(TPropName name, float& value, float def = 0, const TFieldRule& rule = {}) {
    const auto widened = [](float number) { return ParseNumber<double>(ValueText(number)).value_or(0); };
    const double before = widened(value);
    double now = before;
    TFieldLine line = Field(name, now, widened(def), rule);
    if (now != before) value = static_cast<float>(now);
    return line;
  }

  // A field that a second thread reads meanwhile.
  template <class T>
  TFieldLine Field(TPropName name, std::atomic<T>& value, T def = {}) {
    const T before = value.load();
    T now = before;
    TFieldLine line = Field(name, now, def);
    if (now != before) value.store(now);
    return line;
  }

 protected:
  TFieldListener* FListener = nullptr;  // who visits to hear the facts sets it
  const char* FIndexedText = nullptr;   // while Indexed is called
};

// A publisher whose one Value template sees every field: Derived::Value(name, value, def, rule).
template <class Derived>
class TFieldPublisher : public TPublisher {
 public:
  using TPublisher::Field;
  TFieldLine Field(TPropName n, bool& v, bool d, const TFieldRule& r) override { return Visit(n, v, d, r); }
  TFieldLine Field(TPropName n, std::int32_t& v, std::int32_t d, const TFieldRule& r) override {
    return Visit(n, v, d, r);
  }
  TFieldLine Field(TPropName n, std::uint32_t& v, std::uint32_t d, const TFieldRule& r) override {
    return Visit(n, v, d, r);
  }
  TFieldLine Field(TPropName n, double& v, double d, const TFieldRule& r) override { return Visit(n, v, d, r); }
  TFieldLine Field(TPropName n, long double& v, long double d, const TFieldRule& r) override {
    return Visit(n, v, d, r);
  }
  TFieldLine Field(TPropName n, std::string& v, const char* d, const TFieldRule& r) override {
    return Visit(n, v, d, r);
  }
  void Child(TPropName, TXmlSubConfig&) override {}
  void List(TPropName, TXmlListBase&) override {}
  void Indexed(TPropName, std::map<std::int32_t, std::string>&) override {}
  void WriteOnly(TPropName, const std::string&) override {}

 private:
  template <class T, class D>
  TFieldLine Visit(TPropName name, T& value, const D& def, const TFieldRule& rule) {
    static_cast<Derived&>(*this).Value(name, value, def, rule);
    return TFieldLine(FListener);
  }
};

class TXmlSubConfig {
 public:
  TXmlSubConfig();
  virtual ~TXmlSubConfig();
  // Copies take the values; the element that a record came from, and its sub-records by name, stay with the record.
  TXmlSubConfig(const TXmlSubConfig& other);
  TXmlSubConfig& operator=(const TXmlSubConfig& other);

  // Sets the defaults, here and in all that belongs to the record. Called after construction and before each load.
  virtual void Initialize();
  // Reads what the element holds; what is missing stays as it is. A text that is no value of its property is logged.
  virtual void LoadFromXmlNode(TXmlNode node);
  // Writes all properties into the element. A text is rewritten only when it does not say the present value, and one
  // that could not be read stays while its property has the value of the load.
  virtual void SaveToXmlNode(TXmlNode node);
  virtual void Publish(TPublisher&) {}

  // Creates a sub-record under an element name and stores it in `variable`, which becomes null again when the record
  // dies. A name that is there already is a design fault; the first is returned (null when it is of another class).
  template <class Record>
  Record* AddSubConfig(std::string_view name, Record*& variable) {
    if (TXmlSubConfig* const there = TakenSubConfig(name)) {
      auto* const record = dynamic_cast<Record*>(there);
      if (record) variable = record;
      return record;
    }
    auto made = std::make_unique<Record>();
    variable = made.get();
    AddMade(name, std::move(made), &variable, [](void* global, const TXmlSubConfig* dying) {
      auto*& slot = *static_cast<Record**>(global);
      if (static_cast<const TXmlSubConfig*>(slot) == dying) slot = nullptr;
    });
    return variable;
  }
  // The sub-record of this name, published or added; null when there is none.
  [[nodiscard]] TXmlSubConfig* SubConfig(std::string_view name);
  // The added sub-records, in order.
  struct TNamedRecord {
    std::string_view Name;
    TXmlSubConfig* Record;
  };
  [[nodiscard]] std::vector<TNamedRecord> SubConfigs() const;

  // Values by name: a published property, or anything else that the element holds as a value.
  [[nodiscard]] bool GetBool(std::string_view name, bool defValue) const;
  [[nodiscard]] std::int32_t GetInt(std::string_view name, std::int32_t defValue) const;
  [[nodiscard]] double GetFloat(std::string_view name, double defValue) const;
  [[nodiscard]] std::string GetText(std::string_view name, std::string_view defValue) const;
  [[nodiscard]] bool HasValue(std::string_view name) const;
  // A text that is no value of the published property of this name is refused.
  bool SetBool(std::string_view name, bool value) { return SetText(name, ValueText(value)); }
  bool SetInt(std::string_view name, std::int32_t value) { return SetText(name, ValueText(value)); }
  bool SetFloat(std::string_view name, double value) { return SetText(name, ValueText(value)); }
  bool SetText(std::string_view name, std::string_view text);
  // Why an item of this record's lists must not get that value; empty: it may. For whoever sets properties by name.
  [[nodiscard]] virtual std::string RefusesInItem(const TXmlSubConfig&, std::string_view, std::string_view) const {
    return {};
  }

  // From now on a save adds the element of this record, and those of what belongs to it, only where there is something
  // to say: for a section that most files do not have.
  void AddNothingEmpty() { FSparse = true; }
  // After a save has reached the disk: the elements of the lists are now numbered as the lists are.
  void Settle();

 protected:
  // Ends the added sub-records now, for an owner whose own members are their globals.
  void DropSubConfigs();
  // Where an added sub-record is stored that is not among the children of `own` (none when `own` itself is missing;
  // `parent` is the element that should hold it). None: nowhere yet.
  virtual TXmlNode Elsewhere(TXmlNode parent, std::string_view name) const;

  // Whether values that nobody asked for are read by name too.
  [[nodiscard]] virtual bool KeepsUnknown() const { return true; }

 private:
  friend class TXmlListBase;
  friend class TLoadPublisher;
  friend class TSavePublisher;
  struct TExtras;
  using TClearGlobal = void (*)(void* global, const TXmlSubConfig* dying);

  [[nodiscard]] TXmlSubConfig* TakenSubConfig(std::string_view name);
  void AddMade(std::string_view name, std::unique_ptr<TXmlSubConfig> made, void* global, TClearGlobal clear);
  TExtras& Extras();
  [[nodiscard]] std::string ReadNamed(std::string_view name, bool& found) const;

  std::int32_t FOrdinal = -1;  // which of its list's elements it came from
  bool FSparse = false;
  std::unique_ptr<TExtras> FExtras;
};

// A list of records, one element each, as the load and the save see it.
class TXmlListBase {
 public:
  virtual ~TXmlListBase() = default;
  virtual void Clear() = 0;
  virtual TXmlSubConfig& AddForLoad() = 0;  // constructed, not initialised
  virtual void EndLoad() {}                 // every element has been read
  [[nodiscard]] virtual std::size_t Size() const = 0;
  virtual TXmlSubConfig& At(std::size_t index) = 0;  // below Size(), which nobody checks
  // A fresh item that belongs to no list, for those who want to see its properties.
  [[nodiscard]] virtual std::unique_ptr<TXmlSubConfig> MakeItem() const = 0;

 protected:
  TXmlListBase() = default;
  TXmlListBase(const TXmlListBase&) = default;
  TXmlListBase& operator=(const TXmlListBase&) { return *this; }
  // Whether a save puts the elements into the order of the items.
  [[nodiscard]] virtual bool IsOrdered() const { return true; }
  // An element that is not the list's: it stays where it is in the file. `key` is the list's own name for it.
  void LeaveAlone(const TXmlSubConfig& item, std::int64_t key) { FForeign.push_back({item.FOrdinal, key}); }
  // The first element of this key that was left alone, where there is one, is the item's from now on.
  void TakeOver(TXmlSubConfig& item, std::int64_t key) {
    const auto it = std::ranges::find(FForeign, key, &TForeign::Key);
    if (it == FForeign.end()) return;
    item.FOrdinal = it->Ordinal;
    FForeign.erase(it);
  }

 private:
  friend class TXmlSubConfig;
  friend class TLoadPublisher;
  friend class TSavePublisher;
  struct TForeign {
    std::int32_t Ordinal;
    std::int64_t Key;
  };
  std::vector<TForeign> FForeign;
  std::vector<TForeign> FSettled;  // FForeign as the save has numbered it
};

// The items of one list. Indices count from 0; one outside gives null or false and changes nothing.
template <class Item>
class TXmlList final : public TXmlListBase {
 public:
  TXmlList() = default;
  TXmlList(const TXmlList& other) : TXmlListBase(other) { *this = other; }
  TXmlList& operator=(const TXmlList& other) {
    if (this == &other) return *this;
    Clear();
    for (const auto& item : other.FItems) Add(*item);
    return *this;
  }

  std::int32_t Add(const Item& item) {
    FItems.push_back(std::make_unique<Item>(item));
    return Count() - 1;
  }
  Item& AddNew() {
    FItems.push_back(std::make_unique<Item>());
    FItems.back()->Initialize();
    return *FItems.back();
  }
  bool Delete(std::int32_t index) {
    if (!Holds(index)) return false;
    FItems.erase(FItems.begin() + index);
    return true;
  }
  [[nodiscard]] Item* Get(std::int32_t index) const {
    return Holds(index) ? FItems[static_cast<std::size_t>(index)].get() : nullptr;
  }
  bool Set(std::int32_t index, const Item& item) {
    if (!Holds(index)) return false;
    *FItems[static_cast<std::size_t>(index)] = item;
    return true;
  }
  [[nodiscard]] std::int32_t Count() const { return static_cast<std::int32_t>(FItems.size()); }
  // Keeps the last `count` items, from 0; all, when there are fewer.
  void KeepLast(std::int32_t count) {
    if (Count() > count) FItems.erase(FItems.begin(), FItems.end() - count);
  }
  // Items of the same rank keep their order; pointers to items stay valid.
  template <class Before>
  void StableSort(Before before) {
    std::stable_sort(FItems.begin(), FItems.end(), [&](const auto& a, const auto& b) { return before(*a, *b); });
  }
  [[nodiscard]] auto begin() const { return FItems.begin(); }
  [[nodiscard]] auto end() const { return FItems.end(); }

  void Clear() override { FItems.clear(); }
  TXmlSubConfig& AddForLoad() override { return *FItems.emplace_back(std::make_unique<Item>()); }
  [[nodiscard]] std::size_t Size() const override { return FItems.size(); }
  TXmlSubConfig& At(std::size_t index) override { return *FItems[index]; }
  [[nodiscard]] std::unique_ptr<TXmlSubConfig> MakeItem() const override {
    auto item = std::make_unique<Item>();
    item->Initialize();
    return item;
  }

 private:
  [[nodiscard]] bool Holds(std::int32_t index) const { return index >= 0 && index < Count(); }

  std::vector<std::unique_ptr<Item>> FItems;
};

}  // namespace ixocamglue
