// Proxy, proxy-anyway, local-proxy and fast-response commands: the request each handler
// sends, its messages, and the shell's own proxy handling after every proxy request.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nd_cmd.h"
#include "test_support.h"

namespace {

using ndplat::CmfRequest;
using ndplat::CmfResponse;
using ndtest::PlatformTest;
using ndtest::Stdout;
using ndtest::run_handler;
using Words = std::vector<std::string>;

std::vector<uint8_t> nameBytes(const char *name)
{
    return ndtest::text_bytes(name, strlen(name) + 1);
}

CmfResponse failure(uint32_t status)
{
    CmfResponse r;
    r.status = status;
    return r;
}

class ProxyTest : public PlatformTest {
protected:
    // The single request sent, after asserting that exactly one was.
    static CmfRequest onlyRequest()
    {
        std::vector<CmfRequest> requests = ndplat::cmf_requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? CmfRequest{} : requests[0];
    }

    static void expectHeader(const CmfRequest &r, uint32_t code, uint32_t kind, uint32_t items, uint32_t argIndex)
    {
        EXPECT_EQ(r.service, "ipv6");
        EXPECT_TRUE(r.hasObject);
        EXPECT_EQ(r.cmdCode, code);
        EXPECT_EQ(r.optKind, kind);
        EXPECT_EQ(r.reserved, 0u);
        EXPECT_EQ(r.serviceType, 234u);
        EXPECT_EQ(r.serviceInstance, 1u);
        EXPECT_EQ(r.itemCount, items);
        EXPECT_EQ(r.argIndex, argIndex);
        EXPECT_EQ(r.items.size(), items);
    }

    static void expectItem(const CmfRequest &r, size_t i, uint32_t type, const std::vector<uint8_t> &bytes)
    {
        ASSERT_LT(i, r.items.size());
        EXPECT_EQ(r.items[i].type, type);
        EXPECT_EQ(r.items[i].length, bytes.size());
        EXPECT_EQ(r.items[i].bytes, bytes);
    }

    static std::vector<std::string> proxyCalls() { return ndplat::trace_of("shell_nd6_proxy"); }

    // Index of the first trace line that starts with `name(`, or the trace size.
    static size_t traceIndex(const char *name)
    {
        std::vector<std::string> lines = ndplat::trace();
        std::string prefix = std::string(name) + "(";
        for (size_t i = 0; i < lines.size(); ++i)
            if (lines[i].rfind(prefix, 0) == 0)
                return i;
        return lines.size();
    }
};

// ---- nd proxy enable ---------------------------------------------------------------------------

TEST_F(ProxyTest, ProxyEnableSendsInterfaceNameCountedThenCallsShell)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface10");
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyEnable, {"nd", "proxy", "enable"}), 0);
    EXPECT_EQ(out.take(), "");

    CmfRequest r = onlyRequest();
    expectHeader(r, 0, ND_CLI_OPT_SET, 1, 1);
    expectItem(r, 0, 1, nameBytes("Vlan-interface10"));
    EXPECT_EQ(r.items[0].length, 17u);
    EXPECT_EQ(ndplat::trace_of("SHELL_GetEnv"), (std::vector<std::string>{"SHELL_GetEnv(1)"}));
    EXPECT_EQ(proxyCalls(), (std::vector<std::string>{R"(shell_nd6_proxy(3, "nd", "proxy", "enable"))"}));
    // The shell's part comes after the exchange is over.
    EXPECT_LT(traceIndex("CMF_ClientContextClose"), traceIndex("shell_nd6_proxy"));
}

TEST_F(ProxyTest, NoProxyEnableIsUndoWithIndexPastNo)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "gigabitethernet1/0/1");
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyEnable, {"no", "nd", "proxy", "enable"}), 0);
    EXPECT_EQ(out.take(), "");

    CmfRequest r = onlyRequest();
    expectHeader(r, 0, ND_CLI_OPT_UNDO, 1, 2);
    expectItem(r, 0, 1, nameBytes("gigabitethernet1/0/1"));
    EXPECT_EQ(proxyCalls(),
              (std::vector<std::string>{R"(shell_nd6_proxy(4, "no", "nd", "proxy", "enable"))"}));
}

