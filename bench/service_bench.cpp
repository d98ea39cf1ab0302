// End-to-end figures of the plug-in against a real ndsvc over the socket, driven in process
// the way ndsh drives the plug-in (its command handlers, script handlers and the platform's
// socket transport), with the service as a process of its own:
//   1. show nd snooping user-bind dynamic over 20,480 learned bindings (1,366 pages of 15);
//   2. show ipv6 nd host vxlan over 100,000 VXLAN hosts;
//   3. nd mpos suppress ... 1000000: the command's own time, and the time until the service
//      holds every host;
//   4. the running configuration of 4,094 snooping VLANs, 1,000 static user-binds and 512
//      VXLAN instances, as one display calls the script handlers.
//
//   nd_bench_service [--skip-inject | --only-inject]
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "nd_cli.h"
#include "ndplat.h"
#include "ndplat_service.h"

namespace {

using Clock = std::chrono::steady_clock;

double sinceMs(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double cpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Standard output goes to /dev/null while a command prints its table.
class Quiet {
public:
    Quiet()
    {
        fflush(stdout);
        saved_ = dup(1);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    }
    ~Quiet()
    {
        fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
    }

private:
    int saved_;
};

SHELL_CMD_FN handlerOf(const char *part, bool negated)
{
    for (const ndplat::CmdRegistration &r : ndplat::cmd_registrations())
        if (r.definition.find(part) != std::string::npos && (r.definition.rfind("no(", 0) == 0) == negated)
            return r.fn;
    return nullptr;
}

int32_t run(SHELL_CMD_FN fn, std::vector<std::string> words)
{
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    return fn(static_cast<int32_t>(words.size()), argv.data());
}

uint32_t send(uint32_t code, const char *keyword, std::vector<std::pair<uint32_t, std::vector<uint8_t>>> items,
              bool vxlan = false)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, keyword, code);
    for (auto &[type, bytes] : items)
        nd_CliParamSet(&block, bytes.data(), static_cast<uint32_t>(bytes.size()), type, 1);
    return vxlan ? ndCliVxlanSetProc(&block, nullptr) : ndCliParamProc(&block);
}

template <typename T> std::vector<uint8_t> bytesOf(T v)
{
    std::vector<uint8_t> b(sizeof v);
    memcpy(b.data(), &v, sizeof v);
    return b;
}

} // namespace

