#include "ixocamglue/motion/Umotiontexts.h"

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

constinit TText SMoveToXYDesc{"CamGlue", "SMoveToXYDesc", "XY轴移动"};
constinit TText SSafeMoveToZDesc{"CamGlue", "SSafeMoveToZDesc", "Z轴上抬到安全高度"};
constinit TText SMoveToZDesc{"CamGlue", "SMoveToZDesc", "Z轴移动"};
constinit TText SSafeMoveToXYDesc{"CamGlue", "SSafeMoveToXYDesc", "安全移动XY轴"};
constinit TText SSafeMoveToWorkXYDesc{"CamGlue", "SSafeMoveToWorkXYDesc", "安全移动到工件坐标"};
constinit TText SSafeMoveToAssistXYDesc{"CamGlue", "SSafeMoveToAssistXYDesc", "安全移动到机床坐标"};
constinit TText SSafeMoveToXYZDesc{"CamGlue", "SSafeMoveToXYZDesc", "安全移动XYZ轴"};
constinit TText SSafeMoveToXYZFDesc{"CamGlue", "SSafeMoveToXYZFDesc", "安全移动XYZ轴和焦点"};
constinit TText SLubricateDesc{"CamGlue", "SLubricateDesc", "导轨润滑运行"};
constinit TText SMoveToFDesc{"CamGlue", "SMoveToFDesc", "焦点轴移动"};
constinit TText SFollowDesc{"CamGlue", "SFollowDesc", "跟随"};
constinit TText SCapCaliDesc{"CamGlue", "SCapCaliDesc", "电容标定"};
constinit TText SSimpleAutoCaliDesc{"CamGlue", "SSimpleAutoCaliDesc", "就地自动标定"};
constinit TText SAutoCaliDesc{"CamGlue", "SAutoCaliDesc", "一键标定"};
constinit TText SCleanCurveDesc{"CamGlue", "SCleanCurveDesc", "割嘴清洁轨迹"};
constinit TText SManuCleanDesc{"CamGlue", "SManuCleanDesc", "手动清洁割嘴"};
constinit TText SAutoCleanDesc{"CamGlue", "SAutoCleanDesc", "自动清洁割嘴"};
constinit TText SUninstallNozzleDesc{"CamGlue", "SUninstallNozzleDesc", "卸割嘴"};
constinit TText SInstallNozzleDesc{"CamGlue", "SInstallNozzleDesc", "装割嘴"};
constinit TText SOpenOutportDesc{"CamGlue", "SOpenOutportDesc", "打开输出口"};
constinit TText SCloseOutportDesc{"CamGlue", "SCloseOutportDesc", "关闭输出口"};

constinit TText SNameMotionDriver{"CamGlue", "SNameMotionDriver", "运动驱动"};
constinit TText SNameMotionCard{"CamGlue", "SNameMotionCard", "运动控制卡"};
constinit TText SNameZAxis{"CamGlue", "SNameZAxis", "Z轴"};
constinit TText SNameFollower{"CamGlue", "SNameFollower", "随动器"};
constinit TText SNameCutHead{"CamGlue", "SNameCutHead", "切割头控制器"};
constinit TText SNameInputs{"CamGlue", "SNameInputs", "输入口"};
constinit TText SNameConfig{"CamGlue", "SNameConfig", "配置"};
constinit TText SNameX{"CamGlue", "SNameX", "X"};
constinit TText SNameY{"CamGlue", "SNameY", "Y"};
constinit TText SNameZ{"CamGlue", "SNameZ", "Z"};
constinit TText SNameWorkX{"CamGlue", "SNameWorkX", "工作区X"};
constinit TText SNameWorkY{"CamGlue", "SNameWorkY", "工作区Y"};
constinit TText SNameFocus{"CamGlue", "SNameFocus", "焦点"};
constinit TText SNameSpeed{"CamGlue", "SNameSpeed", "速度"};
constinit TText SNameHeight{"CamGlue", "SNameHeight", "跟随高度"};
constinit TText SNamePort{"CamGlue", "SNamePort", "输出口号"};
constinit TText SNameCount{"CamGlue", "SNameCount", "次数"};
constinit TText SNameLength{"CamGlue", "SNameLength", "长度"};
constinit TText SNameWidth{"CamGlue", "SNameWidth", "宽度"};
constinit TText SNameTurns{"CamGlue", "SNameTurns", "旋转圈数"};
constinit TText SNameTurnSpeed{"CamGlue", "SNameTurnSpeed", "旋转速度"};
constinit TText SNameZDis{"CamGlue", "SNameZDis", "接近距离 (ZDis)"};
constinit TText SNameLiftZ{"CamGlue", "SNameLiftZ", "上抬后的Z"};
constinit TText SNameMotorAxis{"CamGlue", "SNameMotorAxis", "旋转电机轴号 (MotorAxis)"};

