// The operator texts of the monitor files: catalogue section "Monitor", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SAxis{"Monitor", "SAxis", "轴"};  // an axis without a name is this and its number
inline constinit TText SNotSupportOldVersion{"Monitor", "SNotSupportOldVersion",
                                             "不支持老版本数据读取!"};     // shown when a file of version 1.0 is opened
inline constinit TText SSampleTime{"Monitor", "SSampleTime", "采样时间"};  // caption in expanded-data files
inline constinit TText SSignalPosition{"Monitor", "SSignalPosition", "位置"};
inline constinit TText SSignalSpeed{"Monitor", "SSignalSpeed", "速度"};
inline constinit TText SSignalAcceleration{"Monitor", "SSignalAcceleration", "加速度"};
inline constinit TText SSignalFollowingError{"Monitor", "SSignalFollowingError", "跟随误差"};
inline constinit TText SSignalGasPressure{"Monitor", "SSignalGasPressure", "气压"};
inline constinit TText SSignalLaser{"Monitor", "SSignalLaser", "激光"};
inline constinit TText SSignalEmission{"Monitor", "SSignalEmission", "光闸"};
inline constinit TText SSignalState{"Monitor", "SSignalState", "机床状态"};
inline constinit TText SSignalGasBranch{"Monitor", "SSignalGasBranch", "气体支路"};

inline constexpr auto kMonitorTexts =
    TextList(SAxis, SNotSupportOldVersion, SSampleTime, SSignalPosition, SSignalSpeed, SSignalAcceleration,
             SSignalFollowingError, SSignalGasPressure, SSignalLaser, SSignalEmission, SSignalState, SSignalGasBranch);

}  // namespace ixocamglue
