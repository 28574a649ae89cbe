// One connection: HTTP/1.1 requests read one by one, each answered before the next is looked at; by TLS where that is
// wanted, without ever waiting for the other end. The wire's thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "controller/access/Access.h"
#include "controller/net/Listen.h"
#include "controller/wire/EventFeed.h"
#include "controller/wire/WireLimits.h"
#include "controller/wire/WireRequest.h"

namespace boost::asio {
class io_context;
}

namespace ixocontroller {

class TServerTls;

class TWireSession;

// What it throws is logged by the wire's thread.
class IWireDesk {
 public:
  // Answered once, by Answer or Follow, now or later.
  virtual void Serve(TWireSession& session, const TWireRequest& request) = 0;
  // TLS has come to nothing, and the connection ends.
  virtual void NotAgreed(const TWireSession& session, const std::string& why) = 0;
  // Behind its last call.
  virtual void Ended(TWireSession& session) = 0;

 protected:
  ~IWireDesk() = default;
};

enum class TWireStage : std::uint8_t {
  wsGreeting,   // TLS is not agreed yet
  wsIdle,       // nothing of a request has come
  wsReading,    // some of it
  wsAsked,      // it waits for its answer
  wsAnswering,  // some of that is sent
  wsFollowing,  // events
  wsEnding
};

// What fails on the connection ends it, with Ended, and is nobody else's matter.
class TWireSession : public std::enable_shared_from_this<TWireSession> {
 public:
  // `tls`: null, none. Desk and context outlive the session.
  TWireSession(IWireDesk& desk, boost::asio::io_context& context, TOwnFd socket, TPeer peer, const TWireLimits& limits,
               const TServerTls* tls);
  ~TWireSession();
  TWireSession(const TWireSession&) = delete;
  TWireSession& operator=(const TWireSession&) = delete;

  void Start();
  void Answer(const TWireReply& reply);
  // Until `may` says no more.
  void Follow(std::shared_ptr<TEventFeed> feed, std::function<bool()> may);
  void SendEvents();  // the feed has something
  // At once; Ended is called once.
  void Close();
  // Ends what takes too long, and who may follow no more.
  void Watch(std::uint64_t nowMs);

  [[nodiscard]] const TPeer& Peer() const;
  [[nodiscard]] TWireStage Stage() const;
  [[nodiscard]] const std::shared_ptr<TEventFeed>& Feed() const;
  // When its last request was whole, or it began.
  [[nodiscard]] std::uint64_t UsedMs() const;
  // Until when it is not closed for a newcomer while others can be: it has the lease, or holds a key.
  std::uint64_t KeptUntilMs = 0;

 private:
  struct TParts;
  const std::unique_ptr<TParts> FParts;
};

}  // namespace ixocontroller
