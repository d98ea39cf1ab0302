// This program's own __UMV2L_malloc, in front of the platform's: it forwards every call and,
// when armed, makes the platform fail one chosen allocation through its fault injection, so
// the call is traced like any other.
#include <dlfcn.h>

#include <cstddef>

#include "alloc_control.h"
#include "ndplat.h"

namespace {
int gSuccessesLeft = -1;
}

namespace ndtest {
void fail_allocation_after(int successes)
{
    gSuccessesLeft = successes;
}
} // namespace ndtest

extern "C" void *__UMV2L_malloc(size_t size)
{
    using Fn = void *(*)(size_t);
    static Fn platform = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "__UMV2L_malloc"));
    if (gSuccessesLeft == 0) {
        gSuccessesLeft = -1;
        ndplat::fault_inject("__UMV2L_malloc", 0, 1);
    } else if (gSuccessesLeft > 0) {
        --gSuccessesLeft;
    }
    return platform(size);
}
