#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

std::string TProblem::Text() const {
  std::string text = Where.empty() ? What : Where + ": " + What;
  if (!Why.empty()) text += " (" + Why + ")";
  if (!Remedy.empty()) text += "; " + Remedy;
  return text;
}

}  // namespace ixocamglue
