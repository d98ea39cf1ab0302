// What each parameter token accepts, word by word.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"

using namespace ndplat;

namespace {

DefNode token(const std::string &word)
{
    DefParseResult r = parse_definition(word + "(EN,0,'')");
    EXPECT_TRUE(r.ok) << word;
    return r.ok ? r.nodes[0] : DefNode{};
}

void expectAccepts(const std::string &tokenWord, const std::vector<std::string> &good, const std::vector<std::string> &bad)
{
    DefNode t = token(tokenWord);
    for (const std::string &w : good)
        EXPECT_TRUE(token_accepts(t, w)) << tokenWord << " should accept \"" << w << "\"";
    for (const std::string &w : bad)
        EXPECT_FALSE(token_accepts(t, w)) << tokenWord << " should refuse \"" << w << "\"";
}

} // namespace

TEST(GrammarTokens, Ranges)
{
    expectAccepts("_1_4094_", {"1", "4094", "0001", "2000"}, {"0", "4095", "", "-1", "+1", "1a", " 1", "1 ", "0x10"});
    expectAccepts("_0_2147483_", {"0", "2147483"}, {"2147484", "-0x1"});
    expectAccepts("_0_1_", {"0", "1"}, {"2", "-1"});
    expectAccepts("_-5_5_", {"-5", "0", "5", "-0"}, {"-6", "6", "-", "--5"});
    expectAccepts("_1_1000000_", {"1", "1000000"}, {"0", "1000001", "1000000000000000000000"});
}

TEST(GrammarTokens, Addresses)
{
    expectAccepts("_IPV6ADDR_", {"::", "::1", "2001:db8::1", "FE80::1", "1:2:3:4:5:6:7:8", "::ffff:10.0.0.1"},
                  {"", ":", ":::", "1::2::3", "2001:db8::1/64", "10.0.0.1", "fe80::1%eth0", "g::1",
                   "1:2:3:4:5:6:7:8:9", std::string(100, '1')});
    // A plain address is a host prefix.
    expectAccepts("_IPV6PREFIX_", {"::/0", "2001:db8::/32", "2001:db8::1/128", "::1/064", "::", "2001:db8::1"},
                  {"", ":::", "1::2::3", "::/", "/1", "::/129", "::/1x", "::/-1", "10.0.0.0/8", "::/1/2", "::1/0128"});
    expectAccepts("_ipAddress_", {"0.0.0.0", "10.1.2.3", "255.255.255.255"},
                  {"", "10.1.2", "256.1.1.1", "1.2.3.4.5", "::1", "a.b.c.d"});
}

TEST(GrammarTokens, HardwareAddresses)
{
    expectAccepts("_MACAddress_", {"0011.2233.4455", "aabb.ccdd.eeff", "AABB.CCDD.EEFF", "00:11:22:33:44:55",
                                   "aa-bb-cc-dd-ee-ff"},
                  {"", "0011.2233.445", "0011.2233.44556", "0011-2233-4455", "00:11:22:33:44-55", "00:11:22:33:44",
                   "001122334455", "0g11.2233.4455", "00.11.22.33.44.55"});
}

TEST(GrammarTokens, Interfaces)
{
    expectAccepts("_CONFPORTLIST_",
                  {"0/1", "1/0/1", "ge0/1", "gigabitethernet0/1", "GigabitEthernet0/24", "ge0/1-4", "ge0/1-4,0/7",
                   "ge0/1,ge0/3", "ag3", "link-aggregation3", "0/1-1"},
                  {"", "1", "ge", "ge0/", "/1", "ge0/4-1", "0/1,", ",0/1", "ge0/1-", "1/2/3/4", "ge0/1 ", "ge 0/1",
                   "-ge0/1", "ge0/a"});
    expectAccepts("_CONFPORTAGGNUM_", {"1", "128", "064"}, {"0", "129", "", "-1", "ag1", "1/1"});
}

TEST(GrammarTokens, FreeWords)
{
    for (const char *t : {"_WORD_", "_STRING_", "_PASSWORD_", "_LINE_"})
        expectAccepts(t, {"x", "anything-at-all", "a/b", "12"}, {""});
}

TEST(GrammarTokens, KeywordsAndCrAreNotParameters)
{
    expectAccepts("nd", {}, {"nd", ""});
    expectAccepts("_CR_", {}, {"", "x"});
}

TEST(GrammarTokens, PartlyTypedNumbersAreOfferedWhileTheyCanStillFit)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add("a(EN,0,''){_30_2147483_(EN,0,'t')},b(EN,0,''){_-5_5_(EN,0,'s')}", fx::handler<1>).ok);
    auto offers = [&](const std::string &line) { return tree.complete(CliMode::EN, line).candidates.size() == 1; };
    EXPECT_TRUE(offers("a 3"));
    EXPECT_TRUE(offers("a 2147483"));
    EXPECT_FALSE(offers("a 2147484"));
    EXPECT_FALSE(offers("a x"));
    EXPECT_TRUE(offers("b -"));
    EXPECT_TRUE(offers("b -5"));
    EXPECT_FALSE(offers("b -6"));
    EXPECT_FALSE(offers("b 6"));
}

TEST(GrammarTokens, UnknownModeValueMatchesNothing)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kRow9, fx::handler<1>).ok);
    auto bad = static_cast<CliMode>(kCliModeCount);
    EXPECT_EQ(tree.match(bad, "nd fast-response").status, MatchStatus::Unknown);
    EXPECT_EQ(tree.complete(bad, "").status, MatchStatus::Unknown);
    EXPECT_STREQ(cli_mode_name(bad), "?");
    // Blanks only: every first word is offered.
    Completion c = tree.complete(CliMode::CONF, "   ");
    ASSERT_EQ(c.candidates.size(), 1u);
    EXPECT_EQ(c.candidates[0].text, "nd");
    EXPECT_EQ(c.prefixColumn, 3u);
}
