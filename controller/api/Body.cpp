#include "controller/api/Body.h"

#include <algorithm>
#include <string_view>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kMostListed = 1000;

[[noreturn]] void Wrong(const char* name, std::string what) {
  throw EProblem(pbRequest, TProblem{.What = std::move(what), .Where = name});
}

}  // namespace

TAskedBody::TAskedBody(const TApiRequest& request, std::initializer_list<const char*> known) : FBody(request.Body) {
  if (FBody.is_null()) return;
  if (!FBody.is_object()) throw EProblem(pbRequest, Tr("the body is no JSON object"));
  for (const auto& [name, value] : FBody.items()) {
    if (std::ranges::find(known, name, [](const char* text) { return std::string_view(text); }) != known.end())
      continue;
    TNearestName nearest(name);
    for (const char* const one : known) nearest.Consider(one);
    throw EProblem(pbRequest, TProblem{.What = Tr("the body has a member that is not known here"),
                                       .Where = name,
                                       .Remedy = nearest.DidYouMean()});
  }
}

bool TAskedBody::Has(const char* name) const {
  return FBody.is_object() && FBody.contains(name) && !FBody[name].is_null();
}

const nlohmann::json& TAskedBody::At(const char* name) const {
  if (!Has(name)) Wrong(name, Tr("it is missing"));
  return FBody[name];
}

std::string TAskedBody::Text(const char* name) const {
  const nlohmann::json& value = At(name);
  if (!value.is_string() || value.get_ref<const std::string&>().empty()) Wrong(name, Tr("not a text"));
  return value.get<std::string>();
}

double TAskedBody::Number(const char* name, double least, double most) const {
  const nlohmann::json& value = At(name);
  if (!value.is_number()) Wrong(name, Tr("not a number"));
  const auto number = value.get<double>();
  if (!(number >= least && number <= most))
    Wrong(name, Format(Tr("%.10g is not in %.10g..%.10g"), number, least, most));
  return number;
}

std::int64_t TAskedBody::Whole(const char* name, std::int64_t least, std::int64_t most) const {
  const double number = Number(name, static_cast<double>(least), static_cast<double>(most));
  const nlohmann::json& value = At(name);
  if (!value.is_number_integer()) Wrong(name, Format(Tr("%.10g is no whole number"), number));
  return value.get<std::int64_t>();
}

bool TAskedBody::Flag(const char* name, bool otherwise) const {
  if (!Has(name)) return otherwise;
  if (!At(name).is_boolean()) Wrong(name, Tr("neither true nor false"));
  return At(name).get<bool>();
}

std::vector<std::string> TAskedBody::Texts(const char* name) const {
  if (!Has(name)) return {};
  const nlohmann::json& value = At(name);
  if (value.is_string()) return {value.get<std::string>()};
  if (!value.is_array() || value.size() > kMostListed) Wrong(name, Tr("not a list"));
  std::vector<std::string> texts;
  for (const nlohmann::json& item : value) {
    if (!item.is_string()) Wrong(name, Tr("not a text"));
    texts.push_back(item.get<std::string>());
  }
  return texts;
}

}  // namespace ixocontroller
