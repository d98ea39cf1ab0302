// The interface, port, VLAN and super-VLAN lines of the running configuration, and their
// registration at start-up.
#include <string>
#include <vector>

#include "../database/dbm_fixture.h"
#include "../dbm/dbm_cache_scope.h"
#include "nd_cli_internal.h"
#include "script/nd_cli_script_internal.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

Record ifRecord(const char *name, uint32_t flags)
{
    return std::move(Record(72).text(0, name).u32(68, flags));
}

Record vlanRecord(uint16_t vlan)
{
    return std::move(Record(56).u32(0, 0x11111111u).u16(12, vlan).u32(40, 0x22222222u));
}

Record portRecord(uint32_t portId, uint32_t state)
{
    return std::move(Record(56).u32(0, portId).u32(4, 0x33333333u).u32(8, state));
}

std::string portName(int32_t portId)
{
    char name[100] = {};
    portID2FmtString(portId, name);
    return name;
}

class SectionScriptTest : public dbmtest::StorageTest {
protected:
    void TearDown() override
    {
        dbmcache::drop();
        dbmtest::StorageTest::TearDown();
    }
    template <typename Fn> std::string capture(Fn fn, int32_t *result = nullptr)
    {
        ndtest::FdCapture out;
        int32_t r = fn(out.fd());
        if (result)
            *result = r;
        return out.text();
    }
    std::string ifLines(const char *name, int32_t *result = nullptr)
    {
        return capture([name](int fd) { return ndIfScriptHandler(fd, 0, 0, reinterpret_cast<uintptr_t>(name)); },
                       result);
    }
    std::string portLines(int32_t portId, int32_t *result = nullptr)
    {
        return capture([portId](int fd) { return ndPortIfScriptHandler(fd, 0, 0, static_cast<uintptr_t>(portId)); },
                       result);
    }
    std::string vlanLines(uint32_t vlan, int32_t *result = nullptr)
    {
        return capture([vlan](int fd) { return ndVlanIfScriptHandler(fd, 0, vlan, 0); }, result);
    }
    std::string superVlanLines(uint32_t id, int32_t *result = nullptr)
    {
        return capture([id](int fd) { return ND_SuperVlanScriptHandler(fd, id); }, result);
    }
};

