// The matcher: typed lines to handler and argument vector, or the shell's error with its position.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"

using namespace ndplat;
using Words = std::vector<std::string>;

namespace {

class Matcher : public ::testing::Test {
protected:
    CommandTree tree;

    void add(const std::string &def, SHELL_CMD_FN fn)
    {
        DefParseResult r = tree.add(def, fn);
        ASSERT_TRUE(r.ok) << def << " at " << r.errorPosition << ": " << r.error;
    }

    void expectOk(CliMode mode, const std::string &line, SHELL_CMD_FN fn, const Words &argv)
    {
        MatchResult r = tree.match(mode, line);
        EXPECT_EQ(r.status, MatchStatus::Ok) << line << " -> " << r.message() << " at word " << r.wordIndex;
        EXPECT_EQ(r.fn, fn) << line;
        EXPECT_EQ(r.argv, argv) << line;
        EXPECT_STREQ(r.message(), "");
    }

    void expectError(CliMode mode, const std::string &line, MatchStatus status, size_t word, size_t column)
    {
        MatchResult r = tree.match(mode, line);
        EXPECT_EQ(r.status, status) << line;
        EXPECT_EQ(r.wordIndex, word) << line;
        EXPECT_EQ(r.column, column) << line;
        EXPECT_EQ(r.fn, nullptr) << line;
        EXPECT_TRUE(r.argv.empty()) << line;
    }
};

constexpr auto h1 = fx::handler<1>;
constexpr auto h2 = fx::handler<2>;
constexpr auto h3 = fx::handler<3>;
constexpr auto h4 = fx::handler<4>;

} // namespace

TEST_F(Matcher, FullWordsAndAbbreviations)
{
    add(fx::kRow9, h1);
    add(fx::kRow21, h2);
    add(fx::kSnoopEnableConf, h3);
    expectOk(CliMode::CONF, "nd fast-response", h1, {"nd", "fast-response"});
    expectOk(CliMode::CONF, "n f", h1, {"nd", "fast-response"});
    expectOk(CliMode::CONF, "  nd \t fast  ", h1, {"nd", "fast-response"});
    expectOk(CliMode::CONF, "ND FAST-Res", h1, {"nd", "fast-response"});
    expectOk(CliMode::CONF, "nd fast-response\r\n", h1, {"nd", "fast-response"});
    expectOk(CliMode::CONF, "nd sn det re 3 in 10", h2, {"nd", "snooping", "detect", "retransmit", "3", "interval", "10"});
    expectOk(CliMode::CONF, "nd s e", h3, {"nd", "snooping", "enable"});
}

TEST_F(Matcher, EmptyLine)
{
    add(fx::kRow9, h1);
    EXPECT_EQ(tree.match(CliMode::CONF, "").status, MatchStatus::Empty);
    EXPECT_EQ(tree.match(CliMode::CONF, "  \t ").status, MatchStatus::Empty);
    EXPECT_STREQ(match_message(MatchStatus::Empty), "");
}

TEST_F(Matcher, Messages)
{
    EXPECT_STREQ(match_message(MatchStatus::Unknown), "% Unknown command.");
    EXPECT_STREQ(match_message(MatchStatus::Ambiguous), "% Ambiguous command.");
    EXPECT_STREQ(match_message(MatchStatus::Incomplete), "% Incomplete command.");
}

TEST_F(Matcher, AmbiguousPrefix)
{
    add(fx::kRow35, h1);
    expectError(CliMode::EN, "debug nd e", MatchStatus::Ambiguous, 2, 9);
    expectOk(CliMode::EN, "debug nd ev", h1, {"debug", "nd", "event"});
    expectOk(CliMode::EN, "debug nd er", h1, {"debug", "nd", "error"});
    expectOk(CliMode::EN, "d n a", h1, {"debug", "nd", "all"});
    EXPECT_STREQ(tree.match(CliMode::EN, "debug nd e").message(), "% Ambiguous command.");
}

