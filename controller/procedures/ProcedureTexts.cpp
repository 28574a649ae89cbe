#include "controller/procedures/ProcedureTexts.h"

namespace ixocontroller {

constinit TText SNozzleChangeDesc{"IxoCut", "SNozzleChangeDesc", "更换喷嘴"};
constinit TText SRackOver{"IxoCut", "SRackOver", "移到喷嘴位 %d,%d 上方"};
constinit TText SRackCapOpen{"IxoCut", "SRackCapOpen", "打开喷嘴库盖"};
constinit TText SRackCapClose{"IxoCut", "SRackCapClose", "关闭喷嘴库盖"};
constinit TText SRackStageUp{"IxoCut", "SRackStageUp", "升起喷嘴台"};
constinit TText SRackStageDown{"IxoCut", "SRackStageDown", "降下喷嘴台"};
constinit TText SRackWait{"IxoCut", "SRackWait", "等待：%s"};
constinit TText SRackCheck{"IxoCut", "SRackCheck", "检查：%s"};
constinit TText SRackTakeOff{"IxoCut", "SRackTakeOff", "卸下喷嘴 %d（%s）"};
constinit TText SRackPutOn{"IxoCut", "SRackPutOn", "安装喷嘴 %d（%s）"};
constinit TText SRackRaise{"IxoCut", "SRackRaise", "升到安全高度"};
constinit TText SRackOutputsOff{"IxoCut", "SRackOutputsOff", "关闭喷嘴库输出"};
constinit TText SRackCalibrate{"IxoCut", "SRackCalibrate", "标定电容"};
constinit TText SInputCheckDesc{"IxoCut", "SInputCheckDesc", "检查输入口 %d"};
constinit TText SInputNotMet{"IxoCut", "SInputNotMet", "输入口 %d 没有到位"};

std::span<TText* const> ProcedureTexts() {
  static constexpr TText* kTexts[] = {&SNozzleChangeDesc, &SRackOver,       &SRackCapOpen, &SRackCapClose,
                                      &SRackStageUp,      &SRackStageDown,  &SRackWait,    &SRackCheck,
                                      &SRackTakeOff,      &SRackPutOn,      &SRackRaise,   &SRackOutputsOff,
                                      &SRackCalibrate,    &SInputCheckDesc, &SInputNotMet};
  return kTexts;
}

}  // namespace ixocontroller
