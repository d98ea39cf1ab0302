// The ND service process ("ipv6") as the emulated platform reaches it: the message framing
// between the framework client and ndsvc, the Unix-domain socket transport in the state
// directory, the server side of that socket, and the service control behind DCM_Query and
// DCM_Start.
//
// Framing (host byte order throughout, as on the switch). Every message is a 32-bit body
// length followed by the body.
//   request body:  magic 'NDRQ'; command code, operation kind, reserved, service type,
//                  service instance, item count, argument index (the header fields of the
//                  object given to CMF_ClientContextObjSet); flags (bit 0: an object was
//                  set); context type, context instance, context timeout; service name
//                  (length, bytes); item count on the wire; the items.
//   response body: magic 'NDRS'; status (0: a response, more may follow; 13: the last one;
//                  16 and above: an error code of the service); the status that decoding
//                  returns once the items are used up; item count; the items.
//   item:          type, length, number of value bytes that follow (0 for a null value,
//                  else equal to the length), the value bytes.
#ifndef NDPLAT_SERVICE_H
#define NDPLAT_SERVICE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ndplat.h"

namespace ndplat {

// ---- framework statuses of the socket transport ---------------------------------------------
// CMF_ClientRequestSend / CMF_ClientResponseRecv return these for failures of the transport
// itself; they are all below 16, so the plug-in reads them as framework failures.
constexpr uint32_t kCmfStatusFailure = 1;      // misuse: receive without a request sent
constexpr uint32_t kCmfStatusUnreachable = 2;  // no service listens on the socket
constexpr uint32_t kCmfStatusBroken = 3;       // the service closed the connection
constexpr uint32_t kCmfStatusTimeout = 4;      // no (complete) answer within the timeout
constexpr uint32_t kCmfStatusMalformed = 7;    // the answer could not be decoded
constexpr uint32_t kCmfStatusLast = 13;

constexpr uint32_t kWireRequestMagic = 0x4E445251u;  // "NDRQ"
constexpr uint32_t kWireResponseMagic = 0x4E445253u; // "NDRS"
constexpr uint32_t kWireMaxBody = 64u << 20;          // larger frames are refused
constexpr uint32_t kWireMaxItems = 65536;
constexpr uint32_t kWireMaxServiceName = 64;
constexpr uint32_t kDefaultTimeoutUnits = 20; // a context whose timeout was never set

// ---- framing -------------------------------------------------------------------------------
std::vector<uint8_t> wire_encode_request(const CmfRequest &request);
std::vector<uint8_t> wire_encode_response(const CmfResponse &response);
// Decode a message body (without the length prefix). False on any malformed or truncated
// body, with the reason in *why.
bool wire_decode_request(const uint8_t *body, size_t size, CmfRequest &request, std::string *why = nullptr);
bool wire_decode_response(const uint8_t *body, size_t size, CmfResponse &response, std::string *why = nullptr);

// Blocking frame I/O on a stream socket, bounded by a deadline in milliseconds (<0: none).
enum class FrameResult { ok, closed, timeout, error, oversize };
FrameResult frame_write(int fd, const std::vector<uint8_t> &body, int timeoutMs);
FrameResult frame_read(int fd, std::vector<uint8_t> &body, int timeoutMs);

// ---- places --------------------------------------------------------------------------------
std::string state_dir();                                   // $NDSIM_STATE, else ./ndsim-state
std::string service_socket_path(const std::string &stateDir);
std::string service_pid_path(const std::string &stateDir);
uint32_t cmf_unit_ms(); // $NDSIM_CMF_UNIT_MS, else 1000

// ---- client side ---------------------------------------------------------------------------
// Makes the framework client talk to ndsvc over the socket of stateDir, and makes DCM_Query /
// DCM_Start ("ipv6") report and start the real ndsvc process of that directory. The shell
// calls this once at start-up. Creates stateDir when it does not exist.
void service_attach(const std::string &stateDir);
// Back to the in-process responder and DCM state.
void service_detach();

// The transport alone (tests): a CmfTransport over the socket at socketPath.
CmfTransport *socket_transport(const std::string &socketPath);

// Service control of the attached state directory.
bool service_running(const std::string &stateDir); // something accepts on the socket
// Starts ndsvc (path: $NDSIM_NDSVC, else the built one) for stateDir with extra arguments (and
// the blank-separated words of $NDSIM_NDSVC_ARGS) and waits until it accepts requests. Returns
// its process id, or -1.
long service_start(const std::string &stateDir, const std::vector<std::string> &extraArgs = {});
// Stops the ndsvc of stateDir (by its pid file): SIGTERM, or SIGKILL when hard; waits for it.
bool service_stop(const std::string &stateDir, bool hard = false);
// The path of the ndsvc executable that service_start runs.
std::string service_executable();

// ---- ND library records to the service ---------------------------------------------------------
// The emulated ND library of the shell's process (ND_AddSuppressionHost and its kin) hands every
// record to the attached service through these; without an attached service they do nothing.
// Records travel in batches, in the order given, on a connection of their own.
void nd_library_forward(size_t recordSize, bool add, const void *records, uint32_t count);
// Waits until the queued test-injection jobs have run and every record handed over so far has
// reached the service. The transport calls it before each request, so that a command sees
// the effect of the injection commands typed before it.
void nd_library_flush();

// ---- server side ---------------------------------------------------------------------------
// Per-connection state of the server, handed to the request handler.
struct ServiceConnection {
    uint64_t id = 0;
    uint64_t requests = 0;
};
using ServiceHandler = std::function<CmfResponse(const CmfRequest &request, ServiceConnection &connection)>;

class ServiceServer {
public:
    ServiceServer() = default;
    ~ServiceServer();
    ServiceServer(const ServiceServer &) = delete;
    ServiceServer &operator=(const ServiceServer &) = delete;

    // Binds and listens at socketPath (an old socket file is replaced). False on failure.
    bool listen(const std::string &socketPath);
    // Serves connections, one thread each, until stop() is called; handler calls may run
    // concurrently on several connections.
    void serve(const ServiceHandler &handler);
    void stop();
    const std::string &path() const { return path_; }

private:
    int listenFd_ = -1;
    std::string path_;
    std::atomic<bool> stopping_{false};
    std::atomic<long> activeConnections_{0};
};

} // namespace ndplat

#endif
