#include "controller/config/ConfigJson.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Ucamglue.h"
#include "ixocamglue/support/Lists.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/config/ConfigCommand.h"

namespace ixocut {
namespace {

std::string Ports(const std::map<std::int32_t, std::int32_t>& dic) {
  std::string text;
  for (const auto& [key, port] : dic) AddToList(text, Format("%d: %d", key, port));
  return text;
}

nlohmann::ordered_json JsonPorts(const std::map<std::int32_t, std::int32_t>& dic) {
  auto json = nlohmann::ordered_json::object();
  for (const auto& [key, port] : dic) json[ValueText(key)] = port;
  return json;
}

}  // namespace

int RunInfo(const TControllerSettings& settings, TConsole& console) {
  TMachineFile machine(Machines());
  const TInstalled<TMachineConfig> installed(machine.Config());
  const std::filesystem::path file = settings.MachineFile();
  machine.Load(file, xdPlaces);
  const TOperatorTexts texts(console);

  const TGasTypeDic& gases = *GasTypeDic();
  const std::string model = machine.Config().CutHead().Model;
  TDADic da;
  TADDic ad;
  CalcAllPorts(&machine.Config(), da, ad);
  // In the sections that the lines below come from.
  const auto wrong = machine.Wrong({"GasList", "GasBranches", "Slaves", "CutHead", "HeightController", "NcParams"});
  TellWrong(file, wrong);
  const std::string focus = GetFocusModelCaption(model);
  auto list = nlohmann::ordered_json::array();
  console.Say(Tr("Gas types:"));
  for (std::int32_t i = 0; i < gases.GetCount(); ++i) {
    const std::int32_t value = gases.GetValue(i), port = gases.GetDAPort(i);
    list.push_back({{"value", value}, {"name", gases.GetDesc(i)}, {"daPort", port}});
    console.Say(Format(Tr("  %d  %s  (DA port %d)"), value, gases.GetDesc(i).c_str(), port));
  }
  console.Say(Format(Tr("Cutting head: type %d, model \"%s\""), GetCutHeadType(), model.c_str()));
  console.Say(Format(Tr("Focus caption: %s"), focus.c_str()));
  console.Say(Format(Tr("Maximum speed: %s mm/s"), ValueText(GetMachineMaxSpeed()).c_str()));
  console.Say(Format(Tr("DA ports (key: port): %s"), Ports(da).c_str()));
  console.Say(Format(Tr("AD ports (key: port): %s"), Ports(ad).c_str()));
  return console.Print({{"gases", list},
                        {"cutHeadType", GetCutHeadType()},
                        {"cutHeadModel", model},
                        {"focusCaption", focus},
                        {"maxSpeed", GetMachineMaxSpeed()},
                        {"daPorts", JsonPorts(da)},
                        {"adPorts", JsonPorts(ad)},
                        {"wrong", JsonOf(wrong)}});
}

void AddInfoCommand(TCommand program) {
  auto [info, options] =
      AddOwn<TControllerSettings>(program, "info", Tr("Print what the machine has, as its file says"), RunInfo);
  AddJsonOption(info, options.Json);
  AddMachineSettings(info, options);
  info.Help({.Notes = Tr("Gas types with their DA port, cutting head, focus caption, maximum speed, analogue ports by\n"
                         "their key. What is wrong in these sections of the file is told on the error output."),
             .ExitCodes = Tr("0 success, 2 wrong command line, 3 the machine file cannot be used"),
             .Examples = {"ixocut info", "ixocut info --machine machine.xml --json"}});
}

}  // namespace ixocut
