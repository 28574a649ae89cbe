// ixo_bench_monitor: loading and saving a large recording beside a CSV parser, fprintf, compiled fmt and a plain read.
//
//   ixo_bench_monitor [MEGABYTES]     makes the recording in a temporary folder, measures, prints one table
//   ixo_bench_monitor --memory FILE   loads FILE and prints the resident memory beyond the frames and their list
//
// A program of its own: one run takes a second, which is too long for what the other benchmarks repeat.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <limits>
#include <malloc.h>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include <fmt/compile.h>
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#define CSV_IO_NO_THREAD
#include <libfccp/csv.h>
#pragma GCC diagnostic pop

#include "bench/Allocations.h"
#include "ixocamglue/monitor/Usystemmonitorfile.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue::bench {
namespace {

constexpr int kRounds = 5;  // the best of these: what others run on the machine only ever makes it worse
constexpr std::size_t kColumns = kHeaderFields + kFrameValues;

using TFrameList = std::vector<std::unique_ptr<TMonitorDataFrame>>;

struct TNullSink final : IMonitorSink {
  void Write(std::string_view bytes) override { Bytes += bytes.size(); }
  std::uint64_t Bytes = 0;
};

struct TCompareSink final : IMonitorSink {
  explicit TCompareSink(std::string_view text) : Text(text) {}
  void Write(std::string_view bytes) override {
    Same = Same && Text.starts_with(bytes);
    Text.remove_prefix(std::min(bytes.size(), Text.size()));
  }
  std::string_view Text;
  bool Same = true;
};

// Integer and float frames in turn, each signal wandering.
TFrameList MakeFrames(std::size_t count) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> mm(-0.5F, 0.5F);
  TFrameList frames;
  std::int32_t counts = 0;
  float pos = 1500.0F;
  for (std::size_t i = 0; i < count; ++i) {
    auto frame = std::make_unique<TMonitorDataFrame>();
    frame->MainType = i % 2 == 0 ? 3 : 2;
    frame->SubType = i % 2 == 0 ? 2 : 1;
    frame->Param1 = static_cast<std::uint16_t>(1 + i % 4);
    frame->SampleTime = static_cast<std::uint32_t>(i / 2 * kFrameValues);
    frame->TimeInterval = 1;
    frame->DataCount = kFrameValues;
    frame->Version = 1;
    for (std::size_t j = 0; j < kFrameValues; ++j) {
      counts += static_cast<std::int32_t>(random() % 200'001) - 100'000;
      pos = std::clamp(pos + mm(random), -3000.0F, 3000.0F);
      if (frame->IsInteger())
        frame->SetInt(j, counts);
      else
        frame->SetFloat(j, pos);
    }
    frames.push_back(std::move(frame));
  }
  return frames;
}

template <class F>
double BestMs(F&& run) {
  double best = std::numeric_limits<double>::infinity();
  for (int i = 0; i < kRounds; ++i) {
    const auto start = std::chrono::steady_clock::now();
    run();
    best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

TFrameList Load(const std::string& file) {
  TFrameList frames;
  TSystemMonitorFile monitor;
  if (!monitor.LoadFromFile(file, [&](auto frame) { frames.push_back(std::move(frame)); }))
    throw std::runtime_error(file + " cannot be loaded");
  return frames;
}

void SetHeader(TMonitorDataFrame& frame, const int (&h)[kHeaderFields]) {
  frame.MainType = static_cast<std::uint16_t>(h[0]);
  frame.SubType = static_cast<std::uint16_t>(h[1]);
  frame.Param1 = static_cast<std::uint16_t>(h[2]);
  frame.Param2 = static_cast<std::uint16_t>(h[3]);
  frame.SampleTime = static_cast<std::uint32_t>(h[4]);
  frame.TimeInterval = static_cast<std::uint32_t>(h[5]);
  frame.DataCount = static_cast<std::uint8_t>(h[6]);
  frame.Version = static_cast<std::uint8_t>(h[7]);
  frame.ShareDw = static_cast<std::uint32_t>(h[8]);
  frame.Reserve1 = static_cast<std::uint8_t>(h[9]);
  frame.Reserve2 = static_cast<std::uint8_t>(h[10]);
}

// The same frames through the CSV parser: 43 typed columns, the data's type by turns as the recording has it.
class TParserLoad {
 public:
  explicit TParserLoad(const std::string& file) : FReader(file) {
    for (int i = 0; i < 4; ++i) FReader.next_line();
    NameColumns(std::make_index_sequence<kColumns>());
  }

  TFrameList Run() {
    TFrameList frames;
    for (bool integer = true;; integer = !integer) {
      auto frame = std::make_unique<TMonitorDataFrame>();
      if (!(integer ? Row<std::int32_t>(*frame) : Row<float>(*frame))) return frames;
      frames.push_back(std::move(frame));
    }
  }

 private:
  template <std::size_t... I>
  void NameColumns(std::index_sequence<I...>) {
    FReader.set_header(std::to_string(I)...);
  }

  template <class T>
  bool Row(TMonitorDataFrame& frame) {
    return ReadRow<T>(frame, std::make_index_sequence<kFrameValues>());
  }
  template <class T, std::size_t... I>
  bool ReadRow(TMonitorDataFrame& f, std::index_sequence<I...>) {
    T values[kFrameValues];
    int h[kHeaderFields];
    if (!FReader.read_row(h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], h[8], h[9], h[10], values[I]...))
      return false;
    SetHeader(f, h);
    for (std::size_t i = 0; i < kFrameValues; ++i) f.Data[i] = std::bit_cast<std::uint32_t>(values[i]);
    return true;
  }

  io::CSVReader<kColumns> FReader;
};

// The parser's lines, their fields by std::from_chars: the floats are rounded to the nearest, which the parser's are
// not.
class TExactLoad {
 public:
  explicit TExactLoad(const std::string& file) : FLines(file) {
    for (int i = 0; i < 4; ++i) FLines.next_line();
  }

  TFrameList Run() {
    TFrameList frames;
    while (const char* at = FLines.next_line()) {
      const char* const end = at + std::strlen(at);
      const auto take = [&](auto& field) {
        const auto parsed = std::from_chars(at, end, field);
        if (parsed.ec != std::errc() || (parsed.ptr != end && *parsed.ptr != ','))
          throw std::runtime_error("no number");
        at = parsed.ptr + (parsed.ptr != end);
      };
      auto frame = std::make_unique<TMonitorDataFrame>();
      int header[kHeaderFields];
      for (int& field : header) take(field);
      SetHeader(*frame, header);
      for (std::size_t i = 0; i < frame->Count(); ++i) {
        if (std::int32_t number = 0; frame->IsInteger()) {
          take(number);
          frame->SetInt(i, number);
        } else {
          float value = 0;
          take(value);
          frame->SetFloat(i, value);
        }
      }
      frames.push_back(std::move(frame));
    }
    return frames;
  }

 private:
  io::LineReader FLines;
};

std::uint64_t PlainRead(const std::string& file) {
  std::vector<char> buffer(256 * 1024);
  std::uint64_t sum = 0;
  const int f = ::open(file.c_str(), O_RDONLY);
  for (ssize_t n = 0; (n = ::read(f, buffer.data(), buffer.size())) > 0;) sum += static_cast<std::uint64_t>(n);
  ::close(f);
  return sum;
}

template <class Put>
void PutFields(const TMonitorDataFrame& f, Put put) {
  put(f.MainType, f.SubType, f.Param1, f.Param2, static_cast<std::int32_t>(f.SampleTime),
      static_cast<std::int32_t>(f.TimeInterval), static_cast<int>(f.Count()), f.Version,
      static_cast<std::int32_t>(f.ShareDw), f.Reserve1, f.Reserve2);
}

// The literal format, as printf spells it.
void SavePrintf(const TFrameList& frames, IMonitorSink& sink) {
  cookie_io_functions_t functions{};
  functions.write = [](void* cookie, const char* text, std::size_t size) {
    static_cast<IMonitorSink*>(cookie)->Write({text, size});
    return static_cast<ssize_t>(size);
  };
  std::FILE* const out = fopencookie(&sink, "w", functions);
  std::vector<char> buffer(64 * 1024);
  std::setvbuf(out, buffer.data(), _IOFBF, buffer.size());
  for (const auto& frame : frames) {
    PutFields(*frame, [&](auto... fields) { std::fprintf(out, "%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d", fields...); });
    for (std::size_t i = 0; i < frame->Count(); ++i) {
      if (frame->IsInteger())
        std::fprintf(out, ",%d", frame->GetInt(i));
      else
        std::fprintf(out, ",%.8f", static_cast<double>(frame->GetFloat(i)));
    }
    std::fputc('\n', out);
  }
  std::fclose(out);
}

void SaveFmt(const TFrameList& frames, IMonitorSink& sink) {
  std::vector<char> buffer(64 * 1024);
  char* out = buffer.data();
  for (const auto& frame : frames) {
    if (buffer.data() + buffer.size() - out < 4096) {
      sink.Write({buffer.data(), static_cast<std::size_t>(out - buffer.data())});
      out = buffer.data();
    }
    PutFields(*frame, [&](auto... fields) {
      out = fmt::format_to(out, FMT_COMPILE("{},{},{},{},{},{},{},{},{},{},{}"), fields...);
    });
    for (std::size_t i = 0; i < frame->Count(); ++i) {
      if (frame->IsInteger())
        out = fmt::format_to(out, FMT_COMPILE(",{}"), frame->GetInt(i));
      else
        out = fmt::format_to(out, FMT_COMPILE(",{:.8f}"), static_cast<double>(frame->GetFloat(i)));
    }
    *out++ = '\n';
  }
  sink.Write({buffer.data(), static_cast<std::size_t>(out - buffer.data())});
}

std::uint64_t ResidentKiB(const char* what) {
  std::ifstream in("/proc/self/status");
  for (std::string word; in >> word;)
    if (std::uint64_t kib = 0; word == what && in >> kib) return kib;
  throw std::runtime_error("/proc/self/status does not tell the resident memory");
}

int PrintMemory(const std::string& file) {
  TFrameList frames;
  // Made in advance, so that no half of a growing list is counted as the loader's; only its touched part is resident.
  frames.reserve(std::filesystem::file_size(file) / 64);
  TSystemMonitorFile monitor;
  const std::uint64_t before = ResidentKiB("VmRSS:");
  const std::uint64_t allocations = Allocations();
  if (!monitor.LoadFromFile(file, [&](auto frame) { frames.push_back(std::move(frame)); }) || frames.empty())
    throw std::runtime_error(file + " cannot be loaded");
  const std::uint64_t made = Allocations() - allocations;
  const std::uint64_t perFrame = malloc_usable_size(frames.front().get()) + sizeof(std::size_t);
  const std::uint64_t own = frames.size() * (perFrame + sizeof(frames[0])) / 1024;
  const std::uint64_t peak = ResidentKiB("VmHWM:") - before;
  std::printf("%.2f %.4f\n", (static_cast<double>(peak) - static_cast<double>(own)) / 1024.0,
              static_cast<double>(made) / static_cast<double>(frames.size()));
  return 0;
}

bool Same(const TFrameList& a, const TFrameList& b) {
  return std::ranges::equal(a, b, [](const auto& x, const auto& y) { return *x == *y; });
}

void Line(const char* what, double ms, double bytes, const char* peer, double peerMs, double target) {
  std::printf("%-34s %9.1f %9.0f", what, ms, bytes / ms / 1000.0);
  if (peerMs > 0) std::printf("   %-26s %9.1f %7.2f", peer, peerMs, peerMs / ms);
  if (target > 0) std::printf("   at least %.1f: %s", target, peerMs / ms >= target ? "yes" : "no");
  std::printf("\n");
}

int Main(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "--memory") return PrintMemory(argv[2]);
  std::size_t megabytes = 210;
  if (argc == 2) {
    const std::string_view text = argv[1];
    megabytes = ParseExactly<std::size_t>(text).value_or(0);
    if (megabytes < 1 || megabytes > 4000) argc = 3;
  }
  if (argc > 2) {
    std::fputs("ixo_bench_monitor [MEGABYTES from 1 to 4000] | --memory FILE\n", stderr);
    return 2;
  }

  const TTempFolder folder("ixo-bench");
  const std::string file = (folder.Path() / "recording.csv").string();
  double bytes = 0;
  {
    // The line's length from a first small one.
    TFrameList frames = MakeFrames(1000);
    const auto save = [&](IMonitorSink& sink) {
      std::vector<const TMonitorDataFrame*> list;
      for (const auto& frame : frames) list.push_back(frame.get());
      TSystemMonitorFile(list).SaveToSink(sink);
    };
    TNullSink probe;
    save(probe);
    frames = MakeFrames(megabytes * 1'000'000 / (probe.Bytes / 1000) + 1);
    TMonitorFileSink sink(file);
    save(sink);
    sink.Commit();
    bytes = static_cast<double>(std::filesystem::file_size(file));

    std::string text = ReadFile(std::filesystem::path(file)).OrThrow(pbUnusable);
    {
      std::size_t data = 0;
      for (int i = 0; i < 4; ++i) data = text.find('\n', data) + 1;
      TCompareSink literal(std::string_view(text).substr(data));
      SavePrintf(frames, literal);
      if (!literal.Same || !literal.Text.empty()) throw std::runtime_error("the file is not the literal format");
    }
    text = {};
    std::vector<const TMonitorDataFrame*> list;
    for (const auto& frame : frames) list.push_back(frame.get());
    const double own = BestMs([&] {
      TNullSink null;
      TSystemMonitorFile(list).SaveToSink(null);
    });
    const double compiled = BestMs([&] {
      TNullSink null;
      SaveFmt(frames, null);
    });
    const double printed = BestMs([&] {
      TNullSink null;
      SavePrintf(frames, null);
    });
    std::printf("recording: %.0f MB, %zu frames; best of %d, one thread; equal to the literal format byte by byte\n\n",
                bytes / 1e6, frames.size(), kRounds);
    std::printf("%-34s %9s %9s   %-26s %9s %7s\n", "what", "ms", "MB/s", "peer", "ms", "ratio");
    Line("save into a null sink", own, bytes, "compiled fmt", compiled, 4.0);
    Line("save into a null sink", own, bytes, "fprintf", printed, 0);
    const TFrameList loaded = Load(file);
    if (!Same(loaded, TExactLoad(file).Run())) throw std::runtime_error("std::from_chars reads other values");
    if (!Same(loaded, TParserLoad(file).Run()))
      std::printf("(the CSV parser rounds floats otherwise: it reads other values)\n");
  }
  malloc_trim(0);
  const double plain = BestMs([&] { (void)PlainRead(file); });
  const double own = BestMs([&] { (void)Load(file); });
  const double parser = BestMs([&] { (void)TParserLoad(file).Run(); });
  const double exact = BestMs([&] { (void)TExactLoad(file).Run(); });
  Line("load", own, bytes, "CSV parser, 43 columns", parser, 2.2);
  Line("load", own, bytes, "its lines, from_chars", exact, 0);
  Line("load", own, bytes, "plain read", plain, 0);
  std::fflush(stdout);

  const std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " --memory " + file;
  std::FILE* const child = popen(command.c_str(), "r");
  double mib = 0;
  double allocations = 0;
  if (!child || std::fscanf(child, "%lf %lf", &mib, &allocations) != 2) throw std::runtime_error("no memory measured");
  pclose(child);
  std::printf(
      "\nload, resident beyond the frames and their list: %.2f MiB (at most 4: %s); allocations per frame: %.4f\n", mib,
      mib <= 4 ? "yes" : "no", allocations);
  return 0;
}

}  // namespace
}  // namespace ixocamglue::bench

int main(int argc, char** argv) {
  try {
    return ixocamglue::bench::Main(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ixo_bench_monitor: %s\n", e.what());
    return 1;
  }
}
