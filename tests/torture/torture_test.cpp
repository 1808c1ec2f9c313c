// What the library does when the system refuses: a table of scenarios for each family.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

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

// Texts are copied, so that they can be compared; of other pointers it counts whether they are null.
template <typename Result>
long number(Result result) {
    if constexpr (std::is_convertible_v<Result, const char *>) {
        return result != nullptr ? std::strncpy(room(64), result, 64), 0 : -1;
    } else if constexpr (std::is_pointer_v<Result>) {
        return result != nullptr ? 0 : -1;
    } else {
        return static_cast<long>(result);
    }
}

// A scenario's call, and that of a function with its name.
#define CALL(...) [] { return number(__VA_ARGS__); }
#define OF(function, ...) #function, CALL(function(__VA_ARGS__))

long block(char *result) {
    long length = number(result);
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
    {OF(isFileExist, "/tmp/f"), kNo},
    {OF(isFileEmpty, "/tmp/f"), kFails},
    {OF(createFile, "/tmp/f"), kFails},
    {OF(flagFile, "/tmp/f", 0), kFails},
    {OF(upFlagFile, "/tmp/new"), "-1! stat:="},
    {"getFileTime", CALL(getFileTime("/tmp/f") < 0 ? -1 : 0), kFails},
    {OF(mkpath, std::strcpy(room(16), "/tmp/a/b/c/file"), 1), "-1! stat:="},
    {OF(mkdirf, "/tmp/%s", "dir"), kFails},
    {OF(safe_write, fd, "text", 4), kFails, open_file},
    {OF(writeFmt, fd, "text"), kOnce, open_file},
    {OF(writeFile, "/tmp/new", "text", 4), kFails},
    {OF(writeFile, "/tmp/f", nullptr, 0), kFails},
    {OF(writeStrToFile, "/tmp/new", "text"), kFails},
    {OF(writeFmtToFile, "/tmp/f", "%d", 77), kFails},
    {OF(writeLineToFile, "/tmp/f", "text"), kFails},
    {OF(writeNumToFile, "/tmp/f", 1234), kFails},
    {OF(appendFile, "/tmp/f", "text", 4), kFails},
    {OF(appendStrToFile, "/tmp/f", "text"), kFails},
    {OF(appendFmtToFile, "/tmp/f", "%d", 77), kFails},
    {OF(appendLineToFile, "/tmp/f", "text"), kFails},
    {OF(safe_read, fd, room(8), 8), kOnce, open_file},
    {OF(readFile, "/tmp/f", room(8), 8), kOnce},
    {OF(readStrFromFile, "/tmp/f", room(8), 8), kOnce},
    {OF(readFmtFromFile, "/tmp/f", "%d", numbers<int>()), kOnce},
    {OF(readNumFromFile, "/tmp/f"), kOnce},
    {"loadFile", CALL(block(loadFile("/tmp/f", nullptr))), kOnce},
    {OF(copyFile, "/tmp/new", "/tmp/f"), kOnce},
    {OF(writeHexToFile, "/tmp/f", "\x12\x34", 2), "= malloc:-1!"},
    {OF(readHexFromFile, "/tmp/hex", room(2), 2), kOnce},
};

