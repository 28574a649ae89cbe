// TLS over real sockets: which files are taken, whom the client trusts, clients that come without it, cut or slow ones,
// and many at once.
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include "controller/client/WireClient.h"
#include "controller/net/TlsClient.h"
#include "controller/service/Webhook.h"
#include "fixture/Certificates.h"
#include "fixture/ServiceWorld.h"
#include "fixture/Sockets.h"
#include "fixture/Texts.h"

namespace ixocamglue::test {
using ixocontroller::TWireAddress;
using ixocontroller::TWireClient;
using ixocontroller::TWireEvent;
using ixocontroller::TWireEvents;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
namespace {

class Tls : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    Own = std::make_unique<TCertificates>();
    Own->Make("good");
    Own->Make("named", "DNS:cutter.example,IP:192.0.2.7");
    Own->Make("old", "DNS:localhost", -1);
    Others = std::make_unique<TCertificates>();
    Others->Make("good");
  }
  static void TearDownTestSuite() {
    Own.reset();
    Others.reset();
  }
  static TResult<std::shared_ptr<const TServerTls>> ReadPair(const std::string& certificate, const std::string& key) {
    return TServerTls::Read(Own->Of(certificate), Own->Of(key));
  }
  static std::shared_ptr<const TServerTls> Pair(const std::string& name) {
    return ReadPair(name + ".pem", name + ".key").OrThrow(pbUnusable);
  }

  static inline std::unique_ptr<TCertificates> Own, Others;
};

// --- files ---

TEST_F(Tls, FilesThatCannotBeUsedAreNamedWithWhatToDo) {
  std::filesystem::copy_file(Own->Of("good.key"), Own->Of("open.key"));
  std::filesystem::permissions(Own->Of("open.key"), std::filesystem::perms(0604));
  Own->Openssl("ec -aes128 -passout pass:word -in good.key -out locked.key");
  std::filesystem::permissions(Own->Of("locked.key"), std::filesystem::perms(0600));
  const struct {
    const char *Certificate, *Key, *What, *Where, *Remedy;
  } kCases[] = {
      {"none.pem", "good.key", "the certificate cannot be read", "none.pem", "--cert"},
      {"good.key", "good.key", "no certificate that can be used", "good.key", "--cert"},
      {"old.pem", "old.key", "has expired", "old.pem", "get a new one"},
      {"good.pem", "none.key", "the key cannot be read", "none.key", "--key"},
      {"good.pem", "good.pem", "others can read the key", "good.pem", "chmod 600"},
      {"good.pem", "open.key", "others can read the key", "open.key", "chmod 600"},
      {"good.pem", "locked.key", "no key that can be used", "locked.key", "without a passphrase"},
      {"good.pem", "named.key", "the key is not the certificate's", "named.key", "belong together"},
  };
  for (const auto& c : kCases) {
    const TProblem problem = ReadPair(c.Certificate, c.Key).Problem();
    EXPECT_THAT(problem.What, HasSubstr(c.What)) << c.Certificate << " " << c.Key;
    EXPECT_THAT(problem.Where, HasSubstr(c.Where)) << problem.What;
    EXPECT_THAT(problem.Remedy, HasSubstr(c.Remedy)) << problem.What;
    EXPECT_FALSE(problem.Why.empty()) << problem.What;
  }
  EXPECT_TRUE(ReadPair("good.pem", "good.key").Ok());
}

// --- whom the client trusts ---

// A client and a server without sockets; what the client says of it, or nothing when they have agreed.
std::string Meet(const std::string& host, const std::filesystem::path& trusted, const std::filesystem::path& shown,
                 const std::filesystem::path& key, int version = TLS1_3_VERSION) {
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  SSL_CTX_set_max_proto_version(context.get(), version);
  SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");
  EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context.get(), shown.c_str()), 1);
  EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM), 1);
  const std::unique_ptr<SSL, void (*)(SSL*)> server(SSL_new(context.get()), &SSL_free);
  BIO* const in = BIO_new(BIO_s_mem());
  BIO* const out = BIO_new(BIO_s_mem());
  SSL_set_bio(server.get(), in, out);
  SSL_set_accept_state(server.get());

  TTlsClient client(host, trusted);
  std::string bytes, text;
  for (int round = 0; round < 10 && text.empty(); ++round) {
    if (const TResult<> taken = client.Take(bytes, text); !taken) return taken.Problem().Text();
    const std::string said = client.Give();
    BIO_write(in, said.data(), static_cast<int>(said.size()));
    if (SSL_do_handshake(server.get()) == 1) SSL_write(server.get(), "hello", 5);
    bytes.assign(BIO_ctrl_pending(out), '\0');
    BIO_read(out, bytes.data(), static_cast<int>(bytes.size()));
  }
  EXPECT_EQ(text.substr(0, 5), "hello");
  return {};
}

