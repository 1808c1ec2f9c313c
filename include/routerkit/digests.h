/* MD5 (RFC 1321) and SHA-256 (FIPS 180-4), in one call or fed in pieces. Digests are raw bytes:
 * hex_ntostr (<routerkit/conversions.h>) makes text of them. Nothing here fails, allocates or logs.
 */
#ifndef ROUTERKIT_DIGESTS_H
#define ROUTERKIT_DIGESTS_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* A message under way, in the caller's memory: init, any number of hash calls, done; after done it
 * must be initialised again. */
typedef struct {
    uint8_t data[64];        /* the partial input block */
    uint32_t state[8];       /* the chaining value */
    uint32_t bit_count_low;  /* length of the blocks compressed so far, in bits */
    uint32_t bit_count_high; /* its high 32 bits */
    uint32_t data_length;    /* bytes held in data, 0 to 63 */
} sha256_ctx_t;

/* A null context, and in sha256_hash null data, is ignored. */
ROUTERKIT_API void sha256_init(sha256_ctx_t *context);
ROUTERKIT_API void sha256_hash(sha256_ctx_t *context, const void *data, size_t count);

/* Writes the 32 bytes of the digest; a null output ends the message all the same. */
ROUTERKIT_API void sha256_done(sha256_ctx_t *context, void *digest);

/* All three in one. Note the order: data first, digest last. */
ROUTERKIT_API void sha256(const void *data, size_t count, void *digest);

/* As sha256_ctx_t: init, append, finish. */
typedef struct {
    uint32_t count[2]; /* message length in bits, low word first */
    uint32_t abcd[4];  /* the chaining value */
    uint8_t buf[64];   /* the partial input block */
} md5_ctx_t;

ROUTERKIT_API void md5_init(md5_ctx_t *context);

/* A count below 1 adds nothing; the data need no alignment. */
ROUTERKIT_API void md5_append(md5_ctx_t *context, const void *data, int count);

/* Writes the 16 bytes of the digest; returns 16. */
ROUTERKIT_API int md5_finish(md5_ctx_t *context, void *digest);

/* All three in one, returns 16. Note the order: digest first. */
ROUTERKIT_API int md5(void *digest, const void *data, size_t count);

/* 1 if any of the 16 bytes of a digest is not zero, else 0. */
ROUTERKIT_API int is_md5(const void *digest);

ROUTERKIT_END_DECLS

#endif
