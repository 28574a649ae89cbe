// Small questions to the machine configuration: analogue ports, changed axes, the migration of the pallet delays. Any
// thread that may read the configuration meanwhile; nothing throws, and a null configuration has nothing.
#pragma once

#include <cstdint>
#include <map>

#include "ixocamglue/config/Ucamgluebase.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

using TDADic = std::map<std::int32_t, std::int32_t>;  // port key to port number
using TADDic = std::map<std::int32_t, std::int32_t>;

inline constexpr std::int32_t DEMO_IOBROAD_COUNT = 4;

// Numbers the ports by I/O group: group g and channel i (from 1) have the key g * 32 + i and the base + key. Without an
// extension I/O slave, or without a configuration, the demo groups 1 to 3 with four channels each.
void CalcAllDA(TMachineConfig* config, TDADic& dic);
void CalcAllAD(TMachineConfig* config, TADDic& dic);
void CalcAllPorts(TMachineConfig* config, TDADic& da, TADDic& ad);

// Whether two sets of axis parameters differ, so that the caller has to apply them.
[[nodiscard]] bool AxisParamModify(const TAxisConfig& a, const TAxisConfig& b);
// The X and then the Y axis of the gantry: both indices below 1 are no change, different ones are.
[[nodiscard]] bool AxisParamModify(TMachineConfig& a, TMachineConfig& b);

// Moves the delays of the pallet lift to their new names, once: "RailStartDelay" and "RailStopDelay" in the file's
// "SwitchTable/Elvt" become the four delays before and after the way up and down, unless "BeforeUpDelay" is there. Then
// "CheckRailDelay" is set and the configuration saved. Nothing without the file. `force` skips the flag only.
void CheckSwitchTableConfig(TMachineConfig& config, bool force);

}  // namespace ixocamglue
