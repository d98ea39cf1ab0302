// The reader of the super VLANs' sub-VLANs: the records' key, which records count, and a
// reader that follows every change of the inventory database, on both storages.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "dbm_storage.h"
#include "ndplat_dbm.h"
#include "ndplat_supervlan.h"
#include "test_support.h"

namespace {

using Members = std::map<uint16_t, uint16_t>;

class SuperVlanTest : public ndtest::PlatformTest {
protected:
    // Stores a record as the shell does, on a connection of its own.
    void put(const std::string &key, const void *value, uint32_t length, uint32_t type = ndplat::kSubVlanType)
    {
        std::unique_ptr<ndplat::dbm::Connection> c = ndplat::dbm_open_store(ndplat::kInventoryDb);
        ASSERT_NE(c, nullptr);
        ASSERT_EQ(c->write(key, type, value, length), 0);
    }
    void join(uint16_t vlan, int32_t superVlan) { put(ndplat::sub_vlan_key(vlan), &superVlan, sizeof superVlan); }
    void leave(uint16_t vlan)
    {
        std::unique_ptr<ndplat::dbm::Connection> c = ndplat::dbm_open_store(ndplat::kInventoryDb);
        ASSERT_NE(c, nullptr);
        ASSERT_EQ(c->erase(ndplat::sub_vlan_key(vlan)), 0);
    }
};

TEST_F(SuperVlanTest, TheKeyNamesTheSubVlanAndIsReadBackFromItsOwnFormOnly)
{
    EXPECT_EQ(ndplat::sub_vlan_key(10), "subvlan 10");
    EXPECT_EQ(ndplat::sub_vlan_of_key("subvlan 10"), 10);
    EXPECT_EQ(ndplat::sub_vlan_of_key(ndplat::sub_vlan_key(4094)), 4094);
    for (const char *other : {"subvlan 0", "subvlan 4095", "subvlan 010", "subvlan +10", "subvlan  10", "subvlan 10 ",
                              "subvlan", "subvlan ", "vlan 10", "super-vlan 10", "subvlan x"})
        EXPECT_EQ(ndplat::sub_vlan_of_key(other), std::nullopt) << other;
    EXPECT_EQ(ndplat::sub_vlan_of_key(std::string("subvlan 10\0x", 12)), std::nullopt);

    int32_t value = 4094;
    EXPECT_EQ(ndplat::super_vlan_of_value(&value, sizeof value), 4094);
    EXPECT_EQ(ndplat::super_vlan_of_value(&value, 2), std::nullopt);
    EXPECT_EQ(ndplat::super_vlan_of_value(nullptr, sizeof value), std::nullopt);
    for (int32_t bad : {0, -1, 4095, 65536 + 10}) {
        value = bad;
        EXPECT_EQ(ndplat::super_vlan_of_value(&value, sizeof value), std::nullopt) << bad;
    }
}

TEST_F(SuperVlanTest, TheReaderSeesEveryJoinMoveAndLeave)
{
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
    join(10, 100);
    join(4094, 100);
    join(11, 200);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}, {11, 200}, {4094, 100}}));
    join(10, 200); // the record is the sub-VLAN's: a new super VLAN replaces the old one
    leave(4094);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 200}, {11, 200}}));
    leave(10);
    leave(11);
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
}

TEST_F(SuperVlanTest, RecordsOfOtherKindsAndMalformedOnesAreLeftOut)
{
    int32_t super = 100;
    put("vlan 10", &super, sizeof super, 1);            // the shell's VLAN record
    put("subvlan 12", &super, sizeof super, 20);        // another value type
    put("subvlan 012", &super, sizeof super);           // not the key's own form
    put("subvlan 13", &super, 2);                       // a value too short
    int64_t longer = 100;
    put("subvlan 14", &longer, sizeof longer);          // and too long
    int32_t outside = 4095;
    put("subvlan 15", &outside, sizeof outside);        // no VLAN id
    join(16, 100);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{16, 100}}));
}

TEST_F(SuperVlanTest, AResetStartsFromTheEmptyMemoryStorage)
{
    join(10, 100);
    ASSERT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
    ndplat::reset();
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
    join(20, 200);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{20, 200}}));
}

// Readers on several threads while the records change: each answer is a state that existed.
TEST_F(SuperVlanTest, ReadersOnSeveralThreadsSeeOnlyWholeRecords)
{
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t)
        readers.emplace_back([&] {
            while (!done.load())
                for (const auto &[vlan, super] : ndplat::sub_vlan_supers())
                    if (vlan < 2 || vlan > 41 || super != 1000 + vlan)
                        ++wrong;
        });
    for (uint16_t v = 2; v <= 41; ++v)
        join(v, 1000 + v);
    for (uint16_t v = 2; v <= 41; v += 2)
        leave(v);
    done = true;
    for (std::thread &t : readers)
        t.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(ndplat::sub_vlan_supers().size(), 20u);
}

#if NDSIM_WITH_SQLITE

// SQLite storage in a state directory of the test's own, removed afterwards.
class SuperVlanSqliteTest : public SuperVlanTest {
protected:
    void SetUp() override
    {
        SuperVlanTest::SetUp();
        dir_ = ndtest::fresh_scratch_dir("ndtest-supervlan");
        ndplat::dbm_state_dir_set(dir_);
        ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite));
    }
    std::string dbFile() const { return dir_ + "/" + ndplat::kInventoryDb + ".db"; }
    std::string dir_;
};

TEST_F(SuperVlanSqliteTest, ReadingCreatesNothingAndOtherConnectionsChangesAreSeen)
{
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
    EXPECT_NE(access(dbFile().c_str(), F_OK), 0);
    join(10, 100);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
    join(10, 300);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 300}}));
    leave(10);
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
}

// What the shell does with a damaged database: its files are renamed and a fresh one created.
void set_aside(const std::string &dbFile, const std::string &stamp)
{
    ndplat::dbm_close_idle();
    for (const char *suffix : {"", "-wal", "-shm"})
        rename((dbFile + suffix).c_str(), (dbFile + suffix + ".damaged-" + stamp).c_str());
}

TEST_F(SuperVlanSqliteTest, AFileSetAsideOrReplacedIsFollowed)
{
    join(10, 100);
    ASSERT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
    set_aside(dbFile(), "1");
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{}) << "the reader kept the file set aside";
    join(20, 200);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{20, 200}}));
    // Replaced between two calls: the new file is read, not the one the reader had open.
    set_aside(dbFile(), "2");
    join(30, 300);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{30, 300}}));
}

TEST_F(SuperVlanSqliteTest, TheReaderFollowsTheStorageAndTheStateDirectory)
{
    join(10, 100);
    ASSERT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
    ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Memory));
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
    ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite));
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
    ndplat::dbm_state_dir_set(ndtest::fresh_scratch_dir("ndtest-supervlan"));
    EXPECT_EQ(ndplat::sub_vlan_supers(), Members{});
    ndplat::dbm_state_dir_set(dir_);
    EXPECT_EQ(ndplat::sub_vlan_supers(), (Members{{10, 100}}));
}

#endif

} // namespace
