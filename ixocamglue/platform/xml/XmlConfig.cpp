#include "ixocamglue/platform/xml/XmlConfig.h"

#include <cerrno>
#include <functional>

#include <pugixml.hpp>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

TProblem At(std::string where, std::string what) { return {.What = std::move(what), .Where = std::move(where)}; }

std::string Resolved(const std::filesystem::path& file) {
  std::string path = file.string();
  return ResolveLinks(path) == 0 ? path : file.string();
}

}  // namespace

TXmlConfig::TXmlConfig(std::string rootName)
    : FRootName(std::move(rootName)), FLoaded(std::make_unique<TXmlDocument>()) {}
TXmlConfig::~TXmlConfig() { Die(); }

void TXmlConfig::Die() {
  for (const auto& hook : FDyingHooks) hook();
  FDyingHooks.clear();
  DropSubConfigs();
}

TResult<> TXmlConfig::Read(const std::string& file, TXmlDocument& document, bool& missing, TPrint& print,
                           TXmlDetail detail) const {
  std::string bytes;
  const int error = Files().Read(file, TXmlDocument::kMaxBytes, bytes);
  missing = error == ENOENT;
  print.reset();
  if (error == EFBIG) return At(file, Tr("the file is larger than 64 MiB"));
  if (error != 0) return At(file, Format(Tr("the file cannot be read: %s"), SystemErrorText(error).c_str()));
  print = std::hash<std::string_view>()(bytes);
  if (auto parsed = document.Parse(std::move(bytes), detail); !parsed) {
    // What was parsed in place has no lines to name any more.
    if (detail == xdValues) return Read(file, document, missing, print, xdPlaces);
    return At(file + ":" + parsed.Problem().Where, parsed.Problem().What);
  }
  TXmlContext context{.File = file};
  const TXmlNode root = document.Root(context);
  if (SameFolded(root.Name(), FRootName)) return {};
  return At(file, Format(Tr("the document element is \"%s\", expected \"%s\""), std::string(root.Name()).c_str(),
                         FRootName.c_str()));
}

TProblem TXmlConfig::WithBackup(TProblem problem) const {
  const std::string backup = Resolved(FFile) + std::string(kBackupSuffix);
  if (TFileInfo info; Files().Describe(backup, info) != 0) return problem;
  problem.Remedy = Format(Tr("the previous version is in %s"), backup.c_str());
  if (*FRestoreCommand) problem.Remedy += Format(Tr("; \"%s\" puts it back"), FRestoreCommand);
  return problem;
}

