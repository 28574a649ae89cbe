// The jog sections of the machine configuration: "JogXY", and a "JogZ" for each head. mm/s.
//
// The stored value and the field in force are one datum per role. Any thread; callers of Save take turns.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "platform/Installed.h"
#include "support/Locks.h"

namespace ixocamglue {

class TMachineConfig;

struct TJogXYSection {
  double LowJogSpeed = 10.0;
  double NormalJogSpeed = 100.0;
  double HighJogSpeed = 200.0;
};

struct TJogZSection {
  double LowJogSpeed = 10.0;
  double NormalJogSpeed = 50.0;
  float HighJogSpeed = 100.0F;
  float JogSpeed = 10.0F;   // the speed in force outside the high state
  std::int32_t AxisNo = 2;  // the axis' number; never written
};

class TJogSections {
 public:
  static constexpr std::size_t kHeads = 2;

  // Takes the values of a loaded configuration; what it does not say keeps its default.
  void Load(const TMachineConfig& config);
  // A configuration file was loaded; otherwise there are defaults only, and Save does nothing.
  [[nodiscard]] bool Loaded() const;

  [[nodiscard]] TJogXYSection XY() const;
  void SetXY(const TJogXYSection& section);
  [[nodiscard]] TJogZSection Z(std::size_t head) const;  // 0 or 1
  void SetZ(std::size_t head, const TJogZSection& section);
  [[nodiscard]] std::int32_t ZAxisNo() const { return Z(0).AxisNo; }

  // Writes what has changed into the configuration's file, and leaves everything else in it as it stands. The previous
  // version is kept beside it (".bak"); a save that is cut off leaves the old or the new file whole. False, with the
  // reason, when the file cannot be read or written: then it is as it was.
  bool Save(std::string* problem = nullptr);

 private:
  mutable TCriticalSection FLock;
  TCriticalSection FSaving;
  std::filesystem::path FFile IXO_GUARDED_BY(FLock);
  TJogXYSection FXY IXO_GUARDED_BY(FLock);
  std::array<TJogZSection, kHeads> FZ IXO_GUARDED_BY(FLock);
  std::array<bool, kHeads> FZKnown IXO_GUARDED_BY(FLock){};  // the file has the section, or it was set
};

IXO_DECLARE_SERVICE(TJogSections, JogSections);

}  // namespace ixocamglue
