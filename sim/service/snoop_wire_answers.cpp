// The wire's answers to neighbor solicitations: what NdAnswers asks of the switch, and the
// kernel kept in step with what it answers (the answer table's sets, the routes to the hosts of
// local-proxy sub-VLANs).
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

#include "snoop_wire.h"
#include "svc_items.h"
#include "wire_links.h"

namespace ndsvc {

namespace {

// The kernel's set of answered (port, target) holds at most this many: beyond, the service
// still answers but the solicitations are flooded too.
constexpr size_t kAnsweredCeiling = 65536;

} // namespace

// The switch as NdAnswers sees it, under the wire's lock.
class SnoopWire::Switch : public AnswerWorld {
public:
    explicit Switch(SnoopWire &wire) : wire_(wire) {}

    const SnoopBindingEntry *binding(const Address6 &address, uint16_t vlan) const override
    {
        const SnoopBindingEntry *b = wire_.table_.find(address, vlan);
        return b && b->state != SnoopBindingEntry::State::Tentative ? b : nullptr;
    }
    uint32_t vxlan_of(uint16_t vlan) const override
    {
        auto it = wire_.tunnels_.find(vlan);
        return it == wire_.tunnels_.end() ? 0 : it->second.vxlan;
    }
    bool routed(const Address6 &address, uint16_t &vlan) const override
    {
        WireRoute route = wire_route(address);
        if (!route.device)
            return false;
        vlan = 0;
        if (!route.local)
            for (const auto &[id, bridge] : wire_.bridges_)
                if (bridge.index == route.device)
                    vlan = id;
        return true;
    }
    bool interface_mac(uint16_t vlan, Mac48 &mac) const override
    {
        auto it = wire_.bridges_.find(vlan);
        if (it == wire_.bridges_.end())
            return false;
        mac = it->second.mac;
        return true;
    }
    bool interface_address(uint16_t vlan, Address6 &address) const override
    {
        auto it = wire_.bridges_.find(vlan);
        if (it == wire_.bridges_.end() || !it->second.hasAddress)
            return false;
        address = it->second.linkLocal;
        return true;
    }
    uint8_t *frame_buffer(size_t &capacity) override
    {
        capacity = sizeof frame_;
        return frame_;
    }
    Sent send(const std::string &device, const uint8_t *frame, size_t length) override
    {
        Mac48 to;
        memcpy(to.data(), frame, to.size());
        return wire_.sendLocked(device, to, frame, length);
    }
    Sent into_tunnel(uint16_t vlan, const uint8_t *frame, size_t length) override
    {
        auto it = wire_.tunnels_.find(vlan);
        if (it == wire_.tunnels_.end())
            return Sent::NoPort;
        Mac48 to;
        memcpy(to.data(), frame, to.size());
        return wire_.sendOn(wire_.tunnelFd_, it->second.index, to, frame, length);
    }

