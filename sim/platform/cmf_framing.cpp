// The message framing between the framework client and the ND service: message bodies
// encoded and decoded, and length-prefixed frames written and read under a deadline.
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "cmf_io.h"
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

// The magic that opens a body; false (with the reason) for a null body, one too short for a
// magic, or one that another magic opens.
bool readMagic(Reader &in, const uint8_t *body, size_t size, uint32_t expected, const char *badMagic, std::string *why)
{
    if (!body && size)
        return fail(why, "null body");
    uint32_t magic = 0;
    if (!in.u32(magic))
        return fail(why, "truncated magic");
    if (magic != expected)
        return fail(why, badMagic);
    return true;
}

// ---- deadlines and frame I/O ------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

// How much of a body is read (and held) ahead of what has arrived.
constexpr size_t kReadSlice = 64u << 10;

int remainingMs(Clock::time_point deadline, bool bounded)
{
    return bounded ? ms_until(deadline) : -1;
}

// Waits for fd to become ready for `events`; 1 ready, 0 timed out, -1 error.
int waitFor(int fd, short events, Clock::time_point deadline, bool bounded)
{
    if (events == POLLIN && readable_soon(fd))
        return 1;
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

} // namespace

// A request and its answer are a ping-pong: each side's turn takes tens of microseconds (the
// service builds a page, the client prints one). Waited for asleep, each turn would also cost
// a wake-up of the sleeper through the scheduler, which on a virtual machine costs more than
// the turn itself; waited for awake, the sender finds no sleeper to wake. Past the window the
// wait sleeps as usual. With one processor, staying awake would only keep the peer from
// running.
bool readable_soon(int fd)
{
    constexpr auto kAwakeWindow = std::chrono::microseconds(150);
    static const bool severalProcessors = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    if (!severalProcessors)
        return false;
    Clock::time_point until = Clock::now() + kAwakeWindow;
    do {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 0) > 0)
            return true;
    } while (Clock::now() < until);
    return false;
}

int ms_until(Clock::time_point deadline)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(left);
}

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
    Reader in(body, size);
    if (!readMagic(in, body, size, kWireRequestMagic, "bad request magic", why))
        return false;
    uint32_t flags = 0, nameLength = 0;
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
    Reader in(body, size);
    if (!readMagic(in, body, size, kWireResponseMagic, "bad response magic", why))
        return false;
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
    response.endStatus = ndwire::kCmfNoMore;
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

} // namespace ndplat
