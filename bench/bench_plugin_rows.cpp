// The rows measured with the plug-in in process against the configured switch's service: the
// two listings and the service's memory once it has served them, the running configuration,
// opening and closing "ec_nd", and the injection of suppression hosts.
#include <fcntl.h>

#include <algorithm>

#include "bench_common.h"
#include "bench_control.h"
#include "bench_plugin.h"
#include "bench_rows.h"
#include "dbm/nd_cli_dbm_internal.h"
#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

namespace ndbench {

namespace {

constexpr const char *kNoHandler = "no handler registered";

// One run of a listing into the file listing: its wall time.
double timeListing(SHELL_CMD_FN handler, std::vector<std::string> words, const std::string &listing)
{
    Clock::time_point t0 = Clock::now();
    {
        OutputTo quiet(listing);
        run(handler, std::move(words));
    }
    return sinceMs(t0);
}

// The processor time that the plug-in's process and the service spent on one listing.
struct ListingCpu {
    std::vector<double> plugIn, service;
    void add(double plugInMs, double serviceMs)
    {
        plugIn.push_back(plugInMs);
        service.push_back(serviceMs);
    }
    std::string note(const std::string &listing) const
    {
        return listing + ", processor time (medians): the plug-in's process " + figure(median(plugIn)) +
               " ms, ndsvc " + figure(median(service)) + " ms";
    }
};

// The wall time of one listing into `listing`, and the processor time spent on it.
double timedListing(SHELL_CMD_FN handler, std::vector<std::string> words, const std::string &listing, long servicePid,
                    ListingCpu &cpu)
{
    double own = ownCpuMs();
    double service = threadsCpuMs(servicePid);
    double ms = timeListing(handler, std::move(words), listing);
    cpu.add(ownCpuMs() - own, threadsCpuMs(servicePid) - service);
    return ms;
}

// The two listings, and the service's memory once it has served them.
void measureListings(Bench &bench, const std::string &listing, long servicePid)
{
    SHELL_CMD_FN userBind = handlerOf("dynamic-mpu", false);
    SHELL_CMD_FN hosts = handlerOf("Show ND Host entry", false);
    if (!userBind || !hosts) {
        bench.row(kUserBind).fail(kNoHandler);
        bench.row(kHosts).fail(kNoHandler);
        return;
    }
    const std::string total = "Total number: " + std::to_string(bench.sizes.dynamicBinds);
    long peakKiB = 0;
    ListingCpu userBindCpu, hostsCpu;
    for (int r = 0; r < bench.runs; ++r) {
        double ms = timedListing(userBind, {"show", "nd", "snooping", "user-bind", "dynamic"}, listing, servicePid,
                                 userBindCpu);
        bench.row(kUserBind).record(readFile(listing).find(total) != std::string::npos, ms,
                                    "the listing did not end with \"" + total + "\"");
        ms = timedListing(hosts, {"show", "ipv6", "nd", "host", "vxlan"}, listing, servicePid, hostsCpu);
        // The rows are counted: the total line under this table counts the last answer only.
        size_t listed = countOf(readFile(listing), "2001:db8:a::");
        bench.row(kHosts).record(listed == bench.sizes.vxlanHosts, ms,
                                 "the listing held " + std::to_string(listed) + " hosts");
        long rss = statusKiB(servicePid, "VmRSS");
        peakKiB = std::max(peakKiB, statusKiB(servicePid, "VmHWM"));
        bench.row(kMemory).record(rss > 0, rss / 1024.0, "no VmRSS for ndsvc pid " + std::to_string(servicePid));
    }
    bench.notes.push_back(userBindCpu.note("user-bind listing"));
    bench.notes.push_back(hostsCpu.note("VXLAN host listing"));
    if (peakKiB > 0)
        bench.notes.push_back("ndsvc peak resident size (VmHWM) after the listings: " + figure(peakKiB / 1024.0) + " MiB");
}

// Static user-binds and VXLAN instances added through the service (set-up, not measured);
// how many requests were refused.
uint32_t configureStatics(Bench &bench)
{
    const Sizes &sizes = bench.sizes;
    Clock::time_point c0 = Clock::now();
    uint32_t refused = 0;
    for (uint32_t i = 0; i < sizes.staticBinds; ++i) {
        uint8_t ip[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0x99};
        ip[14] = static_cast<uint8_t>(i >> 8);
        ip[15] = static_cast<uint8_t>(i);
        uint8_t mac[6] = {0, 0x99, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
        char name[40] = "gigabitethernet0/1";
        refused += send(11, "nd",
                        {{4, std::vector<uint8_t>(ip, ip + 16)},
                         {6, std::vector<uint8_t>(mac, mac + 6)},
                         {2, bytesOf<uint32_t>(10)},
                         {3, bytesOf<int32_t>(1)},
                         {1, std::vector<uint8_t>(name, name + 40)}}) != 0;
    }
    for (uint32_t id = 1; id <= sizes.vxlans; ++id)
        refused += send(22, "ipv6", {{15, bytesOf(id)}}, true) != 0;
    bench.notes.push_back("set-up, not measured: " + withThousands(sizes.staticBinds) + " static user-binds and " +
                          withThousands(sizes.vxlans) + " VXLAN instances configured through the service in " +
                          figure(sinceMs(c0) / 1000.0) + " s");
    return refused;
}

// The times of a running configuration's parts in one run.
struct ConfigParts {
    std::vector<double> globals, vlans, vxlans;
};

// One running configuration into out as a display of session: its wall time, its parts' times
// added to parts.
double printRunningConfig(const Sizes &sizes, const std::string &out, uint32_t session, ConfigParts &parts)
{
    Fd fd(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    Clock::time_point t0 = Clock::now();
    ndplat::running_cfg_session_set(session);
    ndGobleEnableScriptHandler(fd.get(), 0, 0, 0);
    ndGobleScriptHandler(fd.get(), 0, 0, 0);
    parts.globals.push_back(sinceMs(t0));
    Clock::time_point v0 = Clock::now();
    for (uintptr_t vlan = 1; vlan <= sizes.vlans; ++vlan)
        ndVlanIfScriptHandler(fd.get(), 0, vlan, 0);
    parts.vlans.push_back(sinceMs(v0));
    Clock::time_point x0 = Clock::now();
    for (uintptr_t id = 1; id <= sizes.vxlans; ++id)
        nd_CliVxlanScriptHandler(fd.get(), 0, id, 0);
    parts.vxlans.push_back(sinceMs(x0));
    ndplat::notify_raise(23, 8, session, 0);
    ndplat::running_cfg_session_set(0xFFFFFFFFu);
    return sinceMs(t0);
}

// The running configuration: static user-binds and VXLAN instances added, then printed whole.
void measureRunningConfig(Bench &bench, const std::string &out)
{
    Row &row = bench.row(kRunningConfig);
    const Sizes &sizes = bench.sizes;
    uint32_t refused = configureStatics(bench);
    if (refused)
        row.fail(std::to_string(refused) + " configuration requests were refused");
    ConfigParts parts;
    for (int r = 0; refused == 0 && r < bench.runs; ++r) {
        double ms = printRunningConfig(sizes, out, 100 + static_cast<uint32_t>(r), parts);
        std::string text = readFile(out);
        size_t snooping = countOf(text, "nd snooping enable\n");
        size_t binds = countOf(text, "nd snooping user-bind static ");
        size_t suppression = countOf(text, "suppression");
        row.record(snooping == sizes.vlans + 1 && binds == sizes.staticBinds && suppression >= sizes.vxlans, ms,
                   "the configuration printed " + std::to_string(snooping) + " snooping lines, " +
                       std::to_string(binds) + " user-binds, " + std::to_string(suppression) + " suppression lines");
    }
    if (parts.globals.empty())
        return;
    for (std::vector<double> *v : {&parts.globals, &parts.vlans, &parts.vxlans})
        std::sort(v->begin(), v->end());
    size_t mid = parts.globals.size() / 2;
    bench.notes.push_back("running configuration, medians of its parts: global lines " + figure(parts.globals[mid]) +
                          " ms, VLANs " + figure(parts.vlans[mid]) + " ms, VXLAN instances " +
                          figure(parts.vxlans[mid]) + " ms");
}

// Opening and closing "ec_nd": each run's figure is the mean of its pairs.
void measureDbm(Bench &bench)
{
    for (int r = 0; r < bench.runs; ++r) {
        bool ok = true;
        Clock::time_point t0 = Clock::now();
        for (uint32_t i = 0; ok && i < bench.sizes.dbmPairs; ++i) {
            DBM_HANDLE h = nullptr;
            ok = DBM_Open(ndwire::kDatabase, ND_DBM_OPEN_MODE, ndcli::kNdDbmOpenParams, 0, 0, &h) == 0 &&
                 DBM_Close(h) == 0;
        }
        double us = sinceMs(t0) * 1000.0 / bench.sizes.dbmPairs;
        bench.row(kDbm).record(ok, us, "DBM_Open or DBM_Close failed");
    }
}

// Both injection rows fail for the same reason.
void failInjection(Bench &bench, const std::string &why)
{
    bench.row(kInjectCommand).fail(why);
    bench.row(kInjectHeld).fail(why);
}

// The suppression hosts injected by one command, removed again after each run.
void measureInjection(Bench &bench)
{
    SHELL_CMD_FN suppress = handlerOf("suppress(EN, 0, HIDE", false);
    SHELL_CMD_FN unsuppress = handlerOf("suppress(EN, 0, HIDE", true);
    if (!suppress || !unsuppress)
        return failInjection(bench, kNoHandler);
    const std::string count = std::to_string(bench.sizes.injected);
    const std::vector<std::string> command = {"nd", "mpos", "suppress", "10", "7", "2001:db8::1", "192.0.2.9",
                                              "0011.2233.4455", count};
    std::vector<std::string> undo = command;
    undo.insert(undo.begin(), "no");
    for (int r = 0; r < bench.runs; ++r) {
        Clock::time_point t0 = Clock::now();
        run(suppress, command);
        double ms = sinceMs(t0);
        ndplat::nd_library_flush();
        double all = sinceMs(t0);
        if (diagnose(10).find("suppression hosts: " + count + "\n") != std::string::npos) {
            bench.row(kInjectCommand).samples.push_back(ms);
            bench.row(kInjectHeld).samples.push_back(all);
        } else {
            failInjection(bench, "the service did not hold " + count + " hosts");
        }
        run(unsuppress, undo);
        ndplat::nd_library_flush();
        if (diagnose(10).find("suppression hosts: 0\n") == std::string::npos)
            return failInjection(bench, "the injected hosts could not be removed again");
    }
}

} // namespace

void measureOnSwitch(Bench &bench, RunDir &runDir, const Binaries &bin, const std::string &stateDir)
{
    SwitchSession session(runDir, stateDir, bench.sizes, bin.ndsvc);
    if (!session.ready()) {
        for (Row &row : bench.rows)
            if (&row != &bench.row(kCommandFile))
                row.fail("no configured switch to measure on (the configuration through ndsh -f failed)");
        return;
    }
    if (bench.want(kUserBind) || bench.want(kHosts) || bench.want(kMemory))
        measureListings(bench, runDir.path() + "/listing.out", session.servicePid());
    if (bench.want(kRunningConfig))
        measureRunningConfig(bench, runDir.path() + "/running-config.out");
    if (bench.want(kDbm))
        measureDbm(bench);
    measureStartup(bench, bin, stateDir);
    if (bench.want(kInjectCommand))
        measureInjection(bench);
}

} // namespace ndbench
