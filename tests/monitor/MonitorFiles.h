// What the tests of the monitor files share.
#pragma once

#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fixture/TempDir.h"
#include "fixture/Texts.h"
#include "ixocamglue/monitor/Usystemmonitorfile.h"

namespace ixocamglue::test {

using TFrameList = std::vector<std::unique_ptr<TMonitorDataFrame>>;

inline const std::string kHead =
    "MonitorHead,Provider,IxoCut,Version,1.2.0.0\n"
    "MonitorConfig,Motor\n"
    "MonitorData\n"
    "MainType,SubType,Param1,Param2,SampleTime,TimeInterval,DataCount,Version,ShareDw,Reserve1,Reserve2,Data\n";

inline void WriteFile(const std::filesystem::path& file, std::string_view text) {
  std::ofstream(file, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
}

struct TStringSink final : IMonitorSink {
  void Write(std::string_view bytes) override { Text += bytes; }
  std::string Text;
};

inline std::string Save(const std::vector<const TMonitorDataFrame*>& frames) {
  TStringSink sink;
  TSystemMonitorFile(frames).SaveToSink(sink);
  return sink.Text;
}

inline std::string Save(const TFrameList& frames) {
  std::vector<const TMonitorDataFrame*> list;
  for (const auto& frame : frames) list.push_back(frame.get());
  return Save(list);
}

struct TLoaded {
  bool Result = false;
  TFrameList Frames;
  TMonitorLoadReport Report;
};

inline TLoaded LoadFile(const std::filesystem::path& file) {
  TLoaded out;
  TSystemMonitorFile monitor;
  out.Result = monitor.LoadFromFile(
      file.string(), [&](auto frame) { out.Frames.push_back(std::move(frame)); }, &out.Report);
  return out;
}

inline TLoaded LoadText(std::string_view text) {
  const TTempDir dir;
  WriteFile(dir.Path() / "a.csv", text);
  return LoadFile(dir.Path() / "a.csv");
}

// Any bits at all: NaN, infinities, values with 39 digits.
inline TMonitorDataFrame RandomFrame(std::mt19937& random) {
  TMonitorDataFrame frame;
  const auto bits = [&] { return static_cast<std::uint32_t>(random()); };
  const bool integer = bits() % 2 != 0;
  frame.MainType = integer ? 3 : static_cast<std::uint16_t>(bits());
  frame.SubType = static_cast<std::uint16_t>(integer ? 2U : bits() >> bits() % 16);
  frame.Param1 = static_cast<std::uint16_t>(bits());
  frame.SampleTime = bits();
  frame.TimeInterval = bits() >> bits() % 32;
  frame.DataCount = static_cast<std::uint8_t>(bits() % 33);
  frame.ShareDw = bits();
  frame.Reserve2 = static_cast<std::uint8_t>(bits());
  for (std::size_t i = 0; i < frame.Count(); ++i) {
    if (integer || bits() % 2 != 0)
      frame.Data[i] = bits() >> bits() % 32;
    else
      frame.SetFloat(i, static_cast<float>(static_cast<std::int32_t>(bits())) * 1e-5F);
  }
  return frame;
}

}  // namespace ixocamglue::test
