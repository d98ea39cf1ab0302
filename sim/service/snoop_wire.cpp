// ND snooping on the wire: the ports' packet sockets, learning and detection, and the kernel's
// table kept in step with the configuration and the bindings.
#include "snoop_wire.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "nd_packet.h"
#include "svc_items.h"
#include "wire_links.h"

namespace ndsvc {

namespace {

constexpr const char *kDevicePrefix = "ge0-";
constexpr const char *kPortPrefix = "gigabitethernet0/";
constexpr const char *kShortPortPrefix = "ge0/";
constexpr const char *kBridgePrefix = "vlan";
constexpr const char *kTunnelPrefix = "vx"; // a VXLAN device "vxN" of instance N, in a VLAN's bridge
constexpr auto kTick = std::chrono::milliseconds(100);
constexpr auto kPortsEvery = std::chrono::milliseconds(500);
constexpr uint32_t kAttackLinesPerSecond = 10;
constexpr int kPortReceiveBuffer = 8 << 20;
constexpr int kPacketThreadNice = 10;
// Hosts of the VXLAN local host table, over all instances: a flood of addresses stops there.
constexpr size_t kVxlanHostCeiling = 65536;

SnoopBinding ruleBinding(const std::string &device, const Mac48 &mac, const Address6 &address)
{
    SnoopBinding b;
    b.port = device;
    b.mac = mac;
    b.ip6 = address;
    return b;
}

std::string bindingKey(const SnoopBinding &b)
{
    return b.port + " " + mac_colon_text(b.mac) + " " + ip6_text(b.ip6);
}

// A packet socket that reads the frames entering one device. It must take every protocol: a
// bridge port's frames reach only the taps of all protocols, which see them before the bridge
// takes them.
int openPortSocket(int index)
{
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
    if (fd < 0)
        return -1;
    sockaddr_ll addr{};
    addr.sll_family = AF_PACKET;
    addr.sll_protocol = htons(ETH_P_ALL);
    addr.sll_ifindex = index;
    int one = 1;
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one) != 0) {
        close(fd);
        return -1;
    }
    // Room for a burst: a host's flood of claims is read, not lost in the socket. Beyond the
    // system's limit only with the right to exceed it (the service runs as root in a lab).
    int room = kPortReceiveBuffer;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    return fd;
}

// The statistics that the kernel's table counts, and the counter of each; the service counts the
// detection probes itself.
constexpr std::pair<SnoopStatistic, SnoopCounter> kKernelCounters[] = {
    {kDadPacketDeal, SnoopCounter::dadPacketDeal},
    {kNsPacketPass, SnoopCounter::nsPacketPass},
    {kNsPacketDrop, SnoopCounter::nsPacketDrop},
    {kNaPacketPass, SnoopCounter::naPacketPass},
    {kNaPacketDrop, SnoopCounter::naPacketDrop},
    {kRsPacketPass, SnoopCounter::rsPacketPass},
    {kRaPacketPass, SnoopCounter::raPacketPass},
    {kRaPacketDrop, SnoopCounter::raPacketDrop},
    {kRdPacketPass, SnoopCounter::rdPacketPass},
    {kRdPacketDrop, SnoopCounter::rdPacketDrop},
    {kLladdrInvalid, SnoopCounter::lladdrInvalid},
};

// The address whose host sent an ND message: the target of its own detection, the source of
// its NS, or the target of its overriding NA (a proxy's answer does not override).
const Address6 *hostOf(const packet::NdPacket &p)
{
    if (p.type == packet::NdType::NeighborSolicitation)
        return packet::is_dad(p) ? &p.target : &p.src;
    if (p.type == packet::NdType::NeighborAdvertisement && p.override_flag)
        return &p.target;
    return nullptr;
}

} // namespace

std::string SnoopWire::device_of(const std::string &portName)
{
    // The port manager's full name, or the short one the listings use.
    for (const char *prefix : {kPortPrefix, kShortPortPrefix})
        if (portName.rfind(prefix, 0) == 0)
            return kDevicePrefix + portName.substr(strlen(prefix));
    return "";
}

