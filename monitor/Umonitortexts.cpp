#include "monitor/Umonitortexts.h"

namespace ixocamglue {

constinit TText SAxis{"Monitor", "SAxis", "轴"};
constinit TText SNotSupportOldVersion{"Monitor", "SNotSupportOldVersion", "不支持老版本数据读取!"};
constinit TText SSampleTime{"Monitor", "SSampleTime", "采样时间"};

std::span<TText* const> MonitorTexts() {
  static constexpr TText* kTexts[] = {&SAxis, &SNotSupportOldVersion, &SSampleTime};
  return kTexts;
}

}  // namespace ixocamglue
