// What the server side of the socket holds against hostile or unlucky peers: bodies read as
// they arrive and bounded in size, a bounded number of connections with a clear refusal
// beyond it, idle connections closed, only peers of the service's own user or root served,
// failures of one request answered with an error, and an owner-only socket file.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "nd_cli.h"
#include "ndplat_service.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;
using ndplat::FrameResult;
using Clock = std::chrono::steady_clock;

constexpr uid_t kNobody = 65534;

std::string freshDir()
{
    return ndtest::fresh_scratch_dir("ndtl");
}

// A server with the given limits on its own thread.
class LimitedService {
public:
    LimitedService(ndplat::ServiceLimits limits, ndplat::ServiceHandler handler) : dir_(freshDir())
    {
        server_.limits_set(limits);
        ok_ = server_.listen(ndplat::service_socket_path(dir_));
        thread_ = std::thread([this, handler] { server_.serve(handler); });
    }
    ~LimitedService()
    {
        server_.stop();
        thread_.join();
    }
    bool ok() const { return ok_; }
    std::string socket() const { return ndplat::service_socket_path(dir_); }
    const std::string &dir() const { return dir_; }
    ndplat::ServiceServer &server() { return server_; }

    // Waits (bounded) until the server serves exactly n connections.
    bool settlesAt(long n)
    {
        auto deadline = Clock::now() + std::chrono::seconds(5);
        while (Clock::now() < deadline) {
            if (server_.active_connections() == n)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

private:
    std::string dir_;
    ndplat::ServiceServer server_;
    bool ok_ = false;
    std::thread thread_;
};

ndplat::ServiceLimits limits(uint32_t maxConnections, uint32_t idleMs)
{
    ndplat::ServiceLimits l;
    l.maxConnections = maxConnections;
    l.idleMs = idleMs;
    return l;
}

CmfResponse answerArgIndex(const CmfRequest &r, ndplat::ServiceConnection &)
{
    CmfResponse response;
    response.items.push_back(CmfItem::u32(14, r.argIndex));
    return response;
}


// Descriptors closed on every way out of a test.
struct Fds {
    std::vector<int> fds;
    ~Fds()
    {
        for (int fd : fds)
            if (fd >= 0)
                close(fd);
    }
};

CmfRequest request(uint32_t code, uint32_t argIndex = 0)
{
    CmfRequest r;
    r.service = "ipv6";
    r.hasObject = true;
    r.cmdCode = code;
    r.serviceType = 234;
    r.serviceInstance = 1;
    r.argIndex = argIndex;
    r.timeout = 20;
    return r;
}

// One request and its answer on a connection of its own; false when no answer came.
bool exchange(const std::string &socketPath, const CmfRequest &r, CmfResponse &response)
{
    int fd = ndtest::connect_unix(socketPath);
    if (fd < 0)
        return false;
    std::vector<uint8_t> body;
    bool good = ndplat::frame_write(fd, ndplat::wire_encode_request(r), 2000) == FrameResult::ok &&
                ndplat::frame_read(fd, body, 2000) == FrameResult::ok &&
                ndplat::wire_decode_response(body.data(), body.size(), response);
    close(fd);
    return good;
}

// Waits (bounded) for fd to be closed by its peer: true when it was within ms.
bool closedWithin(int fd, int ms)
{
    auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    char b[256];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return false;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0)
            continue;
        ssize_t n = recv(fd, b, sizeof b, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno == ECONNRESET))
            return true;
    }
}

long residentKiB()
{
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

class TransportLimitsTest : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        unsetenv("NDSIM_CMF_UNIT_MS");
    }
    void TearDown() override
    {
        ndplat::cmf_transport_set(nullptr);
        unsetenv("NDSIM_CMF_UNIT_MS");
        PlatformTest::TearDown();
    }
};

// ---- message size ----------------------------------------------------------------------------------

