// A POST of some JSON to a place that a file names. What is waited for is bounded, and ends when the caller ends.
// Blocks the caller's thread, which is one of its own; nothing throws, and what did not arrive is a problem.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::uint32_t kWebhookMs = 3'000;      // from the first byte to the answer
inline constexpr std::uint32_t kWebhookNameMs = 1'000;  // of them for its name, which nothing ends earlier

struct TWebhook {
  bool Secure = false;  // https
  std::string Host, Port, Path;
  std::filesystem::path Trusted;  // of https: the certificates of who is, a PEM file; empty: the system's

  [[nodiscard]] std::string Text() const;
};

// "http://192.168.0.20:8080/x", "https://plan.example/x", "http://[::1]/"; nothing: it is none.
[[nodiscard]] std::optional<TWebhook> ParseWebhook(std::string_view url);

// Within kWebhookMs; `ending` is asked meanwhile, and ends it. A problem is also an answer other than 2xx.
[[nodiscard]] TResult<> Post(const TWebhook& webhook, const std::string& json, const std::function<bool()>& ending);

}  // namespace ixocontroller
