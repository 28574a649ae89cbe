#include "machines/modbus/Address.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "ixocamglue/devcomm/Umodbusframe.h"
#include "ixocamglue/platform/xml/FieldFacts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

struct TTableName {
  const char* Name;
  TModbusTable Table;
  std::uint8_t Read;
};
constexpr std::array<TTableName, 4> kTables = {{{"coil", mtCoil, kModbusReadCoils},
                                                {"input", mtInput, kModbusReadDiscrete},
                                                {"hreg", mtHolding, kModbusRead},
                                                {"ireg", mtInputRegister, kModbusReadInput}}};

const TTableName& Row(TModbusTable table) { return *std::ranges::find(kTables, table, &TTableName::Table); }

std::vector<std::string> Split(std::string_view text, char at) {
  std::vector<std::string> parts{""};
  for (const char c : text)
    if (c == at)
      parts.emplace_back();
    else
      parts.back() += c;
  return parts;
}

// "0..10"
template <class Number>
std::optional<std::pair<Number, Number>> ParseRange(std::string_view text) {
  const auto dots = text.find("..");
  if (dots == std::string_view::npos) return std::nullopt;
  const auto low = ParseNumber<Number>(text.substr(0, dots));
  const auto high = ParseNumber<Number>(text.substr(dots + 2));
  if (!low || !high || *low == *high) return std::nullopt;
  return std::pair(*low, *high);
}

const char* Example(TPointKind kind) {
  switch (kind) {
    case pkInput: return "io:input:0";
    case pkOutput: return "io:coil:3";
    case pkAnalogIn: return "io:ireg:5 0..16 0..32767";
    case pkAnalogOut: return "io:hreg:100 0..10 0..32767";
  }
  return "";
}

// What is wrong with a cell for this kind of point; empty: nothing.
const char* Unfit(TPointKind kind, const TModbusAddress& address) {
  const TModbusTable table = address.Cell.Table;
  if (address.Cell.IsBit() && address.Bit) return Tr("only a register has bits");
  if (IsDigital(kind) && !address.Cell.IsBit() && !address.Bit)
    return Tr("of a register an input or output needs one bit, 0 to 15: hreg:7.3");
  if (!IsDigital(kind) && (address.Cell.IsBit() || address.Bit)) return Tr("an analogue value is a whole register");
  if (kind == pkOutput && (table == mtInput || table == mtInputRegister))
    return Tr("it can only be read; an output is a coil or a bit of a holding register");
  if (kind == pkAnalogOut && table == mtInputRegister)
    return Tr("it can only be read; an analogue output is a holding register");
  return "";
}

}  // namespace

std::uint8_t TModbusCell::ReadFunction() const { return Row(Table).Read; }

std::string TModbusCell::Text() const { return Format("%s:%d", Row(Table).Name, Addr); }

std::string TModbusAddress::Text() const {
  return Station + ":" + Cell.Text() + (Bit ? Format(".%d", *Bit) : std::string());
}

std::string TModbusAddress::Limits() const {
  if (Cell.IsBit() || Bit) return {};
  return Format("%s..%s (%d..%d)", NumberText(Low).c_str(), NumberText(High).c_str(), RawLow, RawHigh);
}

TResult<TModbusAddress> TModbusAddress::Parse(TPointKind kind, std::string_view text) {
  const std::string where(text);
  const auto wrong = [&](std::string what) {
    return TProblem{.What = std::move(what),
                    .Where = where,
                    .Remedy = Format(Tr("write it as station, table and address: %s"), Example(kind))};
  };
  std::vector<std::string> words;
  for (std::string& word : Split(TrimXml(text), ' '))
    if (!word.empty()) words.push_back(std::move(word));
  std::vector<std::string> parts = words.empty() ? words : Split(words[0], ':');
  if (parts.size() != 3 || parts[0].empty()) return wrong(Tr("it is not like an address of a Modbus device"));

  TModbusAddress address;
  address.Station = parts[0];
  TNearestName nearest(parts[1]);
  for (const TTableName& row : kTables) nearest.Consider(row.Name);
  const auto* const table = std::ranges::find(kTables, parts[1], &TTableName::Name);
  if (table == kTables.end())
    return wrong(Format(Tr("\"%s\" is none of the tables coil, input, hreg, ireg"), parts[1].c_str()) +
                 (nearest.Found().empty() ? "" : "; " + nearest.DidYouMean()));
  address.Cell.Table = table->Table;

  const std::vector<std::string> number = Split(parts[2], '.');
  const auto addr = ParseExactly<std::uint16_t>(number[0]);
  if (!addr) return wrong(Format(Tr("\"%s\" is no address from 0 to 65535"), number[0].c_str()));
  address.Cell.Addr = *addr;
  if (number.size() > 1) {
    const auto bit = ParseExactly<std::int32_t>(number[1]);
    if (number.size() > 2 || !bit || *bit < 0 || *bit > 15)
      return wrong(Format(Tr("\"%s\" is no bit from 0 to 15"), parts[2].substr(number[0].size() + 1).c_str()));
    address.Bit = *bit;
  }
  if (const char* unfit = Unfit(kind, address); *unfit != 0) return wrong(unfit);
  if (words.size() == 1) return address;
  if (IsDigital(kind)) return wrong(Tr("an input or output has no range"));
  const auto range = ParseRange<double>(words[1]);
  const auto raw = words.size() == 3 ? ParseRange<std::int32_t>(words[2]) : std::nullopt;
  if (!range || !raw)
    return wrong(Tr("behind the address stand two ranges, the unit's and the register's: 0..10 0..32767"));
  std::tie(address.Low, address.High) = *range;
  std::tie(address.RawLow, address.RawHigh) = *raw;
  const auto [least, most] = std::minmax(address.RawLow, address.RawHigh);
  if (least < -32768 || most > (least < 0 ? 32767 : 65535))
    return wrong(Tr("a register holds 0 to 65535, or -32768 to 32767"));
  return address;
}

double TModbusAddress::Value(TPointKind kind, std::uint16_t raw) const {
  if (Cell.IsBit()) return raw != 0 ? 1.0 : 0.0;
  if (IsDigital(kind)) return (raw >> Bit.value_or(0) & 1) != 0 ? 1.0 : 0.0;
  const bool isSigned = std::min(RawLow, RawHigh) < 0;
  const std::int32_t number = isSigned ? static_cast<std::int16_t>(raw) : raw;
  return Low + (number - RawLow) * (High - Low) / (RawHigh - RawLow);
}

std::uint16_t TModbusAddress::Raw(TPointKind kind, double value, std::uint16_t before) const {
  if (Cell.IsBit()) return value != 0.0 ? 1 : 0;
  if (IsDigital(kind)) {
    const auto mask = static_cast<std::uint16_t>(1U << Bit.value_or(0));
    return static_cast<std::uint16_t>(value != 0.0 ? before | mask : before & ~mask);
  }
  const double limited = std::clamp(value, std::min(Low, High), std::max(Low, High));
  const double number = std::round(RawLow + (limited - Low) * (RawHigh - RawLow) / (High - Low));
  return static_cast<std::uint16_t>(static_cast<std::int32_t>(number));
}

}  // namespace ixocamglue
