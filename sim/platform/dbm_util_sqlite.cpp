#include "dbm_util_sqlite.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <mutex>

#include "private_files.h"

namespace ndplat::dbm {

namespace {

const char kEmpty[1] = {0};

struct CheckedFiles {
    std::mutex mutex;
    std::map<std::string, CheckedFile> files;
};

CheckedFiles &checkedFiles()
{
    // Never destroyed: connections handed back at the end of the process record their writes.
    static CheckedFiles *c = new CheckedFiles;
    return *c;
}

} // namespace

bool checkedFileOf(const std::string &path, CheckedFile &id)
{
    struct stat st {};
    if (stat(path.c_str(), &st) != 0)
        return false;
    id = {st.st_dev, st.st_ino, st.st_size,
          static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
    return true;
}

bool fileUnchangedSinceChecked(const std::string &path, const CheckedFile &now)
{
    if (now.size == 0)
        return true;
    CheckedFiles &c = checkedFiles();
    std::lock_guard<std::mutex> hold(c.mutex);
    auto it = c.files.find(path);
    return it != c.files.end() && it->second == now;
}

void fileCheckedAs(const std::string &path, const CheckedFile &id)
{
    CheckedFiles &c = checkedFiles();
    std::lock_guard<std::mutex> hold(c.mutex);
    c.files[path] = id;
}

std::string dbPath(const std::string &dir, const std::string &db)
{
    return dir + "/" + db + ".db";
}

// Runs a statement text, retrying while another connection holds the lock it needs.
bool execRetry(sqlite3 *db, const char *sql)
{
    for (int attempt = 0; attempt < kSetupAttempts; ++attempt) {
        int rc = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
        if (rc == SQLITE_OK)
            return true;
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED)
            return false;
        usleep(10000);
    }
    return false;
}

void bindBytes(sqlite3_stmt *s, int index, const void *bytes, size_t length)
{
    sqlite3_bind_blob(s, index, length ? bytes : kEmpty, static_cast<int>(length), SQLITE_TRANSIENT);
}

Bytes columnBytes(sqlite3_stmt *s, int column)
{
    const void *p = sqlite3_column_blob(s, column);
    int n = sqlite3_column_bytes(s, column);
    return p && n > 0 ? Bytes(static_cast<const char *>(p), static_cast<size_t>(n)) : Bytes();
}

// The lines of a quick-check verdict that name a fault, on one line: "*** in database main ***"
// only says where.
std::string faultOf(const std::string &verdict)
{
    std::string fault;
    size_t start = 0;
    while (start < verdict.size()) {
        size_t end = verdict.find('\n', start);
        std::string line = verdict.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!line.empty() && line.rfind("***", 0) != 0)
            fault += (fault.empty() ? "" : "; ") + line;
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return fault;
}

// Copies one database file into another path through SQLite's backup, which reads one
// consistent snapshot even while other connections write; the copy appears under its final
// name only when complete.
bool backupFile(const std::string &from, const std::string &to)
{
    sqlite3 *src = nullptr;
    sqlite3 *dst = nullptr;
    std::string temporary = to + ".tmp";
    unlink(temporary.c_str());
    create_private_file(temporary);
    bool ok = sqlite3_open_v2(from.c_str(), &src, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
              sqlite3_open_v2(temporary.c_str(), &dst, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) ==
                  SQLITE_OK;
    if (ok) {
        sqlite3_busy_timeout(src, kBusyTimeoutMs);
        sqlite3_backup *backup = sqlite3_backup_init(dst, "main", src, "main");
        ok = backup != nullptr;
        if (ok) {
            int rc;
            int attempts = 0;
            while ((rc = sqlite3_backup_step(backup, -1)) == SQLITE_BUSY || rc == SQLITE_LOCKED) {
                if (++attempts > kSetupAttempts)
                    break;
                usleep(10000);
            }
            ok = rc == SQLITE_DONE;
            sqlite3_backup_finish(backup);
        }
    }
    if (src)
        sqlite3_close(src);
    if (dst)
        sqlite3_close(dst);
    if (ok)
        ok = rename(temporary.c_str(), to.c_str()) == 0;
    if (ok)
        sync_parent_dir(to);
    else
        unlink(temporary.c_str());
    return ok;
}

} // namespace ndplat::dbm
