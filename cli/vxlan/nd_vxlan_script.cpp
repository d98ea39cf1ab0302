// Running configuration of a VXLAN instance: its non-default ND settings from "ec_nd".
#include <cstdio>
#include <cstring>

#include "framework/nd_cli_owned.h"
#include "vxlan/nd_cli_vxlan.h"
#include "framework/nd_cli_record.h"

using ndcli::u32At;

namespace {

constexpr uint32_t kOpenParam[7] = ND_DBM_OPEN_PARAM;

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
    uint8_t record[ndwire::vxlancfg::kSize];
    memset(record, 0, sizeof record);
    if (DBM_GetUniqueBinary(handle, key, keyLen, 0, record, sizeof record) < 1)
        return ND_OK;
    if (u32At(record, ndwire::vxlancfg::kId) != vxlanId)
        return ND_OK;

    uint32_t flags = u32At(record, ndwire::vxlancfg::kFlags);
    uint32_t timeout = u32At(record, ndwire::vxlancfg::kTimeout);
    uint32_t limit = u32At(record, ndwire::vxlancfg::kLimit);
    int32_t fd = context->fd;
    if (flags & ndwire::vxlancfg::kFlagSuppression)
        context->print(fd, "\n ipv6 nd suppression");
    if (flags & ndwire::vxlancfg::kFlagMissDiscard)
        context->print(fd, "\n ipv6 nd suppression missmatch discard");
    if (flags & ndwire::vxlancfg::kFlagUnicast)
        context->print(fd, "\n ipv6 nd suppression unicast forward");
    if (!(flags & ndwire::vxlancfg::kFlagAdvertise))
        context->print(fd, "\n no ipv6 nd host advertise");
    if (limit != ndwire::vxlancfg::kDefaultLimit)
        context->print(fd, "\n ipv6 nd host limited %d", static_cast<int32_t>(limit));
    if (timeout == ndwire::vxlancfg::kDefaultTimeout)
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
    uint32_t r = DBM_Open(ndwire::kDatabase, ND_DBM_OPEN_MODE, kOpenParam, 0, 0, &handle);
    if (r != 0)
        return static_cast<int32_t>(r);
    ndcli::OwnedDatabase database(handle);
    NdCliScriptCtx context = {fd, a2, vxlanId, a4, 0, nd_CliFdprintf};
    ndCliVxlanScript(database.get(), &context);
    return static_cast<int32_t>(database.close());
}

} // extern "C"
