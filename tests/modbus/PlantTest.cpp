// The plant behind Modbus addresses: when it is dark, how its latch falls and is set again, its valves and switches.

#include <gtest/gtest.h>

#include "ixocamglue/platform/services/VirtualClock.h"
#include "machines/simulated/ModbusPlant.h"

namespace ixocamglue::test {
namespace {

class ModbusPlant : public testing::Test {
 protected:
  // With the watchdog fed every 50 ms.
  void Fed(int ms) {
    for (int i = 0; i < ms; ++i) {
      if (i % 50 == 0) Plant.Set(ptRegisters, TModbusPlant::kWatchdog, 1);
      Pass(1);
    }
  }
  void Pass(int ms) {
    for (int i = 0; i < ms; ++i) {
      Time.Sleep(1);
      Plant.CatchUp();
    }
  }
  void Coil(std::size_t addr, bool on) { Plant.Set(ptCoils, addr, on ? 1 : 0); }
  bool Input(std::size_t addr) { return Plant.Get(ptInputs, addr) != 0; }
  bool Lit() { return Input(TModbusPlant::kLight); }
  void Light() {
    Coil(TModbusPlant::kEmission, true);
    Coil(TModbusPlant::kBeam, true);
    Fed(1001);
    ASSERT_TRUE(Lit());
  }
  // What a feed and 200 ms later are reached in, from the last one on.
  std::string Last() const { return Told.empty() ? "" : Told.back(); }

