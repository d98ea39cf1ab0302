// The ND command table: every ND command that the plug-in offers the shell (the VXLAN
// commands have a table of their own), one row per registration, in registration order.
// A "no" row registers the same handler again with the negated command. The texts are the
// operator's interface, help texts included, and are kept exactly as they are, with their
// irregular spacing and spellings.
#include "nd_cmd.h"
#include "nd_snooping.h"
#include "diagnose/nd_cli_diagnose.h"

namespace {

constexpr uint32_t kCmdFlags = 0;

// Where the nd-ps show commands may end; their modifier nodes are also accepted in STD mode.
#define ND_PS_SHOW_END "_CR_(EN, 0, '')," ND_CLI_OUTPUT_MODIFIERS_IN("STD|EN")

struct CmdRow {
    SHELL_CMD_FN handler;
    const char *definition;
};

// Not reformatted: one row per command, its definition laid out as the tree it defines.
// clang-format off
constexpr CmdRow kNdCommands[] = {
    // 1: nd proxy enable
    {ndArgProcForProxyEnable,
     "nd(IF|PORTIF,0,'Neighbor discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){enable(IF|PORTIF,0,'Normal nd proxy')}}"},
    // 2: no nd proxy enable
    {ndArgProcForProxyEnable,
     "no(IF|PORTIF,0,'Negate a command or set its defaults'){nd(IF|PORTIF,0,'Neighbor discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){enable(IF|PORTIF,0,'Normal nd proxy')}}}"},
    // 3: ipv6 nd proxy (hidden second spelling of 1)
    {ndArgProcForProxyEnable,
     "ipv6(IF|MIF|PORTIF,0,HIDE,''){nd(IF|MIF|PORTIF,0,HIDE,''){proxy(IF|MIF|PORTIF,0,HIDE,'Normal nd proxy')}}"},
    // 4: no ipv6 nd proxy (hidden second spelling of 2)
    {ndArgProcForProxyEnable,
     "no(IF|MIF|PORTIF,0,HIDE,''){ipv6(IF|MIF|PORTIF,0,HIDE,''){nd(IF|MIF|PORTIF,0,HIDE,''){proxy(IF|MIF|PORTIF,0,HIDE,'Normal nd proxy')}}}"},
    // 5: ipv6 nd proxy anyway enable
    {ndArgProcForProxyAnywayEnable,
     "ipv6(IF|PORTIF,0,'Command ipv6'){nd(IF|PORTIF,0,'Neighbor Discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){anyway(IF|PORTIF, 0, 'Nd proxy anyway on this interface'){enable(IF|PORTIF, 0, 'Enable nd proxy anyway')}}}}"},
    // 6: no ipv6 nd proxy anyway enable
    {ndArgProcForProxyAnywayEnable,
     "no(IF|PORTIF,0,'Negate a command or set its defaults'){ipv6(IF|PORTIF,0,'Command ipv6'){nd(IF|PORTIF,0,'Neighbor Discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){anyway(IF|PORTIF, 0, 'Nd proxy anyway on this interface'){enable(IF|PORTIF, 0, 'Enable nd proxy anyway')}}}}}"},
    // 7: nd local-proxy enable
    {ndArgProcForLocProxyEnable,
     "nd(SUPERVLAN,0,'Neighbor discovery'){local-proxy(SUPERVLAN,0,'Normal nd local proxy'){enable(SUPERVLAN,0,'Normal nd local proxy')}}"},
    // 8: no nd local-proxy enable
    {ndArgProcForLocProxyEnable,
     "no(SUPERVLAN,0,'Negate a command or set its defaults'){nd(SUPERVLAN,0,'Neighbor discovery'){local-proxy(SUPERVLAN,0,'Normal nd local proxy'){enable(SUPERVLAN,0,'Normal nd local proxy')}}}"},
    // 9: nd fast-response
    {ndArgProcForFrEnable,
     "nd(CONF,0,'Neighbor discovery'){fast-response(CONF,0,'Nd packet fast-response')}"},
    // 10: no nd fast-response
    {ndArgProcForFrEnable,
     "no(CONF,0,'Negate a command or set its defaults'){nd(CONF,0,'Neighbor discovery'){fast-response(CONF,0,'Nd packet fast-response')}}"},
    // 11: nd snooping enable (global)
    {ndArgProcForGlbSnpEnable,
     "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){enable(CONF, 0, 'Configure nd snooping switch')}}"},
    // 12: no nd snooping enable (global)
    {ndArgProcForGlbSnpEnable,
     "no(CONF, 0, 'Negate a command or set its defaults'){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){enable(CONF, 0, 'Configure nd snooping switch')}}}"},
    // 13: nd snooping ns-check-loose
    {ndArgProcForSnpLooseEnable,
     "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){ns-check-loose(CONF, 0, 'Configure nd snooping ns-check-loose')}}"},
    // 14: no nd snooping ns-check-loose
    {ndArgProcForSnpLooseEnable,
     "no(CONF, 0, 'Negate a command or set its defaults'){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){ns-check-loose(CONF, 0, 'Configure nd snooping ns-check-loose')}}}"},
    // 15: nd snooping enable (VLAN)
    {ndArgProcForVlanSnpEnable,
     "nd(VLAN, 0, 'Neighbor discovery'){snooping(VLAN, 0, 'Configure nd snooping'){enable(VLAN, 0, 'Configure nd snooping switch')}}"},
    // 16: no nd snooping enable (VLAN)
    {ndArgProcForVlanSnpEnable,
     "no(VLAN, 0, 'Negate a command or set its defaults'){nd(VLAN, 0, 'Neighbor discovery'){snooping(VLAN, 0, 'Configure nd snooping'){enable(VLAN, 0, 'Configure nd snooping switch')}}}"},
    // 17: nd snooping trust
    {ndArgProcForSnptrust,
     "nd(PORT|LINK_AGGREGATION, 0, 'Neighbor discovery'){snooping(PORT|LINK_AGGREGATION, 0, 'Configure nd snooping'){trust(PORT|LINK_AGGREGATION, 0, 'Port trusted')}}"},
    // 18: no nd snooping trust
    {ndArgProcForSnptrust,
     "no(PORT|LINK_AGGREGATION, 0, 'Negate a command or set its defaults'){nd(PORT|LINK_AGGREGATION, 0, 'Neighbor discovery'){snooping(PORT|LINK_AGGREGATION, 0, 'Configure nd snooping'){trust(PORT|LINK_AGGREGATION, 0, 'Port trusted')}}}"},
    // 19: nd snooping user-bind static <address> <mac> vlan <id> interface {<list>|<aggregation>}
    {ndArgProcForSnpStUb,
     "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){user-bind(CONF, 0, 'Snooping user-bind'){static(CONF, 0, 'Snooping static user-bind'){_IPV6ADDR_(CONF, 0, 'IPv6 address'){_MACAddress_(CONF, 0, '48-bit hardware address'){vlan(CONF, 0, 'Vlan'){_1_4094_(CONF, 0, 'Vlan id'){interface(CONF, 0, 'Interface list'){_CONFPORTLIST_(CONF, 0, 'Interface name'),_CONFPORTAGGNUM_(CONF, 0, 'link-aggregation')}}}}}}}}}"},
    // 20: no nd snooping user-bind static [<address>]
    {ndArgProcForSnpStUb,
     "no(CONF, 0, 'Negate a command or set its defaults'){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){user-bind(CONF, 0, 'Snooping user-bind'){static(CONF, 0, 'Snooping static user-bind'){_IPV6ADDR_(CONF, 0, 'IPv6 address'),_CR_(CONF, 0, '')}}}}}"},
    // 21: nd snooping detect retransmit <1-32> interval <3-3600>
    {ndArgProcForSnpdetect,
     "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){detect(CONF, 0, 'Snooping dynamic user-bind detect'){retransmit(CONF, 0, 'Detect retransmit'){_1_32_(CONF, 0, 'Detect retransmit times(unit:times)'){interval(CONF, 0, 'Detect interval'){_3_3600_(CONF, 0, 'Detect interval time(unit:seconds)')}}}}}}"},
    // 22: no nd snooping detect
    {ndArgProcForSnpdetect,
     "no(CONF, 0, 'Negate a command or set its defaults'){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){detect(CONF, 0, 'Snooping dynamic user-bind detect')}}}"},
    // 23: nd snooping attack-log enable
    {ndCliSnpAttackLogEnable,
     "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){attack-log(CONF, 0, 'Snooping attack log'){enable(CONF, 0, 'Attack log enable')}}}"},
    // 24: no nd snooping attack-log enable
    {ndCliSnpAttackLogEnable,
     "no(CONF, 0, 'Negate a command or set its defaults'){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){attack-log(CONF, 0, 'Snooping attack log'){enable(CONF, 0, 'Attack log enable')}}}}"},
    // 25: show nd snooping user-bind {static|dynamic|dynamic-mpu}
    {ndShowNdSnoopingUserBind,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){user-bind(EN, 0, 'Snooping user-bind'){static(EN, 0, 'Snooping static user-bind'){" ND_CLI_SHOW_END "},dynamic(EN, 0, 'Snooping dynamic user-bind'){" ND_CLI_SHOW_END "},dynamic-mpu(EN, 0, HIDE, 'Snooping dynamic user-bind of mpu'){" ND_CLI_SHOW_END "}}}}}"},
    // 26: show nd snooping user-bind <address>
    {ndShowNdSnoopingUserBindAddr,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){user-bind(EN, 0, 'Snooping user-bind'){_IPV6ADDR_(EN, 0, 'IPv6 address')}}}}"},
    // 27: show nd snooping prefix
    {ndShowNdSnoopingPrefix,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){prefix(EN, 0, 'Snooping prefix'){" ND_CLI_SHOW_END "}}}}"},
    // 28: clear nd snooping prefix [<prefix>]
    {ndCliOptNdSnoopingPrefix,
     "clear(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){prefix(EN, 0, 'Snooping prefix'){_IPV6PREFIX_(EN, 0, 'IPv6 prefix x:x::y/<z>'),_CR_(EN, 0, '')}}}}"},
    // 29: show nd snooping statistics
    {ndShowNdSnoopingStat,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){statistics(EN, 0, 'Snooping statistics'){" ND_CLI_SHOW_END "}}}}"},
    // 30: clear nd snooping dynamic-user-bind
    {ndClearNdSnoopingDyUbUserBind,
     "clear(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){dynamic-user-bind(EN, 0, 'Snooping dynamic user-bind')}}}"},
    // 31: clear nd snooping statistics
    {ndClearNdSnoopingStat,
     "clear(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){statistics(EN, 0, 'Snooping statistics')}}}"},
    // 32: show nd proxy address
    {ndShowProxyAddr,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){proxy(EN, 0, 'Nd proxy'){address(EN, 0, 'Ipv6 address')}}}"},
    // 33: show nd fast-response statistics
    {ndShowNdForwardPktStat,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){ fast-response(EN, 0, 'Nd packet fast-response'){statistics(EN, 0, 'Nd fast-response statistics')}}}"},
    // 34: clear nd fast-response statistics
    {ndShowNdForwardPktStat,
     "clear(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){ fast-response(EN, 0, 'Nd packet fast-response'){statistics(EN, 0, 'Nd fast-response statistics')}}}"},
    // 35: debug nd {config|event|forward|packet|serve|error|all}
    {ndDebugSnooping,
     "debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd serve debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}"},
    // 36: no debug nd {config|event|forward|packet|serve|error|all}
    {ndDebugSnooping,
     "no(CONF, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd show debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}}"},
    // 37: show nd-ps publisher [statistics]; show nd-ps subscriber {all-modules|<word>} [statisitcs]
    {nd_MposPublishRegShowCmd,
     "show(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe'){"
         "publisher(EN, 0, 'Nd publisher'){"
             "statistics(EN, 0, 'Publisher statistics'){" ND_PS_SHOW_END "},"
             ND_PS_SHOW_END "},"
         "subscriber(EN, 0, 'Nd subscriber'){"
             "all-modules(EN, 0, 'All subscriber modules'){"
                 "statisitcs(EN, 0, 'Subscriber statistics'){" ND_PS_SHOW_END "},"
                 ND_PS_SHOW_END "},"
             "_WORD_(EN, 0, 'Subscriber module name'){"
                 "statisitcs(EN, 0, 'Subscriber statistics'){" ND_PS_SHOW_END "},"
                 ND_PS_SHOW_END "}}}}"},
    // 38: clear nd-ps publisher statistics; clear nd-ps subscriber {all-modules|<word>} statisitcs
    {nd_MposPublishRegClearCmd,
     "clear(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe'){publisher(EN, 0, 'Nd publisher'){statistics(EN, 0, 'Publisher statistics')},subscriber(EN, 0, 'Nd subscriber'){all-modules(EN, 0, 'All subscriber modules'){statisitcs(EN, 0, 'Subscriber statistics')},_WORD_(EN, 0, 'Subscriber module name'){statisitcs(EN, 0, 'Subscriber statistics')}}}}"},
    // 39: debug nd-ps publisher; debug nd-ps subscriber {all-modules|<word>}
    {nd_MposPublishRegDebugCmd,
     "debug(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe debug'){publisher(EN, 0, 'Nd publisher debug'),subscriber(EN, 0, 'Nd subscriber debug'){all-modules(EN, 0, 'All subscriber modules'),_WORD_(EN, 0, 'Subscriber module name')}}}"},
    // 40: no debug nd-ps publisher; no debug nd-ps subscriber {all-modules|<word>}
    {nd_MposPublishRegDebugCmd,
     "no(EN, 0, ''){debug(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish and subscribe debug'){publisher(EN, 0, 'Nd publisher debug'),subscriber(EN, 0, 'Nd subscriber debug'){all-modules(EN, 0, 'All subscriber modules'),_WORD_(EN, 0, 'Subscriber module name')}}}}"},
    // 41: show diagnose nd {vxlan [<id> [host|mac]], global acl, stat, interface neighbor, local-dbm}
    {ndCliDiagnoseShow, ND_CLI_DIAGNOSE_SHOW_DEF},
    // 42: clear diagnose nd stat
    {ndCliDiagnoseClear, ND_CLI_DIAGNOSE_CLEAR_DEF},
    // 43: show diagnose nd vxlan [<id>] issu host
    {ndCliDiagnoseIssuShow, ND_CLI_DIAGNOSE_ISSU_DEF},
    // 44: show nd mlag {pts-list|cache-list|statistic}
    {nd_MlagShowCmd,
     "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){mlag(EN, 0, HIDE, ' '){pts-list(EN, 0, ' '),cache-list(EN, 0, ' '),statistic(EN,0,' ')}}}"},
    // 45: debug nd mlag [ipv6 <address>]
    {nd_MlagDebugCmd,
     "debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){mlag(EN, 0, HIDE, ' '){ipv6(EN, 0, ' '){_IPV6ADDR_(EN, 0, ' ')},_CR_(EN, 0, ' ')}}}"},
    // 46: no debug nd mlag
    {nd_MlagDebugCmd,
     "no(EN, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){mlag(EN, 0, HIDE, ' ')}}}"},
};
// clang-format on

#undef ND_PS_SHOW_END

} // namespace

extern "C" void ndCmdRegister(void)
{
    // A registration the shell refuses does not stop the others.
    for (const CmdRow &row : kNdCommands)
        SHELL_CmdRegByModule(kCmdFlags, ND_CLI_MODULE_ID, row.handler, row.definition);
}
