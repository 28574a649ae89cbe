// A consumer of alarms inside a controller: it has a queue of its own, which loses nothing while it does something
// else, and tells each alarm with its cause and remedy.
#include <cstdio>

#include <controller/Controller.h>
#include <controller/process/StateFolder.h>
#include <ixocamglue/alarms/Almintprt.h>
#include <ixocamglue/alarms/Ualarmmanager.h>
#include <machines/simulated/Machine.h>

int main() {
  using namespace ixocamglue;
  ixocontroller::TController controller({.Machines = {SimulatedMachine()},
                                         .LocaleFolder = ixocontroller::ShareFolder() / "locale",
                                         .Language = "en",
                                         .AlarmFolder = ixocontroller::ShareFolder() / "alarms"});
  TAlarmManager& alarms = *AlarmManager();
  const int me = 0;  // a consumer is known by an address
  alarms.RegisterClient(&me, true);

  // In virtual time this thread is all there is: somebody opens the door, and closes it half a second later.
  controller.RaiseAlarm({.IdPrefix = "TPLaser", .Desc = "the door is open", .Id = 3, .Attrs = naForbidLaser});
  controller.RunFor(500);
  controller.ClearAlarms();
  controller.RunFor(100);

  int told = 0;
  for (TNcAlarmMsg message; alarms.Pop(&me, message); ++told) {
    TAlarmRec meaning;
    AlarmInterpreter()->TryGetAlarmRec(message, meaning);
    std::printf("%s %.*s (%s): %s; cause: %s; remedy: %s\n", message.Action == naaAdded ? "raised" : "cleared",
                static_cast<int>(message.Id().size()), message.Id().data(), meaning.Code.c_str(),
                meaning.AlarmDesc.c_str(), meaning.Reason.c_str(), meaning.Solution.c_str());
  }
  alarms.RemoveClient(&me);
  return told == 2 ? 0 : 1;
}
