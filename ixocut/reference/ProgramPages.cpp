// The pages of what programs meet: the API, exit codes, files.
#include <nlohmann/json.hpp>

#include "commandline/CommandLine.h"
#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/reference/Reference.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

using TJson = nlohmann::ordered_json;

// The names of what a question may have behind "?".
std::string QueryText(const TJson& operation) {
  std::string text;
  for (const TJson& parameter : operation.value("parameters", TJson::array()))
    if (parameter.value("in", "") == "query") AddToList(text, Code(parameter.at("name").get<std::string>()));
  return text;
}

// The schema itself where it is named.
const TJson& Resolved(const TJson& document, const TJson& schema) {
  const auto reference = schema.find("$ref");
  if (reference == schema.end()) return schema;
  return document.at(TJson::json_pointer(reference->get<std::string>().substr(1)));
}

// The members of a body; those that are needed first.
std::string BodyText(const TJson& document, const TJson& operation) {
  const auto body = operation.find("requestBody");
  if (body == operation.end()) return "";
  const TJson& content = body->at("content");
  const auto json = content.find("application/json");
  if (json == content.end()) return Code(content.begin().key());
  const TJson& schema = Resolved(document, json->at("schema"));
  const TJson required = schema.value("required", TJson::array());
  const TJson members = schema.value("properties", TJson::object());
  std::string needed, optional;
  for (const auto& [name, member] : members.items()) {
    const bool isNeeded = std::find(required.begin(), required.end(), name) != required.end();
    AddToList(isNeeded ? needed : optional, Code(name));
  }
  if (needed.empty()) return optional;
  return "**" + needed + "**" + (optional.empty() ? "" : ", " + optional);
}

// Commands by what their exit codes are, in the order of the help. Below a command that has them they stand where they
// differ.
using TExitCodes = std::vector<std::pair<std::string, std::string>>;  // the codes; the commands

void AddExitCodes(TCommand above, const std::string& name, const std::string& codesAbove, TExitCodes& list) {
  for (const TCommand command : above.Commands()) {
    const std::string words = name + " " + command.Name();
    const std::string codes = command.Runs() ? command.ExitCodes() : std::string();
    if (command.Runs() && codes != codesAbove) {
      auto row = std::ranges::find(list, codes, &TExitCodes::value_type::first);
      if (row == list.end()) row = list.insert(list.end(), {codes, ""});
      AddToList(row->second, Code(words));
    }
    AddExitCodes(command, words, codes, list);
  }
}

const char* KindText(TStateFileKind kind) {
  switch (kind) {
    case sfWritten: return Tr("set by people: keep a copy");
    case sfGathered: return Tr("gathered: deleted, it is lost");
    case sfMadeAgain: return Tr("made again when it is missing");
  }
  return "";
}

}  // namespace

void FillApi(TPage& page, const TReferenceSources&) {
  const TJson document = TJson::parse(ReadFile(ShareFolder() / "api" / "openapi.json").OrThrow(pbUnusable));
  page.Say(Tr(
      "What can be asked of a controller that runs. `GET /api/v1/openapi.json` has the same with every schema, answer "
      "and problem. A role is the least that may ask, \"none\" anybody at this machine; \"lease\" needs the control "
      "lease in the header `Lease`. "
      "Members of the body that are needed stand in front, bold."));
  std::vector<std::string> subjects;
  const auto tag = [](const TJson& operation) {
    const TJson tags = operation.value("tags", TJson::array());
    return tags.empty() ? std::string() : tags.front().get<std::string>();
  };
  for (const auto& [path, methods] : document.at("paths").items())
    for (const auto& [method, operation] : methods.items())
      if (const std::string subject = tag(operation); std::ranges::find(subjects, subject) == subjects.end())
        subjects.push_back(subject);
  for (const std::string& subject : subjects) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& [path, methods] : document.at("paths").items())
      for (const auto& [method, operation] : methods.items()) {
        if (tag(operation) != subject) continue;
        std::string who = operation.at("x-role").get<std::string>();
        if (operation.at("x-lease").get<bool>()) who += ", lease";
        rows.push_back({Code(Capitals(method) + " " + path), operation.at("summary").get<std::string>(), who,
                        QueryText(operation), BodyText(document, operation)});
      }
    page.Heading(subject);
    page.Table({Tr("request"), Tr("what it does"), Tr("role"), Tr("query"), Tr("body")}, rows);
  }
}

void FillExitCodes(TPage& page, const TReferenceSources& sources) {
  page.Say(
      Tr("Of the commands of the program; those below a command that is listed have its exit codes, unless they are "
         "listed themselves. A program that a signal ends has 128 and its number, as a shell says it."));
  TExitCodes list;
  AddExitCodes(sources.Program, "ixocut", "", list);
  std::vector<std::vector<std::string>> rows;
  for (const auto& row : list) rows.push_back({row.first, row.second});
  page.Table({Tr("exit codes"), Tr("commands")}, rows);
}

void FillFiles(TPage& page, const TReferenceSources&) {
  page.Say(
      Tr("The state folder (`--state`, else `$XDG_STATE_HOME/ixocut`, else `~/.local/state/ixocut`) holds what a "
         "controller keeps. Beside a file may stand its lock (`.lock`), its previous version (`.bak`, `.old`), older "
         "logs (`.1` to `.4`) and a database's own files (`-wal`, `-shm`). A copy of the folder while no controller "
         "runs is a backup of everything."));
  std::vector<std::vector<std::string>> rows;
  rows.reserve(std::size(kStateFiles));
  for (const TStateFile& file : kStateFiles) rows.push_back({Code(file.Name), Tr(file.Text), KindText(file.Kind)});
  page.Table({Tr("name"), Tr("what it is"), Tr("whose")}, rows);
}

}  // namespace ixocut
