// The operator texts of the motion steps: catalogue section "CamGlue", the key is the constant's name unless given.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

// The timed shot's five lines.
inline constinit TText SOpenShutter{"CamGlue", "SOpenShutter", "开光闸"};
inline constinit TText SWaitShutter{"CamGlue", "SWaitShutter", "等开光闸完毕"};
inline constinit TText SLaserOn{"CamGlue", "SLaserOn", "开激光"};
inline constinit TText SDelay{"CamGlue", "SDelay", "延时"};
inline constinit TText SLaserOff{"CamGlue", "SLaserOff", "关激光"};

// What steps do.
inline constinit TText SLaserOnDesc{"CamGlue", "SLaserOnDesc", "开光闸并开激光"};
inline constinit TText SLaserOffOnlyDesc{"CamGlue", "nsLaserOffOnly", "仅关激光"};
inline constinit TText SLaserOnTimeDesc{"CamGlue", "SLaserOnTimeDesc", "定时出光"};
inline constinit TText SGasOnDesc{"CamGlue", "SGasOnDesc", "开气"};
inline constinit TText SGasOffDesc{"CamGlue", "SGasOffDesc", "关气"};
inline constinit TText SWaitInportDesc{"CamGlue", "SWaitInportDesc", "等待输入口"};

inline constinit TText SMoveToXYDesc{"CamGlue", "SMoveToXYDesc", "XY轴移动"};
inline constinit TText SSafeMoveToZDesc{"CamGlue", "SSafeMoveToZDesc", "Z轴上抬到安全高度"};
inline constinit TText SMoveToZDesc{"CamGlue", "SMoveToZDesc", "Z轴移动"};
inline constinit TText SSafeMoveToXYDesc{"CamGlue", "SSafeMoveToXYDesc", "安全移动XY轴"};
inline constinit TText SSafeMoveToWorkXYDesc{"CamGlue", "SSafeMoveToWorkXYDesc", "安全移动到工件坐标"};
inline constinit TText SSafeMoveToAssistXYDesc{"CamGlue", "SSafeMoveToAssistXYDesc", "安全移动到机床坐标"};
inline constinit TText SSafeMoveToXYZDesc{"CamGlue", "SSafeMoveToXYZDesc", "安全移动XYZ轴"};
inline constinit TText SSafeMoveToXYZFDesc{"CamGlue", "SSafeMoveToXYZFDesc", "安全移动XYZ轴和焦点"};
inline constinit TText SLubricateDesc{"CamGlue", "SLubricateDesc", "导轨润滑运行"};
inline constinit TText SMoveToFDesc{"CamGlue", "SMoveToFDesc", "焦点轴移动"};
inline constinit TText SFollowDesc{"CamGlue", "SFollowDesc", "跟随"};
inline constinit TText SCapCaliDesc{"CamGlue", "SCapCaliDesc", "电容标定"};
inline constinit TText SSimpleAutoCaliDesc{"CamGlue", "SSimpleAutoCaliDesc", "就地自动标定"};
inline constinit TText SAutoCaliDesc{"CamGlue", "SAutoCaliDesc", "一键标定"};
inline constinit TText SCleanCurveDesc{"CamGlue", "SCleanCurveDesc", "割嘴清洁轨迹"};
inline constinit TText SManuCleanDesc{"CamGlue", "SManuCleanDesc", "手动清洁割嘴"};
inline constinit TText SAutoCleanDesc{"CamGlue", "SAutoCleanDesc", "自动清洁割嘴"};
inline constinit TText SUninstallNozzleDesc{"CamGlue", "SUninstallNozzleDesc", "卸割嘴"};
inline constinit TText SInstallNozzleDesc{"CamGlue", "SInstallNozzleDesc", "装割嘴"};
inline constinit TText SOpenOutportDesc{"CamGlue", "SOpenOutportDesc", "打开输出口"};
inline constinit TText SCloseOutportDesc{"CamGlue", "SCloseOutportDesc", "关闭输出口"};

