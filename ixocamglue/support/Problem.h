// Whatever goes wrong for a person or a program, in one shape: made where it is known; printed, sent or stored
// elsewhere. Values; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace ixocamglue {

// Nothing here fails.
struct TProblem {
  std::string What;    // "the pressure is above the branch's limit: 20 bar, at most 10 bar"
  std::string Where;   // "machine.xml:187:29" or "--pressure"; empty: nowhere else than What says
  std::string Why;     // "branch 2 (O2) has MaxPressure 10"; empty where What says it all
  std::string Remedy;  // "ask for 10 bar or less"; empty where there is none

  // "where: what (why); remedy"
  [[nodiscard]] std::string Text() const;
  friend bool operator==(const TProblem&, const TProblem&) = default;
};

// Whose matter a problem is.
enum class TBlame : std::uint8_t {
  pbRequest,  // what was asked for is wrong; nothing was done
  pbRefused,  // it was understood, and does not come to pass
  pbUnusable  // a file or a device cannot be used
};
using enum TBlame;

// What ends an operation that is not a tick before its work is done. Thrown only where a header says so.
class EProblem : public std::runtime_error {
 public:
  EProblem(TBlame blame, TProblem problem)
      : std::runtime_error(problem.Text()), Blame(blame), Problem(std::move(problem)) {}
  EProblem(TBlame blame, std::string what) : EProblem(blame, TProblem{.What = std::move(what)}) {}

  TBlame Blame;
  TProblem Problem;
};

// A value, or why there is none. Converts from both. Nothing of it fails but OrThrow.
template <class T = void>
class [[nodiscard]] TResult {
 public:
  TResult(T value) : FValue(std::move(value)) {}
  TResult(TProblem problem) : FProblem(std::move(problem)) {}

  [[nodiscard]] bool Ok() const { return FValue.has_value(); }
  explicit operator bool() const { return Ok(); }
  // Only with a value.
  [[nodiscard]] T& Value() { return *FValue; }
  [[nodiscard]] const T& Value() const { return *FValue; }
  T& operator*() { return *FValue; }
  const T& operator*() const { return *FValue; }
  T* operator->() { return &*FValue; }
  const T* operator->() const { return &*FValue; }
  // Empty with a value.
  [[nodiscard]] const TProblem& Problem() const { return FProblem; }
  // The value, or EProblem.
  T OrThrow(TBlame blame) && {
    if (!FValue) throw EProblem(blame, std::move(FProblem));
    return *std::move(FValue);
  }

 private:
  std::optional<T> FValue;
  TProblem FProblem;
};

// Done, or why not. Nothing of it fails but OrThrow.
template <>
class [[nodiscard]] TResult<void> {
 public:
  TResult() = default;
  TResult(TProblem problem) : FProblem(std::move(problem)) {}

  [[nodiscard]] bool Ok() const { return !FProblem; }
  explicit operator bool() const { return Ok(); }
  // Only of a failure.
  [[nodiscard]] const TProblem& Problem() const { return *FProblem; }
  void OrThrow(TBlame blame) && {
    if (FProblem) throw EProblem(blame, *std::move(FProblem));
  }

 private:
  std::optional<TProblem> FProblem;
};

}  // namespace ixocamglue
