// Takes samples of a controller in virtual time into its journal: ahead of each command, which is behind the one
// before, and every pass, also while a device hangs. It changes nothing in what it looks at. One thread, the one that
// moves the clock; nothing fails.
#pragma once

#include <cstdint>
#include <string>

#include "controller/Controller.h"

namespace ixoverify {
using namespace ixocamglue;
using namespace ixocontroller;

// Outlives the controller, which tells it to its end.
class TSampler final : public IMotionObserver {
 public:
  TSampler() = default;
  TSampler(const TSampler&) = delete;
  TSampler& operator=(const TSampler&) = delete;

  // Once, between two passes.
  void Attach(TController& controller);
  void Sample();
  // An entry that the machine did not give (Story.h): kCause, "stop".
  void Note(const char* what, const std::string& text = {});

  void Entered(IStateMotion& root) override { Look(root); }
  void Ticked(IStateMotion& root, TStepType) override { Look(root); }
  void Ended(const TMotionOutcome*) override {}

 private:
  void Look(IStateMotion& root);

  IMachine* FMachine = nullptr;
  TJournal* FJournal = nullptr;
  std::int32_t FLeaf = 0;
};

}  // namespace ixoverify
