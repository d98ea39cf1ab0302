// The platform's VXLAN port table: what VXLAN_GetVxportBasicInfo answers, the two origins of a
// port, the memory-only table of the unit tests, and on SQLite one table shared by every view
// (process) of the state directory.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "ndplat_dbm.h"
#include "ndplat_vxlan.h"
#include "test_support.h"

namespace {

using ndplat::Vxport;
using ndplat::VxportOrigin;

class VxportTest : public ndtest::PlatformTest {};

Vxport port(int32_t portId, uint16_t svlan, uint16_t cvlan, uint32_t vxlan, VxportOrigin origin = VxportOrigin::Configured)
{
    Vxport p;
    p.portId = portId;
    p.svlan = svlan;
    p.cvlan = cvlan;
    p.vxlan = vxlan;
    p.origin = origin;
    return p;
}

// The fields of VXLAN_GetVxportBasicInfo's answer: index, kind, port id, svlan, cvlan.
struct Info {
    int32_t status = -1;
    uint32_t index = 0;
    uint16_t kind = 0;
    int32_t portId = 0;
    uint16_t svlan = 0, cvlan = 0;
};

Info info_of(uint32_t portIndex)
{
    std::vector<uint8_t> buf(ND_VXPORT_INFO_SIZE, 0xEE);
    Info i;
    i.status = VXLAN_GetVxportBasicInfo(portIndex, buf.data());
    memcpy(&i.index, buf.data(), 4);
    memcpy(&i.kind, buf.data() + ND_VXPORT_INFO_KIND, 2);
    memcpy(&i.portId, buf.data() + ND_VXPORT_INFO_PORT_ID, 4);
    memcpy(&i.svlan, buf.data() + ND_VXPORT_INFO_SVLAN, 2);
    memcpy(&i.cvlan, buf.data() + ND_VXPORT_INFO_CVLAN, 2);
    return i;
}

TEST_F(VxportTest, TheInfoHoldsTheFieldsOfThePortInForce)
{
    ASSERT_TRUE(ndplat::vxport_set(7, port(12, 10, 20, 100)));
    Info i = info_of(7);
    EXPECT_EQ(i.status, 0);
    EXPECT_EQ(i.index, 7u);
    EXPECT_EQ(i.kind, ND_VXPORT_KIND_ATTACHED);
    EXPECT_EQ(i.portId, 12);
    EXPECT_EQ(i.svlan, 10);
    EXPECT_EQ(i.cvlan, 20);
    EXPECT_EQ(info_of(8).status, 1);
    EXPECT_TRUE(ndplat::vxport_remove(7));
    EXPECT_EQ(info_of(7).status, 1);
}

TEST_F(VxportTest, WithoutSqliteTheTableLivesInTheProcessAndAResetEmptiesIt)
{
    char dir[] = "/tmp/ndtest-vxport-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    ndplat::dbm_state_dir_set(dir);
    ASSERT_EQ(ndplat::dbm_storage(), ndplat::DbmStorage::Memory);
    ASSERT_TRUE(ndplat::vxport_set(3, port(4, 0, 0, 9)));
    EXPECT_EQ(ndplat::vxport_find(3), port(4, 0, 0, 9));
    // No file in the state directory.
    EXPECT_NE(access((std::string(dir) + "/" + ndplat::kVxportDb + ".db").c_str(), F_OK), 0);
    EXPECT_EQ(rmdir(dir), 0);
    ndplat::reset();
    EXPECT_EQ(ndplat::vxport_find(3), std::nullopt);
    EXPECT_TRUE(ndplat::vxports().empty());
}

TEST_F(VxportTest, AConfiguredPortHidesTheSeedPortOfItsIndexUntilItIsRemoved)
{
    ASSERT_TRUE(ndplat::vxport_set(5, port(2, 10, 0, 10, VxportOrigin::Seed)));
    ASSERT_TRUE(ndplat::vxport_set(6, port(3, 0, 20, 10, VxportOrigin::Seed)));
    ASSERT_TRUE(ndplat::vxport_set(5, port(9, 30, 40, 20)));
    EXPECT_EQ(ndplat::vxport_find(5), port(9, 30, 40, 20));
    EXPECT_EQ(ndplat::vxports(), (std::map<uint32_t, Vxport>{{5, port(9, 30, 40, 20)},
                                                              {6, port(3, 0, 20, 10, VxportOrigin::Seed)}}));
    EXPECT_EQ(ndplat::vxports(VxportOrigin::Seed),
              (std::map<uint32_t, Vxport>{{5, port(2, 10, 0, 10, VxportOrigin::Seed)},
                                          {6, port(3, 0, 20, 10, VxportOrigin::Seed)}}));
    EXPECT_EQ(ndplat::vxports(VxportOrigin::Configured), (std::map<uint32_t, Vxport>{{5, port(9, 30, 40, 20)}}));
    // Removing a configured port that is not there stores nothing and succeeds.
    EXPECT_TRUE(ndplat::vxport_remove(6));
    EXPECT_TRUE(ndplat::vxport_remove(5));
    EXPECT_EQ(ndplat::vxport_find(5), port(2, 10, 0, 10, VxportOrigin::Seed));
    Info i = info_of(5);
    EXPECT_EQ(i.portId, 2);
    EXPECT_EQ(i.svlan, 10);
    EXPECT_EQ(i.cvlan, 0);
}

TEST_F(VxportTest, RemoveAllTakesOneOriginOfOneInstanceOrOfAll)
{
    ASSERT_TRUE(ndplat::vxport_set(1, port(1, 0, 0, 10)));
    ASSERT_TRUE(ndplat::vxport_set(2, port(2, 0, 0, 10)));
    ASSERT_TRUE(ndplat::vxport_set(3, port(3, 0, 0, 20)));
    ASSERT_TRUE(ndplat::vxport_set(4, port(4, 0, 0, 10, VxportOrigin::Seed)));
    ASSERT_TRUE(ndplat::vxport_remove_all(VxportOrigin::Configured, 10));
    EXPECT_EQ(ndplat::vxports(), (std::map<uint32_t, Vxport>{{3, port(3, 0, 0, 20)},
                                                              {4, port(4, 0, 0, 10, VxportOrigin::Seed)}}));
    ASSERT_TRUE(ndplat::vxport_remove_all(VxportOrigin::Configured, 0));
    EXPECT_EQ(ndplat::vxports(), (std::map<uint32_t, Vxport>{{4, port(4, 0, 0, 10, VxportOrigin::Seed)}}));
}

#if NDSIM_WITH_SQLITE

// SQLite storage in a state directory of the test's own, removed afterwards.
class VxportSqliteTest : public VxportTest {
protected:
    void SetUp() override
    {
        VxportTest::SetUp();
        dir_ = ndtest::fresh_scratch_dir("ndtest-vxport");
        ndplat::dbm_state_dir_set(dir_);
        ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite));
    }
    std::string dbFile() const { return dir_ + "/" + ndplat::kVxportDb + ".db"; }
    std::string dir_;
};

