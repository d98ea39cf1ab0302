// The single path from a handler's request block to the ND service and from the answer to the
// renderer that its response code names.
#include <array>
#include <cstdio>

#include "framework/nd_cli_owned.h"
#include "nd_request.h"

namespace {

constexpr uint32_t kRequestTimeout = 20;
constexpr int32_t kDcmStarted = 2;

constexpr int32_t kFirstServiceCode = 16;

// Locals of one exchange that a renderer may keep between its calls.
struct RenderLocals {
    uint32_t rows;
    uint8_t titleShown;
};

struct RendererRow {
    uint32_t responseCode;
    void (*render)(const void *value, uint32_t length, RenderLocals &locals);
};

constexpr RendererRow kRenderers[] = {
    {ndwire::kRspSnoopingStats, [](const void *value, uint32_t length, RenderLocals &) { ndCliShowSnpStInfo(value, length); }},
    {ndwire::kRspUserBindOne, [](const void *value, uint32_t length, RenderLocals &locals) {
         ndCliShowUbInfo(value, length, &locals.rows, &locals.titleShown);
     }},
    // A mask shorter than its 32 bits is shown as no mask at all rather than read past.
    {ndwire::kRspDebug, [](const void *value, uint32_t length, RenderLocals &) {
         ndCliShowDebugInfo(length >= ndwire::kDebugMaskSize ? value : nullptr);
     }},
    {ndwire::kRspForwardStats, [](const void *value, uint32_t length, RenderLocals &) { ndCliShowFwdStInfo(value, length); }},
    {ndwire::kRspProxyAddress, [](const void *value, uint32_t length, RenderLocals &) { ndCliShowProxyAddr(value, length); }},
};

} // namespace

extern "C" uint32_t ndCliParamProc(NdCliParam *block)
{
    if (!block) {
        printf("cmf ndCliParamProc failed, param null");
        return ND_ERR_OPERATION_FAILED;
    }
    uint32_t need = IP6_IsNeedStart(DCM_Query(ND_CLI_SERVICE_NAME));

    // Only configuration requests start the service, and debug switches never do.
    int32_t started = 0;
    if (block->optKind == ND_CLI_OPT_SET && block->cmdCode != ND_CMD_DEBUG && need == 1) {
        started = DCM_Start(ND_CLI_SERVICE_NAME, 1);
        if (started != kDcmStarted) {
            printf("DCM start process error %d!", started);
            return ND_ERR_OPERATION_FAILED;
        }
    }

    ndcli::OwnedContext context(CMF_ClientContextInit(block->serviceName, block->serviceType, block->serviceInstance));
    if (!context.get()) {
        // The number shown is the start result, or 0 when the service was not started.
        printf("CMF ClientContextInit error %d!", started);
        return ND_ERR_OPERATION_FAILED;
    }
    uint32_t r = CMF_ClientContextTimeoutSet(context.get(), kRequestTimeout);
    if (r != 0) {
        printf("CMF ClientContextTimeoutSet error %d!", static_cast<int32_t>(r));
        return ND_ERR_OPERATION_FAILED;
    }
    r = CMF_ClientContextObjSet(context.get(), block);
    if (r != 0) {
        printf("CMF ClientContextObjSet error %d!", static_cast<int32_t>(r));
        return ND_ERR_OPERATION_FAILED;
    }
    r = ndcli::encodeItems(context.get(), *block);
    if (r != 0) {
        printf("CMF ClientParamEncode error %d!", static_cast<int32_t>(r));
        return ND_ERR_OPERATION_FAILED;
    }
    return ndCmfSendAndRev(context.get());
}

extern "C" uint32_t ndCmfSendAndRev(void *context)
{
    uint32_t r = CMF_ClientRequestSend(context);
    if (r != 0)
        return r == ndwire::kCmfOutOfMemory ? uint32_t{ND_ERR_MEMORY_SHORT} : uint32_t{ND_ERR_OPERATION_FAILED};

    r = CMF_ClientResponseRecv(context);
    if (r != 0 && r != ndwire::kCmfNoMore)
        return static_cast<int32_t>(r) < kFirstServiceCode ? uint32_t{ND_ERR_CMF_RECEIVE} : r;

    uint32_t type = 0;
    uint32_t length = 0;
    void *value = nullptr;
    r = CMF_ClientParamDecode(context, &type, &length, &value);
    if (r == ndwire::kCmfNoMore)
        return ND_OK;
    if (r != 0) {
        printf("cmf param decode error, ret: %d\n", static_cast<int32_t>(r));
        return ND_ERR_CMF_DECODE;
    }

    RenderLocals locals = {0, 0};
    for (const RendererRow &row : kRenderers) {
        if (row.responseCode == type) {
            row.render(value, length, locals);
            return ND_OK;
        }
    }
    printf("\ncmf decode, code(%d) not support.\n", static_cast<int32_t>(type));
    return ND_OK;
}
