#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr double kSizeTolerance = 1e-12;                              // mm
constexpr const char* kGasElements[] = {"GasAir", "GasO2", "GasN2"};  // of the gas types from 1
constexpr const char* kItemElement = "GasCaliItem";
constexpr const char* kTableElement = "DAAdjustTable";

bool SameSize(double a, double b) { return std::abs(a - b) <= kSizeTolerance; }

struct TEntry {
  double Volt = 0.0;
  double Press = 0.0;
  std::string Place;
};

TProblem Unusable(const std::string& place, const std::string& what) {
  return {.What = Format(Tr("the stored table is not used: %s"), what.c_str()),
          .Where = GasCaliConfigFile().string() + ": " + place,
          .Why = {},
          .Remedy = Tr("correct the entry, or calibrate the gas again")};
}

TResult<TEntry> ReadEntry(const TConfigSection& section) {
  TEntry entry{.Place = section.Path()};
  const auto read = [&](const char* name, double& value) {
    const std::string text = section.GetText(name, "");
    const auto number = ParseNumber<double>(text);
    value = number.value_or(0.0);
    return number ? std::string() : Format(Tr("%s \"%s\" is not a number"), name, text.c_str());
  };
  for (const std::string& wrong : {read("Volt", entry.Volt), read("Press", entry.Press)})
    if (!wrong.empty()) return Unusable(entry.Place, wrong);
  if (entry.Volt < 0.0 || entry.Volt > kFullScaleVolt)
    return Unusable(entry.Place, Format(Tr("%s V is outside 0 to 10 V"), ValueText(entry.Volt).c_str()));
  if (entry.Press < 0.0) return Unusable(entry.Place, Format(Tr("%s bar is below 0"), ValueText(entry.Press).c_str()));
  return entry;
}

TResult<> CheckEntries(const TConfigSection& table) {
  std::vector<TEntry> entries;
  for (const TConfigSection& section : table.Children("Item")) {
    auto entry = ReadEntry(section);
    if (!entry) return entry.Problem();
    entries.push_back(*std::move(entry));
  }
  std::ranges::stable_sort(entries, {}, &TEntry::Volt);
  for (std::size_t i = 1; i < entries.size(); ++i)
    if (const TEntry& below = entries[i - 1], &entry = entries[i]; entry.Press < below.Press)
      return Unusable(entry.Place, Format(Tr("the pressure falls from %s bar at %s V to %s bar at %s V"),
                                          ValueText(below.Press).c_str(), ValueText(below.Volt).c_str(),
                                          ValueText(entry.Press).c_str(), ValueText(entry.Volt).c_str()));
  if (entries.size() == 1) return Unusable(entries[0].Place, Tr("a single point is no curve"));
  if (!entries.empty() && entries.back().Press <= entries.front().Press)
    return Unusable(table.Path(),
                    Format(Tr("the pressure is %s bar at every voltage"), ValueText(entries.front().Press).c_str()));
  return {};
}

}  // namespace

std::filesystem::path GasCaliConfigFile() {
  const TMachineConfig* const config = MachineConfig();
  return config && !config->File().empty() ? config->File().parent_path() / kGasTablesFile : std::filesystem::path();
}

void CopyTable(const TDAAdjustTable& from, TDAAdjustTable& to) {
  std::vector<std::pair<double, double>> entries;
  entries.reserve(static_cast<std::size_t>(from.GetCount()));
  for (std::int32_t i = 0; i < from.GetCount(); ++i)
    entries.emplace_back(from.GetItem(i)->Press, from.GetItem(i)->Volt);
  to.Clear();
  for (const auto& [press, volt] : entries) to.Add(press, volt);
}

// --- TGasCaliItem ---

void TGasCaliItem::Publish(TPublisher& p) {
  p.Field("NozzType", NozzType);
  p.Field("NozzSize", NozzSize);
  p.Field("RecordData", RecordData);
  p.Child(kTableElement, DAAdjustTable);
}

std::int64_t TCaliItemCom::Compare(const TGasCaliItem& a, const TGasCaliItem& b) {
  if (const int types = a.NozzType.compare(b.NozzType)) return types;
  constexpr double kHighest = 9.2e18;  // what 64 bits hold
  const double steps = std::trunc((a.NozzSize - b.NozzSize) * 10000);
  if (steps >= kHighest) return std::numeric_limits<std::int64_t>::max();
  if (steps <= -kHighest) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(steps);
}

// --- TGasBraCaliConfig ---

void TGasBraCaliConfig::Publish(TPublisher& p) { p.List(kItemElement, FItems); }

