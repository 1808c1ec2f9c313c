#include <routerkit/extender.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <routerkit/base64.h>

#include "support/owning.h"
#include "support/text_buffer.h"

static_assert(offsetof(extender_info_t, rssi) == 20 &&
                  offsetof(extender_info_t, model_name) == 56 && sizeof(extender_info_t) == 184,
              "host programs own the record");

namespace {

constexpr int kFirstKey = 3; // the tokens before it are never keys
constexpr size_t kLogRoom = 43700;
constexpr size_t kValueRoom = 1024;

// The text of a token; nothing of one that is still open.
std::string_view span_of(const char *text, const jsonrpc_token_t &token) {
    return token.end < token.start
               ? std::string_view()
               : std::string_view(text + token.start, static_cast<size_t>(token.end - token.start));
}

// Calls `use(key, value)` for each value of one of the keys, in the text's order.
template <size_t Count, typename Use>
void for_each_value(const char *text, int count, const jsonrpc_token_t *tokens,
                    const char *const (&keys)[Count], Use use) {
    for (int i = kFirstKey; i + 1 < count; ++i) {
        for (size_t key = 0; key < Count; ++key) {
            if (jsonrpc_strncmp(text, &tokens[i], keys[key]) == 0) {
                ++i;
                use(key, span_of(text, tokens[i]));
                break;
            }
        }
    }
}

// In the order of the record: two of them are numbers.
constexpr const char *kInfoKeys[] = {
    "id",        "UpTime",       "RSSIValue",       "Manufacturer",
    "ModelName", "SerialNumber", "SoftwareVersion", "HardwareVersion"};

struct TextField {
    size_t offset;
    size_t size;
};

constexpr TextField kTextFields[] = {
    {},
    {offsetof(extender_info_t, up_time), 16},
    {},
    {offsetof(extender_info_t, manufacturer), 32},
    {offsetof(extender_info_t, model_name), 32},
    {offsetof(extender_info_t, serial_number), 32},
    {offsetof(extender_info_t, software_version), 32},
    {offsetof(extender_info_t, hardware_version), 32},
};

void store(extender_info_t &info, size_t key, std::string_view value) {
    if (kTextFields[key].size != 0) {
        char *field = reinterpret_cast<char *>(&info) + kTextFields[key].offset;
        rk::TextWriter(field, kTextFields[key].size).append(value);
        return;
    }
    rk::TextBuffer<kValueRoom> digits;
    digits.append(value);
    (key == 0 ? info.id : info.rssi) = std::atoi(digits.c_str());
}

} // namespace

int json_getKavraWiFiExtenderSlavesInfo(extender_info_t *info, const char *text, const void *,
                                        int tokenCount, const jsonrpc_token_t *tokens) {
    for_each_value(text, tokenCount, tokens, kInfoKeys,
                   [&](size_t key, std::string_view value) { store(*info, key, value); });
    return 0;
}

int json_getKavraWiFiExtenderSlavesLog(char *out, const char *text, const void *, int tokenCount,
                                       const jsonrpc_token_t *tokens) {
    static constexpr const char *kLogKey[] = {"DeviceLog"};
    std::string_view encoded;
    for_each_value(text, tokenCount, tokens, kLogKey,
                   [&](size_t, std::string_view value) { encoded = value; });
    rk::TextBuffer<kLogRoom> log;
    log.append(encoded);
    size_t room = b64_decoded_len(log.size());
    rk::MallocPtr<char> decoded(static_cast<char *>(std::calloc(room + 1, 1)));
    if (!decoded) {
        return -1;
    }
    b64_decode(decoded.get(), room, log.c_str());
    std::memcpy(out, decoded.get(), std::strlen(decoded.get()) + 1);
    return 0;
}