constexpr Scenario kProcesses[] = {
    {OF(safe_msleep, 50), kFails},
    {"dump_stack", CALL((dump_stack(), 0)), "="},
    {"find_pid_by_name", CALL(found(find_pid_by_name("victim"))), "-1! readdir:0 once",
     start_daemon},
    {OF(isCmdActive, "none"), "= opendir:-1!"},
    {OF(getProcSelfName), "= once"},
    {OF(trace_pid, static_cast<unsigned>(::getpid()), 3), "-1! = once"},
    {OF(killall, "none|victim", SIGUSR1), "0 = opendir:-1! once", start_daemon},
    {OF(terminate, victim->pid(), 2000, 2000), "-1! kill:= kill:-1! nanosleep:=", doom_daemon},
    {"getPid_fromFile", CALL(found(static_cast<int>(getPid_fromFile("/tmp/pid")))), kOnce,
     start_daemon},
    {OF(setPid_toFile, "/tmp/f"), kFails},
    {OF(sendSignalByPidFile, SIGUSR1, "/tmp/pid"), "-1! open:-2 read:-2 once", start_daemon},
    {OF(killByPidFile, SIGTERM, "/tmp/%s", "pid"),
     "-1! open:0 read:0 kill:-1! kill:= unlink:= nanosleep:= once", doom_daemon},
    {OF(killDaemonByPidFile, "/tmp/pid"),
     "-1! open:0 read:0 kill:-1! kill:= unlink:= nanosleep:= once", doom_daemon},
};

char echo[] = "echo", word[] = "word", other[] = "/bin/echo";
char *const kWords[] = {other, word, nullptr};
char *hooked[] = {echo, word, nullptr};

// What a child cannot do is the program's status, where the plain runners take it from.
constexpr auto kRuns = "-1! execvpe:errno execvpe:logged open:errno dup2:errno stat:=";
constexpr auto kLogs = "-1! execvpe:1 execvpe:logged open:errno dup2:errno read:= stat:=";

constexpr Scenario kCommands[] = {
    {OF(systemf, "true"), kFails},
    {OF(execBatch, "/tmp/batch"), "-1! system:= write:= once"},
    {OF(cmdf, "echo word"), kRuns},
    {OF(cmdf, "echo word > /tmp/new"), kRuns},
    {OF(cmdf, "echo word > /dev/zero"), "-1! stat:= "},
    {OF(qcmdf, "echo word"), kRuns},
    {"forkcmdf", CALL(_waitpid(forkcmdf("echo word"))), kRuns},
    {OF(sncmdf, room(64), 64, "echo word"),
     "-1! execvpe:1 execvpe:logged open:errno dup2:errno read:0 read:13"},
    {OF(lcmdf, "echo word > /tmp/new"), kLogs},
    {OF(execulity, kWords, "/tmp/new"), kRuns},
    {"forkexeculity", CALL(_waitpid(forkexeculity(kWords, nullptr))), kRuns},
    {OF(pingulity, "far", "/tmp/new"), kRuns},
    {OF(traceroulity, "far", "/tmp/new"), kRuns},
    {OF(DoCmd, hooked, "/tmp/new"), kFails},
    {OF(RunSystemCmd, "/tmp/new", other, word, ""), kRuns},
    {OF(_echo, 2, hooked, nullptr), kOnce},
    {"forkReinitEvent", CALL(_waitpid(forkReinitEvent("up", "%d", 1))), kLogs},
    {OF(reinitEvent, "up", nullptr), kLogs},
    {OF(reinitApply), kLogs},
    {OF(iptables_add, "nat", "INPUT -j DROP"), kLogs},
    {OF(iptables_del, nullptr, "INPUT -j DROP"), kLogs},
    {OF(iptables_flush, nullptr, "INPUT"), kLogs},
    {OF(iptables_check, nullptr, "INPUT -j DROP"), kNo},
    {OF(iptables_smartadd, nullptr, "INPUT -j DROP"), "= -1!"},
    {OF(iptables_smartdel, nullptr, "INPUT -j DROP"),
     "-1! execvpe:= execvpe:1 open:= dup2:= dup2:errno read:="},
    {OF(iptables_set, 1, nullptr, "INPUT -j DROP"), "= -1!"},
    {OF(iptables_create_subchain, "nat", "a", "b"), "="},
};

const char kMac[] = "\2\0\0\0\0\7";
constexpr uint32_t kFar = 0x0a010001, kStatic = 0x0a010032, kHost = 0x0a030001;
constexpr uint32_t kNet = 0x0a020000, kMask = 0xffff0000;
const sockaddr_in kServer = rk::inet_endpoint(INADDR_LOOPBACK, 80);