void TGasBraCaliConfig::SaveToXmlNode(TXmlNode node) {
  if (!node) return;
  const bool changed = node.Context().Changed;
  const std::string before = node.OuterText();
  node.RemoveChildren();
  // Kept: by the exact size; sizes that Compare takes for equal would leave no order that sorting needs.
  FItems.StableSort([](const TGasCaliItem& a, const TGasCaliItem& b) {
    const int types = a.NozzType.compare(b.NozzType);
    return types < 0 || (types == 0 && a.NozzSize < b.NozzSize);
  });
  TXmlSubConfig::SaveToXmlNode(node);
  if (node.OuterText() == before) node.Context().Changed = changed;
}

std::int32_t TGasBraCaliConfig::Find(std::string_view nozzType, double nozzSize) const {
  for (std::int32_t i = 0; i < FItems.Count(); ++i) {
    const TGasCaliItem& item = *FItems.Get(i);
    if (item.NozzType == nozzType && SameSize(item.NozzSize, nozzSize)) return i;
  }
  return -1;
}

TDAAdjustTable* TGasBraCaliConfig::GetTable(std::string_view nozzType, double nozzSize) const {
  TGasCaliItem* const item = FItems.Get(Find(nozzType, nozzSize));
  return item ? &item->DAAdjustTable : nullptr;
}

void TGasBraCaliConfig::AddOrSetTable(std::string_view nozzType, double nozzSize, const TDAAdjustTable& table) {
  TDAAdjustTable* stored = GetTable(nozzType, nozzSize);
  if (!stored) {
    TGasCaliItem& item = FItems.AddNew();
    item.NozzType = nozzType;
    item.NozzSize = nozzSize;
    stored = &item.DAAdjustTable;
  }
  CopyTable(table, *stored);
}

void TGasBraCaliConfig::DeleteTable(std::string_view nozzType, double nozzSize) {
  FItems.Delete(Find(nozzType, nozzSize));
}

// --- TGasCaliConfig ---

void TGasCaliConfig::Publish(TPublisher& p) {
  p.Child(kGasElements[0], FAir);
  p.Child(kGasElements[1], FO2);
  p.Child(kGasElements[2], FN2);
}

void TGasCaliConfig::Open() {
  if (const auto loaded = Load(GasCaliConfigFile(), mfDefaults); !loaded)
    LogMsg(lkWarning, 0, loaded.Problem().Text() + Tr("; the stored gas calibrations count as none"));
}

bool TGasCaliConfig::SaveTables(std::string* problem) {
  if (const auto aside = MoveAside(); !aside) {
    LogMsg(lkError, 0, aside.Problem().Text());
    if (problem) *problem = aside.Problem().Text();
    return false;
  }
  const auto saved = Save();
  if (problem) *problem = saved ? *saved : saved.Problem().Text();
  return saved.Ok();
}

TResult<> TGasCaliConfig::CheckTable(std::int32_t gasType, std::string_view nozzType, double nozzSize) const {
  if (gasType < 1 || gasType > static_cast<std::int32_t>(std::size(kGasElements))) return {};
  const TConfigSection gas = TConfigSection(Document().RootHandle(), "").Child(kGasElements[gasType - 1]);
  std::vector<TConfigSection> items;
  for (const TConfigSection& item : gas.Children(kItemElement)) {
    const double size = ParseNumber<double>(item.GetText("NozzSize", "")).value_or(0.0);
    if (item.GetText("NozzType", "") == nozzType && SameSize(size, nozzSize)) items.push_back(item);
  }
  if (items.empty()) return {};
  if (items.size() > 1)
    return Unusable(items[1].Path(),
                    Format(Tr("it is a second table of this nozzle, beside %s"), items[0].Path().c_str()));
  return CheckEntries(items[0].Child(kTableElement));
}

TGasBraCaliConfig* TGasCaliConfig::GetGasConfig(std::int32_t gasType) {
  switch (gasType) {
    case 1: return &FAir;
    case 2: return &FO2;
    case 3: return &FN2;
    default: return nullptr;
  }
}

TDAAdjustTable* TGasCaliConfig::GetDAAdjustTable(std::int32_t gasType, std::string_view nozzType, double nozzSize) {
  const TGasBraCaliConfig* const gas = GetGasConfig(gasType);
  return gas ? gas->GetTable(nozzType, nozzSize) : nullptr;
}

void TGasCaliConfig::SetDAAdjustTable(std::int32_t gasType, std::string_view nozzType, double nozzSize,
                                      const TDAAdjustTable& table) {
  if (TGasBraCaliConfig* const gas = GetGasConfig(gasType)) gas->AddOrSetTable(nozzType, nozzSize, table);
}

}  // namespace ixocamglue
