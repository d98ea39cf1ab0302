// The shell's session: start-up (the plug-in loaded as the switch loads it), the configuration
// modes with the environment values that handlers read, the inventory of configured objects,
// the shell's own commands and the execution of one typed line.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"
#include "ndplat_service.h"
#include "ndsh.h"

namespace ndsh {

namespace {

// Environment values of the configuration modes, as the handlers read them.
constexpr uint32_t kEnvInterfaceName = 1;
constexpr uint32_t kEnvPortmap = 19;
constexpr uint32_t kEnvVlan = 53;
constexpr uint32_t kEnvSuperVlan = 136;
constexpr uint32_t kEnvVxlan = 164;

constexpr const char *kHostname = "switch";
constexpr const char *kInventoryDb = "ndsh_inventory";
constexpr const char *kStartupConfig = "startup-config";
constexpr const char *kBootedMarker = "ndsh.booted";
constexpr int32_t kDefaultVlan = 1;
constexpr uint32_t kNdErrorCount = 50;

// The service's states in which the switch starts it at boot.
bool service_needs_start(int32_t state)
{
    return state == 0 || state == 1 || state == 4;
}

// The shell's own database work is not what an operator wants to see traced: the echo stays
// quiet meanwhile. (Faults are armed after the inventory is loaded; the inventory written by
// `write` and at the end of a session does count against DBM_* faults.)
class QuietTrace {
public:
    QuietTrace() { ndplat::trace_echo(nullptr); }
    ~QuietTrace()
    {
        if (Session::instance().options().trace)
            ndplat::trace_echo(stderr);
    }
};

// Inventory records in "ndsh_inventory": key "<kind> <number>", value type the kind, value
// the number (32-bit).
enum InventoryType : uint32_t {
    kInvVlan = 1,
    kInvSuperVlan,
    kInvVxlan,
    kInvVlanIf,
    kInvLoopback,
    kInvPort,
    kInvRoutedPort,
    kInvAggregation,
    kInvMgmt,
};
constexpr const char *kInventoryKinds[] = {"", "vlan", "super-vlan", "vxlan", "vlan-if", "loopback",
                                           "port", "routed-port", "aggregation", "mgmt"};

const uint32_t kDbmParams[7] = {1, 1, 256, 0, 0, 0, 0};

int32_t collect_record(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg)
{
    int32_t value = 0;
    if (DBM_GetUniqueBinary(h, key, keyLen, 0, &value, sizeof value) == static_cast<int32_t>(sizeof value))
        static_cast<std::set<int32_t> *>(arg)->insert(value);
    return 0;
}

struct KeyList {
    std::vector<std::string> keys;
};

int32_t collect_key(DBM_HANDLE, const void *key, uint16_t keyLen, void *arg)
{
    static_cast<KeyList *>(arg)->keys.emplace_back(static_cast<const char *>(key), keyLen);
    return 0;
}

std::string trim(std::string_view text)
{
    size_t b = 0, e = text.size();
    while (b < e && (text[b] == ' ' || text[b] == '\t'))
        ++b;
    while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t' || text[e - 1] == '\r' || text[e - 1] == '\n'))
        --e;
    return std::string(text.substr(b, e - b));
}

// A line that starts with the word "do" in a configuration mode runs a privileged command.
// Returns the offset of the command after "do", or 0 when the line is no such line.
size_t do_offset(std::string_view line, CliMode mode)
{
    if (mode == CliMode::EN || line.size() < 3 || line.substr(0, 2) != "do" || line[2] != ' ')
        return 0;
    size_t at = 2;
    while (at < line.size() && line[at] == ' ')
        ++at;
    return at;
}

} // namespace

// ---- inventory ---------------------------------------------------------------------------------------

void Inventory::clear()
{
    vlans = {kDefaultVlan};
    superVlans.clear();
    vxlans.clear();
    vlanIfs.clear();
    loopbacks.clear();
    ports.clear();
    routedPorts.clear();
    aggregations.clear();
    mgmt = false;
}

void Inventory::load()
{
    QuietTrace quiet;
    clear();
    saved_ = text();
    // A first start has no inventory yet; opening would create the database file for nothing.
    if (ndplat::dbm_storage() == ndplat::DbmStorage::Sqlite &&
        access((ndplat::dbm_state_dir() + "/" + kInventoryDb + ".db").c_str(), F_OK) != 0)
        return;
    DBM_HANDLE h = nullptr;
    if (DBM_Open(kInventoryDb, 1, kDbmParams, 0, 0, &h) != 0)
        return;
    std::set<int32_t> mgmtSet;
    std::set<int32_t> *sets[] = {nullptr, &vlans, &superVlans, &vxlans, &vlanIfs, &loopbacks,
                                 &ports, &routedPorts, &aggregations, &mgmtSet};
    for (uint32_t type = kInvVlan; type <= kInvMgmt; ++type)
        DBM_Proc(h, type, collect_record, sets[type]);
    mgmt = !mgmtSet.empty();
    DBM_Close(h);
    saved_ = text();
}

std::string Inventory::text() const
{
    std::string t;
    const std::set<int32_t> *sets[] = {&vlans, &superVlans, &vxlans, &vlanIfs, &loopbacks, &ports, &routedPorts, &aggregations};
    for (const std::set<int32_t> *set : sets) {
        for (int32_t n : *set)
            t += std::to_string(n) + ",";
        t += ";";
    }
    return t + (mgmt ? "mgmt" : "");
}

void Inventory::save()
{
    if (text() == saved_)
        return;
    saved_ = text();
    QuietTrace quiet;
    DBM_HANDLE h = nullptr;
    if (DBM_Open(kInventoryDb, 1, kDbmParams, 0, 0, &h) != 0)
        return;
    std::set<int32_t> mgmtSet;
    if (mgmt)
        mgmtSet.insert(0);
    const std::set<int32_t> *sets[] = {nullptr, &vlans, &superVlans, &vxlans, &vlanIfs, &loopbacks,
                                       &ports, &routedPorts, &aggregations, &mgmtSet};
    for (uint32_t type = kInvVlan; type <= kInvMgmt; ++type) {
        KeyList old;
        DBM_Proc(h, type, collect_key, &old);
        std::set<std::string> wanted;
        for (int32_t n : *sets[type]) {
            std::string key = std::string(kInventoryKinds[type]) + " " + std::to_string(n);
            wanted.insert(key);
            DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), type, &n, sizeof n, 0);
        }
        for (const std::string &key : old.keys)
            if (!wanted.count(key))
                DBM_Delete(h, key.data(), static_cast<uint16_t>(key.size()));
    }
    DBM_Close(h);
}

