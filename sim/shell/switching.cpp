// The settings that make the emulated switch a switch of ports and VLANs: the access VLAN of
// each layer-2 port (`switchport access vlan N`), the IPv6 addresses of each VLAN interface
// (`ipv6 address X/len`) and the sub-VLANs of each super VLAN (`subvlan V`). All are stored in
// the inventory database, so that they are written in the running configuration and replayed
// from the saved one.
#include <arpa/inet.h>

#include <cstdlib>

#include "ndsh.h"

namespace ndsh {

namespace {

Session &S()
{
    return Session::instance();
}

// "switchport access vlan N" and "no switchport access vlan", in the mode of a layer-2 port.
int32_t cmd_access_vlan(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    bool undo = !w.empty() && w[0] == "no";
    int32_t vlan = undo ? kDefaultVlan : (w.size() >= 4 ? atoi(w[3].c_str()) : 0);
    if (!undo && !S().inventory().has(Inventory::Kind::Vlan, vlan)) {
        refuse("\n% VLAN " + std::to_string(vlan) + " does not exist.");
        return 0;
    }
    std::string error;
    if (!S().inventory().set_access_vlan(S().context().portId, vlan, error) ||
        !S().lab().port_vlan(S().context().portId, vlan, error))
        refuse("\n" + error);
    return 0;
}

// The canonical text of a typed "address/length" (the grammar checked its form); empty, with
// the operator's message, for an address that cannot be an interface's.
std::string interface_prefix(const std::string &typed, std::string &error)
{
    size_t slash = typed.find('/');
    in6_addr address{};
    if (slash == std::string::npos || inet_pton(AF_INET6, typed.substr(0, slash).c_str(), &address) != 1) {
        error = "% " + typed + " is not an IPv6 address with its prefix length.";
        return "";
    }
    if (IN6_IS_ADDR_MULTICAST(&address) || IN6_IS_ADDR_UNSPECIFIED(&address) || IN6_IS_ADDR_LOOPBACK(&address)) {
        error = "% " + typed + " is not a unicast address an interface can have.";
        return "";
    }
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, &address, text, sizeof text);
    return std::string(text) + "/" + std::to_string(atoi(typed.c_str() + slash + 1));
}

// "ipv6 address X/len" and "no ipv6 address X/len", in the mode of a VLAN interface.
int32_t cmd_ipv6_address(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    bool undo = !w.empty() && w[0] == "no";
    const Context &c = S().context();
    if (c.kind != Context::Kind::VlanIf) {
        refuse("\n% IPv6 addresses are configured on VLAN interfaces only.");
        return 0;
    }
    std::string error;
    std::string prefix = interface_prefix(w.size() >= 3 ? w[undo ? 3 : 2] : "", error);
    if (prefix.empty()) {
        refuse("\n" + error);
        return 0;
    }
    Inventory &inv = S().inventory();
    if (undo && !inv.addresses(c.number).count(prefix)) {
        refuse("\n% " + prefix + " is not an address of interface vlan " + std::to_string(c.number) + ".");
        return 0;
    }
    if (!(undo ? inv.remove_address(c.number, prefix, error) : inv.add_address(c.number, prefix, error)) ||
        !S().lab().address(c.number, !undo, prefix, error))
        refuse("\n" + error);
    return 0;
}

// Why `vlan` cannot become a sub-VLAN of `superVlan`; empty when it can. The default VLAN,
// which every port falls back to, stays out of super VLANs.
std::string sub_vlan_refusal(const Inventory &inv, int32_t superVlan, int32_t vlan)
{
    const std::string v = std::to_string(vlan);
    if (!inv.has(Inventory::Kind::SuperVlan, superVlan))
        return "% super-vlan " + std::to_string(superVlan) + " does not exist.";
    if (vlan == kDefaultVlan)
        return "% The default VLAN cannot be a sub-VLAN.";
    if (inv.has(Inventory::Kind::SuperVlan, vlan))
        return "% VLAN " + v + " is a super VLAN and cannot be a sub-VLAN.";
    if (!inv.has(Inventory::Kind::Vlan, vlan))
        return "% VLAN " + v + " does not exist.";
    int32_t owner = inv.super_of(vlan);
    if (owner != 0 && owner != superVlan)
        return "% VLAN " + v + " is already a sub-VLAN of super-vlan " + std::to_string(owner) + ".";
    return "";
}

// Why `vlan` cannot leave `superVlan`; empty when it can.
std::string sub_vlan_removal_refusal(const Inventory &inv, int32_t superVlan, int32_t vlan)
{
    const std::string v = std::to_string(vlan), s = std::to_string(superVlan);
    int32_t owner = inv.super_of(vlan);
    if (owner == 0)
        return "% VLAN " + v + " is not a sub-VLAN of super-vlan " + s + ".";
    if (owner != superVlan)
        return "% VLAN " + v + " is a sub-VLAN of super-vlan " + std::to_string(owner) + ", not of super-vlan " + s +
               ".";
    return "";
}

// "subvlan V" and "no subvlan V", in the mode of a super VLAN. Adding a member again stores it
// again: another shell may have removed it since this one looked.
int32_t cmd_subvlan(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    bool undo = !w.empty() && w[0] == "no";
    size_t at = undo ? 2 : 1;
    int32_t vlan = w.size() > at ? atoi(w[at].c_str()) : 0;
    int32_t superVlan = S().context().number;
    Inventory &inv = S().inventory();
    std::string error =
        undo ? sub_vlan_removal_refusal(inv, superVlan, vlan) : sub_vlan_refusal(inv, superVlan, vlan);
    bool stored = error.empty() && (undo ? inv.remove_sub_vlan(vlan, error) : inv.add_sub_vlan(superVlan, vlan, error));
    if (!stored)
        refuse("\n" + error);
    return 0;
}

} // namespace

