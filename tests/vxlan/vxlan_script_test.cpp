// Running-configuration lines of a VXLAN instance.
#include "ndplat_dbm.h"
#include "vxlan_test_util.h"

using namespace vxlantest;

namespace {

const uint32_t kParam[7] = {1, 1, 256, 0, 0, 0, 0};

class VxlanScriptTest : public VxlanTest {
protected:
    void store(uint32_t keyId, uint32_t storedId, uint32_t flags, uint32_t timeout, uint32_t limit)
    {
        DBM_HANDLE h = nullptr;
        ASSERT_EQ(DBM_Open("ec_nd", 1, kParam, 0, 0, &h), 0u);
        uint8_t rec[20];
        uint32_t words[5] = {storedId, 0xABCD, flags, timeout, limit};
        memcpy(rec, words, sizeof rec);
        std::string key = "vxlan " + std::to_string(keyId);
        ASSERT_EQ(DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 0, rec, sizeof rec, 0), 0);
        DBM_Close(h);
    }

    std::string script(uint32_t vxlanId, int32_t *result = nullptr)
    {
        ndtest::FdCapture fd;
        int32_t r = nd_CliVxlanScriptHandler(fd.fd(), 0, vxlanId, 0);
        if (result)
            *result = r;
        return fd.text();
    }
};

TEST_F(VxlanScriptTest, DefaultsPrintNothing)
{
    store(10, 10, 1, 360, 20480);
    int32_t r = -1;
    EXPECT_EQ(script(10, &r), "");
    EXPECT_EQ(r, 0);
    EXPECT_EQ(ndplat::dbm_open_handles(), 0);
}

TEST_F(VxlanScriptTest, AdvertiseOffLimitZeroTimeoutDisabled)
{
    store(11, 11, 0, 0, 0);
    EXPECT_EQ(script(11), "\n no ipv6 nd host advertise\n ipv6 nd host limited 0\n ipv6 nd host timeout disable");
}

TEST_F(VxlanScriptTest, EveryLineInItsOrder)
{
    store(12, 12, 2 | 4 | 8, 100, 500);
    EXPECT_EQ(script(12), "\n ipv6 nd suppression"
                          "\n ipv6 nd suppression missmatch discard"
                          "\n ipv6 nd suppression unicast forward"
                          "\n no ipv6 nd host advertise"
                          "\n ipv6 nd host limited 500"
                          "\n ipv6 nd host timeout 100");
}

TEST_F(VxlanScriptTest, SuppressionOnlyWithAdvertise)
{
    store(13, 13, 1 | 2, 360, 20480);
    EXPECT_EQ(script(13), "\n ipv6 nd suppression");
}

TEST_F(VxlanScriptTest, RecordOfAnotherIdPrintsNothing)
{
    store(14, 99, 0, 0, 0);
    int32_t r = -1;
    EXPECT_EQ(script(14, &r), "");
    EXPECT_EQ(r, 0);
}

TEST_F(VxlanScriptTest, MissingRecordPrintsNothing)
{
    int32_t r = -1;
    EXPECT_EQ(script(15, &r), "");
    EXPECT_EQ(r, 0);
    EXPECT_EQ(ndplat::trace_of("DBM_GetLen"), std::vector<std::string>{"DBM_GetLen(ptr, \"vxlan 15\", 8)"});
    EXPECT_TRUE(ndplat::trace_of("DBM_GetUniqueBinary").empty());
}

TEST_F(VxlanScriptTest, OpenFailureReturnsItsStatus)
{
    ndplat::fault_inject("DBM_Open", 2);
    int32_t r = 0;
    EXPECT_EQ(script(16, &r), "");
    EXPECT_EQ(r, 2);
    EXPECT_TRUE(ndplat::trace_of("DBM_Close").empty());
}

TEST_F(VxlanScriptTest, CloseStatusIsReturned)
{
    store(17, 17, 1, 360, 20480);
    ndplat::fault_inject("DBM_Close", 5);
    int32_t r = 0;
    script(17, &r);
    EXPECT_EQ(r, 5);
}

TEST_F(VxlanScriptTest, ScriptRefusesNullArguments)
{
    NdCliScriptCtx ctx = {1, 0, 1, 0, 0, nd_CliFdprintf};
    int dummy = 0;
    EXPECT_EQ(ndCliVxlanScript(nullptr, &ctx), 18u);
    EXPECT_EQ(ndCliVxlanScript(&dummy, nullptr), 18u);
}

TEST_F(VxlanScriptTest, OpensEcNdWithItsParameters)
{
    script(18);
    auto opens = ndplat::trace_of("DBM_Open");
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0], "DBM_Open(\"ec_nd\", 1, {1, 1, 256, 0, 0, 0, 0}, 0, 0, ptr)");
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
}

} // namespace