// ---- session -------------------------------------------------------------------------------------------

Session &Session::instance()
{
    static Session session;
    return session;
}

namespace {

void hook_orient()
{
    Output::instance().orient();
}
int32_t hook_break()
{
    return Output::instance().more_break();
}
int32_t hook_format()
{
    return Output::instance().more_format();
}
int32_t hook_console(const char *question)
{
    return Output::instance().console(question);
}
const ndplat::ShellHooks kHooks = {hook_orient, hook_break, hook_format, hook_console};

} // namespace

void Session::start(const Options &options)
{
    auto started = std::chrono::steady_clock::now();
    options_ = options;
    stateDir_ = options.stateDir;
    if (stateDir_.empty()) {
        const char *env = getenv("NDSIM_STATE");
        stateDir_ = env && *env ? env : "./ndsim-state";
    }
    setenv("NDSIM_STATE", stateDir_.c_str(), 1);
    mkdir(stateDir_.c_str(), 0755);
    mkdir((stateDir_ + "/flash").c_str(), 0755);

    register_builtins();
    ndplat::shell_hooks_set(&kHooks);

    // The single place where the shell reaches the ND service: the socket transport and the
    // service control of the state directory, and the service started at boot.
    if (options.service) {
        QuietTrace quiet;
        ndplat::service_attach(stateDir_);
        boot_nd_service();
    }

    inventory_.load();
    bool fresh = access((stateDir_ + "/" + kBootedMarker).c_str(), F_OK) != 0;

    if (options.trace)
        ndplat::trace_echo(stderr);
    for (const std::string &fault : options.faults)
        if (!ndplat::fault_parse(fault))
            Output::instance().write_terminal("% Bad --fault " + fault + " (expected FUNC=VALUE or FUNC=VALUExN)\n");

    load_plugin();
    enter(Context{});

    if (fresh) {
        if (FILE *marker = fopen((stateDir_ + "/" + kBootedMarker).c_str(), "w"))
            fclose(marker);
        if (options.startupConfig && access(startup_config_path().c_str(), R_OK) == 0)
            replay(startup_config_path());
    }
    startupMs_ = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
}

