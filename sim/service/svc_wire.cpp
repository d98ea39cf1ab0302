// The service on the wire: the snooping configuration handed to the packet side after every
// configuration request, and the learned bindings and the counters read from it.
#include "ndplat_ports.h"
#include "ndplat_vxlan.h"
#include "snoop_wire.h"
#include "svc_items.h"
#include "svc_store.h"

#include <cstring>

namespace ndsvc {

namespace {

// What is stored in "ec_nd", as the wire needs it.
SnoopConfig snoop_config(EcStore &ec)
{
    SnoopConfig c;
    c.enabled = ec.flag(ndwire::kKeySnooping) == 1;
    c.nsLoose = ec.flag(ndwire::kKeyLoose) == 1;
    c.attackLog = ec.flag(ndwire::kKeyAttackLog) == 1;
    Bytes detect = ec.read(ndwire::kKeyDetect);
    if (detect.size() >= ndwire::detect::kSize) {
        c.retransmit = get<uint16_t>(detect, ndwire::detect::kRetransmit);
        c.interval = get<uint16_t>(detect, ndwire::detect::kInterval);
    }
    for (const std::string &key : ec.keys(ndwire::kTypeVlan)) {
        Bytes r = ec.read(key);
        if (r.size() >= ndwire::member::kSize)
            c.vlans.insert(get<uint16_t>(r, ndwire::member::kVlanId));
    }
    for (const std::string &name : ec.keys(ndwire::kTypePort))
        if (std::string device = SnoopWire::device_of(name); !device.empty())
            c.trusted.insert(device);
    for (const UserBind &ub : ec.user_binds()) {
        SnoopConfig::Static s;
        s.address = ub.ip;
        s.mac = ub.mac;
        s.vlan = ub.vlan;
        s.port = SnoopWire::device_of(ub.port);
        if (!s.port.empty())
            c.statics.push_back(s);
    }
    return c;
}

// The VLAN of a VLAN interface's name ("vlan10"); 0 for any other interface.
uint16_t interface_vlan(const std::string &name)
{
    constexpr const char *kVlanInterface = "vlan";
    if (name.rfind(kVlanInterface, 0) != 0 || name.size() == strlen(kVlanInterface))
        return 0;
    char *end = nullptr;
    unsigned long vlan = strtoul(name.c_str() + strlen(kVlanInterface), &end, 10);
    return *end == '\0' && vlan <= kMaxVlanId ? static_cast<uint16_t>(vlan) : 0;
}

// What is stored in "ec_nd" for the answers, with the proxy address ranges of the other modules.
AnswerConfig answer_config(EcStore &ec, const std::vector<ProxyAddress> &ranges)
{
    AnswerConfig c;
    c.fastResponse = !ec.exists(ndwire::kKeyFastResponse);
    for (const std::string &key : ec.keys(ndwire::kTypeInterface)) {
        Bytes rec = ec.read(key);
        if (rec.size() < ndwire::iface::kSize)
            continue;
        uint16_t vlan = interface_vlan(text_at(rec.data(), ndwire::iface::kName, ndwire::iface::kNameSize));
        uint32_t flags = interface_flags(rec);
        if (vlan && (flags & ndwire::iface::kFlagProxy))
            c.proxyVlans.insert(vlan);
        if (vlan && (flags & ndwire::iface::kFlagAnyway))
            c.anywayVlans.insert(vlan);
    }
    for (const std::string &key : ec.keys(ndwire::kTypeSuperVlan)) {
        Bytes r = ec.read(key);
        if (r.size() >= ndwire::member::kSize)
            c.localProxy.insert(get<uint16_t>(r, ndwire::member::kVlanId));
    }
    for (const ProxyAddress &p : ranges)
        c.proxyRanges.push_back(AnswerConfig::Range{p.begin, p.end});
    for (uint32_t id : ec.vxlan_ids())
        if (uint32_t flags = ec.vxlan(id).flags; flags & ndwire::vxlancfg::kFlagSuppression)
            c.suppression[id] = AnswerConfig::Suppression{(flags & ndwire::vxlancfg::kFlagMissDiscard) != 0,
                                                          (flags & ndwire::vxlancfg::kFlagUnicast) != 0};
    return c;
}

// The host settings of the configured VXLAN instances.
std::map<uint32_t, VxlanHostLimits> vxlan_host_limits(EcStore &ec)
{
    std::map<uint32_t, VxlanHostLimits> limits;
    for (uint32_t id : ec.vxlan_ids()) {
        VxlanSettings s = ec.vxlan(id);
        limits[id] = VxlanHostLimits{s.timeout, s.limit};
    }
    return limits;
}

// The VXLAN access ports that are ports of the lab: the platform's port table, shared by the
// shells (`vxlan-port`) and the seed.
std::map<uint32_t, VxlanAccessPort> vxlan_access_ports()
{
    std::map<uint32_t, VxlanAccessPort> ports;
    for (const auto &[index, port] : ndplat::vxports()) {
        const ndplat::PortInfo *info = ndplat::port_find(port.portId);
        std::string device = info ? SnoopWire::device_of(info->name) : "";
        if (port.kind == ND_VXPORT_KIND_ATTACHED && !device.empty())
            ports[index] = VxlanAccessPort{device, port.svlan, port.vxlan};
    }
    return ports;
}

// The wire's counters are one row of the statistics table (member and instance 0).
template <size_t Count> void only_row(const std::array<uint32_t, Count> &values, std::vector<Counters> &table)
{
    Counters row;
    row.values.assign(values.begin(), values.end());
    table.assign(1, row);
}

UserBind listed(const SnoopBindingEntry &e)
{
    UserBind ub;
    ub.ip = e.address;
    ub.mac = e.mac;
    ub.vlan = e.vlan;
    ub.port = SnoopWire::port_of(e.port);
    ub.portId = ndplat::port_id(ub.port);
    return ub;
}

} // namespace

void NdService::wire_attach(SnoopWire *wire)
{
    wire_ = wire;
    std::vector<SnoopWire::SuppressionChange> hosts;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        for (const auto &[key, host] : suppression_)
            hosts.push_back({key, host.mac, true});
    }
    wire_->suppression_hosts(hosts);
    {
        // The seeded local hosts are the wire's from now on, and age like the ones it hears.
        std::lock_guard<std::mutex> hold(stateMutex_);
        wire_restore_hosts_locked(hosts_);
    }
    wire_->read_access_ports_with(vxlan_access_ports);
    wire_sync();
}