TEST_F(ProxyTest, HiddenIpv6SpellingsSendTheSameRequest)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface2");
    Stdout out;
    run_handler(ndArgProcForProxyEnable, {"ipv6", "nd", "proxy"});
    run_handler(ndArgProcForProxyEnable, {"no", "ipv6", "nd", "proxy"});
    EXPECT_EQ(out.take(), "");

    std::vector<CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    expectHeader(requests[0], 0, ND_CLI_OPT_SET, 1, 1);
    expectItem(requests[0], 0, 1, nameBytes("Vlan-interface2"));
    expectHeader(requests[1], 0, ND_CLI_OPT_UNDO, 1, 2);
    expectItem(requests[1], 0, 1, nameBytes("Vlan-interface2"));
    EXPECT_EQ(proxyCalls(), (std::vector<std::string>{R"(shell_nd6_proxy(3, "ipv6", "nd", "proxy"))",
                                                      R"(shell_nd6_proxy(4, "no", "ipv6", "nd", "proxy"))"}));
}

TEST_F(ProxyTest, ServiceErrorIsPrintedAndShellStillCalled)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface10");
    ndplat::cmf_script(failure(49));
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyEnable, {"nd", "proxy", "enable"}), 0);
    EXPECT_EQ(out.take(), "\n% Conflict, 'nd suppression' is set!");
    EXPECT_EQ(proxyCalls().size(), 1u);
    EXPECT_LT(traceIndex("CMF_ClientResponseRecv"), traceIndex("shell_nd6_proxy"));
}

TEST_F(ProxyTest, FrameworkFailureIsPrintedAndShellStillCalled)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface10");
    ndplat::fault_inject("CMF_ClientContextInit", 0);
    Stdout out;
    run_handler(ndArgProcForProxyEnable, {"no", "nd", "proxy", "enable"});
    EXPECT_EQ(out.take(), "CMF ClientContextInit error 0!\nOperation failed.");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(proxyCalls(),
              (std::vector<std::string>{R"(shell_nd6_proxy(4, "no", "nd", "proxy", "enable"))"}));
}

TEST_F(ProxyTest, ResultIsTheShellsProxyResult)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface10");
    ndplat::fault_inject("shell_nd6_proxy", 7);
    ndplat::cmf_script(failure(40));
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyEnable, {"nd", "proxy", "enable"}), 7);
    EXPECT_EQ(out.take(), "\nThe interface is enabled.");
}

TEST_F(ProxyTest, ProxyWithoutInterfaceSendsNothing)
{
    Stdout out;
    EXPECT_NE(run_handler(ndArgProcForProxyEnable, {"nd", "proxy", "enable"}), 0);
    EXPECT_EQ(out.take(), "cli get ifindex error 0!");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("CMF_ClientContextInit").empty());
    EXPECT_TRUE(proxyCalls().empty());
}

// ---- ipv6 nd proxy anyway enable --------------------------------------------------------------------

TEST_F(ProxyTest, AnywaySendsSwitchUncountedThenNameCounted)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface30");
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyAnywayEnable, {"ipv6", "nd", "proxy", "anyway", "enable"}), 0);
    EXPECT_EQ(out.take(), "");

    CmfRequest r = onlyRequest();
    expectHeader(r, 30, ND_CLI_OPT_SET, 2, 1);
    expectItem(r, 0, 22, ndtest::u32_bytes(1));
    expectItem(r, 1, 1, nameBytes("Vlan-interface30"));
    EXPECT_TRUE(proxyCalls().empty());
}

TEST_F(ProxyTest, NoAnywaySendsSwitchOneWithUndo)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface30");
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyAnywayEnable, {"no", "ipv6", "nd", "proxy", "anyway", "enable"}), 0);
    EXPECT_EQ(out.take(), "");

    CmfRequest r = onlyRequest();
    expectHeader(r, 30, ND_CLI_OPT_UNDO, 2, 2);
    expectItem(r, 0, 22, ndtest::u32_bytes(1));
    expectItem(r, 1, 1, nameBytes("Vlan-interface30"));
}

