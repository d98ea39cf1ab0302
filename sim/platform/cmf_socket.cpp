// The message framing between the framework client and the ND service, the client transport
// over the service's Unix-domain socket, and the server side of that socket.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "nd_cli_types.h"
#include "ndplat_service.h"

namespace ndplat {
namespace {

// ---- byte writer and reader -----------------------------------------------------------------

class Writer {
public:
    void u32(uint32_t v)
    {
        uint8_t b[4];
        memcpy(b, &v, 4);
        out_.insert(out_.end(), b, b + 4);
    }
    void bytes(const void *p, size_t n)
    {
        if (n)
            out_.insert(out_.end(), static_cast<const uint8_t *>(p), static_cast<const uint8_t *>(p) + n);
    }
    void items(const std::vector<CmfItem> &items)
    {
        u32(static_cast<uint32_t>(items.size()));
        for (const CmfItem &item : items) {
            u32(item.type);
            u32(item.length);
            // A value is either absent or complete: a shorter copy cannot be told apart from a
            // truncated message on the other side.
            uint32_t carried = item.bytes.size() == item.length ? item.length : 0;
            u32(carried);
            bytes(item.bytes.data(), carried);
        }
    }
    std::vector<uint8_t> take() { return std::move(out_); }

private:
    std::vector<uint8_t> out_;
};

class Reader {
public:
    Reader(const uint8_t *p, size_t n) : p_(p), n_(n) {}
    bool u32(uint32_t &v)
    {
        if (n_ - pos_ < 4)
            return false;
        memcpy(&v, p_ + pos_, 4);
        pos_ += 4;
        return true;
    }
    bool bytes(size_t n, const uint8_t *&at)
    {
        if (n_ - pos_ < n)
            return false;
        at = p_ + pos_;
        pos_ += n;
        return true;
    }
    bool done() const { return pos_ == n_; }
    size_t left() const { return n_ - pos_; }

private:
    const uint8_t *p_;
    size_t n_;
    size_t pos_ = 0;
};

bool fail(std::string *why, const char *text)
{
    if (why)
        *why = text;
    return false;
}

bool readItems(Reader &in, std::vector<CmfItem> &items, std::string *why)
{
    uint32_t count = 0;
    if (!in.u32(count))
        return fail(why, "truncated item count");
    if (count > kWireMaxItems)
        return fail(why, "too many items");
    // Each item takes at least 12 bytes: a count beyond what is left is a lie.
    if (static_cast<uint64_t>(count) * 12 > in.left())
        return fail(why, "item count exceeds message");
    items.clear();
    items.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        CmfItem item;
        uint32_t carried = 0;
        if (!in.u32(item.type) || !in.u32(item.length) || !in.u32(carried))
            return fail(why, "truncated item header");
        if (carried != 0 && carried != item.length)
            return fail(why, "item value length mismatch");
        const uint8_t *at = nullptr;
        if (!in.bytes(carried, at))
            return fail(why, "truncated item value");
        if (carried)
            item.bytes.assign(at, at + carried);
        items.push_back(std::move(item));
    }
    return true;
}

// ---- deadlines and frame I/O ------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

// How much of a body is read (and held) ahead of what has arrived.
constexpr size_t kReadSlice = 64u << 10;

int remainingMs(Clock::time_point deadline, bool bounded)
{
    if (!bounded)
        return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(left);
}

// Waits for fd to become ready for `events`; 1 ready, 0 timed out, -1 error.
int waitFor(int fd, short events, Clock::time_point deadline, bool bounded)
{
    for (;;) {
        int ms = remainingMs(deadline, bounded);
        if (bounded && ms == 0) {
            pollfd probe{fd, events, 0};
            int r = poll(&probe, 1, 0);
            return r > 0 ? 1 : (r == 0 ? 0 : -1);
        }
        pollfd p{fd, events, 0};
        int r = poll(&p, 1, ms);
        if (r > 0)
            return 1;
        if (r == 0)
            return 0;
        if (errno != EINTR)
            return -1;
    }
}

FrameResult writeAll(int fd, const uint8_t *p, size_t n, Clock::time_point deadline, bool bounded)
{
    while (n) {
        int w = waitFor(fd, POLLOUT, deadline, bounded);
        if (w == 0)
            return FrameResult::timeout;
        if (w < 0)
            return FrameResult::error;
        ssize_t sent = ::send(fd, p, n, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)
                continue;
            return errno == EPIPE || errno == ECONNRESET ? FrameResult::closed : FrameResult::error;
        }
        p += sent;
        n -= static_cast<size_t>(sent);
    }
    return FrameResult::ok;
}

