// The SQLite storage of the configuration database: one file "<state>/<name>.db" per database,
// in WAL mode with a busy timeout, so that the shell and the service (two processes) use the
// same database at once. Each handle is one SQLite connection; each write is one committed
// transaction.
//
// What a committed write survives: it is in the WAL, through the kernel, when the call
// returns, so a crash of any process (kill -9) at any instant keeps it. It reaches the disk
// itself (fdatasync) when the WAL is checkpointed: by SQLite every 1,000 pages of WAL, by a
// save of the databases, and by the last close of the database. A sync per commit would cost
// every configuration command a disk flush for a power cut that the saved configuration
// already covers.
//
// Schema:
//   records(key BLOB PRIMARY KEY, type INTEGER, value BLOB, entry_size INTEGER, sort_len INTEGER)
//     entry_size 0: a plain record, its bytes in value;
//     entry_size > 0: a sorted list, its entries in list_entries.
//   list_entries(list_key BLOB, sort_key BLOB, entry BLOB, PRIMARY KEY(list_key, sort_key))
// BLOBs compare as memcmp, shorter first on a common prefix: the key order of DBM_Proc and
// the entry order of the lists.
#include <dirent.h>
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <map>
#include <mutex>
#include <chrono>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "dbm_util_sqlite.h"
#include "dbm_storage.h"
#include "ndplat_dbm.h"
#include "private_files.h"

namespace ndplat::dbm {
namespace {

enum Statement {
    kKeysOfType,
    kRecordOf,
    kListCount,
    kListEntries,
    kListAfter,
    kListFirst,
    kUpsertPlain,
    kDeleteRecord,
    kDeleteEntries,
    kInsertList,
    kUpsertEntry,
    kDeleteEntry,
    kDataVersion,
    kStatementCount
};

constexpr std::array<const char *, kStatementCount> kSql = {
    "SELECT key FROM records WHERE type = ?1 ORDER BY key",
    "SELECT entry_size, sort_len, value FROM records WHERE key = ?1",
    "SELECT count(*) FROM list_entries WHERE list_key = ?1",
    "SELECT entry FROM list_entries WHERE list_key = ?1 ORDER BY sort_key",
    "SELECT sort_key, entry FROM list_entries WHERE list_key = ?1 AND sort_key > ?2 ORDER BY sort_key LIMIT ?3",
    "SELECT sort_key, entry FROM list_entries WHERE list_key = ?1 ORDER BY sort_key LIMIT ?2",
    "INSERT INTO records(key, type, value, entry_size, sort_len) VALUES(?1, ?2, ?3, 0, 0) "
    "ON CONFLICT(key) DO UPDATE SET type = excluded.type, value = excluded.value, entry_size = 0, sort_len = 0",
    "DELETE FROM records WHERE key = ?1",
    "DELETE FROM list_entries WHERE list_key = ?1",
    "INSERT INTO records(key, type, value, entry_size, sort_len) VALUES(?1, ?2, NULL, ?3, ?4)",
    "INSERT OR REPLACE INTO list_entries(list_key, sort_key, entry) VALUES(?1, ?2, ?3)",
    "DELETE FROM list_entries WHERE list_key = ?1 AND sort_key = ?2",
    "PRAGMA data_version",
};

constexpr const char *kSchema =
    "CREATE TABLE IF NOT EXISTS records(key BLOB PRIMARY KEY, type INTEGER NOT NULL, value BLOB,"
    " entry_size INTEGER NOT NULL DEFAULT 0, sort_len INTEGER NOT NULL DEFAULT 0) WITHOUT ROWID;"
    "CREATE INDEX IF NOT EXISTS records_by_type ON records(type, key);"
    "CREATE TABLE IF NOT EXISTS list_entries(list_key BLOB NOT NULL, sort_key BLOB NOT NULL,"
    " entry BLOB NOT NULL, PRIMARY KEY(list_key, sort_key)) WITHOUT ROWID;";

class SqliteConnection final : public Connection {
public:
    ~SqliteConnection() override
    {
        for (sqlite3_stmt *s : statements_)
            sqlite3_finalize(s);
        if (db_)
            sqlite3_close(db_);
    }

