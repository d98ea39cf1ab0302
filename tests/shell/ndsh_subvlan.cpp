// The sub-VLANs of a super VLAN: `subvlan V` and `no subvlan V` in the super VLAN's mode, their
// help, their refusals, their lines in the running configuration, what removing the VLAN or
// the super VLAN and `reload` do to them, and what the ND service's reader sees of them.
#include <gtest/gtest.h>

#include "ndplat_dbm.h"
#include "ndplat_supervlan.h"
#include "ndsh_support.h"

using namespace ndshtest;

namespace {

using Members = std::map<uint16_t, uint16_t>;

// The super VLAN sections of the running configuration (the probe plug-in writes nothing in them).
std::string super_vlan_sections(const StateDir &state)
{
    return ndsh(state, probe_args({"-c", "show running-config | section ^super-vlan"})).out;
}

// Five VLANs and two super VLANs to put them in.
constexpr const char *kVlans = "configure terminal; vlan 10; vlan 20; vlan 30; vlan 40; vlan 4094; exit;"
                               "super-vlan 5; exit; super-vlan 6; end";

// The reader of the ND service, in this process, on the shell's state directory.
class ServiceReader {
public:
    explicit ServiceReader(const StateDir &state)
    {
        ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite);
        ndplat::dbm_state_dir_set(state.path());
    }
    ~ServiceReader() { ndplat::dbm_state_dir_set(""); }
    ServiceReader(const ServiceReader &) = delete;
    ServiceReader &operator=(const ServiceReader &) = delete;
    Members members() const { return ndplat::sub_vlan_supers(); }
};

} // namespace

TEST(NdshSubVlan, MembersAreWrittenInTheSectionOfTheirSuperVlanByAscendingVlan)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    Result r = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 6; subvlan 4094; subvlan 30; subvlan 10;"
                                             "exit; super-vlan 5; subvlan 40; subv 20; subvlan 40"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 20\n"
                                          " subvlan 40\n"
                                          "super-vlan 6\n"
                                          " subvlan 10\n"
                                          " subvlan 30\n"
                                          " subvlan 4094\n");
    Result removed = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 6; no subvlan 30; no subv 4094"}));
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(removed.out, "");
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 20\n"
                                          " subvlan 40\n"
                                          "super-vlan 6\n"
                                          " subvlan 10\n");
}

TEST(NdshSubVlan, EveryRefusalNamesItsReasonAndChangesNothing)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10"})).status, 0);
    Result r = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 6;"
                                             "subvlan 1;"
                                             "subvlan 99;"
                                             "subvlan 6;"
                                             "subvlan 10;"
                                             "no subvlan 10;"
                                             "no subvlan 20;"
                                             "no subvlan 99;"
                                             "vlan 5; exit; super-vlan 6;"
                                             "subvlan 5;"
                                             "exit; super-vlan 10;"
                                             "super-vlan 6;"
                                             "subvlan 0;"
                                             "subvlan 4095;"
                                             "subvlan"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "\n% The default VLAN cannot be a sub-VLAN.\n"
                     "\n% VLAN 99 does not exist.\n"
                     "\n% VLAN 6 is a super VLAN and cannot be a sub-VLAN.\n"
                     "\n% VLAN 10 is already a sub-VLAN of super-vlan 5.\n"
                     "\n% VLAN 10 is a sub-VLAN of super-vlan 5, not of super-vlan 6.\n"
                     "\n% VLAN 20 is not a sub-VLAN of super-vlan 6.\n"
                     "\n% VLAN 99 is not a sub-VLAN of super-vlan 6.\n"
                     "\n% VLAN 5 is a super VLAN and cannot be a sub-VLAN.\n"
                     "\n% VLAN 10 is a sub-VLAN of super-vlan 5 and cannot be a super VLAN.\n"
                     "switch(config-super-vlan6)#subvlan 0\n"
                     "                                   ^\n"
                     "% Unknown command.\n"
                     "switch(config-super-vlan6)#subvlan 4095\n"
                     "                                   ^\n"
                     "% Unknown command.\n"
                     "switch(config-super-vlan6)#subvlan\n"
                     "                                  ^\n"
                     "% Incomplete command.\n");
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 10\n"
                                          "super-vlan 6\n");
    // Adding a member to its own super VLAN again is no refusal.
    Result again = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10"}));
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "");
}

TEST(NdshSubVlan, HelpOffersTheCommandInTheSuperVlanModeOnly)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5;"
                                             "subv?;"
                                             "subvlan ?;"
                                             "subvlan 10 ?;"
                                             "no subv?;"
                                             "no subvlan ?;"
                                             "no subvlan 10 ?;"
                                             "exit; subvlan ?"}));
    EXPECT_EQ(r.out, "switch(config-super-vlan5)#subv?\n"
                     "  subvlan  Add a VLAN to the super VLAN as a sub-VLAN\n"
                     "switch(config-super-vlan5)#subvlan ?\n"
                     "  <1-4094>  VLAN id\n"
                     "switch(config-super-vlan5)#subvlan 10 ?\n"
                     "  <cr>\n"
                     "switch(config-super-vlan5)#no subv?\n"
                     "  subvlan  Remove a sub-VLAN from the super VLAN\n"
                     "switch(config-super-vlan5)#no subvlan ?\n"
                     "  <1-4094>  VLAN id\n"
                     "switch(config-super-vlan5)#no subvlan 10 ?\n"
                     "  <cr>\n"
                     "switch(config)#subvlan ?\n"
                     "               ^\n"
                     "% Unknown command.\n");
}