TEST_F(Matcher, ExactKeywordWinsOverLongerOnes)
{
    add("a(EN,0,''){stat(EN,0,'s1'),statistics(EN,0,'s2')}", h1);
    expectOk(CliMode::EN, "a stat", h1, {"a", "stat"});
    expectOk(CliMode::EN, "a STAT", h1, {"a", "stat"});
    expectOk(CliMode::EN, "a stati", h1, {"a", "statistics"});
    expectError(CliMode::EN, "a sta", MatchStatus::Ambiguous, 1, 2);
}

TEST_F(Matcher, UnknownWordsAndWrongModes)
{
    add(fx::kRow9, h1);
    expectError(CliMode::CONF, "nd fast-response now", MatchStatus::Unknown, 2, 17);
    expectError(CliMode::CONF, "nd fast-responsex", MatchStatus::Unknown, 1, 3);
    expectError(CliMode::CONF, "xyz", MatchStatus::Unknown, 0, 0);
    expectError(CliMode::CONF, "   xyz", MatchStatus::Unknown, 0, 3);
    expectError(CliMode::EN, "nd fast-response", MatchStatus::Unknown, 0, 0);
    expectError(CliMode::VLAN, "nd", MatchStatus::Unknown, 0, 0);
}

TEST_F(Matcher, Incomplete)
{
    add(fx::kRow21, h1);
    expectError(CliMode::CONF, "nd snooping detect retransmit 3", MatchStatus::Incomplete, 5, 31);
    expectError(CliMode::CONF, "nd snooping detect retransmit 3 interval   ", MatchStatus::Incomplete, 6, 40);
    expectError(CliMode::CONF, "nd", MatchStatus::Incomplete, 1, 2);
    EXPECT_STREQ(tree.match(CliMode::CONF, "nd").message(), "% Incomplete command.");
}

TEST_F(Matcher, RangesAtTheirBoundsAndOneBeyond)
{
    add(fx::kRow21, h1);
    const std::string head = "nd snooping detect retransmit ";
    expectOk(CliMode::CONF, head + "1 interval 3", h1, {"nd", "snooping", "detect", "retransmit", "1", "interval", "3"});
    expectOk(CliMode::CONF, head + "32 interval 3600", h1,
             {"nd", "snooping", "detect", "retransmit", "32", "interval", "3600"});
    expectError(CliMode::CONF, head + "0 interval 3", MatchStatus::Unknown, 4, 30);
    expectError(CliMode::CONF, head + "33 interval 3", MatchStatus::Unknown, 4, 30);
    expectError(CliMode::CONF, head + "1 interval 2", MatchStatus::Unknown, 6, 41);
    expectError(CliMode::CONF, head + "1 interval 3601", MatchStatus::Unknown, 6, 41);
    for (const char *bad : {"-1", "+5", "5x", "x", "1.0", "99999999999999999999999"})
        expectError(CliMode::CONF, head + bad + " interval 3", MatchStatus::Unknown, 4, 30);
    // Parameters are passed exactly as typed.
    expectOk(CliMode::CONF, head + "007 interval 0010", h1,
             {"nd", "snooping", "detect", "retransmit", "007", "interval", "0010"});
}

TEST_F(Matcher, LargeRangesOfTheVxlanTable)
{
    add(fx::kVxlan[0], h1);
    add(fx::kVxlan[4], h2);
    expectOk(CliMode::VXLAN, "ipv6 nd host timeout 30", h1, {"ipv6", "nd", "host", "timeout", "30"});
    expectOk(CliMode::VXLAN, "ipv6 nd host timeout 2147483", h1, {"ipv6", "nd", "host", "timeout", "2147483"});
    expectError(CliMode::VXLAN, "ipv6 nd host timeout 29", MatchStatus::Unknown, 4, 21);
    expectError(CliMode::VXLAN, "ipv6 nd host timeout 2147484", MatchStatus::Unknown, 4, 21);
    expectOk(CliMode::VXLAN, "ipv6 nd host limited 0", h2, {"ipv6", "nd", "host", "limited", "0"});
    expectOk(CliMode::VXLAN, "ipv6 nd host limited 20480", h2, {"ipv6", "nd", "host", "limited", "20480"});
    expectError(CliMode::VXLAN, "ipv6 nd host limited 20481", MatchStatus::Unknown, 4, 21);
    expectError(CliMode::VXLAN, "ipv6 nd host timeout", MatchStatus::Incomplete, 4, 20);
}

