// The snooping rows of the ND command table: their places among the registrations, and the
// words each handler receives for the commands the shell accepts.
#include "nd_cmd.h"
#include "nd_snooping.h"
#include "cmd_grammar.h"
#include "snooping_support.h"

namespace {

using namespace ndtest;
using ndplat::CliMode;

class SnoopingTable : public PlatformTest {
protected:
    void SetUp() override
    {
        PlatformTest::SetUp();
        ndCmdRegister();
        regs_ = ndplat::cmd_registrations();
    }
    std::vector<ndplat::CmdRegistration> regs_;
};

TEST_F(SnoopingTable, RowsElevenToThirtyOneFollowRowTen)
{
    const std::vector<SHELL_CMD_FN> expected = {
        ndArgProcForGlbSnpEnable,     ndArgProcForGlbSnpEnable,     ndArgProcForSnpLooseEnable,
        ndArgProcForSnpLooseEnable,   ndArgProcForVlanSnpEnable,    ndArgProcForVlanSnpEnable,
        ndArgProcForSnptrust,         ndArgProcForSnptrust,         ndArgProcForSnpStUb,
        ndArgProcForSnpStUb,          ndArgProcForSnpdetect,        ndArgProcForSnpdetect,
        ndCliSnpAttackLogEnable,      ndCliSnpAttackLogEnable,      ndShowNdSnoopingUserBind,
        ndShowNdSnoopingUserBindAddr, ndShowNdSnoopingPrefix,       ndCliOptNdSnoopingPrefix,
        ndShowNdSnoopingStat,         ndClearNdSnoopingDyUbUserBind, ndClearNdSnoopingStat,
    };
    ASSERT_GE(regs_.size(), 32u);
    EXPECT_EQ(regs_[9].fn, ndArgProcForFrEnable);
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(regs_[10 + i].fn, expected[i]) << "row " << 11 + i;
        EXPECT_EQ(regs_[10 + i].module, 296u);
        EXPECT_EQ(regs_[10 + i].flags, 0u);
    }
    EXPECT_EQ(regs_[31].fn, ndShowProxyAddr);
    EXPECT_TRUE(ndplat::definition_errors().empty());
}

TEST_F(SnoopingTable, DetectDefinitionIsWordForWord)
{
    EXPECT_EQ(regs_[20].definition,
              "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){detect(CONF, 0, 'Snooping "
              "dynamic user-bind detect'){retransmit(CONF, 0, 'Detect retransmit'){_1_32_(CONF, 0, 'Detect retransmit "
              "times(unit:times)'){interval(CONF, 0, 'Detect interval'){_3_3600_(CONF, 0, 'Detect interval "
              "time(unit:seconds)')}}}}}}");
}

struct Typed {
    CliMode mode;
    const char *line;
    SHELL_CMD_FN fn;
    Words argv;
};

