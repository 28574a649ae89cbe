#include "ixocamglue/config/Uassistconfig.h"

#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

TAutoCleanConfig* FNozzleCleanCfg = nullptr;
TCutHeadMaintainConfig* FCHMaintainCfg = nullptr;
TLaserAlignmentConfig* FLaserAlignCfg = nullptr;
TLaserParamConfig* FPaperDetectCfg = nullptr;
TFloatCalibrationConfig* FFloatCailCfg = nullptr;
TCustomCamParams* FCustomCamParamsCfg = nullptr;
TEdgeSeekVisionConfig* FEdgeSeekVisionCfg = nullptr;
TNozzleChangeConfig* FNozzleChangeCfg = nullptr;
TBlankingConfig* FBlankingCfg = nullptr;
TIxoCutConfig* FIxoCutCfg = nullptr;
TVisionGlbConfig* FVisionGlbCfg = nullptr;
TStrokeMeasurement* FStrokeCfg = nullptr;
TUCSOrgConfig* FUCSOrgCfg = nullptr;
TCaliRstCfg* FCaliRstCfg = nullptr;
TCaliRstCfg* FCaliRstCfg2 = nullptr;
TScanCodeConfig* FScanCodeCfg = nullptr;
TCloudCutConfig* FCloudCutCfg = nullptr;
TFocusDebugParams* FFocusDebugParams = nullptr;
TMoltenPoolDebugParams* FMoltenPoolDebugParams = nullptr;
THealthConfig* FHealthCfg = nullptr;
TMarkPointsConfig* FMarkPointsCfg = nullptr;
TSysDelayConfig* FSysDelayCfg = nullptr;
TStaryLightParams* FStrayLightParams = nullptr;
TModbusStoreConfig* FModbusStoreCfg = nullptr;
TPierceCounter* FWorkPierceCounter = nullptr;

namespace {

// The section of the calibration results. A file that has them under another section is read and saved there.
class TFollowerSection final : public TXmlSubConfig {
 protected:
  TXmlNode Elsewhere(TXmlNode parent, std::string_view name) const override {
    if (!parent) return {};
    for (const TXmlNode& section : parent.Children())
      if (const TXmlNode found = section.Child(name)) return found;
    return {};
  }
};

TFollowerSection* FFollowerSection = nullptr;

void BindCounter(TMachineConfig& config) {
  if (!FWorkPierceCounter) FWorkPierceCounter = new TPierceCounter;
  FWorkPierceCounter->SetConfig(&FIxoCutCfg->ClientWork.AutoCleanHeadConfig, &config);
}

}  // namespace

void InitCamConfigs(TMachineConfig& config) {
  if (config.SubConfig("AutoCleanHead")) return;
  config.AddSubConfig("AutoCleanHead", FNozzleCleanCfg);
  config.AddSubConfig("MaintainCutHead", FCHMaintainCfg);
  config.AddSubConfig("LaserAlignment", FLaserAlignCfg);
  config.AddSubConfig("PhotoPaperDetect", FPaperDetectCfg);
  config.AddSubConfig("FloatCalibration", FFloatCailCfg);
  config.AddSubConfig("CustomCamParams", FCustomCamParamsCfg);
  config.AddSubConfig("EdgeSeekVison", FEdgeSeekVisionCfg);
  config.AddSubConfig("NozzleChange", FNozzleChangeCfg);
  config.AddSubConfig("Blanking", FBlankingCfg);
  config.AddSubConfig("IxoCutParams", FIxoCutCfg);
  config.AddSubConfig("VisionGlbParams", FVisionGlbCfg);
  config.AddSubConfig("StrokeMeasurement", FStrokeCfg);
  config.AddSubConfig("UCSOrgName", FUCSOrgCfg);
  if (TFollowerSection* const section = config.AddSubConfig(kCaliResultsSection, FFollowerSection)) {
    section->AddSubConfig("CaliResults", FCaliRstCfg);
    section->AddSubConfig("CaliResults2", FCaliRstCfg2);
  }
  config.AddSubConfig("ScanCode", FScanCodeCfg);
  config.AddSubConfig("CloudCut", FCloudCutCfg);
  config.AddSubConfig("FocusDebug", FFocusDebugParams);
  config.AddSubConfig("MoltenPoolDebug", FMoltenPoolDebugParams);
  config.AddSubConfig("Healths", FHealthCfg);
  config.AddSubConfig("MarkPoints", FMarkPointsCfg);
  config.AddSubConfig("SysDelay", FSysDelayCfg);
  config.AddSubConfig("StrayLight", FStrayLightParams);
  BindCounter(config);
  config.AddSubConfig("ModbusStore", FModbusStoreCfg);

  config.OnDying([record = FIxoCutCfg] {
    if (FWorkPierceCounter && FIxoCutCfg == record) FWorkPierceCounter->SetConfig(nullptr, nullptr);
  });
  config.OnLoaded([] {
    if (FWorkPierceCounter) FWorkPierceCounter->LoadParam();
    InitFlags();
  });
}

void InitFlags() {
  TNcMotionDriver* const driver = MotionDriver();
  if (FBlankingCfg && driver) driver->SaveFlagPos(kBlankingFlag, TPoint2{FBlankingCfg->PosX, FBlankingCfg->PosY});
}

void StartAssistConfig() {
  TMachineConfig* const config = MachineConfig();
  if (FWorkPierceCounter || !config || !FIxoCutCfg || config->SubConfig("IxoCutParams") != FIxoCutCfg) return;
  BindCounter(*config);
  FWorkPierceCounter->LoadParam();
}
void FreeAssistConfig() {
  delete FWorkPierceCounter;
  FWorkPierceCounter = nullptr;
}

}  // namespace ixocamglue
