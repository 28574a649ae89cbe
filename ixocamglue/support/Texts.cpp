#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constinit std::atomic<const TMessages*> GMessages{nullptr};

}  // namespace

const char* Tr(const char* english) {
  const TMessages* const messages = GMessages.load(std::memory_order_acquire);
  if (!messages) return english;
  const auto found = messages->find(std::string_view(english));
  return found == messages->end() ? english : found->second.c_str();
}

const TMessages* UseMessages(const TMessages* messages) {
  return GMessages.exchange(messages, std::memory_order_acq_rel);
}

}  // namespace ixocamglue
