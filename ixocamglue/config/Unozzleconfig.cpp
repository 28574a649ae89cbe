#include "ixocamglue/config/Unozzleconfig.h"

#include <algorithm>
#include <limits>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

std::int64_t CellKey(std::int32_t row, std::int32_t col) {
  return static_cast<std::int64_t>(std::uint64_t{static_cast<std::uint32_t>(row)} << 32 |
                                   static_cast<std::uint32_t>(col));
}

// Where a cell of a grid with `cols` columns stands in its list.
std::size_t CellIndex(std::int32_t row, std::int32_t col, std::int32_t cols) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

}  // namespace

void TInportParamsConfig::Publish(TPublisher& p) {
  p.Field("Port", Port).Within(bdFittedInport.Or(0)).Text(FWhat);
  p.Field("Level", Level).Within(0, 1).Text(TrMark("Level of that input that means yes: 1 on, 0 off"));
}

void TNozzleItem::Publish(TPublisher& p) {
  p.Field("ID", ID).Within(bdAtLeast(1)).Text(TrMark("Number by which this nozzle is named in a change"));
  p.Field("Name", Name).Text(TrMark("Name of the nozzle as the operator knows it"));
  p.Field("PosRow", PosRow).Within(0, 99).Text(TrMark("Row of the nozzle's slot in the rack, counted from 0"));
  p.Field("PosCol", PosCol).Within(0, 99).Text(TrMark("Column of the nozzle's slot in the rack, counted from 0"));
}

void TNozzlePosItem::Publish(TPublisher& p) {
  p.Field("Row", Row).Text(TrMark("Row of this slot in the rack, counted from 0"));
  p.Field("Col", Col).Text(TrMark("Column of this slot in the rack, counted from 0"));
  p.Field("X", X).Unit(uMm).Within(bdAxisX.Or(0)).Text(TrMark("X at which the head stands over this slot"));
  p.Field("Y", Y).Unit(uMm).Within(bdAxisY.Or(0)).Text(TrMark("Y at which the head stands over this slot"));
  p.Field("Z", Z).Unit(uMm).Within(bdAxisZ.Or(0)).Text(TrMark("Z of the head when it takes the nozzle of this slot"));
  p.Field("UninstZ", UninstZ)
      .Unit(uMm)
      .Within(bdAxisZ.Or(0))
      .Text(TrMark("Z of the head when it leaves a nozzle in this slot, with UseDiffZ"));
  p.Field("UseDiffZ", UseDiffZ)
      .Text(TrMark("Whether leaving a nozzle has a Z of its own, otherwise that of taking it"));
  p.Field("InstCnt", InstCnt).Unit(uTurns).Within(bdAtLeast(0)).Text(TrMark("How far a nozzle is screwed on"));
  p.Field("UnInstCnt", UnInstCnt).Unit(uTurns).Within(bdAtLeast(0)).Text(TrMark("How far a nozzle is screwed off"));
  p.Field("AlignCnt", AlignCnt)
      .Unit(uTurns)
      .Within(bdAtLeast(0))
      .Text(TrMark("How far a nozzle is turned to find its thread"));
  p.Field("InstSpeed", InstSpeed)
      .Unit(uTurnsPerS)
      .Within(bdAtLeast(0))
      .Text(TrMark("How fast a nozzle is screwed on; 0: the axis' default"));
  p.Field("UnInstSpeed", UnInstSpeed)
      .Unit(uTurnsPerS)
      .Within(bdAtLeast(0))
      .Text(TrMark("How fast a nozzle is screwed off; 0: the axis' default"));
  p.Field("AlignSpeed", AlignSpeed)
      .Unit(uTurnsPerS)
      .Within(bdAtLeast(0))
      .Text(TrMark("How fast a nozzle is turned to find its thread; 0: the axis' default"));
  p.Child("InReady", InReady);
}

void TNozzlePosItem::LoadFromXmlNode(TXmlNode node) {
  FNamesItsCell = node.HasValue("Row") || node.HasValue("Col");
  TXmlSubConfig::LoadFromXmlNode(node);
}

void TNozzlePosItems::SaveToXmlNode(TXmlNode node) {
  FCells.Resize(FRowCount, FColCount);
  TXmlSubConfig::SaveToXmlNode(node);
}

void TNozzlePosItems::Publish(TPublisher& p) {
  constexpr TFieldRule kCount{.Min = 0, .Max = kMaxCount};
  p.Field("RowCount", FRowCount, 0, kCount).Text(TrMark("How many rows of slots the rack has"));
  p.Field("ColCount", FColCount, 0, kCount).Text(TrMark("How many columns of slots the rack has"));
  p.List("PosItem", FCells);
}

