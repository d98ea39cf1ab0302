// VXLAN configuration commands and the VXLAN command table.
#include "vxlan_expected_defs.h"
#include "vxlan_test_util.h"

using namespace vxlantest;

namespace {

constexpr int32_t kVxlanId = 4097;

class VxlanCmdTest : public VxlanTest {
protected:
    void SetUp() override
    {
        VxlanTest::SetUp();
        ndplat::int_env_set(164, kVxlanId);
    }

    // Runs a handler against a service that answers with `status`; returns the one request.
    ndplat::CmfRequest run(SHELL_CMD_FN fn, const std::vector<std::string> &words, std::string *printed = nullptr,
                           uint32_t status = 13)
    {
        ndplat::cmf_script(response(status, {}));
        ndtest::Stdout out;
        ndtest::run_handler(fn, words);
        std::string text = out.take();
        if (printed)
            *printed = text;
        else
            EXPECT_EQ(text, "");
        auto requests = ndplat::cmf_requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? ndplat::CmfRequest{} : requests[0];
    }
};

TEST_F(VxlanCmdTest, NoTimeoutSendsTheDefault360)
{
    auto r = run(ndCliVxlanTimeoutSet, {"no", "ipv6", "nd", "host", "timeout"});
    EXPECT_EQ(r.cmdCode, 19u);
    EXPECT_EQ(r.optKind, 4u);
    EXPECT_EQ(r.serviceType, 234u);
    EXPECT_EQ(r.serviceInstance, 1u);
    EXPECT_EQ(r.service, "ipv6");
    EXPECT_EQ(r.argIndex, 6u); // past "no ipv6 nd host timeout", then one more for the value
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[0], 15, kVxlanId);
    expectU32Item(r.items[1], 14, 360);
}

TEST_F(VxlanCmdTest, HiddenNoLimitSendsTheDefault20480)
{
    auto r = run(ndCliVxlanLimitSet, {"no", "nd", "host", "limited"});
    EXPECT_EQ(r.cmdCode, 20u);
    EXPECT_EQ(r.optKind, 4u);
    EXPECT_EQ(r.argIndex, 5u);
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[0], 15, kVxlanId);
    expectU32Item(r.items[1], 16, 20480);
}

TEST_F(VxlanCmdTest, TimeoutValueIsReadAfterTheKeyword)
{
    auto r = run(ndCliVxlanTimeoutSet, {"ipv6", "nd", "host", "timeout", "30"});
    EXPECT_EQ(r.optKind, 3u);
    EXPECT_EQ(r.argIndex, 5u);
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[1], 14, 30);

    ndplat::reset();
    ndplat::int_env_set(164, kVxlanId);
    r = run(ndCliVxlanTimeoutSet, {"nd", "host", "timeout", "45"});
    EXPECT_EQ(r.argIndex, 4u);
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[1], 14, 45);
}

TEST_F(VxlanCmdTest, Ipv6WordIsMatchedWithoutRegardToCase)
{
    auto r = run(ndCliVxlanLimitSet, {"IPv6", "nd", "host", "limited", "100"});
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[1], 16, 100);
}

TEST_F(VxlanCmdTest, LimitZeroMeansUnlimitedAndIsSent)
{
    auto r = run(ndCliVxlanLimitSet, {"ipv6", "nd", "host", "limited", "0"});
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[1], 16, 0);
}

TEST_F(VxlanCmdTest, SetFormWithoutValueSendsZero)
{
    auto r = run(ndCliVxlanTimeoutSet, {"ipv6", "nd", "host", "timeout"});
    ASSERT_EQ(r.items.size(), 2u);
    expectU32Item(r.items[1], 14, 0);
}

