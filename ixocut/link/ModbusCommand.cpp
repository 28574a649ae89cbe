// `ixocut modbus read|write`: one request to a Modbus device, or the same again and again.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "controller/links/ModbusTransfer.h"
#include "controller/links/ModbusValues.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Document.h"
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

struct TModbusCommand {
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
  bool Json = false;
  bool Frames = false;

  [[nodiscard]] const char* Name() const { return Write ? "modbus write" : "modbus read"; }
  [[nodiscard]] bool Strict() const { return Profile == "strict"; }
  [[nodiscard]] std::uint8_t Func(std::size_t words) const {
    return !Write ? Table->Read : words == 1 && !Multiple ? Table->WriteOne : Table->WriteMany;
  }
};

// What was asked for, understood.
struct TModbusTask {
  TLinkAddress Link;
  TValueForm Form;
  std::vector<std::uint16_t> Words;  // to write
  std::size_t Count = 0;             // registers or coils
};

TModbusTask TaskOf(const TModbusCommand& command) {
  TModbusTask task{ParseLink(command.Link), {}, {}, 0};
  if (command.ProbeGiven) task.Link.ProbeRegister = static_cast<std::uint16_t>(command.ProbeAddr);
  const bool bits = FindModbusFunction(command.Table->Read)->Bits;
  if (bits && command.TypeGiven)
    throw EProblem(pbRequest, TProblem{.What = Tr("coils and discrete inputs have no type and no order"),
                                       .Where = command.Table->Option});
  task.Form = bits ? TValueForm{vtBit} : ValueForm(command.Type, command.Order, "--order " + command.Order);
  task.Words = ParseValues(command.Values, task.Form, "--values");
  task.Count = command.Write ? task.Words.size() : command.Count * task.Form.Words();
  if (command.Addr + task.Count > kModbusAddresses)
    throw EProblem(pbRequest, Tr("--addr and the count go beyond address 65535"));
  if (!command.Strict()) {
    if (command.TimeoutGiven || command.ProbeGiven)
      throw EProblem(pbRequest, TProblem{.What = Tr("the exact profile's waits are fixed, and it has no probe"),
                                         .Where = "--profile exact",
                                         .Remedy = Tr("leave --timeout and --probe-register away")});
    if (!FindModbusFunction(command.Func(task.Count))->Exact)
      throw EProblem(pbRequest,
                     TProblem{.What = Tr("the exact profile has holding registers only"), .Where = "--profile exact"});
  }
  return task;
}

double Ms(std::uint64_t us) { return static_cast<double>(us) / 1000.0; }

std::span<const std::uint16_t> WordsOf(const TModbusResult& result, const TValueForm& form, std::size_t value) {
  return std::span(result.Registers).subspan(value * form.Words(), form.Words());
}

void PrintText(const TModbusCommand& command, const TModbusTask& task, const TModbusTransfer& result,
               TModbusProof proof, std::ostream& out) {
  for (std::size_t i = 0; i < result.Registers.size() / task.Form.Words(); ++i) {
    const auto words = WordsOf(result, task.Form, i);
    out << Format("%5u  %5s", static_cast<unsigned>(command.Addr + i * words.size()),
                  TextOfValue(words, task.Form).c_str());
    for (std::size_t w = 0; w < words.size() && task.Form.Type != vtBit; ++w)
      out << Format(w == 0 ? "  0x%04X" : " 0x%04X", words[w]);
    out << '\n';
  }
  if (command.Write && result.Done != 0 && !(result.Ok() && !result.Confirmed))
    out << Format(Tr("%u written\n"), static_cast<unsigned>(result.Done / task.Form.Words()));
  out << OutcomeText(result)
      << Format(Tr("  (%.1f ms: connect %.1f, send %.1f, wait %.1f; %u sent, %u received"), Ms(result.ElapsedUs),
                Ms(result.OpenUs), Ms(result.SendUs), Ms(result.WaitUs), static_cast<unsigned>(result.BytesSent),
                static_cast<unsigned>(result.BytesReceived));
  const auto count = [&](const char* text, std::uint64_t number, std::uint64_t atLeast = 1) {
    if (number >= atLeast) out << Format(text, static_cast<unsigned>(number));
  };
  count(Tr("; %u attempts"), result.Attempts, result.Requests + 1);
  count(Tr("; %u requests"), result.Requests, 2);
  count(Tr("; %u late replies dropped"), result.Foreign);
  count(Tr("; %u stale bytes dropped"), result.StaleBytes);
  count(Tr("; %u without a reply in time"), result.TimedOut);
  count(Tr("; %u late bytes drained"), result.Drained);
  if (command.Write && command.Strict()) out << Format(Tr("; echo probe: %s"), Tr(ModbusProofName(proof)));
  out << Tr(")\n");
}

