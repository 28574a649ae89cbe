// The last lines of the log.
#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/process/RealTime.h"
#include "controller/service/LogLines.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kUsualLines = 200;

// What an operator looks for stands behind "warning"; a device's line is one.
int RankOf(std::string_view level) {
  if (level == "trace") return 0;
  if (level == "info") return 1;
  if (level == "warning" || level == "device") return 2;
  if (level == "error") return 3;
  throw EProblem(pbRequest, TProblem{.What = Format(Tr("\"%s\" is not one of %s"), std::string(level).c_str(),
                                                    "trace, info, warning, error"),
                                     .Where = "level"});
}

TApiReply ShowLog(TService& service, const TApiRequest& request) {
  const std::string since = QueryOf(request, "since");
  const std::string limit = QueryOf(request, "limit");
  const std::string level = QueryOf(request, "level");
  const std::uint64_t after = since.empty() ? 0 : WholeNumber(since, "since", 0, ~std::uint64_t{0});
  const std::uint64_t most = limit.empty() ? kUsualLines : WholeNumber(limit, "limit", 1, TLogLines::kLines);
  const int least = level.empty() ? 0 : RankOf(level);
  auto lines = nlohmann::ordered_json::array();
  std::uint64_t last = after;
  std::vector<TLogLine> found = service.LogLines().After(after, TLogLines::kLines);
  if (!found.empty()) last = found.back().Number;
  std::erase_if(found, [least](const TLogLine& line) { return RankOf(LogLevelWord(line.Kind)) < least; });
  for (std::size_t i = found.size() > most ? found.size() - most : 0; i < found.size(); ++i) {
    const TLogLine& line = found[i];
    lines.push_back({{"number", line.Number},
                     {"time", UtcText(line.UnixMs)},
                     {"machineMs", line.MachineMs},
                     {"level", LogLevelWord(line.Kind)},
                     {"text", line.Text},
                     {"source", line.Source}});
  }
  TApiReply reply;
  reply.Body = {{"lang", service.Options().Controller.Language}, {"last", last}, {"lines", std::move(lines)}};
  return reply;
}

constexpr TApiRoute kLogRoutes[] = {
    {"GET", "/api/v1/log", roNone, false, false, &ShowLog, "The last lines of the log"},
};

}  // namespace

std::span<const TApiRoute> LogRoutes() { return kLogRoutes; }

}  // namespace ixocontroller