constexpr Scenario kNetwork[] = {
    {OF(arp_getMac, room(6), kStatic, "eth1"), kFails},
    {OF(dev_getAddrs, room(6), numbers(), numbers(), numbers<int>(), "lo"), kFails},
    {OF(re865xIoctl, "eth1", 2, 0, 0, 0), "-1! socket:-3!"},
    {OF(br_mac2port, "br0", kMac), kLogged},
    {OF(br_mac2ifname, "br0", kMac), kFails},
    {OF(br_mac2laname, "br0", kMac), kFails},
    {OF(poll_sock_recv, fd, uptime_getms() + 1000), kFails, open_datagram},
    {OF(connect_timeout, fd, rk::as_sockaddr(kServer), sizeof kServer, 1000),
     "-1! getsockopt:-4! poll:= fcntl:= fcntl:-1!", open_socket},
    {"socket_connect", CALL(closed(socket_connect("localhost"))),
     "-1! gethostbyname_r:-1 poll:= fcntl:= fcntl:-1!"},
    {OF(getInAddr, "lo", 2, room(4)), kNo},
    {OF(wan_sockBind, 2, fd), "-1! open:-1 read:-1 once", open_datagram},
    {OF(ping_test, "eth1", &kFar, 1, 1000, 1), kLogged},
    {OF(route_add, kNet, kMask, kFar, "eth1"), kFails},
    {OF(route_del, kNet, kMask, kFar, nullptr), kFails, add_routes},
    {OF(route_add_default, kFar, "eth1"), kFails},
    {OF(route_add_host, kHost, kFar, nullptr), kFails},
    {OF(route_del_host, kHost), kFails, add_routes},
    {OF(get_default_route, room(16)), "0 =", add_routes},
    {OF(wan_addNetRoute, kNet, kMask, kFar), kFails},
    {OF(wan_delNetRoute, kNet, kMask, kFar), kFails, add_routes},
    {OF(wan_addDefaultRoute, kFar, nullptr), kFails},
    {OF(wan_delDefaultRoute, kFar), kFails, add_routes},
    {OF(wan_delHostRoute, kHost), kFails, add_routes},
    {OF(wan_addHostRoute, 2, kHost), kOnce},
    {OF(l2tp_StopCCN, INADDR_LOOPBACK, 1, 2, 0), "-1! logged bind:-2! bind:logged malloc:-1!"},
    {"new_outgoing",
     [] {
         l2tp_buf_t *buffer = new_outgoing();
         long result = number(buffer);
         free_buf(buffer);
         return result;
     },
     kFails},
    {OF(send_ppp_msg, 7, kMac, "eth1"), "-1! ioctl:0 ioctl:-1! setsockopt:="},
};

http_post_t post;
json_ctx_t json;
constexpr jsonrpc_req_t kReboot = {"reboot", "[]", 0, nullptr, nullptr};
jsonrpc_client_t client = {"127.0.0.1", &json, nullptr, 1024, 0};
jsonrpc_token_t tokens[16];

long post_once() {
    post = {"127.0.0.1", "/", "body", 4, room(256), 256, 0, nullptr};
    return http_post(&post);
}

long call_and_parse() {
    jsonrpc_req_t one_call = kReboot;
    client.reply = room(1024);
    int status = jsonrpc_call_and_parse(&client, &one_call, 1);
    return status == 200 ? one_call.result->value.number : status;
}

long extender_log() {
    constexpr char kReply[] = R"({"a":{"b":{"DeviceLog":"QUJD"}}})";
    jsonrpc_parser_t parser;
    jsonrpc_init(&parser);
    int count = jsonrpc_parse(&parser, kReply, sizeof kReply, tokens, 16);
    return json_getKavraWiFiExtenderSlavesLog(room(40000), kReply, nullptr, count, tokens);
}

