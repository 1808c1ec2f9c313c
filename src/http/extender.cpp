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

// What a key's value becomes.
struct Field {
    const char *key;
    uint8_t offset; // in the record
    uint8_t size;   // of a text; 0 for a number
};

// The values of some keys, in the text's order.
class Values {
  public:
    Values(const char *text, int count, const jsonrpc_token_t *tokens, const Field *fields,
           size_t field_count)
        : text_(text), count_(count), tokens_(tokens), fields_(fields), end_(fields + field_count) {
    }

    [[nodiscard]] const Field &field() const { return *field_; }
    [[nodiscard]] std::string_view value() const { return span_of(text_, tokens_[token_]); }

    bool next() {
        while (++token_ + 1 < count_) {
            for (field_ = fields_; field_ != end_; ++field_) {
                if (jsonrpc_strncmp(text_, &tokens_[token_], field_->key) == 0) {
                    ++token_;
                    return true;
                }
            }
        }
        return false;
    }

  private:
    const char *text_;
    int count_;
    const jsonrpc_token_t *tokens_;
    int token_ = kFirstKey - 1;
    const Field *fields_;
    const Field *end_;
    const Field *field_ = nullptr;
};

constexpr Field kInfoFields[] = {
    {"id", offsetof(extender_info_t, id), 0},
    {"UpTime", offsetof(extender_info_t, up_time), 16},
    {"RSSIValue", offsetof(extender_info_t, rssi), 0},
    {"Manufacturer", offsetof(extender_info_t, manufacturer), 32},
    {"ModelName", offsetof(extender_info_t, model_name), 32},
    {"SerialNumber", offsetof(extender_info_t, serial_number), 32},
    {"SoftwareVersion", offsetof(extender_info_t, software_version), 32},
    {"HardwareVersion", offsetof(extender_info_t, hardware_version), 32},
};

constexpr Field kLogField = {"DeviceLog", 0, 0};

void store(extender_info_t *info, const Field &field, std::string_view value) {
    char *place = reinterpret_cast<char *>(info) + field.offset;
    if (field.size != 0) {
        rk::TextWriter(place, field.size).append(value);
        return;
    }
    rk::TextBuffer<kValueRoom> digits;
    digits.append(value);
    int32_t number = std::atoi(digits.c_str());
    std::memcpy(place, &number, sizeof number);
}

int decode(char *out, const rk::TextWriter &encoded) {
    size_t room = b64_decoded_len(encoded.size());
    rk::MallocPtr<char> decoded(static_cast<char *>(std::calloc(room + 1, 1)));
    if (!decoded) {
        return -1;
    }
    b64_decode(decoded.get(), room, encoded.c_str());
    std::memcpy(out, decoded.get(), std::strlen(decoded.get()) + 1);
    return 0;
}

// On its own because behind this much room every variable is far away.
[[gnu::noinline]] int decode_log(char *out, std::string_view encoded) {
    rk::TextBuffer<kLogRoom> log;
    log.append(encoded);
    return decode(out, log);
}

} // namespace

int json_getKavraWiFiExtenderSlavesInfo(extender_info_t *info, const char *text, const void *,
                                        int tokenCount, const jsonrpc_token_t *tokens) {
    Values values(text, tokenCount, tokens, kInfoFields, std::size(kInfoFields));
    while (values.next()) {
        store(info, values.field(), values.value());
    }
    return 0;
}

int json_getKavraWiFiExtenderSlavesLog(char *out, const char *text, const void *, int tokenCount,
                                       const jsonrpc_token_t *tokens) {
    std::string_view encoded;
    Values values(text, tokenCount, tokens, &kLogField, 1);
    while (values.next()) {
        encoded = values.value();
    }
    return decode_log(out, encoded);
}