std::string SnoopWire::port_of(const std::string &device)
{
    if (device.rfind(kDevicePrefix, 0) != 0)
        return device;
    return kPortPrefix + device.substr(strlen(kDevicePrefix));
}

SnoopWire::SnoopWire(size_t ceiling) : table_(ceiling), vxlanHosts_(kVxlanHostCeiling) {}

SnoopWire::~SnoopWire()
{
    stopping_ = true;
    if (wake_ >= 0) {
        uint64_t one = 1;
        ssize_t ignored = write(wake_, &one, sizeof one);
        (void)ignored;
    }
    if (thread_.joinable())
        thread_.join();
    closePorts();
    if (tunnelFd_ >= 0)
        close(tunnelFd_);
    if (wake_ >= 0)
        close(wake_);
    if (linkEvents_ >= 0)
        close(linkEvents_);
    std::string error;
    if (installed_)
        rules_.remove(error);
    if (answersInstalled_)
        answerRules_.remove(error);
    for (const auto &[address, index] : installedRoutes_)
        wire_host_route(false, address, index, error);
}

bool SnoopWire::start(std::string &error)
{
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) {
        error = std::string("no eventfd: ") + strerror(errno);
        return false;
    }
    linkEvents_ = wire_link_events(error);
    if (linkEvents_ < 0)
        return false;
    // Protocol 0: a socket that sends and is given nothing to read.
    tunnelFd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (tunnelFd_ < 0) {
        error = std::string("no packet socket for the tunnels: ") + strerror(errno);
        return false;
    }
    {
        std::lock_guard<std::mutex> hold(mutex_);
        refreshPorts();
        if (ports_.empty()) {
            error = "no port ge0-K in this network namespace";
            return false;
        }
        // Tables left by a service that was killed go: nothing is snooped or answered until
        // configured.
        rules_.remove(error);
        answerRules_.remove(error);
    }
    // The switch routes between its VLAN interfaces, as the proxies need.
    if (FILE *f = fopen("/proc/sys/net/ipv6/conf/all/forwarding", "w")) {
        fputs("1\n", f);
        fclose(f);
    }
    thread_ = std::thread(&SnoopWire::run, this);
    return true;
}

void SnoopWire::configure(const SnoopConfig &config)
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (config == config_)
        return;
    // Static bindings that went, or came, change the learned table too.
    for (const SnoopConfig::Static &s : config_.statics)
        table_.remove_static(s.address, s.vlan);
    for (const SnoopConfig::Static &s : config.statics)
        table_.add_static(s.address, s.mac, s.vlan, s.port);
    if (!config.enabled) {
        table_.clear_learned();
        prefixes_.clear();
    } else
        for (uint16_t vlan : config_.vlans)
            if (!config.vlans.count(vlan))
                table_.clear_learned(vlan);
    config_ = config;
    applyLocked();
}

std::vector<SnoopBindingEntry> SnoopWire::learned() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return table_.of_state(SnoopBindingEntry::State::Valid);
}

void SnoopWire::clear_learned(uint16_t vlan)
{
    std::lock_guard<std::mutex> hold(mutex_);
    table_.clear_learned(vlan);
    applyLocked();
}

std::array<uint32_t, kSnoopStatisticCount> SnoopWire::statistics()
{
    std::lock_guard<std::mutex> hold(mutex_);
    std::array<uint64_t, kSnoopStatisticCount> sum = own_;
    std::map<SnoopCounter, uint64_t> kernel;
    std::string error;
    if (installed_ && rules_.counters(kernel, error))
        for (const auto &[statistic, counter] : kKernelCounters)
            sum[statistic] += kernel[counter];
    std::array<uint32_t, kSnoopStatisticCount> out{};
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<uint32_t>(sum[i]);
    return out;
}

