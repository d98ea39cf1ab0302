// Merging registrations into one tree: the same words in several modes with several handlers,
// modes joined across registrations, help and visibility per mode, failed definitions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"

using namespace ndplat;

namespace {

constexpr auto h1 = fx::handler<1>;
constexpr auto h2 = fx::handler<2>;
constexpr auto h3 = fx::handler<3>;

std::vector<std::string> texts(const Completion &c)
{
    std::vector<std::string> t;
    for (const Candidate &k : c.candidates)
        t.push_back(k.text + "=" + k.help);
    return t;
}

} // namespace

TEST(GrammarMerge, SamePathInTwoModesWithTwoHandlers)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kSnoopEnableConf, h1).ok);
    ASSERT_TRUE(tree.add(fx::kSnoopEnableVlan, h2).ok);
    MatchResult conf = tree.match(CliMode::CONF, "nd snooping enable");
    MatchResult vlan = tree.match(CliMode::VLAN, "nd snooping enable");
    EXPECT_EQ(conf.status, MatchStatus::Ok);
    EXPECT_EQ(conf.fn, h1);
    EXPECT_EQ(vlan.status, MatchStatus::Ok);
    EXPECT_EQ(vlan.fn, h2);
    EXPECT_EQ(conf.argv, vlan.argv);
    EXPECT_EQ(tree.match(CliMode::EN, "nd snooping enable").status, MatchStatus::Unknown);
    EXPECT_EQ(tree.match(CliMode::PORT, "nd snooping enable").status, MatchStatus::Unknown);
    EXPECT_EQ(fx::handler<1>(0, nullptr), 1);
    EXPECT_EQ(conf.fn(0, nullptr), 1);
    EXPECT_EQ(vlan.fn(0, nullptr), 2);
}

TEST(GrammarMerge, CommandsOfOneModeShareTheirWords)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kRow9, h1).ok);
    ASSERT_TRUE(tree.add(fx::kRow21, h2).ok);
    ASSERT_TRUE(tree.add(fx::kSnoopEnableConf, h3).ok);
    EXPECT_EQ(tree.registrations(), 3u);
    EXPECT_EQ(tree.match(CliMode::CONF, "nd fast-response").fn, h1);
    EXPECT_EQ(tree.match(CliMode::CONF, "nd snooping detect retransmit 2 interval 5").fn, h2);
    EXPECT_EQ(tree.match(CliMode::CONF, "nd snooping enable").fn, h3);
    EXPECT_EQ(texts(tree.complete(CliMode::CONF, "nd snooping ")),
              (std::vector<std::string>{"detect=Snooping dynamic user-bind detect", "enable=Configure nd snooping switch"}));
}

TEST(GrammarMerge, NegatedDebugReachesEnableModeThroughASharedNoNode)
{
    // Alone, the negated debug command starts with a CONF node above EN nodes: no mode takes
    // the whole line.
    CommandTree alone;
    ASSERT_TRUE(alone.add(fx::kRow36, h1).ok);
    EXPECT_EQ(alone.match(CliMode::EN, "no debug nd all").status, MatchStatus::Unknown);
    MatchResult conf = alone.match(CliMode::CONF, "no debug nd all");
    EXPECT_EQ(conf.status, MatchStatus::Unknown);
    EXPECT_EQ(conf.wordIndex, 1u);
    // Beside an EN command that starts with "no", the shared "no" node is accepted in EN too.
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kRow35, h1).ok);
    ASSERT_TRUE(tree.add(fx::kRow36, h1).ok);
    ASSERT_TRUE(tree.add(fx::kNoDebugMlag, h2).ok);
    MatchResult en = tree.match(CliMode::EN, "no debug nd all");
    ASSERT_EQ(en.status, MatchStatus::Ok);
    EXPECT_EQ(en.fn, h1);
    ASSERT_EQ(en.argv.size(), 4u);
    EXPECT_EQ(en.argv[3], "all");
    EXPECT_EQ(tree.match(CliMode::EN, "no debug nd mlag").fn, h2);
    EXPECT_EQ(tree.match(CliMode::EN, "debug nd serve").fn, h1);
    // Each registration keeps its own help in the shared node.
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "no debug nd s")), (std::vector<std::string>{"serve=Nd show debug"}));
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "debug nd s")), (std::vector<std::string>{"serve=Nd serve debug"}));
}

TEST(GrammarMerge, FirstHandlerOfAPathInAModeStays)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add("a(EN,0,'first'){b(EN,0,'')}", h1).ok);
    ASSERT_TRUE(tree.add("a(EN|CONF,0,'second'){b(EN|CONF,0,'')}", h2).ok);
    EXPECT_EQ(tree.match(CliMode::EN, "a b").fn, h1);
    EXPECT_EQ(tree.match(CliMode::CONF, "a b").fn, h2);
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "")), (std::vector<std::string>{"a=first"}));
    EXPECT_EQ(texts(tree.complete(CliMode::CONF, "")), (std::vector<std::string>{"a=second"}));
}

