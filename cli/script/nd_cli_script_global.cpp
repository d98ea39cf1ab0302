// The global ND lines of the running configuration: each global handler walks the records of
// its value types in "ec_nd" and prints one line per record whose value is not the default.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>

#include "script/nd_cli_script_internal.h"
#include "framework/nd_cli_record.h"

using ndcli::u16At;
using ndcli::u32At;

namespace {

// A setting stored as one 32-bit word whose line is printed when the word equals `due`.
struct FlagLine {
    uint32_t due;
    const char *line;
};
constexpr FlagLine kFastResponseLine = {0, "\nno nd fast-response"};
constexpr FlagLine kSnpEnableLine = {1, "\nnd snooping enable"};
constexpr FlagLine kNsCheckLooseLine = {1, "\nnd snooping ns-check-loose"};
constexpr FlagLine kAttackLogLine = {1, "\nnd snooping attack-log enable"};

// User-bind entries of the static list are read five at a time.
constexpr uint32_t kUbBulkCount = 5;
constexpr size_t kAddrTextSize = 48;

struct ScriptEntry {
    uint32_t valueType;
    DBM_PROC_FN callback;
};

constexpr ScriptEntry kEnableScript[] = {{ndwire::kTypeSnooping, ndGlobalSnpEnCfgScript}};
// Not reformatted: two entries a row, in printing order.
// clang-format off
constexpr ScriptEntry kGlobalScript[] = {
    {ndwire::kTypeFastResponse, ndGlobalCfgScript},       {ndwire::kTypeLoose, ndGlobalSnpLsCfgScript},
    {ndwire::kTypeUserBindList, ndGlobalUbCfgScript},         {ndwire::kTypeDetect, ndGlobalSnpDtctCfgScript},
    {ndwire::kTypeAttackLog, ndGlobalSnpAttaLogCfgScript},
};
// clang-format on

// Steps shared by every global callback: argument check, an existing record, the skip flag.
// Returns the context when the record is to be read, else null with `result` set.
NdCliScriptCtx *dueRecord(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg, int32_t &result)
{
    auto *ctx = static_cast<NdCliScriptCtx *>(arg);
    result = 0;
    if (!h || !key || !ctx) {
        result = ND_ERR_SYSTEM_BUSY;
        return nullptr;
    }
    if (DBM_GetLen(h, key, keyLen) < 1 || ctx->skip == 1)
        return nullptr;
    return ctx;
}

// A single-value callback: reads exactly 4 bytes and lets `print` decide on the line.
template <void (*Print)(const NdCliScriptCtx *ctx, const uint8_t *value)>
int32_t singleValueScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg)
{
    int32_t result;
    NdCliScriptCtx *ctx = dueRecord(h, key, keyLen, arg, result);
    if (!ctx)
        return result;
    uint8_t value[ndwire::flag::kSize] = {};
    if (DBM_GetUniqueBinary(h, key, keyLen, 0, value, ndwire::flag::kSize) < 1)
        return 0;
    Print(ctx, value);
    return 0;
}

template <const FlagLine &Line> void printFlag(const NdCliScriptCtx *ctx, const uint8_t *value)
{
    if (u32At(value) == Line.due)
        ctx->print(ctx->fd, Line.line);
}

void printDetect(const NdCliScriptCtx *ctx, const uint8_t *value)
{
    uint16_t retransmit = u16At(value);
    uint16_t interval = u16At(value + 2);
    if (retransmit == 0 && interval == 0)
        ctx->print(ctx->fd, "\nno nd snooping detect");
    else
        ctx->print(ctx->fd, "\nnd snooping detect retransmit %d interval %d", retransmit, interval);
}

