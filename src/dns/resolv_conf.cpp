#include <routerkit/dns.h>

#include <climits>
#include <cstdlib>
#include <string_view>

#include <routerkit/conversions.h>
#include <routerkit/files.h>

#include "support/chars.h"
#include "support/lines.h"
#include "support/owning.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::MallocPtr;

namespace {

constexpr std::string_view kKeyword = "nameserver ";
constexpr size_t kAddressText = 16;                              // "255.255.255.255" and a NUL
constexpr size_t kLineRoom = kKeyword.size() + kAddressText + 1; // with the newline

} // namespace

int dns_writeResolvConf(const char *path, const uint32_t *servers, unsigned count) {
    if (count > (INT_MAX - 1) / kLineRoom) { // more than the result can tell
        return fail(EOVERFLOW);
    }
    size_t size = count * kLineRoom + 1;
    MallocPtr<char> block(static_cast<char *>(std::malloc(size)));
    if (!block) {
        return -1;
    }
    rk::TextWriter text(block.get(), size);
    for (unsigned i = 0; i < count; ++i) {
        if (servers[i] != 0) {
            rk::Chars<kAddressText> address;
            ipv4_itostr(address, servers[i]);
            text.append(kKeyword).append(address).append('\n');
        }
    }
    return writeStrToFile(path, text.c_str());
}

int dns_readResolvConf(const char *path, uint32_t *servers, unsigned max) {
    size_t length = 0;
    MallocPtr<char> text(loadFile(path, &length));
    if (!text) {
        return -1;
    }
    unsigned count = 0;
    for (rk::Lines lines({text.get(), length}); count < max && lines.next();) {
        std::string_view line = lines.line();
        if (rk::has_prefix(line, kKeyword)) {
            // Ended here, because ipv4_atoi would step over the newline as white space.
            text.get()[line.data() + line.size() - text.get()] = '\0';
            servers[count++] = ipv4_atoi(line.data() + kKeyword.size());
        }
    }
    return static_cast<int>(count);
}
