// The wire over real sockets: who is refused, what broken and slow clients come to, events, and more clients than there
// is room for.
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/client/WireRun.h"
#include "controller/wire/EventFeed.h"
#include "fixture/ServiceWorld.h"
#include "fixture/Sockets.h"

namespace ixocamglue::test {
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
namespace {

using TSteady = std::chrono::steady_clock;

struct TAnswer {
  int Status = 0;  // 0: the connection ended without one
  std::string Head, Body;
};

// A client that sends what it is told, byte by byte if need be.
class TClient {
 public:
  explicit TClient(int port) : Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    Connected = TLocalAddress(static_cast<std::uint16_t>(port)).Connect(Fd.Get());
  }
  explicit TClient(const std::string& path) : Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    Connected = TLocalAddress(path).Connect(Fd.Get());
  }

  void Send(const std::string& text) const { (void)!::send(Fd.Get(), text.data(), text.size(), MSG_NOSIGNAL); }
  // One answer; what follows it stays. `head`: an answer without a body, whatever it says.
  TAnswer Read(bool head = false) {
    TAnswer answer;
    std::size_t end = 0;
    while ((end = FIn.find("\r\n\r\n")) == std::string::npos)
      if (!More()) return {};
    answer.Head = FIn.substr(0, end);
    FIn.erase(0, end + 4);
    answer.Status = std::atoi(answer.Head.c_str() + 9);
    const std::size_t at = answer.Head.find("Content-Length: ");
    const std::size_t size = at == std::string::npos || head ? 0 : std::stoul(answer.Head.substr(at + 16));
    while (FIn.size() < size && More()) {
    }
    answer.Body = FIn.substr(0, size);
    FIn.erase(0, size);
    return answer;
  }
  // Up to `end`, or all there is.
  std::string ReadTo(const std::string& end) {
    while (FIn.find(end) == std::string::npos && More()) {
    }
    return FIn;
  }
  // Whether the other end closes it, what it sends before aside.
  bool Ends() {
    while (More()) {
    }
    char byte = 0;
    return ::recv(Fd.Get(), &byte, 1, MSG_DONTWAIT) == 0;
  }
  TAnswer Ask(const std::string& text) {
    Send(text);
    return Read();
  }

  TOwnFd Fd;
  bool Connected = false;

 private:
  bool More() {
    pollfd wait{Fd.Get(), POLLIN, 0};
    if (::poll(&wait, 1, 6000) <= 0) return false;
    char buffer[16'384];
    const auto got = ::recv(Fd.Get(), buffer, sizeof buffer, 0);
    if (got > 0) FIn.append(buffer, static_cast<std::size_t>(got));
    return got > 0;
  }
  std::string FIn;
};

std::string Request(const std::string& line, const std::string& headers = "", const std::string& body = "") {
  const std::string length =
      body.empty() ? "" : "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  return line + " HTTP/1.1\r\nHost: localhost\r\n" + headers + length + "\r\n" + body;
}
std::string Get(const std::string& path) { return Request("GET /api/v1/" + path); }
std::string Post(const std::string& path, const std::string& headers = "", const std::string& body = "{}") {
  return Request("POST /api/v1/" + path, headers, body);
}

class Wire : public testing::Test {
 protected:
  explicit Wire(TWireLimits limits = {}) : World(false, 1.0, {.Example = true, .Wire = limits}) {}

  [[nodiscard]] int Port() const { return World.Server->Port(); }
  [[nodiscard]] TClient Tcp() const { return TClient(Port()); }
  [[nodiscard]] TClient Unix() const { return TClient((World.Folder / kWireSocket).string()); }
  [[nodiscard]] bool Leased() { return Unix().Ask(Post("lease")).Status == 409; }