constinit TText SCheckStopped{"CamGlue", "SCheckStopped", "已请求停止"};
constinit TText SCheckNoDevice{"CamGlue", "SCheckNoDevice", "缺少%s"};
constinit TText SCheckOutOfRange{"CamGlue", "SCheckOutOfRange", "%s = %.3f 超出范围 %.3f 至 %.3f"};
constinit TText SCheckNotArrived{"CamGlue", "SCheckNotArrived", "%s 停在 %.3f，未到达 %.3f"};
constinit TText SCheckNotRaised{"CamGlue", "SCheckNotRaised", "切割头低于安全高度"};
constinit TText SCheckNoWorkOrigin{"CamGlue", "SCheckNoWorkOrigin", "没有有效的工件原点"};
constinit TText SCheckLaserOn{"CamGlue", "SCheckLaserOn", "激光已打开"};
constinit TText SCheckEmptyRange{"CamGlue", "SCheckEmptyRange", "范围为空"};
constinit TText SCheckFollowerForbidden{"CamGlue", "SCheckFollowerForbidden", "报警禁止随动"};
constinit TText SCheckCaliFailed{"CamGlue", "SCheckCaliFailed", "标定失败，错误类型 %d"};
constinit TText SCheckCaliNotStarted{"CamGlue", "SCheckCaliNotStarted", "标定未启动"};
constinit TText SCheckNotFollowing{"CamGlue", "SCheckNotFollowing", "随动器未跟随"};
constinit TText SCheckNotSaved{"CamGlue", "SCheckNotSaved", "标定结果未保存：%s"};
constinit TText SCheckFirstCali{"CamGlue", "SCheckFirstCali", "尚未完成首次标定"};
constinit TText SCheckNoCaliPos{"CamGlue", "SCheckNoCaliPos", "未设置标定位置"};
constinit TText SCheckBrushNotSet{"CamGlue", "SCheckBrushNotSet", "毛刷未初始化"};
constinit TText SCheckNoBrushPos{"CamGlue", "SCheckNoBrushPos", "未设置毛刷位置"};
constinit TText SCheckNoTable{"CamGlue", "SCheckNoTable", "没有工作台到位"};
constinit TText SCheckCounterNotSaved{"CamGlue", "SCheckCounterNotSaved", "穿孔计数未保存"};
constinit TText SCheckRackDisabled{"CamGlue", "SCheckRackDisabled", "未启用割嘴更换"};
constinit TText SCheckNoSlot{"CamGlue", "SCheckNoSlot", "割嘴库没有 %d 行 %d 列的槽位"};
constinit TText SCheckNoSlotPos{"CamGlue", "SCheckNoSlotPos", "未设置 %d 行 %d 列槽位的位置"};
constinit TText SCheckCapNotOpen{"CamGlue", "SCheckCapNotOpen", "割嘴库盖未打开"};
constinit TText SCheckStageNotUp{"CamGlue", "SCheckStageNotUp", "割嘴库未升起"};
constinit TText SCheckSlotFree{"CamGlue", "SCheckSlotFree", "%d 行 %d 列槽位没有割嘴"};
constinit TText SCheckSlotOccupied{"CamGlue", "SCheckSlotOccupied", "%d 行 %d 列槽位已有割嘴"};
constinit TText SCheckStillOccupied{"CamGlue", "SCheckStillOccupied", "割嘴仍在 %d 行 %d 列槽位"};
constinit TText SCheckStillFree{"CamGlue", "SCheckStillFree", "割嘴未放入 %d 行 %d 列槽位"};
constinit TText SCheckNotOverSlot{"CamGlue", "SCheckNotOverSlot", "切割头不在 %d 行 %d 列槽位 (%.3f, %.3f) 上方"};

