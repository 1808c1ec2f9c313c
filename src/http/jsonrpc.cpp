#include <routerkit/jsonrpc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <routerkit/http.h>

#include "http/exchange.h"
#include "http/http_reply.h"
#include "support/errno.h"
#include "support/text_buffer.h"

using rk::fail;

static_assert(offsetof(jsonrpc_req_t, result) == 3 * sizeof(void *) &&
              offsetof(jsonrpc_client_t, status) == 3 * sizeof(void *) + 4);

namespace {

constexpr const char *kPath = "/rpcform/jsonrpc";
constexpr size_t kReplyRoom = 65535; // of http_post_request
constexpr int kOk = 200;

constexpr size_t kBatchRoom = 65535; // a NUL included
using Batch = rk::TextBuffer<kBatchRoom>;

// `quote` stands on both sides of the ids.
bool write_batch(Batch &batch, const jsonrpc_req_t *calls, size_t count, const char *quote) {
    batch.append("[");
    for (size_t i = 0; i < count && !batch.cut(); ++i) {
        batch.format("{\"jsonrpc\":\"2.0\",\"id\":%s%zu%s,\"method\":\"%s\",\"params\":%s}%s",
                     quote, i, quote, calls[i].method, calls[i].params, i + 1 < count ? "," : "");
    }
    batch.append("]\r\n");
    return !batch.cut();
}

// Fills in what is still missing in the record, and posts it.
int post_batch(http_post_t &post, const jsonrpc_req_t *calls, size_t count, const char *quote) {
    Batch batch;
    if (!write_batch(batch, calls, count, quote)) {
        return fail(ENOBUFS);
    }
    post.path = kPath;
    post.body = batch.c_str();
    post.body_size = kBatchRoom;
    return http_post(&post);
}

int take_error(jsonrpc_req_t &call) {
    const json_node_t *code = json_getChildByKey(call.error, "code");
    if (code == nullptr || code->type != JSON_NUMBER) {
        return JSONRPC_NO_CODE;
    }
    call.code = json_getInt(code);
    return 0;
}

// Hands one element of the reply to its call.
int take_element(const json_node_t *element, jsonrpc_req_t *calls, size_t count) {
    const json_node_t *id = json_getChildByKey(element, "id");
    if (id == nullptr) {
        return JSONRPC_NO_ID;
    }
    if (id->type != JSON_NUMBER || id->value.number < 0 ||
        static_cast<size_t>(id->value.number) >= count) {
        return JSONRPC_BAD_ID;
    }
    jsonrpc_req_t &call = calls[id->value.number];
    call.result = json_getChildByKey(element, "result");
    call.error = json_getChildByKey(element, "error");
    if (call.error != nullptr && call.error->type == JSON_NULL) {
        call.error = nullptr;
    }
    if (call.error != nullptr) {
        return take_error(call);
    }
    return call.result != nullptr ? 0 : JSONRPC_NO_OUTCOME;
}

int take_reply(const json_node_t *root, jsonrpc_req_t *calls, size_t count) {
    if (root->type != JSON_ARRAY) {
        return JSONRPC_NO_ARRAY;
    }
    for (int i = 0; i < root->count; ++i) {
        int error = take_element(json_getArrayElementByIndex(root, i), calls, count);
        if (error != 0) {
            return error;
        }
    }
    return kOk;
}

// A batch of one call with string id, cut to the buffer: callers know their few short calls.
void write_single(rk::TextWriter &text, const char *method, const char *params) {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    text.format("[{\"jsonrpc\":\"2.0\",\"id\":\"%d\",\"method\":\"%s\",\"params\":{%s}}]\r\n",
                std::rand() % 999 + 1, method, params);
}

} // namespace

int jsonrpc_call(const char *host, const jsonrpc_req_t *calls, size_t count, char *reply,
                 size_t reply_size) {
    http_post_t post = {};
    post.host = host;
    post.reply = reply;
    post.reply_size = static_cast<int32_t>(std::min(reply_size, size_t{INT32_MAX}));
    return post_batch(post, calls, count, "\"") == 0 ? post.status : -1;
}

int jsonrpc_call_and_parse(jsonrpc_client_t *client, jsonrpc_req_t *calls, size_t count) {
    http_post_t post = {};
    post.host = client->host;
    post.reply = client->reply;
    post.reply_size = client->reply_size;
    client->status = -1;
    if (post_batch(post, calls, count, "") != 0) {
        return -1;
    }
    client->status = post.status;
    if (post.status != kOk) {
        return post.status;
    }
    const json_node_t *root =
        json_parse(client->json, post.reply_body, std::strlen(post.reply_body));
    return root != nullptr ? take_reply(root, calls, count) : fail(EPROTO);
}

int http_post_request(const char *host, int port, const char *method, const char *params,
                      const char *path, char *out, int *out_len) {
    rk::TextBuffer<512> call;
    write_single(call, method, params);
    ssize_t count = rk::exchange({.host = host,
                                  .port = port,
                                  .limit = rk::kNoLimit,
                                  .path = path,
                                  .body = call.c_str(),
                                  .reply = out,
                                  .room = kReplyRoom});
    if (count == rk::kNotSent) {
        return -1;
    }
    out[std::max(count, ssize_t{0})] = '\0';
    *out_len = static_cast<int>(count);
    return 0;
}

int http_post_rpc(const char *host, const char *method, const char *params, char *buf, size_t len,
                  int *out_len) {
    rk::TextBuffer<128> call;
    write_single(call, method, params);
    ssize_t count = rk::exchange({.host = host,
                                  .port = 0,
                                  .limit = rk::kTransferLimit,
                                  .path = kPath,
                                  .body = call.c_str(),
                                  .reply = buf,
                                  .room = len});
    if (count == rk::kNotSent) {
        return -1;
    }
    if (count != 0) {
        *out_len = static_cast<int>(count);
    }
    return 0;
}

int get_json_rpc(char *reply, size_t len, char *body, size_t *body_len) {
    if (len == 0) {
        return fail(EPROTO);
    }
    rk::ReplyShape shape = rk::split_reply(reply, len);
    if (shape.status < 0 || shape.blank == nullptr) {
        return fail(EPROTO);
    }
    *shape.blank = '\0';
    const char *start = shape.blank + 4;
    *body_len = static_cast<size_t>(reply + len - start);
    std::memcpy(body, start, *body_len);
    return shape.status;
}
