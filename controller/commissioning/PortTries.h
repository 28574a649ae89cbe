// Commissioning a machine: its axes, outputs, inputs, gas branches and its pilot light, each tried once by itself and
// read back. The beam is never lit. Real time, with the controller's threads; one thread calls.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "controller/Controller.h"

namespace ixocontroller {

class TTryRun;

struct TTriedPort {
  std::string Done, Read;  // in words
  bool Good = false;       // it is as it should be
};

// What may be tried.
struct TPortTry {
  std::string Port;                     // "x", "output:5", "gas:2", "pilot"
  std::string Device;                   // as a person knows it
  std::string Does;                     // what will be done
  std::function<TTriedPort()> Perform;  // throws EProblem, also when it is stopped
};

class TPortTries {
 public:
  // Starts a controller of its own. `pulseMs`: how long outputs and the pilot light are on. `stops` is asked every few
  // ms while something is tried; true: what moves is stopped, what is on goes off, and the try ends.
  TPortTries(TControllerOptions options, std::uint64_t pulseMs, std::function<bool()> stops);
  ~TPortTries();
  TPortTries(const TPortTries&) = delete;
  TPortTries& operator=(const TPortTries&) = delete;

  // In the order in which a machine is commissioned. As long as this. Does not fail.
  [[nodiscard]] std::span<const TPortTry> All() const;
  // Those of these names, in their order; all for none. Throws EProblem (pbRequest) for a name that is none.
  [[nodiscard]] std::vector<const TPortTry*> Chosen(const std::vector<std::string>& ports) const;
  // What came of it: what fails is told as what was read.
  [[nodiscard]] static TTriedPort Perform(const TPortTry& port);

 private:
  const std::unique_ptr<TTryRun> FRun;
  std::vector<TPortTry> FAll;
};

}  // namespace ixocontroller