TEST(MessageSize, TheLargestRealMessageIsAnNdLibraryBatchAndFitsTheLimitTwice)
{
    CmfRequest batch = request(1002);
    std::vector<uint8_t> records(ndplat::kNdLibraryBatchBytes, 0x5a);
    batch.items.push_back(CmfItem::of(1, records.data(), static_cast<uint32_t>(records.size())));
    size_t size = ndplat::wire_encode_request(batch).size();
    EXPECT_EQ(size, 1048648u);
    EXPECT_EQ(ndplat::kWireMaxBody, 2u << 20);
    EXPECT_GE(ndplat::kWireMaxBody, 2 * size - 200) << "about twice the largest message";
}

TEST_F(TransportLimitsTest, ABodyAtTheLimitCrossesTheSocketWhole)
{
    std::atomic<size_t> seen{0};
    LimitedService service(ndplat::ServiceLimits{}, [&](const CmfRequest &r, ndplat::ServiceConnection &) {
        seen = r.items.empty() ? 0 : r.items[0].bytes.size();
        return CmfResponse{};
    });
    ASSERT_TRUE(service.ok());
    CmfRequest r = request(1002);
    size_t header = ndplat::wire_encode_request(r).size() + 12; // and one item header
    std::vector<uint8_t> value(ndplat::kWireMaxBody - header, 7);
    r.items.push_back(CmfItem::of(1, value.data(), static_cast<uint32_t>(value.size())));
    ASSERT_EQ(ndplat::wire_encode_request(r).size(), ndplat::kWireMaxBody);
    CmfResponse response;
    ASSERT_TRUE(exchange(service.socket(), r, response));
    EXPECT_EQ(response.status, 13u);
    EXPECT_EQ(seen.load(), value.size());
}

TEST_F(TransportLimitsTest, AFrameDeclaredBeyondTheLimitIsRefusedAtOnceWithoutWaitingForIt)
{
    LimitedService service(ndplat::ServiceLimits{}, answerArgIndex);
    ASSERT_TRUE(service.ok());
    testing::internal::CaptureStderr();
    Fds open;
    int fd = ndtest::connect_unix(service.socket());
    open.fds.push_back(fd);
    ASSERT_GE(fd, 0);
    uint32_t declared = 64u << 20;
    ASSERT_EQ(send(fd, &declared, 4, MSG_NOSIGNAL), 4);
    auto start = Clock::now();
    EXPECT_TRUE(closedWithin(fd, 2000));
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ndcmf server: rejected request: frame too large\n");
}

TEST_F(TransportLimitsTest, DeclaredBodiesThatNeverArriveAreNotAllocated)
{
    LimitedService service(ndplat::ServiceLimits{}, answerArgIndex);
    ASSERT_TRUE(service.ok());
    constexpr int kPeers = 40;
    Fds open;
    for (int i = 0; i < kPeers; ++i) {
        int fd = ndtest::connect_unix(service.socket());
        ASSERT_GE(fd, 0);
        open.fds.push_back(fd);
    }
    // Measured once the connections and their threads exist: what follows is the bodies alone.
    ASSERT_TRUE(service.settlesAt(kPeers));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    long before = residentKiB();
    ASSERT_GT(before, 0);
    for (int fd : open.fds) {
        uint32_t declared = ndplat::kWireMaxBody;
        ASSERT_EQ(send(fd, &declared, 4, MSG_NOSIGNAL), 4);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // every server thread waits in its body
    long grown = residentKiB() - before;
    // Allocated up front this would be 40 x 2 MiB = 80 MiB; read as it arrives, one slice each.
    EXPECT_LT(grown, 16 * 1024) << grown << " KiB";
    // And the service still answers.
    CmfResponse response;
    ASSERT_TRUE(exchange(service.socket(), request(9, 77), response));
    ASSERT_EQ(response.items.size(), 1u);
    EXPECT_EQ(response.items[0].as_u32(), 77u);
}

// ---- connection limit and idle connections --------------------------------------------------------

TEST_F(TransportLimitsTest, AConnectionBeyondTheLimitIsRefusedWithAClearErrorAtOnce)
{
    LimitedService service(limits(2, 60000), answerArgIndex);
    ASSERT_TRUE(service.ok());
    Fds open;
    for (int i = 0; i < 2; ++i)
        open.fds.push_back(ndtest::connect_unix(service.socket()));
    ASSERT_TRUE(service.settlesAt(2));

    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    testing::internal::CaptureStderr();
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    NdCliParam b;
    memset(&b, 0, sizeof b);
    b.cmdCode = 14;
    b.serviceType = 234;
    b.serviceInstance = 1;
    strcpy(b.serviceName, "ipv6");
    CMF_ClientContextObjSet(ctx, &b);
    auto start = Clock::now();
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusRefused);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000)) << "no hang";
    CMF_ClientContextClose(ctx);
    // Through the plug-in's exchange: a framework failure, error 21.
    EXPECT_EQ(ndCliParamProc(&b), 21u);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("ndcmf server: refused connection: too many connections (2 open)\n"), std::string::npos) << log;
    EXPECT_NE(log.find("ndcmf client: refused by the service: too many connections (2 open)\n"), std::string::npos)
        << log;

    // Once a connection ends, the next client is served.
    close(open.fds[0]);
    open.fds[0] = -1;
    ASSERT_TRUE(service.settlesAt(1));
    EXPECT_EQ(ndCliParamProc(&b), 0u);
}

