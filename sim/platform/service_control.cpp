// Service control of the real ND service: DCM_Query("ipv6") asks whether ndsvc accepts
// requests on the state directory's socket, DCM_Start("ipv6", 1) starts it as a process of its
// own and waits until it does.
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ndplat_service.h"
#include "ndplat_vxlan.h"

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
    std::set<pid_t> children; // started here, not yet reaped
};

ControlState &control()
{
    static ControlState s;
    return s;
}

std::string attachedDir()
{
    std::lock_guard<std::mutex> hold(control().mutex);
    return control().stateDir;
}

void makeDirs(const std::string &path)
{
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        partial = path.substr(0, pos);
        if (!partial.empty())
            mkdir(partial.c_str(), 0755);
    }
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
    return service_start(dir) > 0 ? kStarted : kStartFailed;
}

const ServiceControl kControl{queryHook, startHook};

long readPid(const std::string &path)
{
    FILE *f = fopen(path.c_str(), "r");
    if (!f)
        return -1;
    long pid = -1;
    if (fscanf(f, "%ld", &pid) != 1)
        pid = -1;
    fclose(f);
    return pid;
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

// ---- records of the ND library on their way to the service -------------------------------------

// Request codes and item type that the service reads the injected records from.
constexpr uint32_t kInjectSuppressionAdd = 1000;
constexpr uint32_t kInjectRemoteNbrAdd = 1002;
constexpr uint32_t kInjectItem = 1;
constexpr size_t kSuppressionRecord = 52;
constexpr size_t kRemoteNbrRecord = 64;
constexpr size_t kBatchBytes = 1u << 20;

struct Batch {
    uint32_t code;
    std::vector<uint8_t> bytes;
};

struct Forwarder {
    std::mutex mutex;
    std::condition_variable work, idle;
    std::string socketPath; // empty: not attached
    std::deque<Batch> queue;
    bool sending = false;
    bool workerStarted = false;
    int fd = -1; // the worker's connection
};

Forwarder &forwarder()
{
    // Never destroyed: its worker thread waits on it until the process ends.
    static Forwarder *f = new Forwarder;
    return *f;
}

bool sendBatch(Forwarder &f, const std::string &path, const Batch &batch)
{
    if (f.fd < 0) {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        if (path.size() >= sizeof addr.sun_path)
            return false;
        memcpy(addr.sun_path, path.c_str(), path.size() + 1);
        f.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (f.fd < 0 || connect(f.fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
            if (f.fd >= 0)
                close(f.fd);
            f.fd = -1;
            return false;
        }
    }
    CmfRequest request;
    request.service = "ipv6";
    request.hasObject = true;
    request.cmdCode = batch.code;
    request.itemCount = 1;
    request.items.push_back(CmfItem::of(kInjectItem, batch.bytes.data(), static_cast<uint32_t>(batch.bytes.size())));
    std::vector<uint8_t> answer;
    CmfResponse response;
    bool good = frame_write(f.fd, wire_encode_request(request), 30000) == FrameResult::ok &&
                frame_read(f.fd, answer, 30000) == FrameResult::ok &&
                wire_decode_response(answer.data(), answer.size(), response);
    if (!good) {
        close(f.fd);
        f.fd = -1;
    }
    return good;
}

void forwardWorker()
{
    Forwarder &f = forwarder();
    std::unique_lock<std::mutex> lock(f.mutex);
    for (;;) {
        f.work.wait(lock, [&] { return !f.queue.empty(); });
        Batch batch = std::move(f.queue.front());
        f.queue.pop_front();
        std::string path = f.socketPath;
        f.sending = true;
        lock.unlock();
        // Records for a service that is not there are dropped, as the ND library of a switch
        // without its service would.
        if (!path.empty())
            sendBatch(f, path, batch);
        lock.lock();
        f.sending = false;
        if (f.queue.empty())
            f.idle.notify_all();
    }
}

} // namespace

void nd_library_forward(size_t recordSize, bool add, const void *records, uint32_t count)
{
    if (!records || count == 0 || (recordSize != kSuppressionRecord && recordSize != kRemoteNbrRecord))
        return;
    Forwarder &f = forwarder();
    std::lock_guard<std::mutex> hold(f.mutex);
    if (f.socketPath.empty())
        return;
    uint32_t code = (recordSize == kSuppressionRecord ? kInjectSuppressionAdd : kInjectRemoteNbrAdd) + (add ? 0 : 1);
    const uint8_t *p = static_cast<const uint8_t *>(records);
    if (f.queue.empty() || f.queue.back().code != code || f.queue.back().bytes.size() >= kBatchBytes)
        f.queue.push_back(Batch{code, {}});
    f.queue.back().bytes.insert(f.queue.back().bytes.end(), p, p + recordSize * count);
    if (!f.workerStarted) {
        f.workerStarted = true;
        std::thread(forwardWorker).detach();
    }
    f.work.notify_one();
}

void nd_library_flush()
{
    Forwarder &f = forwarder();
    {
        std::lock_guard<std::mutex> hold(f.mutex);
        if (f.socketPath.empty())
            return;
    }
    vxlan_work_drain();
    std::unique_lock<std::mutex> lock(f.mutex);
    f.idle.wait_for(lock, std::chrono::seconds(60), [&] { return f.queue.empty() && !f.sending; });
}

std::string service_executable()
{
    const char *path = getenv("NDSIM_NDSVC");
    return path && *path ? path : NDSIM_NDSVC_PATH;
}

bool service_running(const std::string &stateDir)
{
    std::string path = service_socket_path(stateDir.empty() ? state_dir() : stateDir);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path)
        return false;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    bool ok = connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
    close(fd);
    return ok;
}

