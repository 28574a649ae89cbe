#include "ixocamglue/config/Uclientconfig.h"

namespace ixocamglue {

void TFocusDebugParams::Publish(TPublisher& p) {
  p.Field("BeamSize", BeamSize)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Diameter of the beam that the focus test is drawn for"));
  p.Field("FocusStart", FocusStart)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("Focus of the first line of the focus test"));
  p.Field("FocusEnd", FocusEnd)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("Focus of the last line of the focus test"));
  p.Field("FocusSpace", FocusSpace)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How much the focus changes from line to line of the focus test"));
  p.Field("LineLength", LineLength).Unit(uMm).Within(bdAtLeast(0)).Text(TrMark("Length of a line of the focus test"));
  p.Field("LineDistance", LineDistance)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Distance between the lines of the focus test"));
  p.Field("FrameWidth", FrameWidth)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Width of the frame around the focus test"));
}

void TMoltenPoolDebugParams::Publish(TPublisher& p) {
  p.Field("LineCount", LineCount).Within(bdAtLeast(0)).Text(TrMark("How many lines the test of the molten pool cuts"));
  p.Field("LineLength", LineLength)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Length of a line of the molten pool test"));
  p.Field("LineDistance", LineDistance)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Distance between the lines of the molten pool test"));
  p.Field("FrameWidth", FrameWidth)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Width of the frame around the molten pool test"));
}

void TMoltenPoolDebugParams::AddMpLineParams(std::vector<std::pair<std::string, std::int32_t>>& params) const {
  params.emplace_back("LineCount", LineCount);
  params.emplace_back("LineLength", LineLength);
  params.emplace_back("LineDistance", LineDistance);
  params.emplace_back("FrameWidth", FrameWidth);
}

void TAutoCleanHeadConfig::Publish(TPublisher& p) {
  p.Field("AutoCleanEnabled", AutoCleanEnabled)
      .Text(TrMark("Whether a job of this operator station cleans the nozzle after a number of pierces"));
  p.Field("PresetPierceCount", PresetPierceCount)
      .Within(bdAtLeast(0))
      .Text(TrMark("After how many pierces cleaning is due; 0: never"));
  p.Field("AutoCailAfterClean", AutoCailAfterClean)
      .Text(
          TrMark("Whether the height sensor is calibrated after automatic cleaning, where AutoCailEnabled allows it"));
  p.Field("LastPierceCount", LastPierceCount)
      .Within(bdAtLeast(0))
      .Text(TrMark("Pierces since the last cleaning, as they were last saved"));
  p.Field("LastPierceTotal", LastPierceTotal)
      .Within(bdAtLeast(0))
      .Text(TrMark("The machine's total of pierces when LastPierceCount was saved; written, not used"));
}

void TScanCodeConfig::Publish(TPublisher& p) {
  p.Field("ScanCodeEnabled", ScanCodeEnabled).Text(TrMark("Whether jobs are chosen by a code reader"));
}

void TCloudCutConfig::Publish(TPublisher& p) {
  p.Field("CloudCutEnabled", CloudCutEnabled).Text(TrMark("Whether jobs are taken from the cloud service"));
}

void TManualLaserParams::Publish(TPublisher& p) {
  p.Field("LaserDiodeCurrent", LaserDiodeCurrent)
      .Within(bdAtLeast(0))
      .Text(TrMark("Diode current of this level of light by hand, as the laser counts it"));
  p.Field("LaserFrequency", LaserFrequency)
      .Unit(uHertz)
      .Within(bdAtLeast(0))
      .Text(TrMark("Pulse frequency of this level of light by hand"));
  p.Field("LaserRatio", LaserRatio)
      .Unit(uPercent)
      .Within(0, 100)
      .Text(TrMark("Share of each pulse period in which light comes out, at this level of light by hand"));
}

