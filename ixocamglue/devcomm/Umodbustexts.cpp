#include "ixocamglue/devcomm/Umodbustexts.h"

namespace ixocamglue {

constinit TText STimeOut{"CamGlue", "STimeOut", "数据接受超时，CMD"};
constinit TText SModbusTimeOut{"CamGlue", "SModbusTimeOut", "Modbus上料PLC,数据接受超时"};
constinit TText SCRCError{"CamGlue", "SCRCError", "字符校验失败，CMD"};
constinit TText SModbusCRCError{"CamGlue", "SModbusCRCError", "Modbus上料PLC,字符校验失败"};
constinit TText SConnectFailed{"CamGlue", "SConnectFailed", "无法建立通讯，请检查通讯参数配置"};
constinit TText SErrorFunctionCode{"CamGlue", "SErrorFunctionCode", "Modebus功能码异常"};
constinit TText SCommTimeOut{"Nc_Strs", "SCommTimeOut", "通讯超时"};
constinit TText SCRCInvalid{"Nc_Strs", "SCRCInvalid", "CRC校验错误"};
constinit TText SConnectError{"Nc_Strs", "SConnectError", "通讯连接异常"};
constinit TText SFuncCodeError{"Nc_Strs", "SFuncCodeError", "通讯功能码异常"};

std::span<TText* const> ModbusTexts() {
  static constexpr TText* kTexts[] = {&STimeOut,       &SModbusTimeOut,     &SCRCError,    &SModbusCRCError,
                                      &SConnectFailed, &SErrorFunctionCode, &SCommTimeOut, &SCRCInvalid,
                                      &SConnectError,  &SFuncCodeError};
  return kTexts;
}

}  // namespace ixocamglue
