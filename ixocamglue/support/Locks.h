// Locks with Clang's thread-safety annotations; a clang build with -Wthread-safety -Werror checks them.
// TCriticalSection is the rule; TRecursiveSection only where a caller may hold the lock while calling in.
#pragma once

#include <mutex>

#if defined(__clang__)
#define IXO_TSA(x) __attribute__((x))
#else
#define IXO_TSA(x)
#endif
#define IXO_CAPABILITY(name) IXO_TSA(capability(name))
#define IXO_SCOPED_CAPABILITY IXO_TSA(scoped_lockable)
#define IXO_GUARDED_BY(lock) IXO_TSA(guarded_by(lock))
#define IXO_ACQUIRE(...) IXO_TSA(acquire_capability(__VA_ARGS__))
#define IXO_TRY_ACQUIRE(...) IXO_TSA(try_acquire_capability(__VA_ARGS__))
#define IXO_RELEASE(...) IXO_TSA(release_capability(__VA_ARGS__))
#define IXO_REQUIRES(...) IXO_TSA(requires_capability(__VA_ARGS__))
#define IXO_EXCLUDES(...) IXO_TSA(locks_excluded(__VA_ARGS__))
// For an operation that is the lock's own face: it returns holding it, or gives up one taken elsewhere.
#define IXO_NO_ANALYSIS IXO_TSA(no_thread_safety_analysis)

namespace ixocamglue {

template <class Mutex>
class IXO_CAPABILITY("mutex") TSection {
 public:
  constexpr TSection() = default;
  TSection(const TSection&) = delete;
  TSection& operator=(const TSection&) = delete;

  void lock() IXO_ACQUIRE() { FMutex.lock(); }
  [[nodiscard]] bool try_lock() IXO_TRY_ACQUIRE(true) { return FMutex.try_lock(); }
  void unlock() IXO_RELEASE() { FMutex.unlock(); }
  // The bare mutex, for a condition variable's wait; the caller holds the section.
  Mutex& Native() { return FMutex; }

 private:
  Mutex FMutex;
};

using TCriticalSection = TSection<std::mutex>;
using TRecursiveSection = TSection<std::recursive_mutex>;

template <class Section>
class IXO_SCOPED_CAPABILITY TGuard {
 public:
  explicit TGuard(Section& section) IXO_ACQUIRE(section) : FSection(section) { FSection.lock(); }
  ~TGuard() IXO_RELEASE() { FSection.unlock(); }
  TGuard(const TGuard&) = delete;
  TGuard& operator=(const TGuard&) = delete;

 private:
  Section& FSection;
};

}  // namespace ixocamglue
