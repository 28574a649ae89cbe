#include "ixocamglue/monitor/Usystemmonitorfile.h"

#include <utility>

#include "ixocamglue/monitor/Umonitornumbers.h"
#include "ixocamglue/monitor/Umonitortexts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue {
namespace {

void AddInt(std::string& line, std::uint32_t value) {
  char text[kLongestInt + kPutSlack];
  const char* const end = PutInt(text, static_cast<std::int32_t>(value));
  AddString(line, std::string_view(text, static_cast<std::size_t>(end - text)), true);
}

void AddFloat(std::string& line, float value) {
  char text[kLongestFloat + kPutSlack];
  const char* const end = PutFloat(text, value);
  AddString(line, std::string_view(text, static_cast<std::size_t>(end - text)), true);
}

}  // namespace

std::vector<std::string> TSystemMonitorFile::Motors() const {
  std::vector<std::string> motors;
  GetMotorNames(motors, GetMotorCount() - 1);
  return motors;
}

void TSystemMonitorFile::SaveToFile(const std::string& fileName) const {
  TMonitorFileSink sink(fileName);
  SaveToSink(sink);
  sink.Commit();
}

void TSystemMonitorFile::SaveToSink(IMonitorSink& sink) const {
  const std::vector<std::string> motors = Motors();
  TMonitorWriter writer(sink, motors);
  SaveMonitorData_Content(writer);
  writer.Finish();
}

void TSystemMonitorFile::SaveMonitorData_Content(TMonitorWriter& writer) const {
  for (const TMonitorDataFrame* frame : FFrames)
    if (frame) writer.Write(*frame);
}

void TSystemMonitorFile::SaveExpandToFile(const std::string& fileName) const {
  TMonitorFileSink sink(fileName);
  std::string line;
  for (const TMonitorDataFrame* frame : FFrames) {
    if (!frame || !IsSaved(*frame)) continue;
    line.clear();
    SaveExpandData_Head(line, *frame);
    SaveExpandData_List(line, *frame);
    line += '\n';
    sink.Write(line);
  }
  sink.Commit();
}

void TSystemMonitorFile::SaveExpandData_Head(std::string& line, const TMonitorDataFrame& frame) {
  AddString(line, kMonitorColumns[0], false);
  AddInt(line, frame.MainType);
  AddString(line, kMonitorColumns[1], true);
  AddInt(line, frame.SubType);
  AddString(line, kMonitorColumns[2], true);
  AddInt(line, frame.Param1);
  AddString(line, kMonitorColumns[3], true);
  AddInt(line, frame.Param2);
  AddString(line, SSampleTime.Get(), true);
  AddInt(line, frame.SampleTime);
}

void TSystemMonitorFile::SaveExpandData_List(std::string& line, const TMonitorDataFrame& frame) {
  for (std::size_t i = 0; i < frame.Count(); ++i) {
    if (frame.IsInteger())
      AddInt(line, frame.Data[i]);
    else
      AddFloat(line, frame.GetFloat(i));
  }
}

void TSystemMonitorFile::ResetOpenFlag() {
  FIs1P0 = false;
  FIs1P2 = false;
  F1P0Signals.clear();
}

bool TSystemMonitorFile::LoadFromFile(const std::string& fileName, TMonitorFrameEvent onFrame,
                                      TMonitorLoadReport* report) {
  ResetOpenFlag();
  FOnFrame = std::move(onFrame);
  FFileMotors.clear();

  TMonitorReader reader;
  if (reader.Open(fileName)) {
    FFileMotors = reader.Report().Motors;
    FIs1P0 = reader.Is1P0();
    FIs1P2 = reader.Is1P2();
    if (FIs1P2) LoadMonitorData1P2_Content(reader);  // Kept: of another version nothing, with success
  }
  FOnFrame = nullptr;
  if (report) *report = reader.Report();
  if (const auto& problem = reader.Report().Problem) {
    LogMsg(lkError, 0, problem->Text());
    return false;
  }
  if (FIs1P0) {
    if (TAppSys* const app = AppSys()) app->ShowMessage(SNotSupportOldVersion.Get());
    return false;
  }
  return true;
}

void TSystemMonitorFile::LoadMonitorData1P2_Content(TMonitorReader& reader) const {
  for (;;) {
    auto frame = std::make_unique<TMonitorDataFrame>();
    if (!reader.Next(*frame)) return;
    if (FOnFrame) FOnFrame(std::move(frame));
  }
}

bool TSystemMonitorFile::Parse1P0SignalInfo(std::string_view /*line*/) { return false; }
bool TSystemMonitorFile::LoadMonitorData1P0_Item(std::string_view /*line*/, TMonitorDataFrame& /*frame*/) {
  return false;
}
bool TSystemMonitorFile::LoadMonitorData1P0_Content(TMonitorReader& /*reader*/) { return false; }

}  // namespace ixocamglue
