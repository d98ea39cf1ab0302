// Returns the plug-in's database session cache to its state at load, so that each test sees
// an uninitialised cache and leaves no allocation behind.
#ifndef ND_TEST_DBM_CACHE_SCOPE_H
#define ND_TEST_DBM_CACHE_SCOPE_H

#include <cstring>
#include <utility>
#include <vector>

#include "dbm/nd_cli_dbm_internal.h"
#include "ndplat_dbm.h"

namespace dbmcache {

inline void drop()
{
    if (gNdCliDbmCtl.initialised) {
        std::vector<std::pair<uint32_t, uint32_t>> sessions;
        GnlHashNode *cursor = nullptr;
        for (void *s = gnl_hash_start(&gNdCliDbmCtl.sessions, &cursor); s;
             s = gnl_hash_next(&gNdCliDbmCtl.sessions, &cursor)) {
            auto *session = static_cast<NdCliDbmSess *>(s);
            sessions.emplace_back(session->sessionId, session->valueType);
        }
        for (auto [id, type] : sessions)
            nd_CliDbmSessFree(id, type);
        gnl_hash_destroy(&gNdCliDbmCtl.sessions);
        ndplat::sem_destroy(gNdCliDbmCtl.mutex);
    }
    memset(&gNdCliDbmCtl, 0, sizeof gNdCliDbmCtl);
}

} // namespace dbmcache

#endif