// What a check is about.
inline constinit TText SNameMotionDriver{"CamGlue", "SNameMotionDriver", "运动驱动"};
inline constinit TText SNameMotionCard{"CamGlue", "SNameMotionCard", "运动控制卡"};
inline constinit TText SNameZAxis{"CamGlue", "SNameZAxis", "Z轴"};
inline constinit TText SNameFollower{"CamGlue", "SNameFollower", "随动器"};
inline constinit TText SNameCutHead{"CamGlue", "SNameCutHead", "切割头控制器"};
inline constinit TText SNameInputs{"CamGlue", "SNameInputs", "输入口"};
inline constinit TText SNameConfig{"CamGlue", "SNameConfig", "配置"};
inline constinit TText SNameX{"CamGlue", "SNameX", "X"};
inline constinit TText SNameY{"CamGlue", "SNameY", "Y"};
inline constinit TText SNameZ{"CamGlue", "SNameZ", "Z"};
inline constinit TText SNameWorkX{"CamGlue", "SNameWorkX", "工作区X"};
inline constinit TText SNameWorkY{"CamGlue", "SNameWorkY", "工作区Y"};
inline constinit TText SNameFocus{"CamGlue", "SNameFocus", "焦点"};
inline constinit TText SNameSpeed{"CamGlue", "SNameSpeed", "速度"};
inline constinit TText SNameHeight{"CamGlue", "SNameHeight", "跟随高度"};
inline constinit TText SNamePort{"CamGlue", "SNamePort", "输出口号"};
inline constinit TText SNameCount{"CamGlue", "SNameCount", "次数"};
inline constinit TText SNameLength{"CamGlue", "SNameLength", "长度"};
inline constinit TText SNameWidth{"CamGlue", "SNameWidth", "宽度"};
inline constinit TText SNameTurns{"CamGlue", "SNameTurns", "旋转圈数"};
inline constinit TText SNameTurnSpeed{"CamGlue", "SNameTurnSpeed", "旋转速度"};
inline constinit TText SNameZDis{"CamGlue", "SNameZDis", "接近距离 (ZDis)"};
inline constinit TText SNameLiftZ{"CamGlue", "SNameLiftZ", "上抬后的Z"};
inline constinit TText SNameGas{"CamGlue", "SNameGas", "气体设备"};
inline constinit TText SNameLaser{"CamGlue", "SNameLaser", "激光器"};
inline constinit TText SNameMotorAxis{"CamGlue", "SNameMotorAxis", "旋转电机轴号 (MotorAxis)"};

// Why a command was refused.
inline constinit TText SCheckStopped{"CamGlue", "SCheckStopped", "已请求停止"};
inline constinit TText SCheckNoController{"CamGlue", "SCheckNoController", "没有状态控制器等待该动作"};
inline constinit TText SCheckNoDevice{"CamGlue", "SCheckNoDevice", "缺少%s"};
inline constinit TText SCheckOutOfRange{"CamGlue", "SCheckOutOfRange", "%s = %.3f 超出范围 %.3f 至 %.3f"};
inline constinit TText SCheckNotArrived{"CamGlue", "SCheckNotArrived", "%s 停在 %.3f，未到达 %.3f"};
inline constinit TText SCheckNotRaised{"CamGlue", "SCheckNotRaised", "切割头%d低于安全高度"};
inline constinit TText SCheckNoWorkOrigin{"CamGlue", "SCheckNoWorkOrigin", "没有有效的工件原点"};
inline constinit TText SCheckLaserOn{"CamGlue", "SCheckLaserOn", "激光已打开"};
inline constinit TText SCheckEmptyRange{"CamGlue", "SCheckEmptyRange", "范围为空"};
inline constinit TText SCheckFollowerForbidden{"CamGlue", "SCheckFollowerForbidden", "报警禁止随动"};
inline constinit TText SCheckCaliFailed{"CamGlue", "SCheckCaliFailed", "标定失败，错误类型 %d"};
inline constinit TText SCheckCaliFailedBy{"CamGlue", "SCheckCaliFailedBy", "标定失败：%s"};
inline constinit TText SCheckCaliNotStarted{"CamGlue", "SCheckCaliNotStarted", "标定未启动"};
inline constinit TText SCheckNotFollowing{"CamGlue", "SCheckNotFollowing", "随动器未跟随"};
inline constinit TText SCheckNotSaved{"CamGlue", "SCheckNotSaved", "标定结果未保存：%s"};
inline constinit TText SCheckFirstCali{"CamGlue", "SCheckFirstCali", "尚未完成首次标定"};
inline constinit TText SCheckNoCaliPos{"CamGlue", "SCheckNoCaliPos", "未设置标定位置"};
inline constinit TText SCheckBrushNotSet{"CamGlue", "SCheckBrushNotSet", "毛刷未初始化"};
inline constinit TText SCheckNoBrushPos{"CamGlue", "SCheckNoBrushPos", "未设置毛刷位置"};
inline constinit TText SCheckNoTable{"CamGlue", "SCheckNoTable", "没有工作台到位"};
inline constinit TText SCheckCounterNotSaved{"CamGlue", "SCheckCounterNotSaved", "穿孔计数未保存"};
inline constinit TText SCheckRackDisabled{"CamGlue", "SCheckRackDisabled", "未启用割嘴更换"};
inline constinit TText SCheckNoSlot{"CamGlue", "SCheckNoSlot", "割嘴库没有 %d 行 %d 列的槽位"};
inline constinit TText SCheckNoSlotPos{"CamGlue", "SCheckNoSlotPos", "未设置 %d 行 %d 列槽位的位置"};
inline constinit TText SCheckCapNotOpen{"CamGlue", "SCheckCapNotOpen", "割嘴库盖未打开"};
inline constinit TText SCheckStageNotUp{"CamGlue", "SCheckStageNotUp", "割嘴库未升起"};
inline constinit TText SCheckSlotFree{"CamGlue", "SCheckSlotFree", "%d 行 %d 列槽位没有割嘴"};
inline constinit TText SCheckSlotOccupied{"CamGlue", "SCheckSlotOccupied", "%d 行 %d 列槽位已有割嘴"};
inline constinit TText SCheckStillOccupied{"CamGlue", "SCheckStillOccupied", "割嘴仍在 %d 行 %d 列槽位"};
inline constinit TText SCheckStillFree{"CamGlue", "SCheckStillFree", "割嘴未放入 %d 行 %d 列槽位"};
inline constinit TText SCheckNotOverSlot{"CamGlue", "SCheckNotOverSlot",
                                         "切割头不在 %d 行 %d 列槽位 (%.3f, %.3f) 上方"};

