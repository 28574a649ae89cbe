// The locale reader: replaces the Chinese defaults of the operator texts from locale/<language>.json.
//
// The file maps a section to its keys to their texts: {"CamGlue": {"SDelay": "Delay"}}. A text that is a format must
// take the same arguments as its default, otherwise the default stays and the entry is reported. The section "Messages"
// is for Tr: its keys are the English messages. Any thread; readers of a text are never disturbed, since installed
// texts live until the reader ends.
//
// The languages beside the current one are for a TLanguageScope. The first that is asked for loads all of the folder,
// once; a file that is none is no language then. A file that cannot be read is told by SelectLanguage, and else is no
// language; nothing here throws.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TLocaleReader final : public ICatalogues {
 public:
  // The folder that holds <language>.json.
  explicit TLocaleReader(std::filesystem::path folder) : FFolder(std::move(folder)) {}
  ~TLocaleReader();  // the texts that are still its own have their defaults again; Tr shows those that another reader
                     // selected last, which scopes ask from then on
  TLocaleReader(const TLocaleReader&) = delete;
  TLocaleReader& operator=(const TLocaleReader&) = delete;

  // Makes the language current for the following Apply calls, and its messages at once; the texts of "zh" are built in
  // and need no file. Empty on success, else the reason, and the built-in texts are current.
  [[nodiscard]] std::string SelectLanguage(std::string_view language);
  // Sets each text to the current language's, or to its default. Returns what was refused, a line per entry.
  std::vector<std::string> Apply(TTextList texts);

  [[nodiscard]] const TCatalogue* Catalogue(std::string_view language) override;
  // "zh" and each language that the folder has.
  [[nodiscard]] std::vector<std::string> Languages();
  // Which language that is; empty: none of this reader's.
  [[nodiscard]] std::string LanguageOf(const TCatalogue& catalogue);
  // See the function Retold.
  [[nodiscard]] std::string Retold(const std::string& text);

 private:
  struct TRead {
    TCatalogue Catalogue;
    std::vector<std::string> Refused;  // of the messages
    std::string Problem;
  };
  [[nodiscard]] TRead Read(std::string_view language) const;
  const TCatalogue* Keep(TCatalogue&& catalogue) IXO_REQUIRES(FLock);
  void LoadAll() IXO_REQUIRES(FLock);

  const std::filesystem::path FFolder;
  TCriticalSection FLock;
  std::string FLanguage IXO_GUARDED_BY(FLock);
  std::map<TText*, const char*> FInstalled IXO_GUARDED_BY(FLock);              // where, and which one
  std::vector<std::unique_ptr<const TCatalogue>> FKept IXO_GUARDED_BY(FLock);  // all that were ever in use, once each
  std::map<std::string, const TCatalogue*, std::less<>> FLanguages IXO_GUARDED_BY(FLock);
  const TCatalogue* FCurrent IXO_GUARDED_BY(FLock) = nullptr;
  bool FLoadedAll IXO_GUARDED_BY(FLock) = false;
  // For Retold: every text that was ever applied, and where the present language's texts come from.
  std::set<TText*> FTexts IXO_GUARDED_BY(FLock);
  std::map<std::string, std::vector<TText*>, std::less<>> FTextsBack IXO_GUARDED_BY(FLock);
  std::map<std::string, std::vector<const char*>, std::less<>> FMessagesBack IXO_GUARDED_BY(FLock);
  const TCatalogue* FBackOf IXO_GUARDED_BY(FLock) = nullptr;
  std::vector<std::string> FRefused IXO_GUARDED_BY(FLock);  // of the messages, for the next Apply
};

IXO_DECLARE_SERVICE(TLocaleReader, LocaleReader);

}  // namespace ixocamglue
