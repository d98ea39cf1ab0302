#include "ndlab.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "internal.h"
#include "process.h"

namespace ndlab {

namespace {

using detail::kBridgePrefix;
using detail::kNamespacePrefix;
using detail::kSwitchSuffix;
using detail::Output;

constexpr std::string_view kHostPrefix = "h";
constexpr std::string_view kPortPrefix = "ge0-";
constexpr const char *kNetnsDir = "/var/run/netns/";
constexpr const char *kDefaultIp = "/usr/sbin/ip";
constexpr const char *kIpEnv = "NDLAB_IP";
constexpr const char *kSysctlIpv6 = "/proc/sys/net/ipv6/conf/";
constexpr const char *kDisableIpv6 = "/disable_ipv6";
constexpr int kCapSysAdmin = 21;
constexpr int kMaxPrefixLength = 128;
// What `ip` says when the kernel refuses for want of rights.
constexpr std::array<std::string_view, 2> kRightsErrors = {"Operation not permitted", "Permission denied"};

std::string rights_error(std::string_view reason)
{
    return "cannot create network namespaces: " + std::string(reason) + " (needs root or CAP_SYS_ADMIN)";
}

// A child's standard error as one line: its lines joined by "; ", blanks at the ends dropped.
std::string one_line(std::string_view text)
{
    std::string result;
    std::istringstream lines{std::string(text)};
    std::string line;
    while (std::getline(lines, line)) {
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos)
            continue;
        size_t last = line.find_last_not_of(" \t\r");
        if (!result.empty())
            result += "; ";
        result += line.substr(first, last - first + 1);
    }
    return result;
}

std::string failure_reason(const Output &output)
{
    std::string reason = one_line(output.err);
    if (reason.empty())
        reason = "exit status " + std::to_string(output.status);
    return reason;
}

// A whole string of decimal digits as a number within [min, max].
std::optional<int> parse_number(std::string_view text, int min, int max)
{
    if (text.empty() || text.size() > 9 || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    if (value < min || value > max)
        return std::nullopt;
    return value;
}

bool executable(const std::string &path) { return ::access(path.c_str(), X_OK) == 0; }

// Whether this process may make network namespaces: CAP_SYS_ADMIN in its effective set.
bool may_make_namespaces()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("CapEff:", 0) != 0)
            continue;
        unsigned long long caps = std::strtoull(line.c_str() + std::strlen("CapEff:"), nullptr, 16);
        return (caps >> kCapSysAdmin) & 1U;
    }
    return ::geteuid() == 0;
}

Result<Output> ip(std::vector<std::string> args)
{
    args.insert(args.begin(), ip_program());
    return detail::run_capture(args);
}

} // namespace

namespace detail {

// The number after `prefix` in `text`, when text is exactly prefix + a number in range.
std::optional<int> numbered(std::string_view text, std::string_view prefix, int min, int max)
{
    if (text.substr(0, prefix.size()) != prefix)
        return std::nullopt;
    std::string_view digits = text.substr(prefix.size());
    if (digits.size() > 1 && digits[0] == '0')
        return std::nullopt;
    return parse_number(digits, min, max);
}

bool namespace_exists(const std::string &netns)
{
    struct stat st {};
    return ::stat((kNetnsDir + netns).c_str(), &st) == 0;
}

// Runs ip; an error "<what>: <ip's complaint>" when it fails.
Status ip_do(const std::string &what, std::vector<std::string> args)
{
    Result<Output> output = ip(std::move(args));
    if (!output)
        return Error{what + ": " + output.message()};
    if (output.value().status != 0)
        return Error{what + ": " + failure_reason(output.value())};
    return {};
}

// Runs ip for its standard output.
Result<std::string> ip_read(const std::string &what, std::vector<std::string> args)
{
    Result<Output> output = ip(std::move(args));
    if (!output)
        return Error{what + ": " + output.message()};
    if (output.value().status != 0)
        return Error{what + ": " + failure_reason(output.value())};
    return std::move(output.value().out);
}

Status set_disable_ipv6(const std::string &netns, const std::string &conf, bool disable)
{
    return detail::write_in_namespace(netns, kSysctlIpv6 + conf + kDisableIpv6, disable ? "1" : "0");
}

const nlohmann::json *member(const nlohmann::json &object, const char *key, nlohmann::json::value_t type)
{
    if (!object.is_object())
        return nullptr;
    auto it = object.find(key);
    if (it == object.end() || it->type() != type)
        return nullptr;
    return &*it;
}

Result<nlohmann::json> parse_json(const std::string &what, const std::string &text)
{
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_array())
        return Error{what + ": ip's JSON output cannot be read"};
    return parsed;
}