void Session::load_plugin()
{
    const char *path = options_.plugin.c_str();
    plugin_ = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
    if (!plugin_) {
        const char *why = dlerror();
        Output::instance().write_terminal(std::string("% Cannot load the ND plug-in: ") + (why ? why : path) + "\n");
        return;
    }
    auto *entry = reinterpret_cast<uint32_t (**)(void)>(dlsym(plugin_, "dl_cli_init"));
    if (!entry || !*entry) {
        Output::instance().write_terminal(std::string("% The ND plug-in ") + path + " has no entry dl_cli_init.\n");
        return;
    }
    uint32_t result = (*entry)();
    if (result == 0)
        return;
    auto *texts = reinterpret_cast<const char *const *>(dlsym(plugin_, "gNdErrorStr"));
    const char *text = texts && result < kNdErrorCount && texts[result] ? texts[result] : "unknown error";
    char line[256];
    snprintf(line, sizeof line, "%% ND start-up failed with code %u: %s\n", result, text);
    Output::instance().write_terminal(line);
}

std::string Session::startup_config_path() const
{
    return stateDir_ + "/flash/" + kStartupConfig;
}

std::string Session::prompt() const
{
    if (context_.mode == CliMode::EN)
        return std::string(kHostname) + "#";
    return std::string(kHostname) + "(" + context_.tag + ")#";
}

void Session::apply_env() const
{
    using Kind = Context::Kind;
    const Context &c = context_;
    ndplat::shell_env_set(kEnvInterfaceName, c.ifName.empty() ? nullptr : c.ifName.c_str());
    ndplat::int_env_set(kEnvVlan, c.kind == Kind::Vlan ? c.number : 0);
    ndplat::int_env_set(kEnvSuperVlan, c.kind == Kind::SuperVlan ? c.number : 0);
    ndplat::int_env_set(kEnvVxlan, c.kind == Kind::Vxlan ? c.number : 0);
    bool portMode = c.kind == Kind::Port || c.kind == Kind::Aggregation;
    ndplat::ptr_env_set(kEnvPortmap, portMode ? const_cast<uint8_t *>(portmap_.data()) : nullptr);
}

void Session::enter(const Context &context)
{
    context_ = context;
    if (context_.kind == Context::Kind::Port || context_.kind == Context::Kind::Aggregation)
        portmap_ = ndplat::portmap_of({context_.portId});
    else
        portmap_.clear();
    apply_env();
}

void Session::leave_to_conf()
{
    Context conf;
    conf.mode = CliMode::CONF;
    conf.tag = "config";
    enter(conf);
}

void Session::leave_to_en()
{
    enter(Context{});
}

void Session::exit_mode()
{
    if (context_.mode == CliMode::EN)
        finish();
    else if (context_.mode == CliMode::CONF)
        leave_to_en();
    else
        leave_to_conf();
}

