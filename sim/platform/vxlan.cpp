// The VXLAN side of the emulated platform: VXLAN port information (from the port table of
// vxports.cpp), the VXLAN interaction work task (a real worker thread running jobs in queue
// order), the ND library's suppression-host and remote-neighbour tables, IPAM_Struct2String
// and the memory-state switch.
#include <arpa/inet.h>

#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "ndplat.h"
#include "ndplat_service.h"
#include "ndplat_vxlan.h"

namespace {

constexpr int32_t kOk = 0;
constexpr int32_t kFailure = 1;

// ---- memory state and ND library tables ----------------------------------------------------

struct VxlanState {
    std::mutex mutex;
    int32_t memState = 0;
    std::map<std::array<uint8_t, 20>, ndplat::SuppressionRecord> suppression;
    std::map<std::array<uint8_t, 24>, ndplat::RemoteNbrRecord> nbrs;
};

VxlanState &vxlanState()
{
    static VxlanState *s = new VxlanState; // never destroyed: jobs may still run at exit
    return *s;
}

// ---- work task ----------------------------------------------------------------------------

struct Job {
    GNL_WT_JOB_FN fn;
    void *data;
};

struct WorkTask {
    std::mutex mutex;
    std::condition_variable wake;    // a job was queued, the pause lifted or a stop asked
    std::condition_variable settled; // the queue ran empty
    std::deque<Job> queue;
    std::thread worker;
    bool running = false;
    bool stop = false;
    bool paused = false;
    bool busy = false;
    uint64_t jobsRun = 0;
};

WorkTask &task()
{
    static WorkTask *t = new WorkTask; // never destroyed: its thread may outlive static destruction
    return *t;
}

void workerLoop()
{
    WorkTask &t = task();
    std::unique_lock<std::mutex> hold(t.mutex);
    for (;;) {
        t.wake.wait(hold, [&] { return t.stop || (!t.paused && !t.queue.empty()); });
        if (t.queue.empty() || (t.paused && !t.stop)) {
            if (t.stop)
                break;
            continue;
        }
        Job job = t.queue.front();
        t.queue.pop_front();
        t.busy = true;
        hold.unlock();
        job.fn(0, 0, job.data);
        hold.lock();
        t.busy = false;
        ++t.jobsRun;
        if (t.queue.empty())
            t.settled.notify_all();
    }
    t.settled.notify_all();
}

// Called with the task's mutex held.
void startWorkerLocked(WorkTask &t)
{
    if (t.running)
        return;
    t.stop = false;
    t.running = true;
    t.worker = std::thread(workerLoop);
}

void drainLocked(WorkTask &t, std::unique_lock<std::mutex> &hold)
{
    t.settled.wait(hold, [&] { return !t.running || (t.queue.empty() && !t.busy); });
}

// Runs what is still queued (the jobs own their records), then stops the worker.
void resetWorkTask()
{
    WorkTask &t = task();
    std::thread worker;
    {
        std::unique_lock<std::mutex> hold(t.mutex);
        t.paused = false;
        t.wake.notify_all();
        drainLocked(t, hold);
        t.stop = true;
        t.wake.notify_all();
        worker = std::move(t.worker);
    }
    if (worker.joinable())
        worker.join();
    std::lock_guard<std::mutex> hold(t.mutex);
    t.running = false;
    t.stop = false;
    t.jobsRun = 0;
}

void resetVxlan()
{
    resetWorkTask();
    VxlanState &s = vxlanState();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.memState = 0;
    s.suppression.clear();
    s.nbrs.clear();
}

const bool registered = (ndplat::on_reset(resetVxlan), true);

// ---- ND library tables -----------------------------------------------------------------------

namespace sup = ndwire::suppression;
namespace rn = ndwire::remotenbr;
constexpr size_t kSuppressionSize = sup::kSize;
constexpr size_t kNbrSize = rn::kSize;

std::array<uint8_t, 20> suppressionKey(const uint8_t *record)
{
    std::array<uint8_t, 20> key{};
    memcpy(key.data(), record + sup::kVxlanId, 4);
    memcpy(key.data() + 4, record + sup::kAddress, 16);
    return key;
}

std::array<uint8_t, 24> nbrKey(const uint8_t *record)
{
    static_assert(rn::kType + 4 == rn::kVxlanId);
    std::array<uint8_t, 24> key{};
    memcpy(key.data(), record + rn::kType, 8); // entry type, VXLAN id
    memcpy(key.data() + 8, record + rn::kAddress, 16);
    return key;
}

template <typename Table, typename KeyFn>
int32_t tableUpdate(Table &table, KeyFn keyOf, size_t size, void *records, uint32_t count, uint32_t *out, bool add)
{
    if (!records)
        return kFailure;
    ndplat::nd_library_forward(size, add, records, count);
    const uint8_t *p = static_cast<const uint8_t *>(records);
    uint32_t done = 0;
    VxlanState &s = vxlanState();
    std::lock_guard<std::mutex> hold(s.mutex);
    for (uint32_t i = 0; i < count; ++i, p += size) {
        auto key = keyOf(p);
        if (add) {
            typename Table::mapped_type record{};
            memcpy(record.data(), p, size);
            table[key] = record;
            ++done;
        } else if (table.erase(key) != 0) {
            ++done;
        }
    }
    if (out)
        *out = done;
    return done == count ? kOk : kFailure;
}

const char *ptrText(const void *p)
{
    return p ? "ptr" : "null";
}

// One of the ND library's table calls: traced, failed when a fault is armed, then the update.
template <typename Table, typename KeyFn>
int32_t libraryCall(const char *name, Table &table, KeyFn keyOf, size_t size, void *records, uint32_t count,
                    uint32_t *out, bool add)
{
    ndplat::trace_call(name, "%s, %u, %s", ptrText(records), count, ptrText(out));
    if (auto fault = ndplat::fault_next(name))
        return static_cast<int32_t>(*fault);
    return tableUpdate(table, keyOf, size, records, count, out, add);
}

} // namespace

