// The platform allocator and string helper.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "ndplat.h"

namespace {
std::atomic<long> gOutstanding{0};
}

namespace ndplat {
long outstanding_allocations()
{
    return gOutstanding.load();
}
} // namespace ndplat

extern "C" void *__UMV2L_malloc(size_t size)
{
    ndplat::trace_call("__UMV2L_malloc", "%zu", size);
    if (auto fault = ndplat::fault_next("__UMV2L_malloc"))
        return nullptr;
    void *p = malloc(size == 0 ? 1 : size);
    if (p)
        ++gOutstanding;
    return p;
}

extern "C" void __UMV2L_free(void *p)
{
    ndplat::trace_call("__UMV2L_free", "%s", p ? "ptr" : "null");
    if (!p)
        return;
    --gOutstanding;
    free(p);
}

extern "C" size_t gnl_strlcpy(char *dst, const char *src, size_t size)
{
    ndplat::trace_call("gnl_strlcpy", "ptr, %s, %zu", ndplat::trace_str(src).c_str(), size);
    size_t length = strlen(src);
    if (size != 0) {
        size_t n = length < size - 1 ? length : size - 1;
        memcpy(dst, src, n);
        dst[n] = '\0';
    }
    return length;
}
