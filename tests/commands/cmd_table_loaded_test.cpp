// The ND command table, the proxy, fast-response and debug commands and the debug hook,
// through libnd-cli.so loaded and started as the shell does it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmd_rows.h"
#include "nd_platform.h"
#include "test_support.h"

namespace {

using ndplat::CmdRegistration;
using ndplat::CmfRequest;
using ndplat::CmfResponse;
using ndtest::PlatformTest;
using ndtest::Stdout;
using Words = std::vector<std::string>;

CmfResponse failure(uint32_t status)
{
    CmfResponse r;
    r.status = status;
    return r;
}

size_t traceIndex(const std::vector<std::string> &lines, const std::string &name, size_t from = 0)
{
    for (size_t i = from; i < lines.size(); ++i)
        if (lines[i].rfind(name + "(", 0) == 0)
            return i;
    return lines.size();
}

class LoadedTableTest : public PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        ASSERT_TRUE(plugin_.ok()) << plugin_.error();
    }

    void start()
    {
        ASSERT_EQ(plugin_.start(), 0u);
        regs_ = ndplat::cmd_registrations();
        ASSERT_TRUE(ndtest::tableShape(regs_).ok);
    }

    SHELL_CMD_FN handler(int number) const
    {
        const CmdRegistration *r = ndtest::row(regs_, number);
        return r ? r->fn : nullptr;
    }

    DEBUG_CTRL_FN debugHook() const
    {
        for (const ndplat::DebugRegistration &d : ndplat::debug_registrations())
            if (d.module == "ND")
                return d.fn;
        return nullptr;
    }

    ndtest::LoadedPlugin plugin_;
    std::vector<CmdRegistration> regs_;
};

TEST_F(LoadedTableTest, StartRegistersTheNdTableFirst)
{
    start();
    ndtest::TableShape shape = ndtest::tableShape(regs_);
    EXPECT_TRUE(shape.withSnooping);
    EXPECT_TRUE(shape.withDiagnose);
    for (const ndtest::QuotedRow &q : ndtest::quotedRows()) {
        const CmdRegistration *r = ndtest::row(regs_, q.number);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->definition, q.definition) << "row " << q.number;
    }
    for (int n : ndtest::ownRows()) {
        const CmdRegistration *r = ndtest::row(regs_, n);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->flags, 0u) << "row " << n;
        EXPECT_EQ(r->module, 296u) << "row " << n;
        EXPECT_NE(r->fn, nullptr) << "row " << n;
        EXPECT_FALSE(r->viaCmdRegister) << "row " << n;
    }
    // The first registration after the client service is row 1.
    std::vector<std::string> lines = ndplat::trace();
    size_t service = traceIndex(lines, "CMF_ClientServiceReg");
    ASSERT_LT(service, lines.size());
    ASSERT_LT(service + 1, lines.size());
    EXPECT_EQ(lines[service + 1].rfind("SHELL_CmdRegByModule(0, 296, ptr, \"nd(IF|PORTIF,0,", 0), 0u);
}

TEST_F(LoadedTableTest, ImportedHandlersAreRegisteredAsTheyAre)
{
    start();
    EXPECT_EQ(handler(37), nd_MposPublishRegShowCmd);
    EXPECT_EQ(handler(38), nd_MposPublishRegClearCmd);
    EXPECT_EQ(handler(39), nd_MposPublishRegDebugCmd);
    EXPECT_EQ(handler(40), nd_MposPublishRegDebugCmd);
    EXPECT_EQ(handler(44), nd_MlagShowCmd);
    EXPECT_EQ(handler(45), nd_MlagDebugCmd);
    EXPECT_EQ(handler(46), nd_MlagDebugCmd);
}

TEST_F(LoadedTableTest, PairsShareTheirHandler)
{
    start();
    for (auto [a, b] : std::vector<std::pair<int, int>>{{1, 2}, {1, 3}, {1, 4}, {5, 6}, {7, 8}, {9, 10}, {33, 34}, {35, 36}})
        EXPECT_EQ(handler(a), handler(b)) << a << "/" << b;
    for (auto [a, b] : std::vector<std::pair<int, int>>{{1, 5}, {1, 7}, {7, 9}, {32, 33}, {33, 35}})
        EXPECT_NE(handler(a), handler(b)) << a << "/" << b;
}

