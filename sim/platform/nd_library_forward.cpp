// The records of the shell's ND library (test injection) on their way to the attached service:
// queued in batches and sent, in order, by a worker on a connection of its own.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include <poll.h>
#include <unistd.h>

#include "cmf_io.h"
#include "nd_cli_wire.h"
#include "ndplat_service.h"
#include "ndplat_vxlan.h"

namespace ndplat {
namespace {

constexpr size_t kBatchBytes = kNdLibraryBatchBytes;

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
    // Nothing is due on the connection between batches: readable means that the service
    // closed it as idle, and a new one carries the batch.
    if (f.fd >= 0) {
        pollfd p{f.fd, POLLIN, 0};
        if (poll(&p, 1, 0) > 0) {
            close(f.fd);
            f.fd = -1;
        }
    }
    if (f.fd < 0) {
        f.fd = unix_socket_connect(path);
        if (f.fd < 0)
            return false;
    }
    CmfRequest request;
    request.service = "ipv6";
    request.hasObject = true;
    request.cmdCode = batch.code;
    request.itemCount = 1;
    request.items.push_back(CmfItem::of(ndwire::kItemObject, batch.bytes.data(), static_cast<uint32_t>(batch.bytes.size())));
    std::vector<uint8_t> answer;
    CmfResponse response;
    FrameResult written = frame_write(f.fd, wire_encode_request(request), 30000);
    // A refusal is answered before the service closes: it is read also when the write failed.
    bool good = (written == FrameResult::ok || written == FrameResult::closed) &&
                frame_read(f.fd, answer, 30000) == FrameResult::ok &&
                wire_decode_response(answer.data(), answer.size(), response);
    std::string why;
    if (good && wire_is_refusal(response, &why)) {
        fprintf(stderr, "ndcmf client: refused by the service: %s\n", why.c_str());
        good = false;
    }
    good = good && written == FrameResult::ok;
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
    constexpr size_t kSuppression = ndwire::suppression::kSize, kRemoteNbr = ndwire::remotenbr::kSize;
    if (!records || count == 0 || (recordSize != kSuppression && recordSize != kRemoteNbr))
        return;
    Forwarder &f = forwarder();
    std::lock_guard<std::mutex> hold(f.mutex);
    if (f.socketPath.empty())
        return;
    uint32_t code = recordSize == kSuppression ? (add ? ndwire::kInjectSuppressionAdd : ndwire::kInjectSuppressionDel)
                                               : (add ? ndwire::kInjectRemoteNbrAdd : ndwire::kInjectRemoteNbrDel);
    const uint8_t *p = static_cast<const uint8_t *>(records);
    // Whole records, at most kBatchBytes of them per batch, so that every batch fits a frame.
    size_t perBatch = kBatchBytes / recordSize;
    for (uint32_t left = count; left > 0;) {
        if (f.queue.empty() || f.queue.back().code != code || f.queue.back().bytes.size() / recordSize >= perBatch)
            f.queue.push_back(Batch{code, {}});
        std::vector<uint8_t> &bytes = f.queue.back().bytes;
        size_t room = perBatch - bytes.size() / recordSize;
        size_t n = left < room ? left : room;
        bytes.insert(bytes.end(), p, p + recordSize * n);
        p += recordSize * n;
        left -= static_cast<uint32_t>(n);
    }
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

void nd_library_target_set(const std::string &socketPath)
{
    std::lock_guard<std::mutex> hold(forwarder().mutex);
    forwarder().socketPath = socketPath;
}

} // namespace ndplat