// Reads exactly n bytes; `closed` only when the peer closed before the first byte.
FrameResult readAll(int fd, uint8_t *p, size_t n, Clock::time_point deadline, bool bounded, bool &partial)
{
    partial = false;
    size_t got = 0;
    while (got < n) {
        int w = waitFor(fd, POLLIN, deadline, bounded);
        if (w == 0)
            return FrameResult::timeout;
        if (w < 0)
            return FrameResult::error;
        ssize_t r = ::recv(fd, p + got, n - got, MSG_DONTWAIT);
        if (r < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)
                continue;
            return errno == ECONNRESET ? FrameResult::closed : FrameResult::error;
        }
        if (r == 0) {
            partial = got != 0;
            return FrameResult::closed;
        }
        got += static_cast<size_t>(r);
    }
    return FrameResult::ok;
}

void logLine(const char *side, const std::string &text)
{
    fprintf(stderr, "ndcmf %s: %s\n", side, text.c_str());
    fflush(stderr);
}

// True when bytes, or the end of the stream, wait to be read on fd right now.
bool readable(int fd)
{
    pollfd p{fd, POLLIN, 0};
    int r;
    do
        r = poll(&p, 1, 0);
    while (r < 0 && errno == EINTR);
    return r > 0;
}

// ---- client transport ------------------------------------------------------------------------

struct Connection {
    int fd = -1;
    bool unreachable = false; // the last send found no service
    uint32_t awaiting = 0;    // requests sent and not yet answered
};

int connectTo(const std::string &path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path)
        return -1;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void dropConnection(Connection &c)
{
    if (c.fd >= 0)
        close(c.fd);
    c.fd = -1;
    c.awaiting = 0;
}

int timeoutMs(uint32_t units)
{
    uint64_t ms = static_cast<uint64_t>(units ? units : kDefaultTimeoutUnits) * cmf_unit_ms();
    return ms > 0x7fffffff ? 0x7fffffff : static_cast<int>(ms);
}

class SocketTransport final : public CmfTransport {
public:
    explicit SocketTransport(std::string path) : path_(std::move(path)) {}

    bool open(void **connection) override
    {
        // Connecting waits for the first send: a context can always be opened, and a service
        // that is absent shows as a failed receive, as with the real framework.
        *connection = new Connection;
        return true;
    }

    uint32_t send(void *connection, const CmfRequest &request, uint32_t timeout) override
    {
        Connection &c = *static_cast<Connection *>(connection);
        nd_library_flush();
        // Between rounds nothing is due from the service: a readable connection is one that it
        // closed as idle. Every request carries all the service needs, so a new connection
        // takes the round on.
        if (c.fd >= 0 && c.awaiting == 0 && readable(c.fd))
            dropConnection(c);
        if (c.fd < 0) {
            c.fd = connectTo(path_);
            c.unreachable = c.fd < 0;
            if (c.unreachable)
                return 0; // the receive reports it
        }
        std::vector<uint8_t> body = wire_encode_request(request);
        FrameResult r = frame_write(c.fd, body, timeoutMs(timeout));
        if (r != FrameResult::ok) {
            // A service that refused the connection answered before it closed: the receive
            // reads that answer. Otherwise nothing is there to answer.
            if (r == FrameResult::closed && readable(c.fd)) {
                ++c.awaiting;
                return 0;
            }
            dropConnection(c);
            c.unreachable = true;
            return 0;
        }
        ++c.awaiting;
        return 0;
    }

    uint32_t receive(void *connection, CmfResponse &response, uint32_t timeout) override
    {
        Connection &c = *static_cast<Connection *>(connection);
        if (c.unreachable) {
            c.unreachable = false;
            return kCmfStatusUnreachable;
        }
        if (c.fd < 0 || c.awaiting == 0)
            return kCmfStatusFailure;
        std::vector<uint8_t> body;
        FrameResult r = frame_read(c.fd, body, timeoutMs(timeout));
        switch (r) {
        case FrameResult::ok:
            break;
        case FrameResult::timeout:
            // A late answer would be taken for the next request's: the connection is spent.
            dropConnection(c);
            return kCmfStatusTimeout;
        case FrameResult::oversize:
            logLine("client", "rejected response: frame too large");
            dropConnection(c);
            return kCmfStatusMalformed;
        case FrameResult::nomemory:
            logLine("client", "rejected response: no memory for it");
            dropConnection(c);
            return kCmfStatusMalformed;
        case FrameResult::closed:
        case FrameResult::error:
            dropConnection(c);
            return kCmfStatusBroken;
        }
        std::string why;
        if (!wire_decode_response(body.data(), body.size(), response, &why)) {
            logLine("client", "rejected response: " + why);
            dropConnection(c);
            return kCmfStatusMalformed;
        }
        if (wire_is_refusal(response, &why)) {
            logLine("client", "refused by the service: " + why);
            response = CmfResponse{};
            dropConnection(c);
            return kCmfStatusRefused;
        }
        --c.awaiting;
        return 0;
    }