TEST_F(LoadedTableTest, DebugHookIsRegisteredAfterTheTablesAndBeforeTheEvent)
{
    start();
    std::vector<ndplat::DebugRegistration> debugs = ndplat::debug_registrations();
    ASSERT_EQ(debugs.size(), 1u);
    EXPECT_EQ(debugs[0].module, "ND");
    EXPECT_EQ(reinterpret_cast<void *>(debugs[0].fn), plugin_.symbol("ndCliDebugCtrlProc"));
    EXPECT_NE(debugs[0].fn, nullptr);

    std::vector<std::string> lines = ndplat::trace();
    EXPECT_EQ(ndplat::trace_of("DEBUG_ModuleReg"), (std::vector<std::string>{R"(DEBUG_ModuleReg("ND", ptr))"}));
    size_t debug = traceIndex(lines, "DEBUG_ModuleReg");
    size_t event = traceIndex(lines, "notifyRegister");
    ASSERT_LT(debug, lines.size());
    ASSERT_LT(event, lines.size());
    EXPECT_LT(debug, event);
    // Every command registration precedes the debug hook.
    EXPECT_EQ(traceIndex(lines, "SHELL_CmdRegByModule", debug), lines.size());
    EXPECT_EQ(traceIndex(lines, "cmd_register", debug), lines.size());
    // Once all seven script registrations exist, the hook stands between the sixth and seventh.
    std::vector<std::string> scripts = ndplat::trace_of("SHELL_ConfigScriptReg");
    if (scripts.size() == 7) {
        size_t before = 0;
        for (size_t i = traceIndex(lines, "SHELL_ConfigScriptReg"); i < debug; ++i)
            before += lines[i].rfind("SHELL_ConfigScriptReg(", 0) == 0 ? 1 : 0;
        EXPECT_EQ(before, 6u);
    }
}

TEST_F(LoadedTableTest, FailedServiceRegistrationRegistersNoCommandAndNoHook)
{
    ndplat::fault_inject("CMF_ClientServiceReg", 1);
    EXPECT_EQ(plugin_.start(), 17u);
    EXPECT_TRUE(ndplat::cmd_registrations().empty());
    EXPECT_TRUE(ndplat::debug_registrations().empty());
    EXPECT_TRUE(ndplat::trace_of("DEBUG_ModuleReg").empty());
}

TEST_F(LoadedTableTest, RefusedRegistrationsDoNotStopStartUp)
{
    ndplat::fault_inject("SHELL_CmdRegByModule", 1, 5);
    EXPECT_EQ(plugin_.start(), 0u);
    size_t recorded = 0;
    for (const CmdRegistration &r : ndplat::cmd_registrations())
        recorded += r.viaCmdRegister ? 0 : 1;
    EXPECT_EQ(recorded + 5, ndplat::trace_of("SHELL_CmdRegByModule").size());
    EXPECT_EQ(ndplat::debug_registrations().size(), 1u);
}

struct HandlerCase {
    int row;
    Words words;
    uint32_t code, kind, argIndex;
    std::vector<ndplat::CmfItem> items;
};

