#include "ixocamglue/platform/xml/XmlConfig.h"

#include <cerrno>
#include <cstring>

#include <pugixml.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

TXmlConfig::TXmlConfig(std::string rootName)
    : FRootName(std::move(rootName)), FLoaded(std::make_unique<TXmlDocument>()) {}
TXmlConfig::~TXmlConfig() { Die(); }

void TXmlConfig::Die() {
  for (const auto& hook : FDyingHooks) hook();
  FDyingHooks.clear();
  DropSubConfigs();
}

std::string TXmlConfig::Read(const std::string& file, TXmlDocument& document, bool& missing, TXmlDetail detail) const {
  std::string bytes;
  const int error = Files().Read(file, TXmlDocument::kMaxBytes, bytes);
  missing = error == ENOENT;
  if (error == EFBIG) return Format("%s: the file is larger than 64 MiB", file.c_str());
  if (error != 0) return Format("%s: the file cannot be read: %s", file.c_str(), std::strerror(error));
  if (const std::string problem = document.Parse(std::move(bytes), detail); !problem.empty())
    return file + ":" + problem;
  TXmlContext context{file, false, {}};
  const TXmlNode root = document.Root(context);
  if (SameFolded(root.Name(), FRootName)) return {};
  return Format("%s: the document element is \"%s\", expected \"%s\"", file.c_str(), std::string(root.Name()).c_str(),
                FRootName.c_str());
}

std::string TXmlConfig::Load(const std::filesystem::path& file, TMissingFile missing) {
  std::string problem;
  {
    TGuard saving(FSaving);
    FFile = file;
    auto document = std::make_unique<TXmlDocument>();
    bool isMissing = false;
    problem = Read(file.string(), *document, isMissing, xdValues);
    if (isMissing && missing == mfDefaults) problem.clear();
    FRefused = problem;
    Initialize();
    const bool read = problem.empty() && !isMissing;
    FLoaded = read ? std::move(document) : std::make_unique<TXmlDocument>();
    if (read) {
      TXmlContext context{file.string(), false, {}};
      LoadFromXmlNode(FLoaded->Root(context));
    }
  }
  for (const auto& hook : FHooks) hook();
  return problem;
}

bool TXmlConfig::SaveAlone(TXmlSubConfig& record, std::string* problem) {
  std::string text;
  bool done = false;
  {
    TGuard saving(FSaving);
    done = SaveLocked(record, text);
  }
  if (!text.empty()) LogMsg(done ? lkWarning : lkError, 0, text);
  if (problem) *problem = std::move(text);
  return done;
}

bool TXmlConfig::SaveLocked(TXmlSubConfig& record, std::string& problem) {
  if (FFile.empty()) {
    problem = "the configuration has no file";
    return false;
  }
  if (!FRefused.empty()) {
    problem = Format("%s: not saved, because the file could not be loaded (%s)", FFile.c_str(), FRefused.c_str());
    return false;
  }
  TXmlDocument document;
  bool isMissing = false;
  problem = Read(FFile.string(), document, isMissing);
  if (isMissing) {
    problem.clear();
    document.MakeNew(FRootName);
  } else if (!problem.empty()) {
    problem = "not saved, because the present file cannot be read: " + problem;
    return false;
  }
  TXmlContext context{FFile.string(), isMissing, {}};
  const TXmlNode root = document.Root(context);
  if (root.Name() != FRootName) {
    pugi::xml_node(root.Handle()).set_name(FRootName.c_str());
    context.Changed = true;
  }
  record.SaveToXmlNode(root);
  if (!context.Problem.empty()) {
    problem = Format("%s: not saved: %s", FFile.c_str(), context.Problem.c_str());
    return false;
  }
  if (context.Changed) {
    const auto replaced = ReplaceFile(FFile.string(), document.Serialise(), kBackupSuffix);
    problem = replaced.Problem;
    if (!replaced.Done) return false;
  }
  record.Settle();
  return true;
}

std::string TXmlConfig::Restore() {
  {
    TGuard saving(FSaving);
    std::string file = FFile.string();
    if (const int error = ResolveLinks(file)) return Format("%s: %s", FFile.c_str(), std::strerror(error));
    const std::string backup = file + std::string(kBackupSuffix);
    TXmlDocument document;
    bool isMissing = false;
    std::string bytes;
    if (const int error = Files().Read(backup, TXmlDocument::kMaxBytes, bytes))
      return Format("%s: the previous version cannot be read: %s", backup.c_str(), std::strerror(error));
    if (std::string problem = Read(backup, document, isMissing); !problem.empty()) return problem;
    const auto replaced = ReplaceFile(file, bytes, ".broken");
    if (!replaced.Done) return replaced.Problem;
    if (!replaced.Problem.empty()) LogMsg(lkWarning, 0, replaced.Problem);
  }
  return Load(FFile);
}

std::string TXmlConfig::MoveAside() {
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
  if (error != 0) return Format("%s: cannot be moved aside: %s", file.c_str(), std::strerror(error));
  LogMsg(lkWarning, 0, Format("%s: moved to %s (%s)", file.c_str(), aside.c_str(), FRefused.c_str()));
  FRefused.clear();
  return {};
}

}  // namespace ixocamglue
