#include "controller/client/ClientLease.h"

namespace ixocontroller {

TClientLease::TClientLease(TWireClient& client, bool takeOver) : FClient(client) {
  FClient.SetLease(FClient.Post("/api/v1/lease", {{"takeOver", takeOver}}).at("lease").get<std::string>());
}

TClientLease::~TClientLease() {
  try {
    if (FHeld) (void)FClient.Ask("DELETE", "/api/v1/lease");
  } catch (const std::exception&) {  // it runs out by itself
  }
  FClient.SetLease({});
}

bool TClientLease::Beat() {
  try {
    if (FHeld) (void)FClient.Post("/api/v1/lease/heartbeat");
  } catch (const EProblem& problem) {
    if (problem.Blame != pbRefused) throw;
    FHeld = false;
    FClient.SetLease({});
  }
  return FHeld;
}

}  // namespace ixocontroller
