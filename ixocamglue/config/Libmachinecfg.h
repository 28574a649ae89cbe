// Questions of the other subsystems to the machine configuration. They never fail, and read it each time they are
// asked; without a configuration they answer as for an empty one. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constinit TText SGasAir{"LibMachineCfg", "SGasAir", "空气"};
inline constinit TText SGasO2{"LibMachineCfg", "SGasO2", "氧气"};
inline constinit TText SGasN2{"LibMachineCfg", "SGasN2", "氮气"};
inline constinit TText SGasHAir{"LibMachineCfg", "SGasHAir", "高压空气"};
inline constinit TText SGasHO2{"LibMachineCfg", "SGasHO2", "高压氧气"};
inline constinit TText SGasHN2{"LibMachineCfg", "SGasHN2", "高压氮气"};
inline constexpr auto kMachineQueryTexts = TextList(SGasAir, SGasO2, SGasN2, SGasHAir, SGasHO2, SGasHN2);

// 1 "Air" ... 6 "H-N2", exactly so spelled; -1 for anything else.
[[nodiscard]] std::int32_t GetGasTypeFromStr(std::string_view text);
// "Air" for 1 ...; "?" for a number that is no gas type.
[[nodiscard]] const char* GasTypeName(std::int32_t gasType);
// As a person gives it: a name in any case, or its number; -1 for anything else.
[[nodiscard]] std::int32_t AskedGasType(std::string_view text);

// As the machine file names this input ("Inport") or output ("Outport"); empty for a number that is not there.
[[nodiscard]] std::string PortName(const char* kind, std::int32_t number);

struct TGasParam {
  std::int32_t Value = 0;    // the gas type number as configured
  std::string Name;          // as configured
  std::string Desc;          // as shown
  std::int32_t DAPort = -1;  // of the gas branch; -1 when there is none
};

// The gas types that this machine offers, in the order of the NC string library's list. Any thread: a reset builds the
// list aside and swaps it. An unparsable value is skipped with a log line; of a value that is there twice the first is
// found.
class TGasTypeDic {
 public:
  void Reset();
  void LoadLocaleResources() { Reset(); }  // the shown texts, when the language has changed

  [[nodiscard]] bool CheckGasBranch(std::int32_t value) const;
  [[nodiscard]] std::int32_t FirstGasBranch() const;                      // -1 when the list is empty
  [[nodiscard]] std::int32_t ValidateGasType(std::int32_t value) const;   // itself, else FirstGasBranch
  [[nodiscard]] std::int32_t FilterGasType(std::int32_t value) const;     // itself, else 0
  [[nodiscard]] std::int32_t ValidateGasIndex(std::int32_t value) const;  // its index, else 0
  [[nodiscard]] std::int32_t FilterGasIndex(std::int32_t value) const;    // its index, else that of -1

  [[nodiscard]] std::int32_t GetCount() const;
  [[nodiscard]] std::int32_t GetValue(std::int32_t index) const;          // -1 outside
  [[nodiscard]] std::string GetDesc(std::int32_t index) const;            // "" outside
  [[nodiscard]] std::int32_t GetDAPort(std::int32_t index) const;         // -1 outside
  [[nodiscard]] std::int32_t IndexOfValue(std::int32_t value) const;      // -1 when it is not listed
  [[nodiscard]] std::int32_t IndexOfValue(std::string_view value) const;  // the value as text

 private:
  using TItems = std::vector<TGasParam>;
  [[nodiscard]] std::shared_ptr<const TItems> Items() const;

  mutable TCriticalSection FLock;
  std::shared_ptr<const TItems> FItems IXO_GUARDED_BY(FLock) = std::make_shared<const TItems>();
};

// Null before the library's start and after its end.
[[nodiscard]] TGasTypeDic* GasTypeDic();

// 0 "Precitec", 1 "HighYag", 2 "Procutter", 3 "ZEM400", 4 "AxisK", 5 "IPGCut", 6 a bus slave of identity 0xE0000044 and
// product number 43, 7 any other.
[[nodiscard]] std::uint8_t GetCutHeadType();
[[nodiscard]] bool CutHeadIsProcutter();  // without regard to case
// Whether the height controller is a "ZEM400" or "ZEM401", exactly.
[[nodiscard]] bool CutHeadIsZEM400();
// The first head type description, not empty, that the bus slaves report.
[[nodiscard]] std::string GetZemHeadName();
// The caption of a focus model; an unknown one as it is.
[[nodiscard]] std::string GetFocusModelCaption(std::string_view model);
[[nodiscard]] double GetMachineMaxSpeed();  // mm/s

// The unit's part of the library's life.
void StartMachineQueries();
void FreeMachineQueries();

}  // namespace ixocamglue
