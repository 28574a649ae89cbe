// `ixocut modbus read|write`: one request to a Modbus device, or the same again and again.
#include <algorithm>
#include <cstdlib>

#include "controller/links/TransferReport.h"
#include "controller/process/StopOnSignal.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/link/LinkOptions.h"

namespace ixocut {
namespace {

// Where the values are, by the option that names it.
struct TTable {
  const char* Option;
  const char* Name;                        // for JSON
  std::uint8_t Read, WriteOne, WriteMany;  // 0: not for writing
  const char* ReadHelp;
  const char* WriteHelp;
};
constexpr TTable kTables[] = {
    {"--holding", "holding", kModbusRead, kModbusWriteOne, kModbusWriteMany,
     TrMark("Holding registers, which is what it reads unless told otherwise (function 3)"),
     TrMark("Holding registers, which is what it writes unless told otherwise (functions 6 and 16)")},
    {"--input", "input", kModbusReadInput, 0, 0, TrMark("Input registers (function 4)"), nullptr},
    {"--coils", "coils", kModbusReadCoils, kModbusWriteCoil, kModbusWriteCoils, TrMark("Coils (function 1)"),
     TrMark("Coils (functions 5 and 15)")},
    {"--discrete", "discrete", kModbusReadDiscrete, 0, 0, TrMark("Discrete inputs (function 2)"), nullptr},
};

struct TModbusCommand : TOutputSettings {
  bool Write = false;
  TLinkOptions Link;
  const TTable* Table = &kTables[0];
  std::uint64_t Unit = 1;
  std::uint64_t Addr = 0;
  std::uint64_t Count = 1;
  std::vector<std::string> Values;
  std::string Type = "uint16";
  std::string Order = "ABCD";
  bool TypeGiven = false;
  bool Multiple = false;
  std::string Profile = "strict";
  std::uint64_t PreDelay = 0;
  bool PreDelayGiven = false;
  std::uint64_t Timeout = 2000;
  bool TimeoutGiven = false;
  std::uint64_t ProbeAddr = 0;
  bool ProbeGiven = false;
  std::uint64_t Watch = 0;
  bool Frames = false;

