#include "controller/process/ControllerFile.h"

#include <chrono>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "controller/process/JsonFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kLookersMs = 100;  // for commands that look for a controller at this moment
constexpr auto kStartWithin = std::chrono::seconds(5);
constexpr auto kStartLookEvery = std::chrono::milliseconds(20);

fs::path PlaceFile(const fs::path& stateFolder) { return stateFolder / kControllerFile; }

}  // namespace

TResult<> TControllerLock::Take(const fs::path& stateFolder) {
  if (TResult<> made = MakeFolder(stateFolder, fs::perms::owner_all); !made) return made;
  std::error_code error;
  FFile = PlaceFile(fs::canonical(stateFolder, error));
  if (error) FFile = PlaceFile(stateFolder);
  const TLockState state = FLock.Take(FFile.string(), kLookersMs);
  if (state == lsHeld) {
    (void)Files().Remove(FFile.string());  // of one that was killed
    return {};
  }
  if (state != lsBusy) return FLock.Problem();
  TProblem problem{.What = Tr("another controller runs on this state folder"),
                   .Where = stateFolder.string(),
                   .Why = Tr("another process"),
                   .Remedy = Tr("talk to that one, end it first, or name another folder with --state DIR")};
  if (const auto other = FindController(stateFolder); other && other->Process > 0) {
    problem.Why = Format(Tr("process %d"), static_cast<int>(other->Process));
    if (!other->Url.empty()) problem.Why += ", " + other->Url;
  }
  return problem;
}

TResult<> TControllerLock::Describe(const std::string& url, const std::string& socket) {
  FLock.Note(url);
  return SaveJsonFile(FFile, {{"process", static_cast<std::int32_t>(::getpid())},
                              {"url", url},
                              {"socket", socket},
                              {"started", UtcText(RealUnixMs())}});
}

void TControllerLock::Release() {
  if (FLock.Held()) (void)Files().Remove(FFile.string());
  FLock.Release();
}

std::optional<TControllerPlace> FindController(const fs::path& stateFolder) {
  const fs::path file = PlaceFile(stateFolder);
  const auto holder = TFileLock::Holder(file.string());
  if (!holder) return std::nullopt;
  TControllerPlace place;
  place.Process = holder->Process;
  const auto said = ReadJsonFile(file);
  if (!said || said->value("process", nlohmann::ordered_json()) != holder->Process) return place;
  place.Url = TextMember(*said, "url");
  place.Socket = TextMember(*said, "socket");
  place.Started = TextMember(*said, "started");
  return place;
}

std::optional<TControllerPlace> AwaitController(const fs::path& stateFolder) {
  auto place = FindController(stateFolder);
  for (const auto end = std::chrono::steady_clock::now() + kStartWithin;
       place && !place->HasAddress() && std::chrono::steady_clock::now() < end; place = FindController(stateFolder))
    std::this_thread::sleep_for(kStartLookEvery);
  return place;
}

}  // namespace ixocontroller
