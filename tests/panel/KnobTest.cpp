#include <cmath>
#include <fstream>
#include <limits>
#include <optional>

#include <gmock/gmock.h>

#include "controller/panel/PanelHost.h"
#include "fixture/Installed.h"
#include "fixture/OwnConfig.h"
#include "fixture/Texts.h"
#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

using testing::HasSubstr;

class KnobTest : public testing::Test, protected TOwnConfig {
 protected:
  void Load(const std::string& xml) {
    ASSERT_EQ(TOwnConfig::Load(xml), "");
    FJog.Load(Config);
    FInstalled.emplace(Config);
  }
  std::string Stored() const { return FileText(File); }
  bool Flag(const char* name) const { return FParams.GetBool(name, false); }
  double Speed() const { return FParams.GetDouble("JogSpeed", -1.0); }

  std::optional<TInstalled<TMachineConfig>> FInstalled;
  TJogSections FJog;
  TNcParams FParams;
  TAllInstalled<TJogSections, TNcParams> FServices{FJog, FParams};
};

TEST_F(KnobTest, AFreshConfigurationGivesTheDefaults) {
  Load("<MachineConfig/>");
  TKnob knob;
  for (const TSpeedData& xy : {knob.XYSpeed.ShowSpeed, knob.XYSpeed.UsedSpeed}) {
    EXPECT_EQ(std::tuple(xy.Init, xy.LowSpeed, xy.NormalSpeed, xy.HighSpeed), std::tuple(0.0, 10.0, 100.0, 200.0));
  }
  for (const TSpeedData& z : {knob.ZSpeed.ShowSpeed, knob.ZSpeed.UsedSpeed}) {
    EXPECT_EQ(std::tuple(z.Init, z.LowSpeed, z.NormalSpeed, z.HighSpeed), std::tuple(10.0, 10.0, 50.0, 100.0));
  }
  EXPECT_FALSE(knob.GetDHEnabled());
}

TEST_F(KnobTest, EachLevelAppliesItsSpeeds) {
  Load(R"(<MachineConfig DHMode="2">
  <JogXY LowJogSpeed="11" NormalJogSpeed="111" HighJogSpeed="222"/>
  <JogZ LowJogSpeed="12.3" NormalJogSpeed="51" HighJogSpeed="101"/>
</MachineConfig>)");
  TKnob knob;
  EXPECT_TRUE(knob.GetDHEnabled());
  std::vector<std::pair<TSpeedState, TSpeedState>> seen;
  knob.BeforeCheckSpeedState = [&](TSpeedState value) { seen.emplace_back(knob.GetSpeedState(), value); };

  knob.SetSpeedState(ssLow);
  EXPECT_TRUE(seen.empty()) << "in force already";
  EXPECT_EQ(Speed(), -1.0);

  knob.ZSpeed.ShowSpeed.NormalSpeed = 52;  // each Z record takes its own
  knob.SetSpeedState(ssNormal);
  EXPECT_EQ(std::tuple(Flag("JogFast"), Flag("JogSlow"), Speed()), std::tuple(false, false, 111.0));
  EXPECT_EQ(knob.ZSpeed.UsedSpeed.Init, 51.0);
  EXPECT_EQ(knob.ZSpeed.ShowSpeed.Init, 52.0);
  EXPECT_EQ(FJog.Z(0).JogSpeed, 51.0F);
  EXPECT_EQ(FJog.Z(1).JogSpeed, 51.0F);

  knob.XYSpeed.UsedSpeed.HighSpeed = 250;
  knob.SetSpeedState(ssHigh);
  EXPECT_EQ(std::tuple(Flag("JogFast"), Flag("JogSlow"), Speed()), std::tuple(true, false, 250.0));
  EXPECT_EQ(knob.ZSpeed.UsedSpeed.Init, 51.0) << "the high level leaves it";
  EXPECT_EQ(FJog.XY().HighJogSpeed, 250.0);
  EXPECT_EQ(FJog.Z(1).HighJogSpeed, 101.0F);

  knob.SetSpeedState(ssLow);
  EXPECT_EQ(std::tuple(Flag("JogFast"), Flag("JogSlow"), Speed()), std::tuple(false, true, 11.0));
  EXPECT_EQ(FJog.Z(0).JogSpeed, 12.3F) << "a 32-bit float";
  using testing::Pair;
  EXPECT_THAT(seen, testing::ElementsAre(Pair(ssLow, ssNormal), Pair(ssNormal, ssHigh), Pair(ssHigh, ssLow)));
  EXPECT_THAT(Stored(), HasSubstr(R"(HighJogSpeed="250")"));
}

