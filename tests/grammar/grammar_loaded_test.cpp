// The plug-in's own registrations read by the shell's command language: every definition that
// the started plug-in registers parses, and its commands reach the plug-in's handlers.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"
#include "test_support.h"

namespace {

using ndplat::CliMode;
using ndplat::MatchStatus;
using Words = std::vector<std::string>;

class LoadedGrammarTest : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        ASSERT_TRUE(plugin.ok()) << plugin.error();
        ASSERT_EQ(plugin.start(), 0u);
    }

    // The handlers are not exported: a handler is known by the definition registered with it.
    static SHELL_CMD_FN handlerOf(const std::string &definition)
    {
        for (const ndplat::CmdRegistration &r : ndplat::cmd_registrations())
            if (r.definition == definition)
                return r.fn;
        ADD_FAILURE() << "not registered: " << definition;
        return nullptr;
    }

    // The handler of the n-th row of the ND table (registered first), checked by a word of it.
    static SHELL_CMD_FN ndRow(size_t row, const char *word)
    {
        auto registrations = ndplat::cmd_registrations();
        if (row == 0 || row > registrations.size()) {
            ADD_FAILURE() << "no row " << row;
            return nullptr;
        }
        EXPECT_NE(registrations[row - 1].definition.find(word), std::string::npos) << row;
        return registrations[row - 1].fn;
    }

    static void expectCommand(CliMode mode, const std::string &line, SHELL_CMD_FN fn, const Words &argv)
    {
        ndplat::MatchResult m = ndplat::match_line(mode, line);
        EXPECT_EQ(m.status, MatchStatus::Ok) << line << ": " << m.message() << " at word " << m.wordIndex;
        EXPECT_NE(m.fn, nullptr) << line;
        EXPECT_EQ(m.fn, fn) << line;
        EXPECT_EQ(m.argv, argv) << line;
    }

    static std::vector<std::string> offered(CliMode mode, const std::string &line)
    {
        std::vector<std::string> out;
        for (const ndplat::Candidate &c : ndplat::complete_line(mode, line).candidates)
            out.push_back(c.text);
        return out;
    }

    ndtest::LoadedPlugin plugin;
};

} // namespace

TEST_F(LoadedGrammarTest, EveryRegisteredDefinitionParses)
{
    auto registrations = ndplat::cmd_registrations();
    // The ND table, the VXLAN table and the hidden test commands.
    EXPECT_GE(registrations.size(), 46u + 28u + 4u);
    for (const ndplat::DefinitionError &e : ndplat::definition_errors())
        ADD_FAILURE() << "position " << e.position << " (" << e.error << "): " << e.definition;
    EXPECT_TRUE(ndplat::definition_errors().empty());
    EXPECT_EQ(ndplat::registered_commands(), registrations.size());
    for (const ndplat::CmdRegistration &r : registrations) {
        ndplat::DefParseResult parsed = ndplat::parse_definition(r.definition);
        EXPECT_TRUE(parsed.ok) << r.definition;
        EXPECT_NE(r.fn, nullptr) << r.definition;
    }
}

TEST_F(LoadedGrammarTest, NdCommandsReachTheirHandlers)
{
    EXPECT_NE(ndRow(11, "enable(CONF"), ndRow(15, "enable(VLAN"));
    expectCommand(CliMode::IF, "nd proxy enable", handlerOf(fx::kRow1), {"nd", "proxy", "enable"});
    expectCommand(CliMode::MIF, "ipv6 nd proxy", handlerOf(fx::kRow3), {"ipv6", "nd", "proxy"});
    expectCommand(CliMode::CONF, "nd snooping enable", ndRow(11, "enable(CONF"), {"nd", "snooping", "enable"});
    expectCommand(CliMode::VLAN, "nd snooping enable", ndRow(15, "enable(VLAN"), {"nd", "snooping", "enable"});
    expectCommand(CliMode::EN, "no debug nd all", handlerOf(fx::kRow36), {"no", "debug", "nd", "all"});
    expectCommand(CliMode::CONF, "nd sn user static 2001::1 0011.2233.4455 vlan 4094 interface gigabitethernet 0/1",
                  ndRow(19, "_CONFPORTLIST_"),
                  {"nd", "snooping", "user-bind", "static", "2001::1", "0011.2233.4455", "vlan", "4094", "interface",
                   "gigabitethernet 0/1"});
    expectCommand(CliMode::CONF, "nd sn user static 2001::1 00-11-22-33-44-55 vlan 1 interface 128", ndRow(19, "_CONFPORTAGGNUM_"),
                  {"nd", "snooping", "user-bind", "static", "2001::1", "00-11-22-33-44-55", "vlan", "1", "interface",
                   "128"});
    expectCommand(CliMode::EN, "show nd fast-response statistics", ndRow(33, "show(EN"),
                  {"show", "nd", "fast-response", "statistics"});
    expectCommand(CliMode::EN, "show nd snooping statistics | include context rx", ndRow(29, "statistics(EN"),
                  {"show", "nd", "snooping", "statistics", "|", "include", "context", "rx"});
    EXPECT_EQ(ndplat::match_line(CliMode::CONF, "nd snooping detect retransmit 33 interval 3").status,
              MatchStatus::Unknown);
}

