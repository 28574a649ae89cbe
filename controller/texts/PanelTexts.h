// The operator texts of the panel and knob commands: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constinit TText SPanelStale{"IxoCut", "SPanelStale", "按键面板状态未更新，按键被忽略"};

inline constinit TText SJogTooLow{"IxoCut", "SJogTooLow", "点动速度 %s 毫米/秒 不大于 0.01"};
inline constinit TText SJogOrder{"IxoCut", "SJogOrder", "点动速度须满足 低速 <= 常速 <= 高速：%s、%s、%s 毫米/秒"};
inline constinit TText SJogTooHigh{"IxoCut", "SJogTooHigh", "点动速度 %s 毫米/秒 超过该轴最高速度 %s 毫米/秒"};

// The alarms that can be raised by hand.
inline constinit TText SAlarmLaserSource{"IxoCut", "SAlarmLaserSource", "激光器故障"};
inline constinit TText SAlarmGasPressure{"IxoCut", "SAlarmGasPressure", "气源压力低"};
inline constinit TText SAlarmFollower{"IxoCut", "SAlarmFollower", "随动器故障"};
inline constinit TText SAlarmLimitX{"IxoCut", "SAlarmLimitX", "X 轴正限位"};
inline constinit TText SAlarmNotHomed{"IxoCut", "SAlarmNotHomed", "未回原点"};
inline constinit TText SAlarmDrive{"IxoCut", "SAlarmDrive", "伺服驱动故障"};

inline constexpr auto kPanelTexts =
    TextList(SPanelStale, SJogTooLow, SJogOrder, SJogTooHigh, SAlarmLaserSource, SAlarmGasPressure, SAlarmFollower,
             SAlarmLimitX, SAlarmNotHomed, SAlarmDrive);

}  // namespace ixocontroller
