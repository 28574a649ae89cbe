// Operator texts: a key with its Simplified Chinese default beside it, replaceable while the program runs. Any thread.
#pragma once

#include <atomic>

namespace ixocamglue {

// One catalogue entry. Declared `constinit` at namespace scope in the unit that shows the text; found by the locale
// reader under Section and Key. The text that Get returns stays valid until the library is finalised, also when the
// language changes meanwhile (the reader keeps every text that it ever installed until then).
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

}  // namespace ixocamglue
