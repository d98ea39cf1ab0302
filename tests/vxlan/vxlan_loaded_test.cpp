// VXLAN ND, ISSU and diagnose behaviour through libnd-cli.so loaded as the shell loads it:
// handlers are reached only through what start-up registered.
#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "init_failure.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"
#include "ndplat_vxlan.h"
#include "test_support.h"
#include "vxlan_expected_defs.h"

namespace {

using ndtest::LoadedPlugin;

constexpr size_t kNdRows = 46;
constexpr size_t kVxlanRows = 28;
constexpr size_t kTestRows = 4;

std::vector<uint8_t> u32(uint32_t v)
{
    return ndtest::u32_bytes(v);
}

std::vector<uint8_t> vxRecord(const char *host, const char *tunnel, int32_t vxlanId, int32_t tunnelId, uint32_t port)
{
    std::vector<uint8_t> r(124, 0);
    strncpy(reinterpret_cast<char *>(r.data()), host, 47);
    strncpy(reinterpret_cast<char *>(r.data() + 48), tunnel, 47);
    memcpy(r.data() + 96, &vxlanId, 4);
    memcpy(r.data() + 100, &tunnelId, 4);
    memcpy(r.data() + 104, &port, 4);
    const uint8_t mac[6] = {0x00, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e};
    memcpy(r.data() + 116, mac, 6);
    return r;
}

ndplat::CmfResponse reply(uint32_t status, std::vector<ndplat::CmfItem> items)
{
    ndplat::CmfResponse r;
    r.status = status;
    r.items = std::move(items);
    return r;
}

class VxlanLoadedTest : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        ndtest::PlatformTest::SetUp();
        ASSERT_TRUE(plugin_.ok()) << plugin_.error();
        ASSERT_EQ(plugin_.start(), 0u);
        regs_ = ndplat::cmd_registrations();
        ASSERT_EQ(regs_.size(), kNdRows + kVxlanRows + kTestRows);
        ndplat::trace_clear();
    }
    void TearDown() override
    {
        ndplat::vxlan_work_drain();
        ndtest::fail_next_param_init(0);
        ndtest::PlatformTest::TearDown();
    }

    SHELL_CMD_FN vxlanRow(size_t row) const { return regs_[kNdRows + row - 1].fn; }
    SHELL_CMD_FN ndRow(size_t row) const { return regs_[row - 1].fn; }
    SHELL_CMD_FN testRow(size_t row) const { return regs_[kNdRows + kVxlanRows + row - 1].fn; }

    std::string run(SHELL_CMD_FN fn, const std::vector<std::string> &words)
    {
        ndtest::Stdout out;
        ndtest::run_handler(fn, words);
        return out.take();
    }

    LoadedPlugin plugin_;
    std::vector<ndplat::CmdRegistration> regs_;
};

