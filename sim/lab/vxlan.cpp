// Two labs' switches joined by the kernel's VXLAN device: an underlay veth pair ul0 <-> ul0
// between the switch namespaces, and per VNI a device vxVNI in each switch, a port of one VLAN's
// bridge. The kernel does the tunnelling and the learning; this file only makes, reads and
// removes the devices. Each ul0 and vxVNI carries, as its interface alias, the switch namespace
// of the lab it joins: that is how a later join or leave knows which pair a device belongs to.
#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "internal.h"
#include "ndlab.h"

namespace ndlab {

namespace {

using detail::ip_do;
using detail::member;
using json = nlohmann::json;

constexpr std::string_view kVxlanPrefix = "vx";
constexpr const char *kUnderlayFirst = "192.0.2.1";
constexpr const char *kUnderlaySecond = "192.0.2.2";
constexpr const char *kUnderlayLength = "/24";
// Room for the 50 bytes of VXLAN over IPv4 around a full 1500-byte frame, so that the VXLAN
// devices keep the hosts' MTU and a bridge with one in it does not shrink to 1450.
constexpr const char *kUnderlayMtu = "1550";
constexpr const char *kVxlanMtu = "1500";

struct VxlanLink {
    std::string device;
    int vlan = 0; // V of the bridge it is in, 0 when in none
    std::string remote;
    std::string peer; // its alias: the switch namespace of the lab it joins
};

// What of the VXLAN joins a switch holds now.
struct JoinLinks {
    bool underlay = false;
    std::string underlayAddress; // "ADDR/LEN"
    std::string underlayPeer;    // its alias
    std::map<uint32_t, VxlanLink> vxlans;
    std::set<int> bridges; // V of vlanV
};

std::string text_of(const json &object, const char *key)
{
    const json *value = member(object, key, json::value_t::string);
    return value ? value->get<std::string>() : std::string();
}

void read_underlay(const json &link, JoinLinks &links)
{
    links.underlay = true;
    links.underlayPeer = text_of(link, "ifalias");
    if (const json *infos = member(link, "addr_info", json::value_t::array)) {
        for (const json &info : *infos) {
            const json *length = member(info, "prefixlen", json::value_t::number_unsigned);
            if (text_of(info, "family") == "inet" && length && links.underlayAddress.empty())
                links.underlayAddress = text_of(info, "local") + "/" + std::to_string(length->get<unsigned>());
        }
    }
}

Result<JoinLinks> read_join_links(const std::string &sw)
{
    const std::string what = "cannot list the links of " + sw;
    Result<std::string> text = detail::ip_read(what, {"-n", sw, "-d", "-j", "addr", "show"});
    if (!text)
        return Error{text.message()};
    Result<json> parsed = detail::parse_json(what, text.value());
    if (!parsed)
        return Error{parsed.message()};
    JoinLinks links;
    for (const json &link : parsed.value()) {
        const std::string name = text_of(link, "ifname");
        if (name == kUnderlayDevice) {
            read_underlay(link, links);
            continue;
        }
        if (std::optional<int> vlan = detail::numbered(name, detail::kBridgePrefix, kMinVlan, kMaxVlan))
            links.bridges.insert(*vlan);
        const json *info = member(link, "linkinfo", json::value_t::object);
        if (!info || text_of(*info, "info_kind") != "vxlan")
            continue;
        const json *data = member(*info, "info_data", json::value_t::object);
        const json *id = data ? member(*data, "id", json::value_t::number_unsigned) : nullptr;
        if (!id)
            continue;
        VxlanLink &vxlan = links.vxlans[id->get<uint32_t>()];
        vxlan.device = name;
        vxlan.vlan = detail::numbered(text_of(link, "master"), detail::kBridgePrefix, kMinVlan, kMaxVlan).value_or(0);
        vxlan.remote = text_of(*data, "remote");
        vxlan.peer = text_of(link, "ifalias");
    }
    return links;
}

// "lab X" for the switch namespace ndlab-X-sw, "another lab" for anything else.
std::string lab_of(const std::string &sw)
{
    std::optional<std::string> name = detail::lab_of_switch_namespace(sw);
    return name ? "lab " + *name : "another lab";
}

// An alias naming a lab's switch, when that switch still exists; "" otherwise.
std::string present_peer(const std::string &alias)
{
    return detail::lab_of_switch_namespace(alias) && detail::namespace_exists(alias) ? alias : std::string();
}

std::string or_dash(const std::string &text) { return text.empty() ? "-" : text; }

Status check_pair(std::string_view a, std::string_view b)
{
    if (Status valid = check_name(a); !valid)
        return valid;
    if (Status valid = check_name(b); !valid)
        return valid;
    if (a == b)
        return Error{"lab " + std::string(a) + " named twice: name two different labs"};
    return {};
}

// One side of a join: the lab, its switch and what it holds, the other side's switch.
struct Side {
    std::string name, sw, peer;
    JoinLinks links;
    int vlan = 0;
    std::string local, remote; // underlay addresses
};

// A lab is joined to one other lab at a time, and a VNI is joined once.
Status check_side(const Side &side, uint32_t vni)
{
    const std::string refusal = "lab " + side.name + " is already joined to ";
    const std::string rule = ": a lab is joined to one other lab at a time";
    if (side.links.underlay && side.links.underlayPeer != side.peer)
        return Error{refusal + lab_of(side.links.underlayPeer) + " (" + kUnderlayDevice + ")" + rule};
    for (const auto &[id, vxlan] : side.links.vxlans) {
        if (vxlan.peer != side.peer)
            return Error{refusal + lab_of(vxlan.peer) + " (" + vxlan.device + ")" + rule};
    }
    if (auto it = side.links.vxlans.find(vni); it != side.links.vxlans.end())
        return Error{"vni " + std::to_string(vni) + " is already joined: lab " + side.name + " has " + it->second.device};
    return {};
}

// What a join made, removed again unless the join is complete. Removing ul0 in one switch
// removes its peer in the other.
class JoinGuard {
public:
    JoinGuard() = default;
    JoinGuard(const JoinGuard &) = delete;
    JoinGuard &operator=(const JoinGuard &) = delete;
    ~JoinGuard()
    {
        for (auto it = made_.rbegin(); it != made_.rend() && !done_; ++it)
            (void)ip_do("", {"-n", it->first, "link", "del", it->second});
    }
    void made(const std::string &sw, const std::string &device) { made_.emplace_back(sw, device); }
    void done() { done_ = true; }

private:
    std::vector<std::pair<std::string, std::string>> made_;
    bool done_ = false;
};

// One end of the underlay, once the veth pair exists: IPv4 only, its peer named, up.
Status finish_underlay_end(const std::string &sw, const std::string &peer, const std::string &address)
{
    const std::string what = std::string("cannot set up ") + kUnderlayDevice + " in " + sw;
    if (Status alias = ip_do(what, {"-n", sw, "link", "set", kUnderlayDevice, "alias", peer}); !alias)
        return alias;
    if (Status off = detail::set_disable_ipv6(sw, kUnderlayDevice, true); !off)
        return Error{what + ": " + off.message()};
    if (Status added = ip_do(what, {"-n", sw, "addr", "add", address + kUnderlayLength, "dev", kUnderlayDevice}); !added)
        return added;
    return ip_do(what, {"-n", sw, "link", "set", kUnderlayDevice, "up"});
}

Status make_underlay(const Side &a, const Side &b, JoinGuard &guard, const Progress &progress)
{
    if (Status veth = ip_do(std::string("cannot add the underlay ") + kUnderlayDevice + " between " + a.sw + " and " + b.sw,
                            {"-n", a.sw, "link", "add", kUnderlayDevice, "mtu", kUnderlayMtu, "type", "veth", "peer",
                             "name", kUnderlayDevice, "mtu", kUnderlayMtu, "netns", b.sw});
        !veth)
        return veth;
    guard.made(a.sw, kUnderlayDevice);
    for (const Side *side : {&a, &b}) {
        if (Status done = finish_underlay_end(side->sw, side->peer, side->local); !done)
            return done;
    }
    if (progress)
        progress("underlay " + a.sw + " " + kUnderlayDevice + " " + a.local + kUnderlayLength + " <-> " + b.sw + " " +
                 kUnderlayDevice + " " + b.local + kUnderlayLength);
    return {};
}

Status make_vxlan(const Side &side, uint32_t vni, JoinGuard &guard, const Progress &progress)
{
    const std::string bridge = bridge_device(side.vlan);
    if (!side.links.bridges.count(side.vlan)) {
        Progress told = [&](const std::string &line) { progress(line + " in " + side.sw); };
        if (Status made = detail::make_bridge(side.name, side.vlan, progress ? told : Progress()); !made)
            return made;
        guard.made(side.sw, bridge);
    }
    const std::string device = vxlan_device(vni);
    const std::string what = "cannot add " + device + " to " + side.sw;
    if (Status added = ip_do(what, {"-n", side.sw, "link", "add", device, "mtu", kVxlanMtu, "type", "vxlan", "id", std::to_string(vni),
                                    "local", side.local, "remote", side.remote, "dstport", std::to_string(kVxlanPort), "learning"});
        !added)
        return added;
    guard.made(side.sw, device);
    if (Status alias = ip_do(what, {"-n", side.sw, "link", "set", device, "alias", side.peer}); !alias)
        return alias;
    // A bridge port, layer 2 only, as the switch's ge0-K are.
    if (Status off = detail::set_disable_ipv6(side.sw, device, true); !off)
        return Error{what + ": " + off.message()};
    if (Status in = ip_do(what, {"-n", side.sw, "link", "set", device, "master", bridge, "up"}); !in)
        return in;
    if (progress)
        progress("vxlan " + device + " vni " + std::to_string(vni) + " in " + side.sw + " bridge " + bridge + " remote " + side.remote);
    return {};
}

Result<Side> read_side(std::string_view name, std::string_view other, int vlan)
{
    Result<std::string> sw = detail::existing_switch(name);
    if (!sw)
        return Error{sw.message()};
    Side side;
    side.name = std::string(name);
    side.sw = sw.value();
    side.peer = switch_namespace(other);
    side.vlan = vlan;
    // The same addresses whichever order the two labs are named in.
    side.local = name < other ? kUnderlayFirst : kUnderlaySecond;
    side.remote = name < other ? kUnderlaySecond : kUnderlayFirst;
    Result<JoinLinks> links = read_join_links(side.sw);
    if (!links)
        return Error{links.message()};
    side.links = std::move(links.value());
    return side;
}

// The underlay goes with the last VNI of the pair.
Status remove_unused_underlay(const std::vector<Side> &sides, const Progress &progress)
{
    for (const Side &side : sides) {
        for (const auto &[id, vxlan] : side.links.vxlans) {
            if (vxlan.peer == side.peer)
                return {};
        }
    }
    const Side &side = sides.front();
    if (!side.links.underlay || side.links.underlayPeer != side.peer)
        return {};
    if (Status removed = ip_do(std::string("cannot remove the underlay ") + kUnderlayDevice + " from " + side.sw,
                               {"-n", side.sw, "link", "del", kUnderlayDevice});
        !removed)
        return removed;
    if (progress)
        progress("removed underlay " + side.sw + " " + kUnderlayDevice + " <-> " + side.peer + " " + kUnderlayDevice);
    return {};
}

} // namespace

namespace detail {

Status read_vxlan_state(const std::string &sw, LabState &state)
{
    Result<JoinLinks> links = read_join_links(sw);
    if (!links)
        return links.status();
    if (links.value().underlay)
        state.underlay = UnderlayState{links.value().underlayAddress, present_peer(links.value().underlayPeer)};
    for (const auto &[vni, link] : links.value().vxlans)
        state.vxlans.push_back(VxlanState{link.device, vni, link.vlan, link.remote, present_peer(link.peer)});
    return {};
}

std::string format_vxlan(const LabState &state)
{
    std::string text;
    if (state.underlay) {
        text += std::string("underlay ") + kUnderlayDevice + " address " + or_dash(state.underlay->address) + " peer " +
                or_dash(state.underlay->peer) + "\n";
    }
    for (const VxlanState &vxlan : state.vxlans) {
        text += "vxlan " + vxlan.device + " vni " + std::to_string(vxlan.vni) + " bridge " +
                (vxlan.vlan ? bridge_device(vxlan.vlan) : "-") + " remote " + or_dash(vxlan.remote) + " peer " +
                or_dash(vxlan.peer) + "\n";
    }
    return text;
}

} // namespace detail

std::string vxlan_device(uint32_t vni) { return std::string(kVxlanPrefix) + std::to_string(vni); }

Status check_vni(uint32_t vni)
{
    if (vni < kMinVni || vni > kMaxVni)
        return Error{"bad VNI " + std::to_string(vni) + ": use " + std::to_string(kMinVni) + " to " + std::to_string(kMaxVni)};
    return {};
}

Status vxlan_join(std::string_view a, std::string_view b, uint32_t vni, int vlanA, int vlanB, const Progress &progress)
{
    if (Status valid = check_pair(a, b); !valid)
        return valid;
    if (Status valid = check_vni(vni); !valid)
        return valid;
    for (int vlan : {vlanA, vlanB}) {
        if (Status valid = detail::check_vlan(vlan); !valid)
            return valid;
    }
    Result<Side> sideA = read_side(a, b, vlanA);
    if (!sideA)
        return sideA.status();
    Result<Side> sideB = read_side(b, a, vlanB);
    if (!sideB)
        return sideB.status();
    for (const Side *side : {&sideA.value(), &sideB.value()}) {
        if (Status free = check_side(*side, vni); !free)
            return free;
    }
    // The two ends of one veth pair: both there or both gone, unless taken apart by hand.
    if (sideA.value().links.underlay != sideB.value().links.underlay) {
        const Side &with = sideA.value().links.underlay ? sideA.value() : sideB.value();
        const Side &without = sideA.value().links.underlay ? sideB.value() : sideA.value();
        return Error{"lab " + with.name + " has an underlay " + kUnderlayDevice + " but lab " + without.name + " has none"};
    }
    JoinGuard guard;
    if (!sideA.value().links.underlay) {
        if (Status made = make_underlay(sideA.value(), sideB.value(), guard, progress); !made)
            return made;
    }
    for (const Side *side : {&sideA.value(), &sideB.value()}) {
        if (Status made = make_vxlan(*side, vni, guard, progress); !made)
            return made;
    }
    guard.done();
    return {};
}

Status vxlan_leave(std::string_view a, std::string_view b, uint32_t vni, const Progress &progress)
{
    if (Status valid = check_pair(a, b); !valid)
        return valid;
    if (Status valid = check_vni(vni); !valid)
        return valid;
    std::vector<Side> sides;
    for (auto [name, other] : {std::pair(a, b), std::pair(b, a)}) {
        // A lab deleted since the join left the other its device, which is removed here.
        if (!detail::namespace_exists(switch_namespace(name)))
            continue;
        Result<Side> side = read_side(name, other, 0);
        if (!side)
            return side.status();
        sides.push_back(std::move(side.value()));
    }
    if (sides.empty())
        return detail::existing_switch(a).status();
    bool joined = false;
    for (const Side &side : sides) {
        auto it = side.links.vxlans.find(vni);
        if (it == side.links.vxlans.end())
            continue;
        if (it->second.peer != side.peer)
            return Error{"lab " + side.name + "'s " + it->second.device + " is joined to " + lab_of(it->second.peer) + ", not " + lab_of(side.peer)};
        joined = true;
    }
    if (!joined)
        return Error{"no vni " + std::to_string(vni) + " between lab " + std::string(a) + " and lab " + std::string(b)};
    for (Side &side : sides) {
        auto it = side.links.vxlans.find(vni);
        if (it == side.links.vxlans.end())
            continue;
        const std::string device = it->second.device;
        if (Status removed = ip_do("cannot remove " + device + " from " + side.sw, {"-n", side.sw, "link", "del", device}); !removed)
            return removed;
        side.links.vxlans.erase(it);
        if (progress)
            progress("removed vxlan " + device + " from " + side.sw);
    }
    return remove_unused_underlay(sides, progress);
}

} // namespace ndlab