void SnoopWire::clear_statistics()
{
    std::lock_guard<std::mutex> hold(mutex_);
    own_.fill(0);
    std::string error;
    if (installed_)
        rules_.reset_counters(error);
}

// ---- the kernel's table ---------------------------------------------------------------------

bool SnoopWire::snoopedLocked(const std::string &device) const
{
    auto it = ports_.find(device);
    return config_.enabled && it != ports_.end() && it->second.vlan && config_.vlans.count(it->second.vlan);
}

void SnoopWire::applyLocked()
{
    std::set<std::pair<std::string, bool>> wantPorts;
    for (const auto &[device, port] : ports_)
        if (snoopedLocked(device))
            wantPorts.insert({device, config_.trusted.count(device) != 0});
    if (wantPorts.empty()) {
        std::string error;
        if (installed_ && rules_.remove(error))
            installed_ = false;
        forgetInstalledLocked();
    } else if ((installed_ && installedLoose_ == config_.nsLoose) || installTableLocked()) {
        syncPortsLocked(wantPorts);
        syncBindingsLocked();
    }
    applyAnswersLocked();
}

void SnoopWire::forgetInstalledLocked()
{
    installedPorts_.clear();
    installedBindings_.clear();
    installedHosts_.clear();
}

bool SnoopWire::installTableLocked()
{
    // A new table starts its counters at zero: what the old one counted is kept.
    std::string error;
    std::map<SnoopCounter, uint64_t> kernel;
    if (installed_ && rules_.counters(kernel, error))
        for (const auto &[statistic, counter] : kKernelCounters)
            own_[statistic] += kernel[counter];
    if (!rules_.install(config_.nsLoose, error)) {
        fprintf(stderr, "ndsvc: snooping: cannot install the kernel's table: %s\n", error.c_str());
        return false;
    }
    installed_ = true;
    installedLoose_ = config_.nsLoose;
    forgetInstalledLocked();
    return true;
}

void SnoopWire::syncPortsLocked(const std::set<std::pair<std::string, bool>> &wantPorts)
{
    std::string error;
    for (const auto &p : installedPorts_)
        if (!wantPorts.count(p) && !wantPorts.count({p.first, !p.second}))
            rules_.delete_port(p.first, error);
    for (const auto &p : wantPorts)
        if (!installedPorts_.count(p))
            rules_.add_port(p.first, p.second, error);
    installedPorts_ = wantPorts;
}

std::vector<SnoopBindingEntry> SnoopWire::boundLocked() const
{
    std::vector<SnoopBindingEntry> bound = table_.of_state(SnoopBindingEntry::State::Valid);
    std::vector<SnoopBindingEntry> statics = table_.of_state(SnoopBindingEntry::State::Static);
    bound.insert(bound.end(), statics.begin(), statics.end());
    return bound;
}

