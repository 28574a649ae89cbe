// The pins of ixocut-hal that the driver itself needs, by their names in its list (share/machines/linuxcnc). What else
// the list has are points of the machine file ("hal:NAME"). Lengths in LinuxCNC's units, which have to be mm.
#pragma once

#include <string_view>

#include "machines/linuxcnc/HalWire.h"

namespace ixocamglue {

// Outputs.
inline constexpr std::string_view kPinStop = "inhibit";              // holds the axes: motion.feed-inhibit
inline constexpr std::string_view kPinFollow = "follow";             // the height loop runs
inline constexpr std::string_view kPinFollowSpeed = "follow-speed";  // the loop goes no faster, mm/s
inline constexpr std::string_view kPinHeight = "follow-height";      // what it keeps, mm
inline constexpr std::string_view kPinClear = "follow-clear";        // takes Z's offset back
inline constexpr std::string_view kPinMark = "mark";  // rises with each stop; only for who measures, and may be missing
// Inputs.
inline constexpr std::string_view kPinLatch = "latch";  // the beam's latch is set
inline constexpr std::string_view kPinEnabled = "motion-enabled";
inline constexpr std::string_view kPinOffset = "z.offset";  // what the height loop adds to Z, mm
inline constexpr std::string_view kPinGap = "gap";          // what the sensor makes of its value, mm
inline constexpr std::string_view kPinSensor = "sensor";    // its value

struct TNeededPin {
  std::string_view Name;
  THalKind Kind;
  bool Output;
};
inline constexpr TNeededPin kNeededPins[] = {
    {kPinStop, hkBit, true},          {kPinFollow, hkBit, true},    {kPinHeight, hkFloat, true},
    {kPinFollowSpeed, hkFloat, true}, {kPinClear, hkBit, true},     {kPinLatch, hkBit, false},
    {kPinEnabled, hkBit, false},      {kPinOffset, hkFloat, false}, {kPinGap, hkFloat, false},
    {kPinSensor, hkFloat, false},
};

// Inputs of each axis, by its letter: "x.pos", "w.homed" ... (TLncConfig::Pin).
inline constexpr std::string_view kAxisPos = "pos";
inline constexpr std::string_view kAxisHomed = "homed";
inline constexpr std::string_view kAxisLeast = "min";
inline constexpr std::string_view kAxisMost = "max";
inline constexpr std::string_view kAxisSpeed = "max-speed";  // its highest, per second

struct TAxisPin {
  std::string_view What;
  THalKind Kind;
};
inline constexpr TAxisPin kAxisPins[] = {
    {kAxisPos, hkFloat}, {kAxisHomed, hkBit}, {kAxisLeast, hkFloat}, {kAxisMost, hkFloat}, {kAxisSpeed, hkFloat}};

}  // namespace ixocamglue
