// The records of the service, written and read field by field at their named offsets.
#include "svc_records.h"

#include <algorithm>

#include "ndplat_ports.h"
#include "ndplat_vxlan.h"

namespace ndsvc {

namespace ub = ndwire::userbind;

void put_text(Bytes &buf, size_t offset, size_t room, const std::string &text)
{
    size_t n = std::min(text.size(), room - 1);
    memcpy(buf.data() + offset, text.data(), n);
}

std::string text_at(const uint8_t *record, size_t offset, size_t room)
{
    const char *p = reinterpret_cast<const char *>(record + offset);
    return std::string(p, strnlen(p, room));
}

// ---- answers --------------------------------------------------------------------------------

Bytes page(uint32_t records, uint16_t next, bool last, size_t rowSize)
{
    Bytes h(ndwire::page::kSize + records * rowSize, 0);
    put<uint32_t>(h, ndwire::page::kCount, records);
    put<uint16_t>(h, ndwire::page::kNext, next);
    put<uint32_t>(h, ndwire::page::kLast, last ? ndwire::page::kIsLast : 0u);
    return h;
}

// The listing carries the port ID where the stored entry keeps its static mark: 0 hides the row.
void put_user_bind_row(Bytes &buf, size_t at, const UserBind &u, bool isStatic)
{
    memcpy(buf.data() + at + ub::kAddress, u.ip.data(), u.ip.size());
    put<uint16_t>(buf, at + ub::kVlan, u.vlan);
    put<uint16_t>(buf, at + ub::kPort, static_cast<uint16_t>(u.portId));
    put_text(buf, at + ub::kPortName, ub::kPortNameSize, u.port);
    memcpy(buf.data() + at + ub::kMac, u.mac.data(), u.mac.size());
    buf[at + ub::kType] = isStatic ? ub::kTypeStatic : ub::kTypeDynamic;
}

void put_prefix_row(Bytes &buf, size_t at, const Prefix &p)
{
    memcpy(buf.data() + at + ndwire::prefix::kAddress, p.prefix.data(), p.prefix.size());
    put<uint32_t>(buf, at + ndwire::prefix::kValid, p.valid);
    put<uint32_t>(buf, at + ndwire::prefix::kPreferred, p.preferred);
    put<int32_t>(buf, at + ndwire::prefix::kLength, p.length);
}

void put_stat_row(Bytes &buf, size_t at, const Counters &c, size_t counters)
{
    buf[at + ndwire::stat::kInstance] = c.instance;
    buf[at + ndwire::stat::kMember] = c.member;
    for (size_t k = 0; k < counters && k < c.values.size(); ++k)
        put<uint32_t>(buf, at + ndwire::stat::kCounters + 4 * k, c.values[k]);
}

void put_proxy_row(Bytes &buf, size_t at, const ProxyAddress &a)
{
    put<uint32_t>(buf, at + ndwire::proxy::kModule, a.module);
    memcpy(buf.data() + at + ndwire::proxy::kBegin, a.begin.data(), a.begin.size());
    memcpy(buf.data() + at + ndwire::proxy::kEnd, a.end.data(), a.end.size());
}

Bytes vxlan_row(uint32_t vxlan, const Ip6 &ip, const std::string &tunnelIp, uint32_t tunnelId, uint32_t portIndex,
                const Mac &mac)
{
    namespace vx = ndwire::vxlan;
    Bytes r(vx::kSize, 0);
    put_text(r, vx::kHostAddress, vx::kAddressTextSize, ip6_text(ip));
    put_text(r, vx::kTunnelAddress, vx::kAddressTextSize, tunnelIp);
    put<uint32_t>(r, vx::kVxlanId, vxlan);
    put<uint32_t>(r, vx::kTunnelId, tunnelId);
    put<uint32_t>(r, vx::kPortIndex, portIndex);
    memcpy(r.data() + vx::kMac, mac.data(), mac.size());
    return r;
}

// ---- "ec_nd" values -------------------------------------------------------------------------

Bytes flag_value(uint32_t value)
{
    Bytes b(ndwire::flag::kSize, 0);
    put<uint32_t>(b, ndwire::flag::kValue, value);
    return b;
}

// The stored entry keeps the port ID (which the running configuration does not read) and
// marks itself static where the listing has the port.
Bytes static_entry(const UserBind &u)
{
    Bytes e(ub::kSize, 0);
    memcpy(e.data() + ub::kAddress, u.ip.data(), u.ip.size());
    put<uint32_t>(e, ub::kPortId, static_cast<uint32_t>(u.portId));
    put<uint16_t>(e, ub::kVlan, u.vlan);
    put<uint16_t>(e, ub::kPort, ub::kStoredStatic);
    put_text(e, ub::kPortName, ub::kPortNameSize, u.port);
    memcpy(e.data() + ub::kMac, u.mac.data(), u.mac.size());
    e[ub::kType] = ub::kTypeStatic;
    return e;
}

UserBind from_static_entry(const uint8_t *e)
{
    UserBind u;
    memcpy(u.ip.data(), e + ub::kAddress, u.ip.size());
    memcpy(&u.portId, e + ub::kPortId, sizeof u.portId);
    memcpy(&u.vlan, e + ub::kVlan, sizeof u.vlan);
    u.port = text_at(e, ub::kPortName, ub::kPortNameSize);
    memcpy(u.mac.data(), e + ub::kMac, u.mac.size());
    // Replayed configuration carries the interface by name only; the listing needs its ID.
    if (u.portId <= 0)
        u.portId = ndplat::port_id(u.port);
    return u;
}

Bytes interface_record(const std::string &name, uint32_t flags)
{
    Bytes r(ndwire::iface::kSize, 0);
    put_text(r, ndwire::iface::kName, ndwire::iface::kNameSize, name);
    put<uint32_t>(r, ndwire::iface::kFlags, flags);
    return r;
}

uint32_t interface_flags(const Bytes &rec)
{
    return rec.size() >= ndwire::iface::kSize ? get<uint32_t>(rec, ndwire::iface::kFlags) : 0;
}

Bytes vlan_record(uint32_t vlan)
{
    Bytes r(ndwire::member::kSize, 0);
    put<uint32_t>(r, ndwire::member::kId, vlan);
    put<uint16_t>(r, ndwire::member::kVlanId, static_cast<uint16_t>(vlan));
    return r;
}

Bytes port_record(uint32_t portId, const std::string &name)
{
    Bytes r(ndwire::member::kSize, 0);
    put<uint32_t>(r, ndwire::member::kId, portId);
    put_text(r, ndwire::member::kPortName, ndwire::member::kPortNameSize, name);
    return r;
}

Bytes detect_record(uint16_t retransmit, uint16_t interval)
{
    Bytes r(ndwire::detect::kSize, 0);
    put<uint16_t>(r, ndwire::detect::kRetransmit, retransmit);
    put<uint16_t>(r, ndwire::detect::kInterval, interval);
    return r;
}

Bytes vxlan_settings_record(uint32_t id, const VxlanSettings &s)
{
    namespace vc = ndwire::vxlancfg;
    Bytes r(vc::kSize, 0);
    put<uint32_t>(r, vc::kId, id);
    put<uint32_t>(r, vc::kFlags, s.flags);
    put<uint32_t>(r, vc::kTimeout, s.timeout);
    put<uint32_t>(r, vc::kLimit, s.limit);
    return r;
}

bool vxlan_settings_of(const Bytes &rec, uint32_t id, VxlanSettings &s)
{
    namespace vc = ndwire::vxlancfg;
    if (rec.size() < vc::kSize || get<uint32_t>(rec, vc::kId) != id)
        return false;
    s.flags = get<uint32_t>(rec, vc::kFlags);
    s.timeout = get<uint32_t>(rec, vc::kTimeout);
    s.limit = get<uint32_t>(rec, vc::kLimit);
    return true;
}

// ---- injected and ISSU records --------------------------------------------------------------

void read_suppression(const uint8_t *p, VxlanKey &key, SuppressionHost &host)
{
    namespace sp = ndwire::suppression;
    memcpy(&key.first, p + sp::kVxlanId, 4);
    memcpy(key.second.data(), p + sp::kAddress, key.second.size());
    memcpy(&host.tunnelId, p + sp::kTunnelId, 4);
    host.tunnelIp = tunnel_text(p[sp::kFamily], p + sp::kTunnelAddress);
    memcpy(host.mac.data(), p + sp::kMac, host.mac.size());
}

void read_remote_nbr(const uint8_t *p, uint32_t &type, VxlanKey &key, RemoteNbr &nbr)
{
    namespace rn = ndwire::remotenbr;
    memcpy(&type, p + rn::kType, 4);
    memcpy(&key.first, p + rn::kVxlanId, 4);
    memcpy(key.second.data(), p + rn::kAddress, key.second.size());
    memcpy(&nbr.ifIndex, p + rn::kIfIndex, 4);
    memcpy(&nbr.tunnelId, p + rn::kTunnelId, 4);
    memcpy(&nbr.vrfId, p + rn::kVrfId, 4);
    nbr.tunnelIp = tunnel_text(p[rn::kFamily], p + rn::kTunnelAddress);
    memcpy(nbr.mac.data(), p + rn::kMac, nbr.mac.size());
}

Bytes issu_entry(const VxlanKey &key, const VxlanHost &host)
{
    namespace is = ndwire::issu;
    Bytes e(is::kSize, 0);
    memcpy(e.data() + is::kAddress, key.second.data(), key.second.size());
    memcpy(e.data() + is::kMac, host.mac.data(), host.mac.size());
    uint8_t info[ND_VXPORT_INFO_SIZE] = {};
    if (VXLAN_GetVxportBasicInfo(host.portIndex, info) == 0) {
        uint16_t kind, svlan, cvlan;
        int32_t portId;
        memcpy(&kind, info + ND_VXPORT_INFO_KIND, 2);
        memcpy(&portId, info + ND_VXPORT_INFO_PORT_ID, 4);
        memcpy(&svlan, info + ND_VXPORT_INFO_SVLAN, 2);
        memcpy(&cvlan, info + ND_VXPORT_INFO_CVLAN, 2);
        char name[100] = {};
        if (kind == ND_VXPORT_KIND_ATTACHED && portID2FmtString(portId, name) == 0)
            put_text(e, is::kPort, is::kPortSize, name);
        put<uint32_t>(e, is::kSvlan, svlan);
        put<uint32_t>(e, is::kCvlan, cvlan);
    }
    put<uint32_t>(e, is::kIndex, key.first);
    return e;
}

IssuPorts issu_ports()
{
    IssuPorts ports;
    for (const auto &[index, vxport] : ndplat::vxports()) {
        char name[100] = {};
        if (vxport.kind == ND_VXPORT_KIND_ATTACHED && portID2FmtString(vxport.portId, name) == 0 && name[0])
            ports.emplace(IssuPortKey{vxport.vxlan, name, vxport.svlan, vxport.cvlan}, index);
    }
    return ports;
}

void read_issu_entry(const uint8_t *e, const IssuPorts &ports, VxlanKey &key, VxlanHost &host)
{
    namespace is = ndwire::issu;
    memcpy(&key.first, e + is::kIndex, 4);
    memcpy(key.second.data(), e + is::kAddress, key.second.size());
    memcpy(host.mac.data(), e + is::kMac, host.mac.size());
    IssuPortKey port{key.first, text_at(e, is::kPort, is::kPortSize), 0, 0};
    memcpy(&std::get<2>(port), e + is::kSvlan, 4);
    memcpy(&std::get<3>(port), e + is::kCvlan, 4);
    auto it = ports.find(port);
    host.portIndex = it == ports.end() ? 0 : it->second;
}

} // namespace ndsvc
