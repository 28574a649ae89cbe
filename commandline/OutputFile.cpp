#include "commandline/OutputFile.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocommandline {
using namespace ixocamglue;
namespace {

constexpr std::size_t kHeadBytes = 4096;

[[noreturn]] void Refuse(const char* option, const std::string& target, const char* what, std::string why) {
  throw EProblem(pbUnusable, {.What = Format("%s: ", option) + what,
                              .Where = target,
                              .Why = std::move(why),
                              .Remedy = Tr("name another file")});
}

}  // namespace

void CheckOutputFile(const char* option, const std::string& target, bool (*ownKind)(std::string_view head)) {
  struct stat there {};
  if (::stat(target.c_str(), &there) == 0) {
    if (S_ISDIR(there.st_mode) || S_ISBLK(there.st_mode))
      Refuse(option, target, Tr("this is no file that can be written"), "");
    if (::access(target.c_str(), W_OK) != 0)
      Refuse(option, target, Tr("the file cannot be written"), SystemErrorText(errno));
    if (!S_ISREG(there.st_mode) || there.st_size == 0) return;
    std::string head(kHeadBytes, '\0');
    std::ifstream in(target, std::ios::binary);
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    if (!ownKind(head)) Refuse(option, target, Tr("the file has something else in it and is not overwritten"), "");
    return;
  }
  if (errno != ENOENT) Refuse(option, target, Tr("the file cannot be written"), SystemErrorText(errno));
  // What a full disk or a folder without permission says is heard before, by a file that goes again.
  std::string probe = target + ".XXXXXX";
  const int file = ::mkstemp(probe.data());
  if (file < 0) Refuse(option, target, Tr("the file cannot be written"), SystemErrorText(errno));
  ::close(file);
  ::unlink(probe.c_str());
}

}  // namespace ixocommandline
