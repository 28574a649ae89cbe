// Operator texts: a key with its Simplified Chinese default beside it, replaceable while the program runs. Any thread.
// Nothing here fails.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {

class TText;

// Texts by their key: the operator texts' "section/key", the messages' English text.
using TMessages = std::map<std::string, std::string, std::less<>>;

// What one language's file holds; constant from its load on.
struct TCatalogue {
  TMessages Texts;
  TMessages Messages;

  // The text's entry, whatever arguments it takes; null: none.
  [[nodiscard]] const std::string* Find(const TText& text) const;
  // The text in this language: its entry where that takes its arguments, or its default. Valid as long as the
  // catalogue.
  [[nodiscard]] const char* Of(const TText& text) const;
  bool operator==(const TCatalogue&) const = default;
};

// The catalogue that a TLanguageScope has made this thread's; null: the process's language.
extern constinit thread_local const TCatalogue* GThreadCatalogue;

// One catalogue entry: `inline constinit` in its unit's header, and one of that unit's list; the lists of the library's
// units stand in Library.cpp. Found by the locale reader under Section and Key. The text that Get returns stays valid
// until the reader ends, also when the language changes meanwhile.
class TText {
 public:
  constexpr TText(const char* section, const char* key, const char* chinese)
      : Section(section), Key(key), Default(chinese), FCurrent(chinese) {}
  TText(const TText&) = delete;
  TText& operator=(const TText&) = delete;

  [[nodiscard]] const char* Get() const {
    const TCatalogue* const own = GThreadCatalogue;
    return own ? own->Of(*this) : FCurrent.load(std::memory_order_acquire);
  }
  // `text` outlives every reader; null restores the default.
  void Set(const char* text) { FCurrent.store(text ? text : Default, std::memory_order_release); }

  const char* const Section;
  const char* const Key;
  const char* const Default;

 private:
  std::atomic<const char*> FCurrent;
};

using TTextList = std::span<TText* const>;

template <class... Texts>
constexpr std::array<TText*, sizeof...(Texts)> TextList(Texts&... texts) {
  return {&texts...};
}

// An operator text with its arguments. The locale reader lets only texts with the default's conversions in, so what
// fits the default fits every language.
template <class... Args>
[[nodiscard]] std::string Show(const TText& text, Args... args) {
  static_assert(
      ((std::is_same_v<Args, int> || std::is_same_v<Args, double> || std::is_same_v<Args, const char*>)&&...));
  if constexpr (sizeof...(args) == 0)
    return text.Get();
  else
    return Format(text.Get(), args...);
}

// A message of a program, a problem's sentence or a help page: written in English where it is made, and shown in the
// operator's language where the current catalogue has it under "Messages". `Format(Tr(text), a, b)`; the
// catalogue's text takes the same arguments. Valid until the locale reader ends. Any thread.
[[nodiscard]] const char* Tr(const char* english) __attribute__((format_arg(1)));
// A message in a table, which is passed through Tr where it is shown.
constexpr const char* TrMark(const char* english) { return english; }

// The messages that Tr shows from now on; null: the English ones. They outlive whatever Tr returned. Returns those
// before.
const TMessages* UseMessages(const TMessages* messages);

// Where a TLanguageScope finds its catalogue. Any thread.
class ICatalogues {
 public:
  // Null: there is no such language. Valid as long as the one who answers.
  [[nodiscard]] virtual const TCatalogue* Catalogue(std::string_view language) = 0;

 protected:
  ~ICatalogues() = default;
};
// Asked from now on, not owned; null: nobody. Outlives every scope.
void UseCatalogues(ICatalogues* catalogues);

// While it lives, Tr, TText::Get and Show give this thread the texts of another language than the process's, for the
// answer to somebody else. Scopes nest; an unknown language is the process's own, and so is "": for what is made for an
// answer and stays afterwards, such as a line of the log or the reason of a stop. Other threads notice nothing.
class TLanguageScope {
 public:
  explicit TLanguageScope(std::string_view language);
  ~TLanguageScope() { GThreadCatalogue = FBefore; }
  TLanguageScope(const TLanguageScope&) = delete;
  TLanguageScope& operator=(const TLanguageScope&) = delete;

 private:
  const TCatalogue* const FBefore = GThreadCatalogue;
};

}  // namespace ixocamglue
