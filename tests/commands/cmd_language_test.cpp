// The ND command table as the shell reads it: every definition parses, each command is
// accepted in its modes only, reaches its handler with the words the handler reads, and
// hidden commands are accepted but never offered.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cmd_grammar.h"
#include "cmd_rows.h"
#include "nd_cmd.h"
#include "test_support.h"

namespace {

using ndplat::CliMode;
using ndplat::MatchResult;
using ndplat::MatchStatus;
using ndtest::PlatformTest;
using ndtest::Stdout;
using Words = std::vector<std::string>;

constexpr CliMode kAllModes[] = {CliMode::CONF, CliMode::EN,        CliMode::IF,
                                 CliMode::PORTIF, CliMode::MIF,     CliMode::VLAN,
                                 CliMode::SUPERVLAN, CliMode::PORT, CliMode::LINK_AGGREGATION,
                                 CliMode::VXLAN, CliMode::STD};

class CmdLanguageTest : public PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        ndCmdRegister();
    }

    // Accepted in exactly `modes`, always reaching `fn` with `argv`.
    static void expectCommand(const std::string &line, std::vector<CliMode> modes, SHELL_CMD_FN fn,
                              const Words &argv)
    {
        for (CliMode mode : kAllModes) {
            MatchResult m = ndplat::match_line(mode, line);
            bool wanted = std::find(modes.begin(), modes.end(), mode) != modes.end();
            if (wanted) {
                EXPECT_EQ(m.status, MatchStatus::Ok) << line << " in " << ndplat::cli_mode_name(mode);
                EXPECT_EQ(m.fn, fn) << line << " in " << ndplat::cli_mode_name(mode);
                EXPECT_EQ(m.argv, argv) << line << " in " << ndplat::cli_mode_name(mode);
            } else {
                EXPECT_FALSE(m.status == MatchStatus::Ok && m.fn == fn)
                    << line << " accepted in " << ndplat::cli_mode_name(mode);
            }
        }
    }

    static std::vector<std::string> offered(CliMode mode, const std::string &partial)
    {
        std::vector<std::string> out;
        for (const ndplat::Candidate &c : ndplat::complete_line(mode, partial).candidates)
            out.push_back(c.text);
        return out;
    }

    static bool has(const std::vector<std::string> &v, const std::string &s)
    {
        return std::find(v.begin(), v.end(), s) != v.end();
    }

    // Matches the line and calls the handler with what the shell would pass.
    static int32_t runLine(CliMode mode, const std::string &line)
    {
        MatchResult m = ndplat::match_line(mode, line);
        EXPECT_EQ(m.status, MatchStatus::Ok) << line;
        if (m.status != MatchStatus::Ok || !m.fn)
            return -1;
        return ndtest::run_handler(m.fn, m.argv);
    }
};

TEST_F(CmdLanguageTest, EveryDefinitionOfTheTableParses)
{
    EXPECT_TRUE(ndplat::definition_errors().empty());
    std::vector<ndplat::CmdRegistration> regs = ndplat::cmd_registrations();
    for (int n : ndtest::ownRows()) {
        const ndplat::CmdRegistration *r = ndtest::row(regs, n);
        ASSERT_NE(r, nullptr) << "row " << n;
        ndplat::DefParseResult parsed = ndplat::parse_definition(r->definition);
        EXPECT_TRUE(parsed.ok) << "row " << n << " at " << parsed.errorPosition << ": " << parsed.error;
    }
    EXPECT_EQ(ndplat::registered_commands(), regs.size());
}

TEST_F(CmdLanguageTest, ProxyEnableInInterfaceModes)
{
    expectCommand("nd proxy enable", {CliMode::IF, CliMode::PORTIF}, ndArgProcForProxyEnable,
                  {"nd", "proxy", "enable"});
    expectCommand("no nd proxy enable", {CliMode::IF, CliMode::PORTIF}, ndArgProcForProxyEnable,
                  {"no", "nd", "proxy", "enable"});
}

TEST_F(CmdLanguageTest, HiddenIpv6ProxySpellingAlsoInMif)
{
    expectCommand("ipv6 nd proxy", {CliMode::IF, CliMode::MIF, CliMode::PORTIF}, ndArgProcForProxyEnable,
                  {"ipv6", "nd", "proxy"});
    expectCommand("no ipv6 nd proxy", {CliMode::IF, CliMode::MIF, CliMode::PORTIF}, ndArgProcForProxyEnable,
                  {"no", "ipv6", "nd", "proxy"});
}

