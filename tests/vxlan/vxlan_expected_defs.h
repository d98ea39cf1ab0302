// Expected texts of the VXLAN registrations, exactly as the operator sees them.
#ifndef VXLAN_EXPECTED_DEFS_H
#define VXLAN_EXPECTED_DEFS_H

namespace vxlantest {

// Rows 1-24 of the VXLAN command table.
const char *const kExpectedCfgDefinitions[24] = {
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout'){_30_2147483_(VXLAN, 0, 'Seconds(default:300)')}}}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout')}}}})DEF",
    R"DEF(nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout'){_30_2147483_(VXLAN, 0, HIDE,'Seconds(default:300)')}}})DEF",
    R"DEF(no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout')}}})DEF",
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number')}}}})DEF",
    R"DEF(nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0,HIDE, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}})DEF",
    R"DEF(no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number')}}})DEF",
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}}})DEF",
    R"DEF(nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}})DEF",
    R"DEF(no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}}})DEF",
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}}})DEF",
    R"DEF(nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}})DEF",
    R"DEF(no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}}})DEF",
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}}})DEF",
    R"DEF(nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}})DEF",
    R"DEF(no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}}})DEF",
    R"DEF(ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}})DEF",
    R"DEF(no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}}})DEF",
    R"DEF(nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}})DEF",
    R"DEF(no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}}})DEF",
};
const char *const kExpectedHostClear = R"DEF(clear(EN, 0, ' ') {ipv6(EN, 0, '') {nd(EN, 0, 'Neighbor discovery') {host(EN, 0, 'Host entry'){vxlan(EN, 0, 'Vxlan'){all(EN, 0, 'All vxlan host entry'),_1_8190_(EN, 0, 'VxlanId'){_IPV6ADDR_(EN,0,'IPv6 address of host entry'),_CR_(EN, 0, '')}}}}}})DEF";
const char *const kExpectedHostIssu = R"DEF(ipv6(EN, 0, '') {nd(EN, 0, 'Command nd') {host(EN, 0, 'Nd vxlan local host') {issu(EN, 0, 'Nd vxlan local host issu') {backup(EN, 0, 'Backup nd vxlan local host by issu') {_CR_(EN, 0, '')},recover(EN, 0, 'Recover nd vxlan local host by issu') {_CR_(EN, 0, '')}}}}})DEF";
const char *const kExpectedTestSyntax[3] = {
    R"DEF(nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vxlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}})DEF",
    R"DEF(no(EN, 0, ''){nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}}})DEF",
    R"DEF(nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){nbrentry(EN, 0, HIDE, ''){_0_1_(EN, 0, '0:remote-nbr, 1:remote-vtep'){_STRING_(EN, 0, 'vxlanId'){_STRING_(EN, 0, 'ifIndex'){_0_65535_(EN, 0, 'tunId'){_0_4095_(EN, 0, 'vrfId'){_IPV6ADDR_(EN, 0, 'ndIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, 'nums')}}}}}}}}}}})DEF",
};

} // namespace vxlantest

#endif