TEST_F(Tls, AClientSaysWhyItDoesNotTrustWhoAnswers) {
  const auto meet = [](const char* host, const char* shown, const TCertificates& trusted, int version) {
    return Meet(host, trusted.Of("ca.pem"), Own->Of(std::string(shown) + ".pem"), Own->Of(std::string(shown) + ".key"),
                version);
  };
  EXPECT_THAT(meet("localhost", "good", *Own, TLS1_3_VERSION), IsEmpty());
  EXPECT_THAT(meet("127.0.0.1", "good", *Own, TLS1_2_VERSION), IsEmpty());
  EXPECT_THAT(meet("CUTTER.example", "named", *Own, TLS1_3_VERSION), IsEmpty());
  EXPECT_THAT(meet("localhost", "named", *Own, TLS1_3_VERSION),
              AllOf(HasSubstr("not accepted"), HasSubstr("it is for cutter.example, 192.0.2.7")));
  EXPECT_THAT(meet("127.0.0.1", "named", *Own, TLS1_2_VERSION), HasSubstr("it is for cutter.example, 192.0.2.7"));
  EXPECT_THAT(meet("localhost", "old", *Own, TLS1_3_VERSION), HasSubstr("it was good until 20"));
  EXPECT_THAT(meet("localhost", "good", *Others, TLS1_3_VERSION),
              AllOf(HasSubstr("nobody who is trusted here has issued it"), HasSubstr("--ca")));
  EXPECT_THAT(meet("localhost", "good", *Own, TLS1_1_VERSION), HasSubstr("TLS was not agreed"));
  TTlsClient client("localhost", Own->Of("ca.pem"));
  std::string text;
  EXPECT_THAT(client.Take("HTTP/1.1 400 Bad Request\r\n\r\n", text).Problem().Text(), HasSubstr("does not speak TLS"));
  EXPECT_THROW(TTlsClient("localhost", Own->Of("none.pem")), EProblem);
  EXPECT_THROW(TTlsClient("localhost", Own->Of("good.key")), EProblem);
}

// --- a controller ---

