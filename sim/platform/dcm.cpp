// Service control: whether the "ipv6" service process runs, and starting it.
#include <atomic>

#include "ndplat.h"

namespace {

constexpr int32_t kServiceRunning = 2;
constexpr int32_t kStartedOk = 2;

std::atomic<int32_t> gState{kServiceRunning};
std::atomic<const ndplat::ServiceControl *> gControl{nullptr};

void resetDcm()
{
    gState = kServiceRunning;
    gControl = nullptr;
}

const bool registered = (ndplat::on_reset(resetDcm), true);

} // namespace

namespace ndplat {

void dcm_control_set(const ServiceControl *control)
{
    gControl = control;
}

void dcm_state_set(int32_t state)
{
    gState = state;
}

} // namespace ndplat

extern "C" int32_t DCM_Query(const char *service)
{
    ndplat::trace_call("DCM_Query", "%s", ndplat::trace_str(service).c_str());
    if (auto fault = ndplat::fault_next("DCM_Query"))
        return static_cast<int32_t>(*fault);
    if (const ndplat::ServiceControl *control = gControl.load())
        return control->query(service);
    return gState;
}

extern "C" int32_t DCM_Start(const char *service, uint32_t how)
{
    ndplat::trace_call("DCM_Start", "%s, %u", ndplat::trace_str(service).c_str(), how);
    if (auto fault = ndplat::fault_next("DCM_Start"))
        return static_cast<int32_t>(*fault);
    if (const ndplat::ServiceControl *control = gControl.load())
        return control->start(service, how);
    gState = kServiceRunning;
    return kStartedOk;
}