nlohmann::ordered_json JsonOf(const TModbusCommand& command, const TModbusTask& task, const TModbusTransfer& result,
                              TModbusProof proof) {
  nlohmann::ordered_json document{{"link", task.Link.Text()},     {"framing", task.Link.TcpFraming ? "tcp" : "rtu"},
                                  {"profile", command.Profile},   {"unit", command.Unit},
                                  {"table", command.Table->Name}, {"function", command.Func(task.Count)},
                                  {"addr", command.Addr},         {"outcome", OutcomeWord(result.Outcome)},
                                  {"reason", result.Reason}};
  if (result.Outcome == moException) {
    document["exception"] = result.Exception;
    document["exceptionName"] = ModbusExceptionName(result.Exception);
  }
  if (task.Form.Type != vtBit) {
    document["type"] = command.Type;
    document["order"] = command.Order;
  }
  if (command.Write) {
    document["written"] = result.Done / task.Form.Words();
    document["confirmed"] = result.Ok() && result.Confirmed;
    if (command.Strict()) document["echoProbe"] = ModbusProofName(proof);
  } else {
    auto values = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < result.Registers.size() / task.Form.Words(); ++i)
      values.push_back(JsonOfValue(WordsOf(result, task.Form, i), task.Form));
    document["values"] = values;
    if (task.Form.Words() > 1) document["registers"] = result.Registers;
  }
  document["ms"] = {{"connect", Ms(result.OpenUs)},
                    {"send", Ms(result.SendUs)},
                    {"wait", Ms(result.WaitUs)},
                    {"total", Ms(result.ElapsedUs)}};
  document["requests"] = result.Requests;
  document["attempts"] = result.Attempts;
  document["owed"] = result.Owed;
  document["timedOut"] = result.TimedOut;
  document["drained"] = result.Drained;
  document["bytesSent"] = result.BytesSent;
  document["bytesReceived"] = result.BytesReceived;
  return document;
}

nlohmann::ordered_json FramesJson(const std::vector<TModbusFrameLog::TEntry>& frames, std::uint64_t startUs) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& frame : frames)
    list.push_back({{"ms", Ms(frame.TimeUs - startUs)}, {"sent", frame.Sent}, {"bytes", SpacedHex(frame.Bytes)}});
  return list;
}

// The application log, for JSON: what it says of a failure, the problem says better.
struct TLogLines final : ILogSink {
  void Write(const TLogRecord& record) override {
    if (!record.Diagnostic) Lines.push_back(record.Text);
  }
  nlohmann::ordered_json Lines = nlohmann::ordered_json::array();
};

TDevicePtr<TModbusComm> MakeMaster(const TModbusCommand& command, const TModbusTask& task) {
  auto device = MakeDevice<TModbusComm>(task.Link.Text());
  device->SlaveAddr = static_cast<std::uint8_t>(command.Unit);
  device->IsTCP = task.Link.TcpFraming;
  if (command.PreDelayGiven || command.Strict()) device->PreDelay = static_cast<std::int32_t>(command.PreDelay);
  return device;
}

