// The results of gas calibrations: per gas and nozzle the table that gives the valve's voltage for a wanted pressure.
//
// They live in a file of their own beside the machine file. State thread, or while no calibration runs; no locks.
// Nozzle sizes in mm, pressures in bar, voltages in V. Gas types are numbered as in config/Libmachinecfg.h; tables
// exist for 1 "Air", 2 "O2" and 3 "N2" only. Of a gas type outside these there is none, and nothing is stored. A
// nozzle's size may be any number; what does not say how it fails does not.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "ixocamglue/platform/xml/MachineSections.h"
#include "ixocamglue/platform/xml/XmlConfig.h"

namespace ixocamglue {

inline constexpr const char* kGasTablesFile = "GasCalibration.config";
// kGasTablesFile in the folder of the machine file in use; empty while none is.
[[nodiscard]] std::filesystem::path GasCaliConfigFile();

class TGasCaliItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string NozzType;
  double NozzSize = 0.0;
  std::string RecordData;
  TDAAdjustTable DAAdjustTable;
};

struct TCaliItemCom {
  // By type text, then by size in whole steps of 0.0001.
  [[nodiscard]] static std::int64_t Compare(const TGasCaliItem& a, const TGasCaliItem& b);
};

// One gas.
class TGasBraCaliConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  // Kept: replaces everything inside the element, also what the records do not know; sorted by type and exact size.
  void SaveToXmlNode(TXmlNode node) override;

  // The first item of this type and size; null when there is none. A table lives until the next load of its
  // configuration, or its end.
  [[nodiscard]] TDAAdjustTable* GetTable(std::string_view nozzType, double nozzSize) const;
  void AddOrSetTable(std::string_view nozzType, double nozzSize, const TDAAdjustTable& table);  // stores a copy
  void DeleteTable(std::string_view nozzType, double nozzSize);
  [[nodiscard]] const TXmlList<TGasCaliItem>& Items() const { return FItems; }

 private:
  [[nodiscard]] std::int32_t Find(std::string_view nozzType, double nozzSize) const;

  TXmlList<TGasCaliItem> FItems;
};

// The file.
class TGasCaliConfig : public TXmlConfig {
 public:
  TGasCaliConfig() : TXmlConfig("GasCalibration") {}
  void Publish(TPublisher& p) override;

  // Reads GasCaliConfigFile(). A file that cannot be read is logged and counts as empty; a missing one is empty.
  void Open();
  // As Save, but a file that could not be read is moved aside first. False, with why in `problem`: it is not saved.
  // True with a text in `problem`: it is saved, and something about it is to be told.
  bool SaveTables(std::string* problem = nullptr);

  // Why the stored table of this gas and nozzle cannot be used, with file and entry: a number that cannot be read, a
  // voltage outside 0 to 10 V, a pressure below 0, pressures that fall while the voltage
  // rises or never rise, a single point, or a second table of the same nozzle. Of the file as it was loaded; a table
  // that is not there is no problem.
  [[nodiscard]] TResult<> CheckTable(std::int32_t gasType, std::string_view nozzType, double nozzSize) const;

  [[nodiscard]] TGasBraCaliConfig* GetGasConfig(std::int32_t gasType);  // null for a type without tables
  [[nodiscard]] TDAAdjustTable* GetDAAdjustTable(std::int32_t gasType, std::string_view nozzType, double nozzSize);
  void SetDAAdjustTable(std::int32_t gasType, std::string_view nozzType, double nozzSize, const TDAAdjustTable& table);

 private:
  TGasBraCaliConfig FAir, FO2, FN2;
};

// `to` gets the entries of `from`, which may be the same table.
void CopyTable(const TDAAdjustTable& from, TDAAdjustTable& to);

}  // namespace ixocamglue
