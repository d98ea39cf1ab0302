// Fuzzes the client side of the framing: any body is decoded as a response of the service,
// and whatever decodes is handed to the plug-in's exchange as the answer to a show request,
// so that the response dispatch and the renderers see it too. Nothing may crash, leak or
// hang.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nd_cli.h"
#include "ndplat_service.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // The renderers print; the fuzzer's own output goes to stderr.
    if (!freopen("/dev/null", "w", stdout))
        return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ndplat::CmfResponse response;
    if (!ndplat::wire_decode_response(data, size, response))
        return 0;
    ndplat::reset();
    ndplat::cmf_script(response);
    // The first byte chooses which show request meets the answer.
    static const uint32_t codes[] = {9, 12, 14, 16, 18};
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "show", codes[size ? data[0] % 5 : 0]);
    uint32_t zero = 0;
    nd_CliParamSet(&block, &zero, 4, 9, 1);
    ndCliParamProc(&block);
    ndplat::reset();
    return 0;
}
