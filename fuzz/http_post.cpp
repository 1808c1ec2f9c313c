// The replies to POST requests: a JSON-RPC batch handed to its calls, and raw ones.
#include <routerkit/jsonrpc.h>

#include <routerkit/http.h>

#include "support/peer.h"

namespace {

json_ctx_t json;

bool is_node(const json_node_t *node) {
    return node == nullptr || (node > json.nodes && node < json.nodes + json.used);
}

void check_call(const jsonrpc_req_t &call, int outcome) {
    fuzz::require(is_node(call.result) && is_node(call.error));
    fuzz::require(outcome != 200 || call.error == nullptr ||
                  json_getInt(json_getChildByKey(call.error, "code")) == call.code);
}

void call_batch(size_t size) {
    jsonrpc_req_t calls[3] = {};
    for (jsonrpc_req_t &call : calls) {
        call.method = "m";
        call.params = "{}";
    }
    lab::Fenced reply(std::string(size, '#'));
    jsonrpc_client_t client = {"127.0.0.1", &json, reply.data(), static_cast<int32_t>(size), 0};
    int outcome = jsonrpc_call_and_parse(&client, calls, 3);
    fuzz::require(outcome >= JSONRPC_NO_OUTCOME && outcome <= 999);
    fuzz::require(outcome < 100 || client.status == outcome);
    for (const jsonrpc_req_t &call : calls) {
        check_call(call, outcome);
    }
}

} // namespace

void fuzz::run(std::string_view input) {
    size_t size = 1 + take(input);
    size *= size; // 1 to 65536
    peer.start(input);
    call_batch(size);

    std::string_view sent = input.substr(std::min<size_t>(input.size(), 1));
    sent = sent.substr(0, sent.find('\xff'));
    sent = sent.substr(0, peer.piece != 0 ? peer.piece : sent.size());
    peer.start(input);
    lab::Fenced raw(std::string(size, '#')), longest(std::string(65536, '#'));
    int length = 0;
    require(http_post_rpc("127.0.0.1", "m", "", raw.data(), size, &length) == 0);
    require(raw.view().substr(0, static_cast<size_t>(length)) == sent.substr(0, size));
    peer.start(input);
    require(http_post_request("127.0.0.1", 80, "m", "", "/", longest.data(), &length) == 0);
    require(longest.view().substr(0, static_cast<size_t>(length)) == sent.substr(0, 65535));
    require(longest.data()[length] == '\0');
}
