// The ND lines inside interface, VLAN, super-VLAN and port sections of the running
// configuration: each handler looks up the one record of its section in "ec_nd" and prints at
// most two indented lines. During a running-configuration display the VLAN handler reads
// through the session cache, so that the whole display opens the database once.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "script/nd_cli_script_internal.h"
#include "framework/nd_cli_record.h"

using ndcli::u16At;
using ndcli::u32At;

namespace {

constexpr size_t kKeySize = 100;
constexpr uint32_t kNoRunningCfgSession = 0xFFFFFFFFu;

uint16_t keyLength(const char *key)
{
    return static_cast<uint16_t>(strlen(key));
}

// A record keyed by an identity number whose stored VLAN id (bytes 12-13) must equal that
// number cut to 16 bits: the VLAN and super-VLAN records.
bool vlanRecordMatches(DBM_HANDLE h, const char *format, uintptr_t id)
{
    char key[kKeySize];
    snprintf(key, sizeof key, format, static_cast<int>(id));
    uint8_t record[ndwire::member::kSize];
    if (!ndcli::readRecord(h, key, keyLength(key), record))
        return false;
    return u16At(record + ndwire::member::kVlanId) == static_cast<uint16_t>(id);
}

template <int32_t (*Reader)(DBM_HANDLE, NdCliScriptCtx *)>
int32_t directScript(const char *openFailedLog, NdCliScriptCtx ctx)
{
    return ndcli::runScript(openFailedLog, ctx, Reader);
}

constexpr const char *kIfOpenFailed = "nd if script handle, open dbm read failed, ret %d";
constexpr const char *kPortOpenFailed = "nd port if script handle, open dbm read failed, ret %d";
constexpr const char *kVlanOpenFailed = "nd vlan if script handle, open dbm read failed, ret %d";
constexpr const char *kSuperVlanOpenFailed = "supervlan script handle, open dbm read failed, ret %d";

} // namespace

extern "C" {

int32_t ndIfCfgScript(DBM_HANDLE h, NdCliScriptCtx *ctx)
{
    // A section without a name has no record to look up (and no text to format the key from).
    if (!h || !ctx || !ctx->arg4)
        return 0;
    const char *ifName = reinterpret_cast<const char *>(ctx->arg4);
    char key[kKeySize];
    snprintf(key, sizeof key, "nd_nbr_if_%s", ifName);
    uint8_t record[ndwire::iface::kSize];
    if (!ndcli::readRecord(h, key, keyLength(key), record))
        return 0;
    // The stored name ends in a NUL inside its 68 bytes; one that fills them is cut there.
    char stored[ndwire::iface::kNameSize + 1] = {};
    memcpy(stored, record, ndwire::iface::kNameSize);
    if (strcmp(stored, ifName) != 0)
        return 0;
    uint32_t flags = u32At(record + ndwire::iface::kFlags);
    if (flags & ndwire::iface::kFlagProxy)
        ctx->print(ctx->fd, "\n nd proxy enable");
    if (flags & ndwire::iface::kFlagAnyway)
        ctx->print(ctx->fd, "\n ipv6 nd proxy anyway enable");
    return 0;
}

int32_t ndCliSnpTrustPortScript(DBM_HANDLE h, NdCliScriptCtx *ctx)
{
    if (!h || !ctx)
        return 0;
    int32_t portId = static_cast<int32_t>(ctx->arg4);
    char key[kKeySize] = {};
    portID2FmtString(portId, key);
    if (key[0] == '\0')
        return 0;
    uint8_t record[ndwire::member::kSize];
    if (!ndcli::readRecord(h, key, keyLength(key), record))
        return 0;
    if (u32At(record + ndwire::member::kId) == static_cast<uint32_t>(portId) && u32At(record + ndwire::member::kPortState) == 0)
        dprintf(ctx->fd, "\n nd snooping trust");
    return 0;
}

int32_t ndCliIfVlanScript(DBM_HANDLE h, NdCliScriptCtx *ctx)
{
    if (!h || !ctx)
        return 0;
    if (vlanRecordMatches(h, "vlan %d", ctx->arg3))
        dprintf(ctx->fd, "\n nd snooping enable");
    return 0;
}

int32_t ndCliIfSuperVlanScript(DBM_HANDLE h, NdCliScriptCtx *ctx)
{
    if (!h || !ctx)
        return 0;
    if (vlanRecordMatches(h, "super-vlan %d", ctx->arg4))
        dprintf(ctx->fd, "\n nd local-proxy enable");
    return 0;
}

int32_t ndIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t ifName)
{
    return directScript<ndIfCfgScript>(kIfOpenFailed, ndcli::scriptCtx(fd, a2, a3, ifName));
}

int32_t ndPortIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t portId)
{
    return directScript<ndCliSnpTrustPortScript>(kPortOpenFailed, ndcli::scriptCtx(fd, a2, a3, portId));
}

int32_t ND_SuperVlanScriptHandler(int32_t fd, uintptr_t superVlanId)
{
    return directScript<ndCliIfSuperVlanScript>(kSuperVlanOpenFailed, ndcli::scriptCtx(fd, 0, 0, superVlanId));
}

int32_t ndVlanIfScriptHandlerFromLocalDbm(int32_t fd, uintptr_t a2, uintptr_t vlanId, uintptr_t a4,
                                          uint32_t sessionId)
{
    (void)a2;
    (void)a4;
    nd_CliDbmSessPull(sessionId, ndwire::kTypeVlan);
    char key[kKeySize];
    snprintf(key, sizeof key, "vlan %d", static_cast<int>(vlanId));
    uint8_t record[ndwire::member::kSize] = {};
    int32_t n = nd_CliDbmGetUniqueBinary(sessionId, ndwire::kTypeVlan, key, keyLength(key), record,
                                         ndwire::member::kSize);
    if (n < 1)
        return n;
    uint16_t stored = u16At(record + ndwire::member::kVlanId);
    if (stored != vlanId)
        return stored;
    return dprintf(fd, "\n nd snooping enable");
}

int32_t ndVlanIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vlanId, uintptr_t a4)
{
    uint32_t sessionId = SHELL_GetRunningCfgProcSessionId();
    if (sessionId == kNoRunningCfgSession)
        return directScript<ndCliIfVlanScript>(kVlanOpenFailed, ndcli::scriptCtx(fd, a2, vlanId, a4));
    return ndVlanIfScriptHandlerFromLocalDbm(fd, a2, vlanId, a4, sessionId);
}

} // extern "C"
