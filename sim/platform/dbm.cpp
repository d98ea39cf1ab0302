// The configuration database as the plug-in and the service see it: handles, iterators and the
// DBM_* functions, each traced and open to fault injection, on the storage selected for the
// process (SQLite files or memory).
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "dbm_storage.h"
#include "ndplat.h"
#include "ndplat_dbm.h"

namespace {

using ndplat::DbmStorage;
using ndplat::dbm::Bytes;
using ndplat::dbm::Connection;
using ndplat::dbm::ListPosition;

constexpr uint32_t kOpenBadArgument = 1;
constexpr uint32_t kOpenFailed = 2;
constexpr uint32_t kCloseNotOpen = 1;

struct Handle {
    std::unique_ptr<Connection> connection;
    std::string db;
};

struct Iterator {
    ListPosition position;
};

DbmStorage defaultStorage()
{
    const char *choice = getenv("NDSIM_DBM");
    if (choice && strcmp(choice, "memory") == 0)
        return DbmStorage::Memory;
    return ndplat::dbm::sqliteStorage() ? DbmStorage::Sqlite : DbmStorage::Memory;
}

struct Registry {
    std::mutex mutex;
    std::set<Handle *> handles;
    std::set<Iterator *> iterators;
    std::map<std::string, std::string> damaged; // database -> why
    std::set<std::string> reported;             // of those, the ones the shell has told
    bool logDamage = true;
    bool storageChosen = false;
    DbmStorage storage = DbmStorage::Memory;
    std::string stateDir;
};

Registry &registry()
{
    static Registry r;
    return r;
}

DbmStorage currentStorageLocked(Registry &r)
{
    if (!r.storageChosen) {
        r.storage = defaultStorage();
        r.storageChosen = true;
    }
    return r.storage;
}

ndplat::dbm::Storage &storageOf(DbmStorage kind)
{
    if (kind == DbmStorage::Sqlite)
        return *ndplat::dbm::sqliteStorage();
    return ndplat::dbm::memoryStorage();
}

ndplat::dbm::Storage &currentStorage()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    return storageOf(currentStorageLocked(r));
}

// The connection behind a handle, or null when the handle is not one of ours (closed, never
// opened, or forgotten by a reset).
Connection *connectionOf(DBM_HANDLE h)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    auto it = r.handles.find(static_cast<Handle *>(h));
    return it == r.handles.end() ? nullptr : (*it)->connection.get();
}

void resetDbm()
{
    Registry &r = registry();
    std::set<Handle *> handles;
    std::set<Iterator *> iterators;
    {
        std::lock_guard<std::mutex> hold(r.mutex);
        handles.swap(r.handles);
        iterators.swap(r.iterators);
        r.storage = DbmStorage::Memory;
        r.storageChosen = true;
        r.stateDir.clear();
        r.damaged.clear();
        r.reported.clear();
    }
    for (Handle *h : handles)
        delete h;
    for (Iterator *it : iterators)
        delete it;
    ndplat::dbm::memoryStorage().clear();
    ndplat::dbm_close_idle();
}

const bool registered = (ndplat::on_reset(resetDbm), true);

// A key for the trace: its text when it is printable, else its bytes in hex.
std::string keyText(const void *key, uint16_t keyLen)
{
    if (!key)
        return "null";
    const auto *bytes = static_cast<const unsigned char *>(key);
    bool printable = true;
    for (uint16_t i = 0; i < keyLen; ++i)
        printable = printable && isprint(bytes[i]) && bytes[i] != '"';
    if (printable)
        return "\"" + std::string(reinterpret_cast<const char *>(bytes), keyLen) + "\"";
    std::string hex = "0x";
    char two[3];
    for (uint16_t i = 0; i < keyLen; ++i) {
        snprintf(two, sizeof two, "%02x", bytes[i]);
        hex += two;
    }
    return hex;
}

const char *ptrText(const void *p)
{
    return p ? "ptr" : "null";
}

Bytes keyBytes(const void *key, uint16_t keyLen)
{
    return Bytes(static_cast<const char *>(key), keyLen);
}

} // namespace

