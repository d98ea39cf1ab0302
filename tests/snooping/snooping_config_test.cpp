// ND snooping configuration commands: the request each one sends, item by item, and its
// messages.
#include "nd_snooping.h"
#include "ndplat_ports.h"
#include "snooping_support.h"

namespace {

using namespace ndtest;

const char *const kQuestion = "\nIt will delete all configuration of nd snooping, Sure(Yes|No)?";

class SnoopingConfig : public PlatformTest {
protected:
    std::string run(SHELL_CMD_FN fn, const Words &words, int32_t *result = nullptr)
    {
        Stdout out;
        int32_t r = run_handler(fn, words);
        if (result)
            *result = r;
        return out.take();
    }

    // The current interface's port map, as the shell keeps it while in its mode.
    void enterPorts(const std::vector<int32_t> &ids)
    {
        portmap_ = ndplat::portmap_of(ids);
        ndplat::ptr_env_set(ND_SHELL_ENV_PORTMAP, portmap_.data());
    }

    std::vector<uint8_t> portmap_;
};

std::vector<std::string> gQuestions;
int32_t recordQuestion(const char *question)
{
    gQuestions.push_back(question);
    return 0;
}

TEST_F(SnoopingConfig, NoGlobalEnableAnsweredNoSendsNothing)
{
    gQuestions.clear();
    ndplat::ShellHooks hooks = {nullptr, nullptr, nullptr, recordQuestion};
    ndplat::shell_hooks_set(&hooks);
    EXPECT_EQ(run(ndArgProcForGlbSnpEnable, {"no", "nd", "snooping", "enable"}), "");
    ndplat::shell_hooks_set(nullptr);
    EXPECT_EQ(gQuestions, (std::vector<std::string>{kQuestion}));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(SnoopingConfig, NoGlobalEnableAnsweredYesSendsUndoWithoutItems)
{
    ndplat::console_answer(1);
    EXPECT_EQ(run(ndArgProcForGlbSnpEnable, {"no", "nd", "snooping", "enable"}), "");
    EXPECT_EQ(ndplat::trace_of("GetConsoleRsp").size(), 1u);
    ndplat::CmfRequest r = only_request();
    expect_header(r, 3, ND_CLI_OPT_UNDO, 0);
    EXPECT_EQ(r.argIndex, 1u);
}

TEST_F(SnoopingConfig, GlobalEnableAsksNothing)
{
    EXPECT_EQ(run(ndArgProcForGlbSnpEnable, {"nd", "snooping", "enable"}), "");
    EXPECT_TRUE(ndplat::trace_of("GetConsoleRsp").empty());
    expect_header(only_request(), 3, ND_CLI_OPT_SET, 0);
}

TEST_F(SnoopingConfig, LooseAndAttackLogDifferOnlyByKind)
{
    struct Case {
        SHELL_CMD_FN fn;
        Words words;
        uint32_t code, kind;
    };
    std::vector<Case> cases = {
        {ndArgProcForSnpLooseEnable, {"nd", "snooping", "ns-check-loose"}, 4, ND_CLI_OPT_SET},
        {ndArgProcForSnpLooseEnable, {"no", "nd", "snooping", "ns-check-loose"}, 4, ND_CLI_OPT_UNDO},
        {ndCliSnpAttackLogEnable, {"nd", "snooping", "attack-log", "enable"}, 17, ND_CLI_OPT_SET},
        {ndCliSnpAttackLogEnable, {"no", "nd", "snooping", "attack-log", "enable"}, 17, ND_CLI_OPT_UNDO},
    };
    for (const Case &c : cases) {
        ndplat::reset();
        EXPECT_EQ(run(c.fn, c.words), "");
        expect_header(only_request(), c.code, c.kind, 0);
        EXPECT_TRUE(ndplat::trace_of("GetConsoleRsp").empty());
    }
}

TEST_F(SnoopingConfig, ServiceErrorIsPrinted)
{
    ndplat::CmfResponse refused;
    refused.status = 46;
    ndplat::cmf_script(refused);
    int32_t result = 0;
    EXPECT_EQ(run(ndArgProcForSnpLooseEnable, {"nd", "snooping", "ns-check-loose"}, &result),
              "\nThe switch of global snooping is not enable.");
    EXPECT_EQ(result, 46);
}

TEST_F(SnoopingConfig, DetectSendsRetransmitAndIntervalInTwoBytes)
{
    EXPECT_EQ(run(ndArgProcForSnpdetect, {"nd", "snooping", "detect", "retransmit", "32", "interval", "3600"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 7, ND_CLI_OPT_SET, 2);
    expect_item(r, 0, 7, u16_bytes(32));
    expect_item(r, 1, 8, u16_bytes(3600));
    EXPECT_EQ(r.argIndex, 2u);
}

TEST_F(SnoopingConfig, NoDetectSendsNoItems)
{
    EXPECT_EQ(run(ndArgProcForSnpdetect, {"no", "nd", "snooping", "detect"}), "");
    expect_header(only_request(), 7, ND_CLI_OPT_UNDO, 0);
}

TEST_F(SnoopingConfig, VlanEnableSendsTheVlanInTwoBytes)
{
    ndplat::int_env_set(ND_SHELL_ENV_VLAN, 4094);
    EXPECT_EQ(run(ndArgProcForVlanSnpEnable, {"nd", "snooping", "enable"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 5, ND_CLI_OPT_SET, 1);
    expect_item(r, 0, 2, u16_bytes(4094));
    EXPECT_EQ(ndplat::trace_of("mpsh_get_int_env"), (std::vector<std::string>{"mpsh_get_int_env(53)"}));
}

TEST_F(SnoopingConfig, VlanEnableKeepsTheLowSixteenBits)
{
    ndplat::int_env_set(ND_SHELL_ENV_VLAN, 0x12345);
    run(ndArgProcForVlanSnpEnable, {"no", "nd", "snooping", "enable"});
    ndplat::CmfRequest r = only_request();
    expect_header(r, 5, ND_CLI_OPT_UNDO, 1);
    expect_item(r, 0, 2, u16_bytes(0x2345));
}

TEST_F(SnoopingConfig, TrustSendsPortIdAndName)
{
    int32_t port = ndplat::port_id("gigabitethernet0/3");
    ASSERT_GT(port, 0);
    enterPorts({port});
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 6, ND_CLI_OPT_SET, 2);
    expect_item(r, 0, 3, i32_bytes(port));
    expect_item(r, 1, 1, name40("gigabitethernet0/3"));
    EXPECT_EQ(ndplat::trace_of("isPmPortConfigurable"),
              (std::vector<std::string>{"isPmPortConfigurable(" + std::to_string(port) + ", \"NDP\", 0, 1)"}));
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc"),
              (std::vector<std::string>{"__UMV2L_malloc(" + std::to_string(g_max_pbmp_bytes) + ")"}));
}

TEST_F(SnoopingConfig, NoTrustOnAnAggregationSendsTheSameItems)
{
    int32_t lag = ndplat::aggregation_id(2);
    enterPorts({lag});
    EXPECT_EQ(run(ndArgProcForSnptrust, {"no", "nd", "snooping", "trust"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 6, ND_CLI_OPT_UNDO, 2);
    expect_item(r, 0, 3, i32_bytes(lag));
    expect_item(r, 1, 1, name40("link-aggregation2"));
}

TEST_F(SnoopingConfig, TrustOnTwoPortsSendsNothing)
{
    enterPorts({1, 2});
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "just support one sigle port!!!!\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 1u);
}

TEST_F(SnoopingConfig, TrustOnAnEmptyMapSendsNothing)
{
    enterPorts({});
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "port list is empty!!!!!\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("portmap2PortID").empty());
    // A map that the port manager finds without a port says the same.
    enterPorts({4});
    ndplat::fault_inject("portmap2PortID", 0);
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "port list is empty!!!!!\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 2u);
}

TEST_F(SnoopingConfig, TrustWithoutPortMapOrMemoryEndsSilently)
{
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "");
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
    enterPorts({4});
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "");
    EXPECT_TRUE(ndplat::trace_of("portmapCopy").empty());
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(SnoopingConfig, TrustOnARefusedPortPrintsOnlyThePortManagersReason)
{
    enterPorts({6});
    ndplat::port_configurable_set(6, false, "% gigabitethernet0/6 is a routed port.");
    EXPECT_EQ(run(ndArgProcForSnptrust, {"nd", "snooping", "trust"}), "\n% gigabitethernet0/6 is a routed port.\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("portID2FmtString").empty());
}

const Words kStaticUb = {"nd",  "snooping",      "user-bind", "static",    "2001:db8::10",
                         "0011.22aa.bbcc", "vlan", "100", "interface", "gigabitethernet0/5"};

TEST_F(SnoopingConfig, StaticUserBindTypedSendsFiveItemsInOrder)
{
    int32_t port = ndplat::port_id("gigabitethernet0/5");
    EXPECT_EQ(run(ndArgProcForSnpStUb, kStaticUb), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 11, ND_CLI_OPT_SET, 5);
    expect_item(r, 0, 4, ipv6_bytes("2001:db8::10"));
    expect_item(r, 1, 6, {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc});
    expect_item(r, 2, 2, u32_bytes(100));
    expect_item(r, 3, 3, i32_bytes(port));
    expect_item(r, 4, 1, name40("gigabitethernet0/5"));
    EXPECT_EQ(r.argIndex, 5u);
    EXPECT_EQ(ndplat::trace_of("cmdString2Portmap"),
              (std::vector<std::string>{"cmdString2Portmap(\"gigabitethernet0/5\", ptr, " +
                                        std::to_string(g_max_pbmp_bytes) + ")"}));
}

TEST_F(SnoopingConfig, StaticUserBindReplayedSendsTheTextCutTo39)
{
    ndplat::interactive_set(false);
    Words words = kStaticUb;
    words[9] = "gigabitethernet0/5,gigabitethernet0/6,gigabitethernet0/7";
    EXPECT_EQ(run(ndArgProcForSnpStUb, words), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 11, ND_CLI_OPT_SET, 5);
    expect_item(r, 3, 3, i32_bytes(0));
    expect_item(r, 4, 1, name40(words[9].substr(0, 39)));
    EXPECT_EQ(r.items[4].bytes[39], 0);
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
    EXPECT_TRUE(ndplat::trace_of("cmdString2Portmap").empty());
}

TEST_F(SnoopingConfig, StaticUserBindOnSeveralOrNoPorts)
{
    Words words = kStaticUb;
    words[9] = "gigabitethernet0/1-4";
    EXPECT_EQ(run(ndArgProcForSnpStUb, words), "\njust support one sigle port!!!!\n");
    words[9] = "gigabitethernet9/9";
    EXPECT_EQ(run(ndArgProcForSnpStUb, words), "\nport list is empty!!!!!\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 2u);
}

TEST_F(SnoopingConfig, StaticUserBindOnARefusedPortEndsSilently)
{
    int32_t port = ndplat::port_id("gigabitethernet0/5");
    ndplat::port_configurable_set(port, false);
    EXPECT_EQ(run(ndArgProcForSnpStUb, kStaticUb), "\n% gigabitethernet0/5 is not allowed to configure NDP.\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(SnoopingConfig, StaticUserBindWithoutMemoryRecordsButDoesNotPrint)
{
    ndplat::fault_inject("__UMV2L_malloc", 0);
    int32_t result = 0;
    EXPECT_EQ(run(ndArgProcForSnpStUb, kStaticUb, &result), "");
    EXPECT_EQ(result, 25);
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(SnoopingConfig, NoStaticUserBindWithoutAddressSendsTheMarker)
{
    EXPECT_EQ(run(ndArgProcForSnpStUb, {"no", "nd", "snooping", "user-bind", "static"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 11, ND_CLI_OPT_UNDO, 1);
    expect_item(r, 0, 12, std::vector<uint8_t>(16, 0));
}

TEST_F(SnoopingConfig, NoStaticUserBindWithAddressSendsTheAddress)
{
    EXPECT_EQ(run(ndArgProcForSnpStUb, {"no", "nd", "snooping", "user-bind", "static", "fe80::1:2"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 11, ND_CLI_OPT_UNDO, 1);
    expect_item(r, 0, 4, ipv6_bytes("fe80::1:2"));
}

TEST_F(SnoopingConfig, StaticUserBindExistingEntryIsReported)
{
    ndplat::CmfResponse refused;
    refused.status = 34;
    ndplat::cmf_script(refused);
    EXPECT_EQ(run(ndArgProcForSnpStUb, kStaticUb), "\nNd snooping user-bind table data is exist.");
}

} // namespace