TEST_P(SectionScriptTest, InterfaceFlagsThreePrintProxyThenAnyway)
{
    {
        Writer w;
        w.put("nd_nbr_if_vlan-if10", 0, ifRecord("vlan-if10", 3));
        w.put("nd_nbr_if_vlan-if20", 0, ifRecord("vlan-if20", 2));
        w.put("nd_nbr_if_vlan-if30", 0, ifRecord("vlan-if30", 1));
        w.put("nd_nbr_if_vlan-if40", 0, ifRecord("vlan-if40", 0xFFFFFFFC));
    }
    int32_t result = -1;
    EXPECT_EQ(ifLines("vlan-if10", &result), "\n nd proxy enable\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ifLines("vlan-if20"), "\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(ifLines("vlan-if30"), "\n nd proxy enable");
    EXPECT_EQ(ifLines("vlan-if40"), "");
    EXPECT_EQ(ifLines("vlan-if50"), "");
}

TEST_P(SectionScriptTest, InterfaceRecordReadsOneKeyOf72Bytes)
{
    {
        Writer w;
        w.put("nd_nbr_if_vlan-if10", 0, ifRecord("vlan-if10", 1));
    }
    ndplat::trace_clear();
    ifLines("vlan-if10");
    std::vector<std::string> calls;
    for (const std::string &line : ndplat::trace())
        if (line.rfind("DBM_", 0) == 0)
            calls.push_back(line);
    EXPECT_EQ(calls, (std::vector<std::string>{
                         "DBM_Open(\"ec_nd\", 1, {1, 1, 256, 0, 0, 0, 0}, 0, 0, ptr)",
                         "DBM_GetLen(ptr, \"nd_nbr_if_vlan-if10\", 19)",
                         "DBM_GetUniqueBinary(ptr, \"nd_nbr_if_vlan-if10\", 19, 0, ptr, 72)",
                         "DBM_Close(ptr)",
                     }));
}

TEST_P(SectionScriptTest, InterfaceRecordHoldingAnotherNamePrintsNothing)
{
    {
        Writer w;
        w.put("nd_nbr_if_vlan-if10", 0, ifRecord("vlan-if11", 3));
    }
    EXPECT_EQ(ifLines("vlan-if10"), "");
}

TEST_P(SectionScriptTest, PortTrustNeedsTheMatchingPortIdAndAZeroWord)
{
    std::string p1 = portName(1), p2 = portName(2), p3 = portName(3);
    ASSERT_FALSE(p1.empty());
    {
        Writer w;
        w.put(p1, 0, portRecord(1, 0));
        w.put(p2, 0, portRecord(2, 1));
        w.put(p3, 0, portRecord(4, 0));
    }
    int32_t result = -1;
    EXPECT_EQ(portLines(1, &result), "\n nd snooping trust");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(portLines(2), "") << "non-zero word at bytes 8-11";
    EXPECT_EQ(portLines(3), "") << "another port's id";
    EXPECT_EQ(portLines(5), "") << "no record";
}

TEST_P(SectionScriptTest, PortWithAnEmptyNameIsSkippedWithoutALookup)
{
    ndplat::trace_clear();
    EXPECT_EQ(portLines(100000), "");
    EXPECT_EQ(ndplat::trace_of("portID2FmtString"), std::vector<std::string>{"portID2FmtString(100000, ptr)"});
    EXPECT_TRUE(ndplat::trace_of("DBM_GetLen").empty());
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
}

TEST_P(SectionScriptTest, SuperVlanLine)
{
    {
        Writer w;
        w.put("super-vlan 100", 0, vlanRecord(100));
        w.put("super-vlan 200", 0, vlanRecord(201));
    }
    int32_t result = -1;
    EXPECT_EQ(superVlanLines(100, &result), "\n nd local-proxy enable");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(superVlanLines(200), "");
    EXPECT_EQ(superVlanLines(300), "");
    EXPECT_EQ(ndplat::trace_of("DBM_GetUniqueBinary").front(),
              "DBM_GetUniqueBinary(ptr, \"super-vlan 100\", 14, 0, ptr, 56)");
}

TEST_P(SectionScriptTest, SuperVlanIdIsComparedCutTo16Bits)
{
    {
        Writer w;
        w.put("super-vlan 65636", 0, vlanRecord(100)); // 65636 = 0x10064
    }
    EXPECT_EQ(superVlanLines(65636), "\n nd local-proxy enable");
}

TEST_P(SectionScriptTest, VlanLineWithoutADisplayOpensTheDatabaseForEachVlan)
{
    {
        Writer w;
        w.put("vlan 10", 6, vlanRecord(10));
        w.put("vlan 20", 6, vlanRecord(20));
        w.put("vlan 30", 6, vlanRecord(31));
    }
    ndplat::trace_clear();
    int32_t result = -1;
    EXPECT_EQ(vlanLines(10, &result), "\n nd snooping enable");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(vlanLines(20), "\n nd snooping enable");
    EXPECT_EQ(vlanLines(30), "");
    EXPECT_EQ(vlanLines(40), "");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 4u);
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 4u);
    EXPECT_TRUE(ndplat::trace_of("gnl_sem_take").empty()) << "the cache is not involved";
}

TEST_P(SectionScriptTest, VlanLineDuringADisplayIsTheSameAndTheDatabaseIsOpenedOnce)
{
    {
        Writer w;
        for (uint16_t v = 1; v <= 20; ++v)
            if (v % 3 != 0)
                w.put("vlan " + std::to_string(v), 6, vlanRecord(v));
        w.put("vlan 21", 6, vlanRecord(22));
        w.put("super-vlan 5", 0, vlanRecord(5));
    }
    std::string direct;
    for (uint32_t v = 1; v <= 22; ++v)
        direct += vlanLines(v);

    ndplat::trace_clear();
    ndplat::running_cfg_session_set(77);
    std::string cached;
    for (uint32_t v = 1; v <= 22; ++v)
        cached += vlanLines(v);
    EXPECT_EQ(cached, direct);
    std::string expected;
    for (int v = 1; v <= 20; ++v)
        if (v % 3 != 0)
            expected += "\n nd snooping enable";
    EXPECT_EQ(cached, expected);
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("DBM_Proc"), std::vector<std::string>{"DBM_Proc(ptr, 6, ptr, ptr)"});
    EXPECT_EQ(ndplat::trace_of("SHELL_GetRunningCfgProcSessionId").size(), 22u);

    // The end of the display frees the copy; the next display reads the database again.
    EXPECT_EQ(ndCliEvtShellCb(23, 8, 0, 77), 0);
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 0u);
    ndplat::trace_clear();
    EXPECT_EQ(vlanLines(4), "\n nd snooping enable");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 1u);
}

