// The alarm message: what travels from the alarm package through the fifos to every consumer. Values: any thread may
// have its own copy, and nothing but making a text fails (std::bad_alloc).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "ixocamglue/platform/ports/NcAlarms.h"

namespace ixocamglue {

enum class TNcAlarmAction : std::uint8_t { naaAdded = 0, naaRemoved = 1, naaAcknowledged = 2 };
using enum TNcAlarmAction;

using TAlarmLv = std::uint8_t;

// The two texts of a message, immutable and shared by all its copies: one block, counted.
class TNcAlarmTexts {
 public:
  TNcAlarmTexts() = default;
  TNcAlarmTexts(std::string_view identifier, std::string_view desc)
      : FBlock(new (::operator new(sizeof(TBlock) + identifier.size() + desc.size())) TBlock) {
    FBlock->IdSize = static_cast<std::uint32_t>(identifier.size());
    FBlock->DescSize = static_cast<std::uint32_t>(desc.size());
    if (!identifier.empty()) std::memcpy(FBlock->Text(), identifier.data(), identifier.size());
    if (!desc.empty()) std::memcpy(FBlock->Text() + identifier.size(), desc.data(), desc.size());
  }
  TNcAlarmTexts(const TNcAlarmTexts& other) noexcept : FBlock(other.FBlock) {
    if (FBlock) FBlock->Count.fetch_add(1, std::memory_order_relaxed);
  }
  TNcAlarmTexts(TNcAlarmTexts&& other) noexcept : FBlock(std::exchange(other.FBlock, nullptr)) {}
  TNcAlarmTexts& operator=(const TNcAlarmTexts& other) noexcept { return *this = TNcAlarmTexts(other); }
  TNcAlarmTexts& operator=(TNcAlarmTexts&& other) noexcept {
    std::swap(FBlock, other.FBlock);
    return *this;
  }
  ~TNcAlarmTexts() {
    if (FBlock) Drop();
  }

  [[nodiscard]] std::string_view Id() const {
    return FBlock ? std::string_view(FBlock->Text(), FBlock->IdSize) : std::string_view();
  }
  [[nodiscard]] std::string_view Desc() const {
    return FBlock ? std::string_view(FBlock->Text() + FBlock->IdSize, FBlock->DescSize) : std::string_view();
  }
  [[nodiscard]] const void* Block() const { return FBlock; }  // the same for all copies of a message

 private:
  friend class TNcAlarmCopies;

  void Drop() noexcept {
    if (FBlock->Count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    FBlock->~TBlock();
    ::operator delete(FBlock);
  }

  struct TBlock {
    std::atomic<std::uint32_t> Count{1};
    std::uint32_t IdSize = 0;
    std::uint32_t DescSize = 0;
    char* Text() { return reinterpret_cast<char*>(this + 1); }
  };

  TBlock* FBlock = nullptr;
};

// Copied by value; a copy costs one count.
struct TNcAlarmMsg {
  TNcAlarmAction Action = naaAdded;
  TAlarmLv Level = 0;
  std::int32_t Removed = 0;  // 1 in a removal
  TNcAlarmTexts Texts;
  TDateTime Time;
  std::uint32_t Attrs = 0;  // carried along unchanged
  std::uint32_t Word = 0;   // carried along unchanged

  [[nodiscard]] std::string_view Id() const { return Texts.Id(); }
  [[nodiscard]] std::string_view Desc() const { return Texts.Desc(); }

  // Everything but action and removed flag, which stay.
  void InitAlarmMsg(const TNcAlarmRecord& record) {
    Level = record.Level();
    Texts = TNcAlarmTexts(record.Identifier(), record.Desc);
    Time = record.Time;
    Attrs = record.Attrs;
    Word = static_cast<std::uint32_t>(record.Serial);
  }
};

// Copies of one message for many holders, counted in one step; those that are not taken are given back. The message
// outlives it.
class TNcAlarmCopies {
 public:
  TNcAlarmCopies(const TNcAlarmMsg& msg, std::size_t copies) : FMsg(msg), FLeft(static_cast<std::uint32_t>(copies)) {
    if (auto* const block = FMsg.Texts.FBlock) block->Count.fetch_add(FLeft, std::memory_order_relaxed);
  }
  ~TNcAlarmCopies() {
    if (auto* const block = FMsg.Texts.FBlock; block && FLeft != 0)
      block->Count.fetch_sub(FLeft, std::memory_order_relaxed);  // the message itself holds one more
  }
  TNcAlarmCopies(const TNcAlarmCopies&) = delete;
  TNcAlarmCopies& operator=(const TNcAlarmCopies&) = delete;

  // As often as was asked for.
  [[nodiscard]] TNcAlarmMsg Take() {
    TNcAlarmMsg copy{FMsg.Action, FMsg.Level, FMsg.Removed, {}, FMsg.Time, FMsg.Attrs, FMsg.Word};
    copy.Texts.FBlock = FMsg.Texts.FBlock;
    --FLeft;
    return copy;
  }

 private:
  const TNcAlarmMsg& FMsg;
  std::uint32_t FLeft;
};

}  // namespace ixocamglue
