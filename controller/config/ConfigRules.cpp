#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <set>

#include "controller/config/ConfigCheck.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

// One place for each rule, in the order of the sections that it is about.
class TRules {
 public:
  TRules(const TConfigSection& root, TMachineConfig& config, const TMachineBounds& machine,
         std::vector<TProblem>& problems)
      : FRoot(root), FConfig(config), FMachine(machine), FProblems(problems) {}

  void Check() {
    CheckAxes();
    CheckAlarms();
    Once(FRoot.Child("GasBranches").Children("GasBranch"), "DAPort", 0);  // two valves would open together
    CheckBrush("CleanRefPtX", "CleanRefPtY");
    CheckBrush("CleanRefPtX2", "CleanRefPtY2");
    CheckRack();
    CheckNozzles();
    CheckSlots();
    CheckOrigins();
    CheckStrokes();
    CheckLink();
  }

 private:
  // `why` is said of the value as the file has it.
  void Add(const TConfigSection& section, const char* name, const std::string& why) {
    FProblems.push_back(ProblemAt(section, name, section.GetText(name, ""), why));
  }

  static std::optional<std::int32_t> Number(const TConfigSection& section, const char* name) {
    return ParseNumber<std::int32_t>(section.GetText(name, ""));
  }

  // Two sections of the same number, other than `none`: the second is told of.
  void Once(const std::vector<TConfigSection>& sections, const char* name, std::optional<std::int32_t> none = {}) {
    std::map<std::int32_t, const TConfigSection*> first;
    for (const TConfigSection& section : sections) {
      const auto number = Number(section, name);
      if (!number || number == none) continue;
      const auto [it, isNew] = first.emplace(*number, &section);
      if (!isNew) Add(section, name, Format(Tr("given by %s already"), it->second->Path().c_str()));
    }
  }

  void CheckAxes() {
    const auto count = static_cast<std::int32_t>(FRoot.Child("Axes").Children("Axis").size());
    const TConfigSection gantry = FRoot.Child("Gantry");
    for (const char* const name : {"XAxis", "YAxis"})
      if (const auto axis = Number(gantry, name); axis && *axis > count)
        Add(gantry, name, Format(Tr("there are %d axes"), count));
    Once(FRoot.Children("JogZ"), "Head");
  }

  void CheckAlarms() {
    const TConfigSection alarms = FRoot.Child("Alarms");
    const auto own = alarms.Children("UserAlarm");
    Once(own, "Number");
    for (const TConfigSection& alarm : own)
      for (const char* const name : {"Reason", "Solution"})
        if (IsBlank(alarm.GetText(name, "")))
          Add(alarm, name, Tr("an alarm without its reason and its solution is not shown"));
    for (const TConfigSection& group : alarms.Children("MultiBitGroup")) {
      const auto items = group.Children("Item");
      Once(items, "Value");
      const auto bits = Number(group, "Bits");
      if (!bits || *bits < 0 || *bits > 30) continue;
      for (const TConfigSection& item : items)
        if (const auto value = Number(item, "Value"); value && *value >= 1 << *bits)
          Add(item, "Value", Format(Tr("%d bits never read more than %d"), *bits, (1 << *bits) - 1));
    }
  }

  void CheckBrush(const char* x, const char* y) {
    const TConfigSection section = FRoot.Child("AutoCleanHead");
    TAutoCleanConfig clean;
    section.LoadOver(clean);
    const bool second = std::string_view(x) == "CleanRefPtX2";
    const TPoint3 brush = second ? clean.GetCleanPos2() : clean.GetCleanPos();
    if (!clean.Initialized || (second && !clean.UseDoubleBrushes) || !IsConfigured(brush)) return;
    const bool alongX = clean.CleanCurveDir == 0;
    const auto check = [&](const char* name, double middle, double size, const TAxisConfig& axis) {
      const double low = middle - size / 2;
      const double high = middle + size / 2;
      if (low >= axis.SoftLimitNeg && high <= axis.SoftLimitPos) return;
      if (middle < axis.SoftLimitNeg || middle > axis.SoftLimitPos) return;  // told of by its own bound
      Add(section, name,
          Format(Tr("the way over the brush leads from %s to %s mm, the axis from %s to %s mm"),
                 NumberText(low).c_str(), NumberText(high).c_str(), NumberText(axis.SoftLimitNeg).c_str(),
                 NumberText(axis.SoftLimitPos).c_str()));
    };
    check(x, brush.X, alongX ? clean.CleanCurveLength : clean.CleanCurveWidth, FMachine.X);
    check(y, brush.Y, alongX ? clean.CleanCurveWidth : clean.CleanCurveLength, FMachine.Y);
  }

