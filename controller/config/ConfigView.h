// A machine configuration property by property: each with its path, type, default, value and what its record's line
// says of it, taken from the records' own lists. No locks; see XmlSubConfig.h.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

// One property. Items of lists have a 1-based number: "MarkPoints/MarkPoint[2]/Enabled". Nothing here fails.
struct TPropertyView {
  std::string Path;
  std::string Type;  // as TypeName says
  std::string Default;
  std::string Value;
  std::string Range;    // what the record can hold, "1..1000"; empty: any
  bool IsItem = false;  // belongs to an item of a list
  TFieldFacts Facts;    // what else its line says

  // What a value may be, for who knows no machine: "1..1000", "axis X"; "any" of a number that may be anything; empty
  // for texts and switches.
  [[nodiscard]] std::string RangeText() const;
  [[nodiscard]] std::string Unit() const { return Tr(UnitText(Facts.Unit)); }          // empty: none
  [[nodiscard]] std::string Text() const { return Facts.Text ? Tr(Facts.Text) : ""; }  // its sentence
};

// "Boolean", "Integer", "Cardinal", "Double", "Extended" or "string". Does not fail.
template <class T>
[[nodiscard]] constexpr const char* TypeName() {
  if constexpr (std::is_same_v<T, bool>) return TrMark("Boolean");
  if constexpr (std::is_same_v<T, std::int32_t>) return TrMark("Integer");
  if constexpr (std::is_same_v<T, std::uint32_t>) return TrMark("Cardinal");
  if constexpr (std::is_same_v<T, double>) return TrMark("Double");
  if constexpr (std::is_same_v<T, long double>) return TrMark("Extended");
  return "string";
}
// "1..1000"; empty where the record can hold anything.
[[nodiscard]] std::string RangeText(const TFieldRule& rule);

// Whether the path is the section's own, or of something in it; everything is under the empty one.
[[nodiscard]] bool IsUnder(std::string_view path, std::string_view section);

// In the order of the sections and of their properties. With `schema` each list shows one item, numbered "[]", and
// texts by number show one, "<n>". Does not fail.
[[nodiscard]] std::vector<TPropertyView> ViewProperties(TXmlSubConfig& root, bool schema);

// The present property of this path as ViewProperties names it, without regard to case. A path of a section is refused
// with what the section holds, any other wrong one with what was probably meant.
TResult<TPropertyView> FindProperty(TXmlSubConfig& root, std::string_view path);

// The properties of this section, an item of a list or a single property; all for an empty path, none of a section
// that has none. Refused with what was probably meant.
TResult<std::vector<TPropertyView>> FindSection(TXmlSubConfig& root, std::string_view path);

// What the file has at this path where no record knows it; nothing: the file has nothing there.
[[nodiscard]] std::optional<std::string> ForeignValue(TConfigSection root, const std::string& path);

// Sets one property by its path. Refused is what is no value of its type or cannot be held by its record, and what
// FindProperty refuses; then nothing is changed.
TResult<> SetProperty(TXmlSubConfig& root, std::string_view path, const std::string& value);

}  // namespace ixocontroller
