#include "bench/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t GAllocations = 0;

void* Count(void* memory) {
  if (!memory) throw std::bad_alloc();
  ++GAllocations;
  return memory;
}

}  // namespace

// The array and non-throwing forms of the standard library end in these.
void* operator new(std::size_t size) { return Count(std::malloc(size ? size : 1)); }
void* operator new(std::size_t size, std::align_val_t align) {
  const auto unit = static_cast<std::size_t>(align);
  return Count(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace ixocamglue::bench {

std::uint64_t Allocations() { return GAllocations; }

}  // namespace ixocamglue::bench
