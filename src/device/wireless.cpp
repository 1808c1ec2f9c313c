#include <routerkit/wireless.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <net/if.h>
#include <sys/ioctl.h>

#include <routerkit/conversions.h>

#include "support/chars.h"
#include "support/log.h"
#include "support/socket.h"
#include "support/text_buffer.h"

using rk::fail;
using rk::TextWriter;

namespace {

constexpr unsigned long kSetMib = SIOCDEVPRIVATE + 1; // of <linux/sockios.h>: the driver's own
constexpr unsigned long kGetMib = SIOCDEVPRIVATE + 2;
constexpr size_t kRequestSize = 256;
constexpr size_t kUnsizedRoom = 4; // what a buffer of unknown size is trusted to hold

// What follows the interface's name in the request: struct iw_point of <linux/wireless.h>.
struct DataPoint {
    void *buffer;
    uint16_t length;
    uint16_t flags;
};
static_assert(sizeof(DataPoint) <= sizeof(ifreq::ifr_ifru));

using InterfaceName = rk::TextBuffer<IFNAMSIZ>;

void put_interface_name(InterfaceName &text, int number) {
    int radio = number & 3;
    int virtual_ap = number >> 4 & 7;
    if (virtual_ap == 0) {
        text.format("wlan%d", radio);
    } else {
        text.format("wlan%d-va%d", radio, virtual_ap - 1);
    }
}

// One question to the driver; the answer replaces the question in the buffer.
class MibExchange {
  public:
    explicit MibExchange(const char *name) : text_(buffer_, sizeof buffer_) { text_.append(name); }

    // Behind the name.
    [[nodiscard]] TextWriter &text() { return text_; }
    [[nodiscard]] const char *answer() const { return buffer_; }

    int get(int number) { return run(number, kGetMib, 'G'); }
    int set(int number) { return run(number, kSetMib, 'S'); }

  private:
    // The length of the answer, or -1.
    int run(int number, unsigned long request, char verb);

    rk::Chars<kRequestSize> buffer_;
    TextWriter text_;
};

int MibExchange::run(int number, unsigned long request, char verb) {
    rk::ControlSocket control;
    if (!control) {
        rk::log_at(LOG_ERR, "socket error: %m");
        return -1;
    }
    if (text_.cut()) {
        return fail(ENOBUFS);
    }
    InterfaceName ifname;
    put_interface_name(ifname, number);
    rk::IfRequest record(ifname.c_str());
    DataPoint point = {buffer_, static_cast<uint16_t>(sizeof buffer_ - text_.size()), 0};
    std::memcpy(&record.record().ifr_ifru, &point, sizeof point);
    if (record.run(control, request) < 0) {
        buffer_[sizeof buffer_ - 1] = '\0'; // whatever the driver has done to the text
        rk::log_at(LOG_ERR, "ioctl[WLAN_%cET_MIB](\"%s\", \"%s\"): %m", verb, ifname.c_str(),
                   buffer_.data());
        return -1;
    }
    std::memcpy(&point, &record.record().ifr_ifru, sizeof point);
    return point.length;
}

int get_int(int number, const char *name, int32_t *out) {
    MibExchange mib(name);
    int length = mib.get(number);
    auto load = [&mib]<typename Value>(Value value) {
        std::memcpy(&value, mib.answer(), sizeof value);
        return int32_t{value};
    };
    switch (length) {
    case 1:
        *out = load(uint8_t{});
        return length;
    case 2:
        *out = load(int16_t{});
        return length;
    case 4:
        *out = load(int32_t{});
        return length;
    default:
        return length < 0 ? length : fail(EPROTO);
    }
}

// The answer, when there is room for it: the caller's, and that which it came in.
int get_bin(int number, const char *name, void *buffer, size_t size) {
    MibExchange mib(name);
    int length = mib.get(number);
    if (length > static_cast<int>(std::min(size, kRequestSize))) {
        return fail(ENOBUFS);
    }
    if (length > 0) {
        std::memcpy(buffer, mib.answer(), static_cast<size_t>(length));
    }
    return length;
}

int get_str(int number, const char *name, char *buffer, size_t size) {
    rk::Chars<kRequestSize> answer;
    int length = get_bin(number, name, answer, std::min(size, sizeof answer));
    if (length < 0) {
        return length;
    }
    if (size == 0) {
        return fail(ENOBUFS); // not even the terminator fits
    }
    size_t shown = std::min(strnlen(answer, static_cast<size_t>(length)), size - 1);
    std::memcpy(buffer, answer, shown);
    buffer[shown] = '\0';
    return length;
}

int logged(const char *function, int result) {
    if (result < 0) {
        rk::log_at(LOG_ERR, "wlio_%s failed: %m", function);
    }
    return result;
}

// The result of a function that does not tell the length.
int plain(int result) {
    return result < 0 ? -1 : 0;
}

int set_text(const char *function, int number, const char *name, const char *text) {
    MibExchange mib(name);
    mib.text().append('=').append(text);
    return plain(logged(function, mib.set(number)));
}

} // namespace

int wlio_get_mib_int(int interface_number, const char *name) {
    int32_t value = -1;
    return logged("get_mib_int", get_int(interface_number, name, &value)) < 0 ? -1 : value;
}

int wlio_set_mib_int(int interface_number, const char *name, int value) {
    rk::TextBuffer<16> digits;
    digits.append_decimal(value);
    return set_text("set_mib_int", interface_number, name, digits.c_str());
}

int wlio_get_mib_str_n(int interface_number, const char *name, char *buffer, size_t size) {
    return logged("get_mib_str_n", get_str(interface_number, name, buffer, size));
}

int wlio_get_mib_bin_n(int interface_number, const char *name, void *buffer, size_t size) {
    return logged("get_mib_bin_n", get_bin(interface_number, name, buffer, size));
}

int wlio_get_mib_str(int interface_number, const char *name, char *buffer) {
    return plain(logged("get_mib_str", get_str(interface_number, name, buffer, kUnsizedRoom)));
}

int wlio_get_mib_bin(int interface_number, const char *name, void *buffer) {
    return plain(logged("get_mib_bin", get_bin(interface_number, name, buffer, kUnsizedRoom)));
}

int wlio_set_mib_str(int interface_number, const char *name, const char *text) {
    return set_text("set_mib_str", interface_number, name, text);
}

int wlio_set_mib_bin(int interface_number, const char *name, const void *bytes, size_t count) {
    // More than a request takes: what is cut here is refused there.
    rk::Chars<kRequestSize + 1> digits;
    hex_ntostr(digits, sizeof digits, bytes, count);
    return set_text("set_mib_bin", interface_number, name, digits);
}
