// The file of gas calibration tables.
#include <fstream>
#include <limits>

#include <gmock/gmock.h>

#include "fixture/Faults.h"
#include "fixture/OwnConfig.h"
#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class GasTables : public testing::Test, protected TOwnConfig {
 protected:
  GasTables() : TOwnConfig("<MachineConfig/>") {}
  void Write(const char* name, std::string_view text) { std::ofstream(Dir.Path() / name) << text; }
  std::string Read(const std::string& name) { return FileText(Dir.Path() / name); }
  static TDAAdjustTable Table(double press) {
    TDAAdjustTable table;
    table.Add(0, 0);
    table.Add(press, 10);
    return table;
  }
  static std::vector<std::string> Names(const TGasBraCaliConfig& gas) {
    std::vector<std::string> names;
    for (const auto& item : gas.Items()) names.push_back(item->NozzType + " " + ValueText(item->NozzSize));
    return names;
  }

  TInstalled<TMachineConfig> FInstalled{Config};
  TFaultWatch Faults;
};

constexpr const char* kFile = "GasCalibration.config";

TEST_F(GasTables, AreFoundReplacedAndSavedInOrder) {
  {
    TGasCaliConfig config;
    config.Open();
    for (const auto& [type, size] : std::vector<std::pair<const char*, double>>{
             {"S", 2.0}, {"D", 1.5}, {"S", 1.20001}, {"S", 1.2}, {"S", 0.1 + 0.2}})
      config.SetDAAdjustTable(2, type, size, Table(size));
    config.SetDAAdjustTable(4, "S", 2.0, Table(1));
    TDAAdjustTable* const kept = config.GetDAAdjustTable(2, "S", 2.0);
    config.SetDAAdjustTable(2, "S", 2.0, *kept);  // its own table
    EXPECT_EQ(kept->GetCount(), 2);
    config.SetDAAdjustTable(2, "S", 2.0, Table(9));
    EXPECT_TRUE(config.SaveTables());
    EXPECT_EQ(kept->GetItem(1)->Press, 9) << "the same table, also after the save has sorted";
  }
  TGasCaliConfig config;
  config.Open();
  EXPECT_THAT(Names(*config.GetGasConfig(2)),
              ElementsAre("D 1.5", "S 0.30000000000000004", "S 1.2", "S 1.20001", "S 2"));
  ASSERT_TRUE(config.GetDAAdjustTable(2, "S", 0.3)) << "the same size within the tolerance";
  EXPECT_EQ(config.GetDAAdjustTable(2, "S", 0.3)->GetItem(1)->Press, 0.1 + 0.2) << "exactly";
  EXPECT_FALSE(config.GetDAAdjustTable(2, "s", 2.0) || config.GetDAAdjustTable(1, "S", 2.0) ||
               config.GetDAAdjustTable(4, "S", 2.0) || config.GetDAAdjustTable(2, "S", 2.0 + 1e-11) ||
               config.GetGasConfig(0));

  const std::string before = Read(kFile);
  std::filesystem::remove(Dir.Path() / (std::string(kFile) + ".bak"));
  EXPECT_TRUE(config.SaveTables());
  EXPECT_EQ(Read(kFile), before);
  EXPECT_FALSE(std::filesystem::exists(Dir.Path() / (std::string(kFile) + ".bak")))
      << "nothing changed, nothing written";
}

TEST_F(GasTables, OfDuplicatesTheFirstIsFoundAndAllStay) {
  Write(kFile,
        "<GasCalibration><GasAir Old='1'><!-- by hand --><Other/>"
        "<gascaliitem NozzType='S' NozzSize='2'><DAAdjustTable><Item Press='1' Volt='2'/></DAAdjustTable></gascaliitem>"
        "<GasCaliItem NozzType='S' NozzSize='2'/><GasCaliItem NozzType='D' NozzSize='x'/></GasAir><Mine/>"
        "</GasCalibration>");
  TGasCaliConfig config;
  config.Open();
  EXPECT_EQ(config.GetDAAdjustTable(1, "S", 2)->GetCount(), 1);
  config.SetDAAdjustTable(1, "A", 1, Table(1));
  EXPECT_TRUE(config.SaveTables());
  const std::string text = Read(kFile);
  EXPECT_THAT(text, HasSubstr("Old=")) << "attributes stay";
  EXPECT_THAT(text, HasSubstr("<Mine"));
  EXPECT_THAT(text, testing::Not(testing::AnyOf(HasSubstr("Other"), HasSubstr("by hand"), HasSubstr("gascaliitem"))))
      << "a gas element is written anew";
  TGasCaliConfig again;
  again.Open();
  EXPECT_THAT(Names(*again.GetGasConfig(1)), ElementsAre("A 1", "D 0", "S 2", "S 2"));
}

TEST_F(GasTables, ABrokenFileCountsAsEmptyAndIsMovedAsideBySaving) {
  Write(kFile, "<GasCalibration><GasAir>");
  Write("GasCalibration.config.broken", "an older one");
  TGasCaliConfig config;
  config.Open();
  EXPECT_FALSE(config.GetDAAdjustTable(1, "S", 2));
  EXPECT_EQ(Read(kFile), "<GasCalibration><GasAir>") << "reading changes nothing";
  config.SetDAAdjustTable(1, "S", 2, Table(7));
  EXPECT_TRUE(config.SaveTables());
  EXPECT_EQ(Read("GasCalibration.config.broken"), "an older one");
  EXPECT_EQ(Read("GasCalibration.config.broken2"), "<GasCalibration><GasAir>");
  TGasCaliConfig again;
  again.Open();
  ASSERT_TRUE(again.GetDAAdjustTable(1, "S", 2));
}

TEST_F(GasTables, ComparesByTypeThenBySizeInSteps) {
  const auto item = [](const char* type, double size) {
    TGasCaliItem made;
    made.NozzType = type;
    made.NozzSize = size;
    return made;
  };
  EXPECT_LT(TCaliItemCom::Compare(item("D", 9), item("S", 1)), 0);
  EXPECT_EQ(TCaliItemCom::Compare(item("S", 1.00009), item("S", 1)), 0);
  EXPECT_EQ(TCaliItemCom::Compare(item("S", 1.5), item("S", 1)), 5000);
  EXPECT_EQ(TCaliItemCom::Compare(item("S", 1e300), item("S", 1)), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(TCaliItemCom::Compare(item("S", -1e300), item("S", 1)), std::numeric_limits<std::int64_t>::min());
}

}  // namespace
}  // namespace ixocamglue::test