TEST_F(Matcher, Ipv6AddressForms)
{
    add(fx::kUserBind, h1);
    add(fx::kNoUserBind, h2);
    for (const char *good : {"2001:db8::1", "::", "::1", "fe80::1:2:3:4", "1:2:3:4:5:6:7:8", "::ffff:1.2.3.4",
                             "2001:DB8::A"})
        expectOk(CliMode::CONF, std::string("no nd snooping user-bind static ") + good, h2,
                 {"no", "nd", "snooping", "user-bind", "static", good});
    for (const char *bad : {"2001:db8:::1", "1:2:3:4:5:6:7:8:9", "g::1", "2001:db8::1/64", "12345::1", "1.2.3.4",
                            "1:2:3:4:5:6:7"})
        expectError(CliMode::CONF, std::string("no nd snooping user-bind static ") + bad, MatchStatus::Unknown, 5, 32);
}

TEST_F(Matcher, OptionalEndingWithCr)
{
    add(fx::kNoUserBind, h2);
    expectOk(CliMode::CONF, "no nd snooping user-bind static", h2, {"no", "nd", "snooping", "user-bind", "static"});
    expectOk(CliMode::CONF, "no nd snooping user-bind static ::1", h2,
             {"no", "nd", "snooping", "user-bind", "static", "::1"});
    expectError(CliMode::CONF, "no nd snooping user-bind", MatchStatus::Incomplete, 4, 24);
}

TEST_F(Matcher, Ipv6PrefixForms)
{
    add(fx::kClearPrefix, h1);
    expectOk(CliMode::EN, "clear nd snooping prefix", h1, {"clear", "nd", "snooping", "prefix"});
    for (const char *good : {"2001:db8::/32", "::/0", "2001:db8::1/128", "fe80::/10", "2001:db8::", "2001:db8::1"})
        expectOk(CliMode::EN, std::string("clear nd snooping prefix ") + good, h1,
                 {"clear", "nd", "snooping", "prefix", good});
    for (const char *bad : {"2001:db8::/129", "2001:db8:::1", "2001:db8::/", "/64", "2001:db8::/6a", "2001:db8::/-1",
                            "2001:db8::/1/2", "x::/3"})
        expectError(CliMode::EN, std::string("clear nd snooping prefix ") + bad, MatchStatus::Unknown, 4, 25);
}

TEST_F(Matcher, MacForms)
{
    add(fx::kUserBind, h1);
    const std::string head = "nd snooping user-bind static 2001::1 ";
    for (const char *good : {"0011.2233.4455", "00:11:22:33:44:55", "00-11-22-33-44-55", "AaBb.CcDd.EeFf"})
        expectOk(CliMode::CONF, head + good + " vlan 1 interface ge0/1", h1,
                 {"nd", "snooping", "user-bind", "static", "2001::1", good, "vlan", "1", "interface", "ge0/1"});
    for (const char *bad : {"0011.2233.445", "00:11:22:33:44-55", "0011:2233:4455", "00:11:22:33:44:5g", "001122334455",
                            "0011.2233.4455.", "00:11:22:33:44:55:66", "0011-2233-4455"})
        expectError(CliMode::CONF, head + bad + " vlan 1 interface ge0/1", MatchStatus::Unknown, 5, 37);
}

