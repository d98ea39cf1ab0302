// The emulated switch's ports: a chassis of members, each with slots of numbered Ethernet
// ports, plus link aggregations. Port IDs are small positive numbers; a port map is a bitmap
// of g_max_pbmp_bytes bytes in which bit (ID - 1) stands for port ID (bit 0 is the lowest bit
// of byte 0). The plug-in reaches all of this only through the port-management functions of
// nd_platform.h; the shell and the tests shape the chassis with the functions below.
#ifndef NDPLAT_PORTS_H
#define NDPLAT_PORTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace ndplat {

// Bytes in one port map after a reset, and the most ports the chassis can hold with it.
constexpr uint32_t kDefaultPortmapBytes = 128;

struct PortInfo {
    int32_t id = 0;
    std::string name;      // "gigabitethernet0/1", "gigabitethernet1/0/1", "link-aggregation3"
    std::string shortName; // "ge0/1", "ge1/0/1", "ag3"
    bool aggregation = false;
    uint32_t member = 0, slot = 0, port = 0; // port: the port number, or the aggregation number
};

// Rebuilds the chassis: `members` members (numbered from 0, or from 1 when there are several),
// each with `slots` slots (numbered from 0) of `portsPerSlot` ports (numbered from 1), then
// `aggregations` link aggregations numbered from 1. A single-member chassis names its ports
// slot/port, a multi-member one member/slot/port. Ports that do not fit in a port map are
// left out. The layout after a reset is 1 member, 1 slot, 24 ports and 32 aggregations.
void ports_layout_set(uint32_t members, uint32_t slots, uint32_t portsPerSlot, uint32_t aggregations);

std::vector<PortInfo> ports_all(); // a copy of every port of the inventory
// The port of a full or short name ("gigabitethernet0/1", "ge0/1", "link-aggregation3",
// "ag3"; letters in any case, blanks between name and number allowed); 0 when unknown.
int32_t port_id(const std::string &name);
// The ID of link aggregation `number`; 0 when there is none.
int32_t aggregation_id(uint32_t number);
const PortInfo *port_find(int32_t id); // null when unknown; valid until the next layout change

// Makes isPmPortConfigurable refuse a port for every module, printing `reason` (a line of its
// own) the way the port manager explains a refusal; an empty reason uses the standard text.
void port_configurable_set(int32_t id, bool configurable, const std::string &reason = "");

// A port map of g_max_pbmp_bytes bytes holding the given ports.
std::vector<uint8_t> portmap_of(const std::vector<int32_t> &ids);
// The ports in a map of g_max_pbmp_bytes bytes, in ascending order.
std::vector<int32_t> portmap_ports(const void *map);

// Changes g_max_pbmp_bytes (a reset restores kDefaultPortmapBytes and the default layout).
void portmap_bytes_set(uint32_t bytes);

} // namespace ndplat

#endif
