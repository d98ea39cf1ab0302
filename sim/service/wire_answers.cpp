// Which neighbor solicitations the switch answers, and the advertisements it sends for them.
#include "wire_answers.h"

#include <algorithm>
#include <cstring>

namespace ndsvc {

namespace {

using packet::ParseResult;

bool optionError(ParseResult result)
{
    return result == ParseResult::ZeroLengthOption || result == ParseResult::OptionOverrun ||
           result == ParseResult::BadLinkLayerOption || result == ParseResult::BadPrefixOption;
}

bool within(const Address6 &address, const AnswerConfig::Range &range)
{
    return memcmp(address.data(), range.begin.data(), address.size()) >= 0 &&
           memcmp(address.data(), range.end.data(), address.size()) <= 0;
}

} // namespace

void NdAnswers::received(ParseResult result, const packet::NdPacket &p)
{
    // Past NotNd the parser has read the ICMPv6 type: the frame is an ND message.
    if (result != ParseResult::Ok && result <= ParseResult::NotNd)
        return;
    count(kRxNdCount);
    bool solicitation = p.type == packet::NdType::NeighborSolicitation;
    if (result == ParseResult::Ok) {
        if (solicitation)
            count(kRxNsCount);
        return;
    }
    count(kRxNdDrop);
    if (optionError(result))
        count(kRxNdOptError);
    if (result == ParseResult::MulticastTarget)
        count(kRxTargetMcast);
    if (!solicitation)
        return;
    count(kRxNsDecFail);
    if (result == ParseResult::DadNotToSolicitedNode || result == ParseResult::UnspecifiedWithLinkLayer)
        count(kRxNsBadDad);
}

void NdAnswers::heard(const Address6 &address, uint16_t vlan, SnoopClock::time_point now)
{
    if (packet::is_unspecified(address) || packet::is_link_local(address) || packet::is_multicast(address))
        return;
    if (heard_.size() >= kHeardCeiling && !heard_.count(address))
        return;
    heard_[address] = Heard{vlan, now};
}

void NdAnswers::solicited(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, bool refused,
                          SnoopClock::time_point now, AnswerWorld &world)
{
    if (refused) {
        count(kRxNdDrop);
        return;
    }
    // A host's own detection says where it is; the detection itself is left to the hosts.
    heard(packet::is_dad(ns) ? ns.target : ns.src, vlan, now);
    Answer answer;
    // Only multicast solicitations are answered: a unicast one checks that the target itself
    // is still there.
    bool multicast = !packet::is_dad(ns) && packet::is_solicited_node(ns.dst);
    if (multicast && forwarded(ns, vlan, world)) {
        count(kRxNsNoNapr);
        return;
    }
    if (!multicast || !decide(ns, device, vlan, world, answer)) {
        count(kRxNsNoNapr);
        if (!packet::is_dad(ns) && packet::is_solicited_node(ns.dst))
            seek(ns.target, vlan, now, world);
        return;
    }
    count(kRxNsNeedNa);
    count(answer.by);
    answer.device = device;
    answer.vlan = vlan;
    answer.askerMac = ns.eth_src;
    answer.asker = ns.src;
    answer.target = ns.target;
    if (answer.by == kRxNaprProxyAddr && delayed_.size() >= kDelayedCeiling) {
        count(kRxNaprFillFail);
        return;
    }
    if (answer.by == kRxNaprProxyAddr) {
        random_ ^= random_ << 13;
        random_ ^= random_ >> 17;
        random_ ^= random_ << 5;
        answer.due = now + kMaxRangeDelay * (random_ % 1000) / 1000;
        count(kRxNaprDelay);
        delayed_.push_back(answer);
        return;
    }
    send(answer, world);
}

void NdAnswers::suppression_host(const SuppressionKey &key, const Mac48 &mac, bool add)
{
    if (add)
        suppression_[key] = mac;
    else
        suppression_.erase(key);
}

bool NdAnswers::decide(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, AnswerWorld &world,
                       Answer &answer) const
{
    if (uint32_t vni = world.vxlan_of(vlan); vni && config_.suppression.count(vni))
        if (auto host = suppression_.find({vni, ns.target}); host != suppression_.end()) {
            answer.by = kRxNaprLocal;
            answer.mac = host->second;
            answer.onBehalf = true;
            return true;
        }
    if (config_.fastResponse)
        if (const SnoopBindingEntry *b = world.binding(ns.target, vlan); b && b->port != device) {
            answer.by = kRxNaprLocal;
            answer.mac = b->mac;
            answer.onBehalf = true;
            return true;
        }
    FastStatistic by = kRxNsNoNapr;
    if (!proxied(ns, vlan, world, by))
        return false;
    answer.by = by;
    answer.onBehalf = false;
    return true;
}

// With `unicast forward` an NS for a remote host of the suppression table is not answered: it
// goes into the tunnel as unicast to that host's MAC, so that the host alone sees it and
// answers itself. The kernel's answered set keeps the multicast original off every port.
bool NdAnswers::forwarded(const packet::NdPacket &ns, uint16_t vlan, AnswerWorld &world)
{
    uint32_t vni = world.vxlan_of(vlan);
    auto instance = config_.suppression.find(vni);
    if (!vni || instance == config_.suppression.end() || !instance->second.unicastForward)
        return false;
    auto host = suppression_.find({vni, ns.target});
    if (host == suppression_.end())
        return false;
    packet::FrameAddress addr;
    addr.eth_dst = host->second;
    addr.eth_src = ns.eth_src;
    addr.src = ns.src;
    addr.dst = ns.dst;
    size_t capacity = 0;
    uint8_t *frame = world.frame_buffer(capacity);
    const packet::Mac *lladdr = ns.has_source_lladdr ? &ns.source_lladdr : nullptr;
    size_t length = frame ? packet::build_ns(addr, ns.target, lladdr, frame, capacity) : 0;
    if (length)
        world.into_tunnel(vlan, frame, length);
    return true;
}

// The proxies answer for global addresses that are not the asker's own.
bool NdAnswers::proxied(const packet::NdPacket &ns, uint16_t vlan, AnswerWorld &world, FastStatistic &by) const
{
    if (packet::is_link_local(ns.target) || ns.target == ns.src)
        return false;
    uint16_t through = 0;
    if (config_.anywayVlans.count(vlan) ||
        (config_.proxyVlans.count(vlan) && world.routed(ns.target, through) && through != vlan)) {
        by = kRxNaprProxyIf;
        return true;
    }
    auto sub = config_.subVlanOf.find(vlan);
    auto host = heard_.find(ns.target);
    if (sub != config_.subVlanOf.end() && host != heard_.end() && host->second.vlan != vlan) {
        auto other = config_.subVlanOf.find(host->second.vlan);
        if (other != config_.subVlanOf.end() && other->second == sub->second) {
            by = kRxNaprProxyLoc;
            return true;
        }
    }
    for (const AnswerConfig::Range &range : config_.proxyRanges)
        if (within(ns.target, range)) {
            by = kRxNaprProxyAddr;
            return true;
        }
    return false;
}

// A solicited advertisement to the asker: on a bound host's behalf from its own address and MAC,
// overriding; from a proxy with the switch's MAC and address as a router, not overriding, so
// that the target's own answer wins where there is one.
void NdAnswers::send(const Answer &answer, AnswerWorld &world)
{
    packet::FrameAddress addr;
    addr.eth_dst = answer.askerMac;
    addr.dst = answer.asker;
    packet::NaFlags flags;
    flags.solicited = true;
    Mac48 mac = answer.mac;
    if (answer.onBehalf) {
        addr.src = answer.target;
        flags.override_flag = true;
    } else {
        flags.router = true;
        if (!world.interface_mac(answer.vlan, mac)) {
            count(kRxNaprFillFail);
            count(kTxGetLinkHdrFail);
            return;
        }
        if (!world.interface_address(answer.vlan, addr.src)) {
            count(kRxNaprFillFail);
            count(kTxGetSrcAddrFail);
            return;
        }
    }
    addr.eth_src = mac;
    size_t capacity = 0;
    uint8_t *frame = world.frame_buffer(capacity);
    size_t length = frame ? packet::build_na(addr, answer.target, flags, &mac, frame, capacity) : 0;
    if (!length) {
        count(kRxNaprFillFail);
        count(kTxNewBufFail);
        return;
    }
    switch (world.send(answer.device, frame, length)) {
    case AnswerWorld::Sent::Ok:
        count(kTxNaCount);
        break;
    case AnswerWorld::Sent::NoPort:
        count(kRxNaprFillFail);
        count(kTxGetLinkHdrFail);
        break;
    case AnswerWorld::Sent::Failed:
        count(kTxNaFail);
        break;
    }
}

// A local proxy that has not heard of the target asks the other sub-VLANs of the asker's super
// VLAN; the asker's next NS finds it heard.
void NdAnswers::seek(const Address6 &target, uint16_t vlan, SnoopClock::time_point now, AnswerWorld &world)
{
    auto sub = config_.subVlanOf.find(vlan);
    if (sub == config_.subVlanOf.end() || packet::is_link_local(target) || heard_.count(target))
        return;
    auto last = sought_.find(target);
    if (last != sought_.end() && now - last->second < kSeekEvery)
        return;
    if (last == sought_.end() && sought_.size() >= kHeardCeiling)
        return;
    sought_[target] = now;
    for (const auto &[other, super] : config_.subVlanOf)
        if (super == sub->second && other != vlan)
            world.solicit(target, other);
}

void NdAnswers::tick(SnoopClock::time_point now, AnswerWorld &world)
{
    std::vector<Answer> due;
    for (auto it = delayed_.begin(); it != delayed_.end();) {
        if (it->due <= now) {
            due.push_back(*it);
            it = delayed_.erase(it);
        } else {
            ++it;
        }
    }
    for (const Answer &answer : due)
        send(answer, world);
    for (auto it = heard_.begin(); it != heard_.end();)
        it = now - it->second.at > kHostMemory ? heard_.erase(it) : std::next(it);
    for (auto it = sought_.begin(); it != sought_.end();)
        it = now - it->second >= kSeekEvery ? sought_.erase(it) : std::next(it);
}

std::map<Address6, uint16_t> NdAnswers::local_hosts() const
{
    std::map<Address6, uint16_t> hosts;
    for (const auto &[address, h] : heard_)
        if (config_.subVlanOf.count(h.vlan))
            hosts[address] = h.vlan;
    return hosts;
}

} // namespace ndsvc
