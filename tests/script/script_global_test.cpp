// The global ND lines of the running configuration, from records written into the database.
#include <arpa/inet.h>

#include <string>
#include <vector>

#include "../database/dbm_fixture.h"
#include "script/nd_cli_script_internal.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

// A user-bind entry of the static list: 72 bytes.
Record userBind(const char *address, uint16_t vlan, uint16_t isStatic, const char *ifName,
                std::vector<uint8_t> mac)
{
    Record r(72);
    uint8_t addr[16];
    EXPECT_EQ(inet_pton(AF_INET6, address, addr), 1);
    r.bytes(0, std::vector<uint8_t>(addr, addr + 16)).u32(16, 0x5A5A5A5A).u16(20, vlan).u16(22, isStatic);
    r.text(24, ifName).bytes(64, mac).u16(70, 0x7777);
    return r;
}

// The list is sorted by the address (the first 16 bytes).
constexpr uint32_t kUbSortKey = 16;
const std::string kUbKey = "nd_snp_user_bind";

class GlobalScriptTest : public dbmtest::StorageTest {
protected:
    std::string run(int32_t (*handler)(int32_t, uintptr_t, uintptr_t, uintptr_t), int32_t *result = nullptr)
    {
        ndtest::FdCapture out;
        int32_t r = handler(out.fd(), 11, 22, 33);
        if (result)
            *result = r;
        return out.text();
    }
    std::vector<std::string> bulkReads()
    {
        return ndplat::trace_of("DBM_GetBulkFromSortList");
    }
};

TEST_P(GlobalScriptTest, DefaultSettingsPrintNothing)
{
    int32_t result = -5;
    EXPECT_EQ(run(ndGobleEnableScriptHandler, &result), "");
    EXPECT_EQ(result, 0) << "the result of DBM_Close";
    EXPECT_EQ(run(ndGobleScriptHandler), "");
}

TEST_P(GlobalScriptTest, HandlersOpenReadOnlyAndWalkTheirValueTypesInOrder)
{
    run(ndGobleScriptHandler);
    EXPECT_EQ(ndplat::trace_of("DBM_Open"),
              std::vector<std::string>{"DBM_Open(\"ec_nd\", 1, {1, 1, 256, 0, 0, 0, 0}, 0, 0, ptr)"});
    EXPECT_EQ(ndplat::trace_of("DBM_Proc"), (std::vector<std::string>{
                                                "DBM_Proc(ptr, 0, ptr, ptr)", "DBM_Proc(ptr, 10, ptr, ptr)",
                                                "DBM_Proc(ptr, 2, ptr, ptr)", "DBM_Proc(ptr, 4, ptr, ptr)",
                                                "DBM_Proc(ptr, 9, ptr, ptr)"}));
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
    ndplat::trace_clear();
    run(ndGobleEnableScriptHandler);
    EXPECT_EQ(ndplat::trace_of("DBM_Proc"), std::vector<std::string>{"DBM_Proc(ptr, 3, ptr, ptr)"});
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
}

TEST_P(GlobalScriptTest, FastResponseDisabledPrintsTheNoFormAnyOtherValueNothing)
{
    {
        Writer w;
        w.putU32("nd_fast_response", 0, 0);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "\nno nd fast-response");
    {
        Writer w;
        w.putU32("nd_fast_response", 0, 1);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "");
    {
        Writer w;
        w.putU32("nd_fast_response", 0, 0x100);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "");
}

TEST_P(GlobalScriptTest, ZeroLengthFastResponseRecordPrintsNothing)
{
    {
        Writer w;
        w.put("nd_fast_response", 0, nullptr, 0);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "");
    EXPECT_TRUE(ndplat::trace_of("DBM_GetUniqueBinary").empty()) << "not even read";
}

TEST_P(GlobalScriptTest, FlagsPrintOnlyForTheExactValueOne)
{
    struct Case {
        const char *key;
        uint32_t type;
        int32_t (*handler)(int32_t, uintptr_t, uintptr_t, uintptr_t);
        const char *line;
    };
    const Case cases[] = {
        {"nd_snooping", 3, ndGobleEnableScriptHandler, "\nnd snooping enable"},
        {"nd_snp_ns_check_loose", 10, ndGobleScriptHandler, "\nnd snooping ns-check-loose"},
        {"nd_snp_attack_log", 9, ndGobleScriptHandler, "\nnd snooping attack-log enable"},
    };
    for (const Case &c : cases) {
        for (uint32_t value : {1u, 2u, 0u}) {
            {
                Writer w;
                w.putU32(c.key, c.type, value);
            }
            EXPECT_EQ(run(c.handler), value == 1 ? c.line : "") << c.key << " = " << value;
        }
    }
}

