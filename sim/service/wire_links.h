// The network devices of the network namespace the calling thread is in.
#ifndef NDSVC_WIRE_LINKS_H
#define NDSVC_WIRE_LINKS_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ndsvc {

struct WireLink {
    int index = 0;
    std::string name;
    bool up = false;
    std::array<uint8_t, 6> mac{};
    uint32_t masterIndex = 0; // the bridge it is a port of; 0 for none
    std::string master;       // and that bridge's name
};

// Every device, as rtnetlink lists it; false with the reason when the kernel cannot be asked.
bool wire_links(std::vector<WireLink> &links, std::string &error);

// A socket that becomes readable when a device or its IPv6 addresses change (a port moved to
// another bridge, a bridge's link-local address that became usable);
// -1 with the reason. Its news is read and dropped by wire_link_events_drain.
int wire_link_events(std::string &error);
void wire_link_events_drain(int fd);

using Address6 = std::array<uint8_t, 16>;

// The link-local address of each device that has one (the first the kernel lists), by index.
bool wire_link_locals(std::map<int, Address6> &byIndex, std::string &error);

// Where the kernel routes a destination: the device (0 when there is no route) and whether
// the address is the switch's own.
struct WireRoute {
    int device = 0;
    bool local = false;
};
WireRoute wire_route(const Address6 &destination);

// The routing protocol number that marks the host routes the service adds, so that they are
// told apart from the operator's (and from the routing daemons' numbers).
constexpr uint8_t kHostRouteProtocol = 200;
// Adds (or replaces) or deletes a route to one address through a device.
bool wire_host_route(bool add, const Address6 &destination, int device, std::string &error);

} // namespace ndsvc

#endif
