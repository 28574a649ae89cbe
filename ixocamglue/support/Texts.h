// Operator texts: a key with its Simplified Chinese default beside it, replaceable while the program runs. Any thread.
#pragma once

#include <array>
#include <atomic>
#include <span>
#include <string>
#include <type_traits>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {

// One catalogue entry: `inline constinit` in its unit's header, and one of that unit's list; the lists of the library's
// units stand in Library.cpp. Found by the locale reader under Section and Key. The text that Get returns stays valid
// until the reader ends, also when the language changes meanwhile.
class TText {
 public:
  constexpr TText(const char* section, const char* key, const char* chinese)
      : Section(section), Key(key), Default(chinese), FCurrent(chinese) {}
  TText(const TText&) = delete;
  TText& operator=(const TText&) = delete;

  [[nodiscard]] const char* Get() const { return FCurrent.load(std::memory_order_acquire); }
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

}  // namespace ixocamglue
