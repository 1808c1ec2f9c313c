// What the library is built for.
#pragma once

namespace rk {

// Small code (-Os) rather than fast code: loops stay loops.
#ifdef __OPTIMIZE_SIZE__
inline constexpr bool kForSize = true;
#else
inline constexpr bool kForSize = false;
#endif

} // namespace rk
