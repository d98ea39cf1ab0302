// The lab a shell configures (ndsh --lab NAME): its ports follow the access VLANs of the
// switch's ports, and its VLAN bridges carry the addresses of the VLAN interfaces. What is
// stored is the configuration; the lab is made to follow it.
#include <cstdlib>
#include <cstring>

#include "ndlab.h"
#include "ndplat_ports.h"
#include "ndsh.h"

namespace ndsh {

namespace {

constexpr const char *kLabPortPrefix = "gigabitethernet0/";

// K of gigabitethernet0/K, the lab's port ge0-K; 0 for a port the lab cannot have.
int lab_port(int32_t portId)
{
    const ndplat::PortInfo *info = ndplat::port_find(portId);
    if (!info || info->aggregation || info->name.rfind(kLabPortPrefix, 0) != 0)
        return 0;
    return atoi(info->name.c_str() + strlen(kLabPortPrefix));
}

} // namespace

bool LabLink::check(const std::string &name, std::string &error)
{
    if (ndlab::Status named = ndlab::check_name(name); !named) {
        error = named.message();
        return false;
    }
    ndlab::Result<std::vector<std::string>> spaces = ndlab::lab_namespaces(name);
    if (!spaces || spaces.value().empty()) {
        error = "there is no lab " + name + " (make it with: ndlab create " + name + " --ports N)";
        return false;
    }
    return true;
}

std::vector<std::string> LabLink::service_args() const
{
    if (name_.empty())
        return {};
    return {"--lab", name_};
}

void LabLink::apply(const Inventory &inv)
{
    if (name_.empty())
        return;
    ndlab::Result<ndlab::LabState> state = ndlab::inspect(name_);
    if (!state) {
        Output::instance().write_terminal("% Lab " + name_ + ": " + state.message() + "\n");
        return;
    }
    std::string error;
    for (const ndlab::PortState &p : state.value().ports) {
        int32_t vlan = inv.access_vlan(ndplat::port_id(kLabPortPrefix + std::to_string(p.port)));
        if (p.vlan != vlan)
            if (ndlab::Status moved = ndlab::set_port_vlan(name_, p.port, vlan); !moved)
                Output::instance().write_terminal("% Lab " + name_ + ": " + moved.message() + "\n");
    }
    for (int32_t vlanIf : inv.of(Inventory::Kind::VlanIf))
        for (const std::string &prefix : inv.addresses(vlanIf)) {
            bool present = false;
            for (const ndlab::BridgeState &b : state.value().bridges)
                for (const std::string &a : b.addresses)
                    present = present || (b.vlan == vlanIf && a == prefix);
            if (!present && !address(vlanIf, true, prefix, error))
                Output::instance().write_terminal(error + "\n");
        }
}

bool LabLink::port_vlan(int32_t portId, int32_t vlan, std::string &error)
{
    int port = lab_port(portId);
    if (name_.empty() || port == 0)
        return true;
    ndlab::Result<ndlab::LabState> state = ndlab::inspect(name_);
    bool inLab = false;
    if (state)
        for (const ndlab::PortState &p : state.value().ports)
            inLab = inLab || p.port == port;
    if (!inLab)
        return true; // a port the lab does not have: stored only
    if (ndlab::Status moved = ndlab::set_port_vlan(name_, port, vlan); !moved) {
        error = "% Lab " + name_ + " did not follow: " + moved.message() + ".";
        return false;
    }
    return true;
}

bool LabLink::address(int32_t vlanIf, bool add, const std::string &prefix, std::string &error)
{
    if (name_.empty())
        return true;
    ndlab::Status changed = ndlab::vlan_address(name_, vlanIf, add ? ndlab::AddressChange::add : ndlab::AddressChange::del,
                                                prefix);
    if (!changed) {
        error = "% Lab " + name_ + " did not follow: " + changed.message() + ".";
        return false;
    }
    return true;
}

} // namespace ndsh
