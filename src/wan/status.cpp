#include <routerkit/wan.h>

#include <cstdint>

#include <routerkit/files.h>
#include <routerkit/link-layer.h>

#include "wan/wan_file.h"

int32_t WAN_STATUS_T = 0;
static_assert(sizeof WAN_STATUS_T == 4, "host programs use it as four bytes");

namespace {

using rk::WanFile;

constexpr const char *kLinkFlag = "/var/wan/link-up";
constexpr const char *kModemFlag = "/var/wan/modem-up";
constexpr const char *kWiredInetFlag = "/var/wan/wired-inet-up";

constexpr unsigned long kWanLinkState = 2000; // the switch driver's command

struct StoredStatus {
    int code;
    char text[16];
};

constexpr StoredStatus kStored[] = {
    {0, "00 disabled"},      {1, "01 disconnected"}, {10, "10 connecting"}, {11, "11 in idle"},
    {12, "12 requested ip"}, {20, "20 connected"},   {90, "90 no auth"},    {91, "91 no server"},
    {92, "92 no PADO"},      {93, "93 no PADS"},     {94, "94 no AC"},      {95, "95 no IP"},
};

struct ShownStatus {
    int code;
    const char *text;
};

constexpr ShownStatus kShown[] = {
    {0, "WAN отсутствует"},     {1, "Соединение отсутствует"}, {20, "Подключено"},
    {90, "Ошибка авторизации"}, {91, "Сервер недоступен"},     {99, "Ошибка подключения"},
};

} // namespace

int wan_getStatus(unsigned index) {
    return static_cast<int>(WanFile(index, _WAN_STATUS_FILE).number());
}

int wan_updateIfStatus(unsigned index, int code) {
    const char *text = "99 error";
    for (const StoredStatus &known : kStored) {
        if (known.code == code) {
            text = known.text;
        }
    }
    return writeStrToFile(WanFile(index, _WAN_STATUS_FILE).path(), text);
}

const char *wan_getTextStatus(unsigned index) {
    int status = wan_getStatus(index);
    for (const ShownStatus &known : kShown) {
        if (known.code == status) {
            return known.text;
        }
    }
    return "Неизвестная ошибка";
}

int wan_setLinkFlag(int on) {
    return flagFile(kLinkFlag, on);
}

int wan_setModemFlag(int on) {
    if (on == 0) {
        wan_link(-1, "modem");
    }
    return flagFile(kModemFlag, on);
}

int wan_setWiredInetFlag(int on) {
    return flagFile(kWiredInetFlag, on);
}

int wan_hasLinkFlag() {
    return isFileExist(kLinkFlag);
}

int wan_hasModemFlag() {
    return isFileExist(kModemFlag);
}

int wan_hasWiredInetFlag() {
    return wan_hasModemFlag() != 0 ? isFileExist(kWiredInetFlag) : wan_hasLinkFlag();
}

int wan_getModemStatus() {
    return isFileExist(rk::kModemIface);
}

int wan_isLinked(unsigned index) {
    return wan_getModemType(index) != 0 ? wan_hasModemFlag() : wan_hasLinkFlag();
}

int wan_getLinkStatus() {
    int32_t link = -1; // stays so, "down", when the driver does not answer
    re865xIoctl("eth1", kWanLinkState, 0, 0, reinterpret_cast<unsigned long>(&link));
    return link >= 0 ? 1 : 0;
}
