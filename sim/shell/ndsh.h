// ndsh, the emulated switch's command shell: what its parts share. The session (modes,
// environment values, inventory, command execution), the output path (capture of what a
// handler prints, output modifiers, pager, console questions), the running configuration and
// the terminal (libedit line editing, TAB and `?`).
#ifndef NDSH_H
#define NDSH_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "cmd_grammar.h"
#include "dbm_storage.h"
#include "file_io.h"
#include "ndplat_supervlan.h"

namespace re2 {
class RE2;
}

namespace ndsh {

using ndplat::CliMode;

// ---- options ---------------------------------------------------------------------------------
struct Options {
    std::string plugin;                // libnd-cli.so to load
    std::vector<std::string> commands; // -c, split at ';'
    std::string file;                  // -f
    std::string stateDir;              // --state, else $NDSIM_STATE, else ./ndsim-state
    bool trace = false;
    std::vector<std::string> faults; // --fault FUNC=VALUE[xN]
    bool answerYes = true;           // --yes / --no: console answers without an operator
    bool echo = false;               // --echo: print prompt and line before each command
    bool service = true;             // --no-service: answer requests in process
    bool startupConfig = true;       // --no-startup-config
    bool benchStartup = false;
    std::string lab; // --lab: the lab of real hosts this switch is
};

// ---- output path ---------------------------------------------------------------------------------
// The output modifier at the end of a command ("| include x" and the others).
struct Modifier {
    enum class Kind {
        None,
        Begin,
        Include,
        IncludeContext,
        Exclude,
        Section,
        Count,
        Redirect,
    };
    Kind kind = Kind::None;
    std::string pattern; // regular expression, or the file of a redirect
};
// Finds the modifier in a matched argument vector (the words after the first "|"). False with
// a message when it cannot be performed here.
bool parse_modifier(const std::vector<std::string> &argv, Modifier &modifier, std::string &error);

// The words from `from` on, joined by single blanks.
std::string join_words(const std::vector<std::string> &words, size_t from);

// Limits of a modifier's regular expression. Matching takes time linear in the line whatever
// the pattern; these bound the work and memory of compiling it.
constexpr size_t kMaxPatternLength = 1024;  // characters
constexpr int kMaxPatternDepth = 64;        // nested parentheses
constexpr int64_t kPatternMaxMem = 2 << 20; // compiled program and matching cache, bytes

// A compiled pattern of a modifier.
struct PatternDeleter {
    void operator()(re2::RE2 *re) const;
};
using Pattern = std::unique_ptr<re2::RE2, PatternDeleter>;
// Compiles a modifier's regular expression (POSIX extended syntax) within the limits above;
// null with a one-line message when it is too long, too deep, too complex or malformed.
Pattern compile_pattern(const std::string &text, std::string &error);

// The file of "| redirect file PATH". PATH is "/flash/NAME" or a NAME relative to /flash (the
// state directory's flash/); ".." is refused and no symbolic link is followed on the way. The
// text replaces the target only at commit(), as a ReplacingFile (mode 0600).
class RedirectFile {
public:
    bool open(const std::string &flashDir, const std::string &typed, std::string &error);
    bool is_open() const { return file_.is_open(); }
    void write(std::string_view text) { file_.write(text); }
    bool commit(std::string &error);
    void discard() { file_.discard(); }

private:
    ReplacingFile file_;
    std::string typed_;
};

// Everything a command prints on standard output passes through here: while a command runs,
// file descriptor 1 is the write end of a pipe. A thread drains the pipe as the handler writes;
// what it collected is handed to the modifier and the pager at every pager call, at the end of
// the command, and whenever it passes kHandOnBytes, so that a handler that prints without end
// and without pager calls cannot make the shell grow.
class Output {
public:
    static constexpr size_t kHandOnBytes = 1 << 20;
    // A line longer than this is matched by the modifiers in pieces of this size.
    static constexpr size_t kMaxLineBytes = 64 << 10;

    static Output &instance();
    ~Output();

    // The terminal: whether an operator sits at it (pager and questions), its file descriptors.
    void init(bool interactive, bool answerYes);
    bool interactive() const { return interactive_; }

    // Pager length: lines per screen, 0 without paging; -1 returns to the terminal's height.
    void set_length(int lines);
    int length() const;

