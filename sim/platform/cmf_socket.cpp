// The client side of the service's Unix-domain socket: the transport that framework contexts
// send through, the helpers of the socket that the server and service control use too, and
// where the service's files are.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "cmf_io.h"
#include "ndplat_service.h"

namespace ndplat {
namespace {

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

struct Connection {
    int fd = -1;
    bool unreachable = false; // the last send found no service
    uint32_t awaiting = 0;    // requests sent and not yet answered
};

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
            c.fd = unix_socket_connect(path_);
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
            cmf_log("client", "rejected response: frame too large");
            dropConnection(c);
            return kCmfStatusMalformed;
        case FrameResult::nomemory:
            cmf_log("client", "rejected response: no memory for it");
            dropConnection(c);
            return kCmfStatusMalformed;
        case FrameResult::closed:
        case FrameResult::error:
            dropConnection(c);
            return kCmfStatusBroken;
        }
        std::string why;
        if (!wire_decode_response(body.data(), body.size(), response, &why)) {
            cmf_log("client", "rejected response: " + why);
            dropConnection(c);
            return kCmfStatusMalformed;
        }
        if (wire_is_refusal(response, &why)) {
            cmf_log("client", "refused by the service: " + why);
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

CmfTransport *socket_transport(const std::string &socketPath)
{
    // Transports live as long as the process: contexts opened through one may outlive the
    // code that installed it.
    std::lock_guard<std::mutex> hold(gTransportsMutex);
    static std::vector<std::unique_ptr<SocketTransport>> all;
    all.push_back(std::make_unique<SocketTransport>(socketPath));
    return all.back().get();
}

// ---- the socket ------------------------------------------------------------------------------

int unix_socket_connect(const std::string &path)
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

bool unix_socket_accepts(const std::string &path)
{
    int fd = unix_socket_connect(path);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

void cmf_log(const char *side, const std::string &text)
{
    fprintf(stderr, "ndcmf %s: %s\n", side, text.c_str());
    fflush(stderr);
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

} // namespace ndplat
