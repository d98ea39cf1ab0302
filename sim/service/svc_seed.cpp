// The seed reader: dynamic state (learned user-binds, prefixes, counters, proxy addresses,
// VXLAN hosts, debug switches) and the platform's VXLAN ports from a JSON file, checked in
// full against the limits of the model before any of it is taken.
#include <algorithm>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "ndplat_ports.h"
#include "ndplat_vxlan.h"
#include "svc_items.h"

namespace ndsvc {

bool NdService::seed_file(const std::string &path, std::string *why)
{
    std::ifstream in(path);
    if (!in) {
        if (why)
            *why = "cannot read " + path;
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    return seed_text(text.str(), why);
}

namespace {

using nlohmann::json;

// Reads the fields of a seed file; the first fault is kept as "path: what is wrong".
class SeedReader {
public:
    const std::string &error() const { return error_; }

    bool fail(const std::string &path, const std::string &what)
    {
        if (error_.empty())
            error_ = path + ": " + what;
        return false;
    }

    // A whole number within low..high; `fallback` when the field is absent.
    bool number(const json &entry, const std::string &path, const char *key, int64_t low, int64_t high,
                int64_t fallback, int64_t &out)
    {
        const std::string at = path + "." + key;
        if (!entry.contains(key)) {
            out = fallback;
            return true;
        }
        return value(entry.at(key), at, low, high, out);
    }

    bool value(const json &v, const std::string &at, int64_t low, int64_t high, int64_t &out)
    {
        const std::string range = " is out of range " + std::to_string(low) + ".." + std::to_string(high);
        if (v.is_number_unsigned()) {
            const uint64_t u = v.get<uint64_t>();
            if (u > static_cast<uint64_t>(high) || static_cast<int64_t>(u) < low)
                return fail(at, v.dump() + range);
            out = static_cast<int64_t>(u);
            return true;
        }
        if (v.is_number_integer()) {
            const int64_t i = v.get<int64_t>();
            if (i < low || i > high)
                return fail(at, v.dump() + range);
            out = i;
            return true;
        }
        return fail(at, v.dump() + (v.is_number() ? " is not a whole number" : " is not a number"));
    }

    bool text(const json &entry, const std::string &path, const char *key, std::string &out)
    {
        if (!entry.contains(key))
            return true;
        const json &v = entry.at(key);
        if (!v.is_string())
            return fail(path + "." + key, v.dump() + " is not a text");
        out = v.get<std::string>();
        return true;
    }

    bool address(const json &entry, const std::string &path, const char *key, Ip6 &out)
    {
        if (!entry.contains(key))
            return fail(path + "." + key, "missing");
        const json &v = entry.at(key);
        if (!v.is_string() || !parse_ip6(v.get<std::string>(), out))
            return fail(path + "." + key, "bad IPv6 address " + v.dump());
        return true;
    }

    bool mac(const json &entry, const std::string &path, const char *key, Mac &out)
    {
        if (!entry.contains(key))
            return fail(path + "." + key, "missing");
        const json &v = entry.at(key);
        if (!v.is_string() || !parse_mac(v.get<std::string>(), out))
            return fail(path + "." + key, "bad MAC address " + v.dump());
        return true;
    }

    // Calls `each` with every entry of an optional list and its path ("name[i]").
    template <typename Fn> bool list(const json &doc, const char *name, Fn each)
    {
        if (!doc.contains(name))
            return true;
        const json &items = doc.at(name);
        if (!items.is_array())
            return fail(name, "not a list");
        for (size_t i = 0; i < items.size(); ++i) {
            const std::string path = std::string(name) + "[" + std::to_string(i) + "]";
            if (!items[i].is_object())
                return fail(path, "not an object");
            if (!each(items[i], path))
                return false;
        }
        return true;
    }

private:
    std::string error_;
};

constexpr int64_t kU32Max = UINT32_MAX;

// What one seed file holds, read in full before any of it is taken.
struct Seed {
    std::vector<UserBind> binds[2];
    std::vector<Prefix> prefixes;
    bool hasSnooping = false, hasForward = false;
    std::vector<Counters> snooping, forward;
    std::vector<ProxyAddress> proxies;
    std::map<VxlanKey, VxlanHost> hosts;
    std::map<VxlanKey, SuppressionHost> suppression;
    std::map<uint32_t, ndplat::Vxport> ports; // by port index
    bool hasDebug = false;
    uint32_t debug = 0;
};

bool read_user_binds(SeedReader &in, const json &doc, Seed &seed, const size_t (&held)[2])
{
    return in.list(doc, "dynamic_user_binds", [&](const json &e, const std::string &path) {
        UserBind ub;
        Ip6 base{};
        int64_t count = 0, vlan = 0, portId = 0;
        std::string part = "mpu";
        if (!in.address(e, path, "ip", base) || !in.mac(e, path, "mac", ub.mac) ||
            !in.number(e, path, "vlan", 1, kMaxVlanId, 1, vlan) || !in.text(e, path, "port", ub.port) ||
            !in.text(e, path, "part", part) ||
            !in.number(e, path, "count", 1, static_cast<int64_t>(kDynamicUserBindCeiling), 1, count))
            return false;
        if (part != "mpu" && part != "lpu")
            return in.fail(path + ".part", "\"" + part + "\" is neither \"mpu\" nor \"lpu\"");
        if (!in.number(e, path, "port_id", INT32_MIN, INT32_MAX, ndplat::port_id(ub.port), portId))
            return false;
        ub.vlan = static_cast<uint16_t>(vlan);
        ub.portId = static_cast<int32_t>(portId);
        ub.mpu = part == "mpu";
        std::vector<UserBind> &into = seed.binds[ub.mpu ? 0 : 1];
        const size_t room = kDynamicUserBindCeiling - std::min(kDynamicUserBindCeiling, held[ub.mpu ? 0 : 1] + into.size());
        if (static_cast<size_t>(count) > room)
            return in.fail(path + ".count", std::to_string(count) + " is more than the " + std::to_string(room) +
                                                " entries left of part \"" + part + "\" (at most " +
                                                std::to_string(kDynamicUserBindCeiling) + ")");
        for (int64_t n = 0; n < count; ++n) {
            ub.ip = add_to_address(base, static_cast<uint32_t>(n));
            into.push_back(ub);
        }
        return true;
    });
}

bool read_counters(SeedReader &in, const json &doc, const char *name, size_t values, std::vector<Counters> &out)
{
    return in.list(doc, name, [&](const json &e, const std::string &path) {
        Counters c;
        int64_t member = 0, instance = 0;
        if (!in.number(e, path, "member", 0, ndwire::stat::kMembers - 1, 0, member) ||
            !in.number(e, path, "instance", 0, ndwire::stat::kInstances - 1, 0, instance))
            return false;
        c.member = static_cast<uint8_t>(member);
        c.instance = static_cast<uint8_t>(instance);
        c.values.assign(values, 0);
        if (e.contains("counters")) {
            const json &list = e.at("counters");
            if (!list.is_array())
                return in.fail(path + ".counters", "not a list");
            if (list.size() > values)
                return in.fail(path + ".counters", std::to_string(list.size()) + " values, at most " +
                                                       std::to_string(values));
            for (size_t i = 0; i < list.size(); ++i) {
                int64_t v = 0;
                if (!in.value(list[i], path + ".counters[" + std::to_string(i) + "]", 0, kU32Max, v))
                    return false;
                c.values[i] = static_cast<uint32_t>(v);
            }
        }
        out.push_back(std::move(c));
        return true;
    });
}

// Both VXLAN tables: `fill` reads what is particular to one table into its host record.
template <typename Host, typename Fill>
bool read_vxlan_table(SeedReader &in, const json &doc, const char *name, size_t held, std::map<VxlanKey, Host> &out,
                      Fill fill)
{
    size_t made = 0;
    return in.list(doc, name, [&](const json &e, const std::string &path) {
        Host h;
        Ip6 base{};
        int64_t vxlan = 0, count = 0;
        if (!e.contains("vxlan"))
            return in.fail(path + ".vxlan", "missing");
        if (!in.number(e, path, "vxlan", 1, kMaxVxlanId, 0, vxlan) || !in.address(e, path, "ip", base) ||
            !in.mac(e, path, "mac", h.mac) || !fill(e, path, h) ||
            !in.number(e, path, "count", 1, static_cast<int64_t>(kVxlanTableCeiling), 1, count))
            return false;
        const size_t room = kVxlanTableCeiling - std::min(kVxlanTableCeiling, held + made);
        if (static_cast<size_t>(count) > room)
            return in.fail(path + ".count", std::to_string(count) + " is more than the " + std::to_string(room) +
                                                " entries left (at most " + std::to_string(kVxlanTableCeiling) +
                                                ")");
        made += static_cast<size_t>(count);
        VxlanKey key;
        key.first = static_cast<uint32_t>(vxlan);
        for (int64_t n = 0; n < count; ++n) {
            key.second = add_to_address(base, static_cast<uint32_t>(n));
            out[key] = h;
        }
        return true;
    });
}

bool read_prefixes(SeedReader &in, const json &doc, Seed &seed)
{
    return in.list(doc, "prefixes", [&](const json &e, const std::string &path) {
        Prefix p;
        int64_t length = 0, valid = 0, preferred = 0;
        if (!in.address(e, path, "prefix", p.prefix) || !in.number(e, path, "length", 0, kMaxPrefixLength, 64, length) ||
            !in.number(e, path, "valid", 0, kU32Max, 2592000, valid) ||
            !in.number(e, path, "preferred", 0, kU32Max, 604800, preferred))
            return false;
        p.length = static_cast<int32_t>(length);
        p.valid = static_cast<uint32_t>(valid);
        p.preferred = static_cast<uint32_t>(preferred);
        seed.prefixes.push_back(p);
        return true;
    });
}

bool read_proxies(SeedReader &in, const json &doc, Seed &seed)
{
    return in.list(doc, "proxy_addresses", [&](const json &e, const std::string &path) {
        ProxyAddress a;
        int64_t module = 0;
        if (!in.number(e, path, "module", 0, kU32Max, 0, module) || !in.address(e, path, "begin", a.begin) ||
            !in.address(e, path, "end", a.end))
            return false;
        a.module = static_cast<uint32_t>(module);
        seed.proxies.push_back(a);
        return true;
    });
}

bool read_hosts(SeedReader &in, const json &doc, Seed &seed, size_t held)
{
    return read_vxlan_table(in, doc, "vxlan_hosts", held, seed.hosts,
                            [&](const json &e, const std::string &path, VxlanHost &h) {
                                int64_t portIndex = 0;
                                if (!in.number(e, path, "port_index", 0, kU32Max, 0, portIndex))
                                    return false;
                                h.portIndex = static_cast<uint32_t>(portIndex);
                                return true;
                            });
}

bool read_suppression_hosts(SeedReader &in, const json &doc, Seed &seed, size_t held)
{
    return read_vxlan_table(in, doc, "suppression_hosts", held, seed.suppression,
                            [&](const json &e, const std::string &path, SuppressionHost &h) {
                                int64_t tunnelId = 0;
                                if (!in.number(e, path, "tunnel_id", 0, kU32Max, 0, tunnelId) ||
                                    !in.text(e, path, "tunnel_ip", h.tunnelIp))
                                    return false;
                                h.tunnelId = static_cast<uint32_t>(tunnelId);
                                return true;
                            });
}

// The VXLAN ports that hosts are learned on, for the platform's port table.
constexpr int64_t kMaxVxportIndex = 65535;

bool read_ports(SeedReader &in, const json &doc, Seed &seed)
{
    return in.list(doc, "vxlan_ports", [&](const json &e, const std::string &path) {
        ndplat::Vxport port;
        int64_t index = 0, vxlan = 0, svlan = 0, cvlan = 0;
        std::string name;
        for (const char *key : {"port_index", "vxlan", "port"})
            if (!e.contains(key))
                return in.fail(path + "." + key, "missing");
        if (!in.number(e, path, "port_index", 1, kMaxVxportIndex, 0, index) ||
            !in.number(e, path, "vxlan", 1, kMaxVxlanId, 0, vxlan) || !in.text(e, path, "port", name) ||
            !in.number(e, path, "svlan", 0, kMaxVlanId, 0, svlan) ||
            !in.number(e, path, "cvlan", 0, kMaxVlanId, 0, cvlan))
            return false;
        port.portId = ndplat::port_id(name);
        if (port.portId == 0 || !ndplat::port_find(port.portId))
            return in.fail(path + ".port", "\"" + name + "\" is no interface of the switch");
        port.vxlan = static_cast<uint32_t>(vxlan);
        port.svlan = static_cast<uint16_t>(svlan);
        port.cvlan = static_cast<uint16_t>(cvlan);
        port.origin = ndplat::VxportOrigin::Seed;
        seed.ports[static_cast<uint32_t>(index)] = port;
        return true;
    });
}

bool read_debug(SeedReader &in, const json &doc, Seed &seed)
{
    if (!doc.contains("debug"))
        return true;
    int64_t debug = 0;
    if (!in.value(doc.at("debug"), "debug", 0, ndwire::kDebugMaskAll, debug))
        return false;
    seed.hasDebug = true;
    seed.debug = static_cast<uint32_t>(debug);
    return true;
}

// What the state holds already, against the ceilings of the tables.
struct Held {
    size_t binds[2];
    size_t hosts, suppression;
};

bool read_seed(SeedReader &in, const json &doc, Seed &seed, const Held &held)
{
    seed.hasSnooping = doc.contains("snooping_statistics");
    seed.hasForward = doc.contains("forward_statistics");
    return read_user_binds(in, doc, seed, held.binds) && read_prefixes(in, doc, seed) &&
           read_counters(in, doc, "snooping_statistics", ndwire::stat::kSnoopingCounters, seed.snooping) &&
           read_counters(in, doc, "forward_statistics", ndwire::stat::kForwardCounters, seed.forward) &&
           read_proxies(in, doc, seed) && read_hosts(in, doc, seed, held.hosts) &&
           read_suppression_hosts(in, doc, seed, held.suppression) && read_ports(in, doc, seed) &&
           read_debug(in, doc, seed);
}

} // namespace

bool NdService::seed_text(const std::string &text, std::string *why)
{
    json doc = json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        if (why)
            *why = "not a JSON object";
        return false;
    }
    std::lock_guard<std::mutex> hold(stateMutex_);
    // Read and checked in full first: a refused seed leaves the state as it was.
    SeedReader in;
    Seed seed;
    const Held held = {{dynamicBinds_[0].size(), dynamicBinds_[1].size()}, hosts_.size(), suppression_.size()};
    if (!read_seed(in, doc, seed, held)) {
        if (why)
            *why = in.error();
        return false;
    }
    // The ports go to the platform's table shared with the shell; under their own origin they
    // never replace a port the operator configured.
    for (const auto &[index, port] : seed.ports) {
        std::string error;
        if (!ndplat::vxport_set(index, port, &error)) {
            if (why)
                *why = "vxlan_ports: port index " + std::to_string(index) + " cannot be stored: " + error;
            return false;
        }
    }
    for (size_t part = 0; part < 2; ++part)
        dynamicBinds_[part].insert(dynamicBinds_[part].end(), seed.binds[part].begin(), seed.binds[part].end());
    prefixes_.insert(prefixes_.end(), seed.prefixes.begin(), seed.prefixes.end());
    if (seed.hasSnooping)
        snoopingStats_ = std::move(seed.snooping);
    if (seed.hasForward)
        forwardStats_ = std::move(seed.forward);
    proxyAddresses_.insert(proxyAddresses_.end(), seed.proxies.begin(), seed.proxies.end());
    for (auto &entry : seed.hosts)
        hosts_[entry.first] = entry.second;
    for (auto &entry : seed.suppression)
        suppression_[entry.first] = entry.second;
    if (seed.hasDebug)
        debugMask_ = seed.debug;
    return true;
}

} // namespace ndsvc
