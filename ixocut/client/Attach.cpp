#include "ixocut/client/Attach.h"

#include <cstdlib>
#include <iostream>

#include "controller/StateFiles.h"
#include "controller/StateFolder.h"
#include "controller/service/ControllerFile.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"

namespace ixocut {
namespace {

namespace fs = std::filesystem;

std::string Environment(const char* name) {
  const char* const text = std::getenv(name);
  return text ? text : "";
}

std::string TokenOf(const TAttachOptions& attach) {
  if (attach.TokenFile.empty()) return Environment("IXOCUT_TOKEN");
  const TResult<std::string> text = ReadFile(fs::path(attach.TokenFile));
  if (!text) {
    TProblem problem = text.Problem();
    problem.Where = "--token-file " + problem.Where;
    throw EProblem(pbUnusable, std::move(problem));
  }
  return text->substr(0, text->find_first_of(" \t\r\n"));
}

TWireAddress AddressAt(const TResult<TWireAddress>& address, TBlame blame, const std::string& where) {
  if (address) return *address;
  TProblem problem = address.Problem();
  problem.Where = where;
  throw EProblem(blame, std::move(problem));
}

}  // namespace

void AddAttachOptions(TCommand command, TAttachOptions& attach, bool byItself) {
  const TOption url =
      command.Text("--url", attach.Url, Tr("The controller at this address, http://127.0.0.1:8620 for example"), "URL");
  command.Text("--ca", attach.Trusted,
               Tr("Who is trusted behind https://, a PEM file (default: IXOCUT_CA, else the system's)"), "FILE");
  command.Text("--token-file", attach.TokenFile, Tr("The file that holds the token (default: IXOCUT_TOKEN)"), "FILE");
  if (byItself)
    command
        .Flag("--local", attach.Local,
              Tr("Without a controller that runs; where one holds the files, on a copy that is not kept"))
        .Excludes(url);
}

void AddClientOptions(TCommand command, TControllerSettings& settings, bool& json, bool byItself) {
  AddJsonOption(command, json);
  AddAttachOptions(command, settings.Attach, byItself);
  AddMachineSettings(command, settings);
}

TAttachment::TAttachment(TControllerSettings& settings) {
  const TAttachOptions& attach = settings.Attach;
  if (!attach.Url.empty()) {
    FPlace = attach.Url;
    TWireAddress address = AddressAt(TWireAddress::OfUrl(attach.Url), pbRequest, "--url");
    address.Trusted = attach.Trusted.empty() ? Environment("IXOCUT_CA") : attach.Trusted;
    FClient = std::make_unique<TWireClient>(std::move(address), TokenOf(attach), settings.Language);
    return;
  }
  fs::path folder;
  try {
    folder = ixocontroller::StateFolder(settings.State);
  } catch (const EProblem&) {
    if (!settings.Machine) throw;  // it has a file, and needs no state folder
    return;
  }
  FPlace = folder.string();
  // A machine file that is named is used as it is, unless it is the state folder's own.
  std::error_code error;
  if (settings.Machine && !fs::equivalent(*settings.Machine, folder / ixocontroller::kMachineFile, error)) return;
  const auto place = attach.Local ? ixocontroller::FindController(folder) : ixocontroller::AwaitController(folder);
  if (!place) return;
  if (attach.Local) {
    MakeCopy(settings, folder, place->Process);
    return;
  }
  FClient = std::make_unique<TWireClient>(AddressAt(TWireAddress::OfPlace(*place), pbRefused, FPlace), TokenOf(attach),
                                          settings.Language);
}

// What is read there: the machine file and the gas tables. The stores are the controller's that writes them.
void TAttachment::MakeCopy(TControllerSettings& settings, const fs::path& folder, std::int64_t process) {
  FCopy.emplace("ixocut-local");
  for (const char* const name : {ixocontroller::kMachineFile, ixocontroller::kGasTablesFile}) {
    std::error_code error;
    if (fs::exists(folder / name, error)) fs::copy_file(folder / name, FCopy->Path() / name, error);
    if (error)
      throw EProblem(pbUnusable, TProblem{.What = Tr("the file cannot be copied"),
                                          .Where = (folder / name).string(),
                                          .Why = SystemErrorText(error.value())});
  }
  settings.State = FCopy->Path();
  settings.Machine.reset();
  std::cerr << Format(Tr("A controller (process %lld) has the state folder %s: this works on a copy, and nothing of it "
                         "is kept."),
                      static_cast<long long>(process), folder.c_str())
            << std::endl;
}

TWireClient& TAttachment::Controller() const {
  if (FClient) return *FClient;
  throw EProblem(pbRefused, {.What = Tr("no controller runs"),
                             .Where = FPlace,
                             .Remedy = Tr("\"ixocut serve\" starts one; --url names another")});
}

void TellByItself(const std::optional<fs::path>& state) {
  const auto place = ixocontroller::FindController(ixocontroller::StateFolder(state));
  if (place)
    std::cerr << Format(Tr("A controller (process %d) has the state folder: this command works beside it, on a machine "
                           "of its own in virtual time."),
                        static_cast<int>(place->Process))
              << std::endl;
}

}  // namespace ixocut
