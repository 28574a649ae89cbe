// The locale reader: replaces the Chinese defaults of the operator texts from locale/<language>.json.
//
// The file maps a section to its keys to their texts: {"CamGlue": {"SDelay": "Delay"}}. A text that is a format must
// take the same arguments as its default, otherwise the default stays and the entry is reported. The section "Messages"
// is for Tr: its keys are the English messages. Any thread; readers of a text are never disturbed, since installed
// texts live until the reader ends.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
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
  ~TLocaleReader();  // the texts that are still its own have their defaults again; Tr shows those that another reader
                     // selected last
  TLocaleReader(const TLocaleReader&) = delete;
  TLocaleReader& operator=(const TLocaleReader&) = delete;

  // Makes the language current for the following Apply calls, and its messages at once; the texts of "zh" are built in
  // and need no file. Empty on success, else the reason, and the built-in texts are current.
  [[nodiscard]] std::string SelectLanguage(std::string_view language);
  // Sets each text to the current language's, or to its default. Returns what was refused, a line per entry.
  std::vector<std::string> Apply(TTextList texts);

 private:
  const std::filesystem::path FFolder;
  TCriticalSection FLock;
  std::string FLanguage IXO_GUARDED_BY(FLock);
  std::map<std::string, std::string> FEntries IXO_GUARDED_BY(FLock);        // "section/key" to text
  std::set<std::string> FKept IXO_GUARDED_BY(FLock);                        // every text ever installed
  std::map<TText*, const char*> FInstalled IXO_GUARDED_BY(FLock);           // where, and which one
  std::vector<std::unique_ptr<TMessages>> FMessages IXO_GUARDED_BY(FLock);  // all that were ever in use, once each
  std::vector<std::string> FRefused IXO_GUARDED_BY(FLock);                  // of the messages, for the next Apply
};

IXO_DECLARE_SERVICE(TLocaleReader, LocaleReader);

}  // namespace ixocamglue
