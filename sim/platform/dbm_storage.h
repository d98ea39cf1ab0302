// The two storages of the configuration database behind one interface. dbm.cpp keeps the
// handles and iterators and calls a Connection for each DBM_* function; the storages know
// nothing of handles, tracing or fault injection.
#ifndef NDPLAT_DBM_STORAGE_H
#define NDPLAT_DBM_STORAGE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ndplat::dbm {

using Bytes = std::string; // raw bytes: keys, values, entries

// Where an iterator stands in a sorted list: before the first entry, or on a sort key.
struct ListPosition {
    bool started = false;
    Bytes sortKey;
};

// One open database. Results follow the DBM_* conventions of ndplat_dbm.h.
class Connection {
public:
    virtual ~Connection() = default; // closes the database
    // The keys of every record of the value type, ascending; false on a storage failure.
    virtual bool keys(uint32_t valueType, std::vector<Bytes> &out) = 0;
    // What DBM_GetLen, DBM_GetUniqueBinary, DBM_SetUniqueBinary, DBM_Delete,
    // DBM_AddToSortList and DBM_DelFromSortList return for the same arguments.
    virtual int32_t length(const Bytes &key) = 0;
    virtual int32_t read(const Bytes &key, void *buf, uint32_t bufLen) = 0;
    virtual int32_t write(const Bytes &key, uint32_t valueType, const void *value, uint32_t length) = 0;
    virtual int32_t erase(const Bytes &key) = 0;
    virtual int32_t listAdd(const Bytes &key, uint32_t valueType, const void *entry, uint32_t entrySize,
                            uint32_t sortKeyLen) = 0;
    virtual int32_t listDel(const Bytes &key, const Bytes &sortKey) = 0;
    // Up to maxCount entries after the position, in order; moves the position onto the last
    // one. -1 on a storage failure.
    virtual int32_t listNext(const Bytes &key, ListPosition &position, uint32_t maxCount,
                             std::vector<Bytes> &entries) = 0;
    // A number that differs from the one the previous call returned when another connection
    // (of this process or another) has committed a change since; the shell compares it to know
    // when its cached view of a database is stale. It may also change for this connection's
    // own commits.
    virtual uint64_t dataVersion() = 0;
    // Why the last failing call failed, in words for the operator ("database or disk is full");
    // empty when the storage has nothing to say.
    virtual std::string lastError() const = 0;
};

class Storage {
public:
    virtual ~Storage() = default;
    // Null when the database cannot be opened; then `why` (when given) says why.
    virtual std::unique_ptr<Connection> open(const std::string &db, std::string *why = nullptr) = 0;
    // Copies every database into the directory `dir` (relative to the state directory).
    virtual int32_t save(const std::string &dir) = 0;
    // The value of `key` in db as the last save into `dir` stored it; empty when none.
    virtual std::optional<Bytes> savedValue(const std::string &dir, const std::string &db, const Bytes &key) = 0;
    // Forgets every database (the memory storage) or closes the connections kept for reuse
    // (SQLite).
    virtual void clear() = 0;
    // Checks the database's integrity now (SQLite's quick check of every page); false, with
    // the damage reported, when it fails. A database that does not exist is intact.
    virtual bool check(const std::string &db) = 0;
};

Storage &memoryStorage(); // the process-wide in-memory storage
Storage *sqliteStorage(); // null where SQLite is not built in

// Checks a relative directory given to DBM_Save ("/flash" -> "flash"); false when it leaves
// the state directory or is empty.
bool relativeDir(const char *path, std::string &out);
bool validName(const std::string &db); // a database name that is safe as a file name

// A storage found the database damaged (a corrupt page, a file that is no database, a failed
// integrity check): remembered for the process and logged once on stderr.
void reportDamage(const std::string &db, const std::string &why);

} // namespace ndplat::dbm

#endif