TEST_F(TransportLimitsTest, ARefusalIsReadAlsoByAClientThatWritesAfterTheClose)
{
    LimitedService service(limits(1, 60000), answerArgIndex);
    ASSERT_TRUE(service.ok());
    Fds open;
    open.fds.push_back(ndtest::connect_unix(service.socket()));
    ASSERT_TRUE(service.settlesAt(1));
    testing::internal::CaptureStderr();
    int late = ndtest::connect_unix(service.socket());
    open.fds.push_back(late);
    ASSERT_GE(late, 0);
    // Wait, without reading, until the service has answered and closed its end.
    bool hungUp = false;
    for (auto deadline = Clock::now() + std::chrono::seconds(2); !hungUp && Clock::now() < deadline;) {
        pollfd p{late, POLLIN, 0};
        hungUp = poll(&p, 1, 50) > 0 && (p.revents & POLLHUP);
    }
    ASSERT_TRUE(hungUp);
    testing::internal::GetCapturedStderr();
    // Writing to the closed connection fails; the refusal is still there to be read.
    EXPECT_EQ(ndplat::frame_write(late, ndplat::wire_encode_request(request(9)), 1000), FrameResult::closed);
    std::vector<uint8_t> body;
    ASSERT_EQ(ndplat::frame_read(late, body, 1000), FrameResult::ok);
    CmfResponse response;
    ASSERT_TRUE(ndplat::wire_decode_response(body.data(), body.size(), response));
    std::string reason;
    EXPECT_TRUE(ndplat::wire_is_refusal(response, &reason));
    EXPECT_EQ(reason, "too many connections (1 open)");
}

TEST_F(TransportLimitsTest, RefusalsOfAFloodAreLoggedOnceASecond)
{
    LimitedService service(limits(1, 60000), answerArgIndex);
    ASSERT_TRUE(service.ok());
    Fds open;
    open.fds.push_back(ndtest::connect_unix(service.socket()));
    ASSERT_TRUE(service.settlesAt(1));
    testing::internal::CaptureStderr();
    auto start = Clock::now();
    for (int i = 0; i < 50; ++i) {
        int fd = ndtest::connect_unix(service.socket());
        open.fds.push_back(fd);
        EXPECT_TRUE(closedWithin(fd, 2000)) << i;
    }
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
    std::string log = testing::internal::GetCapturedStderr();
    size_t lines = 0;
    for (char c : log)
        lines += c == '\n';
    EXPECT_GE(lines, 1u);
    EXPECT_LE(lines, static_cast<size_t>(seconds) + 1) << log;
    EXPECT_LT(lines, 50u) << log;
    EXPECT_EQ(log.rfind("ndcmf server: refused connection: too many connections (1 open)", 0), 0u) << log;
}

