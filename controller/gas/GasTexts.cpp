#include "controller/gas/GasTexts.h"

namespace ixocontroller {

constinit TText SGasTitle{"IxoCut", "SGasTitle", "气压校正：%s，喷嘴 %s %s 毫米"};
constinit TText SGasNotFitted{"IxoCut", "SGasNotFitted", "%s：机器没有该气路，或该气路没有模拟输出；跳过"};
constinit TText SGasUnsettled{"IxoCut", "SGasUnsettled", "%s：%s V 时气压在 %d 秒内未稳定；停止校正"};
constinit TText SGasFlatPoints{"IxoCut", "SGasFlatPoints",
                               "%s：测得的气压都在其平均值 %s bar 的 0.1 bar 以内，气阀或传感器未响应；保留原有标定"};
constinit TText SGasFewPoints{"IxoCut", "SGasFewPoints", "%s：只测得 %d 点，至少需要 3 点；保留原有标定"};
constinit TText SGasKeptFile{"IxoCut", "SGasKeptFile", "未全部完成：机器文件保持不变"};

constinit TText SGasDescent{"IxoCut", "SGasDescent", "自上而下再测一遍，仅供记录"};

constinit TText SGasColGas{"IxoCut", "SGasColGas", "气体"};
constinit TText SGasColPoints{"IxoCut", "SGasColPoints", "测点"};
constinit TText SGasColTime{"IxoCut", "SGasColTime", "用时 s"};
constinit TText SGasColKnee{"IxoCut", "SGasColKnee", "拐点 V"};
constinit TText SGasColMax{"IxoCut", "SGasColMax", "最高 bar"};
constinit TText SGasColResult{"IxoCut", "SGasColResult", "结果"};
constinit TText SGasOk{"IxoCut", "SGasOk", "已保存"};
constinit TText SGasRestored{"IxoCut", "SGasRestored", "保留原有标定"};
constinit TText SGasFailed{"IxoCut", "SGasFailed", "失败"};
constinit TText SGasSkipped{"IxoCut", "SGasSkipped", "跳过"};
constinit TText SGasUnfinished{"IxoCut", "SGasUnfinished", "未完成"};

constinit TText SGasNoTable{"IxoCut", "SGasNoTable",
                            "%s：机器文件中该气路没有启用的标定表；请先校正（gas calibrate）或读取（gas load）"};
constinit TText SGasPressure{"IxoCut", "SGasPressure",
                             "%s %s bar：按标定表为 %s V；实际 %s bar，误差 %s bar（%s），传感器读数 %s bar"};

std::span<TText* const> GasTexts() {
  static constexpr TText* kTexts[] = {&SGasTitle,    &SGasNotFitted,  &SGasUnsettled, &SGasFlatPoints, &SGasFewPoints,
                                      &SGasKeptFile, &SGasColGas,     &SGasColPoints, &SGasColTime,    &SGasColKnee,
                                      &SGasColMax,   &SGasColResult,  &SGasOk,        &SGasRestored,   &SGasFailed,
                                      &SGasSkipped,  &SGasUnfinished, &SGasDescent,   &SGasNoTable,    &SGasPressure};
  return kTexts;
}

}  // namespace ixocontroller