TEST_F(KnobTest, SavingKeepsWhatItDoesNotKnow) {
  const std::string before = R"(<?xml version="1.0"?>
<!-- of the builder -->
<MachineConfig>
  <Own a="1">text</Own>
  <JogXY LowJogSpeed="10.0" NormalJogSpeed="100" HighJogSpeed="200" Extra="x"/>
  <JogZ Head="1" AxisNo="2" LowJogSpeed="10" NormalJogSpeed="50" HighJogSpeed="100" JogSpeed="10"/>
</MachineConfig>
)";
  Load(before);
  TKnob knob;
  knob.SaveConfig();
  EXPECT_EQ(Stored(), before) << "nothing has changed, so nothing is written";
  knob.XYSpeed.ShowSpeed.LowSpeed = 12.5;
  knob.SaveConfig();
  std::string after = before;
  after.replace(after.find("10.0"), 4, "12.5");
  EXPECT_EQ(Stored(), after) << "one head: no section for the second";
  EXPECT_EQ(knob.XYSpeed.UsedSpeed.LowSpeed, 10.0);
  knob.LoadConfig();
  EXPECT_EQ(knob.XYSpeed.UsedSpeed.LowSpeed, 12.5);

  std::ofstream(File) << "<MachineConfig><broken";
  knob.XYSpeed.ShowSpeed.LowSpeed = 13;
  knob.SaveConfig();
  const auto saved = FJog.Save();
  ASSERT_FALSE(saved);
  EXPECT_THAT(saved.Problem().Text(), HasSubstr("not saved"));
  EXPECT_EQ(Stored(), "<MachineConfig><broken") << "what cannot be read is never overwritten";
}

TEST_F(KnobTest, SpeedsThatAreTooLowFailLast) {
  for (const char* high : {"0.01", "0", "-5"}) {
    Load(std::string(R"(<MachineConfig><JogXY HighJogSpeed=")") + high + R"("/></MachineConfig>)");
    TKnob knob;
    EXPECT_THAT([&] { knob.SetSpeedState(ssNormal); },
                testing::Throws<EDesignFault>(
                    testing::AllOf(testing::Property(&EDesignFault::what, testing::StrEq("JogSpeed too low")),
                                   testing::Property(&EDesignFault::Unit, testing::StrEq("uKnob")))));
    EXPECT_EQ(knob.GetSpeedState(), ssNormal);
    EXPECT_EQ(Speed(), 100.0);
    EXPECT_THAT(Stored(), HasSubstr("NormalJogSpeed"));
    FInstalled.reset();
  }
  Load("<MachineConfig/>");
  TKnob knob;
  knob.XYSpeed.UsedSpeed.NormalSpeed = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(knob.SetSpeedState(ssNormal), EDesignFault);
}

TEST_F(KnobTest, WithoutAConfigurationNothingIsSetOrSaved) {
  TKnob knob;
  EXPECT_EQ(knob.XYSpeed.UsedSpeed.NormalSpeed, 100.0);
  knob.BeforeCheckSpeedState = [](TSpeedState) { ADD_FAILURE() << "nothing happens"; };
  knob.SetSpeedState(ssHigh);
  knob.SaveConfig();
  EXPECT_EQ(knob.GetSpeedState(), ssLow);
  EXPECT_EQ(Speed(), -1.0);
}

TEST_F(KnobTest, TheOperatorIsToldWhichSpeedsCannotBe) {
  EXPECT_EQ(CheckJogSpeeds(10, 100, 200, 200), "");
  EXPECT_EQ(CheckJogSpeeds(10, 10, 10, 200), "");
  EXPECT_THAT(CheckJogSpeeds(0.01, 100, 200, 1600), HasSubstr("0.01"));
  EXPECT_THAT(CheckJogSpeeds(10, std::nan(""), 200, 1600), HasSubstr("nan"));
  EXPECT_THAT(CheckJogSpeeds(10, 300, 200, 1600), HasSubstr("10、300、200"));
  EXPECT_THAT(CheckJogSpeeds(10, 100, 1601, 1600), HasSubstr("1601"));
}

}  // namespace
}  // namespace ixocamglue::test
