// The operator texts of the program: catalogue section "IxoCut", the key is the constant's name. Constants until a
// language is selected: any thread. Nothing here fails.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

// Names of the timeline's rows.
inline constinit TText SRowState{"IxoCut", "SRowState", "状态"};
inline constinit TText SRowEmission{"IxoCut", "SRowEmission", "光闸"};
inline constinit TText SRowLaser{"IxoCut", "SRowLaser", "激光"};
inline constinit TText SRowGas{"IxoCut", "SRowGas", "气体"};

inline constinit TText SShotTitle{"IxoCut", "SShotTitle", "%s：%d 毫秒"};
inline constinit TText SShotEnded{"IxoCut", "SShotEnded", "%s，用时 %d 毫秒"};
inline constinit TText SShotTooEarly{"IxoCut", "SShotTooEarly", "%s %d：程序在此之前已结束"};
inline constinit TText SRunCollided{"IxoCut", "SRunCollided", "发生 %d 次碰撞；第一次：%s"};
inline constinit TText SShotNotDark{"IxoCut", "SShotNotDark", "程序结束后激光或光闸仍未关闭"};

inline constinit TText SEndSuccess{"IxoCut", "SEndSuccess", "执行成功"};
inline constinit TText SEndStopped{"IxoCut", "SEndStopped", "已停止"};
inline constinit TText SEndPaused{"IxoCut", "SEndPaused", "已暂停"};
inline constinit TText SEndAlarm{"IxoCut", "SEndAlarm", "因报警结束"};
inline constinit TText SEndCollided{"IxoCut", "SEndCollided", "执行完毕，但发生了碰撞"};
inline constinit TText SEndRefused{"IxoCut", "SEndRefused", "未能进入执行状态"};
inline constinit TText SEndNever{"IxoCut", "SEndNever", "未在时限内结束"};

inline constinit TText SEndStepRuns{"IxoCut", "SEndStepRuns", "控制器结束时正在执行的步骤未返回；激光已锁定"};
inline constinit TText SEndNotOff{"IxoCut", "SEndNotOff", "控制器结束时 %s 未关闭；激光已锁定"};

inline constinit TText SAskedAlarm{"IxoCut", "SAskedAlarm", "命令行要求的报警：禁止运动"};
inline constinit TText SSignalStop{"IxoCut", "SSignalStop", "收到中断信号，停止执行"};

inline constinit TText SWatchBusy{"IxoCut", "SWatchBusy", "等待条件已持续 %d 毫秒（上限 %d 毫秒）"};
inline constinit TText SWatchLeaf{"IxoCut", "SWatchLeaf", "步骤“%s”已等待 %d 毫秒（上限 %d 毫秒）"};
inline constinit TText SWatchEmission{"IxoCut", "SWatchEmission", "请求开光闸 %d 毫秒后光闸仍未打开（上限 %d 毫秒）"};
inline constinit TText SWatchLaser{"IxoCut", "SWatchLaser", "激光已持续打开 %d 毫秒（上限 %d 毫秒）"};
inline constinit TText SWatchGas{"IxoCut", "SWatchGas", "气体已持续打开 %d 毫秒（上限 %d 毫秒）"};
inline constinit TText SWatchBeat{"IxoCut", "SWatchBeat", "状态线程已 %d 毫秒没有心跳（上限 %d 毫秒）"};
inline constinit TText SWatchDark{"IxoCut", "SWatchDark", "%s，%d 毫秒后程序仍未关闭激光"};
inline constinit TText SWatchEnding{"IxoCut", "SWatchEnding", "已要求停止"};
inline constinit TText SWatchTold{"IxoCut", "SWatchTold", "已要求关闭激光"};
inline constinit TText SWatchUnasked{"IxoCut", "SWatchUnasked", "没有要求出光，激光却已亮 %d 毫秒"};
inline constinit TText SWatchEmergency{"IxoCut", "SWatchEmergency", "急停"};
inline constinit TText SWatchAlarm{"IxoCut", "SWatchAlarm", "监视：%s；报警"};
inline constinit TText SWatchFail{"IxoCut", "SWatchFail", "监视：%s；执行出错结束"};
inline constinit TText SWatchStop{"IxoCut", "SWatchStop", "监视：%s；停止执行"};
inline constinit TText SWatchLatch{"IxoCut", "SWatchLatch", "监视：%s；锁定激光，需手动复位"};

