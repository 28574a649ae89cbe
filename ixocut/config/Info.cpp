#include "controller/config/ConfigJson.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Ucamglue.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/config/ConfigCommand.h"

namespace ixocut {
namespace {

std::string Ports(const std::map<std::int32_t, std::int32_t>& dic) {
  std::string text;
  for (const auto& [key, port] : dic) text += (text.empty() ? "" : ", ") + Format("%d: %d", key, port);
  return text;
}

nlohmann::ordered_json JsonPorts(const std::map<std::int32_t, std::int32_t>& dic) {
  auto json = nlohmann::ordered_json::object();
  for (const auto& [key, port] : dic) json[ValueText(key)] = port;
  return json;
}

}  // namespace

int RunInfo(const TControllerSettings& settings, std::ostream& out) {
  TMachineFile machine(Machines());
  const TInstalled<TMachineConfig> installed(machine.Config());
  const std::filesystem::path file = settings.MachineFile();
  machine.Load(file, xdPlaces);
  const TOperatorTexts texts("info", settings.Language);

  const TGasTypeDic& gases = *GasTypeDic();
  const std::string model = machine.Config().CutHead().Model;
  TDADic da;
  TADDic ad;
  CalcAllPorts(&machine.Config(), da, ad);
  // In the sections that the lines below come from.
  const auto wrong = machine.Wrong({"GasList", "GasBranches", "Slaves", "CutHead", "HeightController", "NcParams"});
  TellWrong(file, wrong);
  if (settings.Json) {
    nlohmann::ordered_json result;
    auto& list = result["gases"] = nlohmann::ordered_json::array();
    for (std::int32_t i = 0; i < gases.GetCount(); ++i)
      list.push_back({{"value", gases.GetValue(i)}, {"name", gases.GetDesc(i)}, {"daPort", gases.GetDAPort(i)}});
    result["cutHeadType"] = GetCutHeadType();
    result["cutHeadModel"] = model;
    result["focusCaption"] = GetFocusModelCaption(model);
    result["maxSpeed"] = GetMachineMaxSpeed();
    result["daPorts"] = JsonPorts(da);
    result["adPorts"] = JsonPorts(ad);
    result["wrong"] = JsonOf(wrong);
    PrintDocument(out, "info", result);
    return kExitSuccess;
  }
  out << Tr("Gas types:") << '\n';
  for (std::int32_t i = 0; i < gases.GetCount(); ++i)
    out << Format(Tr("  %d  %s  (DA port %d)"), gases.GetValue(i), gases.GetDesc(i).c_str(), gases.GetDAPort(i))
        << '\n';
  out << Format(Tr("Cutting head: type %d, model \"%s\""), GetCutHeadType(), model.c_str()) << '\n'
      << Format(Tr("Focus caption: %s"), GetFocusModelCaption(model).c_str()) << '\n'
      << Format(Tr("Maximum speed: %s mm/s"), ValueText(GetMachineMaxSpeed()).c_str()) << '\n'
      << Format(Tr("DA ports (key: port): %s"), Ports(da).c_str()) << '\n'
      << Format(Tr("AD ports (key: port): %s"), Ports(ad).c_str()) << '\n';
  return kExitSuccess;
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
