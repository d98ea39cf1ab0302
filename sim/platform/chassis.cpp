// Chassis mode and module names.
#include <atomic>
#include <cstdio>

#include "ndplat.h"

namespace {

std::atomic<uint32_t> gChassisMode{0};

void resetChassis()
{
    gChassisMode = 0;
}

const bool registered = (ndplat::on_reset(resetChassis), true);

} // namespace

namespace ndplat {
void chassis_mode_set(uint32_t mode)
{
    gChassisMode = mode;
}
} // namespace ndplat

extern "C" int32_t DMM_GetChsMode(uint32_t *mode)
{
    ndplat::trace_call("DMM_GetChsMode", "%s", mode ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("DMM_GetChsMode"))
        return static_cast<int32_t>(*fault);
    if (!mode)
        return -1;
    *mode = gChassisMode;
    return 0;
}

extern "C" int32_t MODULEMGMT_GetModName(uint32_t moduleId, char *name, uint32_t size)
{
    ndplat::trace_call("MODULEMGMT_GetModName", "%u, %s, %u", moduleId, name ? "ptr" : "null", size);
    if (auto fault = ndplat::fault_next("MODULEMGMT_GetModName"))
        return static_cast<int32_t>(*fault);
    if (!name || size == 0)
        return -1;
    snprintf(name, size, "MODULE-%u", moduleId);
    return 0;
}
