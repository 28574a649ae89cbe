// The drivers of one composed machine: made once for each name, the points and devices that they hand out, and what
// the machine does when a device does not answer.
//
// While one does not answer an alarm stands that forbids laser, cutting and motion and requires a stop; what was lit
// or asked for has gone dark at once, and its latch stays tripped until it is reset by hand. When it answers again the
// alarm ends, and nothing else happens.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "machines/composed/Core.h"
#include "machines/composed/Devices.h"

namespace ixocamglue {

// The main thread makes and connects it; PortFacts any thread. What says nothing else does not fail.
class TDriverSet {
 public:
  // `factories` outlive it.
  TDriverSet(TComposedCore& core, std::span<const TDriverFactory> factories);
  ~TDriverSet();
  TDriverSet(const TDriverSet&) = delete;
  TDriverSet& operator=(const TDriverSet&) = delete;

  // Told on the driver's thread when a device does not answer. Empty: nobody, and no call is under way any more.
  void OnAway(std::function<void()> listener);

  // --- while the machine is made ---
  // The driver of this name, made at its first use. Throws EProblem (pbUnusable).
  IMachineDriver& Driver(const std::string& name);
  // The point at a device's address, which is shown under `label` (empty: under another one) with the unit of its
  // values; null for none. Throws EProblem (pbUnusable).
  IMachinePoint* Point(TPointKind kind, const std::string& address, const std::string& driver, std::string label,
                       const char* unit = "");
  // As Point, of an output that nothing else may switch: also throws where somebody has it, or asks for it later.
  IMachinePoint* OwnOutput(const std::string& address, const std::string& driver, std::string label);
  // What the output switches that Point handed out for this address; nothing for an empty one. Throws as
  // Point.
  void NoteUse(TPointKind kind, const std::string& address, const std::string& driver, TPointUse use);
  // The driver tells of its laser or gas by itself from now on.
  void TellsLaser(const std::string& name);
  void TellsGas(const std::string& name);

  // In the order in which they were made; the first that cannot ends it.
  TResult<> Connect();
  [[nodiscard]] const std::vector<IMachineDriver*>& All() const { return FDrivers; }
  [[nodiscard]] std::vector<TMachinePort> PortFacts() const;

 private:
  struct TSlot;
  struct TNamed {
    std::string Label;
    TSlot* Slot;
    std::string Address;
    TPointKind Kind;
    IMachinePoint* Point;
    const char* Unit;
  };

  TSlot& Slot(const std::string& name);
  void TellAway();

  TComposedCore& FCore;
  const std::span<const TDriverFactory> FFactories;
  TCriticalSection FAwayLock;  // held while the listener is told
  std::function<void()> FOnAway IXO_GUARDED_BY(FAwayLock);
  std::vector<std::unique_ptr<TSlot>> FSlots;
  std::vector<IMachineDriver*> FDrivers;  // theirs
  std::vector<TNamed> FPoints;
  std::vector<std::unique_ptr<IMachinePoint>> FInverted;
  std::map<IMachinePoint*, std::unique_ptr<IMachinePoint>> FSteady;  // one for each output
  std::map<IMachinePoint*, std::string> FOwned;                      // of these, and what they are
};

}  // namespace ixocamglue
