// Running configuration of a VXLAN instance: its non-default ND settings from "ec_nd".
#include <cstdio>
#include <cstring>

#include "framework/nd_cli_owned.h"
#include "vxlan/nd_cli_vxlan.h"
#include "framework/nd_cli_record.h"

using ndcli::u32At;

namespace {

constexpr const char *kDatabase = "ec_nd";
constexpr uint32_t kOpenMode = 1;
constexpr uint32_t kOpenParam[7] = {1, 1, 256, 0, 0, 0, 0};

// The stored settings of one instance.
constexpr uint32_t kRecordSize = 20;
constexpr size_t kOffId = 0;
constexpr size_t kOffFlags = 8;
constexpr size_t kOffTimeout = 12;
constexpr size_t kOffLimit = 16;

constexpr uint32_t kFlagAdvertise = 1;
constexpr uint32_t kFlagSuppression = 2;
constexpr uint32_t kFlagUnicastForward = 4;
constexpr uint32_t kFlagMissDiscard = 8;

constexpr uint32_t kDefaultTimeout = 360;
constexpr uint32_t kDefaultLimit = 20480;

} // namespace

extern "C" {

uint32_t ndCliVxlanScript(DBM_HANDLE handle, NdCliScriptCtx *context)
{
    if (!handle || !context)
        return ND_ERR_OPERATION_FAILED;
    uint32_t vxlanId = static_cast<uint32_t>(context->arg3);
    char key[100];
    snprintf(key, sizeof key, "vxlan %d", static_cast<int32_t>(vxlanId));
    uint16_t keyLen = static_cast<uint16_t>(strlen(key));
    if (DBM_GetLen(handle, key, keyLen) < 1)
        return ND_OK;
    uint8_t record[kRecordSize];
    memset(record, 0, sizeof record);
    if (DBM_GetUniqueBinary(handle, key, keyLen, 0, record, sizeof record) < 1)
        return ND_OK;
    if (u32At(record, kOffId) != vxlanId)
        return ND_OK;

    uint32_t flags = u32At(record, kOffFlags);
    uint32_t timeout = u32At(record, kOffTimeout);
    uint32_t limit = u32At(record, kOffLimit);
    int32_t fd = context->fd;
    if (flags & kFlagSuppression)
        context->print(fd, "\n ipv6 nd suppression");
    if (flags & kFlagMissDiscard)
        context->print(fd, "\n ipv6 nd suppression missmatch discard");
    if (flags & kFlagUnicastForward)
        context->print(fd, "\n ipv6 nd suppression unicast forward");
    if (!(flags & kFlagAdvertise))
        context->print(fd, "\n no ipv6 nd host advertise");
    if (limit != kDefaultLimit)
        context->print(fd, "\n ipv6 nd host limited %d", static_cast<int32_t>(limit));
    if (timeout == kDefaultTimeout)
        return ND_OK;
    if (timeout == 0)
        context->print(fd, "\n ipv6 nd host timeout disable");
    else
        context->print(fd, "\n ipv6 nd host timeout %d", static_cast<int32_t>(timeout));
    return ND_OK;
}

int32_t nd_CliVxlanScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vxlanId, uintptr_t a4)
{
    DBM_HANDLE handle = nullptr;
    uint32_t r = DBM_Open(kDatabase, kOpenMode, kOpenParam, 0, 0, &handle);
    if (r != 0)
        return static_cast<int32_t>(r);
    ndcli::OwnedDatabase database(handle);
    NdCliScriptCtx context = {fd, a2, vxlanId, a4, 0, nd_CliFdprintf};
    ndCliVxlanScript(database.get(), &context);
    return static_cast<int32_t>(database.close());
}

} // extern "C"
