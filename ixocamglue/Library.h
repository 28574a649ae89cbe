// The library's life: creates the units' globals in order and frees them in reverse.
//
// One object at a time. Made after the application's services and the machine's ports are installed and before any
// thread starts; destroyed after all threads have ended and every state framework is gone. Repeatable in one process.
#pragma once

#include <string>
#include <vector>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TLibrary {
 public:
  // Starts every unit; one whose services are missing is started without them.
  TLibrary();
  ~TLibrary();
  TLibrary(const TLibrary&) = delete;
  TLibrary& operator=(const TLibrary&) = delete;

  // Replaces the operator texts of every unit from the installed locale reader's current language. Any thread. Returns
  // the entries that were refused, a line each.
  std::vector<std::string> LoadLocaleResources();
};

// The lists of all units. Constants; does not fail.
[[nodiscard]] std::span<const TTextList> LibraryTexts();

}  // namespace ixocamglue
