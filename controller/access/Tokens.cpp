#include "controller/access/Tokens.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "controller/access/Sha256.h"
#include "controller/process/JsonFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/StateFiles.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::string_view kTokenStart = "ixo_";
constexpr std::size_t kIdBytes = 8;
constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kSaltBytes = 16;
constexpr std::size_t kMostNameBytes = 64;

// "ixo_<id>_<secret>": the id finds the row, so that one question costs one hash however many tokens there are.
struct TTokenParts {
  std::string_view Id;
  std::string_view Secret;
};

TTokenParts SplitToken(std::string_view token) {
  if (!token.starts_with(kTokenStart)) return {};
  token.remove_prefix(kTokenStart.size());
  const auto bar = token.find('_');
  if (bar == std::string_view::npos) return {};
  return {token.substr(0, bar), token.substr(bar + 1)};
}

std::string TokenHash(std::string_view salt, std::string_view secret) {
  return HexText(Sha256(std::string(salt) + std::string(secret)));
}

TProblem NoTokenArray(const std::filesystem::path& file) {
  return {.What = Tr("\"tokens\" is no list"), .Where = file.string(), .Remedy = Tr("correct the file or remove it")};
}

// The document with its list of tokens, made where there is none.
TResult<TJson> ReadTokens(const std::filesystem::path& file) {
  auto content = ReadJsonFile(file);
  if (!content) return content;
  TJson& tokens = (*content)["tokens"];
  if (tokens.is_null()) tokens = TJson::array();
  if (!tokens.is_array()) return NoTokenArray(file);
  return content;
}

TResult<> LockTokens(TFileLock& lock, const std::filesystem::path& file, std::uint32_t waitMs) {
  if (TResult<> made = MakeFolder(file.parent_path()); !made) return made;
  if (lock.Take(file.string(), waitMs) != lsHeld) return lock.Problem();
  return {};
}

}  // namespace

const char* RoleWord(TRole role) {
  switch (role) {
    case roNone: return "none";
    case roViewer: return "viewer";
    case roOperator: return "operator";
    case roService: return "service";
  }
  return "";
}

TResult<TRole> RoleOf(std::string_view word) {
  TNearestName nearest(word);
  for (const TRole role : {roViewer, roOperator, roService}) {
    if (word == RoleWord(role)) return role;
    nearest.Consider(RoleWord(role));
  }
  return TProblem{.What = Format(Tr("\"%s\" is no role"), std::string(word).c_str()),
                  .Remedy = nearest.DidYouMean(Tr("the roles are viewer, operator and service"))};
}

// --- TTokenFile ---

TResult<> CheckTokenName(const std::string& name) {
  const auto fits = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
  };
  if (!name.empty() && name.size() <= kMostNameBytes && std::ranges::all_of(name, fits)) return {};
  return TProblem{.What = Tr("a token's name has 1 to 64 letters, digits, '.', '_' and '-'")};
}

TTokenFile::TTokenFile(const std::filesystem::path& stateFolder) : FFile(stateFolder / kTokensFile) {}

TResult<std::string> TTokenFile::Add(const std::string& name, TRole role, std::uint32_t waitMs) {
  if (auto fits = CheckTokenName(name); !fits) return fits.Problem();
  if (role == roNone) return TProblem{.What = Tr("the roles are viewer, operator and service")};
  TFileLock lock;
  if (auto locked = LockTokens(lock, FFile, waitMs); !locked) return locked.Problem();
  auto content = ReadTokens(FFile);
  if (!content) return content.Problem();
  TJson& tokens = (*content)["tokens"];
  for (const TJson& row : tokens)
    if (TextMember(row, "name") == name)
      return TProblem{.What = Format(Tr("there is a token of the name \"%s\""), name.c_str()),
                      .Remedy = Tr("choose another name, or revoke that one first")};
  if (tokens.size() >= kMostTokens)
    return TProblem{.What = Format(Tr("there are %zu tokens already"), tokens.size()),
                    .Remedy = Tr("revoke what is not used any more")};
  const std::string id = RandomHex(kIdBytes);
  const std::string secret = RandomHex(kSecretBytes);
  const std::string salt = RandomHex(kSaltBytes);
  tokens.push_back({{"name", name},
                    {"role", RoleWord(role)},
                    {"id", id},
                    {"salt", salt},
                    {"sha256", TokenHash(salt, secret)},
                    {"created", UtcText(RealUnixMs())}});
  if (auto saved = SaveJsonFile(FFile, *content); !saved) return saved.Problem();
  return std::string(kTokenStart) + id + "_" + secret;
}