void Session::report(const std::string &line, size_t column, const char *message) const
{
    std::string text;
    bool lineShown = (Output::instance().interactive() && !replaying_) || (options_.echo && !replaying_);
    Output::instance().newline_if_needed();
    if (!lineShown)
        text += prompt() + line + "\n";
    text += std::string(prompt().size() + column, ' ') + "^\n";
    text += message;
    text += "\n";
    Output::instance().write_terminal(text);
}

ndplat::Completion Session::complete(std::string_view partial) const
{
    size_t offset = do_offset(partial, context_.mode);
    if (offset == 0)
        return ndplat::complete_line(context_.mode, partial);
    ndplat::Completion c = ndplat::complete_line(CliMode::EN, partial.substr(offset));
    c.column += offset;
    c.prefixColumn += offset;
    return c;
}

bool Session::help(std::string_view partial) const
{
    ndplat::Completion c = complete(partial);
    if (c.status != ndplat::MatchStatus::Ok) {
        std::string text = std::string(prompt().size() + c.column, ' ') + "^\n" + ndplat::match_message(c.status) + "\n";
        Output::instance().write_terminal(text);
        return false;
    }
    Output::instance().write_terminal(format_help(c));
    return true;
}

bool Session::execute(const std::string &raw)
{
    std::string line = trim(raw);
    if (line.empty() || line[0] == '!')
        return true;
    if (line.back() == '?') {
        std::string partial = raw.substr(raw.find_first_not_of(" \t"));
        partial = partial.substr(0, partial.rfind('?'));
        if (!Output::instance().interactive() && !options_.echo)
            Output::instance().write_terminal(prompt() + partial + "?\n");
        return help(partial);
    }

    size_t offset = do_offset(line, context_.mode);
    CliMode mode = offset ? CliMode::EN : context_.mode;
    std::string_view command = std::string_view(line).substr(offset);
    ndplat::MatchResult match = ndplat::match_line(mode, command);
    if (match.status != ndplat::MatchStatus::Ok && offset == 0 && mode != CliMode::EN && mode != CliMode::CONF) {
        // A global command typed in a sub-mode leaves the sub-mode, as on the switch.
        ndplat::MatchResult global = ndplat::match_line(CliMode::CONF, command);
        if (global.status == ndplat::MatchStatus::Ok) {
            leave_to_conf();
            match = global;
        }
    }
    if (match.status == ndplat::MatchStatus::Empty)
        return true;
    if (match.status != ndplat::MatchStatus::Ok) {
        report(line, offset + match.column, match.message());
        return false;
    }
    return run_matched(match);
}

bool Session::run_matched(const ndplat::MatchResult &match)
{
    Output &out = Output::instance();
    Modifier modifier;
    std::string error;
    if (!parse_modifier(match.argv, modifier, error)) {
        out.newline_if_needed();
        out.write_terminal(error + "\n");
        return false;
    }
    if (!out.begin(modifier, error)) {
        out.newline_if_needed();
        out.write_terminal(error + "\n");
        return false;
    }
    std::vector<std::string> words = match.argv;
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    rejected_ = false;
    match.fn(static_cast<int32_t>(words.size()), argv.data());
    if (!out.end())
        rejected_ = true;
    out.newline_if_needed();
    bool accepted = !rejected_;
    if (reloadRequested_) {
        // The restart happens after the reload command has ended, as a new boot would.
        reloadRequested_ = false;
        inventory_.clear();
        leave_to_en();
        reboot_nd_service();
        if (access(startup_config_path().c_str(), R_OK) == 0)
            replay(startup_config_path());
    }
    return accepted;
}

void Session::boot_nd_service()
{
    if (!service_needs_start(DCM_Query("ipv6")))
        return;
    int32_t started = DCM_Start("ipv6", 1);
    if (started != 2) {
        char text[128];
        snprintf(text, sizeof text, "%% The ND service could not be started (%d).\n", started);
        Output::instance().write_terminal(text);
    }
}

