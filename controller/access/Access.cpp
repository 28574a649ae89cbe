#include "controller/access/Access.h"

#include <algorithm>
#include <unistd.h>
#include <utility>
#include <vector>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/UserName.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::string_view kMapped = "::ffff:";  // an IPv4 address seen by an IPv6 socket
constexpr std::string_view kBearer = "bearer ";

std::string_view CookieValue(std::string_view cookies, std::string_view name) {
  while (!cookies.empty()) {
    const std::string_view pair = TrimXml(cookies.substr(0, cookies.find(';')));
    if (pair.starts_with(name) && pair.substr(name.size()).starts_with('=')) return pair.substr(name.size() + 1);
    const auto end = cookies.find(';');
    if (end == std::string_view::npos) break;
    cookies.remove_prefix(end + 1);
  }
  return {};
}

std::uint32_t UpToSeconds(std::uint64_t ms) { return static_cast<std::uint32_t>((ms + 999) / 1000); }

TProblem TooManyWrong(std::uint64_t leftMs) {
  return {
      .What = Tr("too many wrong tokens or codes from here"),
      .Why = Format(Tr("at most %d within a minute"), static_cast<int>(TWrongTries::kMost)),
      .Remedy = Format(Tr("try again in %d s; a right token is taken at once"), static_cast<int>(UpToSeconds(leftMs)))};
}

}  // namespace

// --- TPeer ---

bool TPeer::IsLocal() const {
  if (IsUnix()) return true;
  std::string_view address = Address;
  if (address == "::1") return true;
  if (address.starts_with(kMapped)) address.remove_prefix(kMapped.size());
  return address.starts_with("127.");
}

std::string TPeer::Text() const { return IsUnix() ? "unix" : Address; }

// --- TWrongTries ---

std::uint64_t TWrongTries::Add(const std::string& peer, std::uint64_t nowMs) {
  if (!FPeers.contains(peer) && FPeers.size() >= kMostPeers)
    FPeers.erase(std::ranges::min_element(FPeers, {}, [](const auto& row) { return row.second.LastMs; }));
  TTries& tries = FPeers[peer];
  std::uint64_t& oldest = tries.AtMs[tries.Count % kMost];
  if (tries.Count >= kMost && nowMs - oldest < kWithinMs) return kWithinMs - (nowMs - oldest);
  oldest = tries.LastMs = nowMs;
  ++tries.Count;
  return 0;
}

// --- TAccess ---

TAccess::TAccess(const std::filesystem::path& stateFolder, std::function<std::uint64_t()> nowMs)
    : FNowMs(std::move(nowMs)),
      FCookie("ixo_" +
              HexText(Sha256(std::filesystem::absolute(stateFolder).lexically_normal().string())).substr(0, 8)),
      FOwner(Format("user %s (local)", UserName(::geteuid()).c_str())),
      FUser(::geteuid()),
      FTokens(stateFolder),
      FCheck(stateFolder) {}

TAsker TAccess::Stranger(const TPeer& peer) {
  return {.Name = peer.Text(), .Role = roNone, .Connection = peer.Connection, .Local = peer.IsLocal()};
}

TJudged TAccess::Wrong(const std::string& peer, TProblem problem) {
  if (const std::uint64_t leftMs = FWrong.Add(peer, FNowMs()); leftMs > 0)
    return {.Status = 429, .Who = {}, .Problem = TooManyWrong(leftMs), .RetryAfterS = UpToSeconds(leftMs)};
  return {.Status = 401, .Who = {}, .Problem = std::move(problem)};
}

