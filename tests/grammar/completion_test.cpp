// Candidates for `?` and TAB: help texts, readable parameters, <cr>, hidden nodes, order, speed.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"

using namespace ndplat;
using Pairs = std::vector<std::pair<std::string, std::string>>;

namespace {

class Completer : public ::testing::Test {
protected:
    CommandTree tree;

    void add(const std::string &def, SHELL_CMD_FN fn = fx::handler<1>)
    {
        DefParseResult r = tree.add(def, fn);
        ASSERT_TRUE(r.ok) << def << " at " << r.errorPosition << ": " << r.error;
    }

    Pairs offered(CliMode mode, const std::string &line)
    {
        Completion c = tree.complete(mode, line);
        EXPECT_EQ(c.status, MatchStatus::Ok) << line;
        Pairs p;
        for (const Candidate &k : c.candidates)
            p.emplace_back(k.text, k.help);
        return p;
    }
};

} // namespace

TEST_F(Completer, FirstWordsWithHelp)
{
    add(fx::kRow9);
    add(fx::kRow21);
    add(fx::kRow36);
    // "no" is registered in CONF, but what follows it (debug) only in EN: nothing can follow
    // it in CONF, so it is not offered there.
    EXPECT_EQ(offered(CliMode::CONF, ""), (Pairs{{"nd", "Neighbor discovery"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd "),
              (Pairs{{"fast-response", "Nd packet fast-response"}, {"snooping", "Configure nd snooping"}}));
    EXPECT_EQ(offered(CliMode::CONF, "n"), (Pairs{{"nd", "Neighbor discovery"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd f"), (Pairs{{"fast-response", "Nd packet fast-response"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd x"), Pairs{});
}

TEST_F(Completer, ParametersAndCr)
{
    add(fx::kRow21);
    add(fx::kRow9);
    EXPECT_EQ(offered(CliMode::CONF, "nd snooping detect retransmit "),
              (Pairs{{"<1-32>", "Detect retransmit times(unit:times)"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd snooping detect retransmit 4"),
              (Pairs{{"<1-32>", "Detect retransmit times(unit:times)"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd snooping detect retransmit 99"), Pairs{});
    EXPECT_EQ(offered(CliMode::CONF, "nd sn det re 4 in "), (Pairs{{"<3-3600>", "Detect interval time(unit:seconds)"}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd sn det re 4 in 10 "), (Pairs{{"<cr>", ""}}));
    EXPECT_EQ(offered(CliMode::CONF, "nd fast-response "), (Pairs{{"<cr>", ""}}));
    // A partial word is completed, never ended.
    EXPECT_EQ(offered(CliMode::CONF, "nd fast-response"), (Pairs{{"fast-response", "Nd packet fast-response"}}));
    Completion c = tree.complete(CliMode::CONF, "nd sn det re 4 in 10 ");
    ASSERT_EQ(c.candidates.size(), 1u);
    EXPECT_TRUE(c.candidates[0].cr);
    EXPECT_FALSE(c.candidates[0].keyword);
}

TEST_F(Completer, ReadableTokens)
{
    add("t(EN,0,''){_IPV6ADDR_(EN,0,'a'),_IPV6PREFIX_(EN,0,'p'),_MACAddress_(EN,0,'m'),_ipAddress_(EN,0,'i'),"
        "_WORD_(EN,0,'w'),_LINE_(EN,0,'l'),_PASSWORD_(EN,0,'s'),_STRING_(EN,0,'t'),_CONFPORTLIST_(EN,0,'c'),"
        "_CONFPORTAGGNUM_(EN,0,'g'),_1_4094_(EN,0,'v'),key(EN,0,'k')}");
    EXPECT_EQ(offered(CliMode::EN, "t "),
              (Pairs{{"key", "k"},
                     {"X:X::X:X", "a"},
                     {"X:X::X:X/M", "p"},
                     {"H.H.H", "m"},
                     {"A.B.C.D", "i"},
                     {"WORD", "w"},
                     {"LINE", "l"},
                     {"PASSWORD", "s"},
                     {"STRING", "t"},
                     {"PORTLIST", "c"},
                     {"<1-128>", "g"},
                     {"<1-4094>", "v"}}));
    EXPECT_EQ(offered(CliMode::EN, "t 12"), (Pairs{{"X:X::X:X", "a"},
                                                   {"X:X::X:X/M", "p"},
                                                   {"H.H.H", "m"},
                                                   {"A.B.C.D", "i"},
                                                   {"WORD", "w"},
                                                   {"LINE", "l"},
                                                   {"PASSWORD", "s"},
                                                   {"STRING", "t"},
                                                   {"PORTLIST", "c"},
                                                   {"<1-128>", "g"},
                                                   {"<1-4094>", "v"}}));
    EXPECT_EQ(offered(CliMode::EN, "t k"), (Pairs{{"key", "k"},
                                                  {"WORD", "w"},
                                                  {"LINE", "l"},
                                                  {"PASSWORD", "s"},
                                                  {"STRING", "t"},
                                                  {"PORTLIST", "c"}}));
}

TEST_F(Completer, HiddenNodesAreNeverOffered)
{
    add(fx::kRow1);
    add(fx::kRow3);
    add(fx::kRow5);
    add(fx::kRow32);
    add(fx::kRow44);
    // MIF knows only the hidden spelling.
    EXPECT_EQ(offered(CliMode::MIF, ""), Pairs{});
    EXPECT_EQ(offered(CliMode::MIF, "ipv6 nd "), Pairs{});
    EXPECT_EQ(offered(CliMode::MIF, "ipv6 nd proxy "), Pairs{});
    // IF has the visible row 5 beside the hidden row 3: "ipv6" is offered with the visible help,
    // the hidden end after "proxy" is not.
    EXPECT_EQ(offered(CliMode::IF, ""), (Pairs{{"ipv6", "Command ipv6"}, {"nd", "Neighbor discovery"}}));
    EXPECT_EQ(offered(CliMode::IF, "ipv6 "), (Pairs{{"nd", "Neighbor Discovery"}}));
    EXPECT_EQ(offered(CliMode::IF, "ipv6 nd proxy "), (Pairs{{"anyway", "Nd proxy anyway on this interface"}}));
    EXPECT_EQ(tree.match(CliMode::IF, "ipv6 nd proxy").status, MatchStatus::Ok);
    // mlag is hidden, and so is everything below it.
    EXPECT_EQ(offered(CliMode::EN, "show nd "), (Pairs{{"proxy", "Nd proxy"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd m"), Pairs{});
    EXPECT_EQ(offered(CliMode::EN, "show nd mlag "), Pairs{});
    EXPECT_EQ(tree.match(CliMode::EN, "show nd mlag pts-list").status, MatchStatus::Ok);
}

TEST_F(Completer, HiddenTestCommandsAreNotOffered)
{
    add(fx::kSuppressTest);
    add(fx::kNbrTest);
    // "nd" itself is not hidden, but only hidden commands follow it: it is not offered.
    EXPECT_EQ(offered(CliMode::EN, ""), Pairs{});
    EXPECT_EQ(offered(CliMode::EN, "nd "), Pairs{});
    EXPECT_EQ(offered(CliMode::EN, "nd mpos suppress "), Pairs{});
}

TEST_F(Completer, OutputModifiers)
{
    add(fx::showFastResponse());
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics "), (Pairs{{"|", "Output modifiers"}, {"<cr>", ""}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | "),
              (Pairs{{"begin", "Begin with the line that matches"},
                     {"exclude", "Exclude lines that match"},
                     {"include", "Include lines that match"},
                     {"redirect", "Redirect output to other resource"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | include "),
              (Pairs{{"context", "Include two line before and after the match line"}, {"LINE", "Regular Expression"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | redirect "),
              (Pairs{{"file", "Output to file"}, {"ftp", "Output by FTP"}, {"vrf", "Select VPN routing instance"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | redirect file "),
              (Pairs{{"WORD", "Destination file name,such as \"/flash/test\""}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | redirect ftp h u "),
              (Pairs{{"PASSWORD", "User password"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | begin abc "), (Pairs{{"<cr>", ""}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | begin a b c "), (Pairs{{"<cr>", ""}}));
    // A word being typed inside LINE is part of it.
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | begin a b"), (Pairs{{"<cr>", ""}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | begin ab"), (Pairs{{"LINE", "Regular Expression"}}));
    EXPECT_EQ(offered(CliMode::EN, "show nd fast-response statistics | include co"),
              (Pairs{{"context", "Include two line before and after the match line"}, {"LINE", "Regular Expression"}}));
}

TEST_F(Completer, CommonPrefixForTab)
{
    add(fx::kRow35);
    Completion c = tree.complete(CliMode::EN, "debug nd e");
    EXPECT_EQ(c.prefix, "e");
    EXPECT_EQ(c.prefixColumn, 9u);
    EXPECT_EQ(c.common, "e");
    ASSERT_EQ(c.candidates.size(), 2u);
    EXPECT_EQ(c.candidates[0].text, "error");
    EXPECT_EQ(c.candidates[1].text, "event");
    EXPECT_TRUE(c.candidates[0].keyword);
    c = tree.complete(CliMode::EN, "debug nd f");
    EXPECT_EQ(c.common, "forward");
    c = tree.complete(CliMode::EN, "de");
    EXPECT_EQ(c.common, "debug");
    c = tree.complete(CliMode::EN, "debug nd ");
    EXPECT_EQ(c.prefix, "");
    EXPECT_EQ(c.prefixColumn, 9u);
    EXPECT_EQ(c.common, "");
    EXPECT_EQ(offered(CliMode::EN, "debug nd "), (Pairs{{"all", "Nd all debug"},
                                                      {"config", "Nd config debug"},
                                                      {"error", "Nd error debug"},
                                                      {"event", "Nd event debug"},
                                                      {"forward", "Nd forward debug"},
                                                      {"packet", "Nd packet debug"},
                                                      {"serve", "Nd serve debug"}}));
}

TEST_F(Completer, ErrorsBeforeTheLastWord)
{
    add(fx::kRow35);
    Completion c = tree.complete(CliMode::EN, "debug xx a");
    EXPECT_EQ(c.status, MatchStatus::Unknown);
    EXPECT_EQ(c.wordIndex, 1u);
    EXPECT_EQ(c.column, 6u);
    EXPECT_TRUE(c.candidates.empty());
    add("debug(EN,0,''){nx(EN,0,'')}");
    c = tree.complete(CliMode::EN, "debug n ");
    EXPECT_EQ(c.status, MatchStatus::Ambiguous);
    EXPECT_EQ(c.wordIndex, 1u);
    c = tree.complete(CliMode::CONF, "debug ");
    EXPECT_EQ(c.status, MatchStatus::Unknown);
    EXPECT_EQ(c.wordIndex, 0u);
}

TEST_F(Completer, InterfaceTypeNameWaitsForItsNumbers)
{
    add(fx::kUserBind);
    const std::string head = "nd snooping user-bind static 2001::1 0011.2233.4455 vlan 1 interface ";
    EXPECT_EQ(offered(CliMode::CONF, head), (Pairs{{"link-aggregation", "link-aggregation"}, {"PORTLIST", "Interface name"}}));
    EXPECT_EQ(offered(CliMode::CONF, head + "gigabitethernet "), (Pairs{{"PORTLIST", "Interface name"}}));
    EXPECT_EQ(offered(CliMode::CONF, head + "gigabitethernet 0/1 "), (Pairs{{"<cr>", ""}}));
    EXPECT_EQ(offered(CliMode::CONF, head + "link-aggregation "), (Pairs{{"<1-128>", "link-aggregation"}}));
}

TEST_F(Completer, FastWithAHundredCommands)
{
    std::vector<std::string> defs(fx::kVxlan.begin(), fx::kVxlan.end());
    for (const char *d : {fx::kRow1, fx::kRow3, fx::kRow5, fx::kRow7, fx::kRow9, fx::kRow21, fx::kRow32, fx::kRow35,
                          fx::kRow36, fx::kRow44, fx::kUserBind, fx::kNoUserBind, fx::kSuppressTest, fx::kNbrTest})
        defs.push_back(d);
    defs.push_back(fx::showFastResponse());
    defs.push_back(fx::showSubscriber());
    for (int i = 0; defs.size() < 110; ++i)
        defs.push_back("show(EN, 0, ''){extra" + std::to_string(i) + "(EN, 0, 'Extra'){_1_100_(EN, 0, 'n'){_CR_(EN, 0, ''), " +
                       fx::kModifiers + "}}}");
    for (const std::string &d : defs)
        add(d);
    EXPECT_EQ(tree.registrations(), defs.size());
    const std::vector<std::pair<CliMode, std::string>> lines = {
        {CliMode::EN, ""},
        {CliMode::EN, "show "},
        {CliMode::EN, "show e"},
        {CliMode::EN, "show extra7 5 | redirect vrf a b c "},
        {CliMode::EN, "show nd fast-response statistics | include context "},
        {CliMode::CONF, "nd snooping user-bind static 2001::1 0011.2233.4455 vlan 1 interface "},
        {CliMode::VXLAN, "no ipv6 nd "},
    };
    // The best of several runs, so that a busy machine does not count against the code.
    for (const auto &[mode, line] : lines) {
        auto best = std::chrono::steady_clock::duration::max();
        for (int run = 0; run < 20; ++run) {
            auto start = std::chrono::steady_clock::now();
            Completion c = tree.complete(mode, line);
            best = std::min(best, std::chrono::steady_clock::now() - start);
            EXPECT_EQ(c.status, MatchStatus::Ok) << line;
            EXPECT_FALSE(c.candidates.empty()) << line;
        }
        EXPECT_LT(std::chrono::duration_cast<std::chrono::microseconds>(best).count(), 5000) << line;
    }
    // "nd" and every "extraN"; "nd-ps" is hidden.
    EXPECT_EQ(tree.complete(CliMode::EN, "show ").candidates.size(), 1u + (110u - 40u));
}
