// The platform's file wrappers: plain stdio on the emulated switch, below a configurable root,
// with the call trace and fault injection of every platform function.
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "ndplat.h"
#include "ndplat_vxlan.h"

namespace {

struct FilesState {
    std::mutex mutex;
    std::string root;
};

FilesState &state()
{
    static FilesState *s = new FilesState;
    return *s;
}

void resetFiles()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().root.clear();
}

const bool registered = (ndplat::on_reset(resetFiles), true);

const char *ptrText(const void *p)
{
    return p ? "ptr" : "null";
}

} // namespace

namespace ndplat {

void files_root_set(const std::string &root)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().root = root;
}

std::string file_path(const char *path)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    if (!path)
        return std::string();
    if (state().root.empty() || path[0] != '/')
        return path;
    return state().root + path;
}

} // namespace ndplat

extern "C" FILE *__UMV2L_fopen(const char *path, const char *mode)
{
    ndplat::trace_call("__UMV2L_fopen", "%s, %s", ndplat::trace_str(path).c_str(), ndplat::trace_str(mode).c_str());
    if (auto fault = ndplat::fault_next("__UMV2L_fopen"))
        return nullptr;
    if (!path || !mode)
        return nullptr;
    return fopen(ndplat::file_path(path).c_str(), mode);
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
    // An injected failure still releases the stream, as a failing fclose does.
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
    return unlink(ndplat::file_path(path).c_str());
}