namespace ndplat {

void mem_state_set(int32_t state)
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    vxlanState().memState = state;
}

void *vxlan_work_task()
{
    return &task();
}

void vxlan_work_drain()
{
    WorkTask &t = task();
    std::unique_lock<std::mutex> hold(t.mutex);
    drainLocked(t, hold);
}

uint64_t vxlan_work_jobs_run()
{
    std::lock_guard<std::mutex> hold(task().mutex);
    return task().jobsRun;
}

void vxlan_work_pause(bool paused)
{
    WorkTask &t = task();
    std::lock_guard<std::mutex> hold(t.mutex);
    t.paused = paused;
    t.wake.notify_all();
}

size_t vxlan_work_pending()
{
    std::lock_guard<std::mutex> hold(task().mutex);
    return task().queue.size();
}

std::vector<SuppressionRecord> nd_suppression_hosts()
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    std::vector<SuppressionRecord> out;
    for (const auto &entry : vxlanState().suppression)
        out.push_back(entry.second);
    return out;
}

std::vector<RemoteNbrRecord> nd_remote_nbrs()
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    std::vector<RemoteNbrRecord> out;
    for (const auto &entry : vxlanState().nbrs)
        out.push_back(entry.second);
    return out;
}

size_t nd_suppression_host_count()
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    return vxlanState().suppression.size();
}

size_t nd_remote_nbr_count()
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    return vxlanState().nbrs.size();
}

void nd_vxlan_tables_clear()
{
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    vxlanState().suppression.clear();
    vxlanState().nbrs.clear();
}

} // namespace ndplat

