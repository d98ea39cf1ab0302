// Service control of the real ND service: DCM_Query("ipv6") asks whether ndsvc accepts
// requests on the state directory's socket, DCM_Start("ipv6", 1) starts it as a process of its
// own and waits until it does.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cmf_io.h"
#include "ndplat_service.h"
#include "private_files.h"

#ifndef NDSIM_NDSVC_PATH
#define NDSIM_NDSVC_PATH "ndsvc"
#endif

namespace ndplat {
namespace {

constexpr int32_t kStateNotRunning = 0;
constexpr int32_t kStateRunning = 2;
constexpr int32_t kStartFailed = 1;
constexpr int32_t kStarted = 2;

struct ControlState {
    std::mutex mutex;
    std::string stateDir;
    std::vector<std::string> startArgs; // of every service DCM_Start starts
    std::set<pid_t> children;           // started here, not yet reaped
};

ControlState &control()
{
    // Never destroyed: a service is stopped from other statics' destructors and atexit handlers
    // too, which may run after this one would have been.
    static ControlState *s = new ControlState;
    return *s;
}

std::string attachedDir()
{
    std::lock_guard<std::mutex> hold(control().mutex);
    return control().stateDir;
}

// Collects children that have ended, so that a dead service is not left a zombie.
void reapChildren()
{
    std::lock_guard<std::mutex> hold(control().mutex);
    for (auto it = control().children.begin(); it != control().children.end();) {
        int status = 0;
        pid_t r = waitpid(*it, &status, WNOHANG);
        if (r == *it || (r < 0 && errno == ECHILD))
            it = control().children.erase(it);
        else
            ++it;
    }
}

bool childEnded(pid_t pid)
{
    reapChildren();
    std::lock_guard<std::mutex> hold(control().mutex);
    return control().children.count(pid) == 0;
}

uint32_t startWaitMs()
{
    const char *v = getenv("NDSIM_SERVICE_START_MS");
    if (v && *v) {
        long ms = strtol(v, nullptr, 10);
        if (ms > 0)
            return static_cast<uint32_t>(ms);
    }
    return 10000;
}

int32_t queryHook(const char *service)
{
    if (!service || strcmp(service, "ipv6") != 0)
        return kStateNotRunning;
    reapChildren();
    return service_running(attachedDir()) ? kStateRunning : kStateNotRunning;
}

int32_t startHook(const char *service, uint32_t)
{
    if (!service || strcmp(service, "ipv6") != 0)
        return kStartFailed;
    std::string dir = attachedDir();
    if (service_running(dir))
        return kStarted;
    std::vector<std::string> args;
    {
        std::lock_guard<std::mutex> hold(control().mutex);
        args = control().startArgs;
    }
    return service_start(dir, args) > 0 ? kStarted : kStartFailed;
}

const ServiceControl kControl{queryHook, startHook};

long readPid(const std::string &path)
{
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return -1;
    char text[32] = {};
    ssize_t n = read(fd, text, sizeof text - 1);
    close(fd);
    if (n <= 0)
        return -1;
    char *end = nullptr;
    long pid = strtol(text, &end, 10);
    return end != text && pid > 0 ? pid : -1;
}

// The process that /proc/locks shows holding a flock on the file of `st`; 0 when none is shown.
long procLocksHolder(const struct stat &st)
{
    FILE *f = fopen("/proc/locks", "re");
    if (!f)
        return 0;
    long holder = 0;
    char line[256];
    while (fgets(line, sizeof line, f)) {
        // "1: FLOCK  ADVISORY  WRITE 1234 fe:00:10954132 0 EOF"; waiters show "->" as the kind.
        char kind[16] = {}, advice[16] = {}, mode[16] = {};
        long pid = 0;
        unsigned major = 0, minor = 0;
        unsigned long inode = 0;
        if (sscanf(line, "%*d: %15s %15s %15s %ld %x:%x:%lu", kind, advice, mode, &pid, &major, &minor, &inode) == 7 &&
            strcmp(kind, "FLOCK") == 0 && inode == static_cast<unsigned long>(st.st_ino) &&
            major == static_cast<unsigned>(::major(st.st_dev)) && minor == static_cast<unsigned>(::minor(st.st_dev))) {
            holder = pid;
            break;
        }
    }
    fclose(f);
    return holder;
}

bool processGone(pid_t pid)
{
    {
        std::lock_guard<std::mutex> hold(control().mutex);
        if (control().children.count(pid)) {
            int status = 0;
            pid_t r = waitpid(pid, &status, WNOHANG);
            if (r == pid || (r < 0 && errno == ECHILD)) {
                control().children.erase(pid);
                return true;
            }
            return false;
        }
    }
    return kill(pid, 0) != 0 && errno == ESRCH;
}

// Ended and waiting to be reaped by a parent that is not this process. Only its first thread
// is known to have ended: the others may still hold its files.
bool processZombie(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && (stat[close + 2] == 'Z' || stat[close + 2] == 'X');
}

} // namespace

std::string service_log_path(const std::string &stateDir)
{
    return stateDir + "/ndsvc.log";
}

std::string service_executable()
{
    const char *path = getenv("NDSIM_NDSVC");
    return path && *path ? path : NDSIM_NDSVC_PATH;
}

bool service_running(const std::string &stateDir)
{
    return unix_socket_accepts(service_socket_path(stateDir.empty() ? state_dir() : stateDir));
}

bool service_state_dir_make(const std::string &path)
{
    struct stat st {};
    return make_private_dirs(path) && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

long service_lock_holder(const std::string &stateDirIn)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    std::string path = service_lock_path(stateDir);
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return 0; // never started here
    struct stat st {};
    long holder = fstat(fd, &st) == 0 ? procLocksHolder(st) : 0;
    if (holder == 0) {
        // Not shown there (no /proc, or a file system that shows other numbers): ask the lock.
        // A service that starts meanwhile tries its lock for a while, so this brief hold does
        // not turn it away.
        if (flock(fd, LOCK_SH | LOCK_NB) == 0) {
            flock(fd, LOCK_UN);
            close(fd);
            return 0;
        }
        holder = readPid(path); // the holder writes its pid there
    }
    close(fd);
    return holder > 0 ? holder : -1;
}

namespace {

// ---- starting the service ------------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

// A service that holds the directory and does not accept yet is starting: waits for it rather
// than start a second one that would only find the lock taken. 0 when the directory is free (a
// start goes ahead here); else what the start returns: the holder once it accepts, -1 when it
// still holds without accepting at the deadline.
long awaitOtherStart(const std::string &stateDir, Clock::time_point deadline)
{
    long holder = service_lock_holder(stateDir);
    if (holder == 0)
        return 0;
    while (Clock::now() < deadline) {
        if (service_running(stateDir))
            return holder;
        if (service_lock_holder(stateDir) == 0)
            break; // it ended without accepting: start one here
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return service_lock_holder(stateDir) != 0 ? -1 : 0;
}

// The command line of a service for stateDir: the executable, its state directory, the extra
// arguments, and those of every start (a seed file, test switches) from $NDSIM_NDSVC_ARGS,
// blank-separated.
std::vector<std::string> serviceCommand(const std::string &stateDir, const std::vector<std::string> &extraArgs)
{
    std::vector<std::string> args{service_executable(), "--state", stateDir};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    if (const char *more = getenv("NDSIM_NDSVC_ARGS")) {
        std::string word;
        for (const char *c = more;; ++c) {
            if (*c == ' ' || *c == '\0') {
                if (!word.empty())
                    args.push_back(word);
                word.clear();
                if (*c == '\0')
                    break;
            } else {
                word += *c;
            }
        }
    }
    return args;
}

// The child's side of a start; only exec-safe calls. The service is the switch's, not the
// shell's: a session of its own, so that no terminal signal (^C, ^Z, a hang-up) reaches it and
// no shell's exit ends it. It runs until `ndsvc --stop` (or a reload) stops it.
[[noreturn]] void execService(char *const *argv, const char *logPath)
{
    setsid();
    // Nothing of the shell's: a pipe that the shell writes to would stay open for as long as
    // the service runs. Its messages go to the state directory's log.
    int devnull = open("/dev/null", O_RDWR);
    if (devnull >= 0) {
        dup2(devnull, 0);
        dup2(devnull, 1);
        if (devnull > 2)
            close(devnull);
    }
    int log = open(logPath, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, kPrivateFileMode);
    if (log >= 0) {
        dup2(log, 2);
        if (log > 2)
            close(log);
    } else {
        dup2(0, 2);
    }
    execv(argv[0], argv);
    execvp(argv[0], argv);
    _exit(127);
}

// Runs the service of a command line as a child; its pid, or -1. Everything the child needs is
// prepared before fork.
pid_t spawnService(std::vector<std::string> &args, const std::string &logPath)
{
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0)
        execService(argv.data(), logPath.c_str());
    if (pid > 0) {
        std::lock_guard<std::mutex> hold(control().mutex);
        control().children.insert(pid);
    }
    return pid < 0 ? -1 : pid;
}

// Waits until the service of stateDir accepts: its pid, which is the child's unless another
// start won the lock. -1 when none accepts by the deadline (the child, if still there, is
// killed) or the child ended and nothing holds the directory.
long awaitStartedService(const std::string &stateDir, pid_t pid, Clock::time_point deadline)
{
    bool childGone = false;
    while (Clock::now() < deadline) {
        if (service_running(stateDir)) {
            long holder = service_lock_holder(stateDir);
            return holder > 0 ? holder : pid;
        }
        if (!childGone && childEnded(pid)) {
            // Another start on the same directory won the lock: its service is the one.
            childGone = true;
            if (service_lock_holder(stateDir) == 0)
                return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (!childGone)
        kill(pid, SIGKILL);
    return -1;
}

} // namespace

long service_start(const std::string &stateDirIn, const std::vector<std::string> &extraArgs)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    service_state_dir_make(stateDir);
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(startWaitMs());
    if (long other = awaitOtherStart(stateDir, deadline))
        return other;
    std::vector<std::string> args = serviceCommand(stateDir, extraArgs);
    pid_t pid = spawnService(args, service_log_path(stateDir));
    if (pid < 0)
        return -1;
    return awaitStartedService(stateDir, pid, deadline);
}

bool service_stop(const std::string &stateDirIn, bool hard)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    long pid = readPid(service_pid_path(stateDir));
    if (pid <= 0)
        return false;
    long holder = service_lock_holder(stateDir);
    if (holder == 0) {
        // Left by a service that is gone (a crash): whoever has that pid now is not ours.
        reapChildren();
        return true;
    }
    if (holder != pid)
        return false; // the pid file does not name the service that runs
    if (kill(static_cast<pid_t>(pid), hard ? SIGKILL : SIGTERM) != 0)
        return errno == ESRCH;
    // Stopped once it let go of the lock, which it holds to its very end (its last thread
    // closes it); then it is waited for a little longer to be gone as a process too. A
    // service that another shell started stays that shell's zombie until it is reaped there,
    // which counts as gone.
    constexpr auto kExitGrace = std::chrono::seconds(2);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::optional<std::chrono::steady_clock::time_point> released;
    bool stopped = false;
    while (!stopped && std::chrono::steady_clock::now() < deadline) {
        if (!released && service_lock_holder(stateDir) != pid)
            released = std::chrono::steady_clock::now();
        stopped = processGone(static_cast<pid_t>(pid)) ||
                  (released && (processZombie(static_cast<pid_t>(pid)) ||
                                std::chrono::steady_clock::now() - *released > kExitGrace));
        if (!stopped)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    reapChildren();
    return stopped;
}

void service_attach(const std::string &stateDirIn, const std::vector<std::string> &startArgs)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    service_state_dir_make(stateDir);
    {
        std::lock_guard<std::mutex> hold(control().mutex);
        control().stateDir = stateDir;
        control().startArgs = startArgs;
    }
    cmf_transport_set(socket_transport(service_socket_path(stateDir)));
    dcm_control_set(&kControl);
    nd_library_target_set(service_socket_path(stateDir));
}

void service_detach()
{
    nd_library_target_set(std::string());
    cmf_transport_set(nullptr);
    dcm_control_set(nullptr);
}

} // namespace ndplat