TEST(VxlanLoadedStartUp, CompleteStartUpOrder)
{
    ndplat::reset();
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    ASSERT_EQ(plugin.start(), 0u);

    // The registration calls in the order they were made, runs of one kind folded.
    std::vector<std::pair<std::string, size_t>> runs;
    for (const std::string &line : ndplat::trace()) {
        std::string name = line.substr(0, line.find('('));
        if (name != "CMF_ClientServiceReg" && name != "SHELL_CmdRegByModule" && name != "cmd_register" &&
            name != "SHELL_ConfigScriptReg" && name != "DEBUG_ModuleReg" && name != "notifyRegister")
            continue;
        if (!runs.empty() && runs.back().first == name)
            runs.back().second++;
        else
            runs.emplace_back(name, 1);
    }
    EXPECT_EQ(runs, (std::vector<std::pair<std::string, size_t>>{{"CMF_ClientServiceReg", 1},
                                                                 {"SHELL_CmdRegByModule", kNdRows + kVxlanRows},
                                                                 {"cmd_register", kTestRows},
                                                                 {"SHELL_ConfigScriptReg", 6},
                                                                 {"DEBUG_ModuleReg", 1},
                                                                 {"SHELL_ConfigScriptReg", 1},
                                                                 {"notifyRegister", 1}}));

    auto regs = ndplat::cmd_registrations();
    ASSERT_EQ(regs.size(), kNdRows + kVxlanRows + kTestRows);
    for (size_t i = 0; i < 24; ++i)
        EXPECT_EQ(regs[kNdRows + i].definition, vxlantest::kExpectedCfgDefinitions[i]) << i;
    EXPECT_EQ(regs[kNdRows + 26].definition, vxlantest::kExpectedHostClear);
    EXPECT_EQ(regs[kNdRows + 27].definition, vxlantest::kExpectedHostIssu);
    for (size_t i = 0; i < kTestRows; ++i)
        EXPECT_TRUE(regs[kNdRows + kVxlanRows + i].viaCmdRegister);
    EXPECT_EQ(regs[kNdRows + kVxlanRows].definition, vxlantest::kExpectedTestSyntax[0]);

    struct Script {
        const char *module;
        const char *handler;
        uint32_t section, mode, flags;
    } expected[] = {
        {"NDP", "ndGobleEnableScriptHandler", 27, 1, 32}, {"NDP", "ndGobleScriptHandler", 321, 1, 32},
        {"NDP", "ndIfScriptHandler", 83, 3, 16},          {"NDP", "ndIfScriptHandler", 60, 4, 16},
        {"NDP", "ndPortIfScriptHandler", 93, 5, 16},      {"PROTOCOL_ND", "nd_CliVxlanScriptHandler", 1, 13, 16},
        {"NDP", "ndVlanIfScriptHandler", 8, 2, 16},
    };
    auto scripts = ndplat::script_registrations();
    ASSERT_EQ(scripts.size(), 7u);
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(scripts[i].module, expected[i].module) << i;
        EXPECT_EQ(reinterpret_cast<void *>(scripts[i].fn), plugin.symbol(expected[i].handler)) << i;
        EXPECT_EQ(scripts[i].section, expected[i].section) << i;
        EXPECT_EQ(scripts[i].mode, expected[i].mode) << i;
        EXPECT_EQ(scripts[i].flags, expected[i].flags) << i;
    }
    auto debugs = ndplat::debug_registrations();
    ASSERT_EQ(debugs.size(), 1u);
    EXPECT_EQ(debugs[0].module, "ND");
    EXPECT_EQ(reinterpret_cast<void *>(debugs[0].fn), plugin.symbol("ndCliDebugCtrlProc"));
    ndplat::reset();
}

TEST_F(VxlanLoadedTest, NegatedTimeoutSendsTheDefault)
{
    ndplat::int_env_set(164, 300);
    ndplat::cmf_script(reply(13, {}));
    EXPECT_EQ(run(vxlanRow(2), {"no", "ipv6", "nd", "host", "timeout"}), "");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 19u);
    EXPECT_EQ(requests[0].optKind, 4u);
    ASSERT_EQ(requests[0].items.size(), 2u);
    EXPECT_EQ(requests[0].items[0].type, 15u);
    EXPECT_EQ(requests[0].items[0].bytes, u32(300));
    EXPECT_EQ(requests[0].items[1].type, 14u);
    EXPECT_EQ(requests[0].items[1].bytes, u32(360));
}