// A reload is a new boot of the ND side too: the service starts again on an empty
// configuration database, into which the startup configuration is then replayed. The ISSU
// store is kept, as it is meant to outlive a restart.
void Session::reboot_nd_service()
{
    if (!options_.service)
        return;
    QuietTrace quiet;
    ndplat::service_stop(stateDir_);
    for (const char *suffix : {".db", ".db-wal", ".db-shm"})
        unlink((stateDir_ + "/ec_nd" + suffix).c_str());
    boot_nd_service();
}

bool Session::replay(const std::string &path)
{
    std::ifstream in(path);
    if (!in)
        return false;
    Output &out = Output::instance();
    ndplat::interactive_set(false);
    out.set_unattended(true);
    replaying_ = true;
    leave_to_conf();
    bool ok = true;
    std::string line;
    while (std::getline(in, line)) {
        std::string text = trim(line);
        if (text.empty() || text[0] == '!')
            continue;
        if (text == "end")
            break;
        if (line[0] != ' ' && context_.mode != CliMode::CONF)
            leave_to_conf();
        ok = execute(text) && ok;
    }
    leave_to_en();
    replaying_ = false;
    out.set_unattended(false);
    ndplat::interactive_set(true);
    return ok;
}

// ---- the shell's own commands ----------------------------------------------------------------------

namespace {

Session &S()
{
    return Session::instance();
}

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

int32_t cmd_configure(int32_t, char **)
{
    S().leave_to_conf();
    return 0;
}

int32_t cmd_interface(int32_t argc, char **argv)
{
    using Kind = Context::Kind;
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 3)
        return 0;
    Context c;
    Inventory &inv = S().inventory();
    const std::string &type = w[1];
    if (type == "gigabitethernet") {
        int32_t id = ndplat::port_id("gigabitethernet" + w[2]);
        const ndplat::PortInfo *info = id ? ndplat::port_find(id) : nullptr;
        if (!info || info->aggregation) {
            refuse("\n% Interface gigabitethernet" + w[2] + " does not exist.");
            return 0;
        }
        bool routed = inv.routedPorts.count(id) != 0;
        c.mode = routed ? CliMode::PORTIF : CliMode::PORT;
        c.kind = Kind::Port;
        c.portId = id;
        c.ifName = info->name;
        c.tag = "config-if-" + info->shortName;
        inv.ports.insert(id);
    } else if (type == "link-aggregation") {
        int32_t number = atoi(w[2].c_str());
        int32_t id = ndplat::aggregation_id(static_cast<uint32_t>(number));
        const ndplat::PortInfo *info = id ? ndplat::port_find(id) : nullptr;
        if (!info) {
            refuse("\n% Link-aggregation " + w[2] + " does not exist.");
            return 0;
        }
        c.mode = CliMode::LINK_AGGREGATION;
        c.kind = Kind::Aggregation;
        c.number = number;
        c.portId = id;
        c.ifName = info->name;
        c.tag = "config-if-" + info->shortName;
        inv.aggregations.insert(number);
    } else {
        int32_t number = atoi(w[2].c_str());
        c.number = number;
        c.ifName = type + std::to_string(number);
        c.tag = "config-if-" + c.ifName;
        if (type == "vlan") {
            c.mode = CliMode::IF;
            c.kind = Kind::VlanIf;
            inv.vlanIfs.insert(number);
        } else if (type == "loopback") {
            c.mode = CliMode::IF;
            c.kind = Kind::Loopback;
            inv.loopbacks.insert(number);
        } else {
            c.mode = CliMode::MIF;
            c.kind = Kind::Mgmt;
            inv.mgmt = true;
        }
    }
    S().enter(c);
    return 0;
}