namespace ndplat {

namespace dbm {

bool relativeDir(const char *path, std::string &out)
{
    if (!path)
        return false;
    std::string p = path;
    while (!p.empty() && p.front() == '/')
        p.erase(0, 1);
    while (!p.empty() && p.back() == '/')
        p.pop_back();
    if (p.empty())
        return false;
    size_t start = 0;
    while (start <= p.size()) {
        size_t slash = p.find('/', start);
        std::string part = p.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (part.empty() || part == "." || part == "..")
            return false;
        if (slash == std::string::npos)
            break;
        start = slash + 1;
    }
    out = p;
    return true;
}

void reportDamage(const std::string &db, const std::string &why)
{
    Registry &r = registry();
    {
        std::lock_guard<std::mutex> hold(r.mutex);
        if (!r.damaged.emplace(db, why).second || !r.logDamage)
            return;
    }
    fprintf(stderr, "dbm: the configuration database %s is damaged: %s\n", db.c_str(), why.c_str());
}

bool validName(const std::string &db)
{
    if (db.empty() || db.size() > 200 || db.front() == '.')
        return false;
    for (char c : db)
        if (!(isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            return false;
    return true;
}

} // namespace dbm

bool dbm_storage_available(DbmStorage storage)
{
    return storage == DbmStorage::Memory || dbm::sqliteStorage() != nullptr;
}

bool dbm_storage_set(DbmStorage storage)
{
    if (!dbm_storage_available(storage))
        return false;
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    r.storage = storage;
    r.storageChosen = true;
    return true;
}

DbmStorage dbm_storage()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    return currentStorageLocked(r);
}

void dbm_state_dir_set(const std::string &dir)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    r.stateDir = dir;
}

std::string dbm_state_dir()
{
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> hold(r.mutex);
        if (!r.stateDir.empty())
            return r.stateDir;
    }
    const char *env = getenv("NDSIM_STATE");
    return env && *env ? env : "./ndsim-state";
}

std::vector<DbmDamage> dbm_damaged()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    std::vector<DbmDamage> all;
    for (const auto &[db, why] : r.damaged)
        all.push_back({db, why});
    return all;
}

std::vector<DbmDamage> dbm_damage_unreported()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    std::vector<DbmDamage> fresh;
    for (const auto &[db, why] : r.damaged)
        if (r.reported.insert(db).second)
            fresh.push_back({db, why});
    return fresh;
}

void dbm_damage_log_set(bool log)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    r.logDamage = log;
}

void dbm_damage_forget(const std::string &db)
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    r.damaged.erase(db);
    r.reported.erase(db);
}

bool dbm_check(const std::string &db)
{
    return !dbm::validName(db) || currentStorage().check(db);
}

void dbm_close_idle()
{
    if (dbm::Storage *sqlite = dbm::sqliteStorage())
        sqlite->clear();
}

std::unique_ptr<dbm::Connection> dbm_open_store(const std::string &db, std::string *why)
{
    if (!dbm::validName(db))
        return nullptr;
    return currentStorage().open(db, why);
}

long dbm_open_handles()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    return static_cast<long>(r.handles.size());
}

long dbm_live_iterators()
{
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.mutex);
    return static_cast<long>(r.iterators.size());
}

std::optional<std::vector<uint8_t>> dbm_saved_value(const std::string &path, const std::string &db,
                                                    const void *key, uint16_t keyLen)
{
    std::string dir;
    if (!dbm::relativeDir(path.c_str(), dir) || !dbm::validName(db) || !key)
        return std::nullopt;
    auto value = currentStorage().savedValue(dir, db, keyBytes(key, keyLen));
    if (!value)
        return std::nullopt;
    return std::vector<uint8_t>(value->begin(), value->end());
}

} // namespace ndplat

