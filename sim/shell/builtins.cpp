// The shell's own commands: modes and the objects of the inventory, show, write, reload and
// the terminal's settings, registered in the same command tree as the plug-in's.
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"
#include "ndplat_service.h"
#include "ndplat_vxlan.h"
#include "private_files.h"
#include "file_io.h"
#include "ndsh.h"

namespace ndsh {

// ---- the shell's own commands ----------------------------------------------------------------------

namespace {

Session &S()
{
    return Session::instance();
}

// Enters the mode of an object once the inventory holds it: an object the database could not
// store is refused, and the operator stays where they were.
void enter_stored(const Context &c)
{
    std::string error;
    if (!S().inventory().add(c.stored.first, c.stored.second, error)) {
        refuse("\n" + error);
        return;
    }
    S().enter(c);
}

void forget(Inventory::Kind kind, int32_t number)
{
    std::string error;
    if (!S().inventory().remove(kind, number, error))
        refuse("\n" + error);
}

int32_t cmd_configure(int32_t, char **)
{
    S().leave_to_conf();
    return 0;
}

// The context of `interface gigabitethernet S/P`; false, refused, when there is no such port.
bool port_context(const std::string &number, Context &c)
{
    int32_t id = ndplat::port_id("gigabitethernet" + number);
    const ndplat::PortInfo *info = id ? ndplat::port_find(id) : nullptr;
    if (!info || info->aggregation) {
        refuse("\n% Interface gigabitethernet" + number + " does not exist.");
        return false;
    }
    bool routed = S().inventory().has(Inventory::Kind::RoutedPort, id);
    c.mode = routed ? CliMode::PORTIF : CliMode::PORT;
    c.kind = Context::Kind::Port;
    c.portId = id;
    c.ifName = info->name;
    c.tag = "config-if-" + info->shortName;
    c.stored = {Inventory::Kind::Port, id};
    return true;
}

// The context of `interface link-aggregation N`; false, refused, when there is no such one.
bool aggregation_context(const std::string &text, Context &c)
{
    int32_t number = atoi(text.c_str());
    int32_t id = ndplat::aggregation_id(static_cast<uint32_t>(number));
    const ndplat::PortInfo *info = id ? ndplat::port_find(id) : nullptr;
    if (!info) {
        refuse("\n% Link-aggregation " + text + " does not exist.");
        return false;
    }
    c.mode = CliMode::LINK_AGGREGATION;
    c.kind = Context::Kind::Aggregation;
    c.number = number;
    c.portId = id;
    c.ifName = info->name;
    c.tag = "config-if-" + info->shortName;
    c.stored = {Inventory::Kind::Aggregation, number};
    return true;
}

// The context of a VLAN interface, a loopback or the management interface.
void layer3_context(const std::string &type, const std::string &text, Context &c)
{
    c.number = atoi(text.c_str());
    c.ifName = type + std::to_string(c.number);
    c.tag = "config-if-" + c.ifName;
    // The management interface takes every interface setting, as a VLAN interface does: what
    // the running configuration writes under it is accepted on replay.
    c.mode = CliMode::IF;
    if (type == "vlan") {
        c.kind = Context::Kind::VlanIf;
        c.stored = {Inventory::Kind::VlanIf, c.number};
    } else if (type == "loopback") {
        c.kind = Context::Kind::Loopback;
        c.stored = {Inventory::Kind::Loopback, c.number};
    } else {
        c.kind = Context::Kind::Mgmt;
        c.stored = {Inventory::Kind::Mgmt, 0};
    }
}

int32_t cmd_interface(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 3)
        return 0;
    Context c;
    bool exists = true;
    if (w[1] == "gigabitethernet")
        exists = port_context(w[2], c);
    else if (w[1] == "link-aggregation")
        exists = aggregation_context(w[2], c);
    else
        layer3_context(w[1], w[2], c);
    if (exists)
        enter_stored(c);
    return 0;
}

int32_t cmd_no_interface(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 4)
        return 0;
    int32_t number = atoi(w[3].c_str());
    Inventory::Kind kind = w[2] == "vlan" ? Inventory::Kind::VlanIf : Inventory::Kind::Loopback;
    if (!S().inventory().has(kind, number))
        refuse("\n% Interface " + w[2] + w[3] + " does not exist.");
    else
        forget(kind, number);
    return 0;
}

