#include <iostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Ucamglue.h"
#include "ixocamglue/support/Format.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
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

struct TInfoOptions {
  std::optional<std::filesystem::path> Machine, State;
  std::string Language = "zh";
  bool Json = false;
};

}  // namespace

int RunInfo(const std::filesystem::path& file, const std::string& language, bool json, std::ostream& out) {
  TMachineFile machine;
  machine.Load(file);
  const TOperatorTexts texts("info", language);

  const TGasTypeDic& gases = *GasTypeDic();
  const std::string model = machine.Config().CutHead().Model;
  TDADic da;
  TADDic ad;
  CalcAllPorts(&machine.Config(), da, ad);
  if (json) {
    nlohmann::ordered_json document;
    auto& list = document["gases"] = nlohmann::ordered_json::array();
    for (std::int32_t i = 0; i < gases.GetCount(); ++i)
      list.push_back({{"value", gases.GetValue(i)}, {"name", gases.GetDesc(i)}, {"daPort", gases.GetDAPort(i)}});
    document["cutHeadType"] = GetCutHeadType();
    document["cutHeadModel"] = model;
    document["focusCaption"] = GetFocusModelCaption(model);
    document["maxSpeed"] = GetMachineMaxSpeed();
    document["daPorts"] = JsonPorts(da);
    document["adPorts"] = JsonPorts(ad);
    out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return 0;
  }
  out << "Gas types:\n";
  for (std::int32_t i = 0; i < gases.GetCount(); ++i)
    out << Format("  %d  %s  (DA port %d)\n", gases.GetValue(i), gases.GetDesc(i).c_str(), gases.GetDAPort(i));
  out << Format("Cutting head: type %d, model \"%s\"\n", GetCutHeadType(), model.c_str());
  out << "Focus caption: " << GetFocusModelCaption(model) << '\n';
  out << "Maximum speed: " << ValueText(GetMachineMaxSpeed()) << " mm/s\n";
  out << "DA ports (key: port): " << Ports(da) << '\n';
  out << "AD ports (key: port): " << Ports(ad) << '\n';
  return 0;
}

void AddInfoCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TInfoOptions>();
  CLI::App* const info = program.add_subcommand("info", "Print what the machine has, as its file says");
  AddJsonOption(*info, options->Json);
  AddMachineOptions(*info, options->Machine, options->State);
  AddLanguageOption(*info, options->Language);
  info->footer(
      "Gas types with their DA port, cutting head, focus caption, maximum speed, analogue ports by their key.\n"
      "\n"
      "Exit codes: 0 success, 2 wrong command line, 3 the machine file cannot be used.\n"
      "\n"
      "Software is not the emergency stop.");
  info->callback([options, &run] {
    run = [options] {
      return RunInfo(MachineFile(options->Machine, options->State), options->Language, options->Json, std::cout);
    };
  });
}

}  // namespace ixocut
