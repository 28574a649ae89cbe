#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

TFaultHandler& Handler() {
  static TFaultHandler handler;
  return handler;
}

}  // namespace

TFaultHandler SetFaultHandler(TFaultHandler handler) { return std::exchange(Handler(), std::move(handler)); }

void ReportFault(std::string_view text) noexcept {
  try {
    if (const auto& handler = Handler()) handler(text);
  } catch (...) {  // the reporter goes on with its safe value whatever the handler does
  }
}

std::string DescribeException(const std::exception_ptr& error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown exception";
  }
  return {};
}

}  // namespace ixocamglue