TEST_F(CmdLanguageTest, HiddenProxySpellingIsNotOfferedInMif)
{
    EXPECT_FALSE(has(offered(CliMode::MIF, ""), "ipv6"));
    EXPECT_FALSE(has(offered(CliMode::MIF, "no "), "ipv6"));
    EXPECT_FALSE(has(offered(CliMode::MIF, "ipv6 "), "nd"));
}

TEST_F(CmdLanguageTest, ProxyAnyway)
{
    expectCommand("ipv6 nd proxy anyway enable", {CliMode::IF, CliMode::PORTIF}, ndArgProcForProxyAnywayEnable,
                  {"ipv6", "nd", "proxy", "anyway", "enable"});
    expectCommand("no ipv6 nd proxy anyway enable", {CliMode::IF, CliMode::PORTIF},
                  ndArgProcForProxyAnywayEnable, {"no", "ipv6", "nd", "proxy", "anyway", "enable"});
    // The visible row makes the path visible in interface mode.
    EXPECT_TRUE(has(offered(CliMode::IF, "ipv6 nd proxy "), "anyway"));
}

TEST_F(CmdLanguageTest, LocalProxyInSuperVlanMode)
{
    expectCommand("nd local-proxy enable", {CliMode::SUPERVLAN}, ndArgProcForLocProxyEnable,
                  {"nd", "local-proxy", "enable"});
    expectCommand("no nd local-proxy enable", {CliMode::SUPERVLAN}, ndArgProcForLocProxyEnable,
                  {"no", "nd", "local-proxy", "enable"});
}

TEST_F(CmdLanguageTest, FastResponseInGlobalConfiguration)
{
    expectCommand("nd fast-response", {CliMode::CONF}, ndArgProcForFrEnable, {"nd", "fast-response"});
    expectCommand("no nd fast-response", {CliMode::CONF}, ndArgProcForFrEnable, {"no", "nd", "fast-response"});
}

TEST_F(CmdLanguageTest, ShowAndClearInPrivilegedMode)
{
    expectCommand("show nd proxy address", {CliMode::EN}, ndShowProxyAddr, {"show", "nd", "proxy", "address"});
    expectCommand("show nd fast-response statistics", {CliMode::EN}, ndShowNdForwardPktStat,
                  {"show", "nd", "fast-response", "statistics"});
    expectCommand("clear nd fast-response statistics", {CliMode::EN}, ndShowNdForwardPktStat,
                  {"clear", "nd", "fast-response", "statistics"});
}

TEST_F(CmdLanguageTest, AbbreviationsReachTheHandlerInFullSpelling)
{
    expectCommand("sh nd fast st", {CliMode::EN}, ndShowNdForwardPktStat,
                  {"show", "nd", "fast-response", "statistics"});
    expectCommand("show nd prox addr", {CliMode::EN}, ndShowProxyAddr, {"show", "nd", "proxy", "address"});
}

TEST_F(CmdLanguageTest, DebugKeywordsInPrivilegedMode)
{
    for (const char *k : {"config", "event", "forward", "packet", "serve", "error", "all"})
        expectCommand(std::string("debug nd ") + k, {CliMode::EN}, ndDebugSnooping, {"debug", "nd", k});
}

TEST_F(CmdLanguageTest, NoDebugNdAllReachesTheHandlerWithTheKeywordAtIndexThree)
{
    expectCommand("no debug nd all", {CliMode::EN}, ndDebugSnooping, {"no", "debug", "nd", "all"});
    Stdout out;
    EXPECT_EQ(runLine(CliMode::EN, "no debug nd all"), 0);
    std::vector<ndplat::CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 14u);
    EXPECT_EQ(requests[0].optKind, 4u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    EXPECT_EQ(requests[0].items[0].bytes, ndtest::u32_bytes(63));
}

TEST_F(CmdLanguageTest, DebugEventAndErrorNeedTwoLetters)
{
    EXPECT_EQ(ndplat::match_line(CliMode::EN, "debug nd e").status, MatchStatus::Ambiguous);
    expectCommand("debug nd ev", {CliMode::EN}, ndDebugSnooping, {"debug", "nd", "event"});
    expectCommand("debug nd er", {CliMode::EN}, ndDebugSnooping, {"debug", "nd", "error"});
}