extern "C" int32_t VXLAN_GetVxportBasicInfo(uint32_t portIndex, void *info)
{
    ndplat::trace_call("VXLAN_GetVxportBasicInfo", "%u, %s", portIndex, ptrText(info));
    if (auto fault = ndplat::fault_next("VXLAN_GetVxportBasicInfo"))
        return static_cast<int32_t>(*fault);
    if (!info)
        return kFailure;
    std::optional<ndplat::Vxport> port = ndplat::vxport_find(portIndex);
    if (!port)
        return kFailure;
    uint8_t *p = static_cast<uint8_t *>(info);
    memcpy(p, &portIndex, sizeof portIndex);
    memcpy(p + ND_VXPORT_INFO_KIND, &port->kind, sizeof port->kind);
    memcpy(p + ND_VXPORT_INFO_PORT_ID, &port->portId, sizeof port->portId);
    memcpy(p + ND_VXPORT_INFO_SVLAN, &port->svlan, sizeof port->svlan);
    memcpy(p + ND_VXPORT_INFO_CVLAN, &port->cvlan, sizeof port->cvlan);
    return kOk;
}

extern "C" void *nsm_vxlan_interaction_mgmt_get_handle(void)
{
    ndplat::trace_call("nsm_vxlan_interaction_mgmt_get_handle");
    if (auto fault = ndplat::fault_next("nsm_vxlan_interaction_mgmt_get_handle"))
        return nullptr;
    return &task();
}

extern "C" int32_t gnl_wt_add_event_job(void *handle, uint32_t prio, GNL_WT_JOB_FN job, void *data)
{
    ndplat::trace_call("gnl_wt_add_event_job", "%s, %u, %s, %s", ptrText(handle), prio,
                       job ? "fn" : "null", ptrText(data));
    if (auto fault = ndplat::fault_next("gnl_wt_add_event_job"))
        return static_cast<int32_t>(*fault);
    WorkTask &t = task();
    if (handle != &t || !job)
        return kFailure;
    std::lock_guard<std::mutex> hold(t.mutex);
    startWorkerLocked(t);
    t.queue.push_back(Job{job, data});
    t.wake.notify_all();
    return kOk;
}

extern "C" int32_t ND_AddSuppressionHost(void *record, uint32_t count, uint32_t *out)
{
    return libraryCall("ND_AddSuppressionHost", vxlanState().suppression, suppressionKey, kSuppressionSize, record, count, out, true);
}

extern "C" int32_t ND_DelSuppressionHost(void *record, uint32_t count, uint32_t *out)
{
    return libraryCall("ND_DelSuppressionHost", vxlanState().suppression, suppressionKey, kSuppressionSize, record, count, out, false);
}

extern "C" int32_t ND_AddRemoteNbr(void *record, uint32_t count, uint32_t *out)
{
    return libraryCall("ND_AddRemoteNbr", vxlanState().nbrs, nbrKey, kNbrSize, record, count, out, true);
}

extern "C" int32_t ND_DelRemoteNbr(void *record, uint32_t count, uint32_t *out)
{
    return libraryCall("ND_DelRemoteNbr", vxlanState().nbrs, nbrKey, kNbrSize, record, count, out, false);
}

extern "C" int32_t IPAM_Struct2String(const void *address, char *text)
{
    ndplat::trace_call("IPAM_Struct2String", "%s, %s", ptrText(address), ptrText(text));
    if (auto fault = ndplat::fault_next("IPAM_Struct2String"))
        return static_cast<int32_t>(*fault);
    if (!address || !text)
        return kFailure;
    constexpr size_t kTextSize = 40;
    const uint8_t *a = static_cast<const uint8_t *>(address);
    int family = a[0] == 10 ? AF_INET6 : a[0] == 2 ? AF_INET
                                                   : -1;
    if (family < 0 || !inet_ntop(family, a + 4, text, kTextSize)) {
        text[0] = '\0';
        return kFailure;
    }
    return kOk;
}

extern "C" int32_t gnl_mem_state(void)
{
    ndplat::trace_call("gnl_mem_state");
    if (auto fault = ndplat::fault_next("gnl_mem_state"))
        return static_cast<int32_t>(*fault);
    std::lock_guard<std::mutex> hold(vxlanState().mutex);
    return vxlanState().memState;
}
