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
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ndplat.h"

namespace ndplat {

// Which file a path names: device, inode and the time of its last change, so that a file made
// later that got the same (freed) inode number is told apart. `known` is false when it could
// not be read.
struct FileIdentity {
    bool known = false;
    unsigned long device = 0, inode = 0;
    long long changedNs = 0;
    bool operator==(const FileIdentity &) const = default;
};
FileIdentity file_identity_of(int fd);
FileIdentity file_identity_at(const std::string &path); // the path itself, not a link's target

// ---- framework statuses of the socket transport ---------------------------------------------
// CMF_ClientRequestSend / CMF_ClientResponseRecv return these for failures of the transport
// itself; they are all below 16, so the plug-in reads them as framework failures.
constexpr uint32_t kCmfStatusFailure = 1;     // misuse: receive without a request sent
constexpr uint32_t kCmfStatusUnreachable = 2; // no service listens on the socket
constexpr uint32_t kCmfStatusBroken = 3;      // the service closed the connection
constexpr uint32_t kCmfStatusTimeout = 4;     // no (complete) answer within the timeout
constexpr uint32_t kCmfStatusMalformed = 7;   // the answer could not be decoded
constexpr uint32_t kCmfStatusRefused = 8;     // the service refused the connection

constexpr uint32_t kWireRequestMagic = 0x4E445251u;  // "NDRQ"
constexpr uint32_t kWireResponseMagic = 0x4E445253u; // "NDRS"
// Larger frames are refused, in both directions. The largest real message is a batch of ND
// library records on its way to the service: at most kNdLibraryBatchBytes of records (1 MiB)
// plus 72 bytes of request header and item header, 1,048,648 bytes. Every answer of the
// service is far smaller (a VXLAN table answer of 64 records is about 8.7 KB, a user-bind
// page of 15 entries 1.1 KB). Twice the largest message leaves room for growth while a peer
// can make the other side hold at most 2 MiB per connection.
constexpr uint32_t kNdLibraryBatchBytes = 1u << 20;
constexpr uint32_t kWireMaxBody = 2u << 20;
constexpr uint32_t kWireMaxItems = 65536;
constexpr uint32_t kWireMaxServiceName = 64;
constexpr uint32_t kDefaultTimeoutUnits = 20; // a context whose timeout was never set
// A refusal of the service: a response with status kCmfStatusRefused and one item of this
// type holding the reason as text. No answer of the service itself has a status below 16
// other than 0 and 13, so a refusal cannot be mistaken for one.
constexpr uint32_t kWireRefusalReasonItem = 1;

// ---- framing -------------------------------------------------------------------------------
// Encode a message body (without the length prefix); nothing can fail.
std::vector<uint8_t> wire_encode_request(const CmfRequest &request);
std::vector<uint8_t> wire_encode_response(const CmfResponse &response);
// Decode a message body (without the length prefix). False on any malformed or truncated
// body, with the reason in *why.
bool wire_decode_request(const uint8_t *body, size_t size, CmfRequest &request, std::string *why = nullptr);
bool wire_decode_response(const uint8_t *body, size_t size, CmfResponse &response, std::string *why = nullptr);
// The refusal the server answers to a connection it does not serve, and its reason when a
// response is one.
CmfResponse wire_refusal(const std::string &reason);
bool wire_is_refusal(const CmfResponse &response, std::string *reason = nullptr);

// Blocking frame I/O on a stream socket, bounded by a deadline in milliseconds (<0: none).
// A body is read as it arrives: memory grows with the bytes received, never with the length
// the peer declared. `nomemory`: the body could not be held.
enum class FrameResult {
    ok,
    closed,
    timeout,
    error,
    oversize,
    nomemory,
};
FrameResult frame_write(int fd, const std::vector<uint8_t> &body, int timeoutMs);
FrameResult frame_read(int fd, std::vector<uint8_t> &body, int timeoutMs);

// ---- places --------------------------------------------------------------------------------
std::string state_dir();                                      // $NDSIM_STATE, else ./ndsim-state
std::string service_socket_path(const std::string &stateDir); // the service's socket in stateDir
std::string service_pid_path(const std::string &stateDir);    // the file holding its pid
// Held (flock) by the one ndsvc of a state directory for as long as it runs; holds its pid.
std::string service_lock_path(const std::string &stateDir);
// Where a started ndsvc writes its messages (standard error), appended to, owner-only.
std::string service_log_path(const std::string &stateDir);
uint32_t cmf_unit_ms(); // $NDSIM_CMF_UNIT_MS, else 1000

// ---- client side ---------------------------------------------------------------------------
// Makes the framework client talk to ndsvc over the socket of stateDir, and makes DCM_Query /
// DCM_Start ("ipv6") report and start the real ndsvc process of that directory, with
// startArgs added to its command line. The shell calls this once at start-up. Creates stateDir
// when it does not exist.
void service_attach(const std::string &stateDir, const std::vector<std::string> &startArgs = {});
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
// Only a process that holds the state directory's lock is signalled: a pid file left by a
// crash names a process that may since be someone else. True when no service runs afterwards.
bool service_stop(const std::string &stateDir, bool hard = false);
// The process that holds the lock of stateDir: its pid, 0 when the lock is free, -1 when it is
// held by a process that cannot be named.
long service_lock_holder(const std::string &stateDir);
// Makes the state directory (and its parents): owner-only (0700) when it is made here,
// whatever the umask. True when it exists afterwards.
bool service_state_dir_make(const std::string &path);
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
// Where the records go: the attached service's socket; empty, nowhere (they are dropped).
void nd_library_target_set(const std::string &socketPath);

// ---- server side ---------------------------------------------------------------------------
// Per-connection state of the server, handed to the request handler.
struct ServiceConnection {
    uint64_t id = 0;
    uint64_t requests = 0;
};
using ServiceHandler = std::function<CmfResponse(const CmfRequest &request, ServiceConnection &connection)>;

// Connections served at once. A shell holds one connection per command in progress, the ND
// library's records one more, and DCM_Query a short-lived probe: a few shells need about ten.
constexpr uint32_t kServiceMaxConnections = 64;
// A connection that sends no request for this many units of the context timeout is closed:
// six times the 20 units the plug-in waits for an answer (120 s with the default unit), so
// that a context that goes on with a follow-up round is never cut off in between.
constexpr uint32_t kServiceIdleUnits = 120;
// A request once begun must have arrived whole within this time.
constexpr uint32_t kServiceFrameMs = 10000;

struct ServiceLimits {
    uint32_t maxConnections = kServiceMaxConnections;
    uint32_t idleMs = 0; // 0: kServiceIdleUnits of cmf_unit_ms()
    uint32_t frameMs = kServiceFrameMs;
};
// The limits with $NDSIM_SERVICE_MAX_CONNECTIONS and $NDSIM_SERVICE_IDLE_MS applied.
ServiceLimits service_limits_from_env();

class ServiceServer {
public:
    ServiceServer() = default;
    ~ServiceServer();
    ServiceServer(const ServiceServer &) = delete;
    ServiceServer &operator=(const ServiceServer &) = delete;

