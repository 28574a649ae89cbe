// The faults that the simulated machine has on request, by name: one table, in the order in which people look them up.
#pragma once

#include <span>
#include <string_view>

namespace ixocamglue {

class TSimMachine;

struct TSimFault {
  const char* Name;         // "rack.stage-stuck"
  const char* Description;  // English, for help pages
  void (*Apply)(TSimMachine&);
};

[[nodiscard]] std::span<const TSimFault> SimFaults();
[[nodiscard]] const TSimFault* FindSimFault(std::string_view name);  // null: unknown

}  // namespace ixocamglue