void TManualLaserConfig::Publish(TPublisher& p) {
  p.Child("LaserParams1", LaserParams1);
  p.Child("LaserParams2", LaserParams2);
  p.Child("LaserParams3", LaserParams3);
}

void TClientConfig::Publish(TPublisher& p) {
  p.Field("SeekEdgeBeforeStart", SeekEdgeBeforeStart)
      .Text(TrMark("Whether the plate's edge is sought before a job starts"));
  p.Field("AutoChangeDrawing", AutoChangeDrawing)
      .Text(TrMark("Whether the next drawing is taken when one has been cut"));
  p.Field("JogFixed", JogFixed)
      .Text(TrMark("Whether a jog key moves a fixed distance instead of as long as it is held"));
  p.Field("FitStyle", FitStyle).Text(TrMark("How the drawing is fitted into the view; the interface's own number"));
  p.Field("ReturnStyle", ReturnStyle)
      .Text(TrMark("Where the head goes when a job has ended; the interface's own number"));
  p.Field("UCSIndex", UCSIndex).Within(bdAtLeast(0)).Text(TrMark("Coordinate origin that is in use, counted from 0"));
  p.Field("JogDistance", JogDistance)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How far a jog key moves where jogging is by a fixed distance"));
  p.Field("ViewType", ViewType).Text(TrMark("Which view the operator station shows; the interface's own number"));
  p.Field("StepDistance", StepDistance)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How far forward and back step along the cut"));
  p.Field("StepSpeed", StepSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("How fast forward and back step along the cut"));
  p.Field("MarkPointFlag", MarkPointFlag)
      .Within(bdAtLeast(0))
      .Text(TrMark("Flag position that this operator station last used"));
  p.Field("WorkedCount", WorkedCount).Within(bdAtLeast(0)).Text(TrMark("How often the present job has been cut"));
  p.Field("ExportSelOnly", ExportSelOnly).Text(TrMark("Whether only the selected contours are exported"));
  p.Field("ConnerMarkEnable", ConnerMarkEnable).Text(TrMark("Whether the corners of the sheet are marked"));
  p.Field("AutoNextModel", AutoNextModel).Text(TrMark("Whether the next part is taken when one has been cut"));
  p.Field("HintWorkDone", HintWorkDone).Text(TrMark("Whether the operator is told that a job is done"));
  p.Field("CtrlRemoteActive", CtrlRemoteActive)
      .Text(TrMark("Whether the remote control may act at this operator station"));
  p.Field("SlaveSelected", SlaveSelected).Text(TrMark("Whether the second head is selected at this operator station"));
  p.Child("AutoCleanHeadConfig", AutoCleanHeadConfig);
  // Kept: misspelt as in every file.
  p.Child("ManualLaserConifg", ManualLaserConfig);
}

void TInVivoDetection::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled).Text(TrMark("Whether people in the guarded area are detected"));
  p.Field("ReportType", ReportType).Text(TrMark("How the detector reports; the interface's own number"));
  p.Field("IgnoreAlarmWhenWalkAround", IgnoreAlarmWhenWalkAround)
      .Text(TrMark("Whether a detection raises no alarm while the head walks round the sheet"));
  p.Field("CommAlarmDelayMs", CommAlarmDelayMs)
      .Unit(uMs)
      .Within(bdAtLeast(0))
      .Text(TrMark("How long the detector may be silent before that is an alarm"));
  p.Field("ReportPort", ReportPort)
      .Within(bdFittedInport.Or(0))
      .Text(TrMark("Input on which the detector reports; 0: none"));
  p.Child("AlarmCfg", AlarmCfg);
}

