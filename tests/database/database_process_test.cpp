// The configuration database under concurrency: two processes on one SQLite database, a
// writer killed in the middle of its work, concurrent threads on either storage; and the
// runtime mutexes.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "dbm_fixture.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

const uint32_t kParams[7] = {1, 1, 256, 0, 0, 0, 0};

int32_t collectKey(DBM_HANDLE, const void *key, uint16_t keyLen, void *arg)
{
    static_cast<std::set<std::string> *>(arg)->emplace(static_cast<const char *>(key), keyLen);
    return 0;
}

std::set<std::string> keysOf(DBM_HANDLE h, uint32_t type)
{
    std::set<std::string> keys;
    DBM_Proc(h, type, collectKey, &keys);
    return keys;
}

// Writes `count` records "<prefix><i>" (value i) and list entries with sort words
// first + 2i; returns the number of failed calls.
int writeMany(const std::string &prefix, int count, uint32_t first)
{
    DBM_HANDLE h = nullptr;
    if (DBM_Open("ec_nd", 1, kParams, 0, 0, &h) != 0)
        return count * 2;
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        std::string key = prefix + std::to_string(i);
        uint32_t v = static_cast<uint32_t>(i);
        failures += DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 5, &v, 4, 0) != 0;
        uint32_t word = first + 2 * static_cast<uint32_t>(i);
        uint8_t entry[8] = {static_cast<uint8_t>(word >> 24), static_cast<uint8_t>(word >> 16),
                            static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word), 1, 2, 3, 4};
        failures += DBM_AddToSortList(h, "shared", 6, 2, entry, 8, 4) != 0;
    }
    failures += DBM_Close(h) != 0;
    return failures;
}

void expectSharedList(DBM_HANDLE h, uint32_t entries)
{
    EXPECT_EQ(DBM_GetLen(h, "shared", 6), static_cast<int32_t>(entries * 8));
    void *it = nullptr;
    uint8_t buf[64 * 8];
    uint32_t expected = 0;
    int n;
    while ((n = DBM_GetBulkFromSortList(h, "shared", 6, &it, 0, 0, 64, buf, 8)) > 0) {
        for (int i = 0; i < n; ++i) {
            uint32_t word = (uint32_t(buf[i * 8]) << 24) | (uint32_t(buf[i * 8 + 1]) << 16) |
                            (uint32_t(buf[i * 8 + 2]) << 8) | buf[i * 8 + 3];
            EXPECT_EQ(word, expected);
            ++expected;
        }
    }
    DBM_FreeIterator(it);
    EXPECT_EQ(expected, entries);
}

using ConcurrencyTest = dbmtest::StorageTest;

TEST_P(ConcurrencyTest, TwoThreadsWriteTheSameDatabase)
{
    int failuresA = -1, failuresB = -1;
    std::thread a([&] { failuresA = writeMany("a-", 150, 0); });
    std::thread b([&] { failuresB = writeMany("b-", 150, 1); });
    a.join();
    b.join();
    EXPECT_EQ(failuresA, 0);
    EXPECT_EQ(failuresB, 0);
    Writer w;
    EXPECT_EQ(keysOf(w.handle(), 5).size(), 300u);
    expectSharedList(w.handle(), 300);
}

INSTANTIATE_TEST_SUITE_P(Storages, ConcurrencyTest, ::testing::ValuesIn(dbmtest::storages()), dbmtest::storageName);

class SqliteProcessTest : public dbmtest::StorageTest {
protected:
    void SetUp() override
    {
        if (!ndplat::dbm_storage_available(ndplat::DbmStorage::Sqlite))
            GTEST_SKIP() << "SQLite is built on the host only";
        dbmtest::StorageTest::SetUp();
    }
};