TEST_F(VxlanCmdTest, FlagCommandsSendOnlyTheVxlanId)
{
    struct Case {
        SHELL_CMD_FN fn;
        uint32_t code;
        std::vector<std::string> words;
    } cases[] = {
        {ndCliVxlanLocalAdvSet, 21, {"ipv6", "nd", "host", "advertise"}},
        {ndCliVxlanSuppressionSet, 22, {"ipv6", "nd", "suppression"}},
        {ndCliVxlanSuppressionMissDiscardSet, 23, {"ipv6", "nd", "suppression", "missmatch", "discard"}},
        {ndCliVxlanSuppressionUnicastFwdSet, 24, {"nd", "suppression", "unicast", "forward"}},
    };
    for (const Case &c : cases) {
        for (bool negated : {false, true}) {
            ndplat::reset();
            ndplat::int_env_set(164, kVxlanId);
            std::vector<std::string> words = c.words;
            if (negated)
                words.insert(words.begin(), "no");
            auto r = run(c.fn, words);
            EXPECT_EQ(r.cmdCode, c.code);
            EXPECT_EQ(r.optKind, negated ? 4u : 3u);
            EXPECT_EQ(r.argIndex, negated ? 1u : 0u);
            ASSERT_EQ(r.items.size(), 1u);
            expectU32Item(r.items[0], 15, kVxlanId);
        }
    }
}

TEST_F(VxlanCmdTest, MemoryShortRefusesSetButNotUndo)
{
    ndplat::mem_state_set(1);
    ndtest::Stdout out;
    EXPECT_GT(ndtest::run_handler(ndCliVxlanSuppressionSet, {"ipv6", "nd", "suppression"}), 0);
    EXPECT_EQ(out.take(), "\n% Memory short, Can't configure this command, please try later");
    EXPECT_TRUE(ndplat::cmf_requests().empty());

    auto r = run(ndCliVxlanSuppressionSet, {"no", "ipv6", "nd", "suppression"});
    EXPECT_EQ(r.optKind, 4u);
    EXPECT_EQ(r.cmdCode, 22u);
}

TEST_F(VxlanCmdTest, MemoryShortRefusesValueCommandsToo)
{
    ndplat::mem_state_set(2);
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanTimeoutSet, {"ipv6", "nd", "host", "timeout", "30"});
    EXPECT_EQ(out.take(), "\n% Memory short, Can't configure this command, please try later");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("mpsh_get_int_env").empty());
}

TEST_F(VxlanCmdTest, ServiceErrorsArePrintedWithTheirText)
{
    std::string printed;
    run(ndCliVxlanSuppressionMissDiscardSet, {"ipv6", "nd", "suppression", "missmatch", "discard"}, &printed, 47);
    EXPECT_EQ(printed, "\n% Vxlan 'nd suppression' not set");

    ndplat::reset();
    run(ndCliVxlanSuppressionSet, {"ipv6", "nd", "suppression"}, &printed, 49);
    EXPECT_EQ(printed, "\n% Conflict, 'nd suppression' is set!");
}

TEST_F(VxlanCmdTest, UndoOfMissingSettingIsSilent)
{
    ndplat::cmf_script(response(13, {}, 6));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionSet, {"no", "ipv6", "nd", "suppression"});
    // Only the exchange's own decode diagnostic; no error text.
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 6\n");
}

TEST_F(VxlanCmdTest, UndoOfMissDiscardAnsweredWith6IsZero)
{
    ndplat::cmf_script(response(13, {}, 6));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionMissDiscardSet,
                        {"no", "ipv6", "nd", "suppression", "missmatch", "discard"});
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 6\n");
}

TEST_F(VxlanCmdTest, TransportFailureIsPrintedOnlyWhenItHasAText)
{
    ndplat::fault_inject("CMF_ClientRequestSend", 5);
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionSet, {"ipv6", "nd", "suppression"});
    EXPECT_EQ(out.take(), ""); // status 5 is passed on unmapped and has no text
}

