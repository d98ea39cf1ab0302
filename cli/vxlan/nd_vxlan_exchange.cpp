// The VXLAN request exchange: unlike the generic one it never starts the service, follows a
// table over several responses (each follow-up request carries the last record received),
// hands every record to the caller's renderer and returns transport statuses unmapped.
#include <cstdio>
#include <cstring>

#include "framework/nd_cli_owned.h"
#include "nd_request.h"
#include "vxlan/nd_cli_vxlan.h"

namespace {

constexpr uint32_t kRequestTimeout = 20;

// Codes below this one are configuration commands.
constexpr uint32_t kFirstNonConfigCode = ndwire::kCmdVxlanMissDiscard;

// The last-record item announces at most what the buffer holds: a record longer than the
// buffer is cut to its first bytes rather than overrunning it.
uint32_t boundedRecordLength(uint32_t length)
{
    return length < kNdCliVxlanLastRecordSize ? length : kNdCliVxlanLastRecordSize;
}

void appendLastRecord(NdCliParam *block, uint8_t *lastRecord, uint32_t length)
{
    nd_CliParamSet(block, lastRecord, boundedRecordLength(length), ndwire::kItemLastRecord, 0);
}

} // namespace

extern "C" {

bool ndCliVxlanIsCfgCmd(uint32_t code)
{
    return code < kFirstNonConfigCode;
}

uint32_t ndCliVxlanSetProc(NdCliParam *block, NdCliVxlanRenderFn render)
{
    if (!block)
        return ND_ERR_OPERATION_FAILED;
    ndcli::OwnedContext context(CMF_ClientContextInit(block->serviceName, block->serviceType, block->serviceInstance));
    if (!context.get())
        return ND_ERR_OPERATION_FAILED;
    uint32_t r = CMF_ClientContextTimeoutSet(context.get(), kRequestTimeout);
    if (r != 0) {
        printf("CMF ClientContextTimeoutSet error %d!", static_cast<int32_t>(r));
        return ND_ERR_OPERATION_FAILED;
    }
    if (CMF_ClientContextObjSet(context.get(), block) != 0)
        return ND_ERR_OPERATION_FAILED;
    return ndCliVxlanCmfSendAndRecv(context.get(), block, render);
}

uint32_t ndCliVxlanCmfSendAndRecv(CMF_CONTEXT context, NdCliParam *block, NdCliVxlanRenderFn render)
{
    uint8_t lastRecord[kNdCliVxlanLastRecordSize];
    memset(lastRecord, 0, sizeof lastRecord);
    uint32_t continuation = 0;
    NdCliParam snapshot;
    memcpy(&snapshot, block, sizeof snapshot);

    for (uint32_t responses = 1;; ++responses) {
        if (ndcli::encodeItems(context, *block) != 0)
            return ND_ERR_CMF_ENCODE;
        uint32_t r = CMF_ClientRequestSend(context);
        if (r != 0)
            return r;
        r = CMF_ClientResponseRecv(context);
        if (r != 0 && r != ndwire::kCmfNoMore)
            return r;
        bool lastResponse = r == ndwire::kCmfNoMore;

        // Every response starts again from the handler's own items: the continuation items of
        // the previous follow-up go, and so does the record count.
        memcpy(block, &snapshot, sizeof *block);

        r = ndCliVxlanCmfDecodeProc(context, block, lastRecord, continuation, render);
        if (r == ND_OK)
            return ND_OK;
        if (r == ndwire::kCmfNotSet) {
            // Undoing a setting that is not there stays silent: 24 is never printed.
            if (ndCliVxlanIsCfgCmd(block->cmdCode) && block->optKind == ND_CLI_OPT_UNDO)
                return ND_ERR_PROCESS_NOT_STOPPED;
            r = ND_OK;
        }
        if (lastResponse)
            return r;
        if (responses >= kNdCliVxlanMaxResponses)
            return ND_ERR_OPERATION_FAILED;
        continuation = 1;
        nd_CliParamSet(block, &continuation, sizeof continuation, ndwire::kItemContinuation, 0);
    }
}

uint32_t ndCliVxlanCmfDecodeProc(CMF_CONTEXT context, NdCliParam *block, uint8_t *lastRecord,
                                 uint32_t continuation, NdCliVxlanRenderFn render)
{
    uint32_t decodes = 0;
    uint32_t code = 0;
    uint32_t length = 0;
    for (;;) {
        void *value = nullptr;
        uint32_t r = CMF_ClientParamDecode(context, &code, &length, &value);
        ++decodes;
        if (r == ndwire::kCmfNoMore) {
            if (decodes == 1 && continuation == 0)
                return ND_OK;
            appendLastRecord(block, lastRecord, length);
            return ndwire::kCmfNoMore;
        }
        if (r != 0) {
            printf("cmf param decode error, ret: %d\n", static_cast<int32_t>(r));
            appendLastRecord(block, lastRecord, length);
            return r;
        }
        if (code == ndwire::kRspVxlanEnd)
            return ND_OK;
        if (!render)
            continue;
        if (value)
            memcpy(lastRecord, value, boundedRecordLength(length));
        render(value, code, length);
        block->decodedCount++;
    }
}

} // extern "C"
