// The operator texts of the gas commands: catalogue section "IxoCut", the key is the constant's name.
#pragma once

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constinit TText SGasTitle{"IxoCut", "SGasTitle", "气压标定：%s，割嘴 %s %s 毫米"};
inline constinit TText SGasNotFitted{"IxoCut", "SGasNotFitted", "%s：机床没有该气路，或该气路没有模拟输出；跳过"};
inline constinit TText SGasUnsettled{"IxoCut", "SGasUnsettled", "%s：%s V 时气压在 %d 秒内未稳定；停止标定"};
inline constinit TText SGasFlatPoints{
    "IxoCut", "SGasFlatPoints", "%s：测得的气压都在其平均值 %s bar 的 0.1 bar 以内，气阀或传感器未响应；保留原有标定"};
inline constinit TText SGasFewPoints{"IxoCut", "SGasFewPoints", "%s：只测得 %d 点，至少需要 3 点；保留原有标定"};
inline constinit TText SGasKeptFile{"IxoCut", "SGasKeptFile", "未全部完成：机床文件保持不变"};

inline constinit TText SGasDescent{"IxoCut", "SGasDescent", "自上而下再测一遍，仅供录制"};

inline constinit TText SGasColGas{"IxoCut", "SGasColGas", "气体"};
inline constinit TText SGasColPoints{"IxoCut", "SGasColPoints", "测点"};
inline constinit TText SGasColTime{"IxoCut", "SGasColTime", "用时 s"};
inline constinit TText SGasColKnee{"IxoCut", "SGasColKnee", "拐点 V"};
inline constinit TText SGasColMax{"IxoCut", "SGasColMax", "最高 bar"};
inline constinit TText SGasColResult{"IxoCut", "SGasColResult", "结果"};
inline constinit TText SGasOk{"IxoCut", "SGasOk", "已保存"};
inline constinit TText SGasRestored{"IxoCut", "SGasRestored", "保留原有标定"};
inline constinit TText SGasFailed{"IxoCut", "SGasFailed", "失败"};
inline constinit TText SGasSkipped{"IxoCut", "SGasSkipped", "跳过"};
inline constinit TText SGasUnfinished{"IxoCut", "SGasUnfinished", "未完成"};
inline constinit TText SGasUnsaved{"IxoCut", "SGasUnsaved", "未能保存"};
inline constinit TText SGasBadVerdict{"IxoCut", "SGasBadVerdict",
                                      "%s：%s。已恢复原有标定；如仍要保存，请加 --keep 重新标定"};
inline constinit TText SGasNotSaved{"IxoCut", "SGasNotSaved", "%s：标定未能保存（%s），已恢复原有标定"};
inline constinit TText SGasVerdict{"IxoCut", "SGasVerdict", "%s 的诊断："};

// gas pressure
inline constinit TText SGasNoTable{"IxoCut", "SGasNoTable",
                                   "%s：机床文件中该气路没有启用的标定表；请先标定（gas calibrate）或读取（gas load）"};
inline constinit TText SGasPressure{"IxoCut", "SGasPressure",
                                    "%s %s bar：按标定表为 %s V；实际 %s bar，误差 %s bar（%s），传感器读数 %s bar"};

// gas verdict
inline constinit TText SVerdictTitle{"IxoCut", "SVerdictTitle", "%s，割嘴 %s %s 毫米：%s 个测点，最高 %s bar"};
inline constinit TText SVerdictReadings{"IxoCut", "SVerdictReadings", "%s 的读数不是数值：检查传感器及其接线"};
inline constinit TText SVerdictFrozen{"IxoCut", "SVerdictFrozen", "所有 %s 个读数完全相同：传感器无响应"};
inline constinit TText SVerdictUnsettled{
    "IxoCut", "SVerdictUnsettled",
    "%s 个测点的气压未稳定（%s V 时观察 %s 秒后，气压每秒变化 %s bar，读数波动 %s bar）：该点不作结论"};
inline constinit TText SVerdictCutOff{"IxoCut", "SVerdictCutOff",
                                      "%s 个测点的气压未稳定（%s V 时只观察了 %s 秒）：该点不作结论"};
inline constinit TText SVerdictRare{
    "IxoCut", "SVerdictRare",
    "%s 个测点的气压未稳定：%s V 时传感器每秒只给出 %s 个读数，不足以判断是否稳定；检查传感器的刷新速度"};
