// What the lab's own sources share beyond ndlab.h: running iproute2, reading its JSON, and the
// checks and bridges that more than one kind of change needs. Not for users of the library.
#ifndef NDLAB_INTERNAL_H
#define NDLAB_INTERNAL_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "ndlab.h"

namespace ndlab::detail {

// The names the lab gives: namespaces "ndlab-NAME-sw" and "ndlab-NAME-hK", bridges "vlanV".
inline constexpr std::string_view kNamespacePrefix = "ndlab-";
inline constexpr std::string_view kSwitchSuffix = "sw";
inline constexpr std::string_view kBridgePrefix = "vlan";

// NAME of the switch namespace ndlab-NAME-sw, when `sw` is one of a lab name check_name takes.
std::optional<std::string> lab_of_switch_namespace(const std::string &sw);

// The number after `prefix` in `text`, when text is exactly prefix + a number in [min, max]
// written without leading zeros.
std::optional<int> numbered(std::string_view text, std::string_view prefix, int min, int max);

// Whether /var/run/netns holds namespace `netns`.
bool namespace_exists(const std::string &netns);

// Runs ip with `args`; an error "<what>: <ip's complaint>" when it fails.
Status ip_do(const std::string &what, std::vector<std::string> args);
// Runs ip with `args` for its standard output; an error as ip_do's.
Result<std::string> ip_read(const std::string &what, std::vector<std::string> args);

// Turns IPv6 off (or on) for device `conf` ("all", "default" or a device) of namespace `netns`.
Status set_disable_ipv6(const std::string &netns, const std::string &conf, bool disable);

// object[key] when object is an object and that member has that type; nullptr otherwise.
const nlohmann::json *member(const nlohmann::json &object, const char *key, nlohmann::json::value_t type);
// ip's JSON output, which is an array; an error "<what>: ..." when it is not.
Result<nlohmann::json> parse_json(const std::string &what, const std::string &text);

Status check_vlan(int vlan);
// The switch namespace of lab NAME when the lab exists: "no lab NAME (no namespace ...)" when not.
Result<std::string> existing_switch(std::string_view name);
// Makes VLAN V's bridge in lab NAME's switch (it must not exist yet), told as "bridge vlanV".
Status make_bridge(std::string_view name, int vlan, const Progress &progress);

// Adds to `state` what of the VXLAN joins switch `sw` holds: its underlay and VXLAN devices.
Status read_vxlan_state(const std::string &sw, LabState &state);
// The lines of `ndlab show` for them (see format in ndlab.h).
std::string format_vxlan(const LabState &state);

} // namespace ndlab::detail

#endif