// vlan N, super-vlan N, vxlan N and their "no" forms.
struct NumberedMode {
    const char *word;
    Context::Kind kind;
    CliMode mode;
    const char *tag;
    Inventory::Kind stored;
};
constexpr NumberedMode kNumberedModes[] = {
    {"vlan", Context::Kind::Vlan, CliMode::VLAN, "config-vlan", Inventory::Kind::Vlan},
    {"super-vlan", Context::Kind::SuperVlan, CliMode::SUPERVLAN, "config-super-vlan", Inventory::Kind::SuperVlan},
    {"vxlan", Context::Kind::Vxlan, CliMode::VXLAN, "config-vxlan", Inventory::Kind::Vxlan},
};

const NumberedMode *numbered_mode(const std::string &word)
{
    for (const NumberedMode &m : kNumberedModes)
        if (word == m.word)
            return &m;
    return nullptr;
}

int32_t cmd_numbered(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    const NumberedMode *m = w.size() >= 2 ? numbered_mode(w[0]) : nullptr;
    if (!m)
        return 0;
    Context c;
    c.mode = m->mode;
    c.kind = m->kind;
    c.number = atoi(w[1].c_str());
    // A sub-VLAN is in a super VLAN: it cannot become one itself.
    if (int32_t owner = S().inventory().super_of(c.number);
        m->kind == Context::Kind::SuperVlan && owner != 0 && !S().inventory().has(m->stored, c.number)) {
        refuse("\n% VLAN " + std::to_string(c.number) + " is a sub-VLAN of super-vlan " + std::to_string(owner) +
               " and cannot be a super VLAN.");
        return 0;
    }
    c.tag = m->tag + std::to_string(c.number);
    c.stored = {m->stored, c.number};
    enter_stored(c);
    return 0;
}

int32_t cmd_no_numbered(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    const NumberedMode *m = w.size() >= 3 ? numbered_mode(w[1]) : nullptr;
    if (!m)
        return 0;
    int32_t number = atoi(w[2].c_str());
    if (m->kind == Context::Kind::Vlan && number == kDefaultVlan) {
        refuse("\n% The default VLAN cannot be deleted.");
        return 0;
    }
    if (!S().inventory().has(m->stored, number)) {
        refuse("\n% " + std::string(m->word) + " " + w[2] + " does not exist.");
        return 0;
    }
    // The instance's ports go first: a port left behind would belong to no instance.
    std::string error;
    if (m->kind == Context::Kind::Vxlan &&
        !ndplat::vxport_remove_all(ndplat::VxportOrigin::Configured, static_cast<uint32_t>(number), &error)) {
        refuse("\n% Cannot remove the VXLAN ports of vxlan " + w[2] + ": " + error + ".");
        return 0;
    }
    forget(m->stored, number);
    return 0;
}

// The instance that already holds a configured port index, 0 when none does.
uint32_t vxport_owner(uint32_t portIndex)
{
    std::map<uint32_t, ndplat::Vxport> configured = ndplat::vxports(ndplat::VxportOrigin::Configured);
    auto it = configured.find(portIndex);
    return it == configured.end() ? 0 : it->second.vxlan;
}

// vxlan-port INDEX interface IFNAME [svlan S [cvlan C]], in the mode of a VXLAN instance.
int32_t cmd_vxlan_port(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 4)
        return 0;
    const uint32_t index = static_cast<uint32_t>(strtoul(w[1].c_str(), nullptr, 10));
    const uint32_t vxlan = static_cast<uint32_t>(S().context().number);
    int32_t id = ndplat::port_id(w[3]);
    if (!id || !ndplat::port_find(id)) {
        refuse("\n% Interface " + w[3] + " does not exist.");
        return 0;
    }
    ndplat::Vxport port;
    port.portId = id;
    port.vxlan = vxlan;
    port.origin = ndplat::VxportOrigin::Configured;
    for (size_t i = 4; i + 1 < w.size(); i += 2) {
        uint16_t vlan = static_cast<uint16_t>(atoi(w[i + 1].c_str()));
        (w[i] == "svlan" ? port.svlan : port.cvlan) = vlan;
    }
    uint32_t owner = vxport_owner(index);
    if (owner != 0 && owner != vxlan) {
        refuse("\n% VXLAN port " + w[1] + " is already used by vxlan " + std::to_string(owner) + ".");
        return 0;
    }
    std::string error;
    if (!ndplat::vxport_set(index, port, &error))
        refuse("\n% Cannot store vxlan-port " + w[1] + ": " + error + ".");
    return 0;
}