TEST_F(LoadedTableTest, EveryOwnHandlerSendsItsRequest)
{
    start();
    ndplat::shell_env_set(1, "Vlan-interface10");
    ndplat::int_env_set(136, 4000);
    const std::string name = "Vlan-interface10";
    const ndplat::CmfItem nameItem = ndplat::CmfItem::of(1, name.c_str(), static_cast<uint32_t>(name.size() + 1));
    const ndplat::CmfItem vlanItem = [] {
        uint16_t v = 4000;
        return ndplat::CmfItem::of(1, &v, sizeof v);
    }();
    const ndplat::CmfItem zero9 = ndplat::CmfItem::u32(9, 0);
    const std::vector<HandlerCase> cases = {
        {1, {"nd", "proxy", "enable"}, 0, 3, 1, {nameItem}},
        {2, {"no", "nd", "proxy", "enable"}, 0, 4, 2, {nameItem}},
        {3, {"ipv6", "nd", "proxy"}, 0, 3, 1, {nameItem}},
        {4, {"no", "ipv6", "nd", "proxy"}, 0, 4, 2, {nameItem}},
        {5, {"ipv6", "nd", "proxy", "anyway", "enable"}, 30, 3, 1, {ndplat::CmfItem::u32(22, 1), nameItem}},
        {6, {"no", "ipv6", "nd", "proxy", "anyway", "enable"}, 30, 4, 2, {ndplat::CmfItem::u32(22, 1), nameItem}},
        {7, {"nd", "local-proxy", "enable"}, 1, 3, 1, {vlanItem}},
        {8, {"no", "nd", "local-proxy", "enable"}, 1, 4, 2, {vlanItem}},
        {9, {"nd", "fast-response"}, 2, 3, 0, {}},
        {10, {"no", "nd", "fast-response"}, 2, 4, 1, {}},
        {32, {"show", "nd", "proxy", "address"}, 18, 0, 1, {zero9}},
        {33, {"show", "nd", "fast-response", "statistics"}, 16, 0, 1, {zero9}},
        {34, {"clear", "nd", "fast-response", "statistics"}, 16, 4, 2, {zero9}},
        {35, {"debug", "nd", "event"}, 14, 3, 1, {ndplat::CmfItem::u32(11, 2)}},
        {36, {"no", "debug", "nd", "all"}, 14, 4, 2, {ndplat::CmfItem::u32(11, 63)}},
    };
    Stdout out;
    for (const HandlerCase &c : cases) {
        SHELL_CMD_FN fn = handler(c.row);
        ASSERT_NE(fn, nullptr) << "row " << c.row;
        size_t before = ndplat::cmf_requests().size();
        EXPECT_EQ(ndtest::run_handler(fn, c.words), 0) << "row " << c.row;
        std::vector<CmfRequest> requests = ndplat::cmf_requests();
        ASSERT_EQ(requests.size(), before + 1) << "row " << c.row;
        const CmfRequest &r = requests.back();
        EXPECT_EQ(r.cmdCode, c.code) << "row " << c.row;
        EXPECT_EQ(r.optKind, c.kind) << "row " << c.row;
        EXPECT_EQ(r.argIndex, c.argIndex) << "row " << c.row;
        EXPECT_EQ(r.itemCount, c.items.size()) << "row " << c.row;
        ASSERT_EQ(r.items.size(), c.items.size()) << "row " << c.row;
        for (size_t i = 0; i < c.items.size(); ++i) {
            EXPECT_EQ(r.items[i].type, c.items[i].type) << "row " << c.row << " item " << i;
            EXPECT_EQ(r.items[i].length, c.items[i].length) << "row " << c.row << " item " << i;
            EXPECT_EQ(r.items[i].bytes, c.items[i].bytes) << "row " << c.row << " item " << i;
        }
    }
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(ndplat::trace_of("shell_nd6_proxy"),
              (std::vector<std::string>{R"(shell_nd6_proxy(3, "nd", "proxy", "enable"))",
                                        R"(shell_nd6_proxy(4, "no", "nd", "proxy", "enable"))",
                                        R"(shell_nd6_proxy(3, "ipv6", "nd", "proxy"))",
                                        R"(shell_nd6_proxy(4, "no", "ipv6", "nd", "proxy"))"}));
}

TEST_F(LoadedTableTest, ProxyErrorIsPrintedAndTheShellStillCalled)
{
    start();
    ndplat::shell_env_set(1, "Vlan-interface10");
    ndplat::cmf_script(failure(49));
    Stdout out;
    ndtest::run_handler(handler(1), {"nd", "proxy", "enable"});
    EXPECT_EQ(out.take(), "\n% Conflict, 'nd suppression' is set!");
    EXPECT_EQ(ndplat::trace_of("shell_nd6_proxy").size(), 1u);
}

