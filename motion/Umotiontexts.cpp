#include "motion/Umotiontexts.h"

namespace ixocamglue {

constinit TText SOpenShutter{"CamGlue", "SOpenShutter", "开光闸"};
constinit TText SWaitShutter{"CamGlue", "SWaitShutter", "等开光闸完毕"};
constinit TText SLaserOn{"CamGlue", "SLaserOn", "开激光"};
constinit TText SDelay{"CamGlue", "SDelay", "延时"};
constinit TText SLaserOff{"CamGlue", "SLaserOff", "关激光"};
constinit TText SLaserOnDesc{"CamGlue", "SLaserOnDesc", "开光闸并开激光"};
constinit TText SLaserOffOnlyDesc{"CamGlue", "nsLaserOffOnly", "仅关激光"};
constinit TText SLaserOnTimeDesc{"CamGlue", "SLaserOnTimeDesc", "定时出光"};
constinit TText SGasOnDesc{"CamGlue", "SGasOnDesc", "开气"};
constinit TText SGasOffDesc{"CamGlue", "SGasOffDesc", "关气"};
constinit TText SWaitInportDesc{"CamGlue", "SWaitInportDesc", "等待输入口"};

std::span<TText* const> MotionTexts() {
  static constexpr TText* kTexts[] = {&SOpenShutter, &SWaitShutter, &SLaserOn,          &SDelay,
                                      &SLaserOff,    &SLaserOnDesc, &SLaserOffOnlyDesc, &SLaserOnTimeDesc,
                                      &SGasOnDesc,   &SGasOffDesc,  &SWaitInportDesc};
  return kTexts;
}

}  // namespace ixocamglue