TEST_F(ProxyTest, AnywayOnSubInterfaceIsRefusedBeforeTheService)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "gigabitethernet1/0/1.100");
    Stdout out;
    EXPECT_NE(run_handler(ndArgProcForProxyAnywayEnable, {"ipv6", "nd", "proxy", "anyway", "enable"}), 0);
    EXPECT_EQ(out.take(), "\n % Not support!");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("DCM_Query").empty());
    EXPECT_TRUE(ndplat::trace_of("CMF_ClientContextInit").empty());
}

TEST_F(ProxyTest, AnywayWithoutInterface)
{
    Stdout out;
    EXPECT_NE(run_handler(ndArgProcForProxyAnywayEnable, {"no", "ipv6", "nd", "proxy", "anyway", "enable"}), 0);
    EXPECT_EQ(out.take(), "\n cli get ifindex error 0!");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(ProxyTest, AnywayConflictIsPrinted)
{
    ndplat::shell_env_set(ND_SHELL_ENV_IF_NAME, "Vlan-interface30");
    ndplat::cmf_script(failure(48));
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForProxyAnywayEnable, {"ipv6", "nd", "proxy", "anyway", "enable"}), 48);
    EXPECT_EQ(out.take(), "\n% Conflict, 'nd proxy anyway enable' is set!");
    EXPECT_TRUE(proxyCalls().empty());
}

// ---- nd local-proxy enable -------------------------------------------------------------------------

TEST_F(ProxyTest, LocalProxySendsSuperVlanAsSixteenBits)
{
    ndplat::int_env_set(ND_SHELL_ENV_SUPER_VLAN, 4094);
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForLocProxyEnable, {"nd", "local-proxy", "enable"}), 0);
    EXPECT_EQ(out.take(), "");

    CmfRequest r = onlyRequest();
    expectHeader(r, 1, ND_CLI_OPT_SET, 1, 1);
    expectItem(r, 0, 1, ndtest::u16_bytes(4094));
    EXPECT_EQ(ndplat::trace_of("mpsh_get_int_env"), (std::vector<std::string>{"mpsh_get_int_env(136)"}));
}

TEST_F(ProxyTest, NoLocalProxy)
{
    ndplat::int_env_set(ND_SHELL_ENV_SUPER_VLAN, 5);
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForLocProxyEnable, {"no", "nd", "local-proxy", "enable"}), 0);
    CmfRequest r = onlyRequest();
    expectHeader(r, 1, ND_CLI_OPT_UNDO, 1, 2);
    expectItem(r, 0, 1, ndtest::u16_bytes(5));
}

TEST_F(ProxyTest, LocalProxyKeepsLowSixteenBitsOfTheEnvironmentValue)
{
    ndplat::int_env_set(ND_SHELL_ENV_SUPER_VLAN, 0x12345);
    Stdout out;
    run_handler(ndArgProcForLocProxyEnable, {"nd", "local-proxy", "enable"});
    expectItem(onlyRequest(), 0, 1, ndtest::u16_bytes(0x2345));
}

TEST_F(ProxyTest, LocalProxyServiceError)
{
    ndplat::int_env_set(ND_SHELL_ENV_SUPER_VLAN, 7);
    ndplat::cmf_script(failure(37));
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForLocProxyEnable, {"no", "nd", "local-proxy", "enable"}), 37);
    EXPECT_EQ(out.take(), "\nThis super vlan is not enabled.");
}

// ---- nd fast-response --------------------------------------------------------------------------------

TEST_F(ProxyTest, FastResponseHasNoItems)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForFrEnable, {"nd", "fast-response"}), 0);
    EXPECT_EQ(out.take(), "");
    expectHeader(onlyRequest(), 2, ND_CLI_OPT_SET, 0, 0);
    EXPECT_TRUE(ndplat::trace_of("CMF_ClientParamEncode").empty());
}