TEST_P(SectionScriptTest, CachedVlanPathResults)
{
    {
        Writer w;
        w.put("vlan 10", 6, vlanRecord(10));
        w.put("vlan 11", 6, vlanRecord(12));
    }
    ndplat::trace_clear();
    ndtest::FdCapture out;
    EXPECT_EQ(ndVlanIfScriptHandlerFromLocalDbm(out.fd(), 0, 10, 0, 5), 20) << "what dprintf returned";
    EXPECT_EQ(ndVlanIfScriptHandlerFromLocalDbm(out.fd(), 0, 11, 0, 5), 12) << "the stored VLAN id";
    EXPECT_EQ(ndVlanIfScriptHandlerFromLocalDbm(out.fd(), 0, 13, 0, 5), 0) << "no record";
    EXPECT_EQ(out.text(), "\n nd snooping enable");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 1u);
}

TEST_P(SectionScriptTest, DisplayWhoseDatabaseCannotBeOpenedPrintsNoVlanLine)
{
    {
        Writer w;
        w.put("vlan 10", 6, vlanRecord(10));
    }
    ndplat::running_cfg_session_set(9);
    ndplat::fault_inject("DBM_Open", 2);
    EXPECT_EQ(vlanLines(10), "");
    EXPECT_EQ(vlanLines(10), "");
    EXPECT_TRUE(ndplat::log_records().empty());
    ndCliEvtShellCb(23, 8, 0, 9);
}

TEST_P(SectionScriptTest, OtherShellEventsKeepTheCache)
{
    {
        Writer w;
        w.put("vlan 10", 6, vlanRecord(10));
    }
    ndplat::running_cfg_session_set(3);
    vlanLines(10);
    EXPECT_EQ(ndCliEvtShellCb(23, 7, 0, 3), 0);
    EXPECT_EQ(ndCliEvtShellCb(22, 8, 0, 3), 0);
    EXPECT_EQ(ndCliEvtShellCb(23, 8, 3, 4), 0) << "the session id is the fourth argument";
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 1u);
    EXPECT_EQ(ndCliEvtShellCb(23, 8, 0, 3), 0);
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 0u);
}

TEST_P(SectionScriptTest, OpenFailuresLogTheirOwnTexts)
{
    ndplat::fault_inject("DBM_Open", 4, 4);
    EXPECT_EQ(ifLines("vlan-if1"), "");
    EXPECT_EQ(portLines(1), "");
    EXPECT_EQ(vlanLines(1), "");
    EXPECT_EQ(superVlanLines(1), "");
    std::vector<ndplat::LogRecord> logs = ndplat::log_records();
    ASSERT_EQ(logs.size(), 4u);
    EXPECT_EQ(logs[0].text, "nd if script handle, open dbm read failed, ret 4");
    EXPECT_EQ(logs[1].text, "nd port if script handle, open dbm read failed, ret 4");
    EXPECT_EQ(logs[2].text, "nd vlan if script handle, open dbm read failed, ret 4");
    EXPECT_EQ(logs[3].text, "supervlan script handle, open dbm read failed, ret 4");
    for (const ndplat::LogRecord &r : logs) {
        EXPECT_EQ(r.module, 296u);
        EXPECT_EQ(r.a2, 0u);
        EXPECT_EQ(r.a3, 8u);
        EXPECT_EQ(r.level, 4u);
    }
    EXPECT_TRUE(ndplat::trace_of("DBM_Close").empty());
}

