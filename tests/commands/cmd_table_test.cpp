// The ND command table as registered with the shell: order, handlers, module and flags, the
// fixed definitions word for word, and the deliberate irregularities of the others.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cmd_rows.h"
#include "nd_cmd.h"
#include "test_support.h"

namespace {

using ndplat::CmdRegistration;
using ndtest::PlatformTest;

struct HandlerRow {
    int number;
    SHELL_CMD_FN fn;
};

const std::vector<HandlerRow> &handlerRows()
{
    static const std::vector<HandlerRow> rows = {
        {1, ndArgProcForProxyEnable},          {2, ndArgProcForProxyEnable},
        {3, ndArgProcForProxyEnable},          {4, ndArgProcForProxyEnable},
        {5, ndArgProcForProxyAnywayEnable},    {6, ndArgProcForProxyAnywayEnable},
        {7, ndArgProcForLocProxyEnable},       {8, ndArgProcForLocProxyEnable},
        {9, ndArgProcForFrEnable},             {10, ndArgProcForFrEnable},
        {32, ndShowProxyAddr},                 {33, ndShowNdForwardPktStat},
        {34, ndShowNdForwardPktStat},          {35, ndDebugSnooping},
        {36, ndDebugSnooping},                 {37, nd_MposPublishRegShowCmd},
        {38, nd_MposPublishRegClearCmd},       {39, nd_MposPublishRegDebugCmd},
        {40, nd_MposPublishRegDebugCmd},       {44, nd_MlagShowCmd},
        {45, nd_MlagDebugCmd},                 {46, nd_MlagDebugCmd},
    };
    return rows;
}

class CmdTableTest : public PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        ndCmdRegister();
        regs_ = ndplat::cmd_registrations();
    }

    std::string def(int number) const
    {
        const CmdRegistration *r = ndtest::row(regs_, number);
        EXPECT_NE(r, nullptr) << "row " << number;
        return r ? r->definition : std::string();
    }

    std::vector<CmdRegistration> regs_;
};

TEST_F(CmdTableTest, TheTableHasFortySixRows)
{
    ndtest::TableShape shape = ndtest::tableShape(regs_);
    ASSERT_TRUE(shape.ok) << regs_.size() << " registrations";
    EXPECT_TRUE(shape.withSnooping);
    EXPECT_TRUE(shape.withDiagnose);
    EXPECT_EQ(regs_.size(), 46u);
}

TEST_F(CmdTableTest, FixedSnoopingDetectDefinition)
{
    EXPECT_EQ(def(21),
              "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){detect(CONF, 0, 'Snooping dynamic user-bind detect'){retransmit(CONF, 0, 'Detect retransmit'){_1_32_(CONF, 0, 'Detect retransmit times(unit:times)'){interval(CONF, 0, 'Detect interval'){_3_3600_(CONF, 0, 'Detect interval time(unit:seconds)')}}}}}}");
}

TEST_F(CmdTableTest, RowsStandInOrderWithTheirHandlers)
{
    ASSERT_TRUE(ndtest::tableShape(regs_).ok);
    ASSERT_EQ(handlerRows().size(), ndtest::ownRows().size());
    for (const HandlerRow &h : handlerRows()) {
        const CmdRegistration *r = ndtest::row(regs_, h.number);
        ASSERT_NE(r, nullptr) << "row " << h.number;
        EXPECT_EQ(r->fn, h.fn) << "row " << h.number;
        EXPECT_EQ(r->flags, 0u) << "row " << h.number;
        EXPECT_EQ(r->module, 296u) << "row " << h.number;
        EXPECT_FALSE(r->viaCmdRegister) << "row " << h.number;
    }
}

TEST_F(CmdTableTest, EveryRegistrationGoesThroughTheModuleCall)
{
    std::vector<std::string> calls = ndplat::trace_of("SHELL_CmdRegByModule");
    ASSERT_EQ(calls.size(), regs_.size());
    // Trace lines are cut at a fixed length; the start names flags, module and definition.
    constexpr size_t kCompared = 200;
    for (size_t i = 0; i < calls.size(); ++i) {
        const std::string expected = "SHELL_CmdRegByModule(0, 296, ptr, \"" + regs_[i].definition + "\")";
        EXPECT_EQ(calls[i].substr(0, kCompared), expected.substr(0, kCompared)) << "registration " << i;
    }
}

