#include "ixocamglue/support/SystemError.h"

#include <cerrno>
#include <system_error>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

std::string SystemErrorText(int error) {
  switch (error) {
    case EPERM: return Tr("Operation not permitted");
    case ENOENT: return Tr("No such file or directory");
    case EIO: return Tr("Input/output error");
    case EACCES: return Tr("Permission denied");
    case EBUSY: return Tr("Device or resource busy");
    case EEXIST: return Tr("File exists");
    case ENOTDIR: return Tr("Not a directory");
    case EISDIR: return Tr("Is a directory");
    case EINVAL: return Tr("Invalid argument");
    case EMFILE: return Tr("Too many open files");
    case EFBIG: return Tr("File too large");
    case ENOSPC: return Tr("No space left on device");
    case EROFS: return Tr("Read-only file system");
    case ENAMETOOLONG: return Tr("File name too long");
    case ENOLCK: return Tr("No locks available");
    case ELOOP: return Tr("Too many levels of symbolic links");
    case EOPNOTSUPP: return Tr("Operation not supported");
    case EDQUOT: return Tr("Disk quota exceeded");
    case ENXIO: return Tr("No such device or address");
    case ENODEV: return Tr("No such device");
    case EADDRINUSE: return Tr("Address already in use");
    case ECONNREFUSED: return Tr("Connection refused");
    case ECONNRESET: return Tr("Connection reset by peer");
    case ETIMEDOUT: return Tr("Connection timed out");
    case EHOSTUNREACH: return Tr("No route to host");
    default: return std::system_category().message(error);
  }
}

}  // namespace ixocamglue
