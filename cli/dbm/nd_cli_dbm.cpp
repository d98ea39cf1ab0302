// The per-display cache of configuration-database records: while the shell prints the running
// configuration, the VLAN handler reads every record of one value type once into memory and
// answers the following VLANs from there; the end-of-display event drops the copy. One mutex
// guards both table levels; lookups hand out copies, never pointers into the cache.
#include <cstdio>
#include <cstring>

#include "dbm/nd_cli_dbm_internal.h"

namespace {

constexpr uint32_t kSessionBuckets = 16;
constexpr uint32_t kRecordBuckets = 512;
constexpr uint32_t kInitialised = 1;

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(NdCliDbmSess) == 48, "session entry layout of the 32-bit target");
static_assert(sizeof(NdCliDbmRecord) == 32, "record header layout of the 32-bit target");
#endif

// Holds the cache's mutex for the life of the guard.
class CacheLock {
public:
    CacheLock() { gnl_sem_take(gNdCliDbmCtl.mutex, 0); }
    ~CacheLock() { gnl_sem_give(gNdCliDbmCtl.mutex); }
    CacheLock(const CacheLock &) = delete;
    CacheLock &operator=(const CacheLock &) = delete;
};

using ndcli::Allocation;

NdCliDbmSess *findSession(uint32_t sessionId, uint32_t valueType)
{
    NdCliDbmSess probe;
    memset(&probe, 0, sizeof probe);
    probe.sessionId = sessionId;
    probe.valueType = valueType;
    return static_cast<NdCliDbmSess *>(gnl_hash_find(&gNdCliDbmCtl.sessions, &probe));
}

NdCliDbmRecord *findRecord(NdCliDbmSess *session, const void *key, uint16_t keyLen)
{
    NdCliDbmRecord probe;
    memset(&probe, 0, sizeof probe);
    probe.key = static_cast<uint8_t *>(const_cast<void *>(key));
    probe.keyLen = keyLen;
    return static_cast<NdCliDbmRecord *>(gnl_hash_find(&session->records, &probe));
}

} // namespace

