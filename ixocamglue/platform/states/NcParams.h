// The NC parameter store: Boolean, integer and double values by name. Any thread; names are case-sensitive. Nothing
// here fails.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// A value that was never set reads as the caller's default; a name used with two types holds two values. A value is in
// its parameter's unit.
class TNcParams {
 public:
  // A Boolean's place in the store, for writers that run every tick: valid as long as the store. Until Set is called
  // the value counts as never set.
  class TBoolSlot {
   public:
    void Set(bool value) { FValue.store(value ? 1 : 0, std::memory_order_release); }
    [[nodiscard]] bool Get(bool defValue) const {
      const auto value = FValue.load(std::memory_order_acquire);
      return value < 0 ? defValue : value != 0;
    }

   private:
    std::atomic<std::int8_t> FValue{-1};
  };

  [[nodiscard]] bool GetBool(std::string_view name, bool defValue) const;
  void SetBool(std::string_view name, bool value);
  [[nodiscard]] std::int32_t GetInt(std::string_view name, std::int32_t defValue) const;
  void SetInt(std::string_view name, std::int32_t value);
  [[nodiscard]] double GetDouble(std::string_view name, double defValue) const;
  void SetDouble(std::string_view name, double value);

  [[nodiscard]] TBoolSlot& BoolSlot(std::string_view name);

 private:
  mutable TCriticalSection FLock;
  std::map<std::string, std::unique_ptr<TBoolSlot>, std::less<>> FBools IXO_GUARDED_BY(FLock);
  std::map<std::string, std::int32_t, std::less<>> FInts IXO_GUARDED_BY(FLock);
  std::map<std::string, double, std::less<>> FDoubles IXO_GUARDED_BY(FLock);
};

IXO_DECLARE_SERVICE(TNcParams, NcParams);

}  // namespace ixocamglue
