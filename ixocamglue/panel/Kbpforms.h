// The form table: which keys the client permits while a form is on screen. The table is constant: any thread, and
// nothing throws.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "ixocamglue/panel/Kbpkeys.h"

namespace ixocamglue {

struct TFormGroup {
  TKeyMask Mask;
  TKeyMask Keys;  // the same, spelled as keys
  std::span<const std::string_view> Forms;
};

// Groups in the order of the table, and the forms in theirs.
[[nodiscard]] std::span<const TFormGroup> FormGroups();
[[nodiscard]] std::size_t FormCount();
// Case counts. Nothing for a form that the table does not know.
[[nodiscard]] std::optional<TKeyMask> FormMask(std::string_view formName);

}  // namespace ixocamglue
