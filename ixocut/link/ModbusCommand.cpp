// `ixocut modbus read|write`: one request to a Modbus device, or the same again and again.
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/link/LinkOptions.h"

namespace ixocut {
namespace {

struct TModbusCommand {
  bool Write = false;
  TLinkOptions Link;
  std::uint64_t Unit = 1;
  std::uint64_t Addr = 0;
  std::uint64_t Count = 1;
  std::vector<std::string> Values;
  bool Multiple = false;
  std::string Profile = "strict";
  std::uint64_t PreDelay = 0;
  bool PreDelayGiven = false;
  std::uint64_t Timeout = 2000;
  std::uint64_t Watch = 0;
  bool Json = false;
  bool Frames = false;
};

std::vector<std::uint16_t> ParseValues(const std::vector<std::string>& texts) {
  // Here, not by the options' parser, which drops an empty field and shifts the rest.
  std::vector<std::string> fields;
  for (const std::string& text : texts) {
    std::size_t from = 0;
    for (std::size_t comma = 0; comma != std::string::npos; from = comma + 1) {
      comma = text.find(',', from);
      fields.push_back(text.substr(from, comma - from));
    }
  }
  std::vector<std::uint16_t> values;
  for (const std::string& text : fields) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const char* const begin = text.data() + (hex ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint16_t value = 0;
    const auto [stopped, error] = std::from_chars(begin, end, value, hex ? 16 : 10);
    if (error != std::errc{} || stopped != end)
      throw EProblem(pbRequest, "--values: \"" + text + "\" is not a number from 0 to 65535 (or 0x0 to 0xFFFF)");
    values.push_back(value);
  }
  return values;
}

double Ms(std::uint64_t us) { return static_cast<double>(us) / 1000.0; }

void PrintText(const TModbusCommand& command, const TModbusResult& result, std::ostream& out) {
  for (std::size_t i = 0; i < result.Registers.size(); ++i) {
    const unsigned value = result.Registers[i];
    out << Format("%5u  %5u  0x%04X\n", static_cast<unsigned>(command.Addr + i), value, value);
  }
  if (command.Write && result.Done != 0 && !(result.Ok() && !result.Confirmed))
    out << Format("%u written\n", static_cast<unsigned>(result.Done));
  out << OutcomeText(result)
      << Format("  (%.1f ms: connect %.1f, send %.1f, wait %.1f; %u sent, %u received", Ms(result.ElapsedUs),
                Ms(result.OpenUs), Ms(result.SendUs), Ms(result.WaitUs), static_cast<unsigned>(result.BytesSent),
                static_cast<unsigned>(result.BytesReceived));
  if (result.Attempts > 1) out << Format("; %u attempts", static_cast<unsigned>(result.Attempts));
  if (result.Foreign != 0) out << Format("; %u late replies dropped", static_cast<unsigned>(result.Foreign));
  if (result.StaleBytes != 0) out << Format("; %u stale bytes dropped", static_cast<unsigned>(result.StaleBytes));
  if (result.Owed != 0) out << Format("; %u without a reply in time", static_cast<unsigned>(result.Owed));
  if (result.Drained != 0) out << Format("; %u late bytes drained", static_cast<unsigned>(result.Drained));
  out << ")\n";
}

nlohmann::ordered_json JsonOf(const TModbusCommand& command, const TLinkAddress& link, const TModbusResult& result) {
  nlohmann::ordered_json document{{"command", command.Write ? "modbus write" : "modbus read"},
                                  {"link", link.Text()},
                                  {"framing", link.TcpFraming ? "tcp" : "rtu"},
                                  {"profile", command.Profile},
                                  {"unit", command.Unit},
                                  {"addr", command.Addr},
                                  {"outcome", OutcomeWord(result.Outcome)},
                                  {"reason", result.Reason}};
  if (result.Outcome == moException) {
    document["exception"] = result.Exception;
    document["exceptionName"] = ModbusExceptionName(result.Exception);
  }
  if (command.Write) {
    document["written"] = result.Done;
    document["confirmed"] = result.Confirmed;
  } else {
    document["values"] = result.Registers;
  }
  document["ms"] = {{"connect", Ms(result.OpenUs)},
                    {"send", Ms(result.SendUs)},
                    {"wait", Ms(result.WaitUs)},
                    {"total", Ms(result.ElapsedUs)}};
  document["attempts"] = result.Attempts;
  document["owed"] = result.Owed;
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

// The application log, on the error output.
struct TErrorSink final : ILogSink {
  void Write(const TLogRecord& record) override {
    if (!record.Diagnostic) std::cerr << record.Text << '\n';
  }
};

int Run(const TModbusCommand& command, std::ostream& out) {
  const TLinkAddress link = ParseLink(command.Link);
  const std::vector<std::uint16_t> values = ParseValues(command.Values);
  if (command.Write && values.empty()) throw EProblem(pbRequest, "--values is needed");
  const std::size_t count = command.Write ? values.size() : command.Count;
  if (command.Addr + count > 0x10000) throw EProblem(pbRequest, "--addr and the count go beyond register 65535");

  TErrorSink sink;
  TLogService logs;
  logs.AddSink(sink);
  TAppSys app;
  const TInstalled<TLogService> installedLogs(logs);
  const TInstalled<TAppSys> installedApp(app);

  const TSignalsBlocked blocked;
  const bool strict = command.Profile == "strict";
  const auto device = MakeDevice<TModbusComm>(link.Text());
  device->SlaveAddr = static_cast<std::uint8_t>(command.Unit);
  device->IsTCP = link.TcpFraming;
  if (command.PreDelayGiven || strict) device->PreDelay = static_cast<std::int32_t>(command.PreDelay);
  TModbusStrictOptions options;
  options.TimeoutMs = static_cast<std::uint32_t>(command.Timeout);
  options.ClearOnSuccess = true;
  device->SetProfile(strict ? mpStrict : mpExact, options);
  TStop& stop = device->Stop;
  const TStopOnSignal signals(stop, [&command] {
    std::cerr << (command.Write ? "stopped; the write may have happened\n" : "stopped\n") << std::flush;
    std::_Exit(command.Watch != 0 ? kExitSuccess : kExitUnusable);
  });
  device->SetDataTransIntf(MakeTransport(link));

  TModbusResult result;
  do {
    const std::uint64_t startUs = Clock().MonotonicUs();
    const auto addr = static_cast<std::uint16_t>(command.Addr);
    result = command.Write ? device->WriteRegisters(addr, values, command.Multiple)
                           : device->ReadRegisters(addr, static_cast<std::uint32_t>(count));
    logs.DrainOnce();
    auto frames = device->LastFrames();
    std::erase_if(frames, [&](const auto& frame) { return frame.TimeUs < startUs; });
    if (command.Json) {
      auto document = JsonOf(command, link, result);
      if (command.Frames) document["frames"] = FramesJson(frames, startUs);
      out << document.dump(command.Watch != 0 ? -1 : 2) << '\n';
    } else {
      PrintText(command, result, out);
      if (command.Frames)
        for (const auto& frame : frames)
          out << Format("%9.1f ms %s %s\n", Ms(frame.TimeUs - startUs), frame.Sent ? "->" : "<-",
                        SpacedHex(frame.Bytes).c_str());
    }
    out << std::flush;
  } while (command.Watch != 0 && out && !Clock().Pause(stop, static_cast<std::uint32_t>(command.Watch)));
  if (result.Outcome == moBadRequest) throw EProblem(pbRequest, result.Reason);
  return result.Ok() || (command.Watch != 0 && stop.Asked()) ? kExitSuccess : kExitUnusable;
}

void AddOne(CLI::App& modbus, TCommandRun& run, bool write) {
  const auto options = std::make_shared<TModbusCommand>();
  options->Write = write;
  CLI::App* const command =
      modbus.add_subcommand(write ? "write" : "read", write ? "Write holding registers (functions 6 and 16)"
                                                            : "Read holding registers (function 3)");
  AddLinkOptions(*command, options->Link);
  AddNumberOption(*command, "--unit", options->Unit, 0, 255, "", "The device's unit address")->capture_default_str();
  AddNumberOption(*command, "--addr", options->Addr, 0, 0xFFFF, "",
                  "The first register, as the frame has it: 0 is what some manuals call 40001")
      ->required();
  if (write) {
    command->add_option("--values", options->Values, "The values, 0 to 65535 or 0x0 to 0xFFFF")
        ->required()
        ->type_name("N...");
    command->add_flag("--multiple", options->Multiple, "Write a single value with function 16 too");
  } else {
    AddNumberOption(*command, "--count", options->Count, 1, 0xFFFF, "", "How many registers")->capture_default_str();
  }
  command
      ->add_option("--profile", options->Profile, "strict: only the reply to this request counts; exact: fixed waits")
      ->check(CLI::IsMember({"strict", "exact"}))
      ->type_name("PROFILE")
      ->capture_default_str();
  CLI::Option* const delay = AddNumberOption(*command, "--pre-delay", options->PreDelay, 0, 60'000, "ms",
                                             "Pause between send and first read (strict 0, exact 50 unless given)");
  AddNumberOption(*command, "--timeout", options->Timeout, 1, 60'000, "ms", "How long strict waits for a reply")
      ->capture_default_str();
  AddNumberOption(*command, "--watch", options->Watch, 1, 86'400'000, "ms", "Again after this pause, until stopped");
  command->add_flag("--json", options->Json, "Print JSON instead of text, one document a request");
  command->add_flag("--frames", options->Frames, "Print the bytes that were sent and received");
  command->callback([options, delay, &run] {
    options->PreDelayGiven = delay->count() != 0;
    run = [options] { return Run(*options, std::cout); };
  });
}

}  // namespace

void AddModbusCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const modbus = program.add_subcommand("modbus", "Read and write the registers of a Modbus device");
  modbus->require_subcommand(1);
  AddOne(*modbus, run, false);
  AddOne(*modbus, run, true);
  modbus->footer(
      "Exit codes: 0 success, 2 wrong command line, 3 the device did not do it; how is said.\n"
      "\n"
      "Examples:\n"
      "  ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4\n"
      "  ixocut modbus write --serial /dev/ttyUSB0,19200,e,8,1 --unit 3 --addr 0 --values 1,0x203 --frames\n"
      "  ixocut modbus read --tcp plc:1502 --addr 0 --watch 500 --json\n"
      "\n"
      "Software is not the emergency stop.");
}

}  // namespace ixocut
