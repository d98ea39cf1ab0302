// The shell's rows, with the real ndsh as a process: the configuration through `ndsh -f` and
// the time from its start to the first prompt on a pseudo-terminal.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "bench_common.h"
#include "bench_control.h"
#include "bench_rows.h"

extern char **environ;

namespace ndbench {

namespace {

// The environment of a child: this one's, with the state directory and the service binary set.
std::vector<std::string> childEnvironment(const std::string &stateDir, const std::string &ndsvc)
{
    std::vector<std::string> words;
    for (char **e = environ; *e; ++e)
        if (strncmp(*e, "NDSIM_STATE=", 12) && strncmp(*e, "NDSIM_NDSVC=", 12) && strncmp(*e, "TERM=", 5))
            words.push_back(*e);
    words.push_back("NDSIM_STATE=" + stateDir);
    words.push_back("NDSIM_NDSVC=" + ndsvc);
    words.push_back("TERM=vt100");
    return words;
}

// In the forked child: the shell, or exit status 127 when it cannot be run.
[[noreturn]] void execShell(Words &argv, Words &env)
{
    execve(argv.get()[0], argv.get(), env.get());
    _exit(127);
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

// Reads the shell's terminal until the prompt appears or the time is up: the time from t0 to
// the prompt, negative when none came; what was read stays in seen.
double waitForPrompt(int fd, Clock::time_point t0, int timeoutMs, std::string &seen)
{
    constexpr const char *kPrompt = "switch#";
    Clock::time_point deadline = t0 + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        pollfd p = {fd, POLLIN, 0};
        if (left <= 0 || poll(&p, 1, left) <= 0)
            return -1;
        char buf[4096];
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0)
            return -1;
        seen.append(buf, static_cast<size_t>(n));
        if (seen.find(kPrompt) != std::string::npos)
            return sinceMs(t0);
    }
}

// Tells the shell to exit, draining its terminal while it ends so that it never blocks on its
// output; false when exit could not be typed. A shell still running after that is killed
// when its guard ends.
bool endShell(Child &child, int fd)
{
    bool typed = write(fd, "exit\r", 5) >= 0;
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(5000);
    while (Clock::now() < end) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 20) > 0) {
            char buf[4096];
            if (read(fd, buf, sizeof buf) <= 0)
                break;
        }
        if (child.ended())
            break;
    }
    return typed;
}

// ndsh on a pseudo-terminal: the time from the spawn until the first prompt appears, then the
// shell is told to exit. Negative with the reason when no prompt came.
double startToPrompt(const Binaries &bin, const std::string &stateDir, std::string &why)
{
    constexpr int kPromptTimeoutMs = 10000;
    Words env(childEnvironment(stateDir, bin.ndsvc));
    Words argv({bin.ndsh, "--state", stateDir});
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    int fd = -1;
    Clock::time_point t0 = Clock::now();
    pid_t pid = forkpty(&fd, nullptr, nullptr, &size);
    if (pid == 0)
        execShell(argv, env);
    if (pid < 0) {
        why = "forkpty failed";
        return -1;
    }
    Fd terminal(fd);
    Child child(pid);
    std::string seen;
    double ms = waitForPrompt(fd, t0, kPromptTimeoutMs, seen);
    if (ms < 0)
        why = "no prompt within " + std::to_string(kPromptTimeoutMs) + " ms: " + seen.substr(0, 200);
    if (!endShell(child, fd))
        why = why.empty() ? "cannot type exit" : why;
    return ms;
}

} // namespace

double runCommandFile(const Binaries &bin, const std::string &stateDir, const std::string &file,
                      const std::string &outPath, std::string &why)
{
    constexpr int kCommandFileTimeoutMs = 30 * 60 * 1000;
    Words env(childEnvironment(stateDir, bin.ndsvc));
    Words argv({bin.ndsh, "--state", stateDir, "-f", file});
    Clock::time_point t0;
    pid_t pid = -1;
    {
        Fd out(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        if (!out.ok()) {
            why = "cannot write " + outPath;
            return -1;
        }
        t0 = Clock::now();
        pid = fork();
        if (pid == 0) {
            int in = open("/dev/null", O_RDONLY);
            dup2(in, 0);
            dup2(out.get(), 1);
            dup2(out.get(), 2);
            execShell(argv, env);
        }
    }
    if (pid < 0) {
        why = "fork failed";
        return -1;
    }
    Child child(pid);
    int status = child.reap(kCommandFileTimeoutMs);
    double ms = sinceMs(t0);
    if (status != 0) {
        why = "ndsh -f exited with " + std::to_string(status) + ": " + readFile(outPath).substr(0, 300);
        return -1;
    }
    return ms;
}

std::string measureCommandFile(Bench &bench, RunDir &runDir, const Binaries &bin)
{
    Row &row = bench.row(kCommandFile);
    std::string file = runDir.path() + "/config.txt";
    {
        std::ofstream(file) << commandFile(bench.sizes.vlans);
    }
    std::string mainDir;
    const int configRuns = bench.want(kCommandFile) ? bench.runs : 1;
    for (int r = 0; r < configRuns; ++r) {
        std::string dir = runDir.stateDir("config-" + std::to_string(r + 1));
        if (!runDir.startService(dir)) {
            row.fail("ndsvc did not start");
            continue;
        }
        std::string why;
        double ms = runCommandFile(bin, dir, file, runDir.path() + "/config.out", why);
        row.record(ms >= 0, ms / 1000.0, why);
        // The last configured directory serves the other rows.
        if (ms >= 0 && r + 1 == configRuns)
            mainDir = dir;
        else
            runDir.dropStateDir(dir);
    }
    return mainDir;
}

void measureStartup(Bench &bench, const Binaries &bin, const std::string &stateDir)
{
    for (int r = 0; bench.want(kStartup) && r < bench.runs; ++r) {
        std::string why;
        double ms = startToPrompt(bin, stateDir, why);
        bench.row(kStartup).record(ms >= 0, ms, why);
    }
}

} // namespace ndbench
