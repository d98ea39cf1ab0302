// The in-memory storage of the configuration database: every database of the process in one
// map, guarded by one mutex, so that all threads of the process share them. DBM_Save keeps its
// copies in memory too.
#include <cstring>
#include <map>
#include <mutex>

#include "dbm_storage.h"

namespace ndplat::dbm {
namespace {

struct SortList {
    uint32_t entrySize = 0;
    uint32_t sortKeyLen = 0;
    std::map<Bytes, Bytes> entries; // sort key -> entry
};

struct Record {
    uint32_t valueType = 0;
    bool isList = false;
    Bytes value;
    SortList list;

    Bytes flat() const
    {
        if (!isList)
            return value;
        Bytes all;
        for (const auto &[sortKey, entry] : list.entries)
            all += entry;
        return all;
    }
};

using Database = std::map<Bytes, Record>;

struct MemoryState {
    std::mutex mutex;
    std::map<std::string, Database> databases;
    std::map<std::string, uint64_t> versions;                     // database -> commits so far
    std::map<std::string, std::map<std::string, Database>> saved; // directory -> name -> copy
};

MemoryState &state()
{
    static MemoryState s;
    return s;
}

int32_t copyOut(const Bytes &value, void *buf, uint32_t bufLen)
{
    size_t n = value.size() < bufLen ? value.size() : bufLen;
    if (n)
        memcpy(buf, value.data(), n);
    return static_cast<int32_t>(n);
}

class MemoryConnection final : public Connection {
public:
    explicit MemoryConnection(std::string db) : db_(std::move(db)) {}

    bool keys(uint32_t valueType, std::vector<Bytes> &out) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        for (const auto &[key, record] : database())
            if (record.valueType == valueType)
                out.push_back(key);
        return true;
    }

    int32_t length(const Bytes &key) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const Record *r = find(key);
        if (!r)
            return 0;
        return static_cast<int32_t>(r->isList ? r->list.entries.size() * r->list.entrySize : r->value.size());
    }

    int32_t read(const Bytes &key, void *buf, uint32_t bufLen) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const Record *r = find(key);
        return r ? copyOut(r->flat(), buf, bufLen) : 0;
    }

    int32_t write(const Bytes &key, uint32_t valueType, const void *value, uint32_t length) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        changed();
        Record &r = database()[key];
        r = Record{};
        r.valueType = valueType;
        r.value.assign(static_cast<const char *>(value), length);
        return 0;
    }

    int32_t erase(const Bytes &key) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        changed();
        database().erase(key);
        return 0;
    }

    int32_t listAdd(const Bytes &key, uint32_t valueType, const void *entry, uint32_t entrySize,
                    uint32_t sortKeyLen) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        Database &db = database();
        auto it = db.find(key);
        if (it == db.end()) {
            Record r;
            r.valueType = valueType;
            r.isList = true;
            r.list.entrySize = entrySize;
            r.list.sortKeyLen = sortKeyLen;
            it = db.emplace(key, std::move(r)).first;
        } else if (!it->second.isList || it->second.list.entrySize != entrySize ||
                   it->second.list.sortKeyLen != sortKeyLen) {
            return -1;
        }
        changed();
        const char *bytes = static_cast<const char *>(entry);
        it->second.list.entries[Bytes(bytes, sortKeyLen)] = Bytes(bytes, entrySize);
        return 0;
    }

    int32_t listDel(const Bytes &key, const Bytes &sortKey) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        Database &db = database();
        auto it = db.find(key);
        if (it == db.end() || !it->second.isList)
            return 0;
        changed();
        it->second.list.entries.erase(sortKey);
        if (it->second.list.entries.empty())
            db.erase(it);
        return 0;
    }

    int32_t listNext(const Bytes &key, ListPosition &position, uint32_t maxCount, std::vector<Bytes> &out) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        const Record *r = find(key);
        if (!r || !r->isList)
            return 0;
        const auto &entries = r->list.entries;
        auto it = position.started ? entries.upper_bound(position.sortKey) : entries.begin();
        for (; it != entries.end() && out.size() < maxCount; ++it) {
            out.push_back(it->second);
            position.started = true;
            position.sortKey = it->first;
        }
        return static_cast<int32_t>(out.size());
    }

    uint64_t dataVersion() override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        return state().versions[db_];
    }

    std::string lastError() const override { return {}; }

private:
    Database &database() { return state().databases[db_]; }
    void changed() { ++state().versions[db_]; }

    const Record *find(const Bytes &key)
    {
        const Database &db = database();
        auto it = db.find(key);
        return it == db.end() ? nullptr : &it->second;
    }

    std::string db_;
};

class MemoryStorage final : public Storage {
public:
    std::unique_ptr<Connection> open(const std::string &db, std::string * = nullptr) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        state().databases[db];
        return std::make_unique<MemoryConnection>(db);
    }

    int32_t save(const std::string &dir) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        for (const auto &[name, db] : state().databases)
            state().saved[dir][name] = db;
        return 0;
    }

    std::optional<Bytes> savedValue(const std::string &dir, const std::string &db, const Bytes &key) override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        auto d = state().saved.find(dir);
        if (d == state().saved.end())
            return std::nullopt;
        auto n = d->second.find(db);
        if (n == d->second.end())
            return std::nullopt;
        auto r = n->second.find(key);
        if (r == n->second.end())
            return std::nullopt;
        return r->second.flat();
    }

    void clear() override
    {
        std::lock_guard<std::mutex> hold(state().mutex);
        state().databases.clear();
        state().saved.clear();
        state().versions.clear();
    }

    // Nothing in memory can be damaged behind the process's back.
    bool check(const std::string &) override { return true; }
};

} // namespace

Storage &memoryStorage()
{
    static MemoryStorage storage;
    return storage;
}

#ifndef NDSIM_WITH_SQLITE
Storage *sqliteStorage()
{
    return nullptr;
}
#endif

} // namespace ndplat::dbm
