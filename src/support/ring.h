// Static result texts handed out in turn.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rk {

// `Slots` texts of `Size` bytes, used round-robin: a slot stays valid until `Slots` further calls.
template <uint32_t Slots, size_t Size>
class Ring {
  public:
    char *next() { return slots_[calls_++ % Slots]; }

  private:
    static_assert((Slots & (Slots - 1)) == 0, "the call counter wraps at 2^32");
    uint32_t calls_ = 0;
    char slots_[Slots][Size] = {};
};

} // namespace rk
