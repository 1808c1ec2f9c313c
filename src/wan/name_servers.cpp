#include <routerkit/wan.h>

#include <routerkit/dns.h>
#include <routerkit/files.h>

#include "support/chars.h"
#include "support/log.h"
#include "wan/wan_file.h"

using rk::WanFile;

namespace {

constexpr const char *kSystemFile = "/var/resolv.conf";

int done(int result) {
    return result < 0 ? -1 : 0;
}

} // namespace

int wan_writeWanResolvConf(unsigned index, const uint32_t *servers, unsigned count) {
    return dns_writeResolvConf(WanFile(index, _WAN_RESOLV_FILE).path(), servers, count);
}

int wan_readWanResolvConf(unsigned index, uint32_t *servers, unsigned capacity) {
    return dns_readResolvConf(WanFile(index, _WAN_RESOLV_FILE).path(), servers, capacity);
}

int wan_setDNSServer(uint32_t server) {
    return server == 0 ? createFile(kSystemFile)
                       : done(dns_writeResolvConf(kSystemFile, &server, 1));
}

int wan_updateActiveDNS(unsigned index) {
    if (index == 0) {
        return createFile(kSystemFile);
    }
    rk::Chars<2048> text;
    int length = WanFile(index, _WAN_RESOLV_FILE).text(text, sizeof text);
    if (length < 0) {
        rk::log_at(LOG_ERR, "fail to read WAN%d %s: %m", static_cast<int>(index), _WAN_RESOLV_FILE);
        return -1;
    }
    return done(writeFile(kSystemFile, text, static_cast<size_t>(length)));
}

int wan_updateDefaultDNS(unsigned index) {
    int active = wan_readLink("active");
    bool follows = active >= 0 && static_cast<unsigned>(active) != index;
    return follows ? wan_updateActiveDNS(static_cast<unsigned>(active)) : 0;
}
