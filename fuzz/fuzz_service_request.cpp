// Fuzzes the service side of the framing: any body is decoded as a request, and whatever
// decodes is answered by the service model and the answer encoded again. Nothing may crash,
// leak or hang.
#include <cstddef>
#include <cstdint>

#include "nd_service.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

namespace {

ndsvc::NdService &service()
{
    static ndsvc::NdService *s = [] {
        ndplat::reset(); // an empty in-memory database, no files
        return new ndsvc::NdService;
    }();
    return *s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ndsvc::NdService &svc = service();
    ndplat::CmfRequest request;
    if (!ndplat::wire_decode_request(data, size, request))
        return 0;
    // The diagnose request writes a fixed file and the ISSU request loads the plug-in: both
    // are left to the service tests.
    if (request.cmdCode == 29 || request.cmdCode == 25)
        return 0;
    ndplat::CmfResponse response = svc.handle(request);
    std::vector<uint8_t> body = ndplat::wire_encode_response(response);
    ndplat::CmfResponse again;
    if (!ndplat::wire_decode_response(body.data(), body.size(), again))
        __builtin_trap();
    ndplat::trace_clear();
    return 0;
}