template <typename Char>
Char *go_on(Char ** /*starts*/, Char **ends, void *) {
    return ends[0];
}

cpu_stat cpu;
mem_info memory;
char load[80];

// The servers' file cannot be read: then there is none.
constexpr auto kResolves = "-1! open:-1 read:-1 malloc:-1 stat:-1 once";
// The next server is asked, and there are three passes.
constexpr auto kAsks = "-1! open:-1 read:-1 malloc:-1 stat:-1 sendto:= sendto:-1 once";
// How connecting within a time-out ends is seen after the wait.
constexpr auto kPosts = "-1! poll:= poll:-1! fcntl:= fcntl:-1! once";

constexpr Scenario kServices[] = {
    {OF(dns_writeResolvConf, "/tmp/new", &kFar, 1), kFails},
    {OF(dns_readResolvConf, "/tmp/resolv", numbers(3), 3), kOnce},
    {OF(dns_resolve_domain, "lo", "/tmp/resolv", "router.lan", numbers(3), 3, 2000), kResolves},
    {OF(dns_gethostsbyname, "lo", "/tmp/resolv", "router.lan", numbers(3), 3), kAsks},
    {OF(dns_gethostbyname, "lo", "/tmp/resolv", "router.lan", numbers()), kAsks},
    {OF(http_get, "http://127.0.0.1/x", room(256), 256, empty(4096)), kLogged},
    {"http_post", post_once, kPosts, nullptr, 70},
    {OF(jsonrpc_call, "127.0.0.1", &kReboot, 1, room(256), 256), kPosts, nullptr, 136},
    {"jsonrpc_call_and_parse", call_and_parse, kPosts, nullptr, 136},
    {OF(http_post_request, "127.0.0.1", 80, "reboot", "", "/", room(65536), numbers<int>()),
     "-1! recv:0 once", nullptr, 72},
    {OF(http_post_rpc, "127.0.0.1", "reboot", "", room(256), 256, numbers<int>()),
     "-1! poll:= poll:0 recv:0 fcntl:= fcntl:-1! once", nullptr, 72},
    {"json_getKavraWiFiExtenderSlavesLog", extender_log, kFails, nullptr, 44},
    {OF(regex_find_ex, "key=value", "(.*)=(.*)", room(8), 8, room(4), 4, nullptr), "-1", nullptr,
     22},
    {OF(regex_find_const_ref, "key=value", "k.*v", nullptr), "-1", nullptr, 20},
    {OF(regex_find_ref, std::strcpy(room(8), "a=b"), "a", nullptr), "-1", nullptr, 20},
    {OF(regex_find_all_const_cb, "a1b22", "[0-9]+", go_on, nullptr), "0 1 2", nullptr, 20},
    {OF(regex_find_all_cb, std::strcpy(room(8), "a1b22"), "[0-9]+", go_on, nullptr), "0 1 2",
     nullptr, 20},
    {OF(circ_open_and_write, "/tmp/circle", 9, 4, "new"), "= fopen:-1!"},
    {OF(circ_open_and_write, "/tmp/new", 9, 4, "new"), "= fopen:-1! fopen:= open:-1"},
    {OF(circ_write_entry, stream, "new"), "=", open_stream},
    {OF(circ_find_last_entry_offset, stream), kNo, open_stream},
    {OF(IncreaseCountInFile, "/tmp/f"), "= fclose:-1! fputs:-1! once"},
    {"pppoed_frame_log", CALL((pppoed_frame_log("PADI", 7), 0)), "= once"},
    {OF(dhcp_log, "ack", kMac, kFar, "host"), "= fclose:= fclose:-1! fputs:-1! once"},
    {OF(read_cpuinfo, &cpu), "= once"},
    {"get_cpuinfo", CALL((get_cpuinfo(&cpu), 0)), "= once"},
    {"get_meminfo", CALL(get_meminfo(&memory) != 0), kNo},
    {"get_loadavg", CALL(get_loadavg(load) > 0 ? 1 : -1), kOnce},
};

