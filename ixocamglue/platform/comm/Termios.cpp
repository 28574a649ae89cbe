#include "ixocamglue/platform/comm/Termios.h"

#include <cerrno>
#include <cstring>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <asm/termbits.h>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr tcflag_t kShape = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS;

tcflag_t Shape(const TSerialSettings& settings) {
  constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  tcflag_t flags = kSizes[settings.DataBits - 5];
  switch (settings.Parity) {
    case 'o': flags |= PARENB | PARODD; break;
    case 'e': flags |= PARENB; break;
    case 'm': flags |= PARENB | PARODD | CMSPAR; break;
    case 's': flags |= PARENB | CMSPAR; break;
    default: break;
  }
  if (settings.Stop != TSerialSettings::sbOne) flags |= CSTOPB;  // with 5 data bits the hardware makes 1.5 of it
  return flags;
}

bool IsPseudoTerminal(int fd) {
  constexpr unsigned kFirstMajor = 136, kLastMajor = 143;
  struct stat device {};
  return ::fstat(fd, &device) == 0 && major(device.st_rdev) >= kFirstMajor && major(device.st_rdev) <= kLastMajor;
}

// A rate's divider is seldom exact; beyond 3 % characters break.
bool NearRate(std::uint32_t got, std::uint32_t wanted) {
  const std::uint32_t apart = got > wanted ? got - wanted : wanted - got;
  return std::uint64_t{apart} * 100 <= std::uint64_t{wanted} * 3;
}

}  // namespace

TResult<> SetUpLine(int fd, const TSerialSettings& settings) {
  const auto refused = [](std::string what) { return TProblem{.What = std::move(what)}; };
  const auto failed = [&](const char* what) { return refused(Format("%s: %s", what, SystemErrorText(errno).c_str())); };
  termios2 line{};
  if (::ioctl(fd, TCGETS2, &line) != 0) return failed(Tr("this is no serial line"));
  line.c_iflag = IGNPAR | IGNBRK;
  line.c_oflag = 0;
  line.c_lflag = 0;
  line.c_cflag = CREAD | CLOCAL | Shape(settings) | BOTHER | BOTHER << IBSHIFT;
  line.c_ispeed = line.c_ospeed = settings.Baud;
  line.c_cc[VMIN] = 1;
  line.c_cc[VTIME] = 0;
  if (::ioctl(fd, TCSETS2, &line) != 0) return failed(Tr("the line refuses the settings"));

  // A driver may take what it can and say nothing about the rest.
  termios2 got{};
  if (::ioctl(fd, TCGETS2, &got) != 0) return failed(Tr("the line does not tell its settings"));
  // Kept: a pseudo-terminal keeps neither parity nor data bits, and settings that ask for them are refused there too.
  if ((got.c_cflag & kShape) != Shape(settings)) {
    TProblem shape = refused(Tr("the line does not keep this parity, data bits or stop bits"));
    if (IsPseudoTerminal(fd)) {
      shape.Why = Tr("it is a pseudo-terminal, which has 8 data bits and no parity");
      shape.Remedy = Format(Tr("use \"%u,n,8,1\" there"), settings.Baud);
    }
    return shape;
  }
  if (!NearRate(got.c_ospeed, settings.Baud))
    return refused(
        Format(Tr("the line refuses the rate %u and takes %u"), settings.Baud, static_cast<unsigned>(got.c_ospeed)));
  ::ioctl(fd, TCFLSH, TCIOFLUSH);
  return {};
}

}  // namespace ixocamglue
