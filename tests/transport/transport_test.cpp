// The socket transport between the framework client and the ND service: framing, several
// rounds on one context, time-outs, and services that are absent, hang, hang up or answer
// with garbage.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include "cmf_io.h"
#include "nd_cli.h"
#include "ndplat_service.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;

std::string freshDir()
{
    return ndtest::fresh_scratch_dir("ndtr");
}

uint32_t u32At(const std::vector<uint8_t> &b, size_t at)
{
    uint32_t v = 0;
    memcpy(&v, b.data() + at, 4);
    return v;
}

// A service on its own thread that answers with a test's handler.
class TestService {
public:
    explicit TestService(ndplat::ServiceHandler handler) : dir_(freshDir())
    {
        ok_ = server_.listen(ndplat::service_socket_path(dir_));
        thread_ = std::thread([this, handler] { server_.serve(handler); });
    }
    ~TestService()
    {
        server_.stop();
        thread_.join();
    }
    bool ok() const { return ok_; }
    const std::string &dir() const { return dir_; }
    std::string socket() const { return ndplat::service_socket_path(dir_); }

private:
    std::string dir_;
    ndplat::ServiceServer server_;
    bool ok_ = false;
    std::thread thread_;
};

// A listener that does whatever a test wants with each connection (a misbehaving service).
class RawService {
public:
    explicit RawService(std::function<void(int fd)> onConnection) : dir_(freshDir())
    {
        path_ = ndplat::service_socket_path(dir_);
        fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strcpy(addr.sun_path, path_.c_str());
        unlink(path_.c_str());
        bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        listen(fd_, 8);
        thread_ = std::thread([this, onConnection] {
            int c = accept(fd_, nullptr, nullptr);
            if (c >= 0) {
                onConnection(c);
                close(c);
            }
        });
    }
    ~RawService()
    {
        shutdown(fd_, SHUT_RDWR);
        close(fd_);
        thread_.join();
    }
    const std::string &path() const { return path_; }

private:
    std::string dir_, path_;
    int fd_ = -1;
    std::thread thread_;
};

class TransportTest : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        unsetenv("NDSIM_CMF_UNIT_MS");
    }
    void TearDown() override
    {
        unsetenv("NDSIM_CMF_UNIT_MS");
        PlatformTest::TearDown();
    }
};

NdCliParam block(uint32_t code, uint32_t kind)
{
    NdCliParam b;
    memset(&b, 0, sizeof b);
    b.cmdCode = code;
    b.optKind = kind;
    b.serviceType = 234;
    b.serviceInstance = 1;
    b.argIndex = 5;
    strcpy(b.serviceName, "ipv6");
    return b;
}

CmfRequest sampleRequest()
{
    CmfRequest r;
    r.service = "ipv6";
    r.contextType = 234;
    r.contextInstance = 1;
    r.timeout = 20;
    r.hasObject = true;
    r.cmdCode = 7;
    r.optKind = 3;
    r.serviceType = 234;
    r.serviceInstance = 1;
    r.itemCount = 2;
    r.argIndex = 2;
    uint16_t retransmit = 3, interval = 10;
    r.items.push_back(CmfItem::of(7, &retransmit, 2));
    r.items.push_back(CmfItem::of(8, &interval, 2));
    return r;
}

// ---- framing -------------------------------------------------------------------------------------

TEST(Framing, RequestLayoutIsHeaderFieldsThenItemsInHostOrder)
{
    std::vector<uint8_t> body = ndplat::wire_encode_request(sampleRequest());
    ASSERT_EQ(body.size(), 13 * 4 + 4 + 4 + 2 * (12 + 2));
    EXPECT_EQ(u32At(body, 0), ndplat::kWireRequestMagic);
    EXPECT_EQ(u32At(body, 4), 7u);    // command code
    EXPECT_EQ(u32At(body, 8), 3u);    // operation kind
    EXPECT_EQ(u32At(body, 12), 0u);   // reserved
    EXPECT_EQ(u32At(body, 16), 234u); // service type
    EXPECT_EQ(u32At(body, 20), 1u);   // service instance
    EXPECT_EQ(u32At(body, 24), 2u);   // item count
    EXPECT_EQ(u32At(body, 28), 2u);   // argument index
    EXPECT_EQ(u32At(body, 32), 1u);   // an object was set
    EXPECT_EQ(u32At(body, 44), 20u);  // timeout
    EXPECT_EQ(u32At(body, 48), 4u);   // service name length
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(body.data() + 52), 4), "ipv6");
    EXPECT_EQ(u32At(body, 56), 2u);   // items on the wire
    EXPECT_EQ(u32At(body, 60), 7u);   // type
    EXPECT_EQ(u32At(body, 64), 2u);   // length
    EXPECT_EQ(u32At(body, 68), 2u);   // value bytes carried
    uint16_t v;
    memcpy(&v, body.data() + 72, 2);
    EXPECT_EQ(v, 3);
}

