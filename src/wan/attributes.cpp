#include <routerkit/wan.h>

#include <cstdlib>
#include <cstring>

#include <routerkit/conversions.h>
#include <routerkit/files.h>
#include <routerkit/strings.h>

#include "support/chars.h"
#include "support/errno.h"
#include "wan/attributes.h"
#include "wan/wan_file.h"

using rk::kIfNameText;
using rk::kLastWanIndex;
using rk::kModemIface;
using rk::WanFile;
using rk::WanFolderName;

namespace {

constexpr size_t kLongestName = 32; // how much of a name GET_REAL_IFNAME looks at

// One getter's slots: the last name read of each index.
using NameSlots = char[kLastWanIndex + 1][24];
constinit NameSlots phy_names;
constinit NameSlots eth_names;
constinit NameSlots con_names;

int read_number(unsigned index, const char *name) {
    return static_cast<int>(rk::attribute_number(index, name));
}

int read_count(unsigned index, const char *name) {
    int value = read_number(index, name);
    return value < 0 ? 0 : value;
}

int read_text(unsigned index, const char *name, char *buffer, size_t size) {
    return WanFile(index, name).text(buffer, size);
}

int read_name(unsigned index, const char *name, char *buffer) {
    return read_text(index, name, buffer, kIfNameText);
}

uint32_t read_address(unsigned index, const char *name, int *prefix) {
    rk::Chars<kIfNameText> text;
    if (read_name(index, name, text) < 0) {
        return 0;
    }
    const char *slash = std::strchr(text, '/');
    if (prefix != nullptr && slash != nullptr) {
        *prefix = std::atoi(slash + 1);
    }
    return ipv4_atoi(text);
}

[[gnu::noinline]] char *read_to_slot(unsigned index, const char *name, NameSlots &slots) {
    if (index > kLastWanIndex || read_name(index, name, slots[index]) < 0) {
        return nullptr;
    }
    return slots[index];
}

int has_file(unsigned index, const char *name) {
    return isFileExist(WanFile(index, name).path());
}

} // namespace

long rk::attribute_number(unsigned index, const char *name) {
    return WanFile(index, name).number();
}

char *wan_folder(unsigned index) {
    return strf("/var/wan/%s", WanFolderName(index).c_str());
}

char *wan_file(unsigned index, const char *name) {
    return strf("/var/wan/%s/%s", WanFolderName(index).c_str(), name);
}

char *wan_run_folder(unsigned index) {
    return wan_file(index, "run");
}

char *wan_pid_file(unsigned index, const char *program) {
    return strf("/var/wan/%s/run/%s.pid", WanFolderName(index).c_str(), program);
}

int wan_getIndex(unsigned index) {
    return read_number(index, _WAN_IDX_FILE);
}

int wan_getIfIndex(unsigned index) {
    return read_number(index, _WAN_IFACE_IDX_FILE);
}

int wan_getType(unsigned index) {
    return read_number(index, _WAN_TYPE_FILE);
}

int wan_getStatus(unsigned index) {
    return read_number(index, _WAN_STATUS_FILE);
}

int wan_getVlanId(unsigned index) {
    return read_count(index, _WAN_VLAN_FILE);
}

int wan_getModemType(unsigned index) {
    return read_count(index, _WAN_MODEM_FILE);
}

int wan_getPurpose(unsigned index) {
    return serviceListToAppType(read_number(index, _WAN_PURPOSE_FILE));
}

int serviceListToAppType(int services) {
    static constexpr unsigned char kTypes[16] = {0, 0, 1, 1, 2, 3, 1, 1, 4, 1, 1, 1, 1, 1, 1, 1};
    return kTypes[static_cast<unsigned>(services) >> 1 & 15];
}

uint32_t wan_getIP(unsigned index, int *prefix) {
    return read_address(index, _WAN_IP_FILE, prefix);
}

uint32_t wan_getGateway(unsigned index) {
    return read_address(index, _WAN_GW_FILE, nullptr);
}

char *wan_getPhyIface(unsigned index) {
    return read_to_slot(index, _WAN_PHY_IFACE_FILE, phy_names);
}

char *wan_getEthIface(unsigned index) {
    return read_to_slot(index, _WAN_ETH_IFACE_FILE, eth_names);
}

char *wan_getConIface(unsigned index) {
    return read_to_slot(index, _WAN_CON_IFACE_FILE, con_names);
}

int wan_getPhyIfName(unsigned index, char *buffer) {
    return read_name(index, _WAN_PHY_IFACE_FILE, buffer);
}

int wan_getEthIfName(unsigned index, char *buffer) {
    return read_name(index, _WAN_ETH_IFACE_FILE, buffer);
}

int wan_getConIfName(unsigned index, char *buffer) {
    return read_name(index, _WAN_CON_IFACE_FILE, buffer);
}

int getWanIfName(unsigned index, char *buffer, size_t size) {
    return buffer == nullptr ? rk::fail(EINVAL)
                             : read_text(index, _WAN_ETH_IFACE_FILE, buffer, size);
}

int wan_getModemIface(char *buffer, size_t size) {
    return buffer == nullptr ? rk::fail(EINVAL) : readStrFromFile(kModemIface, buffer, size);
}

int wan_isModem(unsigned index) {
    return has_file(index, _WAN_MODEM_FILE);
}

int wan_isInet(unsigned index) {
    return has_file(index, _WAN_INET_FILE);
}

int wan_isEnabled(unsigned index) {
    return has_file(index, _WAN_ENABLED_FILE);
}

int wan_getIdxByIface(const char *name) {
    for (unsigned index = 1; name != nullptr && index <= kLastWanIndex; ++index) {
        rk::Chars<kIfNameText> text;
        if (wan_getConIfName(index, text) >= 0 && std::strcmp(text, name) == 0) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

int GET_REAL_IFNAME(char *name) {
    if (name == nullptr) {
        return 0;
    }
    for (size_t i = 0; i < kLongestName && name[i] != '\0'; ++i) {
        if (name[i] == '.') {
            name[i] = '\0';
            return 1;
        }
    }
    return 0;
}

void wan_getMagicConIfName() {}

const char *wan_getMagicConIfNameForStatistics(unsigned index) {
    for (unsigned pppoe = 1; pppoe <= kLastWanIndex; ++pppoe) {
        if (wan_getType(pppoe) == rk::kTypePppoe) {
            return wan_isDefault(static_cast<int>(index)) != 0 ? "eth1" : wan_getConIface(pppoe);
        }
    }
    return wan_getConIface(index);
}