    void close(void *connection) override
    {
        Connection *c = static_cast<Connection *>(connection);
        if (!c)
            return;
        dropConnection(*c);
        delete c;
    }

private:
    std::string path_;
};

std::mutex gTransportsMutex;

} // namespace

// ---- framing ---------------------------------------------------------------------------------

std::vector<uint8_t> wire_encode_request(const CmfRequest &request)
{
    Writer w;
    w.u32(kWireRequestMagic);
    w.u32(request.cmdCode);
    w.u32(request.optKind);
    w.u32(request.reserved);
    w.u32(request.serviceType);
    w.u32(request.serviceInstance);
    w.u32(request.itemCount);
    w.u32(request.argIndex);
    w.u32(request.hasObject ? 1u : 0u);
    w.u32(request.contextType);
    w.u32(request.contextInstance);
    w.u32(request.timeout);
    size_t nameLength = request.service.size() > kWireMaxServiceName ? kWireMaxServiceName : request.service.size();
    w.u32(static_cast<uint32_t>(nameLength));
    w.bytes(request.service.data(), nameLength);
    w.items(request.items);
    return w.take();
}

std::vector<uint8_t> wire_encode_response(const CmfResponse &response)
{
    Writer w;
    w.u32(kWireResponseMagic);
    w.u32(response.status);
    w.u32(response.endStatus);
    w.items(response.items);
    return w.take();
}

bool wire_decode_request(const uint8_t *body, size_t size, CmfRequest &request, std::string *why)
{
    if (!body && size)
        return fail(why, "null body");
    Reader in(body, size);
    uint32_t magic = 0, flags = 0, nameLength = 0;
    if (!in.u32(magic))
        return fail(why, "truncated magic");
    if (magic != kWireRequestMagic)
        return fail(why, "bad request magic");
    if (!in.u32(request.cmdCode) || !in.u32(request.optKind) || !in.u32(request.reserved) ||
        !in.u32(request.serviceType) || !in.u32(request.serviceInstance) || !in.u32(request.itemCount) ||
        !in.u32(request.argIndex) || !in.u32(flags) || !in.u32(request.contextType) ||
        !in.u32(request.contextInstance) || !in.u32(request.timeout) || !in.u32(nameLength))
        return fail(why, "truncated request header");
    if (flags > 1)
        return fail(why, "unknown request flags");
    request.hasObject = flags == 1;
    if (nameLength > kWireMaxServiceName)
        return fail(why, "service name too long");
    const uint8_t *name = nullptr;
    if (!in.bytes(nameLength, name))
        return fail(why, "truncated service name");
    request.service.assign(reinterpret_cast<const char *>(name), nameLength);
    if (!readItems(in, request.items, why))
        return false;
    if (!in.done())
        return fail(why, "trailing bytes after request");
    return true;
}

bool wire_decode_response(const uint8_t *body, size_t size, CmfResponse &response, std::string *why)
{
    if (!body && size)
        return fail(why, "null body");
    Reader in(body, size);
    uint32_t magic = 0;
    if (!in.u32(magic))
        return fail(why, "truncated magic");
    if (magic != kWireResponseMagic)
        return fail(why, "bad response magic");
    if (!in.u32(response.status) || !in.u32(response.endStatus))
        return fail(why, "truncated response header");
    if (!readItems(in, response.items, why))
        return false;
    if (!in.done())
        return fail(why, "trailing bytes after response");
    return true;
}

CmfResponse wire_refusal(const std::string &reason)
{
    CmfResponse response;
    response.status = kCmfStatusRefused;
    response.endStatus = kCmfStatusLast;
    response.items.push_back(CmfItem::of(kWireRefusalReasonItem, reason.data(), static_cast<uint32_t>(reason.size())));
    return response;
}

bool wire_is_refusal(const CmfResponse &response, std::string *reason)
{
    if (response.status != kCmfStatusRefused)
        return false;
    if (reason) {
        reason->clear();
        for (const CmfItem &item : response.items)
            if (item.type == kWireRefusalReasonItem)
                reason->assign(item.bytes.begin(), item.bytes.end());
        if (reason->empty())
            *reason = "no reason given";
    }
    return true;
}

