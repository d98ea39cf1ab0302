// ndsh: the emulated switch's command shell. Loads the ND plug-in as the switch does and gives
// the operator the switch's command line; see `ndsh --help`.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <exception>
#include <iostream>
#include <new>
#include <optional>

#include "ndplat.h"
#include "ndplat_service.h"
#include "ndsh.h"

namespace {

constexpr const char *kUsage =
    "usage: ndsh [options]\n"
    "  -c 'CMD; CMD'        run these commands and exit (may be given more than once)\n"
    "  -f FILE              run the commands of FILE and exit\n"
    "  --plugin PATH        the ND plug-in to load (default: the built libnd-cli.so)\n"
    "  --state DIR          state directory (default: $NDSIM_STATE, else ./ndsim-state)\n"
    "  --lab NAME           be the switch of lab NAME (see ndlab): its ports and VLAN addresses follow\n"
    "                       the configuration, and the ND service snoops on its ports\n"
    "  --trace              print every platform call with its arguments on stderr\n"
    "  --fault FUNC=VALUE[xN]  make the next N calls of a platform function return VALUE\n"
    "  --yes | --no         answer of console questions when no operator is there (default yes)\n"
    "  --echo               print the prompt and each command before running it\n"
    "  --no-service         do not reach ndsvc: requests are answered in process\n"
    "  --no-startup-config  do not replay the startup configuration on a first start\n"
    "  --bench-startup      report start-up and completion latency, then exit\n"
    "Without -c or -f, commands come from the terminal (line editing, TAB, ?) or from a pipe.\n"
    "Exit status without a terminal: 0 when every command was carried out; 1 when a command was\n"
    "rejected, or could not be carried out because the ND service was unreachable or busy;\n"
    "2 for a usage error or a command file that cannot be read; 3 when the plug-in cannot be loaded.\n";

constexpr int kExitUsage = 2;
constexpr int kExitPlugin = 3;
constexpr off_t kMaxCommandFile = 64 << 20;

std::vector<std::string> split_commands(const std::string &text)
{
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t semi = text.find(';', start);
        std::string command = text.substr(start, semi == std::string::npos ? std::string::npos : semi - start);
        size_t first = command.find_first_not_of(" \t");
        size_t last = command.find_last_not_of(" \t");
        out.push_back(first == std::string::npos ? "" : command.substr(first, last - first + 1));
        if (semi == std::string::npos)
            break;
        start = semi + 1;
    }
    return out;
}

// The lines of a command file (-f). False, with the reason, when it is not a file that can be
// read whole: missing, unreadable, a directory, or larger than kMaxCommandFile.
bool read_command_file(const std::string &path, std::vector<std::string> &lines, std::string &why)
{
    ndsh::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0) {
        why = strerror(errno);
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        why = strerror(EISDIR);
        return false;
    }
    std::string text;
    char buffer[65536];
    for (;;) {
        ssize_t n = read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            why = strerror(errno);
            return false;
        }
        if (n == 0)
            break;
        text.append(buffer, static_cast<size_t>(n));
        if (text.size() > static_cast<size_t>(kMaxCommandFile)) {
            why = "larger than " + std::to_string(kMaxCommandFile >> 20) + " MB";
            return false;
        }
    }
    // As std::getline splits: a last line without its newline still counts.
    for (size_t start = 0; start < text.size();) {
        size_t nl = text.find('\n', start);
        if (nl == std::string::npos)
            nl = text.size();
        lines.push_back(text.substr(start, nl - start));
        start = nl + 1;
    }
    return true;
}

