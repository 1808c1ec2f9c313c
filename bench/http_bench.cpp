// http_get against libcurl, and all of the HTTP calls against the bare system calls; they ask the
// same nginx on the loopback.
#include <routerkit/clocks.h>
#include <routerkit/files.h>
#include <routerkit/http.h>
#include <routerkit/jsonrpc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"
#include "support/server.h"

namespace {

char body[200000];
size_t body_length;

std::string answer() {
    return {body, body_length};
}

void get(const char *url) {
    int length = http_get(url, body, sizeof body, nullptr);
    body_length = length > 0 ? static_cast<size_t>(length) : 0;
}

size_t append(const char *bytes, size_t /*one*/, size_t count, void * /*argument*/) {
    std::memcpy(body + body_length, bytes, count);
    body_length += count;
    return count;
}

// With a handle of its own, as a program that fetches one page does: ours keeps nothing either.
void get_with_curl(const char *url) {
    CURL *handle = ::curl_easy_init();
    body_length = 0;
    if (handle == nullptr || ::curl_easy_setopt(handle, CURLOPT_URL, url) != CURLE_OK ||
        ::curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L) != CURLE_OK ||
        ::curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append) != CURLE_OK ||
        ::curl_easy_perform(handle) != CURLE_OK) {
        bench::give_up("curl");
    }
    ::curl_easy_cleanup(handle);
}

// Everything known beforehand: the address, the request, that a header comes first, and whether the
// reply goes on to the connection's end or comes with one read.
void exchange_with_bare_calls(uint16_t port, std::string_view request, unsigned wait_ms,
                              bool to_the_end) {
    sockaddr_in server = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&server), sizeof server) != 0) {
        bench::give_up("connect");
    }
    if (wait_ms != 0) {
        safe_msleep(wait_ms);
    }
    if (::send(fd, request.data(), request.size(), 0) < 0) {
        bench::give_up("send");
    }
    size_t held = 0;
    ssize_t count = 0;
    do {
        count = ::read(fd, body + held, sizeof body - held);
        if (count < 0) {
            bench::give_up("read");
        }
        held += static_cast<size_t>(count);
    } while (to_the_end && count > 0);
    ::close(fd);
    body[held] = '\0';
    const char *start = std::strstr(body, "\r\n\r\n") + 4;
    body_length = static_cast<size_t>(body + held - start);
    std::memmove(body, start, body_length);
}

void get_with_bare_calls() {
    exchange_with_bare_calls(8080,
                             "GET /page HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n"
                             "Accept-Encoding: identity\r\nConnection: close\r\n\r\n",
                             0, true);
}

// With the fixed time that the connect helper gives a new connection.
void post_with_bare_calls() {
    exchange_with_bare_calls(
        80,
        "POST /rpcform/jsonrpc HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-type: "
        "application/x-www-form-urlencoded\r\nContent-length: 57\r\n\r\n"
        "[{\"jsonrpc\":\"2.0\",\"id\":\"0\",\"method\":\"m\",\"params\":[]}]\r\n",
        200, false);
}

void call() {
    jsonrpc_req_t request = {"m", "[]", 0, nullptr, nullptr};
    char reply[4096];
    if (jsonrpc_call("127.0.0.1", &request, 1, reply, sizeof reply) != 200) {
        bench::give_up("jsonrpc_call");
    }
    // Behind the status line, which was cut by a NUL.
    const char *start = std::strstr(reply + std::strlen(reply) + 1, "\r\n\r\n") + 4;
    body_length = std::strlen(start);
    std::memcpy(body, start, body_length);
}

void start_nginx() {
    const std::string page(2048, 'p');
    const std::string large(100000, 'l');
    if (::mkdir("/tmp/web", 0755) != 0 || writeStrToFile("/tmp/web/page", page.c_str()) < 0 ||
        writeStrToFile("/tmp/web/large", large.c_str()) < 0) {
        bench::give_up("/tmp/web");
    }
    bench::start_server("nginx", "-c", ROUTERKIT_SOURCE_DIR "/tests/http/nginx.conf", "-e",
                        "stderr");
    sockaddr_in server = {AF_INET, htons(8080), {htonl(INADDR_LOOPBACK)}, {}};
    for (int tries = 0; tries < 100; ++tries) {
        int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int result = ::connect(fd, reinterpret_cast<sockaddr *>(&server), sizeof server);
        ::close(fd);
        if (result == 0) {
            return;
        }
        safe_msleep(20);
    }
    bench::give_up("nginx (package nginx-light) does not answer");
}

void against_curl(const std::string &name, double at_most, const char *url) {
    bench::Row row("http_get, " + name, 1, bench::Clock::kWall);
    row.ours([url](size_t) { get(url); }, answer);
    row.peer(
        "libcurl, new handle", at_most, [url](size_t) { get_with_curl(url); }, answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    if (::curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) {
        bench::give_up("curl_global_init");
    }
    stay_on_one_processor();
    start_nginx();
    against_curl("2 KB", 0.70, "http://127.0.0.1:8080/page");
    against_curl("2 KB chunked", 0.70, "http://127.0.0.1:8080/chunked");
    against_curl("100 KB", 0.70, "http://127.0.0.1:8080/large");
    against_curl("one redirect", 1.00, "http://127.0.0.1:8080/moved");
    Row bare("http_get, 2 KB bare", 1, Clock::kWall);
    bare.ours([](size_t) { get("http://127.0.0.1:8080/page"); }, answer);
    bare.peer(
        "connect, send, read", 1.05, [](size_t) { get_with_bare_calls(); }, answer);
    Row rpc("jsonrpc_call, 200 ms and 2 at most", 1, Clock::kWall);
    rpc.ours([](size_t) { call(); }, answer);
    rpc.peer(
        "connect, 200 ms, send...", 1.01, [](size_t) { post_with_bare_calls(); }, answer);
}