// The kernel's sets of bindings and of bound hosts made equal to the valid and static bindings.
void SnoopWire::syncBindingsLocked()
{
    std::string error;
    std::map<std::string, SnoopBinding> wantBindings;
    std::set<std::pair<std::string, Mac48>> wantHosts;
    for (const SnoopBindingEntry &e : boundLocked()) {
        SnoopBinding b = ruleBinding(e.port, e.mac, e.address);
        wantBindings[bindingKey(b)] = b;
        wantHosts.insert({b.port, b.mac});
    }
    // The changes go to the kernel in one transaction each: a flood's bindings become valid
    // together.
    std::vector<SnoopBinding> added, removed;
    for (auto it = installedBindings_.begin(); it != installedBindings_.end();) {
        if (!wantBindings.count(it->first)) {
            removed.push_back(it->second);
            it = installedBindings_.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto &[key, b] : wantBindings)
        if (!installedBindings_.count(key)) {
            added.push_back(b);
            installedBindings_[key] = b;
        }
    if (!rules_.change_bindings(added, removed, error))
        fprintf(stderr, "ndsvc: snooping: cannot change the kernel's bindings: %s\n", error.c_str());
    nft_sync_set(
        installedHosts_, wantHosts,
        [&](auto &added, auto &removed, std::string &why) { return rules_.change_hosts(added, removed, why); },
        "snooping", "hosts");
}

// ---- ports and packets ----------------------------------------------------------------------

void SnoopWire::closePorts()
{
    for (auto &[device, port] : ports_)
        if (port.fd >= 0)
            close(port.fd);
    ports_.clear();
}

void SnoopWire::refreshPorts()
{
    std::vector<WireLink> links;
    std::string error;
    if (!wire_links(links, error))
        return;
    std::map<std::string, Port> now;
    std::map<int, Address6> linkLocals;
    wire_link_locals(linkLocals, error);
    bridges_.clear();
    tunnels_.clear();
    for (const WireLink &l : links) {
        if (l.name.rfind(kBridgePrefix, 0) == 0 && l.masterIndex == 0) {
            Bridge &b = bridges_[static_cast<uint16_t>(atoi(l.name.c_str() + strlen(kBridgePrefix)))];
            b.index = l.index;
            b.mac = l.mac;
            auto linkLocal = linkLocals.find(l.index);
            b.hasAddress = linkLocal != linkLocals.end();
            if (b.hasAddress)
                b.linkLocal = linkLocal->second;
        }
        if (l.name.rfind(kTunnelPrefix, 0) == 0 && l.master.rfind(kBridgePrefix, 0) == 0)
            tunnels_[static_cast<uint16_t>(atoi(l.master.c_str() + strlen(kBridgePrefix)))] = Tunnel{
                static_cast<uint32_t>(strtoul(l.name.c_str() + strlen(kTunnelPrefix), nullptr, 10)), l.name, l.index};
        if (l.name.rfind(kDevicePrefix, 0) != 0)
            continue;
        Port p;
        p.index = l.index;
        if (l.master.rfind(kBridgePrefix, 0) == 0)
            p.vlan = static_cast<uint16_t>(atoi(l.master.c_str() + strlen(kBridgePrefix)));
        auto old = ports_.find(l.name);
        if (old != ports_.end() && old->second.index == l.index) {
            p.fd = old->second.fd;
            old->second.fd = -1;
        } else {
            p.fd = openPortSocket(l.index);
        }
        now[l.name] = p;
    }
    closePorts();
    ports_ = std::move(now);
}

void SnoopWire::run()
{
    // Packet work yields the processor to the control plane: a flood on the wire must not slow
    // the requests of the shells.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kPacketThreadNice);
    SnoopClock::time_point nextPorts = SnoopClock::now() + kPortsEvery;
    while (!stopping_) {
        std::vector<pollfd> fds;
        std::vector<std::pair<std::string, Port>> polled;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            for (const auto &[device, port] : ports_)
                if (port.fd >= 0) {
                    fds.push_back({port.fd, POLLIN, 0});
                    polled.push_back({device, port});
                }
        }
        fds.push_back({wake_, POLLIN, 0});
        fds.push_back({linkEvents_, POLLIN, 0});
        int ready = poll(fds.data(), fds.size(), static_cast<int>(kTick.count()));
        // A port that moved to another VLAN is seen before the frames it sends from there, and an
        // interface's address as soon as it can be used.
        if (ready > 0 && (fds.back().revents & POLLIN)) {
            wire_link_events_drain(linkEvents_);
            std::lock_guard<std::mutex> hold(mutex_);
            refreshPortsLocked();
        }
        if (ready > 0)
            for (size_t i = 0; i < polled.size(); ++i)
                if (fds[i].revents & POLLIN)
                    receive(polled[i].first, polled[i].second);
        SnoopClock::time_point now = SnoopClock::now();
        std::lock_guard<std::mutex> hold(mutex_);
        if (now >= nextPorts) {
            refreshPortsLocked();
            if (subVlanReader_) {
                subVlanSupers_ = subVlanReader_();
                answerConfigLocked();
            }
            if (accessPortReader_)
                vxlanHosts_.access_ports(accessPortReader_());
            nextPorts = now + kPortsEvery;
        }
        tick(now);
    }
}