// False with the reason (naming the option) on a usage error.
bool parse(int argc, char **argv, ndsh::Options &o, std::string &why)
{
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](std::string &into) {
            if (i + 1 >= argc) {
                why = "option " + a + " needs a value";
                return false;
            }
            into = argv[++i];
            return true;
        };
        std::string v;
        if (a == "-c") {
            if (!value(v))
                return false;
            for (const std::string &cmd : split_commands(v))
                o.commands.push_back(cmd);
        } else if (std::string *into = a == "-f"         ? &o.file
                                       : a == "--plugin" ? &o.plugin
                                       : a == "--state"  ? &o.stateDir
                                       : a == "--lab"    ? &o.lab
                                                         : nullptr) {
            if (!value(*into))
                return false;
        } else if (a == "--fault") {
            if (!value(v))
                return false;
            // Checked here, applied once the shell has started.
            bool good = ndplat::fault_parse(v);
            ndplat::fault_clear();
            if (!good) {
                why = "bad --fault " + v + " (expected FUNC=VALUE or FUNC=VALUExN)";
                return false;
            }
            o.faults.push_back(v);
        } else if (a == "--trace") {
            o.trace = true;
        } else if (a == "--yes") {
            o.answerYes = true;
        } else if (a == "--no") {
            o.answerYes = false;
        } else if (a == "--echo") {
            o.echo = true;
        } else if (a == "--no-service") {
            o.service = false;
        } else if (a == "--no-startup-config") {
            o.startupConfig = false;
        } else if (a == "--bench-startup") {
            o.benchStartup = true;
        } else {
            why = "unknown option " + a;
            return false;
        }
    }
    return true;
}

// A value that a parameter accepts, for the completion walk of the benchmark.
std::string sample(const ndplat::Candidate &c)
{
    if (c.keyword)
        return c.text;
    if (c.text.size() > 2 && c.text.front() == '<') {
        size_t dash = c.text.find('-', 2);
        return c.text.substr(1, dash == std::string::npos ? c.text.size() - 2 : dash - 1);
    }
    if (c.text == "X:X::X:X")
        return "2001:db8::1";
    if (c.text == "X:X::X:X/M")
        return "2001:db8::/64";
    if (c.text == "H.H.H")
        return "0001.0203.0405";
    if (c.text == "A.B.C.D")
        return "10.0.0.1";
    if (c.text == "PORTLIST")
        return "0/1";
    return "abc";
}

// Walks every command of every mode through the completion: each partial line that ends
// after a word, and each first letter of a next keyword, is timed.
int bench(const ndsh::Session &session)
{
    using clock = std::chrono::steady_clock;
    constexpr size_t kMaxLines = 200000;
    constexpr int kMaxDepth = 24;
    size_t lines = 0, commands = 0, mismatched = 0;
    double total = 0, worst = 0;
    std::string worstLine;
    auto timed = [&](ndplat::CliMode mode, const std::string &line) {
        auto t0 = clock::now();
        ndplat::Completion c = ndplat::complete_line(mode, line);
        double us = std::chrono::duration<double, std::micro>(clock::now() - t0).count();
        ++lines;
        total += us;
        if (us > worst) {
            worst = us;
            worstLine = line;
        }
        return c;
    };
    std::function<void(ndplat::CliMode, const std::string &, int)> walk = [&](ndplat::CliMode mode,
                                                                              const std::string &line, int depth) {
        if (lines >= kMaxLines || depth > kMaxDepth)
            return;
        ndplat::Completion c = timed(mode, line);
        for (const ndplat::Candidate &cand : c.candidates) {
            if (cand.cr) {
                ++commands;
                if (ndplat::match_line(mode, line).status != ndplat::MatchStatus::Ok)
                    ++mismatched;
                continue;
            }
            if (cand.keyword && cand.text.size() > 1)
                timed(mode, line + cand.text.substr(0, 1));
            walk(mode, line + sample(cand) + " ", depth + 1);
        }
    };
    for (size_t m = 0; m < ndplat::kCliModeCount; ++m)
        walk(static_cast<ndplat::CliMode>(m), "", 0);
    printf("start-up to first prompt: %.2f ms (%zu command registrations merged)\n", session.startup_ms(),
           ndplat::registered_commands());
    printf("completion: %zu partial lines, mean %.1f us, max %.1f us (\"%s\")\n", lines, lines ? total / lines : 0.0,
           worst, worstLine.c_str());
    printf("complete commands reached: %zu, not accepted by the matcher: %zu\n", commands, mismatched);
    return mismatched ? 1 : 0;
}

} // namespace

