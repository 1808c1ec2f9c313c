/* JSON as a list of tokens: spans of the unchanged text, for callers that look for a few keys. One
 * pass, no heap. The scanner is lenient: bare words are values, and commas, colons and the kind of
 * a key are not checked.
 */
#ifndef ROUTERKIT_TOKENS_H
#define ROUTERKIT_TOKENS_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

enum {
    JSONRPC_TOKEN_OBJECT = 1,
    JSONRPC_TOKEN_ARRAY = 2,
    JSONRPC_TOKEN_STRING = 3,
    JSONRPC_TOKEN_PRIMITIVE = 4 /* a number, true, false, null or any other bare word */
};

/* Tokens stand in the order of their first character: a container before its contents, a key before
 * its value. */
typedef struct {
    int32_t type;  /* JSONRPC_TOKEN_... */
    int32_t start; /* offset of the first character, a string's behind its quote; -1 while unset */
    int32_t end;   /* offset behind the last one, of a string's closing quote; -1 while open */
    int32_t size;  /* an object's keys, an array's elements; 1 for a key with a value; else 0 */
} jsonrpc_token_t;

typedef struct {
    uint32_t pos;        /* the character being scanned */
    uint32_t next_token; /* the next free token */
    int32_t super;       /* the token that new ones belong to, -1 for none */
} jsonrpc_parser_t;

/* What jsonrpc_parse returns on failure. */
enum {
    JSONRPC_ERROR_TOKENS = -1, /* the array is full; may go on with a larger one */
    JSONRPC_ERROR_TEXT = -2, /* a bad escape, a control or non-ASCII character in a bare word, or a
                                closing bracket that fits no open one */
    JSONRPC_ERROR_END = -3   /* the text ends inside a string or container */
};

/* To be called before the first jsonrpc_parse of a text. */
ROUTERKIT_API void jsonrpc_init(jsonrpc_parser_t *parser);

/* Scans a text up to `len` characters or its first NUL.
 *   tokens  receives `count` tokens at most; null to count only
 * Returns the number of tokens found so far, earlier calls on the same text included, or an error;
 * the tokens before it keep their values. */
ROUTERKIT_API int jsonrpc_parse(jsonrpc_parser_t *parser, const char *text, size_t len,
                                jsonrpc_token_t *tokens, unsigned count);

/* 0 if the token is a string that is exactly this key, else -1. */
ROUTERKIT_API int jsonrpc_strncmp(const char *text, const jsonrpc_token_t *token, const char *key);

ROUTERKIT_END_DECLS

#endif