std::string TNozzlePosItems::RefusesInItem(const TXmlSubConfig& item, std::string_view name,
                                           std::string_view value) const {
  const auto* const moved = dynamic_cast<const TNozzlePosItem*>(&item);
  const auto number = ParseNumber<std::int32_t>(value);
  const bool isRow = SameFolded(name, "Row");
  if (!moved || !number || !(isRow || SameFolded(name, "Col"))) return {};
  const std::int32_t row = isRow ? *number : moved->Row;
  const std::int32_t col = isRow ? moved->Col : *number;
  for (std::size_t i = 0; i < FCells.Items.size(); ++i) {
    const TNozzlePosItem& other = *FCells.Items[i];
    if (&other != moved && other.Row == row && other.Col == col)
      return Format(Tr("the cell of row %d, column %d (counted from 1) is taken by PosItem[%zu]"), row + 1, col + 1,
                    i + 1);
  }
  return {};
}

TNozzlePosItem* TNozzlePosItems::GetPos(std::int32_t row, std::int32_t col) {
  if (row < 0 || row >= FRowCount || col < 0 || col >= FColCount) return nullptr;
  FCells.Resize(FRowCount, FColCount);  // by name, a count can change without its setter
  return FCells.Items[CellIndex(row, col, FColCount)].get();
}

bool TNozzlePosItems::SetPos(std::int32_t row, std::int32_t col, const TNozzlePosItem& item) {
  TNozzlePosItem* const cell = GetPos(row, col);
  if (!cell) return false;
  *cell = item;
  cell->Row = row;
  cell->Col = col;
  return true;
}

bool TNozzlePosItems::SetRowCount(std::int32_t count) {
  if (count < 0 || count > kMaxCount) return false;
  FRowCount = count;
  FCells.Resize(FRowCount, FColCount);
  return true;
}

bool TNozzlePosItems::SetColCount(std::int32_t count) {
  if (count < 0 || count > kMaxCount) return false;
  FColCount = count;
  FCells.Resize(FRowCount, FColCount);
  return true;
}

void TNozzlePosItems::TCells::Clear() {
  Items.clear();
  FRead.clear();
  FRows = FCols = 0;
}

std::unique_ptr<TXmlSubConfig> TNozzlePosItems::TCells::MakeItem() const {
  auto item = std::make_unique<TNozzlePosItem>();
  item->Initialize();
  return item;
}

std::unique_ptr<TNozzlePosItem> TNozzlePosItems::TCells::MakeCell(std::int32_t row, std::int32_t col) {
  auto item = std::make_unique<TNozzlePosItem>();
  item->Initialize();
  item->Row = row;
  item->Col = col;
  TakeOver(*item, CellKey(row, col));
  return item;
}

void TNozzlePosItems::TCells::Resize(std::int32_t rows, std::int32_t cols) {
  if (rows == FRows && cols == FCols) return;
  std::vector<std::unique_ptr<TNozzlePosItem>> items(static_cast<std::size_t>(rows * cols));
  for (std::int32_t row = 0; row < rows; ++row)
    for (std::int32_t col = 0; col < cols; ++col) {
      auto& item = items[CellIndex(row, col, cols)];
      if (row < FRows && col < FCols) item = std::move(Items[CellIndex(row, col, FCols)]);
      if (!item) item = MakeCell(row, col);
    }
  Items = std::move(items);
  FRows = rows;
  FCols = cols;
}

void TNozzlePosItems::TCells::EndLoad() {
  FRows = FCols = 0;
  Items.clear();
  const std::int32_t rows = FOwner.FRowCount;
  const std::int32_t cols = FOwner.FColCount;
  std::vector<std::unique_ptr<TNozzlePosItem>> cells(static_cast<std::size_t>(rows * cols));
  for (const bool named : {true, false})  // those that name a cell first: each has one after a save
    for (std::size_t i = 0; i < FRead.size(); ++i) {
      auto& item = FRead[i];
      if (!item || item->NamesItsCell() != named) continue;
      if (!named && cols > 0) {
        item->Row = static_cast<std::int32_t>(i) / cols;
        item->Col = static_cast<std::int32_t>(i) % cols;
      }
      const bool inside = item->Row >= 0 && item->Row < rows && item->Col >= 0 && item->Col < cols;
      auto* const cell = inside ? &cells[CellIndex(item->Row, item->Col, cols)] : nullptr;
      if (cell && !*cell)
        *cell = std::move(item);
      else
        LeaveAlone(*item, CellKey(item->Row, item->Col));
    }
  FRead.clear();
  Items = std::move(cells);
  for (std::size_t i = 0; i < Items.size(); ++i)
    if (!Items[i]) Items[i] = MakeCell(static_cast<std::int32_t>(i) / cols, static_cast<std::int32_t>(i) % cols);
  FRows = rows;
  FCols = cols;
}

