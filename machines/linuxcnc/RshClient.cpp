#include "machines/linuxcnc/RshClient.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kSliceMs = 20;   // how long a cancel may be overlooked
constexpr std::uint32_t kAgainMs = 100;  // without an answer: it was mixed up with another request
constexpr int kRefusals = 3;             // of a `get`, which is never refused for its own sake
constexpr std::size_t kLongestLine = 4096;

// "SET MDI" of "set mdi G0 X1"; "PROGRAM_STATUS" of "get program_status": how its answer begins.
std::string AnswerName(std::string_view verb, std::string_view what) {
  const std::string name = Capitals(what.substr(0, what.find(' ')));
  return verb == "set" ? "SET " + name : name;
}

}  // namespace

bool TRshTurn::Take() {
  const std::uint64_t end = Clock().MonotonicMs() + kMs;
  TGuard guard(FLock);
  for (std::uint64_t now = 0; FTaken; FBack.wait_for(FLock, std::chrono::milliseconds(end - now)))
    if (now = Clock().MonotonicMs(); now >= end) return false;
  return FTaken = true;
}

void TRshTurn::GiveBack() {
  TGuard guard(FLock);
  FTaken = false;
  FBack.notify_one();
}

TRshClient::TRshClient(TRshAddress address, const char* client, TRshTurn& turn)
    : FAddress(std::move(address)), FClient(client), FTurn(turn), FTcp(CommParts().MakeTcp()) {}

TResult<> TRshClient::Open(bool enable) {
  Close();
  const std::string where = Format("%s:%d", FAddress.Host.c_str(), FAddress.Port);
  const auto problem = [&](std::string what, std::string why, std::string remedy) {
    Close();
    return TProblem{std::move(what), where, std::move(why), std::move(remedy)};
  };
  if (FResolved.empty()) {
    FResolved = CommParts().Resolve(FAddress.Host, kResolveLimitMs);
    if (FResolved.empty())
      return problem(Format(Tr("the host %s is not known"), FAddress.Host.c_str()), {},
                     Tr("correct Host in the section Linuxcnc of the machine file"));
    FTcp->SetRemote(FResolved, FAddress.Port);
  }
  if (!FTcp->Connect(kOpenLimitMs)) {
    const int error = FTcp->ConnectError();
    return problem(Tr("LinuxCNC's text interface does not answer"),
                   error != 0 ? SystemErrorText(error) : Tr("nothing answered in time"),
                   Tr("start LinuxCNC with linuxcncrsh, or correct Host and Port in the section Linuxcnc"));
  }
  FOpen = true;
  std::string rest;
  if (Ask(Format("hello %s %s 1.0", FAddress.Password.c_str(), FClient.c_str()), "HELLO", kOpenLimitMs, rest) !=
          roAck ||
      rest.rfind("ACK", 0) != 0)
    return problem(Tr("LinuxCNC's text interface does not let the controller in"), rest,
                   Tr("correct Password in the section Linuxcnc of the machine file"));
  // Verbose first: before it nothing that is set is answered.
  if (Set("verbose on", kOpenLimitMs) != roAck || Set("echo off", kOpenLimitMs) != roAck)
    return problem(Tr("LinuxCNC's text interface does not answer as it should"), {}, {});
  if (enable && Set("enable " + FAddress.Enable, kOpenLimitMs) != roAck)
    return problem(Tr("LinuxCNC's text interface does not let the controller command it"), {},
                   Tr("correct Enable in the section Linuxcnc of the machine file"));
  return {};
}

void TRshClient::Close() {
  FTcp->Disconnect();
  FReceived.clear();
  FOpen = false;
}

void TRshClient::Cancel() { FCancelled.store(true, std::memory_order_release); }

TRshOutcome TRshClient::Set(std::string_view what, std::uint32_t limitMs) {
  const std::string request = "set " + std::string(what);
  std::string rest;
  TRshOutcome outcome = roNak;
  for (int tries = 0; tries < 2 && outcome == roNak; ++tries) {
    outcome = Ask(request, AnswerName("set", what), limitMs, rest);
    if (outcome == roAck && rest != "ACK") outcome = roNak;
  }
  if (outcome == roSilent) Close();
  return outcome;
}

TRshOutcome TRshClient::Get(std::string_view what, std::uint32_t limitMs, std::string& value) {
  const std::string request = "get " + std::string(what);
  const std::uint64_t end = Clock().MonotonicMs() + limitMs;
  for (int refused = 0;;) {
    const std::uint64_t now = Clock().MonotonicMs();
    const auto left = static_cast<std::uint32_t>(std::min<std::uint64_t>(end > now ? end - now : 0, kAgainMs));
    const TRshOutcome outcome = Ask(request, AnswerName("get", what), left, value);
    if (outcome == roNak && ++refused < kRefusals) continue;
    if (outcome == roSilent && Clock().MonotonicMs() < end) continue;
    if (outcome == roSilent) Close();
    return outcome;
  }
}

TRshOutcome TRshClient::Ask(std::string_view request, std::string_view name, std::uint32_t limitMs, std::string& rest) {
  rest.clear();
  if (!FOpen) return roClosed;
  while (FTcp->WaitReadable(0))
    if (!Receive()) return roClosed;
  FReceived.clear();  // came too late
  TRshTurn::TMine turn(FTurn);
  const std::string line = std::string(request) + "\r\n";
  if (FTcp->Send(std::span(reinterpret_cast<const std::uint8_t*>(line.data()), line.size())) < 0) {
    Close();
    return roClosed;
  }
  const std::string echo = Capitals(request);
  const std::string verb = echo.substr(0, echo.find(' ') + 1);
  const std::uint64_t sent = Clock().MonotonicMs();
  const std::uint64_t end = sent + limitMs;
  for (std::string answer;;) {
    while (NextLine(answer)) {
      const std::string capitals = Capitals(answer);
      if (capitals == echo) continue;
      // Also of another name: it has taken up words of another request.
      if (capitals.starts_with(verb) && capitals.ends_with(" NAK")) return roNak;
      if (!capitals.starts_with(name)) continue;
      if (capitals.size() > name.size() && capitals[name.size()] != ' ') continue;
      rest = capitals.substr(std::min(capitals.size(), name.size() + 1));
      return roAck;
    }
    const std::uint64_t now = Clock().MonotonicMs();
    if (now - sent >= TRshTurn::kMs) turn.GiveBack();
    if (FCancelled.load(std::memory_order_acquire)) {
      Close();
      return roClosed;
    }
    if (now >= end) return roSilent;
    if (FTcp->WaitReadable(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - now, kSliceMs))) && !Receive())
      return roClosed;
  }
}

bool TRshClient::Receive() {
  std::array<std::uint8_t, 1024> buffer;
  const int got = FTcp->Receive(buffer);
  if (got == 0 || FReceived.size() > kLongestLine) {
    Close();
    return false;
  }
  if (got > 0) FReceived.append(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(got));
  return true;
}

// Lines end "\r\n" or "\n\r"; empty ones are none.
bool TRshClient::NextLine(std::string& line) {
  for (;;) {
    const std::size_t end = FReceived.find_first_of("\r\n");
    if (end == std::string::npos) return false;
    line = FReceived.substr(0, end);
    FReceived.erase(0, end + 1);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    if (!line.empty()) return true;
  }
}

}  // namespace ixocamglue
