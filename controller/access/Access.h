// Who is let in, and as what. One question for every request: `Judge`, before anything else looks at it.
//
//   from                          | shows nothing | a right token    | console session   | a wrong token
//   ------------------------------+---------------+------------------+-------------------+------------------------
//   the Unix socket, own user     | operator      | the token's role | the session's     | 401; 429 after ten in
//   the Unix socket, another user | 401           | the token's role | the session's     | a minute from one
//   127.0.0.0/8, ::1              | viewer        | the token's role | the session's     | peer. A right one
//   elsewhere, TLS                | 401           | the token's role | the session's     | never gets it.
//   elsewhere, without            | 401           | at most operator | at most operator  |
//
// A session that is over counts as nothing shown, so that a page that was left open still reads. Which role a route
// needs is the route's matter. Any thread; the lock is held for memory and for a look at the tokens' file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "controller/access/Asker.h"
#include "controller/access/ConsoleCodes.h"
#include "controller/access/Tokens.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

// The other end of a connection, as the system tells of it. Nothing here fails.
struct TPeer {
  std::string Address;           // "127.0.0.1", "::1", "192.168.0.7"; empty: the Unix socket
  std::uint32_t User = 0;        // of the Unix socket: the user's number (SO_PEERCRED)
  std::uint64_t Connection = 0;  // the wire's number
  bool Secure = false;           // TLS

  [[nodiscard]] bool IsUnix() const { return Address.empty(); }
  [[nodiscard]] bool IsLocal() const;      // this machine
  [[nodiscard]] std::string Text() const;  // for logs: "192.168.0.7", "unix"
};

struct TJudged {
  int Status = 200;  // else 401 or 429, with Problem
  TAsker Who;        // with 200
  TProblem Problem;
  std::uint32_t RetryAfterS = 0;  // with 429

  [[nodiscard]] bool Ok() const { return Status == 200; }  // false: Problem says why
};

// Wrong tokens, peer by peer. Not locked. Nothing of it fails.
class TWrongTries {
 public:
  static constexpr std::size_t kMost = 10;
  static constexpr std::uint64_t kWithinMs = 60'000;
  static constexpr std::size_t kMostPeers = 256;  // beyond these the one that was wrong longest ago is forgotten

  // One more; answers 0, or for how long this peer has had its tries (that one then does not count).
  [[nodiscard]] std::uint64_t Add(const std::string& peer, std::uint64_t nowMs);

 private:
  struct TTries {
    std::uint64_t AtMs[kMost] = {};
    std::uint64_t Count = 0;
    std::uint64_t LastMs = 0;
  };
  std::map<std::string, TTries> FPeers;
};

// Who is not let in is told so by status and problem. Making a code or a session throws EProblem where the system gives
// no random numbers.
class TAccess {
 public:
  explicit TAccess(const std::filesystem::path& stateFolder, std::function<std::uint64_t()> nowMs = &RealMs);

  // `authorization` and `cookie` are the headers' values; empty: there is none.
  [[nodiscard]] TJudged Judge(const TPeer& peer, std::string_view authorization, std::string_view cookie);
  // Who exchanges a code (POST session): nobody yet, from wherever. Everything else is judged.
  [[nodiscard]] static TAsker Stranger(const TPeer& peer);

  // For the fragment of the console's link, good for TConsoleCodes::kCodeMs.
  [[nodiscard]] std::string MakeCode(TRole role);
  // Where the console is reached, "http://127.0.0.1:8620"; empty: nowhere. With https browsers send its cookie nowhere
  // else than by TLS.
  void SetAddress(const std::string& url);
  // The whole link; empty without an address.
  [[nodiscard]] std::string Link(const std::string& code);
  struct TLogin {
    int Status = 200;       // else 401 or 429, with Problem
    std::string SetCookie;  // the header's value
    TConsoleSession Session;
    TProblem Problem;
    std::uint32_t RetryAfterS = 0;
  };
  // `who` as Stranger or Judge has named it.
  [[nodiscard]] TLogin Exchange(const TAsker& who, std::string_view code);
  struct TLogout {
    bool Ended = false;     // there was a session
    std::string SetCookie;  // the browser forgets it, whether there was one or not
  };
  // Of the session that `who` asks by.
  [[nodiscard]] TLogout EndSession(const TAsker& who);

  // List, Add and Revoke wait for the disk: not on the wire's thread.
  [[nodiscard]] TTokenFile& Tokens() { return FTokens; }

  // The line of a command, for the application log: who, from where, what, and what became of it. `path` is without its
  // query. None of heartbeats and checks that were taken, and none of who tries too often.
  static void LogCommand(const TAsker& who, const TPeer& peer, std::string_view method, std::string_view path,
                         int status);

 private:
  [[nodiscard]] TJudged Wrong(const std::string& peer, TProblem problem) IXO_REQUIRES(FLock);
  [[nodiscard]] std::string CookieOf(const std::string& secret, std::uint64_t seconds) const IXO_REQUIRES(FLock);

  const std::function<std::uint64_t()> FNowMs;
  const std::string FCookie;  // its name: of this state folder, as browsers share cookies between ports
  const std::string FOwner;   // "user root (local)"
  const std::uint32_t FUser;
  TTokenFile FTokens;
  TCriticalSection FLock;
  TTokenCheck FCheck IXO_GUARDED_BY(FLock);
  TConsoleCodes FCodes IXO_GUARDED_BY(FLock);
  std::string FAddress IXO_GUARDED_BY(FLock);
  TWrongTries FWrong IXO_GUARDED_BY(FLock);
};

}  // namespace ixocontroller