TEST_F(SnoopingTable, HandlersReceiveTheWordsAtTheirPositions)
{
    const std::vector<Typed> lines = {
        {CliMode::CONF, "nd snooping enable", ndArgProcForGlbSnpEnable, {"nd", "snooping", "enable"}},
        {CliMode::CONF, "no nd snooping enable", ndArgProcForGlbSnpEnable, {"no", "nd", "snooping", "enable"}},
        {CliMode::VLAN, "nd snooping enable", ndArgProcForVlanSnpEnable, {"nd", "snooping", "enable"}},
        {CliMode::VLAN, "no nd snooping enable", ndArgProcForVlanSnpEnable, {"no", "nd", "snooping", "enable"}},
        {CliMode::CONF, "nd snooping ns-check-loose", ndArgProcForSnpLooseEnable, {"nd", "snooping", "ns-check-loose"}},
        {CliMode::PORT, "nd snooping trust", ndArgProcForSnptrust, {"nd", "snooping", "trust"}},
        {CliMode::LINK_AGGREGATION, "no nd snooping trust", ndArgProcForSnptrust, {"no", "nd", "snooping", "trust"}},
        {CliMode::CONF, "nd snooping detect retransmit 32 interval 3600", ndArgProcForSnpdetect,
         {"nd", "snooping", "detect", "retransmit", "32", "interval", "3600"}},
        {CliMode::CONF, "no nd snooping detect", ndArgProcForSnpdetect, {"no", "nd", "snooping", "detect"}},
        {CliMode::CONF, "nd snooping attack-log enable", ndCliSnpAttackLogEnable,
         {"nd", "snooping", "attack-log", "enable"}},
        {CliMode::CONF, "nd snooping user-bind static 2001:db8::1 0011.22aa.bbcc vlan 10 interface gigabitethernet0/1",
         ndArgProcForSnpStUb,
         {"nd", "snooping", "user-bind", "static", "2001:db8::1", "0011.22aa.bbcc", "vlan", "10", "interface",
          "gigabitethernet0/1"}},
        {CliMode::CONF, "no nd snooping user-bind static", ndArgProcForSnpStUb,
         {"no", "nd", "snooping", "user-bind", "static"}},
        {CliMode::CONF, "no nd snooping user-bind static 2001:db8::1", ndArgProcForSnpStUb,
         {"no", "nd", "snooping", "user-bind", "static", "2001:db8::1"}},
        {CliMode::EN, "show nd snooping user-bind static", ndShowNdSnoopingUserBind,
         {"show", "nd", "snooping", "user-bind", "static"}},
        {CliMode::EN, "show nd snooping user-bind dynamic-mpu", ndShowNdSnoopingUserBind,
         {"show", "nd", "snooping", "user-bind", "dynamic-mpu"}},
        {CliMode::EN, "show nd snooping user-bind 2001:db8::9", ndShowNdSnoopingUserBindAddr,
         {"show", "nd", "snooping", "user-bind", "2001:db8::9"}},
        {CliMode::EN, "show nd snooping prefix", ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"}},
        {CliMode::EN, "clear nd snooping prefix", ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix"}},
        {CliMode::EN, "clear nd snooping prefix 2001:db8::/64", ndCliOptNdSnoopingPrefix,
         {"clear", "nd", "snooping", "prefix", "2001:db8::/64"}},
        {CliMode::EN, "show nd snooping statistics", ndShowNdSnoopingStat, {"show", "nd", "snooping", "statistics"}},
        {CliMode::EN, "clear nd snooping dynamic-user-bind", ndClearNdSnoopingDyUbUserBind,
         {"clear", "nd", "snooping", "dynamic-user-bind"}},
        {CliMode::EN, "clear nd snooping statistics", ndClearNdSnoopingStat, {"clear", "nd", "snooping", "statistics"}},
    };
    for (const Typed &t : lines) {
        ndplat::MatchResult m = ndplat::match_line(t.mode, t.line);
        EXPECT_EQ(m.status, ndplat::MatchStatus::Ok) << t.line << ": " << m.message();
        EXPECT_EQ(m.fn, t.fn) << t.line;
        EXPECT_EQ(m.argv, t.argv) << t.line;
    }
}

TEST_F(SnoopingTable, ModesAndHiddenWords)
{
    EXPECT_NE(ndplat::match_line(CliMode::EN, "nd snooping enable").status, ndplat::MatchStatus::Ok);
    EXPECT_NE(ndplat::match_line(CliMode::CONF, "nd snooping trust").status, ndplat::MatchStatus::Ok);
    ndplat::Completion c = ndplat::complete_line(CliMode::EN, "show nd snooping user-bind ");
    std::vector<std::string> offered;
    for (const ndplat::Candidate &candidate : c.candidates)
        offered.push_back(candidate.text);
    EXPECT_NE(std::find(offered.begin(), offered.end(), "static"), offered.end());
    EXPECT_NE(std::find(offered.begin(), offered.end(), "dynamic"), offered.end());
    EXPECT_EQ(std::find(offered.begin(), offered.end(), "dynamic-mpu"), offered.end());
    ndplat::MatchResult piped = ndplat::match_line(CliMode::EN, "show nd snooping prefix | include 64");
    EXPECT_EQ(piped.status, ndplat::MatchStatus::Ok);
    EXPECT_EQ(piped.fn, ndShowNdSnoopingPrefix);
}

} // namespace
