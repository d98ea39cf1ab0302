#include "wire_support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "nd_packet.h"
#include "test_support.h"

namespace wiretest {

namespace {

std::string readAll(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

} // namespace

WireSwitch::WireSwitch(int ports, const std::string &serviceArgs) : serviceArgs_(serviceArgs)
{
    // The lab is named after the test's scratch directory (/tmp/ndwire-<pid>/<n>).
    state_ = ndtest::fresh_scratch_dir("ndwire");
    name_ = state_.substr(strlen("/tmp/"));
    for (char &c : name_)
        if (c == '/')
            c = '-';
    ndlab::Result<ndlab::Lab> made = ndlab::Lab::create(name_, ports);
    if (!made) {
        why_ = "cannot make lab " + name_ + ": " + made.message();
        return;
    }
    lab_.emplace(std::move(made.value()));
}

WireSwitch::~WireSwitch()
{
    int status = -1;
    ndtest::run_capture({NDSVC_PATH, "--stop", "--state", state_}, status);
}

std::string WireSwitch::ndsh(const std::string &commands, int *status) const
{
    int s = -1;
    std::vector<std::string> argv = {"env", std::string("NDSIM_NDSVC=") + NDSVC_PATH,
                                     "NDSIM_NDSVC_ARGS=" + serviceArgs_, NDSH_PATH, "--state", state_,
                                     "--lab", name_, "-c", commands};
    std::string out = ndtest::run_capture(argv, s);
    if (status)
        *status = s;
    return out;
}

std::string WireSwitch::host(int k, const std::vector<std::string> &argv, int *status) const
{
    std::vector<std::string> full = {"ip", "netns", "exec", ndlab::host_namespace(name_, k)};
    full.insert(full.end(), argv.begin(), argv.end());
    int s = -1;
    std::string out = ndtest::run_capture(full, s);
    if (status)
        *status = s;
    return out;
}

std::string WireSwitch::mac(int k) const
{
    std::string m = host(k, {"cat", "/sys/class/net/eth0/address"});
    while (!m.empty() && m.back() == '\n')
        m.pop_back();
    return m;
}

std::string WireSwitch::dotted_mac(int k) const
{
    std::string m = mac(k), hex;
    for (char c : m)
        if (c != ':')
            hex += c;
    return hex.size() == 12 ? hex.substr(0, 4) + "." + hex.substr(4, 4) + "." + hex.substr(8, 4) : m;
}

bool WireSwitch::add_address(int k, const std::string &prefix) const
{
    int status = -1;
    host(k, {"ip", "-6", "addr", "add", prefix, "dev", "eth0"}, &status);
    return status == 0;
}

bool WireSwitch::settled(int k) const
{
    return within(std::chrono::seconds(4),
                  [&] { return host(k, {"ip", "-6", "addr", "show", "dev", "eth0", "tentative"}).empty(); });
}

int WireSwitch::forge(int k, const std::vector<std::string> &args) const
{
    std::vector<std::string> argv = {"/usr/bin/python3", FORGE_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    int status = -1;
    host(k, argv, &status);
    return status;
}

long WireSwitch::counter(const std::string &name, const std::string &show) const
{
    std::string shown = ndsh(show);
    size_t at = shown.find(name + ":");
    if (at == std::string::npos)
        return -1;
    return strtol(shown.c_str() + at + name.size() + 1, nullptr, 10);
}

std::string WireSwitch::service_log() const
{
    return readAll(state_ + "/ndsvc.log");
}

bool WireSwitch::remove_host(int k) const
{
    int status = -1;
    ndtest::run_capture({"ip", "netns", "del", ndlab::host_namespace(name_, k)}, status);
    return status == 0;
}

size_t WireSwitch::flood_dad(int k, size_t count) const
{
    ndsvc::packet::FrameAddress addr;
    unsigned m[6] = {};
    sscanf(mac(k).c_str(), "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]);
    for (size_t i = 0; i < 6; ++i)
        addr.eth_src[i] = static_cast<uint8_t>(m[i]);
    std::mt19937 random(static_cast<uint32_t>(getpid()));
    ndlab::Result<size_t> sent = ndlab::send_frames(name_, k, count, [&](size_t, uint8_t *buf, size_t capacity) {
        ndsvc::packet::Ip6 target = {0x20, 0x01, 0x0d, 0xb8, 0, 0x0f};
        uint32_t r = random();
        memcpy(target.data() + 12, &r, sizeof r);
        addr.dst = ndsvc::packet::solicited_node(target);
        addr.eth_dst = ndsvc::packet::multicast_mac(addr.dst);
        return ndsvc::packet::build_ns(addr, target, nullptr, buf, capacity);
    });
    return sent ? sent.value() : 0;
}

std::string WireSwitch::neighbour(int k, const std::string &address) const
{
    std::string line = host(k, {"ip", "-6", "neigh", "show", address});
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    return line;
}

void WireSwitch::flush_neighbours(int k) const
{
    host(k, {"ip", "-6", "neigh", "flush", "dev", "eth0"});
}

NsWatch::NsWatch(const WireSwitch &sw, int k, const std::string &target, const std::string &from)
    : NsWatch(ndlab::host_namespace(sw.lab(), k), ndlab::kHostDevice, target, from)
{
}

NsWatch::NsWatch(const std::string &netns, const std::string &device, const std::string &target,
                 const std::string &from)
    : namespace_(netns), device_(device), anySource_(from.empty())
{
    inet_pton(AF_INET6, target.c_str(), target_.data());
    if (!from.empty())
        inet_pton(AF_INET6, from.c_str(), from_.data());
    thread_ = std::thread(&NsWatch::watch, this);
    within(std::chrono::seconds(2), [&] { return ready_.load(); });
}

NsWatch::~NsWatch()
{
    stop_ = true;
    if (thread_.joinable())
        thread_.join();
}

int NsWatch::stop()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    stop_ = true;
    if (thread_.joinable())
        thread_.join();
    return seen_;
}

void NsWatch::watch()
{
    int ns = open(("/run/netns/" + namespace_).c_str(), O_RDONLY | O_CLOEXEC);
    if (ns < 0 || setns(ns, CLONE_NEWNET) != 0) {
        if (ns >= 0)
            close(ns);
        return;
    }
    close(ns);
    // Every protocol: only such a socket also sees the frames that a device sends.
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    if (fd < 0)
        return;
    sockaddr_ll at{};
    at.sll_family = AF_PACKET;
    at.sll_protocol = htons(ETH_P_ALL);
    at.sll_ifindex = static_cast<int>(if_nametoindex(device_.c_str()));
    timeval wait{0, 100000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    if (bind(fd, reinterpret_cast<sockaddr *>(&at), sizeof at) == 0)
        ready_ = true;
    uint8_t frame[2048];
    while (ready_ && !stop_) {
        ssize_t n = recv(fd, frame, sizeof frame, 0);
        ndsvc::packet::NdPacket p;
        if (n > 0 && ndsvc::packet::parse(frame, static_cast<size_t>(n), p) == ndsvc::packet::ParseResult::Ok &&
            p.type == ndsvc::packet::NdType::NeighborSolicitation && p.target == target_ &&
            (anySource_ || p.src == from_)) {
            ++seen_;
            if (p.eth_dst[0] & 1)
                ++multicast_;
        }
    }
    close(fd);
}

bool within(std::chrono::milliseconds limit, const std::function<bool()> &done)
{
    auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::string user_bind_row(const std::string &address, const std::string &dottedMac, int vlan, int port)
{
    char row[256];
    snprintf(row, sizeof row, "      %-40s%-20s%-11d%-15s%-11s%-5d\n", address.c_str(), dottedMac.c_str(), vlan,
             ("ge0/" + std::to_string(port)).c_str(), "dynamic", port);
    return row;
}

} // namespace wiretest