  TServiceWorld World;
};

// --- refusals ---

TEST_F(Wire, RefusesWhatIsMalformedOrNotMeantForItAndDoesNothing) {
  const std::string deep(70, '[');
  const struct {
    std::string Sent;
    int Status;
    const char* Says;
  } kCases[] = {
      {"GET /api/v1/status HTTP/1.1\r\nHost: evil.example:8620\r\n\r\n", 421, "evil.example"},
      {"GET /nowhere HTTP/1.1\r\nHost: 127.0.0.1.evil.example\r\n\r\n", 421, "not asked under that name"},
      {"GET /api/v1/status HTTP/1.1\r\n\r\n", 400, "one Host"},
      {"GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n", 400, "one Host"},
      {"\x16\x03\x01 what is this\r\n\r\n", 400, "no HTTP/1.1"},
      {Request("GET http://localhost/api/v1/status"), 400, "malformed"},
      {Request("GET /api/v1/st%2"), 400, "malformed"},
      {Request("GET /api/v1/%ff%fe"), 400, "malformed"},
      {Request("GET /api/v1/status?a=1&a=2"), 400, "malformed"},
      {Get("nothing"), 404, "/api/v1/nothing"},
      {Request("PATCH /api/v1/status"), 405, "Allow: GET, HEAD\r\n"},
      {Get("events?kinds=state,stp"), 400, "did you mean step"},
      {Get("events?rate=51"), 400, "1 to 50"},
      {Request("GET /api/v1/status", "X: " + std::string(20'000, 'x') + "\r\n"), 431, "header"},
      {"POST /api/v1/lease HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1048577\r\n\r\n", 413, "1048576"},
      {Post("lease", "Origin: http://evil.example\r\n"), 403, "Origin"},
      {Post("lease", "Origin: null\r\n"), 403, "Origin"},
      {Post("lease", "Sec-Fetch-Site: cross-site\r\n"), 403, "Sec-Fetch-Site"},
      {Post("lease", "Authorization: Bearer nonsense\r\n"), 401, "WWW-Authenticate: Bearer"},
      {Request("POST /api/v1/lease", "Content-Type: text/plain\r\nContent-Length: 2\r\n") + "{}", 415, "JSON"},
      {Post("lease", "", "{\"takeOver\":\n tru}"), 400, "\"where\":\"2:"},
      {Post("lease", "", "{\"takeOver\": \"\xff\"}"), 400, "JSON"},
      {Post("lease", "", deep), 400, "64 levels"},
      {Post("lease", "Idempotency-Key: " + std::string(201, 'k') + "\r\n"), 400, "200 bytes"},
  };
  for (const auto& c : kCases) {
    const TAnswer answer = Unix().Ask(c.Sent);
    EXPECT_EQ(answer.Status, c.Status) << c.Sent.substr(0, 200);
    EXPECT_THAT(answer.Head + "\r\n" + answer.Body, HasSubstr(c.Says)) << c.Sent.substr(0, 200);
    EXPECT_THAT(answer.Head, HasSubstr("application/problem+json"));
  }
  // From the loopback one may read, and needs a token to command; all that was refused above has taken nothing.
  EXPECT_EQ(Tcp().Ask(Get("status")).Status, 200);
  EXPECT_EQ(Tcp().Ask(Post("lease")).Status, 401);
  EXPECT_EQ(Unix().Ask(Post("lease", "Origin: http://localhost\r\nSec-Fetch-Site: same-origin\r\n")).Status, 200);
  EXPECT_TRUE(Leased());
}

TEST_F(Wire, StopsForWhoeverIsAtThisMachineWhateverTokenIsShown) {
  for (const char* const path : {"stop", "all-off"}) {
    EXPECT_EQ(Tcp().Ask(Post(path)).Status, 202) << path;
    for (int i = 0; i < 15; ++i)
      EXPECT_EQ(Tcp().Ask(Post(path, "Authorization: Bearer old\r\nIdempotency-Key: same\r\n")).Status, 202) << path;
    EXPECT_EQ(Tcp().Ask(Post(path, "Origin: http://evil.example\r\n")).Status, 403) << path;
  }
}

TEST_F(Wire, StopsARunForAFollowerWhoWaitsForADiskThatHangs) {
  std::promise<void> disk;
  ASSERT_TRUE(World.Service.PostFiles([works = disk.get_future().share()] { works.wait(); }));
  TWireClient client({.Socket = World.Folder / kWireSocket, .Host = {}}, "", "en");
  std::atomic<bool> stop{false};
  const auto follow = [&] {
    return RunOnController(client, {.Body = {{"procedure", "delay"}, {"params", {{"ms", 60'000}}}}},
                           {.Stops = [&stop] { return stop.load(); }});
  };
  auto run = std::async(std::launch::async, follow);
  EXPECT_TRUE(Comes([&] { return World.Service.Status()->Running; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // by then it has asked for the run's record
  stop = true;
  EXPECT_TRUE(Comes([&] { return !World.Service.Status()->Running; }));
  disk.set_value();
  EXPECT_STREQ(run.get().Report.End.Name, "stopped");

  EXPECT_THROW((void)follow(), EProblem) << "it was asked to stop before";
  EXPECT_EQ(client.Get("/api/v1/runs").at("runs").size(), 1U) << "nothing was started";
}

TEST_F(Wire, StopsARunThatIsOnlyStartedWhereTheStopCameBeforeItBegan) {
  constexpr int kOrdered = 5;  // looks behind the lease, 50 ms apart but for one: by then the run is ordered
  TWireClient client({.Socket = World.Folder / kWireSocket, .Host = {}}, "", "en");
  TNcStateFramework& framework = World.Service.Controller().Framework();
  const auto ending = [&] { return framework.Watch().EndPosted.load() != nullptr; };
  const auto leased = [&] {
    return std::ranges::any_of(World.Service.Events().Read(0).Events,
                               [](const TServiceEvent& event) { return event.Kind == evLease; });
  };
  int looks = 0;
  const auto stops = [&] {
    if (!leased()) return false;
    if (looks == 0)  // the run waits behind this for the stop, which ends nothing
      World.Service.Post([&] {
        EXPECT_TRUE(Comes(ending));
        EXPECT_TRUE(Comes([&] { return framework.RunOnce() > 0 && !ending(); }));
      });
    return ++looks >= kOrdered;
  };
  const TWireRun run = RunOnController(
      client, {.Body = {{"procedure", "delay"}, {"params", {{"ms", 60'000}}}}, .Detach = true}, {.Stops = stops});
  EXPECT_EQ(World.Report(run.Id)["outcome"], "stopped");
}

TEST_F(Wire, AnswersInOrderOnOneConnectionAndInEachOnesLanguage) {
  TClient client = Tcp();
  client.Send(Get("status") + Request("HEAD /api/v1/health") + Request("OPTIONS /api/v1/lease") +
              Request("GET /api/v1/nothing", "Accept-Language: de, zh-CN;q=0.8, en;q=0.5\r\n") + Get("nothing"));
  EXPECT_THAT(client.Read().Body, HasSubstr("\"state\""));
  const TAnswer head = client.Read(true);
  EXPECT_THAT(head.Head, AllOf(HasSubstr("200 OK"), Not(HasSubstr("Content-Length: 0"))));
  EXPECT_THAT(client.Read().Head,
              AllOf(HasSubstr("204"), HasSubstr("Allow: GET, HEAD, POST, DELETE"), Not(HasSubstr("Access-"))));
  const std::string chinese = client.Read().Body;
  const std::string english = client.Read().Body;
  EXPECT_THAT(english, HasSubstr("there is no such path"));
  EXPECT_THAT(chinese, AllOf(HasSubstr("/api/v1/nothing"), Not(HasSubstr("there is no such path"))));
}

TEST_F(Wire, ASessionKnowsItselfAndWhoCommandsUntilItLogsOut) {
  const auto asked = [](const TAnswer& answer) { return nlohmann::json::parse(answer.Body); };
  EXPECT_EQ(asked(Tcp().Ask(Get("session")))["by"], "nothing");
  EXPECT_EQ(asked(Unix().Ask(Get("session")))["by"], "user");
  const std::string code = asked(Unix().Ask(Post("session/code")))["code"];
  const TAnswer opened = Tcp().Ask(Post("session", "", "{\"code\":\"" + code + "\"}"));
  const std::size_t at = opened.Head.find("Set-Cookie: ") + 12;
  const std::string cookie = "Cookie: " + opened.Head.substr(at, opened.Head.find(';', at) - at) + "\r\n";
  const nlohmann::json self = asked(Tcp().Ask(Request("GET /api/v1/session", cookie)));
  EXPECT_EQ(self["by"], "session");
  EXPECT_EQ(self["role"], "operator");

  EXPECT_EQ(asked(Tcp().Ask(Get("lease")))["holder"], nullptr);
  const std::string lease = asked(Tcp().Ask(Post("lease", cookie)))["lease"];
  const nlohmann::json seen = asked(Tcp().Ask(Get("lease")));
  EXPECT_EQ(seen["holder"], self["name"]);
  EXPECT_EQ(seen["lease"], "");
  EXPECT_GT(seen["leftMs"], 5000);
  EXPECT_EQ(asked(Tcp().Ask(Request("GET /api/v1/lease", "Lease: " + lease + "\r\n")))["lease"], lease);

  const TAnswer out = Tcp().Ask(Request("DELETE /api/v1/session", cookie));
  EXPECT_THAT(out.Head, HasSubstr("Max-Age=0"));
  EXPECT_EQ(asked(out)["ended"], true);
  EXPECT_EQ(asked(Tcp().Ask(Request("GET /api/v1/session", cookie)))["by"], "nothing");
  EXPECT_EQ(Tcp().Ask(Post("lease", cookie)).Status, 401) << "a cookie that is nobody's is no token";
}

TEST_F(Wire, AVersionIsTakenBackAsItWasGiven) {
  const std::string head = Tcp().Ask(Get("config")).Head;
  const std::size_t at = head.find("ETag: ") + 6;
  const std::string tag = head.substr(at, head.find('\r', at) - at);
  EXPECT_THAT(tag, testing::MatchesRegex("\"[0-9a-f]{16}\""));
  const auto put = [&](const std::string& value) {
    return Unix().Ask(Request("PUT /api/v1/config/ModbusStore/WriteFileNameParamAddr", "If-Match: " + tag + "\r\n",
                              "{\"value\":" + value + "}"));
  };
  EXPECT_EQ(put("7").Status, 200);
  const TAnswer late = put("8");
  EXPECT_EQ(late.Status, 412);
  EXPECT_THAT(late.Head, Not(HasSubstr(tag)));
}

TEST_F(Wire, ServesTheConsoleToAnybodyAtThisMachineAndOnlyToBeRead) {
  const TAnswer page = Tcp().Ask(Request("GET /", "Authorization: Bearer old\r\nCookie: ixocut=old\r\n"));
  EXPECT_EQ(page.Status, 200);
  EXPECT_THAT(page.Head, AllOf(HasSubstr("text/html"), HasSubstr("Content-Security-Policy: default-src 'none'"),
                               HasSubstr("Cache-Control: no-cache"), HasSubstr("nosniff")));
  const std::size_t tag = page.Head.find("ETag: ") + 6;
  const std::string known = "If-None-Match: " + page.Head.substr(tag, page.Head.find("\r\n", tag) - tag) + "\r\n";
  EXPECT_EQ(Tcp().Ask(Request("GET /", known)).Status, 304);
  EXPECT_EQ(Tcp().Ask(Request("GET /console/%2e%2e/locale/zh.json")).Status, 404);
  EXPECT_EQ(Tcp().Ask("GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n").Status, 421);
  EXPECT_EQ(Tcp().Ask(Request("POST /console/app.js", "", "{}")).Status, 405);
}

TEST_F(Wire, AsksOnceHoweverOftenTheSameKeyIsSent) {
  const std::string key = "Idempotency-Key: a\r\n";
  const TAnswer first = Unix().Ask(Post("lease", key));
  EXPECT_EQ(first.Status, 200);
  EXPECT_EQ(Unix().Ask(Post("lease", key)).Body, first.Body);
  EXPECT_EQ(Unix().Ask(Post("lease", key, "{\"takeOver\":true}")).Status, 422);
  EXPECT_EQ(Unix().Ask(Post("lease", "Idempotency-Key: b\r\n")).Status, 409);
}

TEST(WireSockets, StandInTheirOwnersFolderHoweverLongItsNameIsAndNameWhoHasThePort) {
  const TTempDir dir;
  const auto folder = dir.Path() / std::string(120, 'd');
  const auto socket = ListenUnix(folder);
  ASSERT_TRUE(socket.Ok());
  struct stat seen {};
  ::stat((folder / kWireSocket).c_str(), &seen);
  EXPECT_EQ(seen.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
  ::stat(folder.c_str(), &seen);
  EXPECT_EQ(seen.st_mode & 0777, 0700U);
  const auto again = ListenUnix(folder);  // what was left there is replaced
  EXPECT_TRUE(again.Ok());

  const auto tcp = ListenTcp("127.0.0.1", 0);
  ASSERT_TRUE(tcp.Ok());
  const auto taken = ListenTcp("127.0.0.1", PortOf(tcp->Get()));
  ASSERT_FALSE(taken.Ok());
  EXPECT_THAT(taken.Problem().Why, HasSubstr(std::to_string(getpid())));
  EXPECT_FALSE(ListenTcp("localhost", 0).Ok());
}

// --- slow and cut ---

class HastyWire : public Wire {
 protected:
  HastyWire() : Wire({.RequestMs = 100, .LingerMs = 200, .BeatMs = 100}) {}
};

TEST_F(HastyWire, EndsARequestThatDoesNotComeToItsEndAndKeepsOneThatIsSilent) {
  TClient silent = Tcp();
  TClient slow = Tcp();
  slow.Send("POST /api/v1/lease HTTP/1.1\r\nHost: localhost\r\nContent-Len");
  EXPECT_EQ(slow.Read().Status, 408);
  EXPECT_EQ(slow.Read().Status, 0);
  EXPECT_EQ(silent.Ask(Get("health")).Status, 200);
}

TEST_F(Wire, SurvivesEveryPlaceAtWhichARequestIsCut) {
  const std::string whole = Post("lease", "Idempotency-Key: cut\r\n");
  for (std::size_t length = 0; length < whole.size(); ++length) Unix().Send(whole.substr(0, length));
  for (int i = 0; i < 20; ++i) Tcp().Send(Get("status") + Get("status"));  // gone before its answers
  EXPECT_FALSE(Leased());
}

TEST_F(Wire, HealthSaysInItsOwnShapeThatTheControllerDoesNotLive) {
  std::promise<void> goOn;
  ASSERT_TRUE(World.Service.Post([held = goOn.get_future().share()] { held.wait(); }));
  TClient client = Tcp();
  TAnswer answer;
  EXPECT_TRUE(Comes([&] { return (answer = client.Ask(Get("health"))).Status == 503; }));
  goOn.set_value();
  EXPECT_THAT(answer.Head, HasSubstr("Content-Type: application/json\r\n"));
  EXPECT_THAT(answer.Body, HasSubstr("\"lives\":false"));
}

// --- events ---

void AddState(TService& service, const std::string& text) {
  service.Events().Add(evState, [text] { return nlohmann::ordered_json{{"text", text}}; });
}

std::string LastId(const std::string& events) {
  const std::size_t at = events.rfind("id: ") + 4;
  return events.substr(at, events.find('\n', at) - at);
}

TEST_F(HastyWire, TellsWhatHappensAndGoesOnBehindTheLastEventThatWasSeen) {
  TClient first = Tcp();
  first.Send(Get("events?kinds=state"));
  EXPECT_THAT(first.ReadTo("event: hello"), HasSubstr("text/event-stream"));
  AddState(World.Service, "one");
  World.Service.Events().Add(evLed, [] { return nlohmann::ordered_json{{"text", "led"}}; });
  const std::string seen = first.ReadTo("one\"}");
  EXPECT_THAT(first.ReadTo(": still here"), Not(HasSubstr("led")));

  AddState(World.Service, "two");
  AddState(World.Service, "three");
  TClient second = Tcp();
  second.Send(Request("GET /api/v1/events?kinds=state", "Last-Event-ID: " + LastId(seen) + "\r\n"));
  const std::string missed = second.ReadTo("three\"}");
  EXPECT_THAT(missed, AllOf(HasSubstr("two"), Not(HasSubstr("one")), Not(HasSubstr("event: epoch"))));

  TClient third = Tcp();
  third.Send(Request("GET /api/v1/events?kinds=state", "Last-Event-ID: 0123456789abcdef-7\r\n"));
  EXPECT_THAT(third.ReadTo("three\"}"), AllOf(HasSubstr("event: epoch"), HasSubstr("one")));
}

TEST_F(Wire, LetsGoOfAFollowerWhoseTokenIsRevokedOrWhoseSessionEnds) {
  TAccess& access = World.Service.Access();
  const std::string token = access.Tokens().Add("kitchen", roViewer).OrThrow(pbUnusable);
  const TAccess::TLogin login = access.Exchange(TAccess::Stranger({}), access.MakeCode(roViewer));
  const auto follow = [this](const std::string& header) {
    TClient client = Tcp();
    client.Send(Request("GET /api/v1/events?kinds=state", header));
    client.ReadTo("event: hello");
    return client;
  };
  TClient byToken = follow("Authorization: Bearer " + token + "\r\n");
  TClient bySession = follow("Cookie: " + login.SetCookie.substr(0, login.SetCookie.find(';')) + "\r\n");
  TClient byNothing = follow("");
  ASSERT_TRUE(access.Tokens().Revoke("kitchen"));
  EXPECT_TRUE(byToken.Ends());
  AddState(World.Service, "one");
  EXPECT_THAT(bySession.ReadTo("one\"}"), HasSubstr("one"));
  TAsker who;
  who.Session = login.Session.Number;
  EXPECT_TRUE(access.EndSession(who).Ended);
  EXPECT_TRUE(bySession.Ends());
  AddState(World.Service, "two");
  EXPECT_THAT(byNothing.ReadTo("two\"}"), HasSubstr("two"));
}

TEST_F(HastyWire, LetsGoOfAClientThatReadsNothingAndSaysFromWhere) {
  TClient slow = Tcp();
  slow.Send(Get("events?kinds=state"));
  slow.ReadTo("event: hello");
  for (int i = 0; i < 2000; ++i) AddState(World.Service, std::string(8000, 'x'));
  EXPECT_THAT(slow.ReadTo("event: missed").substr(0, 100), Not(testing::IsEmpty()));
  const std::string all = slow.ReadTo("never comes");
  EXPECT_THAT(all.substr(all.find("event: missed")), HasSubstr("\"why\":\"slow\""));
  EXPECT_EQ(Tcp().Ask(Get("health")).Status, 200);
}

TEST(WireFeed, DropsSignalsBeforeAnythingElseAndKeepsEachClientsRate) {
  TEventRing ring;
  TEventHub hub(ring);
  const auto add = [&](TEventKind kind, std::size_t size) {
    ring.Add(kind, [text = std::string(size, 's')] { return nlohmann::ordered_json{{"text", text}}; });
  };
  const auto feed = hub.Open(*ReadFeedWish({{"rate", "20"}}), 1000, [] {});
  EXPECT_THAT(feed->Take(), HasSubstr("event: hello"));
  int shown = 0;
  for (std::uint64_t ms = 1000; ms < 2000; ms += 10) {
    add(evSignals, 10);
    hub.Pump(ms);
    for (std::string text = feed->Take(); !text.empty(); text = feed->Take())
      shown += text.find("event: signals") != std::string::npos;
  }
  EXPECT_EQ(shown, 20);

  // What reads nothing: the signals go, the states stay; then it is let go.
  std::uint64_t ms = 5000;
  const auto fill = [&](TEventKind kind, std::size_t bytes) {
    for (std::size_t done = 0; done < bytes; done += 8000) {
      add(kind, 8000);
      hub.Pump(ms += 1000);
    }
  };
  fill(evState, TEventFeed::kMostBytes / 2);
  fill(evSignals, TEventFeed::kMostBytes);
  fill(evState, TEventFeed::kMostBytes / 4);
  EXPECT_FALSE(feed->Ending());
  fill(evState, TEventFeed::kMostBytes / 2);
  EXPECT_TRUE(feed->Ending());
  EXPECT_THAT(feed->Take(), HasSubstr("event: missed"));
}

TEST(WireFeed, AnEventThatCannotBeToldHoldsUpNoOther) {
  TEventRing ring;
  TEventHub hub(ring);
  const auto good = [] { return nlohmann::ordered_json{{"text", "good"}}; };
  const auto bad = []() -> nlohmann::ordered_json { throw std::runtime_error("no text"); };
  const auto told = [](TEventFeed& feed) {
    std::string all;
    for (std::string text = feed.Take(); !text.empty(); text = feed.Take()) all += text;
    return all;
  };
  const auto both = AllOf(HasSubstr(R"("from":1,"to":1,"why":"fault","text":"no text")"), HasSubstr("\"good\""));
  const auto follows = hub.Open(*ReadFeedWish({{"kinds", "state,signals"}}), 1000, [] {});
  ring.Add(evState, bad);
  ring.Add(evSignals, bad);
  ring.Add(evState, good);
  EXPECT_NO_THROW(hub.Pump(2000));
  EXPECT_THAT(told(*follows), both);
  TFeedWish wish = *ReadFeedWish({});
  wish.LastId = ring.Epoch() + "-0";
  EXPECT_THAT(told(*hub.Open(wish, 3000, [] {})), both) << "also of one that catches up";
}

TEST(WireFeed, SaysWhatTheRingHasLostAndCatchesUpWithTheRest) {
  TEventRing ring;
  TEventHub hub(ring);
  for (std::size_t i = 0; i < TEventRing::kEvents + 10; ++i)
    ring.Add(evState, [] { return nlohmann::ordered_json::object(); });
  TFeedWish wish = *ReadFeedWish({{"kinds", "state"}});
  wish.LastId = ring.Epoch() + "-5";
  const auto feed = hub.Open(wish, 1000, [] {});
  std::string all;
  for (std::string text = feed->Take(); !text.empty(); text = feed->Take()) all += text;
  EXPECT_THAT(all, HasSubstr("\"from\":6,\"to\":10"));
  std::size_t states = 0;
  for (std::size_t at = 0; (at = all.find("event: state", at)) != std::string::npos; ++at) ++states;
  EXPECT_EQ(states, TEventRing::kEvents);
  EXPECT_FALSE(feed->Ending());
}

// --- more than there is room for ---

class NarrowWire : public Wire {
 protected:
  NarrowWire() : Wire({.Connections = 4}) {}
};

TEST_F(NarrowWire, KeepsWhoHasTheLeaseAndNotWhoSaysSo) {
  TClient holder = Unix();
  const std::string lease = nlohmann::json::parse(holder.Ask(Post("lease")).Body)["lease"];
  std::vector<std::unique_ptr<TClient>> others;
  for (int i = 0; i < 10; ++i) {
    others.push_back(std::make_unique<TClient>(Port()));
    EXPECT_EQ(others.back()->Ask(Request("GET /api/v1/status", "Lease: mine\r\n")).Status, 200);
    EXPECT_EQ(others.back()->Ask(Post("panel/press", "", R"({"key":"LASER","press":"a","atMs":0})")).Status, 403);
  }
  EXPECT_EQ(holder.Ask(Post("lease/heartbeat", "Lease: " + lease + "\r\n")).Status, 200);
}

// In a process of its own, so that the server's descriptors are its own. Answers 0 when each of `stops` was answered.
int Crowd(int port, int idle, int silent, int stops) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<std::unique_ptr<TClient>> kept;
  for (int i = 0; i < idle + silent; ++i) {
    kept.push_back(std::make_unique<TClient>(port));
    if (!kept.back()->Connected) return 1;
    if (i >= idle) kept.back()->Send(Get("events"));
  }
  for (int i = 0; i < stops; ++i)
    if (TClient(port).Ask(Post("stop")).Status != 202) return 2;
  return 0;
}

TEST(WireCrowd, StopsThroughTwoThousandConnectionsAndSilentFollowers) {
  int toChild[2];
  ASSERT_EQ(::pipe(toChild), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    int port = 0;
    if (::read(toChild[0], &port, sizeof port) != sizeof port) ::_exit(9);
    ::_exit(Crowd(port, 2000, 50, 300));
  }
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit low{1024, std::max<rlim_t>(before.rlim_max, 1024)};
  ::setrlimit(RLIMIT_NOFILE, &low);

  const TServiceWorld world(false, 1.0, {.Example = true, .Wire = TWireLimits{}});
  const int port = world.Server->Port();
  ASSERT_EQ(::write(toChild[1], &port, sizeof port), static_cast<ssize_t>(sizeof port));
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(TClient(port).Ask(Get("health")).Status, 200);
  for (const int fd : toChild) ::close(fd);
  ::setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace ixocamglue::test
