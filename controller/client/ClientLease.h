// The lease of control for the life of an object. One thread, the client's.
#pragma once

#include "controller/client/WireClient.h"

namespace ixocontroller {

class TClientLease {
 public:
  // Every request of the client shows it from then on. Throws EProblem (pbRefused) where another has it, unless it is
  // to be taken over. The client outlives it.
  TClientLease(TWireClient& client, bool takeOver);
  ~TClientLease();  // it is given back
  TClientLease(const TClientLease&) = delete;
  TClientLease& operator=(const TClientLease&) = delete;

  // At least every second: it ends 10 s after its last sign of life. False: another has taken it.
  bool Beat();

 private:
  TWireClient& FClient;
  bool FHeld = true;
};

}  // namespace ixocontroller
