#include "ixocamglue/support/Nearest.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

std::size_t NameDistance(std::string_view a, std::string_view b, std::size_t limit) {
  if (a.size() > b.size() + limit || b.size() > a.size() + limit) return limit + 1;
  // One change makes at most one letter come and one go: most pairs of names are told apart by that alone.
  const auto letters = [](std::string_view text) {
    std::uint64_t set = 0;
    for (const char c : text) set |= std::uint64_t{1} << (static_cast<unsigned char>(FoldAscii(c)) & 63);
    return set;
  };
  if (static_cast<std::size_t>(std::popcount(letters(a) ^ letters(b))) > 2 * limit) return limit + 1;
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t change = diagonal + (FoldAscii(a[i - 1]) == FoldAscii(b[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, change});
    }
  }
  return row[b.size()];
}

std::string DidYouMean(std::string_view names) { return Format(Tr("did you mean %s?"), std::string(names).c_str()); }

void TNearestName::Consider(std::string_view known) {
  const std::size_t distance = NameDistance(FName, known, kNear);
  if (distance >= FBest || distance >= std::min(FName.size(), known.size())) return;
  FBest = distance;
  FNearest = known;
}

std::string TNearestName::DidYouMean(std::string otherwise) const {
  return FNearest.empty() ? std::move(otherwise) : ixocamglue::DidYouMean(FNearest);
}

}  // namespace ixocamglue