  // Items outside the grid, and a second one of a cell, are kept in the file and not used.
  void CheckRack() {
    const TConfigSection grid = FRoot.Child("NozzleChange").Child("NozzlePosItems");
    const std::int32_t rows = Number(grid, "RowCount").value_or(0);
    const std::int32_t cols = Number(grid, "ColCount").value_or(0);
    const auto items = grid.Children("PosItem");
    std::map<std::pair<std::int32_t, std::int32_t>, const TConfigSection*> cells;
    std::vector<std::size_t> order;  // those that name a cell come first
    for (const bool named : {true, false})
      for (std::size_t i = 0; i < items.size(); ++i)
        if (named == !(items[i].GetText("Row", "").empty() && items[i].GetText("Col", "").empty())) order.push_back(i);
    for (const std::size_t i : order) {
      const TConfigSection& item = items[i];
      std::int32_t row = Number(item, "Row").value_or(0);
      std::int32_t col = Number(item, "Col").value_or(0);
      if (item.GetText("Row", "").empty() && item.GetText("Col", "").empty() && cols > 0) {
        row = static_cast<std::int32_t>(i) / cols;
        col = static_cast<std::int32_t>(i) % cols;
      }
      const auto inside = [&](const char* name, std::int32_t at, const char* count, std::int32_t most) {
        if (at >= 0 && at < most) return true;
        FProblems.push_back(
            {.What = Format(Tr("%d is outside the grid (%s is %d, and the file counts from 0); the item is not used"),
                            at, count, most),
             .Where = item.Path() + "/" + name});
        FUnused.insert(item.Path());
        return false;
      };
      const bool rowInside = inside("Row", row, "RowCount", rows);
      if (!inside("Col", col, "ColCount", cols) || !rowInside) continue;
      const auto [it, isNew] = cells.emplace(std::pair(row, col), &item);
      if (isNew) continue;
      FUnused.insert(item.Path());
      FProblems.push_back(
          {.What = Format(Tr("row %d, column %d (counted from 1) is the cell of %s already; this item is not used"),
                          row + 1, col + 1, it->second->Path().c_str()),
           .Where = item.Path() + "/Row"});
    }
  }

  void CheckNozzles() {
    const TConfigSection changer = FRoot.Child("NozzleChange");
    const TConfigSection grid = changer.Child("NozzlePosItems");
    const auto nozzles = changer.Child("NozzleItems").Children("NozzleItem");
    Once(nozzles, "ID");
    std::map<std::pair<std::int32_t, std::int32_t>, const TConfigSection*> slots;
    for (const TConfigSection& nozzle : nozzles) {
      const std::int32_t row = Number(nozzle, "PosRow").value_or(0);
      const std::int32_t col = Number(nozzle, "PosCol").value_or(0);
      bool inside = true;
      for (const auto& [name, at, count] : {std::tuple("PosRow", row, "RowCount"), {"PosCol", col, "ColCount"}})
        if (const std::int32_t most = Number(grid, count).value_or(0); at < 0 || at >= most) {
          Add(nozzle, name,
              Format(Tr("the rack has no such slot (%s is %d, and the file counts from 0)"), count, most));
          inside = false;
        }
      if (!inside) continue;
      const auto [it, isNew] = slots.emplace(std::pair(row, col), &nozzle);
      if (!isNew)
        Add(nozzle, "PosRow",
            Format(Tr("row %d, column %d (counted from 1) is the slot of %s already"), row + 1, col + 1,
                   it->second->Path().c_str()));
    }
    const auto known = [&](const TConfigSection& section, const char* name) {
      const auto id = Number(section, name);
      if (id && *id > 0 && std::ranges::none_of(nozzles, [&](const auto& n) { return Number(n, "ID") == id; }))
        Add(section, name, Tr("the machine has no such nozzle"));
    };
    known(changer, "InstallID");
    known(changer, "UninstallID");
    known(FRoot.Child("Simulator").Child("Rack"), "HeadNozzle");
  }

