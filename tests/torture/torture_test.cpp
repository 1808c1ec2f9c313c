// What the library does when the system refuses: a table of scenarios for each family.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <routerkit/routerkit.h>

#include "support/lab.h"
#include "support/sandbox.h"
#include "support/socket.h"
#include "torture/torture.h"
#include "torture/world.h"

using namespace torture;

namespace {

#define CALL(...) [] { return static_cast<long>(__VA_ARGS__); }

long pointer(const void *result) {
    return result != nullptr ? 0 : -1;
}

long text(const char *result) {
    return result != nullptr ? std::strncpy(room(64), result, 64), 0 : -1;
}

long block(char *result) {
    long length = text(result);
    std::free(result);
    return length;
}

long closed(int descriptor) {
    return descriptor < 0 ? -1 : ::close(descriptor) * 0;
}

long found(int pid) {
    return pid == victim->pid() ? 1 : pid;
}

template <typename Number = uint32_t>
Number *numbers(size_t count = 1) {
    return reinterpret_cast<Number *>(room(count * sizeof(Number)));
}

char *empty(size_t size) {
    char *start = room(size);
    *start = '\0';
    return start;
}

constexpr auto kFails = "-1!";
constexpr auto kOnce = "-1! once";
constexpr auto kNo = "0 once";
constexpr auto kLogged = "-1! logged";

constexpr Scenario kFiles[] = {
    {"isFileExist", nullptr, CALL(isFileExist("/tmp/f")), kNo},
    {"isFileEmpty", nullptr, CALL(isFileEmpty("/tmp/f")), kFails},
    {"createFile", nullptr, CALL(createFile("/tmp/f")), kFails},
    {"flagFile", nullptr, CALL(flagFile("/tmp/f", 0)), kFails},
    {"upFlagFile", nullptr, CALL(upFlagFile("/tmp/new")), "-1! stat:="},
    {"getFileTime", nullptr, CALL(getFileTime("/tmp/f") < 0 ? -1 : 0), kFails},
    {"mkpath", nullptr, CALL(mkpath(std::strcpy(room(16), "/tmp/a/b/c/file"), 1)), "-1! stat:="},
    {"mkdirf", nullptr, CALL(mkdirf("/tmp/%s", "dir")), kFails},
    {"safe_write", open_file, CALL(safe_write(fd, "text", 4)), kFails},
    {"writeFmt", open_file, CALL(writeFmt(fd, "text")), kOnce},
    {"writeFile", nullptr, CALL(writeFile("/tmp/new", "text", 4)), kFails},
    {"writeFile", nullptr, CALL(writeFile("/tmp/f", nullptr, 0)), kFails},
    {"writeStrToFile", nullptr, CALL(writeStrToFile("/tmp/new", "text")), kFails},
    {"writeFmtToFile", nullptr, CALL(writeFmtToFile("/tmp/f", "%d", 77)), kFails},
    {"writeLineToFile", nullptr, CALL(writeLineToFile("/tmp/f", "text")), kFails},
    {"writeNumToFile", nullptr, CALL(writeNumToFile("/tmp/f", 1234)), kFails},
    {"appendFile", nullptr, CALL(appendFile("/tmp/f", "text", 4)), kFails},
    {"appendStrToFile", nullptr, CALL(appendStrToFile("/tmp/f", "text")), kFails},
    {"appendFmtToFile", nullptr, CALL(appendFmtToFile("/tmp/f", "%d", 77)), kFails},
    {"appendLineToFile", nullptr, CALL(appendLineToFile("/tmp/f", "text")), kFails},
    {"safe_read", open_file, CALL(safe_read(fd, room(8), 8)), kOnce},
    {"readFile", nullptr, CALL(readFile("/tmp/f", room(8), 8)), kOnce},
    {"readStrFromFile", nullptr, CALL(readStrFromFile("/tmp/f", room(8), 8)), kOnce},
    {"readFmtFromFile", nullptr, CALL(readFmtFromFile("/tmp/f", "%d", numbers<int>())), kOnce},
    {"readNumFromFile", nullptr, CALL(readNumFromFile("/tmp/f")), kOnce},
    {"loadFile", nullptr, CALL(block(loadFile("/tmp/f", nullptr))), kOnce},
    {"copyFile", nullptr, CALL(copyFile("/tmp/new", "/tmp/f")), kOnce},
    {"writeHexToFile", nullptr, CALL(writeHexToFile("/tmp/f", "\x12\x34", 2)), "= malloc:-1!"},
    {"readHexFromFile", nullptr, CALL(readHexFromFile("/tmp/hex", room(2), 2)), kOnce},
};

constexpr Scenario kProcesses[] = {
    {"safe_msleep", nullptr, CALL(safe_msleep(50)), kFails},
    {"dump_stack", nullptr, CALL((dump_stack(), 0)), "="},
    {"find_pid_by_name", start_daemon, CALL(found(find_pid_by_name("victim"))),
     "-1! readdir:0 once"},
    {"isCmdActive", nullptr, CALL(isCmdActive("none")), "= opendir:-1!"},
    {"getProcSelfName", nullptr, CALL(text(getProcSelfName())), "= once"},
    {"trace_pid", nullptr, CALL(trace_pid(static_cast<unsigned>(::getpid()), 3)), "-1! = once"},
    {"killall", start_daemon, CALL(killall("none|victim", SIGTERM)), "0 = opendir:-1! once"},
    {"terminate", start_daemon, CALL(terminate(victim->pid(), 2000, 2000)),
     "-1! kill:= kill:-1! nanosleep:="},
    {"getPid_fromFile", start_daemon, CALL(found(static_cast<int>(getPid_fromFile("/tmp/pid")))),
     kOnce},
    {"setPid_toFile", nullptr, CALL(setPid_toFile("/tmp/f")), kFails},
    {"sendSignalByPidFile", start_daemon, CALL(sendSignalByPidFile(SIGTERM, "/tmp/pid")),
     "-1! open:-2 read:-2 once"},
    {"killByPidFile", start_daemon, CALL(killByPidFile(SIGTERM, "/tmp/%s", "pid")),
     "-1! open:0 read:0 kill:-1! kill:= unlink:= nanosleep:= once"},
    {"killDaemonByPidFile", start_daemon, CALL(killDaemonByPidFile("/tmp/pid")),
     "-1! open:0 read:0 kill:-1! kill:= unlink:= nanosleep:= once"},
};

char echo[] = "echo", word[] = "word", other[] = "/bin/echo";
char *const kWords[] = {other, word, nullptr};
char *hooked[] = {echo, word, nullptr};

// What a child cannot do is the program's status, where the plain runners take it from.
constexpr auto kRuns = "-1! execvpe:errno execvpe:logged open:errno dup2:errno stat:=";
constexpr auto kLogs = "-1! execvpe:1 execvpe:logged open:errno dup2:errno read:= stat:=";

constexpr Scenario kCommands[] = {
    {"systemf", nullptr, CALL(systemf("true")), kFails},
    {"execBatch", nullptr, CALL(execBatch("/tmp/batch")), "-1! system:= write:= once"},
    {"cmdf", nullptr, CALL(cmdf("echo word")), kRuns},
    {"cmdf", nullptr, CALL(cmdf("echo word > /tmp/new")), kRuns},
    {"cmdf", nullptr, CALL(cmdf("echo word > /dev/zero")), "-1! stat:= "},
    {"qcmdf", nullptr, CALL(qcmdf("echo word")), kRuns},
    {"forkcmdf", nullptr, CALL(_waitpid(forkcmdf("echo word"))), kRuns},
    {"sncmdf", nullptr, CALL(sncmdf(room(64), 64, "echo word")),
     "-1! execvpe:1 execvpe:logged open:errno dup2:errno read:0 read:13"},
    {"lcmdf", nullptr, CALL(lcmdf("echo word > /tmp/new")), kLogs},
    {"execulity", nullptr, CALL(execulity(kWords, "/tmp/new")), kRuns},
    {"forkexeculity", nullptr, CALL(_waitpid(forkexeculity(kWords, nullptr))), kRuns},
    {"pingulity", nullptr, CALL(pingulity("far", "/tmp/new")), kRuns},
    {"traceroulity", nullptr, CALL(traceroulity("far", "/tmp/new")), kRuns},
    {"DoCmd", nullptr, CALL(DoCmd(hooked, "/tmp/new")), kFails},
    {"RunSystemCmd", nullptr, CALL(RunSystemCmd("/tmp/new", other, word, "")), kRuns},
    {"_echo", nullptr, CALL(_echo(2, hooked, nullptr)), kOnce},
    {"forkReinitEvent", nullptr, CALL(_waitpid(forkReinitEvent("up", "%d", 1))), kLogs},
    {"reinitEvent", nullptr, CALL(reinitEvent("up", nullptr)), kLogs},
    {"reinitApply", nullptr, CALL(reinitApply()), kLogs},
    {"iptables_add", nullptr, CALL(iptables_add("nat", "INPUT -j DROP")), kLogs},
    {"iptables_del", nullptr, CALL(iptables_del(nullptr, "INPUT -j DROP")), kLogs},
    {"iptables_flush", nullptr, CALL(iptables_flush(nullptr, "INPUT")), kLogs},
    {"iptables_check", nullptr, CALL(iptables_check(nullptr, "INPUT -j DROP")), kNo},
    {"iptables_smartadd", nullptr, CALL(iptables_smartadd(nullptr, "INPUT -j DROP")), "= -1!"},
    {"iptables_smartdel", nullptr, CALL(iptables_smartdel(nullptr, "INPUT -j DROP")),
     "-1! execvpe:= execvpe:1 open:= dup2:= dup2:errno read:="},
    {"iptables_set", nullptr, CALL(iptables_set(1, nullptr, "INPUT -j DROP")), "= -1!"},
    {"iptables_create_subchain", nullptr, CALL(iptables_create_subchain("nat", "a", "b")), "="},
};

const char kMac[] = "\2\0\0\0\0\7";
constexpr uint32_t kFar = 0x0a010001, kStatic = 0x0a010032, kHost = 0x0a030001;
constexpr uint32_t kNet = 0x0a020000, kMask = 0xffff0000;
const sockaddr_in kServer = rk::inet_endpoint(INADDR_LOOPBACK, 80);

constexpr Scenario kNetwork[] = {
    {"arp_getMac", nullptr, CALL(arp_getMac(room(6), kStatic, "eth1")), kFails},
    {"dev_getAddrs", nullptr,
     CALL(dev_getAddrs(room(6), numbers(), numbers(), numbers<int>(), "lo")), kFails},
    {"re865xIoctl", nullptr, CALL(re865xIoctl("eth1", 2, 0, 0, 0)), "-1! socket:-3!"},
    {"br_mac2port", nullptr, CALL(br_mac2port("br0", kMac)), kLogged},
    {"br_mac2ifname", nullptr, CALL(text(br_mac2ifname("br0", kMac))), kFails},
    {"br_mac2laname", nullptr, CALL(text(br_mac2laname("br0", kMac))), kFails},
    {"poll_sock_recv", open_datagram, CALL(poll_sock_recv(fd, uptime_getms() + 1000)), kFails},
    {"connect_timeout", open_socket,
     CALL(connect_timeout(fd, rk::as_sockaddr(kServer), sizeof kServer, 1000)),
     "-1! getsockopt:-4! poll:= fcntl:= fcntl:-1!"},
    {"socket_connect", nullptr, CALL(closed(socket_connect("localhost"))),
     "-1! gethostbyname_r:-1 poll:= fcntl:= fcntl:-1!"},
    {"getInAddr", nullptr, CALL(getInAddr("lo", 2, room(4))), kNo},
    {"wan_sockBind", open_datagram, CALL(wan_sockBind(2, fd)), "-1! open:-1 read:-1 once"},
    {"ping_test", nullptr, CALL(ping_test("eth1", &kFar, 1, 1000, 1)), kLogged},
    {"route_add", nullptr, CALL(route_add(kNet, kMask, kFar, "eth1")), kFails},
    {"route_del", add_routes, CALL(route_del(kNet, kMask, kFar, nullptr)), kFails},
    {"route_add_default", nullptr, CALL(route_add_default(kFar, "eth1")), kFails},
    {"route_add_host", nullptr, CALL(route_add_host(kHost, kFar, nullptr)), kFails},
    {"route_del_host", add_routes, CALL(route_del_host(kHost)), kFails},
    {"get_default_route", add_routes, CALL(get_default_route(room(16))), "0 ="},
    {"wan_addNetRoute", nullptr, CALL(wan_addNetRoute(kNet, kMask, kFar)), kFails},
    {"wan_delNetRoute", add_routes, CALL(wan_delNetRoute(kNet, kMask, kFar)), kFails},
    {"wan_addDefaultRoute", nullptr, CALL(wan_addDefaultRoute(kFar, nullptr)), kFails},
    {"wan_delDefaultRoute", add_routes, CALL(wan_delDefaultRoute(kFar)), kFails},
    {"wan_delHostRoute", add_routes, CALL(wan_delHostRoute(kHost)), kFails},
    {"wan_addHostRoute", nullptr, CALL(wan_addHostRoute(2, kHost)), kOnce},
    {"l2tp_StopCCN", nullptr, CALL(l2tp_StopCCN(INADDR_LOOPBACK, 1, 2, 0)),
     "-1! logged bind:-2! bind:logged"},
    {"new_outgoing", nullptr,
     [] {
         l2tp_buf_t *buffer = new_outgoing();
         long result = pointer(buffer);
         free_buf(buffer);
         return result;
     },
     kFails},
    {"send_ppp_msg", nullptr, CALL(send_ppp_msg(7, kMac, "eth1")),
     "-1! ioctl:0 ioctl:-1! setsockopt:="},
};

http_post_t post;
json_ctx_t json;
jsonrpc_req_t one_call;
jsonrpc_client_t client = {"127.0.0.1", &json, nullptr, 1024, 0};
jsonrpc_token_t tokens[16];

long post_once() {
    post = {"127.0.0.1", "/", "body", 4, room(256), 256, 0, nullptr};
    return http_post(&post);
}

long call_and_parse() {
    one_call = {"reboot", "[]", 0, nullptr, nullptr};
    client.reply = room(1024);
    int status = jsonrpc_call_and_parse(&client, &one_call, 1);
    return status == 200 ? one_call.result->value.number : status;
}

// The servers' file cannot be read: then there is none.
constexpr auto kResolves = "-1! open:-1 read:-1 malloc:-1 stat:-1 once";
// How connecting within a time-out ends is seen after the wait.
constexpr auto kPosts = "-1! poll:= poll:-1! fcntl:= fcntl:-1! once";

constexpr Scenario kServices[] = {
    {"dns_writeResolvConf", nullptr, CALL(dns_writeResolvConf("/tmp/new", &kFar, 1)), kFails},
    {"dns_readResolvConf", nullptr, CALL(dns_readResolvConf("/tmp/resolv", numbers(3), 3)), kOnce},
    {"dns_resolve_domain", nullptr,
     CALL(dns_resolve_domain("lo", "/tmp/resolv", "router.lan", numbers(3), 3, 2000)), kResolves},
    {"dns_gethostsbyname", nullptr,
     CALL(dns_gethostsbyname("lo", "/tmp/resolv", "router.lan", numbers(3), 3)),
     "-1! open:-1 read:-1 malloc:-1 stat:-1 sendto:= sendto:-1 once"},
    {"dns_gethostbyname", nullptr,
     CALL(dns_gethostbyname("lo", "/tmp/resolv", "router.lan", numbers())),
     "-1! open:-1 read:-1 malloc:-1 stat:-1 sendto:= sendto:-1 once"},
    {"http_get", nullptr, CALL(http_get("http://127.0.0.1/x", room(256), 256, empty(4096))),
     kLogged, 18},
    {"http_post", nullptr, post_once, kPosts, 72},
    {"jsonrpc_call", nullptr,
     CALL((one_call = {"reboot", "[]", 0, nullptr, nullptr},
           jsonrpc_call("127.0.0.1", &one_call, 1, room(256), 256))),
     kPosts, 138},
    {"jsonrpc_call_and_parse", nullptr, call_and_parse, kPosts, 138},
    {"http_post_request", nullptr,
     CALL(http_post_request("localhost", 80, "reboot", "", "/", room(65536), numbers<int>())),
     "-1! gethostbyname_r:-1 recv:0 once", 74},
    {"http_post_rpc", nullptr,
     CALL(http_post_rpc("127.0.0.1", "reboot", "", room(256), 256, numbers<int>())),
     "-1! poll:= poll:0 recv:0 fcntl:= fcntl:-1! once", 72},
    {"json_getKavraWiFiExtenderSlavesLog", nullptr,
     CALL(json_getKavraWiFiExtenderSlavesLog(room(40000), "", nullptr, 0, tokens)), kFails, 46},
    {"regex_find_ex", nullptr,
     CALL(pointer(regex_find_ex("key=value", "(.*)=(.*)", room(8), 8, room(4), 4, nullptr))), "-1", 22},
    {"regex_find_const_ref", nullptr,
     CALL(pointer(regex_find_const_ref("key=value", "k.*v", nullptr))), "-1", 22},
    {"regex_find_ref", nullptr,
     CALL(pointer(regex_find_ref(std::strcpy(room(8), "a=b"), "a", nullptr))), "-1", 22},
    {"regex_find_all_const_cb", nullptr,
     CALL(regex_find_all_const_cb(
         "a1b22", "[0-9]+", [](const char **, const char **ends, void *) { return ends[0]; },
         nullptr)),
     "0 1 2", 22},
    {"regex_find_all_cb", nullptr,
     CALL(regex_find_all_cb(
         std::strcpy(room(8), "a1b22"), "[0-9]+",
         [](char **, char **ends, void *) { return ends[0]; }, nullptr)),
     "0 1 2", 22},
    {"circ_open_and_write", nullptr, CALL(circ_open_and_write("/tmp/circle", 9, 4, "new")),
     "= fopen:-1!"},
    {"circ_open_and_write", nullptr, CALL(circ_open_and_write("/tmp/new", 9, 4, "new")),
     "= fopen:-1! fopen:= open:-1"},
    {"circ_write_entry", open_stream, CALL(circ_write_entry(stream, "new")), "="},
    {"circ_find_last_entry_offset", open_stream, CALL(circ_find_last_entry_offset(stream)), kNo},
    {"IncreaseCountInFile", nullptr, CALL(IncreaseCountInFile("/tmp/f")),
     "= fclose:-1! fputs:-1! once"},
    {"pppoed_frame_log", nullptr, CALL((pppoed_frame_log("PADI", 7), 0)), "= once"},
    {"dhcp_log", nullptr, CALL(dhcp_log("ack", kMac, kFar, "host")),
     "= fclose:= fclose:-1! fputs:-1! once"},
    {"read_cpuinfo", nullptr, [] { cpu_stat stat; return long{read_cpuinfo(&stat)}; }, "= once"},
    {"get_cpuinfo", nullptr, [] { cpu_stat stat; return get_cpuinfo(&stat), 0L; }, "= once"},
    {"get_meminfo", nullptr, [] { mem_info info; return get_meminfo(&info) != 0 ? 1L : 0L; }, kNo},
    {"get_loadavg", nullptr, [] { char text[80]; return get_loadavg(text) > 0 ? 1L : -1L; }, kOnce},
};

constexpr auto kDevice = "-1! open:= open:-1! once"; // a missing list has a stand-in
constexpr auto kFlash = "-1! open:= open:-1! fsync:-1! fsync:logged ioctl:-1! ioctl:logged";

constexpr Scenario kDevices[] = {
    {"mtd_getinfo", nullptr,
     CALL(mtd_getinfo("jffs2", reinterpret_cast<mtd_partition_t *>(room(8)))), kDevice},
    {"mtd_open", nullptr, CALL(closed(mtd_open("jffs2", O_RDONLY, nullptr))), kDevice},
    {"mtd_block_open", nullptr, CALL(closed(mtd_block_open("jffs2", O_RDONLY, nullptr))), kDevice},
    {"mtd_write", nullptr, CALL(mtd_write("jffs2", image.data())), kFlash},
    {"mtd_same", nullptr, CALL(mtd_same("jffs2", image.data())), "-1! open:= open:-1!"},
    {"wlio_get_mib_int", nullptr, CALL(wlio_get_mib_int(0, "chan")), kLogged},
    {"wlio_set_mib_int", nullptr, CALL(wlio_set_mib_int(0, "chan", 5)), kLogged},
    {"wlio_get_mib_str_n", nullptr, CALL(wlio_get_mib_str_n(0, "ssid", room(4), 4)), kLogged},
    {"wlio_get_mib_bin_n", nullptr, CALL(wlio_get_mib_bin_n(0, "key", room(2), 2)), kLogged},
    {"wlio_get_mib_str", nullptr, CALL(wlio_get_mib_str(0, "ssid", room(4))), kLogged},
    {"wlio_get_mib_bin", nullptr, CALL(wlio_get_mib_bin(0, "key", room(4))), kLogged},
    {"wlio_set_mib_str", nullptr, CALL(wlio_set_mib_str(0, "ssid", "LAN")), kLogged},
    {"wlio_set_mib_bin", nullptr, CALL(wlio_set_mib_bin(0, "key", "\0\xff", 2)), kLogged},
};

const wan_route_t kRoute = {kNet, kMask, kFar};

constexpr Scenario kWan[] = {
    {"wan_getIndex", nullptr, CALL(wan_getIndex(1)), kOnce},
    {"wan_getIfIndex", nullptr, CALL(wan_getIfIndex(1)), kOnce},
    {"wan_getType", nullptr, CALL(wan_getType(1)), kOnce},
    {"wan_getVlanId", nullptr, CALL(wan_getVlanId(1)), kNo},
    {"wan_getModemType", nullptr, CALL(wan_getModemType(1)), kNo},
    {"wan_getPurpose", nullptr, CALL(wan_getPurpose(1)), "1 once"},
    {"wan_getIP", nullptr, CALL(wan_getIP(1, numbers<int>())), kNo},
    {"wan_getGateway", nullptr, CALL(wan_getGateway(1)), kNo},
    {"wan_getPhyIface", nullptr, CALL(text(wan_getPhyIface(1))), kOnce},
    {"wan_getEthIface", nullptr, CALL(text(wan_getEthIface(1))), kOnce},
    {"wan_getConIface", nullptr, CALL(text(wan_getConIface(1))), kOnce},
    {"wan_getPhyIfName", nullptr, CALL(wan_getPhyIfName(1, room(20))), kOnce},
    {"wan_getEthIfName", nullptr, CALL(wan_getEthIfName(1, room(20))), kOnce},
    {"wan_getConIfName", nullptr, CALL(wan_getConIfName(1, room(20))), kOnce},
    {"getWanIfName", nullptr, CALL(getWanIfName(1, room(20), 20)), kOnce},
    {"wan_getModemIface", nullptr, CALL(wan_getModemIface(room(20), 20)), kOnce},
    {"wan_isModem", nullptr, CALL(wan_isModem(1)), kNo},
    {"wan_isInet", nullptr, CALL(wan_isInet(1)), kNo},
    {"wan_isEnabled", nullptr, CALL(wan_isEnabled(1)), kNo},
    {"wan_getIdxByIface", nullptr, CALL(wan_getIdxByIface("eth1")), "-1 = once"},
    {"wan_getMagicConIfNameForStatistics", nullptr,
     CALL(text(wan_getMagicConIfNameForStatistics(1))), "0 -1! once"},
    {"wan_link", nullptr, CALL(wan_link(2, "new")), "-1! unlink:="},
    {"wan_link", nullptr, CALL(wan_link(-1, "active")), "="},
    {"wan_readLink", nullptr, CALL(wan_readLink("active")), kFails},
    {"wan_getDefault", nullptr, CALL(wan_getDefault()), kFails},
    {"wan_getModemIndex", nullptr, CALL(wan_getModemIndex()), kFails},
    {"wan_isDefault", nullptr, CALL(wan_isDefault(1)), kNo},
    {"wan_resolve", nullptr, CALL(wan_resolve(255)), kFails},
    {"wan_getStatus", nullptr, CALL(wan_getStatus(1)), kOnce},
    {"wan_updateIfStatus", nullptr, CALL(wan_updateIfStatus(1, 10)), kFails},
    {"wan_getTextStatus", nullptr, CALL(text(wan_getTextStatus(1))), kNo},
    {"wan_getDisconnectReason", nullptr, CALL(wan_getDisconnectReason(1)), kNo},
    {"wan_setLinkFlag", nullptr, CALL(wan_setLinkFlag(1)), kFails},
    {"wan_setModemFlag", nullptr, CALL(wan_setModemFlag(0)), "-1! ="},
    {"wan_setWiredInetFlag", nullptr, CALL(wan_setWiredInetFlag(1)), kFails},
    {"wan_hasLinkFlag", nullptr, CALL(wan_hasLinkFlag()), kNo},
    {"wan_hasModemFlag", nullptr, CALL(wan_hasModemFlag()), kNo},
    {"wan_hasWiredInetFlag", nullptr, CALL(wan_hasWiredInetFlag()), "0 ="},
    {"wan_getModemStatus", nullptr, CALL(wan_getModemStatus()), kNo},
    {"wan_isLinked", nullptr, CALL(wan_isLinked(1)), "0 ="},
    {"wan_getLinkStatus", nullptr, CALL(wan_getLinkStatus()), kNo},
    {"wan_startSession", nullptr, CALL(wan_startSession(7)), "="},
    {"wan_stopSession", nullptr, CALL(wan_stopSession(1)), "= once"},
    {"wan_getUptime", nullptr, CALL(wan_getUptime(1)), "1700000001 once"},
    {"wan_getAllSessionsTime", nullptr, CALL(wan_getAllSessionsTime(1)), "1000 1699999900 0 once"},
    {"wan_getPPPoESessionsTime", nullptr, CALL(wan_getPPPoESessionsTime(1)),
     "500 1699999900 0 once"},
    {"wan_writeRoutes", nullptr, CALL(wan_writeRoutes(1, &kRoute, 1)), kFails},
    {"wan_readRoutes", nullptr,
     CALL(wan_readRoutes(1, reinterpret_cast<wan_route_t *>(room(12)), 1)), kOnce},
    {"wan_addRoutes", nullptr, CALL(wan_addRoutes(2, &kRoute, 1)), "-1! ioctl:= socket:= once"},
    {"wan_delRoutes", add_routes, CALL(wan_delRoutes(2, &kRoute, 1)), "-1! ioctl:= socket:= once"},
    {"wan_writeWanResolvConf", nullptr, CALL(wan_writeWanResolvConf(1, &kFar, 1)), kFails},
    {"wan_readWanResolvConf", nullptr, CALL(wan_readWanResolvConf(1, numbers(3), 3)), kOnce},
    {"wan_setDNSServer", nullptr, CALL(wan_setDNSServer(kFar)), kFails},
    {"wan_setDNSServer", nullptr, CALL(wan_setDNSServer(0)), kFails},
    {"wan_updateActiveDNS", nullptr, CALL(wan_updateActiveDNS(1)), "-1! read:-1! read:logged once"},
    {"wan_updateDefaultDNS", nullptr, CALL(wan_updateDefaultDNS(1)), "-1! readlink:= once"},
    {"wan_hasWiredInetIP", [] { ::unlink("/var/wan/1/modem"); }, CALL(wan_hasWiredInetIP()),
     "0 = once"},
    {"wan_updateActiveRoute", nullptr, CALL(wan_updateActiveRoute(2)), "= once"},
    {"wan_updateActiveRoute", add_routes, CALL(wan_updateActiveRoute(0)), "= once"},
    {"wan_updateDefaultConnection", nullptr, CALL(wan_updateDefaultConnection()), "= once"},
    {"wan_resolve_domain", nullptr, CALL(wan_resolve_domain(1, "router.lan", numbers(3), 3, 2000)),
     kResolves},
    {"wan_gethostsbyname", nullptr, CALL(wan_gethostsbyname(1, "router.lan", numbers(3), 3)),
     kResolves},
    {"wan_gethostbyname", nullptr, CALL(wan_gethostbyname(1, "router.lan", numbers())), kResolves},
    {"wan_ping_test", nullptr, CALL(wan_ping_test(2, "10.1.0.1", 1000, 0)),
     "-1! open:-1 read:-1 once"},
};

// They ask the system for nothing: only their stack is looked at.
constexpr Scenario kPure[] = {
    {"json_parse", nullptr, CALL(pointer(json_parse(&json, std::strcpy(room(24), "[[[[1]]]]"), 9))),
     nullptr},
    {"jsonrpc_parse", nullptr,
     [] {
         jsonrpc_parser_t parser;
         jsonrpc_init(&parser);
         return long{jsonrpc_parse(&parser, "{\"a\":[1]}", 9, tokens, 16)};
     },
     nullptr},
    {"sha256", nullptr, CALL((sha256("text", 4, room(32)), 0)), nullptr},
    {"md5", nullptr, CALL(md5(room(16), "text", 4)), nullptr},
    {"b64_encode", nullptr, CALL(b64_encode(room(16), 16, "text", 4)), nullptr},
    {"ipv6_nptostr", nullptr, CALL(ipv6_nptostr(room(64), kMac - 0, 64) * 0), nullptr},
    {"strf", nullptr, CALL(text(strf("%s %d", "text", 7))), nullptr},
    {"slashstr", nullptr, CALL(pointer(slashstr(room(32), 32, "\a\"$`"))), nullptr},
    {"url_gethost", nullptr, CALL(url_gethost(room(32), 32, "http://a@host:80/")), nullptr},
};

struct Family {
    const char *name;
    std::span<const Scenario> scenarios;
};

constexpr Family kFamilies[] = {
    {"Files", kFiles},       {"Processes", kProcesses}, {"Commands", kCommands}, {"Net", kNetwork},
    {"Services", kServices}, {"Devices", kDevices},     {"Wan", kWan},           {"Pure", kPure},
};

class Torture : public testing::TestWithParam<Family> {};

TEST_P(Torture, EveryCallFails) {
    open_world();
    play(GetParam().scenarios);
    RecordProperty("runs", static_cast<int>(runs()));
}

INSTANTIATE_TEST_SUITE_P(All, Torture, testing::ValuesIn(kFamilies),
                         [](const auto &one) { return std::string(one.param.name); });

} // namespace

// As the other test programs. With --stack-table it prints what each function took at most.
int main(int argc, char **argv) {
    const bool wants_table = argc > 1 && std::string_view(argv[argc - 1]) == "--stack-table";
    const bool lists = argc > 1 && std::string_view(argv[1]).starts_with("--gtest_list_tests");
    if (!lists) {
        lab::enter_sandbox();
        lab::open_log();
    }
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    for (const auto &[name, bytes] : stack_table()) {
        wants_table ? std::printf("| `%s` | %zu |\n", name.c_str(), bytes) : 0;
    }
    return result;
}
