// Fuzzes the service's seed reader: any text is read as a seed file into a fresh service
// model. A seed is either taken whole or refused with a reason; nothing may crash, leak, hang
// or allocate without bound.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nd_service.h"
#include "ndplat.h"
#include "ndplat_vxlan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The seed's VXLAN ports go to the platform's port table: kept in memory, no files.
    static const bool inMemory = (ndplat::reset(), true);
    (void)inMemory;
    const size_t portsBefore = ndplat::vxports().size();
    ndsvc::NdService service;
    std::string why;
    const bool taken = service.seed_text(std::string(reinterpret_cast<const char *>(data), size), &why);
    // A refusal always says why, and a refused seed leaves nothing behind.
    if (!taken && (why.empty() || service.vxlan_host_count() != 0 || service.suppression_count() != 0 ||
                   service.debug_mask() != 0 || ndplat::vxports().size() != portsBefore))
        __builtin_trap();
    return 0;
}
