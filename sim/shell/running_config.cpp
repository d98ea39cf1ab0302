// The running configuration: the shell's own lines (modes, VLANs, interfaces) and, inside each
// section, what the script handlers registered with SHELL_ConfigScriptReg print for that
// section's kind. Handlers of one kind run in the order of their section numbers.
//
// Section kinds (the mode value of the registration) and the handler arguments:
//   1  global                      (fd, 0, 0, 0)
//   2  each VLAN                   (fd, 0, VLAN id, 0)
//   3  each VLAN interface         (fd, 0, 0, interface name)
//   4  each other layer-3 interface: routed ports, loopbacks, the management interface
//                                  (fd, 0, 0, interface name)
//   5  each port and aggregation   (fd, 0, 0, port id)
//   13 each VXLAN instance         (fd, 0, VXLAN id, 0)
// Super VLANs have no registered kind; their section is written by ND_SuperVlanScriptHandler,
// which the plug-in exports for the shell to call, after the shell's own sub-VLAN lines.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "ndplat.h"
#include "ndplat_ports.h"
#include "ndplat_vxlan.h"
#include "file_io.h"
#include "ndsh.h"

namespace ndsh {

namespace {

constexpr uint32_t kKindGlobal = 1;
constexpr uint32_t kKindVlan = 2;
constexpr uint32_t kKindVlanIf = 3;
constexpr uint32_t kKindOtherIf = 4;
constexpr uint32_t kKindPort = 5;
constexpr uint32_t kKindVxlan = 13;

constexpr uint32_t kShellEvent = 23;
constexpr uint32_t kRunningConfigEnd = 8;
constexpr uint32_t kNoSession = 0xFFFFFFFFu;
// The first line: a comment, so that a replay of the saved configuration passes over it.
constexpr const char *kHeader = "! Current configuration";

using SuperVlanHandler = int32_t (*)(int32_t fd, uintptr_t superVlanId);

uint32_t gNextSession = 1;

class Writer {
public:
    Writer(int fd, bool paged) : fd_(fd), paged_(paged)
    {
        for (const ndplat::ScriptRegistration &r : ndplat::script_registrations())
            if (r.fn)
                scripts_.push_back(r);
        std::stable_sort(scripts_.begin(), scripts_.end(),
                         [](const auto &a, const auto &b) { return a.section < b.section; });
    }

    void line(const std::string &text) { dprintf(fd_, "\n%s", text.c_str()); }

    void run(uint32_t kind, uintptr_t a3, uintptr_t a4)
    {
        for (const ndplat::ScriptRegistration &r : scripts_)
            if (r.mode == kind)
                r.fn(fd_, 0, a3, a4);
    }

    // One section: its header line (none for the global section), the handlers' lines, the closing "!". False once the
    // operator has quit the pager.
    template <typename Body> bool section(const std::string &header, Body body)
    {
        if (!header.empty())
            line(header);
        body();
        line("!");
        return !(paged_ && SHELL_MoreBreakOutput() != 0);
    }