int32_t cmd_no_vxlan_port(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 3)
        return 0;
    const uint32_t index = static_cast<uint32_t>(strtoul(w[2].c_str(), nullptr, 10));
    const uint32_t vxlan = static_cast<uint32_t>(S().context().number);
    uint32_t owner = vxport_owner(index);
    if (owner == 0) {
        refuse("\n% VXLAN port " + w[2] + " does not exist.");
        return 0;
    }
    if (owner != vxlan) {
        refuse("\n% VXLAN port " + w[2] + " is used by vxlan " + std::to_string(owner) + ", not by vxlan " +
               std::to_string(vxlan) + ".");
        return 0;
    }
    std::string error;
    if (!ndplat::vxport_remove(index, ndplat::VxportOrigin::Configured, &error))
        refuse("\n% Cannot remove vxlan-port " + w[2] + ": " + error + ".");
    return 0;
}

int32_t cmd_switchport(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    Context c = S().context();
    bool routed = !w.empty() && w[0] == "no";
    std::string error;
    bool stored = routed ? S().inventory().add(Inventory::Kind::RoutedPort, c.portId, error)
                         : S().inventory().remove(Inventory::Kind::RoutedPort, c.portId, error);
    if (!stored) {
        refuse("\n" + error);
        return 0;
    }
    c.mode = routed ? CliMode::PORTIF : CliMode::PORT;
    S().enter(c);
    return 0;
}

int32_t cmd_exit(int32_t, char **)
{
    S().exit_mode();
    return 0;
}

int32_t cmd_end(int32_t, char **)
{
    S().leave_to_en();
    return 0;
}

int32_t cmd_do(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    ndplat::MatchResult match = ndplat::match_line(CliMode::EN, join_words(w, 1));
    if (match.status != ndplat::MatchStatus::Ok || match.fn == cmd_do) {
        refuse(std::string("\n") + (match.status == ndplat::MatchStatus::Ok ? "% Unknown command." : match.message()));
        return 0;
    }
    std::vector<std::string> keep = match.argv;
    std::vector<char *> words;
    for (std::string &k : keep)
        words.push_back(k.data());
    words.push_back(nullptr);
    return match.fn(static_cast<int32_t>(keep.size()), words.data());
}

// The GNU build id of the loaded plug-in (hex), empty when it has none.
std::string plugin_build_id(void *handle)
{
    struct Search {
        const void *symbol;
        std::string id;
    } search{handle ? dlsym(handle, "dl_cli_init") : nullptr, {}};
    if (!search.symbol)
        return "";
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *data) {
            auto *s = static_cast<Search *>(data);
            auto at = reinterpret_cast<uintptr_t>(s->symbol);
            bool inside = false;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const ElfW(Phdr) &ph = info->dlpi_phdr[i];
                uintptr_t start = info->dlpi_addr + ph.p_vaddr;
                if (ph.p_type == PT_LOAD && at >= start && at < start + ph.p_memsz)
                    inside = true;
            }
            if (!inside)
                return 0;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const ElfW(Phdr) &ph = info->dlpi_phdr[i];
                if (ph.p_type != PT_NOTE)
                    continue;
                const auto *p = reinterpret_cast<const uint8_t *>(info->dlpi_addr + ph.p_vaddr);
                const uint8_t *end = p + ph.p_memsz;
                while (p + sizeof(ElfW(Nhdr)) <= end) {
                    ElfW(Nhdr) note;
                    memcpy(&note, p, sizeof note);
                    const uint8_t *name = p + sizeof note;
                    const uint8_t *desc = name + ((note.n_namesz + 3) & ~3u);
                    if (desc + note.n_descsz > end)
                        break;
                    if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 && memcmp(name, "GNU", 4) == 0) {
                        static const char kHex[] = "0123456789abcdef";
                        for (uint32_t k = 0; k < note.n_descsz; ++k) {
                            s->id += kHex[desc[k] >> 4];
                            s->id += kHex[desc[k] & 15];
                        }
                        return 1;
                    }
                    p = desc + ((note.n_descsz + 3) & ~3u);
                }
            }
            return 1;
        },
        &search);
    return search.id;
}

std::string uptime_text(long seconds)
{
    char text[64];
    snprintf(text, sizeof text, "%ld days, %02ld:%02ld:%02ld", seconds / 86400, seconds / 3600 % 24, seconds / 60 % 60,
             seconds % 60);
    return text;
}