extern "C" {

NdCliDbmCtl gNdCliDbmCtl;

uint32_t ndCliDbmSessCompute(const void *entry)
{
    const auto *s = static_cast<const NdCliDbmSess *>(entry);
    return gnl_hash_value_2words(s->sessionId, s->valueType, 0);
}

int32_t ndCliDbmSessCompare(const void *probe, const void *entry)
{
    const auto *p = static_cast<const NdCliDbmSess *>(probe);
    const auto *e = static_cast<const NdCliDbmSess *>(entry);
    return p->sessionId == e->sessionId && p->valueType == e->valueType ? 0 : -1;
}

uint32_t ndCliDbmBinaryCompute(const void *entry)
{
    const auto *r = static_cast<const NdCliDbmRecord *>(entry);
    return gnl_hash_value(r->key, r->keyLen, 0);
}

int32_t ndCliDbmBinaryCompare(const void *probe, const void *entry)
{
    const auto *p = static_cast<const NdCliDbmRecord *>(probe);
    const auto *e = static_cast<const NdCliDbmRecord *>(entry);
    return p->keyLen == e->keyLen && memcmp(p->key, e->key, p->keyLen) == 0 ? 0 : -1;
}

int32_t ndCliDbmInit(void)
{
    if (gNdCliDbmCtl.initialised)
        return 0;
    if (gnl_hash_init(&gNdCliDbmCtl.sessions, 0, ndCliDbmSessCompute, ndCliDbmSessCompare, kSessionBuckets) != 0)
        return -1;
    if (gnl_sem_mutex_init("gNdCliDbmCtl.mutex", &gNdCliDbmCtl.mutex) != 0) {
        gnl_hash_destroy(&gNdCliDbmCtl.sessions);
        return -1;
    }
    gNdCliDbmCtl.initialised = kInitialised;
    return 0;
}

int32_t ndCliDbmSaveToSessCb(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg)
{
    auto *session = static_cast<NdCliDbmSess *>(arg);
    if (!h || !key || !session)
        return -1;
    int32_t length = DBM_GetLen(h, key, keyLen);
    if (length < 1)
        return 0;
    uint32_t dataLen = static_cast<uint32_t>(length);
    Allocation<NdCliDbmRecord> fresh(sizeof(NdCliDbmRecord) + keyLen + dataLen);
    NdCliDbmRecord *record = fresh.get();
    if (!record)
        return 0;
    record->key = reinterpret_cast<uint8_t *>(record + 1);
    record->keyLen = keyLen;
    record->data = record->key + keyLen;
    record->dataLen = dataLen;
    memcpy(record->key, key, keyLen);
    DBM_GetUniqueBinary(h, key, keyLen, 0, record->data, dataLen);
    if (NdCliDbmRecord *old = findRecord(session, key, keyLen)) {
        gnl_hash_remove(&session->records, old);
        __UMV2L_free(old);
    }
    gnl_hash_insert(&session->records, fresh.release());
    return 0;
}

int32_t ndCliDbmSaveToSess(NdCliDbmSess *session)
{
    ndcli::OwnedDatabase db;
    if (ndcli::openNdDatabase(db) != 0)
        return -1;
    DBM_Proc(db.get(), session->valueType, ndCliDbmSaveToSessCb, session);
    db.close();
    return 0;
}

int32_t nd_CliDbmSessPull(uint32_t sessionId, uint32_t valueType)
{
    if (ndCliDbmInit() != 0)
        return -1;
    CacheLock hold;
    if (findSession(sessionId, valueType))
        return 0;
    // The entry's allocation was never checked; a null one is refused here instead of being
    // written through, the only safe outcome.
    Allocation<NdCliDbmSess> fresh(sizeof(NdCliDbmSess));
    NdCliDbmSess *session = fresh.get();
    if (!session)
        return -1;
    session->sessionId = sessionId;
    session->valueType = valueType;
    if (gnl_hash_init(&session->records, 0, ndCliDbmBinaryCompute, ndCliDbmBinaryCompare, kRecordBuckets) != 0)
        return -1;
    gnl_hash_insert(&gNdCliDbmCtl.sessions, fresh.release());
    ndCliDbmSaveToSess(session);
    return 0;
}

int32_t nd_CliDbmGetUniqueBinary(uint32_t sessionId, uint32_t valueType, const void *key, uint16_t keyLen, void *buf,
                                 uint32_t bufLen)
{
    if (gNdCliDbmCtl.initialised != kInitialised)
        return -1;
    CacheLock hold;
    NdCliDbmSess *session = findSession(sessionId, valueType);
    if (!session)
        return 0;
    NdCliDbmRecord *record = findRecord(session, key, keyLen);
    if (!record)
        return 0;
    uint32_t n = bufLen < record->dataLen ? bufLen : record->dataLen;
    memcpy(buf, record->data, n);
    return static_cast<int32_t>(n);
}

int32_t nd_CliDbmSessFree(uint32_t sessionId, uint32_t valueType)
{
    if (gNdCliDbmCtl.initialised != kInitialised)
        return -1;
    CacheLock hold;
    NdCliDbmSess *session = findSession(sessionId, valueType);
    if (!session)
        return 0;
    GnlHashNode *cursor = nullptr;
    for (void *r = gnl_hash_start(&session->records, &cursor); r; r = gnl_hash_next(&session->records, &cursor)) {
        gnl_hash_remove(&session->records, r);
        __UMV2L_free(r);
    }
    gnl_hash_destroy(&session->records);
    gnl_hash_remove(&gNdCliDbmCtl.sessions, session);
    __UMV2L_free(session);
    return 0;
}

int32_t nd_CliDbmDiagnoseShow(void)
{
    if (gNdCliDbmCtl.initialised != kInitialised)
        return -1;
    CacheLock hold;
    GnlHashNode *sessionCursor = nullptr;
    for (void *s = gnl_hash_start(&gNdCliDbmCtl.sessions, &sessionCursor); s;
         s = gnl_hash_next(&gNdCliDbmCtl.sessions, &sessionCursor)) {
        auto *session = static_cast<NdCliDbmSess *>(s);
        printf("\n  sessId:%d, valueType:%d", static_cast<int>(session->sessionId), static_cast<int>(session->valueType));
        GnlHashNode *recordCursor = nullptr;
        for (void *r = gnl_hash_start(&session->records, &recordCursor); r;
             r = gnl_hash_next(&session->records, &recordCursor)) {
            auto *record = static_cast<NdCliDbmRecord *>(r);
            printf("\n    keyLen:%d", static_cast<int>(record->keyLen));
            printf("\n    dataLen:%d", static_cast<int>(record->dataLen));
        }
        printf("\n");
    }
    return 0;
}

} // extern "C"
