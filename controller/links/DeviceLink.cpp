#include "controller/links/DeviceLink.h"

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

std::string SpacedHex(const TBytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += Format(text.empty() ? "%02X" : " %02X", byte);
  return text;
}

TProblem ProblemOf(const TModbusResult& result, const TLinkAddress& link, std::uint8_t unit) {
  const auto remedy = [&]() -> const char* {
    switch (result.Outcome) {
      case moOk:
      case moBadRequest:
      case moStopped: return "";
      case moException:
        return result.Exception == 1   ? Tr("the device does not have this function: ask for another kind of value")
               : result.Exception == 2 ? Tr("the device does not have this address: some manuals count from 40001 or 1")
                                       : Tr("look at the device's own diagnosis");
      case moTimeout:
      case moInvalid:
      case moNoConnection: return Tr("\"ixocut link doctor\" finds out what is wrong with the link");
    }
    return "";
  };
  return {
      .What = OutcomeText(result), .Where = Format(Tr("%s, unit %d"), link.Text().c_str(), unit), .Remedy = remedy()};
}

}  // namespace ixocontroller