TEST_F(Matcher, VlanRangeAndInterfaces)
{
    add(fx::kUserBind, h1);
    const std::string head = "nd snooping user-bind static 2001::1 0011.2233.4455 vlan ";
    auto argv = [](const std::string &vlan, std::vector<std::string> tail) {
        std::vector<std::string> v = {"nd", "snooping", "user-bind", "static", "2001::1", "0011.2233.4455", "vlan", vlan};
        v.insert(v.end(), tail.begin(), tail.end());
        return v;
    };
    expectOk(CliMode::CONF, head + "1 interface gigabitethernet0/1", h1, argv("1", {"interface", "gigabitethernet0/1"}));
    expectOk(CliMode::CONF, head + "4094 int gigabitethernet 0/1", h1,
             argv("4094", {"interface", "gigabitethernet 0/1"}));
    expectOk(CliMode::CONF, head + "10 interface ge1/0/1-4,1/0/7", h1, argv("10", {"interface", "ge1/0/1-4,1/0/7"}));
    expectOk(CliMode::CONF, head + "10 interface 0/3", h1, argv("10", {"interface", "0/3"}));
    expectError(CliMode::CONF, head + "0 interface ge0/1", MatchStatus::Unknown, 7, 57);
    expectError(CliMode::CONF, head + "4095 interface ge0/1", MatchStatus::Unknown, 7, 57);
    for (const char *bad : {"ge", "ge0/", "ge0/4-1", "0/1,", "ge0/1 extra", "3", "ge/1"})
        EXPECT_NE(tree.match(CliMode::CONF, head + "10 interface " + bad).status, MatchStatus::Ok) << bad;
    expectOk(CliMode::CONF, head + "10 interface link-aggregation 1", h1,
             argv("10", {"interface", "link-aggregation", "1"}));
    expectOk(CliMode::CONF, head + "10 interface l 128", h1, argv("10", {"interface", "link-aggregation", "128"}));
    expectError(CliMode::CONF, head + "10 interface link-aggregation 0", MatchStatus::Unknown, 10, 87);
    expectError(CliMode::CONF, head + "10 interface link-aggregation 129", MatchStatus::Unknown, 10, 87);
}

TEST_F(Matcher, HiddenNodesAreAccepted)
{
    add(fx::kRow1, h1);
    add(fx::kRow3, h1);
    add(fx::kRow44, h2);
    expectOk(CliMode::MIF, "ipv6 nd proxy", h1, {"ipv6", "nd", "proxy"});
    expectOk(CliMode::IF, "ipv6 nd proxy", h1, {"ipv6", "nd", "proxy"});
    expectOk(CliMode::PORTIF, "nd proxy enable", h1, {"nd", "proxy", "enable"});
    expectError(CliMode::MIF, "nd proxy enable", MatchStatus::Unknown, 0, 0);
    expectOk(CliMode::EN, "show nd mlag statistic", h2, {"show", "nd", "mlag", "statistic"});
    expectOk(CliMode::EN, "sh n m c", h2, {"show", "nd", "mlag", "cache-list"});
}

TEST_F(Matcher, OutputModifiersArePassedWithTheCommand)
{
    add(fx::showFastResponse(), h1);
    const Words head = {"show", "nd", "fast-response", "statistics"};
    auto with = [&](Words tail) {
        Words w = head;
        w.insert(w.end(), tail.begin(), tail.end());
        return w;
    };
    expectOk(CliMode::EN, "show nd fast-response statistics", h1, head);
    expectOk(CliMode::EN, "show nd fast statistics | begin Total", h1, with({"|", "begin", "Total"}));
    expectOk(CliMode::EN, "show nd fast stat | inc context rx  tx ", h1, with({"|", "include", "context", "rx  tx"}));
    expectOk(CliMode::EN, "show nd fast stat | include rx", h1, with({"|", "include", "rx"}));
    expectError(CliMode::EN, "show nd fast stat | include context", MatchStatus::Incomplete, 7, 35);
}

