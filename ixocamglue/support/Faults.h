// Design faults: a wrong call order, an impossible number, a missing override. Any thread.
//
// Two forms. ReportFault tells the installed handler the literal text and returns, so that the caller goes on with its
// safe value on the same line. EDesignFault is thrown where the running tick must not go on; the guard that catches it
// names it in its comment. Without a handler a reported fault is silent: support/ owns no log.
#pragma once

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace ixocamglue {

class EDesignFault : public std::logic_error {
 public:
  using std::logic_error::logic_error;
  // `unit`, a literal, names the unit whose assertion this is.
  EDesignFault(const char* text, const char* unit) : std::logic_error(text), FUnit(unit) {}
  [[nodiscard]] const char* Unit() const { return FUnit; }

 private:
  const char* FUnit = "";
};

using TFaultHandler = std::function<void(std::string_view text)>;

// Installs `handler` and returns the previous one. Installed before any thread starts, removed after all have ended.
// What the handler throws is swallowed: reporting a fault never changes the reporter's course.
TFaultHandler SetFaultHandler(TFaultHandler handler);

void ReportFault(std::string_view text) noexcept;

// Reports, then hands back the value with which the caller goes on.
template <class T>
[[nodiscard]] T FaultOr(T safe, std::string_view text) noexcept {
  ReportFault(text);
  return safe;
}

// Text of an exception for a log line: what() where there is one.
[[nodiscard]] std::string DescribeException(const std::exception_ptr& error);

// Runs several actions that must all be tried, whatever the others throw, and rethrows the first failure at the end.
class TTryAll {
 public:
  template <class F>
  TTryAll& operator()(F&& action) noexcept {
    try {
      std::forward<F>(action)();
    } catch (...) {
      if (!FFirst) FFirst = std::current_exception();
    }
    return *this;
  }
  void Rethrow() const {
    if (FFirst) std::rethrow_exception(FFirst);
  }

 private:
  std::exception_ptr FFirst;
};

}  // namespace ixocamglue
