// The kernels and their peers as a program for MIPS, whose instructions ./run bench-mips counts:
//     rows                  lists the rows: number, name, peer, ratio that we promise
//     rows ROW SIDE TIMES   compares the answers of both sides, then calls one of them (0: ours)
#include <routerkit/base64.h>
#include <routerkit/digests.h>
#include <routerkit/json.h>
#include <routerkit/tokens.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#define OPENSSL_SUPPRESS_DEPRECATED // the plain functions, as hosts use them
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>

#include "support/replies.h"

namespace {

// Built with and without the assertions of its headers.
#ifdef NDEBUG
constexpr char kTreePeer[] = "RapidJSON in situ";
constexpr char kTokensPeer[] = "RapidJSON SAX";
#else
constexpr char kTreePeer[] = "RapidJSON asserting";
constexpr char kTokensPeer[] = "RapidJSON SAX asserting";
#endif

constexpr size_t kPiece = 100;
constexpr size_t kBytes = 6000; // to be encoded

std::vector<uint8_t> message(65536);
std::string encoded;
std::string text; // of the JSON rows
std::string work; // what their parsers destroy
std::string out;  // what the others write
long number;      // or count
json_ctx_t ctx;
jsonrpc_token_t tokens[1024];

uint8_t *out_bytes() {
    return reinterpret_cast<uint8_t *>(out.data());
}

template <typename Add>
void in_pieces(Add add) {
    for (size_t i = 0; i < message.size(); i += kPiece) {
        add(message.data() + i, std::min(kPiece, message.size() - i));
    }
}

template <size_t Size>
void our_sha() {
    sha256(message.data(), Size, out.data());
}

template <size_t Size>
void their_sha() {
    SHA256(message.data(), Size, out_bytes());
}

template <size_t Size>
void our_md5() {
    md5(out.data(), message.data(), Size);
}

template <size_t Size>
void their_md5() {
    MD5(message.data(), Size, out_bytes());
}

void our_sha_in_pieces() {
    sha256_ctx_t context;
    sha256_init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { sha256_hash(&context, at, size); });
    sha256_done(&context, out.data());
}

void their_sha_in_pieces() {
    SHA256_CTX context;
    SHA256_Init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { SHA256_Update(&context, at, size); });
    SHA256_Final(out_bytes(), &context);
}

void our_md5_in_pieces() {
    md5_ctx_t context;
    md5_init(&context);
    in_pieces(
        [&](const uint8_t *at, size_t size) { md5_append(&context, at, static_cast<int>(size)); });
    md5_finish(&context, out.data());
}

void their_md5_in_pieces() {
    MD5_CTX context;
    MD5_Init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { MD5_Update(&context, at, size); });
    MD5_Final(out_bytes(), &context);
}

void our_encode() {
    number = b64_encode(out.data(), out.size(), message.data(), kBytes);
}

void their_encode() {
    number = EVP_EncodeBlock(out_bytes(), message.data(), kBytes);
}

void our_decode() {
    number = b64_decode(out.data(), out.size(), encoded.c_str());
}

void their_decode() {
    number = EVP_DecodeBlock(out_bytes(), reinterpret_cast<const uint8_t *>(encoded.data()),
                             static_cast<int>(encoded.size()));
}

// All numbers and lengths of a tree, weighted by their order.
class Sum {
  public:
    void add(const json_node_t *node) {
        if (node->type == JSON_STRING) {
            add(static_cast<long>(std::strlen(node->value.string)));
        } else if (node->type == JSON_NUMBER || node->type == JSON_BOOLEAN) {
            add(node->value.number);
        } else if (node->type != JSON_NULL) {
            for (int i = 0; i < node->count; ++i) {
                add(node->value.children[i]);
            }
        }
    }

    void add(const rapidjson::Value &value) {
        if (value.IsString()) {
            add(static_cast<long>(value.GetStringLength()));
        } else if (value.IsInt() || value.IsBool()) {
            add(long{value.IsInt() ? value.GetInt() : value.IsTrue()});
        } else if (value.IsArray()) {
            for (const auto &element : value.GetArray()) {
                add(element);
            }
        } else if (value.IsObject()) {
            for (const auto &member : value.GetObject()) {
                add(member.value);
            }
        }
    }

    void add(long leaf) { value = (value * 31 + leaf) % 1000003; }

    long value = 1;
};

template <typename Tree>
long sum_of(const Tree &tree) {
    Sum sum;
    sum.add(tree);
    return sum.value;
}

bool checking; // whether a tree is walked, once, to compare it