TEST(Framing, RequestRoundTrip)
{
    CmfRequest in = sampleRequest();
    in.items.push_back(CmfItem::of(12, nullptr, 16)); // a null value of non-zero length
    CmfRequest out;
    std::vector<uint8_t> body = ndplat::wire_encode_request(in);
    ASSERT_TRUE(ndplat::wire_decode_request(body.data(), body.size(), out));
    EXPECT_EQ(out.service, "ipv6");
    EXPECT_EQ(out.cmdCode, 7u);
    EXPECT_EQ(out.optKind, 3u);
    EXPECT_EQ(out.argIndex, 2u);
    EXPECT_EQ(out.timeout, 20u);
    EXPECT_TRUE(out.hasObject);
    ASSERT_EQ(out.items.size(), 3u);
    EXPECT_EQ(out.items[1].type, 8u);
    EXPECT_EQ(out.items[1].bytes, ndtest::u16_bytes(10));
    EXPECT_EQ(out.items[2].type, 12u);
    EXPECT_EQ(out.items[2].length, 16u);
    EXPECT_TRUE(out.items[2].bytes.empty());
}

TEST(Framing, ResponseRoundTrip)
{
    CmfResponse in;
    in.status = 0;
    in.endStatus = 6;
    in.items.push_back(CmfItem::u32(14, 63));
    in.items.push_back(CmfItem::of(20, nullptr, 0));
    std::vector<uint8_t> body = ndplat::wire_encode_response(in);
    EXPECT_EQ(u32At(body, 0), ndplat::kWireResponseMagic);
    EXPECT_EQ(u32At(body, 4), 0u);
    EXPECT_EQ(u32At(body, 8), 6u);
    CmfResponse out;
    ASSERT_TRUE(ndplat::wire_decode_response(body.data(), body.size(), out));
    EXPECT_EQ(out.status, 0u);
    EXPECT_EQ(out.endStatus, 6u);
    ASSERT_EQ(out.items.size(), 2u);
    EXPECT_EQ(out.items[0].as_u32(), 63u);
    EXPECT_EQ(out.items[1].type, 20u);
}

TEST(Framing, EveryTruncationOfARequestIsRejected)
{
    std::vector<uint8_t> body = ndplat::wire_encode_request(sampleRequest());
    for (size_t n = 0; n < body.size(); ++n) {
        CmfRequest out;
        std::string why;
        EXPECT_FALSE(ndplat::wire_decode_request(body.data(), n, out, &why)) << n;
        EXPECT_FALSE(why.empty());
    }
}

TEST(Framing, EveryTruncationOfAResponseIsRejected)
{
    CmfResponse in;
    in.items.push_back(CmfItem::u32(9, 1));
    std::vector<uint8_t> body = ndplat::wire_encode_response(in);
    for (size_t n = 0; n < body.size(); ++n) {
        CmfResponse out;
        EXPECT_FALSE(ndplat::wire_decode_response(body.data(), n, out)) << n;
    }
}

TEST(Framing, MalformedBodiesAreRejectedWithTheirReason)
{
    std::vector<uint8_t> body = ndplat::wire_encode_request(sampleRequest());
    CmfRequest out;
    std::string why;

    std::vector<uint8_t> trailing = body;
    trailing.push_back(0);
    EXPECT_FALSE(ndplat::wire_decode_request(trailing.data(), trailing.size(), out, &why));
    EXPECT_EQ(why, "trailing bytes after request");

    std::vector<uint8_t> magic = body;
    magic[0] ^= 0xff;
    EXPECT_FALSE(ndplat::wire_decode_request(magic.data(), magic.size(), out, &why));
    EXPECT_EQ(why, "bad request magic");

    std::vector<uint8_t> carried = body;
    uint32_t wrong = 1; // first item: length 2, but 1 value byte claimed
    memcpy(carried.data() + 68, &wrong, 4);
    EXPECT_FALSE(ndplat::wire_decode_request(carried.data(), carried.size(), out, &why));
    EXPECT_EQ(why, "item value length mismatch");

    std::vector<uint8_t> count = body;
    uint32_t many = 1000;
    memcpy(count.data() + 56, &many, 4);
    EXPECT_FALSE(ndplat::wire_decode_request(count.data(), count.size(), out, &why));
    EXPECT_EQ(why, "item count exceeds message");

    std::vector<uint8_t> name = body;
    uint32_t longName = 1000;
    memcpy(name.data() + 48, &longName, 4);
    EXPECT_FALSE(ndplat::wire_decode_request(name.data(), name.size(), out, &why));
    EXPECT_EQ(why, "service name too long");

    CmfResponse response;
    EXPECT_FALSE(ndplat::wire_decode_response(body.data(), body.size(), response, &why));
    EXPECT_EQ(why, "bad response magic");
}

