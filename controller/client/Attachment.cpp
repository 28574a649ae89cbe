#include "controller/client/Attachment.h"

#include <cstdlib>

#include "controller/process/ControllerFile.h"
#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ProblemAt.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

namespace fs = std::filesystem;

std::string Environment(const char* name) {
  const char* const text = std::getenv(name);
  return text ? text : "";
}

std::string TokenOf(const TAttachOptions& attach) {
  if (attach.TokenFile.empty()) return Environment("IXOCUT_TOKEN");
  const fs::path file = attach.TokenFile;
  const std::string text = OrThrowAt(ReadFile(file), pbUnusable, "--token-file " + file.string());
  return text.substr(0, text.find_first_of(" \t\r\n"));
}

}  // namespace

TAttachment::TAttachment(const TAttachOptions& attach, const std::string& language, std::optional<fs::path>& machine,
                         std::optional<fs::path>& state) {
  if (!attach.Url.empty()) {
    FPlace = attach.Url;
    TWireAddress address = OrThrowAt(TWireAddress::OfUrl(attach.Url), pbRequest, "--url");
    address.Trusted = attach.Trusted.empty() ? Environment("IXOCUT_CA") : attach.Trusted;
    FClient = std::make_unique<TWireClient>(std::move(address), TokenOf(attach), language);
    return;
  }
  fs::path folder;
  try {
    folder = StateFolder(state);
  } catch (const EProblem&) {
    if (!machine) throw;  // it has a file, and needs no state folder
    return;
  }
  FPlace = folder.string();
  // A machine file that is named is used as it is, unless it is the state folder's own.
  std::error_code error;
  if (machine && !fs::equivalent(*machine, folder / kMachineFile, error)) return;
  const auto place = attach.Local ? FindController(folder) : AwaitController(folder);
  if (!place) return;
  if (attach.Local) {
    MakeCopy(folder, place->Process);
    state = FCopy->Path();
    machine.reset();
    return;
  }
  FClient = std::make_unique<TWireClient>(OrThrowAt(TWireAddress::OfPlace(*place), pbRefused, FPlace), TokenOf(attach),
                                          language);
}

// What is read there: the machine file and the gas tables. The stores are the controller's that writes them.
void TAttachment::MakeCopy(const fs::path& folder, std::int64_t process) {
  FCopy.emplace("ixocut-local");
  for (const char* const name : {kMachineFile, kGasTablesFile}) {
    std::error_code error;
    if (fs::exists(folder / name, error)) fs::copy_file(folder / name, FCopy->Path() / name, error);
    if (error)
      throw EProblem(pbUnusable, TProblem{.What = Tr("the file cannot be copied"),
                                          .Where = (folder / name).string(),
                                          .Why = SystemErrorText(error.value())});
  }
  FNotice = Format(Tr("A controller (process %lld) has the state folder %s: this works on a copy, and nothing of it "
                      "is kept."),
                   static_cast<long long>(process), folder.c_str());
}

TWireClient& TAttachment::Controller() const {
  if (FClient) return *FClient;
  throw EProblem(pbRefused, {.What = Tr("no controller runs"),
                             .Where = FPlace,
                             .Remedy = Tr("\"ixocut serve\" starts one; --url names another")});
}

}  // namespace ixocontroller
