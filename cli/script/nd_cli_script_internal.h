// The running-configuration handlers inside the plug-in: record callbacks, record readers and
// the one shape every handler has (open "ec_nd", build the context, read, close).
#ifndef ND_CLI_SCRIPT_INTERNAL_H
#define ND_CLI_SCRIPT_INTERNAL_H

#include "dbm/nd_cli_dbm_internal.h"

extern "C" {

/* global record callbacks, called by DBM_Proc with the script context as argument */
int32_t ndGlobalCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);
int32_t ndGlobalSnpEnCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);
int32_t ndGlobalSnpLsCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);
int32_t ndGlobalUbCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);
int32_t ndGlobalSnpDtctCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);
int32_t ndGlobalSnpAttaLogCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx);

/* section record readers */
int32_t ndIfCfgScript(DBM_HANDLE h, NdCliScriptCtx *ctx);
int32_t ndCliSnpTrustPortScript(DBM_HANDLE h, NdCliScriptCtx *ctx);
int32_t ndCliIfVlanScript(DBM_HANDLE h, NdCliScriptCtx *ctx);
int32_t ndCliIfSuperVlanScript(DBM_HANDLE h, NdCliScriptCtx *ctx);

int32_t ndVlanIfScriptHandlerFromLocalDbm(int32_t fd, uintptr_t a2, uintptr_t vlanId, uintptr_t a4,
                                          uint32_t sessionId);
}

namespace ndcli {

constexpr uint32_t kNdLogA2 = 0;
constexpr uint32_t kNdLogA3 = 8;
constexpr uint32_t kNdLogLevel = 4;

inline NdCliScriptCtx scriptCtx(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4)
{
    NdCliScriptCtx ctx = {fd, a2, a3, a4, 0, nd_CliFdprintf};
    return ctx;
}

// Opens "ec_nd", runs `read` with the handle and the context, closes. An open failure is
// logged with `openFailedLog` (a format taking the return value) and nothing is read; the
// result is then what the log call returned, else what the close returned.
template <typename Read> int32_t runScript(const char *openFailedLog, NdCliScriptCtx &ctx, Read &&read)
{
    ndcli::OwnedDatabase db;
    uint32_t ret = openNdDatabase(db);
    if (ret != 0)
        return NLOG_Send(ND_CLI_MODULE_ID, kNdLogA2, kNdLogA3, kNdLogLevel, openFailedLog, ret);
    read(db.get(), &ctx);
    return static_cast<int32_t>(db.close());
}

// Reads one record of up to sizeof(buf) bytes into the zeroed buffer; false when the record is
// absent or empty or the read returns nothing.
template <size_t N> bool readRecord(DBM_HANDLE h, const char *key, uint16_t keyLen, uint8_t (&buf)[N])
{
    if (DBM_GetLen(h, key, keyLen) < 1)
        return false;
    __builtin_memset(buf, 0, N);
    return DBM_GetUniqueBinary(h, key, keyLen, 0, buf, N) >= 1;
}

} // namespace ndcli

#endif
