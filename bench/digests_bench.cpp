// The digests against OpenSSL's portable code: its vector and SHA instructions are switched off,
// since the router has none.
#include <routerkit/digests.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#define OPENSSL_SUPPRESS_DEPRECATED // the plain functions, as hosts use them
#include <openssl/md5.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <routerkit/conversions.h>

#include "support/pairs.h"

namespace {

// OpenSSL reads this when it is loaded, so the program starts itself anew. Cleared: SSSE3 and AVX;
// BMI, AVX2 and SHA.
void without_special_instructions() {
    if (::setenv("OPENSSL_ia32cap", "~0x1000020000000000:~0x20000128", 0) != 0 ||
        std::getenv("ROUTERKIT_BENCH_AGAIN") != nullptr) {
        return;
    }
    ::setenv("ROUTERKIT_BENCH_AGAIN", "", 1);
    std::vector<std::string> words;
    std::ifstream command_line("/proc/self/cmdline");
    for (std::string word; std::getline(command_line, word, '\0');) {
        words.push_back(word);
    }
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv("/proc/self/exe", arguments.data());
}

constexpr size_t kPiece = 100;

std::vector<uint8_t> message;
uint8_t digest[32];

std::string answer() {
    std::string text(65, '\0');
    hex_ntostr(text.data(), text.size(), digest, sizeof digest);
    std::fill(std::begin(digest), std::end(digest), uint8_t{0});
    return text;
}

template <typename Add>
void in_pieces(Add add) {
    for (size_t i = 0; i < message.size(); i += kPiece) {
        add(message.data() + i, std::min(kPiece, message.size() - i));
    }
}

void declare_whole(size_t size, const std::string &label) {
    bench::Row sha("sha256, " + label);
    sha.ours([size](size_t) { sha256(message.data(), size, digest); }, answer);
    sha.peer(
        "OpenSSL", 1.02, [size](size_t) { SHA256(message.data(), size, digest); }, answer);
    bench::Row md("md5, " + label);
    md.ours([size](size_t) { md5(digest, message.data(), size); }, answer);
    md.peer(
        "OpenSSL", 0.95, [size](size_t) { MD5(message.data(), size, digest); }, answer);
}

void sha_in_pieces(size_t) {
    sha256_ctx_t context;
    sha256_init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { sha256_hash(&context, at, size); });
    sha256_done(&context, digest);
}

void their_sha_in_pieces(size_t) {
    SHA256_CTX context;
    SHA256_Init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { SHA256_Update(&context, at, size); });
    SHA256_Final(digest, &context);
}

void md_in_pieces(size_t) {
    md5_ctx_t context;
    md5_init(&context);
    in_pieces(
        [&](const uint8_t *at, size_t size) { md5_append(&context, at, static_cast<int>(size)); });
    md5_finish(&context, digest);
}

void their_md_in_pieces(size_t) {
    MD5_CTX context;
    MD5_Init(&context);
    in_pieces([&](const uint8_t *at, size_t size) { MD5_Update(&context, at, size); });
    MD5_Final(digest, &context);
}

} // namespace

void bench::declare_rows() {
    without_special_instructions();
    message.resize(65536);
    for (size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<uint8_t>(i * 31 + i / 256);
    }
    declare_whole(64, "64 B");
    declare_whole(1024, "1 KB");
    declare_whole(65536, "64 KB");
    Row sha("sha256, pieces of 100 B");
    sha.ours(sha_in_pieces, answer);
    sha.peer("OpenSSL", 1.02, their_sha_in_pieces, answer);
    Row md("md5, pieces of 100 B");
    md.ours(md_in_pieces, answer);
    md.peer("OpenSSL", 1.02, their_md_in_pieces, answer);
}
