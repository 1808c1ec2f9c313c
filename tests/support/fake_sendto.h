// Sees every sendto and may answer it in the kernel's place. Defines sendto: for one source a
// program.
#pragma once

#include <functional>
#include <optional>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace lab {

inline std::function<std::optional<ssize_t>()> on_sendto;

} // namespace lab

extern "C" ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to,
                          socklen_t to_size) {
    std::optional<ssize_t> answer = lab::on_sendto ? lab::on_sendto() : std::nullopt;
    return answer ? *answer : ::syscall(SYS_sendto, fd, bytes, size, flags, to, to_size);
}
