// The database session cache and the hash table inside the plug-in: the control record, the
// entries of its two tables, its internal steps, and a guard for a database handle that the
// running-configuration handlers share.
#ifndef ND_CLI_DBM_INTERNAL_H
#define ND_CLI_DBM_INTERNAL_H

#include "nd_cli.h"
#include "framework/nd_cli_owned.h"
#include "nd_platform.h"

extern "C" {

/* The one control record of the cache (zero at load). */
typedef struct NdCliDbmCtl {
    GNL_SEM mutex;         /* "gNdCliDbmCtl.mutex" */
    uint32_t initialised;  /* 1 after the first successful initialisation */
    GnlHashTable sessions; /* NdCliDbmSess, 16 buckets */
} NdCliDbmCtl;

/* One cached (session id, value type): 48 bytes on the 32-bit target. */
typedef struct NdCliDbmSess {
    GnlHashNode link;
    uint32_t sessionId;
    uint32_t valueType;
    GnlHashTable records; /* NdCliDbmRecord, 512 buckets */
} NdCliDbmSess;

/* One cached record; key and data bytes follow the header in the same allocation (a 32-byte
 * header on the 32-bit target). */
typedef struct NdCliDbmRecord {
    GnlHashNode link;
    uint32_t reserved; /* always 0 */
    uint8_t *key;
    uint16_t keyLen;
    uint8_t *data;
    uint32_t dataLen;
} NdCliDbmRecord;

extern NdCliDbmCtl gNdCliDbmCtl;

int32_t ndCliDbmInit(void);
int32_t ndCliDbmSaveToSess(NdCliDbmSess *session);
int32_t ndCliDbmSaveToSessCb(DBM_HANDLE h, const void *key, uint16_t keyLen, void *session);
uint32_t ndCliDbmSessCompute(const void *entry);
int32_t ndCliDbmSessCompare(const void *probe, const void *entry);
uint32_t ndCliDbmBinaryCompute(const void *entry);
int32_t ndCliDbmBinaryCompare(const void *probe, const void *entry);
}

namespace ndcli {

// The open parameters every reader of "ec_nd" passes: a read-only handle.
constexpr uint32_t kNdDbmOpenParams[7] = ND_DBM_OPEN_PARAM;

// Opens "ec_nd" read-only into the guard; returns what DBM_Open returned.
inline uint32_t openNdDatabase(ndcli::OwnedDatabase &db)
{
    return DBM_Open(ndwire::kDatabase, ND_DBM_OPEN_MODE, kNdDbmOpenParams, 0, 0, db.out());
}

// A zeroed platform allocation that is freed when the guard ends, unless it was handed on.
template <typename T> class Allocation {
public:
    explicit Allocation(size_t size) : p_(static_cast<T *>(__UMV2L_malloc(size)))
    {
        if (p_)
            __builtin_memset(static_cast<void *>(p_), 0, size);
    }
    ~Allocation()
    {
        if (p_)
            __UMV2L_free(p_);
    }
    Allocation(const Allocation &) = delete;
    Allocation &operator=(const Allocation &) = delete;
    T *get() const { return p_; }
    T *release()
    {
        T *p = p_;
        p_ = nullptr;
        return p;
    }

private:
    T *p_;
};

} // namespace ndcli

#endif
