// What a controller that stays up has beside its runs: panel, recordings, links. Made on the interface thread once the
// machine has acknowledged standby, and ended there.
#pragma once

#include <filesystem>
#include <utility>

#include "controller/links/LinkDesk.h"
#include "controller/process/StateFiles.h"
#include "controller/recordings/Recordings.h"
#include "controller/service/PanelDesk.h"

namespace ixocontroller {

// What a round throws is logged by the service.
struct TDesks {
  TDesks(TController& controller, TEventRing& events, const std::filesystem::path& stateFolder, TDiskWork onDisk)
      : Panel(controller, events), Recordings(controller, stateFolder / kRecordingsFolder, std::move(onDisk)) {}

  // Every few ms of real time.
  void Round(std::uint64_t realMs) {
    Panel.Watch(realMs);
    Panel.Tell();
    Recordings.Round();
  }

  TPanelDesk Panel;
  TRecordings Recordings;
  TLinkDesk Links;
};

}  // namespace ixocontroller
