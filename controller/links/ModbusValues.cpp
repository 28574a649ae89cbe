#include "controller/links/ModbusValues.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <optional>
#include <sstream>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
using namespace ixocamglue;
namespace {

std::uint16_t Ordered(std::uint16_t word, const TValueForm& form) {
  return form.LowByteFirst ? static_cast<std::uint16_t>(word << 8 | word >> 8) : word;
}

std::uint32_t RawOf(std::span<const std::uint16_t> words, const TValueForm& form) {
  std::uint32_t raw = 0;
  for (std::size_t i = 0; i < words.size(); ++i)
    raw = raw << 16 | Ordered(words[form.LowWordFirst ? words.size() - 1 - i : i], form);
  return raw;
}

template <class Number>
std::optional<std::uint32_t> RawNumber(const std::string& text) {
  if constexpr (std::is_floating_point_v<Number>) {
    const auto value = ParseExactly<Number>(text);
    return value ? std::optional(std::bit_cast<std::uint32_t>(*value)) : std::nullopt;
  } else {
    const auto value = ParseHexOrDecimal<Number>(text);
    return value ? std::optional(static_cast<std::uint32_t>(*value)) : std::nullopt;
  }
}

std::optional<std::uint32_t> RawOf(const std::string& text, TValueType type) {
  switch (type) {
    case vtBit: return text == "0" || text == "1" ? RawNumber<std::uint16_t>(text) : std::nullopt;
    case vtUint16: return RawNumber<std::uint16_t>(text);
    case vtInt16: return RawNumber<std::int16_t>(text);
    case vtUint32: return RawNumber<std::uint32_t>(text);
    case vtInt32: return RawNumber<std::int32_t>(text);
    case vtFloat32: return RawNumber<float>(text);
  }
  return {};
}

const char* RangeText(TValueType type) {
  switch (type) {
    case vtBit: return Tr("a coil is 0 or 1");
    case vtUint16: return Tr("uint16 is 0 to 65535 or 0x0 to 0xFFFF");
    case vtInt16: return Tr("int16 is -32768 to 32767");
    case vtUint32: return Tr("uint32 is 0 to 4294967295 or 0x0 to 0xFFFFFFFF");
    case vtInt32: return Tr("int32 is -2147483648 to 2147483647");
    case vtFloat32: return Tr("float32 is a number like 1.5 or -2e3, at most 3.4e38");
  }
  return "";
}

void AppendValue(std::vector<std::uint16_t>& words, const std::string& field, const TValueForm& form,
                 const std::string& where) {
  const auto raw = RawOf(field, form.Type);
  if (!raw)
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("\"%s\" is no such value"), field.c_str()),
                                       .Where = where,
                                       .Why = RangeText(form.Type)});
  const auto high = Ordered(static_cast<std::uint16_t>(*raw >> 16), form);
  const auto low = Ordered(static_cast<std::uint16_t>(*raw & 0xFFFF), form);
  if (form.Words() == 2 && !form.LowWordFirst) words.push_back(high);
  words.push_back(low);
  if (form.Words() == 2 && form.LowWordFirst) words.push_back(high);
}

}  // namespace

TValueForm ValueForm(const std::string& type, const std::string& order, const std::string& where) {
  const auto at = [](const auto& names, const std::string& name) {
    return std::ranges::find(names, name) - std::begin(names);
  };
  const auto swaps = at(kValueOrders, order);
  const TValueForm form{static_cast<TValueType>(1 + at(kValueTypes, type)), (swaps & 1) != 0, (swaps & 2) != 0};
  if (form.LowWordFirst && form.Words() == 1)
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("%s is a value of one register, which has no order of words"),
                                                      type.c_str()),
                                       .Where = where,
                                       .Remedy = Tr("name a type of 32 bits with --type, or ask for ABCD or BADC")});
  return form;
}

std::vector<std::uint16_t> ParseValues(const std::vector<std::string>& texts, const TValueForm& form,
                                       const std::string& where) {
  // Here, not by the options' parser, which drops an empty field and shifts the rest.
  std::vector<std::uint16_t> words;
  for (const std::string& text : texts)
    for (const std::string& part : SplitAt(text, ',')) {
      std::istringstream fields(part);
      std::string field;
      fields >> field;
      do AppendValue(words, field, form, where);  // an empty one is refused
      while (fields >> field);
    }
  return words;
}

std::string TextOfValue(std::span<const std::uint16_t> words, const TValueForm& form) {
  const std::uint32_t raw = RawOf(words, form);
  switch (form.Type) {
    case vtBit:
    case vtUint16:
    case vtUint32: return ValueText(raw);
    case vtInt16: return ValueText(static_cast<std::int16_t>(raw));
    case vtInt32: return ValueText(static_cast<std::int32_t>(raw));
    case vtFloat32: return ValueText(std::bit_cast<float>(raw));
  }
  return {};
}

nlohmann::ordered_json JsonOfValue(std::span<const std::uint16_t> words, const TValueForm& form) {
  // The shortest text that reads back the same float, as a number; what is no number has none in JSON.
  if (form.Type == vtFloat32 && !std::isfinite(std::bit_cast<float>(RawOf(words, form)))) return nullptr;
  return nlohmann::ordered_json::parse(TextOfValue(words, form));
}

}  // namespace ixocontroller
