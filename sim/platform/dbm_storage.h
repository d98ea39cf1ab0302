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
    virtual ~Connection() = default;
    // The keys of every record of the value type, ascending; false on a storage failure.
    virtual bool keys(uint32_t valueType, std::vector<Bytes> &out) = 0;
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
};

class Storage {
public:
    virtual ~Storage() = default;
    // Null when the database cannot be opened.
    virtual std::unique_ptr<Connection> open(const std::string &db) = 0;
    // Copies every database into the directory `dir` (relative to the state directory).
    virtual int32_t save(const std::string &dir) = 0;
    virtual std::optional<Bytes> savedValue(const std::string &dir, const std::string &db, const Bytes &key) = 0;
    // Forgets every database (only the memory storage has something to forget).
    virtual void clear() = 0;
};

Storage &memoryStorage();
Storage *sqliteStorage(); // null where SQLite is not built in

// Checks a relative directory given to DBM_Save ("/flash" -> "flash"); false when it leaves
// the state directory or is empty.
bool relativeDir(const char *path, std::string &out);
bool validName(const std::string &db);

} // namespace ndplat::dbm

#endif
