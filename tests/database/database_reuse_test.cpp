// The SQLite storage keeps the connection of a closed handle for the next open of the same file
// in the process: what that must not change (a file replaced or damaged since is not read
// through the kept connection, a save leaves every change in the file itself) and what it does
// change (the WAL stays, with the commits not yet checkpointed, while the connection is kept).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "dbm_fixture.h"
#include "ndplat_dbm.h"

namespace {

class SqliteReuseTest : public dbmtest::StorageTest {
protected:
    void SetUp() override
    {
        if (!ndplat::dbm_storage_available(ndplat::DbmStorage::Sqlite))
            GTEST_SKIP() << "SQLite is built on the host only";
        dbmtest::StorageTest::SetUp();
    }
    std::string file(const std::string &name) const { return stateDir() + "/" + name; }
};

const uint32_t kParam[7] = ND_DBM_OPEN_PARAM;

DBM_HANDLE openDb(const char *db)
{
    DBM_HANDLE h = nullptr;
    return DBM_Open(db, ND_DBM_OPEN_MODE, kParam, 0, 0, &h) == 0 ? h : nullptr;
}

void put(const char *db, const std::string &key, const std::string &value)
{
    DBM_HANDLE h = openDb(db);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 1, value.data(),
                                  static_cast<uint32_t>(value.size()), 0),
              0);
    EXPECT_EQ(DBM_Close(h), 0u);
}

std::string get(const char *db, const std::string &key)
{
    DBM_HANDLE h = openDb(db);
    if (!h)
        return "<not opened>";
    char buf[64] = {};
    int32_t n = DBM_GetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 0, buf, sizeof buf);
    DBM_Close(h);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

off_t fileSize(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

void copyFile(const std::string &from, const std::string &to)
{
    FILE *in = fopen(from.c_str(), "rb");
    FILE *out = fopen(to.c_str(), "wb");
    ASSERT_TRUE(in && out);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, in)) > 0)
        fwrite(buf, 1, n, out);
    fclose(in);
    fclose(out);
}

TEST_P(SqliteReuseTest, AClosedHandleLeavesItsConnectionOpenWithItsWriteCommittedInTheWal)
{
    put("ec_nd", "vlan 10", "on");
    ASSERT_TRUE(exists(file("ec_nd.db-wal"))) << "the kept connection keeps its WAL";
    EXPECT_GT(fileSize(file("ec_nd.db-wal")), 0) << "the commit is in the WAL, not yet checkpointed";
    EXPECT_EQ(get("ec_nd", "vlan 10"), "on");

    ndplat::dbm_close_idle();
    EXPECT_FALSE(exists(file("ec_nd.db-wal"))) << "the last close checkpoints and removes the WAL";
    EXPECT_EQ(get("ec_nd", "vlan 10"), "on");
}

TEST_P(SqliteReuseTest, ASaveMakesEachDatabaseFileWholeAndEmptiesItsWal)
{
    put("ec_nd", "vlan 10", "on");
    put("ndsh_inventory", "vlan 10", "10");
    ASSERT_EQ(DBM_Save("/flash", 0, 0, 0), 0);
    EXPECT_EQ(fileSize(file("ec_nd.db-wal")), 0);
    EXPECT_EQ(fileSize(file("ndsh_inventory.db-wal")), 0);
    // The database file alone, without the WAL, holds every write.
    copyFile(file("ec_nd.db"), file("copy.db"));
    EXPECT_EQ(get("copy", "vlan 10"), "on");
    EXPECT_EQ(get("ec_nd", "vlan 10"), "on");
    put("ec_nd", "vlan 20", "on");
    EXPECT_EQ(get("ec_nd", "vlan 20"), "on") << "the emptied WAL takes the next commit";
}

TEST_P(SqliteReuseTest, AFileReplacedSinceIsOpenedAfreshAndTheOldOneKeepsItsRecords)
{
    put("ec_nd", "vlan 10", "old");
    for (const char *suffix : {".db", ".db-wal", ".db-shm"})
        ASSERT_EQ(rename(file(std::string("ec_nd") + suffix).c_str(), file(std::string("away") + suffix).c_str()), 0);
    EXPECT_EQ(get("ec_nd", "vlan 10"), "") << "a new, empty database";
    put("ec_nd", "vlan 20", "new");
    EXPECT_EQ(get("ec_nd", "vlan 20"), "new");
    EXPECT_EQ(get("away", "vlan 10"), "old");
    EXPECT_EQ(get("away", "vlan 20"), "");
    ndplat::dbm_close_idle();
    EXPECT_EQ(get("ec_nd", "vlan 20"), "new") << "closing the stale connection left the new WAL alone";
}

TEST_P(SqliteReuseTest, DamageDoneToTheFileOfAKeptConnectionIsFoundAtTheNextOpen)
{
    put("ec_nd", "vlan 10", "on");
    // Saved: the file alone holds the database, and no page of the WAL stands in for the
    // damaged one.
    ASSERT_EQ(DBM_Save("/flash", 0, 0, 0), 0);
    ndplat::dbm_damage_log_set(false);
    int fd = open(file("ec_nd.db").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    std::string junk(100, 'x');
    ASSERT_EQ(pwrite(fd, junk.data(), junk.size(), 0), 100);
    // File times move in clock ticks: the change is told by a time of its own, as a write that
    // comes later than the same tick shows it.
    struct stat st {};
    ASSERT_EQ(fstat(fd, &st), 0);
    timespec times[2] = {st.st_atim, st.st_mtim};
    times[1].tv_sec += 1;
    ASSERT_EQ(futimens(fd, times), 0);
    close(fd);
    EXPECT_EQ(openDb("ec_nd"), nullptr);
    std::vector<ndplat::DbmDamage> damaged = ndplat::dbm_damaged();
    ASSERT_EQ(damaged.size(), 1u);
    EXPECT_EQ(damaged[0].db, "ec_nd");
    ndplat::dbm_damage_log_set(true);
}

INSTANTIATE_TEST_SUITE_P(Sqlite, SqliteReuseTest, ::testing::Values(ndplat::DbmStorage::Sqlite), dbmtest::storageName);

} // namespace
