/* Ending an L2TP tunnel: one StopCCN message of L2TP version 2 (RFC 2661), and what builds it.
 *
 * A message grows in a packet buffer: attribute-value pairs (AVPs) are appended, the control header
 * comes last, before them. Nothing here checks the room: a caller keeps each AVP below 256 bytes
 * and the whole message within the buffer. All numbers go out in network order.
 */
#ifndef ROUTERKIT_L2TP_H
#define ROUTERKIT_L2TP_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

typedef struct {
    uint8_t *start;   /* the bytes, a block from malloc */
    uint8_t *last;    /* the last of them */
    uint8_t *data;    /* where the message begins */
    int32_t length;   /* of the message, in bytes from data on */
    int32_t capacity; /* bytes from start on */
} l2tp_buf_t;

/* A packet buffer whose message is all of its `capacity` bytes; null for a capacity below 1 or
 * without memory. free_buf releases it, and so do free(start) and then free(buffer). */
ROUTERKIT_API l2tp_buf_t *new_buf(int32_t capacity);
ROUTERKIT_API void free_buf(l2tp_buf_t *buffer); /* null is allowed */

/* A packet buffer of 256 bytes for a new message: empty, with room for the control header before
 * and 244 bytes of AVPs behind. Null without memory. */
ROUTERKIT_API l2tp_buf_t *new_outgoing(void);

/* Writes the 6 bytes that an AVP begins with at the message's end, without making it longer.
 *   length  of the whole AVP; its low 8 bits count */
ROUTERKIT_API void add_header(l2tp_buf_t *buffer, unsigned length, uint16_t type);

/* Append one AVP: Message Type (type 0), Assigned Tunnel ID (9), Result Code (1). Return 0. */
ROUTERKIT_API int add_message_type_avp(l2tp_buf_t *buffer, uint16_t message_type);
ROUTERKIT_API int add_tunnelid_avp(l2tp_buf_t *buffer, uint16_t tunnel_id);
ROUTERKIT_API int add_result_code_avp(l2tp_buf_t *buffer, uint16_t result, uint16_t error,
                                      const void *message, size_t message_length);

/* Puts the 12 bytes of the control header before the message: session 0, Ns 1, Nr 0. Returns where
 * the message begins now. */
ROUTERKIT_API uint8_t *add_control_hdr(l2tp_buf_t *buffer, uint16_t tunnel_id);

/* Tells the peer once, over UDP port 1701, that the tunnel is closed, and waits up to 2 s for any
 * datagram in answer.
 *   peer         its IPv4 address in integer form (<routerkit/conversions.h>)
 *   tunnel_id    the peer's id of the tunnel; of both ids the low 16 bits count
 *   assigned_id  our own id of the tunnel
 *   send_only    not 0: no wait, and port 1701 on this host is not taken
 * Returns 0, answered or not; -2 when port 1701 cannot be taken; -1 on any other failure. Logs the
 * send at LOG_NOTICE, failures and a missing answer at LOG_ERR. */
ROUTERKIT_API int l2tp_StopCCN(uint32_t peer, int tunnel_id, int assigned_id, int send_only);

ROUTERKIT_END_DECLS

#endif
