// A configuration file: the records that hang under its document element, loaded and saved together.
//
// The document is the file: a save reads the file again, writes the known values into that tree and replaces the file,
// so that whatever the records do not know survives. A save that changes nothing writes nothing. See FileLayer.h for
// what a crash leaves.
//
// Two processes lose nothing of each other: whoever saves has the file's lock (support/FileLock.h), for as long as it
// lives when it asked for that with Hold, else for the save alone. A save without Hold is refused when the file is no
// longer the one that was loaded, and waits for nobody. A load takes no lock, since a file is replaced in one step.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/platform/xml/XmlSubConfig.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// What a missing file means to a load.
enum class TMissingFile : std::uint8_t { mfRefused, mfDefaults };
using enum TMissingFile;

class TXmlConfig : public TXmlSubConfig {
 public:
  static constexpr std::string_view kBackupSuffix = ".bak";

  explicit TXmlConfig(std::string rootName);
  ~TXmlConfig() override;
  TXmlConfig(const TXmlConfig&) = delete;
  TXmlConfig& operator=(const TXmlConfig&) = delete;

  // Initialises every record, reads the file and calls the hooks of OnLoaded. With a problem, which names file, line
  // and column, everything has its defaults, and saves are refused until a load succeeds or Restore. A missing file
  // that means defaults is created by the first save.
  TResult<> Load(const std::filesystem::path& file, TMissingFile missing = mfRefused, TXmlDetail detail = xdValues);

  // Keeps other processes from saving the file until this configuration dies or holds another; before its load, by who
  // will save it. Waits at most `waitMs`. With lsImpossible the configuration can be used, and saves are refused.
  TLockState Hold(const std::filesystem::path& file, std::uint32_t waitMs = kFileLockWaitMs);
  // Whether it could be held at all; for who saves nothing. A file is replaced in one step: who reads needs no lock.
  static TResult<> CanHold(const std::filesystem::path& file);
  [[nodiscard]] const TProblem& HoldProblem() const { return FHeld.Problem(); }
  // What those are told who are refused, beside the process number.
  void NoteHold(std::string_view note);

  // With a value the file holds the present values; the value is what could not be made sure of (the flush of the
  // folder), mostly empty. It and a problem are logged too. Any thread; callers take turns.
  TResult<std::string> Save() { return SaveAlone(*this); }
  // The same for one record whose properties belong to the document element; whatever else stands in the file stays.
  TResult<std::string> SaveAlone(TXmlSubConfig& record);

  // Puts the previous version back in the place of the file, and loads it. What was replaced is kept under the first
  // free name of "<file>.broken", "<file>.broken2" ..., which is the value; empty when the file was the previous
  // version already. A problem when there is no previous version that can be read; then nothing was changed.
  TResult<std::string> Restore();

  // Gives a file that Load refused a free name beside it ("<file>.broken", "<file>.broken2" ...), so that a save makes
  // a new one. The records stay as they are. A problem when it was not possible; then nothing was changed.
  TResult<> MoveAside();

  // Called at the end of each load, also of one that gave defaults.
  void OnLoaded(std::function<void()> hook) { FHooks.push_back(std::move(hook)); }

  // Called when the configuration dies, before its records do.
  void OnDying(std::function<void()> hook) { FDyingHooks.push_back(std::move(hook)); }

  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }
  // The file as it was loaded; an empty document without one. It has a text and places only with xdPlaces.
  [[nodiscard]] const TXmlDocument& Document() const { return *FLoaded; }
  // For who has read all that he wants: the records stay, Document() is empty from here on.
  void DropDocument() { FLoaded = std::make_unique<TXmlDocument>(); }

 protected:
  // How a person gets the previous version back, for the problem of a file that cannot be loaded; empty: by hand.
  void RestoredBy(const char* command) { FRestoreCommand = command; }
  [[nodiscard]] bool KeepsUnknown() const override { return false; }  // Document() has them
  void Die();  // the hooks, then the records; for the destructor of an owner whose own members are their globals

 private:
  // What a file held, to see whether it is still the same; none: it was missing.
  using TPrint = std::optional<std::size_t>;

  TResult<> Read(const std::string& file, TXmlDocument& document, bool& missing, TPrint& print,
                 TXmlDetail detail = xdAll) const;
  [[nodiscard]] TProblem WithBackup(TProblem problem) const;
  [[nodiscard]] TResult<> LockForSave(TFileLock& lock) const IXO_REQUIRES(FSaving);
  TResult<std::string> SaveLocked(TXmlSubConfig& record) IXO_REQUIRES(FSaving);
  TResult<std::string> RestoreLocked() IXO_REQUIRES(FSaving);
  [[nodiscard]] static std::string FreeName(const std::string& file);

  const std::string FRootName;
  std::filesystem::path FFile;
  std::unique_ptr<TXmlDocument> FLoaded;
  std::vector<std::function<void()>> FHooks;
  std::vector<std::function<void()>> FDyingHooks;
  const char* FRestoreCommand = "";
  TFileLock FHeld;
  TCriticalSection FSaving;                      // the file, and what follows
  std::string FRefused IXO_GUARDED_BY(FSaving);  // why nothing is saved
  TPrint FPrint IXO_GUARDED_BY(FSaving);         // of the file as last loaded or saved
};

}  // namespace ixocamglue
