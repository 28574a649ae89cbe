// Reads any bytes as a monitor file, writes the frames, reads and writes again: nothing crashes, and both written files
// are the same. (The values need not be: eight decimals lose, and two signals are never written.)
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdio.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "ixocamglue/monitor/Usystemmonitorfile.h"

using namespace ixocamglue;

namespace {

struct TTextSink final : IMonitorSink {
  void Write(std::string_view bytes) override { Text += bytes; }
  std::string Text;
};

std::string ReadAndWrite(std::string_view text, bool* is1P2) {
  const int file = ::memfd_create("monitor", 0);
  if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
  std::vector<std::unique_ptr<TMonitorDataFrame>> frames;
  TSystemMonitorFile monitor;
  (void)monitor.LoadFromFile("/proc/self/fd/" + std::to_string(file),
                             [&](auto frame) { frames.push_back(std::move(frame)); });
  ::close(file);
  if (is1P2) *is1P2 = monitor.Is1P2();
  std::vector<const TMonitorDataFrame*> list;
  for (const auto& frame : frames) {
    if (frame->DataCount > kFrameValues) std::abort();
    list.push_back(frame.get());
  }
  TTextSink sink;
  TSystemMonitorFile(list).SaveToSink(sink);
  return sink.Text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Half of the inputs start behind a whole head, so that data lines are reached at once.
  std::string text(reinterpret_cast<const char*>(data), size);
  if (size > 0 && data[0] % 2 == 0) text = "MonitorHead,Version,1.2.0.0\n\n\n\n" + text.substr(1);
  const std::string first = ReadAndWrite(text, nullptr);
  bool is1P2 = false;
  if (ReadAndWrite(first, &is1P2) != first || !is1P2) std::abort();
  return 0;
}
