// The attributes of a connection that are numbers, for the library's own use.
#pragma once

namespace rk {

// -1 when the file cannot be read.
long attribute_number(unsigned index, const char *name);

} // namespace rk