FrameResult frame_write(int fd, const std::vector<uint8_t> &body, int timeoutMs)
{
    if (body.size() > kWireMaxBody)
        return FrameResult::oversize;
    bool bounded = timeoutMs >= 0;
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(bounded ? timeoutMs : 0);
    // Built by appending: GCC 12 at -O2 misreads a sized copy into a fresh vector as an overflow.
    uint32_t length = static_cast<uint32_t>(body.size());
    uint8_t prefix[4];
    memcpy(prefix, &length, sizeof prefix);
    std::vector<uint8_t> frame;
    frame.reserve(sizeof prefix + body.size());
    frame.insert(frame.end(), prefix, prefix + sizeof prefix);
    frame.insert(frame.end(), body.begin(), body.end());
    return writeAll(fd, frame.data(), frame.size(), deadline, bounded);
}

FrameResult frame_read(int fd, std::vector<uint8_t> &body, int timeoutMs)
{
    bool bounded = timeoutMs >= 0;
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(bounded ? timeoutMs : 0);
    uint8_t prefix[4];
    bool partial = false;
    FrameResult r = readAll(fd, prefix, sizeof prefix, deadline, bounded, partial);
    if (r != FrameResult::ok)
        return r == FrameResult::closed && partial ? FrameResult::error : r;
    uint32_t length = 0;
    memcpy(&length, prefix, 4);
    if (length > kWireMaxBody)
        return FrameResult::oversize;
    // The body grows by what has arrived, a slice at a time: a peer that declares a large body
    // and sends nothing costs nothing.
    body.clear();
    size_t got = 0;
    try {
        while (got < length) {
            size_t slice = length - got < kReadSlice ? length - got : kReadSlice;
            body.resize(got + slice);
            r = readAll(fd, body.data() + got, slice, deadline, bounded, partial);
            if (r != FrameResult::ok) {
                body.clear();
                // A peer that closes inside a frame has sent a truncated message.
                return r == FrameResult::closed ? FrameResult::error : r;
            }
            got += slice;
        }
    } catch (const std::bad_alloc &) {
        body.clear();
        body.shrink_to_fit();
        return FrameResult::nomemory;
    }
    return FrameResult::ok;
}

// ---- places ------------------------------------------------------------------------------

namespace {

FileIdentity identity(const struct stat &st)
{
    FileIdentity id;
    id.known = true;
    id.device = static_cast<unsigned long>(st.st_dev);
    id.inode = static_cast<unsigned long>(st.st_ino);
    id.changedNs = static_cast<long long>(st.st_ctim.tv_sec) * 1000000000LL + st.st_ctim.tv_nsec;
    return id;
}

} // namespace

FileIdentity file_identity_of(int fd)
{
    struct stat st {};
    return fstat(fd, &st) == 0 ? identity(st) : FileIdentity{};
}

FileIdentity file_identity_at(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 ? identity(st) : FileIdentity{};
}

std::string state_dir()
{
    const char *dir = getenv("NDSIM_STATE");
    return dir && *dir ? dir : "./ndsim-state";
}

std::string service_socket_path(const std::string &stateDir)
{
    return stateDir + "/ndsvc.sock";
}

std::string service_pid_path(const std::string &stateDir)
{
    return stateDir + "/ndsvc.pid";
}

std::string service_lock_path(const std::string &stateDir)
{
    return stateDir + "/ndsvc.lock";
}

uint32_t cmf_unit_ms()
{
    const char *unit = getenv("NDSIM_CMF_UNIT_MS");
    if (unit && *unit) {
        char *end = nullptr;
        unsigned long v = strtoul(unit, &end, 10);
        if (end && *end == '\0' && v > 0 && v <= 3600000)
            return static_cast<uint32_t>(v);
    }
    return 1000;
}

CmfTransport *socket_transport(const std::string &socketPath)
{
    // Transports live as long as the process: contexts opened through one may outlive the
    // code that installed it.
    std::lock_guard<std::mutex> hold(gTransportsMutex);
    static std::vector<std::unique_ptr<SocketTransport>> all;
    all.push_back(std::make_unique<SocketTransport>(socketPath));
    return all.back().get();
}

// ---- server ----------------------------------------------------------------------------------