TModbusTransfer Carry(const TModbusCommand& command, const TModbusTask& task, TModbusComm& device,
                      std::uint64_t deadlineMs) {
  return Transfer(device,
                  {.Func = command.Func(task.Count),
                   .Addr = static_cast<std::uint16_t>(command.Addr),
                   .Count = task.Count,
                   .ValueWords = task.Form.Words(),
                   .Words = task.Words,
                   .Strict = command.Strict(),
                   .TimeoutMs = static_cast<std::uint32_t>(command.Timeout),
                   .ProbeRegister = task.Link.ProbeRegister},
                  deadlineMs);
}

int Run(const TModbusCommand& command, std::ostream& out) {
  const TModbusTask task = TaskOf(command);
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
    const TProblem problem = ProblemOf(result, task.Link, static_cast<std::uint8_t>(command.Unit));
    if (command.Json) PrintDocument(out, command.Name(), nullptr, problem, command.Watch != 0);
    std::cerr << "ixocut " << command.Name() << ": " << problem.Text() << '\n' << std::flush;
    if (!task.Link.IsTcp && !task.Link.TcpFraming) std::cerr << LateReplyText(command.Name(), silenceMs);
    std::_Exit(overdue ? kExitUnusable : command.Watch != 0 ? kExitSuccess : kExitOtherwise);
  });
  // The waits of the exact profile are its own.
  const auto deadline = [&] { return Clock().MonotonicMs() + command.Timeout; };
  std::uint64_t deadlineMs = deadline();
  signals.Begin(command.Strict() && command.Watch == 0 ? deadlineMs : 0);
  const auto transport = MakeTransport(task.Link);
  device->SetDataTransIntf(transport);

  TModbusTransfer result;
  std::optional<TProblem> problem;
  bool told = false;
  for (;;) {
    const std::uint64_t startUs = Clock().MonotonicUs();
    result = Carry(command, task, *device, deadlineMs);
    signals.End();
    logs.DrainOnce();
    problem.reset();
    if (!result.Ok()) {
      problem = ProblemOf(result, task.Link, static_cast<std::uint8_t>(command.Unit));
      if (result.Outcome == moNoConnection && !transport->Linked()) {
        TProblem open = transport->OpenProblem();
        if (!open.Remedy.empty()) problem->Remedy = std::exchange(open.Remedy, {});
        problem->Why = open.Text();
      }
    }
    auto frames = device->LastFrames();
    std::erase_if(frames, [&](const auto& frame) { return frame.TimeUs < startUs; });
    const TModbusProof proof = device->Statistics().Proof;
    if (command.Json) {
      auto document = JsonOf(command, task, result, proof);
      document["log"] = std::exchange(sink.Lines, nlohmann::ordered_json::array());
      if (command.Frames) document["frames"] = FramesJson(frames, startUs);
      PrintDocument(out, command.Name(), document, problem, command.Watch != 0);
    } else {
      PrintText(command, task, result, proof, out);
      if (command.Frames)
        for (const auto& frame : frames)
          out << Format("%9.1f ms %s %s\n", Ms(frame.TimeUs - startUs), frame.Sent ? "->" : "<-",
                        SpacedHex(frame.Bytes).c_str());
    }
    out << std::flush;
    // Here rather than before the next request, which has no time for it.
    if (LeaveLineSilent(*device, command.Name(), !told)) told = true;
    if (command.Watch == 0 || !out || Clock().Pause(stop, static_cast<std::uint32_t>(command.Watch))) break;
    deadlineMs = deadline();
    signals.Begin();
  }
  if (!problem || (command.Watch != 0 && stop.Asked())) return kExitSuccess;
  throw EProblem(result.Outcome == moBadRequest ? pbRequest
                 : result.Outcome == moStopped  ? pbRefused
                                                : pbUnusable,
                 *std::move(problem));
}