TEST_P(SectionScriptTest, HandlersReturnWhatTheCloseReturned)
{
    ndplat::fault_inject("DBM_Close", 6);
    int32_t result = 0;
    ifLines("vlan-if1", &result);
    EXPECT_EQ(result, 6);
    // The injected close did not release the handle; the platform's reset collects it.
    ndplat::reset();
    ndplat::dbm_storage_set(GetParam());
}

TEST_P(SectionScriptTest, ReadersIgnoreNullArguments)
{
    NdCliScriptCtx ctx = ndcli::scriptCtx(1, 0, 0, 0);
    Writer w;
    EXPECT_EQ(ndIfCfgScript(nullptr, &ctx), 0);
    EXPECT_EQ(ndIfCfgScript(w.handle(), nullptr), 0);
    EXPECT_EQ(ndIfCfgScript(w.handle(), &ctx), 0) << "no interface name";
    EXPECT_EQ(ndCliSnpTrustPortScript(nullptr, &ctx), 0);
    EXPECT_EQ(ndCliIfVlanScript(nullptr, &ctx), 0);
    EXPECT_EQ(ndCliIfSuperVlanScript(w.handle(), nullptr), 0);
    EXPECT_TRUE(ndplat::trace_of("DBM_GetLen").empty());
}

INSTANTIATE_TEST_SUITE_P(Storages, SectionScriptTest, ::testing::ValuesIn(dbmtest::storages()), dbmtest::storageName);

class ScriptRegistrationTest : public ndtest::PlatformTest {};

TEST_F(ScriptRegistrationTest, NdHandlersAreRegisteredInOrderAroundTheDebugHook)
{
    EXPECT_EQ(dl_nd_cli_init(), 0u);
    std::vector<ndplat::ScriptRegistration> nd;
    for (const ndplat::ScriptRegistration &r : ndplat::script_registrations())
        if (r.module == "NDP")
            nd.push_back(r);
    struct Expected {
        SHELL_SCRIPT_FN fn;
        uint32_t section, mode, flags;
    };
    const Expected expected[] = {
        {ndGobleEnableScriptHandler, 27, 1, 32}, {ndGobleScriptHandler, 321, 1, 32}, {ndIfScriptHandler, 83, 3, 16},
        {ndIfScriptHandler, 60, 4, 16},          {ndPortIfScriptHandler, 93, 5, 16}, {ndVlanIfScriptHandler, 8, 2, 16},
    };
    ASSERT_EQ(nd.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(nd[i].fn, expected[i].fn) << i;
        EXPECT_EQ(nd[i].section, expected[i].section) << i;
        EXPECT_EQ(nd[i].mode, expected[i].mode) << i;
        EXPECT_EQ(nd[i].flags, expected[i].flags) << i;
    }
    // The debug hook stands after the port handler and before the VLAN handler; the event
    // callback comes last.
    std::vector<std::string> order;
    for (const std::string &line : ndplat::trace())
        if (line.rfind("SHELL_ConfigScriptReg(", 0) == 0 || line.rfind("DEBUG_ModuleReg(", 0) == 0 ||
            line.rfind("notifyRegister(", 0) == 0)
            order.push_back(line.substr(0, line.find(',')));
    auto at = [&order](const std::string &prefix) {
        for (size_t i = 0; i < order.size(); ++i)
            if (order[i] == prefix)
                return static_cast<long>(i);
        return -1L;
    };
    long debug = at("DEBUG_ModuleReg(\"ND\"");
    ASSERT_GE(debug, 0);
    ASSERT_FALSE(order.empty());
    EXPECT_EQ(order.back().rfind("notifyRegister(", 0), 0u);
    size_t ndpSeen = 0;
    for (size_t i = 0; i < order.size(); ++i) {
        if (order[i] != "SHELL_ConfigScriptReg(\"NDP\"")
            continue;
        ++ndpSeen;
        if (ndpSeen <= 5)
            EXPECT_LT(static_cast<long>(i), debug);
        else
            EXPECT_GT(static_cast<long>(i), debug);
    }
    EXPECT_EQ(ndpSeen, 6u);
}

} // namespace