void TLaserParamConfig::Publish(TPublisher& p) {
  p.Field("LaserPowerPer", LaserPowerPer)
      .Unit(uPercent)
      .Within(0, 100)
      .Text(TrMark("Power of the light, as a share of the laser's highest"));
  p.Field("LaserRatio", LaserRatio)
      .Unit(uPercent)
      .Within(0, 100)
      .Text(TrMark("Share of each pulse period in which light comes out"));
  p.Field("LaserPwm", LaserPwm).Unit(uHertz).Within(bdAtLeast(0)).Text(TrMark("Pulse frequency of the light"));
  p.Field("LaserDuration", LaserDuration).Unit(uMs).Within(bdAtLeast(0)).Text(TrMark("How long light comes out"));
}

void TLaserTestConfig::Publish(TPublisher& p) {
  p.Child("LaserParam", LaserParam);
  p.Field("EnableFixLaserOnTime", EnableFixLaserOnTime)
      .Text(TrMark("Whether the test shot ends by itself after LaserDuration"));
}

void TIxoCutConfig::Publish(TPublisher& p) {
  p.Field("InitRTOSTimeOut", InitRTOSTimeOut)
      .Unit(uMs)
      .Within(bdAtLeast(0))
      .Text(TrMark("How long the interface waits for the real-time system at its start"));
  p.Field("TaskSortType", TaskSortType).Text(TrMark("Order in which the interface lists the jobs; its own number"));
  p.Field("AutoRun", AutoRun).Text(TrMark("Whether the next job of the list starts by itself"));
  p.Field("ServoStruct", ServoStruct).Text(TrMark("How the servo drives are built up; the interface's own number"));
  p.Field("FastResume", FastResume)
      .Text(TrMark("Whether a job that was broken off goes on without going back to its start"));
  p.Field("UserOnline", UserOnline).Text(TrMark("Whether the operator is signed in at the online service"));
  p.Field("MultiStation", MultiStation).Text(TrMark("Whether the machine works at several stations in turn"));
  p.Field("UseSoftPanel", UseSoftPanel).Text(TrMark("Whether the panel's keys are shown on the screen"));
  p.Child("InVivoDetection", InVivoDetection);
  p.Field("DefaultLayerCheck", DefaultLayerCheck)
      .Text(TrMark("Whether layers without parameters of their own are reported before a job"));
  p.Child("LaserTest", LaserTest);
  p.Field("UseNineLevelPiece", UseNineLevelPiece).Text(TrMark("Whether piercing has nine levels in the interface"));
  p.Field("AutoMatchTech", AutoMatchTech)
      .Text(TrMark("Whether cutting parameters are chosen by material and thickness"));
  p.Field("AlignmentDiagramPath", AlignmentDiagramPath)
      .Text(TrMark("Picture that explains the alignment of the laser to the operator"));
  p.Child("ClientWork", ClientWork);
  p.Child("ClientDebug", ClientDebug);
  p.Child("ClientVision", ClientVision);
}

void TVisionGlbConfig::Publish(TPublisher& p) {
  p.Field("CameraEnabled", CameraEnabled).Text(TrMark("Whether the machine has a camera that is in use"));
}

