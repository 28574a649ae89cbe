#include "ixocamglue/support/JsonText.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr int kOutOfRange = 406;  // of a number; everything else is a matter of syntax

// Passes over the document and keeps where it ends to be one.
struct TFinder : nlohmann::json_sax<nlohmann::json> {
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception& e) override {
    Read = position;
    Number = e.id == kOutOfRange;
    return false;
  }

  std::size_t Read = 0;  // characters, the refused one among them
  bool Number = false;
};

}  // namespace

TProblem JsonProblem(std::string_view text) {
  text = WithoutMark(text);
  TFinder finder;
  (void)nlohmann::json::sax_parse(text, &finder);
  const std::string_view before = text.substr(0, std::min(finder.Read > 0 ? finder.Read - 1 : 0, text.size()));
  const auto lineStart = before.rfind('\n');
  return {.What = finder.Number ? Tr("the number is too large") : Tr("is not valid JSON here"),
          .Where = Format("%td:%zu", std::ranges::count(before, '\n') + 1,
                          before.size() - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1)};
}

TResult<nlohmann::ordered_json> ParseJson(std::string_view text, const std::string& where) {
  auto document = nlohmann::ordered_json::parse(WithoutMark(text), nullptr, false);
  if (!document.is_discarded()) return document;
  TProblem problem = JsonProblem(text);
  problem.Where = where + ":" + problem.Where;
  return problem;
}

nlohmann::ordered_json ProblemJson(const TProblem& problem) {
  return {{"what", problem.What}, {"where", problem.Where}, {"why", problem.Why}, {"remedy", problem.Remedy}};
}

TProblem ProblemFromJson(const nlohmann::ordered_json& json) {
  return {TextMember(json, "what"), TextMember(json, "where"), TextMember(json, "why"), TextMember(json, "remedy")};
}

std::string TextMember(const nlohmann::ordered_json& json, const char* name) {
  const auto found = json.is_object() ? json.find(name) : json.end();
  return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace ixocamglue
