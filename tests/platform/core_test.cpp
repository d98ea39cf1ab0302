// The emulated platform's core: call trace, fault injection, allocator, registrations, log,
// shell environment and the message-framework client with its in-process responder.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "nd_cli_types.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfResponse;
using ndtest::PlatformTest;

class PlatformCoreTest : public PlatformTest {};

TEST_F(PlatformCoreTest, EveryCallIsTracedWithItsArguments)
{
    DCM_Query("ipv6");
    DCM_Start(nullptr, 1);
    EXPECT_EQ(ndplat::trace(), (std::vector<std::string>{"DCM_Query(\"ipv6\")", "DCM_Start(null, 1)"}));
    ndplat::trace_clear();
    EXPECT_TRUE(ndplat::trace().empty());
}

TEST_F(PlatformCoreTest, TraceRecordingCanBeTurnedOff)
{
    ndplat::trace_record_set(false);
    DCM_Query("ipv6");
    EXPECT_TRUE(ndplat::trace().empty());
    // Faults still apply while nothing is recorded.
    ndplat::fault_inject("DCM_Query", 9);
    EXPECT_EQ(DCM_Query("ipv6"), 9);
    ndplat::trace_record_set(true);
    DCM_Query("ipv6");
    EXPECT_EQ(ndplat::trace(), (std::vector<std::string>{"DCM_Query(\"ipv6\")"}));
}

TEST_F(PlatformCoreTest, FaultsApplyToTheNextCallsOnly)
{
    ndplat::fault_inject("DCM_Query", 4, 2);
    EXPECT_EQ(DCM_Query("ipv6"), 4);
    EXPECT_EQ(DCM_Query("ipv6"), 4);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
}

TEST_F(PlatformCoreTest, FaultsCanLetCallsThroughFirst)
{
    ndplat::fault_inject("DCM_Query", 0, 1, 2);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
    EXPECT_EQ(DCM_Query("ipv6"), 0);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
}

TEST_F(PlatformCoreTest, FaultTexts)
{
    EXPECT_TRUE(ndplat::fault_parse("DCM_Start=1"));
    EXPECT_EQ(DCM_Start("ipv6", 1), 1);
    EXPECT_EQ(DCM_Start("ipv6", 1), 2);
    EXPECT_TRUE(ndplat::fault_parse("DCM_Query=-1x3"));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(DCM_Query("ipv6"), -1);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
    EXPECT_TRUE(ndplat::fault_parse("DCM_Query=0x10"));
    EXPECT_EQ(DCM_Query("ipv6"), 16);
    for (const char *bad : {"", "DCM_Query", "=1", "DCM_Query=", "DCM_Query=x", "DCM_Query=1x0", "DCM_Query=1x", "A=1y2"})
        EXPECT_FALSE(ndplat::fault_parse(bad)) << bad;
}

TEST_F(PlatformCoreTest, ResetForgetsFaultsAndTrace)
{
    ndplat::fault_inject("DCM_Query", 9, 5);
    DCM_Query("ipv6");
    ndplat::reset();
    EXPECT_TRUE(ndplat::trace().empty());
    EXPECT_EQ(DCM_Query("ipv6"), 2);
}

