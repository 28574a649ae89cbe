// A configuration file: the records that hang under its document element, loaded and saved together.
//
// The document is the file: a save reads the file again, writes the known values into that tree and replaces the file,
// so that whatever the records do not know survives. A save that changes nothing writes nothing. See FileLayer.h for
// what a crash leaves.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/platform/xml/XmlSubConfig.h"
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
  TResult<> Load(const std::filesystem::path& file, TMissingFile missing = mfRefused);

  // With a value the file holds the present values; the value is what could not be made sure of (the flush of the
  // folder), mostly empty. It and a problem are logged too. Any thread; callers take turns.
  TResult<std::string> Save() { return SaveAlone(*this); }
  // The same for one record whose properties belong to the document element; whatever else stands in the file stays.
  TResult<std::string> SaveAlone(TXmlSubConfig& record);

  // Puts the previous version back in the place of the file, which is kept under `File()` + ".broken", and loads it.
  // A problem when there is no previous version that can be read; then nothing was changed.
  TResult<> Restore();

  // Gives a file that Load refused a free name beside it ("<file>.broken", "<file>.broken2" ...), so that a save makes
  // a new one. The records stay as they are. A problem when it was not possible; then nothing was changed.
  TResult<> MoveAside();

  // Called at the end of each load, also of one that gave defaults.
  void OnLoaded(std::function<void()> hook) { FHooks.push_back(std::move(hook)); }

  // Called when the configuration dies, before its records do.
  void OnDying(std::function<void()> hook) { FDyingHooks.push_back(std::move(hook)); }

  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }
  // The file as it was loaded; an empty document without one.
  [[nodiscard]] const TXmlDocument& Document() const { return *FLoaded; }

 protected:
  void Die();  // the hooks, then the records; for the destructor of an owner whose own members are their globals

 private:
  TResult<> Read(const std::string& file, TXmlDocument& document, bool& missing, TXmlDetail detail = xdAll) const;
  TResult<std::string> SaveLocked(TXmlSubConfig& record) IXO_REQUIRES(FSaving);

  const std::string FRootName;
  std::filesystem::path FFile;
  std::unique_ptr<TXmlDocument> FLoaded;
  std::vector<std::function<void()>> FHooks;
  std::vector<std::function<void()>> FDyingHooks;
  TCriticalSection FSaving;                      // the file, and FRefused
  std::string FRefused IXO_GUARDED_BY(FSaving);  // why nothing is saved
};

}  // namespace ixocamglue
