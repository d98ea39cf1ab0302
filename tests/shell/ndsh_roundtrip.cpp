// Save and reload are lossless: every setting of every mode that accepts it survives `write`
// and `reload` byte for byte, and no line of the saved configuration is rejected on replay.
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

#ifdef NDSH_WITH_SERVICE

namespace {

// Every ND setting in every mode that takes it, and the shell's own objects and modes. The
// proxy "anyway" of an interface and the suppression of a VXLAN instance exclude each other on
// one switch: each has a configuration of its own.
constexpr const char *kObjects =
    "configure terminal;"
    "no nd fast-response;"
    "nd snooping enable;"
    "nd snooping ns-check-loose;"
    "nd snooping detect retransmit 5 interval 30;"
    "nd snooping attack-log enable;"
    "nd snooping user-bind static 2001:db8::10 0000.0000.0010 vlan 10 interface gigabitethernet 0/1;"
    "nd snooping user-bind static 2001:db8::11 0000.0000.0011 vlan 20 interface gigabitethernet 0/2;"
    "vlan 10; nd snooping enable; exit;"
    "vlan 20; nd snooping enable; exit;"
    "vlan 30; exit;"
    "super-vlan 40; subvlan 30; nd local-proxy enable; subvlan 20; exit;"
    "super-vlan 41; exit;"
    "interface vlan 11; ipv6 nd proxy; exit;"
    "interface vlan 12; exit;"
    "interface gigabitethernet 0/1; nd snooping trust; exit;"
    "interface gigabitethernet 0/3; no switchport; exit;"
    "interface link-aggregation 1; nd snooping trust; exit;"
    "vxlan 300; vxlan-port 2 interface ge0/5 svlan 10 cvlan 20; vxlan-port 1 interface gigabitethernet0/4;"
    "vxlan-port 3 interface ag2 svlan 7; exit;";

constexpr const char *kProxyAnyway =
    "interface vlan 10; nd proxy enable; ipv6 nd proxy anyway enable; exit;"
    "interface loopback 3; nd proxy enable; ipv6 nd proxy anyway enable; exit;"
    "interface mgmt 0; ipv6 nd proxy; ipv6 nd proxy anyway enable; exit;"
    "interface gigabitethernet 0/2; no switchport; nd proxy enable; ipv6 nd proxy anyway enable; exit;"
    "vxlan 100; ipv6 nd host timeout 300; ipv6 nd host limited 50; no ipv6 nd host advertise; exit;"
    "end";

constexpr const char *kSuppression =
    "interface vlan 10; nd proxy enable; exit;"
    "interface loopback 3; nd proxy enable; exit;"
    "interface mgmt 0; ipv6 nd proxy; exit;"
    "interface gigabitethernet 0/2; no switchport; nd proxy enable; exit;"
    "vxlan 100; ipv6 nd host timeout 300; ipv6 nd host limited 50; no ipv6 nd host advertise;"
    "ipv6 nd suppression; ipv6 nd suppression unicast forward; exit;"
    "vxlan 200; ipv6 nd suppression; ipv6 nd suppression missmatch discard; ipv6 nd suppression unicast forward; exit;"
    "end";

void round_trip(const std::string &commands, const std::vector<std::string> &expected)
{
    StateDir state;
    Result set = ndsh(state, {"-c", commands});
    ASSERT_EQ(set.status, 0) << set.out << set.err;
    EXPECT_EQ(set.out.find('%'), std::string::npos) << set.out;
    Result before = ndsh(state, {"-c", "show running-config"});
    ASSERT_EQ(before.status, 0) << before.err;
    for (const std::string &line : expected)
        EXPECT_NE(before.out.find(line), std::string::npos) << line << "\nin:\n" << before.out;

    Result saved = ndsh(state, {"-c", "write"});
    ASSERT_EQ(saved.status, 0) << saved.out;
    Result reload = ndsh(state, {"--yes", "-c", "reload"});
    EXPECT_EQ(reload.status, 0) << reload.out;
    EXPECT_EQ(reload.out.find('%'), std::string::npos) << "a line was rejected on replay:\n" << reload.out;
    Result after = ndsh(state, {"-c", "show running-config"});
    EXPECT_EQ(after.out, before.out);
    // A second round changes nothing either.
    ASSERT_EQ(ndsh(state, {"-c", "write"}).status, 0);
    Result again = ndsh(state, {"--yes", "-c", "reload; show running-config"});
    EXPECT_EQ(again.out.find('%'), std::string::npos) << again.out;
    EXPECT_NE(again.out.find(before.out), std::string::npos) << again.out;
}

} // namespace

TEST(NdshRoundTrip, WriteAndReloadKeepEverySettingOfEveryModeWithProxyAnyway)
{
    round_trip(std::string(kObjects) + kProxyAnyway,
               {"no nd fast-response\n", "nd snooping ns-check-loose\n", "nd snooping attack-log enable\n",
                "\nvlan 20\n nd snooping enable\n", "\nsuper-vlan 40\n subvlan 20\n subvlan 30\n nd local-proxy enable\n!\n",
                "\ninterface vlan 11\n nd proxy enable\n",
                "\ninterface mgmt 0\n nd proxy enable\n ipv6 nd proxy anyway enable\n",
                "\ninterface loopback 3\n nd proxy enable\n ipv6 nd proxy anyway enable\n",
                "\ninterface gigabitethernet 0/2\n no switchport\n nd proxy enable\n ipv6 nd proxy anyway enable\n",
                "\ninterface link-aggregation 1\n nd snooping trust\n", " ipv6 nd host timeout 300\n",
                " no ipv6 nd host advertise\n",
                "\nvxlan 300\n vxlan-port 1 interface gigabitethernet0/4\n"
                " vxlan-port 2 interface gigabitethernet0/5 svlan 10 cvlan 20\n"
                " vxlan-port 3 interface link-aggregation2 svlan 7\n!\n"});
}

TEST(NdshRoundTrip, WriteAndReloadKeepEverySettingOfEveryModeWithSuppression)
{
    round_trip(std::string(kObjects) + kSuppression,
               {"\ninterface mgmt 0\n nd proxy enable\n", " ipv6 nd suppression unicast forward\n",
                "\nvxlan 200\n ipv6 nd suppression\n ipv6 nd suppression missmatch discard\n"
                " ipv6 nd suppression unicast forward\n"});
}

#endif
