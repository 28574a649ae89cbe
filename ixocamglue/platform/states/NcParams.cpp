#include "ixocamglue/platform/states/NcParams.h"

namespace ixocamglue {
namespace {

template <class Map, class Value>
Value Find(const Map& map, std::string_view name, Value defValue) {
  const auto it = map.find(name);
  return it == map.end() ? defValue : it->second;
}

// A known name costs no allocation.
template <class Map, class Value>
void Put(Map& map, std::string_view name, Value value) {
  if (const auto it = map.find(name); it != map.end())
    it->second = value;
  else
    map.emplace(name, value);
}

}  // namespace

bool TNcParams::GetBool(std::string_view name, bool defValue) const {
  TGuard guard(FLock);
  const auto it = FBools.find(name);
  return it == FBools.end() ? defValue : it->second->Get(defValue);
}

void TNcParams::SetBool(std::string_view name, bool value) { BoolSlot(name).Set(value); }

std::int32_t TNcParams::GetInt(std::string_view name, std::int32_t defValue) const {
  TGuard guard(FLock);
  return Find(FInts, name, defValue);
}

void TNcParams::SetInt(std::string_view name, std::int32_t value) {
  TGuard guard(FLock);
  Put(FInts, name, value);
}

double TNcParams::GetDouble(std::string_view name, double defValue) const {
  TGuard guard(FLock);
  return Find(FDoubles, name, defValue);
}

void TNcParams::SetDouble(std::string_view name, double value) {
  TGuard guard(FLock);
  Put(FDoubles, name, value);
}

TNcParams::TBoolSlot& TNcParams::BoolSlot(std::string_view name) {
  TGuard guard(FLock);
  auto it = FBools.find(name);
  if (it == FBools.end()) it = FBools.emplace(name, std::make_unique<TBoolSlot>()).first;
  return *it->second;
}

IXO_DEFINE_SERVICE(TNcParams, NcParams)

}  // namespace ixocamglue
