// The locale reader: replaces the Chinese defaults of the operator texts from locale/<language>.json.
//
// The file maps a section to its keys to their texts: {"CamGlue": {"SDelay": "Delay"}}. A text that is a format must
// take the same arguments as its default, otherwise the default stays and the entry is reported. Any thread; readers of
// a text are never disturbed, since installed texts live until the reader ends.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/ports/Installed.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TLocaleReader {
 public:
  // The folder that holds <language>.json.
  explicit TLocaleReader(std::filesystem::path folder) : FFolder(std::move(folder)) {}
  ~TLocaleReader();  // the texts that are still its own have their defaults again
  TLocaleReader(const TLocaleReader&) = delete;
  TLocaleReader& operator=(const TLocaleReader&) = delete;

  // Makes the language current for the following Apply calls; "zh" is the built-in one and needs no file. Empty on
  // success, else the reason, and the built-in texts are current.
  [[nodiscard]] std::string SelectLanguage(std::string_view language);
  // Sets each text to the current language's, or to its default. Returns what was refused, a line per entry.
  std::vector<std::string> Apply(TTextList texts);

 private:
  const std::filesystem::path FFolder;
  TCriticalSection FLock;
  std::string FLanguage IXO_GUARDED_BY(FLock);
  std::map<std::string, std::string> FEntries IXO_GUARDED_BY(FLock);  // "section/key" to text
  std::set<std::string> FKept IXO_GUARDED_BY(FLock);                  // every text ever installed
  std::map<TText*, const char*> FInstalled IXO_GUARDED_BY(FLock);     // where, and which one
};

IXO_DECLARE_SERVICE(TLocaleReader, LocaleReader);

}  // namespace ixocamglue
