// `ixocut token` and `ixocut console`: who may ask the controller.
#include "commandline/Table.h"
#include "controller/access/Tokens.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocut/Command.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

struct TTokenOptions : TControllerSettings {
  std::string Name;
  std::string Role = "operator";
};

ixocontroller::TTokenFile TokenFileOf(const TTokenOptions& options) {
  return ixocontroller::TTokenFile(ixocontroller::StateFolder(options.State));
}

int RunTokenAdd(const TTokenOptions& options, TConsole& console) {
  const ixocontroller::TRole role = ixocontroller::RoleOf(options.Role).OrThrow(pbRequest);
  ixocontroller::CheckTokenName(options.Name).OrThrow(pbRequest);
  const std::string token = TokenFileOf(options).Add(options.Name, role).OrThrow(pbRefused);
  console.Say(token);
  return console.Print({{"name", options.Name}, {"role", options.Role}, {"token", token}});
}

int RunTokenList(const TTokenOptions& options, TConsole& console) {
  const auto tokens = TokenFileOf(options).List().OrThrow(pbUnusable);
  auto list = nlohmann::ordered_json::array();
  TRows rows{{Tr("name"), Tr("role"), Tr("made")}};
  for (const ixocontroller::TToken& token : tokens) {
    const char* const role = ixocontroller::RoleWord(token.Role);
    list.push_back({{"name", token.Name}, {"role", role}, {"created", token.Created}});
    rows.push_back({token.Name, role, ShownTime(token.Created)});
  }
  console.SayTable(rows);
  return console.Print(list);
}

int RunTokenRevoke(const TTokenOptions& options, TConsole& console) {
  TokenFileOf(options).Revoke(options.Name).OrThrow(pbRefused);
  console.Say(Format(Tr("%s: may no longer ask"), options.Name.c_str()));
  return console.Print({{"name", options.Name}});
}

// The code in the link lets in whoever has it: a terminal's owner, never a log.
int RunConsole(TTokenOptions options, TConsole& console) {
  (void)ixocontroller::RoleOf(options.Role).OrThrow(pbRequest);
  if (!console.OnTerminal())
    throw EProblem(pbRequest, {.What = Tr("the link is shown on a terminal only"),
                               .Why = Tr("who has it may command the machine"),
                               .Remedy = Tr("a program uses a token: \"ixocut token add NAME\"")});
  const TAttached attachment(options);
  const auto answer = attachment.Controller().Post("/api/v1/session/code", {{"role", options.Role}});
  console.Say(answer.at("link").get<std::string>());
  console.Say(Tr("good once, for 60 s"));
  return kExitSuccess;
}

}  // namespace

void AddTokenCommand(TCommand program) {
  const TCommand token = program.AddGroup("token", Tr("Who may ask the controller, and what"));
  const THelp help{.Notes = Tr("viewer reads, operator commands, service may also change what protects the machine. A "
                               "token is shown once; what is\nkept is its hash. They hold for the controller that "
                               "runs without its being told."),
                   .ExitCodes = Tr("0 success, 1 refused, 2 wrong command line, 3 a file cannot be used"),
                   .Examples = {"ixocut token add kitchen --role viewer", "ixocut token list --json",
                                "ixocut token revoke kitchen"}};
  token.Help(help);
  const auto add = [&](TCommand parent, const char* name, const char* about, auto action, bool named, bool hasRole,
                       const char* example) {
    auto [command, options] = AddOwn<TTokenOptions>(parent, name, about, action);
    if (named) command.Text("NAME", options.Name, Tr("Its name"), "").Required();
    if (hasRole) command.Text("--role", options.Role, Tr("viewer, operator or service"), "ROLE").ShowDefault();
    AddStateOption(command, options.State);
    AddLanguageOption(command, options.Language);
    command.Help({.Notes = help.Notes, .ExitCodes = help.ExitCodes, .Examples = {example}});
    return std::pair<TCommand, TTokenOptions&>(command, options);
  };
  for (const auto& [command, options] :
       {add(token, "add", Tr("Make one and show it"), &RunTokenAdd, true, true,
            "ixocut token add kitchen --role viewer"),
        add(token, "list", Tr("Show their names and roles"), &RunTokenList, false, false, "ixocut token list --json"),
        add(token, "revoke", Tr("End one"), &RunTokenRevoke, true, false, "ixocut token revoke kitchen")})
    AddJsonOption(command, options.Json);
  auto [console, options] = add(program, "console", Tr("Make a new link for the console in a browser"), &RunConsole,
                                false, true, "ixocut console");
  AddAttachOptions(console, options.Attach, false);
  console.Help({.Notes = Tr("The link holds a code that is good once, for 60 s; it is shown on a terminal only."),
                .Examples = {"ixocut console", "ixocut console --role viewer"}});
}

}  // namespace ixocut