void SnoopWire::refreshPortsLocked()
{
    auto vlans = [this] {
        std::map<std::string, uint16_t> of;
        for (const auto &[device, port] : ports_)
            of[device] = port.vlan;
        return std::make_pair(of, tunnels_);
    };
    auto before = vlans();
    refreshPorts();
    if (vlans() != before)
        applyLocked();
}

void SnoopWire::receive(const std::string &device, const Port &port)
{
    uint8_t frame[2048];
    for (int burst = 0; burst < 64; ++burst) {
        ssize_t n = recv(port.fd, frame, sizeof frame, 0);
        if (n <= 0)
            return;
        packet::NdPacket p;
        packet::ParseResult result = packet::parse(frame, static_cast<size_t>(n), p);
        std::lock_guard<std::mutex> hold(mutex_);
        auto current = ports_.find(device);
        uint16_t vlan = current != ports_.end() ? current->second.vlan : 0;
        if (!vlan)
            continue;
        answers_.received(result, p);
        if (result != packet::ParseResult::Ok)
            continue;
        SnoopClock::time_point now = SnoopClock::now();
        bool refused = refusedLocked(device, vlan, p);
        if (snoopedLocked(device))
            snoopLocked(device, vlan, p, refused, now);
        if (const Address6 *host = hostOf(p); host && !refused)
            vxlanHosts_.heard(device, vlan, *host, p.eth_src, now);
        if (p.type == packet::NdType::NeighborSolicitation) {
            solicitedLocked(p, device, vlan, refused, now);
        } else if (p.type == packet::NdType::NeighborAdvertisement && !refused) {
            answers_.heard(p.target, vlan, now);
        }
    }
}

// `refused`: the kernel's table drops this message where it enters (refusedLocked).
void SnoopWire::snoopLocked(const std::string &device, uint16_t vlan, const packet::NdPacket &p, bool refused,
                            SnoopClock::time_point now)
{
    bool trusted = config_.trusted.count(device) != 0;
    Mac48 mac = p.eth_src;
    switch (p.type) {
    case packet::NdType::NeighborSolicitation:
        if (packet::is_dad(p)) {
            if (!trusted && table_.claim(p.target, mac, vlan, device, now) == SnoopBindingTable::Claim::Owned)
                attackLogLocked("duplicate address claim", device, mac, p.target);
        } else if (refused) {
            attackLogLocked("dropped NS", device, mac, p.src);
        }
        break;
    case packet::NdType::NeighborAdvertisement:
        table_.advertised(p.target, mac, vlan, device);
        if (refused)
            attackLogLocked("dropped NA", device, mac, p.target);
        break;
    case packet::NdType::RouterAdvertisement:
        if (!trusted)
            attackLogLocked("dropped RA", device, mac, p.src);
        else
            learnPrefixesLocked(&p, now);
        break;
    case packet::NdType::Redirect:
        if (!trusted)
            attackLogLocked("dropped redirect", device, mac, p.src);
        break;
    case packet::NdType::RouterSolicitation:
        break;
    }
}

void SnoopWire::learnPrefixesLocked(const void *packet, SnoopClock::time_point now)
{
    const auto &p = *static_cast<const packet::NdPacket *>(packet);
    for (size_t i = 0; i < p.prefix_count; ++i) {
        const packet::PrefixInfo &info = p.prefixes[i];
        std::pair<Address6, uint8_t> key{info.prefix, info.length};
        if (info.valid_lifetime == 0)
            prefixes_.erase(key);
        else
            prefixes_[key] = Announced{info.valid_lifetime, info.preferred_lifetime, now};
    }
}

namespace {

constexpr uint32_t kForever = 0xffffffffu;

uint64_t secondsSince(SnoopClock::time_point at, SnoopClock::time_point now)
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now - at).count());
}

