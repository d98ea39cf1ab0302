// The message framing between the framework client and the ND service, the client transport
// over the service's Unix-domain socket, and the server side of that socket.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

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
        if (c.fd < 0) {
            c.fd = connectTo(path_);
            c.unreachable = c.fd < 0;
            if (c.unreachable)
                return 0; // the receive reports it
        }
        std::vector<uint8_t> body = wire_encode_request(request);
        FrameResult r = frame_write(c.fd, body, timeoutMs(timeout));
        if (r != FrameResult::ok) {
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
    body.assign(length, 0);
    if (length == 0)
        return FrameResult::ok;
    r = readAll(fd, body.data(), length, deadline, bounded, partial);
    // A peer that closes inside a frame has sent a truncated message.
    return r == FrameResult::closed ? FrameResult::error : r;
}

// ---- places ----------------------------------------------------------------------------------

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
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    unlink(socketPath.c_str());
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || ::listen(fd, 64) != 0) {
        logLine("server", "cannot listen on " + socketPath + ": " + strerror(errno));
        close(fd);
        return false;
    }
    listenFd_ = fd;
    path_ = socketPath;
    return true;
}

void ServiceServer::stop()
{
    stopping_ = true;
}

void ServiceServer::serve(const ServiceHandler &handler)
{
    uint64_t nextId = 1;
    while (!stopping_.load()) {
        pollfd p{listenFd_, POLLIN, 0};
        int r = poll(&p, 1, 100);
        if (r <= 0)
            continue;
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        ++activeConnections_;
        uint64_t id = nextId++;
        std::thread([this, fd, id, handler]() {
            ServiceConnection connection;
            connection.id = id;
            for (;;) {
                std::vector<uint8_t> body;
                // Wait in short slices so that a stopping server does not hang on an idle client.
                FrameResult r = FrameResult::timeout;
                while (!stopping_.load()) {
                    pollfd p{fd, POLLIN, 0};
                    int ready = poll(&p, 1, 100);
                    if (ready > 0) {
                        // A client that starts a frame must finish it within a bounded time.
                        r = frame_read(fd, body, 10000);
                        break;
                    }
                    if (ready < 0 && errno != EINTR) {
                        r = FrameResult::error;
                        break;
                    }
                }
                if (stopping_.load() || r != FrameResult::ok) {
                    if (r == FrameResult::oversize)
                        logLine("server", "rejected request: frame too large");
                    else if (r == FrameResult::error)
                        logLine("server", "rejected request: truncated frame");
                    else if (r == FrameResult::timeout && !stopping_.load())
                        logLine("server", "rejected request: incomplete frame");
                    break;
                }
                CmfRequest request;
                std::string why;
                if (!wire_decode_request(body.data(), body.size(), request, &why)) {
                    logLine("server", "rejected request: " + why);
                    break;
                }
                ++connection.requests;
                CmfResponse response = handler(request, connection);
                if (frame_write(fd, wire_encode_response(response), 10000) != FrameResult::ok)
                    break;
            }
            close(fd);
            --activeConnections_;
        }).detach();
    }
}

} // namespace ndplat