    void solicit(const Address6 &target, uint16_t vlan) override
    {
        packet::FrameAddress addr;
        if (!interface_mac(vlan, addr.eth_src) || !interface_address(vlan, addr.src))
            return;
        addr.dst = packet::solicited_node(target);
        addr.eth_dst = packet::multicast_mac(addr.dst);
        size_t length = packet::build_ns(addr, target, &addr.eth_src, frame_, sizeof frame_);
        for (const auto &[device, port] : wire_.ports_)
            if (length && port.vlan == vlan)
                wire_.sendLocked(device, addr.eth_dst, frame_, length);
    }

private:
    SnoopWire &wire_;
    uint8_t frame_[packet::kMaxBuiltFrame];
};

void SnoopWire::solicitedLocked(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, bool refused,
                                SnoopClock::time_point now)
{
    Switch world(*this);
    answers_.solicited(ns, device, vlan, refused, now, world);
}

void SnoopWire::answersTickLocked(SnoopClock::time_point now)
{
    Switch world(*this);
    answers_.tick(now, world);
}

void SnoopWire::configure_answers(const AnswerConfig &config)
{
    std::lock_guard<std::mutex> hold(mutex_);
    answerConfig_ = config;
    answerConfigLocked();
}

void SnoopWire::read_sub_vlans_with(SubVlanReader reader)
{
    std::lock_guard<std::mutex> hold(mutex_);
    subVlanReader_ = std::move(reader);
}

// The configuration with the sub-VLANs of the local-proxy super VLANs, applied when it changed.
void SnoopWire::answerConfigLocked()
{
    AnswerConfig config = answerConfig_;
    config.subVlanOf.clear();
    for (const auto &[sub, super] : subVlanSupers_)
        if (config.localProxy.count(super))
            config.subVlanOf[sub] = super;
    if (config == answers_.config())
        return;
    answers_.configure(config);
    applyAnswersLocked();
}

void SnoopWire::suppression_hosts(const std::vector<SuppressionChange> &changes)
{
    std::lock_guard<std::mutex> hold(mutex_);
    for (const SuppressionChange &c : changes)
        answers_.suppression_host(c.key, c.mac, c.add);
    suppressionChanged_ = suppressionChanged_ || !changes.empty();
}

std::array<uint32_t, kFastStatisticCount> SnoopWire::fast_statistics()
{
    std::lock_guard<std::mutex> hold(mutex_);
    return answers_.statistics();
}

void SnoopWire::clear_fast_statistics()
{
    std::lock_guard<std::mutex> hold(mutex_);
    answers_.clear_statistics();
}

// Whether the snooping table drops this message where it enters: the service must not answer
// what no host was meant to see.
bool SnoopWire::refusedLocked(const std::string &device, uint16_t vlan, const packet::NdPacket &p) const
{
    if (!snoopedLocked(device) || config_.trusted.count(device))
        return false;
    if (p.type != packet::NdType::NeighborSolicitation && p.type != packet::NdType::NeighborAdvertisement)
        return false;
    if (packet::is_dad(p))
        return false;
    bool solicitation = p.type == packet::NdType::NeighborSolicitation;
    const SnoopBindingEntry *b = table_.find(solicitation ? p.src : p.target, vlan);
    bool bound = b && b->state != SnoopBindingEntry::State::Tentative && b->port == device && b->mac == p.eth_src;
    if (bound && packet::lladdr_disagrees(p))
        return true;
    return !bound && !(solicitation && config_.nsLoose);
}

AnswerWorld::Sent SnoopWire::sendLocked(const std::string &device, const Mac48 &to, const uint8_t *frame,
                                        size_t length)
{
    auto it = ports_.find(device);
    if (it == ports_.end())
        return AnswerWorld::Sent::NoPort;
    return sendOn(it->second.fd, it->second.index, to, frame, length);
}

AnswerWorld::Sent SnoopWire::sendOn(int fd, int index, const Mac48 &to, const uint8_t *frame, size_t length)
{
    if (fd < 0)
        return AnswerWorld::Sent::NoPort;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = index;
    address.sll_halen = 6;
    memcpy(address.sll_addr, to.data(), to.size());
    ssize_t sent = sendto(fd, frame, length, 0, reinterpret_cast<sockaddr *>(&address), sizeof address);
    return sent == static_cast<ssize_t>(length) ? AnswerWorld::Sent::Ok : AnswerWorld::Sent::Failed;
}

void SnoopWire::applyAnswersLocked()
{
    const AnswerConfig &c = answers_.config();
    bool suppressing = false;
    for (const auto &[vlan, tunnel] : tunnels_)
        suppressing = suppressing || c.suppression.count(tunnel.vxlan);
    std::vector<SnoopBindingEntry> bound = boundLocked();
    bool wanted = (c.fastResponse && !bound.empty()) || !c.anywayVlans.empty() || suppressing;
    std::string error;
    if (!wanted) {
        if (answersInstalled_ && answerRules_.remove(error))
            answersInstalled_ = false;
        installedAnswered_.clear();
        installedAnyway_.clear();
        installedDiscard_.clear();
    } else if (!answersInstalled_) {
        if (answerRules_.install(error))
            answersInstalled_ = true;
        else
            fprintf(stderr, "ndsvc: answers: cannot install the kernel's table: %s\n", error.c_str());
    }
    if (answersInstalled_)
        syncAnsweredLocked(bound);
    syncRoutesLocked();
}

// Fast response answers an NS for a bound host that enters another port of the host's VLAN;
// proxy anyway answers every one on its VLAN's ports.
void SnoopWire::syncAnsweredLocked(const std::vector<SnoopBindingEntry> &bound)
{
    const AnswerConfig &c = answers_.config();
    std::set<AnsweredTarget> answered;
    std::set<std::string> anyway;
    for (const auto &[device, port] : ports_) {
        if (c.anywayVlans.count(port.vlan))
            anyway.insert(device);
        if (!c.fastResponse)
            continue;
        for (const SnoopBindingEntry &e : bound)
            if (e.vlan == port.vlan && e.port != device)
                answered.insert({device, e.address});
    }
    // The remote hosts of a suppressing instance are answered on every port of its VLAN; what
    // it does not know stays out of the tunnel with `missmatch discard`.
    std::set<std::string> discard;
    for (const auto &[vlan, tunnel] : tunnels_) {
        auto s = c.suppression.find(tunnel.vxlan);
        if (s == c.suppression.end())
            continue;
        if (s->second.missDiscard)
            discard.insert(tunnel.device);
        auto from = answers_.suppression_hosts().lower_bound({tunnel.vxlan, Address6{}});
        for (auto h = from; h != answers_.suppression_hosts().end() && h->first.first == tunnel.vxlan; ++h)
            for (const auto &[device, port] : ports_)
                if (port.vlan == vlan && answered.size() < kAnsweredCeiling)
                    answered.insert({device, h->first.second});
    }
    nft_sync_set(
        installedAnswered_, answered,
        [&](auto &added, auto &removed, std::string &error) {
            return answerRules_.change_answered(added, removed, error);
        },
        "answers", "answered targets");
    nft_sync_set(
        installedAnyway_, anyway,
        [&](auto &added, auto &removed, std::string &error) {
            return answerRules_.change_anyway(added, removed, error);
        },
        "answers", "proxy-anyway ports");
    nft_sync_set(
        installedDiscard_, discard,
        [&](auto &added, auto &removed, std::string &error) {
            return answerRules_.change_discard(added, removed, error);
        },
        "answers", "tunnels kept from solicitations");
}

// The switch reaches a host of a local-proxy sub-VLAN through that VLAN's interface.
void SnoopWire::syncRoutesLocked()
{
    // Without local proxy there is nothing to route, and nothing to take back.
    if (answers_.config().subVlanOf.empty() && installedRoutes_.empty())
        return;
    std::map<Address6, int> want;
    for (const auto &[address, vlan] : answers_.local_hosts())
        if (auto bridge = bridges_.find(vlan); bridge != bridges_.end())
            want[address] = bridge->second.index;
    std::string error;
    for (auto it = installedRoutes_.begin(); it != installedRoutes_.end();) {
        auto w = want.find(it->first);
        if (w == want.end() || w->second != it->second) {
            wire_host_route(false, it->first, it->second, error);
            it = installedRoutes_.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto &[address, index] : want)
        if (!installedRoutes_.count(address)) {
            if (wire_host_route(true, address, index, error))
                installedRoutes_[address] = index;
            else
                fprintf(stderr, "ndsvc: answers: no route to %s: %s\n", ip6_text(address).c_str(), error.c_str());
        }
}

} // namespace ndsvc