TEST_F(Matcher, OutputModifierDetails)
{
    add(fx::showFastResponse(), h1);
    const std::string head = "show nd fast-response statistics ";
    Words base = {"show", "nd", "fast-response", "statistics"};
    auto with = [&](Words tail) {
        Words w = base;
        w.insert(w.end(), tail.begin(), tail.end());
        return w;
    };
    expectOk(CliMode::EN, head + "| exclude ^a b|c", h1, with({"|", "exclude", "^a b|c"}));
    expectOk(CliMode::EN, head + "| redirect file /flash/test", h1, with({"|", "redirect", "file", "/flash/test"}));
    expectOk(CliMode::EN, head + "| red ftp 10.0.0.1 admin secret out.txt", h1,
             with({"|", "redirect", "ftp", "10.0.0.1", "admin", "secret", "out.txt"}));
    expectOk(CliMode::EN, head + "| redirect vrf mgmt 10.0.0.1 admin secret out.txt", h1,
             with({"|", "redirect", "vrf", "mgmt", "10.0.0.1", "admin", "secret", "out.txt"}));
    expectError(CliMode::EN, head + "| begin", MatchStatus::Incomplete, 6, 40);
    expectError(CliMode::EN, head + "| redirect file", MatchStatus::Incomplete, 7, 48);
    expectError(CliMode::EN, head + "| redirect file a b", MatchStatus::Unknown, 8, 51);
    expectError(CliMode::EN, head + "| redirect ftp h u p", MatchStatus::Incomplete, 10, 53);
    expectError(CliMode::EN, head + "| unknown x", MatchStatus::Unknown, 5, 35);
    // The modifier subtree is only reachable through the EN nodes above it.
    expectError(CliMode::STD, head + "| begin x", MatchStatus::Unknown, 0, 0);
}

TEST_F(Matcher, KeywordBeforeFreeWord)
{
    add(fx::showSubscriber(), h1);
    expectOk(CliMode::EN, "show nd-ps subscriber all", h1, {"show", "nd-ps", "subscriber", "all-modules"});
    expectOk(CliMode::EN, "show nd-ps subscriber arp", h1, {"show", "nd-ps", "subscriber", "arp"});
    expectOk(CliMode::EN, "show nd-ps subscriber arp statisitcs", h1, {"show", "nd-ps", "subscriber", "arp", "statisitcs"});
    expectOk(CliMode::EN, "show nd-ps sub all-modules stat", h1,
             {"show", "nd-ps", "subscriber", "all-modules", "statisitcs"});
    expectError(CliMode::EN, "show nd-ps subscriber arp statistics", MatchStatus::Unknown, 4, 26);
}

TEST_F(Matcher, SpecificParameterBeforeFreeWordAndTies)
{
    add("a(EN,0,''){_1_10_(EN,0,'n'),_WORD_(EN,0,'w')}", h1);
    add("b(EN,0,''){_1_10_(EN,0,'n'),_5_20_(EN,0,'m')}", h2);
    add("c(EN,0,''){_IPV6ADDR_(EN,0,'6'){x(EN,0,'')},_ipAddress_(EN,0,'4'){y(EN,0,'')}}", h3);
    expectOk(CliMode::EN, "a 5", h1, {"a", "5"});
    expectOk(CliMode::EN, "a 50", h1, {"a", "50"});
    expectOk(CliMode::EN, "b 3", h2, {"b", "3"});
    expectOk(CliMode::EN, "b 15", h2, {"b", "15"});
    expectError(CliMode::EN, "b 7", MatchStatus::Ambiguous, 1, 2);
    expectOk(CliMode::EN, "c ::1 x", h3, {"c", "::1", "x"});
    expectOk(CliMode::EN, "c 1.2.3.4 y", h3, {"c", "1.2.3.4", "y"});
    expectError(CliMode::EN, "c 1.2.3.4 x", MatchStatus::Unknown, 2, 10);
    expectError(CliMode::EN, "c 1.2.3 y", MatchStatus::Unknown, 1, 2);
    expectError(CliMode::EN, "c 256.1.1.1 y", MatchStatus::Unknown, 1, 2);
}