    // Opens the file of database `name`. A file that changed since it last passed the integrity
    // check is checked first: a damaged database is reported and not opened.
    bool open(const std::string &path, const std::string &name, bool readOnly)
    {
        name_ = name;
        path_ = path;
        checkedFileOf(path, opened_);
        int flags = readOnly ? SQLITE_OPEN_READONLY : (SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        int rc = sqlite3_open_v2(path.c_str(), &db_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
        if (rc != SQLITE_OK) {
            if (db_)
                note(rc);
            return false;
        }
        sqlite3_busy_timeout(db_, kBusyTimeoutMs);
        if (!checkedSinceChange(path))
            return false;
        if (readOnly)
            return true;
        if (!setUp("PRAGMA synchronous=NORMAL"))
            return false;
        // WAL mode and the schema are properties of the file: set once, by whoever creates it.
        // The tables appear together, in one transaction: a connection that saw only the first
        // would keep a schema without the second for as long as it is kept for reuse.
        if (statement(kListCount))
            return true;
        if (!setUp("PRAGMA journal_mode=WAL") || !setUp("BEGIN IMMEDIATE"))
            return false;
        if (sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK ||
            sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
            note(sqlite3_errcode(db_));
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
            return false;
        }
        return true;
    }

    bool setUp(const char *sql)
    {
        if (execRetry(db_, sql))
            return true;
        note(sqlite3_errcode(db_));
        return false;
    }

    enum class Check {
        Intact,
        Damaged,
        Unknown,
    };

    // SQLite's quick check of every page of the database. Damaged (and reported) when it finds a
    // fault or cannot read the file as a database; Unknown when another connection kept it
    // from running (a writer that changes the journal mode), so that the next open checks again.
    Check check()
    {
        for (int attempt = 0; attempt < kSetupAttempts; ++attempt) {
            sqlite3_stmt *query = nullptr;
            int rc = sqlite3_prepare_v2(db_, "PRAGMA quick_check", -1, &query, nullptr);
            std::string verdict;
            if (rc == SQLITE_OK) {
                // The first row that names a fault; "*** in database main ***" only says where.
                while ((rc = sqlite3_step(query)) == SQLITE_ROW) {
                    const unsigned char *text = sqlite3_column_text(query, 0);
                    verdict = text ? reinterpret_cast<const char *>(text) : "";
                    if (!faultOf(verdict).empty() || verdict == "ok")
                        break;
                }
            }
            sqlite3_finalize(query);
            if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) {
                usleep(10000);
                continue;
            }
            if (verdict.empty()) {
                note(rc);
                return (rc & 0xff) == SQLITE_CORRUPT || (rc & 0xff) == SQLITE_NOTADB ? Check::Damaged : Check::Unknown;
            }
            if (verdict != "ok") {
                reportDamage(name_, "integrity check failed: " + faultOf(verdict));
                return Check::Damaged;
            }
            return Check::Intact;
        }
        return Check::Unknown;
    }

    // For the idle pool: whether the file at the path is still the one this connection opened;
    // and, when it is handed back after writes, the file as it is then recorded as checked
    // (SQLite's own writes: the next open need not check it again for them).
    bool opened(const CheckedFile &now) const { return now.device == opened_.device && now.inode == opened_.inode; }
    bool damaged() const { return damaged_; }
    const std::string &path() const { return path_; }
    bool checkedSinceChange(const std::string &path);
    void recordOwnWrites();

    // Copies every committed page from the WAL into the database file, syncs both and empties
    // the WAL: the file alone then holds the database, and reads come from it.
    bool consolidate();

    // Closes without deleting the WAL file: used when the database file was replaced since
    // this connection opened it, so that the name "<db>-wal" belongs to another file now.
    void keepWalOnClose()
    {
        int persist = 1;
        sqlite3_file_control(db_, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    }

    bool keys(uint32_t valueType, std::vector<Bytes> &out) override
    {
        Use s(this, kKeysOfType);
        if (!s)
            return false;
        sqlite3_bind_int64(s, 1, valueType);
        int rc;
        while ((rc = step(s)) == SQLITE_ROW)
            out.push_back(columnBytes(s, 0));
        return rc == SQLITE_DONE;
    }

    int32_t length(const Bytes &key) override
    {
        RecordInfo info;
        int found = record(key, info);
        if (found <= 0 || info.entrySize == 0)
            return found <= 0 ? found : static_cast<int32_t>(info.value.size());
        // A list: its record and its entries from one snapshot.
        Transaction read(this, false);
        found = recordIn(read, key, info);
        if (found <= 0)
            return found;
        if (info.entrySize == 0)
            return static_cast<int32_t>(info.value.size());
        int64_t count = listCount(key);
        return count < 0 ? -1 : static_cast<int32_t>(count * info.entrySize);
    }

    int32_t read(const Bytes &key, void *buf, uint32_t bufLen) override
    {
        Bytes value;
        int found = whole(key, value, bufLen);
        if (found <= 0)
            return found;
        size_t n = value.size() < bufLen ? value.size() : bufLen;
        if (n)
            memcpy(buf, value.data(), n);
        return static_cast<int32_t>(n);
    }

    // The value of a record, a list's entries back to back (at least `limit` bytes of them
    // when there are as many); 1 found, 0 absent, -1 failure.
    int whole(const Bytes &key, Bytes &value, size_t limit = SIZE_MAX)
    {
        RecordInfo info;
        int found = record(key, info);
        if (found <= 0)
            return found;
        value = info.value;
        if (info.entrySize == 0)
            return 1;
        // A list: its record and its entries from one snapshot.
        Transaction read(this, false);
        if ((found = recordIn(read, key, info)) <= 0)
            return found;
        if (info.entrySize == 0) {
            value = info.value;
            return 1;
        }
        Use s(this, kListEntries);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        value.clear();
        int rc = SQLITE_DONE;
        while (value.size() < limit && (rc = step(s)) == SQLITE_ROW)
            value += columnBytes(s, 0);
        return rc == SQLITE_ROW || rc == SQLITE_DONE ? 1 : -1;
    }

    int32_t write(const Bytes &key, uint32_t valueType, const void *value, uint32_t length) override
    {
        Transaction write(this, true);
        if (!write || !run(kDeleteEntries, key))
            return -1;
        Use s(this, kUpsertPlain);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        sqlite3_bind_int64(s, 2, valueType);
        bindBytes(s, 3, value, length);
        if (step(s) != SQLITE_DONE)
            return -1;
        return write.commit() ? 0 : -1;
    }

    int32_t erase(const Bytes &key) override
    {
        Transaction write(this, true);
        if (!write || !run(kDeleteEntries, key) || !run(kDeleteRecord, key))
            return -1;
        return write.commit() ? 0 : -1;
    }

    int32_t listAdd(const Bytes &key, uint32_t valueType, const void *entry, uint32_t entrySize,
                    uint32_t sortKeyLen) override
    {
        Transaction write(this, true);
        RecordInfo info;
        int found = recordIn(write, key, info);
        if (found < 0)
            return -1;
        if (found == 0) {
            Use s(this, kInsertList);
            if (!s)
                return -1;
            bindBytes(s, 1, key.data(), key.size());
            sqlite3_bind_int64(s, 2, valueType);
            sqlite3_bind_int64(s, 3, entrySize);
            sqlite3_bind_int64(s, 4, sortKeyLen);
            if (step(s) != SQLITE_DONE)
                return -1;
        } else if (info.entrySize != entrySize || info.sortKeyLen != sortKeyLen) {
            return -1;
        }
        Use s(this, kUpsertEntry);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        bindBytes(s, 2, entry, sortKeyLen);
        bindBytes(s, 3, entry, entrySize);
        if (step(s) != SQLITE_DONE)
            return -1;
        return write.commit() ? 0 : -1;
    }

    int32_t listDel(const Bytes &key, const Bytes &sortKey) override
    {
        Transaction write(this, true);
        RecordInfo info;
        int found = recordIn(write, key, info);
        if (found < 0)
            return -1;
        if (found == 0 || info.entrySize == 0)
            return 0;
        Use s(this, kDeleteEntry);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        bindBytes(s, 2, sortKey.data(), sortKey.size());
        if (step(s) != SQLITE_DONE)
            return -1;
        int64_t left = listCount(key);
        if (left < 0 || (left == 0 && !run(kDeleteRecord, key)))
            return -1;
        return write.commit() ? 0 : -1;
    }

    int32_t listNext(const Bytes &key, ListPosition &position, uint32_t maxCount, std::vector<Bytes> &out) override
    {
        Use s(this, position.started ? kListAfter : kListFirst);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        if (position.started) {
            bindBytes(s, 2, position.sortKey.data(), position.sortKey.size());
            sqlite3_bind_int64(s, 3, maxCount);
        } else {
            sqlite3_bind_int64(s, 2, maxCount);
        }
        int rc;
        while ((rc = step(s)) == SQLITE_ROW) {
            position.started = true;
            position.sortKey = columnBytes(s, 0);
            out.push_back(columnBytes(s, 1));
        }
        return rc == SQLITE_DONE ? static_cast<int32_t>(out.size()) : -1;
    }

    uint64_t dataVersion() override
    {
        Use s(this, kDataVersion);
        return s && step(s) == SQLITE_ROW ? static_cast<uint64_t>(sqlite3_column_int64(s, 0)) : 0;
    }

    std::string lastError() const override { return lastError_; }

private:
    struct RecordInfo {
        uint32_t entrySize = 0;
        uint32_t sortKeyLen = 0;
        Bytes value;
    };

    // A prepared statement of this connection, reset and unbound when the use ends.
    class Use {
    public:
        Use(SqliteConnection *c, Statement which) : s_(c->statement(which)) {}
        ~Use()
        {
            if (s_) {
                sqlite3_reset(s_);
                sqlite3_clear_bindings(s_);
            }
        }
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;
        operator sqlite3_stmt *() const { return s_; }
        explicit operator bool() const { return s_ != nullptr; }

    private:
        sqlite3_stmt *s_;
    };

    // A transaction that rolls back unless committed. Writers take the write lock at once
    // (IMMEDIATE), waiting through the busy timeout; readers see one snapshot.
    class Transaction {
    public:
        Transaction(SqliteConnection *c, bool write) : c_(c), write_(write)
        {
            // The busy timeout normally covers the wait for the write lock; a refusal that
            // comes back at once (seen under heavy load, with a second writer in the same
            // process) is retried here up to the same limit.
            const char *begin = write ? "BEGIN IMMEDIATE" : "BEGIN";
            auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
            int rc;
            while ((rc = sqlite3_exec(c_->db_, begin, nullptr, nullptr, nullptr)) == SQLITE_BUSY ||
                   rc == SQLITE_LOCKED) {
                if (std::chrono::steady_clock::now() >= deadline)
                    break;
                usleep(1000);
            }
            open_ = rc == SQLITE_OK;
            if (!open_) {
                c_->note(rc);
                fprintf(stderr, "dbm: cannot begin a transaction: %s\n", sqlite3_errmsg(c_->db_));
            }
        }
        ~Transaction()
        {
            if (open_)
                sqlite3_exec(c_->db_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
        Transaction(const Transaction &) = delete;
        Transaction &operator=(const Transaction &) = delete;
        explicit operator bool() const { return open_; }
        bool commit()
        {
            int rc = sqlite3_exec(c_->db_, "COMMIT", nullptr, nullptr, nullptr);
            if (rc != SQLITE_OK)
                c_->note(rc);
            open_ = rc != SQLITE_OK;
            c_->wrote_ = c_->wrote_ || (write_ && !open_);
            return !open_;
        }

    private:
        SqliteConnection *c_;
        bool write_;
        bool open_ = false;
    };

    // Remembers why a call failed; corruption is also reported as damage of the database.
    void note(int rc)
    {
        lastError_ = sqlite3_errmsg(db_);
        // SQLite's words for a failed write ("disk I/O error") do not say that the disk is full.
        if (int system = sqlite3_system_errno(db_); system != 0 && (rc & 0xff) != SQLITE_FULL)
            lastError_ += std::string(" (") + strerror(system) + ")";
        int primary = rc & 0xff;
        if (primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB) {
            damaged_ = true;
            reportDamage(name_, lastError_);
        }
    }

    int step(sqlite3_stmt *s)
    {
        int rc = sqlite3_step(s);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            note(rc);
        return rc;
    }

    sqlite3_stmt *statement(Statement which)
    {
        if (!statements_[which]) {
            int rc = sqlite3_prepare_v3(db_, kSql[which], -1, SQLITE_PREPARE_PERSISTENT, &statements_[which], nullptr);
            if (rc != SQLITE_OK) {
                note(rc);
                statements_[which] = nullptr;
            }
        }
        return statements_[which];
    }

    // The record of key as an open transaction sees it; -1 also when the transaction failed.
    int recordIn(const Transaction &t, const Bytes &key, RecordInfo &info) { return t ? record(key, info) : -1; }

    // 1 found, 0 absent, -1 failure.
    int record(const Bytes &key, RecordInfo &info)
    {
        Use s(this, kRecordOf);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        int rc = step(s);
        if (rc == SQLITE_DONE)
            return 0;
        if (rc != SQLITE_ROW)
            return -1;
        info.entrySize = static_cast<uint32_t>(sqlite3_column_int64(s, 0));
        info.sortKeyLen = static_cast<uint32_t>(sqlite3_column_int64(s, 1));
        info.value = columnBytes(s, 2);
        return 1;
    }

    int64_t listCount(const Bytes &key)
    {
        Use s(this, kListCount);
        if (!s)
            return -1;
        bindBytes(s, 1, key.data(), key.size());
        return step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
    }

    bool run(Statement which, const Bytes &key)
    {
        Use s(this, which);
        if (!s)
            return false;
        bindBytes(s, 1, key.data(), key.size());
        return step(s) == SQLITE_DONE;
    }

    sqlite3 *db_ = nullptr;
    std::string name_;
    std::string path_;
    CheckedFile opened_;   // the file it opened
    bool wrote_ = false;   // committed a change since it was opened or last handed back
    bool damaged_ = false; // met a damaged page or a file that is no database
    std::string lastError_;
    std::array<sqlite3_stmt *, kStatementCount> statements_{};
};

bool SqliteConnection::checkedSinceChange(const std::string &path)
{
    CheckedFile before;
    // A file that is not there yet is being created: nothing to check.
    if (!checkedFileOf(path, before) || fileUnchangedSinceChecked(path, before))
        return true;
    SqliteConnection::Check verdict = check();
    if (verdict == Check::Damaged)
        return false;
    if (verdict == Check::Intact)
        fileCheckedAs(path, before);
    return true;
}

void SqliteConnection::recordOwnWrites()
{
    if (!wrote_ || damaged_)
        return;
    wrote_ = false;
    // A commit that filled the WAL checkpointed it into the file: that change is our own.
    CheckedFile now;
    if (checkedFileOf(path_, now))
        fileCheckedAs(path_, now);
}

bool SqliteConnection::consolidate()
{
    int rc;
    for (int attempt = 0; attempt < kSetupAttempts; ++attempt) {
        rc = sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED)
            break;
        usleep(10000);
    }
    if (rc != SQLITE_OK) {
        note(rc);
        return false;
    }
    CheckedFile now;
    if (checkedFileOf(path_, now))
        fileCheckedAs(path_, now);
    return true;
}

// Connections whose handles were closed, kept open for the next open of the same file in this
// process: an open then costs a stat instead of SQLite's open, the creation of the WAL files
// and the schema's read, and no close checkpoints the WAL and deletes it between two handles.
// A connection whose file was replaced since (a reload, a damaged file set aside) or that met
// damage is closed instead of reused. Never destroyed: closed handles come back from any
// thread until the end; the idle ones are closed at exit, which checkpoints the WAL as before.
class IdlePool {
public:
    static IdlePool &instance()
    {
        static IdlePool *pool = [] {
            atexit([] { IdlePool::instance().drain(true); });
            return new IdlePool;
        }();
        return *pool;
    }

    // An idle connection to the file at `path`, whose identity now is `now` (null: the file is
    // not there); null when there is none. Connections to a file that was replaced are closed.
    std::unique_ptr<SqliteConnection> take(const std::string &path, const CheckedFile *now)
    {
        std::vector<std::unique_ptr<SqliteConnection>> stale;
        std::unique_ptr<SqliteConnection> found;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            auto it = idle_.find(path);
            while (it != idle_.end() && !it->second.empty() && !found) {
                std::unique_ptr<SqliteConnection> c = std::move(it->second.back());
                it->second.pop_back();
                if (now && c->opened(*now))
                    found = std::move(c);
                else
                    stale.push_back(std::move(c));
            }
        }
        for (auto &c : stale)
            c->keepWalOnClose();
        return found;
    }

    void give(std::unique_ptr<SqliteConnection> c)
    {
        c->recordOwnWrites();
        if (c->damaged())
            return;
        std::lock_guard<std::mutex> hold(mutex_);
        std::vector<std::unique_ptr<SqliteConnection>> &idle = idle_[c->path()];
        if (!ended_ && idle.size() < kIdlePerFile)
            idle.push_back(std::move(c));
    }

    // Closes the idle connections; at the end of the process also every one handed back later
    // (by the destructors of other statics), so that the last close of each database still
    // checkpoints its WAL into the file.
    void drain(bool atEnd = false)
    {
        std::map<std::string, std::vector<std::unique_ptr<SqliteConnection>>> closing;
        {
            std::lock_guard<std::mutex> hold(mutex_);
            closing.swap(idle_);
            ended_ = ended_ || atEnd;
        }
    }

private:
    static constexpr size_t kIdlePerFile = 8;
    std::mutex mutex_;
    bool ended_ = false;
    std::map<std::string, std::vector<std::unique_ptr<SqliteConnection>>> idle_;
};

// The connection of one handle: every call goes to the SQLite connection, which goes back to
// the idle pool when the handle is closed.
class PooledConnection final : public Connection {
public:
    explicit PooledConnection(std::unique_ptr<SqliteConnection> c) : c_(std::move(c)) {}
    ~PooledConnection() override { IdlePool::instance().give(std::move(c_)); }
    PooledConnection(const PooledConnection &) = delete;
    PooledConnection &operator=(const PooledConnection &) = delete;

    bool keys(uint32_t valueType, std::vector<Bytes> &out) override { return c_->keys(valueType, out); }
    int32_t length(const Bytes &key) override { return c_->length(key); }
    int32_t read(const Bytes &key, void *buf, uint32_t bufLen) override { return c_->read(key, buf, bufLen); }
    int32_t write(const Bytes &key, uint32_t valueType, const void *value, uint32_t length) override
    {
        return c_->write(key, valueType, value, length);
    }
    int32_t erase(const Bytes &key) override { return c_->erase(key); }
    int32_t listAdd(const Bytes &key, uint32_t valueType, const void *entry, uint32_t entrySize,
                    uint32_t sortKeyLen) override
    {
        return c_->listAdd(key, valueType, entry, entrySize, sortKeyLen);
    }
    int32_t listDel(const Bytes &key, const Bytes &sortKey) override { return c_->listDel(key, sortKey); }
    int32_t listNext(const Bytes &key, ListPosition &position, uint32_t maxCount,
                     std::vector<Bytes> &entries) override
    {
        return c_->listNext(key, position, maxCount, entries);
    }
    uint64_t dataVersion() override { return c_->dataVersion(); }
    std::string lastError() const override { return c_->lastError(); }
    bool consolidate() { return c_->consolidate(); }

private:
    std::unique_ptr<SqliteConnection> c_;
};

class SqliteStorage final : public Storage {
public:
    std::unique_ptr<Connection> open(const std::string &db, std::string *why = nullptr) override
    {
        return openPooled(db, why);
    }

    std::unique_ptr<PooledConnection> openPooled(const std::string &db, std::string *why = nullptr)
    {
        std::string dir = ndplat::dbm_state_dir();
        if (!make_private_dirs(dir)) {
            if (why)
                *why = strerror(errno);
            return nullptr;
        }
        std::string path = dbPath(dir, db);
        // A kept connection serves only while the file is as this process last saw it: after
        // another process's change (or damage) a fresh connection reads and checks the file
        // itself, not through the kept one's cache.
        CheckedFile now;
        bool exists = checkedFileOf(path, now);
        if (std::unique_ptr<SqliteConnection> idle = IdlePool::instance().take(path, exists ? &now : nullptr);
            idle && fileUnchangedSinceChecked(path, now))
            return std::make_unique<PooledConnection>(std::move(idle));
        // SQLite creates a database (and its -wal and -shm files, which take the database's
        // mode) under the umask: an empty file made first keeps them owner-only.
        create_private_file(path);
        auto connection = std::make_unique<SqliteConnection>();
        if (!connection->open(path, db, false)) {
            if (why)
                *why = connection->lastError();
            return nullptr;
        }
        return std::make_unique<PooledConnection>(std::move(connection));
    }

    int32_t save(const std::string &dir) override
    {
        std::string state = ndplat::dbm_state_dir();
        std::string target = state + "/" + dir;
        if (!make_private_dirs(state) || !make_private_dirs(target))
            return -1;
        DIR *d = opendir(state.c_str());
        if (!d)
            return -1;
        std::vector<std::string> names;
        while (dirent *e = readdir(d)) {
            std::string file = e->d_name;
            if (file.size() > 3 && file.compare(file.size() - 3, 3, ".db") == 0 &&
                validName(file.substr(0, file.size() - 3)))
                names.push_back(file.substr(0, file.size() - 3));
        }
        closedir(d);
        // Each database is first made whole in its own file and synced, so that what is saved
        // also survives a power cut where it stands, not only in the copy.
        bool ok = true;
        for (const std::string &name : names) {
            if (std::unique_ptr<PooledConnection> c = openPooled(name))
                c->consolidate();
            ok = backupFile(dbPath(state, name), dbPath(target, name)) && ok;
        }
        return ok ? 0 : -1;
    }

    std::optional<Bytes> savedValue(const std::string &dir, const std::string &db, const Bytes &key) override
    {
        std::string path = dbPath(ndplat::dbm_state_dir() + "/" + dir, db);
        if (access(path.c_str(), R_OK) != 0)
            return std::nullopt;
        SqliteConnection c;
        Bytes value;
        if (!c.open(path, db, true) || c.whole(key, value) != 1)
            return std::nullopt;
        return value;
    }

    // Closes the idle connections: before the database files are moved or removed.
    void clear() override { IdlePool::instance().drain(); }

    bool check(const std::string &db) override
    {
        std::string path = dbPath(ndplat::dbm_state_dir(), db);
        if (access(path.c_str(), F_OK) != 0)
            return true;
        SqliteConnection c;
        return c.open(path, db, true) && c.check() != SqliteConnection::Check::Damaged;
    }
};

} // namespace

Storage *sqliteStorage()
{
    static SqliteStorage storage;
    return &storage;
}

} // namespace ndplat::dbm