  [[nodiscard]] std::uint8_t Func(std::size_t words) const {
    return !Write ? Table->Read : words == 1 && !Multiple ? Table->WriteOne : Table->WriteMany;
  }
};

// What was asked for, understood.
TTransferAsked TaskOf(const TModbusCommand& command) {
  TTransferAsked task{.Link = ParseLink(command.Link),
                      .Unit = static_cast<std::uint8_t>(command.Unit),
                      .Table = command.Table->Name,
                      .Write = command.Write,
                      .Type = command.Type,
                      .ByteOrder = command.Order};
  if (command.ProbeGiven) task.Link.ProbeRegister = static_cast<std::uint16_t>(command.ProbeAddr);
  const bool bits = FindModbusFunction(command.Table->Read)->Bits;
  if (bits && command.TypeGiven)
    throw EProblem(pbRequest, TProblem{.What = Tr("coils and discrete inputs have no type and no order"),
                                       .Where = command.Table->Option});
  task.Form = bits ? TValueForm{vtBit} : ValueForm(command.Type, command.Order, "--order " + command.Order);
  TModbusOrder& order = task.Order;
  order.Words = ParseValues(command.Values, task.Form, "--values");
  order.Count = command.Write ? order.Words.size() : command.Count * task.Form.Words();
  if (command.Addr + order.Count > kModbusAddresses)
    throw EProblem(pbRequest, Tr("--addr and the count go beyond address 65535"));
  order.Func = command.Func(order.Count);
  order.Addr = static_cast<std::uint16_t>(command.Addr);
  order.ValueWords = task.Form.Words();
  order.Strict = command.Profile == "strict";
  order.TimeoutMs = static_cast<std::uint32_t>(command.Timeout);
  order.ProbeRegister = task.Link.ProbeRegister;
  if (order.Strict) return task;
  if (command.TimeoutGiven || command.ProbeGiven)
    throw EProblem(pbRequest, TProblem{.What = Tr("the exact profile's waits are fixed, and it has no probe"),
                                       .Where = "--profile exact",
                                       .Remedy = Tr("leave --timeout and --probe-register away")});
  if (!FindModbusFunction(order.Func)->Exact)
    throw EProblem(pbRequest,
                   TProblem{.What = Tr("the exact profile has holding registers only"), .Where = "--profile exact"});
  return task;
}

// The application log, for JSON: what it says of a failure, the problem says better.
struct TLogLines final : ILogSink {
  void Write(const TLogRecord& record) override {
    if (!record.Diagnostic) Lines.push_back(record.Text);
  }
  nlohmann::ordered_json Lines = nlohmann::ordered_json::array();
};

TDevicePtr<TModbusComm> MakeMaster(const TModbusCommand& command, const TTransferAsked& task) {
  auto device = MakeDevice<TModbusComm>(task.Link.Text());
  device->SlaveAddr = task.Unit;
  device->IsTCP = task.Link.TcpFraming;
  if (command.PreDelayGiven || task.Order.Strict) device->PreDelay = static_cast<std::int32_t>(command.PreDelay);
  return device;
}

int RunModbus(const TModbusCommand& command, TConsole& console) {
  const TTransferAsked task = TaskOf(command);
  const TOperatorTexts texts(console);  // the log's; made before it, as the library's start has nothing to say there
  TLogLines sink;
  TLogService logs;
  logs.AddSink(sink);
  TAppSys app;
  const TInstalled<TLogService> installedLogs(logs);
  const TInstalled<TAppSys> installedApp(app);

  const TSignalsBlocked blocked;
  const auto device = MakeMaster(command, task);
  TStop& stop = device->Stop;
  const std::uint32_t silenceMs = device->SilenceMs();  // here: a request under way has the device to itself
  TStopOnSignal signals(stop, [&](bool overdue) {
    TModbusResult result;
    result.Outcome = overdue ? moTimeout : moStopped;
    result.Confirmed = !command.Write;
    const TProblem problem = ProblemOf(result, task.Link, task.Unit);
    TellEnded(task.Link, problem, silenceMs, console, command.Watch != 0);
    std::_Exit(overdue ? kExitUnusable : command.Watch != 0 ? kExitSuccess : kExitOtherwise);
  });
  // The waits of the exact profile are its own.
  const auto deadline = [&] { return Clock().MonotonicMs() + command.Timeout; };
  std::uint64_t deadlineMs = deadline();
  signals.Begin(task.Order.Strict && command.Watch == 0 ? deadlineMs : 0);
  const auto transport = MakeTransport(task.Link);
  device->SetDataTransIntf(transport);

  TModbusTransfer result;
  std::optional<TProblem> problem;
  bool told = false;
  for (;;) {
    const std::uint64_t startUs = Clock().MonotonicUs();
    result = Transfer(*device, task.Order, deadlineMs);
    signals.End();
    logs.DrainOnce();
    problem.reset();
    if (!result.Ok()) {
      problem = ProblemOf(result, task.Link, task.Unit);
      if (result.Outcome == moNoConnection && !transport->Linked()) {
        TProblem open = transport->OpenProblem();
        if (!open.Remedy.empty()) problem->Remedy = std::exchange(open.Remedy, {});
        problem->Why = open.Text();
      }
    }
    auto frames = device->LastFrames();
    std::erase_if(frames, [&](const auto& frame) { return frame.TimeUs < startUs; });
    const TModbusProof proof = device->Statistics().Proof;
    auto document = TransferJson(task, result, proof);
    document["log"] = std::exchange(sink.Lines, nlohmann::ordered_json::array());
    console.Say(TransferText(task, result, proof));
    if (command.Frames) {
      document["frames"] = FramesJson(frames, startUs);
      for (const auto& frame : frames) console.Say(FrameText(frame, startUs));
    }
    console.Print(document, problem, command.Watch != 0);
    // Here rather than before the next request, which has no time for it.
    if (LeaveLineSilent(*device, console, !told)) told = true;
    if (command.Watch == 0 || console.Broken() || Clock().Pause(stop, static_cast<std::uint32_t>(command.Watch))) break;
    deadlineMs = deadline();
    signals.Begin();
  }
  if (!problem || (command.Watch != 0 && stop.Asked())) return kExitSuccess;
  throw EProblem(result.Outcome == moBadRequest ? pbRequest
                 : result.Outcome == moStopped  ? pbRefused
                                                : pbUnusable,
                 *std::move(problem));
}

void AddTables(TCommand command, TModbusCommand& options) {
  std::vector<TOption> added;
  for (const TTable& table : kTables) {
    if (options.Write && table.WriteOne == 0) continue;
    const TOption option = command.Flag(
        table.Option, [&options, &table] { options.Table = &table; },
        Tr(options.Write ? table.WriteHelp : table.ReadHelp));
    for (const TOption other : added) option.Excludes(other);
    added.push_back(option);
  }
}

const char* ExitCodes() {
  return Tr("0 success, 1 stopped, 2 wrong command line, 3 the device did not do it; how is said");
}

void AddTransfer(TCommand modbus, bool write) {
  auto [command, options] = AddOwn<TModbusCommand>(
      modbus, write ? "write" : "read",
      write ? Tr("Write holding registers or coils") : Tr("Read registers, coils or discrete inputs"), RunModbus);
  options.Write = write;
  AddLinkOptions(command, options.Link);
  AddTables(command, options);
  command.Number("--unit", options.Unit, 0, 255, "", Tr("The device's unit address")).ShowDefault();
  command
      .Number("--addr", options.Addr, 0, 0xFFFF, "",
              Tr("The first one, as the frame has it: 0 is what some manuals call 40001"))
      .Required();
  if (write) {
    command.Texts("--values", options.Values, Tr("The values, separated by commas or blanks"), "V,V...").Required();
    command.Flag("--multiple", options.Multiple, Tr("Write a single one with function 16 or 15 too"));
  } else {
    command.Number("--count", options.Count, 1, 0xFFFF, "", Tr("How many values")).ShowDefault();
  }
  command.Text("--type", options.Type, Tr("uint16, int16, uint32, int32 or float32"), "TYPE")
      .OneOf({std::begin(kValueTypes), std::end(kValueTypes)})
      .ShowDefault()
      .Tells(options.TypeGiven);
  command
      .Text("--order", options.Order,
            Tr("How the bytes of a value stand in its registers, A being its highest: ABCD, CDAB, BADC or "
               "DCBA"),
            "ORDER")
      .OneOf({std::begin(kValueOrders), std::end(kValueOrders)})
      .ShowDefault()
      .Tells(options.TypeGiven);
  command
      .Text("--profile", options.Profile, Tr("strict: only the reply to this request counts; exact: fixed waits"),
            "PROFILE")
      .OneOf({"strict", "exact"})
      .ShowDefault();
  command
      .Number("--pre-delay", options.PreDelay, 0, 60'000, "ms",
              Tr("Pause between send and first read (strict 0, exact 50 unless given)"))
      .Tells(options.PreDelayGiven);
  command
      .Number("--timeout", options.Timeout, 1, 60'000, "ms",
              Tr("The time until strict gives up, connecting, probe and attempts included"))
      .ShowDefault()
      .Tells(options.TimeoutGiven);
  if (write)
    command
        .Number("--probe-register", options.ProbeAddr, 0, 0xFFFF, "",
                Tr("A register to read first, within --timeout (the link's own unless given): a line that "
                   "only echoes would confirm what nobody wrote"))
        .Tells(options.ProbeGiven);
  command.Number("--watch", options.Watch, 1, 86'400'000, "ms", Tr("Again after this pause, until stopped"));
  AddJsonOption(command, options.Json);
  command.Flag("--frames", options.Frames, Tr("Print the bytes that were sent and received"));
  AddLanguageOption(command, options.Language);
  if (write)
    command.Help(
        {.Notes = Tr("A write whose reply does not come may have happened; one to unit 0 of a line goes to all units, "
                     "and none\nconfirms it."),
         .ExitCodes = ExitCodes(),
         .Examples = {"ixocut modbus write --tcp 192.168.0.10 --addr 16 --values 1,0x203",
                      ("ixocut modbus write --serial /dev/ttyUSB0,19200,e,8,1 --unit 3 --addr 0 --values 7 "
                       "--probe-register 0"),
                      "ixocut modbus write --link modbus-store --addr 16 --values 7",
                      "ixocut modbus write --tcp plc --coils --addr 4 --values 1,0,1",
                      "ixocut modbus write --tcp plc --addr 100 --type float32 --order CDAB --values 1.5"}});
  else
    command.Help(
        {.ExitCodes = ExitCodes(),
         .Examples = {"ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4",
                      "ixocut modbus read --tcp plc:1502 --framing rtu --input --addr 0 --type int32 --order CDAB",
                      "ixocut modbus read --serial /dev/ttyUSB0,19200,e,8,1 --unit 3 --coils --addr 0 --count 16",
                      "ixocut modbus read --tcp plc --addr 0 --watch 500 --json"}});
}

}  // namespace

void AddModbusCommand(TCommand program) {
  const TCommand modbus = program.AddGroup("modbus", Tr("Read and write the registers and coils of a Modbus device"));
  AddTransfer(modbus, false);
  AddTransfer(modbus, true);
  modbus.Help(
      {.ExitCodes = ExitCodes(),
       .Examples = {"ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4",
                    "ixocut modbus write --tcp 192.168.0.10 --addr 16 --values 1,0x203", "ixocut modbus read --help"}});
}

}  // namespace ixocut