int main(int argc, char **argv)
{
    // As in the shell: the platform's calls are not kept (the trace is a test aid).
    ndplat::trace_record_set(false);
    bool inject = !(argc > 1 && strcmp(argv[1], "--skip-inject") == 0);
    bool others = !(argc > 1 && strcmp(argv[1], "--only-inject") == 0);
    char dirTemplate[] = "/tmp/ndbench.XXXXXX";
    std::string dir = mkdtemp(dirTemplate);
    setenv("NDSIM_STATE", dir.c_str(), 1);
    std::string seed = dir + "/seed.json";
    {
        std::ofstream out(seed);
        out << R"({"dynamic_user_binds":[{"ip":"2001:db8:10::1","mac":"00:10:00:00:00:01","vlan":10,)"
            << R"("port":"gigabitethernet0/1","count":20480}],)"
            << R"("vxlan_hosts":[{"vxlan":10,"ip":"2001:db8:a::1","mac":"00:0a:00:00:00:01","port_index":1,"count":100000}]})";
    }
    ndplat::service_attach(dir);
    if (ndplat::service_start(dir, {"--seed", seed}) <= 0) {
        fprintf(stderr, "ndsvc did not start\n");
        return 1;
    }
    if (dl_nd_cli_init() != 0) {
        fprintf(stderr, "plug-in start-up failed\n");
        return 1;
    }

    // 1. The paged user-bind listing.
    Clock::time_point t0;
    double cpu0 = 0, wall = 0, cpu = 0;
    if (others) {
    SHELL_CMD_FN userBind = handlerOf("dynamic-mpu", false);
    if (!userBind)
        return 1;
    run(userBind, {"show", "nd", "snooping", "user-bind", "dynamic"}); // warm-up
    cpu0 = cpuMs();
    t0 = Clock::now();
    {
        Quiet quiet;
        run(userBind, {"show", "nd", "snooping", "user-bind", "dynamic"});
    }
    wall = sinceMs(t0);
    cpu = cpuMs() - cpu0;
    printf("show nd snooping user-bind dynamic, 20480 rows: %.1f ms wall, client CPU %.1f ms (%.2f us per row)\n", wall,
           cpu, cpu * 1000.0 / 20480);

    // 2. The VXLAN host table.
    SHELL_CMD_FN hosts = handlerOf("Show ND Host entry", false);
    if (!hosts)
        return 1;
    cpu0 = cpuMs();
    t0 = Clock::now();
    {
        Quiet quiet;
        run(hosts, {"show", "ipv6", "nd", "host", "vxlan"});
    }
    wall = sinceMs(t0);
    cpu = cpuMs() - cpu0;
    printf("show ipv6 nd host vxlan, 100000 hosts: %.1f ms wall, client CPU %.1f ms (%.2f us per row)\n", wall, cpu,
           cpu * 1000.0 / 100000);
    }

    // 3. One million suppression hosts injected.
    if (inject) {
        SHELL_CMD_FN suppress = handlerOf("suppress(EN, 0, HIDE", false);
        if (!suppress)
            return 1;
        t0 = Clock::now();
        run(suppress, {"nd", "mpos", "suppress", "10", "7", "2001:db8::1", "192.0.2.9", "0011.2233.4455", "1000000"});
        double command = sinceMs(t0);
        ndplat::nd_library_flush();
        double held = sinceMs(t0);
        unlink("/tmp/.nd_diagnose");
        send(29, "show", {{13, bytesOf<uint32_t>(0)}, {2, bytesOf<uint32_t>(10)}});
        std::ifstream in("/tmp/.nd_diagnose");
        std::stringstream text;
        text << in.rdbuf();
        unlink("/tmp/.nd_diagnose");
        bool all = text.str().find("suppression hosts: 1000000\n") != std::string::npos;
        printf("nd mpos suppress ... 1000000: command %.1f ms, service holds all %s after %.1f ms\n", command,
               all ? "hosts" : "(NOT all) hosts", held);
    }

    // 4. The running configuration of a large switch.
    if (!others) {
        ndplat::service_stop(dir);
        return 0;
    }
    Clock::time_point c0 = Clock::now();
    send(3, "nd", {});
    for (uint16_t vlan = 1; vlan <= 4094; ++vlan)
        send(5, "nd", {{2, bytesOf(vlan)}});
    for (uint32_t i = 0; i < 1000; ++i) {
        uint8_t ip[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0x99};
        ip[14] = static_cast<uint8_t>(i >> 8);
        ip[15] = static_cast<uint8_t>(i);
        uint8_t mac[6] = {0, 0x99, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        char name[40] = "gigabitethernet0/1";
        send(11, "nd",
             {{4, std::vector<uint8_t>(ip, ip + 16)},
              {6, std::vector<uint8_t>(mac, mac + 6)},
              {2, bytesOf<uint32_t>(10)},
              {3, bytesOf<int32_t>(1)},
              {1, std::vector<uint8_t>(name, name + 40)}});
    }
    for (uint32_t id = 1; id <= 512; ++id)
        send(22, "ipv6", {{15, bytesOf(id)}}, true);
    double configure = sinceMs(c0);
    int null = open("/dev/null", O_WRONLY);
    std::vector<double> runs, globals, vlans, vxlans;
    for (int rep = 0; rep < 5; ++rep) {
        uint32_t session = 100 + static_cast<uint32_t>(rep);
        t0 = Clock::now();
        ndplat::running_cfg_session_set(session);
        ndGobleEnableScriptHandler(null, 0, 0, 0);
        ndGobleScriptHandler(null, 0, 0, 0);
        globals.push_back(sinceMs(t0));
        Clock::time_point v0 = Clock::now();
        for (uintptr_t vlan = 1; vlan <= 4094; ++vlan)
            ndVlanIfScriptHandler(null, 0, vlan, 0);
        vlans.push_back(sinceMs(v0));
        Clock::time_point x0 = Clock::now();
        for (uintptr_t id = 1; id <= 512; ++id)
            nd_CliVxlanScriptHandler(null, 0, id, 0);
        vxlans.push_back(sinceMs(x0));
        ndplat::notify_raise(23, 8, session, 0);
        ndplat::running_cfg_session_set(0xFFFFFFFFu);
        runs.push_back(sinceMs(t0));
    }
    close(null);
    for (std::vector<double> *v : {&runs, &globals, &vlans, &vxlans})
        std::sort(v->begin(), v->end());
    printf("running configuration, 4094 VLANs + 1000 static user-binds + 512 VXLAN instances: %.1f ms (median of 5: "
           "global lines %.1f ms, VLANs %.1f ms, VXLAN instances %.1f ms; configured in %.0f ms)\n",
           runs[2], globals[2], vlans[2], vxlans[2], configure);

    ndplat::service_stop(dir);
    std::string cleanup = "rm -rf " + dir;
    return system(cleanup.c_str()) == 0 ? 0 : 1;
}
