#include "vxlan_host_table.h"

#include <set>

#include "nd_packet.h"

namespace ndsvc {

void VxlanHostTable::access_ports(const std::map<uint32_t, VxlanAccessPort> &ports)
{
    std::set<uint32_t> changed;
    for (const auto &[index, port] : ports_) {
        auto now = ports.find(index);
        if (now == ports.end() || !(now->second == port))
            changed.insert(index);
    }
    ports_ = ports;
    if (changed.empty())
        return;
    for (auto it = hosts_.begin(); it != hosts_.end();)
        it = changed.count(it->second.portIndex) ? erase(it) : std::next(it);
}

VxlanHostLimits VxlanHostTable::limitsOf(uint32_t vxlan) const
{
    auto it = limits_.find(vxlan);
    return it == limits_.end() ? VxlanHostLimits{} : it->second;
}

size_t VxlanHostTable::countOf(uint32_t vxlan) const
{
    auto it = counts_.find(vxlan);
    return it == counts_.end() ? 0 : it->second;
}

VxlanHostTable::Hosts::iterator VxlanHostTable::erase(Hosts::iterator it)
{
    auto count = counts_.find(it->first.first);
    if (count != counts_.end() && --count->second == 0)
        counts_.erase(count);
    return hosts_.erase(it);
}

VxlanHostTable::Host &VxlanHostTable::insert(const Key &key)
{
    auto [it, added] = hosts_.emplace(key, Host{});
    if (added)
        ++counts_[key.first];
    return it->second;
}

void VxlanHostTable::heard(const std::string &device, uint16_t vlan, const Address6 &address, const Mac48 &mac,
                           SnoopClock::time_point now)
{
    if (packet::is_unspecified(address) || packet::is_link_local(address) || packet::is_multicast(address))
        return;
    std::set<uint32_t> learnedIn;
    for (const auto &[index, port] : ports_) {
        if (port.device != device || (port.svlan && port.svlan != vlan) || !learnedIn.insert(port.vxlan).second)
            continue;
        Key key{port.vxlan, address};
        if (!hosts_.count(key)) {
            uint32_t limit = limitsOf(port.vxlan).limit;
            if (hosts_.size() >= ceiling_ || (limit && countOf(port.vxlan) >= limit))
                continue;
        }
        insert(key) = Host{mac, index, now};
    }
}

void VxlanHostTable::tick(SnoopClock::time_point now)
{
    for (auto it = hosts_.begin(); it != hosts_.end();) {
        uint32_t timeout = limitsOf(it->first.first).timeout;
        bool old = timeout && now - it->second.heard >= std::chrono::seconds(timeout);
        it = old ? erase(it) : std::next(it);
    }
}

void VxlanHostTable::forget(uint32_t vxlan, const Address6 *address)
{
    for (auto it = hosts_.begin(); it != hosts_.end();) {
        bool match = (!vxlan || it->first.first == vxlan) && (!address || it->first.second == *address);
        it = match ? erase(it) : std::next(it);
    }
}

void VxlanHostTable::restore(const Key &key, const Mac48 &mac, uint32_t portIndex, SnoopClock::time_point now)
{
    if (hosts_.size() >= ceiling_ && !hosts_.count(key))
        return;
    insert(key) = Host{mac, portIndex, now};
}

} // namespace ndsvc
