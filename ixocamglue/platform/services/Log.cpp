#include "ixocamglue/platform/services/Log.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

namespace ixocamglue {
namespace {

constexpr std::size_t kTextCapacity = 200;  // lines up to here reuse their slot without allocating
constexpr std::uint32_t kDrainEveryMs = 20;
constexpr std::uint32_t kQuietEveryMs = 100;
constexpr std::uint32_t kQuietAfter = 50;  // rounds without a line

}  // namespace

TLogService::TLogService(std::size_t capacity) : FRing(capacity) {
  for (auto& slot : FRing) slot.Text.reserve(kTextCapacity);
  FDraining.Text.reserve(kTextCapacity);
}

TLogService::~TLogService() {
  FStop.Ask();
  if (FThread.joinable()) FThread.join();
  DrainOnce();
}

void TLogService::Listen(TDiagMask mask) { GDiagMask.store(mask, std::memory_order_relaxed); }

TLogRecord* TLogService::ClaimLocked() {
  if (FCount == FRing.size()) {
    FDropped.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  }
  TLogRecord& slot = FRing[(FHead + FCount) % FRing.size()];
  slot.TimeMs = Clock().MonotonicMs();
  slot.Stamp = Clock().Now();
  return &slot;
}

void TLogService::PostMsg(std::int32_t kind, std::int32_t colour, std::string_view text,
                          std::string_view source) noexcept {
  try {
    TGuard guard(FLock);
    if (TLogRecord* slot = ClaimLocked()) {
      slot->Diagnostic = false;
      slot->Kind = kind;
      slot->Colour = colour;
      slot->Text = text;
      slot->Source = source;
      ++FCount;
    }
  } catch (...) {  // a line that finds no memory is a dropped line
    FDropped.fetch_add(1, std::memory_order_relaxed);
  }
}

void TLogService::PostDiag(TDiagLevel level, const char* category, const char* format, std::va_list args) noexcept {
  try {
    TGuard guard(FLock);
    if (TLogRecord* slot = ClaimLocked()) {
      slot->Diagnostic = true;
      slot->Level = level;
      FormatTo(slot->Text, format, args);
      slot->Source = category;
      ++FCount;
    }
  } catch (...) {
    FDropped.fetch_add(1, std::memory_order_relaxed);
  }
}

std::size_t TLogService::DrainOnce() {
  std::size_t written = 0;
  for (;; ++written) {
    if (FSign) FSign->Beat();
    {
      TGuard guard(FLock);
      if (FCount == 0) return written;
      std::swap(FDraining, FRing[FHead]);
      FHead = (FHead + 1) % FRing.size();
      --FCount;
    }
    for (ILogSink* sink : FSinks) {
      try {
        sink->Write(FDraining);
      } catch (...) {
        FSwallowed.fetch_add(1, std::memory_order_relaxed);
      }
    }
  }
}

void TLogService::Start() {
  if (FThread.joinable()) return;
  FSign.emplace("ixo-log", tkLog);
  FThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "ixo-log");
    for (std::uint32_t empty = 0; !Clock().Pause(FStop, empty < kQuietAfter ? kDrainEveryMs : kQuietEveryMs);)
      empty = DrainOnce() != 0 ? 0 : std::min(empty + 1, kQuietAfter);
  });
}

void TDiag::operator()(const char* format, ...) const noexcept {
  if (TLogService* logs = Logs()) {
    std::va_list args;
    va_start(args, format);
    logs->PostDiag(FLevel, FCategory, format, args);
    va_end(args);
  }
}

IXO_DEFINE_SERVICE(TLogService, Logs)

}  // namespace ixocamglue
