// The whole program with a step and a procedure of one's own: a stamp that marks the plate while its output is on.
#include <controller/procedures/ParamAccess.h>
#include <ixocamglue/platform/ports/MotionDriver.h>
#include <ixocut/Main.h>

namespace {
using namespace ixocamglue;
using namespace ixocontroller;

// The leaf: one command to the machine, and what to wait for.
class TSmtStamp : public TSmtCommand<701> {
 public:
  static constexpr std::string_view kClassName = "TSmtStamp";
  std::string GetDesc() override { return "Stamp the plate"; }

  TStepType DoMotion(std::int32_t) override {
    TNcMotionCard* const card = MotionCard();
    if (!card || !StateCtrl()) return Fail();
    card->SwitchOutport(FPort, true);
    StateCtrl()->Delay(FMs);
    return Await(csbtDelay);
  }
  // Whatever ends the step: done, stop, pause, an alarm, an exception out of a device.
  void DoLeaveMotion() override {
    if (TNcMotionCard* const card = MotionCard()) card->SwitchOutport(FPort, false);
    TSmtCommand::DoLeaveMotion();
  }

  std::int32_t FPort = 3;
  std::uint32_t FMs = 200;
};

// The rows of the table: the command line, files, the queue and the console take names, ranges and units from here.
const TProcedure kStamp{
    .Name = "stamp",
    .Command = TSmtStamp::Cmd,
    .Summary = "Stamp the plate where the head is",
    .Params = {{"port", uNone, "output of the stamp", bdFittedOutport, 3.0, kAt<&TSmtStamp::FPort>},
               {"ms", uMs, "how long it presses", bdRange(10, 5000), 200.0, kAt<&TSmtStamp::FMs>}},
    .Sample = {3.0, 50.0},
    .Make = [](TCustomMotionState* ctrl, const TMotionValues&) { return MakeStep<TSmtStamp>(ctrl); }};

// A procedure put together from rows: raise the head, go there, stamp.
const TProcedure kMarkPlate{
    .Name = "mark-plate",
    .Command = 0,
    .Summary = "Move to a place and stamp the plate there",
    .Flags = {.MovesXY = true, .MovesZ = true},
    .Params = {{"x", uMm, "where, machine coordinates", bdAxisX, kUnset, {pkNumber}, TMotionParam::Required},
               {"y", uMm, "where, machine coordinates", bdAxisY, kUnset, {pkNumber}, TMotionParam::Required}},
    .Sample = {100.0, 50.0},
    .Make = [](TCustomMotionState*, const TMotionValues& values) {
      const TMotionCall calls[] = {{FindProcedure("safe-move"), {values[0], values[1]}, {}},
                                   {FindProcedure("stamp"), {}, {}}};
      return MakeRoot("mark-plate", calls);
    }};

}  // namespace

int main(int argc, char** argv) { return ixocut::IxocutMain(argc, argv, {.Procedures = {kStamp, kMarkPlate}}); }