inline constinit TText SVerdictFewPoints{"IxoCut", "SVerdictFewPoints", "只有 %s 个测点：不作结论"};
inline constinit TText SVerdictNoGas{"IxoCut", "SVerdictNoGas", "录制中没有任何气体：不作结论"};
inline constinit TText SVerdictZero{"IxoCut", "SVerdictZero", "阀关闭时传感器读数 %s bar，正常"};
inline constinit TText SVerdictZeroBad{"IxoCut", "SVerdictZeroBad",
                                       "传感器读数低至 %s bar：零点偏移，请调整传感器零点后重新标定"};
inline constinit TText SVerdictSlow{
    "IxoCut", "SVerdictSlow",
    "%s V 时气压变化的时间常数约 %s 秒：气路或阀响应过慢，测得的气压不可靠；检查管径、管长和阀"};
inline constinit TText SVerdictDoubt{
    "IxoCut", "SVerdictDoubt",
    "%s V 至 %s V 之间曲线的误差可达 %s：exact 方法在此没有测点，可用 --method refined 重新标定"};
inline constinit TText SVerdictFlat{"IxoCut", "SVerdictFlat",
                                    "气压变化只有 %s bar，不随电压变化：检查比例阀、供气和传感器"};
inline constinit TText SVerdictNoise{"IxoCut", "SVerdictNoise", "读数波动 %s bar（%s），正常"};
inline constinit TText SVerdictNoiseBad{"IxoCut", "SVerdictNoiseBad",
                                        "读数波动 %s bar（%s），过大：检查传感器接线和屏蔽"};
inline constinit TText SVerdictDrift{"IxoCut", "SVerdictDrift", "稳定后气压每秒变化不超过 %s"};
inline constinit TText SVerdictDriftBad{"IxoCut", "SVerdictDriftBad",
                                        "%s V 时气压仍以每秒 %s 变化：供气不稳或气路泄漏，该点不可靠"};
inline constinit TText SVerdictDeadBand{"IxoCut", "SVerdictDeadBand", "阀在 %s V 开启，正常"};
inline constinit TText SVerdictDeadBandBad{"IxoCut", "SVerdictDeadBandBad", "阀到 %s V 才开启：死区过大，检查阀的零点"};
inline constinit TText SVerdictRising{"IxoCut", "SVerdictRising", "气压一直升到满量程，未饱和（有效范围 %s V）"};
inline constinit TText SVerdictSaturation{"IxoCut", "SVerdictSaturation", "%s V 起饱和，有效范围 %s V"};
inline constinit TText SVerdictSaturationBad{"IxoCut", "SVerdictSaturationBad",
                                             "%s V 起饱和，有效范围仅 %s V：电压的微小变化引起气压大幅变化"};
inline constinit TText SVerdictHysteresis{"IxoCut", "SVerdictHysteresis", "上行与下行相差最多 %s bar（%s），正常"};
inline constinit TText SVerdictHysteresisBad{"IxoCut", "SVerdictHysteresisBad",
                                             "%s V 时上行与下行相差 %s bar（%s）：阀芯卡涩或磨损"};
inline constinit TText SVerdictSupply{"IxoCut", "SVerdictSupply", "最高 %s bar，为该气路允许值的 %s"};
inline constinit TText SVerdictSupplyBad{"IxoCut", "SVerdictSupplyBad",
                                         "最高只有 %s bar，为该气路允许值的 %s：供气压力过低"};

inline constexpr auto kGasTexts = TextList(
    SGasTitle, SGasNotFitted, SGasUnsettled, SGasFlatPoints, SGasFewPoints, SGasKeptFile, SGasDescent, SGasColGas,
    SGasColPoints, SGasColTime, SGasColKnee, SGasColMax, SGasColResult, SGasOk, SGasRestored, SGasFailed, SGasSkipped,
    SGasUnfinished, SGasUnsaved, SGasBadVerdict, SGasNotSaved, SGasVerdict, SGasNoTable, SGasPressure, SVerdictTitle,
    SVerdictReadings, SVerdictFrozen, SVerdictUnsettled, SVerdictCutOff, SVerdictRare, SVerdictFewPoints, SVerdictNoGas,
    SVerdictZero, SVerdictZeroBad, SVerdictSlow, SVerdictDoubt, SVerdictFlat, SVerdictNoise, SVerdictNoiseBad,
    SVerdictDrift, SVerdictDriftBad, SVerdictDeadBand, SVerdictDeadBandBad, SVerdictRising, SVerdictSaturation,
    SVerdictSaturationBad, SVerdictHysteresis, SVerdictHysteresisBad, SVerdictSupply, SVerdictSupplyBad);

}  // namespace ixocontroller