TEST_F(PlatformCoreTest, AllocatorCountsOutstandingBlocks)
{
    long before = ndplat::outstanding_allocations();
    void *a = __UMV2L_malloc(16);
    void *b = __UMV2L_malloc(0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(ndplat::outstanding_allocations(), before + 2);
    __UMV2L_free(a);
    __UMV2L_free(nullptr);
    EXPECT_EQ(ndplat::outstanding_allocations(), before + 1);
    __UMV2L_free(b);
    EXPECT_EQ(ndplat::outstanding_allocations(), before);
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(__UMV2L_malloc(8), nullptr);
    EXPECT_EQ(ndplat::outstanding_allocations(), before);
}

TEST_F(PlatformCoreTest, Strlcpy)
{
    char buf[5];
    EXPECT_EQ(gnl_strlcpy(buf, "ipv6", sizeof buf), 4u);
    EXPECT_STREQ(buf, "ipv6");
    EXPECT_EQ(gnl_strlcpy(buf, "abcdefgh", sizeof buf), 8u);
    EXPECT_STREQ(buf, "abcd");
    buf[0] = 'x';
    EXPECT_EQ(gnl_strlcpy(buf, "abc", 0), 3u);
    EXPECT_EQ(buf[0], 'x');
}

int32_t recordingHandler(int32_t, char **)
{
    return 0;
}

std::vector<uint32_t> gEvents;
int32_t recordingNotify(uint32_t event, uint32_t subevent, uint32_t, uint32_t arg4)
{
    gEvents.push_back(event);
    gEvents.push_back(subevent);
    gEvents.push_back(arg4);
    return 0;
}

void recordingDebug(uint32_t) {}

TEST_F(PlatformCoreTest, RegistrationsAreRecorded)
{
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, recordingHandler, "nd(CONF,0,'x')"), 0u);
    EXPECT_EQ(cmd_register(recordingHandler, "nd(EN, 0, ''){test(EN, 0, HIDE, '')}"), 0u);
    EXPECT_EQ(SHELL_ConfigScriptReg("NDP", nullptr, 27, 1, 32), 0u);
    EXPECT_EQ(DEBUG_ModuleReg("ND", recordingDebug), 0u);
    EXPECT_EQ(notifyRegister(23, 8, "ND_CLI", 2, 1, recordingNotify, 0), 0);

    auto cmds = ndplat::cmd_registrations();
    ASSERT_EQ(cmds.size(), 2u);
    EXPECT_EQ(cmds[0].module, 296u);
    EXPECT_EQ(cmds[0].definition, "nd(CONF,0,'x')");
    EXPECT_FALSE(cmds[0].viaCmdRegister);
    EXPECT_TRUE(cmds[1].viaCmdRegister);

    // A definition that the command language refuses is still recorded, and the refusal is
    // what the registration returns.
    EXPECT_NE(SHELL_CmdRegByModule(0, 296, recordingHandler, "nd(CONF,0,'x'"), 0u);
    EXPECT_EQ(ndplat::cmd_registrations().size(), 3u);
    auto scripts = ndplat::script_registrations();
    ASSERT_EQ(scripts.size(), 1u);
    EXPECT_EQ(scripts[0].module, "NDP");
    EXPECT_EQ(scripts[0].section, 27u);
    EXPECT_EQ(scripts[0].mode, 1u);
    EXPECT_EQ(scripts[0].flags, 32u);
    ASSERT_EQ(ndplat::debug_registrations().size(), 1u);
    EXPECT_EQ(ndplat::debug_registrations()[0].fn, &recordingDebug);

    gEvents.clear();
    ndplat::notify_raise(23, 7, 0, 1);
    EXPECT_TRUE(gEvents.empty());
    ndplat::notify_raise(23, 8, 0, 42);
    EXPECT_EQ(gEvents, (std::vector<uint32_t>{23, 8, 42}));
}

TEST_F(PlatformCoreTest, LogKeepsFormattedRecords)
{
    EXPECT_EQ(NLOG_Send(296, 0, 8, 4, "vlan %d: %s", 10, "open failed"), 0);
    auto log = ndplat::log_records();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, "vlan 10: open failed");
    EXPECT_EQ(ndplat::trace_of("NLOG_Send"),
              (std::vector<std::string>{"NLOG_Send(296, 0, 8, 4, \"vlan 10: open failed\")"}));
}

