// What qemu-user does not translate: the error that a socket kept is the host's number. On MIPS the
// numbers of the network's errors are others (asm-generic/errno.h, asm/errno.h).
#include <cerrno>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

int guest_error(int error) {
    switch (error) {
    case 101:
        return ENETUNREACH;
    case 104:
        return ECONNRESET;
    case 110:
        return ETIMEDOUT;
    case 111:
        return ECONNREFUSED;
    case 113:
        return EHOSTUNREACH;
    default:
        return error;
    }
}

} // namespace

extern "C" int getsockopt(int fd, int level, int name, void *value, socklen_t *size) noexcept {
    int result = static_cast<int>(::syscall(SYS_getsockopt, fd, level, name, value, size));
    if (result == 0 && level == SOL_SOCKET && name == SO_ERROR) {
        int *error = static_cast<int *>(value);
        *error = guest_error(*error);
    }
    return result;
}