TEST_F(VxlanLoadedTest, MemoryShortRefusesSuppression)
{
    ndplat::mem_state_set(1);
    EXPECT_EQ(run(vxlanRow(13), {"ipv6", "nd", "suppression"}),
              "\n% Memory short, Can't configure this command, please try later");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(VxlanLoadedTest, SuppressionTableOverTwoResponses)
{
    auto a = vxRecord("2001:db8::1", "192.0.2.1", 9, 1, 0);
    auto b = vxRecord("2001:db8::2", "192.0.2.1", 9, 2, 0);
    ndplat::cmf_script(reply(0, {ndplat::CmfItem::of(17, a.data(), 124)}));
    ndplat::cmf_script(reply(13, {ndplat::CmfItem::of(17, b.data(), 124), ndplat::CmfItem::u32(20, 0)}));
    std::string text = run(vxlanRow(25), {"show", "ipv6", "nd", "suppression", "vxlan", "9"});
    char expected[1024];
    snprintf(expected, sizeof expected,
             "\n%-10s %-15s %-46s %-20s %-10s\n%-10d %-15s %-46s %-20s %-10d\n%-10d %-15s %-46s %-20s %-10d"
             "\nTotal suppression : 1 ",
             "Vxlan-Id", "MAC-Address", "IP-Address", "Tunnel-IP", "Tunnel-Id", 9, "000a.0b0c.0d0e", "2001:db8::1",
             "192.0.2.1", 1, 9, "000a.0b0c.0d0e", "2001:db8::2", "192.0.2.1", 2);
    EXPECT_EQ(text, expected);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    ASSERT_EQ(requests[1].items.size(), 3u);
    EXPECT_EQ(requests[1].items[1].type, 19u);
    EXPECT_EQ(requests[1].items[1].bytes, a);
    EXPECT_EQ(requests[1].items[2].type, 18u);
    EXPECT_EQ(requests[1].items[2].bytes, u32(1));
}

TEST_F(VxlanLoadedTest, HostTableWithPortColumns)
{
    ndplat::vxport_set(5, {1, ndplat::port_id("ge0/2"), 10, 0});
    auto a = vxRecord("2001:db8::5", "", 9, 0, 5);
    ndplat::cmf_script(reply(13, {ndplat::CmfItem::of(17, a.data(), 124), ndplat::CmfItem::u32(20, 0)}));
    std::string text = run(vxlanRow(26), {"show", "ipv6", "nd", "host", "vxlan"});
    char expected[1024];
    snprintf(expected, sizeof expected, "\n%-10s %-20s %-48s %-20s %s\n%-10d %-20s %-48s %-20s %s\nTotal vxlan host: 1",
             "VXLAN-ID", "MAC-Address", "IP-Address", "INTERFACE", "SVLAN/CVLAN", 9, "000a.0b0c.0d0e", "2001:db8::5",
             "ge0/2", "10/-");
    EXPECT_EQ(text, expected);
}

TEST_F(VxlanLoadedTest, ClearOneHost)
{
    ndplat::cmf_script(reply(13, {}));
    EXPECT_EQ(run(vxlanRow(27), {"clear", "ipv6", "nd", "host", "vxlan", "5", "2001:db8::5"}), "");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 25u);
    EXPECT_EQ(requests[0].optKind, 4u);
    ASSERT_EQ(requests[0].items.size(), 2u);
    EXPECT_EQ(requests[0].items[0].bytes, u32(5));
    std::vector<uint8_t> address(16);
    inet_pton(AF_INET6, "2001:db8::5", address.data());
    EXPECT_EQ(requests[0].items[1].type, 4u);
    EXPECT_EQ(requests[0].items[1].bytes, address);
}

TEST_F(VxlanLoadedTest, BackupFailureMessage)
{
    ndplat::cmf_script(reply(29, {}));
    EXPECT_EQ(run(vxlanRow(28), {"ipv6", "nd", "host", "issu", "backup"}), "\nIpv6 nd host has not been backed up!\n");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].items[0].type, 21u);
    EXPECT_EQ(requests[0].items[0].bytes, u32(1));
}

TEST_F(VxlanLoadedTest, SuppressInjectionRunsOnTheWorkTask)
{
    EXPECT_EQ(run(testRow(1), {"nd", "mpos", "suppress", "7", "1", "2001:db8::1", "192.0.2.1", "0011.2233.4455", "3"}),
              "");
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 3u);
    EXPECT_EQ(run(testRow(2),
                  {"no", "nd", "mpos", "suppress", "7", "1", "2001:db8::1", "192.0.2.1", "0011.2233.4455", "3"}),
              "");
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::nd_suppression_host_count(), 0u);
    EXPECT_EQ(ndplat::outstanding_allocations(), 0);
}