inline constexpr auto kMotionTexts = TextList(
    SOpenShutter, SWaitShutter, SLaserOn, SDelay, SLaserOff, SLaserOnDesc, SLaserOffOnlyDesc, SLaserOnTimeDesc,
    SGasOnDesc, SGasOffDesc, SWaitInportDesc, SMoveToXYDesc, SSafeMoveToZDesc, SMoveToZDesc, SSafeMoveToXYDesc,
    SSafeMoveToWorkXYDesc, SSafeMoveToAssistXYDesc, SSafeMoveToXYZDesc, SSafeMoveToXYZFDesc, SLubricateDesc,
    SMoveToFDesc, SFollowDesc, SCapCaliDesc, SSimpleAutoCaliDesc, SAutoCaliDesc, SCleanCurveDesc, SManuCleanDesc,
    SAutoCleanDesc, SUninstallNozzleDesc, SInstallNozzleDesc, SOpenOutportDesc, SCloseOutportDesc, SNameMotionDriver,
    SNameMotionCard, SNameZAxis, SNameFollower, SNameCutHead, SNameInputs, SNameConfig, SNameX, SNameY, SNameZ,
    SNameWorkX, SNameWorkY, SNameFocus, SNameSpeed, SNameHeight, SNamePort, SNameCount, SNameLength, SNameWidth,
    SNameTurns, SNameTurnSpeed, SNameZDis, SNameLiftZ, SNameGas, SNameLaser, SNameMotorAxis, SCheckStopped,
    SCheckNoController, SCheckNoDevice, SCheckOutOfRange, SCheckNotArrived, SCheckNotRaised, SCheckNoWorkOrigin,
    SCheckLaserOn, SCheckEmptyRange, SCheckFollowerForbidden, SCheckCaliFailed, SCheckCaliFailedBy,
    SCheckCaliNotStarted, SCheckNotFollowing, SCheckNotSaved, SCheckFirstCali, SCheckNoCaliPos, SCheckBrushNotSet,
    SCheckNoBrushPos, SCheckNoTable, SCheckCounterNotSaved, SCheckRackDisabled, SCheckNoSlot, SCheckNoSlotPos,
    SCheckCapNotOpen, SCheckStageNotUp, SCheckSlotFree, SCheckSlotOccupied, SCheckStillOccupied, SCheckStillFree,
    SCheckNotOverSlot);

}  // namespace ixocamglue