std::vector<Builtin> switching_builtins()
{
    // The words shared with the shell's other definitions carry the same help.
    // clang-format off
    return {
        {cmd_access_vlan,
         "switchport(PORT,0,'Set the switching characteristics of the port'){"
           "access(PORT,0,'Set the access mode characteristics of the port'){"
             "vlan(PORT,0,'Set the VLAN of the port in access mode'){"
               "_1_4094_(PORT,0,'VLAN id')}}}"},
        {cmd_access_vlan,
         "no(PORT,0,'Negate a command or set its defaults'){"
           "switchport(PORT,0,'Make the port a layer-3 routed port'){"
             "access(PORT,0,'Set the access mode characteristics of the port'){"
               "vlan(PORT,0,'Put the port back into VLAN 1')}}}"},
        {cmd_ipv6_address,
         "ipv6(IF,0,'Command ipv6'){"
           "address(IF,0,'Configure an IPv6 address of the interface'){"
             "_IPV6PREFIX_(IF,0,'IPv6 address and prefix length, such as 2001:db8::1/64')}}"},
        {cmd_ipv6_address,
         "no(IF,0,'Negate a command or set its defaults'){"
           "ipv6(IF,0,'Command ipv6'){"
             "address(IF,0,'Remove an IPv6 address of the interface'){"
               "_IPV6PREFIX_(IF,0,'IPv6 address and prefix length, such as 2001:db8::1/64')}}}"},
        {cmd_subvlan,
         "subvlan(SUPERVLAN,0,'Add a VLAN to the super VLAN as a sub-VLAN'){"
           "_1_4094_(SUPERVLAN,0,'VLAN id')}"},
        {cmd_subvlan,
         "no(SUPERVLAN,0,'Negate a command or set its defaults'){"
           "subvlan(SUPERVLAN,0,'Remove a sub-VLAN from the super VLAN'){"
             "_1_4094_(SUPERVLAN,0,'VLAN id')}}"},
    };
    // clang-format on
}

} // namespace ndsh