TEST_F(VxlanLoadedTest, NbrEntryInjection)
{
    run(testRow(3), {"nd", "mpos", "nbrentry", "1", "7", "12", "1", "0", "2001:db8::1", "192.0.2.1",
                     "0011.2233.4455", "2"});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 2u);
    run(testRow(4), {"no", "nd", "mpos", "nbrentry", "1", "7", "12", "1", "0", "2001:db8::1", "192.0.2.1",
                     "0011.2233.4455", "2"});
    ndplat::vxlan_work_drain();
    EXPECT_EQ(ndplat::nd_remote_nbr_count(), 0u);
}

TEST_F(VxlanLoadedTest, VxlanScriptThroughItsRegistration)
{
    DBM_HANDLE h = nullptr;
    const uint32_t param[7] = {1, 1, 256, 0, 0, 0, 0};
    ASSERT_EQ(DBM_Open("ec_nd", 1, param, 0, 0, &h), 0u);
    uint32_t words[5] = {21, 0, 2 | 8, 0, 100};
    ASSERT_EQ(DBM_SetUniqueBinary(h, "vxlan 21", 8, 0, words, 20, 0), 0);
    DBM_Close(h);
    SHELL_SCRIPT_FN handler = nullptr;
    for (const auto &s : ndplat::script_registrations())
        if (s.module == "PROTOCOL_ND")
            handler = s.fn;
    ASSERT_NE(handler, nullptr);
    ndtest::FdCapture fd;
    EXPECT_EQ(handler(fd.fd(), 0, 21, 0), 0);
    EXPECT_EQ(fd.text(), "\n ipv6 nd suppression\n ipv6 nd suppression missmatch discard\n no ipv6 nd host advertise"
                         "\n ipv6 nd host limited 100\n ipv6 nd host timeout disable");
}

TEST_F(VxlanLoadedTest, IssuStoreExportsAndDiagnoseListing)
{
    auto open = plugin_.fn<int32_t (*)(void)>("nd_DbmLibIssuOpen");
    auto insert = plugin_.fn<int32_t (*)(const void *)>("nd_DbmLibIssuEntryInsert");
    auto save = plugin_.fn<int32_t (*)(const char *, uint32_t, uint32_t, uint32_t)>("nd_DbmLibSaveIssu");
    auto close = plugin_.fn<void (*)(void)>("nd_DbmLibIssuClose");
    auto get = plugin_.fn<void *(*)(void)>("nd_DbmLibIssuEcHandleGet");
    ASSERT_TRUE(open && insert && save && close && get);
    std::vector<uint8_t> e(80, 0);
    inet_pton(AF_INET6, "2001:db8::9", e.data());
    strcpy(reinterpret_cast<char *>(e.data() + 28), "ge0/9");
    uint32_t index = 4, svlan = 5, cvlan = 6;
    memcpy(e.data() + 68, &index, 4);
    memcpy(e.data() + 72, &svlan, 4);
    memcpy(e.data() + 76, &cvlan, 4);
    ASSERT_EQ(open(), 0);
    EXPECT_NE(get(), nullptr);
    EXPECT_EQ(insert(e.data()), 0);
    EXPECT_EQ(save(nullptr, 0, 0, 0), 0);
    close();
    EXPECT_EQ(get(), nullptr);

    // Row 43 of the ND table: show diagnose nd vxlan <id> issu host.
    std::string text = run(ndRow(43), {"show", "diagnose", "nd", "vxlan", "4", "issu", "host"});
    EXPECT_EQ(text, "\nIssu host entry\n  ip: 2001:db8::9\n  index: 4\n    mac: 0000.0000.0000"
                    "\n    ethMac: 0000.0000.0000\n    port: ge0/9\n    svlan: 5\n    cvlan: 6\n"
                    "\nTotal issu host entry: 1");
    EXPECT_EQ(run(ndRow(43), {"show", "diagnose", "nd", "vxlan", "3", "issu", "host"}), "\nTotal issu host entry: 0");
}