void TStaryLightParams::Publish(TPublisher& p) {
  p.Child("LaserParams", LaserParam);
  p.Field("DefMaxStrayLight", DefMaxStrayLight)
      .Within(bdAtLeast(0))
      .Text(TrMark("Most stray light that a good protective glass gives, in the sensor's unit"));
  p.Field("DefMaxDiffStray", DefMaxDiffStray)
      .Within(bdAtLeast(0))
      .Text(TrMark("Most that stray light may differ between two measurements, in the sensor's unit"));
  p.Field("DefMaxStrayLightLimit", DefMaxStrayLightLimit)
      .Within(bdAtLeast(0))
      .Text(TrMark("Highest value that the limit of stray light may be set to, in the sensor's unit"));
  p.Field("StaryLightLimit", StaryLightLimit)
      .Within(bdAtLeast(0))
      .Text(TrMark("Stray light above which the head must not cut, in the sensor's unit"));
  p.Field("StrayLightExcellent", StrayLightExcellent)
      .Within(bdAtLeast(0))
      .Text(TrMark("Stray light up to which the glass counts as excellent, in the sensor's unit"));
  p.Field("StrayLightGood", StrayLightGood)
      .Within(bdAtLeast(0))
      .Text(TrMark("Stray light up to which the glass counts as good, in the sensor's unit"));
  p.Field("StrayLightMiddle", StrayLightMiddle)
      .Within(bdAtLeast(0))
      .Text(TrMark("Stray light up to which the glass counts as fair, in the sensor's unit"));
  p.Field("StrayLightPoor", StrayLightPoor)
      .Within(bdAtLeast(0))
      .Text(TrMark("Stray light up to which the glass counts as poor, in the sensor's unit"));
  p.Field("StrayLightLv", StrayLightLv)
      .Text(TrMark("Level that the last measurement of stray light gave; the interface's own number"));
  p.Field("FocusStart", FocusStart)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("First focus at which stray light is measured"));
  p.Field("FocusEnd", FocusEnd)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("Last focus at which stray light is measured"));
  p.Field("FocusStep", FocusStep)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How much the focus changes between two measurements of stray light"));
  p.Field("FocusOptimalPos", FocusOptimalPos)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("Upper end of the focus range with the least stray light"));
  p.Field("FocusOptimalNeg", FocusOptimalNeg)
      .Unit(uMm)
      .Within(bdFocus.Or(0))
      .Text(TrMark("Lower end of the focus range with the least stray light"));
}

void TDataTransConfig::Publish(TPublisher& p) {
  p.Field("CommPort", CommPort, 1).Within(1, 256).Text(TrMark("Number of the serial port that leads to the device"));
  p.Field("CommSettings", CommSettings, "9600,n,8,1")
      .Text(TrMark("Serial settings: rate, parity, data bits, stop bits"));
  p.Field("UseTcp", UseTcp).Text(TrMark("Whether the device is reached over the network instead of the serial port"));
  p.Field("TcpHost", TcpHost, "127.0.0.1").Text(TrMark("Address or name of the device in the network"));
  p.Field("TcpPort", TcpPort, 502).Within(1, 65'535).Text(TrMark("Network port of the device; 502 is the usual one"));
  p.Field("IsModbusTcp", IsModbusTcp)
      .Text(TrMark("Whether requests over the network are Modbus TCP frames, otherwise serial ones"));
  p.Field("ProbeRegister", ProbeRegister, -1, kOptional)
      .Within(bdRange(0, 65'535).Or(-1))
      .Text(
          TrMark("Register that is read before the first write of a connection, which shows that a device answers and "
                 "not only an echo; -1: none"));
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
  p.Field("StoreEnabled", StoreEnabled).Text(TrMark("Whether the store's PLC is told of drawings"));
  p.Field("WriteCurDrawingParamAddr", WriteCurDrawingParamAddr)
      .Within(0, 65'535)
      .Text(TrMark("Register of the store's PLC that takes the present drawing's values"));
  p.Field("WriteNextDrawingParamAddr", WriteNextDrawingParamAddr)
      .Within(0, 65'535)
      .Text(TrMark("Register of the store's PLC that takes the next drawing's values"));
  p.Field("UCSInfoEnabled", UCSInfoEnabled).Text(TrMark("Whether the store's PLC is told of the coordinate origin"));
  p.Field("WriteUCSInfoParamAddr", WriteUCSInfoParamAddr)
      .Within(0, 65'535)
      .Text(TrMark("Register of the store's PLC that takes the coordinate origin"));
  p.Field("ExportFileNameEnabled", ExportFileNameEnabled)
      .Text(TrMark("Whether the store's PLC is told of the drawing's file name"));
  p.Field("WriteFileNameParamAddr", WriteFileNameParamAddr)
      .Within(0, 65'535)
      .Text(TrMark("Register of the store's PLC that takes the drawing's file name"));
  p.Child("DataTransConfig", DataTransConfig);
}

}  // namespace ixocamglue