TEST_F(TransportLimitsTest, AnIdleConnectionIsClosedAfterTheIdleTimeout)
{
    LimitedService service(limits(4, 200), answerArgIndex);
    ASSERT_TRUE(service.ok());
    Fds open;
    int fd = ndtest::connect_unix(service.socket());
    open.fds.push_back(fd);
    ASSERT_GE(fd, 0);
    auto start = Clock::now();
    ASSERT_TRUE(closedWithin(fd, 3000));
    auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(150));
    EXPECT_LT(waited, std::chrono::milliseconds(1500));
    EXPECT_TRUE(service.settlesAt(0));
}

TEST_F(TransportLimitsTest, ConnectionsOneAfterAnotherAreServedByTheThreadThatServedTheFirst)
{
    std::mutex mutex;
    std::set<std::thread::id> servers;
    LimitedService service(limits(4, 60000), [&](const CmfRequest &r, ndplat::ServiceConnection &c) {
        std::lock_guard<std::mutex> hold(mutex);
        servers.insert(std::this_thread::get_id());
        return answerArgIndex(r, c);
    });
    ASSERT_TRUE(service.ok());
    for (uint32_t i = 1; i <= 20; ++i) {
        CmfResponse response;
        ASSERT_TRUE(exchange(service.socket(), request(14, i), response)) << i;
        ASSERT_EQ(response.items.size(), 1u);
        EXPECT_EQ(response.items[0].as_u32(), i);
        ASSERT_TRUE(service.settlesAt(0)) << i;
    }
    std::lock_guard<std::mutex> hold(mutex);
    EXPECT_EQ(servers.size(), 1u);
}

TEST_F(TransportLimitsTest, AKeptThreadBusyWithOneConnectionLeavesTheNextToAnotherThread)
{
    // The request with argument index 1 waits until the one with index 2 has been answered:
    // both are answered only when they are served at once.
    std::mutex mutex;
    std::condition_variable changed;
    bool secondAnswered = false;
    LimitedService service(limits(4, 60000), [&](const CmfRequest &r, ndplat::ServiceConnection &) {
        std::unique_lock<std::mutex> hold(mutex);
        CmfResponse response;
        if (r.argIndex == 1) {
            bool released = changed.wait_for(hold, std::chrono::seconds(5), [&] { return secondAnswered; });
            response.items.push_back(CmfItem::u32(14, released ? 1 : 0));
        } else {
            secondAnswered = secondAnswered || r.argIndex == 2;
            changed.notify_all();
            response.items.push_back(CmfItem::u32(14, r.argIndex));
        }
        return response;
    });
    ASSERT_TRUE(service.ok());
    CmfResponse warmUp;
    ASSERT_TRUE(exchange(service.socket(), request(14, 3), warmUp)); // leaves a kept thread
    ASSERT_TRUE(service.settlesAt(0));
    CmfResponse first, second;
    std::thread waiting([&] { EXPECT_TRUE(exchange(service.socket(), request(14, 1), first)); });
    bool firstServed = service.settlesAt(1);
    EXPECT_TRUE(firstServed);
    EXPECT_TRUE(exchange(service.socket(), request(14, 2), second));
    waiting.join();
    ASSERT_TRUE(firstServed);
    ASSERT_EQ(first.items.size(), 1u);
    EXPECT_EQ(first.items[0].as_u32(), 1u) << "the first request was released by the second";
}

