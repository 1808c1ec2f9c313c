/* What a Wi-Fi extender reports of itself, out of a JSON-RPC reply that jsonrpc_parse
 * (<routerkit/tokens.h>) has scanned. A key counts from the fourth token on, and the last of
 * several; values are taken as they stand in the text, escapes included. A count of tokens below 1
 * means none.
 */
#ifndef ROUTERKIT_EXTENDER_H
#define ROUTERKIT_EXTENDER_H

#include <stdint.h>

#include <routerkit/export.h>
#include <routerkit/tokens.h>

ROUTERKIT_BEGIN_DECLS

/* The key of each field in quotes. Texts are terminated, and cut to their field. */
typedef struct {
    int32_t id;                /* "id" */
    char up_time[16];          /* "UpTime" */
    int32_t rssi;              /* "RSSIValue" */
    char manufacturer[32];     /* "Manufacturer" */
    char model_name[32];       /* "ModelName" */
    char serial_number[32];    /* "SerialNumber" */
    char software_version[32]; /* "SoftwareVersion" */
    char hardware_version[32]; /* "HardwareVersion" */
} extender_info_t;

/* Fills the fields whose keys occur and leaves the others alone: clear the record first.
 *   ignored  has no meaning
 * Returns 0. */
ROUTERKIT_API int json_getKavraWiFiExtenderSlavesInfo(extender_info_t *info, const char *text,
                                                      const void *ignored, int tokenCount,
                                                      const jsonrpc_token_t *tokens);

/* Decodes the device log (key "DeviceLog", Base64, of which the first 43699 characters count) up to
 * its first NUL; without the key the text is empty.
 *   out  receives the text, up to 32774 bytes with its NUL
 * Returns 0; -1 without memory, out untouched. Needs 44 KB of stack. */
ROUTERKIT_API int json_getKavraWiFiExtenderSlavesLog(char *out, const char *text,
                                                     const void *ignored, int tokenCount,
                                                     const jsonrpc_token_t *tokens);

ROUTERKIT_END_DECLS

#endif
