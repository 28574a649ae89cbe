// Texts of the Modbus master; each keeps its default where the locale has none.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText STimeOut{"CamGlue", "STimeOut", "数据接受超时，CMD"};
inline constinit TText SModbusTimeOut{"CamGlue", "SModbusTimeOut", "Modbus上料PLC,数据接受超时"};
inline constinit TText SCRCError{"CamGlue", "SCRCError", "字符校验失败，CMD"};
inline constinit TText SModbusCRCError{"CamGlue", "SModbusCRCError", "Modbus上料PLC,字符校验失败"};
inline constinit TText SConnectFailed{"CamGlue", "SConnectFailed", "无法建立通讯，请检查通讯参数配置"};
inline constinit TText SErrorFunctionCode{"CamGlue", "SErrorFunctionCode", "Modebus功能码异常"};
// Descriptions of the alarms 1 to 4.
inline constinit TText SCommTimeOut{"Nc_Strs", "SCommTimeOut", "通讯超时"};
inline constinit TText SCRCInvalid{"Nc_Strs", "SCRCInvalid", "CRC校验错误"};
inline constinit TText SConnectError{"Nc_Strs", "SConnectError", "通讯连接异常"};
inline constinit TText SFuncCodeError{"Nc_Strs", "SFuncCodeError", "通讯功能码异常"};

inline constexpr auto kModbusTexts =
    TextList(STimeOut, SModbusTimeOut, SCRCError, SModbusCRCError, SConnectFailed, SErrorFunctionCode, SCommTimeOut,
             SCRCInvalid, SConnectError, SFuncCodeError);

}  // namespace ixocamglue