    // Runs around one command. A pattern or redirect that cannot be used fails begin(); end()
    // is false when the redirected output could not be written (the message is printed).
    bool begin(const Modifier &modifier, std::string &error);
    void sync(); // hands what the command printed so far to the modifier and the pager
    bool end();
    bool capturing() const { return capturing_; }

    // Pager calls of the platform (SHELL_MoreOrientOutput, ...Break, ...Format).
    void orient();
    int32_t more_break();
    int32_t more_format();
    bool quit() const;
    // ^C while a command runs (async-signal-safe): what it prints from then on is dropped and
    // the pager's break call answers 1. Cleared when the next command begins.
    static void interrupt();
    static void clear_interrupt();
    // GetConsoleRsp: the question on the terminal, the operator's (or the option's) answer.
    int32_t console(const char *question);

    // Text for the terminal outside of a command (prompts, errors, help).
    void write_terminal(std::string_view text);
    // Starts a new line unless the terminal's last character ended one.
    void newline_if_needed();
    void at_line_start(); // the line editor ended the line itself
    // While a configuration is replayed nobody answers questions: they are taken as agreed.
    void set_unattended(bool unattended) { unattended_ = unattended; }

private:
    // Under mutex_: what the drain thread and the command's thread share.
    void drain_locked(bool all);
    void filter(std::string_view text, bool final);
    void filter_line(std::string_view line);
    void filter_context(std::string_view text, bool match);
    void emit(std::string_view text);
    void put(std::string_view text);
    void page(std::string_view text);
    bool more_prompt();

    void drain_loop();
    bool start_capture(std::string &error);
    bool open_capture(std::string &error);
    void stop_capture();

    bool interactive_ = false;
    bool answerYes_ = true;
    bool unattended_ = false;
    char last_ = '\n';
    std::atomic<int> length_{-1}; // set by a handler while the drain thread pages
    UniqueFd termFd_;             // the terminal (standard output as the shell started)
    bool capturing_ = false;
    int nested_ = 0;
    bool quit_ = false;
    bool paging_ = false;
    int linesShown_ = 0;
    Modifier modifier_;
    Pattern pattern_;
    bool begun_ = false;
    std::string pending_;             // drained from the pipe, not yet handed on
    std::string partial_;             // the start of a line not yet complete
    std::vector<std::string> before_; // include context: the lines before a match
    int afterLeft_ = 0;
    long lineNo_ = 0;     // include context: lines seen so far
    long lastShown_ = 0;  // and the number of the last one shown (0: none yet)
    long counted_ = 0;    // count: the lines counted so far
    std::string section_; // section: the section read so far
    bool sectionMatch_ = false;
    void flush_section();
    RedirectFile redirect_;

    int term() const { return termFd_ ? termFd_.get() : 1; }

    mutable std::mutex mutex_;
    UniqueFd captureRead_, captureWrite_, savedFd_, wake_;
    std::thread drainer_;
};

// ---- lab --------------------------------------------------------------------------------------------
// The lab of real hosts this shell configures (ndsh --lab NAME): its ports are moved to the
// access VLANs of the switch's ports and its VLAN bridges given the addresses of the VLAN
// interfaces. Without a lab every call does nothing.
class Inventory;
class LabLink {
public:
    // Whether lab `name` exists; false with the reason.
    static bool check(const std::string &name, std::string &error);
    void attach(const std::string &name) { name_ = name; }
    const std::string &name() const { return name_; }
    // What the service is started with: it snoops on the lab's ports.
    std::vector<std::string> service_args() const;
    // The whole stored configuration, at start and after a reload.
    void apply(const Inventory &inv);
    // One change; false with the operator's message. Ports the lab does not have are stored only.
    bool port_vlan(int32_t portId, int32_t vlan, std::string &error);
    bool address(int32_t vlanIf, bool add, const std::string &prefix, std::string &error);

private:
    std::string name_;
};

// ---- session -----------------------------------------------------------------------------------------
// What the shell knows of the switch it configures: VLANs, super VLANs, VXLAN instances and
// interfaces. Every change is committed to the configuration database "ndsh_inventory" before
// the shell acts on it, one transaction per change, so that a crash of the shell loses nothing
// it acknowledged and every shell on the same state directory sees what the others stored.
class Inventory {
public:
    enum class Kind : uint32_t {
        Vlan = 1,
        SuperVlan,
        Vxlan,
        VlanIf,
        Loopback,
        Port,       // port IDs of the ports configured so far
        RoutedPort, // of those, the ones after "no switchport"
        Aggregation,
        Mgmt, // the management interface, number 0
    };