int32_t cmd_show_running(int32_t, char **)
{
    running_config(1, true);
    return 0;
}

int32_t cmd_show_startup(int32_t, char **)
{
    std::ifstream in(S().startup_config_path());
    if (!in) {
        refuse("\n% There is no startup configuration.");
        return 0;
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    say(text);
    return 0;
}

void debug_hooks(uint32_t code)
{
    for (const ndplat::DebugRegistration &d : ndplat::debug_registrations())
        if (d.fn)
            d.fn(code);
}

int32_t cmd_show_debugging(int32_t, char **)
{
    debug_hooks(3);
    return 0;
}

int32_t cmd_debug_all(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    debug_hooks(!w.empty() && w[0] == "no" ? 2 : 1);
    return 0;
}

// The startup configuration is replaced only by a complete one: built in memory first, refused
// when a configuration database it was read from is damaged (its lines would be missing), and
// written beside the old file and renamed over it, so that a full disk or a crash leaves the
// old one in place.
int32_t cmd_write(int32_t, char **)
{
    std::string text, error;
    if (!collect_output([](int fd) { running_config(fd, false); }, text, error)) {
        refuse("\n% Not saved: the running configuration could not be built: " + error + ".");
        return 0;
    }
    std::vector<ndplat::DbmDamage> damaged = ndplat::dbm_damaged();
    if (!damaged.empty()) {
        ndplat::dbm_damage_unreported(); // this line reports it
        refuse("\n% Not saved: the configuration database " + damaged.front().db + " is damaged (" +
               damaged.front().why + "); the startup configuration is unchanged.");
        return 0;
    }
    std::string flash = S().state_dir() + "/flash";
    UniqueFd dir(open(flash.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir) {
        refuse("\n% Cannot write " + S().startup_config_path() + ": " + strerror(errno) + ".");
        return 0;
    }
    int32_t saved;
    {
        QuietTrace quiet;
        saved = DBM_Save("/flash", 0, 0, 0);
    }
    if (saved != 0) {
        refuse("\n% Not saved: the configuration databases could not be copied into " + flash +
               "; the startup configuration is unchanged.");
        return 0;
    }
    if (!replace_file(std::move(dir), kStartupConfigName, text, ndplat::kPrivateFileMode, error)) {
        refuse("\n% Cannot write " + S().startup_config_path() + ": " + error + ".");
        return 0;
    }
    say("\nBuilding configuration...\n[OK]");
    return 0;
}

int32_t cmd_reload(int32_t, char **)
{
    if (S().replaying()) {
        refuse("\n% reload is not available inside a configuration.");
        return 0;
    }
    // At a terminal the operator confirms; otherwise --yes (the default) or --no answers.
    if (Output::instance().interactive()) {
        if (!Output::instance().console("\nProceed with reload? (Yes|No)?")) {
            say("\n% Reload cancelled.");
            return 0;
        }
    } else if (!S().options().answerYes) {
        refuse("\n% Reload cancelled (--no).");
        return 0;
    }
    say("\nReloading...");
    S().request_reload();
    return 0;
}

// show version: what the switch runs (the plug-in and its build id, the platform) and since
// when its ND service runs.
int32_t cmd_show_version(int32_t, char **)
{
    std::string path = S().options().plugin;
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved))
        path = resolved;
    std::string id = plugin_build_id(S().plugin());
    utsname u{};
    uname(&u);
    say("\nND switch emulation (ndsh)");
    say("\nND plug-in: " + path);
    say("\nPlug-in build id: " + (id.empty() ? std::string("unknown") : id));
    say(std::string("\nPlatform: ") + u.sysname + " " + u.release + " " + u.machine);
    say("\nUptime: " + uptime_text(S().uptime_seconds()));
    return 0;
}

int32_t cmd_show_history(int32_t, char **)
{
    for (const std::string &line : S().history())
        say("\n  " + line);
    return 0;
}

int32_t cmd_help(int32_t, char **)
{
    say("\nHelp may be requested at any point in a command by entering a question mark '?'.\n"
        "If nothing matches, the help list will be empty and you must back up until entering\n"
        "a '?' shows the available options.\n"
        "Two styles of help are provided:\n"
        "1. Full help is available when you are ready to enter a command argument (e.g.\n"
        "   'show ?') and describes each possible argument.\n"
        "2. Partial help is provided when an abbreviated argument is entered and you want\n"
        "   to know what arguments match the input (e.g. 'show ru?').\n"
        "TAB completes a word; Ctrl-C drops the line being typed; at --More--, space shows the\n"
        "next page, Enter the next line, q or Ctrl-C quits.");
    return 0;
}

