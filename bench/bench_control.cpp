#include "bench_control.h"

#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bench_common.h"
#include "ndplat_service.h"

namespace ndbench {

namespace {

// What the signal handler may need: plain storage, read with async-signal-safe calls only.
constexpr size_t kMaxTracked = 64;
char gRunDir[256];
char gLab[64]; // a lab made by this run, deleted by ndlab
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
    if (gLab[0]) {
        pid_t del = fork();
        if (del == 0) {
            execl(ND_BENCH_NDLAB, "ndlab", "delete", gLab, static_cast<char *>(nullptr));
            _exit(127);
        }
        if (del > 0)
            waitpid(del, nullptr, 0);
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

} // namespace

void installCleanupSignals()
{
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        signal(sig, onSignal);
    signal(SIGPIPE, SIG_IGN);
}

RunDir::RunDir()
{
    char templ[64];
    snprintf(templ, sizeof templ, "/tmp/nd_bench.%ld.XXXXXX", static_cast<long>(getpid()));
    if (mkdtemp(templ)) {
        path_ = templ;
        snprintf(gRunDir, sizeof gRunDir, "%s", templ);
    }
}

RunDir::~RunDir()
{
    for (const std::string &dir : stateDirs_)
        stopService(dir);
    std::error_code ignored;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ignored);
    gRunDir[0] = '\0';
}

void RunDir::trackLab(const std::string &name)
{
    snprintf(gLab, sizeof gLab, "%s", name.c_str());
}

std::string RunDir::stateDir(const std::string &name)
{
    std::string dir = path_ + "/" + name;
    ndplat::service_state_dir_make(dir);
    stateDirs_.push_back(dir);
    return dir;
}

bool RunDir::startService(const std::string &dir, const std::vector<std::string> &args)
{
    long pid = ndplat::service_start(dir, args);
    if (pid <= 0)
        return false;
    trackService(static_cast<pid_t>(pid));
    return true;
}

void RunDir::stopService(const std::string &dir)
{
    long holder = ndplat::service_lock_holder(dir);
    ndplat::service_stop(dir);
    if (holder > 0)
        untrackService(static_cast<pid_t>(holder));
}

void RunDir::dropStateDir(const std::string &dir)
{
    stopService(dir);
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    stateDirs_.erase(std::remove(stateDirs_.begin(), stateDirs_.end(), dir), stateDirs_.end());
}

Child::Child(pid_t pid) : pid_(pid)
{
    if (pid_ > 0)
        gChild = pid_;
}

Child::~Child()
{
    if (pid_ > 0)
        reap(0);
}

void Child::forget()
{
    pid_ = -1;
    gChild = -1;
}

int Child::reap(int timeoutMs)
{
    if (pid_ <= 0)
        return -1;
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_)
            break;
        if (r < 0) {
            forget();
            return -1;
        }
        if (Clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    forget();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Child::ended()
{
    if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_)
        forget();
    return pid_ <= 0;
}

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

double threadsCpuMs(long pid)
{
    std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR *dir = opendir(tasks.c_str());
    if (!dir)
        return -1;
    double ns = 0;
    while (dirent *e = readdir(dir)) {
        if (e->d_name[0] == '.')
            continue;
        std::ifstream in(tasks + "/" + e->d_name + "/schedstat");
        double onCpu = 0;
        if (in >> onCpu)
            ns += onCpu;
    }
    closedir(dir);
    return ns / 1e6;
}

double ownCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

} // namespace ndbench