Status check_vlan(int vlan)
{
    if (vlan < kMinVlan || vlan > kMaxVlan)
        return Error{"bad VLAN " + std::to_string(vlan) + ": use " + std::to_string(kMinVlan) + " to " + std::to_string(kMaxVlan)};
    return {};
}

// The switch namespace of an existing lab.
Result<std::string> existing_switch(std::string_view name)
{
    if (Status valid = check_name(name); !valid)
        return Error{valid.message()};
    std::string sw = switch_namespace(name);
    if (!namespace_exists(sw))
        return Error{"no lab " + std::string(name) + " (no namespace " + sw + ")"};
    return sw;
}

Status make_bridge(std::string_view name, int vlan, const Progress &progress)
{
    const std::string sw = switch_namespace(name);
    const std::string bridge = bridge_device(vlan);
    // Multicast snooping off: a VLAN floods the ND multicasts to every port, whatever MLD
    // reports its hosts have sent yet. The address is the switch's own, on every VLAN.
    if (Status added = ip_do("cannot add bridge " + bridge, {"-n", sw, "link", "add", bridge, "address", switch_mac(name), "type", "bridge", "mcast_snooping", "0"}); !added)
        return added;
    if (Status up = ip_do("cannot bring up bridge " + bridge, {"-n", sw, "link", "set", bridge, "up"}); !up)
        return up;
    if (progress)
        progress("bridge " + bridge);
    return {};
}

} // namespace detail

using detail::check_vlan;
using detail::existing_switch;
using detail::ip_do;
using detail::ip_read;
using detail::make_bridge;
using detail::member;
using detail::namespace_exists;
using detail::numbered;
using detail::parse_json;
using detail::set_disable_ipv6;

