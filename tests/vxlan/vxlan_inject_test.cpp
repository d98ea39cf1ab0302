// Hidden test-injection commands: templates, one job per entry on the work task, the ND tables.
#include "vxlan_expected_defs.h"
#include "vxlan_test_util.h"

using namespace vxlantest;

namespace {

// How many entries the large run queues. The MIPS build runs under an emulator, where a
// million entries take several minutes; it runs a tenth of them.
#if defined(__mips__)
constexpr int32_t kLargeCount = 100000;
#else
constexpr int32_t kLargeCount = 1000000;
#endif

std::vector<uint8_t> bytesOf(const uint8_t *p, size_t n)
{
    return std::vector<uint8_t>(p, p + n);
}

uint32_t u32At(const uint8_t *p, size_t off)
{
    uint32_t v;
    memcpy(&v, p + off, 4);
    return v;
}

class VxlanInjectTest : public VxlanTest {};

TEST_F(VxlanInjectTest, RegistersFourSyntaxesWithCmdRegister)
{
    nd_CliVxlanDebugCmdReg();
    auto regs = ndplat::cmd_registrations();
    ASSERT_EQ(regs.size(), 4u);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(regs[i].definition, kExpectedTestSyntax[i]) << i;
    EXPECT_EQ(regs[3].definition, std::string("no(EN, 0, ''){") + kExpectedTestSyntax[2] + "}");
    for (size_t i = 0; i < 4; ++i)
        EXPECT_TRUE(regs[i].viaCmdRegister) << i;
    EXPECT_EQ(regs[0].fn, ndCliVxlanSuppressTest);
    EXPECT_EQ(regs[1].fn, ndCliVxlanSuppressTest);
    EXPECT_EQ(regs[2].fn, ndCliVxlanNbrEntryTest);
    EXPECT_EQ(regs[3].fn, ndCliVxlanNbrEntryTest);
}

TEST_F(VxlanInjectTest, SuppressWithIpv4TunnelQueuesThreeAddJobs)
{
    ndplat::vxlan_work_pause(true);
    ndtest::Stdout out;
    EXPECT_EQ(ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "5000", "7", "2001:db8::1",
                                                           "192.0.2.9", "0011.2233.4455", "3"}),
              0);
    EXPECT_EQ(out.take(), "");
    // The handler only queues; nothing has reached the ND library yet.
    EXPECT_EQ(ndplat::vxlan_work_pending(), 3u);
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 0u);
    EXPECT_EQ(ndplat::trace_of("gnl_wt_add_event_job"),
              std::vector<std::string>(3, "gnl_wt_add_event_job(ptr, 1, fn, ptr)"));
    ndplat::vxlan_work_pause(false);
    ndplat::vxlan_work_drain();

    EXPECT_EQ(ndplat::trace_of("ND_AddSuppressionHost"),
              std::vector<std::string>(3, "ND_AddSuppressionHost(ptr, 1, ptr)"));
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), 3u);
    for (uint32_t i = 0; i < 3; ++i) {
        const uint8_t *r = hosts[i].data();
        EXPECT_EQ(u32At(r, 0), 5000u);
        EXPECT_EQ(u32At(r, 4), 7u);
        std::vector<uint8_t> host = v6("2001:db8::1");
        host[15] = static_cast<uint8_t>(1 + i);
        EXPECT_EQ(bytesOf(r + 8, 16), host) << i;
        EXPECT_EQ(r[24], 2);
        EXPECT_EQ(bytesOf(r + 25, 3), std::vector<uint8_t>(3, 0));
        std::vector<uint8_t> tunnel(16, 0);
        tunnel[0] = 192;
        tunnel[1] = 0;
        tunnel[2] = 2;
        tunnel[3] = 9;
        EXPECT_EQ(bytesOf(r + 28, 16), tunnel);
        EXPECT_EQ(bytesOf(r + 44, 6), (std::vector<uint8_t>{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}));
        EXPECT_EQ(bytesOf(r + 50, 2), std::vector<uint8_t>(2, 0));
    }
    EXPECT_EQ(ndplat::outstanding_allocations(), 0);
}

