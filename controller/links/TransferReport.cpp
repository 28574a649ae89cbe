#include "controller/links/TransferReport.h"

#include <span>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

double Ms(std::uint64_t us) { return static_cast<double>(us) / 1000.0; }

std::span<const std::uint16_t> WordsOf(const TModbusResult& result, const TValueForm& form, std::size_t value) {
  return std::span(result.Registers).subspan(value * form.Words(), form.Words());
}

}  // namespace

std::string TransferText(const TTransferAsked& asked, const TModbusTransfer& result, TModbusProof proof) {
  std::string out;
  for (std::size_t i = 0; i < result.Registers.size() / asked.Form.Words(); ++i) {
    const auto words = WordsOf(result, asked.Form, i);
    out += Format("%5u  %5s", static_cast<unsigned>(asked.Order.Addr + i * words.size()),
                  TextOfValue(words, asked.Form).c_str());
    for (std::size_t w = 0; w < words.size() && asked.Form.Type != vtBit; ++w)
      out += Format(w == 0 ? "  0x%04X" : " 0x%04X", words[w]);
    out += '\n';
  }
  if (asked.Write && result.Done != 0 && !(result.Ok() && !result.Confirmed))
    out += Format(Tr("%u written\n"), static_cast<unsigned>(result.Done / asked.Form.Words()));
  out += OutcomeText(result) + Format(Tr("  (%.1f ms: connect %.1f, send %.1f, wait %.1f; %u sent, %u received"),
                                      Ms(result.ElapsedUs), Ms(result.OpenUs), Ms(result.SendUs), Ms(result.WaitUs),
                                      static_cast<unsigned>(result.BytesSent),
                                      static_cast<unsigned>(result.BytesReceived));
  const auto count = [&](const char* text, std::uint64_t number, std::uint64_t atLeast = 1) {
    if (number >= atLeast) out += Format(text, static_cast<unsigned>(number));
  };
  count(Tr("; %u attempts"), result.Attempts, result.Requests + 1);
  count(Tr("; %u requests"), result.Requests, 2);
  count(Tr("; %u late replies dropped"), result.Foreign);
  count(Tr("; %u stale bytes dropped"), result.StaleBytes);
  count(Tr("; %u without a reply in time"), result.TimedOut);
  count(Tr("; %u late bytes drained"), result.Drained);
  if (asked.Write && asked.Order.Strict) out += Format(Tr("; echo probe: %s"), Tr(ModbusProofName(proof)));
  return out + Tr(")");
}

nlohmann::ordered_json TransferJson(const TTransferAsked& asked, const TModbusTransfer& result, TModbusProof proof) {
  nlohmann::ordered_json document{{"link", asked.Link.Text()},
                                  {"framing", asked.Link.TcpFraming ? "tcp" : "rtu"},
                                  {"profile", asked.Order.Strict ? "strict" : "exact"},
                                  {"unit", asked.Unit},
                                  {"table", asked.Table},
                                  {"function", asked.Order.Func},
                                  {"addr", asked.Order.Addr},
                                  {"outcome", OutcomeWord(result.Outcome)},
                                  {"reason", result.Reason}};
  if (result.Outcome == moException) {
    document["exception"] = result.Exception;
    document["exceptionName"] = ModbusExceptionName(result.Exception);
  }
  if (asked.Form.Type != vtBit) {
    document["type"] = asked.Type;
    document["order"] = asked.ByteOrder;
  }
  if (asked.Write) {
    document["written"] = result.Done / asked.Form.Words();
    document["confirmed"] = result.Ok() && result.Confirmed;
    if (asked.Order.Strict) document["echoProbe"] = ModbusProofName(proof);
  } else {
    auto values = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < result.Registers.size() / asked.Form.Words(); ++i)
      values.push_back(JsonOfValue(WordsOf(result, asked.Form, i), asked.Form));
    document["values"] = values;
    if (asked.Form.Words() > 1) document["registers"] = result.Registers;
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

nlohmann::ordered_json FramesJson(const TModbusFrames& frames, std::uint64_t startUs) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& frame : frames)
    list.push_back({{"ms", Ms(frame.TimeUs - startUs)}, {"sent", frame.Sent}, {"bytes", SpacedHex(frame.Bytes)}});
  return list;
}

std::string FrameText(const TModbusFrameLog::TEntry& frame, std::uint64_t startUs) {
  return Format("%9.1f ms %s %s", Ms(frame.TimeUs - startUs), frame.Sent ? "->" : "<-", SpacedHex(frame.Bytes).c_str());
}

}  // namespace ixocontroller