TEST_F(CmdTableTest, FixedDefinitionsAreKeptWordForWord)
{
    for (const ndtest::QuotedRow &q : ndtest::quotedRows())
        EXPECT_EQ(def(q.number), q.definition) << "row " << q.number;
}

TEST_F(CmdTableTest, NegatedRowsWrapTheirPositiveForm)
{
    const std::string no = "no(IF|PORTIF,0,'Negate a command or set its defaults'){";
    EXPECT_EQ(def(2), no + def(1) + "}");
    EXPECT_EQ(def(6), no + def(5) + "}");
    EXPECT_EQ(def(8), "no(SUPERVLAN,0,'Negate a command or set its defaults'){" + def(7) + "}");
    EXPECT_EQ(def(10), "no(CONF,0,'Negate a command or set its defaults'){" + def(9) + "}");
    // Row 4 is hidden all through, like row 3, "no" included.
    EXPECT_EQ(def(4), "no(IF|MIF|PORTIF,0,HIDE,''){" + def(3) + "}");
    EXPECT_EQ(def(40), "no(EN, 0, ''){" + def(39) + "}");
}

TEST_F(CmdTableTest, HiddenProxySpellingHasNoEnable)
{
    EXPECT_EQ(def(3).find("enable"), std::string::npos);
    EXPECT_EQ(def(4).find("enable"), std::string::npos);
    // Every node of rows 3 and 4 carries HIDE.
    for (int n : {3, 4}) {
        const std::string d = def(n);
        size_t nodes = 0, hidden = 0;
        for (size_t at = d.find('('); at != std::string::npos; at = d.find('(', at + 1))
            ++nodes;
        for (size_t at = d.find(",0,HIDE,"); at != std::string::npos; at = d.find(",0,HIDE,", at + 1))
            ++hidden;
        EXPECT_EQ(hidden, nodes) << "row " << n;
    }
}

TEST_F(CmdTableTest, NegatedDebugIsConfFirstAndSaysShowForServe)
{
    const std::string positive = def(35);
    const std::string negated = def(36);
    EXPECT_EQ(negated.rfind("no(CONF, 0, ''){debug(EN, 0, ''){", 0), 0u);
    EXPECT_NE(negated.find("serve(EN, 0, 'Nd show debug')"), std::string::npos);
    EXPECT_EQ(negated.find("Nd serve debug"), std::string::npos);
    EXPECT_NE(positive.find("serve(EN, 0, 'Nd serve debug')"), std::string::npos);
    EXPECT_EQ(positive.find("Nd show debug"), std::string::npos);
}

TEST_F(CmdTableTest, BothSpellingsOfNeighborDiscoveryOccur)
{
    EXPECT_NE(def(5).find("'Neighbor Discovery'"), std::string::npos);
    EXPECT_NE(def(1).find("'Neighbor discovery'"), std::string::npos);
}

TEST_F(CmdTableTest, FastResponseStatisticsRowsHaveABlankBeforeFastResponse)
{
    const std::string tail =
        "{nd(EN, 0, 'Neighbor discovery'){ fast-response(EN, 0, 'Nd packet fast-response'){statistics(EN, 0, 'Nd fast-response statistics')}}}";
    EXPECT_EQ(def(33), "show(EN, 0, '')" + tail);
    EXPECT_EQ(def(34), "clear(EN, 0, '')" + tail);
}

