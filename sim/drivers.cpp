#include "drivers.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <net/if.h>
#include <sys/ioctl.h>

#include "state.h"
#include "support/errno.h"
#include "support/hex_digits.h"
#include "support/lines.h"

using rk::fail;

namespace sim {
namespace {

constexpr char kSwitch[] = "eth1";
constexpr unsigned long kLinkState = 2000;
constexpr unsigned long kSwitchCommand = SIOCDEVPRIVATE;
constexpr unsigned long kSetMib = SIOCDEVPRIVATE + 1;
constexpr unsigned long kGetMib = SIOCDEVPRIVATE + 2;

// The records as the drivers see them: four words behind a pointer; struct iwreq of
// <linux/wireless.h>.
struct SwitchCommand {
    unsigned long word; // the command, then the answer
    unsigned long first;
    unsigned long second;
    int32_t *third; // the link state's place, for the command that asks for it
};

struct SwitchRequest {
    char ifname[IFNAMSIZ];
    SwitchCommand *command;
};

struct WirelessRequest {
    char ifname[IFNAMSIZ];
    char *buffer;
    uint16_t length;
    uint16_t flags;
};

// --- The switch ---

int store_link_state(int32_t *out) {
    Path path;
    char text[16];
    bool down = state_path(path, "%s/link", kSwitch) && read_text(path, text, sizeof text) >= 0 &&
                std::strcmp(text, "down") == 0;
    if (out == nullptr) {
        return fail(EFAULT);
    }
    *out = down ? -1 : 0;
    return 0;
}

int run_switch(SwitchCommand *command) {
    if (command == nullptr) {
        return fail(EFAULT);
    }
    record("switch %s %lu %#lx %#lx %p\n", kSwitch, command->word, command->first, command->second,
           static_cast<void *>(command->third));
    if (fails("switch")) {
        return -1;
    }
    Path path;
    char text[32];
    bool answers = state_path(path, "%s/%lu", kSwitch, command->word) &&
                   read_text(path, text, sizeof text) >= 0;
    long long word = 0;
    if (answers && !parse_number(text, INT32_MIN, UINT32_MAX, &word)) {
        return fail(EINVAL);
    }
    bool asks_link = command->word == kLinkState;
    if (!asks_link && !answers) {
        return fail(EOPNOTSUPP);
    }
    if (asks_link && store_link_state(command->third) != 0) {
        return -1;
    }
    command->word = answers ? static_cast<unsigned long>(word) : command->word;
    return 0;
}

// --- The wireless settings ---

struct Limits {
    std::string_view type;
    size_t width;
    long long least, most; // signed and unsigned values of the width alike
};

constexpr Limits kIntegers[] = {
    {"int1", 1, INT8_MIN, UINT8_MAX},
    {"int2", 2, INT16_MIN, UINT16_MAX},
    {"int4", 4, INT32_MIN, UINT32_MAX},
};

// A setting's file: "TYPE VALUE", or "TYPE/LENGTH VALUE" where the driver claims another length
// than its answer has.
struct Mib {
    char text[768];
    std::string_view type;
    std::string_view claim; // "" or "/LENGTH"
    std::string_view value;

    bool load(const Path &path) {
        int length = read_text(path, text, sizeof text);
        if (length < 0) {
            return false;
        }
        std::string_view all(text, static_cast<size_t>(length));
        size_t word = std::strcspn(text, " ");
        size_t slash = std::strcspn(text, "/ ");
        type = {text, slash};
        claim = {text + slash, word - slash};
        value = all;
        value.remove_prefix(word < all.size() ? word + 1 : all.size());
        return true;
    }