TEST_P(GlobalScriptTest, EverySingleValueIsReadWithExactlyFourBytes)
{
    {
        Writer w;
        // A longer record: only its first 4 bytes count.
        w.put("nd_snooping", 3, Record(12).u32(0, 1).u32(4, 7).u32(8, 9));
    }
    EXPECT_EQ(run(ndGobleEnableScriptHandler), "\nnd snooping enable");
    EXPECT_EQ(ndplat::trace_of("DBM_GetUniqueBinary"),
              std::vector<std::string>{"DBM_GetUniqueBinary(ptr, \"nd_snooping\", 11, 0, ptr, 4)"});
}

TEST_P(GlobalScriptTest, DetectLines)
{
    struct Case {
        uint16_t retransmit, interval;
        const char *line;
    };
    const Case cases[] = {
        {3, 0, "\nnd snooping detect retransmit 3 interval 0"},
        {0, 0, "\nno nd snooping detect"},
        {0, 10, "\nnd snooping detect retransmit 0 interval 10"},
        {5, 60, "\nnd snooping detect retransmit 5 interval 60"},
        {65535, 65535, "\nnd snooping detect retransmit 65535 interval 65535"},
    };
    for (const Case &c : cases) {
        {
            Writer w;
            w.put("nd_snp_detect", 4, Record(4).u16(0, c.retransmit).u16(2, c.interval));
        }
        EXPECT_EQ(run(ndGobleScriptHandler), c.line);
    }
}

TEST_P(GlobalScriptTest, SevenStaticUserBindsAreReadFiveAtATime)
{
    {
        Writer w;
        for (int i = 7; i >= 1; --i) {
            std::string address = "2001:db8::" + std::to_string(i);
            w.listAdd(kUbKey, 2,
                      userBind(address.c_str(), static_cast<uint16_t>(100 + i), 1, ("ge1/" + std::to_string(i)).c_str(),
                               {0x00, 0x1a, 0x2b, 0x3c, 0x4d, static_cast<uint8_t>(0x50 + i)}),
                      kUbSortKey);
        }
    }
    std::string expected;
    for (int i = 1; i <= 7; ++i)
        expected += "\nnd snooping user-bind static 2001:db8::" + std::to_string(i) + " 001a.2b3c.4d5" +
                    std::to_string(i) + " vlan " + std::to_string(100 + i) + " interface ge1/" + std::to_string(i);
    ndplat::trace_clear();
    EXPECT_EQ(run(ndGobleScriptHandler), expected);
    // 5, then 2, then the call that returns 0 and ends the loop.
    EXPECT_EQ(bulkReads(), (std::vector<std::string>{
                               "DBM_GetBulkFromSortList(ptr, \"nd_snp_user_bind\", 16, ptr->null, 0, 0, 5, ptr, 72)",
                               "DBM_GetBulkFromSortList(ptr, \"nd_snp_user_bind\", 16, ptr->ptr, 0, 0, 5, ptr, 72)",
                               "DBM_GetBulkFromSortList(ptr, \"nd_snp_user_bind\", 16, ptr->ptr, 0, 0, 5, ptr, 72)"}));
    EXPECT_EQ(ndplat::trace_of("DBM_FreeIterator"), std::vector<std::string>{"DBM_FreeIterator(ptr)"});
    std::vector<std::string> mallocs = ndplat::trace_of("__UMV2L_malloc");
    EXPECT_EQ(mallocs, std::vector<std::string>{"__UMV2L_malloc(360)"});
}

TEST_P(GlobalScriptTest, FiveUserBindsNeedASecondCallThatReturnsZero)
{
    {
        Writer w;
        for (int i = 1; i <= 5; ++i)
            w.listAdd(kUbKey, 2,
                      userBind(("fe80::" + std::to_string(i)).c_str(), 1, 1, "ge1/1", {0, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}),
                      kUbSortKey);
    }
    ndplat::trace_clear();
    std::string out = run(ndGobleScriptHandler);
    EXPECT_EQ(bulkReads().size(), 2u);
    std::string line = "\nnd snooping user-bind static fe80::1 001a.2b3c.4d5e vlan 1 interface ge1/1";
    EXPECT_EQ(out.substr(0, line.size()), line);
    EXPECT_EQ(out.size(), 5 * line.size());
}

TEST_P(GlobalScriptTest, LearnedBindingsInTheListPrintNothing)
{
    {
        Writer w;
        w.listAdd(kUbKey, 2, userBind("2001:db8::1", 10, 0, "ge1/1", {1, 2, 3, 4, 5, 6}), kUbSortKey);
        w.listAdd(kUbKey, 2, userBind("2001:db8::2", 20, 2, "ge1/2", {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}), kUbSortKey);
        w.listAdd(kUbKey, 2, userBind("2001:db8::3", 30, 0, "ge1/3", {1, 2, 3, 4, 5, 6}), kUbSortKey);
    }
    EXPECT_EQ(run(ndGobleScriptHandler),
              "\nnd snooping user-bind static 2001:db8::2 aabb.ccdd.eeff vlan 20 interface ge1/2");
}

