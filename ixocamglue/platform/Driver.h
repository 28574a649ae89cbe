// The seam between a machine that is put together from its file and what drives its devices. A driver talks to
// something that answers (a motion controller, remote inputs and outputs, a simulation), and hands out its points and
// devices; the machine builds laser, gas, inputs and outputs of points, whatever driver has them.
//
// A driver is made by name, once for all devices that name it, asked for its points and devices, then connected once,
// and ended by its destructor, all on the controller's main thread while no other thread runs. It has threads of its
// own for its network. Any thread calls its points and ports, the machine with its own lock held: no such call waits
// for the network or calls the machine back. A command is queued, a read gives the newest value, and where that is
// older than the driver's limit it throws EDeviceAway. All that a driver hands out is its own and lives as long as it
// does.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// A device does not answer, or its newest value is too old; says which, and since when.
class EDeviceAway : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class TPointKind : std::uint8_t { pkInput, pkOutput, pkAnalogIn, pkAnalogOut };
using enum TPointKind;
[[nodiscard]] constexpr bool IsDigital(TPointKind kind) { return kind == pkInput || kind == pkOutput; }

// What an output switches, the most dangerous last: a driver that cannot tell its devices everything at once switches
// off what lights first, then gas.
enum class TPointUse : std::uint8_t { puOther, puGas, puLight };
using enum TPointUse;

// One digital or analogue value of a device. Digital ones are 0 or 1; the others in the unit that the machine file
// scales them to. Any thread, at once.
class IMachinePoint {
 public:
  virtual ~IMachinePoint() = default;
  // The newest value that came from the device; of an output what was read back from it. Throws EDeviceAway.
  virtual double Read() = 0;
  // An output's: queues it, in order with the others of its driver; a value that is still queued for this point is
  // replaced. While the device is away 0 is kept and sent as soon as it is back; any other value throws EDeviceAway,
  // and what of such values was still queued when it went away is never sent.
  virtual void Write(double value) = 0;
  // What was written last has been read back from the device; true where nothing was written since it came back.
  virtual bool Settled() = 0;
  // Since the newest value; nothing: none has come yet.
  virtual std::optional<std::uint64_t> AgeMs() = 0;

  [[nodiscard]] bool IsOn() { return Read() != 0.0; }
};

// A laser source that is more than points; SwitchLaser as TNcCutSystem's. It asks LaserForbidden, keeps the facts in
// TNcWatch and tells its signals by itself.
class IMachineLaser : public TNcLaser {
 public:
  virtual void SwitchLaser(bool on) = 0;
};

// A gas supply that is more than points. It calls NoteGasOff and NoteGasOn and tells its signals by itself.
class IMachineGas : public TNcGas {
 public:
  // What the selected branch's sensor reads, bar; no number without one.
  virtual double ReadPressure() = 0;
};

class IMachineDriver {
 public:
  virtual ~IMachineDriver() = default;

  // Before Connect. Says why there is no such point: what the address is like, and what would be right. A point that
  // was asked for before is the same one.
  virtual TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) = 0;
  // Before Connect: what this point of its own switches; of several uses the most dangerous one counts.
  virtual void NoteUse(IMachinePoint& point, TPointUse use) { static_cast<void>(point), static_cast<void>(use); }
  // What it has beside points; null: it has none. The ports' own contracts hold.
  virtual TNcMotionDriver* Axes() { return nullptr; }  // X and Y; the nozzle motor; Z, where there is no follower
  virtual TNcFollower* Follower(std::int32_t index) { return static_cast<void>(index), nullptr; }  // 0 or 1
  virtual TNcCutHeadCtrl* Focus() { return nullptr; }
  virtual IMachineLaser* Laser() { return nullptr; }
  virtual IMachineGas* Gas() { return nullptr; }
  virtual TNcSwitchTable* Pallets() { return nullptr; }

  // Reaches its device and compares limits and units with the machine file; says what does not answer or contradicts.
  // Nothing moves, is armed or homed, here or when a lost device is back.
  virtual TResult<> Connect() = 0;
  // As IMachine's of these names.
  virtual void CatchUp(std::uint64_t nowMs) { static_cast<void>(nowMs); }
  virtual void NoteState(std::int32_t state) { static_cast<void>(state); }
  virtual void StopNow() {}
  // Adds what only it knows, e.g. moving and Focus; the machine has filled in what the ports say.
  virtual void Show(TMachineSnapshot& now) { static_cast<void>(now); }
  virtual bool Inject(std::string_view fault) { return static_cast<void>(fault), false; }
  // Every port and point that was asked for, as it is now; a point's Port is its address as it was asked for. Any
  // thread; waits for nothing.
  virtual std::vector<TPortFacts> Ports() = 0;
};

// The alarm of a driver whose devices do not answer: its number is the driver's place among the factories, from 1.
inline constexpr const char* kDriverAlarmPrefix = "TPDriver";
inline constexpr TNcAlarmAttrs kDriverAwayForbids =
    naForbidCut | naForbidLaser | naForbidFollower | naForbidHoming | naForbidMove | naRequireStop;

// What a driver says of its device, from a thread of its own and without a lock that its points take; at once. The
// machine may write 0 to points meanwhile.
class IDriverEvents {
 public:
  virtual ~IDriverEvents() = default;
  // It does not answer any more, or somebody else commands it: the machine darkens the beam, forbids it by an alarm
  // that stops what runs, and tells why until it is back. `why` for people, through Tr.
  virtual void Away(const std::string& why) = 0;
  virtual void Back() = 0;
};

struct TDriverContext {
  // As the machine's own, but for what the machine tells: calls, outputs, states, and all signals of laser and gas that
  // are made of points. Outlives the driver.
  const TMachineContext& Machine;
  IDriverEvents& Events;  // outlives the driver
};

// How a program makes the drivers that it knows.
struct TDriverFactory {
  std::string Name;  // in the machine file: <Devices><Axes Driver="linuxcnc"/>
  // Says why the configuration does not describe such a device. Connects to nothing.
  std::function<TResult<std::unique_ptr<IMachineDriver>>(const TDriverContext&)> Make;
  // Runs in virtual time too; the others refuse it.
  bool VirtualTime = false;
  std::vector<TMachineFault> Faults = {};
  std::vector<TMachineSection> Sections = {};  // what it alone has in a machine file
  // Whether a machine file's address names such a point, without connecting; the problem's Where is the address.
  std::function<TResult<>(const TConfigSection& root, TPointKind kind, std::string_view address)> CheckPoint;
  // Which of the devices beside points it has: "Axes", "Follower", "Focus", "Laser", "Gas", "Pallets".
  std::vector<std::string> Devices = {};
  // What only a person orders, on a connection of its own; null: there is nothing of the kind. Neither a start nor a
  // connection that is back does it. Arm makes the device ready to move and moves nothing; Home homes its axes.
  std::function<TResult<>(const TConfigSection& root)> Arm = {};
  std::function<TResult<>(const TConfigSection& root)> Home = {};
  // Adds what a file that names this driver says wrongly of it, without connecting. Null: its sections' bounds are all.
  std::function<void(const TConfigSection& root, std::vector<TProblem>& problems)> Check = {};
};

}  // namespace ixocamglue
