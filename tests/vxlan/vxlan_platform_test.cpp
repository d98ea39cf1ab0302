// The emulated VXLAN platform: the work task, the ND library tables, port information,
// IPAM_Struct2String, the memory state and the file wrappers.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "vxlan_test_util.h"

using namespace vxlantest;

namespace {

std::vector<int> *gOrder = nullptr;
std::atomic<int> gRunning{0};
std::atomic<bool> gOverlap{false};

void recordJob(uintptr_t a1, uintptr_t a2, void *data)
{
    EXPECT_EQ(a1, 0u);
    EXPECT_EQ(a2, 0u);
    if (gRunning.fetch_add(1) != 0)
        gOverlap = true;
    gOrder->push_back(static_cast<int>(reinterpret_cast<intptr_t>(data)));
    gRunning.fetch_sub(1);
}

void queueMoreJob(uintptr_t, uintptr_t, void *data)
{
    gOrder->push_back(static_cast<int>(reinterpret_cast<intptr_t>(data)));
    if (reinterpret_cast<intptr_t>(data) < 3)
        gnl_wt_add_event_job(nsm_vxlan_interaction_mgmt_get_handle(), 1, queueMoreJob,
                             reinterpret_cast<void *>(reinterpret_cast<intptr_t>(data) + 1));
}

class VxlanPlatformTest : public VxlanTest {
protected:
    void SetUp() override
    {
        VxlanTest::SetUp();
        gOrder = &order;
        gOverlap = false;
    }
    void TearDown() override
    {
        ndplat::vxlan_work_drain();
        gOrder = nullptr;
        VxlanTest::TearDown();
    }
    std::vector<int> order;
};

TEST_F(VxlanPlatformTest, JobsRunOneAtATimeInQueueOrderOnAnotherThread)
{
    void *task = nsm_vxlan_interaction_mgmt_get_handle();
    ASSERT_NE(task, nullptr);
    EXPECT_EQ(task, ndplat::vxlan_work_task());
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(gnl_wt_add_event_job(task, 1, recordJob, reinterpret_cast<void *>(static_cast<intptr_t>(i))), 0);
    ndplat::vxlan_work_drain();
    ASSERT_EQ(order.size(), 500u);
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
    EXPECT_FALSE(gOverlap.load());
    EXPECT_EQ(ndplat::vxlan_work_jobs_run(), 500u);
}

TEST_F(VxlanPlatformTest, DrainWaitsForJobsQueuedByJobs)
{
    gnl_wt_add_event_job(nsm_vxlan_interaction_mgmt_get_handle(), 1, queueMoreJob, reinterpret_cast<void *>(1));
    ndplat::vxlan_work_drain();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(VxlanPlatformTest, ResetRunsWhatIsQueuedAndStopsTheWorker)
{
    ndplat::vxlan_work_pause(true);
    for (int i = 0; i < 3; ++i)
        gnl_wt_add_event_job(ndplat::vxlan_work_task(), 1, recordJob, reinterpret_cast<void *>(static_cast<intptr_t>(i)));
    EXPECT_EQ(ndplat::vxlan_work_pending(), 3u);
    EXPECT_TRUE(order.empty());
    ndplat::reset();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(ndplat::vxlan_work_pending(), 0u);
    // The task starts again with the next job.
    gnl_wt_add_event_job(ndplat::vxlan_work_task(), 1, recordJob, reinterpret_cast<void *>(9));
    ndplat::vxlan_work_drain();
    EXPECT_EQ(order.back(), 9);
}

TEST_F(VxlanPlatformTest, RefusesUnknownTaskOrJobAndInjectedFaults)
{
    int other = 0;
    EXPECT_EQ(gnl_wt_add_event_job(&other, 1, recordJob, nullptr), 1);
    EXPECT_EQ(gnl_wt_add_event_job(ndplat::vxlan_work_task(), 1, nullptr, nullptr), 1);
    ndplat::fault_inject("gnl_wt_add_event_job", 4);
    EXPECT_EQ(gnl_wt_add_event_job(ndplat::vxlan_work_task(), 1, recordJob, nullptr), 4);
    ndplat::fault_inject("nsm_vxlan_interaction_mgmt_get_handle", 0);
    EXPECT_EQ(nsm_vxlan_interaction_mgmt_get_handle(), nullptr);
    ndplat::vxlan_work_drain();
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(ndplat::trace_of("gnl_wt_add_event_job").size(), 3u);
}

TEST_F(VxlanPlatformTest, SuppressionTableAddReplaceDelete)
{
    uint8_t rec[2][52] = {};
    for (int i = 0; i < 2; ++i) {
        uint32_t vxlan = 5;
        memcpy(rec[i], &vxlan, 4);
        rec[i][23] = static_cast<uint8_t>(i + 1);
        rec[i][44] = 0xAA;
    }
    uint32_t out = 99;
    EXPECT_EQ(ND_AddSuppressionHost(rec, 2, &out), 0);
    EXPECT_EQ(out, 2u);
    rec[0][44] = 0xBB; // same key: replaces
    EXPECT_EQ(ND_AddSuppressionHost(rec[0], 1, &out), 0);
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(hosts[0][44], 0xBB);
    EXPECT_EQ(ND_DelSuppressionHost(rec[1], 1, &out), 0);
    EXPECT_EQ(out, 1u);
    EXPECT_EQ(ND_DelSuppressionHost(rec[1], 1, &out), 1); // not there any more
    EXPECT_EQ(out, 0u);
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 1u);
    EXPECT_EQ(ND_AddSuppressionHost(nullptr, 1, &out), 1);
    ndplat::fault_inject("ND_AddRemoteNbr", 3);
    EXPECT_EQ(ND_AddRemoteNbr(rec, 1, &out), 3);
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 0u);
    ndplat::nd_vxlan_tables_clear();
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 0u);
}

