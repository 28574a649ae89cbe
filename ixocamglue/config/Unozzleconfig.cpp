#include "ixocamglue/config/Unozzleconfig.h"

#include <algorithm>
#include <limits>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

std::int64_t CellKey(std::int32_t row, std::int32_t col) { return std::int64_t{row} * (std::int64_t{1} << 32) + col; }

}  // namespace

void TInportParamsConfig::Publish(TPublisher& p) {
  p.Field("Port", Port).Within(bdFittedInport.Or(0));
  p.Field("Level", Level);
}

void TNozzleItem::Publish(TPublisher& p) {
  p.Field("ID", ID);
  p.Field("Name", Name);
  p.Field("PosRow", PosRow);
  p.Field("PosCol", PosCol);
}

void TNozzlePosItem::Publish(TPublisher& p) {
  p.Field("Row", Row);
  p.Field("Col", Col);
  p.Field("X", X).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("Y", Y).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("Z", Z).Unit(uMm).Within(bdAxisZ.Or(0));
  p.Field("UninstZ", UninstZ).Unit(uMm).Within(bdAxisZ.Or(0));
  p.Field("UseDiffZ", UseDiffZ);
  p.Field("InstCnt", InstCnt);
  p.Field("UnInstCnt", UnInstCnt);
  p.Field("AlignCnt", AlignCnt);
  p.Field("InstSpeed", InstSpeed);
  p.Field("UnInstSpeed", UnInstSpeed);
  p.Field("AlignSpeed", AlignSpeed);
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
  p.Field("RowCount", FRowCount, 0, kCount);
  p.Field("ColCount", FColCount, 0, kCount);
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
      return Format("the cell of row %d, column %d is taken by PosItem[%zu]", row, col, i + 1);
  }
  return {};
}

TNozzlePosItem* TNozzlePosItems::GetPos(std::int32_t row, std::int32_t col) {
  if (row < 0 || row >= FRowCount || col < 0 || col >= FColCount) return nullptr;
  FCells.Resize(FRowCount, FColCount);  // by name, a count can change without its setter
  return FCells.Items[static_cast<std::size_t>(row * FColCount + col)].get();
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
      auto& item = items[static_cast<std::size_t>(row * cols + col)];
      if (row < FRows && col < FCols) item = std::move(Items[static_cast<std::size_t>(row * FCols + col)]);
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
      auto* const cell = inside ? &cells[static_cast<std::size_t>(item->Row * cols + item->Col)] : nullptr;
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
  p.Field("Slow", Slow).Unit(uMmPerS);
  p.Field("Medium", Medium).Unit(uMmPerS);
  p.Field("High", High).Unit(uMmPerS);
  p.Field("FixedStep", FixedStep);
  p.Field("FixedDistance", FixedDistance).Unit(uMm);
}

void TNozzleChangeConfig::Publish(TPublisher& p) {
  p.Field("OutCapOpen", OutCapOpen).Within(bdFittedOutport.Or(0));
  p.Field("OutCapClose", OutCapClose).Within(bdFittedOutport.Or(0));
  p.Field("OutStageUp", OutStageUp).Within(bdFittedOutport.Or(0));
  p.Field("OutStageDown", OutStageDown).Within(bdFittedOutport.Or(0));
  p.Child("InCapOpenOK", InCapOpenOK);
  p.Child("InCapCloseOK", InCapCloseOK);
  p.Child("InStageUpOK", InStageUpOK);
  p.Child("InStageDownOK", InStageDownOK);
  p.Field("MotorAxis", MotorAxis);
  p.Field("CapCaliAfterChange", CapCaliAfterChange);
  p.Field("ChangeNozzleEnabled", ChangeNozzleEnabled);
  p.Field("MotorDir", MotorDir);
  p.Field("LiftHeightAfterUn", LiftHeightAfterUn).Unit(uMm);
  p.Field("LiftPosAfterIn", LiftPosAfterIn).Unit(uMm);
  p.Field("ZMoveLowSpeed", ZMoveLowSpeed).Unit(uMmPerS);
  p.Field("ZMoveHighSpeed", ZMoveHighSpeed).Unit(uMmPerS);
  p.Field("ReplaceStyle", ReplaceStyle);
  p.Field("InstallID", InstallID);
  p.Field("UninstallID", UninstallID);
  p.Field("ZDis", ZDis, 20.0).Unit(uMm);
  p.Field("Version", Version);
  p.Child("NozzlePosItems", NozzlePosItems);
  p.Child("Jog", Jog);
  p.Child("NozzleItems", NozzleItems);
}

}  // namespace ixocamglue
