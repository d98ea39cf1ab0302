// The server side of the service's socket: listening on it, admitting connections, and
// answering the requests of each on a thread of its own, taken from the threads kept waiting.
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "cmf_io.h"
#include "nd_cli_types.h"
#include "ndplat_service.h"

namespace ndplat {

namespace {

using Clock = std::chrono::steady_clock;

// What a request whose handling failed is answered: the service's own error codes.
constexpr uint32_t kServiceErrorMemory = ND_ERR_MEMORY_SHORT;
constexpr uint32_t kServiceErrorFailed = ND_ERR_OPERATION_FAILED;

uint32_t envNumber(const char *name, uint32_t fallback)
{
    const char *v = getenv(name);
    if (v && *v) {
        char *end = nullptr;
        unsigned long n = strtoul(v, &end, 10);
        if (end && *end == '\0' && n > 0 && n <= 0x7fffffffUL)
            return static_cast<uint32_t>(n);
    }
    return fallback;
}

int64_t nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

// Waits for the next request of a connection in short slices, so that a stopping server does
// not hang on an idle client, and for no longer than the idle time-out. False when the
// connection is to end: idle (closed without a word, the client opens a new one), broken, or
// the server stopping.
bool awaitRequest(int fd, uint32_t idleMs, const std::atomic<bool> &stopping)
{
    if (readable_soon(fd))
        return !stopping.load();
    auto idleDeadline = Clock::now() + std::chrono::milliseconds(idleMs);
    bool ready = false;
    while (!stopping.load() && !ready) {
        int slice = ms_until(idleDeadline);
        if (slice == 0)
            return false;
        pollfd p{fd, POLLIN, 0};
        int r = poll(&p, 1, slice < 100 ? slice : 100);
        if (r > 0)
            ready = true;
        else if (r < 0 && errno != EINTR)
            return false;
    }
    return !stopping.load();
}

// Reads the frame of one request; a client that starts a frame must finish it within
// frameMs. False (with a line saying why, unless the client just closed) when the connection
// is to end.
bool readRequest(int fd, uint32_t frameMs, const std::atomic<bool> &stopping, std::vector<uint8_t> &body)
{
    switch (frame_read(fd, body, static_cast<int>(frameMs))) {
    case FrameResult::ok:
        return true;
    case FrameResult::oversize:
        cmf_log("server", "rejected request: frame too large");
        return false;
    case FrameResult::nomemory:
        cmf_log("server", "rejected request: no memory for it");
        return false;
    case FrameResult::error:
        cmf_log("server", "rejected request: truncated frame");
        return false;
    case FrameResult::timeout:
        if (!stopping.load())
            cmf_log("server", "rejected request: incomplete frame");
        return false;
    case FrameResult::closed:
        return false;
    }
    return false;
}

// The handler's response to a request, or the service's error answer when it failed.
CmfResponse callHandler(const ServiceHandler &handler, const CmfRequest &request, ServiceConnection &connection)
{
    try {
        return handler(request, connection);
    } catch (const std::bad_alloc &) {
        cmf_log("server", "request " + std::to_string(request.cmdCode) + " failed: no memory");
        CmfResponse response;
        response.status = kServiceErrorMemory;
        return response;
    } catch (const std::exception &e) {
        cmf_log("server", "request " + std::to_string(request.cmdCode) + " failed: " + e.what());
        CmfResponse response;
        response.status = kServiceErrorFailed;
        return response;
    }
}

// The encoded answer to a request body, which is freed once decoded. False when the request
// cannot be decoded, or not even an error answer can be built: the connection ends.
bool answerRequest(std::vector<uint8_t> &body, const ServiceHandler &handler, ServiceConnection &connection,
                   std::vector<uint8_t> &answer)
{
    try {
        CmfRequest request;
        std::string why;
        if (!wire_decode_request(body.data(), body.size(), request, &why)) {
            cmf_log("server", "rejected request: " + why);
            return false;
        }
        body = std::vector<uint8_t>();
        ++connection.requests;
        answer = wire_encode_response(callHandler(handler, request, connection));
        if (answer.size() > kWireMaxBody) {
            cmf_log("server", "answer to request " + std::to_string(request.cmdCode) + " too large (" +
                                  std::to_string(answer.size()) + " bytes)");
            CmfResponse failed;
            failed.status = kServiceErrorFailed;
            answer = wire_encode_response(failed);
        }
        return true;
    } catch (const std::bad_alloc &) {
        cmf_log("server", "rejected request: no memory for it");
        return false;
    }
}

} // namespace

ServiceLimits service_limits_from_env()
{
    ServiceLimits limits;
    limits.maxConnections = envNumber("NDSIM_SERVICE_MAX_CONNECTIONS", limits.maxConnections);
    limits.idleMs = envNumber("NDSIM_SERVICE_IDLE_MS", limits.idleMs);
    return limits;
}

ServiceServer::~ServiceServer()
{
    stop();
    {
        // Under the lock: a thread between its check of the flag and its wait would miss a
        // bare notify.
        std::unique_lock<std::mutex> hold(workMutex_);
        workChanged_.notify_all();
        workChanged_.wait(hold, [this] { return workers_ == 0; });
    }
    if (listenFd_ >= 0)
        close(listenFd_);
}

bool ServiceServer::listen(const std::string &socketPath)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof addr.sun_path) {
        cmf_log("server", "socket path too long: " + socketPath);
        return false;
    }
    memcpy(addr.sun_path, socketPath.c_str(), socketPath.size() + 1);
    struct stat old {};
    if (lstat(socketPath.c_str(), &old) == 0) {
        if (!S_ISSOCK(old.st_mode)) {
            cmf_log("server", "cannot listen on " + socketPath + ": a file that is no socket is in the way");
            return false;
        }
        if (unix_socket_accepts(socketPath)) {
            cmf_log("server", "cannot listen on " + socketPath + ": another service accepts on it");
            return false;
        }
        unlink(socketPath.c_str()); // left by a service that is gone
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    // The socket file takes the socket's mode less the umask: made owner-only before it exists,
    // and set exactly once it does, whatever the umask.
    fchmod(fd, S_IRUSR | S_IWUSR);
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        chmod(socketPath.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(fd, 64) != 0) {
        cmf_log("server", "cannot listen on " + socketPath + ": " + strerror(errno));
        close(fd);
        return false;
    }
    socket_ = file_identity_at(socketPath);
    listenFd_ = fd;
    path_ = socketPath;
    return true;
}

