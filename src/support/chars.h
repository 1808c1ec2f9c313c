// Room for text on the stack.
#pragma once

#include <cstddef>

namespace rk {

// An array of characters. Its elements are bytes, since link-time optimisation takes only those for
// characters when it looks for the functions whose buffers are to be guarded.
template <size_t Size>
class Chars {
  public:
    Chars() = default;
    Chars(const Chars &) = delete; // nor can it slip through an ellipsis
    Chars &operator=(const Chars &) = delete;

    [[nodiscard]] char *data() { return reinterpret_cast<char *>(bytes_); }
    [[nodiscard]] const char *data() const { return reinterpret_cast<const char *>(bytes_); }
    operator char *() { return data(); }
    operator const char *() const { return data(); }

  private:
    unsigned char bytes_[Size];
};

} // namespace rk
