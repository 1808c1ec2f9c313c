/* A small HTTP/1.1 client over plain TCP, for the web services of the local network: no TLS, one
 * request a connection, no heap. The functions block and may run in several threads at once.
 *
 * Stack needed: http_get 16 KB, http_post 70 KB (and what the system's resolver takes).
 */
#ifndef ROUTERKIT_HTTP_H
#define ROUTERKIT_HTTP_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Fetches scheme://[user@]host[:port][/path][?query] (<routerkit/strings.h> tells the parts; the
 * host has 63 characters at most, a fragment is not sent) and follows redirects, 10 in a row at
 * most. A redirect has to name a whole URL: a relative Location fails. Of the scheme only the default
 * port is taken: https is spoken in plain text, too.
 *   buf     receives the body and a NUL; a longer body is cut
 *   size    room in buf in bytes, NUL included, at least 1
 *   cookie  null, or 4096 bytes: a text to send as the cookie ("" for none), which the first
 *           Set-Cookie of a 2xx reply replaces
 *
 * A reply with a Content-Length is received up to that length, or to the connection's end if that
 * comes first. One without is received only as far as it arrives together with the header or in one
 * further receive: a long one is cut short, or fails if it is chunked. A chunked transfer encoding
 * is undone in place, so buf must hold the encoded form. The header is read up to 4095 bytes and 31
 * lines; one that goes on, or that the server breaks off, counts as far as it came, with an empty
 * body.
 *
 * Returns the length of the body; the negated status for one that is neither 2xx nor a redirect
 * with a Location (errno EREMOTEIO); -1 for every other failure:
 *   ELOOP      too many redirects
 *   EINVAL     no usable URL, or a line end in the path or cookie (nothing is sent)
 *   ENOBUFS    the request has more than 4999 bytes (nothing is sent)
 *   EPROTO     no valid status line, or a malformed chunked body
 *   EHOSTUNREACH  an unknown host; any other as the failing call left it
 * All but a malformed chunked body and an unwanted redirect is logged at LOG_ERR. There is no
 * time-out but the system's. */
ROUTERKIT_API int http_get(const char *url, char *buf, size_t size, char *cookie);

/* A POST request. To be cleared before it is filled in. */
typedef struct {
    const char *host;   /* a name or dotted address */
    const char *path;   /* the request's target, sent as it stands */
    const char *body;   /* sent up to its NUL, as a form */
    int32_t body_size;  /* room in body; not used */
    char *reply;        /* receives the raw reply */
    int32_t reply_size; /* its room in bytes, NUL included, at least 1 */
    int32_t status;     /* out: the reply's status, or -1 */
    char *reply_body; /* out: where the body starts in reply, null without a header's end; untouched
                         without a valid status line */
} http_post_t;

/* Posts a body to port 80 of a host and takes what the first receive brings, reply_size - 1 bytes
 * at most, with a NUL behind; the status line in reply is cut by a NUL too. Connecting takes 200
 * ms, sending and receiving 2 seconds each at most (errno EAGAIN).
 * Returns 0 when the reply has a valid status line and a header's end (without the former: when
 * reply_body was set by the caller), else -1: ENOBUFS for a request of more than 65534 bytes and
 * EINVAL for a line end in host or path, where nothing is sent; EPROTO for any other reply. */
ROUTERKIT_API int http_post(http_post_t *post);

/* The code, 100 to 999, of a status line of HTTP/1.0 or 1.1, or -1. */
ROUTERKIT_API int http_response_code(const char *line);

/* Splits a raw reply in place: cuts its status line, and the line ends on both sides of its body.
 *   reply     `len` bytes, and room for one more
 *   body_out  receives the start of the body, null without a header's end; untouched on failure
 * Returns the status; -1 for an empty reply or one without a valid status line. */
ROUTERKIT_API int http_post_response(char *reply, size_t len, char **body_out);

ROUTERKIT_END_DECLS

#endif
