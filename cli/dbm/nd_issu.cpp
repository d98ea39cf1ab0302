// The ISSU host store "ec_nd_host_issu": keeps the VXLAN ND local host table across an
// in-service upgrade. Open, insert, save and walk are exported for the ND service as well; the
// printing of one stored entry and the backup/recover command live here too. The hidden
// diagnose listing that walks the store is with the other diagnose handlers.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vxlan/nd_cli_vxlan.h"
#include "framework/nd_cli_record.h"
#include "nd_request.h"

using ndcli::u32At;

namespace {

constexpr const char *kDatabase = "ec_nd_host_issu";
constexpr uint32_t kOpenParam[7] = ND_DBM_OPEN_PARAM;

constexpr uint32_t kLogA2 = 0;
constexpr uint32_t kLogA3 = 8;
constexpr uint32_t kLogLevel = 4;

constexpr int32_t kIterateBadArgument = 15;

// Address record of IPAM_Struct2String: family byte, then the address at byte 4.
constexpr size_t kAddressRecordSize = 20;
constexpr uint8_t kFamilyIpv6 = 10;
constexpr size_t kAddressTextSize = 40;
constexpr size_t kKeySize = 128;

DBM_HANDLE gNdDbmLibIssuEcHandle = nullptr;

void addressText(const uint8_t *entry, char (&text)[kAddressTextSize])
{
    uint8_t address[kAddressRecordSize];
    memset(address, 0, sizeof address);
    address[0] = kFamilyIpv6;
    memcpy(address + 4, entry + ndwire::issu::kAddress, 16);
    memset(text, 0, sizeof text);
    IPAM_Struct2String(address, text);
    text[kAddressTextSize - 1] = '\0';
}

// The store stays open for one walk and is closed on every way out of it.
class IssuStoreGuard {
public:
    IssuStoreGuard() = default;
    ~IssuStoreGuard() { nd_DbmLibIssuClose(); }
    IssuStoreGuard(const IssuStoreGuard &) = delete;
    IssuStoreGuard &operator=(const IssuStoreGuard &) = delete;
};

} // namespace

