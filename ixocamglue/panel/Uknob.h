// The jog knob: jog speeds of the XY plane and the Z axis at three levels, and which level is in force. mm/s.
//
// User-interface thread. The levels are kept in the machine configuration's jog sections and published as NC parameters
// "JogFast", "JogSlow" and "JogSpeed", by which the jog keys move. Jog speeds of the machine file that are too low
// throw EDesignFault when a level is put into force; a file that cannot be saved is logged.
#pragma once

#include <cstdint>
#include <functional>

namespace ixocamglue {

enum class TSpeedState : std::uint8_t { ssLow, ssNormal, ssHigh };
using enum TSpeedState;

// For the application's use.
enum class TSpeedMode : std::uint8_t { smDisabled, smJog, smWorking, smSimulate };
using enum TSpeedMode;

struct TKnobRec0 {
  double Speed = 0.0;
  double Ratio = 0.0;
  double Focus = 0.0;        // mm
  double BeamSize = 0.0;     // mm
  double GasPressure = 0.0;  // bar
  double Height = 0.0;       // mm
};

struct TSpeedData {
  double Init = 0.0;  // the speed in force; the XY records never have one
  double LowSpeed = 0.0;
  double NormalSpeed = 0.0;
  double HighSpeed = 0.0;
};

struct TAxisSpeedData {
  TSpeedData ShowSpeed;  // what the operator sees
  TSpeedData UsedSpeed;  // what is applied
};

class TKnob {
 public:
  static constexpr double kLowestJogSpeed = 0.01;

  using TChangeStateEvent = std::function<void(TSpeedState value)>;

  TKnob();
  TKnob(const TKnob&) = delete;
  TKnob& operator=(const TKnob&) = delete;

  // From the jog sections; without a machine configuration the defaults.
  void LoadConfig();
  // The shown speeds into the jog sections, then the configuration into its file, and the follower reads its parameters
  // again. What is applied stays as it is until the next LoadConfig. Without a machine configuration nothing is saved.
  // A file that cannot be written is logged.
  void SaveConfig();

  [[nodiscard]] TSpeedState GetSpeedState() const { return FSpeedState; }
  // Applies a level. Nothing happens when it is in force already, or without a machine configuration. Throws
  // EDesignFault ("JogSpeed too low"), after everything else is done, when the XY section's normal or high speed is not
  // above 0.01; the caller catches it.
  void SetSpeedState(TSpeedState value);

  [[nodiscard]] bool GetDHEnabled() const { return FDHEnabled; }  // two cutting heads

  TAxisSpeedData XYSpeed;
  TAxisSpeedData ZSpeed;
  // Called before a level is applied; the knob still has the old one.
  TChangeStateEvent BeforeCheckSpeedState;

 private:
  const bool FDHEnabled;
  TSpeedState FSpeedState = ssLow;
};

// The knob of this process, made at the first call.
[[nodiscard]] TKnob& Knob();
void FreeKnob();

}  // namespace ixocamglue
