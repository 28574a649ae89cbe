#include "ixocamglue/alarms/Almintprt.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/alarms/Ualarmtexts.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr const char* kLocaleEvent = "AlarmType";
constexpr const char* kUserDefPrefix = "UserDefAlarm#";
constexpr std::int64_t kUserDefBase = 1000;
constexpr std::int64_t kMultiBitBase = 2000;

struct TMember {
  const char* Name;
  std::string TAlarmRec::*Field;
};
constexpr std::array<TMember, 8> kMembers{{{"HelpID", &TAlarmRec::HelpID},
                                           {"BrifDesc", &TAlarmRec::BrifDesc},
                                           {"Code", &TAlarmRec::Code},
                                           {"AlarmDesc", &TAlarmRec::AlarmDesc},
                                           {"Category", &TAlarmRec::Category},
                                           {"Alarmtype", &TAlarmRec::Alarmtype},
                                           {"Reason", &TAlarmRec::Reason},
                                           {"Solution", &TAlarmRec::Solution}}};

std::string TextOf(const nlohmann::json& entry, const char* member) {
  const auto found = entry.find(member);
  if (found == entry.end()) return {};
  if (found->is_string()) return found->get<std::string>();
  return found->is_number() || found->is_boolean() ? found->dump() : std::string();
}

TAlarmRec ConfiguredRec(std::int64_t number, const TAlarmConfigItem& item) {
  TAlarmRec rec;
  rec.HelpID = rec.Code = kUserDefPrefix + std::to_string(number);
  rec.BrifDesc = rec.AlarmDesc = item.Desc;
  rec.Alarmtype = SAlarm.Get();
  rec.Reason = item.Reason;
  rec.Solution = item.Solution;
  return rec;
}

}  // namespace

bool TAlarmInterpreter::AddDefinitions(TDict& dict, std::string_view json) {
  const auto list = nlohmann::json::parse(WithoutMark(json), nullptr, false);
  if (!list.is_array()) return false;  // what cannot be parsed is no array either
  for (const auto& entry : list) {
    if (!entry.is_object()) continue;
    TAlarmRec rec;
    for (const TMember& member : kMembers) rec.*member.Field = TextOf(entry, member.Name);
    std::string id = rec.HelpID;
    dict.insert_or_assign(std::move(id), std::move(rec));
  }
  return true;
}

void TAlarmInterpreter::InitUserDefinedAlarm(TDict& dict, const TAlarmsConfig& config) {
  for (std::int32_t i = 0; i < config.GetCount(); ++i) {
    const TAlarmConfigItem* const item = config.GetItem(i);
    if (!item || IsBlank(item->Reason) || IsBlank(item->Solution)) continue;
    TAlarmRec rec = ConfiguredRec(kUserDefBase + item->Number, *item);
    std::string id = rec.HelpID;
    dict.insert_or_assign(std::move(id), std::move(rec));
  }
}

void TAlarmInterpreter::InitMulityAlarm(TDict& dict, const TAlarmsConfig& config, std::size_t group) {
  if (!config.Groups[group]) return;
  std::int64_t base = 0;
  for (std::size_t i = 0; i < group; ++i)
    if (config.Groups[i]) base += std::int64_t{1} << (config.Groups[i]->BitCount & 31);
  // Kept: no test of reason and solution here, unlike the user-defined alarms.
  for (const auto& [value, item] : config.Groups[group]->Items) {
    if (!item) continue;
    TAlarmRec rec = ConfiguredRec(kMultiBitBase + base + value, *item);
    std::string id = rec.HelpID;
    dict.insert_or_assign(std::move(id), std::move(rec));
  }
}

void TAlarmInterpreter::InitAlarmDict() {
  const TLanguageScope own("");  // whoever lets it be rebuilt
  TAppSys* const app = AppSys();
  const auto service = app ? app->Supports<IAlarmInterpreterSvc>(IID_IAlarmInterpreterSvc) : nullptr;
  if (!service) throw std::runtime_error(SNoAlarmInterpreterSvc);
  auto dict = std::make_shared<TDict>();
  std::string json;
  try {
    json = service->GetAlarmDefinitions();
  } catch (...) {  // like a list that is no JSON
  }
  if (AddDefinitions(*dict, json)) {
    TAlarmsConfig read;
    const TAlarmsConfig* config = AlarmsConfig();
    if (!config) {
      read = TAlarmsConfig::FromSection(ConfigSection("Alarms"));
      config = &read;
    }
    InitUserDefinedAlarm(*dict, *config);
    for (std::size_t group = 0; group < config->Groups.size(); ++group) InitMulityAlarm(*dict, *config, group);
  }
  TGuard guard(FLock);
  FDict = std::move(dict);
  FOthers.clear();
}

std::shared_ptr<const TAlarmInterpreter::TDict> TAlarmInterpreter::Dict() const {
  TGuard guard(FLock);
  return FDict;
}

std::shared_ptr<const TAlarmInterpreter::TDict> TAlarmInterpreter::Translate(const TDict& own,
                                                                             std::string_view language) {
  TAppSys* const app = AppSys();
  const auto service = app ? app->Supports<IAlarmInterpreterSvc>(IID_IAlarmInterpreterSvc) : nullptr;
  auto dict = std::make_shared<TDict>(own);
  try {
    if (service) (void)AddDefinitions(*dict, service->GetAlarmDefinitionsIn(language));
  } catch (...) {  // it stays as it is
  }
  for (const auto& [identifier, rec] : own) {  // what the machine's file says has no language
    if (!identifier.starts_with(kUserDefPrefix)) continue;
    TAlarmRec& shown = (*dict)[identifier] = rec;
    shown.Alarmtype = SAlarm.Get();
  }
  return dict;
}

