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

// Each section with the global of its record, in the order of the file.
template <class Add>
void EachSection(TXmlSubConfig& config, Add add) {
  add(config, "AutoCleanHead", FNozzleCleanCfg);
  add(config, "MaintainCutHead", FCHMaintainCfg);
  add(config, "LaserAlignment", FLaserAlignCfg);
  add(config, "PhotoPaperDetect", FPaperDetectCfg);
  add(config, "FloatCalibration", FFloatCailCfg);
  add(config, "CustomCamParams", FCustomCamParamsCfg);
  add(config, "EdgeSeekVison", FEdgeSeekVisionCfg);
  add(config, "NozzleChange", FNozzleChangeCfg);
  add(config, "Blanking", FBlankingCfg);
  add(config, "IxoCutParams", FIxoCutCfg);
  add(config, "VisionGlbParams", FVisionGlbCfg);
  add(config, "StrokeMeasurement", FStrokeCfg);
  add(config, "UCSOrgName", FUCSOrgCfg);
  if (TFollowerSection* const section = add(config, kCaliResultsSection, FFollowerSection)) {
    add(*section, "CaliResults", FCaliRstCfg);
    add(*section, "CaliResults2", FCaliRstCfg2);
  }
  add(config, "ScanCode", FScanCodeCfg);
  add(config, "CloudCut", FCloudCutCfg);
  add(config, "FocusDebug", FFocusDebugParams);
  add(config, "MoltenPoolDebug", FMoltenPoolDebugParams);
  add(config, "Healths", FHealthCfg);
  add(config, "MarkPoints", FMarkPointsCfg);
  add(config, "SysDelay", FSysDelayCfg);
  add(config, "StrayLight", FStrayLightParams);
  add(config, "ModbusStore", FModbusStoreCfg);
}

}  // namespace

void InitCamConfigs(TMachineConfig& config) {
  if (config.SubConfig("AutoCleanHead")) return;
  EachSection(config,
              [](TXmlSubConfig& to, std::string_view name, auto*& global) { return to.AddSubConfig(name, global); });
  BindCounter(config);
  config.OnDying([record = FIxoCutCfg] {
    if (FWorkPierceCounter && FIxoCutCfg == record) FWorkPierceCounter->SetConfig(nullptr, nullptr);
  });
  config.OnLoaded([] {
    if (FWorkPierceCounter) FWorkPierceCounter->LoadParam();
    InitFlags();
  });
}

void AddCamSections(TMachineConfig& config, TCamSlots& slots) {
  EachSection(config, [&slots](TXmlSubConfig& to, std::string_view name, auto*& global) {
    using TRecord = std::remove_reference_t<decltype(*global)>;
    return to.AddSubConfig(name, std::any_cast<TRecord*&>(slots.emplace_back(static_cast<TRecord*>(nullptr))));
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