TResult<> TXmlConfig::Load(const std::filesystem::path& file, TMissingFile missing, TXmlDetail detail) {
  TResult<> result;
  {
    TGuard saving(FSaving);
    FFile = file;
    auto document = std::make_unique<TXmlDocument>();
    bool isMissing = false;
    result = Read(file.string(), *document, isMissing, FPrint, detail);
    if (isMissing && missing == mfDefaults) result = {};
    FRefused = result ? std::string() : result.Problem().Text();
    if (!result && !isMissing) result = WithBackup(result.Problem());
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

TLockState TXmlConfig::Hold(const std::filesystem::path& file, std::uint32_t waitMs) {
  TGuard saving(FSaving);
  return FHeld.Take(Resolved(file), waitMs);
}

void TXmlConfig::NoteHold(std::string_view note) {
  TGuard saving(FSaving);
  FHeld.Note(note);
}

TResult<> TXmlConfig::CanHold(const std::filesystem::path& file) { return TFileLock::IsPossible(Resolved(file)); }

TResult<> TXmlConfig::LockForSave(TFileLock& lock) const {
  if (FHeld.Held() || lock.Take(Resolved(FFile), 0) == lsHeld) return {};
  return lock.Problem();
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
  if (file.empty()) return At({}, Tr("the configuration has no file"));
  if (!FRefused.empty())
    return At(file, Format(Tr("not saved, because the file could not be loaded (%s)"), FRefused.c_str()));
  TFileLock lock;
  if (const auto locked = LockForSave(lock); !locked) {
    TProblem problem = locked.Problem();
    problem.What = Tr("not saved: ") + problem.What;
    return problem;
  }
  TXmlDocument document;
  bool isMissing = false;
  TPrint print;
  const auto read = Read(file, document, isMissing, print);
  if (!isMissing && !read)
    return At({}, Tr("not saved, because the present file cannot be read: ") + read.Problem().Text());
  // Who holds the file from before its load knows that nobody else has set a value in it since.
  if (!FHeld.Held() && print != FPrint)
    return TProblem{.What = Tr("not saved: another program has changed the file since it was read"),
                    .Where = file,
                    .Remedy = Tr("read it again and repeat what was done")};
  if (isMissing) document.MakeNew(FRootName);
  TXmlContext context{.File = file, .Changed = isMissing};
  const TXmlNode root = document.Root(context);
  if (root.Name() != FRootName) {
    pugi::xml_node(root.Handle()).set_name(FRootName.c_str());
    context.Changed = true;
  }
  record.SaveToXmlNode(root);
  if (!context.Problem.empty()) return At(file, Tr("not saved: ") + context.Problem);
  std::string unsure;
  if (context.Changed) {
    const std::string bytes = document.Serialise();
    auto replaced = ReplaceFile(file, bytes, kBackupSuffix);
    if (!replaced.Done) return At({}, std::move(replaced.Problem));
    unsure = std::move(replaced.Problem);
    print = std::hash<std::string_view>()(bytes);
  }
  FPrint = print;
  record.Settle();
  return unsure;
}

TResult<std::string> TXmlConfig::Restore() {
  auto kept = [&] {
    TGuard saving(FSaving);
    return RestoreLocked();
  }();
  if (!kept) return kept;
  if (auto loaded = Load(FFile); !loaded) return loaded.Problem();
  return kept;
}

TResult<std::string> TXmlConfig::RestoreLocked() {
  TFileLock lock;
  if (const auto locked = LockForSave(lock); !locked) return locked.Problem();
  const std::string file = Resolved(FFile);
  const std::string backup = file + std::string(kBackupSuffix);
  std::string bytes;
  if (const int error = Files().Read(backup, TXmlDocument::kMaxBytes, bytes))
    return At(backup, Format(Tr("the previous version cannot be read: %s"), SystemErrorText(error).c_str()));
  TXmlDocument document;
  bool isMissing = false;
  TPrint print;
  if (auto read = Read(backup, document, isMissing, print); !read) return read.Problem();
  std::string present;
  const int error = Files().Read(file, ~std::uint64_t{0}, present);
  if (error == 0 && present == bytes) return std::string();
  const std::string kept = error == ENOENT ? std::string() : FreeName(file);
  const auto replaced = ReplaceFile(file, bytes, kept.empty() ? kBackupSuffix : kept.substr(file.size()));
  if (!replaced.Done) return At({}, replaced.Problem);
  if (!replaced.Problem.empty()) LogMsg(lkWarning, 0, replaced.Problem);
  return kept;
}

// Taken by nothing at the time of the look; the callers have the file's lock.
std::string TXmlConfig::FreeName(const std::string& file) {
  constexpr int kNames = 1000;
  std::string name = file + ".broken";
  TFileInfo info;
  for (int i = 2; i <= kNames && Files().Describe(name, info) != ENOENT; ++i)
    name = file + ".broken" + std::to_string(i);
  return name;
}

TResult<> TXmlConfig::MoveAside() {
  TGuard saving(FSaving);
  if (FRefused.empty()) return {};
  TFileLock lock;
  if (auto locked = LockForSave(lock); !locked) return locked;
  const std::string file = FFile.string();
  const std::string aside = FreeName(file);
  int error = Files().Link(file, aside);  // unlike a renaming, never over another file
  if (error == 0) error = Files().Remove(file);
  if (error != 0) return At(file, Format(Tr("cannot be moved aside: %s"), SystemErrorText(error).c_str()));
  LogMsg(lkWarning, 0, Format("%s: moved to %s (%s)", file.c_str(), aside.c_str(), FRefused.c_str()));
  FRefused.clear();
  FPrint.reset();
  return {};
}

}  // namespace ixocamglue
