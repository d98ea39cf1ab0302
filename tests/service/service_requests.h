// Shared pieces of the service tests: requests of the plug-in as they build them, and state
// directories whose services are stopped when the tests end.
#ifndef SERVICE_REQUESTS_H
#define SERVICE_REQUESTS_H

#include <sys/stat.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ndplat_service.h"
#include "test_support.h"

namespace svctest {

// A request of command `code` and operation `kind` with its items, as the plug-in's framework
// sends it (20 units of context timeout).
inline ndplat::CmfRequest req(uint32_t code, uint32_t kind, std::vector<ndplat::CmfItem> items = {})
{
    ndplat::CmfRequest r;
    r.service = "ipv6";
    r.hasObject = true;
    r.cmdCode = code;
    r.optKind = kind;
    r.serviceType = 234;
    r.serviceInstance = 1;
    r.timeout = 20;
    r.itemCount = static_cast<uint32_t>(items.size());
    r.items = std::move(items);
    return r;
}

inline ndplat::CmfItem u16(uint32_t type, uint16_t v)
{
    return ndplat::CmfItem::of(type, &v, 2);
}

// A new state directory under /tmp/<prefix>-<pid>/ that another user can reach (a test
// connects as one). A service outlives the test that started it: when the program ends, the
// service of every directory handed out is stopped before the tree is removed.
inline std::string fresh_state_dir(const std::string &prefix)
{
    std::string dir = ndtest::fresh_scratch_dir(prefix);
    chmod(dir.c_str(), 0755);
    chmod(dir.substr(0, dir.rfind('/')).c_str(), 0755);
    // Made after the scratch trees' own static, so destroyed before they are removed.
    static struct StopsServices {
        std::mutex mutex;
        std::vector<std::string> dirs;
        ~StopsServices()
        {
            for (const std::string &d : dirs)
                if (ndplat::service_lock_holder(d) != 0)
                    ndplat::service_stop(d, true);
        }
    } stops;
    std::lock_guard<std::mutex> hold(stops.mutex);
    stops.dirs.push_back(dir);
    return dir;
}

} // namespace svctest

#endif