TJudged TAccess::Judge(const TPeer& peer, std::string_view authorization, std::string_view cookie) {
  TJudged judged{.Status = 200, .Who = Stranger(peer), .Problem = {}};
  TAsker& who = judged.Who;
  const bool plain = !peer.IsLocal() && !peer.Secure;
  // Not refused, so that a stop with this token still gets through.
  const auto capped = [plain](TRole role) { return plain ? std::min(role, roOperator) : role; };

  if (!authorization.empty()) {
    TGuard guard(FLock);
    if (!SameFolded(authorization.substr(0, kBearer.size()), kBearer))
      return Wrong(peer.Text(), {.What = Tr("the Authorization header holds no bearer token"),
                                 .Remedy = Tr("send \"Authorization: Bearer TOKEN\"")});
    const auto token = FCheck.Find(TrimXml(authorization.substr(kBearer.size())));
    if (!token)
      return Wrong(peer.Text(), FCheck.Trouble()
                                    ? *FCheck.Trouble()
                                    : TProblem{.What = Tr("the token is not known"),
                                               .Why = Tr("it was revoked, is another controller's, or is mistyped"),
                                               .Remedy = Tr("\"ixocut token list\" shows those there are")});
    who.Name = "token " + token->Name;
    who.By = kbToken;
    who.Role = capped(token->Role);
    return judged;
  }
  if (const std::string_view secret = CookieValue(cookie, FCookie); !secret.empty()) {
    TGuard guard(FLock);
    if (const auto session = FCodes.Find(secret, FNowMs())) {
      who.Name = "console " + ValueText(session->Number);
      who.By = kbSession;
      who.Session = session->Number;
      who.Role = capped(session->Role);
      return judged;
    }
  }
  if (peer.IsUnix() && peer.User == FUser) {
    who.Name = FOwner;
    who.Role = roOperator;
    who.By = kbUser;
    return judged;
  }
  if (peer.IsLocal() && !peer.IsUnix()) {
    who.Role = roViewer;
    return judged;
  }
  return {
      .Status = 401,
      .Who = {},
      .Problem = {.What = Tr("from there a token is needed"),
                  .Remedy = Tr("make one with \"ixocut token add\", and send it as \"Authorization: Bearer TOKEN\"")}};
}

std::string TAccess::MakeCode(TRole role) {
  TGuard guard(FLock);
  return FCodes.MakeCode(role, FNowMs());
}

void TAccess::SetAddress(const std::string& url) {
  TGuard guard(FLock);
  FAddress = url;
}

std::string TAccess::Link(const std::string& code) {
  TGuard guard(FLock);
  return FAddress.empty() ? std::string() : FAddress + "/#code=" + code;
}

TAccess::TLogin TAccess::Exchange(const TAsker& who, std::string_view code) {
  TGuard guard(FLock);
  const auto opened = FCodes.Exchange(code, FNowMs());
  if (!opened) {
    TJudged wrong = Wrong(who.Name, {.What = Tr("the link's code is not known"),
                                     .Why = Tr("it was used, or is older than 60 s"),
                                     .Remedy = Tr("\"ixocut console\" makes a new link")});
    return {.Status = wrong.Status,
            .SetCookie = {},
            .Session = {},
            .Problem = std::move(wrong.Problem),
            .RetryAfterS = wrong.RetryAfterS};
  }
  return {.Status = 200,
          .SetCookie = CookieOf(opened->Secret, TConsoleCodes::kSessionMs / 1000),
          .Session = opened->Session,
          .Problem = {}};
}

std::string TAccess::CookieOf(const std::string& secret, std::uint64_t seconds) const {
  return FCookie + "=" + secret + "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" + ValueText(seconds) +
         (FAddress.starts_with("https:") ? "; Secure" : "");
}

TAccess::TLogout TAccess::EndSession(const TAsker& who) {
  TGuard guard(FLock);
  return {.Ended = FCodes.End(who.Session), .SetCookie = CookieOf({}, 0)};
}

void TAccess::LogCommand(const TAsker& who, const TPeer& peer, std::string_view method, std::string_view path,
                         int status) {
  const bool changesNothing = path.ends_with("/heartbeat") || path.ends_with("/check");
  if (status == 429 || (status < 400 && changesNothing)) return;
  const TLanguageScope own("");  // the log is everybody's
  LogMsg(status < 400 ? lkInfo : lkWarning, 0,
         Format(Tr("%s %s by %s from %s: %d"), std::string(method).c_str(), std::string(path).c_str(), who.Name.c_str(),
                peer.Text().c_str(), status)
             .c_str(),
         "TAccess");
}

}  // namespace ixocontroller