TEST(NdshSubVlan, TabCompletesTheCommand)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vlan 10"})).status, 0);
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    ASSERT_TRUE(pty.command("configure terminal", "switch(config)#"));
    ASSERT_TRUE(pty.command("super-vlan 5", "switch(config-super-vlan5)#"));
    pty.send("sub\t");
    ASSERT_TRUE(pty.expect("vlan ")) << pty.all();
    pty.send("10\r");
    ASSERT_TRUE(pty.expect("switch(config-super-vlan5)#"));
    pty.send("end\rexit\r");
    EXPECT_EQ(pty.wait_exit(), 0);
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n subvlan 10\n");
}

TEST(NdshSubVlan, RemovingTheVlanOrTheSuperVlanRemovesTheMembership)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    Result r = ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10; subvlan 20; exit;"
                                             "super-vlan 6; subvlan 30; subvlan 40; exit;"
                                             "no vlan 20; no super-vlan 6; super-vlan 6; exit; super-vlan 5"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 10\n"
                                          "super-vlan 6\n");
    // Free again: VLAN 30 joins another super VLAN, a VLAN 20 made anew joins none by itself,
    // and VLAN 40, in no super VLAN any more, may become one.
    Result free = ndsh(state, probe_args({"-c", "configure terminal; vlan 20; exit; super-vlan 5; subvlan 30; exit;"
                                                "super-vlan 40"}));
    EXPECT_EQ(free.status, 0);
    EXPECT_EQ(free.out, "");
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 10\n"
                                          " subvlan 30\n"
                                          "super-vlan 6\n"
                                          "super-vlan 40\n");
}

TEST(NdshSubVlan, AShellSeesTheMembershipsAnotherShellStored)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    // One shell stays in the super VLAN's mode while another one takes VLAN 10.
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    ASSERT_TRUE(pty.command("configure terminal", "switch(config)#"));
    ASSERT_TRUE(pty.command("super-vlan 6", "switch(config-super-vlan6)#"));
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10"})).status, 0);
    ASSERT_TRUE(pty.command("subvlan 10", "switch(config-super-vlan6)#"));
    EXPECT_NE(pty.all().find("% VLAN 10 is already a sub-VLAN of super-vlan 5."), std::string::npos) << pty.all();
    // The other shell removes the super VLAN this one is configuring: nothing joins it any more.
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; no super-vlan 6"})).status, 0);
    ASSERT_TRUE(pty.command("subvlan 20", "switch(config-super-vlan6)#"));
    EXPECT_NE(pty.all().find("% super-vlan 6 does not exist."), std::string::npos) << pty.all();
    pty.send("end\rexit\r");
    EXPECT_EQ(pty.wait_exit(), 0);
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 10\n");
    ServiceReader reader(state);
    EXPECT_EQ(reader.members(), (Members{{10, 5}}));
}

TEST(NdshSubVlan, ReloadReplacesTheMembershipsWithTheSavedOnes)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10; subvlan 20; end; write"}))
                  .status,
              0);
    // Unsaved changes: one member less, one moved to another super VLAN, one more.
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; no subvlan 10; no subvlan 20; exit;"
                                            "super-vlan 6; subvlan 20; subvlan 30"}))
                  .status,
              0);
    Result reload = ndsh(state, probe_args({"--yes", "-c", "reload"}));
    EXPECT_EQ(reload.status, 0);
    EXPECT_EQ(reload.out.find('%'), std::string::npos) << reload.out;
    EXPECT_EQ(super_vlan_sections(state), "super-vlan 5\n"
                                          " subvlan 10\n"
                                          " subvlan 20\n"
                                          "super-vlan 6\n");
}

TEST(NdshSubVlan, TheServicesReaderSeesWhatTheShellStoredAndRemoved)
{
    StateDir state;
    ServiceReader reader(state);
    EXPECT_EQ(reader.members(), Members{});
    ASSERT_EQ(ndsh(state, probe_args({"-c", kVlans})).status, 0);
    EXPECT_EQ(reader.members(), Members{});
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 10; subvlan 20; exit;"
                                            "super-vlan 6; subvlan 4094"}))
                  .status,
              0);
    EXPECT_EQ(reader.members(), (Members{{10, 5}, {20, 5}, {4094, 6}}));
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; no subvlan 10"})).status, 0);
    EXPECT_EQ(reader.members(), (Members{{20, 5}, {4094, 6}}));
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; no vlan 20"})).status, 0);
    EXPECT_EQ(reader.members(), (Members{{4094, 6}}));
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; super-vlan 5; subvlan 30; exit; no super-vlan 6"}))
                  .status,
              0);
    EXPECT_EQ(reader.members(), (Members{{30, 5}}));
}
