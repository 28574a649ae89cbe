#include "controller/process/JsonFile.h"

#include <cerrno>
#include <string>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {

TResult<nlohmann::ordered_json> ReadJsonFile(const std::filesystem::path& file) {
  std::string bytes;
  const int error = Files().Read(file.string(), kJsonFileLimit, bytes);
  if (error == ENOENT) return nlohmann::ordered_json::object();
  if (error != 0)
    return TProblem{.What = Tr("the file cannot be read"), .Where = file.string(), .Why = SystemErrorText(error)};
  if (IsBlank(WithoutMark(bytes))) return nlohmann::ordered_json::object();
  auto content = ParseJson(bytes, file.string());
  if (content && !content->is_object())
    return TProblem{.What = Tr("the file holds no JSON object"), .Where = file.string()};
  return content;
}

TResult<> SaveJsonFile(const std::filesystem::path& file, const nlohmann::ordered_json& content, std::uint32_t mode) {
  const auto bytes = content.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  const TReplaced saved = ReplaceFile(file.string(), bytes, {}, mode);
  if (!saved.Done)
    return TProblem{.What = Tr("the file cannot be written"), .Where = file.string(), .Why = saved.Problem};
  return {};
}

}  // namespace ixocontroller