extern "C" {

void *nd_DbmLibIssuEcHandleGet(void)
{
    return gNdDbmLibIssuEcHandle;
}

void nd_DbmLibIssuEcHandleSet(void *handle)
{
    gNdDbmLibIssuEcHandle = handle;
}

int32_t nd_DbmLibIssuOpen(void)
{
    DBM_HANDLE handle = nullptr;
    uint32_t r = DBM_Open(kDatabase, ND_DBM_OPEN_MODE, kOpenParam, 0, 0, &handle);
    if (r != 0) {
        NLOG_Send(ND_CLI_MODULE_ID, kLogA2, kLogA3, kLogLevel, "DBM_ISSU_OPEN, Nd open issu ec dbm failed, ret=%d.",
                  static_cast<int32_t>(r));
        return -1;
    }
    nd_DbmLibIssuEcHandleSet(handle);
    return 0;
}

int32_t nd_DbmLibIssuEntryInsert(const void *entry)
{
    // A missing entry has no key; it is refused like a failed write.
    const uint8_t *bytes = static_cast<const uint8_t *>(entry);
    int32_t r = -1;
    if (bytes) {
        char text[kAddressTextSize];
        addressText(bytes, text);
        char key[kKeySize];
        snprintf(key, sizeof key, "nd_issu_entry_%d_%s", static_cast<int32_t>(u32At(bytes, ndwire::issu::kIndex)), text);
        r = DBM_SetUniqueBinary(nd_DbmLibIssuEcHandleGet(), key, static_cast<uint16_t>(strlen(key)), 0, bytes,
                                ndwire::issu::kSize, 0);
    }
    if (r != 0) {
        NLOG_Send(ND_CLI_MODULE_ID, kLogA2, kLogA3, kLogLevel, "DBM_ISSU_ENTRY, Dbm issu entry insert ec error <%d>.",
                  r);
        return -1;
    }
    return 0;
}

int32_t nd_DbmLibSaveIssu(const char *path, uint32_t a2, uint32_t a3, uint32_t a4)
{
    (void)path;
    int32_t r = DBM_Save(ndwire::kIssuSavePath, a2, a3, a4);
    if (r != 0) {
        NLOG_Send(ND_CLI_MODULE_ID, kLogA2, kLogA3, kLogLevel, "DBM_ISSU_ENTRY, Save issu dbm ec error <%d>.", r);
        return -1;
    }
    return 0;
}

void nd_DbmLibIssuClose(void)
{
    DBM_HANDLE handle = nd_DbmLibIssuEcHandleGet();
    if (!handle)
        return;
    DBM_Close(handle);
    nd_DbmLibIssuEcHandleSet(nullptr);
}

int32_t ndDbmLibIssuIterateKeyCb(DBM_HANDLE handle, const void *key, uint16_t keyLen, void *context)
{
    NdDbmLibIssuIterCtx *iter = static_cast<NdDbmLibIssuIterCtx *>(context);
    if (!handle || !key || !iter || !iter->callback)
        return kIterateBadArgument;
    if (DBM_GetLen(handle, key, keyLen) < 1)
        return 0;
    uint8_t entry[ndwire::issu::kSize];
    memset(entry, 0, sizeof entry);
    if (DBM_GetUniqueBinary(handle, key, keyLen, 0, entry, sizeof entry) < 1)
        return 0;
    iter->callback(entry, iter->arg);
    return 0;
}

int32_t nd_DbmLibIssuHandler(NdDbmLibIssuIterCtx *ctx)
{
    if (!ctx || nd_DbmLibIssuOpen() != 0)
        return -1;
    IssuStoreGuard store;
    DBM_Proc(nd_DbmLibIssuEcHandleGet(), 0, ndDbmLibIssuIterateKeyCb, ctx);
    return 0;
}

int32_t ndCliDbmShowIssuCb(const void *entry, void *filter)
{
    const uint8_t *e = static_cast<const uint8_t *>(entry);
    NdCliIssuFilter *f = static_cast<NdCliIssuFilter *>(filter);
    uint32_t index = u32At(e, ndwire::issu::kIndex);
    if (f->index != 0 && f->index != index)
        return 0;
    f->shown++;
    char text[kAddressTextSize];
    addressText(e, text);
    char port[ndwire::issu::kPortSize];
    memcpy(port, e + ndwire::issu::kPort, ndwire::issu::kPortSize);
    port[ndwire::issu::kPortSize - 1] = '\0';
    const uint8_t *mac = e + ndwire::issu::kMac;
    const uint8_t *eth = e + ndwire::issu::kEthMac;
    printf("\nIssu host entry");
    printf("\n  ip: %s", text);
    printf("\n  index: %d", static_cast<int32_t>(index));
    printf("\n    mac: %02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    printf("\n    ethMac: %02x%02x.%02x%02x.%02x%02x", eth[0], eth[1], eth[2], eth[3], eth[4], eth[5]);
    printf("\n    port: %s", port);
    printf("\n    svlan: %d", static_cast<int32_t>(u32At(e, ndwire::issu::kSvlan)));
    printf("\n    cvlan: %d", static_cast<int32_t>(u32At(e, ndwire::issu::kCvlan)));
    printf("\n");
    return 0;
}

int32_t ndCliVxlanHostIssu(int32_t argc, char **argv)
{
    const char *action = ndcli::wordAt(argc, argv, 4);
    uint32_t selector = 0;
    if (action && action[0] == 'b')
        selector = ndwire::kIssuBackup;
    else if (action && action[0] == 'r')
        selector = ndwire::kIssuRecover;
    else
        return 0;
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_VXLAN_HOST, ndcli::kInitErrorPrinted))
        return request.result();
    request.add(ndwire::kItemIssuSelector, sizeof selector, &selector, false);
    if (ndCliVxlanSetProc(&request.block(), nullptr) != ND_OK)
        return ndcli::printedResult("\nIpv6 nd host has not been backed up!\n");
    return 0;
}

} // extern "C"
