#include "ixocamglue/config/Uclientconfig.h"

namespace ixocamglue {

void TFocusDebugParams::Publish(TPublisher& p) {
  p.Field("BeamSize", BeamSize);
  p.Field("FocusStart", FocusStart).Unit(uMm);
  p.Field("FocusEnd", FocusEnd).Unit(uMm);
  p.Field("FocusSpace", FocusSpace).Unit(uMm);
  p.Field("LineLength", LineLength).Unit(uMm);
  p.Field("LineDistance", LineDistance).Unit(uMm);
  p.Field("FrameWidth", FrameWidth).Unit(uMm);
}

void TMoltenPoolDebugParams::Publish(TPublisher& p) {
  p.Field("LineCount", LineCount);
  p.Field("LineLength", LineLength).Unit(uMm);
  p.Field("LineDistance", LineDistance).Unit(uMm);
  p.Field("FrameWidth", FrameWidth).Unit(uMm);
}

void TMoltenPoolDebugParams::AddMpLineParams(std::vector<std::pair<std::string, std::int32_t>>& params) const {
  params.emplace_back("LineCount", LineCount);
  params.emplace_back("LineLength", LineLength);
  params.emplace_back("LineDistance", LineDistance);
  params.emplace_back("FrameWidth", FrameWidth);
}

void TAutoCleanHeadConfig::Publish(TPublisher& p) {
  p.Field("AutoCleanEnabled", AutoCleanEnabled);
  p.Field("PresetPierceCount", PresetPierceCount);
  p.Field("AutoCailAfterClean", AutoCailAfterClean);
  p.Field("LastPierceCount", LastPierceCount);
  p.Field("LastPierceTotal", LastPierceTotal);
}

void TScanCodeConfig::Publish(TPublisher& p) { p.Field("ScanCodeEnabled", ScanCodeEnabled); }

void TCloudCutConfig::Publish(TPublisher& p) { p.Field("CloudCutEnabled", CloudCutEnabled); }

void TManualLaserParams::Publish(TPublisher& p) {
  p.Field("LaserDiodeCurrent", LaserDiodeCurrent);
  p.Field("LaserFrequency", LaserFrequency).Unit(uHertz);
  p.Field("LaserRatio", LaserRatio).Unit(uPercent);
}

void TManualLaserConfig::Publish(TPublisher& p) {
  p.Child("LaserParams1", LaserParams1);
  p.Child("LaserParams2", LaserParams2);
  p.Child("LaserParams3", LaserParams3);
}

void TClientConfig::Publish(TPublisher& p) {
  p.Field("SeekEdgeBeforeStart", SeekEdgeBeforeStart);
  p.Field("AutoChangeDrawing", AutoChangeDrawing);
  p.Field("JogFixed", JogFixed);
  p.Field("FitStyle", FitStyle);
  p.Field("ReturnStyle", ReturnStyle);
  p.Field("UCSIndex", UCSIndex);
  p.Field("JogDistance", JogDistance).Unit(uMm);
  p.Field("ViewType", ViewType);
  p.Field("StepDistance", StepDistance).Unit(uMm);
  p.Field("StepSpeed", StepSpeed).Unit(uMmPerS);
  p.Field("MarkPointFlag", MarkPointFlag);
  p.Field("WorkedCount", WorkedCount);
  p.Field("ExportSelOnly", ExportSelOnly);
  p.Field("ConnerMarkEnable", ConnerMarkEnable);
  p.Field("AutoNextModel", AutoNextModel);
  p.Field("HintWorkDone", HintWorkDone);
  p.Field("CtrlRemoteActive", CtrlRemoteActive);
  p.Field("SlaveSelected", SlaveSelected);
  p.Child("AutoCleanHeadConfig", AutoCleanHeadConfig);
  // Kept: misspelt as in every file.
  p.Child("ManualLaserConifg", ManualLaserConfig);
}

void TInVivoDetection::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled);
  p.Field("ReportType", ReportType);
  p.Field("IgnoreAlarmWhenWalkAround", IgnoreAlarmWhenWalkAround);
  p.Field("CommAlarmDelayMs", CommAlarmDelayMs).Unit(uMs);
  p.Field("ReportPort", ReportPort);
  p.Child("AlarmCfg", AlarmCfg);
}

void TLaserParamConfig::Publish(TPublisher& p) {
  p.Field("LaserPowerPer", LaserPowerPer).Unit(uPercent);
  p.Field("LaserRatio", LaserRatio).Unit(uPercent);
  p.Field("LaserPwm", LaserPwm).Unit(uHertz);
  p.Field("LaserDuration", LaserDuration).Unit(uMs);
}

