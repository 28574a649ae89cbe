// The operator texts of the controller's own procedures: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constinit TText SNozzleChangeDesc{"IxoCut", "SNozzleChangeDesc", "更换割嘴"};
inline constinit TText SRackOver{"IxoCut", "SRackOver", "移到割嘴槽位 %d,%d 上方"};
inline constinit TText SRackCapOpen{"IxoCut", "SRackCapOpen", "打开割嘴库盖"};
inline constinit TText SRackCapClose{"IxoCut", "SRackCapClose", "关闭割嘴库盖"};
inline constinit TText SRackStageUp{"IxoCut", "SRackStageUp", "升起割嘴台"};
inline constinit TText SRackStageDown{"IxoCut", "SRackStageDown", "降下割嘴台"};
inline constinit TText SRackWait{"IxoCut", "SRackWait", "等待：%s"};
inline constinit TText SRackCheck{"IxoCut", "SRackCheck", "检查：%s"};
inline constinit TText SRackTakeOff{"IxoCut", "SRackTakeOff", "卸下割嘴 %d（%s）"};
inline constinit TText SRackPutOn{"IxoCut", "SRackPutOn", "安装割嘴 %d（%s）"};
inline constinit TText SRackRaise{"IxoCut", "SRackRaise", "升到安全高度"};
inline constinit TText SRackOutputsOff{"IxoCut", "SRackOutputsOff", "关闭割嘴库输出"};
inline constinit TText SRackCalibrate{"IxoCut", "SRackCalibrate", "标定电容"};
inline constinit TText SInputCheckDesc{"IxoCut", "SInputCheckDesc", "检查输入口 %d"};
inline constinit TText SInputNotMet{"IxoCut", "SInputNotMet", "输入口 %d 没有到位"};
inline constinit TText SNamedInputNotMet{"IxoCut", "SNamedInputNotMet", "输入口“%s”（%d 号）没有到位"};

inline constinit TText SGasNotAsSet{"IxoCut", "SGasNotAsSet",
                                    "气体与设定不符：设定气路 %s、%.3f 巴，设备为气路 %s、%.3f 巴"};
inline constinit TText SGasNotRead{"IxoCut", "SGasNotRead", "无法读取气体设备的气路和气压：%s"};
inline constinit TText SEndNoLight{"IxoCut", "SEndNoLight", "光闸没有打开，激光从未出光，已结束"};

inline constexpr auto kProcedureTexts =
    TextList(SNozzleChangeDesc, SRackOver, SRackCapOpen, SRackCapClose, SRackStageUp, SRackStageDown, SRackWait,
             SRackCheck, SRackTakeOff, SRackPutOn, SRackRaise, SRackOutputsOff, SRackCalibrate, SInputCheckDesc,
             SInputNotMet, SNamedInputNotMet, SGasNotAsSet, SGasNotRead, SEndNoLight);

}  // namespace ixocontroller
