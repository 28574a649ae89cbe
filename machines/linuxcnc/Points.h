// The points of a LinuxCNC's HAL: pins of ixocut-hal's list as "hal:NAME", in the pin's own unit; and "hal:rearm", an
// output that aborts what LinuxCNC does and then gives the beam's latch its edge, each time that 1 is written.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "ixocamglue/platform/Driver.h"
#include "machines/linuxcnc/Link.h"

namespace ixocamglue {

// The name of the pin that an address of this kind means; the problem's Where is the address.
[[nodiscard]] TResult<std::string> HalPointName(TPointKind kind, std::string_view address);

class THalPoint final : public IMachinePoint {
 public:
  THalPoint(TLncLink& link, TPointKind kind, std::string address, std::string name)
      : FLink(link), FKind(kind), FAddress(std::move(address)), FName(std::move(name)) {}

  double Read() override;
  void Write(double value) override;
  bool Settled() override;
  std::optional<std::uint64_t> AgeMs() override { return FLink.AgeMs(); }

  [[nodiscard]] const std::string& Address() const { return FAddress; }
  [[nodiscard]] TPointKind Kind() const { return FKind; }
  // That the pin is there, and of the right kind.
  [[nodiscard]] TResult<> Check() const;
  [[nodiscard]] TPortFacts Facts();

 private:
  [[nodiscard]] bool IsOutput() const { return FKind == pkOutput || FKind == pkAnalogOut; }
  [[nodiscard]] bool IsRearm() const { return FName == kHalRearm; }

  [[nodiscard]] bool ShowsWhatWasWritten() const IXO_REQUIRES(FLock);
  [[nodiscard]] bool IsUnderWay() const IXO_REQUIRES(FLock);

  TLncLink& FLink;
  const TPointKind FKind;
  const std::string FAddress;
  const std::string FName;
  TCriticalSection FLock;
  std::uint64_t FWritten IXO_GUARDED_BY(FLock) = 0;  // the number of the line; 0: nothing since the connection
  std::uint64_t FConnection IXO_GUARDED_BY(FLock) = 0;
  double FValue IXO_GUARDED_BY(FLock) = 0.0;
};

}  // namespace ixocamglue