void TLaserTestConfig::Publish(TPublisher& p) {
  p.Child("LaserParam", LaserParam);
  p.Field("EnableFixLaserOnTime", EnableFixLaserOnTime);
}

void TIxoCutConfig::Publish(TPublisher& p) {
  p.Field("InitRTOSTimeOut", InitRTOSTimeOut);
  p.Field("TaskSortType", TaskSortType);
  p.Field("AutoRun", AutoRun);
  p.Field("ServoStruct", ServoStruct);
  p.Field("FastResume", FastResume);
  p.Field("UserOnline", UserOnline);
  p.Field("MultiStation", MultiStation);
  p.Field("UseSoftPanel", UseSoftPanel);
  p.Child("InVivoDetection", InVivoDetection);
  p.Field("DefaultLayerCheck", DefaultLayerCheck);
  p.Child("LaserTest", LaserTest);
  p.Field("UseNineLevelPiece", UseNineLevelPiece);
  p.Field("AutoMatchTech", AutoMatchTech);
  p.Field("AlignmentDiagramPath", AlignmentDiagramPath);
  p.Child("ClientWork", ClientWork);
  p.Child("ClientDebug", ClientDebug);
  p.Child("ClientVision", ClientVision);
}

void TVisionGlbConfig::Publish(TPublisher& p) { p.Field("CameraEnabled", CameraEnabled); }

void TStaryLightParams::Publish(TPublisher& p) {
  p.Child("LaserParams", LaserParam);
  p.Field("DefMaxStrayLight", DefMaxStrayLight);
  p.Field("DefMaxDiffStray", DefMaxDiffStray);
  p.Field("DefMaxStrayLightLimit", DefMaxStrayLightLimit);
  p.Field("StaryLightLimit", StaryLightLimit);
  p.Field("StrayLightExcellent", StrayLightExcellent);
  p.Field("StrayLightGood", StrayLightGood);
  p.Field("StrayLightMiddle", StrayLightMiddle);
  p.Field("StrayLightPoor", StrayLightPoor);
  p.Field("StrayLightLv", StrayLightLv);
  p.Field("FocusStart", FocusStart).Unit(uMm);
  p.Field("FocusEnd", FocusEnd).Unit(uMm);
  p.Field("FocusStep", FocusStep).Unit(uMm);
  p.Field("FocusOptimalPos", FocusOptimalPos).Unit(uMm);
  p.Field("FocusOptimalNeg", FocusOptimalNeg).Unit(uMm);
}

void TDataTransConfig::Publish(TPublisher& p) {
  p.Field("CommPort", CommPort, 1);
  p.Field("CommSettings", CommSettings, "9600,n,8,1");
  p.Field("UseTcp", UseTcp);
  p.Field("TcpHost", TcpHost, "127.0.0.1");
  p.Field("TcpPort", TcpPort, 502);
  p.Field("IsModbusTcp", IsModbusTcp);
}

namespace {

constexpr std::int32_t kBaudrate = 9600;

// The number before the first comma, where there is one.
std::optional<std::int32_t> LeadingNumber(std::string_view settings) {
  const auto comma = settings.find(',');
  if (comma == std::string_view::npos || comma == 0) return std::nullopt;
  std::string_view text = settings.substr(0, comma);
  if (text.find_first_not_of("+-0123456789") != std::string_view::npos) return std::nullopt;
  return ParseNumber<std::int32_t>(text);
}

}  // namespace

// Kept: a number without a comma behind it is none.
std::int32_t TDataTransConfig::GetBaudrate() const { return LeadingNumber(CommSettings).value_or(kBaudrate); }

void TDataTransConfig::SetBaudrate(std::int32_t baudrate) {
  if (LeadingNumber(CommSettings)) CommSettings.replace(0, CommSettings.find(','), ValueText(baudrate));
}

void TModbusStoreConfig::Publish(TPublisher& p) {
  p.Field("StoreEnabled", StoreEnabled);
  p.Field("WriteCurDrawingParamAddr", WriteCurDrawingParamAddr);
  p.Field("WriteNextDrawingParamAddr", WriteNextDrawingParamAddr);
  p.Field("UCSInfoEnabled", UCSInfoEnabled);
  p.Field("WriteUCSInfoParamAddr", WriteUCSInfoParamAddr);
  p.Field("ExportFileNameEnabled", ExportFileNameEnabled);
  p.Field("WriteFileNameParamAddr", WriteFileNameParamAddr);
  p.Child("DataTransConfig", DataTransConfig);
}

}  // namespace ixocamglue