inline constinit TText SThreadSilent{"IxoCut", "SThreadSilent", "线程 %s 已 %d 毫秒没有动静（上限 %d 毫秒）"};
inline constinit TText SThreadFailed{"IxoCut", "SThreadFailed", "设备 %s 的更新线程因异常结束，不再重新启动"};
inline constinit TText SLaserLatched{"IxoCut", "SLaserLatched",
                                     "激光已锁定（%s）；排除原因后，在待机状态按住停止键 3 秒复位"};
inline constinit TText SLatchReset{"IxoCut", "SLatchReset", "激光锁定已复位"};

inline constinit TText SLinesDropped{"IxoCut", "SLinesDropped", "日志队列已满，丢失 %d 行"};

inline constinit TText SRunSteps{"IxoCut", "SRunSteps", "步骤（开始、用时，毫秒）："};
inline constinit TText SRunPath{"IxoCut", "SRunPath", "路径长度：XY %s 毫米，Z %s 毫米"};
inline constinit TText SRunStillOn{"IxoCut", "SRunStillOn", "仍然打开：%s"};
inline constinit TText SRunFailed{"IxoCut", "SRunFailed", "执行出错"};
inline constinit TText SRowOutput{"IxoCut", "SRowOutput", "输出口"};
inline constinit TText SRowFollow{"IxoCut", "SRowFollow", "跟随"};
inline constinit TText SPlotPath{"IxoCut", "SPlotPath", "XY 路径（毫米）"};
inline constinit TText SPlotZ{"IxoCut", "SPlotZ", "Z（毫米）"};
inline constinit TText SPlotSignals{"IxoCut", "SPlotSignals", "信号"};
inline constinit TText SEndGasOpen{"IxoCut", "SEndGasOpen", "气体已关闭但仍然打开"};
inline constinit TText SPlotStart{"IxoCut", "SPlotStart", "起点"};
inline constinit TText SPlotEnd{"IxoCut", "SPlotEnd", "终点"};
inline constinit TText SPlotBeam{"IxoCut", "SPlotBeam", "出光"};
inline constinit TText SPlotProcedure{"IxoCut", "SPlotProcedure", "工艺过程"};

inline constexpr auto kHostTexts =
    TextList(SRowState, SRowEmission, SRowLaser, SRowGas, SShotTitle, SShotEnded, SShotTooEarly, SRunCollided,
             SShotNotDark, SEndSuccess, SEndStopped, SEndPaused, SEndAlarm, SEndCollided, SEndRefused, SEndNever,
             SEndStepRuns, SEndNotOff, SAskedAlarm, SSignalStop, SWatchBusy, SWatchLeaf, SWatchEmission, SWatchLaser,
             SWatchGas, SWatchBeat, SWatchDark, SWatchEnding, SWatchTold, SWatchUnasked, SWatchEmergency, SWatchAlarm,
             SWatchFail, SWatchStop, SWatchLatch, SThreadSilent, SThreadFailed, SLaserLatched, SLatchReset,
             SLinesDropped, SRunSteps, SRunPath, SRunStillOn, SRunFailed, SRowOutput, SRowFollow, SPlotPath, SPlotZ,
             SPlotSignals, SEndGasOpen, SPlotStart, SPlotEnd, SPlotBeam, SPlotProcedure);

// Milliseconds for a %d.
[[nodiscard]] inline int ShownMs(std::uint64_t ms) {
  return static_cast<int>(std::min<std::uint64_t>(ms, std::numeric_limits<int>::max()));
}

}  // namespace ixocontroller
