// Who is let in: hashes, tokens, the console's codes and sessions.
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "controller/access/Access.h"
#include "fixture/TempDir.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

std::string HashByOthers(const std::string& text, const std::filesystem::path& file) {
  std::ofstream(file, std::ios::binary) << text;
  FILE* const pipe = ::popen(("sha256sum " + file.string()).c_str(), "r");
  char line[65] = {};
  EXPECT_TRUE(pipe && std::fgets(line, sizeof line, pipe));
  ::pclose(pipe);
  return line;
}

TEST(Access, HashesAreThoseThatArePublishedAndThatOthersMake) {
  const std::string two = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  EXPECT_EQ(HexText(Sha256("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(HexText(Sha256("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(HexText(Sha256(two)), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(HexText(Sha256(std::string(1'000'000, 'a'))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  const TTempDir dir;
  for (const std::size_t size : {1U, 55U, 56U, 63U, 64U, 65U, 119U, 120U, 128U, 1000U}) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text += static_cast<char>(i * 37 + size);
    EXPECT_EQ(HexText(Sha256(text)), HashByOthers(text, dir.Path() / "text")) << size;
  }
}

class Tokens : public testing::Test {
 protected:
  TJudged Judge(const TPeer& peer, const std::string& token = {}, const std::string& cookie = {}) {
    return FAccess.Judge(peer, token.empty() ? token : "Bearer " + token, cookie);
  }
  std::string Add(const std::string& name, TRole role) {
    return TTokenFile(FDir.Path()).Add(name, role).OrThrow(pbRefused);
  }
  void Say(const std::string& text) { std::ofstream(FFile) << text; }

  TTempDir FDir;
  const std::filesystem::path FFile = FDir.Path() / "tokens.json";
  std::uint64_t FNow = 1'000'000;
  TAccess FAccess{FDir.Path(), [this] { return FNow; }};
  const TPeer FUnix{.User = ::geteuid(), .Connection = 7};
  const TPeer FStranger{.User = ::geteuid() + 1};
  const TPeer FHere{.Address = "127.0.0.1"};
  const TPeer FThere{.Address = "192.168.0.7"};
  const TPeer FSafe{.Address = "192.168.0.8", .Secure = true};
};

TEST_F(Tokens, WhoShowsNothingIsJudgedByWhereItComesFrom) {
  const auto own = Judge(FUnix);
  EXPECT_EQ(own.Who.Role, roOperator);
  EXPECT_TRUE(own.Who.By == kbUser && own.Who.Local);
  EXPECT_EQ(own.Who.Connection, 7U);
  EXPECT_THAT(own.Who.Name, testing::MatchesRegex("user .+ \\(local\\)"));
  for (const char* const address : {"127.0.0.1", "127.9.9.9", "::1", "::ffff:127.0.0.1"})
    EXPECT_EQ(Judge({.Address = address}).Who.Role, roViewer) << address;
  for (const TPeer& peer :
       {FStranger, FThere, FSafe, TPeer{.Address = "::ffff:192.168.0.1"}, TPeer{.Address = "12.7.0.0"}})
    EXPECT_EQ(Judge(peer).Status, 401) << peer.Text();
}

TEST_F(Tokens, ATokenHasItsRoleUntilItIsRevokedBySomebodyElse) {
  const std::string viewer = Add("kitchen", roViewer);
  const std::string service = Add("plant", roService);
  EXPECT_EQ(Judge(FThere, viewer).Who.Name, "token kitchen");
  EXPECT_EQ(Judge(FThere, viewer).Who.Role, roViewer);
  EXPECT_EQ(Judge(FUnix, viewer).Who.Role, roViewer) << "what is shown decides";
  EXPECT_EQ(Judge(FHere, service).Who.Role, roService);
  EXPECT_EQ(Judge(FSafe, service).Who.Role, roService);
  EXPECT_EQ(Judge(FThere, service).Who.Role, roOperator) << "everybody on the way could read it";
  EXPECT_EQ(FAccess.Judge(FThere, "bEARER  " + viewer + " ", "").Status, 200);
  EXPECT_EQ(FAccess.Judge(FHere, "Basic " + viewer, "").Status, 401);

  const auto list = TTokenFile(FDir.Path()).List().OrThrow(pbUnusable);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].Name, "kitchen");
  EXPECT_EQ(list[1].Role, roService);
  struct stat status {};
  ASSERT_EQ(::stat(FFile.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  const std::string kept = ReadFile(FFile).OrThrow(pbUnusable);
  EXPECT_EQ(kept.find(viewer.substr(viewer.rfind('_') + 1)), std::string::npos) << "the file has the hash only";

  EXPECT_EQ(TTokenFile(FDir.Path()).Revoke("kitchem").Problem().Remedy, "did you mean kitchen?");
  EXPECT_TRUE(TTokenFile(FDir.Path()).Revoke("kitchen"));
  EXPECT_EQ(Judge(FThere, viewer).Status, 401);
  EXPECT_EQ(Judge(FThere, service).Status, 200);
  for (const char* const name : {"", "a b", "plant", "a/b"}) EXPECT_FALSE(TTokenFile(FDir.Path()).Add(name, roViewer));
}

TEST_F(Tokens, AFileThatIsDamagedOrOthersMayWriteToLetsNobodyInAndIsNotOverwritten) {
  const std::string token = Add("plant", roOperator);
  const std::string whole = ReadFile(FFile).OrThrow(pbUnusable);
  for (const char* const text : {"{\"tokens\": [", "[]", "{\"tokens\": 3}"}) {
    Say(text);
    EXPECT_EQ(Judge(FThere, token).Status, 401) << text;
    EXPECT_THAT(Judge(FThere, token).Problem.Where, testing::HasSubstr("tokens.json")) << text;
    EXPECT_FALSE(TTokenFile(FDir.Path()).Add("other", roViewer));
    EXPECT_EQ(ReadFile(FFile).OrThrow(pbUnusable), text);
  }
  Say(R"({"comment": "kept", "tokens": [{"name": 5}, 7]})");
  Add("new", roViewer);
  EXPECT_THAT(ReadFile(FFile).OrThrow(pbUnusable), testing::HasSubstr("kept"));
  Say(whole);
  EXPECT_EQ(Judge(FThere, token).Status, 200);
  ::chmod(FFile.c_str(), 0622);
  EXPECT_EQ(Judge(FThere, token).Status, 401);
}

TEST_F(Tokens, ElevenWrongOnesInAMinuteAreTooManyButARightOneIsTakenAtOnce) {
  const std::string token = Add("plant", roOperator);
  for (int i = 0; i < 10; ++i, FNow += 1000) EXPECT_EQ(Judge(FThere, token + "x").Status, 401) << i;
  const auto eleventh = Judge(FThere, token.substr(1));
  EXPECT_EQ(eleventh.Status, 429);
  EXPECT_EQ(eleventh.RetryAfterS, 50U);
  EXPECT_EQ(Judge(FThere, token).Status, 200);
  EXPECT_EQ(Judge(FSafe, "wrong").Status, 401) << "another peer";
  EXPECT_EQ(FAccess.Exchange(TAccess::Stranger(FThere), "guess").Status, 429);
  FNow += 50'000;
  EXPECT_EQ(Judge(FThere, "wrong").Status, 401);
  EXPECT_EQ(Judge(FThere, "wrong").Status, 429);

  TWrongTries tries;  // of a thousand peers it keeps the last ones
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(tries.Add(Format("10.0.0.%d", i), static_cast<std::uint64_t>(i)), 0U);
}

TEST_F(Tokens, AConsoleLinkIsGoodOnceForAMinuteAndItsSessionForADay) {
  const auto cookieOf = [](const TAccess::TLogin& login) {
    return login.SetCookie.substr(0, login.SetCookie.find(';'));
  };
  const std::string late = FAccess.MakeCode(roViewer);
  FNow += 59'999;
  const std::string code = FAccess.MakeCode(roService);
  FNow += 1;
  EXPECT_EQ(FAccess.Exchange(TAccess::Stranger(FHere), late).Status, 401);
  const auto login = FAccess.Exchange(TAccess::Stranger(FHere), code);
  ASSERT_EQ(login.Status, 200);
  EXPECT_THAT(login.SetCookie,
              testing::MatchesRegex("ixo_[0-9a-f]{8}=[0-9a-f]{64}; Path=/; HttpOnly; SameSite=Strict; .*"));
  EXPECT_EQ(FAccess.Exchange(TAccess::Stranger(FHere), code).Status, 401) << "used";

  const std::string cookie = "other=1; " + cookieOf(login) + "; ixo=2";
  EXPECT_EQ(Judge(FHere, {}, cookie).Who.Name, "console 1");
  EXPECT_EQ(Judge(FHere, {}, cookie).Who.Role, roService);
  EXPECT_EQ(Judge(FThere, {}, cookie).Who.Role, roOperator);
  EXPECT_EQ(Judge(FThere, {}, cookieOf(login) + "0").Status, 401);
  EXPECT_EQ(TAccess(FDir.Path()).Judge(FHere, "", cookie).Who.Role, roViewer) << "lost at a restart";

  for (std::size_t i = 0; i < TConsoleCodes::kMostSessions - 1; ++i, ++FNow)
    EXPECT_EQ(FAccess.Exchange(TAccess::Stranger(FHere), FAccess.MakeCode(roViewer)).Status, 200);
  EXPECT_EQ(Judge(FHere, {}, cookie).Who.Role, roService);
  const auto last = FAccess.Exchange(TAccess::Stranger(FHere), FAccess.MakeCode(roOperator));
  EXPECT_EQ(Judge(FHere, {}, cookie).Who.Role, roService) << "the one that nobody used has gone";

  const auto out = FAccess.EndSession(Judge(FHere, {}, cookie).Who);
  EXPECT_TRUE(out.Ended);
  EXPECT_THAT(out.SetCookie, testing::MatchesRegex("ixo_[0-9a-f]{8}=; Path=/; .*Max-Age=0"));
  EXPECT_EQ(Judge(FHere, {}, cookie).Who.By, kbNothing);
  EXPECT_FALSE(FAccess.EndSession(Judge(FHere, {}, cookie).Who).Ended);
  EXPECT_EQ(Judge(FHere, {}, cookieOf(last)).Who.Role, roOperator) << "another's session goes on";
  FNow += TConsoleCodes::kSessionMs;
  EXPECT_EQ(Judge(FHere, {}, cookieOf(last)).Who.Role, roViewer);
}

}  // namespace
}  // namespace ixocamglue::test