TEST_F(TransportLimitsTest, TheDefaultIdleTimeoutIsSixTimesThePlugInsContextTimeout)
{
    EXPECT_EQ(ndplat::kServiceIdleUnits, 6 * 20u);
    setenv("NDSIM_SERVICE_MAX_CONNECTIONS", "5", 1);
    setenv("NDSIM_SERVICE_IDLE_MS", "250", 1);
    ndplat::ServiceLimits l = ndplat::service_limits_from_env();
    EXPECT_EQ(l.maxConnections, 5u);
    EXPECT_EQ(l.idleMs, 250u);
    setenv("NDSIM_SERVICE_MAX_CONNECTIONS", "junk", 1);
    unsetenv("NDSIM_SERVICE_IDLE_MS");
    l = ndplat::service_limits_from_env();
    EXPECT_EQ(l.maxConnections, ndplat::kServiceMaxConnections);
    EXPECT_EQ(l.idleMs, 0u) << "0: derived from the unit when serving";
    unsetenv("NDSIM_SERVICE_MAX_CONNECTIONS");

    // Derived from the unit: 120 units of 2 ms.
    setenv("NDSIM_CMF_UNIT_MS", "2", 1);
    LimitedService service(ndplat::ServiceLimits{}, answerArgIndex);
    ASSERT_TRUE(service.ok());
    Fds open;
    int fd = ndtest::connect_unix(service.socket());
    open.fds.push_back(fd);
    auto start = Clock::now();
    ASSERT_TRUE(closedWithin(fd, 3000));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
}

TEST_F(TransportLimitsTest, AContextGoesOnOnANewConnectionAfterTheServiceClosedAnIdleOne)
{
    std::mutex seenMutex;
    std::vector<uint64_t> connections;
    LimitedService service(limits(4, 150), [&](const CmfRequest &r, ndplat::ServiceConnection &c) {
        std::lock_guard<std::mutex> hold(seenMutex);
        connections.push_back(c.id);
        CmfResponse response;
        response.status = 0;
        response.items.push_back(CmfItem::u32(17, r.argIndex));
        return response;
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    NdCliParam b;
    memset(&b, 0, sizeof b);
    b.cmdCode = 25;
    b.serviceType = 234;
    b.serviceInstance = 1;
    strcpy(b.serviceName, "ipv6");
    CMF_ClientContextObjSet(ctx, &b);
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(400)); // an operator at the pager
    ASSERT_TRUE(service.settlesAt(0));
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 0u) << "the follow-up round is served";
    CMF_ClientContextClose(ctx);
    std::lock_guard<std::mutex> hold(seenMutex);
    ASSERT_EQ(connections.size(), 2u);
    EXPECT_NE(connections[0], connections[1]);
}

// ---- failures of one request ------------------------------------------------------------------------

TEST_F(TransportLimitsTest, AnAllocationFailureEndsOneRequestWithAnErrorAndTheConnectionGoesOn)
{
    std::atomic<int> calls{0};
    LimitedService service(ndplat::ServiceLimits{}, [&](const CmfRequest &r, ndplat::ServiceConnection &c) {
        if (++calls == 1)
            throw std::bad_alloc();
        return answerArgIndex(r, c);
    });
    ASSERT_TRUE(service.ok());
    Fds open;
    int fd = ndtest::connect_unix(service.socket());
    open.fds.push_back(fd);
    testing::internal::CaptureStderr();
    std::vector<uint8_t> body;
    CmfResponse response;
    ASSERT_EQ(ndplat::frame_write(fd, ndplat::wire_encode_request(request(9, 1)), 2000), FrameResult::ok);
    ASSERT_EQ(ndplat::frame_read(fd, body, 2000), FrameResult::ok);
    ASSERT_TRUE(ndplat::wire_decode_response(body.data(), body.size(), response));
    EXPECT_EQ(response.status, 25u) << "memory short";
    EXPECT_TRUE(response.items.empty());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ndcmf server: request 9 failed: no memory\n");

    ASSERT_EQ(ndplat::frame_write(fd, ndplat::wire_encode_request(request(9, 2)), 2000), FrameResult::ok);
    ASSERT_EQ(ndplat::frame_read(fd, body, 2000), FrameResult::ok);
    ASSERT_TRUE(ndplat::wire_decode_response(body.data(), body.size(), response));
    EXPECT_EQ(response.status, 13u);
    ASSERT_EQ(response.items.size(), 1u);
    EXPECT_EQ(response.items[0].as_u32(), 2u);
}