TEST_F(PlatformCoreTest, ShellEnvironment)
{
    EXPECT_EQ(SHELL_GetEnv(1), nullptr);
    ndplat::shell_env_set(1, "vlan10");
    EXPECT_STREQ(SHELL_GetEnv(1), "vlan10");
    ndplat::shell_env_set(1, nullptr);
    EXPECT_EQ(SHELL_GetEnv(1), nullptr);

    EXPECT_EQ(mpsh_get_int_env(53), 0);
    ndplat::int_env_set(53, 4094);
    EXPECT_EQ(mpsh_get_int_env(53), 4094);

    int map = 0;
    ndplat::ptr_env_set(19, &map);
    EXPECT_EQ(mpsh_get_env(19), &map);

    EXPECT_EQ(mpsh_in_interaceive_mode(), 1);
    ndplat::interactive_set(false);
    EXPECT_EQ(mpsh_in_interaceive_mode(), 0);
}

TEST_F(PlatformCoreTest, RunningConfigurationSessionBelongsToItsThread)
{
    EXPECT_EQ(SHELL_GetRunningCfgProcSessionId(), 0xFFFFFFFFu);
    ndplat::running_cfg_session_set(7);
    EXPECT_EQ(SHELL_GetRunningCfgProcSessionId(), 7u);
    uint32_t seenByOther = 0;
    std::thread other([&] { seenByOther = SHELL_GetRunningCfgProcSessionId(); });
    other.join();
    EXPECT_EQ(seenByOther, 0xFFFFFFFFu);
    ndplat::running_cfg_session_set(0xFFFFFFFFu);
}

TEST_F(PlatformCoreTest, PagerAndConsoleScripts)
{
    EXPECT_EQ(SHELL_MoreBreakOutput(), 0);
    ndplat::pager_quit_after(2);
    EXPECT_EQ(SHELL_MoreBreakOutput(), 0);
    EXPECT_EQ(SHELL_MoreBreakOutput(), 1);
    EXPECT_EQ(SHELL_MoreBreakOutput(), 1);

    EXPECT_EQ(GetConsoleRsp("Continue?"), 1);
    ndplat::console_answer(0);
    EXPECT_EQ(GetConsoleRsp("Continue?"), 0);
    EXPECT_EQ(GetConsoleRsp("Continue?"), 1);
}

struct HookCounts {
    static int orient;
    static int32_t quit() { return 5; }
    static void countOrient() { ++orient; }
    static int32_t answerNo(const char *) { return 0; }
};
int HookCounts::orient = 0;

TEST_F(PlatformCoreTest, ShellHooksReplaceTheScripts)
{
    static const ndplat::ShellHooks hooks = {HookCounts::countOrient, HookCounts::quit, nullptr, HookCounts::answerNo};
    ndplat::shell_hooks_set(&hooks);
    HookCounts::orient = 0;
    SHELL_MoreOrientOutput();
    EXPECT_EQ(HookCounts::orient, 1);
    EXPECT_EQ(SHELL_MoreBreakOutput(), 5);
    EXPECT_EQ(SHELL_MoreFormatOutput(), 0);
    EXPECT_EQ(GetConsoleRsp("?"), 0);
}

class CmfClientTest : public PlatformTest {
protected:
    CMF_CONTEXT open()
    {
        CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
        EXPECT_NE(ctx, nullptr);
        return ctx;
    }
};

