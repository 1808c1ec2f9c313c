// The ring that the IPv4, hex and MAC texts share.
#pragma once

#include <cstddef>

namespace rk {

inline constexpr size_t kAddressTextSize = 40;

char *next_address_text();

} // namespace rk
