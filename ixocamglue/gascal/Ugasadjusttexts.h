// The operator texts of the gas calibration: catalogue section "CamGlue", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SQAdjSucc{"CamGlue", "SQAdjSucc", "校正完成!"};
inline constinit TText SQAdjAllSucc{"CamGlue", "SQAdjAllSucc", "全部校正结束!"};
inline constinit TText SQAdjAllSameValue{"CamGlue", "SQAdjAllSameValue", "气压校正异常:气压值没有变化!"};
inline constinit TText SQAdjFailed{"CamGlue", "SQAdjFailed", "校正失败!"};
inline constinit TText SQAdjBegin{"CamGlue", "SQAdjBegin", "开始校正"};
inline constinit TText SQAdjTermin{"CamGlue", "SQAdjTermin", "停止校正！"};
inline constinit TText SQAdjNoGasData{"CamGlue", "SQAdjNoGasData", "未找到 %s (%s %.1f) 标定数据!"};
inline constinit TText SQAdjLoadDataBegin{"CamGlue", "SQAdjLoadDataBegin", "开始读取 %s 标定数据..."};
inline constinit TText SQAdjLoadDataSucc{"CamGlue", "SQAdjLoadDataSucc", "读取 %s 标定成功!"};

inline constexpr auto kGasAdjustTexts = TextList(SQAdjSucc, SQAdjAllSucc, SQAdjAllSameValue, SQAdjFailed, SQAdjBegin,
                                                 SQAdjTermin, SQAdjNoGasData, SQAdjLoadDataBegin, SQAdjLoadDataSucc);

}  // namespace ixocamglue
