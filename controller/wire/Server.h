// The wire of a controller: HTTP/1.1 with JSON and server-sent events on TCP, by TLS where it has a certificate, and on
// a Unix socket, served by one thread of its own, `ixo-wire`. It waits for nothing but its sockets: what the interface
// thread does is answered when it is done, and of the machine it reads what was published.
//
// Order of what is looked at: Host; the address; who asks; the path; for commands the page's origin; the role; the
// body. Stop and all-off from this machine go through whatever token is shown.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "controller/api/Api.h"
#include "controller/net/Listen.h"
#include "controller/net/Tls.h"
#include "controller/wire/Pages.h"
#include "controller/wire/WireLimits.h"

namespace ixocontroller {

struct TWireOptions {
  std::string Address = "127.0.0.1";  // another than the loopback's only with Tls or Insecure
  std::uint16_t Port = kWirePort;     // 0: the system picks one
  // The Unix socket's; made when it is not there. The caller has it to itself (its lock), as what another one has left
  // is replaced. Empty: no Unix socket.
  std::filesystem::path StateFolder;
  std::vector<std::string> Hosts;         // further names that it is asked under
  std::shared_ptr<const TServerTls> Tls;  // null: none
  bool Insecure = false;                  // other machines, without encryption: nobody of them has the role service
  std::filesystem::path OpenApi;          // the file behind openapi.json; empty: none
  TPageFolders Pages;                     // the console's files
  TWireLimits Limits;
};

// What fails on a connection ends that one alone.
class TWireServer {
 public:
  // Made before the service starts, and freed before it is. Listens at once, and answers from Start on. Throws EProblem
  // where it cannot listen; raises the process's soft limit of descriptors.
  TWireServer(TApi& api, TService& service, TWireOptions options);
  ~TWireServer();  // End()
  TWireServer(const TWireServer&) = delete;
  TWireServer& operator=(const TWireServer&) = delete;

  void Start();
  // Every connection is closed, and the thread ends. Before the service's end, so that nobody asks any more.
  void End();

  // Of whoever comes from now on; the server has had one before. Any thread.
  void SetTls(std::shared_ptr<const TServerTls> tls);

  [[nodiscard]] std::uint16_t Port() const;
  // "http://127.0.0.1:8620": the first of Hosts, where there is one and others than the loopback are listened to.
  [[nodiscard]] std::string Url() const;

 private:
  class TCore;
  const std::unique_ptr<TCore> FCore;
};

}  // namespace ixocontroller