    [[nodiscard]] const Limits *integer() const {
        for (const Limits &limits : kIntegers) {
            if (type == limits.type) {
                return &limits;
            }
        }
        return nullptr;
    }
};

bool is_hex(std::string_view text) {
    for (char character : text) {
        if (rk::hex_value(character) < 0) {
            return false;
        }
    }
    return text.size() % 2 == 0;
}

using Answer = char[sizeof Mib::text];

template <typename Value>
int put_integer(long long number, Answer &answer) {
    auto value = static_cast<Value>(number);
    std::memcpy(answer, &value, sizeof value);
    return sizeof value;
}

// What the driver answers with, in host byte order; its length, or -1 for a value that is not of
// its type.
int make_answer(const Mib &mib, Answer &answer) {
    size_t size = mib.value.size();
    if (const Limits *integer = mib.integer()) {
        long long number = 0;
        if (!parse_number(mib.value, integer->least, integer->most, &number)) {
            return fail(EINVAL);
        }
        return integer->width == 1   ? put_integer<int8_t>(number, answer)
               : integer->width == 2 ? put_integer<int16_t>(number, answer)
                                     : put_integer<int32_t>(number, answer);
    }
    if (mib.type == "str") {
        std::memcpy(answer, mib.value.data(), size);
        answer[size] = '\0';
        return static_cast<int>(size + 1);
    }
    if (mib.type != "bin" || !is_hex(mib.value)) {
        return fail(EINVAL);
    }
    for (size_t i = 0; i < size / 2; ++i) {
        answer[i] = static_cast<char>(rk::read_hex_pair(mib.value.data() + 2 * i));
    }
    return static_cast<int>(size / 2);
}

int get_mib(const Mib &mib, WirelessRequest *request) {
    Answer answer;
    int length = make_answer(mib, answer);
    if (length < 0) {
        return -1;
    }
    size_t room = std::strlen(request->buffer) + request->length;
    if (static_cast<size_t>(length) > room) {
        return fail(EMSGSIZE);
    }
    std::memcpy(request->buffer, answer, static_cast<size_t>(length));
    long long claimed = length;
    if (!mib.claim.empty()) {
        parse_number({mib.claim.data() + 1, mib.claim.size() - 1}, 0, UINT16_MAX, &claimed);
    }
    request->length = static_cast<uint16_t>(claimed);
    return 0;
}

int set_mib(const Mib &mib, const Path &path, std::string_view value, WirelessRequest *request) {
    const Limits *integer = mib.integer();
    long long number = 0;
    bool valid = integer != nullptr ? parse_number(value, integer->least, integer->most, &number)
                                    : mib.type == "str" || (mib.type == "bin" && is_hex(value));
    if (!valid) {
        return fail(EINVAL);
    }
    TextBuffer<1024> text;
    text.append(mib.type).append(mib.claim).append(' ').append(value).append('\n');
    if (!write_text(path, text)) {
        return -1;
    }
    request->length = 0;
    return 0;
}

int run_wireless(bool sets, WirelessRequest *request) {
    const char *text = request->buffer;
    if (text == nullptr) {
        return fail(EFAULT);
    }
    record("%s %s %s %u\n", sets ? "set" : "get", request->ifname, text, request->length);
    if (fails(sets ? "set" : "get")) {
        return -1;
    }
    size_t name = sets ? std::strcspn(text, "=") : std::strlen(text);
    Path path;
    Mib mib;
    if (name == 0 || std::string_view(text, name).find('/') != std::string_view::npos ||
        (sets && text[name] != '=') ||
        !state_path(path, "%s/%.*s", request->ifname, static_cast<int>(name), text) ||
        !mib.load(path)) {
        return fail(EINVAL);
    }
    return sets ? set_mib(mib, path, text + name + 1, request) : get_mib(mib, request);
}

// --- Both ---

const char *skip_digits(const char *text) {
    return text + std::strspn(text, "0123456789");
}

// wlanN or wlanN-vaM.
bool is_wireless(const char *ifname) {
    if (std::strncmp(ifname, "wlan", 4) != 0) {
        return false;
    }
    const char *end = skip_digits(ifname + 4);
    if (end == ifname + 4 || std::strncmp(end, "-va", 3) != 0) {
        return end != ifname + 4 && *end == '\0';
    }
    const char *last = skip_digits(end + 3);
    return last != end + 3 && *last == '\0';
}

std::optional<int> answer(unsigned long request, void *record) {
    return request == kSwitchCommand
               ? run_switch(static_cast<SwitchRequest *>(record)->command)
               : run_wireless(request == kSetMib, static_cast<WirelessRequest *>(record));
}

} // namespace

std::optional<int> driver_request(unsigned long request, void *record) {
    if (request < kSwitchCommand || request > kGetMib || record == nullptr) {
        return std::nullopt;
    }
    const char *ifname = static_cast<const char *>(record);
    bool named =
        strnlen(ifname, IFNAMSIZ) < IFNAMSIZ &&
        (request == kSwitchCommand ? std::strcmp(ifname, kSwitch) == 0 : is_wireless(ifname));
    return named && has_device(ifname) ? answer(request, record) : std::nullopt;
}

} // namespace sim