TEST_F(VxlanLoadedTest, DiagnoseStatPrintsAndDeletesTheDump)
{
    char dir[] = "/tmp/nd-loaded-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::filesystem::create_directories(std::string(dir) + "/tmp");
    ndplat::files_root_set(dir);
    const std::string dump = std::string(dir) + "/tmp/.nd_diagnose";
    std::ofstream(dump) << "nd statistics\n";
    ndplat::cmf_script(reply(13, {}));
    EXPECT_EQ(run(ndRow(41), {"show", "diagnose", "nd", "stat"}), "\nnd statistics\n");
    EXPECT_FALSE(std::filesystem::exists(dump));
    ndplat::cmf_script(reply(13, {}));
    EXPECT_EQ(run(ndRow(42), {"clear", "diagnose", "nd", "stat"}), "");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].cmdCode, 29u);
    EXPECT_EQ(requests[0].optKind, 0u);
    EXPECT_EQ(requests[1].optKind, 4u);
    for (const auto &r : requests) {
        ASSERT_EQ(r.items.size(), 1u);
        EXPECT_EQ(r.items[0].type, 13u);
        EXPECT_EQ(r.items[0].bytes, u32(4));
    }
    ndplat::files_root_set("");
    std::filesystem::remove_all(dir);
}


// How the VXLAN, ISSU and diagnose handlers answer a request block that could not be
// initialised: the VXLAN and ISSU handlers return the length of the text they printed, the
// diagnose requests the status itself.
constexpr const char *kInitError = "cli param init error 18!";

// Runs a handler with a failing initialisation: what it printed and what it returned.
std::pair<std::string, int32_t> runFailing(SHELL_CMD_FN fn, const std::vector<std::string> &words)
{
    ndtest::fail_next_param_init(18);
    ndtest::Stdout out;
    int32_t result = ndtest::run_handler(fn, words);
    return {out.take(), result};
}

TEST_F(VxlanLoadedTest, InitFailureConfigurationReturnsThePrintedLength)
{
    ndplat::int_env_set(164, 300);
    auto [text, result] = runFailing(vxlanRow(1), {"ipv6", "nd", "host", "timeout", "100"});
    EXPECT_EQ(text, kInitError);
    EXPECT_EQ(result, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(VxlanLoadedTest, InitFailureShowReturnsThePrintedLengthAndLeavesThePagerAlone)
{
    auto [text, result] = runFailing(vxlanRow(26), {"show", "ipv6", "nd", "host", "vxlan"});
    EXPECT_EQ(text, kInitError);
    EXPECT_EQ(result, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreFormatOutput").empty());
}

TEST_F(VxlanLoadedTest, InitFailureClearAndIssuReturnThePrintedLength)
{
    auto [clearText, clearResult] = runFailing(vxlanRow(27), {"clear", "ipv6", "nd", "host", "vxlan", "all"});
    EXPECT_EQ(clearText, kInitError);
    EXPECT_EQ(clearResult, static_cast<int32_t>(strlen(kInitError)));
    auto [issuText, issuResult] = runFailing(vxlanRow(28), {"ipv6", "nd", "host", "issu", "backup"});
    EXPECT_EQ(issuText, kInitError);
    EXPECT_EQ(issuResult, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(VxlanLoadedTest, InitFailureDiagnoseRequestsPrintTheStatusText)
{
    // Row 42 of the ND table: clear diagnose nd stat, whose result is the request's.
    auto [text, result] = runFailing(ndRow(42), {"clear", "diagnose", "nd", "stat"});
    EXPECT_EQ(text, "\nOperation failed.");
    EXPECT_EQ(result, 18);
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

} // namespace
