// Requests of the plug-in as the service tests build them.
#ifndef SERVICE_REQUESTS_H
#define SERVICE_REQUESTS_H

#include <cstdint>
#include <utility>
#include <vector>

#include "ndplat_service.h"

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

} // namespace svctest

#endif