namespace {

// A namespace with its loopback up and IPv6 on, for this lab.
Status add_namespace(const std::string &netns, const Progress &progress)
{
    Result<Output> added = ip({"netns", "add", netns});
    if (!added)
        return Error{"cannot create namespace " + netns + ": " + added.message()};
    if (added.value().status != 0) {
        std::string reason = failure_reason(added.value());
        for (std::string_view rights : kRightsErrors) {
            if (reason.find(rights) != std::string::npos)
                return Error{rights_error(reason)};
        }
        return Error{"cannot create namespace " + netns + ": " + reason};
    }
    if (progress)
        progress("namespace " + netns);
    if (Status up = ip_do("cannot bring up lo in " + netns, {"-n", netns, "link", "set", "lo", "up"}); !up)
        return up;
    for (const char *conf : {"all", "default"}) {
        if (Status on = set_disable_ipv6(netns, conf, false); !on)
            return on;
    }
    return {};
}

// The names of the links of the switch namespace, with the bridge each is in.
struct SwitchLinks {
    std::map<int, int> ports; // K of ge0-K -> V of its bridge, 0 outside any
    std::set<int> bridges;    // V of vlanV
};

Result<SwitchLinks> read_switch_links(const std::string &sw)
{
    const std::string what = "cannot list the links of " + sw;
    Result<std::string> text = ip_read(what, {"-n", sw, "-j", "link", "show"});
    if (!text)
        return Error{text.message()};
    Result<nlohmann::json> links = parse_json(what, text.value());
    if (!links)
        return Error{links.message()};
    SwitchLinks result;
    for (const nlohmann::json &link : links.value()) {
        const nlohmann::json *name = member(link, "ifname", nlohmann::json::value_t::string);
        if (!name)
            continue;
        const std::string &ifname = name->get_ref<const std::string &>();
        if (std::optional<int> vlan = numbered(ifname, kBridgePrefix, kMinVlan, kMaxVlan)) {
            result.bridges.insert(*vlan);
        } else if (std::optional<int> port = numbered(ifname, kPortPrefix, kMinPorts, kMaxPorts)) {
            int in = 0;
            if (const nlohmann::json *master = member(link, "master", nlohmann::json::value_t::string))
                in = numbered(master->get_ref<const std::string &>(), kBridgePrefix, kMinVlan, kMaxVlan).value_or(0);
            result.ports[*port] = in;
        }
    }
    return result;
}

// The IPv6 addresses of each bridge, as "ADDR/LEN" ascending by address.
Result<std::map<int, std::vector<std::string>>> read_bridge_addresses(const std::string &sw)
{
    const std::string what = "cannot list the addresses of " + sw;
    Result<std::string> text = ip_read(what, {"-n", sw, "-j", "-6", "addr", "show"});
    if (!text)
        return Error{text.message()};
    Result<nlohmann::json> links = parse_json(what, text.value());
    if (!links)
        return Error{links.message()};
    std::map<int, std::vector<std::pair<std::array<unsigned char, 16>, std::string>>> sorted;
    for (const nlohmann::json &link : links.value()) {
        const nlohmann::json *name = member(link, "ifname", nlohmann::json::value_t::string);
        const nlohmann::json *infos = member(link, "addr_info", nlohmann::json::value_t::array);
        if (!name || !infos)
            continue;
        std::optional<int> vlan = numbered(name->get_ref<const std::string &>(), kBridgePrefix, kMinVlan, kMaxVlan);
        if (!vlan)
            continue;
        for (const nlohmann::json &info : *infos) {
            const nlohmann::json *local = member(info, "local", nlohmann::json::value_t::string);
            const nlohmann::json *length = member(info, "prefixlen", nlohmann::json::value_t::number_unsigned);
            if (!local || !length)
                continue;
            const std::string &address = local->get_ref<const std::string &>();
            std::array<unsigned char, 16> bytes{};
            if (::inet_pton(AF_INET6, address.c_str(), bytes.data()) != 1)
                continue;
            sorted[*vlan].emplace_back(bytes, address + "/" + std::to_string(length->get<unsigned>()));
        }
    }
    std::map<int, std::vector<std::string>> result;
    for (auto &[vlan, addresses] : sorted) {
        std::sort(addresses.begin(), addresses.end());
        for (auto &address : addresses)
            result[vlan].push_back(std::move(address.second));
    }
    return result;
}

Status add_port(std::string_view name, int port, const Progress &progress)
{
    const std::string sw = switch_namespace(name);
    const std::string host = host_namespace(name, port);
    const std::string device = port_device(port);
    const std::string bridge = bridge_device(kDefaultVlan);
    if (Status added = add_namespace(host, progress); !added)
        return added;
    const std::string what = "cannot add port " + device;
    if (Status veth = ip_do(what, {"-n", sw, "link", "add", device, "type", "veth", "peer", "name", kHostDevice, "netns", host}); !veth)
        return veth;
    // The ports are layer 2 only: no IPv6 address of their own (the bridges have them).
    if (Status off = set_disable_ipv6(sw, device, true); !off)
        return Error{what + ": " + off.message()};
    if (Status in = ip_do(what, {"-n", sw, "link", "set", device, "master", bridge, "up"}); !in)
        return in;
    if (Status up = ip_do(what, {"-n", host, "link", "set", kHostDevice, "up"}); !up)
        return up;
    if (progress)
        progress("port " + device + " <-> " + host + " " + kHostDevice + " in " + bridge);
    return {};
}

Status check_ports(int ports)
{
    if (ports < kMinPorts || ports > kMaxPorts)
        return Error{"bad number of ports " + std::to_string(ports) + ": use " + std::to_string(kMinPorts) + " to " + std::to_string(kMaxPorts)};
    return {};
}

Status check_port(int port)
{
    if (port < kMinPorts || port > kMaxPorts)
        return Error{"bad port number " + std::to_string(port) + ": use " + std::to_string(kMinPorts) + " to " + std::to_string(kMaxPorts)};
    return {};
}

// Removes the lab it guards unless told the lab is complete.
class CreateGuard {
public:
    explicit CreateGuard(std::string_view name) : name_(name) {}
    CreateGuard(const CreateGuard &) = delete;
    CreateGuard &operator=(const CreateGuard &) = delete;
    ~CreateGuard()
    {
        if (!done_)
            (void)ndlab::remove(name_);
    }
    void done() { done_ = true; }

private:
    std::string name_;
    bool done_ = false;
};

} // namespace