TEST_P(GlobalScriptTest, MacIsPrintedAsThreeGroupsOfFourHexDigits)
{
    {
        Writer w;
        w.listAdd(kUbKey, 2, userBind("::1", 4094, 1, "eth-trunk 12", {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}), kUbSortKey);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "\nnd snooping user-bind static ::1 001a.2b3c.4d5e vlan 4094 interface eth-trunk 12");
}

TEST_P(GlobalScriptTest, GlobalLinesComeInTheOrderOfTheValueTypes)
{
    {
        Writer w;
        w.putU32("z_attack", 9, 1);
        w.put("y_detect", 4, Record(4).u16(0, 2).u16(2, 30));
        w.listAdd(kUbKey, 2, userBind("2001:db8::9", 9, 1, "ge1/9", {0, 0, 0, 0, 0, 9}), kUbSortKey);
        w.putU32("x_loose", 10, 1);
        w.putU32("w_fast", 0, 0);
        w.putU32("v_snp", 3, 1);
    }
    EXPECT_EQ(run(ndGobleScriptHandler), "\nno nd fast-response"
                                         "\nnd snooping ns-check-loose"
                                         "\nnd snooping user-bind static 2001:db8::9 0000.0000.0009 vlan 9 interface ge1/9"
                                         "\nnd snooping detect retransmit 2 interval 30"
                                         "\nnd snooping attack-log enable");
    EXPECT_EQ(run(ndGobleEnableScriptHandler), "\nnd snooping enable");
}

TEST_P(GlobalScriptTest, OpenFailureLogsOnceAndPrintsNothing)
{
    {
        Writer w;
        w.putU32("v_snp", 3, 1);
    }
    ndplat::trace_clear();
    ndplat::fault_inject("DBM_Open", 7);
    EXPECT_EQ(run(ndGobleEnableScriptHandler), "");
    ndplat::fault_inject("DBM_Open", 8);
    EXPECT_EQ(run(ndGobleScriptHandler), "");
    std::vector<ndplat::LogRecord> logs = ndplat::log_records();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].module, 296u);
    EXPECT_EQ(logs[0].a2, 0u);
    EXPECT_EQ(logs[0].a3, 8u);
    EXPECT_EQ(logs[0].level, 4u);
    EXPECT_EQ(logs[0].text, "global enable script handle, open dbm read failed, ret 7");
    EXPECT_EQ(logs[1].text, "global script handle, open dbm read failed, ret 8");
    EXPECT_TRUE(ndplat::trace_of("DBM_Proc").empty());
    EXPECT_TRUE(ndplat::trace_of("DBM_Close").empty());
}

TEST_P(GlobalScriptTest, CallbacksCheckTheirArgumentsAndHonourTheSkipFlag)
{
    Writer w;
    w.putU32("v_snp", 3, 1);
    w.listAdd(kUbKey, 2, userBind("2001:db8::1", 1, 1, "ge1/1", {1, 2, 3, 4, 5, 6}), kUbSortKey);
    ndtest::FdCapture out;
    NdCliScriptCtx ctx = ndcli::scriptCtx(out.fd(), 0, 0, 0);
    DBM_PROC_FN callbacks[] = {ndGlobalCfgScript,        ndGlobalSnpEnCfgScript,   ndGlobalSnpLsCfgScript,
                               ndGlobalUbCfgScript,      ndGlobalSnpDtctCfgScript, ndGlobalSnpAttaLogCfgScript};
    for (DBM_PROC_FN cb : callbacks) {
        EXPECT_EQ(cb(nullptr, "v_snp", 5, &ctx), 17);
        EXPECT_EQ(cb(w.handle(), nullptr, 5, &ctx), 17);
        EXPECT_EQ(cb(w.handle(), "v_snp", 5, nullptr), 17);
    }
    ctx.skip = 1;
    EXPECT_EQ(ndGlobalSnpEnCfgScript(w.handle(), "v_snp", 5, &ctx), 0);
    EXPECT_EQ(ndGlobalUbCfgScript(w.handle(), kUbKey.data(), 16, &ctx), 0);
    ctx.skip = 0;
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(ndGlobalUbCfgScript(w.handle(), kUbKey.data(), 16, &ctx), 25);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(ndGlobalSnpEnCfgScript(w.handle(), "v_snp", 5, &ctx), 0);
    EXPECT_EQ(out.text(), "\nnd snooping enable");
}

INSTANTIATE_TEST_SUITE_P(Storages, GlobalScriptTest, ::testing::ValuesIn(dbmtest::storages()), dbmtest::storageName);

} // namespace
