// Mutexes of the generic runtime: gnl_sem_mutex_init, gnl_sem_take, gnl_sem_give on a real
// mutex. Their owners keep them for the life of the process, so a platform reset leaves them.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "ndplat.h"
#include "ndplat_dbm.h"

namespace {

// A lock flag under a mutex rather than a bare mutex, so that a give without a take (a caller
// that ignored a failed take) is refused instead of undefined.
struct Sem {
    std::mutex mutex;
    std::condition_variable released;
    bool held = false;
    std::string name;
};

std::atomic<long> gLive{0};

} // namespace

namespace ndplat {

long sem_live()
{
    return gLive.load();
}

void sem_destroy(GNL_SEM sem)
{
    if (!sem)
        return;
    delete static_cast<Sem *>(sem);
    --gLive;
}

} // namespace ndplat

extern "C" int32_t gnl_sem_mutex_init(const char *name, GNL_SEM *sem)
{
    ndplat::trace_call("gnl_sem_mutex_init", "%s, %s", ndplat::trace_str(name).c_str(), sem ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("gnl_sem_mutex_init"))
        return static_cast<int32_t>(*fault);
    if (!name || !sem)
        return -1;
    auto *s = new Sem;
    s->name = name;
    ++gLive;
    *sem = s;
    return 0;
}

extern "C" int32_t gnl_sem_take(GNL_SEM sem, int32_t timeout)
{
    ndplat::trace_call("gnl_sem_take", "%s, %d", sem ? "ptr" : "null", timeout);
    if (auto fault = ndplat::fault_next("gnl_sem_take"))
        return static_cast<int32_t>(*fault);
    if (!sem)
        return -1;
    Sem *s = static_cast<Sem *>(sem);
    std::unique_lock<std::mutex> lock(s->mutex);
    auto free = [s] { return !s->held; };
    if (timeout == 0)
        s->released.wait(lock, free);
    else if (timeout < 0 ? !free() : !s->released.wait_for(lock, std::chrono::milliseconds(timeout), free))
        return -1;
    s->held = true;
    return 0;
}

extern "C" int32_t gnl_sem_give(GNL_SEM sem)
{
    ndplat::trace_call("gnl_sem_give", "%s", sem ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("gnl_sem_give"))
        return static_cast<int32_t>(*fault);
    if (!sem)
        return -1;
    Sem *s = static_cast<Sem *>(sem);
    {
        std::lock_guard<std::mutex> hold(s->mutex);
        if (!s->held)
            return -1;
        s->held = false;
    }
    s->released.notify_one();
    return 0;
}
