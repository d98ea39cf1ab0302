// Definition strings used by the grammar tests: the ND table's own strings, the VXLAN table and
// the hidden test commands byte for byte, and a few written in the same pattern.
#ifndef ND_GRAMMAR_FIXTURES_H
#define ND_GRAMMAR_FIXTURES_H

#include <cstdint>
#include <string>
#include <vector>

namespace fx {

// Distinct handlers; each returns its own number so that a test can tell them apart.
template <int N> int32_t handler(int32_t, char **) { return N; }

// ND table.
inline const char *const kRow1 =
    "nd(IF|PORTIF,0,'Neighbor discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){enable(IF|PORTIF,0,'Normal nd proxy')}}";
inline const char *const kRow3 =
    "ipv6(IF|MIF|PORTIF,0,HIDE,''){nd(IF|MIF|PORTIF,0,HIDE,''){proxy(IF|MIF|PORTIF,0,HIDE,'Normal nd proxy')}}";
inline const char *const kRow5 =
    "ipv6(IF|PORTIF,0,'Command ipv6'){nd(IF|PORTIF,0,'Neighbor Discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){anyway(IF|PORTIF, 0, 'Nd proxy anyway on this interface'){enable(IF|PORTIF, 0, 'Enable nd proxy anyway')}}}}";
inline const char *const kRow7 =
    "nd(SUPERVLAN,0,'Neighbor discovery'){local-proxy(SUPERVLAN,0,'Normal nd local proxy'){enable(SUPERVLAN,0,'Normal nd local proxy')}}";
inline const char *const kRow9 = "nd(CONF,0,'Neighbor discovery'){fast-response(CONF,0,'Nd packet fast-response')}";
inline const char *const kRow21 =
    "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){detect(CONF, 0, 'Snooping dynamic user-bind detect'){retransmit(CONF, 0, 'Detect retransmit'){_1_32_(CONF, 0, 'Detect retransmit times(unit:times)'){interval(CONF, 0, 'Detect interval'){_3_3600_(CONF, 0, 'Detect interval time(unit:seconds)')}}}}}}";
inline const char *const kRow32 =
    "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){proxy(EN, 0, 'Nd proxy'){address(EN, 0, 'Ipv6 address')}}}";
inline const char *const kRow35 =
    "debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd serve debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}";
inline const char *const kRow36 =
    "no(CONF, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd show debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}}";
inline const char *const kRow44 =
    "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){mlag(EN, 0, HIDE, ' '){pts-list(EN, 0, ' '),cache-list(EN, 0, ' '),statistic(EN,0,' ')}}}";

// Written in the same pattern for these tests.
inline const char *const kSnoopEnableConf =
    "nd(CONF,0,'Neighbor discovery'){snooping(CONF,0,'Configure nd snooping'){enable(CONF,0,'Configure nd snooping switch')}}";
inline const char *const kSnoopEnableVlan =
    "nd(VLAN,0,'Neighbor discovery'){snooping(VLAN,0,'Configure nd snooping'){enable(VLAN,0,'Configure nd snooping switch')}}";
inline const char *const kUserBind =
    "nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){user-bind(CONF, 0, 'Snooping user-bind'){static(CONF, 0, 'Snooping static user-bind'){_IPV6ADDR_(CONF, 0, 'IPv6 address'){_MACAddress_(CONF, 0, '48-bit hardware address'){vlan(CONF, 0, 'Vlan'){_1_4094_(CONF, 0, 'Vlan id'){interface(CONF, 0, 'Interface list'){_CONFPORTLIST_(CONF, 0, 'Interface name'),link-aggregation(CONF, 0, 'link-aggregation'){_CONFPORTAGGNUM_(CONF, 0, 'link-aggregation')}}}}}}}}}}";
inline const char *const kNoUserBind =
    "no(CONF, 0, ''){nd(CONF, 0, 'Neighbor discovery'){snooping(CONF, 0, 'Configure nd snooping'){user-bind(CONF, 0, 'Snooping user-bind'){static(CONF, 0, 'Snooping static user-bind'){_CR_(CONF, 0, ''),_IPV6ADDR_(CONF, 0, 'IPv6 address')}}}}}";
inline const char *const kNoDebugMlag =
    "no(EN, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){mlag(EN, 0, HIDE, ' ')}}}";
inline const char *const kClearPrefix =
    "clear(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){snooping(EN, 0, 'Nd snooping'){prefix(EN, 0, 'Nd snooping prefix'){_CR_(EN, 0, ''),_IPV6PREFIX_(EN, 0, 'IPv6 prefix x:x::y/<z>')}}}}";
inline const char *const kBlankAfterBrace =
    "clear(EN, 0, ''){ fast-response(EN, 0, 'Nd fast-response'){statistics(EN, 0, 'Statistics')}}";

// The output-modifier subtree, written out in full.
inline const std::string kModifiers =
    "|(EN,0,'Output modifiers'){"
    "begin(STD|EN,0,'Begin with the line that matches'){_LINE_(STD|EN,0,'Regular Expression')},"
    "include(STD|EN,0,'Include lines that match'){context(STD|EN,0,'Include two line before and after the match line'){_LINE_(STD|EN,0,'Regular Expression')},_LINE_(STD|EN,0,'Regular Expression')},"
    "exclude(STD|EN,0,'Exclude lines that match'){_LINE_(STD|EN,0,'Regular Expression')},"
    "redirect(STD|EN,0,'Redirect output to other resource'){"
    "file(STD|EN,0,'Output to file'){_WORD_(STD|EN,0,'Destination file name,such as \"/flash/test\"')},"
    "ftp(STD|EN,0,'Output by FTP'){_WORD_(STD|EN,0,'Host name or ip address'){_WORD_(STD|EN,0,'User name'){_PASSWORD_(STD|EN,0,'User password'){_WORD_(STD|EN,0,'Destination file name')}}}},"
    "vrf(STD|EN,0,'Select VPN routing instance'){_WORD_(STD|EN,0,'VPN Routing/Forwarding instance name'){_WORD_(STD|EN,0,'Host name or ip address'){_WORD_(STD|EN,0,'User name'){_PASSWORD_(STD|EN,0,'User password'){_WORD_(STD|EN,0,'Destination file name')}}}}}}}";

inline std::string showFastResponse()
{
    return "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){ fast-response(EN, 0, 'Nd fast-response'){statistics(EN, 0, 'Nd fast-response statistics'){_CR_(EN, 0, ''), " +
           kModifiers + "}}}}";
}

inline std::string showSubscriber()
{
    return "show(EN, 0, ''){nd-ps(EN, 0, HIDE, 'Nd publish'){subscriber(EN, 0, 'Subscriber'){all-modules(EN, 0, 'All modules'){_CR_(EN, 0, ''),statisitcs(EN, 0, 'Statistics')},_WORD_(EN, 0, 'Module name'){_CR_(EN, 0, ''),statisitcs(EN, 0, 'Statistics')}}}}";
}

// The VXLAN table, rows 1 to 24.
inline const std::vector<std::string> kVxlan = {
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout'){_30_2147483_(VXLAN, 0, 'Seconds(default:300)')}}}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout')}}}}",
    "nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout'){_30_2147483_(VXLAN, 0, HIDE,'Seconds(default:300)')}}}",
    "no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout')}}}",
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number')}}}}",
    "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0,HIDE, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}}",
    "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number')}}}",
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}}}",
    "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}}",
    "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}}}",
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}}}",
    "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}}",
    "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}}}",
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}}}",
    "nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}}",
    "no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}}}",
    "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}}",
    "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}}}",
    "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}}",
    "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}}}",
};

// The hidden test commands.
inline const char *const kSuppressTest =
    "nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vxlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}}";
inline const char *const kNoSuppressTest =
    "no(EN, 0, ''){nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}}}";
inline const char *const kNbrTest =
    "nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){nbrentry(EN, 0, HIDE, ''){_0_1_(EN, 0, '0:remote-nbr, 1:remote-vtep'){_STRING_(EN, 0, 'vxlanId'){_STRING_(EN, 0, 'ifIndex'){_0_65535_(EN, 0, 'tunId'){_0_4095_(EN, 0, 'vrfId'){_IPV6ADDR_(EN, 0, 'ndIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, 'nums')}}}}}}}}}}}";
inline std::string noNbrTest() { return std::string("no(EN, 0, ''){") + kNbrTest + "}"; }

} // namespace fx

#endif
