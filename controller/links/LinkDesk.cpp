#include "controller/links/LinkDesk.h"

#include <algorithm>
#include <atomic>
#include <pthread.h>
#include <utility>

#include "controller/process/RoundThread.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kWatchEndsMs = 50;  // between two looks whether a watch has ended

const char* MarkWord(TDoctorMark mark) { return mark == dmGood ? "ok" : mark == dmNote ? "note" : "fault"; }

nlohmann::ordered_json JsonOf(const TConfiguredLink& link) {
  const TLinkAddress& address = link.Address;
  return {{"name", link.Name},
          {"section", link.Section},
          {"transport", address.IsTcp ? "tcp" : "serial"},
          {"framing", address.TcpFraming ? "tcp" : "rtu"},
          {"address", address.Text()},
          {"probeRegister", address.ProbeRegister ? nlohmann::ordered_json(*address.ProbeRegister) : nullptr},
          {"inUse", link.InUse}};
}

// Every device object has a thread of its own, from its making to its end.
nlohmann::ordered_json DevicesJson() {
  auto devices = nlohmann::ordered_json::array();
  const std::uint64_t now = Clock().MonotonicMs();
  TThreadSeen seen;
  for (std::size_t row = 0; row < TThreadTable::kRows; ++row) {
    if (!ThreadTable().Read(row, seen) || seen.Kind != tkDevice) continue;
    devices.push_back({{"name", seen.Name},
                       {"state", seen.Life == tlRuns     ? "runs"
                                 : seen.Life == tlParked ? "parked"
                                                         : "failed"},
                       {"silentMs", now - std::min(now, seen.BeatMs)},
                       {"rounds", seen.Beats},
                       {"longestMs", seen.LongestMs}});
  }
  return devices;
}

}  // namespace

nlohmann::ordered_json PortsJson(const std::vector<TMachinePort>& ports) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& [device, driver, facts] : ports)
    list.push_back({{"device", device},
                    {"driver", driver},
                    {"address", facts.Port},
                    {"readable", facts.Readable},
                    {"value", facts.Value},
                    {"ageMs", facts.AgeMs ? nlohmann::ordered_json(*facts.AgeMs) : nlohmann::ordered_json()},
                    {"limits", facts.Limits},
                    {"warning", facts.Warning}});
  return list;
}

// --- the doctor ---

struct TLinkDesk::TExamination {
  explicit TExamination(TLinkWatch& before) : Before(before) {}

  TLinkWatch& Before;  // has the link until it is not busy any more
  TConfiguredLink Link;
  TDoctorOptions Options;
  std::string Language;
  TStop Stop;
  std::atomic<bool> Ended{false};
  bool Good = false;  // read behind Ended
  TCriticalSection Lock;
  std::vector<TDoctorStep> Steps IXO_GUARDED_BY(Lock);

  void Run() {
    pthread_setname_np(pthread_self(), "ixo-doctor");
    const TLanguageScope language(Language);
    while (Before.Busy() == Link.Name)
      if (Stop.WaitFor(kWatchEndsMs)) break;
    try {
      Good = ExamineLink(
          Options,
          [this](const TDoctorStep& step) {
            TGuard guard(Lock);
            Steps.push_back(step);
          },
          Stop);
    } catch (...) {
      LogFault("ixo-doctor", std::current_exception());
    }
    Ended.store(true, std::memory_order_release);
  }
};

TLinkDesk::~TLinkDesk() { End(); }

void TLinkDesk::End() {
  if (FExamination) FExamination->Stop.Ask();
  if (FThread.joinable()) FThread.join();
}

TResult<TConfiguredLink> TLinkDesk::Free(const std::string& name) const {
  TResult<TConfiguredLink> link = FindLink(ConfiguredLinks(FModbusStoreCfg), name);
  if (!link) return link;
  if (dynamic_cast<TVirtualClock*>(&Clock()))
    return TProblem{.What = Tr("a link is examined in real time only"),
                    .Remedy = Tr("use \"ixocut link doctor\" with the link's address")};
  if (FExamination && !FExamination->Ended.load(std::memory_order_acquire))
    return TProblem{.What = Format(Tr("the link %s is being examined"), FExamination->Link.Name.c_str())};
  return link;
}

TResult<> TLinkDesk::Watch(const std::string& name, TWatched watched) {
  const TResult<TConfiguredLink> link = Free(name);
  if (!link) return link.Problem();
  if (link->InUse && !link->Address.IsTcp)
    return TProblem{.What = Format(Tr("the machine uses the link %s"), name.c_str()),
                    .Where = link->Section,
                    .Why = Tr("a serial line has one master"),
                    .Remedy = Tr("switch off what goes over it in the machine file, then watch it")};
  watched.Name = link->Name;
  watched.Link = link->Address;
  FWatch.Begin(std::move(watched));
  return {};
}

TResult<> TLinkDesk::Examine(const std::string& name, std::uint8_t unit, std::optional<std::uint16_t> addr,
                             const std::string& language) {
  const TResult<TConfiguredLink> link = Free(name);
  if (!link) return link.Problem();
  End();
  FWatch.End();
  FExamination = std::make_shared<TExamination>(FWatch);
  FExamination->Link = *link;
  FExamination->Options = {
      .Link = link->Address, .Unit = unit, .Addr = addr.value_or(TDoctorOptions::RegisterOf(link->Address))};
  FExamination->Language = language;
  FThread = std::thread([examination = FExamination] { examination->Run(); });
  return {};
}

nlohmann::ordered_json TLinkDesk::Json() const {
  auto links = nlohmann::ordered_json::array();
  for (const TConfiguredLink& link : ConfiguredLinks(FModbusStoreCfg)) links.push_back(JsonOf(link));
  return {{"links", std::move(links)}, {"devices", DevicesJson()}, {"examination", ExaminationJson()}};
}

nlohmann::ordered_json TLinkDesk::ExaminationJson() const {
  if (!FExamination) return nullptr;
  TExamination& of = *FExamination;
  const bool ended = of.Ended.load(std::memory_order_acquire);
  auto steps = nlohmann::ordered_json::array();
  {
    TGuard guard(of.Lock);
    for (const TDoctorStep& step : of.Steps)
      steps.push_back(
          {{"mark", MarkWord(step.Mark)}, {"id", step.Id}, {"finding", step.Finding}, {"next", step.NextThing}});
  }
  return {{"link", of.Link.Name},     {"unit", of.Options.Unit},
          {"addr", of.Options.Addr},  {"lang", of.Language},
          {"ended", ended},           {"good", ended ? nlohmann::ordered_json(of.Good) : nlohmann::ordered_json()},
          {"steps", std::move(steps)}};
}

}  // namespace ixocontroller