void ServiceServer::unlink_socket()
{
    // Another service may have put its own socket there since: that one stays.
    if (!path_.empty() && socket_.known && file_identity_at(path_) == socket_)
        unlink(path_.c_str());
}

void ServiceServer::stop()
{
    // Called from signal handlers: the flag alone. Threads that serve a connection see it
    // within a slice of their wait; the idle ones are woken by the destructor.
    stopping_ = true;
}

void ServiceServer::refuse(int fd, const std::string &reason)
{
    // The answer is small enough for an empty socket buffer: written without waiting. A client
    // reads it whether it sent its request before the close or finds the connection closed.
    frame_write(fd, wire_encode_response(wire_refusal(reason)), 0);
    int64_t now = nowMs();
    if (lastRefusalLogMs_ >= 0 && now - lastRefusalLogMs_ < 1000) {
        ++refusalsNotLogged_;
        return;
    }
    std::string line = "refused connection: " + reason;
    if (refusalsNotLogged_)
        line += " (" + std::to_string(refusalsNotLogged_) + " more refused since the last line)";
    cmf_log("server", line);
    lastRefusalLogMs_ = now;
    refusalsNotLogged_ = 0;
}

void ServiceServer::serve(const ServiceHandler &handler)
{
    if (limits_.idleMs == 0) {
        uint64_t ms = static_cast<uint64_t>(kServiceIdleUnits) * cmf_unit_ms();
        limits_.idleMs = ms > 0x7fffffff ? 0x7fffffff : static_cast<uint32_t>(ms);
    }
    handler_ = handler;
    jobs_.reserve(limits_.maxConnections);
    uint64_t nextId = 1;
    while (!stopping_.load()) {
        pollfd p{listenFd_, POLLIN, 0};
        int r = poll(&p, 1, 100);
        if (r <= 0)
            continue;
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            // Out of descriptors: the pending connection stays queued; give others time to end.
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        // Whatever fails while a connection is admitted ends that connection, never the server.
        bool handedOver = false;
        try {
            handedOver = admit(fd, nextId++);
        } catch (const std::exception &) {
        }
        if (!handedOver)
            close(fd);
    }
}

bool ServiceServer::admit(int fd, uint64_t id)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        refuse(fd, "peer credentials unknown");
        return false;
    }
    if (peer.uid != geteuid() && peer.uid != 0) {
        refuse(fd, "user " + std::to_string(peer.uid) + " (pid " + std::to_string(peer.pid) +
                       ") is neither the service's user nor root");
        return false;
    }
    if (activeConnections_.load() >= static_cast<long>(limits_.maxConnections)) {
        refuse(fd, "too many connections (" + std::to_string(limits_.maxConnections) + " open)");
        return false;
    }
    ++activeConnections_;
    std::lock_guard<std::mutex> hold(workMutex_);
    // At most maxConnections wait or are served: the room reserved in serve() is enough.
    jobs_.push_back(Job{fd, id});
    if (idleWorkers_ >= static_cast<long>(jobs_.size())) {
        workChanged_.notify_one();
        return true;
    }
    try {
        std::thread(&ServiceServer::work, this).detach();
        ++workers_;
        return true;
    } catch (const std::exception &) {
        jobs_.pop_back();
        --activeConnections_;
        refuse(fd, "no thread to serve it");
        return false;
    }
}

void ServiceServer::work()
{
    constexpr auto kIdleThreadLife = std::chrono::seconds(30);
    std::unique_lock<std::mutex> hold(workMutex_);
    for (;;) {
        ++idleWorkers_;
        bool woken = workChanged_.wait_for(hold, kIdleThreadLife, [this] { return !jobs_.empty() || stopping_.load(); });
        --idleWorkers_;
        if (!woken || jobs_.empty())
            break;
        Job job = jobs_.front();
        jobs_.erase(jobs_.begin());
        hold.unlock();
        try {
            serveConnection(job.fd, job.id, handler_);
        } catch (const std::exception &) {
            // Only the connection ends: its client sees it closed.
        }
        close(job.fd);
        --activeConnections_;
        hold.lock();
    }
    // The last thing done with the server: its destructor may run once the count reaches 0.
    --workers_;
    workChanged_.notify_all();
}

void ServiceServer::serveConnection(int fd, uint64_t id, const ServiceHandler &handler)
{
    ServiceConnection connection;
    connection.id = id;
    for (;;) {
        std::vector<uint8_t> body, answer;
        if (!awaitRequest(fd, limits_.idleMs, stopping_) || !readRequest(fd, limits_.frameMs, stopping_, body) ||
            !answerRequest(body, handler, connection, answer))
            return;
        if (frame_write(fd, answer, static_cast<int>(limits_.frameMs)) != FrameResult::ok)
            return;
    }
}

} // namespace ndplat
