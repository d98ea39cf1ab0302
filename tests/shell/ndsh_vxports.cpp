// The VXLAN access ports that hosts are learned on: `vxlan-port` in a VXLAN instance's mode,
// its help, its refusals, its lines in the running configuration, and what `no vxlan N` and
// `reload` do to them.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "ndsh_support.h"

using namespace ndshtest;

namespace {

// The VXLAN sections of the running configuration (the probe plug-in adds its own line to each).
std::string vxlan_sections(const StateDir &state)
{
    return ndsh(state, probe_args({"-c", "show running-config | section ^vxlan"})).out;
}

} // namespace

TEST(NdshVxports, PortsAreSavedInTheSectionOfTheirInstanceByAscendingIndex)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vxlan 10;"
                                             "vxlan-port 2 interface ge0/2 svlan 10;"
                                             "vxlan-port 1 interface gigabitethernet0/1 svlan 10 cvlan 20;"
                                             "vxlan-port 3 interface ag2; exit;"
                                             "vxlan 20; vxlan-port 65535 interface GE0/24 svlan 4094 cvlan 1;"
                                             "vxlan-po 9 int ge0/9 s 7 c 8"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(vxlan_sections(state), "vxlan 10\n"
                                     " vxlan-port 1 interface gigabitethernet0/1 svlan 10 cvlan 20\n"
                                     " vxlan-port 2 interface gigabitethernet0/2 svlan 10\n"
                                     " vxlan-port 3 interface link-aggregation2\n"
                                     " probe vxlan 10\n"
                                     "vxlan 20\n"
                                     " vxlan-port 9 interface gigabitethernet0/9 svlan 7 cvlan 8\n"
                                     " vxlan-port 65535 interface gigabitethernet0/24 svlan 4094 cvlan 1\n"
                                     " probe vxlan 20\n");
    // Defining an index of the same instance again replaces it.
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; vxlan-port 2 interface ge0/5"})).status, 0);
    EXPECT_EQ(ndsh(state, probe_args({"-c", "show running-config | include vxlan-port 2 "})).out,
              " vxlan-port 2 interface gigabitethernet0/5\n");
}

TEST(NdshVxports, HelpOffersEveryWordOfTheCommandInTheVxlanModeOnly)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vxlan 10;"
                                             "vxlan-port ?;"
                                             "vxlan-port 1 ?;"
                                             "vxlan-port 1 interface ?;"
                                             "vxlan-port 1 interface ge0/1 ?;"
                                             "vxlan-port 1 interface ge0/1 svlan ?;"
                                             "vxlan-port 1 interface ge0/1 svlan 10 ?;"
                                             "vxlan-port 1 interface ge0/1 svlan 10 cvlan ?;"
                                             "vxlan-port 1 interface ge0/1 svlan 10 cvlan 20 ?;"
                                             "no vxlan-port ?;"
                                             "no vxlan-port 1 ?;"
                                             "exit; vxlan-port ?"}));
    EXPECT_EQ(r.out, "switch(config-vxlan10)#vxlan-port ?\n"
                     "  <1-65535>  VXLAN port index\n"
                     "switch(config-vxlan10)#vxlan-port 1 ?\n"
                     "  interface  The interface the port is attached to\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ?\n"
                     "  WORD  Interface name, such as gigabitethernet0/1\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ge0/1 ?\n"
                     "  svlan  Outer VLAN of the port\n"
                     "  <cr>\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ge0/1 svlan ?\n"
                     "  <1-4094>  Outer VLAN id\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ge0/1 svlan 10 ?\n"
                     "  cvlan  Inner VLAN of the port\n"
                     "  <cr>\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ge0/1 svlan 10 cvlan ?\n"
                     "  <1-4094>  Inner VLAN id\n"
                     "switch(config-vxlan10)#vxlan-port 1 interface ge0/1 svlan 10 cvlan 20 ?\n"
                     "  <cr>\n"
                     "switch(config-vxlan10)#no vxlan-port ?\n"
                     "  <1-65535>  VXLAN port index\n"
                     "switch(config-vxlan10)#no vxlan-port 1 ?\n"
                     "  <cr>\n"
                     "switch(config)#vxlan-port ?\n"
                     "               ^\n"
                     "% Unknown command.\n");
    // Nothing was defined by asking.
    EXPECT_EQ(ndsh(state, probe_args({"-c", "show running-config | include vxlan-port"})).out, "");
}

