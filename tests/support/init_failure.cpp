// The initialisation in front of the plug-in's own export: the plug-in's handlers reach it
// through the dynamic linker, as any other caller would.
#include <dlfcn.h>

#include "init_failure.h"
#include "nd_cli.h"

namespace {
uint32_t gInitFailure = 0;
} // namespace

void ndtest::fail_next_param_init(uint32_t result)
{
    gInitFailure = result;
}

extern "C" uint32_t nd_CliParamInit(NdCliParam *block, const char *keyword, uint32_t code)
{
    using Fn = uint32_t (*)(NdCliParam *, const char *, uint32_t);
    Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "nd_CliParamInit"));
    uint32_t result = real ? real(block, keyword, code) : 0xFFFFFFFFu;
    if (gInitFailure != 0) {
        result = gInitFailure;
        gInitFailure = 0;
    }
    return result;
}