    // Before serve().
    void limits_set(const ServiceLimits &limits) { limits_ = limits; }
    // Binds and listens at socketPath, the socket file owner-only (0600) whatever the umask.
    // A socket file left by a service that is gone is replaced; one that a service still
    // accepts on, or a file that is no socket, is left alone and listening fails.
    bool listen(const std::string &socketPath);
    // Serves connections until stop() is called, one thread each, at most maxConnections at
    // once; handler calls may run concurrently on several connections. A thread whose
    // connection ended waits a while for the next one, so that the short connections of
    // clients cost no thread each. A connection beyond the limit, or from a peer whose user is
    // neither this process's nor root, is answered a refusal and closed, with one line on
    // stderr.
    void serve(const ServiceHandler &handler);
    void stop(); // asks serve() to return; safe from another thread and from a signal handler
    // Removes the socket file, when it is still the one that listen() made.
    void unlink_socket();
    const std::string &path() const { return path_; }                     // the socket listened on
    long active_connections() const { return activeConnections_.load(); } // being served now

private:
    struct Job {
        int fd;
        uint64_t id;
    };

    // Serves fd on a thread of its own (true), or answers a refusal (false: fd is the caller's).
    bool admit(int fd, uint64_t id);
    // A serving thread: takes connections until none came for a while or the server stops.
    void work();
    // Answers the refusal on fd, which stays open, and logs it.
    void refuse(int fd, const std::string &reason);
    // Answers the requests of one connection until it closes; closes fd.
    void serveConnection(int fd, uint64_t id, const ServiceHandler &handler);

    int listenFd_ = -1;
    std::string path_;
    FileIdentity socket_; // the socket file listen() made
    ServiceLimits limits_;
    std::atomic<bool> stopping_{false};
    std::atomic<long> activeConnections_{0};
    ServiceHandler handler_;
    // The serving threads and the connections waiting for one.
    std::mutex workMutex_;
    std::condition_variable workChanged_;
    std::vector<Job> jobs_;
    long idleWorkers_ = 0;
    long workers_ = 0;
    // Refusals are logged at most once a second; the next line counts those left out.
    int64_t lastRefusalLogMs_ = -1;
    unsigned long refusalsNotLogged_ = 0;
};

} // namespace ndplat

#endif
