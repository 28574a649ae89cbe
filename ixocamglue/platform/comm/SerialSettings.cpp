#include "ixocamglue/platform/comm/SerialSettings.h"

#include <string>
#include <vector>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

std::uint32_t TSerialSettings::WireMs(std::size_t bytes) const {
  // Twice the bits of a character: start, data, parity, stop.
  const std::uint64_t halves = 2u + 2u * DataBits + (Parity == 'n' ? 0u : 2u) + 2u + Stop;
  return static_cast<std::uint32_t>((bytes * halves * 500 + Baud - 1) / Baud);
}

TResult<TSerialSettings> ParseSerialSettings(std::string_view text) {
  std::vector<std::string> fields(1);
  for (const char c : text) {
    if (c == ',')
      fields.emplace_back();
    else if (c != ' ' && c != '\t')
      fields.back() += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  const auto wrong = [&](const char* what) {
    return TProblem{.What = what,
                    .Where = Format(Tr("serial settings \"%s\""), std::string(text.substr(0, 60)).c_str())};
  };
  if (fields.size() != 4) return wrong(Tr("four fields are needed, like 9600,n,8,1"));

  TSerialSettings read;
  read.Baud = ParseExactly<std::uint32_t>(fields[0]).value_or(0);
  if (read.Baud == 0) return wrong(Tr("the rate is no positive number"));

  if (fields[1].size() != 1 || std::string_view("noems").find(fields[1][0]) == std::string_view::npos)
    return wrong(Tr("the parity is n, o, e, m or s"));
  read.Parity = fields[1][0];

  if (fields[2].size() != 1 || fields[2][0] < '5' || fields[2][0] > '8') return wrong(Tr("the data bits are 5 to 8"));
  read.DataBits = static_cast<std::uint8_t>(fields[2][0] - '0');

  if (fields[3] == "1")
    read.Stop = TSerialSettings::sbOne;
  else if (fields[3] == "2")
    read.Stop = TSerialSettings::sbTwo;
  else if (fields[3] == "1.5" && read.DataBits == 5)
    read.Stop = TSerialSettings::sbOneAndHalf;
  else
    return wrong(Tr("the stop bits are 1, 2, or 1.5 with 5 data bits"));
  return read;
}

}  // namespace ixocamglue