TEST_F(VxlanInjectTest, LowWordWrapsWithoutCarry)
{
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "1", "0", "2001:db8:1:2:3:4:ffff:ffff",
                                                 "2001:db8::99", "0011.2233.4455", "2"});
    ndplat::vxlan_work_drain();
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), 2u);
    std::vector<std::vector<uint8_t>> addresses;
    for (const auto &h : hosts)
        addresses.push_back(bytesOf(h.data() + 8, 16));
    // Key order puts the wrapped address first.
    EXPECT_EQ(addresses[0], v6("2001:db8:1:2:3:4::"));
    EXPECT_EQ(addresses[1], v6("2001:db8:1:2:3:4:ffff:ffff"));
    EXPECT_EQ(hosts[0][24], 10); // IPv6 tunnel
    EXPECT_EQ(bytesOf(hosts[0].data() + 28, 16), v6("2001:db8::99"));
}

TEST_F(VxlanInjectTest, NoSuppressQueuesDeleteJobs)
{
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "9", "1", "2001:db8::10", "192.0.2.1",
                                                 "0011.2233.4455", "4"});
    ndplat::vxlan_work_drain();
    ASSERT_EQ(ndplat::nd_suppression_host_count(), 4u);
    ndtest::run_handler(ndCliVxlanSuppressTest, {"no", "nd", "mpos", "suppress", "9", "1", "2001:db8::11",
                                                 "192.0.2.1", "0011.2233.4455", "2"});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::trace_of("ND_DelSuppressionHost").size(), 2u);
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(bytesOf(hosts[0].data() + 8, 16), v6("2001:db8::10"));
    EXPECT_EQ(bytesOf(hosts[1].data() + 8, 16), v6("2001:db8::13"));
}

TEST_F(VxlanInjectTest, FirstWordNoIsCaseSensitive)
{
    // "No" is not the negation: parameters are read from word 3, so "nd" is the VXLAN id word.
    ndtest::run_handler(ndCliVxlanSuppressTest, {"No", "nd", "mpos", "suppress", "9", "1", "2001:db8::11",
                                                 "192.0.2.1", "0011.2233.4455"});
    ndplat::vxlan_work_drain();
    EXPECT_TRUE(ndplat::trace_of("ND_DelSuppressionHost").empty());
}

TEST_F(VxlanInjectTest, NbrEntryRecordLayout)
{
    ndtest::run_handler(ndCliVxlanNbrEntryTest, {"nd", "mpos", "nbrentry", "0", "8000", "4100", "65535", "4095",
                                                 "2001:db8::fe", "198.51.100.7", "a0b1.c2d3.e4f5", "2"});
    ndplat::vxlan_work_drain();
    auto nbrs = ndplat::nd_remote_nbrs();
    ASSERT_EQ(nbrs.size(), 2u);
    for (uint32_t i = 0; i < 2; ++i) {
        const uint8_t *r = nbrs[i].data();
        EXPECT_EQ(u32At(r, 0), 0u);
        EXPECT_EQ(u32At(r, 4), 8000u);
        EXPECT_EQ(u32At(r, 8), 4100u);
        EXPECT_EQ(u32At(r, 12), 65535u);
        EXPECT_EQ(u32At(r, 16), 4095u);
        std::vector<uint8_t> nd = v6("2001:db8::fe");
        nd[15] = static_cast<uint8_t>(0xfe + i);
        EXPECT_EQ(bytesOf(r + 20, 16), nd);
        EXPECT_EQ(r[36], 2);
        EXPECT_EQ(bytesOf(r + 37, 3), std::vector<uint8_t>(3, 0));
        EXPECT_EQ(bytesOf(r + 40, 4), (std::vector<uint8_t>{198, 51, 100, 7}));
        EXPECT_EQ(bytesOf(r + 44, 12), std::vector<uint8_t>(12, 0));
        EXPECT_EQ(bytesOf(r + 56, 6), (std::vector<uint8_t>{0xa0, 0xb1, 0xc2, 0xd3, 0xe4, 0xf5}));
        EXPECT_EQ(bytesOf(r + 62, 2), std::vector<uint8_t>(2, 0));
    }
    EXPECT_EQ(ndplat::trace_of("ND_AddRemoteNbr").size(), 2u);
}