TEST_F(VxlanCmdTest, RegistersTheTwentyEightRowsInOrder)
{
    nd_CliVxlanCmdRegister();
    auto regs = ndplat::cmd_registrations();
    ASSERT_EQ(regs.size(), 28u);
    const SHELL_CMD_FN handlers[28] = {
        ndCliVxlanTimeoutSet, ndCliVxlanTimeoutSet, ndCliVxlanTimeoutSet, ndCliVxlanTimeoutSet,
        ndCliVxlanLimitSet, ndCliVxlanLimitSet, ndCliVxlanLimitSet, ndCliVxlanLimitSet,
        ndCliVxlanLocalAdvSet, ndCliVxlanLocalAdvSet, ndCliVxlanLocalAdvSet, ndCliVxlanLocalAdvSet,
        ndCliVxlanSuppressionSet, ndCliVxlanSuppressionSet, ndCliVxlanSuppressionSet, ndCliVxlanSuppressionSet,
        ndCliVxlanSuppressionMissDiscardSet, ndCliVxlanSuppressionMissDiscardSet,
        ndCliVxlanSuppressionMissDiscardSet, ndCliVxlanSuppressionMissDiscardSet,
        ndCliVxlanSuppressionUnicastFwdSet, ndCliVxlanSuppressionUnicastFwdSet,
        ndCliVxlanSuppressionUnicastFwdSet, ndCliVxlanSuppressionUnicastFwdSet,
        ndCliVxlanSuppressionShow, ndCliVxlanHostShow, ndCliVxlanHostclear, ndCliVxlanHostIssu,
    };
    for (size_t i = 0; i < 28; ++i) {
        EXPECT_EQ(regs[i].flags, 0u) << i;
        EXPECT_EQ(regs[i].module, 296u) << i;
        EXPECT_FALSE(regs[i].viaCmdRegister) << i;
        EXPECT_EQ(regs[i].fn, handlers[i]) << "row " << i + 1;
    }
    for (size_t i = 0; i < 24; ++i)
        EXPECT_EQ(regs[i].definition, kExpectedCfgDefinitions[i]) << "row " << i + 1;
    EXPECT_EQ(regs[26].definition, kExpectedHostClear);
    EXPECT_EQ(regs[27].definition, kExpectedHostIssu);
}

TEST_F(VxlanCmdTest, FirstDefinitionKeepsItsExtraClosingBrace)
{
    const std::string first = kNdCliVxlanCmdTable[0].definition;
    EXPECT_EQ(std::count(first.begin(), first.end(), '}'), std::count(first.begin(), first.end(), '{') + 1);
    for (size_t i = 1; i < kNdCliVxlanCmdCount; ++i) {
        const std::string d = kNdCliVxlanCmdTable[i].definition;
        EXPECT_EQ(std::count(d.begin(), d.end(), '}'), std::count(d.begin(), d.end(), '{')) << "row " << i + 1;
    }
}

// Splits a show definition at the top level of one node's children.
size_t occurrences(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

TEST_F(VxlanCmdTest, ShowDefinitionsOfferTheOutputModifiersWhereTheyMayEnd)
{
    const std::string modifiers = ND_CLI_OUTPUT_MODIFIERS;
    const std::string suppression = kNdCliVxlanCmdTable[24].definition;
    EXPECT_EQ(suppression,
              "show(EN, 0, 'Show running system information') {ipv6(EN, 0, '') {nd(EN, 0, 'Show ND parameters') "
              "{suppression(EN, 0, 'Show ND Broadcast suppression'){" +
                  modifiers + ",vxlan(EN, 0, 'Vxlan'){_1_8190_(EN, 0, 'VxlanId'){" + modifiers +
                  ",_CR_(EN, 0, '')}},_CR_(EN, 0, '')}}}}");
    const std::string host = kNdCliVxlanCmdTable[25].definition;
    EXPECT_EQ(host,
              "show(EN, 0, 'Show running system information') {ipv6(EN, 0, '') {nd(EN, 0, 'Show ND parameters') "
              "{host(EN, 0, 'Show ND Host entry'){vxlan(EN, 0, 'Vxlan'){" +
                  modifiers + ",_1_8190_(EN, 0, 'VxlanId'){" + modifiers + ",_CR_(EN, 0, '')},_CR_(EN, 0, '')}}}}}");
    EXPECT_EQ(occurrences(modifiers, "begin("), 1u);
    EXPECT_EQ(occurrences(modifiers, "_PASSWORD_("), 2u); // ftp and vrf chains written out
    EXPECT_EQ(occurrences(modifiers, "'Destination file name,such as \"/flash/test\"'"), 1u);
}

} // namespace