TResult<> TTokenFile::Revoke(const std::string& name, std::uint32_t waitMs) {
  TFileLock lock;
  if (auto locked = LockTokens(lock, FFile, waitMs); !locked) return locked;
  auto content = ReadTokens(FFile);
  if (!content) return content.Problem();
  TJson& tokens = (*content)["tokens"];
  TNearestName nearest(name);
  std::vector<std::string> names;
  for (const TJson& row : tokens) names.push_back(TextMember(row, "name"));
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) {
    for (const std::string& known : names) nearest.Consider(known);
    return TProblem{.What = Format(Tr("there is no token of the name \"%s\""), name.c_str()),
                    .Remedy = nearest.DidYouMean()};
  }
  tokens.erase(static_cast<std::size_t>(found - names.begin()));
  return SaveJsonFile(FFile, *content);
}

TResult<std::vector<TToken>> TTokenFile::List() const {
  const auto content = ReadTokens(FFile);
  if (!content) return content.Problem();
  std::vector<TToken> list;
  for (const TJson& row : content->at("tokens")) {
    const auto role = RoleOf(TextMember(row, "role"));
    list.push_back({TextMember(row, "name"), role ? *role : roNone, TextMember(row, "created")});
  }
  std::ranges::sort(list, {}, &TToken::Name);
  return list;
}

// --- TTokenCheck ---

TTokenCheck::TTokenCheck(const std::filesystem::path& stateFolder) : FFile(stateFolder / kTokensFile) {}

std::optional<TToken> TTokenCheck::Find(std::string_view token) {
  Refresh();
  const TTokenParts parts = SplitToken(token);
  const auto found = FTokens.find(parts.Id);
  // An unknown one costs what a known one costs.
  static const TKept kNobody{{}, std::string(2 * kSaltBytes, '0'), std::string(2 * kSecretBytes, '0')};
  const TKept& kept = found != FTokens.end() ? found->second : kNobody;
  if (!SameSecret(TokenHash(kept.Salt, parts.Secret), kept.Hash) || found == FTokens.end()) return std::nullopt;
  return kept.Token;
}

void TTokenCheck::Refresh() {
  TStamp now;
  struct stat status {};
  const int error = ::stat(FFile.c_str(), &status) == 0 ? 0 : errno;
  if (error == 0)
    now = {status.st_ino, status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec,
           status.st_ctim.tv_sec * 1'000'000'000LL + status.st_ctim.tv_nsec, status.st_size};
  if (FStamp == now) return;
  FStamp = now;
  FTokens.clear();
  FTrouble.reset();
  if (error == ENOENT) return;
  if (error == 0 &&
      ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 || (status.st_uid != ::geteuid() && status.st_uid != 0))) {
    FTrouble = {.What = Tr("no token is accepted, because others may write to the file"),
                .Where = FFile.string(),
                .Remedy = Tr("give it to the controller's user, with mode 600")};
    return;
  }
  const auto content = ReadTokens(FFile);
  if (!content) {
    FTrouble = content.Problem();
    return;
  }
  for (const TJson& row : content->at("tokens")) {
    const auto role = RoleOf(TextMember(row, "role"));
    const std::string id = TextMember(row, "id");
    if (!role || id.empty()) continue;  // a newer program's, perhaps
    FTokens[id] = {{TextMember(row, "name"), *role, TextMember(row, "created")},
                   TextMember(row, "salt"),
                   TextMember(row, "sha256")};
  }
}

}  // namespace ixocontroller
