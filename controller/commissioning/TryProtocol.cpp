#include "controller/commissioning/TryProtocol.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/UserName.h"

namespace ixocontroller {

TTryProtocol::TTryProtocol(std::filesystem::path file, const std::string& machine, const char* where)
    : FFile(std::move(file)), FWho(UserName(::geteuid())) {
  std::error_code error;
  if (std::filesystem::exists(FFile, error))
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("%s is there already"), FFile.string().c_str()),
                                       .Where = where,
                                       .Remedy = Tr("name another one; nothing was tried")});
  if (FFile.has_parent_path()) MakeFolder(FFile.parent_path()).OrThrow(pbUnusable);
  FOut.open(FFile);
  FOut << "machine\t" << machine << "\ntime\twho\tport\tdone\tread\tgood\n" << std::flush;
  Check();
}

const TTried& TTryProtocol::Try(const TPortTry& port) {
  const TTried& tried = FTried.emplace_back(TTried{TPortTries::Perform(port), FormatUtc(UtcNow()), port.Port});
  FOut << tried.Time << '\t' << FWho << '\t' << tried.Port << '\t' << tried.Done << '\t' << tried.Read << '\t'
       << (tried.Good ? "yes" : "no") << '\n'
       << std::flush;
  Check();
  return tried;
}

std::size_t TTryProtocol::Bad() const {
  return static_cast<std::size_t>(std::ranges::count(FTried, false, &TTried::Good));
}

nlohmann::ordered_json TTryProtocol::Json() const {
  auto list = nlohmann::ordered_json::array();
  for (const TTried& each : FTried)
    list.push_back(
        {{"time", each.Time}, {"port", each.Port}, {"done", each.Done}, {"read", each.Read}, {"good", each.Good}});
  return list;
}

std::string TTryProtocol::NewName() {
  std::string name = "machine-try-" + FormatUtc(UtcNow()) + ".tsv";
  std::ranges::replace(name, ':', '-');
  return name;
}

void TTryProtocol::Check() {
  if (!FOut) throw EProblem(pbUnusable, TProblem{.What = Tr("cannot be written"), .Where = FFile.string()});
}

}  // namespace ixocontroller