TEST_F(ProxyTest, NoFastResponse)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForFrEnable, {"no", "nd", "fast-response"}), 0);
    expectHeader(onlyRequest(), 2, ND_CLI_OPT_UNDO, 0, 1);
}

TEST_F(ProxyTest, FastResponseOutOfMemoryOnSend)
{
    ndplat::fault_inject("CMF_ClientRequestSend", 5);
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForFrEnable, {"nd", "fast-response"}), 25);
    EXPECT_EQ(out.take(), "\nMemory short, Can't configure this command, please try later.");
}

TEST_F(ProxyTest, FastResponseStartsAStoppedService)
{
    ndplat::dcm_state_set(0);
    Stdout out;
    EXPECT_EQ(run_handler(ndArgProcForFrEnable, {"nd", "fast-response"}), 0);
    EXPECT_EQ(ndplat::trace_of("DCM_Start"), (std::vector<std::string>{R"(DCM_Start("ipv6", 1))"}));
}

// ---- show / clear nd fast-response statistics, show nd proxy address --------------------------------

TEST_F(ProxyTest, ShowFastResponseStatistics)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndShowNdForwardPktStat, {"show", "nd", "fast-response", "statistics"}), 0);
    EXPECT_EQ(out.take(), "");
    CmfRequest r = onlyRequest();
    expectHeader(r, 16, ND_CLI_OPT_SHOW, 1, 1);
    expectItem(r, 0, 9, ndtest::u32_bytes(0));
}

TEST_F(ProxyTest, ClearFastResponseStatisticsIsUndo)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndShowNdForwardPktStat, {"clear", "nd", "fast-response", "statistics"}), 0);
    CmfRequest r = onlyRequest();
    expectHeader(r, 16, ND_CLI_OPT_UNDO, 1, 2);
    expectItem(r, 0, 9, ndtest::u32_bytes(0));
}

TEST_F(ProxyTest, ShowRequestsNeverStartTheService)
{
    ndplat::dcm_state_set(0);
    Stdout out;
    run_handler(ndShowNdForwardPktStat, {"show", "nd", "fast-response", "statistics"});
    run_handler(ndShowNdForwardPktStat, {"clear", "nd", "fast-response", "statistics"});
    run_handler(ndShowProxyAddr, {"show", "nd", "proxy", "address"});
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
    EXPECT_EQ(ndplat::cmf_requests().size(), 3u);
}

TEST_F(ProxyTest, ShowProxyAddress)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndShowProxyAddr, {"show", "nd", "proxy", "address"}), 0);
    EXPECT_EQ(out.take(), "");
    CmfRequest r = onlyRequest();
    expectHeader(r, 18, ND_CLI_OPT_SHOW, 1, 1);
    expectItem(r, 0, 9, ndtest::u32_bytes(0));
}

TEST_F(ProxyTest, ShowErrorsArePrinted)
{
    Stdout out;
    ndplat::fault_inject("CMF_ClientResponseRecv", 15);
    EXPECT_EQ(run_handler(ndShowProxyAddr, {"show", "nd", "proxy", "address"}), 21);
    ndplat::cmf_script(failure(29));
    EXPECT_EQ(run_handler(ndShowNdForwardPktStat, {"show", "nd", "fast-response", "statistics"}), 29);
    EXPECT_EQ(out.take(), "\nCmf receive response message failed.\nOperate DBM data failed.");
}

TEST_F(ProxyTest, UnknownResponseCodeOfAShowIsReportedNotFailed)
{
    CmfResponse response;
    response.status = 13;
    response.items.push_back(ndplat::CmfItem::u32(10, 0));
    ndplat::cmf_script(response);
    Stdout out;
    EXPECT_EQ(run_handler(ndShowProxyAddr, {"show", "nd", "proxy", "address"}), 0);
    EXPECT_EQ(out.take(), "\ncmf decode, code(10) not support.\n");
}

} // namespace