TEST_F(TransportLimitsTest, AnAnswerLargerThanTheLimitBecomesAnErrorAnswer)
{
    LimitedService service(ndplat::ServiceLimits{}, [](const CmfRequest &, ndplat::ServiceConnection &) {
        CmfResponse response;
        std::vector<uint8_t> huge(ndplat::kWireMaxBody, 1);
        response.items.push_back(CmfItem::of(11, huge.data(), static_cast<uint32_t>(huge.size())));
        return response;
    });
    ASSERT_TRUE(service.ok());
    testing::internal::CaptureStderr();
    CmfResponse response;
    ASSERT_TRUE(exchange(service.socket(), request(11), response));
    EXPECT_EQ(response.status, 18u);
    EXPECT_TRUE(response.items.empty());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ndcmf server: answer to request 11 too large (2097180 bytes)\n");
}

// ---- who may connect, and the socket file ------------------------------------------------------------

TEST_F(TransportLimitsTest, ThePeerOfAnotherUserIsRefusedWithItsReason)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    std::atomic<int> handled{0};
    LimitedService service(ndplat::ServiceLimits{}, [&](const CmfRequest &r, ndplat::ServiceConnection &c) {
        ++handled;
        return answerArgIndex(r, c);
    });
    ASSERT_TRUE(service.ok());
    // As an umask of 000 once left it: the file modes alone would let anybody in.
    ASSERT_EQ(chmod(service.socket().c_str(), 0777), 0);
    ASSERT_EQ(chmod(service.dir().c_str(), 0755), 0);
    ASSERT_EQ(chmod(std::filesystem::path(service.dir()).parent_path().c_str(), 0755), 0);

    // Everything the child needs is prepared here: after fork it only makes system calls.
    std::vector<uint8_t> frame;
    {
        std::vector<uint8_t> body = ndplat::wire_encode_request(request(3));
        uint32_t length = static_cast<uint32_t>(body.size());
        frame.resize(4);
        memcpy(frame.data(), &length, 4);
        frame.insert(frame.end(), body.begin(), body.end());
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, service.socket().c_str());
    int answer[2];
    ASSERT_EQ(pipe(answer), 0);
    testing::internal::CaptureStderr();
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(answer[0]);
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
            _exit(10);
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
            _exit(11);
        (void)!send(fd, frame.data(), frame.size(), MSG_NOSIGNAL); // may find the connection closed
        char b[512];
        ssize_t n;
        while ((n = read(fd, b, sizeof b)) > 0)
            (void)!write(answer[1], b, static_cast<size_t>(n));
        _exit(0);
    }
    close(answer[1]);
    std::vector<uint8_t> got = ndtest::read_until_closed(answer[0], 5000);
    close(answer[0]);
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == 0) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    std::string log = testing::internal::GetCapturedStderr();
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0) << "the child could not connect";
    ASSERT_GE(got.size(), 4u);
    uint32_t length = 0;
    memcpy(&length, got.data(), 4);
    ASSERT_EQ(got.size(), 4u + length);
    CmfResponse response;
    ASSERT_TRUE(ndplat::wire_decode_response(got.data() + 4, length, response));
    std::string reason;
    ASSERT_TRUE(ndplat::wire_is_refusal(response, &reason));
    std::string expected = "user 65534 (pid " + std::to_string(child) + ") is neither the service's user nor root";
    EXPECT_EQ(reason, expected);
    EXPECT_EQ(log, "ndcmf server: refused connection: " + expected + "\n");
    EXPECT_EQ(handled.load(), 0);

    // Its own user is served.
    CmfResponse mine;
    ASSERT_TRUE(exchange(service.socket(), request(9, 4), mine));
    EXPECT_EQ(mine.status, 13u);
    EXPECT_EQ(handled.load(), 1);
}