  TVirtualClock Time;
  TInstalled<IClock> Installed{Time};
  TSimConfig Config = [] {
    TSimConfig config;
    config.Physics.EmissionDelayMs = 800;
    config.Physics.EmissionJitterMs = 0;
    for (TSimGasBranch& branch : config.GasBranches)
      if (TSimGasValve valve = config.GasValve(branch.GasType); true) {
        valve.Params.Noise = valve.Params.Ripple = valve.Params.Offset = 0.0;
        config.GasValves.push_back(valve);
      }
    return config;
  }();
  std::vector<std::string> Told;
  TModbusPlant Plant{Config, 1, [this](std::uint64_t, std::string_view text) { Told.emplace_back(text); }};
};

TEST_F(ModbusPlant, LightComesWithConfirmedEmissionAndGoesAtOnce) {
  Coil(TModbusPlant::kEmission, true);
  Coil(TModbusPlant::kBeam, true);
  Fed(799);
  EXPECT_FALSE(Input(TModbusPlant::kConfirmed) || Lit());
  Fed(2);
  EXPECT_TRUE(Input(TModbusPlant::kConfirmed) && Lit());
  EXPECT_EQ(Last(), "laser: beam lit");
  Coil(TModbusPlant::kBeam, false);
  EXPECT_FALSE(Lit());
  EXPECT_TRUE(Input(TModbusPlant::kConfirmed));
  Coil(TModbusPlant::kBeam, true);
  EXPECT_TRUE(Lit());
  Coil(TModbusPlant::kLoseEmission, true);
  EXPECT_FALSE(Lit() || Input(TModbusPlant::kConfirmed));
  EXPECT_FALSE(Input(TModbusPlant::kFault));
}

TEST_F(ModbusPlant, WithoutItsWatchdogItIsDarkAfter200MsAndOffAfter500) {
  Coil(4, true);
  Coil(TModbusPlant::kValves + 2, true);
  Light();
  Plant.Set(ptRegisters, TModbusPlant::kWatchdog, 1);
  Pass(200);
  EXPECT_TRUE(Lit());
  Pass(1);
  EXPECT_FALSE(Lit() || Input(TModbusPlant::kLatchOk));
  EXPECT_EQ(Plant.Get(ptCoils, TModbusPlant::kBeam) + Plant.Get(ptCoils, TModbusPlant::kEmission), 0);
  EXPECT_EQ(Plant.Get(ptCoils, 4), 1);
  Pass(300);
  EXPECT_EQ(Plant.Get(ptCoils, 4) + Plant.Get(ptCoils, TModbusPlant::kValves + 2), 0);
}

TEST_F(ModbusPlant, TheLatchIsSetAgainByAnEdgeWhileEverythingIsOff) {
  for (const std::size_t coil : {TModbusPlant::kTrip, TModbusPlant::kInterlock}) {
    Light();
    Coil(coil, true);
    EXPECT_FALSE(Lit() || Input(TModbusPlant::kLatchOk));
    EXPECT_EQ(Input(TModbusPlant::kFault), coil == TModbusPlant::kInterlock);
    Coil(TModbusPlant::kRearm, true);
    EXPECT_FALSE(Input(TModbusPlant::kLatchOk));  // what tripped it is still there
    Coil(TModbusPlant::kRearm, false);
    Coil(coil, false);
    Coil(TModbusPlant::kBeam, true);
    Coil(TModbusPlant::kRearm, true);
    EXPECT_FALSE(Input(TModbusPlant::kLatchOk));  // the beam is asked for
    Coil(TModbusPlant::kRearm, false);
    Coil(TModbusPlant::kBeam, false);
    Coil(TModbusPlant::kRearm, true);
    EXPECT_TRUE(Input(TModbusPlant::kLatchOk));
    Coil(TModbusPlant::kRearm, false);
    Fed(2000);
    EXPECT_FALSE(Lit());  // nothing comes by itself
  }
}

TEST_F(ModbusPlant, AValveFillsItsLineByItsVoltageAndOneBlowsAtATime) {
  const auto bar = [&](std::size_t gas) {
    return static_cast<std::int16_t>(Plant.Get(ptInputRegisters, TModbusPlant::kPressures + gas)) * 25.0 / 32767.0;
  };
  Plant.Set(ptRegisters, TModbusPlant::kVolts + 1, 9830);  // 3 V
  Plant.Set(ptRegisters, TModbusPlant::kVolts + 2, 16384);
  Fed(1000);
  EXPECT_LT(bar(1), 0.01);
  Coil(TModbusPlant::kValves + 1, true);
  Fed(20'000);
  const TGasValveParams params = Config.GasValve(1).Params;
  EXPECT_NEAR(bar(1), StaticBar(params, 3.0 - params.Play), 0.01);
  Coil(TModbusPlant::kValves + 2, true);
  Fed(5000);
  EXPECT_EQ(bar(1), 0.0);
  EXPECT_GT(bar(2), 1.0);
  Coil(TModbusPlant::kValves + 1, false);
  Fed(100);
  EXPECT_GT(bar(2), 1.0);
  Coil(TModbusPlant::kValves + 2, false);
  Fed(3000);
  EXPECT_LT(bar(2), 0.01);
}

TEST_F(ModbusPlant, TheCoverAnswersThePalletsChangeAndOtherAddressesAreNotThere) {
  Coil(TModbusPlant::kCover, true);
  Fed(240);
  EXPECT_FALSE(Input(4));
  Fed(20);
  EXPECT_TRUE(Input(4));
  EXPECT_TRUE(Input(TModbusPlant::kPallets + 1));
  Coil(TModbusPlant::kPallets + 2, true);
  Fed(110);
  EXPECT_FALSE(Input(TModbusPlant::kPallets + 1) || Input(TModbusPlant::kPallets + 2));
  Fed(3000);
  EXPECT_TRUE(Input(TModbusPlant::kPallets + 2));
  for (const std::size_t addr : {0u, 65u, 99u, 105u, 110u, 117u, 120u, 123u, 192u, 65535u})
    EXPECT_FALSE(Plant.Has(ptCoils, addr)) << addr;
  EXPECT_TRUE(Plant.Has(ptRegisters, 200) && Plant.Has(ptInputRegisters, 103) && Plant.Has(ptInputs, 105));
  EXPECT_FALSE(Plant.Has(ptRegisters, 107) || Plant.Has(ptInputRegisters, 200) || Plant.Has(ptInputs, 106));
}

}  // namespace
}  // namespace ixocamglue::test