// ---- the client over the socket -------------------------------------------------------------------

// A socket pair, both ends closed when the guard ends.
struct SocketPair {
    int fds[2] = {-1, -1};
    SocketPair() { socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds); }
    ~SocketPair()
    {
        for (int fd : fds)
            if (fd >= 0)
                close(fd);
    }
};

TEST(AwakeWait, SeesBytesThatAreThereOrComeAndGivesUpSoonOnSilence)
{
    SocketPair pair;
    ASSERT_GE(pair.fds[0], 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(ndplat::readable_soon(pair.fds[0]));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100)) << "a short window, no sleep";

    ASSERT_EQ(write(pair.fds[1], "x", 1), 1);
    EXPECT_EQ(ndplat::readable_soon(pair.fds[0]), std::thread::hardware_concurrency() > 1);
    char c = 0;
    ASSERT_EQ(read(pair.fds[0], &c, 1), 1);

    // The end of the stream counts as readable too: the reader then finds the peer gone.
    close(pair.fds[1]);
    pair.fds[1] = -1;
    EXPECT_EQ(ndplat::readable_soon(pair.fds[0]), std::thread::hardware_concurrency() > 1);
}

TEST_F(TransportTest, RequestAndResponseCrossTheSocket)
{
    std::mutex seenMutex;
    std::vector<CmfRequest> seen;
    TestService service([&](const CmfRequest &r, ndplat::ServiceConnection &) {
        std::lock_guard<std::mutex> hold(seenMutex);
        seen.push_back(r);
        CmfResponse response;
        response.items.push_back(CmfItem::u32(14, 5));
        return response;
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));

    NdCliParam b = block(14, 0);
    uint32_t mask = 0;
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(CMF_ClientContextTimeoutSet(ctx, 20), 0u);
    EXPECT_EQ(CMF_ClientContextObjSet(ctx, &b), 0u);
    EXPECT_EQ(CMF_ClientParamEncode(ctx, 11, 4, &mask), 0u);
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 13u);
    uint32_t type = 0, length = 0;
    void *value = nullptr;
    ASSERT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
    EXPECT_EQ(type, 14u);
    EXPECT_EQ(length, 4u);
    uint32_t got = 0;
    memcpy(&got, value, 4);
    EXPECT_EQ(got, 5u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 13u);
    CMF_ClientContextClose(ctx);

    std::lock_guard<std::mutex> hold(seenMutex);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].service, "ipv6");
    EXPECT_EQ(seen[0].cmdCode, 14u);
    EXPECT_EQ(seen[0].optKind, 0u);
    EXPECT_EQ(seen[0].serviceType, 234u);
    EXPECT_EQ(seen[0].argIndex, 5u);
    EXPECT_EQ(seen[0].timeout, 20u);
    ASSERT_EQ(seen[0].items.size(), 1u);
    EXPECT_EQ(seen[0].items[0].type, 11u);
    EXPECT_EQ(seen[0].items[0].bytes, ndtest::u32_bytes(0));
}

TEST_F(TransportTest, SeveralRoundsOnOneContextCarryOnlyTheNewItems)
{
    std::atomic<int> round{0};
    std::mutex seenMutex;
    std::vector<CmfRequest> seen;
    std::vector<uint64_t> connections;
    TestService service([&](const CmfRequest &r, ndplat::ServiceConnection &c) {
        {
            std::lock_guard<std::mutex> hold(seenMutex);
            seen.push_back(r);
            connections.push_back(c.id);
        }
        CmfResponse response;
        response.status = ++round < 3 ? 0 : 13;
        response.items.push_back(CmfItem::u32(17, static_cast<uint32_t>(round.load())));
        return response;
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));

    NdCliParam b = block(25, 0);
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    CMF_ClientContextObjSet(ctx, &b);
    uint32_t id = 10, flag = 1;
    std::vector<uint32_t> statuses, values;
    for (int i = 0; i < 3; ++i) {
        CMF_ClientParamEncode(ctx, 15, 4, &id);
        if (i > 0)
            CMF_ClientParamEncode(ctx, 18, 4, &flag);
        ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
        statuses.push_back(CMF_ClientResponseRecv(ctx));
        uint32_t type, length;
        void *value;
        ASSERT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
        uint32_t v;
        memcpy(&v, value, 4);
        values.push_back(v);
    }
    CMF_ClientContextClose(ctx);
    EXPECT_EQ(statuses, (std::vector<uint32_t>{0, 0, 13}));
    EXPECT_EQ(values, (std::vector<uint32_t>{1, 2, 3}));
    std::lock_guard<std::mutex> hold(seenMutex);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].items.size(), 1u);
    ASSERT_EQ(seen[2].items.size(), 2u);
    EXPECT_EQ(seen[2].items[1].type, 18u);
    EXPECT_EQ(connections[0], connections[2]) << "one connection for the whole context";
}

