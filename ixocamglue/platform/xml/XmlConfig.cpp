#include "ixocamglue/platform/xml/XmlConfig.h"

#include <cerrno>
#include <cstring>

#include <pugixml.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

TProblem At(std::string where, std::string what) { return {.What = std::move(what), .Where = std::move(where)}; }

}  // namespace

TXmlConfig::TXmlConfig(std::string rootName)
    : FRootName(std::move(rootName)), FLoaded(std::make_unique<TXmlDocument>()) {}
TXmlConfig::~TXmlConfig() { Die(); }

void TXmlConfig::Die() {
  for (const auto& hook : FDyingHooks) hook();
  FDyingHooks.clear();
  DropSubConfigs();
}

TResult<> TXmlConfig::Read(const std::string& file, TXmlDocument& document, bool& missing, TXmlDetail detail) const {
  std::string bytes;
  const int error = Files().Read(file, TXmlDocument::kMaxBytes, bytes);
  missing = error == ENOENT;
  if (error == EFBIG) return At(file, "the file is larger than 64 MiB");
  if (error != 0) return At(file, Format("the file cannot be read: %s", std::strerror(error)));
  if (auto parsed = document.Parse(std::move(bytes), detail); !parsed)
    return At(file + ":" + parsed.Problem().Where, parsed.Problem().What);
  TXmlContext context{.File = file};
  const TXmlNode root = document.Root(context);
  if (SameFolded(root.Name(), FRootName)) return {};
  return At(file, Format("the document element is \"%s\", expected \"%s\"", std::string(root.Name()).c_str(),
                         FRootName.c_str()));
}

TResult<> TXmlConfig::Load(const std::filesystem::path& file, TMissingFile missing) {
  TResult<> result;
  {
    TGuard saving(FSaving);
    FFile = file;
    auto document = std::make_unique<TXmlDocument>();
    bool isMissing = false;
    result = Read(file.string(), *document, isMissing, xdValues);
    if (isMissing && missing == mfDefaults) result = {};
    FRefused = result ? std::string() : result.Problem().Text();
    Initialize();
    const bool read = result && !isMissing;
    FLoaded = read ? std::move(document) : std::make_unique<TXmlDocument>();
    if (read) {
      TXmlContext context{.File = file.string()};
      LoadFromXmlNode(FLoaded->Root(context));
    }
  }
  for (const auto& hook : FHooks) hook();
  return result;
}

TResult<std::string> TXmlConfig::SaveAlone(TXmlSubConfig& record) {
  auto saved = [&] {
    TGuard saving(FSaving);
    return SaveLocked(record);
  }();
  if (!saved)
    LogMsg(lkError, 0, saved.Problem().Text());
  else if (!saved->empty())
    LogMsg(lkWarning, 0, *saved);
  return saved;
}

TResult<std::string> TXmlConfig::SaveLocked(TXmlSubConfig& record) {
  const std::string file = FFile.string();
  if (file.empty()) return At({}, "the configuration has no file");
  if (!FRefused.empty())
    return At(file, Format("not saved, because the file could not be loaded (%s)", FRefused.c_str()));
  TXmlDocument document;
  bool isMissing = false;
  const auto read = Read(file, document, isMissing);
  if (isMissing)
    document.MakeNew(FRootName);
  else if (!read)
    return At({}, "not saved, because the present file cannot be read: " + read.Problem().Text());
  TXmlContext context{.File = file, .Changed = isMissing};
  const TXmlNode root = document.Root(context);
  if (root.Name() != FRootName) {
    pugi::xml_node(root.Handle()).set_name(FRootName.c_str());
    context.Changed = true;
  }
  record.SaveToXmlNode(root);
  if (!context.Problem.empty()) return At(file, "not saved: " + context.Problem);
  std::string unsure;
  if (context.Changed) {
    auto replaced = ReplaceFile(file, document.Serialise(), kBackupSuffix);
    if (!replaced.Done) return At({}, std::move(replaced.Problem));
    unsure = std::move(replaced.Problem);
  }
  record.Settle();
  return unsure;
}

TResult<> TXmlConfig::Restore() {
  {
    TGuard saving(FSaving);
    std::string file = FFile.string();
    if (const int error = ResolveLinks(file)) return At(FFile.string(), std::strerror(error));
    const std::string backup = file + std::string(kBackupSuffix);
    TXmlDocument document;
    bool isMissing = false;
    std::string bytes;
    if (const int error = Files().Read(backup, TXmlDocument::kMaxBytes, bytes))
      return At(backup, Format("the previous version cannot be read: %s", std::strerror(error)));
    if (auto read = Read(backup, document, isMissing); !read) return read;
    const auto replaced = ReplaceFile(file, bytes, ".broken");
    if (!replaced.Done) return At({}, replaced.Problem);
    if (!replaced.Problem.empty()) LogMsg(lkWarning, 0, replaced.Problem);
  }
  return Load(FFile);
}

TResult<> TXmlConfig::MoveAside() {
  constexpr int kNames = 1000;
  TGuard saving(FSaving);
  if (FRefused.empty()) return {};
  const std::string file = FFile.string();
  int error = EEXIST;
  std::string aside;
  for (int i = 1; i <= kNames && error == EEXIST; ++i) {
    aside = file + ".broken" + (i == 1 ? "" : std::to_string(i));
    error = Files().Link(file, aside);  // unlike a renaming, never over another file
  }
  if (error == 0) error = Files().Remove(file);
  if (error != 0) return At(file, Format("cannot be moved aside: %s", std::strerror(error)));
  LogMsg(lkWarning, 0, Format("%s: moved to %s (%s)", file.c_str(), aside.c_str(), FRefused.c_str()));
  FRefused.clear();
  return {};
}

}  // namespace ixocamglue
