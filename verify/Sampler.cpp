#include "verify/Sampler.h"

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "verify/Story.h"

namespace ixoverify {

void TSampler::Attach(TController& controller) {
  FMachine = &controller.Machine();
  FJournal = &controller.Journal();
  controller.VirtualClock()->Every(kLoopDelayMs, [this](std::uint64_t) { Sample(); });
  FJournal->BeforeCommand([this] { Sample(); });
  controller.MotionState().AddObserver(*this);
  Sample();
}

void TSampler::Sample() {
  TNcAlarms* const alarms = NcAlarms();
  FJournal->Take({0, FMachine->Snapshot(), !alarms || alarms->AllowLaser(), FLeaf});
}

void TSampler::Note(const char* what, const std::string& text) {
  Sample();
  FJournal->Happened(Clock().MonotonicMs(), what, text);
}

void TSampler::Look(IStateMotion& root) {
  TStateMotion* const leaf = CurrentLeaf(root);
  FLeaf = leaf ? leaf->GetID() : root.GetID();
}

}  // namespace ixoverify
