// The project's benchmark: every performance figure of the emulated switch, each measured
// several times, printed as one Markdown table (measure, goal, median, min..max, median/goal)
// after one line naming the machine.
//
// The plug-in is driven in process the way ndsh drives it (its command handlers, script
// handlers and the platform's socket transport) against a real ndsvc over the socket; the
// shell's rows run the real ndsh binary, on a pseudo-terminal for the start-up.
//
//   nd_bench_service [--runs N] [--small] [--only ROW,...] [--ndsh PATH] [--ndsvc PATH]
//
// --runs N   runs of every measure (default 5)
// --small    every size 100 times smaller (at least 1): a smoke run
// --only     measure these rows alone (user-bind, hosts, inject, running-config, dbm, ndsh-f,
//            startup, memory), e.g. under a profiler; the configuration through ndsh -f that
//            the other rows need still runs once
//
// The order of the work: the configuration rows through `ndsh -f` come first, each in a fresh
// state directory with a service started beforehand; the last of those directories (4,094
// snooping VLANs in "ec_nd" and in the shell's inventory) then serves everything else, with
// its service restarted on the seed of learned bindings and VXLAN hosts. Everything lives
// under one directory /tmp/nd_bench.<pid>.XXXXXX, removed on every way out, and every service
// started here is stopped by its pid, also when a signal ends the benchmark.
//
// The exit status is 0 when every row produced a number in every run, 1 otherwise, 2 on a
// usage error.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dbm/nd_cli_dbm_internal.h"
#include "nd_cli.h"
#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

double sinceMs(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

size_t countOf(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++n;
    return n;
}

// ---- sizes and rows ---------------------------------------------------------------------------

struct Sizes {
    uint32_t dynamicBinds = 20480;
    uint32_t vxlanHosts = 100000;
    uint32_t injected = 1000000;
    uint32_t vlans = 4094;
    uint32_t staticBinds = 1000;
    uint32_t vxlans = 512;
    uint32_t dbmPairs = 1000; // open/close pairs timed per run, the run's figure is their mean
};

constexpr uint32_t kSmallDivisor = 100;

Sizes smallSizes()
{
    Sizes s;
    for (uint32_t *v : {&s.dynamicBinds, &s.vxlanHosts, &s.injected, &s.vlans, &s.staticBinds, &s.vxlans,
                        &s.dbmPairs})
        *v = std::max<uint32_t>(1, *v / kSmallDivisor);
    return s;
}

struct Row {
    Row(std::string k, std::string m, double g, std::string u)
        : key(std::move(k)), measure(std::move(m)), goal(g), unit(std::move(u))
    {
    }
    std::string key; // its name for --only
    std::string measure;
    double goal = 0;
    std::string unit;
    std::vector<double> samples;
    std::string failure; // the first reason a run produced no number
    void fail(const std::string &why)
    {
        if (failure.empty())
            failure = why;
    }
};

std::string withThousands(uint64_t n)
{
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0)
            out += ',';
        out += digits[i];
    }
    return out;
}

