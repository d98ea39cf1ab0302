// The emulated configuration database and mutexes: what the platform offers beyond the DBM_*
// and gnl_sem_* functions that the plug-in imports (include/nd_platform.h).
//
// Databases
//   A database is named by a short text ("ec_nd", "ec_nd_host_issu"). It holds records, each
//   under a unique key (1 to 65535 arbitrary bytes): a value type (unsigned 32-bit) and either
//   a plain binary value or a sorted list. Keys are unique across value types: writing a key
//   again replaces its value type and value. DBM_Proc walks the records of one value type in
//   ascending key order (bytes compared as unsigned, a shorter key before every longer key
//   that starts with it).
//
//   The open mode and the seven open-parameter words of DBM_Open are accepted as they come;
//   every handle can read and write. A handle belongs to one thread at a time; any number of
//   handles, in any number of threads and processes, may be open on the same database.
//
// Sorted lists
//   A sorted list is a record whose value is a sequence of fixed-size entries kept in ascending
//   order of their sort key: the first `sortKeyLen` bytes of each entry, compared as unsigned
//   bytes (so big-endian integers at the start of an entry sort numerically). Entries are
//   unique by sort key: adding an entry whose sort key is present replaces that entry. The
//   first DBM_AddToSortList of a key fixes the list's entry size and sort-key length; a later
//   addition with other sizes fails. Of a list record,
//     - DBM_GetLen returns count × entry size;
//     - DBM_GetUniqueBinary returns the entries back to back, in order, cut at the buffer length;
//     - DBM_GetBulkFromSortList reads it through an iterator (below);
//     - DBM_SetUniqueBinary replaces it with a plain value; DBM_Delete removes it.
//   Removing the last entry of a list removes the list record.
//
//   Writing a list (e.g. the static user-bind list of "ec_nd", value type 2):
//       DBM_AddToSortList(h, key, keyLen, 2, entry, 72, sortKeyLen);
//       DBM_DelFromSortList(h, key, keyLen, entry, sortKeyLen);   // by the entry's sort key
//
// Iterators
//   DBM_GetBulkFromSortList(h, key, keyLen, &it, r1, r2, maxCount, buf, entrySize) with `it`
//   null creates an iterator placed before the first entry and stores it in `it`. Each call
//   copies up to maxCount entries that follow the iterator's position into buf (entry i at
//   i × entrySize; min(entrySize, stored entry size) bytes each) and returns how many; the
//   iterator then stands on the last entry returned. 0 means the end (also for a key that is
//   no list); -1 a bad argument or a storage failure. The position is a sort key, not an index:
//   entries added behind the position while iterating are returned later, removed ones are
//   not, and no entry is returned twice. r1 and r2 are not used. An iterator is released with
//   DBM_FreeIterator (null is ignored) and does not depend on the handle staying open.
//
// Results
//   DBM_Open: 0, or 1 for a bad argument, 2 when the storage cannot open the database.
//   DBM_Close: 0, or 1 for a handle that is not open.
//   DBM_GetLen: the value's length; 0 when the key is absent; -1 on error.
//   DBM_GetUniqueBinary: the bytes copied, min(buffer length, value length); 0 when absent;
//     -1 on error. The flags word is not used.
//   DBM_SetUniqueBinary, DBM_Delete, DBM_AddToSortList, DBM_DelFromSortList: 0, or -1 on
//     error (DBM_Delete and DBM_DelFromSortList also return 0 when there is nothing to remove).
//     The flags word of DBM_SetUniqueBinary is not used.
//   DBM_Proc: 0 after the walk, -1 on a bad argument. It calls the callback once for every
//     record of the value type present when the walk starts, in key order, and keeps walking
//     whatever the callback returns; the callback may read and write through the same handle.
//   DBM_Save(path, a2, a3, a4): copies every database of the state directory, each as one
//     consistent snapshot, into the directory `path` names inside the state directory
//     ("/flash" is <state>/flash); a2..a4 are not used. 0, or -1 on error.
//
// Storages
//   Sqlite: one SQLite file "<state>/<name>.db" per database, in WAL mode with a busy timeout,
//     so that the shell and the service can use a database at the same time; every write is
//     one committed transaction and survives a crash of the writing process. Saved copies are
//     "<state>/<path>/<name>.db". Only on the build host (NDSIM_WITH_SQLITE).
//   Memory: the databases live in the process's memory, shared by all its threads and lost
//     when it ends; DBM_Save keeps its copies in memory as well. No files at all.
//   Processes start on Sqlite where it exists (else Memory); the environment variable
//   NDSIM_DBM=memory|sqlite overrides that. ndplat::reset() switches to a fresh, empty Memory
//   storage, so every unit test starts on an empty database without files; a test that wants
//   the files selects Sqlite and a state directory of its own.
//   The state directory is $NDSIM_STATE, by default ./ndsim-state, unless set below.
//
// Mutexes
//   gnl_sem_mutex_init creates a real mutex (not recursive). gnl_sem_take(sem, 0) waits until
//   it is free; a positive time-out waits at most that many milliseconds (-1 when it expires);
//   a negative one only tries. gnl_sem_give releases it. All return 0 on success, -1 for a
//   null mutex or name. Mutexes outlive ndplat::reset(), since their owners keep them for the
//   life of the process.
#ifndef NDPLAT_DBM_H
#define NDPLAT_DBM_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nd_platform.h"

