// The VXLAN local host table on the wire: the hosts that the switch hears on its VXLAN access
// ports, per VXLAN instance, with the access port each was heard on. A host not heard again
// within its instance's host timeout is forgotten, and an instance learns no more hosts than
// its limit. Time is given by the caller, so that the rules are tested without waiting.
#ifndef NDSVC_VXLAN_HOST_TABLE_H
#define NDSVC_VXLAN_HOST_TABLE_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "snoop_bindings.h"

namespace ndsvc {

// A VXLAN access port as the wire sees it: the bridge port's device, and the instance whose
// hosts it carries. The lab's ports are untagged access ports of one VLAN, which stands for the
// outer VLAN: a port with an outer VLAN (svlan) carries only the hosts of that VLAN.
struct VxlanAccessPort {
    std::string device;
    uint16_t svlan = 0; // 0: every VLAN of the port
    uint32_t vxlan = 0;
    bool operator==(const VxlanAccessPort &) const = default;
};

// An instance's host settings (the defaults are those of an instance never configured).
struct VxlanHostLimits {
    uint32_t timeout = 360; // seconds; 0: hosts are never forgotten
    uint32_t limit = 20480; // hosts; 0: no limit but the table's ceiling
    bool operator==(const VxlanHostLimits &) const = default;
};

class VxlanHostTable {
public:
    using Key = std::pair<uint32_t, Address6>; // instance, host address
    struct Host {
        Mac48 mac{};
        uint32_t portIndex = 0;
        SnoopClock::time_point heard{};
    };

    // At most `ceiling` hosts over all instances: a flood of addresses stops there.
    explicit VxlanHostTable(size_t ceiling) : ceiling_(ceiling) {}

    // The access ports in force, by index. The hosts heard through a port that is gone, or
    // now stands for another device, VLAN or instance, are forgotten.
    void access_ports(const std::map<uint32_t, VxlanAccessPort> &ports);
    // The settings of the configured instances; the others keep the defaults.
    void limits(const std::map<uint32_t, VxlanHostLimits> &limits) { limits_ = limits; }

    // A host heard on `device` (in `vlan`): it is (again) a host of the instance of each access
    // port there, the first by index per instance. Link-local, multicast and unspecified
    // addresses are not hosts of the table.
    void heard(const std::string &device, uint16_t vlan, const Address6 &address, const Mac48 &mac,
               SnoopClock::time_point now);
    // Forgets the hosts not heard within their instance's timeout.
    void tick(SnoopClock::time_point now);
    // Forgets the hosts of one instance (every instance for 0), or only one address of them.
    void forget(uint32_t vxlan, const Address6 *address);
    // A host kept elsewhere (a seed, a recovered backup), as if heard now; within the ceiling.
    void restore(const Key &key, const Mac48 &mac, uint32_t portIndex, SnoopClock::time_point now);

    using Hosts = std::map<Key, Host>;
    const Hosts &hosts() const { return hosts_; }

private:
    VxlanHostLimits limitsOf(uint32_t vxlan) const;
    size_t countOf(uint32_t vxlan) const;
    Hosts::iterator erase(Hosts::iterator it);
    Host &insert(const Key &key);

    size_t ceiling_;
    std::map<uint32_t, VxlanAccessPort> ports_;
    std::map<uint32_t, VxlanHostLimits> limits_;
    Hosts hosts_;
    std::map<uint32_t, size_t> counts_; // hosts per instance
};

} // namespace ndsvc

#endif
