// The reference: a page for each table that people look things up in, made from that table. Main thread.
#pragma once

#include <vector>

#include "commandline/CommandLine.h"
#include "commandline/Page.h"
#include "ixocamglue/platform/ports/NcAlarms.h"

namespace ixocut {
using namespace ixocommandline;

// What the pages are made from, beside the tables; outlives them.
struct TReferenceSources {
  TCommand Program;
  std::vector<TNcAlarmRecord> Registered;  // alarms of the machines
};

// Each fills in its page; a controller runs meanwhile, for the texts of alarms and panel.
void FillConfiguration(TPage& page, const TReferenceSources& sources);
void FillProcedures(TPage& page, const TReferenceSources& sources);
void FillCommands(TPage& page, const TReferenceSources& sources);
void FillAlarms(TPage& page, const TReferenceSources& sources);
void FillPanel(TPage& page, const TReferenceSources& sources);
void FillApi(TPage& page, const TReferenceSources& sources);
void FillExitCodes(TPage& page, const TReferenceSources& sources);
void FillFiles(TPage& page, const TReferenceSources& sources);

}  // namespace ixocut