int32_t cmd_terminal_length(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() >= 3)
        Output::instance().set_length(atoi(w[2].c_str()));
    return 0;
}

constexpr const char *kConfigModes = "CONF|IF|PORTIF|MIF|VLAN|SUPERVLAN|PORT|LINK_AGGREGATION|VXLAN";

std::string modifiers()
{
    return "_CR_(EN,0,''),|(EN,0,'Output modifiers'){"
           "begin(EN,0,'Begin with the line that matches'){_LINE_(EN,0,'Regular Expression')},"
           "include(EN,0,'Include lines that match'){context(EN,0,'Include two line before and after the match line')"
           "{_LINE_(EN,0,'Regular Expression')},_LINE_(EN,0,'Regular Expression')},"
           "exclude(EN,0,'Exclude lines that match'){_LINE_(EN,0,'Regular Expression')},"
           "section(EN,0,'Sections that have a line that matches'){_LINE_(EN,0,'Regular Expression')},"
           "count(EN,0,'Count the lines'){_CR_(EN,0,''),_LINE_(EN,0,'Regular Expression: count only lines that "
           "match')},"
           "redirect(EN,0,'Redirect output to other resource'){file(EN,0,'Output to file')"
           "{_WORD_(EN,0,'Destination file name,such as \"/flash/test\"')}}}";
}

// The commands that move between modes and create or delete the objects of the inventory.
std::vector<Builtin> mode_builtins()
{
    const std::string all = kConfigModes;
    return {
        {cmd_configure, "configure(EN,0,'Enter configuration mode'){terminal(EN,0,'Configure from the terminal')}"},
        {cmd_interface,
         "interface(CONF,0,'Select an interface to configure'){"
         "vlan(CONF,0,'VLAN interface'){_1_4094_(CONF,0,'VLAN interface number')},"
         "gigabitethernet(CONF,0,'Gigabit Ethernet interface'){_WORD_(CONF,0,'Port number, such as 0/1')},"
         "link-aggregation(CONF,0,'Link-aggregation interface'){_CONFPORTAGGNUM_(CONF,0,'Link-aggregation number')},"
         "loopback(CONF,0,'Loopback interface'){_1_1024_(CONF,0,'Loopback interface number')},"
         "mgmt(CONF,0,'Management interface'){_0_0_(CONF,0,'Management interface number')}}"},
        {cmd_no_interface,
         "no(CONF,0,'Negate a command or set its defaults'){interface(CONF,0,'Delete an interface'){"
         "vlan(CONF,0,'VLAN interface'){_1_4094_(CONF,0,'VLAN interface number')},"
         "loopback(CONF,0,'Loopback interface'){_1_1024_(CONF,0,'Loopback interface number')}}}"},
        {cmd_numbered, "vlan(CONF,0,'Configure a VLAN'){_1_4094_(CONF,0,'VLAN id')}"},
        {cmd_numbered, "super-vlan(CONF,0,'Configure a super VLAN'){_1_4094_(CONF,0,'Super VLAN id')}"},
        {cmd_numbered, "vxlan(CONF,0,'Configure a VXLAN instance'){_1_16777215_(CONF,0,'VXLAN id')}"},
        {cmd_no_numbered,
         "no(CONF,0,'Negate a command or set its defaults'){vlan(CONF,0,'Delete a VLAN'){_1_4094_(CONF,0,'VLAN id')}}"},
        {cmd_no_numbered,
         "no(CONF,0,'Negate a command or set its defaults'){super-vlan(CONF,0,'Delete a super VLAN')"
         "{_1_4094_(CONF,0,'Super VLAN id')}}"},
        {cmd_no_numbered,
         "no(CONF,0,'Negate a command or set its defaults'){vxlan(CONF,0,'Delete a VXLAN instance')"
         "{_1_16777215_(CONF,0,'VXLAN id')}}"},
        {cmd_vxlan_port,
         "vxlan-port(VXLAN,0,'Define a VXLAN access port'){_1_65535_(VXLAN,0,'VXLAN port index'){"
         "interface(VXLAN,0,'The interface the port is attached to'){"
         "_WORD_(VXLAN,0,'Interface name, such as gigabitethernet0/1'){_CR_(VXLAN,0,''),"
         "svlan(VXLAN,0,'Outer VLAN of the port'){_1_4094_(VXLAN,0,'Outer VLAN id'){_CR_(VXLAN,0,''),"
         "cvlan(VXLAN,0,'Inner VLAN of the port'){_1_4094_(VXLAN,0,'Inner VLAN id')}}}}}}}"},
        {cmd_no_vxlan_port,
         "no(VXLAN,0,'Negate a command or set its defaults'){vxlan-port(VXLAN,0,'Delete a VXLAN access port')"
         "{_1_65535_(VXLAN,0,'VXLAN port index')}}"},
        {cmd_switchport, "switchport(PORTIF,0,'Make the port a layer-2 switch port')"},
        {cmd_switchport,
         "no(PORT,0,'Negate a command or set its defaults'){switchport(PORT,0,'Make the port a layer-3 routed port')}"},
        {cmd_exit, "exit(EN|" + all + ",0,'Exit from the current mode')"},
        {cmd_end, "end(" + all + ",0,'Return to privileged mode')"},
        {cmd_do, "do(" + all + ",0,'Run a privileged-mode command'){_LINE_(" + all + ",0,'Privileged-mode command')}"},
    };
}