// A goal as written: no trailing zeros.
std::string goalText(double v)
{
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

std::string figure(double v)
{
    char text[32];
    snprintf(text, sizeof text, v < 10 ? "%.2f" : v < 100 ? "%.1f" : "%.0f", v);
    return text;
}

// ---- cleanup on every way out -----------------------------------------------------------------

// What a signal handler may need: plain storage, read with async-signal-safe calls only.
constexpr size_t kMaxTracked = 64;
char gRunDir[256];
volatile pid_t gServices[kMaxTracked];
volatile sig_atomic_t gServiceCount = 0;
volatile pid_t gChild = -1; // the ndsh running now

void trackService(pid_t pid)
{
    for (sig_atomic_t i = 0; i < gServiceCount; ++i)
        if (gServices[i] == pid)
            return;
    if (gServiceCount < static_cast<sig_atomic_t>(kMaxTracked)) {
        gServices[gServiceCount] = pid;
        gServiceCount = gServiceCount + 1;
    }
}

void untrackService(pid_t pid)
{
    for (sig_atomic_t i = 0; i < gServiceCount; ++i)
        if (gServices[i] == pid)
            gServices[i] = -1;
}

// A signal ends the benchmark: the running ndsh and every service started here are ended by
// their pids and reaped (they are this process's children), the run's directory removed.
void onSignal(int sig)
{
    if (gChild > 0) {
        kill(gChild, SIGKILL);
        waitpid(gChild, nullptr, 0);
    }
    for (sig_atomic_t i = 0; i < gServiceCount; ++i)
        if (gServices[i] > 0) {
            kill(gServices[i], SIGTERM);
            waitpid(gServices[i], nullptr, 0);
        }
    if (gRunDir[0]) {
        pid_t rm = fork();
        if (rm == 0) {
            execl("/bin/rm", "rm", "-rf", gRunDir, static_cast<char *>(nullptr));
            _exit(127);
        }
        if (rm > 0)
            waitpid(rm, nullptr, 0);
    }
    _exit(128 + sig);
}

// The run's directory and the services started in its state directories; at the end every
// service is stopped (by the pid that holds its lock) and the directory removed.
class RunDir {
public:
    RunDir()
    {
        char templ[64];
        snprintf(templ, sizeof templ, "/tmp/nd_bench.%ld.XXXXXX", static_cast<long>(getpid()));
        if (mkdtemp(templ)) {
            path_ = templ;
            snprintf(gRunDir, sizeof gRunDir, "%s", templ);
        }
    }
    ~RunDir()
    {
        for (const std::string &dir : stateDirs_)
            stopService(dir);
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
        gRunDir[0] = '\0';
    }
    RunDir(const RunDir &) = delete;
    RunDir &operator=(const RunDir &) = delete;
    bool ok() const { return !path_.empty(); }
    const std::string &path() const { return path_; }

    // A state directory of this run, made now.
    std::string stateDir(const std::string &name)
    {
        std::string dir = path_ + "/" + name;
        ndplat::service_state_dir_make(dir);
        stateDirs_.push_back(dir);
        return dir;
    }
    // Starts the service of dir (with the extra arguments); false when it did not come up.
    bool startService(const std::string &dir, const std::vector<std::string> &args = {})
    {
        long pid = ndplat::service_start(dir, args);
        if (pid <= 0)
            return false;
        trackService(static_cast<pid_t>(pid));
        return true;
    }
    void stopService(const std::string &dir)
    {
        long holder = ndplat::service_lock_holder(dir);
        ndplat::service_stop(dir);
        if (holder > 0)
            untrackService(static_cast<pid_t>(holder));
    }
    // Stops its service and removes a state directory that is no longer needed.
    void dropStateDir(const std::string &dir)
    {
        stopService(dir);
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
        stateDirs_.erase(std::remove(stateDirs_.begin(), stateDirs_.end(), dir), stateDirs_.end());
    }

private:
    std::string path_;
    std::vector<std::string> stateDirs_;
};

// ---- the shell as a process -------------------------------------------------------------------

// The environment of a child: this one's, with the state directory and the service binary set.
class ChildEnv {
public:
    ChildEnv(const std::string &stateDir, const std::string &ndsvc)
    {
        for (char **e = environ; *e; ++e)
            if (strncmp(*e, "NDSIM_STATE=", 12) && strncmp(*e, "NDSIM_NDSVC=", 12) && strncmp(*e, "TERM=", 5))
                words_.push_back(*e);
        words_.push_back("NDSIM_STATE=" + stateDir);
        words_.push_back("NDSIM_NDSVC=" + ndsvc);
        words_.push_back("TERM=vt100");
        for (std::string &w : words_)
            pointers_.push_back(w.data());
        pointers_.push_back(nullptr);
    }
    char **get() { return pointers_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

class Argv {
public:
    explicit Argv(std::vector<std::string> words) : words_(std::move(words))
    {
        for (std::string &w : words_)
            pointers_.push_back(w.data());
        pointers_.push_back(nullptr);
    }
    char **get() { return pointers_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

// Waits for the child, killing it after timeoutMs; its exit status (128+signal when killed).
int reap(pid_t pid, int timeoutMs)
{
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid)
            break;
        if (r < 0)
            return -1;
        if (Clock::now() >= deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    gChild = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// `ndsh -f file` in stateDir, its output into outPath; the wall time from the spawn to its end,
// or a negative value with the reason.
double runCommandFile(const std::string &ndsh, const std::string &ndsvc, const std::string &stateDir,
                      const std::string &file, const std::string &outPath, std::string &why)
{
    ChildEnv env(stateDir, ndsvc);
    Argv argv({ndsh, "--state", stateDir, "-f", file});
    int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) {
        why = "cannot write " + outPath;
        return -1;
    }
    Clock::time_point t0 = Clock::now();
    pid_t pid = fork();
    if (pid == 0) {
        int in = open("/dev/null", O_RDONLY);
        dup2(in, 0);
        dup2(out, 1);
        dup2(out, 2);
        execve(argv.get()[0], argv.get(), env.get());
        _exit(127);
    }
    close(out);
    if (pid < 0) {
        why = "fork failed";
        return -1;
    }
    gChild = pid;
    constexpr int kCommandFileTimeoutMs = 30 * 60 * 1000;
    int status = reap(pid, kCommandFileTimeoutMs);
    double ms = sinceMs(t0);
    if (status != 0) {
        why = "ndsh -f exited with " + std::to_string(status) + ": " + readFile(outPath).substr(0, 300);
        return -1;
    }
    return ms;
}

// ndsh on a pseudo-terminal: the time from the spawn until the first prompt appears, then the
// shell is told to exit. Negative with the reason when no prompt came.
double startToPrompt(const std::string &ndsh, const std::string &ndsvc, const std::string &stateDir, std::string &why)
{
    constexpr const char *kPrompt = "switch#";
    constexpr int kPromptTimeoutMs = 10000;
    ChildEnv env(stateDir, ndsvc);
    Argv argv({ndsh, "--state", stateDir});
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    int fd = -1;
    Clock::time_point t0 = Clock::now();
    pid_t pid = forkpty(&fd, nullptr, nullptr, &size);
    if (pid == 0) {
        execve(argv.get()[0], argv.get(), env.get());
        _exit(127);
    }
    if (pid < 0) {
        why = "forkpty failed";
        return -1;
    }
    gChild = pid;
    std::string seen;
    double ms = -1;
    Clock::time_point deadline = t0 + std::chrono::milliseconds(kPromptTimeoutMs);
    while (ms < 0) {
        int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        pollfd p = {fd, POLLIN, 0};
        if (left <= 0 || poll(&p, 1, left) <= 0)
            break;
        char buf[4096];
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0)
            break;
        seen.append(buf, static_cast<size_t>(n));
        if (seen.find(kPrompt) != std::string::npos)
            ms = sinceMs(t0);
    }
    if (ms < 0)
        why = "no prompt within " + std::to_string(kPromptTimeoutMs) + " ms: " + seen.substr(0, 200);
    if (write(fd, "exit\r", 5) < 0)
        why = why.empty() ? "cannot type exit" : why;
    // The pty is drained while the shell ends, so that it never blocks on its output.
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(5000);
    while (Clock::now() < end) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 20) > 0) {
            char buf[4096];
            if (read(fd, buf, sizeof buf) <= 0)
                break;
        }
        if (waitpid(pid, nullptr, WNOHANG) == pid) {
            gChild = -1;
            pid = -1;
            break;
        }
    }
    if (pid > 0)
        reap(pid, 0);
    close(fd);
    return ms;
}

// ---- the plug-in in process -------------------------------------------------------------------

// Standard output goes to a file while a command prints its table.
class OutputTo {
public:
    explicit OutputTo(const std::string &path)
    {
        fflush(stdout);
        saved_ = dup(1);
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 1);
        close(fd);
    }
    ~OutputTo()
    {
        fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
    }
    OutputTo(const OutputTo &) = delete;
    OutputTo &operator=(const OutputTo &) = delete;

private:
    int saved_;
};

