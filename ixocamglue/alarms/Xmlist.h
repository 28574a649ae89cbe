// A ring queue of value records that only grows. Not synchronised; int32 counts, as stored by its users.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ixocamglue {

inline constexpr const char* SLoopListInsertRange = "E:TLoopList<T>.Insert Index out of range!";

// Indices count from 0; one outside maps into the ring, but for Insert. T is default-constructible and movable without
// throwing. Items may be arguments of the list's own operations: they are taken by value.
template <class T>
class TLoopList {
 public:
  explicit TLoopList(std::int32_t capacity)
      : FItems(static_cast<std::size_t>(std::max(capacity, 2))), FCapacity(std::max(capacity, 2)) {}
  virtual ~TLoopList() = default;
  TLoopList(const TLoopList&) = delete;
  TLoopList& operator=(const TLoopList&) = delete;

  // `index` 0 to GetCount(); otherwise throws std::out_of_range and changes nothing.
  virtual void Insert(std::int32_t index, T item) {
    if (index < 0 || index > FCount) throw std::out_of_range(SLoopListInsertRange);
    ExtendMemory();
    ++FCount;
    for (std::int32_t i = FCount - 2; i >= index; --i) FItems[Slot(i + 1)] = std::move(FItems[Slot(i)]);
    FItems[Slot(index)] = std::move(item);
  }
  virtual void Add(T item) {
    ExtendMemory();
    FItems[Slot(FCount)] = std::move(item);
    ++FCount;
  }
  // Both do nothing on an empty list. Kept: the slot keeps its item until another takes its place.
  virtual void DeleteFirst() {
    if (FCount == 0) return;
    FHead = FHead + 1 == FCapacity ? 0 : FHead + 1;
    --FCount;
  }
  virtual void DeleteLast() {
    if (FCount > 0) --FCount;
  }

  // Kept: no range check; any index, also a negative one, maps into the ring.
  [[nodiscard]] const T& GetItem(std::int32_t index) const { return FItems[Slot(index)]; }
  void SetItem(std::int32_t index, T item) { FItems[Slot(index)] = std::move(item); }
  [[nodiscard]] const T& GetFirst() const { return GetItem(0); }
  void SetFirst(T item) { SetItem(0, std::move(item)); }
  [[nodiscard]] const T& GetLast() const { return GetItem(FCount - 1); }
  void SetLast(T item) { SetItem(FCount - 1, std::move(item)); }
  [[nodiscard]] T* PItems(std::int32_t index) { return &FItems[Slot(index)]; }  // valid until the list grows
  void Clear() { FHead = FCount = 0; }

  [[nodiscard]] std::int32_t GetCount() const { return FCount; }
  [[nodiscard]] std::int32_t GetCapacity() const { return FCapacity; }
  [[nodiscard]] std::int32_t GetHead() const { return FHead; }

  // Doubles a full list; called before every insertion. Throws std::length_error, the list unchanged, where the doubled
  // capacity is no int32.
  void ExtendMemory() {
    if (FCount < FCapacity) return;
    if (FCapacity > std::numeric_limits<std::int32_t>::max() / 2) throw std::length_error("TLoopList<T> is too long");
    const std::int32_t old = FCapacity;
    const std::int32_t capacity = old * 2;
    FItems.resize(static_cast<std::size_t>(capacity));
    FCapacity = capacity;
    const auto at = [this](std::int32_t slot) { return FItems.begin() + slot; };
    if (FCount / 2 <= FHead) {
      const std::int32_t head = capacity - (FCount - FHead);
      std::move_backward(at(FHead), at(old), at(capacity));
      FHead = head;
    } else {
      std::move(at(0), at(FHead), at(old));
    }
  }

 private:
  [[nodiscard]] std::size_t Slot(std::int32_t index) const {
    std::int64_t slot = std::int64_t{FHead} + index;
    if (slot < 0 || slot >= FCapacity) {
      if (slot >= FCapacity && slot < 2 * std::int64_t{FCapacity})
        slot -= FCapacity;
      else
        slot = (slot % FCapacity + FCapacity) % FCapacity;
    }
    return static_cast<std::size_t>(slot);
  }

  std::vector<T> FItems;
  std::int32_t FHead = 0;
  std::int32_t FCount = 0;
  std::int32_t FCapacity;
};

}  // namespace ixocamglue