// What is left of a lifetime announced `elapsed` seconds ago.
uint32_t leftOf(uint32_t lifetime, uint64_t elapsed)
{
    if (lifetime == kForever)
        return kForever;
    return elapsed >= lifetime ? 0 : static_cast<uint32_t>(lifetime - elapsed);
}

} // namespace

std::vector<SnoopWire::LearnedPrefix> SnoopWire::prefixes() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    SnoopClock::time_point now = SnoopClock::now();
    std::vector<LearnedPrefix> out;
    for (const auto &[key, a] : prefixes_) {
        uint64_t elapsed = secondsSince(a.at, now);
        if (leftOf(a.valid, elapsed) == 0)
            continue;
        out.push_back(LearnedPrefix{key.first, key.second, leftOf(a.valid, elapsed), leftOf(a.preferred, elapsed)});
    }
    return out;
}

void SnoopWire::clear_prefixes(const Address6 *prefix, uint8_t length)
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (!prefix)
        prefixes_.clear();
    else
        prefixes_.erase({*prefix, length});
}

void SnoopWire::tick(SnoopClock::time_point now)
{
    for (auto it = prefixes_.begin(); it != prefixes_.end();) {
        it = leftOf(it->second.valid, secondsSince(it->second.at, now)) == 0 ? prefixes_.erase(it) : std::next(it);
    }
    bool changed = !table_.promote(now).empty();
    if (config_.interval && config_.retransmit) {
        std::vector<SnoopBindingEntry> expired;
        for (const SnoopBindingEntry &b :
             table_.probes_due(now, std::chrono::seconds(config_.interval), config_.retransmit, expired))
            sendProbeLocked(b);
        changed = changed || !expired.empty();
    }
    answersTickLocked(now);
    vxlanHosts_.tick(now);
    // Hosts heard since the last tick, or forgotten now, change the routes; the suppression
    // table's changes are handed to the kernel once a tick.
    if (changed || suppressionChanged_)
        applyLocked();
    else
        syncRoutesLocked();
    suppressionChanged_ = false;
}

// A duplicate address detection NS for the bound address, sent to the host's own MAC on its
// port from the switch's MAC in that VLAN: a host that holds the address defends it with an
// NA, which answers the probe.
void SnoopWire::sendProbeLocked(const SnoopBindingEntry &binding)
{
    packet::FrameAddress addr;
    addr.eth_dst = binding.mac;
    auto bridge = bridges_.find(binding.vlan);
    addr.eth_src = bridge != bridges_.end() ? bridge->second.mac : Mac48{0x02, 0, 0, 0, 0, 0x01};
    addr.src = {};
    addr.dst = packet::solicited_node(binding.address);
    uint8_t frame[packet::kMaxBuiltFrame];
    size_t length = packet::build_ns(addr, binding.address, nullptr, frame, sizeof frame);
    bool sent = length && sendLocked(binding.port, binding.mac, frame, length) == AnswerWorld::Sent::Ok;
    ++own_[sent ? kSendDtPktOk : kSendDtPktFail];
}

void SnoopWire::attackLogLocked(const char *what, const std::string &device, const Mac48 &mac,
                                const Address6 &address)
{
    if (!config_.attackLog)
        return;
    SnoopClock::time_point now = SnoopClock::now();
    if (now - lastLog_ >= std::chrono::seconds(1)) {
        lastLog_ = now;
        logsThisSecond_ = 0;
    }
    if (++logsThisSecond_ > kAttackLinesPerSecond)
        return;
    auto it = ports_.find(device);
    fprintf(stderr, "ndsvc: nd snooping attack: %s on %s vlan %u from %s for %s\n", what, port_of(device).c_str(),
            it == ports_.end() ? 0u : it->second.vlan, mac_colon_text(mac).c_str(), ip6_text(address).c_str());
}

} // namespace ndsvc
