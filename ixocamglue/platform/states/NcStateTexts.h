// Texts of the state framework and its watches.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SNcWedged{"CamGlue", "SNcWedged", "状态 %d 的程序没有可等待的条件，无法继续"};
inline constinit TText SBeamForbidden{"CamGlue", "SBeamForbidden", "报警禁止激光"};
inline constinit TText SBeamLatched{"CamGlue", "SBeamLatched", "激光已锁定，需手动复位：%s"};
inline constinit TText SBeamLost{"CamGlue", "SBeamLost", "要求出光期间光闸信号丢失"};
inline constinit TText SBeamRefused{"CamGlue", "SBeamRefused", "开光闸或开激光的要求被拒绝"};
inline constinit TText SBeamSwitchedOff{"CamGlue", "SBeamSwitchedOff",
                                        "%s：激光和光闸已关闭，需重新按键才能再次打开，已锁定时须先复位"};
inline constinit TText SGasSupplyLow{"CamGlue", "SGasSupplyLow", "激光打开时气源已 %d 毫秒供气不足"};
inline constinit TText SPlateLost{"CamGlue", "SPlateLost", "割嘴下方没有板材，随动已结束"};

inline constexpr auto kNcStateTexts = TextList(SNcWedged, SBeamForbidden, SBeamLatched, SBeamLost, SBeamRefused,
                                               SBeamSwitchedOff, SGasSupplyLow, SPlateLost);

}  // namespace ixocamglue
