#include "ixocamglue/monitor/Umonitortexts.h"

namespace ixocamglue {

constinit TText SAxis{"Monitor", "SAxis", "轴"};
constinit TText SNotSupportOldVersion{"Monitor", "SNotSupportOldVersion", "不支持老版本数据读取!"};
constinit TText SSampleTime{"Monitor", "SSampleTime", "采样时间"};
constinit TText SSignalPosition{"Monitor", "SSignalPosition", "位置"};
constinit TText SSignalSpeed{"Monitor", "SSignalSpeed", "速度"};
constinit TText SSignalAcceleration{"Monitor", "SSignalAcceleration", "加速度"};
constinit TText SSignalFollowingError{"Monitor", "SSignalFollowingError", "跟随误差"};
constinit TText SSignalGasPressure{"Monitor", "SSignalGasPressure", "气压"};
constinit TText SSignalLaser{"Monitor", "SSignalLaser", "激光"};
constinit TText SSignalEmission{"Monitor", "SSignalEmission", "光闸"};
constinit TText SSignalState{"Monitor", "SSignalState", "机床状态"};
constinit TText SSignalGasBranch{"Monitor", "SSignalGasBranch", "气体支路"};

std::span<TText* const> MonitorTexts() {
  static constexpr TText* kTexts[] = {
      &SAxis,        &SNotSupportOldVersion, &SSampleTime,           &SSignalPosition,
      &SSignalSpeed, &SSignalAcceleration,   &SSignalFollowingError, &SSignalGasPressure,
      &SSignalLaser, &SSignalEmission,       &SSignalState,          &SSignalGasBranch};
  return kTexts;
}

}  // namespace ixocamglue
