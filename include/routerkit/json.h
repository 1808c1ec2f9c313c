/* A JSON reader without the heap: a text becomes, in place, a tree of nodes from a caller's pool.
 *
 * It reads a subset of RFC 8259: integers only, at most 20 members or elements in an object or
 * array, at most 300 values in a document, strings left escaped (json_enscape decodes one on
 * demand). The text is modified, a failed parse included: a NUL replaces each closing quote. It
 * must be writable, hold a NUL right behind it, and stay alive and unchanged for as long as the
 * tree is used.
 */
#ifndef ROUTERKIT_JSON_H
#define ROUTERKIT_JSON_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

enum {
    JSON_OBJECT = 1,
    JSON_ARRAY = 2,
    JSON_STRING = 3,
    JSON_NUMBER = 4,
    JSON_BOOLEAN = 5,
    JSON_NULL = 6
};

enum { JSON_MAX_CHILDREN = 20, JSON_MAX_NODES = 300 };

/* What json_ctx_t.error holds after a failed parse. */
enum {
    JSON_ERROR_SYNTAX = -3, /* no value, a misspelt literal, or a container that is not closed */
    JSON_ERROR_STRING = -4, /* a string without a closing quote */
    JSON_ERROR_KEY =
        -5, /* a key that is no string or has no colon, as behind an object's last comma */
    JSON_ERROR_CHILDREN = -6, /* more than 20 children */
    JSON_ERROR_NODES = -7     /* more than 300 values */
};

typedef struct json_node json_node_t;

struct json_node {
    uint32_t type; /* JSON_OBJECT... */
    char *key;     /* a member's key, still escaped; not set for elements and the root */
    union {
        char *string;                             /* the text between the quotes, still escaped */
        int32_t number;                           /* a number; 1 or 0 for true and false */
        json_node_t *children[JSON_MAX_CHILDREN]; /* in the document's order */
    } value;
    int32_t count; /* children of an object or array; not set otherwise */
};

/* The caller's pool of nodes: about 28 KB on a 32-bit processor. A new json_parse on it ends the
 * life of every tree before. */
typedef struct {
    json_node_t nodes[JSON_MAX_NODES];
    int32_t used;  /* nodes handed out */
    int32_t error; /* 0, or JSON_ERROR_... */
} json_ctx_t;

/* Parses the value at the start of a text of `len` characters; what follows it is ignored. Returns
 * the root, or null with the error in the context. An error in an inner value is replaced by -3
 * where it leaves a container unclosed. */
ROUTERKIT_API json_node_t *json_parse(json_ctx_t *ctx, char *text, size_t len);

/* The first child of an object with this key; null for none, for a null node and for no object. */
ROUTERKIT_API json_node_t *json_getChildByKey(const json_node_t *node, const char *key);

/* A child of an array or object, counted from 0; null outside of 0 to count - 1. */
ROUTERKIT_API json_node_t *json_getArrayElementByIndex(const json_node_t *node, int index);

/* The number (one outside of int32_t as atoi reads it), or 1 or 0 for a boolean. The node must not be
 * null; for one of another type the result means nothing. */
ROUTERKIT_API int json_getInt(const json_node_t *node);

/* Decodes the escapes of a string in place; returns it, or null for an escape that is not one of
 * \" \\ \/ \b \f \n \r \t (\u neither): the string is then of no more use. */
ROUTERKIT_API char *json_enscape(char *str);

/* --- The parts of the parser ---
 * Each takes the value at `pos`, before `end`, into a node, and returns the position behind it;
 * `pos` unchanged, and nothing touched, when the value is of another kind. */

typedef char *json_parser_t(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);

ROUTERKIT_API char *json_parse_string(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);
ROUTERKIT_API char *json_parse_number(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);
ROUTERKIT_API char *json_parse_object(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);
ROUTERKIT_API char *json_parse_array(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);
ROUTERKIT_API char *json_parse_boolean(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);
ROUTERKIT_API char *json_parse_null(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);

/* A value of any kind, with the white space around it. */
ROUTERKIT_API char *json_parse_value(json_ctx_t *ctx, json_node_t *node, char *pos, char *end);

/* The parsers of the six kinds in the order above. */
ROUTERKIT_API extern json_parser_t *const parsers[6];

/* The next unused node, not cleared; null when all are in use. */
ROUTERKIT_API json_node_t *json_alloc(json_ctx_t *ctx);

ROUTERKIT_END_DECLS

#endif