Status check_name(std::string_view name)
{
    bool valid = !name.empty() && name.size() <= kMaxNameLength &&
                 std::all_of(name.begin(), name.end(), [](char c) {
                     return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
                 });
    if (!valid)
        return Error{"bad lab name '" + std::string(name) + "': use 1 to " + std::to_string(kMaxNameLength) + " letters, digits, '_' or '-'"};
    return {};
}

std::string switch_namespace(std::string_view name)
{
    return std::string(kNamespacePrefix) + std::string(name) + "-" + std::string(kSwitchSuffix);
}

std::optional<std::string> detail::lab_of_switch_namespace(const std::string &sw)
{
    const std::string suffix = "-" + std::string(kSwitchSuffix);
    if (sw.size() <= kNamespacePrefix.size() + suffix.size() || sw.rfind(kNamespacePrefix, 0) != 0 ||
        sw.compare(sw.size() - suffix.size(), suffix.size(), suffix) != 0)
        return std::nullopt;
    std::string name = sw.substr(kNamespacePrefix.size(), sw.size() - kNamespacePrefix.size() - suffix.size());
    if (!check_name(name))
        return std::nullopt;
    return name;
}

std::string host_namespace(std::string_view name, int port)
{
    return std::string(kNamespacePrefix) + std::string(name) + "-" + std::string(kHostPrefix) + std::to_string(port);
}

Status check_address(std::string_view address)
{
    const std::string text(address);
    size_t slash = text.find('/');
    std::array<unsigned char, 16> bytes{};
    if (slash == std::string::npos || ::inet_pton(AF_INET6, text.substr(0, slash).c_str(), bytes.data()) != 1 ||
        !parse_number(std::string_view(text).substr(slash + 1), 0, kMaxPrefixLength))
        return Error{"bad IPv6 address '" + text + "': use ADDR/LEN"};
    return {};
}

std::string port_device(int port) { return std::string(kPortPrefix) + std::to_string(port); }

std::string bridge_device(int vlan) { return std::string(kBridgePrefix) + std::to_string(vlan); }

std::string switch_mac(std::string_view name)
{
    // FNV-1a of the name: labs of different names differ, one lab keeps its address.
    uint32_t hash = 2166136261U;
    for (char c : name) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 16777619U;
    }
    char text[18];
    std::snprintf(text, sizeof text, "02:%02x:%02x:%02x:%02x:01", (hash >> 24) & 0xffU, (hash >> 16) & 0xffU,
                  (hash >> 8) & 0xffU, hash & 0xffU);
    return text;
}

std::string ip_program()
{
    if (const char *chosen = std::getenv(kIpEnv); chosen && *chosen)
        return chosen;
    if (executable(kDefaultIp))
        return kDefaultIp;
    if (const char *path = std::getenv("PATH")) {
        std::istringstream dirs(path);
        std::string dir;
        while (std::getline(dirs, dir, ':')) {
            std::string candidate = (dir.empty() ? std::string(".") : dir) + "/ip";
            if (executable(candidate))
                return candidate;
        }
    }
    return "ip";
}

Result<std::vector<std::string>> lab_namespaces(std::string_view name)
{
    if (Status valid = check_name(name); !valid)
        return Error{valid.message()};
    Result<std::string> listing = ip_read("cannot list the network namespaces", {"netns", "list"});
    if (!listing)
        return Error{listing.message()};
    const std::string prefix = std::string(kNamespacePrefix) + std::string(name) + "-";
    const std::string sw = switch_namespace(name);
    bool hasSwitch = false;
    std::map<int, std::string> hosts;
    std::istringstream lines(listing.value());
    std::string line;
    while (std::getline(lines, line)) {
        // "NAME" or "NAME (id: N)"
        std::string netns = line.substr(0, line.find(' '));
        if (netns == sw)
            hasSwitch = true;
        else if (netns.rfind(prefix, 0) == 0) {
            if (std::optional<int> port = numbered(std::string_view(netns).substr(prefix.size()), kHostPrefix, 0, 999999999))
                hosts[*port] = netns;
        }
    }
    std::vector<std::string> result;
    if (hasSwitch)
        result.push_back(sw);
    for (auto &[port, netns] : hosts)
        result.push_back(std::move(netns));
    return result;
}

