// Where the terminal's panel sits: on a controller in this process, or on the one that runs (WireSeat.h). One thread.
#pragma once

#include <string>
#include <vector>

#include "controller/panel/PanelHost.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

class TLastLines;

// What is on the screen.
struct TPanelView {
  TKeyMask Leds = 0;
  std::string Form;  // on top; empty: none
  TMachineSnapshot Now;
  TSpeedState Knob = ssLow;
  double JogMmPerS = 0.0;
  std::vector<std::string> Alarms;    // that stand, a text each
  std::vector<std::string> Messages;  // "12:30:05 text", the newest last
};

class IPanelSeat {
 public:
  virtual ~IPanelSeat() = default;
  [[nodiscard]] virtual bool ActsWhileHeld(TKeyCode key) const = 0;
  virtual void Press(TKeyCode key) = 0;
  virtual void PressAgain(TKeyCode key) = 0;  // may be a repeat: it counts where it switches something off
  virtual void Release(TKeyCode key) = 0;
  virtual void ResetByHand() = 0;
  virtual void SwitchAlt() = 0;
  virtual void NextForm() = 0;
  // Every few ms. Throws EProblem when the controller has gone.
  virtual void Alive() = 0;
  [[nodiscard]] virtual TPanelView View() = 0;
  // The operator quits.
  virtual void Leave() = 0;
};

// The form that comes behind this one, round and round; the first one behind any other.
[[nodiscard]] const char* FormBehind(const std::string& form);

// On a controller in this process, whose threads run where the clock is real: it ends with the panel, so that leaving
// stops everything.
class THostSeat final : public IPanelSeat {
 public:
  // Both outlive the seat.
  THostSeat(TPanelHost& host, const TLastLines& log) : FHost(host), FLog(log) {}

  [[nodiscard]] bool ActsWhileHeld(TKeyCode key) const override;
  void Press(TKeyCode key) override { (void)FHost.Press(key); }
  void PressAgain(TKeyCode key) override { FHost.PressAgain(key); }
  void Release(TKeyCode key) override { FHost.Guard().Release(key); }
  void ResetByHand() override { FHost.ResetEmergencyStop(); }
  void SwitchAlt() override { FHost.SetAlt(!FHost.Alt()); }
  void NextForm() override;
  void Alive() override { FHost.Guard().Alive(); }
  [[nodiscard]] TPanelView View() override;
  void Leave() override;

 private:
  TPanelHost& FHost;
  const TLastLines& FLog;
};

}  // namespace ixocut