TEST_F(VxportSqliteTest, TwoViewsSeeEachOthersChanges)
{
    ndplat::VxportTable shell, service;
    std::string error;
    // Reading creates nothing.
    EXPECT_EQ(service.find(1), std::nullopt);
    EXPECT_NE(access(dbFile().c_str(), F_OK), 0);

    ASSERT_TRUE(shell.set(1, port(5, 10, 20, 100), error)) << error;
    EXPECT_EQ(access(dbFile().c_str(), F_OK), 0);
    EXPECT_EQ(service.find(1), port(5, 10, 20, 100));
    ASSERT_TRUE(service.set(2, port(6, 0, 20, 100, VxportOrigin::Seed), error)) << error;
    ASSERT_TRUE(shell.set(1, port(7, 11, 0, 100), error)) << error;
    EXPECT_EQ(shell.all(), (std::map<uint32_t, Vxport>{{1, port(7, 11, 0, 100)},
                                                       {2, port(6, 0, 20, 100, VxportOrigin::Seed)}}));
    EXPECT_EQ(service.all(), shell.all());
    ASSERT_TRUE(service.remove(1, VxportOrigin::Configured, error)) << error;
    EXPECT_EQ(shell.find(1), std::nullopt);
    // The process's own view (VXLAN_GetVxportBasicInfo) follows the others too.
    Info i = info_of(2);
    EXPECT_EQ(i.status, 0);
    EXPECT_EQ(i.portId, 6);
    EXPECT_EQ(i.svlan, 0);
    EXPECT_EQ(i.cvlan, 20);
    ASSERT_TRUE(shell.set(2, port(8, 3, 4, 100, VxportOrigin::Seed), error)) << error;
    EXPECT_EQ(info_of(2).portId, 8);
}

TEST_F(VxportSqliteTest, APortOutlivesItsViewAndTheStorageSwitch)
{
    {
        ndplat::VxportTable first;
        std::string error;
        ASSERT_TRUE(first.set(65535, port(24, 4094, 1, 16777215), error)) << error;
    }
    ndplat::VxportTable later;
    EXPECT_EQ(later.find(65535), port(24, 4094, 1, 16777215));
    // The memory storage is another table; back on SQLite the port is there again.
    ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Memory));
    EXPECT_EQ(ndplat::vxport_find(65535), std::nullopt);
    ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite));
    EXPECT_EQ(ndplat::vxport_find(65535), port(24, 4094, 1, 16777215));
}

TEST_F(VxportSqliteTest, AStoreThatCannotBeOpenedRefusesTheChangeWithSqlitesReason)
{
    ASSERT_EQ(mkdir(dbFile().c_str(), 0700), 0);
    ndplat::VxportTable table;
    std::string error;
    EXPECT_FALSE(table.set(1, port(1, 0, 0, 10), error));
    EXPECT_EQ(error, "unable to open database file (Is a directory)");
    EXPECT_FALSE(ndplat::vxport_set(1, port(1, 0, 0, 10), &error));
    EXPECT_EQ(error, "unable to open database file (Is a directory)");
    EXPECT_EQ(table.find(1), std::nullopt);
}

#endif

} // namespace
