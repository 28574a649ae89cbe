// Texts of the Modbus master; each keeps its default where the locale has none.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

extern constinit TText STimeOut, SModbusTimeOut, SCRCError, SModbusCRCError, SConnectFailed, SErrorFunctionCode;
// Descriptions of the alarms 1 to 4.
extern constinit TText SCommTimeOut, SCRCInvalid, SConnectError, SFuncCodeError;

[[nodiscard]] std::span<TText* const> ModbusTexts();

}  // namespace ixocamglue
