// The platform's file wrappers: plain stdio on the emulated switch, with the call trace and
// fault injection of every platform function.
#include <unistd.h>

#include <cstdio>

#include "ndplat.h"

namespace {
const char *ptrText(const void *p)
{
    return p ? "ptr" : "null";
}
} // namespace

extern "C" FILE *__UMV2L_fopen(const char *path, const char *mode)
{
    ndplat::trace_call("__UMV2L_fopen", "%s, %s", ndplat::trace_str(path).c_str(), ndplat::trace_str(mode).c_str());
    if (auto fault = ndplat::fault_next("__UMV2L_fopen"))
        return nullptr;
    if (!path || !mode)
        return nullptr;
    return fopen(path, mode);
}

extern "C" char *__UMV2L_fgets(char *buf, int size, FILE *f)
{
    ndplat::trace_call("__UMV2L_fgets", "%s, %d, %s", ptrText(buf), size, ptrText(f));
    if (auto fault = ndplat::fault_next("__UMV2L_fgets"))
        return nullptr;
    if (!buf || !f || size <= 0)
        return nullptr;
    return fgets(buf, size, f);
}

extern "C" int __UMV2L_fclose(FILE *f)
{
    ndplat::trace_call("__UMV2L_fclose", "%s", ptrText(f));
    if (!f)
        return EOF;
    // A failure is still a closed file: the stream is released before the injected result.
    int r = fclose(f);
    if (auto fault = ndplat::fault_next("__UMV2L_fclose"))
        return static_cast<int>(*fault);
    return r;
}

extern "C" int __UMV2L_unlink(const char *path)
{
    ndplat::trace_call("__UMV2L_unlink", "%s", ndplat::trace_str(path).c_str());
    if (auto fault = ndplat::fault_next("__UMV2L_unlink"))
        return static_cast<int>(*fault);
    if (!path)
        return -1;
    return unlink(path);
}
