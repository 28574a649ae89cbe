#include "ixocamglue/panel/Kbpforms.h"

#include <array>
#include <map>

namespace ixocamglue {
namespace {

constexpr std::string_view kForms0[] = {"DlgShutDown",
                                        "Schedule",
                                        "FrmAddSuccess",
                                        "DlgFileBackUp",
                                        "AddToSchedule",
                                        "DlgLoadParts",
                                        "DlgLoadTask",
                                        "DlgLoadDrawing",
                                        "DlgLoadDrawing2",
                                        "FrmReport",
                                        "WorkBase",
                                        "Prepare",
                                        "SettingIOCustom",
                                        "DlgQuickSettting",
                                        "Preview",
                                        "DlgEditZeroPnt",
                                        "FlexibleEntry",
                                        "DlgChangeTable",
                                        "DlgChangeNozzle",
                                        "DlgCuttingHeadMaintenance",
                                        "DlgGasWash",
                                        "DlgLaserAlignment",
                                        "DlgManualCleanNozzle",
                                        "DlgNozzleCheck",
                                        "DlgNozzleCleaning",
                                        "DlgVisualSurveillance",
                                        "DlgLoopWork",
                                        "DlgFocusOffset",
                                        "DlgDebugQuickSetting",
                                        "Technics",
                                        "TechPLCParams",
                                        "DiagnoseDetail",
                                        "dgnsGeneral",
                                        "DlgCaliHistory",
                                        "tkMonitor",
                                        "alAlarm",
                                        "fcState",
                                        "MachineParams",
                                        "mtEncoder",
                                        "mtGantryErr",
                                        "MaintenanceBase",
                                        "Maintenance",
                                        "MaintenanceQry",
                                        "Settings",
                                        "FormViewGlobalParams_Vender",
                                        "FormViewGlobalParams_Vender_Vertical",
                                        "FormViewGlobalParams_Operator",
                                        "FormViewGlobalParams_Operator_Vertical",
                                        "FollowerParams",
                                        "PLCParams",
                                        "EquipmentInfo",
                                        "CloudNetwork"};
constexpr std::string_view kForms1[] = {"Reproduction",     "Work",          "CtrlRemote",
                                        "Remote",           "Vision",        "Debug",
                                        "DlgConnerMarking", "DlgFocusDebug", "DlgMoltenPoolDebug"};
constexpr std::string_view kForms2[] = {"DlgAppInitReturnOrg", "DlgReturnOrg"};
constexpr std::string_view kForms3[] = {"DlgZeroPoint"};
constexpr std::string_view kForms4[] = {"DlgEdgeSeek", "DlgEdgeSeekTwice", "DlgEdgeSeekFeedAndPick",
                                        "DlgEdgeSeekManual", "DlgEdgeSeekCircle"};
constexpr std::string_view kForms5[] = {"DlgVisionEdgeSeek"};
constexpr std::string_view kForms6[] = {"DlgVisionCali", "DlgJogLaser", "ioMonitor", "ioMonitor_Vertical"};
constexpr std::string_view kForms7[] = {"DlgManualLubr"};
constexpr std::string_view kForms8[] = {"DlgCleanNozzle"};
constexpr std::string_view kForms9[] = {"DlgBlankingPos",         "DlgMarkPoints",    "DlgChangeNozzleSetting",
                                        "DlgMaintainPos",         "mtMotionControl",  "mtStrokeMeasurement",
                                        "mtPathAdjust",           "mtBallBar",        "PitchMain",
                                        "DlgInertiaMeasurement",  "DlgPIDParams",     "DlgInitReturnOrg",
                                        "DlgGantryInitOrg",       "DlgOrgInitZPhase", "DlgOrgInit2IOLimit",
                                        "DlgSysDelayMeasurement", "mtFeedAndPick",    "DlgDriverOptimization"};
constexpr std::string_view kForms10[] = {"DlgRemnantCutOff"};
constexpr std::string_view kForms11[] = {"DlgFeedAndPicker", "DlgFeedAndPicker_Belt"};
constexpr std::string_view kForms12[] = {"DlgSimLocZPos", "vsCameraInfo"};
constexpr std::string_view kForms13[] = {"DlgDualHead"};
constexpr std::string_view kForms14[] = {"DlgEdgeSearching"};
constexpr std::string_view kForms15[] = {"DlgManualCalibration"};
constexpr std::string_view kForms16[] = {"DlgAutoCalibration", "mtSystemMonitor"};
constexpr std::string_view kForms17[] = {"DlgSimpleAutoCalibration"};
constexpr std::string_view kForms18[] = {"DlgPlateCutOff"};
constexpr std::string_view kForms19[] = {"DlgPaperDetect", "DlgProMirrDetect", "DlgVisionCentring",
                                         "DlgInjectorDetect"};
constexpr std::string_view kForms20[] = {"DlgLaserTest"};
constexpr std::string_view kForms21[] = {"mtSlopeMotion"};
constexpr std::string_view kForms22[] = {"flState", "flState_Vertical"};
constexpr std::string_view kForms23[] = {"fcAdjust", "lxLaser", "fcTest", "fcAxisKTest"};
constexpr std::string_view kForms24[] = {"Zem400BaseInfo", "Zem400Param",        "Zem400Record",
                                         "Zem400QBHFocus", "mtZEMMonitor",       "FrmFocusComp",
                                         "FrmFocusCompEx", "FrmTempSensorArray", "Zem400AirPress"};
constexpr std::string_view kForms25[] = {"mtZemPierceMonitor", "DlgStrayLightTest"};
constexpr std::string_view kForms26[] = {"GasDAComAdjust", "GasZemAdjust", "GasPathDiagnose", "gsTest"};
constexpr std::string_view kForms27[] = {"vsCalibCamera"};

// Two columns, each checking the other.
constexpr TFormGroup kGroups[] = {
    {0x00034000, Keys(14, 16, 17), kForms0},
    {0xFFFFFFFF, Run(0, 31), kForms1},
    {0x00075FA2, Keys(1, 5) | Run(7, 12) | Keys(14) | Run(16, 18), kForms2},
    {0x00075FC0, Run(6, 12) | Keys(14) | Run(16, 18), kForms3},
    {0x00075FC3, Keys(0, 1) | Run(6, 12) | Keys(14) | Run(16, 18), kForms4},
    {0x00075FE3, Keys(0, 1) | Run(5, 12) | Keys(14) | Run(16, 18), kForms5},
    {0xFFFF5FBF, kAllKeys & ~Keys(6, 13, 15), kForms6},
    {0x00075F80, Run(7, 12) | Keys(14) | Run(16, 18), kForms7},
    {0x00075F90, Keys(4) | Run(7, 12) | Keys(14) | Run(16, 18), kForms8},
    {0x00075F82, Keys(1) | Run(7, 12) | Keys(14) | Run(16, 18), kForms9},
    {0x06077F83, Keys(0, 1) | Run(7, 14) | Run(16, 18) | Keys(25, 26), kForms10},
    {0xFFFFDFFF, kAllKeys & ~Keys(13), kForms11},
    {0x00041F80, Run(7, 12) | Keys(18), kForms12},
    {0x00075FBF, Run(0, 5) | Run(7, 12) | Keys(14) | Run(16, 18), kForms13},
    {0x00075F83, Keys(0, 1) | Run(7, 12) | Keys(14) | Run(16, 18), kForms14},
    {0x00875F8A, Keys(1, 3) | Run(7, 12) | Keys(14) | Run(16, 18) | Keys(23), kForms15},
    {0x00075F8A, Keys(1, 3) | Run(7, 12) | Keys(14) | Run(16, 18), kForms16},
    {0x08075F8A, Keys(1, 3) | Run(7, 12) | Keys(14) | Run(16, 18) | Keys(27), kForms17},
    {0xFFFF7FBF, kAllKeys & ~Keys(6, 15), kForms18},
    {0x00075F87, Run(0, 2) | Run(7, 12) | Keys(14) | Run(16, 18), kForms19},
    {0x00075F93, Keys(0, 1, 4) | Run(7, 12) | Keys(14) | Run(16, 18), kForms20},
    {0x00075F92, Keys(1, 4) | Run(7, 12) | Keys(14) | Run(16, 18), kForms21},
    {0x00075F9F, Run(0, 4) | Run(7, 12) | Keys(14) | Run(16, 18), kForms22},
    {0x00034007, Run(0, 2) | Keys(14, 16, 17), kForms23},
    {0x00034012, Keys(1, 4, 14, 16, 17), kForms24},
    {0x00034017, Run(0, 2) | Keys(4, 14, 16, 17), kForms25},
    {0x00034010, Keys(4, 14, 16, 17), kForms26},
    {0x00041F8A, Keys(1, 3) | Run(7, 12) | Keys(18), kForms27},
};

constexpr bool ColumnsAgree() {
  for (const TFormGroup& group : kGroups)
    if (group.Mask != group.Keys) return false;
  return true;
}
static_assert(ColumnsAgree());

constexpr std::size_t CountForms() {
  std::size_t count = 0;
  for (const TFormGroup& group : kGroups) count += group.Forms.size();
  return count;
}
static_assert(CountForms() == 134);

}  // namespace

std::span<const TFormGroup> FormGroups() { return kGroups; }

std::size_t FormCount() { return CountForms(); }

std::optional<TKeyMask> FormMask(std::string_view formName) {
  static const auto forms = [] {
    std::map<std::string_view, TKeyMask> found;
    for (const TFormGroup& group : kGroups)
      for (const std::string_view form : group.Forms) found.emplace(form, group.Mask);
    return found;
  }();
  const auto it = forms.find(formName);
  return it == forms.end() ? std::nullopt : std::optional(it->second);
}

}  // namespace ixocamglue