    int fd() const { return fd_; }
    void text(const std::string &t) { dprintf(fd_, "%s", t.c_str()); }
    // The handlers of a kind without arguments, writing on another descriptor.
    void run_into(int fd, uint32_t kind)
    {
        for (const ndplat::ScriptRegistration &r : scripts_)
            if (r.mode == kind)
                r.fn(fd, 0, 0, 0);
    }
    bool quit() const { return paged_ && SHELL_MoreBreakOutput() != 0; }

private:
    int fd_;
    bool paged_;
    std::vector<ndplat::ScriptRegistration> scripts_;
};

// The global section. Its lines go through memory first: without any, no empty "!" pair.
bool write_global(Writer &w)
{
    w.line(kHeader);
    w.line("!");
    fflush(stdout);
    std::string global, error;
    if (!collect_output([&](int fd) { w.run_into(fd, kKindGlobal); }, global, error))
        w.run_into(w.fd(), kKindGlobal); // no memory file: straight through
    if (!global.empty()) {
        w.text(global);
        w.line("!");
    }
    return !w.quit();
}

bool write_vlan_sections(Writer &w, const Inventory &inv)
{
    for (int32_t vlan : inv.of(Inventory::Kind::Vlan))
        if (!w.section("vlan " + std::to_string(vlan), [&] { w.run(kKindVlan, static_cast<uintptr_t>(vlan), 0); }))
            return false;
    auto superVlan = reinterpret_cast<SuperVlanHandler>(
        Session::instance().plugin() ? dlsym(Session::instance().plugin(), "ND_SuperVlanScriptHandler") : nullptr);
    for (int32_t id : inv.of(Inventory::Kind::SuperVlan))
        if (!w.section("super-vlan " + std::to_string(id), [&] {
                for (const auto &[vlan, owner] : inv.sub_vlans())
                    if (owner == id)
                        w.line(" subvlan " + std::to_string(vlan));
                if (superVlan)
                    superVlan(w.fd(), static_cast<uintptr_t>(id));
            }))
            return false;
    return true;
}

// VLAN interfaces, loopbacks and the management interface.
bool write_layer3_sections(Writer &w, const Inventory &inv)
{
    using Kind = Inventory::Kind;
    auto layer3 = [&](const std::string &header, const std::string &name, uint32_t kind) {
        return w.section(header, [&] { w.run(kind, 0, reinterpret_cast<uintptr_t>(name.c_str())); });
    };
    for (int32_t n : inv.of(Kind::VlanIf)) {
        std::string name = "vlan" + std::to_string(n);
        if (!w.section("interface vlan " + std::to_string(n), [&] {
                for (const std::string &prefix : inv.addresses(n))
                    w.line(" ipv6 address " + prefix);
                w.run(kKindVlanIf, 0, reinterpret_cast<uintptr_t>(name.c_str()));
            }))
            return false;
    }
    for (int32_t n : inv.of(Kind::Loopback))
        if (!layer3("interface loopback " + std::to_string(n), "loopback" + std::to_string(n), kKindOtherIf))
            return false;
    return inv.of(Kind::Mgmt).empty() || layer3("interface mgmt 0", "mgmt0", kKindOtherIf);
}

bool write_port_sections(Writer &w, const Inventory &inv)
{
    for (int32_t id : inv.of(Inventory::Kind::Port)) {
        const ndplat::PortInfo *info = ndplat::port_find(id);
        if (!info || info->aggregation)
            continue;
        std::string name = info->name;
        std::string number = name.substr(std::string("gigabitethernet").size());
        bool routed = inv.has(Inventory::Kind::RoutedPort, id);
        if (!w.section("interface gigabitethernet " + number, [&] {
                if (routed) {
                    w.line(" no switchport");
                    w.run(kKindOtherIf, 0, reinterpret_cast<uintptr_t>(name.c_str()));
                } else if (int32_t vlan = inv.access_vlan(id); vlan != kDefaultVlan) {
                    w.line(" switchport access vlan " + std::to_string(vlan));
                }
                w.run(kKindPort, 0, static_cast<uintptr_t>(id));
            }))
            return false;
    }
    for (int32_t n : inv.of(Inventory::Kind::Aggregation)) {
        int32_t id = ndplat::aggregation_id(static_cast<uint32_t>(n));
        if (id && !w.section("interface link-aggregation " + std::to_string(n),
                             [&] { w.run(kKindPort, 0, static_cast<uintptr_t>(id)); }))
            return false;
    }
    return true;
}

// vxlan-port INDEX interface NAME [svlan S] [cvlan C]
void write_vxport(Writer &w, uint32_t index, const ndplat::Vxport &port)
{
    const ndplat::PortInfo *info = ndplat::port_find(port.portId);
    if (!info)
        return;
    std::string text = " vxlan-port " + std::to_string(index) + " interface " + info->name;
    if (port.svlan != 0)
        text += " svlan " + std::to_string(port.svlan);
    if (port.cvlan != 0)
        text += " cvlan " + std::to_string(port.cvlan);
    w.line(text);
}

void write_sections(Writer &w)
{
    const Inventory &inv = Session::instance().inventory();
    if (!write_global(w) || !write_vlan_sections(w, inv) || !write_layer3_sections(w, inv) ||
        !write_port_sections(w, inv))
        return;
    // The configured VXLAN ports, each in the section of its instance; seed ports are learned
    // state, not configuration.
    std::map<uint32_t, ndplat::Vxport> ports = ndplat::vxports(ndplat::VxportOrigin::Configured);
    for (int32_t id : inv.of(Inventory::Kind::Vxlan))
        if (!w.section("vxlan " + std::to_string(id), [&] {
                for (const auto &[index, port] : ports)
                    if (port.vxlan == static_cast<uint32_t>(id))
                        write_vxport(w, index, port);
                w.run(kKindVxlan, static_cast<uintptr_t>(id), 0);
            }))
            return;
    w.line("end\n");
}

} // namespace

void running_config(int fd, bool paged)
{
    fflush(stdout);
    uint32_t session = gNextSession++;
    ndplat::running_cfg_session_set(session);
    if (paged)
        SHELL_MoreOrientOutput();
    Writer writer(fd, paged);
    write_sections(writer);
    if (paged)
        SHELL_MoreFormatOutput();
    ndplat::running_cfg_session_set(kNoSession);
    ndplat::notify_raise(kShellEvent, kRunningConfigEnd, 0, session);
}

} // namespace ndsh