extern "C" uint32_t DBM_Open(const char *db, uint32_t mode, const uint32_t param[7], uint32_t r1, uint32_t r2,
                             DBM_HANDLE *handle)
{
    std::string params = "null";
    if (param) {
        char text[160];
        snprintf(text, sizeof text, "{%u, %u, %u, %u, %u, %u, %u}", param[0], param[1], param[2], param[3], param[4],
                 param[5], param[6]);
        params = text;
    }
    ndplat::trace_call("DBM_Open", "%s, %u, %s, %u, %u, %s", ndplat::trace_str(db).c_str(), mode, params.c_str(), r1,
                       r2, ptrText(handle));
    if (auto fault = ndplat::fault_next("DBM_Open"))
        return static_cast<uint32_t>(*fault);
    if (!db || !handle || !ndplat::dbm::validName(db))
        return kOpenBadArgument;
    std::unique_ptr<Connection> connection = currentStorage().open(db);
    if (!connection)
        return kOpenFailed;
    auto *h = new Handle{std::move(connection), db};
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> hold(r.mutex);
        r.handles.insert(h);
    }
    *handle = h;
    return 0;
}

extern "C" uint32_t DBM_Close(DBM_HANDLE h)
{
    ndplat::trace_call("DBM_Close", "%s", ptrText(h));
    if (auto fault = ndplat::fault_next("DBM_Close"))
        return static_cast<uint32_t>(*fault);
    Handle *handle = static_cast<Handle *>(h);
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> hold(r.mutex);
        if (r.handles.erase(handle) == 0)
            return kCloseNotOpen;
    }
    delete handle;
    return 0;
}