TEST(GrammarMerge, VisibleRegistrationGivesTheHelp)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add("a(EN,0,HIDE,'hidden'){b(EN,0,'')}", h1).ok);
    EXPECT_TRUE(tree.complete(CliMode::EN, "").candidates.empty());
    ASSERT_TRUE(tree.add("a(EN,0,'shown'){c(EN,0,'see')}", h2).ok);
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "")), (std::vector<std::string>{"a=shown"}));
    // b came in below a hidden node and stays hidden; c is visible.
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "a ")), (std::vector<std::string>{"c=see"}));
    EXPECT_EQ(tree.match(CliMode::EN, "a b").fn, h1);
}

TEST(GrammarMerge, EmptyHelpIsFilledByALaterRegistration)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add("show(EN, 0, ''){a(EN,0,'')}", h1).ok);
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "")), (std::vector<std::string>{"show="}));
    ASSERT_TRUE(tree.add("show(EN, 0, 'Show running system information') {b(EN,0,'')}", h2).ok);
    ASSERT_TRUE(tree.add("show(EN, 0, 'Other') {c(EN,0,'')}", h3).ok);
    EXPECT_EQ(texts(tree.complete(CliMode::EN, "")), (std::vector<std::string>{"show=Show running system information"}));
}

TEST(GrammarMerge, CommandThatEndsInsideAnother)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kVxlan[2], h1).ok); // nd host timeout <30-2147483>, hidden
    ASSERT_TRUE(tree.add(fx::kVxlan[3], h2).ok); // no nd host timeout, hidden
    ASSERT_TRUE(tree.add("nd(VXLAN,0,''){host(VXLAN,0,''){timeout(VXLAN,0,'')}}", h3).ok);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "nd host timeout").fn, h3);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "nd host timeout 45").fn, h1);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "no nd host timeout").fn, h2);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "no nd host timeout 45").status, MatchStatus::Unknown);
}

TEST(GrammarMerge, FailedDefinitionLeavesTheTreeAsItWas)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kRow9, h1).ok);
    // Valid up to its last node: nothing of it may be merged.
    DefParseResult bad = tree.add("nd(CONF,0,'x'){snooping(CONF,0,'y'){enable(CONF,0,'z')}", h2);
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.errorPosition, 55u);
    EXPECT_EQ(bad.error, "expected '}'");
    EXPECT_EQ(tree.registrations(), 1u);
    EXPECT_EQ(tree.match(CliMode::CONF, "nd snooping enable").status, MatchStatus::Unknown);
    EXPECT_EQ(texts(tree.complete(CliMode::CONF, "nd ")), (std::vector<std::string>{"fast-response=Nd packet fast-response"}));
    EXPECT_EQ(tree.match(CliMode::CONF, "nd fast-response").fn, h1);
}

TEST(GrammarMerge, ClearForgetsEverything)
{
    CommandTree tree;
    ASSERT_TRUE(tree.add(fx::kRow9, h1).ok);
    tree.clear();
    EXPECT_EQ(tree.registrations(), 0u);
    EXPECT_EQ(tree.match(CliMode::CONF, "nd fast-response").status, MatchStatus::Unknown);
    EXPECT_TRUE(tree.complete(CliMode::CONF, "").candidates.empty());
}

TEST(GrammarMerge, EveryVxlanRowInItsMode)
{
    CommandTree tree;
    for (size_t i = 0; i < fx::kVxlan.size(); ++i)
        ASSERT_TRUE(tree.add(fx::kVxlan[i], i < 8 ? h1 : h2).ok) << i;
    EXPECT_EQ(tree.match(CliMode::VXLAN, "ipv6 nd host timeout 300").fn, h1);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "no ipv6 nd host timeout").fn, h1);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "nd host limited 0").fn, h1);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "no nd host limited").fn, h1);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "ipv6 nd host advertise").fn, h2);
    EXPECT_EQ(tree.match(CliMode::VXLAN, "no ipv6 nd suppression unicast forward").fn, h2);
    // Only the visible spellings are offered; "no" is offered with its help.
    EXPECT_EQ(texts(tree.complete(CliMode::VXLAN, "")),
              (std::vector<std::string>{"ipv6=", "no=Negate a command or set its defaults"}));
    EXPECT_EQ(texts(tree.complete(CliMode::VXLAN, "no ")), (std::vector<std::string>{"ipv6="}));
    EXPECT_EQ(texts(tree.complete(CliMode::VXLAN, "ipv6 nd host ")),
              (std::vector<std::string>{"advertise=Set ND local host advertise", "limited=Set ND host entry limit number",
                                        "timeout=Set ND cache timeout"}));
    EXPECT_EQ(texts(tree.complete(CliMode::VXLAN, "ipv6 nd suppression ")),
              (std::vector<std::string>{"missmatch=ND missmatch host entry", "unicast=ND suppression unicast forward",
                                        "<cr>="}));
    EXPECT_TRUE(tree.complete(CliMode::EN, "").candidates.empty());
}