// Database functions the plug-in does not import, for the service; results follow the DBM_*
// conventions of nd_platform.h (0 on success).
extern "C" {
int32_t DBM_Delete(DBM_HANDLE h, const void *key, uint16_t keyLen);
int32_t DBM_AddToSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t valueType,
                          const void *entry, uint32_t entrySize, uint32_t sortKeyLen);
int32_t DBM_DelFromSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, const void *sortKey,
                            uint32_t sortKeyLen);
}

namespace ndplat {

namespace dbm {
class Connection;
}

enum class DbmStorage {
    Memory,
    Sqlite,
};

bool dbm_storage_available(DbmStorage storage); // false: not built in
// Selects the storage of the databases opened from now on; false when it is not built in.
bool dbm_storage_set(DbmStorage storage);
DbmStorage dbm_storage(); // the storage selected now

// The state directory: the one set here, else $NDSIM_STATE, else ./ndsim-state. An empty
// text returns to the environment's choice. The directory is created when first needed.
void dbm_state_dir_set(const std::string &dir);
std::string dbm_state_dir(); // the state directory now in force

// Handles opened and not closed, iterators created and not freed (leak checks of the tests).
long dbm_open_handles();
long dbm_live_iterators();

// The value of a record as the last DBM_Save into `path` stored it, in the current storage;
// nothing when the saved database or the record does not exist.
std::optional<std::vector<uint8_t>> dbm_saved_value(const std::string &path, const std::string &db,
                                                    const void *key, uint16_t keyLen);

// ---- damage ------------------------------------------------------------------------------
// A database whose file SQLite found corrupt or not a database at all, or that failed the
// integrity check that runs when a changed file is opened. Such a database is not opened
// again (DBM_Open returns 2) until its file is replaced.
struct DbmDamage {
    std::string db;
    std::string why; // SQLite's words
};
// Every database this process found damaged and has not been told to forget.
std::vector<DbmDamage> dbm_damaged();
// The damage found since the previous call, each database once: what the shell reports at the
// command that met it.
std::vector<DbmDamage> dbm_damage_unreported();
// Whether damage is also logged on stderr when found (the default; the shell tells the
// operator itself).
void dbm_damage_log_set(bool log);
// Forgets a database's damage (its file was set aside and a fresh one will be created).
void dbm_damage_forget(const std::string &db);
// Runs the integrity check of a database now; false when it is damaged (and then recorded).
bool dbm_check(const std::string &db);
// Closes the connections that closed handles left open for the next open of the same file:
// before a database's files are moved or removed, so that nothing of this process holds them.
void dbm_close_idle();

// ---- the emulator's own records ----------------------------------------------------------
// Opens a database for records that the emulator keeps for itself (the shell's inventory), on
// the current storage and in the state directory, without the call trace and fault injection
// of DBM_Open: the operator's `--fault DBM_*` is aimed at the plug-in. Null when it cannot be
// opened (also when it is damaged), and then `why` says why.
std::unique_ptr<dbm::Connection> dbm_open_store(const std::string &db, std::string *why = nullptr);

// Mutexes created and not destroyed; destroys one that is no longer in use (tests only).
long sem_live();
void sem_destroy(GNL_SEM sem); // null is ignored

} // namespace ndplat

#endif
