#include "controller/wire/Pages.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "controller/access/Sha256.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kBelow = "/console/";

// Nothing but this controller's own files, no script or style within the markup, and in nobody's frame.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

const char* TypeOf(const fs::path& file) {
  static const std::map<std::string, const char*> types = {{".html", "text/html; charset=utf-8"},
                                                           {".js", "text/javascript; charset=utf-8"},
                                                           {".css", "text/css; charset=utf-8"},
                                                           {".svg", "image/svg+xml"}};
  const auto found = types.find(file.extension().string());
  return found == types.end() ? nullptr : found->second;
}

// What stands between quotation marks, as it is written there.
void CollectLiterals(std::string_view script, std::set<std::string, std::less<>>& into) {
  for (std::size_t begin = script.find('"'); begin != std::string_view::npos; begin = script.find('"', begin)) {
    std::size_t end = begin + 1;
    while (end < script.size() && script[end] != '"' && script[end] != '\n') end += script[end] == '\\' ? 2U : 1U;
    if (end >= script.size()) return;
    if (script[end] == '"') into.emplace(script.substr(begin, end + 1 - begin));
    begin = end + 1;
  }
}

// Without what a browser does not read: indentation, lines that are comments, and comments behind code, which stand two
// blanks off it. The lines keep their numbers. No text of the console's scripts goes over several lines or holds such a
// comment.
std::string Lean(std::string_view text) {
  std::string lean;
  lean.reserve(text.size());
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::size_t comment = line.starts_with("//") ? 0 : line.find("  // ");
    lean += line.substr(0, comment);
    if (comment != std::string_view::npos) lean += '\n';
  }
  return lean;
}

}  // namespace

TPages::TPages(const TPageFolders& folders) {
  if (folders.Console.empty()) return;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folders.Console, error), end; !error && it != end; it.increment(error)) {
    const char* const type = TypeOf(it->path());
    if (!type || !it->is_regular_file(error)) continue;
    if (TResult<std::string> body = ReadFile(it->path()))
      Add(std::string(kBelow) + it->path().lexically_relative(folders.Console).generic_string(), type, Lean(*body));
  }
  if (const auto index = FPages.find("/console/index.html"); index != FPages.end()) FPages["/"] = index->second;
  for (const char* const name : {"dygraph.min.js", "dygraph.min.css"})
    if (TResult<std::string> body = ReadFile(folders.Plots / name))
      Add(std::string(kBelow) + name, TypeOf(name), std::move(*body));
  AddTexts(folders.Locale);
  std::string all;
  for (const auto& [path, page] : FPages) all += path + page.ETag;
  if (!all.empty()) Add("/console/edition", "text/plain; charset=utf-8", HexText(Sha256(all)).substr(0, 16));
}

void TPages::Add(const std::string& path, std::string type, std::string body) {
  std::string tag = '"' + HexText(Sha256(body)).substr(0, 16) + '"';
  FPages[path] = {.Type = std::move(type), .ETag = std::move(tag), .Body = std::move(body)};
}

void TPages::AddTexts(const fs::path& locale) {
  std::set<std::string, std::less<>> literals;
  for (const auto& [path, page] : FPages)
    if (path.ends_with(".js") && path.find(".min.") == std::string::npos) CollectLiterals(page.Body, literals);
  std::error_code error;
  for (fs::directory_iterator it(locale, error), end; !error && it != end; it.increment(error)) {
    if (it->path().extension() != ".json") continue;
    const TResult<std::string> text = ReadFile(it->path());
    const auto catalogue = text ? nlohmann::json::parse(*text, nullptr, false) : nlohmann::json();
    if (!catalogue.is_object()) continue;
    nlohmann::json own = nlohmann::json::object();
    if (const auto messages = catalogue.find("Messages"); messages != catalogue.end() && messages->is_object())
      for (const auto& [english, translated] : messages->items())
        if (literals.contains(nlohmann::json(english).dump())) own[english] = translated;
    Add("/console/texts/" + it->path().filename().string(), kJsonType, own.dump());
  }
}

bool TPages::Owns(std::string_view path) { return path == "/" || path.starts_with(kBelow); }

TWireReply TPages::Answer(const std::string& path, std::string_view ifNoneMatch) const {
  const auto found = FPages.find(path);
  if (found == FPages.end())
    return Refuse(404, {.What = Tr("the console has no such file"),
                        .Where = path,
                        .Why = {},
                        .Remedy = FPages.empty() ? Tr("its files are missing where the program is installed") : ""});
  TWireReply reply;
  reply.ETag = found->second.ETag;
  reply.Policy = kPolicy;
  if (ifNoneMatch == reply.ETag) {
    reply.Status = 304;
    return reply;
  }
  reply.ContentType = found->second.Type;
  reply.Body = found->second.Body;
  return reply;
}

}  // namespace ixocontroller
