#include "ixocamglue/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr auto kLookEvery = std::chrono::milliseconds(2);
constexpr int kNotStarted = 127;

}  // namespace

TChildProcess::TChildProcess(const std::filesystem::path& program, std::vector<std::string> words,
                             const std::filesystem::path& folder, const std::filesystem::path& said) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  FProcess = ::fork();
  if (FProcess < 0)
    throw EProblem(pbUnusable,
                   TProblem{.What = Tr("a further process cannot be started"), .Why = SystemErrorText(errno)});
  if (FProcess != 0) return;
  // Calls from here to the exec that are safe in a copy of the process.
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);  // else a SIGTERM that this thread holds back never reaches it
  const int in = ::open("/dev/null", O_RDONLY);
  const int out = ::open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (::getppid() != parent || in < 0 || out < 0 || ::chdir(folder.c_str()) != 0) ::_exit(kNotStarted);
  ::dup2(in, STDIN_FILENO);
  ::dup2(out, STDOUT_FILENO);
  ::dup2(out, STDERR_FILENO);
  ::execv(program.c_str(), argv.data());
  ::_exit(kNotStarted);
}

TChildProcess::~TChildProcess() { (void)End(std::chrono::seconds(4)); }

std::optional<int> TChildProcess::Wait(std::chrono::milliseconds time) {
  for (const auto end = std::chrono::steady_clock::now() + time; !FExit;) {
    int status = 0;
    const pid_t ended = ::waitpid(FProcess, &status, WNOHANG);
    if (ended == FProcess)
      FExit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    else if (ended < 0 && errno != EINTR)
      FExit = kNotStarted;
    else if (std::chrono::steady_clock::now() >= end)
      break;
    else
      std::this_thread::sleep_for(kLookEvery);
  }
  return FExit;
}

std::optional<int> TChildProcess::End(std::chrono::milliseconds time) {
  if (FExit) return FExit;
  ::kill(FProcess, SIGTERM);
  if (Wait(time)) return FExit;
  ::kill(FProcess, SIGKILL);
  (void)Wait(time);
  return std::nullopt;
}

}  // namespace ixocamglue