TEST_F(CmdLanguageTest, NegatedDebugHelpDiffersForServe)
{
    auto helpOf = [](const std::string &partial, const std::string &word) {
        for (const ndplat::Candidate &c : ndplat::complete_line(CliMode::EN, partial).candidates)
            if (c.text == word)
                return c.help;
        return std::string("<none>");
    };
    EXPECT_EQ(helpOf("debug nd ", "serve"), "Nd serve debug");
    EXPECT_EQ(helpOf("no debug nd ", "serve"), "Nd show debug");
}

TEST_F(CmdLanguageTest, PublishSubscribeCommandsAreAcceptedButHidden)
{
    expectCommand("show nd-ps publisher", {CliMode::EN}, nd_MposPublishRegShowCmd, {"show", "nd-ps", "publisher"});
    expectCommand("show nd-ps publisher statistics", {CliMode::EN}, nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "publisher", "statistics"});
    expectCommand("show nd-ps subscriber all-modules statisitcs", {CliMode::EN}, nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "subscriber", "all-modules", "statisitcs"});
    expectCommand("show nd-ps subscriber nd-vxlan", {CliMode::EN}, nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "subscriber", "nd-vxlan"});
    expectCommand("clear nd-ps publisher statistics", {CliMode::EN}, nd_MposPublishRegClearCmd,
                  {"clear", "nd-ps", "publisher", "statistics"});
    expectCommand("clear nd-ps subscriber all-modules statisitcs", {CliMode::EN}, nd_MposPublishRegClearCmd,
                  {"clear", "nd-ps", "subscriber", "all-modules", "statisitcs"});
    expectCommand("debug nd-ps subscriber nd-mlag", {CliMode::EN}, nd_MposPublishRegDebugCmd,
                  {"debug", "nd-ps", "subscriber", "nd-mlag"});
    expectCommand("no debug nd-ps publisher", {CliMode::EN}, nd_MposPublishRegDebugCmd,
                  {"no", "debug", "nd-ps", "publisher"});
    EXPECT_FALSE(has(offered(CliMode::EN, "show "), "nd-ps"));
    EXPECT_FALSE(has(offered(CliMode::EN, "clear "), "nd-ps"));
    EXPECT_FALSE(has(offered(CliMode::EN, "debug "), "nd-ps"));
    EXPECT_FALSE(has(offered(CliMode::EN, "no debug "), "nd-ps"));
    // The publisher's word is "statistics", the subscriber's "statisitcs".
    EXPECT_NE(ndplat::match_line(CliMode::EN, "clear nd-ps publisher statisitcs").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::EN, "clear nd-ps subscriber all-modules statistics").status,
              MatchStatus::Ok);
}

TEST_F(CmdLanguageTest, PublishSubscribeShowTakesOutputModifiers)
{
    expectCommand("show nd-ps publisher | include nd", {CliMode::EN}, nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "publisher", "|", "include", "nd"});
    expectCommand("show nd-ps subscriber foo statisitcs | begin vxlan", {CliMode::EN}, nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "subscriber", "foo", "statisitcs", "|", "begin", "vxlan"});
    expectCommand("show nd-ps publisher statistics | redirect file /flash/ps", {CliMode::EN},
                  nd_MposPublishRegShowCmd,
                  {"show", "nd-ps", "publisher", "statistics", "|", "redirect", "file", "/flash/ps"});
    // The clear command has none.
    EXPECT_NE(ndplat::match_line(CliMode::EN, "clear nd-ps publisher statistics | include x").status,
              MatchStatus::Ok);
}

TEST_F(CmdLanguageTest, MlagCommandsAreAcceptedButHidden)
{
    for (const char *k : {"pts-list", "cache-list", "statistic"})
        expectCommand(std::string("show nd mlag ") + k, {CliMode::EN}, nd_MlagShowCmd, {"show", "nd", "mlag", k});
    expectCommand("debug nd mlag", {CliMode::EN}, nd_MlagDebugCmd, {"debug", "nd", "mlag"});
    expectCommand("debug nd mlag ipv6 2001:db8::1", {CliMode::EN}, nd_MlagDebugCmd,
                  {"debug", "nd", "mlag", "ipv6", "2001:db8::1"});
    expectCommand("no debug nd mlag", {CliMode::EN}, nd_MlagDebugCmd, {"no", "debug", "nd", "mlag"});
    EXPECT_NE(ndplat::match_line(CliMode::EN, "debug nd mlag ipv6 2001:db8::zz").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::EN, "no debug nd mlag ipv6 2001:db8::1").status, MatchStatus::Ok);
    EXPECT_FALSE(has(offered(CliMode::EN, "show nd "), "mlag"));
    EXPECT_FALSE(has(offered(CliMode::EN, "debug nd "), "mlag"));
    EXPECT_TRUE(has(offered(CliMode::EN, "debug nd "), "config"));
}