SHELL_CMD_FN handlerOf(const char *part, bool negated)
{
    for (const ndplat::CmdRegistration &r : ndplat::cmd_registrations())
        if (r.definition.find(part) != std::string::npos && (r.definition.rfind("no(", 0) == 0) == negated)
            return r.fn;
    return nullptr;
}

int32_t run(SHELL_CMD_FN fn, std::vector<std::string> words)
{
    Argv argv(std::move(words));
    int32_t argc = 0;
    while (argv.get()[argc])
        ++argc;
    return fn(argc, argv.get());
}

uint32_t send(uint32_t code, const char *keyword, std::vector<std::pair<uint32_t, std::vector<uint8_t>>> items,
              bool vxlan = false)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, keyword, code);
    for (auto &[type, bytes] : items)
        nd_CliParamSet(&block, bytes.data(), static_cast<uint32_t>(bytes.size()), type, 1);
    return vxlan ? ndCliVxlanSetProc(&block, nullptr) : ndCliParamProc(&block);
}

template <typename T> std::vector<uint8_t> bytesOf(T v)
{
    std::vector<uint8_t> b(sizeof v);
    memcpy(b.data(), &v, sizeof v);
    return b;
}

// The diagnose text of a VXLAN instance, as the service writes it.
std::string diagnose(uint32_t vxlan)
{
    constexpr const char *kDiagnoseFile = "/tmp/.nd_diagnose";
    unlink(kDiagnoseFile);
    send(29, "show", {{13, bytesOf<uint32_t>(0)}, {2, bytesOf<uint32_t>(vxlan)}});
    std::string text = readFile(kDiagnoseFile);
    unlink(kDiagnoseFile);
    return text;
}