TEST_F(TransportLimitsTest, TheSocketFileIsOwnerOnlyWhateverTheUmask)
{
    mode_t old = umask(0);
    std::string dir = freshDir();
    ndplat::ServiceServer server;
    bool listening = server.listen(ndplat::service_socket_path(dir));
    umask(old);
    ASSERT_TRUE(listening);
    struct stat st {};
    ASSERT_EQ(lstat(ndplat::service_socket_path(dir).c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0600u);
}

TEST_F(TransportLimitsTest, ListeningLeavesASocketThatAnotherServiceAcceptsOn)
{
    LimitedService first(ndplat::ServiceLimits{}, answerArgIndex);
    ASSERT_TRUE(first.ok());
    struct stat before {};
    ASSERT_EQ(lstat(first.socket().c_str(), &before), 0);
    testing::internal::CaptureStderr();
    ndplat::ServiceServer second;
    EXPECT_FALSE(second.listen(first.socket()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ndcmf server: cannot listen on " + first.socket() + ": another service accepts on it\n");
    second.unlink_socket();
    struct stat after {};
    ASSERT_EQ(lstat(first.socket().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    CmfResponse response;
    ASSERT_TRUE(exchange(first.socket(), request(9, 3), response));
    EXPECT_EQ(response.items.at(0).as_u32(), 3u);
}

TEST_F(TransportLimitsTest, ListeningReplacesAStaleSocketButNoOtherFile)
{
    std::string dir = freshDir();
    std::string path = ndplat::service_socket_path(dir);
    {
        // A socket file nobody accepts on any more, as a crash leaves it.
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strcpy(addr.sun_path, path.c_str());
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
        close(fd);
    }
    {
        ndplat::ServiceServer server;
        EXPECT_TRUE(server.listen(path));
        server.unlink_socket();
        EXPECT_NE(access(path.c_str(), F_OK), 0) << "its own socket is removed";
    }
    {
        std::ofstream(path) << "not a socket\n";
        testing::internal::CaptureStderr();
        ndplat::ServiceServer server;
        EXPECT_FALSE(server.listen(path));
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "ndcmf server: cannot listen on " + path + ": a file that is no socket is in the way\n");
        std::ifstream in(path);
        std::string text;
        std::getline(in, text);
        EXPECT_EQ(text, "not a socket");
    }
}

TEST_F(TransportLimitsTest, AServerRemovesOnlyTheSocketItMade)
{
    std::string dir = freshDir();
    std::string path = ndplat::service_socket_path(dir);
    ndplat::ServiceServer server;
    ASSERT_TRUE(server.listen(path));
    // Someone else's socket has taken the name since.
    ASSERT_EQ(unlink(path.c_str()), 0);
    int other = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, path.c_str());
    ASSERT_EQ(bind(other, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    server.unlink_socket();
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    close(other);
}

// ---- ND library records -------------------------------------------------------------------------------

TEST_F(TransportLimitsTest, OneLargeNdLibraryCallTravelsInBatchesThatFitAFrame)
{
    std::mutex seenMutex;
    std::vector<size_t> batches;
    LimitedService service(ndplat::ServiceLimits{}, [&](const CmfRequest &r, ndplat::ServiceConnection &) {
        std::lock_guard<std::mutex> hold(seenMutex);
        batches.push_back(r.items.empty() ? 0 : r.items[0].bytes.size());
        return CmfResponse{};
    });
    ASSERT_TRUE(service.ok());
    ndplat::service_attach(service.dir());
    constexpr uint32_t kRecords = 50000; // 2.6 MB of 52-byte records in one call
    std::vector<uint8_t> records(size_t{kRecords} * 52, 3);
    ndplat::nd_library_forward(52, true, records.data(), kRecords);
    ndplat::nd_library_flush();
    ndplat::service_detach();
    std::lock_guard<std::mutex> hold(seenMutex);
    size_t total = 0;
    for (size_t b : batches) {
        EXPECT_LE(b, ndplat::kNdLibraryBatchBytes);
        EXPECT_EQ(b % 52, 0u);
        total += b;
    }
    EXPECT_EQ(total, records.size());
    EXPECT_EQ(batches.size(), 3u);
}

} // namespace