TEST_F(CmfClientTest, ItemsAreCopiedWhenEncoded)
{
    CMF_CONTEXT ctx = open();
    uint32_t value = 0x01020304;
    EXPECT_EQ(CMF_ClientParamEncode(ctx, 11, 4, &value), 0u);
    value = 0;
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_FALSE(requests[0].hasObject);
    ASSERT_EQ(requests[0].items.size(), 1u);
    EXPECT_EQ(requests[0].items[0].as_u32(), 0x01020304u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 13u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, HeaderIsReadFromTheObjectWhenSent)
{
    CMF_CONTEXT ctx = open();
    NdCliParam block;
    memset(&block, 0, sizeof block);
    block.cmdCode = 25;
    block.optKind = 0;
    block.serviceType = 234;
    block.serviceInstance = 1;
    EXPECT_EQ(CMF_ClientContextObjSet(ctx, &block), 0u);
    block.itemCount = 3;
    block.argIndex = 4;
    CMF_ClientRequestSend(ctx);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_TRUE(requests[0].hasObject);
    EXPECT_EQ(requests[0].cmdCode, 25u);
    EXPECT_EQ(requests[0].itemCount, 3u);
    EXPECT_EQ(requests[0].argIndex, 4u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, SeveralRoundsOnOneContext)
{
    ndplat::cmf_script(CmfResponse{0, {CmfItem::u32(17, 1), CmfItem::u32(17, 2)}, 13});
    ndplat::cmf_script(CmfResponse{13, {CmfItem::u32(20, 0)}, 13});
    CMF_CONTEXT ctx = open();

    uint32_t type = 0, length = 0;
    void *value = nullptr;
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 0u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
    void *firstValue = value;
    EXPECT_EQ(type, 17u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 13u);

    uint32_t flag = 1;
    CMF_ClientParamEncode(ctx, 18, 4, &flag);
    EXPECT_EQ(CMF_ClientRequestSend(ctx), 0u);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 13u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
    EXPECT_EQ(type, 20u);
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 13u);

    // Values of earlier responses stay readable until the context closes.
    uint32_t first = 0;
    memcpy(&first, firstValue, 4);
    EXPECT_EQ(first, 1u);

    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_TRUE(requests[0].items.empty());
    ASSERT_EQ(requests[1].items.size(), 1u);
    EXPECT_EQ(requests[1].items[0].type, 18u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, ResponderAnswersWhatIsNotScripted)
{
    ndplat::cmf_responder_set([](const ndplat::CmfRequest &request) {
        return CmfResponse{13, {CmfItem::u32(9, static_cast<uint32_t>(request.items.size()))}, 13};
    });
    ndplat::cmf_script(CmfResponse{46, {}, 13});
    CMF_CONTEXT ctx = open();
    CMF_ClientRequestSend(ctx);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 46u);
    uint32_t v = 0;
    CMF_ClientParamEncode(ctx, 1, 4, &v);
    CMF_ClientParamEncode(ctx, 2, 4, &v);
    CMF_ClientRequestSend(ctx);
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 13u);
    uint32_t type = 0, length = 0;
    void *value = nullptr;
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 0u);
    uint32_t count = 0;
    memcpy(&count, value, 4);
    EXPECT_EQ(count, 2u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, ReceiveWithoutASendFails)
{
    CMF_CONTEXT ctx = open();
    EXPECT_EQ(CMF_ClientResponseRecv(ctx), 1u);
    uint32_t type = 0, length = 0;
    void *value = nullptr;
    EXPECT_EQ(CMF_ClientParamDecode(ctx, &type, &length, &value), 13u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, BadHandlesAreRefused)
{
    int notAContext = 0;
    EXPECT_EQ(CMF_ClientContextTimeoutSet(nullptr, 20), 1u);
    EXPECT_EQ(CMF_ClientRequestSend(&notAContext), 1u);
    EXPECT_EQ(CMF_ClientContextClose(nullptr), 1u);
    EXPECT_EQ(CMF_ClientContextInit(nullptr, 234, 1), nullptr);
    CMF_CONTEXT ctx = open();
    EXPECT_EQ(CMF_ClientParamEncode(ctx, 1, 4, nullptr), 1u);
    EXPECT_EQ(CMF_ClientParamEncode(ctx, 1, 0, nullptr), 0u);
    CMF_ClientContextClose(ctx);
}

TEST_F(CmfClientTest, OpenContextsAreCounted)
{
    CMF_CONTEXT a = open();
    CMF_CONTEXT b = open();
    EXPECT_EQ(ndplat::cmf_open_contexts(), 2);
    CMF_ClientContextClose(a);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 1);
    CMF_ClientContextClose(b);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

} // namespace
