// The console's files, as a browser gets them: the page itself, its texts, the plots' script. All of them are read
// once, when the server is made, so that no request waits for a disk; what is not among them is not served.
//
//   /                          console/index.html
//   /console/NAME              console/NAME: .html .js .css .svg, without indentation and lines of comment
//   /console/texts/LANG.json   of the catalogue LANG the messages that stand as literals in the console's scripts
//   /console/dygraph.min.js    the plots' script, and its style sheet
//   /console/edition           names all of these: another name where one of them is another
//
// Any thread. What is not there is none; nothing throws.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "controller/wire/WireRequest.h"

namespace ixocontroller {

struct TPageFolders {
  std::filesystem::path Console;  // empty: no page
  std::filesystem::path Locale;   // the catalogues
  std::filesystem::path Plots;    // dygraph.min.js and dygraph.min.css
};

class TPages {
 public:
  // A folder that is not there has no files.
  explicit TPages(const TPageFolders& folders);

  // Whether the path is of the console, and none of the interface's.
  [[nodiscard]] static bool Owns(std::string_view path);
  // 304 where the browser has it already; 404 for what is none of the console's files.
  [[nodiscard]] TWireReply Answer(const std::string& path, std::string_view ifNoneMatch) const;

 private:
  struct TPage {
    std::string Type, ETag, Body;
  };
  void Add(const std::string& path, std::string type, std::string body);
  void AddTexts(const std::filesystem::path& locale);

  std::map<std::string, TPage> FPages;
};

}  // namespace ixocontroller