constexpr auto kDevice = "-1! open:= open:-1! once"; // a missing list has a stand-in
constexpr auto kFlash = "-1! open:= open:-1! fsync:-1! fsync:logged ioctl:-1! ioctl:logged";

constexpr Scenario kDevices[] = {
    {OF(mtd_getinfo, "jffs2", reinterpret_cast<mtd_partition_t *>(room(8))), kDevice},
    {"mtd_open", CALL(closed(mtd_open("jffs2", O_RDONLY, nullptr))), kDevice},
    {"mtd_block_open", CALL(closed(mtd_block_open("jffs2", O_RDONLY, nullptr))), kDevice},
    {OF(mtd_write, "jffs2", image.data()), kFlash},
    {OF(mtd_same, "jffs2", image.data()), "-1! open:= open:-1!"},
    {OF(wlio_get_mib_int, 0, "chan"), kLogged},
    {OF(wlio_set_mib_int, 0, "chan", 5), kLogged},
    {OF(wlio_get_mib_str_n, 0, "ssid", room(4), 4), kLogged},
    {OF(wlio_get_mib_bin_n, 0, "key", room(2), 2), kLogged},
    {OF(wlio_get_mib_str, 0, "ssid", room(4)), kLogged},
    {OF(wlio_get_mib_bin, 0, "key", room(4)), kLogged},
    {OF(wlio_set_mib_str, 0, "ssid", "LAN"), kLogged},
    {OF(wlio_set_mib_bin, 0, "key", "\0\xff", 2), kLogged},
};

const wan_route_t kRoute = {kNet, kMask, kFar};

