// Assist records of the nozzle changer: the rack's grid, the nozzles, the jog speeds. Lengths mm, speeds mm/s. No
// locks. Nothing throws; what is not there, a place outside the grid or an index outside its list too, is null or
// false.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

// An input port and the level that means "true".
class TInportParamsConfig : public TXmlSubConfig {
 public:
  // `what` is the sentence of Port, and outlives the record.
  explicit TInportParamsConfig(const char* what = TrMark("Input that is watched; 0: none")) : FWhat(what) {}
  void Publish(TPublisher& p) override;
  std::int32_t Port = 0;
  std::int32_t Level = 0;

 private:
  const char* FWhat;
};

class TNozzleItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t ID = 0;
  std::string Name;
  std::int32_t PosRow = 0;
  std::int32_t PosCol = 0;
};

// One place of the rack.
class TNozzlePosItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  void LoadFromXmlNode(TXmlNode node) override;
  [[nodiscard]] bool NamesItsCell() const { return FNamesItsCell; }  // its element had a Row or a Col

  std::int32_t Row = 0;
  std::int32_t Col = 0;
  long double X = 0.0L;
  long double Y = 0.0L;
  long double Z = 0.0L;
  long double UninstZ = 0.0L;
  bool UseDiffZ = false;
  long double InstCnt = 0.0L;
  long double UnInstCnt = 0.0L;
  long double AlignCnt = 0.0L;
  long double InstSpeed = 0.0L;
  long double UnInstSpeed = 0.0L;
  long double AlignSpeed = 0.0L;
  TInportParamsConfig InReady{TrMark("Input that says that a nozzle lies in this slot; 0: none")};

 private:
  bool FNamesItsCell = false;
};

// The rack: RowCount x ColCount places, row-major from 0. On load an item goes to the cell it names, the first of a
// duplicate wins, and one that names none takes its place in order where that is free. What has no cell so stays in the
// file as it is, until the grid grows over an item outside: then the cell's values take its place with the next save.
class TNozzlePosItems : public TXmlSubConfig {
 public:
  static constexpr std::int32_t kMaxCount = 100;

  void Publish(TPublisher& p) override;
  void SaveToXmlNode(TXmlNode node) override;
  // A Row or Col that would put the item onto another's cell.
  [[nodiscard]] std::string RefusesInItem(const TXmlSubConfig& item, std::string_view name,
                                          std::string_view value) const override;

  // Null outside the grid.
  [[nodiscard]] TNozzlePosItem* GetPos(std::int32_t row, std::int32_t col);
  bool SetPos(std::int32_t row, std::int32_t col, const TNozzlePosItem& item);
  [[nodiscard]] std::int32_t GetRowCount() const { return FRowCount; }
  [[nodiscard]] std::int32_t GetColCount() const { return FColCount; }
  // 0..100, else false and nothing changed. Each place that remains keeps its item.
  bool SetRowCount(std::int32_t count);
  bool SetColCount(std::int32_t count);

 private:
  class TCells final : public TXmlListBase {
   public:
    explicit TCells(TNozzlePosItems& owner) : FOwner(owner) {}
    void Clear() override;
    TXmlSubConfig& AddForLoad() override { return *FRead.emplace_back(std::make_unique<TNozzlePosItem>()); }
    void EndLoad() override;
    [[nodiscard]] std::size_t Size() const override { return Items.size(); }
    TXmlSubConfig& At(std::size_t index) override { return *Items[index]; }
    [[nodiscard]] std::unique_ptr<TXmlSubConfig> MakeItem() const override;
    [[nodiscard]] bool IsOrdered() const override { return false; }  // they name their cells
    void Resize(std::int32_t rows, std::int32_t cols);

    std::vector<std::unique_ptr<TNozzlePosItem>> Items;

   private:
    std::unique_ptr<TNozzlePosItem> MakeCell(std::int32_t row, std::int32_t col);

    TNozzlePosItems& FOwner;
    std::int32_t FRows = 0;  // the size that Items has
    std::int32_t FCols = 0;
    std::vector<std::unique_ptr<TNozzlePosItem>> FRead;
  };

  std::int32_t FRowCount = 0;
  std::int32_t FColCount = 0;
  TCells FCells{*this};
};

// The nozzles that the machine owns.
class TNozzleItems : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TNozzleItem* NewItem();                                          // with the highest ID + 1; the list's
  [[nodiscard]] TNozzleItem* Search(std::int32_t id) const;        // the first of this ID, or null
  [[nodiscard]] TNozzleItem* Search(std::string_view name) const;  // exactly this name
  [[nodiscard]] std::int32_t GetCount() const { return FItems.Count(); }
  [[nodiscard]] TNozzleItem* GetItem(std::int32_t index) const { return FItems.Get(index); }
  bool Delete(std::int32_t index) { return FItems.Delete(index); }
  void Clear() { FItems.Clear(); }

 private:
  TXmlList<TNozzleItem> FItems;
};

class TJogConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  double Slow = 0.0;
  double Medium = 0.0;
  double High = 0.0;
  bool FixedStep = false;
  double FixedDistance = 0.0;
};

// "NozzleChange"
class TNozzleChangeConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TNozzlePosItem* TryGetNozzlePosItem(std::int32_t row, std::int32_t col) {
    return NozzlePosItems.GetPos(row, col);
  }
  [[nodiscard]] bool GetChangeNozzleEnabled() const { return ChangeNozzleEnabled; }
  void SetChangeNozzleEnabled(bool enabled) { ChangeNozzleEnabled = enabled; }

  std::int32_t OutCapOpen = 0;  // output ports
  std::int32_t OutCapClose = 0;
  std::int32_t OutStageUp = 0;
  std::int32_t OutStageDown = 0;
  TInportParamsConfig InCapOpenOK{TrMark("Input that says that the rack's cap is open; 0: none, then nobody waits")};
  TInportParamsConfig InCapCloseOK{TrMark("Input that says that the rack's cap is closed; 0: none, then nobody waits")};
  TInportParamsConfig InStageUpOK{TrMark("Input that says that the rack's stage is up; 0: none, then nobody waits")};
  TInportParamsConfig InStageDownOK{
      TrMark("Input that says that the rack's stage is down; 0: none, then nobody waits")};
  std::int32_t MotorAxis = 0;
  bool CapCaliAfterChange = false;
  bool ChangeNozzleEnabled = false;
  bool MotorDir = false;
  long double LiftHeightAfterUn = 0.0L;
  long double LiftPosAfterIn = 0.0L;
  long double ZMoveLowSpeed = 0.0L;
  long double ZMoveHighSpeed = 0.0L;
  std::int32_t ReplaceStyle = 0;
  std::int32_t InstallID = 0;
  std::int32_t UninstallID = 0;
  double ZDis = 0.0;
  std::int32_t Version = 0;
  TNozzlePosItems NozzlePosItems;
  TJogConfig Jog;
  TNozzleItems NozzleItems;
};

}  // namespace ixocamglue