TEST_F(CmdLanguageTest, SameWordsInTwoModesReachTwoHandlers)
{
    std::vector<ndplat::CmdRegistration> regs = ndplat::cmd_registrations();
    if (!ndtest::tableShape(regs).withSnooping)
        GTEST_SKIP() << "the snooping rows are not in the table";
    // Rows 11/12 (global configuration) and 15/16 (VLAN) share their words.
    SHELL_CMD_FN global = ndtest::row(regs, 11)->fn;
    SHELL_CMD_FN vlan = ndtest::row(regs, 15)->fn;
    EXPECT_NE(global, vlan);
    EXPECT_EQ(ndtest::row(regs, 12)->fn, global);
    EXPECT_EQ(ndtest::row(regs, 16)->fn, vlan);
    expectCommand("nd snooping enable", {CliMode::CONF}, global, {"nd", "snooping", "enable"});
    expectCommand("nd snooping enable", {CliMode::VLAN}, vlan, {"nd", "snooping", "enable"});
    expectCommand("no nd snooping enable", {CliMode::CONF}, global, {"no", "nd", "snooping", "enable"});
    expectCommand("no nd snooping enable", {CliMode::VLAN}, vlan, {"no", "nd", "snooping", "enable"});
}

TEST_F(CmdLanguageTest, CommandsOutsideTheirModesAreRefused)
{
    EXPECT_NE(ndplat::match_line(CliMode::CONF, "show nd proxy address").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::EN, "nd fast-response").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::VLAN, "nd proxy enable").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::MIF, "ipv6 nd proxy anyway enable").status, MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::IF, "nd local-proxy enable").status, MatchStatus::Ok);
}

TEST_F(CmdLanguageTest, TypedCommandsReachTheirRequests)
{
    ndplat::shell_env_set(1, "Vlan-interface9");
    ndplat::int_env_set(136, 300);
    Stdout out;
    EXPECT_EQ(runLine(CliMode::MIF, "no ipv6 nd proxy"), 0);
    EXPECT_EQ(runLine(CliMode::PORTIF, "ipv6 nd proxy anyway enable"), 0);
    EXPECT_EQ(runLine(CliMode::SUPERVLAN, "no nd local-proxy enable"), 0);
    EXPECT_EQ(runLine(CliMode::CONF, "nd fast-response"), 0);
    EXPECT_EQ(runLine(CliMode::EN, "clear nd fast-response statistics"), 0);
    EXPECT_EQ(runLine(CliMode::EN, "show nd proxy address"), 0);
    EXPECT_EQ(runLine(CliMode::EN, "debug nd ev"), 0);

    std::vector<ndplat::CmfRequest> r = ndplat::cmf_requests();
    ASSERT_EQ(r.size(), 7u);
    EXPECT_EQ(std::make_pair(r[0].cmdCode, r[0].optKind), std::make_pair(0u, 4u));
    EXPECT_EQ(r[0].argIndex, 2u);
    EXPECT_EQ(std::make_pair(r[1].cmdCode, r[1].optKind), std::make_pair(30u, 3u));
    EXPECT_EQ(std::make_pair(r[2].cmdCode, r[2].optKind), std::make_pair(1u, 4u));
    EXPECT_EQ(r[2].items[0].bytes, ndtest::u16_bytes(300));
    EXPECT_EQ(std::make_pair(r[3].cmdCode, r[3].optKind), std::make_pair(2u, 3u));
    EXPECT_EQ(std::make_pair(r[4].cmdCode, r[4].optKind), std::make_pair(16u, 4u));
    EXPECT_EQ(std::make_pair(r[5].cmdCode, r[5].optKind), std::make_pair(18u, 0u));
    EXPECT_EQ(std::make_pair(r[6].cmdCode, r[6].optKind), std::make_pair(14u, 3u));
    EXPECT_EQ(r[6].items[0].bytes, ndtest::u32_bytes(2));
    EXPECT_EQ(ndplat::trace_of("shell_nd6_proxy"),
              (std::vector<std::string>{R"(shell_nd6_proxy(4, "no", "ipv6", "nd", "proxy"))"}));
}

} // namespace
