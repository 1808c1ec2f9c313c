/* Everything the library offers. */
#ifndef ROUTERKIT_ROUTERKIT_H
#define ROUTERKIT_ROUTERKIT_H

#include <routerkit/base64.h>
#include <routerkit/clocks.h>
#include <routerkit/commands.h>
#include <routerkit/conversions.h>
#include <routerkit/crash.h>
#include <routerkit/digests.h>
#include <routerkit/dns.h>
#include <routerkit/export.h>
#include <routerkit/extender.h>
#include <routerkit/files.h>
#include <routerkit/http.h>
#include <routerkit/iptables.h>
#include <routerkit/json.h>
#include <routerkit/jsonrpc.h>
#include <routerkit/l2tp.h>
#include <routerkit/link-layer.h>
#include <routerkit/logs.h>
#include <routerkit/mtd.h>
#include <routerkit/ping.h>
#include <routerkit/pppoe.h>
#include <routerkit/processes.h>
#include <routerkit/regex.h>
#include <routerkit/routes.h>
#include <routerkit/sockets.h>
#include <routerkit/stats.h>
#include <routerkit/strings.h>
#include <routerkit/tokens.h>
#include <routerkit/wan.h>
#include <routerkit/wireless.h>

#endif
