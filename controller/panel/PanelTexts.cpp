#include "controller/panel/PanelTexts.h"

namespace ixocontroller {

constinit TText SPanelStale{"IxoCut", "SPanelStale", "按键面板状态未更新，按键被忽略"};

constinit TText SJogTooLow{"IxoCut", "SJogTooLow", "点动速度 %s 毫米/秒 不大于 0.01"};
constinit TText SJogOrder{"IxoCut", "SJogOrder", "点动速度须满足 低速 <= 常速 <= 高速：%s、%s、%s 毫米/秒"};
constinit TText SJogTooHigh{"IxoCut", "SJogTooHigh", "点动速度 %s 毫米/秒 超过该轴最高速度 %s 毫米/秒"};

constinit TText SAlarmLaserSource{"IxoCut", "SAlarmLaserSource", "激光器故障"};
constinit TText SAlarmGasPressure{"IxoCut", "SAlarmGasPressure", "气源压力低"};
constinit TText SAlarmFollower{"IxoCut", "SAlarmFollower", "随动器故障"};
constinit TText SAlarmLimitX{"IxoCut", "SAlarmLimitX", "X 轴正限位"};
constinit TText SAlarmNotHomed{"IxoCut", "SAlarmNotHomed", "未回原点"};
constinit TText SAlarmDrive{"IxoCut", "SAlarmDrive", "伺服驱动故障"};

std::span<TText* const> PanelTexts() {
  static constexpr TText* kTexts[] = {&SPanelStale,       &SJogTooLow,        &SJogOrder,      &SJogTooHigh,
                                      &SAlarmLaserSource, &SAlarmGasPressure, &SAlarmFollower, &SAlarmLimitX,
                                      &SAlarmNotHomed,    &SAlarmDrive};
  return kTexts;
}

}  // namespace ixocontroller
