// ND snooping on the wire: a lab of two real hosts around a service that snoops on it. How
// fast the service learns a flood of claims and checks a flood of solicitations, and how long a
// host's own duplicate address detection takes to become its listed binding. Needs root and
// network namespaces; without them the notes say why.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <thread>

#include "bench_common.h"
#include "bench_control.h"
#include "bench_rows.h"
#include "nd_packet.h"
#include "ndlab.h"

namespace ndbench {

namespace {

constexpr int kPollMs = 20;

// ndsh's answer to the commands (one a line) in `answer`; false with the reason in why.
bool ask(const Binaries &bin, const std::string &stateDir, const std::string &commands, std::string &answer,
         std::string &why)
{
    std::string file = stateDir + "/wire.cmd", out = stateDir + "/wire.out";
    std::ofstream(file) << commands;
    if (runCommandFile(bin, stateDir, file, out, why) < 0)
        return false;
    answer = readFile(out);
    return true;
}

// Polls the listing until it shows `text` or limitMs pass; the ms it took, or -1.
double untilListed(const Binaries &bin, const std::string &stateDir, const std::string &command,
                   const std::string &text, Clock::time_point t0, int limitMs)
{
    std::string why, answer;
    while (sinceMs(t0) < limitMs) {
        if (ask(bin, stateDir, command + "\n", answer, why) && answer.find(text) != std::string::npos)
            return sinceMs(t0);
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
    return -1;
}

// The listing's total, or -1.
long listedTotal(const Binaries &bin, const std::string &stateDir)
{
    std::string why, answer;
    if (!ask(bin, stateDir, "show nd snooping user-bind dynamic | include Total\n", answer, why))
        return -1;
    size_t at = answer.find("Total number: ");
    return at == std::string::npos ? -1 : strtol(answer.c_str() + at + strlen("Total number: "), nullptr, 10);
}

// Polls the listing's total until it reaches `target` or stops growing for a second; the total
// then, and in ms the time from t0 to when it last grew.
long untilSettled(const Binaries &bin, const std::string &stateDir, long target, Clock::time_point t0, double &ms)
{
    long total = -1;
    Clock::time_point grew = t0;
    while (total < target && sinceMs(grew) < 1000 + 1200) {
        long now = listedTotal(bin, stateDir);
        if (now > total) {
            total = now;
            grew = Clock::now();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
    ms = std::chrono::duration<double, std::milli>(grew - t0).count();
    return total;
}

// Duplicate address detection NS, each for another address of 2001:db8:f::/64.
ndlab::FrameMaker claims(const std::array<uint8_t, 6> &mac)
{
    return [mac](size_t index, uint8_t *buf, size_t capacity) {
        ndsvc::packet::FrameAddress addr;
        addr.eth_src = mac;
        ndsvc::packet::Ip6 target = {0x20, 0x01, 0x0d, 0xb8, 0, 0x0f};
        uint32_t n = static_cast<uint32_t>(index) + 1;
        memcpy(target.data() + 12, &n, sizeof n);
        addr.dst = ndsvc::packet::solicited_node(target);
        addr.eth_dst = ndsvc::packet::multicast_mac(addr.dst);
        return ndsvc::packet::build_ns(addr, target, nullptr, buf, capacity);
    };
}

// Neighbor solicitations from 2001:db8:e::/64, an unbound source, each for another target.
ndlab::FrameMaker unboundSolicitations(const std::array<uint8_t, 6> &mac)
{
    return [mac](size_t index, uint8_t *buf, size_t capacity) {
        ndsvc::packet::FrameAddress addr;
        addr.eth_src = mac;
        addr.src = {0x20, 0x01, 0x0d, 0xb8, 0, 0x0e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
        ndsvc::packet::Ip6 target = {0x20, 0x01, 0x0d, 0xb8, 0, 0x0e};
        uint32_t n = static_cast<uint32_t>(index) + 2;
        memcpy(target.data() + 12, &n, sizeof n);
        addr.dst = ndsvc::packet::solicited_node(target);
        addr.eth_dst = ndsvc::packet::multicast_mac(addr.dst);
        return ndsvc::packet::build_ns(addr, target, &mac, buf, capacity);
    };
}

// A counter ("name: value") of a show command's output; -1 when it cannot be read.
long shownCounter(const Binaries &bin, const std::string &stateDir, const std::string &show, const std::string &name)
{
    std::string out, why;
    if (!ask(bin, stateDir, show + "\n", out, why))
        return -1;
    size_t at = out.find(name + ":");
    return at == std::string::npos ? -1 : strtol(out.c_str() + at + name.size() + 1, nullptr, 10);
}

// A flood of solicitations that snooping refuses: how fast the kernel drops them (its counter)
// and the service reads and judges them (the fast-response count of NS read).
void measureChecks(Bench &bench, const std::string &name, const std::string &dir, const Binaries &bin, size_t count)
{
    const std::string statistics = "show nd snooping statistics", fast = "show nd fast-response statistics";
    long dropped = shownCounter(bin, dir, statistics, "nsPacketDrop");
    long read = shownCounter(bin, dir, fast, "rxNsCount");
    Clock::time_point t0 = Clock::now();
    ndlab::Result<size_t> sent = ndlab::send_frames(name, 2, count, unboundSolicitations({0x02, 0, 0, 0, 0x02, 0x03}));
    long target = static_cast<long>(sent ? sent.value() : 0);
    long nowDropped = -1, nowRead = -1;
    Clock::time_point allRead = t0;
    while (sinceMs(t0) < 10000) {
        nowDropped = shownCounter(bin, dir, statistics, "nsPacketDrop") - dropped;
        nowRead = shownCounter(bin, dir, fast, "rxNsCount") - read;
        allRead = Clock::now();
        if (nowRead >= target && nowDropped >= target)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
    double ms = std::chrono::duration<double, std::milli>(allRead - t0).count();
    bench.notes.push_back("wire: " + withThousands(static_cast<uint64_t>(target)) +
                          " NS from an unbound source sent from one host; the kernel dropped " +
                          withThousands(static_cast<uint64_t>(std::max(nowDropped, 0L))) + " (nsPacketDrop), the service read " +
                          withThousands(static_cast<uint64_t>(std::max(nowRead, 0L))) + " (rxNsCount), all within " +
                          figure(ms) + " ms of the first: " +
                          withThousands(static_cast<uint64_t>(static_cast<double>(std::max(nowRead, 0L)) * 1000 / ms)) +
                          " checks a second (at most the polling interval late)");
}

std::string labName(const RunDir &runDir)
{
    std::string name = "b" + runDir.path().substr(runDir.path().rfind('.') + 1);
    return name.substr(0, ndlab::kMaxNameLength);
}

} // namespace

void measureWire(Bench &bench, RunDir &runDir, const Binaries &bin)
{
    ndlab::Result<ndlab::Lab> lab = ndlab::Lab::create(labName(runDir), 2);
    if (!lab) {
        bench.notes.push_back("wire: no lab: " + lab.message());
        return;
    }
    const std::string name = lab.value().name();
    runDir.trackLab(name);
    const size_t claimCount = bench.sizes.dynamicBinds;
    std::string dir = runDir.stateDir("wire");
    std::string why, before;
    if (!runDir.startService(dir, {"--lab", name, "--learned-ceiling", std::to_string(claimCount + 100)}) ||
        !ask(bin, dir, "configure terminal\nnd snooping enable\nvlan 1\nnd snooping enable\nend\n", before, why)) {
        bench.notes.push_back("wire: the service did not snoop on lab " + name + " " + why);
        return;
    }
    std::vector<double> dad;
    for (int r = 1; r <= bench.runs; ++r) {
        std::string address = "2001:db8:2::" + std::to_string(r);
        Clock::time_point t0 = Clock::now();
        if (ndlab::exec(name, "h1", {"ip", "-6", "addr", "add", address + "/64", "dev", "eth0"}).value() != 0)
            break;
        double ms = untilListed(bin, dir, "show nd snooping user-bind dynamic | include " + address + " ",
                                address + " ", t0, 10000);
        if (ms >= 0)
            dad.push_back(ms);
    }
    std::sort(dad.begin(), dad.end());
    if (!dad.empty())
        bench.notes.push_back("wire: a host's own DAD to its binding listed (`ip -6 addr add` to the row), ms: median " +
                              figure(median(dad)) + ", " + figure(dad.front()) + ".." + figure(dad.back()) +
                              " (the kernel waits up to 1 s before its first NS, the service 1 s for a defence)");

    // A flood of forged claims from host 2: how many are listed, and when the last was, less
    // the 1 s that each claim waits for a defence.
    long listed = listedTotal(bin, dir);
    Clock::time_point t0 = Clock::now();
    ndlab::Result<size_t> sent = ndlab::send_frames(name, 2, claimCount, claims({0x02, 0, 0, 0, 0x02, 0x02}));
    double sendMs = sinceMs(t0);
    double ms = 0;
    long learned = listed < 0 || !sent ? -1 : untilSettled(bin, dir, listed + static_cast<long>(claimCount), t0, ms) - listed;
    if (learned < 0) {
        bench.notes.push_back("wire: the flood of claims could not be sent or listed");
        return;
    }
    double learning = std::max(ms - 1000, sendMs);
    bench.notes.push_back("wire: " + withThousands(sent.value()) + " forged claims sent from one host in " +
                          figure(sendMs) + " ms; " + withThousands(static_cast<uint64_t>(learned)) +
                          " listed, the last " + figure(ms) + " ms after the first was sent: " +
                          withThousands(static_cast<uint64_t>(static_cast<double>(learned) * 1000 / learning)) +
                          " claims learned a second (the 1 s detection time taken off)");
    measureChecks(bench, name, dir, bin, claimCount);
}

} // namespace ndbench
