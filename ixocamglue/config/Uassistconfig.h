// The assist configuration: one global record per section of the machine configuration file.
//
// InitCamConfigs makes the records; they live as long as their configuration, and the globals are null before and
// after. Motion procedures, device threads and the interface read and write them directly: no locks but the pierce
// counter's; records are edited only while no procedure runs. A name that the configuration has already is a design
// fault; nothing else fails.
#pragma once

#include <any>
#include <deque>

#include "ixocamglue/config/Ucleanconfig.h"
#include "ixocamglue/config/Uclientconfig.h"
#include "ixocamglue/config/Ulistconfig.h"
#include "ixocamglue/config/Unozzleconfig.h"
#include "ixocamglue/config/Upiercecounter.h"

namespace ixocamglue {

extern TAutoCleanConfig* FNozzleCleanCfg;
extern TCutHeadMaintainConfig* FCHMaintainCfg;
extern TLaserAlignmentConfig* FLaserAlignCfg;
extern TLaserParamConfig* FPaperDetectCfg;
extern TFloatCalibrationConfig* FFloatCailCfg;
extern TCustomCamParams* FCustomCamParamsCfg;
extern TEdgeSeekVisionConfig* FEdgeSeekVisionCfg;
extern TNozzleChangeConfig* FNozzleChangeCfg;
extern TBlankingConfig* FBlankingCfg;
extern TIxoCutConfig* FIxoCutCfg;
extern TVisionGlbConfig* FVisionGlbCfg;
extern TStrokeMeasurement* FStrokeCfg;
extern TUCSOrgConfig* FUCSOrgCfg;
extern TCaliRstCfg* FCaliRstCfg;
extern TCaliRstCfg* FCaliRstCfg2;
extern TScanCodeConfig* FScanCodeCfg;
extern TCloudCutConfig* FCloudCutCfg;
extern TFocusDebugParams* FFocusDebugParams;
extern TMoltenPoolDebugParams* FMoltenPoolDebugParams;
extern THealthConfig* FHealthCfg;
extern TMarkPointsConfig* FMarkPointsCfg;
extern TSysDelayConfig* FSysDelayCfg;
extern TStaryLightParams* FStrayLightParams;
extern TModbusStoreConfig* FModbusStoreCfg;
extern TPierceCounter* FWorkPierceCounter;

// The child section that holds "CaliResults" and "CaliResults2".
inline constexpr std::string_view kCaliResultsSection = "Follower";

// Registers the sections above on a machine configuration, before it is loaded; a second call on the same one does
// nothing. After each load the pierce counter starts from the stored count, and InitFlags runs.
void InitCamConfigs(TMachineConfig& config);

// Adds the same sections to a configuration that is only looked at and edited for itself: no global is set, and a load
// does nothing else. What points to the records lives in `slots`, which outlives them.
using TCamSlots = std::deque<std::any>;
void AddCamSections(TMachineConfig& config, TCamSlots& slots);

// Stores the blanking position as flag position 104 of the cutting driver, whether blanking is enabled or not. Without
// a record or a driver nothing. Called after each load, and again by the controller when the driver has come later.
void InitFlags();

// The unit's part of the library's life: the pierce counter, which InitCamConfigs makes, lives until the library ends.
void StartAssistConfig();
void FreeAssistConfig();

}  // namespace ixocamglue