  // Where the head goes over, into and out of the slots.
  void CheckSlots() {
    const TConfigSection section = FRoot.Child("NozzleChange");
    TNozzleChangeConfig changer;
    section.LoadOver(changer);
    if (!changer.ChangeNozzleEnabled) return;
    const TAxisConfig& axis = FMachine.Z;
    const auto check = [&](const TConfigSection& item, const char* name, const char* of, double z) {
      if (z >= axis.SoftLimitNeg && z <= axis.SoftLimitPos) return false;
      Add(item, name,
          Format(Tr("with %s the head would have to go to Z %s mm, the axis has %s to %s mm"), of,
                 NumberText(z).c_str(), NumberText(axis.SoftLimitNeg).c_str(), NumberText(axis.SoftLimitPos).c_str()));
      return true;
    };
    for (const TConfigSection& item : section.Child("NozzlePosItems").Children("PosItem")) {
      if (FUnused.contains(item.Path())) continue;
      TNozzlePosItem slot;
      item.LoadOver(slot);
      const auto z = static_cast<double>(slot.Z);
      const double down = slot.UseDiffZ ? static_cast<double>(slot.UninstZ) : z;
      if (slot.X == 0.0L && slot.Y == 0.0L && slot.Z == 0.0L) continue;
      if (z < axis.SoftLimitNeg || z > axis.SoftLimitPos) continue;  // told of by its own bound
      if (check(item, "Z", "ZDis", z - changer.ZDis)) continue;
      check(item, slot.UseDiffZ ? "UninstZ" : "Z", "LiftHeightAfterUn",
            down - static_cast<double>(changer.LiftHeightAfterUn));
    }
  }

  void CheckOrigins() {
    const TConfigSection origins = FRoot.Child("UCSOrgName");
    const std::int32_t count = Number(origins, "UCSNum").value_or(0);
    const auto check = [&](const TConfigSection& section, const char* name) {
      if (const auto index = Number(section, name); index && *index > 0 && *index >= count)
        Add(section, name, Format(Tr("there are %d coordinate origins, counted from 0"), count));
    };
    check(origins, "LastUCSOrg");
    for (const char* const client : {"ClientWork", "ClientDebug", "ClientVision"})
      check(FRoot.Child("IxoCutParams").Child(client), "UCSIndex");
    Once(FRoot.Child("MarkPoints").Children("MarkPoint"), "FlagIndex");
  }

  // With the very function by which the machine judges them.
  void CheckStrokes() {
    TStrokeMeasurement strokes;
    const TConfigSection section = FRoot.Child("StrokeMeasurement");
    section.LoadOver(strokes);
    if (!strokes.IsFinished) return;
    for (const auto& [range, measured, limit] : strokes.Misfits(FConfig))
      Add(section, range,
          Format(Tr("%s mm was measured, which is less than the soft limit of %s mm"),
                 NumberText(static_cast<double>(measured)).c_str(), NumberText(static_cast<double>(limit)).c_str()));
  }

  void CheckLink() {
    const TConfigSection link = FRoot.Child("ModbusStore").Child("DataTransConfig");
    const std::string text = link.GetText("CommSettings", "");
    if (text.empty()) return;
    if (const auto settings = ParseSerialSettings(text); !settings)
      FProblems.push_back({.What = settings.Problem().What, .Where = link.Path() + "/CommSettings"});
  }

  const TConfigSection& FRoot;
  TMachineConfig& FConfig;
  const TMachineBounds& FMachine;
  std::vector<TProblem>& FProblems;
  std::set<std::string> FUnused;  // paths of items of the rack
};

}  // namespace

void CheckRules(const TConfigSection& root, TMachineConfig& config, const TMachineBounds& machine,
                std::vector<TProblem>& problems) {
  TRules(root, config, machine, problems).Check();
}

}  // namespace ixocontroller