Result<int> remove(std::string_view name, const Progress &progress)
{
    Result<std::vector<std::string>> namespaces = lab_namespaces(name);
    if (!namespaces)
        return Error{namespaces.message()};
    Status first;
    for (const std::string &netns : namespaces.value()) {
        Status deleted = ip_do("cannot remove namespace " + netns, {"netns", "delete", netns});
        if (deleted && progress)
            progress("removed namespace " + netns);
        if (!deleted && first)
            first = deleted;
    }
    if (!first)
        return Error{first.message()};
    return static_cast<int>(namespaces.value().size());
}

Status create(std::string_view name, int ports, const Progress &progress)
{
    if (Status valid = check_name(name); !valid)
        return valid;
    if (Status valid = check_ports(ports); !valid)
        return valid;
    if (!may_make_namespaces())
        return Error{rights_error(std::strerror(EPERM))};

    Result<std::vector<std::string>> leftovers = lab_namespaces(name);
    if (!leftovers)
        return leftovers.status();
    for (const std::string &netns : leftovers.value()) {
        if (Status deleted = ip_do("cannot remove leftover namespace " + netns, {"netns", "delete", netns}); !deleted)
            return deleted;
        if (progress)
            progress("removed leftover namespace " + netns);
    }

    CreateGuard guard(name);
    if (Status made = add_namespace(switch_namespace(name), progress); !made)
        return made;
    if (Status made = make_bridge(name, kDefaultVlan, progress); !made)
        return made;
    for (int port = 1; port <= ports; ++port) {
        if (Status made = add_port(name, port, progress); !made)
            return made;
    }
    guard.done();
    return {};
}

Status set_port_vlan(std::string_view name, int port, int vlan, const Progress &progress)
{
    Result<std::string> sw = existing_switch(name);
    if (!sw)
        return sw.status();
    if (Status valid = check_port(port); !valid)
        return valid;
    if (Status valid = check_vlan(vlan); !valid)
        return valid;
    Result<SwitchLinks> links = read_switch_links(sw.value());
    if (!links)
        return links.status();
    const std::string device = port_device(port);
    if (!links.value().ports.count(port))
        return Error{"lab " + std::string(name) + " has no port " + device};
    if (!links.value().bridges.count(vlan)) {
        if (Status made = make_bridge(name, vlan, progress); !made)
            return made;
    }
    const std::string bridge = bridge_device(vlan);
    if (Status moved = ip_do("cannot move port " + device + " to " + bridge, {"-n", sw.value(), "link", "set", device, "master", bridge}); !moved)
        return moved;
    if (progress)
        progress("port " + device + " in " + bridge);
    return {};
}

Status vlan_address(std::string_view name, int vlan, AddressChange change, std::string_view address,
                    const Progress &progress)
{
    Result<std::string> sw = existing_switch(name);
    if (!sw)
        return sw.status();
    if (Status valid = check_vlan(vlan); !valid)
        return valid;
    if (Status valid = check_address(address); !valid)
        return valid;
    Result<SwitchLinks> links = read_switch_links(sw.value());
    if (!links)
        return links.status();
    const std::string bridge = bridge_device(vlan);
    const std::string text(address);
    if (change == AddressChange::add) {
        if (!links.value().bridges.count(vlan)) {
            if (Status made = make_bridge(name, vlan, progress); !made)
                return made;
        }
        // The switch's own address needs no detection of duplicates: the operator chose it.
        if (Status added = ip_do("cannot add address " + text + " to " + bridge, {"-n", sw.value(), "-6", "addr", "add", text, "dev", bridge, "nodad"}); !added)
            return added;
        if (progress)
            progress("address " + text + " on " + bridge);
        return {};
    }
    if (!links.value().bridges.count(vlan))
        return Error{"lab " + std::string(name) + " has no bridge " + bridge};
    if (Status deleted = ip_do("cannot remove address " + text + " from " + bridge, {"-n", sw.value(), "-6", "addr", "del", text, "dev", bridge}); !deleted)
        return deleted;
    if (progress)
        progress("address " + text + " removed from " + bridge);
    return {};
}

