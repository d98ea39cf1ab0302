// The ND snooping commands through the built libnd-cli.so, loaded and started as the shell
// does it, with the typed lines matched by the shell's grammar against its registrations.
#include "../render/payload.h"
#include "cmd_grammar.h"
#include "init_failure.h"
#include "ndplat_ports.h"
#include "snooping_support.h"

namespace {

using namespace ndtest;
using ndplat::CliMode;

class SnoopingLoaded : public PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        plugin_ = std::make_unique<LoadedPlugin>();
        ASSERT_TRUE(plugin_->ok()) << plugin_->error();
        ASSERT_EQ(plugin_->start(), 0u);
    }
    void TearDown() override
    {
        plugin_.reset();
        PlatformTest::TearDown();
    }

    // Types a line in a mode: the shell matches it and calls the handler with its words.
    std::string type(CliMode mode, const std::string &line)
    {
        ndplat::MatchResult m = ndplat::match_line(mode, line);
        EXPECT_EQ(m.status, ndplat::MatchStatus::Ok) << line << ": " << m.message();
        if (m.status != ndplat::MatchStatus::Ok)
            return "<no match>";
        Stdout out;
        run_handler(m.fn, m.argv);
        return out.take();
    }

    std::unique_ptr<LoadedPlugin> plugin_;
};

TEST_F(SnoopingLoaded, GlobalDisableAsksFirst)
{
    ndplat::console_answer(0);
    EXPECT_EQ(type(CliMode::CONF, "no nd snooping enable"), "");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    ndplat::console_answer(1);
    EXPECT_EQ(type(CliMode::CONF, "no nd snooping enable"), "");
    expect_header(only_request(), 3, ND_CLI_OPT_UNDO, 0);
    EXPECT_EQ(ndplat::trace_of("GetConsoleRsp").size(), 2u);
}

TEST_F(SnoopingLoaded, VlanEnableGoesOnAfterAFailedInitialisation)
{
    ndplat::int_env_set(53, 4094);
    fail_next_param_init(18);
    EXPECT_EQ(type(CliMode::VLAN, "nd snooping enable"), "cli param init error 18!\n");
    ndplat::CmfRequest r = only_request();
    EXPECT_EQ(r.cmdCode, 5u);
    expect_item(r, 0, 2, u16_bytes(4094));
}

TEST_F(SnoopingLoaded, OtherHandlersStopSilentlyOnAFailedInitialisation)
{
    fail_next_param_init(18);
    EXPECT_EQ(type(CliMode::CONF, "nd snooping detect retransmit 3 interval 10"), "");
    fail_next_param_init(18);
    EXPECT_EQ(type(CliMode::EN, "show nd snooping statistics"), "nd cli param init failed\n");
    fail_next_param_init(18);
    EXPECT_EQ(type(CliMode::EN, "show nd snooping user-bind static"), "nd cli param init failed\n");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreBreakOutput").empty());
}

TEST_F(SnoopingLoaded, DetectAndTrust)
{
    EXPECT_EQ(type(CliMode::CONF, "nd snooping detect retransmit 32 interval 3600"), "");
    std::vector<uint8_t> map = ndplat::portmap_of({ndplat::port_id("ge0/2"), ndplat::port_id("ge0/3")});
    ndplat::ptr_env_set(19, map.data());
    EXPECT_EQ(type(CliMode::PORT, "nd snooping trust"), "just support one sigle port!!!!\n");
    map = ndplat::portmap_of({ndplat::port_id("ge0/2")});
    ndplat::ptr_env_set(19, map.data());
    EXPECT_EQ(type(CliMode::PORT, "nd snooping trust"), "");
    std::vector<ndplat::CmfRequest> rs = ndplat::cmf_requests();
    ASSERT_EQ(rs.size(), 2u);
    expect_item(rs[0], 0, 7, u16_bytes(32));
    expect_item(rs[0], 1, 8, u16_bytes(3600));
    expect_header(rs[1], 6, ND_CLI_OPT_SET, 2);
    expect_item(rs[1], 0, 3, i32_bytes(2));
    expect_item(rs[1], 1, 1, name40("gigabitethernet0/2"));
}