void TNozzleItems::Publish(TPublisher& p) { p.List("NozzleItem", FItems); }

TNozzleItem* TNozzleItems::NewItem() {
  std::int32_t highest = 0;
  for (const auto& item : FItems) highest = std::max(highest, item->ID);
  TNozzleItem& item = FItems.AddNew();
  item.ID = highest < std::numeric_limits<std::int32_t>::max() ? highest + 1 : highest;
  return &item;
}

TNozzleItem* TNozzleItems::Search(std::int32_t id) const {
  const auto it = std::ranges::find_if(FItems, [&](const auto& item) { return item->ID == id; });
  return it == FItems.end() ? nullptr : it->get();
}

TNozzleItem* TNozzleItems::Search(std::string_view name) const {
  const auto it = std::ranges::find_if(FItems, [&](const auto& item) { return item->Name == name; });
  return it == FItems.end() ? nullptr : it->get();
}

void TJogConfig::Publish(TPublisher& p) {
  p.Field("Slow", Slow)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Slow speed at which the head is jogged while slots are taught"));
  p.Field("Medium", Medium)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Middle speed at which the head is jogged while slots are taught"));
  p.Field("High", High)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("High speed at which the head is jogged while slots are taught"));
  p.Field("FixedStep", FixedStep).Text(TrMark("Whether jogging while slots are taught is by a fixed distance"));
  p.Field("FixedDistance", FixedDistance)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Distance of one jog while slots are taught, with FixedStep"));
}

void TNozzleChangeConfig::Publish(TPublisher& p) {
  p.Field("OutCapOpen", OutCapOpen)
      .Within(bdFittedOutport.Or(0))
      .Text(TrMark("Output that opens the rack's cap; 0: none"));
  p.Field("OutCapClose", OutCapClose)
      .Within(bdFittedOutport.Or(0))
      .Text(TrMark("Output that closes the rack's cap; 0: none"));
  p.Field("OutStageUp", OutStageUp)
      .Within(bdFittedOutport.Or(0))
      .Text(TrMark("Output that raises the rack's stage; 0: none"));
  p.Field("OutStageDown", OutStageDown)
      .Within(bdFittedOutport.Or(0))
      .Text(TrMark("Output that lowers the rack's stage; 0: none"));
  p.Child("InCapOpenOK", InCapOpenOK);
  p.Child("InCapCloseOK", InCapCloseOK);
  p.Child("InStageUpOK", InStageUpOK);
  p.Child("InStageDownOK", InStageDownOK);
  p.Field("MotorAxis", MotorAxis)
      .Within(bdAtLeast(2).Or(0))
      .Text(TrMark("Axis that screws nozzles on and off, counted from 0; X and Y cannot"));
  p.Field("CapCaliAfterChange", CapCaliAfterChange)
      .Text(TrMark("Whether the height sensor is calibrated after a nozzle change"));
  p.Field("ChangeNozzleEnabled", ChangeNozzleEnabled)
      .Text(TrMark("Whether nozzles are changed by the machine; without it a change is refused"));
  p.Field("MotorDir", MotorDir).Text(TrMark("Whether negative turns screw a nozzle on, otherwise positive ones"));
  p.Field("LiftHeightAfterUn", LiftHeightAfterUn)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How far the head rises after it has left a nozzle"));
  p.Field("LiftPosAfterIn", LiftPosAfterIn)
      .Unit(uMm)
      .Within(bdAxisZ)
      .Text(TrMark("Z to which the head rises after it has taken a nozzle"));
  p.Field("ZMoveLowSpeed", ZMoveLowSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of Z into and out of a slot; 0: the axis' default"));
  p.Field("ZMoveHighSpeed", ZMoveHighSpeed)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Speed of Z down to above a slot; 0: the axis' default"));
  p.Field("ReplaceStyle", ReplaceStyle).Text(TrMark("How a nozzle is replaced; the interface's own number"));
  p.Field("InstallID", InstallID).Within(bdAtLeast(0)).Text(TrMark("Nozzle that a change puts on; 0: none"));
  p.Field("UninstallID", UninstallID)
      .Within(bdAtLeast(0))
      .Text(TrMark("Nozzle that a change takes off, which the head wears; 0: none"));
  p.Field("ZDis", ZDis, 20.0)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Distance above a slot from which Z goes slowly"));
  p.Field("Version", Version).Text(TrMark("Version of the rack's settings; the interface's own number"));
  p.Child("NozzlePosItems", NozzlePosItems);
  p.Child("Jog", Jog);
  p.Child("NozzleItems", NozzleItems);
}

}  // namespace ixocamglue
