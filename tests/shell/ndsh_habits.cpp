// The habits of a switch shell: write memory and copy running-config startup-config, reload
// confirmed at a terminal, show version, show history and history kept across sessions, help,
// and show commands typed in a configuration mode.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>

#include "ndsh_support.h"

using namespace ndshtest;

namespace {

std::string run_command(const std::string &command)
{
    std::string out;
    FILE *p = popen(command.c_str(), "r");
    if (!p)
        return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
}

} // namespace

TEST(NdshHabits, WriteMemoryAndCopyRunningConfigSaveAsWriteDoes)
{
    for (const char *save : {"write memory", "copy running-config startup-config", "wr mem", "copy run start"}) {
        StateDir state;
        Result r = ndsh(state, probe_args({"-c", std::string("configure terminal; vlan 5; end; ") + save}));
        EXPECT_EQ(r.status, 0) << save;
        EXPECT_EQ(r.out, "\nBuilding configuration...\n[OK]\n") << save;
        Result shown = ndsh(state, probe_args({"-c", "show running-config"}));
        // The session id of the handlers' lines counts the listings of one shell: both are 1.
        EXPECT_EQ(read_file(state.file("flash/startup-config")), shown.out) << save;
    }
}

TEST(NdshHabits, ReloadWithoutATerminalIsAnsweredByTheOption)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, std::vector<std::string>{"--no-service", "-c", "configure terminal; vlan 5; end; write; configure terminal; vlan 6; end"})
                  .status,
              0);
    Result no = ndsh(state, std::vector<std::string>{"--no-service", "--no", "-c", "reload; show running-config | include ^vlan"});
    EXPECT_EQ(no.status, 1);
    EXPECT_EQ(no.out, "\n% Reload cancelled (--no).\nvlan 1\nvlan 5\nvlan 6\n");
    Result yes = ndsh(state, std::vector<std::string>{"--no-service", "--yes", "-c", "reload; show running-config | include ^vlan"});
    EXPECT_EQ(yes.status, 0);
    EXPECT_EQ(yes.out, "\nReloading...\nvlan 1\nvlan 5\n");
}

TEST(NdshHabits, ReloadAtATerminalAsksFirst)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "configure terminal; vlan 5; end; write; configure terminal; vlan 6; end"}))
                  .status,
              0);
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("reload\r");
    ASSERT_TRUE(pty.expect("Proceed with reload? (Yes|No)?"));
    pty.send("n\r");
    ASSERT_TRUE(pty.expect("% Reload cancelled."));
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show running-config | include ^vlan 6\r");
    ASSERT_TRUE(pty.expect("\nvlan 6\r\n")) << pty.all();
    pty.send("reload\r");
    ASSERT_TRUE(pty.expect("Proceed with reload? (Yes|No)?"));
    pty.send("y\r");
    ASSERT_TRUE(pty.expect("Reloading..."));
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show running-config | count ^vlan 6\r");
    ASSERT_TRUE(pty.expect("Number of lines: 0")) << pty.all();
}

TEST(NdshHabits, ShowVersionNamesThePlugInItsBuildIdThePlatformAndTheUptime)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "show version"}));
    EXPECT_EQ(r.status, 0);
    std::string notes = run_command(std::string("readelf -n ") + NDSH_PROBE_PATH + " 2>/dev/null");
    size_t at = notes.find("Build ID: ");
    ASSERT_NE(at, std::string::npos) << notes;
    std::string id = notes.substr(at + 10, notes.find('\n', at) - at - 10);
    std::string system = run_command("uname -s -r -m");
    system.pop_back();
    EXPECT_EQ(r.out, std::string("\nND switch emulation (ndsh)\nND plug-in: ") + NDSH_PROBE_PATH +
                         "\nPlug-in build id: " + id + "\nPlatform: " + system + "\nUptime: 0 days, 00:00:00\n");
}

TEST(NdshHabits, ShowHistoryListsTheLinesTypedSoFar)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 3; exit; end; show history"}));
    EXPECT_EQ(r.out, "\n  configure terminal\n  vlan 3\n  exit\n  end\n  show history\n");
}

TEST(NdshHabits, HistoryIsKeptAcrossSessionsOwnerOnly)
{
    StateDir state;
    {
        Pty pty(state, probe_args());
        ASSERT_TRUE(pty.expect("switch#"));
        pty.send("show running-config | include ^vlan\r");
        ASSERT_TRUE(pty.expect("vlan 1"));
        ASSERT_TRUE(pty.expect("switch#"));
        pty.send("exit\r");
        EXPECT_EQ(pty.wait_exit(), 0);
    }
    EXPECT_EQ(read_file(state.file("ndsh_history")), "show running-config | include ^vlan\nexit\n");
    struct stat st {};
    ASSERT_EQ(stat(state.file("ndsh_history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show history\r");
    ASSERT_TRUE(pty.expect("  show running-config | include ^vlan\r\n  exit\r\n  show history\r\n")) << pty.all();
    ASSERT_TRUE(pty.expect("switch#"));
    // The arrow key goes back through the earlier session's lines as well.
    pty.send("\x1b[A\x1b[A\x1b[A");
    ASSERT_TRUE(pty.expect("show running-config | include ^vlan")) << pty.all();
}

TEST(NdshHabits, HelpDescribesTheHelpSystem)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "help; configure terminal; help"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(r.out, "Help may be requested at any point in a command by entering a question mark '?'.\n"), 2u);
}

TEST(NdshHabits, AShowTypedInAConfigurationModeRunsAsWithDo)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--echo", "-c", "configure terminal; vlan 3; show running-config | include ^vlan; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("switch(config-vlan3)#show running-config | include ^vlan\nvlan 1\nvlan 3\nswitch(config-vlan3)#probe"),
              r.out.find("switch(config-vlan3)#show"))
        << r.out;
    EXPECT_NE(r.out.find("switch(config-vlan3)#show"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find('%'), std::string::npos) << r.out;
}

// When the mode registers the same words itself, its own command runs.
TEST(NdshHabits, AShowThatTheModeRegistersRunsAsTheModeHasIt)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "show probe-show; configure terminal; show probe-show; vlan 3; show probe-show;"
                                             "do show probe-show"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\nthe privileged show\n\nthe privileged show\n\nthe VLAN mode's own show\n\nthe privileged show\n");
}

// `?` after such a show helps as in privileged mode.
TEST(NdshHabits, AShowInAConfigurationModeIsHelpedAsInPrivilegedMode)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 3; show run?; sh running-config ?"}));
    EXPECT_EQ(r.out, "switch(config-vlan3)#show run?\n"
                     "  running-config  Current operating configuration\n"
                     "switch(config-vlan3)#sh running-config ?\n"
                     "  |     Output modifiers\n"
                     "  <cr>\n")
        << r.out;
}
