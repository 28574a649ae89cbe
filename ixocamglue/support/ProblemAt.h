// A value that somebody asked for by an option, a line or a request: what is wrong with it is told of that place, and
// thrown. Any thread.
#pragma once

#include <string>
#include <utility>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// The value, or EProblem whose Where is `where`.
template <class T>
[[nodiscard]] T OrThrowAt(TResult<T> result, TBlame blame, std::string where) {
  if (result) return *std::move(result);
  TProblem problem = result.Problem();
  problem.Where = std::move(where);
  throw EProblem(blame, std::move(problem));
}
inline void OrThrowAt(const TResult<>& result, TBlame blame, std::string where) {
  if (!result) (void)OrThrowAt<int>(result.Problem(), blame, std::move(where));
}

}  // namespace ixocamglue