constexpr Scenario kWan[] = {
    {OF(wan_getIndex, 1), kOnce},
    {OF(wan_getIfIndex, 1), kOnce},
    {OF(wan_getType, 1), kOnce},
    {OF(wan_getVlanId, 1), kNo},
    {OF(wan_getModemType, 1), kNo},
    {OF(wan_getPurpose, 1), "1 once"},
    {OF(wan_getIP, 1, numbers<int>()), kNo},
    {OF(wan_getGateway, 1), kNo},
    {OF(wan_getPhyIface, 1), kOnce},
    {OF(wan_getEthIface, 1), kOnce},
    {OF(wan_getConIface, 1), kOnce},
    {OF(wan_getPhyIfName, 1, room(20)), kOnce},
    {OF(wan_getEthIfName, 1, room(20)), kOnce},
    {OF(wan_getConIfName, 1, room(20)), kOnce},
    {OF(getWanIfName, 1, room(20), 20), kOnce},
    {OF(wan_getModemIface, room(20), 20), kOnce},
    {OF(wan_isModem, 1), kNo},
    {OF(wan_isInet, 1), kNo},
    {OF(wan_isEnabled, 1), kNo},
    {OF(wan_getIdxByIface, "eth1"), "-1 = once"},
    {OF(wan_getMagicConIfNameForStatistics, 1), "0 -1! once"},
    {OF(wan_link, 2, "new"), "-1! unlink:="},
    {OF(wan_link, -1, "active"), "="},
    {OF(wan_readLink, "active"), kFails},
    {OF(wan_getDefault), kFails},
    {OF(wan_getModemIndex), kFails},
    {OF(wan_isDefault, 1), kNo},
    {OF(wan_resolve, 255), kFails},
    {OF(wan_getStatus, 1), kOnce},
    {OF(wan_updateIfStatus, 1, 10), kFails},
    {OF(wan_getTextStatus, 1), kNo},
    {OF(wan_getDisconnectReason, 1), kNo},
    {OF(wan_setLinkFlag, 1), kFails},
    {OF(wan_setModemFlag, 0), "-1! ="},
    {OF(wan_setWiredInetFlag, 1), kFails},
    {OF(wan_hasLinkFlag), kNo},
    {OF(wan_hasModemFlag), kNo},
    {OF(wan_hasWiredInetFlag), "0 ="},
    {OF(wan_getModemStatus), kNo},
    {OF(wan_isLinked, 1), "0 ="},
    {OF(wan_getLinkStatus), kNo},
    {OF(wan_startSession, 7), "="},
    {OF(wan_stopSession, 1), "= once"},
    {OF(wan_getUptime, 1), "1700000001 once"},
    {OF(wan_getAllSessionsTime, 1), "1000 1699999900 0 once"},
    {OF(wan_getPPPoESessionsTime, 1), "500 1699999900 0 once"},
    {OF(wan_writeRoutes, 1, &kRoute, 1), kFails},
    {OF(wan_readRoutes, 1, reinterpret_cast<wan_route_t *>(room(12)), 1), kOnce},
    {OF(wan_addRoutes, 2, &kRoute, 1), "-1! ioctl:= socket:= once"},
    {OF(wan_delRoutes, 2, &kRoute, 1), "-1! ioctl:= socket:= once", add_routes},
    {OF(wan_writeWanResolvConf, 1, &kFar, 1), kFails},
    {OF(wan_readWanResolvConf, 1, numbers(3), 3), kOnce},
    {OF(wan_setDNSServer, kFar), kFails},
    {OF(wan_setDNSServer, 0), kFails},
    {OF(wan_updateActiveDNS, 1), "-1! read:-1! read:logged once"},
    {OF(wan_updateDefaultDNS, 1), "-1! readlink:= once"},
    {OF(wan_hasWiredInetIP), "0 = once", [] { ::unlink("/var/wan/1/modem"); }},
    {OF(wan_updateActiveRoute, 2), "= once"},
    {OF(wan_updateActiveRoute, 0), "= once", add_routes},
    {OF(wan_updateDefaultConnection), "= once"},
    {OF(wan_resolve_domain, 1, "router.lan", numbers(3), 3, 2000), kResolves},
    {OF(wan_gethostsbyname, 1, "router.lan", numbers(3), 3), kResolves},
    {OF(wan_gethostbyname, 1, "router.lan", numbers()), kResolves},
    {OF(wan_ping_test, 2, "10.1.0.1", 1000, 0), "-1! open:-1 read:-1 once"},
};

// They ask the system for nothing: only their stack is looked at.
constexpr Scenario kPure[] = {
    {OF(json_parse, &json, std::strcpy(room(24), "[[[[1]]]]"), 9), nullptr},
    {"sha256", CALL((sha256("text", 4, room(32)), 0)), nullptr},
    {OF(md5, room(16), "text", 4), nullptr},
    {OF(b64_encode, room(16), 16, "text", 4), nullptr},
    {OF(ipv6_nptostr, room(64), "fifteen letters", 64), nullptr},
    {OF(strf, "%s %d", "text", 7), nullptr},
    {OF(slashstr, room(32), 32, "\a\"$`"), nullptr},
    {OF(url_gethost, room(32), 32, "http://a@host:80/"), nullptr},
};

struct Family {
    const char *name;
    std::span<const Scenario> scenarios;
};

constexpr Family kFamilies[] = {
    {"Files", kFiles},       {"Processes", kProcesses}, {"Commands", kCommands}, {"Net", kNetwork},
    {"Services", kServices}, {"Devices", kDevices},     {"Wan", kWan},           {"Pure", kPure},
};

void PrintTo(const Family &family, std::ostream *out) {
    *out << family.name;
}

class Torture : public testing::TestWithParam<Family> {};

TEST_P(Torture, EveryCallFails) {
    open_world();
    play(GetParam().scenarios);
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
    lists ? 0 : std::printf("%zu runs\n", runs());
    for (const auto &[name, bytes] : stack_table()) {
        wants_table ? std::printf("| `%s` | %zu |\n", name.c_str(), bytes) : 0;
    }
    return result;
}