TEST(NdshVxports, RefusalsChangeNothing)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; vxlan-port 1 interface ge0/1 svlan 10"}))
                  .status,
              0);
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vxlan 20;"
                                             "vxlan-port 1 interface ge0/4;"
                                             "no vxlan-port 1;"
                                             "no vxlan-port 2;"
                                             "vxlan-port 2 interface ge0/99;"
                                             "vxlan-port 2 interface vlan10;"
                                             "vxlan-port 0 interface ge0/1;"
                                             "vxlan-port 65536 interface ge0/1;"
                                             "vxlan-port 2 interface ge0/1 cvlan 20;"
                                             "vxlan-port 2 interface ge0/1 svlan 4095;"
                                             "vxlan-port 2 interface"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "\n% VXLAN port 1 is already used by vxlan 10.\n"
                     "\n% VXLAN port 1 is used by vxlan 10, not by vxlan 20.\n"
                     "\n% VXLAN port 2 does not exist.\n"
                     "\n% Interface ge0/99 does not exist.\n"
                     "\n% Interface vlan10 does not exist.\n"
                     "switch(config-vxlan20)#vxlan-port 0 interface ge0/1\n"
                     "                                  ^\n"
                     "% Unknown command.\n"
                     "switch(config-vxlan20)#vxlan-port 65536 interface ge0/1\n"
                     "                                  ^\n"
                     "% Unknown command.\n"
                     "switch(config-vxlan20)#vxlan-port 2 interface ge0/1 cvlan 20\n"
                     "                                                    ^\n"
                     "% Unknown command.\n"
                     "switch(config-vxlan20)#vxlan-port 2 interface ge0/1 svlan 4095\n"
                     "                                                          ^\n"
                     "% Unknown command.\n"
                     "switch(config-vxlan20)#vxlan-port 2 interface\n"
                     "                                             ^\n"
                     "% Incomplete command.\n");
    EXPECT_EQ(vxlan_sections(state), "vxlan 10\n"
                                     " vxlan-port 1 interface gigabitethernet0/1 svlan 10\n"
                                     " probe vxlan 10\n"
                                     "vxlan 20\n"
                                     " probe vxlan 20\n");
}

TEST(NdshVxports, NoVxlanRemovesThePortsOfThatInstanceOnly)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; vxlan-port 1 interface ge0/1;"
                                             "vxlan-port 2 interface ge0/2; exit;"
                                             "vxlan 20; vxlan-port 3 interface ge0/3; exit;"
                                             "no vxlan 10; vxlan 20; vxlan-port 1 interface ge0/7; exit; vxlan 10"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(vxlan_sections(state), "vxlan 10\n"
                                     " probe vxlan 10\n"
                                     "vxlan 20\n"
                                     " vxlan-port 1 interface gigabitethernet0/7\n"
                                     " vxlan-port 3 interface gigabitethernet0/3\n"
                                     " probe vxlan 20\n");
    Result removed = ndsh(state, probe_args({"-c", "configure terminal; vxlan 20; no vxlan-port 1; no vxlan-port 1"}));
    EXPECT_EQ(removed.out, "\n% VXLAN port 1 does not exist.\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "show running-config | include vxlan-port"})).out,
              " vxlan-port 3 interface gigabitethernet0/3\n");
}

TEST(NdshVxports, ReloadReplacesThePortsWithTheSavedOnes)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; vxlan-port 1 interface ge0/1 svlan 10 cvlan 20;"
                                            "vxlan-port 2 interface ge0/2; end; write"}))
                  .status,
              0);
    // Unsaved changes: one port more, one less, one moved to another interface.
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; no vxlan-port 1; vxlan-port 2 interface ge0/6;"
                                            "exit; vxlan 30; vxlan-port 5 interface ge0/5"}))
                  .status,
              0);
    ASSERT_EQ(ndsh(state, probe_args({"--yes", "-c", "reload"})).status, 0);
    Result r = ndsh(state, probe_args({"-c", "show running-config | include vxlan"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "vxlan 10\n"
                     " vxlan-port 1 interface gigabitethernet0/1 svlan 10 cvlan 20\n"
                     " vxlan-port 2 interface gigabitethernet0/2\n"
                     " probe vxlan 10\n");
}

TEST(NdshVxports, AStoreFailureRefusesTheCommandWithSQLitesReason)
{
    StateDir state;
    ASSERT_EQ(mkdir(state.file("ndplat_vxports.db").c_str(), 0700), 0);
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vxlan 10; vxlan-port 1 interface ge0/1"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "\n% Cannot store vxlan-port 1: unable to open database file (Is a directory).\n");
    EXPECT_EQ(vxlan_sections(state), "vxlan 10\n probe vxlan 10\n");
}