TEST_F(TransportTest, ServiceErrorCodeReachesThePlugInUnchanged)
{
    TestService service([](const CmfRequest &, ndplat::ServiceConnection &) {
        CmfResponse response;
        response.status = 46;
        return response;
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    NdCliParam b = block(5, 4);
    EXPECT_EQ(ndCliParamProc(&b), 46u);
}

TEST_F(TransportTest, AbsentServiceFailsTheReceiveAtOnce)
{
    std::string dir = freshDir();
    ndplat::cmf_transport_set(ndplat::socket_transport(ndplat::service_socket_path(dir)));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusUnreachable);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    CMF_ClientContextClose(ctx);

    // Through the plug-in's exchange: a framework failure on receive is error 21.
    ndtest::Stdout out;
    EXPECT_EQ(ndCliParamProc(&b), 21u);
    EXPECT_EQ(out.take(), "");
}

TEST_F(TransportTest, HungServiceTimesOutAfterTheContextTimeout)
{
    setenv("NDSIM_CMF_UNIT_MS", "10", 1);
    TestService service([](const CmfRequest &, ndplat::ServiceConnection &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        return CmfResponse{};
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    CMF_ClientContextTimeoutSet(ctx, 5); // 5 units of 10 ms
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusTimeout);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(45));
    EXPECT_LT(waited, std::chrono::milliseconds(400));
    // The spent connection is not reused for the late answer.
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusFailure);
    CMF_ClientContextClose(ctx);
}

