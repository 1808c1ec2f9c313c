#include <routerkit/wan.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

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

// One text after the other, each with its code in front; an empty one ends the list.
constexpr char kStored[] = "00 disabled\0"
                           "01 disconnected\0"
                           "10 connecting\0"
                           "11 in idle\0"
                           "12 requested ip\0"
                           "20 connected\0"
                           "90 no auth\0"
                           "91 no server\0"
                           "92 no PADO\0"
                           "93 no PADS\0"
                           "94 no AC\0"
                           "95 no IP\0";
constexpr char kShown[] = "00 WAN отсутствует\0"
                          "01 Соединение отсутствует\0"
                          "20 Подключено\0"
                          "90 Ошибка авторизации\0"
                          "91 Сервер недоступен\0"
                          "99 Ошибка подключения\0";
constexpr size_t kCodeLength = 3;

// Null when the list does not have the code.
const char *find_status(const char *texts, int code) {
    for (; *texts != '\0'; texts += std::strlen(texts) + 1) {
        if (std::atoi(texts) == code) {
            return texts;
        }
    }
    return nullptr;
}

} // namespace

int wan_updateIfStatus(unsigned index, int code) {
    const char *text = find_status(kStored, code);
    return writeStrToFile(WanFile(index, _WAN_STATUS_FILE).path(),
                          text != nullptr ? text : "99 error");
}

const char *wan_getTextStatus(unsigned index) {
    const char *text = find_status(kShown, wan_getStatus(index));
    return text != nullptr ? text + kCodeLength : "Неизвестная ошибка";
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