void our_tree() {
    std::memcpy(work.data(), text.c_str(), text.size() + 1);
    const json_node_t *root = json_parse(&ctx, work.data(), text.size());
    number = checking ? sum_of(root) : 0;
}

void their_tree() {
    std::memcpy(work.data(), text.c_str(), text.size() + 1);
    rapidjson::Document document;
    document.ParseInsitu(work.data());
    number = checking ? sum_of(document) : 0;
}

void our_tokens() {
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    number = jsonrpc_parse(&parser, text.c_str(), text.size(), tokens, 1024);
}

// Counts what the scanner calls a token.
struct Counter : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Counter> {
    bool Default() {
        ++number;
        return true;
    }
    bool Key(const char *, rapidjson::SizeType, bool) { return Default(); }
    bool String(const char *, rapidjson::SizeType, bool) { return Default(); }
    bool EndObject(rapidjson::SizeType) { return true; }
    bool EndArray(rapidjson::SizeType) { return true; }
};

void their_tokens() {
    number = 0;
    Counter counter;
    rapidjson::StringStream stream(text.c_str());
    rapidjson::Reader().Parse(stream, counter);
}

struct Row {
    const char *name;
    const char *peer;
    const char *at_most; // "-" for none
    void (*sides[2])();  // ours, theirs
    std::string text = {};
};

const Row rows[] = {
    {"sha256, 64 B", "OpenSSL", "1.00", {our_sha<64>, their_sha<64>}},
    {"sha256, 1 KB", "OpenSSL", "1.00", {our_sha<1024>, their_sha<1024>}},
    {"sha256, 64 KB", "OpenSSL", "1.00", {our_sha<65536>, their_sha<65536>}},
    {"sha256, pieces of 100 B", "OpenSSL", "-", {our_sha_in_pieces, their_sha_in_pieces}},
    {"md5, 64 B", "OpenSSL", "1.00", {our_md5<64>, their_md5<64>}},
    {"md5, 1 KB", "OpenSSL", "1.00", {our_md5<1024>, their_md5<1024>}},
    {"md5, 64 KB", "OpenSSL", "1.00", {our_md5<65536>, their_md5<65536>}},
    {"md5, pieces of 100 B", "OpenSSL", "-", {our_md5_in_pieces, their_md5_in_pieces}},
    {"b64_encode, 6 KB", "OpenSSL", "0.85", {our_encode, their_encode}},
    {"b64_decode, 6 KB", "OpenSSL", "0.70", {our_decode, their_decode}},
    {"json_parse, 0.2 KB", kTreePeer, "0.32", {our_tree, their_tree}, bench::reply(3, "")},
    {"json_parse, 1 KB", kTreePeer, "0.32", {our_tree, their_tree}, bench::reply(18, "")},
    {"json_parse, 8 KB", kTreePeer, "0.32", {our_tree, their_tree}, bench::deep_reply()},
    {"json_parse, 2 KB indented",
     kTreePeer,
     "0.32",
     {our_tree, their_tree},
     bench::reply(18, bench::kIndent)},
    {"json_parse, one text of 8 KB", kTreePeer, "0.32", {our_tree, their_tree}, bench::long_text()},
    {"jsonrpc_parse, 1 KB compact",
     kTokensPeer,
     "0.50",
     {our_tokens, their_tokens},
     bench::reply(18, "")},
    {"jsonrpc_parse, 2 KB indented",
     kTokensPeer,
     "0.50",
     {our_tokens, their_tokens},
     bench::reply(18, bench::kIndent)},
};

std::string answer(void (*side)()) {
    out.assign(2 * kBytes, '\0');
    number = 0;
    side();
    return out + std::to_string(number);
}

void prepare(const Row &row) {
    for (size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<uint8_t>(i * 131 + i / 200);
    }
    encoded.resize(b64_encoded_len(kBytes));
    b64_encode(encoded.data(), encoded.size() + 1, message.data(), kBytes);
    text = row.text;
    work.resize(text.size() + 1);
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        for (size_t i = 0; i < std::size(rows); ++i) {
            std::printf("%zu|%s|%s|%s\n", i, rows[i].name, rows[i].peer, rows[i].at_most);
        }
        return 0;
    }
    const Row &row = rows[std::strtoul(argv[1], nullptr, 10)];
    prepare(row);
    checking = true;
    if (answer(row.sides[0]) != answer(row.sides[1])) {
        std::fprintf(stderr, "%s: the answers differ\n", row.name);
        return 1;
    }
    checking = false;
    auto *side = row.sides[std::atoi(argv[2])];
    for (int times = std::atoi(argv[3]); times > 0; --times) {
        side();
    }
    return 0;
}
