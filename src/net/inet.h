// Steps with IPv4 addresses that several network families take.
#pragma once

#include <cstddef>
#include <cstdint>

#include <netinet/in.h>
#include <sys/socket.h>

#include <routerkit/conversions.h>

#include "support/socket.h"

namespace rk {

// Puts an address into a field of a kernel record that is all zero.
inline void put_inet_address(sockaddr &field, uint32_t address) {
    field.sa_family = AF_INET;
    ipv4_iton(reinterpret_cast<uint8_t *>(&field) + offsetof(sockaddr_in, sin_addr), address);
}

// Where the address lies in a field that the kernel has filled.
inline const uint8_t *inet_address(const sockaddr &field) {
    return reinterpret_cast<const uint8_t *>(&field) + offsetof(sockaddr_in, sin_addr);
}

// Sends one datagram to an IPv4 host; the result is sendto's.
inline ssize_t send_to(int fd, const void *bytes, size_t size, uint32_t host, uint16_t port) {
    const sockaddr_in to = inet_endpoint(host, port);
    return retry_eintr(
        [&] { return ::sendto(fd, bytes, size, MSG_NOSIGNAL, as_sockaddr(to), sizeof to); });
}

} // namespace rk
