// The records the service writes and reads: the answers' records and the values of "ec_nd",
// each through the named offsets of nd_cli_wire.h that the plug-in's readers use too.
#ifndef NDSVC_SVC_RECORDS_H
#define NDSVC_SVC_RECORDS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "nd_cli_wire.h"
#include "nd_service.h"
#include "svc_items.h"

namespace ndsvc {

using Bytes = std::vector<uint8_t>;

template <typename T> void put(Bytes &buf, size_t offset, T value)
{
    memcpy(buf.data() + offset, &value, sizeof value);
}

// The value at `offset`; 0 when the record is too short to hold it.
template <typename T> T get(const Bytes &buf, size_t offset)
{
    T value{};
    if (buf.size() >= offset + sizeof value)
        memcpy(&value, buf.data() + offset, sizeof value);
    return value;
}

// Text cut to room - 1 bytes; the rest of the field stays as it was (zero).
void put_text(Bytes &buf, size_t offset, size_t room, const std::string &text);
// A NUL-padded text field of `room` bytes.
std::string text_at(const uint8_t *record, size_t offset, size_t room);

// ---- answers --------------------------------------------------------------------------------

// A page (or statistics answer) of `records` rows of `rowSize` bytes, header filled in.
Bytes page(uint32_t records, uint16_t next, bool last, size_t rowSize);
// The row of a user-bind listing at `at`: type static or dynamic.
void put_user_bind_row(Bytes &buf, size_t at, const UserBind &ub, bool isStatic);
void put_prefix_row(Bytes &buf, size_t at, const Prefix &p);
// A statistics row of `counters` counters.
void put_stat_row(Bytes &buf, size_t at, const Counters &c, size_t counters);
void put_proxy_row(Bytes &buf, size_t at, const ProxyAddress &a);
Bytes vxlan_row(uint32_t vxlan, const Ip6 &ip, const std::string &tunnelIp, uint32_t tunnelId, uint32_t portIndex,
                const Mac &mac);

// ---- "ec_nd" values -------------------------------------------------------------------------

Bytes flag_value(uint32_t value);
// The stored static user-bind and its reading back.
Bytes static_entry(const UserBind &ub);
UserBind from_static_entry(const uint8_t *e);
Bytes interface_record(const std::string &name, uint32_t flags);
// The interface's proxy flags; 0 for a record too short to hold them.
uint32_t interface_flags(const Bytes &rec);
Bytes vlan_record(uint32_t vlan);
Bytes port_record(uint32_t portId, const std::string &name);
Bytes detect_record(uint16_t retransmit, uint16_t interval);

// The settings of one VXLAN id; the defaults while none is stored.
struct VxlanSettings {
    uint32_t flags = ndwire::vxlancfg::kDefaultFlags;
    uint32_t timeout = ndwire::vxlancfg::kDefaultTimeout;
    uint32_t limit = ndwire::vxlancfg::kDefaultLimit;
    bool is_default() const
    {
        return flags == ndwire::vxlancfg::kDefaultFlags && timeout == ndwire::vxlancfg::kDefaultTimeout &&
               limit == ndwire::vxlancfg::kDefaultLimit;
    }
};
Bytes vxlan_settings_record(uint32_t id, const VxlanSettings &s);
// False when the record is not that of `id`.
bool vxlan_settings_of(const Bytes &rec, uint32_t id, VxlanSettings &s);

// ---- injected and ISSU records --------------------------------------------------------------

void read_suppression(const uint8_t *p, VxlanKey &key, SuppressionHost &host);
void read_remote_nbr(const uint8_t *p, uint32_t &type, VxlanKey &key, RemoteNbr &nbr);
// The ISSU entry of one host; the port fields from the VXLAN port information.
Bytes issu_entry(const VxlanKey &key, const VxlanHost &host);
// An entry names its host's port by instance, port name and VLANs: read back, the host is at
// the access port that has them now (the first by index), or at none (0).
using IssuPortKey = std::tuple<uint32_t, std::string, uint32_t, uint32_t>; // instance, name, svlan, cvlan
using IssuPorts = std::map<IssuPortKey, uint32_t>;
IssuPorts issu_ports();
void read_issu_entry(const uint8_t *e, const IssuPorts &ports, VxlanKey &key, VxlanHost &host);

} // namespace ndsvc

#endif