void NdService::wire_sync()
{
    if (!wire_)
        return;
    EcStore ec;
    if (!ec.ok())
        return;
    wire_->configure(snoop_config(ec));
    std::vector<ProxyAddress> ranges;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        ranges = proxyAddresses_;
    }
    wire_->configure_answers(answer_config(ec, ranges));
    wire_->configure_vxlan_hosts(vxlan_host_limits(ec));
}

// Called with stateMutex_ held: the listings read the learned bindings as the wire has them.
void NdService::wire_bindings_locked()
{
    if (!wire_)
        return;
    dynamicBinds_[0].clear();
    dynamicBinds_[1].clear();
    for (const SnoopBindingEntry &e : wire_->learned())
        dynamicBinds_[0].push_back(listed(e));
}

void NdService::wire_statistics_locked()
{
    if (wire_)
        only_row(wire_->statistics(), snoopingStats_);
}

void NdService::wire_forward_statistics_locked()
{
    if (wire_)
        only_row(wire_->fast_statistics(), forwardStats_);
}

void NdService::wire_prefixes_locked()
{
    if (!wire_)
        return;
    prefixes_.clear();
    for (const SnoopWire::LearnedPrefix &p : wire_->prefixes()) {
        Prefix row;
        row.prefix = p.prefix;
        row.length = p.length;
        row.valid = p.valid;
        row.preferred = p.preferred;
        prefixes_.push_back(row);
    }
}

// Called with stateMutex_ held: the VXLAN local host table is the wire's.
void NdService::wire_vxlan_hosts_locked()
{
    if (!wire_)
        return;
    hosts_.clear();
    for (const auto &[key, host] : wire_->vxlan_hosts())
        hosts_[key] = VxlanHost{host.mac, host.portIndex};
}

void NdService::wire_restore_hosts_locked(const std::map<VxlanKey, VxlanHost> &hosts)
{
    if (!wire_ || hosts.empty())
        return;
    VxlanHostTable::Hosts restored;
    for (const auto &[key, host] : hosts)
        restored[key] = VxlanHostTable::Host{host.mac, host.portIndex, {}};
    wire_->restore_vxlan_hosts(restored);
}

} // namespace ndsvc