namespace {

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

// Whether something accepts connections on the socket file at path.
bool socketAlive(const std::string &path)
{
    int fd = connectTo(path);
    if (fd < 0)
        return false;
    close(fd);
    return true;
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
    while (activeConnections_.load() > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (listenFd_ >= 0)
        close(listenFd_);
}

bool ServiceServer::listen(const std::string &socketPath)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof addr.sun_path) {
        logLine("server", "socket path too long: " + socketPath);
        return false;
    }
    memcpy(addr.sun_path, socketPath.c_str(), socketPath.size() + 1);
    struct stat old {};
    if (lstat(socketPath.c_str(), &old) == 0) {
        if (!S_ISSOCK(old.st_mode)) {
            logLine("server", "cannot listen on " + socketPath + ": a file that is no socket is in the way");
            return false;
        }
        if (socketAlive(socketPath)) {
            logLine("server", "cannot listen on " + socketPath + ": another service accepts on it");
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
        logLine("server", "cannot listen on " + socketPath + ": " + strerror(errno));
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
    logLine("server", line);
    lastRefusalLogMs_ = now;
    refusalsNotLogged_ = 0;
}

void ServiceServer::serve(const ServiceHandler &handler)
{
    if (limits_.idleMs == 0) {
        uint64_t ms = static_cast<uint64_t>(kServiceIdleUnits) * cmf_unit_ms();
        limits_.idleMs = ms > 0x7fffffff ? 0x7fffffff : static_cast<uint32_t>(ms);
    }
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
            handedOver = admit(fd, nextId++, handler);
        } catch (const std::exception &) {
        }
        if (!handedOver)
            close(fd);
    }
}

bool ServiceServer::admit(int fd, uint64_t id, const ServiceHandler &handler)
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
    try {
        std::thread([this, fd, id, handler]() {
            try {
                serveConnection(fd, id, handler);
            } catch (const std::exception &) {
                // Only the connection ends: its client sees it closed.
            }
            close(fd);
            --activeConnections_;
        }).detach();
        return true;
    } catch (const std::exception &) {
        --activeConnections_;
        refuse(fd, "no thread to serve it");
        return false;
    }
}

void ServiceServer::serveConnection(int fd, uint64_t id, const ServiceHandler &handler)
{
    ServiceConnection connection;
    connection.id = id;
    for (;;) {
        // Wait for the next request in short slices, so that a stopping server does not hang
        // on an idle client, and for no longer than the idle time-out.
        Clock::time_point idleDeadline = Clock::now() + std::chrono::milliseconds(limits_.idleMs);
        bool ready = false;
        while (!stopping_.load() && !ready) {
            int slice = remainingMs(idleDeadline, true);
            if (slice == 0)
                return; // idle: closed without a word, the client opens a new one
            pollfd p{fd, POLLIN, 0};
            int r = poll(&p, 1, slice < 100 ? slice : 100);
            if (r > 0)
                ready = true;
            else if (r < 0 && errno != EINTR)
                return;
        }
        if (stopping_.load())
            return;
        std::vector<uint8_t> body;
        // A client that starts a frame must finish it within a bounded time.
        FrameResult r = frame_read(fd, body, static_cast<int>(limits_.frameMs));
        switch (r) {
        case FrameResult::ok:
            break;
        case FrameResult::oversize:
            logLine("server", "rejected request: frame too large");
            return;
        case FrameResult::nomemory:
            logLine("server", "rejected request: no memory for it");
            return;
        case FrameResult::error:
            logLine("server", "rejected request: truncated frame");
            return;
        case FrameResult::timeout:
            if (!stopping_.load())
                logLine("server", "rejected request: incomplete frame");
            return;
        case FrameResult::closed:
            return;
        }
        std::vector<uint8_t> answer;
        try {
            CmfRequest request;
            std::string why;
            if (!wire_decode_request(body.data(), body.size(), request, &why)) {
                logLine("server", "rejected request: " + why);
                return;
            }
            body = std::vector<uint8_t>();
            ++connection.requests;
            CmfResponse response;
            try {
                response = handler(request, connection);
            } catch (const std::bad_alloc &) {
                logLine("server", "request " + std::to_string(request.cmdCode) + " failed: no memory");
                response = CmfResponse{};
                response.status = kServiceErrorMemory;
            } catch (const std::exception &e) {
                logLine("server", "request " + std::to_string(request.cmdCode) + " failed: " + e.what());
                response = CmfResponse{};
                response.status = kServiceErrorFailed;
            }
            answer = wire_encode_response(response);
            if (answer.size() > kWireMaxBody) {
                logLine("server", "answer to request " + std::to_string(request.cmdCode) + " too large (" +
                                      std::to_string(answer.size()) + " bytes)");
                CmfResponse failed;
                failed.status = kServiceErrorFailed;
                answer = wire_encode_response(failed);
            }
        } catch (const std::bad_alloc &) {
            // Not even the error answer could be built.
            logLine("server", "rejected request: no memory for it");
            return;
        }
        if (frame_write(fd, answer, static_cast<int>(limits_.frameMs)) != FrameResult::ok)
            return;
    }
}

} // namespace ndplat
