// ndsh, the emulated switch's command shell: what its parts share. The session (modes,
// environment values, inventory, command execution), the output path (capture of what a
// handler prints, output modifiers, pager, console questions), the running configuration and
// the terminal (libedit line editing, TAB and `?`).
#ifndef NDSH_H
#define NDSH_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cmd_grammar.h"
#include "dbm_storage.h"

namespace ndsh {

using ndplat::CliMode;

// ---- options ---------------------------------------------------------------------------------
struct Options {
    std::string plugin;                // libnd-cli.so to load
    std::vector<std::string> commands; // -c, split at ';'
    std::string file;                  // -f
    std::string stateDir;              // --state, else $NDSIM_STATE, else ./ndsim-state
    bool trace = false;
    std::vector<std::string> faults;   // --fault FUNC=VALUE[xN]
    bool answerYes = true;             // --yes / --no: console answers without an operator
    bool echo = false;                 // --echo: print prompt and line before each command
    bool service = true;               // --no-service: answer requests in process
    bool startupConfig = true;         // --no-startup-config
    bool benchStartup = false;
};

// ---- output path ---------------------------------------------------------------------------------
// The output modifier at the end of a command ("| include x" and the others).
struct Modifier {
    enum class Kind { None, Begin, Include, IncludeContext, Exclude, Redirect };
    Kind kind = Kind::None;
    std::string pattern; // regular expression, or the file of a redirect
};
// Finds the modifier in a matched argument vector (the words after the first "|"). False with
// a message when it cannot be performed here.
bool parse_modifier(const std::vector<std::string> &argv, Modifier &modifier, std::string &error);

// The words from `from` on, joined by single blanks.
std::string join_words(const std::vector<std::string> &words, size_t from);

// Everything a command prints on standard output passes through here: while a command runs,
// file descriptor 1 points into a capture; at every pager call and at the end of the command
// the captured text is filtered by the modifier and shown through the pager.
class Output {
public:
    static Output &instance();

    // The terminal: whether an operator sits at it (pager and questions), its file descriptors.
    void init(bool interactive, bool answerYes);
    bool interactive() const { return interactive_; }

    // Pager length: lines per screen, 0 without paging; -1 returns to the terminal's height.
    void set_length(int lines);
    int length() const;

    // Runs around one command. A redirect that cannot be opened fails begin().
    bool begin(const Modifier &modifier, std::string &error);
    void sync(); // hands what the command printed so far to the modifier and the pager
    void end();
    bool capturing() const { return capturing_; }

    // Pager calls of the platform (SHELL_MoreOrientOutput, ...Break, ...Format).
    void orient();
    int32_t more_break();
    int32_t more_format();
    bool quit() const { return quit_; }
    // GetConsoleRsp: the question on the terminal, the operator's (or the option's) answer.
    int32_t console(const char *question);

    // Text for the terminal outside of a command (prompts, errors, help).
    void write_terminal(std::string_view text);
    // Starts a new line unless the terminal's last character ended one.
    void newline_if_needed();
    void at_line_start() { last_ = '\n'; } // the line editor ended the line itself
    // While a configuration is replayed nobody answers questions: they are taken as agreed.
    void set_unattended(bool unattended) { unattended_ = unattended; }

private:
    void filter(std::string_view text, bool final);
    void filter_line(const std::string &line, bool newline);
    void emit(std::string_view text);
    void page(std::string_view text);
    bool more_prompt();

    bool interactive_ = false;
    bool answerYes_ = true;
    bool unattended_ = false;
    char last_ = '\n';
    int length_ = -1;
    int termFd_ = 1;
    int captureFd_ = -1;
    int savedFd_ = -1;
    bool capturing_ = false;
    int nested_ = 0;
    bool quit_ = false;
    bool paging_ = false;
    int linesShown_ = 0;
    Modifier modifier_;
    void *regex_ = nullptr;
    bool begun_ = false;
    std::string partial_;
    std::vector<std::string> before_; // include context: the lines before a match
    int afterLeft_ = 0;
    int redirectFd_ = -1;
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
    // Removes every object but the default VLAN (a reload).
    bool reset(std::string &error);
    // Lets go of the database (before its file is set aside).
    void close();

private:
    static constexpr size_t kKinds = static_cast<size_t>(Kind::Mgmt) + 1;
    bool open();
    void read_all();
    std::string why_not() const;

    std::set<int32_t> sets_[kKinds];
    std::unique_ptr<ndplat::dbm::Connection> store_;
    uint64_t version_ = 0;
    bool loaded_ = false;
    std::string openError_;
};

// The mode the operator is in and the object it configures.
struct Context {
    enum class Kind { None, VlanIf, Loopback, Mgmt, Port, Aggregation, Vlan, SuperVlan, Vxlan };
    CliMode mode = CliMode::EN;
    Kind kind = Kind::None;
    int32_t number = 0;  // VLAN, super VLAN, VXLAN, interface or aggregation number
    int32_t portId = 0;  // port or aggregation
    std::string ifName;  // the interface name handlers read with SHELL_GetEnv(1)
    std::string tag;     // inside the prompt's parentheses
    std::pair<Inventory::Kind, int32_t> stored{Inventory::Kind::Vlan, 0}; // what the inventory keeps of it
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

private:
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
    std::string stateDir_;
    void *plugin_ = nullptr;
    bool finished_ = false;
    bool rejected_ = false;
    bool replaying_ = false;
    bool reloadRequested_ = false;
    double startupMs_ = 0;
    std::vector<uint8_t> portmap_; // behind mpsh_get_env(19) while a port or aggregation is configured
};

// Registers the shell's own commands in the platform's command tree.
void register_builtins();

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