int32_t cmd_no_interface(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    if (w.size() < 4)
        return 0;
    int32_t number = atoi(w[3].c_str());
    std::set<int32_t> &set = w[2] == "vlan" ? S().inventory().vlanIfs : S().inventory().loopbacks;
    if (!set.erase(number))
        refuse("\n% Interface " + w[2] + w[3] + " does not exist.");
    return 0;
}

// vlan N, super-vlan N, vxlan N and their "no" forms.
struct NumberedMode {
    const char *word;
    Context::Kind kind;
    CliMode mode;
    const char *tag;
    std::set<int32_t> Inventory::*set;
};
constexpr NumberedMode kNumberedModes[] = {
    {"vlan", Context::Kind::Vlan, CliMode::VLAN, "config-vlan", &Inventory::vlans},
    {"super-vlan", Context::Kind::SuperVlan, CliMode::SUPERVLAN, "config-super-vlan", &Inventory::superVlans},
    {"vxlan", Context::Kind::Vxlan, CliMode::VXLAN, "config-vxlan", &Inventory::vxlans},
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
    c.tag = m->tag + std::to_string(c.number);
    (S().inventory().*(m->set)).insert(c.number);
    S().enter(c);
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
    if (!(S().inventory().*(m->set)).erase(number))
        refuse("\n% " + std::string(m->word) + " " + w[2] + " does not exist.");
    return 0;
}

int32_t cmd_switchport(int32_t argc, char **argv)
{
    std::vector<std::string> w = words_of(argc, argv);
    Context c = S().context();
    bool routed = !w.empty() && w[0] == "no";
    if (routed)
        S().inventory().routedPorts.insert(c.portId);
    else
        S().inventory().routedPorts.erase(c.portId);
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

int32_t cmd_write(int32_t, char **)
{
    std::string path = S().startup_config_path();
    std::string temp = path + ".new";
    FILE *f = fopen(temp.c_str(), "w");
    if (!f) {
        refuse("\n% Cannot write " + path + ".");
        return 0;
    }
    running_config(fileno(f), false);
    fclose(f);
    if (rename(temp.c_str(), path.c_str()) != 0) {
        refuse("\n% Cannot write " + path + ".");
        return 0;
    }
    S().inventory().save();
    {
        QuietTrace quiet;
        DBM_Save("/flash", 0, 0, 0);
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
    say("\nReloading...");
    S().request_reload();
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
           "redirect(EN,0,'Redirect output to other resource'){file(EN,0,'Output to file')"
           "{_WORD_(EN,0,'Destination file name,such as \"/flash/test\"')}}}";
}

struct Builtin {
    SHELL_CMD_FN fn;
    std::string definition;
};

std::vector<Builtin> builtins()
{
    const std::string all = kConfigModes;
    const std::string en = "EN";
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
        {cmd_switchport, "switchport(PORTIF,0,'Make the port a layer-2 switch port')"},
        {cmd_switchport,
         "no(PORT,0,'Negate a command or set its defaults'){switchport(PORT,0,'Make the port a layer-3 routed port')}"},
        {cmd_exit, "exit(EN|" + all + ",0,'Exit from the current mode')"},
        {cmd_end, "end(" + all + ",0,'Return to privileged mode')"},
        {cmd_do, "do(" + all + ",0,'Run a privileged-mode command'){_LINE_(" + all + ",0,'Privileged-mode command')}"},
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
        {cmd_reload, "reload(EN,0,'Restart the switch and replay the startup configuration')"},
        {cmd_terminal_length,
         "terminal(EN,0,'Set terminal line parameters'){length(EN,0,'Set the number of lines on a screen')"
         "{_0_512_(EN,0,'Number of lines on screen (0 for no pausing)')}}"},
    };
}

} // namespace

void register_builtins()
{
    for (const Builtin &b : builtins())
        if (cmd_register(b.fn, b.definition.c_str()) != 0)
            fprintf(stderr, "ndsh: the definition of a shell command is malformed: %s\n", b.definition.c_str());
}

} // namespace ndsh