TEST_F(SnoopingLoaded, StaticUserBindTypedAndReplayed)
{
    const std::string line =
        "nd snooping user-bind static 2001:db8::10 0011.22aa.bbcc vlan 100 interface gigabitethernet0/5";
    EXPECT_EQ(type(CliMode::CONF, line), "");
    ndplat::interactive_set(false);
    EXPECT_EQ(type(CliMode::CONF, line), "");
    EXPECT_EQ(type(CliMode::CONF, "no nd snooping user-bind static"), "");
    std::vector<ndplat::CmfRequest> rs = ndplat::cmf_requests();
    ASSERT_EQ(rs.size(), 3u);
    for (int i = 0; i < 2; ++i) {
        expect_header(rs[i], 11, ND_CLI_OPT_SET, 5);
        expect_item(rs[i], 0, 4, ipv6_bytes("2001:db8::10"));
        expect_item(rs[i], 1, 6, {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc});
        expect_item(rs[i], 2, 2, u32_bytes(100));
        expect_item(rs[i], 4, 1, name40("gigabitethernet0/5"));
    }
    expect_item(rs[0], 3, 3, i32_bytes(5));
    expect_item(rs[1], 3, 3, i32_bytes(0));
    expect_header(rs[2], 11, ND_CLI_OPT_UNDO, 1);
    expect_item(rs[2], 0, 12, std::vector<uint8_t>(16, 0));
}

TEST_F(SnoopingLoaded, PagedDynamicListingAndStatistics)
{
    static constexpr uint8_t mac[6] = {0xde, 0xad, 0xbe, 0xef, 0x00, 0x01};
    std::vector<uint32_t> kinds;
    ndplat::cmf_responder_set([&kinds](const ndplat::CmfRequest &r) {
        ndplat::CmfResponse response;
        uint32_t kind = 0;
        memcpy(&kind, r.items.at(0).bytes.data(), 4);
        kinds.push_back(r.cmdCode == 9 ? 99 : kind);
        Payload p = page_header(0, 1);
        if (r.cmdCode == 9) {
            p.append(snp_record(1, 0, {5}));
            response.items.push_back(ndplat::CmfItem::of(9, p.data(), p.size()));
            return response;
        }
        p.append(ub_entry(kind == 3 ? "fe80::3" : "fe80::4", 7, kind == 3 ? 3 : 4, mac, 1));
        response.items.push_back(ndplat::CmfItem::of(11, p.data(), p.size()));
        return response;
    });
    std::string text = type(CliMode::EN, "show nd snooping user-bind dynamic");
    EXPECT_EQ(kinds, (std::vector<uint32_t>{3, 4}));
    EXPECT_NE(text.find("      fe80::3 "), std::string::npos);
    EXPECT_NE(text.find("dead.beef.0001"), std::string::npos);
    const std::string total = "\n      Total number: 2\n";
    ASSERT_GT(text.size(), total.size());
    EXPECT_EQ(text.substr(text.size() - total.size()), total);
    ndplat::chassis_mode_set(2);
    std::string stats = type(CliMode::EN, "show nd snooping statistics");
    EXPECT_EQ(stats.substr(0, 47), "\n\n      Statistics for member:1 nd snooping:\n\n ");
}

TEST_F(SnoopingLoaded, ClearPrefixForms)
{
    EXPECT_EQ(type(CliMode::EN, "clear nd snooping prefix 2001:db8::/64"), "");
    EXPECT_EQ(type(CliMode::EN, "clear nd snooping prefix"), "");
    std::vector<ndplat::CmfRequest> rs = ndplat::cmf_requests();
    ASSERT_EQ(rs.size(), 2u);
    expect_header(rs[0], 10, ND_CLI_OPT_UNDO, 2);
    expect_item(rs[0], 0, 4, ipv6_bytes("2001:db8::"));
    expect_item(rs[0], 1, 5, {64});
    expect_header(rs[1], 10, ND_CLI_OPT_UNDO, 3);
    expect_item(rs[1], 1, 5, {128});
    expect_item(rs[1], 2, 12, u32_bytes(1));
}

} // namespace