TEST_F(Matcher, HiddenTestCommands)
{
    add(fx::kSuppressTest, h1);
    add(fx::kNoSuppressTest, h2);
    add(fx::kNbrTest, h3);
    add(fx::noNbrTest(), h4);
    expectOk(CliMode::EN, "nd mpos suppress 100 5 2001::1 10.1.1.1 0011.2233.4455 3", h1,
             {"nd", "mpos", "suppress", "100", "5", "2001::1", "10.1.1.1", "0011.2233.4455", "3"});
    expectOk(CliMode::EN, "nd mpos suppress 100 5 2001::1 3001::9 0011.2233.4455 1000000", h1,
             {"nd", "mpos", "suppress", "100", "5", "2001::1", "3001::9", "0011.2233.4455", "1000000"});
    expectOk(CliMode::EN, "no nd mpos suppress 100 5 2001::1 10.1.1.1 00:11:22:33:44:55 1", h2,
             {"no", "nd", "mpos", "suppress", "100", "5", "2001::1", "10.1.1.1", "00:11:22:33:44:55", "1"});
    expectOk(CliMode::EN, "nd mpos nbrentry 1 100 7 5 4095 2001::1 10.1.1.1 0011.2233.4455 2", h3,
             {"nd", "mpos", "nbrentry", "1", "100", "7", "5", "4095", "2001::1", "10.1.1.1", "0011.2233.4455", "2"});
    expectOk(CliMode::EN, "no nd mpos nbrentry 0 100 7 5 0 2001::1 2001::2 0011.2233.4455 2", h4,
             {"no", "nd", "mpos", "nbrentry", "0", "100", "7", "5", "0", "2001::1", "2001::2", "0011.2233.4455", "2"});
    expectError(CliMode::EN, "nd mpos nbrentry 2 100 7 5 0 2001::1 2001::2 0011.2233.4455 2", MatchStatus::Unknown, 3, 17);
    expectError(CliMode::EN, "nd mpos suppress 100 65536 2001::1 10.1.1.1 0011.2233.4455 3", MatchStatus::Unknown, 4, 21);
    expectError(CliMode::EN, "nd mpos suppress 100 5 2001::1 10.1.1.1 0011.2233.4455 0", MatchStatus::Unknown, 8, 55);
}

TEST_F(Matcher, CrEndingsOfTheVxlanTable)
{
    for (size_t i = 12; i < 24; ++i)
        add(fx::kVxlan[i], i < 16 ? h1 : (i < 20 ? h2 : h3));
    expectOk(CliMode::VXLAN, "ipv6 nd suppression", h1, {"ipv6", "nd", "suppression"});
    expectOk(CliMode::VXLAN, "no ipv6 nd suppression", h1, {"no", "ipv6", "nd", "suppression"});
    expectOk(CliMode::VXLAN, "nd suppression", h1, {"nd", "suppression"});
    expectOk(CliMode::VXLAN, "no nd suppression", h1, {"no", "nd", "suppression"});
    expectOk(CliMode::VXLAN, "ipv6 nd suppression missmatch discard", h2,
             {"ipv6", "nd", "suppression", "missmatch", "discard"});
    expectOk(CliMode::VXLAN, "nd sup u f", h3, {"nd", "suppression", "unicast", "forward"});
    expectError(CliMode::VXLAN, "ipv6 nd suppression missmatch", MatchStatus::Incomplete, 4, 29);
    expectError(CliMode::CONF, "ipv6 nd suppression", MatchStatus::Unknown, 0, 0);
}
