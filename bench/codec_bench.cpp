// The conversions against the C library's and nettle's.
#include <routerkit/conversions.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <netinet/ether.h>
#include <nettle/base16.h>

#include "support/pairs.h"

namespace {

constexpr std::array kAddresses = {"192.168.0.1", "10.0.0.1",       "8.8.8.8", "255.255.255.255",
                                   "172.16.31.4", "100.64.127.200", "1.2.3.4", "0.0.0.0"};
constexpr std::array kMacs = {"00:1a:2b:3c:4d:5e", "ff:ff:ff:ff:ff:ff", "33:33:00:00:00:fb",
                              "01:00:5e:7f:ff:fa"};
constexpr size_t kBytes = 32;

in_addr addresses[kAddresses.size()];
ether_addr macs[kMacs.size()];
uint8_t bytes[kBytes];
char digits[2 * kBytes + 1];

void make_inputs() {
    for (size_t i = 0; i < kAddresses.size(); ++i) {
        inet_pton(AF_INET, kAddresses[i], &addresses[i]);
    }
    for (size_t i = 0; i < kMacs.size(); ++i) {
        ether_aton_r(kMacs[i], &macs[i]);
    }
    for (size_t i = 0; i < kBytes; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 37 + 11);
        std::snprintf(digits + 2 * i, 3, "%02x", bytes[i]);
    }
}

// The answers in a comparable form. Each leaves nothing behind for the other side to show.
std::string take_hex(void *data, size_t size) {
    std::string text(2 * size + 1, '\0');
    text.resize(static_cast<size_t>(hex_ntostr(text.data(), text.size(), data, size)));
    std::memset(data, 0, size);
    return text;
}

std::string take_lower_case(char *data) {
    std::string text(data);
    for (char &character : text) {
        character = static_cast<char>(std::tolower(character));
    }
    *data = '\0';
    return text;
}

std::string take_number(int &number) {
    return std::to_string(std::exchange(number, -1));
}

void read_ipv4() {
    static in_addr address;
    static uint32_t number;
    static int valid;
    auto address_answer = [] { return take_hex(&address, sizeof address); };
    auto valid_answer = [] { return take_number(valid); };
    auto peer = [](size_t i) { valid = inet_pton(AF_INET, kAddresses[i], &address); };

    bench::Row aton("ipv4_aton", kAddresses.size());
    aton.ours([](size_t i) { ipv4_aton(&address, kAddresses[i]); }, address_answer);
    aton.peer("inet_pton", 0.45, peer, address_answer);

    bench::Row atoi("ipv4_atoi", kAddresses.size());
    atoi.ours([](size_t i) { number = ipv4_atoi(kAddresses[i]); },
              [] {
                  ipv4_iton(&address, number);
                  return take_hex(&address, sizeof address);
              });
    atoi.peer("inet_pton", 0.45, peer, address_answer);

    bench::Row isip("ipv4_isip", kAddresses.size());
    isip.ours([](size_t i) { valid = ipv4_isip(kAddresses[i]); }, valid_answer);
    isip.peer("inet_pton", 0.45, peer, valid_answer);
}

void write_ipv4() {
    static char text[16];
    static char *slot;
    bench::Row ntostr("ipv4_ntostr", kAddresses.size());
    auto text_answer = [] { return take_lower_case(text); };
    ntostr.ours([](size_t i) { ipv4_ntostr(text, &addresses[i]); }, text_answer);
    ntostr.peer(
        "inet_ntop", 0.05, [](size_t i) { inet_ntop(AF_INET, &addresses[i], text, sizeof text); },
        text_answer);

    bench::Row ntoa("ipv4_ntoa", kAddresses.size());
    auto slot_answer = [] { return take_lower_case(slot); };
    ntoa.ours([](size_t i) { slot = ipv4_ntoa(&addresses[i]); }, slot_answer);
    ntoa.peer(
        "inet_ntoa", 0.15, [](size_t i) { slot = inet_ntoa(addresses[i]); }, slot_answer);
}

void read_and_write_macs() {
    static ether_addr mac;
    static char text[18];
    auto read_answer = [] { return take_hex(&mac, sizeof mac); };
    bench::Row aton("mac_aton", kMacs.size());
    aton.ours([](size_t i) { mac_aton(&mac, kMacs[i]); }, read_answer);
    aton.peer(
        "ether_aton_r", 0.45, [](size_t i) { ether_aton_r(kMacs[i], &mac); }, read_answer);

    // The peer leaves out leading zeros, so the texts are compared by what they say.
    auto write_answer = [] {
        ether_aton_r(text, &mac);
        *text = '\0';
        return take_hex(&mac, sizeof mac);
    };
    bench::Row ntostr("mac_ntostr", kMacs.size());
    ntostr.ours([](size_t i) { mac_ntostr(text, &macs[i]); }, write_answer);
    ntostr.peer(
        "ether_ntoa_r", 0.04, [](size_t i) { ether_ntoa_r(&macs[i], text); }, write_answer);
}

void read_and_write_hex() {
    static char text[2 * kBytes + 1];
    static uint8_t parsed[kBytes];
    auto write_answer = [] { return take_lower_case(text); };
    bench::Row ntostr("hex_ntostr, 32 bytes");
    ntostr.ours([](size_t) { hex_ntostr(text, sizeof text, bytes, kBytes); }, write_answer);
    ntostr.peer(
        "base16_encode_update", 0.25, [](size_t) { base16_encode_update(text, kBytes, bytes); },
        write_answer);

    auto read_answer = [] { return take_hex(parsed, sizeof parsed); };
    bench::Row aton("hex_aton, 32 bytes");
    aton.ours([](size_t) { hex_aton(parsed, kBytes, digits); }, read_answer);
    auto peer = [](size_t) {
        base16_decode_ctx context;
        size_t length = kBytes;
        base16_decode_init(&context);
        base16_decode_update(&context, &length, parsed, 2 * kBytes, digits);
        base16_decode_final(&context);
    };
    aton.peer("base16_decode_update", 0.20, peer, read_answer);
}

} // namespace

void bench::declare_rows() {
    make_inputs();
    read_ipv4();
    write_ipv4();
    read_and_write_macs();
    read_and_write_hex();
}