TEST_F(VxlanPlatformTest, RemoteNeighboursAreKeyedByTypeVxlanAndAddress)
{
    uint8_t rec[64] = {};
    rec[35] = 1;
    uint32_t out = 0;
    EXPECT_EQ(ND_AddRemoteNbr(rec, 1, &out), 0);
    rec[3] = 1; // remote VTEP: another entry
    EXPECT_EQ(ND_AddRemoteNbr(rec, 1, &out), 0);
    rec[11] = 7; // interface index is not part of the key
    EXPECT_EQ(ND_AddRemoteNbr(rec, 1, &out), 0);
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 2u);
    EXPECT_EQ(ND_DelRemoteNbr(rec, 1, &out), 0);
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 1u);
}

TEST_F(VxlanPlatformTest, PortInformationLayout)
{
    ndplat::vxport_set(77, {1, 1234, 10, 20});
    uint8_t info[1612];
    memset(info, 0xFF, sizeof info);
    EXPECT_EQ(VXLAN_GetVxportBasicInfo(77, info), 0);
    uint16_t kind, svlan, cvlan;
    int32_t port;
    memcpy(&kind, info + 4, 2);
    memcpy(&port, info + 8, 4);
    memcpy(&svlan, info + 12, 2);
    memcpy(&cvlan, info + 14, 2);
    EXPECT_EQ(kind, 1);
    EXPECT_EQ(port, 1234);
    EXPECT_EQ(svlan, 10);
    EXPECT_EQ(cvlan, 20);
    EXPECT_EQ(VXLAN_GetVxportBasicInfo(78, info), 1);
    ndplat::vxport_remove(77);
    EXPECT_EQ(VXLAN_GetVxportBasicInfo(77, info), 1);
    EXPECT_EQ(VXLAN_GetVxportBasicInfo(77, nullptr), 1);
    EXPECT_EQ(ndplat::trace_of("VXLAN_GetVxportBasicInfo").front(), "VXLAN_GetVxportBasicInfo(77, ptr)");
}

TEST_F(VxlanPlatformTest, AddressRecordToText)
{
    uint8_t address[20] = {};
    address[0] = 10;
    address[4] = 0x20;
    address[5] = 0x01;
    address[6] = 0x0d;
    address[7] = 0xb8;
    address[19] = 1;
    char text[40];
    EXPECT_EQ(IPAM_Struct2String(address, text), 0);
    EXPECT_STREQ(text, "2001:db8::1");
    uint8_t v4[20] = {2, 0, 0, 0, 192, 0, 2, 7};
    EXPECT_EQ(IPAM_Struct2String(v4, text), 0);
    EXPECT_STREQ(text, "192.0.2.7");
    uint8_t bad[20] = {99};
    EXPECT_EQ(IPAM_Struct2String(bad, text), 1);
    EXPECT_STREQ(text, "");
}

TEST_F(VxlanPlatformTest, MemoryStateIsSettableAndResets)
{
    EXPECT_EQ(gnl_mem_state(), 0);
    ndplat::mem_state_set(1);
    EXPECT_EQ(gnl_mem_state(), 1);
    ndplat::reset();
    EXPECT_EQ(gnl_mem_state(), 0);
    ndplat::fault_inject("gnl_mem_state", 5);
    EXPECT_EQ(gnl_mem_state(), 5);
}

TEST_F(VxlanPlatformTest, FilesLieBelowTheConfiguredRoot)
{
    char dir[] = "/tmp/nd-files-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::filesystem::create_directories(std::string(dir) + "/tmp");
    ndplat::files_root_set(dir);
    EXPECT_EQ(ndplat::file_path("/tmp/x"), std::string(dir) + "/tmp/x");
    EXPECT_EQ(ndplat::file_path("relative"), "relative");
    std::ofstream(std::string(dir) + "/tmp/x") << "abc\ndef\n";
    FILE *f = __UMV2L_fopen("/tmp/x", "r");
    ASSERT_NE(f, nullptr);
    char line[8];
    ASSERT_NE(__UMV2L_fgets(line, sizeof line, f), nullptr);
    EXPECT_STREQ(line, "abc\n");
    ndplat::fault_inject("__UMV2L_fgets", 0);
    EXPECT_EQ(__UMV2L_fgets(line, sizeof line, f), nullptr);
    ASSERT_NE(__UMV2L_fgets(line, sizeof line, f), nullptr);
    EXPECT_STREQ(line, "def\n");
    EXPECT_EQ(__UMV2L_fgets(line, sizeof line, f), nullptr);
    ndplat::fault_inject("__UMV2L_fclose", -1);
    EXPECT_EQ(__UMV2L_fclose(f), -1);
    ndplat::fault_inject("__UMV2L_unlink", -1);
    EXPECT_EQ(__UMV2L_unlink("/tmp/x"), -1);
    EXPECT_TRUE(std::filesystem::exists(std::string(dir) + "/tmp/x"));
    EXPECT_EQ(__UMV2L_unlink("/tmp/x"), 0);
    EXPECT_FALSE(std::filesystem::exists(std::string(dir) + "/tmp/x"));
    ndplat::fault_inject("__UMV2L_fopen", 0);
    EXPECT_EQ(__UMV2L_fopen("/tmp/x", "w"), nullptr);
    EXPECT_EQ(__UMV2L_fopen("/tmp/missing", "r"), nullptr);
    ndplat::reset();
    EXPECT_EQ(ndplat::file_path("/tmp/x"), "/tmp/x");
    std::filesystem::remove_all(dir);
}

} // namespace