TEST_F(TransportTest, PlugInExchangeTimesOutWithError21)
{
    setenv("NDSIM_CMF_UNIT_MS", "5", 1); // the exchange sets 20 units: 100 ms
    TestService service([](const CmfRequest &, ndplat::ServiceConnection &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return CmfResponse{};
    });
    ASSERT_TRUE(service.ok());
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    NdCliParam b = block(9, 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ndCliParamProc(&b), 21u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
}

TEST_F(TransportTest, ServiceHangingUpGivesBrokenConnection)
{
    RawService raw([](int fd) {
        std::vector<uint8_t> body;
        ndplat::frame_read(fd, body, 2000);
    });
    ndplat::cmf_transport_set(ndplat::socket_transport(raw.path()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusBroken);
    CMF_ClientContextClose(ctx);
}

TEST_F(TransportTest, GarbageResponseIsRejectedWithALogLine)
{
    RawService raw([](int fd) {
        std::vector<uint8_t> body;
        ndplat::frame_read(fd, body, 2000);
        ndplat::frame_write(fd, std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7}, 2000);
    });
    ndplat::cmf_transport_set(ndplat::socket_transport(raw.path()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusMalformed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ndcmf client: rejected response: bad response magic\n");
    CMF_ClientContextClose(ctx);
}

TEST_F(TransportTest, TruncatedResponseFrameIsABrokenConnection)
{
    RawService raw([](int fd) {
        std::vector<uint8_t> body;
        ndplat::frame_read(fd, body, 2000);
        uint32_t claimed = 100;
        uint8_t partial[8];
        memcpy(partial, &claimed, 4);
        memcpy(partial + 4, &ndplat::kWireResponseMagic, 4);
        send(fd, partial, sizeof partial, MSG_NOSIGNAL);
    });
    ndplat::cmf_transport_set(ndplat::socket_transport(raw.path()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusBroken);
    CMF_ClientContextClose(ctx);
}

TEST_F(TransportTest, OversizedResponseFrameIsRefusedWithoutReadingIt)
{
    RawService raw([](int fd) {
        std::vector<uint8_t> body;
        ndplat::frame_read(fd, body, 2000);
        uint32_t huge = 0xfffffff0u;
        send(fd, &huge, 4, MSG_NOSIGNAL);
    });
    ndplat::cmf_transport_set(ndplat::socket_transport(raw.path()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    NdCliParam b = block(9, 0);
    CMF_ClientContextObjSet(ctx, &b);
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusMalformed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ndcmf client: rejected response: frame too large\n");
    CMF_ClientContextClose(ctx);
}

TEST_F(TransportTest, ReceiveWithoutASendIsAFailure)
{
    TestService service([](const CmfRequest &, ndplat::ServiceConnection &) { return CmfResponse{}; });
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), ndplat::kCmfStatusFailure);
    CMF_ClientContextClose(ctx);
}

// ---- the server's side of malformed requests -------------------------------------------------------


TEST_F(TransportTest, ServerRejectsMalformedRequestsAndKeepsServing)
{
    std::atomic<int> handled{0};
    TestService service([&](const CmfRequest &, ndplat::ServiceConnection &) {
        ++handled;
        return CmfResponse{};
    });
    ASSERT_TRUE(service.ok());

    testing::internal::CaptureStderr();
    int fd = ndtest::connect_unix(service.socket());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ndplat::frame_write(fd, std::vector<uint8_t>{9, 9, 9, 9, 9}, 1000), ndplat::FrameResult::ok);
    std::vector<uint8_t> answer;
    EXPECT_EQ(ndplat::frame_read(fd, answer, 2000), ndplat::FrameResult::closed);
    close(fd);

    // A frame cut short by the client.
    fd = ndtest::connect_unix(service.socket());
    uint32_t claimed = 64;
    send(fd, &claimed, 4, MSG_NOSIGNAL);
    send(fd, "abc", 3, MSG_NOSIGNAL);
    shutdown(fd, SHUT_WR);
    EXPECT_EQ(ndplat::frame_read(fd, answer, 2000), ndplat::FrameResult::closed);
    close(fd);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("ndcmf server: rejected request: bad request magic\n"), std::string::npos) << log;
    EXPECT_NE(log.find("ndcmf server: rejected request: truncated frame\n"), std::string::npos) << log;
    EXPECT_EQ(handled.load(), 0);

    // A good client is still served.
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    NdCliParam b = block(2, 3);
    EXPECT_EQ(ndCliParamProc(&b), 0u);
    EXPECT_EQ(handled.load(), 1);
}

TEST_F(TransportTest, ManyContextsAtOnceAreServedConcurrently)
{
    TestService service([](const CmfRequest &r, ndplat::ServiceConnection &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        CmfResponse response;
        response.items.push_back(CmfItem::u32(14, r.argIndex));
        return response;
    });
    ndplat::cmf_transport_set(ndplat::socket_transport(service.socket()));
    auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> clients;
    std::atomic<int> right{0};
    for (uint32_t i = 0; i < 8; ++i)
        clients.emplace_back([i, &right] {
            CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
            NdCliParam b = block(14, 0);
            b.argIndex = i;
            CMF_ClientContextObjSet(ctx, &b);
            CMF_ClientRequestSend(ctx);
            CMF_ClientResponseRecv(ctx);
            uint32_t type, length;
            void *value;
            if (CMF_ClientParamDecode(ctx, &type, &length, &value) == 0) {
                uint32_t v;
                memcpy(&v, value, 4);
                right += v == i;
            }
            CMF_ClientContextClose(ctx);
        });
    for (std::thread &t : clients)
        t.join();
    EXPECT_EQ(right.load(), 8);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(600)) << "served one after another";
}

TEST(Places, StateDirectoryAndUnit)
{
    unsetenv("NDSIM_STATE");
    EXPECT_EQ(ndplat::state_dir(), "./ndsim-state");
    setenv("NDSIM_STATE", "/tmp/somewhere", 1);
    EXPECT_EQ(ndplat::state_dir(), "/tmp/somewhere");
    EXPECT_EQ(ndplat::service_socket_path("/x"), "/x/ndsvc.sock");
    unsetenv("NDSIM_STATE");
    unsetenv("NDSIM_CMF_UNIT_MS");
    EXPECT_EQ(ndplat::cmf_unit_ms(), 1000u);
    setenv("NDSIM_CMF_UNIT_MS", "7", 1);
    EXPECT_EQ(ndplat::cmf_unit_ms(), 7u);
    setenv("NDSIM_CMF_UNIT_MS", "junk", 1);
    EXPECT_EQ(ndplat::cmf_unit_ms(), 1000u);
    unsetenv("NDSIM_CMF_UNIT_MS");
}

} // namespace
