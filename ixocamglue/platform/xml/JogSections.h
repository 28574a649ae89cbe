// The jog sections of the machine configuration: "JogXY", and a "JogZ" for each head. mm/s.
//
// The stored value and the field in force are one datum per role. Any thread; callers of Save take turns. Nothing
// throws.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ixocamglue/platform/xml/XmlSubConfig.h"
#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

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

// The sections as the file holds them.
class TJogXYRecord final : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TJogXYSection Values;
};

class TJogZRecord final : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Head = 1;  // counted from 1
  TJogZSection Values;
};

// Both, as they stand under the document element.
class TJogRecord final : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TJogXYRecord XY;
  TXmlList<TJogZRecord> Z;
};

class TJogSections {
 public:
  static constexpr std::size_t kHeads = 2;

  // Takes the values of a loaded configuration, which outlives the last Save; what it does not say keeps its default.
  void Load(TMachineConfig& config);
  // A configuration file was loaded; otherwise there are defaults only, and Save does nothing.
  [[nodiscard]] bool Loaded() const;

  [[nodiscard]] TJogXYSection XY() const;
  void SetXY(const TJogXYSection& section);
  [[nodiscard]] TJogZSection Z(std::size_t head) const;      // 0 or 1, which nobody checks
  void SetZ(std::size_t head, const TJogZSection& section);  // 0 or 1, which nobody checks
  [[nodiscard]] std::int32_t ZAxisNo() const { return Z(0).AxisNo; }

  // Writes what has changed into the configuration's file, and leaves everything else in it as it stands (see
  // TXmlConfig::SaveAlone). A problem, logged too, when the file cannot be read or written: then it is as it was.
  TResult<std::string> Save();

 private:
  TJogZRecord& Record(std::int32_t head) IXO_REQUIRES(FSaving);

  mutable TCriticalSection FLock;
  TCriticalSection FSaving;
  TJogRecord FRecord IXO_GUARDED_BY(FSaving);  // as last loaded or saved; it knows which texts could not be read
  TMachineConfig* FConfig IXO_GUARDED_BY(FLock) = nullptr;
  TJogXYSection FXY IXO_GUARDED_BY(FLock);
  std::array<TJogZSection, kHeads> FZ IXO_GUARDED_BY(FLock);
  std::array<bool, kHeads> FZKnown IXO_GUARDED_BY(FLock){};  // the file has the section, or it was set
};

IXO_DECLARE_SERVICE(TJogSections, JogSections);

}  // namespace ixocamglue