TEST_F(CmdTableTest, PublishSubscribeShowOffersModifiersAtEveryEnd)
{
    const std::string end = "_CR_(EN, 0, '')," + ndtest::outputModifiers("STD|EN");
    const std::string expected =
        "show(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe'){"
        "publisher(EN, 0, 'Nd publisher'){statistics(EN, 0, 'Publisher statistics'){" + end + "}," + end + "},"
        "subscriber(EN, 0, 'Nd subscriber'){"
        "all-modules(EN, 0, 'All subscriber modules'){statisitcs(EN, 0, 'Subscriber statistics'){" + end + "}," + end + "},"
        "_WORD_(EN, 0, 'Subscriber module name'){statisitcs(EN, 0, 'Subscriber statistics'){" + end + "}," + end + "}}}}";
    EXPECT_EQ(def(37), expected);
}

TEST_F(CmdTableTest, SubscriberStatisticsKeepsItsSpelling)
{
    for (int n : {37, 38}) {
        const std::string d = def(n);
        const size_t subscriber = d.find("subscriber(");
        ASSERT_NE(subscriber, std::string::npos);
        EXPECT_NE(d.find("publisher(EN, 0, 'Nd publisher'){statistics("), std::string::npos) << "row " << n;
        EXPECT_EQ(d.find("statistics(", subscriber), std::string::npos) << "row " << n;
        EXPECT_NE(d.find("statisitcs(", subscriber), std::string::npos) << "row " << n;
        EXPECT_EQ(d.find("statisitcs("), d.find("statisitcs(", subscriber)) << "row " << n;
    }
    EXPECT_EQ(def(38),
              "clear(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe'){publisher(EN, 0, 'Nd publisher'){statistics(EN, 0, 'Publisher statistics')},subscriber(EN, 0, 'Nd subscriber'){all-modules(EN, 0, 'All subscriber modules'){statisitcs(EN, 0, 'Subscriber statistics')},_WORD_(EN, 0, 'Subscriber module name'){statisitcs(EN, 0, 'Subscriber statistics')}}}}");
}

TEST_F(CmdTableTest, PublishSubscribeKeywordIsHiddenInEveryRow)
{
    for (int n : {37, 38, 39, 40})
        EXPECT_NE(def(n).find("nd-ps(EN, 0, HIDE, "), std::string::npos) << "row " << n;
}

TEST_F(CmdTableTest, MlagRowsUseABlankHelpBelowMlag)
{
    EXPECT_EQ(def(45),
              "debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){mlag(EN, 0, HIDE, ' '){ipv6(EN, 0, ' '){_IPV6ADDR_(EN, 0, ' ')},_CR_(EN, 0, ' ')}}}");
    EXPECT_EQ(def(46), "no(EN, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){mlag(EN, 0, HIDE, ' ')}}}");
}

TEST_F(CmdTableTest, OutputModifierFragmentIsTheFullSubtree)
{
    EXPECT_EQ(std::string(ND_CLI_OUTPUT_MODIFIERS), ndtest::outputModifiers("EN"));
    EXPECT_EQ(std::string(ND_CLI_SHOW_END), "_CR_(EN, 0, '')," + ndtest::outputModifiers("EN"));
    EXPECT_EQ(std::string(ND_CLI_OUTPUT_MODIFIERS_IN("STD|EN")), ndtest::outputModifiers("STD|EN"));
}

class CmdTableFaultTest : public PlatformTest {};

TEST_F(CmdTableFaultTest, RefusedRegistrationsDoNotStopTheOthers)
{
    ndplat::fault_inject("SHELL_CmdRegByModule", 1, 3);
    ndCmdRegister();
    std::vector<std::string> calls = ndplat::trace_of("SHELL_CmdRegByModule");
    std::vector<CmdRegistration> regs = ndplat::cmd_registrations();
    ASSERT_GE(calls.size(), ndtest::ownRows().size());
    EXPECT_EQ(regs.size(), calls.size() - 3);
    // The first three were refused; the fourth is the first recorded.
    ASSERT_FALSE(regs.empty());
    EXPECT_EQ(calls[3], "SHELL_CmdRegByModule(0, 296, ptr, \"" + regs[0].definition + "\")");
    EXPECT_EQ(regs[0].fn, ndArgProcForProxyEnable);
    EXPECT_EQ(regs[0].definition.rfind("no(IF|MIF|PORTIF,0,HIDE,'')", 0), 0u);
}

} // namespace