TEST_F(LoadedGrammarTest, VxlanAndTestCommandsReachTheirHandlers)
{
    expectCommand(CliMode::VXLAN, "ipv6 nd host timeout 30", handlerOf(fx::kVxlan[0]), {"ipv6", "nd", "host", "timeout", "30"});
    expectCommand(CliMode::VXLAN, "nd host timeout 45", handlerOf(fx::kVxlan[2]), {"nd", "host", "timeout", "45"});
    expectCommand(CliMode::VXLAN, "no nd host limited", handlerOf(fx::kVxlan[7]), {"no", "nd", "host", "limited"});
    expectCommand(CliMode::VXLAN, "no ipv6 nd suppression", handlerOf(fx::kVxlan[13]), {"no", "ipv6", "nd", "suppression"});
    expectCommand(CliMode::EN, "nd mpos suppress 10 1 2001::1 10.0.0.1 0011.2233.4455 3", handlerOf(fx::kSuppressTest),
                  {"nd", "mpos", "suppress", "10", "1", "2001::1", "10.0.0.1", "0011.2233.4455", "3"});
    expectCommand(CliMode::EN, "no nd mpos nbrentry 1 10 7 1 0 2001::1 2001::2 0011.2233.4455 2", handlerOf(fx::noNbrTest()),
                  {"no", "nd", "mpos", "nbrentry", "1", "10", "7", "1", "0", "2001::1", "2001::2", "0011.2233.4455", "2"});
}

TEST_F(LoadedGrammarTest, HiddenCommandsAreNotOffered)
{
    std::vector<std::string> show = offered(CliMode::EN, "show ");
    EXPECT_EQ(std::count(show.begin(), show.end(), "nd-ps"), 0);
    EXPECT_EQ(std::count(show.begin(), show.end(), "nd"), 1);
    std::vector<std::string> showNd = offered(CliMode::EN, "show nd ");
    EXPECT_EQ(std::count(showNd.begin(), showNd.end(), "mlag"), 0);
    EXPECT_EQ(std::count(showNd.begin(), showNd.end(), "proxy"), 1);
    EXPECT_TRUE(offered(CliMode::EN, "nd ").empty());
    EXPECT_TRUE(offered(CliMode::MIF, "").empty());
}

TEST_F(LoadedGrammarTest, CompletionOfTheWholeTableIsFast)
{
    const std::vector<std::pair<CliMode, std::string>> lines = {
        {CliMode::EN, ""}, {CliMode::EN, "show "}, {CliMode::EN, "show nd snooping user-bind static | "},
        {CliMode::CONF, "nd snooping "}, {CliMode::VXLAN, "ipv6 nd "}, {CliMode::CONF, "no nd s"},
    };
    for (const auto &[mode, line] : lines) {
        auto best = std::chrono::steady_clock::duration::max();
        for (int run = 0; run < 20; ++run) {
            auto start = std::chrono::steady_clock::now();
            ndplat::Completion c = ndplat::complete_line(mode, line);
            best = std::min(best, std::chrono::steady_clock::now() - start);
            EXPECT_EQ(c.status, MatchStatus::Ok) << line;
            EXPECT_FALSE(c.candidates.empty()) << line;
        }
        EXPECT_LT(std::chrono::duration_cast<std::chrono::microseconds>(best).count(), 5000) << line;
    }
}