long service_start(const std::string &stateDirIn, const std::vector<std::string> &extraArgs)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    makeDirs(stateDir);
    std::string exe = service_executable();
    // Everything the child needs is prepared before fork: after it, only exec-safe calls.
    std::vector<std::string> args{exe, "--state", stateDir};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    // Further arguments for every start (a seed file, test switches), blank-separated.
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
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const char *detachEnv = getenv("NDSIM_SERVICE_DETACH");
    bool detach = detachEnv && *detachEnv && strcmp(detachEnv, "0") != 0;
    pid_t parent = getpid();

    pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        // Unless asked to outlive the shell, the service ends with the process that started
        // it, so that tests and sessions leave no service behind.
        if (!detach) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent)
                _exit(127);
        } else {
            setsid();
        }
        int devnull = open("/dev/null", O_RDWR);
        if (devnull >= 0) {
            dup2(devnull, 0);
            dup2(devnull, 1);
            if (devnull > 2)
                close(devnull);
        }
        execv(argv[0], argv.data());
        execvp(argv[0], argv.data());
        _exit(127);
    }
    {
        std::lock_guard<std::mutex> hold(control().mutex);
        control().children.insert(pid);
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(startWaitMs());
    while (std::chrono::steady_clock::now() < deadline) {
        if (service_running(stateDir))
            return pid;
        if (childEnded(pid))
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill(pid, SIGKILL);
    return -1;
}

bool service_stop(const std::string &stateDirIn, bool hard)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    long pid = readPid(service_pid_path(stateDir));
    if (pid <= 0)
        return false;
    if (kill(static_cast<pid_t>(pid), hard ? SIGKILL : SIGTERM) != 0)
        return errno == ESRCH;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (processGone(static_cast<pid_t>(pid)))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

void service_attach(const std::string &stateDirIn)
{
    std::string stateDir = stateDirIn.empty() ? state_dir() : stateDirIn;
    makeDirs(stateDir);
    {
        std::lock_guard<std::mutex> hold(control().mutex);
        control().stateDir = stateDir;
    }
    cmf_transport_set(socket_transport(service_socket_path(stateDir)));
    dcm_control_set(&kControl);
    std::lock_guard<std::mutex> hold(forwarder().mutex);
    forwarder().socketPath = service_socket_path(stateDir);
}

void service_detach()
{
    {
        std::lock_guard<std::mutex> hold(forwarder().mutex);
        forwarder().socketPath.clear();
    }
    cmf_transport_set(nullptr);
    dcm_control_set(nullptr);
}

} // namespace ndplat