TEST_F(LoadedTableTest, MessagesInTheirThreeForms)
{
    start();
    Stdout out;
    ndtest::run_handler(handler(1), {"nd", "proxy", "enable"});
    ndtest::run_handler(handler(5), {"ipv6", "nd", "proxy", "anyway", "enable"});
    ndplat::shell_env_set(1, "gigabitethernet1/0/2.7");
    ndtest::run_handler(handler(6), {"no", "ipv6", "nd", "proxy", "anyway", "enable"});
    ndplat::fault_inject("CMF_ClientRequestSend", 5);
    ndtest::run_handler(handler(10), {"no", "nd", "fast-response"});
    EXPECT_EQ(out.take(), "cli get ifindex error 0!"
                          "\n cli get ifindex error 0!"
                          "\n % Not support!"
                          "\nMemory short, Can't configure this command, please try later.");
    // Only the fast-response request got as far as the send, which failed.
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(ndplat::trace_of("CMF_ClientRequestSend").size(), 1u);
    EXPECT_TRUE(ndplat::trace_of("shell_nd6_proxy").empty());
}

TEST_F(LoadedTableTest, DebugHookThroughTheLoadedLibrary)
{
    start();
    DEBUG_CTRL_FN hook = debugHook();
    ASSERT_NE(hook, nullptr);
    CmfResponse state;
    state.items.push_back(ndplat::CmfItem::u32(14, 63));
    ndplat::cmf_script(CmfResponse{});
    ndplat::cmf_script(CmfResponse{});
    ndplat::cmf_script(state);
    Stdout out;
    hook(1);
    hook(2);
    ndplat::trace_clear();
    hook(3);
    const std::string text = out.take();
    const std::string own = "\nnd debug config is on\nnd debug event is on\nnd debug forward is on"
                            "\nnd debug packet is on\nnd debug error is on\nnd debug serve is on\n";
    EXPECT_EQ(text.substr(0, own.size()), own);

    std::vector<CmfRequest> r = ndplat::cmf_requests();
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(std::make_pair(r[0].optKind, r[0].items.at(0).as_u32()), std::make_pair(3u, 63u));
    EXPECT_EQ(std::make_pair(r[1].optKind, r[1].items.at(0).as_u32()), std::make_pair(4u, 63u));
    EXPECT_EQ(std::make_pair(r[2].optKind, r[2].items.at(0).as_u32()), std::make_pair(0u, 0u));
    EXPECT_EQ(ndplat::trace_of("nd_MposPublishCliDebugCtrl"),
              (std::vector<std::string>{"nd_MposPublishCliDebugCtrl(3)"}));
    EXPECT_EQ(ndplat::trace_of("nd_MlagDbgCtrl"), (std::vector<std::string>{"nd_MlagDbgCtrl(3)"}));
}

TEST_F(LoadedTableTest, DebugHookCodeOneSkipsTheMlagControl)
{
    start();
    DEBUG_CTRL_FN hook = debugHook();
    ASSERT_NE(hook, nullptr);
    ndplat::trace_clear();
    Stdout out;
    hook(1);
    EXPECT_EQ(ndplat::trace_of("nd_MposPublishCliDebugCtrl"),
              (std::vector<std::string>{"nd_MposPublishCliDebugCtrl(1)"}));
    EXPECT_TRUE(ndplat::trace_of("nd_MlagDbgCtrl").empty());
    hook(2);
    EXPECT_EQ(ndplat::trace_of("nd_MlagDbgCtrl"), (std::vector<std::string>{"nd_MlagDbgCtrl(2)"}));
    hook(9);
    EXPECT_EQ(ndplat::cmf_requests().size(), 2u);
}

TEST_F(LoadedTableTest, DebugRendererIsExported)
{
    auto render = plugin_.fn<void (*)(const void *)>("ndCliShowDebugInfo");
    ASSERT_NE(render, nullptr);
    uint32_t mask = 16 | 32;
    Stdout out;
    render(&mask);
    render(nullptr);
    EXPECT_EQ(out.take(), "\nnd debug error is on\nnd debug serve is on\n");
}

TEST_F(LoadedTableTest, DebugRequestsNeverStartTheService)
{
    start();
    ndplat::dcm_state_set(4);
    Stdout out;
    EXPECT_EQ(ndtest::run_handler(handler(35), {"debug", "nd", "all"}), 0);
    debugHook()(1);
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
    EXPECT_EQ(ndplat::cmf_requests().size(), 2u);
}

} // namespace
