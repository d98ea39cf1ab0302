// Configuration modes, prompts and the environment values that handlers read in each mode.
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

namespace {

std::string probe_line(const std::string &ifName, int vlan, int superVlan, int vxlan, const std::string &ports,
                       int interactive = 1)
{
    return "if=" + ifName + " vlan=" + std::to_string(vlan) + " supervlan=" + std::to_string(superVlan) +
           " vxlan=" + std::to_string(vxlan) + " ports=" + ports + " interactive=" + std::to_string(interactive);
}

} // namespace

TEST(NdshModes, PromptOfEveryMode)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--echo", "-c",
                                       "configure terminal; interface vlan 10; exit; vlan 20; exit; super-vlan 30;"
                                       "exit; vxlan 40; exit; interface gigabitethernet 0/1; no switchport; exit;"
                                       "interface link-aggregation 3; exit; interface loopback 2; exit;"
                                       "interface mgmt 0; end; exit"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "switch#configure terminal\n"
                     "switch(config)#interface vlan 10\n"
                     "switch(config-if-vlan10)#exit\n"
                     "switch(config)#vlan 20\n"
                     "switch(config-vlan20)#exit\n"
                     "switch(config)#super-vlan 30\n"
                     "switch(config-super-vlan30)#exit\n"
                     "switch(config)#vxlan 40\n"
                     "switch(config-vxlan40)#exit\n"
                     "switch(config)#interface gigabitethernet 0/1\n"
                     "switch(config-if-ge0/1)#no switchport\n"
                     "switch(config-if-ge0/1)#exit\n"
                     "switch(config)#interface link-aggregation 3\n"
                     "switch(config-if-ag3)#exit\n"
                     "switch(config)#interface loopback 2\n"
                     "switch(config-if-loopback2)#exit\n"
                     "switch(config)#interface mgmt 0\n"
                     "switch(config-if-mgmt0)#end\n"
                     "switch#exit\n");
}

TEST(NdshModes, EnvironmentValuesOfEveryMode)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "probe; configure terminal; probe; interface vlan 10; probe; vlan 20; probe;"
                                             "super-vlan 30; probe; vxlan 40; probe; interface gigabitethernet 0/2; probe;"
                                             "interface link-aggregation 3; probe; interface loopback 2; probe;"
                                             "interface mgmt 0; probe; end; probe"}));
    ASSERT_EQ(r.status, 0) << r.out;
    const std::string none = "(none)";
    std::string expected;
    auto add = [&](const std::string &line) { expected += "\nargv: [probe]\n" + line + "\n"; };
    add(probe_line(none, 0, 0, 0, none));                                       // EN
    add(probe_line(none, 0, 0, 0, none));                                       // CONF
    add(probe_line("vlan10", 0, 0, 0, none));                                   // IF
    add(probe_line(none, 20, 0, 0, none));                                      // VLAN
    add(probe_line(none, 0, 30, 0, none));                                      // SUPERVLAN
    add(probe_line(none, 0, 0, 40, none));                                      // VXLAN
    add(probe_line("gigabitethernet0/2", 0, 0, 0, "2:gigabitethernet0/2"));     // PORT
    add(probe_line("link-aggregation3", 0, 0, 0, "27:link-aggregation3"));      // LINK_AGGREGATION
    add(probe_line("loopback2", 0, 0, 0, none));                                // IF
    add(probe_line("mgmt0", 0, 0, 0, none));                                    // IF, as every interface
    add(probe_line(none, 0, 0, 0, none));                                       // EN again
    EXPECT_EQ(r.out, expected);
}

TEST(NdshModes, NoSwitchportMakesTheRoutedPortModeWithItsOwnCommands)
{
    // "nd proxy enable" of the plug-in is a command of IF and PORTIF, not of PORT.
    StateDir state;
    Result r = ndsh(state, {"--no-service", "-c",
                            "configure terminal; interface gigabitethernet 0/1; nd proxy enable; no switchport;"
                            "nd proxy enable; switchport; nd proxy enable"});
    EXPECT_EQ(r.status, 1);
    // "nd" is a word of PORT mode too ("nd snooping trust"); "proxy" is where the line goes wrong.
    std::string caret = std::string(std::string("switch(config-if-ge0/1)#nd ").size(), ' ') + "^\n% Unknown command.\n";
    EXPECT_EQ(r.out, "switch(config-if-ge0/1)#nd proxy enable\n" + caret + "switch(config-if-ge0/1)#nd proxy enable\n" +
                         caret);
}

TEST(NdshModes, ExitEndAndDo)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--echo", "-c",
                                       "configure terminal; vlan 7; do probe; exit; vlan 8; end; configure terminal;"
                                       "exit; exit; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "switch#configure terminal\n"
                     "switch(config)#vlan 7\n"
                     "switch(config-vlan7)#do probe\n"
                     "\nargv: [probe]\n" +
                         probe_line("(none)", 7, 0, 0, "(none)") +
                         "\n"
                         "switch(config-vlan7)#exit\n"
                         "switch(config)#vlan 8\n"
                         "switch(config-vlan8)#end\n"
                         "switch#configure terminal\n"
                         "switch(config)#exit\n"
                         "switch#exit\n");
}

TEST(NdshModes, DoRejectsAConfigurationCommandWithACaretAfterDo)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; do vlan 3"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "switch(config)#do vlan 3\n" + std::string(18, ' ') + "^\n% Unknown command.\n");
}

TEST(NdshModes, AGlobalCommandInASubModeLeavesTheSubMode)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--echo", "-c", "configure terminal; interface vlan 3; vlan 4; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "switch#configure terminal\n"
                     "switch(config)#interface vlan 3\n"
                     "switch(config-if-vlan3)#vlan 4\n"
                     "switch(config-vlan4)#probe\n"
                     "\nargv: [probe]\n" +
                         probe_line("(none)", 4, 0, 0, "(none)") + "\n");
}

TEST(NdshModes, UnknownPortsAndAggregationsAreRefused)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; interface gigabitethernet 9/9; probe;"
                                             "interface link-aggregation 99"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "\n% Interface gigabitethernet9/9 does not exist.\n"
                     "\nargv: [probe]\n" +
                         probe_line("(none)", 0, 0, 0, "(none)") +
                         "\n"
                         "\n% Link-aggregation 99 does not exist.\n");
}

TEST(NdshModes, InventoryIsKeptAcrossStartsAndNoFormsRemoveIt)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vlan 30; vxlan 5; interface vlan 30"})).status, 0);
    Result second = ndsh(state, probe_args({"-c", "show running-config | include ^(vlan|vxlan|interface)"}));
    EXPECT_EQ(second.out, "vlan 1\nvlan 30\ninterface vlan 30\nvxlan 5\n");
    Result third = ndsh(state, probe_args({"-c", "configure terminal; no vlan 30; no vxlan 5; no interface vlan 30;"
                                                 "no vlan 1; no vlan 30;"
                                                 "do show running-config | include ^(vlan|vxlan|interface)"}));
    EXPECT_EQ(third.status, 1);
    EXPECT_EQ(third.out, "\n% The default VLAN cannot be deleted.\n\n% vlan 30 does not exist.\nvlan 1\n");
}