extern "C" int32_t DBM_Proc(DBM_HANDLE h, uint32_t valueType, DBM_PROC_FN fn, void *arg)
{
    ndplat::trace_call("DBM_Proc", "%s, %u, %s, %s", ptrText(h), valueType, ptrText(reinterpret_cast<void *>(fn)),
                       ptrText(arg));
    if (auto fault = ndplat::fault_next("DBM_Proc"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !fn)
        return -1;
    // The keys are taken first, so that the callback may use the handle as it likes.
    std::vector<Bytes> keys;
    if (!c->keys(valueType, keys))
        return -1;
    for (const Bytes &key : keys)
        fn(h, key.data(), static_cast<uint16_t>(key.size()), arg);
    return 0;
}

extern "C" int32_t DBM_GetLen(DBM_HANDLE h, const void *key, uint16_t keyLen)
{
    ndplat::trace_call("DBM_GetLen", "%s, %s, %u", ptrText(h), keyText(key, keyLen).c_str(), keyLen);
    if (auto fault = ndplat::fault_next("DBM_GetLen"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0)
        return -1;
    return c->length(keyBytes(key, keyLen));
}

extern "C" int32_t DBM_GetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t flags, void *buf,
                                       uint32_t bufLen)
{
    ndplat::trace_call("DBM_GetUniqueBinary", "%s, %s, %u, %u, %s, %u", ptrText(h), keyText(key, keyLen).c_str(),
                       keyLen, flags, ptrText(buf), bufLen);
    if (auto fault = ndplat::fault_next("DBM_GetUniqueBinary"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0 || (!buf && bufLen != 0))
        return -1;
    return c->read(keyBytes(key, keyLen), buf, bufLen);
}

extern "C" int32_t DBM_SetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t valueType,
                                       const void *value, uint32_t length, uint32_t flags)
{
    ndplat::trace_call("DBM_SetUniqueBinary", "%s, %s, %u, %u, %s, %u, %u", ptrText(h), keyText(key, keyLen).c_str(),
                       keyLen, valueType, ptrText(value), length, flags);
    if (auto fault = ndplat::fault_next("DBM_SetUniqueBinary"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0 || (!value && length != 0))
        return -1;
    return c->write(keyBytes(key, keyLen), valueType, value, length);
}

extern "C" int32_t DBM_Delete(DBM_HANDLE h, const void *key, uint16_t keyLen)
{
    ndplat::trace_call("DBM_Delete", "%s, %s, %u", ptrText(h), keyText(key, keyLen).c_str(), keyLen);
    if (auto fault = ndplat::fault_next("DBM_Delete"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0)
        return -1;
    return c->erase(keyBytes(key, keyLen));
}

extern "C" int32_t DBM_AddToSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t valueType,
                                     const void *entry, uint32_t entrySize, uint32_t sortKeyLen)
{
    ndplat::trace_call("DBM_AddToSortList", "%s, %s, %u, %u, %s, %u, %u", ptrText(h), keyText(key, keyLen).c_str(),
                       keyLen, valueType, ptrText(entry), entrySize, sortKeyLen);
    if (auto fault = ndplat::fault_next("DBM_AddToSortList"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0 || !entry || entrySize == 0 || sortKeyLen == 0 || sortKeyLen > entrySize)
        return -1;
    return c->listAdd(keyBytes(key, keyLen), valueType, entry, entrySize, sortKeyLen);
}

extern "C" int32_t DBM_DelFromSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, const void *sortKey,
                                       uint32_t sortKeyLen)
{
    ndplat::trace_call("DBM_DelFromSortList", "%s, %s, %u, %s, %u", ptrText(h), keyText(key, keyLen).c_str(), keyLen,
                       ptrText(sortKey), sortKeyLen);
    if (auto fault = ndplat::fault_next("DBM_DelFromSortList"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0 || !sortKey || sortKeyLen == 0)
        return -1;
    return c->listDel(keyBytes(key, keyLen), Bytes(static_cast<const char *>(sortKey), sortKeyLen));
}

extern "C" int32_t DBM_GetBulkFromSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, void **iterator,
                                           uint32_t r1, uint32_t r2, uint32_t maxCount, void *buf,
                                           uint32_t entrySize)
{
    ndplat::trace_call("DBM_GetBulkFromSortList", "%s, %s, %u, %s, %u, %u, %u, %s, %u", ptrText(h),
                       keyText(key, keyLen).c_str(), keyLen, iterator ? (*iterator ? "ptr->ptr" : "ptr->null") : "null",
                       r1, r2, maxCount, ptrText(buf), entrySize);
    if (auto fault = ndplat::fault_next("DBM_GetBulkFromSortList"))
        return static_cast<int32_t>(*fault);
    Connection *c = connectionOf(h);
    if (!c || !key || keyLen == 0 || !iterator || !buf || entrySize == 0)
        return -1;
    Registry &r = registry();
    Iterator *it = static_cast<Iterator *>(*iterator);
    if (it) {
        std::lock_guard<std::mutex> hold(r.mutex);
        if (r.iterators.count(it) == 0)
            return -1;
    } else {
        it = new Iterator;
        std::lock_guard<std::mutex> hold(r.mutex);
        r.iterators.insert(it);
        *iterator = it;
    }
    if (maxCount == 0)
        return 0;
    std::vector<Bytes> entries;
    int32_t n = c->listNext(keyBytes(key, keyLen), it->position, maxCount, entries);
    if (n <= 0)
        return n;
    auto *out = static_cast<unsigned char *>(buf);
    for (size_t i = 0; i < entries.size(); ++i) {
        size_t copy = entries[i].size() < entrySize ? entries[i].size() : entrySize;
        memcpy(out + i * entrySize, entries[i].data(), copy);
    }
    return static_cast<int32_t>(entries.size());
}

extern "C" void DBM_FreeIterator(void *iterator)
{
    ndplat::trace_call("DBM_FreeIterator", "%s", ptrText(iterator));
    if (ndplat::fault_next("DBM_FreeIterator"))
        return;
    if (!iterator)
        return;
    Iterator *it = static_cast<Iterator *>(iterator);
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> hold(r.mutex);
        if (r.iterators.erase(it) == 0)
            return;
    }
    delete it;
}

extern "C" int32_t DBM_Save(const char *path, uint32_t a2, uint32_t a3, uint32_t a4)
{
    ndplat::trace_call("DBM_Save", "%s, %u, %u, %u", ndplat::trace_str(path).c_str(), a2, a3, a4);
    if (auto fault = ndplat::fault_next("DBM_Save"))
        return static_cast<int32_t>(*fault);
    std::string dir;
    if (!ndplat::dbm::relativeDir(path, dir))
        return -1;
    return currentStorage().save(dir);
}