    Inventory();
    const std::set<int32_t> &of(Kind kind) const { return sets_[static_cast<size_t>(kind)]; }
    bool has(Kind kind, int32_t number) const { return of(kind).count(number) != 0; }

    // Reads the stored inventory again when another shell changed it since the last look.
    void refresh();
    // Stores one change; false with the operator's message when the database refused it, and
    // then nothing changed. Removing what is not there stores nothing.
    bool add(Kind kind, int32_t number, std::string &error);
    bool remove(Kind kind, int32_t number, std::string &error);
    // Removes every object but the default VLAN, and every setting (a reload).
    bool reset(std::string &error);

    // The access VLAN of each layer-2 port: kDefaultVlan unless another one is stored. Storing
    // kDefaultVlan removes the record. Removing a VLAN puts its ports back into the default one.
    int32_t access_vlan(int32_t portId) const;
    const std::map<int32_t, int32_t> &access_vlans() const { return access_; }
    bool set_access_vlan(int32_t portId, int32_t vlan, std::string &error);
    // The IPv6 addresses of each VLAN interface, as "address/length" in the address's
    // canonical text. Removing the interface removes its addresses.
    const std::set<std::string> &addresses(int32_t vlanIf) const;
    bool add_address(int32_t vlanIf, const std::string &prefix, std::string &error);
    bool remove_address(int32_t vlanIf, const std::string &prefix, std::string &error);
    // The super VLAN of each sub-VLAN (sub-VLAN -> super VLAN, ascending); a VLAN belongs to at
    // most one. Removing the VLAN or the super VLAN removes the membership.
    const std::map<int32_t, int32_t> &sub_vlans() const { return supers_; }
    int32_t super_of(int32_t vlan) const; // 0: none
    bool add_sub_vlan(int32_t superVlan, int32_t vlan, std::string &error);
    bool remove_sub_vlan(int32_t vlan, std::string &error);
    // Lets go of the database (before its file is set aside).
    void close();

private:
    static constexpr size_t kKinds = static_cast<size_t>(Kind::Mgmt) + 1;
    // The value types of the settings' records, after the kinds of objects.
    static constexpr uint32_t kAccessVlanType = 20;
    static constexpr uint32_t kAddressType = 21;
    static_assert(ndplat::kSubVlanType > kAddressType, "the sub-VLAN records have a value type of their own");
    bool open();
    void read_all();
    void read_settings();
    std::string why_not() const;
    bool store(const std::string &key, uint32_t type, const void *value, uint32_t length, std::string &error);
    bool erase(const std::string &key, std::string &error);
    // The settings that depend on an object about to be removed.
    bool remove_dependents(Kind kind, int32_t number, std::string &error);
    bool remove_memberships(Kind kind, int32_t number, std::string &error);

    std::set<int32_t> sets_[kKinds];
    std::map<int32_t, int32_t> access_;                  // port ID -> VLAN, other than the default
    std::map<int32_t, std::set<std::string>> addresses_; // VLAN interface -> its addresses
    std::map<int32_t, int32_t> supers_;                  // sub-VLAN -> its super VLAN
    std::unique_ptr<ndplat::dbm::Connection> store_;
    uint64_t version_ = 0;
    bool loaded_ = false;
    std::string openError_;
};

// The startup configuration's file in the state directory's flash/, and the VLAN that always
// exists.
constexpr const char *kStartupConfigName = "startup-config";
constexpr int32_t kDefaultVlan = 1;

// The shell's own platform calls (service start and stop, `write`'s copy of the databases) are
// not what an operator wants to see traced: the echo stays quiet while one lives.
class QuietTrace {
public:
    QuietTrace();
    ~QuietTrace();
    QuietTrace(const QuietTrace &) = delete;
    QuietTrace &operator=(const QuietTrace &) = delete;
};

// The mode the operator is in and the object it configures.
struct Context {
    enum class Kind {
        None,
        VlanIf,
        Loopback,
        Mgmt,
        Port,
        Aggregation,
        Vlan,
        SuperVlan,
        Vxlan,
    };
    CliMode mode = CliMode::EN;
    Kind kind = Kind::None;
    int32_t number = 0; // VLAN, super VLAN, VXLAN, interface or aggregation number
    int32_t portId = 0; // port or aggregation
    std::string ifName; // the interface name handlers read with SHELL_GetEnv(1)
    std::string tag;    // inside the prompt's parentheses
    // What the inventory keeps of it.
    std::pair<Inventory::Kind, int32_t> stored{Inventory::Kind::Vlan, 0};
};

class Session {
public:
    static Session &instance();

