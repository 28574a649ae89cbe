// From a request to its answer: who asks, whether he may, and who is to answer. It knows no socket. One thread, the
// wire's; what the interface thread answers comes back to it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "controller/access/Access.h"
#include "controller/wire/AnsweredOnce.h"
#include "controller/wire/EventFeed.h"
#include "controller/wire/Pages.h"
#include "controller/wire/WireRequest.h"

namespace ixocontroller {

struct TDispatchOptions {
  TWireHosts Hosts;
  std::filesystem::path OpenApi;
  TPageFolders Pages;
  std::function<void(std::function<void()>)> OnWireThread;  // runs it there; any thread
};

class TWireDispatch {
 public:
  using TAnswer = std::function<void(TWireReply)>;

  TWireDispatch(TApi& api, TService& service, TDispatchOptions options);

  // `Answer` is called once, now or later, or `Follow` now. `may`: whether the token or session that was shown is still
  // good; asked on the same thread, while this lives.
  struct TReplies {
    TAnswer Answer;
    std::function<void(TFeedWish, std::function<bool()> may)> Follow;
  };
  // What is wrong with the request, and what its handler throws, is answered as a problem.
  void Serve(const TPeer& peer, const TWireRequest& request, TReplies replies);

 private:
  struct TAsked;

  // Why it is refused; nothing: `asked` says what is asked for.
  [[nodiscard]] std::optional<TWireReply> Check(const TWireRequest& request, TAsked& asked);
  [[nodiscard]] std::optional<TWireReply> CheckWho(const TWireRequest& request, TAsked& asked);
  void ServeOnce(TAsked asked, const TWireRequest& request, TAnswer answer);
  void Ask(TAsked asked, TAnswer answer);
  void Follow(const TAsked& asked, const TWireRequest& request, const TReplies& replies);
  [[nodiscard]] TWireReply OpenApi() const;

  TApi& FApi;
  TService& FService;
  const TDispatchOptions FOptions;
  const TPages FPages;
  std::string FOpenApi;  // read once: the wire's thread waits for no disk; empty: there is none
  TAnsweredOnce FOnce;
};

}  // namespace ixocontroller
