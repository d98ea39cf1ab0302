// Helpers of the SQLite storage of the configuration database: file names, statements retried
// while another connection holds a lock, blobs, quick-check verdicts and whole-file copies.
#ifndef NDPLAT_DBM_UTIL_SQLITE_H
#define NDPLAT_DBM_UTIL_SQLITE_H

#include <sqlite3.h>

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "dbm_storage.h"

namespace ndplat::dbm {

constexpr int kBusyTimeoutMs = 10000; // how long a connection waits for another's lock
constexpr int kSetupAttempts = 200;   // tries of a statement that found the database locked

std::string dbPath(const std::string &dir, const std::string &db); // "<dir>/<db>.db"

// Runs a statement text, retrying while another connection holds the lock it needs; false
// when it failed otherwise or the lock never came.
bool execRetry(sqlite3 *db, const char *sql);

// Binds bytes to a statement's parameter (an empty blob, not NULL, for no bytes) and reads a
// blob column back as bytes.
void bindBytes(sqlite3_stmt *s, int index, const void *bytes, size_t length);
Bytes columnBytes(sqlite3_stmt *s, int column);

// The lines of a quick-check verdict that name a fault, on one line; empty for "ok".
std::string faultOf(const std::string &verdict);

// Copies a database file to `to` through SQLite's backup (one consistent snapshot, even while
// other connections write); the copy appears under its name only when whole. False on failure,
// leaving nothing at `to` that was not there.
bool backupFile(const std::string &from, const std::string &to);

// The identity of a database file (device, inode, size, modification time). This process runs
// the integrity check again only when a file changed since it last passed the check here or
// since this process's own writes left it so (a checkpoint of another writer, or damage done
// behind SQLite's back), so that opening a database stays cheap.
struct CheckedFile {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    int64_t modifiedNs = 0;
    bool operator==(const CheckedFile &) const = default;
};
bool checkedFileOf(const std::string &path, CheckedFile &id); // false when it cannot be read
// Whether `now`, the file's identity as read by checkedFileOf, is the one recorded for the path;
// a file still empty is being created and counts as unchanged.
bool fileUnchangedSinceChecked(const std::string &path, const CheckedFile &now);
void fileCheckedAs(const std::string &path, const CheckedFile &id); // records it

} // namespace ndplat::dbm

#endif