// show, debug, write, reload, help and the terminal's settings.
std::vector<Builtin> privileged_builtins()
{
    const std::string all = kConfigModes;
    return {
        {cmd_show_running,
         "show(EN,0,'Show running system information'){running-config(EN,0,'Current operating configuration'){" +
             modifiers() + "}}"},
        {cmd_show_startup,
         "show(EN,0,'Show running system information'){startup-config(EN,0,'Saved startup configuration'){" +
             modifiers() + "}}"},
        {cmd_show_debugging, "show(EN,0,'Show running system information'){debugging(EN,0,'Debugging switches')}"},
        {cmd_debug_all, "debug(EN,0,'Debugging functions'){all(EN,0,'Enable all debugging')}"},
        {cmd_debug_all,
         "no(EN,0,'Negate a command or set its defaults'){debug(EN,0,'Debugging functions'){all(EN,0,'Disable all "
         "debugging')}}"},
        {cmd_write, "write(EN,0,'Save the running configuration as the startup configuration')"},
        {cmd_write, "write(EN,0,'Save the running configuration as the startup configuration'){"
                    "memory(EN,0,'Save the running configuration as the startup configuration')}"},
        {cmd_write, "copy(EN,0,'Copy a configuration'){running-config(EN,0,'The running configuration'){"
                    "startup-config(EN,0,'Save it as the startup configuration')}}"},
        {cmd_show_version, "show(EN,0,'Show running system information'){version(EN,0,'The switch, its ND plug-in "
                           "and uptime'){" +
                               modifiers() + "}}"},
        {cmd_show_history, "show(EN,0,'Show running system information'){history(EN,0,'The commands typed so far'){" +
                               modifiers() + "}}"},
        {cmd_help, "help(EN|" + all + ",0,'Description of the interactive help system')"},
        {cmd_reload, "reload(EN,0,'Restart the switch and replay the startup configuration')"},
        {cmd_terminal_length,
         "terminal(EN,0,'Set terminal line parameters'){length(EN,0,'Set the number of lines on a screen')"
         "{_0_512_(EN,0,'Number of lines on screen (0 for no pausing)')}}"},
    };
}

} // namespace

std::vector<std::string> words_of(int32_t argc, char **argv)
{
    std::vector<std::string> words;
    for (int32_t i = 0; i < argc; ++i)
        words.emplace_back(argv[i] ? argv[i] : "");
    return words;
}

void say(const std::string &text)
{
    printf("%s", text.c_str());
}

void refuse(const std::string &text)
{
    say(text);
    S().reject();
}

void register_builtins()
{
    std::vector<Builtin> all = mode_builtins();
    for (Builtin &b : privileged_builtins())
        all.push_back(std::move(b));
    for (Builtin &b : switching_builtins())
        all.push_back(std::move(b));
    for (const Builtin &b : all)
        if (cmd_register(b.fn, b.definition.c_str()) != 0)
            fprintf(stderr, "ndsh: the definition of a shell command is malformed: %s\n", b.definition.c_str());
}

} // namespace ndsh
