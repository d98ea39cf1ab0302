// The wire's VXLAN local host table: the hosts heard on the VXLAN access ports, read and
// changed by the service's requests under the wire's lock.
#include "snoop_wire.h"

namespace ndsvc {

void SnoopWire::read_access_ports_with(AccessPortReader reader)
{
    std::lock_guard<std::mutex> hold(mutex_);
    accessPortReader_ = std::move(reader);
    if (accessPortReader_)
        vxlanHosts_.access_ports(accessPortReader_());
}

void SnoopWire::configure_vxlan_hosts(const std::map<uint32_t, VxlanHostLimits> &limits)
{
    std::lock_guard<std::mutex> hold(mutex_);
    vxlanHosts_.limits(limits);
}

VxlanHostTable::Hosts SnoopWire::vxlan_hosts() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return vxlanHosts_.hosts();
}

void SnoopWire::forget_vxlan_hosts(uint32_t vxlan, const Address6 *address)
{
    std::lock_guard<std::mutex> hold(mutex_);
    vxlanHosts_.forget(vxlan, address);
}

void SnoopWire::restore_vxlan_hosts(const VxlanHostTable::Hosts &hosts)
{
    std::lock_guard<std::mutex> hold(mutex_);
    SnoopClock::time_point now = SnoopClock::now();
    for (const auto &[key, host] : hosts)
        vxlanHosts_.restore(key, host.mac, host.portIndex, now);
}

} // namespace ndsvc
