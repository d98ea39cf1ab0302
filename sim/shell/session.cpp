// The shell's session: start-up (the plug-in loaded as the switch loads it), the configuration
// modes with the environment values that handlers read, boot and reload, and the execution of
// one typed line.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <new>
#include <fstream>

#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"
#include "ndplat_service.h"
#include "ndplat_supervlan.h"
#include "ndplat_vxlan.h"
#include "private_files.h"
#include "ndsh.h"

namespace ndsh {

namespace {

constexpr const char *kHostname = "switch";
constexpr const char *kNdDb = ndwire::kDatabase;
using ndplat::kInventoryDb;
constexpr const char *kBootedMarker = "ndsh.booted";
// Present while the startup configuration is being replayed: found at a start, it means that a
// boot or a reload was cut off half-way, and the reload is done again from the beginning.
constexpr const char *kReplayingMarker = "ndsh.replaying";
constexpr uint32_t kNdErrorCount = 50;

// The service's states in which the switch starts it at boot.
bool service_needs_start(int32_t state)
{
    return state == 0 || state == 1 || state == 4;
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

// ---- session -------------------------------------------------------------------------------------------

QuietTrace::QuietTrace()
{
    ndplat::trace_echo(nullptr);
}

QuietTrace::~QuietTrace()
{
    if (Session::instance().options().trace)
        ndplat::trace_echo(stderr);
}

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
    started_ = time(nullptr);
    options_ = options;
    stateDir_ = options.stateDir;
    if (stateDir_.empty()) {
        const char *env = getenv("NDSIM_STATE");
        stateDir_ = env && *env ? env : "./ndsim-state";
    }
    setenv("NDSIM_STATE", stateDir_.c_str(), 1);
    ndplat::make_private_dirs(stateDir_ + "/flash");

    register_builtins();
    ndplat::shell_hooks_set(&kHooks);
    ndplat::dbm_damage_log_set(false); // report_damage() tells the operator

    // The single place where the shell reaches the ND service: the socket transport and the
    // service control of the state directory, and the service started at boot.
    if (options.service) {
        QuietTrace quiet;
        lab_.attach(options.lab);
        ndplat::service_attach(stateDir_, lab_.service_args());
        boot_nd_service();
    }

    inventory_.refresh();
    bool fresh = access(marker(kBootedMarker).c_str(), F_OK) != 0;

    if (options.trace)
        ndplat::trace_echo(stderr);
    for (const std::string &fault : options.faults)
        if (!ndplat::fault_parse(fault))
            Output::instance().write_terminal("% Bad --fault " + fault + " (expected FUNC=VALUE or FUNC=VALUExN)\n");

    load_plugin();
    enter(Context{});
    report_damage();

    if (access(marker(kReplayingMarker).c_str(), F_OK) == 0) {
        Output::instance().write_terminal("% The last replay of the startup configuration did not finish: reloading.\n");
        reload();
    } else if (fresh) {
        // The replay's marker before the boot's: a start cut off in between replays again.
        if (options.startupConfig)
            ndplat::create_private_file(marker(kReplayingMarker));
        ndplat::create_private_file(marker(kBootedMarker));
        if (options.startupConfig)
            replay_startup();
    }
    lab_.apply(inventory_);
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
    return stateDir_ + "/flash/" + kStartupConfigName;
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
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, c.ifName.empty() ? nullptr : c.ifName.c_str());
    ndplat::int_env_set(ND_SHELL_ENV_VLAN, c.kind == Kind::Vlan ? c.number : 0);
    ndplat::int_env_set(ND_SHELL_ENV_SUPER_VLAN, c.kind == Kind::SuperVlan ? c.number : 0);
    ndplat::int_env_set(ND_SHELL_ENV_VXLAN, c.kind == Kind::Vxlan ? c.number : 0);
    bool portMode = c.kind == Kind::Port || c.kind == Kind::Aggregation;
    ndplat::ptr_env_set(ND_SHELL_ENV_PORTMAP, portMode ? const_cast<uint8_t *>(portmap_.data()) : nullptr);
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
    if (offset == 0) {
        ndplat::Completion own = ndplat::complete_line(context_.mode, partial);
        if (context_.mode == CliMode::EN || (own.status == ndplat::MatchStatus::Ok && !own.candidates.empty()))
            return own;
        // A show that the mode does not have runs as in privileged mode: helped as there.
        size_t start = partial.find_first_not_of(' ');
        size_t end = start == std::string_view::npos ? start : partial.find(' ', start);
        if (end == std::string_view::npos)
            return own;
        std::string_view first = partial.substr(start, end - start);
        if (first.size() < 2 || std::string_view("show").substr(0, first.size()) != first)
            return own;
        ndplat::Completion privileged = ndplat::complete_line(CliMode::EN, partial);
        return privileged.status == ndplat::MatchStatus::Ok && !privileged.candidates.empty() ? privileged : own;
    }
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
    if (c.candidates.empty()) {
        // Nothing visible goes on from these words (or from the word being typed): say so
        // rather than print nothing.
        size_t column = c.prefix.empty() ? partial.size() : c.prefixColumn;
        std::string text = std::string(prompt().size() + column, ' ') + "^\n" +
                           ndplat::match_message(ndplat::MatchStatus::Unknown) + "\n";
        Output::instance().write_terminal(text);
        return false;
    }
    Output::instance().write_terminal(format_help(c));
    return true;
}

namespace {

// Ends a command's output on every path: also when the command threw, the capture of standard
// output is undone before the shell says anything more.
class OutputScope {
public:
    explicit OutputScope(Output &out) : out_(out) {}
    ~OutputScope()
    {
        if (!ended_)
            out_.end();
    }
    OutputScope(const OutputScope &) = delete;
    OutputScope &operator=(const OutputScope &) = delete;
    bool end()
    {
        ended_ = true;
        return out_.end();
    }

private:
    Output &out_;
    bool ended_ = false;
};

} // namespace

// Whatever the shell's own code throws, allocation failure above all, ends this one line with
// a message: the shell, and the configuration session the operator is in, go on.
bool Session::execute(const std::string &raw)
{
    try {
        return execute_line(raw);
    } catch (const std::bad_alloc &) {
        Output::instance().write_terminal("% Not enough memory to carry out this command.\n");
    } catch (const std::exception &e) {
        Output::instance().write_terminal(std::string("% The command failed: ") + e.what() + "\n");
    }
    return false;
}

bool Session::execute_line(const std::string &raw)
{
    std::string line = trim(raw);
    if (line.empty() || line[0] == '!')
        return true;
    inventory_.refresh();
    if (line.back() == '?') {
        std::string partial = raw.substr(raw.find_first_not_of(" \t"));
        partial = partial.substr(0, partial.rfind('?'));
        if (!Output::instance().interactive() && !options_.echo)
            Output::instance().write_terminal(prompt() + partial + "?\n");
        return help(partial);
    }

    if (!replaying_)
        history_.push_back(line);
    size_t offset = do_offset(line, context_.mode);
    CliMode mode = offset ? CliMode::EN : context_.mode;
    std::string_view command = std::string_view(line).substr(offset);
    ndplat::MatchResult match = ndplat::match_line(mode, command);
    if (match.status != ndplat::MatchStatus::Ok && offset == 0 && mode != CliMode::EN) {
        // A show typed in a configuration mode runs as if "do" came first, unless the mode
        // has that command itself (then the match above took it).
        ndplat::MatchResult privileged = ndplat::match_line(CliMode::EN, command);
        if (privileged.status == ndplat::MatchStatus::Ok && !privileged.argv.empty() && privileged.argv[0] == "show")
            match = privileged;
    }
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
    OutputScope scope(out);
    match.fn(static_cast<int32_t>(words.size()), argv.data());
    if (!scope.end())
        rejected_ = true;
    out.newline_if_needed();
    bool accepted = !rejected_;
    if (reloadRequested_) {
        // The restart happens after the reload command has ended, as a new boot would.
        reloadRequested_ = false;
        reload();
    }
    report_damage();
    return accepted;
}

long Session::uptime_seconds() const
{
    // The switch is up as long as its ND service: since the service wrote its pid file. Without
    // a service, since this shell started.
    struct stat st {};
    time_t since = started_;
    if (options_.service && stat(ndplat::service_pid_path(stateDir_).c_str(), &st) == 0)
        since = st.st_mtime;
    long up = static_cast<long>(time(nullptr) - since);
    return up > 0 ? up : 0;
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
// store is kept, as it is meant to outlive a restart. A damaged database is set aside rather
// than deleted, so that it can still be inspected.
void Session::reload()
{
    leave_to_en();
    ndplat::create_private_file(marker(kReplayingMarker));
    ndplat::sync_parent_dir(marker(kReplayingMarker));
    QuietTrace quiet;
    if (options_.service)
        ndplat::service_stop(stateDir_);
    ndplat::dbm_close_idle();
    set_aside_damaged();
    std::string error;
    if (!inventory_.reset(error))
        Output::instance().write_terminal(error + "\n");
    if (!ndplat::vxport_remove_all(ndplat::VxportOrigin::Configured, 0, &error))
        Output::instance().write_terminal("% Cannot remove the configured VXLAN ports: " + error + ".\n");
    if (options_.service) {
        for (const char *suffix : {".db", ".db-wal", ".db-shm"})
            unlink((stateDir_ + "/" + kNdDb + suffix).c_str());
        boot_nd_service();
    }
    replay_startup();
}

// The marker goes only once the whole configuration was replayed.
void Session::replay_startup()
{
    ndplat::create_private_file(marker(kReplayingMarker));
    if (access(startup_config_path().c_str(), R_OK) == 0)
        replay(startup_config_path());
    unlink(marker(kReplayingMarker).c_str());
}

std::string Session::marker(const char *name) const
{
    return stateDir_ + "/" + name;
}

// Damage is told once, at the command (or the start) that met it.
void Session::report_damage() const
{
    for (const ndplat::DbmDamage &d : ndplat::dbm_damage_unreported())
        Output::instance().write_terminal("% The configuration database " + d.db + " is damaged (" + d.why + ").\n");
}

void Session::set_aside_damaged()
{
    if (ndplat::dbm_storage() != ndplat::DbmStorage::Sqlite)
        return;
    std::vector<ndplat::DbmDamage> damaged = ndplat::dbm_damaged();
    for (const char *db : {kNdDb, kInventoryDb, ndplat::kVxportDb}) {
        bool known = std::any_of(damaged.begin(), damaged.end(), [&](const auto &d) { return d.db == db; });
        if (!known && ndplat::dbm_check(db))
            continue;
        if (std::string(db) == kInventoryDb)
            inventory_.close();
        if (std::string(db) == ndplat::kVxportDb)
            ndplat::vxport_store_close();
        char stamp[32];
        time_t now = time(nullptr);
        struct tm local {};
        strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", localtime_r(&now, &local));
        std::string base = stateDir_ + "/" + db + ".db";
        for (const char *suffix : {"", "-wal", "-shm"})
            rename((base + suffix).c_str(), (base + suffix + ".damaged-" + stamp).c_str());
        ndplat::dbm_damage_forget(db);
        ndplat::dbm_damage_unreported();
        Output::instance().write_terminal("% The damaged configuration database " + std::string(db) + " was kept as " +
                                          base + ".damaged-" + stamp + ".\n");
    }
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

} // namespace ndsh