void AddTables(TCommand command, const std::shared_ptr<TModbusCommand>& options) {
  std::vector<TOption> added;
  for (const TTable& table : kTables) {
    if (options->Write && table.WriteOne == 0) continue;
    const TOption option = command.Flag(
        table.Option, [options, &table] { options->Table = &table; },
        Tr(options->Write ? table.WriteHelp : table.ReadHelp));
    for (const TOption other : added) option.Excludes(other);
    added.push_back(option);
  }
}

const char* ExitCodes() {
  return Tr("0 success, 1 stopped, 2 wrong command line, 3 the device did not do it; how is said");
}

void AddTransfer(TCommand modbus, bool write) {
  const auto options = std::make_shared<TModbusCommand>();
  options->Write = write;
  const TCommand command =
      modbus.Add(write ? "write" : "read",
                 write ? Tr("Write holding registers or coils") : Tr("Read registers, coils or discrete inputs"),
                 [options] { return Run(*options, std::cout); });
  AddLinkOptions(command, options->Link);
  AddTables(command, options);
  command.Number("--unit", options->Unit, 0, 255, "", Tr("The device's unit address")).ShowDefault();
  command
      .Number("--addr", options->Addr, 0, 0xFFFF, "",
              Tr("The first one, as the frame has it: 0 is what some manuals call 40001"))
      .Required();
  if (write) {
    command.Texts("--values", options->Values, Tr("The values, separated by commas or blanks"), "V,V...").Required();
    command.Flag("--multiple", options->Multiple, Tr("Write a single one with function 16 or 15 too"));
  } else {
    command.Number("--count", options->Count, 1, 0xFFFF, "", Tr("How many values")).ShowDefault();
  }
  command.Text("--type", options->Type, Tr("uint16, int16, uint32, int32 or float32"), "TYPE")
      .OneOf({std::begin(kValueTypes), std::end(kValueTypes)})
      .ShowDefault()
      .Tells(options->TypeGiven);
  command
      .Text("--order", options->Order,
            Tr("How the bytes of a value stand in its registers, A being its highest: ABCD, CDAB, BADC or "
               "DCBA"),
            "ORDER")
      .OneOf({std::begin(kValueOrders), std::end(kValueOrders)})
      .ShowDefault()
      .Tells(options->TypeGiven);
  command
      .Text("--profile", options->Profile, Tr("strict: only the reply to this request counts; exact: fixed waits"),
            "PROFILE")
      .OneOf({"strict", "exact"})
      .ShowDefault();
  command
      .Number("--pre-delay", options->PreDelay, 0, 60'000, "ms",
              Tr("Pause between send and first read (strict 0, exact 50 unless given)"))
      .Tells(options->PreDelayGiven);
  command
      .Number("--timeout", options->Timeout, 1, 60'000, "ms",
              Tr("The time until strict gives up, connecting, probe and attempts included"))
      .ShowDefault()
      .Tells(options->TimeoutGiven);
  if (write)
    command
        .Number("--probe-register", options->ProbeAddr, 0, 0xFFFF, "",
                Tr("A register to read first, within --timeout (the link's own unless given): a line that "
                   "only echoes would confirm what nobody wrote"))
        .Tells(options->ProbeGiven);
  command.Number("--watch", options->Watch, 1, 86'400'000, "ms", Tr("Again after this pause, until stopped"));
  AddJsonOption(command, options->Json);
  command.Flag("--frames", options->Frames, Tr("Print the bytes that were sent and received"));
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
        {.Notes = {},
         .ExitCodes = ExitCodes(),
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
      {.Notes = {},
       .ExitCodes = ExitCodes(),
       .Examples = {"ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4",
                    "ixocut modbus write --tcp 192.168.0.10 --addr 16 --values 1,0x203", "ixocut modbus read --help"}});
}

}  // namespace ixocut
