// Monitor files: the names of their sections and keys, and the frame that carries up to 32 samples of one signal.
// Values; any thread. Nothing throws; an index of a sample is in the range 0 to 31, which nobody checks.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ixocamglue {

inline constexpr std::string_view SSeparatorChar = ",";
inline constexpr std::string_view SProvider_Ver1P0 = "1.0.0.0";  // recognised and refused
inline constexpr std::string_view SProvider_Version = "1.2.0.0";
inline constexpr std::string_view SProvider = "Provider";
inline constexpr std::string_view SProvider_Name = "IxoCut";
inline constexpr std::string_view SFileVersion = "Version";
inline constexpr std::string_view SMonitorHead = "MonitorHead";
inline constexpr std::string_view SMonitorConfig = "MonitorConfig";
inline constexpr std::string_view SMonitorConfig_Motor = "Motor";
inline constexpr std::string_view SMonitorData = "MonitorData";
inline constexpr std::string_view SMonitorCount = "MonitorCount";    // monitor configuration file
inline constexpr std::string_view SMonitorPerion = "MonitorPerion";  // Kept: the spelling is the file's
inline constexpr std::string_view SExtMonitorTypeList = "TypeList";  // external sample files
inline constexpr std::string_view SSMDefaultExt = ".csv";
inline constexpr std::string_view SMonitorNilData = ",";  // external output samples: a line without values
inline constexpr std::string_view SSMConfigExt = ".MonitorConfig";
inline constexpr std::string_view SSMConfigFilter = "(*.MonitorConfig)|*.MonitorConfig";

// Appends `s` to a line, behind a separator where one is asked for.
void AddString(std::string& line, std::string_view s, bool withSeparator);

inline constexpr std::size_t kFrameValues = 32;

// One frame of samples of one signal. A plain record: 156 bytes without a gap that could hold a field.
struct TMonitorDataFrame {
  std::uint16_t MainType = 0;  // signal group
  std::uint16_t SubType = 0;   // signal within the group
  std::uint16_t Param1 = 0;    // for example the axis, from 1
  std::uint16_t Param2 = 0;
  std::uint32_t SampleTime = 0;    // ms, of the first sample; wraps
  std::uint32_t TimeInterval = 0;  // ms between two samples
  std::uint8_t DataCount = 0;      // values that follow; a greater number than 32 counts as 32
  std::uint8_t Version = 0;        // of the frame's layout
  std::uint32_t ShareDw = 0;       // meaning depends on the signal
  std::uint8_t Reserve1 = 0;
  std::uint8_t Reserve2 = 0;
  std::array<std::uint32_t, kFrameValues> Data{};  // bits of a signed integer or of a float

  // Integer frames hold signed 32-bit values, every other frame single-precision floats.
  [[nodiscard]] constexpr bool IsInteger() const {
    return MainType == 3 && (SubType == 1 || SubType == 2 || SubType == 5 || SubType == 8);
  }
  [[nodiscard]] std::size_t Count() const { return std::min<std::size_t>(DataCount, kFrameValues); }

  [[nodiscard]] std::int32_t GetInt(std::size_t index) const { return std::bit_cast<std::int32_t>(Data[index]); }
  [[nodiscard]] float GetFloat(std::size_t index) const { return std::bit_cast<float>(Data[index]); }
  // The sample as a number, whatever the frame holds.
  [[nodiscard]] double GetValue(std::size_t index) const {
    return IsInteger() ? static_cast<double>(GetInt(index)) : static_cast<double>(GetFloat(index));
  }
  void SetInt(std::size_t index, std::int32_t value) { Data[index] = std::bit_cast<std::uint32_t>(value); }
  void SetFloat(std::size_t index, float value) { Data[index] = std::bit_cast<std::uint32_t>(value); }

  friend bool operator==(const TMonitorDataFrame&, const TMonitorDataFrame&) = default;
};
static_assert(sizeof(TMonitorDataFrame) == 156 && std::is_trivially_copyable_v<TMonitorDataFrame>);

// Kept: the writers pass over frames of main type 1 with sub type 258 or 260.
[[nodiscard]] constexpr bool IsSaved(const TMonitorDataFrame& frame) {
  return !(frame.MainType == 1 && (frame.SubType == 258 || frame.SubType == 260));
}

// What a saved frame's eleven header fields are called, in their order; the twelfth heads the values.
inline constexpr std::array<std::string_view, 12> kMonitorColumns = {
    "MainType",  "SubType", "Param1",  "Param2",   "SampleTime", "TimeInterval",
    "DataCount", "Version", "ShareDw", "Reserve1", "Reserve2",   "Data"};
inline constexpr std::size_t kHeaderFields = 11;

}  // namespace ixocamglue
