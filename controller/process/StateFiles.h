// What stands in a state folder: the one list of the names, which the code that writes them and the reference share.
// Values; any thread.
#pragma once

#include <array>

#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr const char* kMachineFile = "machine.xml";
inline constexpr const char* kAlarmStoreFile = "alarms.db";
inline constexpr const char* kRunHistoryFile = "runs.db";
inline constexpr const char* kQueueFile = "queue.json";
inline constexpr const char* kTokensFile = "tokens.json";
inline constexpr const char* kNotificationsFile = "notifications.json";
inline constexpr const char* kConfigHistoryFile = "config-history.jsonl";
inline constexpr const char* kSequencesFolder = "sequences";
inline constexpr const char* kRecordingsFolder = "recordings";
inline constexpr const char* kControllerFile = "controller.json";
inline constexpr const char* kWireSocket = "controller.sock";
inline constexpr const char* kProcessLogFile = "controller.log";
inline constexpr const char* kTourFolder = "tour";

// Who loses something when a file is deleted: a person who wrote it, a machine that has worked, or nobody, as it is
// made again.
enum class TStateFileKind : std::uint8_t { sfWritten, sfGathered, sfMadeAgain };
using enum TStateFileKind;

struct TStateFile {
  const char* Name;
  TStateFileKind Kind;
  const char* Text;  // shown through Tr
};

// Beside each stand its lock (".lock"), its previous version (".bak"), older ones (".1" to ".4", ".old") and a
// database's own (".db-wal", ".db-shm") where it has them.
inline constexpr std::array<TStateFile, 14> kStateFiles{{
    {kMachineFile, sfWritten,
     TrMark("The machine file: what the machine has and how it is set; at first a copy of the example")},
    {kGasTablesFile, sfGathered,
     TrMark("The calibrated tables of the gas valves, by gas and nozzle; beside the machine file in use")},
    {kAlarmStoreFile, sfGathered, TrMark("Every alarm that was raised, with its end")},
    {kRunHistoryFile, sfGathered, TrMark("The newest 100,000 runs with their reports")},
    {kQueueFile, sfGathered, TrMark("The jobs that wait")},
    {kTokensFile, sfWritten, TrMark("Who may ask the controller, and as what: names, roles and salted hashes")},
    {kNotificationsFile, sfWritten, TrMark("Who is told of alarms, ends and questions; read again when it changes")},
    {kConfigHistoryFile, sfGathered, TrMark("Who has changed what in the machine file")},
    {kSequencesFolder, sfWritten, TrMark("The stored sequences, one file each")},
    {kRecordingsFolder, sfGathered, TrMark("The recordings that the controller has made, one monitor file each")},
    {kControllerFile, sfMadeAgain,
     TrMark("Where the controller that runs is reached; its lock decides that there is one")},
    {kWireSocket, sfMadeAgain, TrMark("The socket on which the controller's own user is an operator")},
    {kProcessLogFile, sfGathered,
     TrMark("The log, where no service manager takes it: 4 MiB, and four older files of that size")},
    {kTourFolder, sfMadeAgain, TrMark("What the tour has made; the next one makes it anew")},
}};

}  // namespace ixocontroller
