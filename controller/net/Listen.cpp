#include "controller/net/Listen.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr int kBacklog = 1024;  // the system cuts it to what it allows
constexpr rlim_t kMostDescriptors = 65'536;

struct TSockAddress {
  sockaddr_storage Storage{};
  socklen_t Size = 0;

  [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&Storage); }
};

bool MakeAddress(const std::string& text, std::uint16_t port, TSockAddress& address) {
  auto* const four = reinterpret_cast<sockaddr_in*>(&address.Storage);
  auto* const six = reinterpret_cast<sockaddr_in6*>(&address.Storage);
  if (::inet_pton(AF_INET, text.c_str(), &four->sin_addr) == 1) {
    four->sin_family = AF_INET;
    four->sin_port = htons(port);
    address.Size = sizeof *four;
    return true;
  }
  if (::inet_pton(AF_INET6, text.c_str(), &six->sin6_addr) != 1) return false;
  six->sin6_family = AF_INET6;
  six->sin6_port = htons(port);
  address.Size = sizeof *six;
  return true;
}

// The number of the socket that listens on this port; empty: none is found.
std::string ListenerOf(std::uint16_t port) {
  for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream in(table);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
      std::istringstream words(line);
      std::string slot, local, remote, state, queues, timer, retries, user, timeout, inode;
      words >> slot >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >> inode;
      const std::size_t colon = local.rfind(':');
      if (state != "0A" || colon == std::string::npos) continue;
      if (std::strtoul(local.c_str() + colon + 1, nullptr, 16) == port) return "socket:[" + inode + "]";
    }
  }
  return {};
}

// "process 712 (ixocut)", among the processes that this user may look into; empty: not found.
std::string HolderOf(std::uint16_t port) {
  namespace fs = std::filesystem;
  const std::string socket = ListenerOf(port);
  if (socket.empty()) return {};
  std::error_code error;
  for (const auto& process : fs::directory_iterator("/proc", error)) {
    const std::string number = process.path().filename();
    if (number.find_first_not_of("0123456789") != std::string::npos) continue;
    std::error_code closed;
    for (fs::directory_iterator fd(process.path() / "fd", closed), end; !closed && fd != end; fd.increment(closed)) {
      std::error_code gone;
      if (fs::read_symlink(fd->path(), gone) != socket || gone) continue;
      std::string name;
      std::getline(std::ifstream(process.path() / "comm"), name);
      return Format(Tr("process %s (%s)"), number.c_str(), name.c_str());
    }
  }
  return {};
}

TProblem CannotListen(const std::string& where, int error) {
  return {.What = Tr("the controller cannot listen here"), .Where = where, .Why = SystemErrorText(error)};
}

}  // namespace

TOwnFd& TOwnFd::operator=(TOwnFd&& other) noexcept {
  std::swap(FFd, other.FFd);
  return *this;
}

int TOwnFd::Release() { return std::exchange(FFd, -1); }

void TOwnFd::Close() {
  if (FFd >= 0) ::close(std::exchange(FFd, -1));
}

bool IsLoopback(const std::string& address) { return address.starts_with("127.") || address == "::1"; }

TResult<TOwnFd> ListenTcp(const std::string& address, std::uint16_t port) {
  const std::string where = Format("%s:%d", address.c_str(), port);
  TSockAddress to;
  if (!MakeAddress(address, port, to))
    return TProblem{.What = Format(Tr("\"%s\" is no address to listen on"), address.c_str()),
                    .Where = {},
                    .Why = {},
                    .Remedy = Tr("give the number of one, as 127.0.0.1")};
  TOwnFd fd(::socket(to.Storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (fd.Get() >= 0 && ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
      ::bind(fd.Get(), to.Get(), to.Size) == 0 && ::listen(fd.Get(), kBacklog) == 0)
    return TResult<TOwnFd>(std::move(fd));
  const int error = errno;
  if (error != EADDRINUSE) return CannotListen(where, error);
  const std::string holder = HolderOf(port);
  return TProblem{.What = Format(Tr("port %d is taken"), port),
                  .Where = where,
                  .Why = holder,
                  .Remedy = Tr("end that program, or give another port; with --port 0 the system picks one")};
}

std::uint16_t PortOf(int fd) {
  TSockAddress own;
  own.Size = sizeof own.Storage;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&own.Storage), &own.Size) != 0) return 0;
  return ntohs(own.Storage.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&own.Storage)->sin6_port
                                                 : reinterpret_cast<const sockaddr_in*>(&own.Storage)->sin_port);
}

TResult<TOwnFd> ListenUnix(const std::filesystem::path& folder) {
  const std::string where = (folder / kWireSocket).string();
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  const TOwnFd held(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (held.Get() < 0 || ::chmod(folder.c_str(), S_IRWXU) != 0) return CannotListen(where, errno);
  const std::string name = Format("/proc/self/fd/%d/%s", held.Get(), kWireSocket);
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  std::ranges::copy(name, to.sun_path);
  if (::unlink(name.c_str()) != 0 && errno != ENOENT) return CannotListen(where, errno);
  TOwnFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // Nobody else comes through the folder, so the socket need not have its rights from the first moment on.
  if (fd.Get() >= 0 && ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 &&
      ::chmod(name.c_str(), S_IRUSR | S_IWUSR) == 0 && ::listen(fd.Get(), kBacklog) == 0)
    return TResult<TOwnFd>(std::move(fd));
  return CannotListen(where, errno);
}

void RemoveUnix(const std::filesystem::path& folder) {
  std::error_code ignored;
  std::filesystem::remove(folder / kWireSocket, ignored);
}

std::size_t RoomForConnections(std::size_t reserved) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  const rlim_t wanted = std::min(limit.rlim_max, kMostDescriptors);
  if (limit.rlim_cur < wanted) {
    const rlimit raised{wanted, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  std::error_code error;
  const auto open = static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd", error),
                                                           std::filesystem::directory_iterator()));
  const auto room = static_cast<std::size_t>(std::min(limit.rlim_cur, kMostDescriptors));
  return room > open + reserved ? room - open - reserved : 0;
}

}  // namespace ixocontroller
