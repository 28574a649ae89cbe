// What the driver `linuxcnc` has in a machine file: its section "Linuxcnc". Lengths mm, in LinuxCNC's coordinates.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/platform/xml/XmlSubConfig.h"
#include "machines/linuxcnc/RshClient.h"

namespace ixocamglue {

inline constexpr const char* kLinuxcncSection = "Linuxcnc";

class TLinuxcncRecord : public TXmlSubConfig {
 public:
  TLinuxcncRecord() { TLinuxcncRecord::Initialize(); }
  void Publish(TPublisher& p) override;

  std::string Host, Password, Enable, HalSocket;
  std::int32_t Port = 0;
  double ZTop = 0.0;      // LinuxCNC's Z where ours is 0
  bool ZUp = true;        // LinuxCNC's Z grows upwards
  std::string FocusAxis;  // a letter; empty: none
  std::string TurnAxis;   // a letter; empty: none
  std::int32_t TurnAxisNo = 0;
  double PlateTouch = 0.0, FollowSpeed = 0.0;
};

// An axis of LinuxCNC that the driver knows; the first three are joints 0 to 2.
enum TLncAxis : std::uint8_t { laX, laY, laZ, laFocus, laTurn, kLncAxes };

struct TLncAxisFacts {
  char Letter = ' ';  // of a line of G-code
  bool Fitted = false;
  TAxisConfig Limits;  // of the machine file; of laTurn nothing
};

struct TLncConfig {
  TRshAddress Rsh;
  std::string HalSocket;
  double ZTop = 0.0;
  bool ZUp = true;
  std::int32_t TurnAxisNo = 2;
  double PlateTouch = 0.1;
  double FollowSpeed = 80.0;
  double SafeZ = 0.0;
  TLncAxisFacts Axes[kLncAxes];

  // Our coordinates as LinuxCNC's, and back; all axes but Z are the same.
  [[nodiscard]] double ToTheirs(TLncAxis axis, double ours) const {
    return axis == laZ ? ZTop + (ZUp ? -ours : ours) : ours;
  }
  [[nodiscard]] double ToOurs(TLncAxis axis, double theirs) const {
    return axis == laZ ? (ZUp ? ZTop - theirs : theirs - ZTop) : theirs;
  }

  // The pin of ixocut-hal that tells this of an axis: "x.pos".
  [[nodiscard]] std::string Pin(TLncAxis axis, std::string_view what) const;

  // Of a file with this document element; adds what keeps such a machine from being made.
  [[nodiscard]] static TLncConfig FromRoot(const TConfigSection& root, std::vector<TProblem>& problems);
};

// "X", "Y", "Z", "Focus", "motor": what the ports and the messages call it.
[[nodiscard]] const char* AxisName(TLncAxis axis);

}  // namespace ixocamglue