// Bytes over a socket, with or without TLS.
class TRaw {
 public:
  explicit TRaw(int port) : Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    EXPECT_TRUE(TLocalAddress(static_cast<std::uint16_t>(port)).Connect(Fd.Get()));
  }
  void Send(std::string_view bytes) const { (void)!::send(Fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  // What has come within 6 s; empty: it has ended, or nothing has.
  std::string Receive() const {
    pollfd wait{Fd.Get(), POLLIN, 0};
    std::string bytes(16'384, '\0');
    const auto got = ::poll(&wait, 1, 6000) > 0 ? ::recv(Fd.Get(), bytes.data(), bytes.size(), 0) : 0;
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }
  std::string ReceiveAll() const {
    std::string all;
    for (std::string bytes = Receive(); !bytes.empty(); bytes = Receive()) all += bytes;
    return all;
  }
  TOwnFd Fd;
};

class TlsWire : public Tls {
 protected:
  explicit TlsWire(TWireLimits limits = {})
      : World(false, 1.0, {.Example = true, .Wire = limits, .Tls = Pair("good")}) {}

  [[nodiscard]] int Port() const { return World.Server->Port(); }
  [[nodiscard]] TWireAddress Address(const std::string& scheme = "https://",
                                     const TCertificates& trusted = *Own) const {
    TWireAddress address = TWireAddress::OfUrl(scheme + "localhost:" + std::to_string(Port())).OrThrow(pbRequest);
    address.Trusted = trusted.Of("ca.pem");
    return address;
  }
  [[nodiscard]] TWireClient Client() const { return TWireClient(Address(), "", "en"); }
  [[nodiscard]] std::string WhyNot(const TWireAddress& address) const {
    return Thrown<EProblem>([&] { (void)TWireClient(address, "", "en").Get("/api/v1/status"); });
  }
  // What a client says first.
  static std::string Hello() {
    TTlsClient client("localhost", Own->Of("ca.pem"));
    std::string text;
    EXPECT_TRUE(client.Take({}, text));
    return client.Give();
  }

  TServiceWorld World;
};

TEST_F(TlsWire, AnswersWhoTrustsItAndTellsWhoSpeaksPlainlyWhatToDo) {
  EXPECT_THAT(World.Server->Url(), HasSubstr("https://127.0.0.1:"));
  EXPECT_EQ(Client().Get("/api/v1/status").at("state"), "standby");
  EXPECT_GT(Client().Get("/api/v1/config").dump().size(), 20'000U) << "more than one record";
  const auto login = World.Service.Access().Exchange(TAccess::Stranger({}), World.Service.Access().MakeCode(roViewer));
  EXPECT_THAT(login.SetCookie, HasSubstr("; Secure"));
  EXPECT_THAT(WhyNot(Address("http://")), AllOf(HasSubstr("only TLS"), HasSubstr("https://")));
  EXPECT_THAT(WhyNot(Address("https://", *Others)), HasSubstr("nobody who is trusted"));
  const auto hook = [this](const TCertificates& trusted) {
    auto webhook = ParseWebhook(Address().Text() + "/api/v1/stop");
    webhook->Trusted = trusted.Of("ca.pem");
    return Post(*webhook, "{}", [] { return false; });
  };
  EXPECT_TRUE(hook(*Own)) << "a webhook comes by TLS, too";
  EXPECT_THAT(hook(*Others).Problem().Text(), HasSubstr("nobody who is trusted"));

  // Another certificate is shown to whoever comes from then on.
  TWireClient kept = Client();
  (void)kept.Get("/api/v1/status");
  World.Server->SetTls(TServerTls::Read(Others->Of("good.pem"), Others->Of("good.key")).OrThrow(pbUnusable));
  EXPECT_TRUE(Comes([&] { return WhyNot(Address("https://", *Others)).empty(); }));
  EXPECT_THAT(WhyNot(Address()), HasSubstr("nobody who is trusted"));
  EXPECT_EQ(kept.Get("/api/v1/status").at("state"), "standby");
}

TEST_F(TlsWire, TwentyClientsAskAndFollowAndEachStopGetsThrough) {
  std::vector<std::thread> clients;
  std::atomic<int> good{0};
  for (int i = 0; i < 20; ++i)
    clients.emplace_back([&] {
      try {
        TWireClient client = Client();
        const TWireEvents events(client, "?kinds=state");
        for (int k = 0; k < 10; ++k)
          if (client.AskAny("POST", "/api/v1/stop", nlohmann::json::object()).Status == 202) ++good;
      } catch (const EProblem& problem) {
        ADD_FAILURE() << problem.Problem.Text();
      }
    });
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(good, 200);

  // What follows is told, and that it has ended, where the controller says so.
  TWireClient client = Client();
  const std::string token = World.Service.Access().Tokens().Add("kitchen", roViewer).OrThrow(pbUnusable);
  TWireClient known(Address(), token, "en");
  TWireEvents events(known, "?kinds=state");
  World.Service.Events().Add(evState, [] { return nlohmann::ordered_json{{"text", "one"}}; });
  std::optional<TWireEvent> event;
  while ((event = events.Next(6000)) && event->Name != "state") {
  }
  ASSERT_TRUE(event);
  EXPECT_EQ(event->Data.at("text"), "one");
  ASSERT_TRUE(World.Service.Access().Tokens().Revoke("kitchen"));
  EXPECT_TRUE(Comes([&] { return !events.Next(10) && events.Ended(); }));
}

TEST_F(TlsWire, SurvivesEveryPlaceAtWhichAGreetingIsCut) {
  const std::string hello = Hello();
  for (std::size_t length = 0; length <= hello.size(); length += 3) TRaw(Port()).Send(hello.substr(0, length));
  TRaw(Port()).Send("\x16 this is no greeting");
  for (int i = 0; i < 20; ++i) {  // gone in front of its answers, with what was agreed
    TRaw raw(Port());
    TTlsClient client("localhost", Own->Of("ca.pem"));
    std::string text;
    for (std::string bytes; !client.Agreed(); bytes = raw.Receive()) {
      ASSERT_TRUE(client.Take(bytes, text));
      raw.Send(client.Give());
      if (client.Agreed()) break;
    }
    const std::string ask = "GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\n\r\n";
    ASSERT_TRUE(client.Say(ask + ask));
    const std::string said = client.Give();
    raw.Send(said.substr(0, said.size() - static_cast<std::size_t>(i)));
  }
  EXPECT_EQ(Client().Get("/api/v1/status").at("state"), "standby");
}

class HastyTlsWire : public TlsWire {
 protected:
  HastyTlsWire() : TlsWire({.Connections = 8, .RequestMs = 2000, .LingerMs = 500}) {}
};

TEST_F(HastyTlsWire, EndsASlowGreetingAndLetsNobodyWaitForIt) {
  const std::string hello = Hello();
  std::vector<std::unique_ptr<TRaw>> slow;
  for (int i = 0; i < 30; ++i) {
    slow.push_back(std::make_unique<TRaw>(Port()));
    if (i % 2 == 0) slow.back()->Send(hello.substr(0, hello.size() / 2));
    EXPECT_EQ(Client().AskAny("POST", "/api/v1/stop", nlohmann::json::object()).Status, 202);
  }
  for (const auto& one : slow) EXPECT_THAT(one->ReceiveAll(), IsEmpty());
}

TEST_F(HastyTlsWire, ARequestThatComesToNothingIsAnsweredBeforeItEnds) {
  TRaw raw(Port());
  TTlsClient client("localhost", Own->Of("ca.pem"));
  std::string text, bytes;
  bool said = false;
  do {
    ASSERT_TRUE(client.Take(bytes, text));
    if (client.Agreed() && !said) {
      ASSERT_TRUE(client.Say("POST /api/v1/stop HTTP/1.1\r\nHost: localhost\r\nContent-Len"));
      said = true;
    }
    raw.Send(client.Give());
    bytes = raw.Receive();
  } while (!bytes.empty() && !client.Ended());
  EXPECT_THAT(text, HasSubstr("408"));
  EXPECT_TRUE(client.Ended()) << "it is said that nothing follows";
}

}  // namespace
}  // namespace ixocamglue::test
