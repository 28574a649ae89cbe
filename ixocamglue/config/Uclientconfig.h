// Assist records of the cutting application: "IxoCutParams" with its client preferences, laser tests, stray light, and
// the sections of debugging and switches. No locks, except for the pierce counter's five fields. Nothing here fails.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "ixocamglue/platform/xml/MachineSections.h"
#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

class TFocusDebugParams : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  long double BeamSize = 0.0L;
  long double FocusStart = 0.0L;
  long double FocusEnd = 0.0L;
  long double FocusSpace = 0.0L;
  std::int32_t LineLength = 0;
  std::int32_t LineDistance = 0;
  std::int32_t FrameWidth = 0;
};

class TMoltenPoolDebugParams : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // Appends the four values under their names.
  void AddMpLineParams(std::vector<std::pair<std::string, std::int32_t>>& params) const;
  std::int32_t LineCount = 0;
  std::int32_t LineLength = 0;
  std::int32_t LineDistance = 0;
  std::int32_t FrameWidth = 0;
};

// The cutting thread counts pierces by it while the interface edits it: each field may be read from two threads.
class TAutoCleanHeadConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::atomic<bool> AutoCleanEnabled{false};
  std::atomic<std::int32_t> PresetPierceCount{0};  // 0: cleaning is never due
  std::atomic<bool> AutoCailAfterClean{false};
  std::atomic<std::int32_t> LastPierceCount{0};
  std::atomic<std::int32_t> LastPierceTotal{0};
};

class TScanCodeConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool ScanCodeEnabled = false;
};

class TCloudCutConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool CloudCutEnabled = false;
};

class TManualLaserParams : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  double LaserDiodeCurrent = 0.0;
  std::int32_t LaserFrequency = 0;
  double LaserRatio = 0.0;
};

class TManualLaserConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TManualLaserParams LaserParams1, LaserParams2, LaserParams3;
};

class TClientConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool SeekEdgeBeforeStart = false;
  bool AutoChangeDrawing = false;
  bool JogFixed = false;
  std::int32_t FitStyle = 0;
  std::int32_t ReturnStyle = 0;
  std::int32_t UCSIndex = 0;
  double JogDistance = 0.0;
  std::int32_t ViewType = 0;
  double StepDistance = 0.0;
  double StepSpeed = 0.0;
  std::int32_t MarkPointFlag = 0;
  std::int32_t WorkedCount = 0;
  bool ExportSelOnly = false;
  bool ConnerMarkEnable = false;
  bool AutoNextModel = false;
  bool HintWorkDone = false;
  bool CtrlRemoteActive = false;
  bool SlaveSelected = false;
  TAutoCleanHeadConfig AutoCleanHeadConfig;
  TManualLaserConfig ManualLaserConfig;  // element "ManualLaserConifg"
};

class TInVivoDetection : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool Enabled = false;
  std::int32_t ReportType = 0;
  bool IgnoreAlarmWhenWalkAround = false;
  std::uint32_t CommAlarmDelayMs = 0;
  std::int32_t ReportPort = 0;
  TAlarmConfigItem AlarmCfg;
};

class TLaserParamConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  double LaserPowerPer = 0.0;
  double LaserRatio = 0.0;
  std::int32_t LaserPwm = 0;
  std::int32_t LaserDuration = 0;
};

class TLaserTestConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TLaserParamConfig LaserParam;
  bool EnableFixLaserOnTime = false;
};

class TIxoCutConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t InitRTOSTimeOut = 0;
  std::int32_t TaskSortType = 0;
  bool AutoRun = false;
  std::int32_t ServoStruct = 0;
  bool FastResume = false;
  bool UserOnline = false;
  bool MultiStation = false;
  bool UseSoftPanel = false;
  TInVivoDetection InVivoDetection;
  bool DefaultLayerCheck = false;
  TLaserTestConfig LaserTest;
  bool UseNineLevelPiece = false;
  bool AutoMatchTech = false;
  std::string AlignmentDiagramPath;
  TClientConfig ClientWork, ClientDebug, ClientVision;
};

class TVisionGlbConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool CameraEnabled = false;
};

class TStaryLightParams : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TLaserParamConfig LaserParam;  // element "LaserParams"
  std::int32_t DefMaxStrayLight = 0;
  std::int32_t DefMaxDiffStray = 0;
  std::int32_t DefMaxStrayLightLimit = 0;
  std::int32_t StaryLightLimit = 0;
  std::int32_t StrayLightExcellent = 0;
  std::int32_t StrayLightGood = 0;
  std::int32_t StrayLightMiddle = 0;
  std::int32_t StrayLightPoor = 0;
  std::int32_t StrayLightLv = 0;
  double FocusStart = 0.0;
  double FocusEnd = 0.0;
  double FocusStep = 0.0;
  double FocusOptimalPos = 0.0;
  double FocusOptimalNeg = 0.0;
};

// Sections without properties of their own: they keep and save whatever the interface put there.
class TLaserAlignmentConfig : public TXmlSubConfig {};
class TEdgeSeekVisionConfig : public TXmlSubConfig {};
class TCustomCamParams : public TXmlSubConfig {};

// A serial or network peer.
class TDataTransConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // The integer (sign and digits only) before the first comma, which is not the first character; else 9600.
  [[nodiscard]] std::int32_t GetBaudrate() const;
  // Any number. Leaves the text unchanged where GetBaudrate would fall back.
  void SetBaudrate(std::int32_t baudrate);

  std::int32_t CommPort = 0;
  std::string CommSettings;  // baud rate, parity letter, data bits, stop bits
  bool UseTcp = false;
  std::string TcpHost;
  std::int32_t TcpPort = 0;
  bool IsModbusTcp = false;
  // Read before the first write of a connection, in the strict profile; none where it is no address of a register.
  // Ours: a file has it only where somebody has set it.
  std::int32_t ProbeRegister = -1;
};

class TModbusStoreConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool StoreEnabled = false;
  std::int32_t WriteCurDrawingParamAddr = 0;
  std::int32_t WriteNextDrawingParamAddr = 0;
  bool UCSInfoEnabled = false;
  std::int32_t WriteUCSInfoParamAddr = 0;
  bool ExportFileNameEnabled = false;
  std::int32_t WriteFileNameParamAddr = 0;
  TDataTransConfig DataTransConfig;
};

}  // namespace ixocamglue