std::shared_ptr<const TAlarmInterpreter::TDict> TAlarmInterpreter::ThreadDict() const {
  auto own = Dict();
  if (!GThreadCatalogue) return own;
  const std::string language = ThreadLanguage();
  if (language == OwnLanguage()) return own;
  {
    TGuard guard(FLock);
    if (const auto known = FOthers.find(language); known != FOthers.end()) return known->second;
  }
  auto dict = Translate(*own, language);
  TGuard guard(FLock);
  if (FDict == own) FOthers[language] = dict;  // not of texts that were rebuilt meanwhile
  return dict;
}

std::vector<std::string> TAlarmInterpreter::Identifiers() const {
  const auto dict = Dict();
  std::vector<std::string> identifiers;
  for (const auto& [identifier, rec] : *dict) identifiers.push_back(identifier);
  std::ranges::sort(identifiers);
  return identifiers;
}

bool TAlarmInterpreter::TryGetAlarmRec(std::string_view id, TAlarmRec& rec) const {
  const auto dict = ThreadDict();
  const auto found = dict->find(id);
  rec = found == dict->end() ? TAlarmRec{} : found->second;
  return found != dict->end();
}

bool TAlarmInterpreter::TryGetAlarmRec(const TNcAlarmMsg& msg, TAlarmRec& rec) const {
  if (TryGetAlarmRec(msg.Id(), rec)) {
    if (rec.AlarmDesc.empty()) rec.AlarmDesc = msg.Desc();
    return true;
  }
  AddMsgToDBTable(msg);
  rec.HelpID = rec.Code = msg.Id();
  rec.BrifDesc = rec.AlarmDesc = msg.Desc();
  rec.Alarmtype = SAlarm.Get();
  return false;
}

namespace {

std::string FieldOf(const TAlarmInterpreter& interpreter, const TNcAlarmMsg& msg, std::string TAlarmRec::*field) {
  TAlarmRec rec;
  interpreter.TryGetAlarmRec(msg, rec);
  return std::move(rec.*field);
}

}  // namespace

std::string TAlarmInterpreter::GetAlarmCode(const TNcAlarmMsg& msg) const {
  return FieldOf(*this, msg, &TAlarmRec::Code);
}
std::string TAlarmInterpreter::GetAlarmModule(const TNcAlarmMsg& msg) const {
  return FieldOf(*this, msg, &TAlarmRec::Category);
}
std::string TAlarmInterpreter::GetAlarmType(const TNcAlarmMsg& msg) const {
  return FieldOf(*this, msg, &TAlarmRec::Alarmtype);
}
std::string TAlarmInterpreter::GetAlarmReason(const TNcAlarmMsg& msg) const {
  return FieldOf(*this, msg, &TAlarmRec::Reason);
}
std::string TAlarmInterpreter::GetAlarmSolution(const TNcAlarmMsg& msg) const {
  return FieldOf(*this, msg, &TAlarmRec::Solution);
}
std::string TAlarmInterpreter::GetAlarmDesc(const TNcAlarmMsg& msg) const {
  TAlarmRec rec;
  TryGetAlarmRec(msg, rec);
  return std::string(msg.Desc());
}

namespace {

std::atomic<TAlarmInterpreter*> GInterpreter{nullptr};
std::atomic<bool> GMayCreate{false};

// On a change of language, possibly before this unit's texts were reloaded by anybody else.
void ReloadAlarmTexts() {
  try {
    if (TLocaleReader* const reader = LocaleReader()) (void)reader->Apply(kAlarmTexts);
    if (TAlarmInterpreter* const interpreter = GInterpreter.load(std::memory_order_acquire))
      interpreter->InitAlarmDict();
  } catch (...) {
    LogMsg(lkException, 0, DescribeException(std::current_exception()), "TAlarmInterpreter");
  }
}

}  // namespace

TAlarmInterpreter* AlarmInterpreter() {
  if (TAlarmInterpreter* const made = GInterpreter.load(std::memory_order_acquire)) return made;
  if (!GMayCreate.load(std::memory_order_acquire)) return nullptr;
  // Built without a lock, since services are called; of two threads that come first at once, one keeps its own.
  auto built = std::make_unique<TAlarmInterpreter>();
  TAlarmInterpreter* other = nullptr;
  if (!GInterpreter.compare_exchange_strong(other, built.get(), std::memory_order_acq_rel)) return other;
  TAlarmInterpreter* const made = built.release();
  if (TLocaleManager* const manager = LocaleManager()) manager->RegisterEvents(kLocaleEvent, ReloadAlarmTexts);
  return made;
}

void StartAlarmInterpreter() {
  GMayCreate.store(true, std::memory_order_release);
  try {
    AlarmInterpreter();
  } catch (...) {
    LogMsg(lkException, 0, DescribeException(std::current_exception()), "TAlarmInterpreter");
  }
}

void FreeAlarmInterpreter() {
  GMayCreate.store(false, std::memory_order_release);
  if (TLocaleManager* const manager = LocaleManager()) manager->UnRegisterEvents(kLocaleEvent);
  delete GInterpreter.exchange(nullptr, std::memory_order_acq_rel);
}

}  // namespace ixocamglue