// VmRSS (or another field) of a process, in KiB; -1 when it cannot be read.
long statusKiB(long pid, const char *field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    size_t len = strlen(field);
    while (std::getline(in, line))
        if (line.compare(0, len, field) == 0 && line.size() > len && line[len] == ':')
            return atol(line.c_str() + len + 1);
    return -1;
}

// ---- the machine ------------------------------------------------------------------------------

std::string cpuModel()
{
    std::ifstream in("/proc/cpuinfo");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("model name", 0) == 0) {
            size_t colon = line.find(':');
            return colon == std::string::npos ? line : line.substr(colon + 2);
        }
    return "unknown";
}

std::string loadAverage()
{
    std::string text = readFile("/proc/loadavg");
    std::istringstream in(text);
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

struct Options {
    int runs = 5;
    bool small = false;
    std::string ndsh = ND_BENCH_NDSH;
    std::string ndsvc = ND_BENCH_NDSVC;
    std::vector<std::string> only; // the rows to measure; empty: all
};

constexpr const char *kUsage =
    "usage: nd_bench_service [--runs N] [--small] [--only ROW,...] [--ndsh PATH] [--ndsvc PATH]\n"
    "rows: user-bind, hosts, inject, running-config, dbm, ndsh-f, startup, memory\n";
constexpr const char *kRowKeys[] = {"user-bind", "hosts", "inject", "running-config", "dbm", "ndsh-f", "startup",
                                    "memory"};

bool parse(int argc, char **argv, Options &o)
{
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool hasValue = i + 1 < argc;
        if (a == "--small") {
            o.small = true;
        } else if (a == "--runs" && hasValue) {
            o.runs = atoi(argv[++i]);
            if (o.runs < 1)
                return false;
        } else if (a == "--ndsh" && hasValue) {
            o.ndsh = argv[++i];
        } else if (a == "--ndsvc" && hasValue) {
            o.ndsvc = argv[++i];
        } else if (a == "--only" && hasValue) {
            std::stringstream list(argv[++i]);
            for (std::string key; std::getline(list, key, ',');) {
                if (std::find(std::begin(kRowKeys), std::end(kRowKeys), key) == std::end(kRowKeys))
                    return false;
                o.only.push_back(key);
            }
        } else {
            return false;
        }
    }
    return true;
}

