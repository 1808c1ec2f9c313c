#include <routerkit/http.h>

#include <cstddef>

#include "http/exchange.h"
#include "http/http_reply.h"
#include "support/errno.h"

using rk::fail;

static_assert(offsetof(http_post_t, reply) == 4 * sizeof(void *) &&
              offsetof(http_post_t, status) == 5 * sizeof(void *) + 4);

int http_post(http_post_t *post) {
    post->status = -1;
    if (post->reply_size < 1) {
        return fail(EINVAL);
    }
    ssize_t count = rk::exchange({.host = post->host,
                                  .port = 0,
                                  .limit = rk::kTransferLimit,
                                  .path = post->path,
                                  .body = post->body,
                                  .reply = post->reply,
                                  .room = static_cast<size_t>(post->reply_size) - 1});
    if (count < 0) {
        return -1;
    }
    rk::ReplyShape shape = rk::split_reply(post->reply, static_cast<size_t>(count));
    if (shape.status >= 0) {
        post->status = shape.status;
        post->reply_body = shape.blank != nullptr ? shape.blank + 4 : nullptr;
    }
    return post->reply_body != nullptr ? 0 : fail(EPROTO);
}