TEST_P(SqliteProcessTest, TwoProcessesWriteTheSameDatabase)
{
    {
        Writer w; // creates the database before both start
    }
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        _exit(writeMany("child-", 200, 1) == 0 ? 0 : 1);
    int failures = writeMany("parent-", 200, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the child's writes failed";
    EXPECT_EQ(failures, 0);
    Writer w;
    std::set<std::string> keys = keysOf(w.handle(), 5);
    EXPECT_EQ(keys.size(), 400u);
    EXPECT_TRUE(keys.count("child-199"));
    EXPECT_TRUE(keys.count("parent-0"));
    expectSharedList(w.handle(), 400);
}

TEST_P(SqliteProcessTest, ReaderInOneProcessSeesTheOtherProcessCommit)
{
    Writer reader;
    EXPECT_EQ(DBM_GetLen(reader.handle(), "from-child", 10), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        DBM_HANDLE h = nullptr;
        bool ok = DBM_Open("ec_nd", 1, kParams, 0, 0, &h) == 0 &&
                  DBM_SetUniqueBinary(h, "from-child", 10, 6, "12345", 5, 0) == 0;
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(DBM_GetLen(reader.handle(), "from-child", 10), 5) << "the open handle sees the commit";
}

TEST_P(SqliteProcessTest, CommittedRecordsSurviveAKilledWriter)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        DBM_HANDLE h = nullptr;
        if (DBM_Open("ec_nd", 1, kParams, 0, 0, &h) != 0)
            _exit(1);
        for (uint32_t i = 0;; ++i) {
            std::string key = "rec-" + std::to_string(i);
            std::vector<uint8_t> value(100, static_cast<uint8_t>(i));
            if (DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 6, value.data(), 100, 0) != 0)
                _exit(2);
            // Reported only once committed.
            if (write(fds[1], &i, sizeof i) != sizeof i)
                _exit(3);
        }
    }
    close(fds[1]);
    uint32_t last = 0;
    uint32_t reported = 0;
    uint32_t i;
    while (reported < 300 && read(fds[0], &i, sizeof i) == sizeof i) {
        last = i;
        ++reported;
    }
    kill(child, SIGKILL); // in the middle of its work, without closing anything
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    while (read(fds[0], &i, sizeof i) == sizeof i)
        last = i;
    close(fds[0]);
    ASSERT_GE(reported, 300u);

    Writer w;
    for (uint32_t r = 0; r <= last; ++r) {
        std::string key = "rec-" + std::to_string(r);
        uint8_t value[100] = {};
        ASSERT_EQ(DBM_GetUniqueBinary(w.handle(), key.data(), static_cast<uint16_t>(key.size()), 0, value, 100), 100)
            << key;
        EXPECT_EQ(value[99], static_cast<uint8_t>(r));
    }
    size_t found = keysOf(w.handle(), 6).size();
    EXPECT_GE(found, last + 1);
    EXPECT_LE(found, last + 2) << "at most the one write in flight";
    // The database stays writable after the crash.
    w.putU32("after", 6, 1);
    EXPECT_EQ(DBM_GetLen(w.handle(), "after", 5), 4);
}

TEST_P(SqliteProcessTest, RecordsSurviveAWriterThatExitsWithoutClosing)
{
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        DBM_HANDLE h = nullptr;
        bool ok = DBM_Open("ec_nd", 1, kParams, 0, 0, &h) == 0 && DBM_SetUniqueBinary(h, "kept", 4, 6, "v", 1, 0) == 0;
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    Writer w;
    EXPECT_EQ(DBM_GetLen(w.handle(), "kept", 4), 1);
}

INSTANTIATE_TEST_SUITE_P(Sqlite, SqliteProcessTest, ::testing::Values(ndplat::DbmStorage::Sqlite),
                         dbmtest::storageName);

class SemTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        ndplat::sem_destroy(sem);
        ndtest::PlatformTest::TearDown();
    }
    GNL_SEM sem = nullptr;
};

TEST_F(SemTest, TakeGiveAndTimeOuts)
{
    long live = ndplat::sem_live();
    ASSERT_EQ(gnl_sem_mutex_init("test.mutex", &sem), 0);
    EXPECT_EQ(ndplat::sem_live(), live + 1);
    EXPECT_EQ(gnl_sem_take(sem, 0), 0);
    EXPECT_EQ(gnl_sem_take(sem, -1), -1) << "held: a try fails";
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(gnl_sem_take(sem, 50), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
    EXPECT_EQ(gnl_sem_give(sem), 0);
    EXPECT_EQ(gnl_sem_give(sem), -1) << "not held";
    EXPECT_EQ(gnl_sem_take(sem, 50), 0);
    EXPECT_EQ(gnl_sem_give(sem), 0);
    EXPECT_EQ(gnl_sem_take(nullptr, 0), -1);
    EXPECT_EQ(gnl_sem_give(nullptr), -1);
    GNL_SEM other = nullptr;
    EXPECT_EQ(gnl_sem_mutex_init(nullptr, &other), -1);
    EXPECT_EQ(other, nullptr);
    std::vector<std::string> trace = ndplat::trace();
    EXPECT_EQ(trace[0], "gnl_sem_mutex_init(\"test.mutex\", ptr)");
    EXPECT_EQ(trace[1], "gnl_sem_take(ptr, 0)");
}

TEST_F(SemTest, WaitingTakeBlocksUntilGiven)
{
    ASSERT_EQ(gnl_sem_mutex_init("test.mutex", &sem), 0);
    ASSERT_EQ(gnl_sem_take(sem, 0), 0);
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        gnl_sem_take(sem, 0);
        taken = true;
        gnl_sem_give(sem);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(taken.load());
    gnl_sem_give(sem);
    waiter.join();
    EXPECT_TRUE(taken.load());
}

TEST_F(SemTest, MutexesOutliveAReset)
{
    ASSERT_EQ(gnl_sem_mutex_init("kept", &sem), 0);
    ndplat::reset();
    EXPECT_EQ(gnl_sem_take(sem, 0), 0);
    EXPECT_EQ(gnl_sem_give(sem), 0);
    ndplat::fault_inject("gnl_sem_take", -1);
    EXPECT_EQ(gnl_sem_take(sem, 0), -1);
    EXPECT_EQ(gnl_sem_give(sem), -1) << "a give after a failed take is refused";
}

} // namespace