// The command file of the configuration rows: global snooping, then every VLAN with snooping.
std::string commandFile(uint32_t vlans)
{
    std::string text = "configure terminal\nnd snooping enable\n";
    for (uint32_t v = 1; v <= vlans; ++v)
        text += "vlan " + std::to_string(v) + "\nnd snooping enable\nexit\n";
    text += "end\n";
    return text;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        fputs(kUsage, stderr);
        return 2;
    }
    const Sizes sizes = options.small ? smallSizes() : Sizes{};
    const int runs = options.runs;
    // As in the shell: the platform's calls are not kept (the trace is a test aid).
    ndplat::trace_record_set(false);
    printf("Machine: nproc %u, CPU %s, load average at start %s\n", std::thread::hardware_concurrency(),
           cpuModel().c_str(), loadAverage().c_str());
    fflush(stdout);

    RunDir runDir;
    if (!runDir.ok()) {
        fprintf(stderr, "cannot make the run's directory under /tmp\n");
        return 1;
    }
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        signal(sig, onSignal);
    signal(SIGPIPE, SIG_IGN);

    enum { kUserBind, kHosts, kInjectCommand, kInjectHeld, kRunningConfig, kDbm, kCommandFile, kStartup, kMemory };
    const uint32_t fileLines = 3 * sizes.vlans + 3;
    std::vector<Row> rows = {
        {"user-bind", "`show nd snooping user-bind dynamic`, " + withThousands(sizes.dynamicBinds) + " rows, wall", 100, "ms"},
        {"hosts", "`show ipv6 nd host vxlan`, " + withThousands(sizes.vxlanHosts) + " hosts, wall", 120, "ms"},
        {"inject", "`nd mpos suppress ... " + std::to_string(sizes.injected) + "`: the command", 300, "ms"},
        {"inject", "`nd mpos suppress ... " + std::to_string(sizes.injected) + "`: all hosts held by the service", 600, "ms"},
        {"running-config", "full running configuration (" + withThousands(sizes.vlans) + " VLANs, " + withThousands(sizes.staticBinds) +
             " binds, " + withThousands(sizes.vxlans) + " VXLANs)",
         60, "ms"},
        {"dbm", "opening and closing \"ec_nd\" once (`DBM_Open` + `DBM_Close`, mean of " + withThousands(sizes.dbmPairs) +
             ")",
         20, "µs"},
        {"ndsh-f", "configuration through `ndsh -f`, " + withThousands(fileLines) + " lines", 1.5, "s"},
        {"startup", "`ndsh` start to prompt, " + withThousands(sizes.vlans) + " VLANs in the inventory", 10, "ms"},
        {"memory", "ND service memory (VmRSS of ndsvc), " + withThousands(sizes.dynamicBinds) + " bindings and " +
             withThousands(sizes.vxlanHosts) + " hosts",
         64, "MiB"},
    };
    std::vector<std::string> notes;
    auto want = [&](int row) {
        return options.only.empty() ||
               std::find(options.only.begin(), options.only.end(), rows[row].key) != options.only.end();
    };

    // ---- configuration through ndsh -f, each run in a fresh state directory ----
    std::string file = runDir.path() + "/config.txt";
    {
        std::ofstream(file) << commandFile(sizes.vlans);
    }
    std::string mainDir;
    // Without its row, one configuration still makes the switch the other rows measure.
    const int configRuns = want(kCommandFile) ? runs : 1;
    for (int r = 0; r < configRuns; ++r) {
        std::string dir = runDir.stateDir("config-" + std::to_string(r + 1));
        if (!runDir.startService(dir)) {
            rows[kCommandFile].fail("ndsvc did not start");
            continue;
        }
        std::string why;
        double ms = runCommandFile(options.ndsh, options.ndsvc, dir, file, runDir.path() + "/config.out", why);
        if (ms >= 0)
            rows[kCommandFile].samples.push_back(ms / 1000.0);
        else
            rows[kCommandFile].fail(why);
        // The last configured directory serves the other rows.
        if (ms >= 0 && r + 1 == configRuns) {
            mainDir = dir;
        } else {
            runDir.dropStateDir(dir);
        }
    }

    // ---- the configured switch, its service seeded with learned state ----
    std::string seed = runDir.path() + "/seed.json";
    {
        std::ofstream out(seed);
        out << R"({"dynamic_user_binds":[{"ip":"2001:db8:10::1","mac":"00:10:00:00:00:01","vlan":10,)"
            << R"("port":"gigabitethernet0/1","count":)" << sizes.dynamicBinds << "}],"
            << R"("vxlan_hosts":[{"vxlan":10,"ip":"2001:db8:a::1","mac":"00:0a:00:00:00:01","port_index":1,"count":)"
            << sizes.vxlanHosts << "}]}";
    }
    bool ready = !mainDir.empty();
    if (ready) {
        runDir.stopService(mainDir);
        ready = runDir.startService(mainDir, {"--seed", seed});
    }
    if (ready) {
        setenv("NDSIM_STATE", mainDir.c_str(), 1);
        setenv("NDSIM_NDSVC", options.ndsvc.c_str(), 1);
        ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite);
        ndplat::dbm_state_dir_set(mainDir);
        ndplat::service_attach(mainDir);
        ready = dl_nd_cli_init() == 0;
    }
    if (!ready) {
        for (Row &row : rows)
            if (&row != &rows[kCommandFile])
                row.fail("no configured switch to measure on (the configuration through ndsh -f failed)");
    }
    std::string listing = runDir.path() + "/listing.out";

    // ---- the two listings, and the service's memory once it has served them ----
    SHELL_CMD_FN userBind = ready ? handlerOf("dynamic-mpu", false) : nullptr;
    SHELL_CMD_FN hosts = ready ? handlerOf("Show ND Host entry", false) : nullptr;
    if (ready && (!userBind || !hosts)) {
        rows[kUserBind].fail("no handler registered");
        rows[kHosts].fail("no handler registered");
    }
    long servicePid = ready ? ndplat::service_lock_holder(mainDir) : -1;
    long peakKiB = 0;
    const bool listings = want(kUserBind) || want(kHosts) || want(kMemory);
    for (int r = 0; listings && ready && userBind && hosts && r < runs; ++r) {
        Clock::time_point t0 = Clock::now();
        {
            OutputTo quiet(listing);
            run(userBind, {"show", "nd", "snooping", "user-bind", "dynamic"});
        }
        double ms = sinceMs(t0);
        std::string total = "Total number: " + std::to_string(sizes.dynamicBinds);
        if (readFile(listing).find(total) != std::string::npos)
            rows[kUserBind].samples.push_back(ms);
        else
            rows[kUserBind].fail("the listing did not end with \"" + total + "\"");

        t0 = Clock::now();
        {
            OutputTo quiet(listing);
            run(hosts, {"show", "ipv6", "nd", "host", "vxlan"});
        }
        ms = sinceMs(t0);
        // The rows are counted: the total line under this table counts the last answer only.
        size_t listed = countOf(readFile(listing), "2001:db8:a::");
        if (listed == sizes.vxlanHosts)
            rows[kHosts].samples.push_back(ms);
        else
            rows[kHosts].fail("the listing held " + std::to_string(listed) + " hosts");

        long rss = statusKiB(servicePid, "VmRSS");
        peakKiB = std::max(peakKiB, statusKiB(servicePid, "VmHWM"));
        if (rss > 0)
            rows[kMemory].samples.push_back(rss / 1024.0);
        else
            rows[kMemory].fail("no VmRSS for ndsvc pid " + std::to_string(servicePid));
    }
    if (peakKiB > 0)
        notes.push_back("ndsvc peak resident size (VmHWM) after the listings: " + figure(peakKiB / 1024.0) + " MiB");

    // ---- the running configuration: static user-binds and VXLAN instances added ----
    if (ready && want(kRunningConfig)) {
        Clock::time_point c0 = Clock::now();
        uint32_t refused = 0;
        for (uint32_t i = 0; i < sizes.staticBinds; ++i) {
            uint8_t ip[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0x99};
            ip[14] = static_cast<uint8_t>(i >> 8);
            ip[15] = static_cast<uint8_t>(i);
            uint8_t mac[6] = {0, 0x99, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
            char name[40] = "gigabitethernet0/1";
            refused += send(11, "nd",
                            {{4, std::vector<uint8_t>(ip, ip + 16)},
                             {6, std::vector<uint8_t>(mac, mac + 6)},
                             {2, bytesOf<uint32_t>(10)},
                             {3, bytesOf<int32_t>(1)},
                             {1, std::vector<uint8_t>(name, name + 40)}}) != 0;
        }
        for (uint32_t id = 1; id <= sizes.vxlans; ++id)
            refused += send(22, "ipv6", {{15, bytesOf(id)}}, true) != 0;
        notes.push_back("set-up, not measured: " + withThousands(sizes.staticBinds) + " static user-binds and " +
                        withThousands(sizes.vxlans) + " VXLAN instances configured through the service in " +
                        figure(sinceMs(c0) / 1000.0) + " s");
        if (refused)
            rows[kRunningConfig].fail(std::to_string(refused) + " configuration requests were refused");
        std::string out = runDir.path() + "/running-config.out";
        std::vector<double> globals, vlans, vxlans;
        for (int r = 0; refused == 0 && r < runs; ++r) {
            int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            uint32_t session = 100 + static_cast<uint32_t>(r);
            Clock::time_point t0 = Clock::now();
            ndplat::running_cfg_session_set(session);
            ndGobleEnableScriptHandler(fd, 0, 0, 0);
            ndGobleScriptHandler(fd, 0, 0, 0);
            globals.push_back(sinceMs(t0));
            Clock::time_point v0 = Clock::now();
            for (uintptr_t vlan = 1; vlan <= sizes.vlans; ++vlan)
                ndVlanIfScriptHandler(fd, 0, vlan, 0);
            vlans.push_back(sinceMs(v0));
            Clock::time_point x0 = Clock::now();
            for (uintptr_t id = 1; id <= sizes.vxlans; ++id)
                nd_CliVxlanScriptHandler(fd, 0, id, 0);
            vxlans.push_back(sinceMs(x0));
            ndplat::notify_raise(23, 8, session, 0);
            ndplat::running_cfg_session_set(0xFFFFFFFFu);
            double ms = sinceMs(t0);
            close(fd);
            std::string text = readFile(out);
            size_t snooping = countOf(text, "nd snooping enable\n");
            size_t binds = countOf(text, "nd snooping user-bind static ");
            size_t suppression = countOf(text, "suppression");
            if (snooping == sizes.vlans + 1 && binds == sizes.staticBinds && suppression >= sizes.vxlans)
                rows[kRunningConfig].samples.push_back(ms);
            else
                rows[kRunningConfig].fail("the configuration printed " + std::to_string(snooping) +
                                          " snooping lines, " + std::to_string(binds) + " user-binds, " +
                                          std::to_string(suppression) + " suppression lines");
        }
        if (!globals.empty()) {
            for (std::vector<double> *v : {&globals, &vlans, &vxlans})
                std::sort(v->begin(), v->end());
            size_t mid = globals.size() / 2;
            notes.push_back("running configuration, medians of its parts: global lines " + figure(globals[mid]) +
                            " ms, VLANs " + figure(vlans[mid]) + " ms, VXLAN instances " + figure(vxlans[mid]) +
                            " ms");
        }
    }

    // ---- opening and closing "ec_nd" ----
    for (int r = 0; ready && want(kDbm) && r < runs; ++r) {
        bool ok = true;
        Clock::time_point t0 = Clock::now();
        for (uint32_t i = 0; ok && i < sizes.dbmPairs; ++i) {
            DBM_HANDLE h = nullptr;
            ok = DBM_Open(ndwire::kDatabase, ND_DBM_OPEN_MODE, ndcli::kNdDbmOpenParams, 0, 0, &h) == 0 &&
                 DBM_Close(h) == 0;
        }
        double us = sinceMs(t0) * 1000.0 / sizes.dbmPairs;
        if (ok)
            rows[kDbm].samples.push_back(us);
        else
            rows[kDbm].fail("DBM_Open or DBM_Close failed");
    }

    // ---- ndsh start to prompt, the service running ----
    for (int r = 0; ready && want(kStartup) && r < runs; ++r) {
        std::string why;
        double ms = startToPrompt(options.ndsh, options.ndsvc, mainDir, why);
        if (ms >= 0)
            rows[kStartup].samples.push_back(ms);
        else
            rows[kStartup].fail(why);
    }

    // ---- one million suppression hosts, removed again after each run ----
    SHELL_CMD_FN suppress = ready ? handlerOf("suppress(EN, 0, HIDE", false) : nullptr;
    SHELL_CMD_FN unsuppress = ready ? handlerOf("suppress(EN, 0, HIDE", true) : nullptr;
    if (ready && (!suppress || !unsuppress)) {
        rows[kInjectCommand].fail("no handler registered");
        rows[kInjectHeld].fail("no handler registered");
    }
    const std::string count = std::to_string(sizes.injected);
    const std::string held = "suppression hosts: " + count + "\n";
    for (int r = 0; ready && want(kInjectCommand) && suppress && unsuppress && r < runs; ++r) {
        Clock::time_point t0 = Clock::now();
        run(suppress, {"nd", "mpos", "suppress", "10", "7", "2001:db8::1", "192.0.2.9", "0011.2233.4455", count});
        double command = sinceMs(t0);
        ndplat::nd_library_flush();
        double all = sinceMs(t0);
        if (diagnose(10).find(held) != std::string::npos) {
            rows[kInjectCommand].samples.push_back(command);
            rows[kInjectHeld].samples.push_back(all);
        } else {
            rows[kInjectCommand].fail("the service did not hold " + count + " hosts");
            rows[kInjectHeld].fail("the service did not hold " + count + " hosts");
        }
        run(unsuppress,
            {"no", "nd", "mpos", "suppress", "10", "7", "2001:db8::1", "192.0.2.9", "0011.2233.4455", count});
        ndplat::nd_library_flush();
        if (diagnose(10).find("suppression hosts: 0\n") == std::string::npos) {
            rows[kInjectCommand].fail("the injected hosts could not be removed again");
            rows[kInjectHeld].fail("the injected hosts could not be removed again");
            break;
        }
    }

    if (ready)
        ndplat::service_detach();

    // ---- the table ----
    bool complete = true;
    printf("\n| Measure | Goal | Median | Spread (min..max) | Runs | Median/goal |\n");
    printf("|---|---|---|---|---|---|\n");
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!want(static_cast<int>(i)))
            continue;
        Row &row = rows[i];
        std::string goal = "≤ " + goalText(row.goal) + " " + row.unit;
        if (row.samples.empty() || !row.failure.empty())
            complete = false;
        if (row.samples.empty()) {
            printf("| %s | %s | no figure: %s | | 0 | |\n", row.measure.c_str(), goal.c_str(), row.failure.c_str());
            continue;
        }
        std::vector<double> s = row.samples;
        std::sort(s.begin(), s.end());
        double median = s.size() % 2 ? s[s.size() / 2] : (s[s.size() / 2 - 1] + s[s.size() / 2]) / 2;
        printf("| %s | %s | %s %s | %s..%s | %zu | %.2f |\n", row.measure.c_str(), goal.c_str(), figure(median).c_str(),
               row.unit.c_str(), figure(s.front()).c_str(), figure(s.back()).c_str(), s.size(), median / row.goal);
        if (!row.failure.empty())
            notes.push_back("runs without a figure in \"" + row.measure + "\": " + row.failure);
    }
    printf("\n");
    for (const std::string &note : notes)
        printf("- %s\n", note.c_str());
    printf("- load average at the end: %s\n", loadAverage().c_str());
    return complete ? 0 : 1;
}
