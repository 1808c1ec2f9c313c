// One time limit for several waits.
#pragma once

#include <cstdint>

#include <routerkit/clocks.h>

namespace rk {

// An absolute time on the scale of uptime_getms, which wraps every 2^32 ms. Differences are signed,
// so a deadline is right across the wrap and may lie up to 2^31 - 1 ms ahead.
class Deadline {
  public:
    explicit Deadline(uint32_t time) : time_(time) {}

    static Deadline in(uint32_t milliseconds) { return after(uptime_getms(), milliseconds); }

    static Deadline after(uint32_t start, uint32_t milliseconds) {
        return Deadline(start + (milliseconds < INT32_MAX ? milliseconds : uint32_t{INT32_MAX}));
    }

    [[nodiscard]] uint32_t time() const { return time_; }

    // Milliseconds left; negative once the deadline has passed.
    [[nodiscard]] int32_t left() const { return static_cast<int32_t>(time_ - uptime_getms()); }

  private:
    uint32_t time_;
};

} // namespace rk
