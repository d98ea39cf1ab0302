// The handlers' request: starting it with the failure answer of each command, sending it by
// either exchange, and the one loop that encodes a block's items.
#include <cstdarg>
#include <cstdio>

#include "nd_request.h"

namespace ndcli {

int32_t printedResult(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int printed = vprintf(format, args);
    va_end(args);
    return printed;
}

bool Request::start(const char *keyword, uint32_t code, const InitFailure &failure)
{
    const uint32_t status = nd_CliParamInit(&block_, keyword, code);
    if (status == ND_OK)
        return true;
    result_ = static_cast<int32_t>(status);
    switch (failure.answer) {
    case InitFailure::Answer::Status:
        if (failure.text)
            printf(failure.text, result_);
        break;
    case InitFailure::Answer::PrintedCount:
        result_ = printedResult(failure.text, result_);
        break;
    case InitFailure::Answer::StatusText:
        nd_CliPrintErrorToVty(status);
        break;
    }
    return false;
}

bool Request::start(int32_t argc, char **argv, uint32_t code, const InitFailure &failure)
{
    return start(firstWord(argc, argv), code, failure);
}

uint32_t Request::send()
{
    const uint32_t status = ndCliParamProc(&block_);
    if (status != ND_OK)
        nd_CliPrintErrorToVty(status);
    return status;
}

uint32_t Request::sendVxlan(NdCliVxlanRenderFn render)
{
    const uint32_t status = ndCliVxlanSetProc(&block_, render);
    if (status != ND_OK)
        nd_CliPrintErrorToVty(status);
    return status;
}

int32_t sendZeroWord(int32_t argc, char **argv, uint32_t code, uint32_t itemType)
{
    Request request;
    if (!request.start(argc, argv, code, kInitFailed))
        return request.result();
    const uint32_t zero = 0;
    request.add(itemType, sizeof zero, &zero, true);
    return request.finish();
}

uint32_t encodeItems(CMF_CONTEXT context, const NdCliParam &block)
{
    for (uint32_t i = 0; i < block.itemCount && i < ND_CLI_PARAM_ITEM_MAX; ++i) {
        const NdCliParamItem &item = block.items[i];
        const uint32_t status = CMF_ClientParamEncode(context, item.type, item.length, item.value);
        if (status != 0)
            return status;
    }
    return 0;
}

} // namespace ndcli
