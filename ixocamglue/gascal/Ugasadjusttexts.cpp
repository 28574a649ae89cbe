#include "ixocamglue/gascal/Ugasadjusttexts.h"

namespace ixocamglue {

constinit TText SQAdjSucc{"CamGlue", "SQAdjSucc", "校正完成!"};
constinit TText SQAdjAllSucc{"CamGlue", "SQAdjAllSucc", "全部校正结束!"};
constinit TText SQAdjAllSameValue{"CamGlue", "SQAdjAllSameValue", "气压校正异常:气压值没有变化!"};
constinit TText SQAdjFailed{"CamGlue", "SQAdjFailed", "校正失败!"};
constinit TText SQAdjBegin{"CamGlue", "SQAdjBegin", "开始校正"};
constinit TText SQAdjTermin{"CamGlue", "SQAdjTermin", "停止校正！"};
constinit TText SQAdjNoGasData{"CamGlue", "SQAdjNoGasData", "未找到 %s (%s %.1f) 标定数据!"};
constinit TText SQAdjLoadDataBegin{"CamGlue", "SQAdjLoadDataBegin", "开始读取 %s 标定数据..."};
constinit TText SQAdjLoadDataSucc{"CamGlue", "SQAdjLoadDataSucc", "读取 %s 标定成功!"};

std::span<TText* const> GasAdjustTexts() {
  static constexpr TText* kTexts[] = {&SQAdjSucc,      &SQAdjAllSucc,       &SQAdjAllSameValue,
                                      &SQAdjFailed,    &SQAdjBegin,         &SQAdjTermin,
                                      &SQAdjNoGasData, &SQAdjLoadDataBegin, &SQAdjLoadDataSucc};
  return kTexts;
}

}  // namespace ixocamglue
