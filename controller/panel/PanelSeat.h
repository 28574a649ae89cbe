// Where a panel of keys sits: on a controller in this process, or on the one that runs (client/WireSeat.h). One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "controller/panel/PanelHost.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {

// The last lines of the application log, "12:30:05 text". Any thread. Nothing here fails.
class TLastLines final : public ILogSink {
 public:
  static constexpr std::size_t kLines = 50;
  void Write(const TLogRecord& record) override;
  void Add(TDateTime stamp, std::string_view text);
  [[nodiscard]] std::vector<std::string> Lines() const;  // newest last

 private:
  mutable TCriticalSection FLock;
  std::deque<std::string> FLines IXO_GUARDED_BY(FLock);
};

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

// Alive throws where the controller has gone, Press what a device in this process throws; nothing else fails. What a
// key cannot do stands among the messages of the view.
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

// The form that comes behind this one, round and round; the first one behind any other. Does not fail.
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

}  // namespace ixocontroller
