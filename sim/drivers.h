// The private ioctls of the switch and wireless drivers.
#pragma once

#include <optional>

namespace sim {

// The result of a request to a simulated interface, with errno on failure; nothing for a request
// that is the kernel's.
std::optional<int> driver_request(unsigned long request, void *record);

} // namespace sim