// Under LeakSanitizer: libedit keeps wide-character copies (wcsdup) of its settings until the
// process ends; they are not the shell's.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:wcsdup\n";
}

namespace {

// What must hold before anything starts, so that a wrong lab or command file changes nothing:
// the lab exists, the command file is read. The exit status when it does not.
std::optional<int> check_inputs(const ndsh::Options &options, std::vector<std::string> &fileLines)
{
    std::string why;
    if (!options.lab.empty() && !ndsh::LabLink::check(options.lab, why)) {
        fprintf(stderr, "ndsh: --lab %s: %s\n", options.lab.c_str(), why.c_str());
        return kExitUsage;
    }
    if (!options.file.empty() && options.commands.empty() && !read_command_file(options.file, fileLines, why)) {
        fprintf(stderr, "ndsh: cannot read command file %s: %s\n", options.file.c_str(), why.c_str());
        return kExitUsage;
    }
    return std::nullopt;
}

int run(int argc, char **argv)
{
    // The shell only echoes the platform's calls (--trace); keeping them would grow without
    // bound over a long session.
    ndplat::trace_record_set(false);
    ndsh::Options options;
    options.plugin = NDSH_DEFAULT_PLUGIN;
    for (int i = 1; i < argc; ++i)
        if (!strcmp(argv[i], "-h") || !strcmp(argv[i], "--help")) {
            fputs(kUsage, stdout);
            return 0;
        }
    std::string why;
    if (!parse(argc, argv, options, why)) {
        fprintf(stderr, "ndsh: %s\n", why.c_str());
        fputs(kUsage, stderr);
        return kExitUsage;
    }
    // The plug-in is loaded before anything starts: a shell without it has nothing to offer.
    // The handle stays open; the session's own load finds the same library.
    if (!dlopen(options.plugin.c_str(), RTLD_NOW | RTLD_GLOBAL)) {
        const char *error = dlerror();
        fprintf(stderr, "ndsh: cannot load the ND plug-in %s: %s\n", options.plugin.c_str(), error ? error : "unknown error");
        return kExitPlugin;
    }
    std::vector<std::string> fileLines;
    if (std::optional<int> refused = check_inputs(options, fileLines))
        return *refused;

    bool scripted = !options.commands.empty() || !options.file.empty() || options.benchStartup;
    bool terminal = !scripted && isatty(0) && isatty(1);
    ndsh::Output::instance().init(terminal, options.answerYes);
    ndsh::Session &session = ndsh::Session::instance();
    session.start(options);

    int status = 0;
    if (options.benchStartup) {
        status = bench(session);
    } else if (!options.commands.empty()) {
        status = ndsh::run_lines(options.commands, options.echo);
    } else if (!options.file.empty()) {
        status = ndsh::run_lines(fileLines, options.echo);
    } else if (terminal) {
        status = ndsh::run_terminal();
    } else {
        for (std::string line; !session.finished() && std::getline(std::cin, line);)
            if (ndsh::run_lines({line}, options.echo) != 0)
                status = 1;
    }
    // The ND library hands its records to the service from a worker of its own: what the last
    // command queued (`nd mpos suppress`, say) reaches the service before the shell ends.
    ndplat::nd_library_flush();
    fflush(stdout);
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    // A failure that escapes every command (they catch their own) still ends with a message
    // and a status rather than an abort.
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc &) {
        fputs("ndsh: out of memory\n", stderr);
    } catch (const std::exception &e) {
        fprintf(stderr, "ndsh: %s\n", e.what());
    }
    return 1;
}