std::span<TText* const> MotionTexts() {
  static constexpr TText* kTexts[] = {&SOpenShutter,
                                      &SWaitShutter,
                                      &SLaserOn,
                                      &SDelay,
                                      &SLaserOff,
                                      &SLaserOnDesc,
                                      &SLaserOffOnlyDesc,
                                      &SLaserOnTimeDesc,
                                      &SGasOnDesc,
                                      &SGasOffDesc,
                                      &SWaitInportDesc,
                                      &SMoveToXYDesc,
                                      &SSafeMoveToZDesc,
                                      &SMoveToZDesc,
                                      &SSafeMoveToXYDesc,
                                      &SSafeMoveToWorkXYDesc,
                                      &SSafeMoveToAssistXYDesc,
                                      &SSafeMoveToXYZDesc,
                                      &SSafeMoveToXYZFDesc,
                                      &SLubricateDesc,
                                      &SMoveToFDesc,
                                      &SFollowDesc,
                                      &SCapCaliDesc,
                                      &SSimpleAutoCaliDesc,
                                      &SAutoCaliDesc,
                                      &SCleanCurveDesc,
                                      &SManuCleanDesc,
                                      &SAutoCleanDesc,
                                      &SUninstallNozzleDesc,
                                      &SInstallNozzleDesc,
                                      &SOpenOutportDesc,
                                      &SCloseOutportDesc,
                                      &SNameMotionDriver,
                                      &SNameMotionCard,
                                      &SNameZAxis,
                                      &SNameFollower,
                                      &SNameCutHead,
                                      &SNameInputs,
                                      &SNameConfig,
                                      &SNameX,
                                      &SNameY,
                                      &SNameZ,
                                      &SNameWorkX,
                                      &SNameWorkY,
                                      &SNameFocus,
                                      &SNameSpeed,
                                      &SNameHeight,
                                      &SNamePort,
                                      &SNameCount,
                                      &SNameLength,
                                      &SNameWidth,
                                      &SNameTurns,
                                      &SNameTurnSpeed,
                                      &SNameZDis,
                                      &SNameLiftZ,
                                      &SNameMotorAxis,
                                      &SCheckStopped,
                                      &SCheckNoDevice,
                                      &SCheckOutOfRange,
                                      &SCheckNotArrived,
                                      &SCheckNotRaised,
                                      &SCheckNoWorkOrigin,
                                      &SCheckLaserOn,
                                      &SCheckEmptyRange,
                                      &SCheckFollowerForbidden,
                                      &SCheckCaliFailed,
                                      &SCheckCaliNotStarted,
                                      &SCheckNotFollowing,
                                      &SCheckNotSaved,
                                      &SCheckFirstCali,
                                      &SCheckNoCaliPos,
                                      &SCheckBrushNotSet,
                                      &SCheckNoBrushPos,
                                      &SCheckNoTable,
                                      &SCheckCounterNotSaved,
                                      &SCheckRackDisabled,
                                      &SCheckNoSlot,
                                      &SCheckNoSlotPos,
                                      &SCheckCapNotOpen,
                                      &SCheckStageNotUp,
                                      &SCheckSlotFree,
                                      &SCheckSlotOccupied,
                                      &SCheckStillOccupied,
                                      &SCheckStillFree,
                                      &SCheckNotOverSlot};
  return kTexts;
}

}  // namespace ixocamglue
