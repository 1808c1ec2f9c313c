#include <routerkit/http.h>

#include <cstddef>

#include <routerkit/sockets.h>

#include "http/exchange.h"
#include "http/http_reply.h"
#include "support/owning.h"

using rk::fail;
using rk::UniqueFd;

static_assert(offsetof(http_post_t, reply) == 4 * sizeof(void *) &&
              offsetof(http_post_t, status) == 5 * sizeof(void *) + 4);

namespace {

// Posts and receives once: the number of bytes received, or -1.
ssize_t post(const char *host, const char *path, const char *body, char *reply, size_t room) {
    rk::PostRequest request;
    if (!rk::write_post(request, host, path, body)) {
        return -1;
    }
    UniqueFd fd(socket_connect(host));
    if (!fd || !rk::send_all(fd.get(), request.view(), rk::kTransferLimit)) {
        return -1;
    }
    return rk::receive_once(fd.get(), reply, room, rk::kTransferLimit);
}

} // namespace

int http_post(http_post_t *post_record) {
    http_post_t &record = *post_record;
    record.status = -1;
    if (record.reply_size < 1) {
        return fail(EINVAL);
    }
    ssize_t count = post(record.host, record.path, record.body, record.reply,
                         static_cast<size_t>(record.reply_size) - 1);
    if (count < 0) {
        return -1;
    }
    char *end = record.reply + count;
    *end = '\0';
    rk::ReplyShape shape = rk::look_at_reply(record.reply, end);
    if (shape.line_end != nullptr) {
        *shape.line_end = '\0';
    }
    if (shape.status >= 0) {
        record.status = shape.status;
        record.reply_body = shape.blank != nullptr ? shape.blank + 4 : nullptr;
    }
    return record.reply_body != nullptr ? 0 : fail(EPROTO);
}
