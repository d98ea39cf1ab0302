// The request parameter block and the small argument helpers that every handler shares.
#include <cstdio>
#include <strings.h>

#include "nd_request.h"

namespace {

constexpr uint32_t kFnsChassisMode = 2;

} // namespace

extern "C" uint32_t nd_CliParamInit(NdCliParam *block, const char *keyword, uint32_t code)
{
    if (!block) {
        printf("cmf nd_CliParamInit failed, param null");
        return ND_ERR_OPERATION_FAILED;
    }
    block->cmdCode = code;
    block->optKind = nd_CliArgGetOptFlag(keyword);
    block->reserved = 0;
    block->serviceType = ND_CLI_SERVICE_TYPE;
    block->serviceInstance = ND_CLI_SERVICE_INSTANCE;
    block->itemCount = 0;
    gnl_strlcpy(block->serviceName, ND_CLI_SERVICE_NAME, sizeof block->serviceName);
    // The index is advanced, not set: the handler's zeroing of the block is what starts it at 0.
    if (block->optKind == ND_CLI_OPT_UNDO)
        block->argIndex++;
    return ND_OK;
}

// Handlers append at most six items, so the block never fills up; an item beyond the last
// slot is refused rather than written past the array.
extern "C" uint32_t nd_CliParamSet(NdCliParam *block, const void *value, uint32_t length, uint32_t type,
                                   uint32_t consumes)
{
    if (!block || !value)
        return static_cast<uint32_t>(ndcli::printedResult("cli param set, param null\n"));
    if (block->itemCount >= ND_CLI_PARAM_ITEM_MAX)
        return static_cast<uint32_t>(ndcli::printedResult("cli param set, param full\n"));
    NdCliParamItem &item = block->items[block->itemCount];
    item.type = type;
    item.length = length;
    item.value = value;
    block->itemCount++;
    if (consumes == 0)
        return block->itemCount;
    return ++block->argIndex;
}

extern "C" uint32_t nd_CliArgGetOptFlag(const char *keyword)
{
    if (!keyword)
        return ND_CLI_OPT_SET;
    if (strcasecmp(keyword, "no") == 0 || strcasecmp(keyword, "clear") == 0 ||
        strcasecmp(keyword, "disable") == 0)
        return ND_CLI_OPT_UNDO;
    if (strcasecmp(keyword, "show") == 0)
        return ND_CLI_OPT_SHOW;
    if (strcasecmp(keyword, "bulk") == 0)
        return ND_CLI_OPT_BULK;
    return ND_CLI_OPT_SET;
}

extern "C" uint32_t IP6_IsNeedStart(int32_t state)
{
    return state == 0 || state == 1 || state == 4 ? 1 : 0;
}

extern "C" uint32_t ndCliIsFnsMode(void)
{
    uint32_t mode = 0;
    return DMM_GetChsMode(&mode) == 0 && mode == kFnsChassisMode ? 1 : 0;
}