Result<LabState> inspect(std::string_view name)
{
    Result<std::string> sw = existing_switch(name);
    if (!sw)
        return Error{sw.message()};
    Result<SwitchLinks> links = read_switch_links(sw.value());
    if (!links)
        return Error{links.message()};
    Result<std::map<int, std::vector<std::string>>> addresses = read_bridge_addresses(sw.value());
    if (!addresses)
        return Error{addresses.message()};
    Result<std::vector<std::string>> namespaces = lab_namespaces(name);
    if (!namespaces)
        return Error{namespaces.message()};
    const std::set<std::string> present(namespaces.value().begin(), namespaces.value().end());

    LabState state;
    state.name = std::string(name);
    std::map<int, BridgeState> bridges;
    for (int vlan : links.value().bridges) {
        bridges[vlan].vlan = vlan;
        if (auto it = addresses.value().find(vlan); it != addresses.value().end())
            bridges[vlan].addresses = it->second;
    }
    for (const auto &[port, vlan] : links.value().ports) {
        PortState entry;
        entry.port = port;
        entry.vlan = vlan;
        std::string host = host_namespace(name, port);
        if (present.count(host))
            entry.host = std::move(host);
        state.ports.push_back(std::move(entry));
        if (auto it = bridges.find(vlan); it != bridges.end())
            it->second.ports.push_back(port);
    }
    for (auto &[vlan, bridge] : bridges)
        state.bridges.push_back(std::move(bridge));
    if (Status joins = detail::read_vxlan_state(sw.value(), state); !joins)
        return Error{joins.message()};
    return state;
}

std::string format(const LabState &state)
{
    std::string text = "lab " + state.name + " switch " + switch_namespace(state.name) + " ports " +
                       std::to_string(state.ports.size()) + " bridges " + std::to_string(state.bridges.size()) + "\n";
    for (const PortState &port : state.ports) {
        text += "port " + port_device(port.port) + " vlan " + (port.vlan ? std::to_string(port.vlan) : "-") + " host " +
                (port.host.empty() ? "-" : port.host) + "\n";
    }
    for (const BridgeState &bridge : state.bridges) {
        std::string ports, addresses;
        for (int port : bridge.ports)
            ports += (ports.empty() ? "" : ",") + port_device(port);
        for (const std::string &address : bridge.addresses)
            addresses += (addresses.empty() ? "" : " ") + address;
        text += "bridge " + bridge_device(bridge.vlan) + " ports " + (ports.empty() ? "-" : ports) + " addresses " +
                (addresses.empty() ? "-" : addresses) + "\n";
    }
    return text + detail::format_vxlan(state);
}

Result<std::string> namespace_of(std::string_view name, std::string_view where)
{
    if (Status valid = check_name(name); !valid)
        return Error{valid.message()};
    if (where == kSwitchSuffix)
        return switch_namespace(name);
    if (std::optional<int> port = numbered(where, kHostPrefix, kMinPorts, kMaxPorts))
        return host_namespace(name, *port);
    return Error{"bad namespace '" + std::string(where) + "': use sw or h1 to h" + std::to_string(kMaxPorts)};
}

Result<int> exec(std::string_view name, std::string_view where, const std::vector<std::string> &argv)
{
    Result<std::string> netns = namespace_of(name, where);
    if (!netns)
        return Error{netns.message()};
    if (argv.empty())
        return Error{"no command to run"};
    if (!namespace_exists(netns.value()))
        return Error{"no namespace " + netns.value() + " in lab " + std::string(name)};
    std::vector<std::string> args = {ip_program(), "netns", "exec", netns.value()};
    args.insert(args.end(), argv.begin(), argv.end());
    return detail::run_inherit(args);
}

Result<Lab> Lab::create(std::string_view name, int ports, const Progress &progress)
{
    if (Status made = ndlab::create(name, ports, progress); !made)
        return Error{made.message()};
    return Lab(std::string(name));
}

Result<Lab> Lab::adopt(std::string_view name)
{
    if (Status valid = check_name(name); !valid)
        return Error{valid.message()};
    return Lab(std::string(name));
}

Lab &Lab::operator=(Lab &&other) noexcept
{
    if (this != &other) {
        (void)remove();
        name_ = std::exchange(other.name_, {});
    }
    return *this;
}

Lab::~Lab() { (void)remove(); }

Status Lab::remove()
{
    if (name_.empty())
        return {};
    Result<int> removed = ndlab::remove(std::exchange(name_, {}));
    return removed.status();
}

} // namespace ndlab