TEST_F(VxlanInjectTest, NoNbrEntryOfRemoteVtepsQueuesDeleteJobs)
{
    const std::vector<std::string> params = {"1", "8000", "4100", "3", "0", "2001:db8::1", "2001:db8::ffff",
                                             "a0b1.c2d3.e4f5", "3"};
    std::vector<std::string> add = {"nd", "mpos", "nbrentry"};
    add.insert(add.end(), params.begin(), params.end());
    ndtest::run_handler(ndCliVxlanNbrEntryTest, add);
    ndplat::vxlan_work_drain();
    auto nbrs = ndplat::nd_remote_nbrs();
    ASSERT_EQ(nbrs.size(), 3u);
    EXPECT_EQ(u32At(nbrs[0].data(), 0), 1u); // remote VTEP
    EXPECT_EQ(nbrs[0][36], 10);

    std::vector<std::string> del = {"no", "nd", "mpos", "nbrentry"};
    del.insert(del.end(), params.begin(), params.end());
    ndplat::vxlan_work_pause(true);
    ndtest::run_handler(ndCliVxlanNbrEntryTest, del);
    EXPECT_EQ(ndplat::vxlan_work_pending(), 3u);
    ndplat::vxlan_work_pause(false);
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::trace_of("ND_DelRemoteNbr"), std::vector<std::string>(3, "ND_DelRemoteNbr(ptr, 1, ptr)"));
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 0u);
}

TEST_F(VxlanInjectTest, FailedAllocationIsSkipped)
{
    ndplat::fault_inject("__UMV2L_malloc", 0, 1);
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "1", "0", "2001:db8::1", "192.0.2.1",
                                                 "0011.2233.4455", "3"});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::trace_of("gnl_wt_add_event_job").size(), 2u);
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), 2u);
    EXPECT_EQ(bytesOf(hosts[0].data() + 8, 16), v6("2001:db8::2"));
    EXPECT_EQ(bytesOf(hosts[1].data() + 8, 16), v6("2001:db8::3"));
}

TEST_F(VxlanInjectTest, RefusedJobReleasesItsRecord)
{
    ndplat::fault_inject("gnl_wt_add_event_job", 1, 2);
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "1", "0", "2001:db8::1", "192.0.2.1",
                                                 "0011.2233.4455", "3"});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 1u);
    EXPECT_EQ(ndplat::outstanding_allocations(), 0);
}

TEST_F(VxlanInjectTest, JobsSkipANullRecord)
{
    ndCliVxlanSuppressAddJob(0, 0, nullptr);
    ndCliVxlanSuppressDelJob(0, 0, nullptr);
    ndCliVxlanNbrEntryAddJob(0, 0, nullptr);
    ndCliVxlanNbrEntryDelJob(0, 0, nullptr);
    EXPECT_TRUE(ndplat::trace().empty());
}

TEST_F(VxlanInjectTest, JobHandsItsRecordToTheLibraryAndFreesIt)
{
    uint8_t *rec = static_cast<uint8_t *>(__UMV2L_malloc(52));
    memset(rec, 0, 52);
    rec[3] = 1;
    ndplat::trace_clear();
    ndCliVxlanSuppressAddJob(0, 0, rec);
    EXPECT_EQ(ndplat::trace(), (std::vector<std::string>{"ND_AddSuppressionHost(ptr, 1, ptr)", "__UMV2L_free(ptr)"}));
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 1u);
}

TEST_F(VxlanInjectTest, ZeroCountQueuesNothing)
{
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "1", "0", "2001:db8::1", "192.0.2.1",
                                                 "0011.2233.4455", "0"});
    EXPECT_TRUE(ndplat::trace_of("gnl_wt_add_event_job").empty());
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
}

TEST_F(VxlanInjectTest, LargeCountQueuesAndRunsEveryJob)
{
    const std::string count = std::to_string(kLargeCount);
    ndtest::run_handler(ndCliVxlanSuppressTest, {"nd", "mpos", "suppress", "42", "1", "2001:db8::",
                                                 "192.0.2.1", "0011.2233.4455", count});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::vxlan_work_jobs_run(), static_cast<uint64_t>(kLargeCount));
    EXPECT_EQ(ndplat::nd_suppression_host_count(), static_cast<size_t>(kLargeCount));
    EXPECT_EQ(ndplat::outstanding_allocations(), 0);
    auto hosts = ndplat::nd_suppression_hosts();
    ASSERT_EQ(hosts.size(), static_cast<size_t>(kLargeCount));
    std::vector<uint8_t> last = v6("2001:db8::");
    uint32_t low = static_cast<uint32_t>(kLargeCount - 1);
    last[13] = static_cast<uint8_t>(low >> 16);
    last[14] = static_cast<uint8_t>(low >> 8);
    last[15] = static_cast<uint8_t>(low);
    EXPECT_EQ(bytesOf(hosts.front().data() + 8, 16), v6("2001:db8::"));
    EXPECT_EQ(bytesOf(hosts.back().data() + 8, 16), last);
}

} // namespace
