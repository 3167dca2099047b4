#include "util/error_text.h"

#include <cerrno>
#include <cstring>

namespace
{

struct Text {
    int error;
    const char *text;
};

// The errors of files, flash, mounts and sockets that C libraries word differently.
constexpr Text kTexts[] = {
    {0, "Success"},
    {EIO, "Input/output error"},
    {ENOMEM, "Cannot allocate memory"},
    {EBUSY, "Device or resource busy"},
    {EMFILE, "Too many open files"},
    {ENOTTY, "Inappropriate ioctl for device"},
    {ESPIPE, "Illegal seek"},
    {ENAMETOOLONG, "File name too long"},
    {ELOOP, "Too many levels of symbolic links"},
    {EOVERFLOW, "Value too large for defined data type"},
    {EILSEQ, "Invalid or incomplete multibyte or wide character"},
    {ENOTSOCK, "Socket operation on non-socket"},
    {EMSGSIZE, "Message too long"},
    {EOPNOTSUPP, "Operation not supported"},
    {EADDRINUSE, "Address already in use"},
    {EADDRNOTAVAIL, "Cannot assign requested address"},
    {ENETUNREACH, "Network is unreachable"},
    {ETIMEDOUT, "Connection timed out"},
    {EHOSTUNREACH, "No route to host"},
    {EUCLEAN, "Structure needs cleaning"},
    {EDQUOT, "Disk quota exceeded"},
};

} // namespace

const char *ErrorText(int error)
{
    for (const Text &row : kTexts) {
        if (row.error == error) {
            return row.text;
        }
    }
    return std::strerror(error);
}
