// The platform's own tree: fed by every command registration, emptied by reset().
#include <gtest/gtest.h>

#include "cmd_grammar.h"
#include "grammar_fixtures.h"
#include "test_support.h"

using namespace ndplat;

namespace {
class PlatformTree : public ndtest::PlatformTest {};
} // namespace

TEST_F(PlatformTree, RegistrationsAreMerged)
{
    EXPECT_EQ(registered_commands(), 0u);
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, fx::handler<1>, fx::kRow9), 0u);
    EXPECT_EQ(cmd_register(fx::handler<2>, fx::kSuppressTest), 0u);
    EXPECT_EQ(registered_commands(), 2u);
    MatchResult r = match_line(CliMode::CONF, "nd fast");
    EXPECT_EQ(r.status, MatchStatus::Ok);
    EXPECT_EQ(r.fn, fx::handler<1>);
    EXPECT_EQ(r.argv, (std::vector<std::string>{"nd", "fast-response"}));
    EXPECT_EQ(match_line(CliMode::EN, "nd mpos suppress 1 2 ::1 1.1.1.1 0011.2233.4455 1").fn, fx::handler<2>);
    Completion c = complete_line(CliMode::CONF, "nd ");
    ASSERT_EQ(c.candidates.size(), 1u);
    EXPECT_EQ(c.candidates[0].text, "fast-response");
    EXPECT_EQ(c.candidates[0].help, "Nd packet fast-response");
    EXPECT_TRUE(definition_errors().empty());
}

TEST_F(PlatformTree, MalformedDefinitionIsRefusedAndKept)
{
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, fx::handler<1>, "nd(CONF,0,'x'){zap(CONF,0,'y')"), 1u);
    EXPECT_EQ(cmd_register(fx::handler<1>, "nd(BAD,0,'x')"), 1u);
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, fx::handler<1>, fx::kRow9), 0u);
    auto errors = definition_errors();
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].definition, "nd(CONF,0,'x'){zap(CONF,0,'y')");
    EXPECT_EQ(errors[0].position, 30u);
    EXPECT_EQ(errors[0].error, "expected '}'");
    EXPECT_EQ(errors[1].position, 3u);
    EXPECT_EQ(errors[1].error, "expected a mode");
    EXPECT_EQ(registered_commands(), 1u);
    // Every registration is still recorded as made.
    EXPECT_EQ(cmd_registrations().size(), 3u);
    EXPECT_EQ(match_line(CliMode::CONF, "nd zap").status, MatchStatus::Unknown);
    EXPECT_EQ(match_line(CliMode::CONF, "nd fast").status, MatchStatus::Ok);
}

TEST_F(PlatformTree, NullDefinitionIsMalformed)
{
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, fx::handler<1>, nullptr), 1u);
    ASSERT_EQ(definition_errors().size(), 1u);
    EXPECT_EQ(definition_errors()[0].position, 0u);
}

TEST_F(PlatformTree, ResetEmptiesTheTree)
{
    SHELL_CmdRegByModule(0, 296, fx::handler<1>, fx::kRow9);
    SHELL_CmdRegByModule(0, 296, fx::handler<1>, "x");
    reset();
    EXPECT_EQ(registered_commands(), 0u);
    EXPECT_TRUE(definition_errors().empty());
    EXPECT_EQ(match_line(CliMode::CONF, "nd fast-response").status, MatchStatus::Unknown);
}

TEST_F(PlatformTree, FaultedRegistrationIsNotMerged)
{
    fault_inject("SHELL_CmdRegByModule", 5);
    EXPECT_EQ(SHELL_CmdRegByModule(0, 296, fx::handler<1>, fx::kRow9), 5u);
    EXPECT_EQ(registered_commands(), 0u);
}