    void start(const Options &options);
    const Options &options() const { return options_; }

    std::string prompt() const;
    const Context &context() const { return context_; }
    CliMode mode() const { return context_.mode; }

    // Executes one line as the operator typed it. False when the line was rejected (by the
    // grammar or by the shell's own checks).
    bool execute(const std::string &line);
    // The candidates for `?` and TAB, with "do" handled as the shell handles it.
    ndplat::Completion complete(std::string_view partial) const;
    // Prints the `?` help of a partial line; false when the words typed so far are wrong.
    bool help(std::string_view partial) const;

    bool finished() const { return finished_; }
    void finish() { finished_ = true; }

    // The shell's own commands call these.
    void enter(const Context &context);
    void leave_to_conf();
    void leave_to_en();
    void exit_mode();
    void reject() { rejected_ = true; }
    Inventory &inventory() { return inventory_; }
    LabLink &lab() { return lab_; }
    void *plugin() const { return plugin_; }

    // Replays a configuration file as the startup configuration: not interactive.
    bool replay(const std::string &path);
    void boot_nd_service();
    // Restarts the ND side and replays the startup configuration.
    void reload();
    std::string startup_config_path() const;
    std::string state_dir() const { return stateDir_; }
    bool replaying() const { return replaying_; }
    void request_reload() { reloadRequested_ = true; }

    double startup_ms() const { return startupMs_; }
    long uptime_seconds() const;
    // The lines typed so far (and those of earlier sessions at a terminal), oldest first.
    const std::vector<std::string> &history() const { return history_; }
    void history_add(const std::string &line) { history_.push_back(line); }

private:
    bool execute_line(const std::string &raw);
    bool run_matched(const ndplat::MatchResult &match);
    void report(const std::string &line, size_t column, const char *message) const;
    void apply_env() const;
    void set_aside_damaged();
    void replay_startup();
    std::string marker(const char *name) const;
    void report_damage() const;
    void load_plugin();

    Options options_;
    Context context_;
    Inventory inventory_;
    LabLink lab_;
    std::string stateDir_;
    void *plugin_ = nullptr;
    bool finished_ = false;
    bool rejected_ = false;
    bool replaying_ = false;
    bool reloadRequested_ = false;
    double startupMs_ = 0;
    time_t started_ = 0;
    std::vector<std::string> history_;
    std::vector<uint8_t> portmap_; // behind mpsh_get_env(19) while a port or aggregation is configured
};

// Registers the shell's own commands in the platform's command tree.
void register_builtins();

// What the shell's own commands share: a command handler and its definition, the words it was
// given, and how it answers. refuse() also marks the line as not carried out (a script stops).
struct Builtin {
    SHELL_CMD_FN fn;
    std::string definition;
};
std::vector<std::string> words_of(int32_t argc, char **argv);
void say(const std::string &text);
void refuse(const std::string &text);
// The port, VLAN-interface and super-VLAN settings of a switch: access VLANs, IPv6 addresses
// and sub-VLANs.
std::vector<Builtin> switching_builtins();

// ---- running configuration ----------------------------------------------------------------
// Writes the running configuration on fd: the shell's lines and, section by section, what the
// registered script handlers print, under a fresh running-configuration session id; raises
// the end-of-display event afterwards. With `paged`, asks the pager between sections and
// stops when the operator quit.
void running_config(int fd, bool paged);

// ---- terminal ----------------------------------------------------------------------------------------
// The interactive loop on a terminal (libedit), or the lines of a pipe.
int run_terminal();
int run_lines(const std::vector<std::string> &lines, bool echo);

// Formats the `?` help of a completion (also used by tests through `ndsh -c 'line ?'`).
std::string format_help(const ndplat::Completion &completion);

} // namespace ndsh

#endif
