/* Calls of a JSON-RPC 2.0 service that another device offers over plain HTTP on port 80, path
 * "/rpcform/jsonrpc": several in one batch, or a single one for its raw reply. No heap; nothing is
 * logged. All but http_post_request have the time limits of http_post (<routerkit/http.h>).
 *
 * Stack needed: the batch calls 136 KB, the single calls 72 KB (and what the system's resolver
 * takes).
 */
#ifndef ROUTERKIT_JSONRPC_H
#define ROUTERKIT_JSONRPC_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>
#include <routerkit/json.h>

ROUTERKIT_BEGIN_DECLS

/* One call of a batch. To be cleared before it is filled in. */
typedef struct {
    const char *method;  /* inserted as it stands */
    const char *params;  /* JSON text with its brackets, inserted as it stands */
    int32_t code;        /* out: the error's code, if there is an error */
    json_node_t *result; /* out: the result, or null */
    json_node_t *error;  /* out: the error, or null */
} jsonrpc_req_t;

/* A service and the memory for its replies. The nodes of results and errors lie in `json` and point
 * into `reply`: the next call on the same client replaces them. */
typedef struct {
    const char *host;
    json_ctx_t *json;
    char *reply;
    int32_t reply_size;
    int32_t status; /* out: the HTTP status of the last call, -1 for none */
} jsonrpc_client_t;

/* Posts calls with the ids "0", "1"... as one batch. The raw reply stays in the caller's buffer,
 * its status line cut by a NUL; the calls' out fields are not touched. Returns the HTTP status, or
 * -1 as http_post (ENOBUFS for a batch that does not fit). */
ROUTERKIT_API int jsonrpc_call(const char *host, const jsonrpc_req_t *calls, size_t count,
                               char *reply, size_t reply_size);

/* What jsonrpc_call_and_parse returns for a bad reply. */
enum {
    JSONRPC_BAD_REPLY = -1, /* no reply, or not JSON within the limits of <routerkit/json.h> */
    JSONRPC_NO_ARRAY = -2,
    JSONRPC_NO_ID = -3,
    JSONRPC_BAD_ID = -4,    /* no number, or not that of a call */
    JSONRPC_NO_CODE = -5,   /* an error without a numeric code */
    JSONRPC_NO_OUTCOME = -6 /* neither result nor error; an error of null is none */
};

/* Posts calls with the ids 0, 1... as one batch and hands each its result or error, whatever their
 * order. A call that the reply leaves out keeps its values, and so do those behind a bad element.
 * Returns 200 when all of the reply was taken; another HTTP status as it came; or one of the codes
 * above. */
ROUTERKIT_API int jsonrpc_call_and_parse(jsonrpc_client_t *client, jsonrpc_req_t *calls,
                                         size_t count);

/* --- Single calls ---
 * Posted as a batch of one with a random id, for which they seed the C library's generator with the
 * current second (srand): not for several threads at once.
 *   params  the members of an object without its braces */

/* Calls at any port and path, without time limits; the call is cut to 511 characters.
 *   out      at least 65536 bytes: receives what one receive brings, and a NUL
 *   out_len  receives the number of bytes, negative when receiving failed
 * Returns 0, or -1 when the host cannot be reached or nothing be sent. */
ROUTERKIT_API int http_post_request(const char *host, int port, const char *method,
                                    const char *params, const char *path, char *out, int *out_len);

/* Calls at port 80 and "/rpcform/jsonrpc"; the call is cut to 127 characters.
 *   buf      receives what one receive brings, `len` bytes at most, without a NUL
 *   out_len  receives the number of bytes, negative when receiving failed; untouched for 0
 * Returns 0, or -1 when the host cannot be reached or nothing be sent. */
ROUTERKIT_API int http_post_rpc(const char *host, const char *method, const char *params, char *buf,
                                size_t len, int *out_len);

/* Copies the body out of a raw reply.
 *   reply     `len` bytes, and room for one more; its status line and header are cut by NULs
 *   body      room for `len` bytes; no NUL is written
 *   body_len  receives the number of bytes
 * Returns the status; -1 (body and body_len untouched) without a valid status line or a header's
 * end. */
ROUTERKIT_API int get_json_rpc(char *reply, size_t len, char *body, size_t *body_len);

ROUTERKIT_END_DECLS

#endif
