// The known name that a wrong one was probably meant to be. Values; any thread. Nothing fails: no name that is near is
// an empty text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ixocamglue {

// How many letters have to be changed, added or left out, capitals or not; at most `limit` + 1.
[[nodiscard]] std::size_t NameDistance(std::string_view a, std::string_view b, std::size_t limit);

// "did you mean move-xy?"
[[nodiscard]] std::string DidYouMean(std::string_view names);

// Offered the known names one after the other; up to two letters apart, the first of the nearest wins.
class TNearestName {
 public:
  explicit TNearestName(std::string_view name) : FName(name) {}
  void Consider(std::string_view known);                             // outlives the search
  [[nodiscard]] std::string_view Found() const { return FNearest; }  // empty: none is near
  // The question; what is said instead where none is near.
  [[nodiscard]] std::string DidYouMean(std::string otherwise = {}) const;

 private:
  static constexpr std::size_t kNear = 2;

  std::string_view FName;
  std::string_view FNearest;
  std::size_t FBest = kNear + 1;
};

}  // namespace ixocamglue