void printUserBind(const NdCliScriptCtx *ctx, const uint8_t *entry)
{
    if (u16At(entry + ndwire::userbind::kPort) == 0)
        return;
    char address[kAddrTextSize] = {};
    inet_ntop(AF_INET6, entry + ndwire::userbind::kAddress, address, sizeof address);
    const uint8_t *m = entry + ndwire::userbind::kMac;
    char mac[16];
    snprintf(mac, sizeof mac, "%02x%02x.%02x%02x.%02x%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    // The stored name is meant to end in a NUL inside its 40 bytes; one that fills them is
    // cut there instead of being read past the entry.
    char ifName[ndwire::userbind::kPortNameSize + 1] = {};
    memcpy(ifName, entry + ndwire::userbind::kPortName, ndwire::userbind::kPortNameSize);
    ctx->print(ctx->fd, "\nnd snooping user-bind static %s %s vlan %d interface %s", address, mac,
               u16At(entry + ndwire::userbind::kVlan), ifName);
}

// The iterator of a sorted list, released when the guard ends (also when it stayed null).
class SortListIterator {
public:
    SortListIterator() = default;
    ~SortListIterator() { DBM_FreeIterator(it_); }
    SortListIterator(const SortListIterator &) = delete;
    SortListIterator &operator=(const SortListIterator &) = delete;
    void **address() { return &it_; }

private:
    void *it_ = nullptr;
};

template <size_t N>
int32_t globalScript(int32_t fd, uintptr_t a2, uintptr_t a3, const char *openFailedLog, const ScriptEntry (&walk)[N])
{
    NdCliScriptCtx ctx = ndcli::scriptCtx(fd, a2, a3, 0);
    return ndcli::runScript(openFailedLog, ctx, [&walk](DBM_HANDLE h, NdCliScriptCtx *c) {
        for (const ScriptEntry &e : walk)
            DBM_Proc(h, e.valueType, e.callback, c);
    });
}

} // namespace

extern "C" {

int32_t ndGlobalCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx)
{
    return singleValueScript<printFlag<kFastResponseLine>>(h, key, keyLen, ctx);
}

int32_t ndGlobalSnpEnCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx)
{
    return singleValueScript<printFlag<kSnpEnableLine>>(h, key, keyLen, ctx);
}

int32_t ndGlobalSnpLsCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx)
{
    return singleValueScript<printFlag<kNsCheckLooseLine>>(h, key, keyLen, ctx);
}

int32_t ndGlobalSnpAttaLogCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx)
{
    return singleValueScript<printFlag<kAttackLogLine>>(h, key, keyLen, ctx);
}

int32_t ndGlobalSnpDtctCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *ctx)
{
    return singleValueScript<printDetect>(h, key, keyLen, ctx);
}

int32_t ndGlobalUbCfgScript(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg)
{
    int32_t result;
    NdCliScriptCtx *ctx = dueRecord(h, key, keyLen, arg, result);
    if (!ctx)
        return result;
    ndcli::Allocation<uint8_t> buffer(ndwire::userbind::kSize * kUbBulkCount);
    if (!buffer.get())
        return ND_ERR_MEMORY_SHORT;
    SortListIterator iterator;
    for (;;) {
        memset(buffer.get(), 0, ndwire::userbind::kSize * kUbBulkCount);
        int32_t count = DBM_GetBulkFromSortList(h, key, keyLen, iterator.address(), 0, 0, kUbBulkCount,
                                                buffer.get(), ndwire::userbind::kSize);
        if (count < 1)
            break;
        // The list never hands back more than asked for; a larger count is held to the buffer.
        uint32_t n = static_cast<uint32_t>(count) < kUbBulkCount ? static_cast<uint32_t>(count) : kUbBulkCount;
        for (uint32_t i = 0; i < n; ++i)
            printUserBind(ctx, buffer.get() + i * ndwire::userbind::kSize);
    }
    return 0;
}

int32_t ndGobleEnableScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4)
{
    (void)a4;
    return globalScript(fd, a2, a3, "global enable script handle, open dbm read failed, ret %d", kEnableScript);
}

int32_t ndGobleScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4)
{
    (void)a4;
    return globalScript(fd, a2, a3, "global script handle, open dbm read failed, ret %d", kGlobalScript);
}

} // extern "C"
