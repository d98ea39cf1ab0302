// What the shell acknowledged survives: a kill -9 of the shell, a second shell on the same
// state directory, a full file system, and damage to the configuration database behind its back.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "ndsh_support.h"

using namespace ndshtest;

namespace {

std::string vlan_lines(int first, int last)
{
    std::string text;
    for (int v = first; v <= last; ++v)
        text += "vlan " + std::to_string(v) + "\n";
    return text;
}

// Types `vlan N` and `exit` for each VLAN at the terminal, waiting for each prompt: a prompt is
// the shell's acknowledgement that the command was carried out.
void configure_vlans(Pty &pty, int first, int last, const std::string &inside = "")
{
    for (int v = first; v <= last; ++v) {
        std::string n = std::to_string(v);
        ASSERT_TRUE(pty.command("vlan " + n, "switch(config-vlan" + n + ")#")) << pty.all();
        if (!inside.empty()) {
            ASSERT_TRUE(pty.command(inside, "switch(config-vlan" + n + ")#")) << pty.all();
        }
        ASSERT_TRUE(pty.command("exit", "switch(config)#")) << pty.all();
    }
}

// The shell on a terminal, in global configuration mode; with `globalSnooping`, ND snooping
// switched on there.
void start_configuring(Pty &pty, bool globalSnooping = false)
{
    ASSERT_TRUE(pty.expect("switch#"));
    ASSERT_TRUE(pty.command("configure terminal", "switch(config)#"));
    if (globalSnooping) {
        ASSERT_TRUE(pty.command("nd snooping enable", "switch(config)#"));
    }
}

// A tmpfs of `size` mounted on a fresh directory, unmounted at the end.
class SmallDisk {
public:
    explicit SmallDisk(const std::string &size)
    {
        char templ[] = "/tmp/ndsh-disk-XXXXXX";
        const char *made = mkdtemp(templ);
        path_ = made ? made : "";
        std::string options = "size=" + size + ",mode=0700";
        mounted_ = made && mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()) == 0;
        why_ = mounted_ ? "" : strerror(errno);
    }
    ~SmallDisk()
    {
        if (mounted_)
            umount2(path_.c_str(), MNT_DETACH);
        if (!path_.empty())
            rmdir(path_.c_str());
    }
    bool mounted() const { return mounted_; }
    const std::string &why() const { return why_; }
    const std::string &path() const { return path_; }

    // Takes every byte that is left.
    void fill()
    {
        int fd = open((path_ + "/filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        char block[4096] = {};
        while (fd >= 0 && write(fd, block, sizeof block) > 0) {
        }
        // The last partial block, byte by byte.
        while (fd >= 0 && write(fd, block, 1) > 0) {
        }
        if (fd >= 0)
            close(fd);
    }
    void free_space() { unlink((path_ + "/filler").c_str()); }

private:
    std::string path_;
    std::string why_;
    bool mounted_ = false;
};

} // namespace

TEST(NdshDurability, Kill9WhileConfiguringVlansLosesNoAcknowledgedVlan)
{
    StateDir state;
    {
        Pty pty(state, probe_args());
        start_configuring(pty);
        configure_vlans(pty, 2, 101);
    } // the shell is killed with SIGKILL here, without a chance to write anything at exit
    Result r = ndsh(state, probe_args({"-c", "show running-config | include ^vlan"}));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, vlan_lines(1, 101));
}

TEST(NdshDurability, TwoShellsOnOneStateDirectorySeeAndKeepEachOthersObjects)
{
    StateDir state;
    Pty first(state, probe_args());
    start_configuring(first);
    configure_vlans(first, 100, 104);

    Result second = ndsh(state, probe_args({"-c", "configure terminal; vlan 200; exit; vlan 201; exit; "
                                                  "interface loopback 7; end"}));
    EXPECT_EQ(second.status, 0) << second.out << second.err;

    // The first shell sees what the second stored, and removes one of its own objects.
    ASSERT_TRUE(first.command("do show running-config | include ^(vlan|interface)", "switch(config)#"));
    EXPECT_EQ(first.since_mark(), "");
    std::string shown = first.all();
    for (const char *line : {"vlan 100", "vlan 104", "vlan 200", "vlan 201", "interface loopback 7"})
        EXPECT_NE(shown.find(std::string("\r\n") + line + "\r\n"), std::string::npos) << line << "\n" << shown;
    ASSERT_TRUE(first.command("no vlan 100", "switch(config)#"));
    ASSERT_TRUE(first.command("end", "switch#"));
    first.send("exit\r");
    EXPECT_EQ(first.wait_exit(), 0);

    Result after = ndsh(state, probe_args({"-c", "show running-config | include ^(vlan|interface)"}));
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(after.out, "vlan 1\nvlan 101\nvlan 102\nvlan 103\nvlan 104\nvlan 200\nvlan 201\n"
                         "interface loopback 7\n");
}

TEST(NdshDurability, FullDiskRefusesTheFailingCommandAndKeepsEverythingEarlier)
{
    SmallDisk disk("1m");
    ASSERT_TRUE(disk.mounted()) << "mounting a tmpfs needs root: " << disk.why();
    std::string state = disk.path() + "/state";
    std::vector<std::string> env = {"NDSIM_STATE=" + state};
    auto run = [&](const std::string &commands) {
        std::vector<std::string> args = probe_args({"--state", state, "-c", commands});
        StateDir unused;
        return ndsh(unused, args, "", env);
    };
    Result first = run("configure terminal; vlan 2; exit; vlan 3; exit; vlan 4; end; write");
    ASSERT_EQ(first.status, 0) << first.out << first.err;
    std::string startup = read_file(state + "/flash/startup-config");
    ASSERT_NE(startup.find("\nvlan 4\n"), std::string::npos) << startup;

    disk.fill();
    Result full = run("configure terminal; vlan 300; end; write");
    disk.free_space();
    EXPECT_NE(full.status, 0);
    EXPECT_EQ(full.out, "\n% Cannot store vlan 300: disk I/O error (No space left on device).\n"
                        "\n% Not saved: the configuration databases could not be copied into " + state +
                            "/flash; the startup configuration is unchanged.\n")
        << full.err;
    EXPECT_EQ(read_file(state + "/flash/startup-config"), startup);
    for (const auto &entry : std::filesystem::directory_iterator(state + "/flash"))
        EXPECT_EQ(entry.path().filename().string().find("tmp"), std::string::npos) << "left behind: " << entry.path();

    Result after = run("show running-config | include ^vlan");
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(after.out, vlan_lines(1, 4));
}

TEST(NdshDurability, DiskFillingUpDuringASessionRefusesOnlyTheCommandsThatCannotBeStored)
{
    SmallDisk disk("1m");
    ASSERT_TRUE(disk.mounted()) << "mounting a tmpfs needs root: " << disk.why();
    std::string state = disk.path() + "/state";
    StateDir unused; // the shell's environment names it; --state takes precedence
    {
        Pty pty(unused, probe_args({"--state", state}));
        start_configuring(pty);
        configure_vlans(pty, 2, 3);
        disk.fill();
        pty.send("vlan 300\r");
        ASSERT_TRUE(pty.expect("switch(config)#"));
        EXPECT_EQ(pty.since_mark(), "");
        EXPECT_NE(pty.all().find("\r\n% Cannot store vlan 300: database or disk is full.\r\n"), std::string::npos)
            << pty.all();
        disk.free_space();
        configure_vlans(pty, 301, 301);
    }
    Result after = ndsh(unused, probe_args({"--state", state, "-c", "show running-config | include ^vlan"}));
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(after.out, "vlan 1\nvlan 2\nvlan 3\nvlan 301\n");
}

#ifdef NDSH_WITH_SERVICE

namespace {

// Overwrites `length` bytes of a file at `offset` with `byte`, as a failing disk or a careless
// tool would.
void scribble(const std::string &path, off_t offset, size_t length, char byte)
{
    int fd = open(path.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0) << path;
    std::string junk(length, byte);
    ASSERT_EQ(pwrite(fd, junk.data(), junk.size(), offset), static_cast<ssize_t>(junk.size()));
    close(fd);
}

std::vector<std::string> set_aside_files(const StateDir &state, const std::string &db)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(state.path())) {
        std::string name = entry.path().filename().string();
        if (name.rfind(db + ".db.damaged-", 0) == 0)
            names.push_back(name);
    }
    return names;
}

constexpr const char *kSnoopingSetup = "configure terminal; nd snooping enable; vlan 10; nd snooping enable; end; write";

} // namespace

TEST(NdshDurability, Kill9KeepsTheVlansWhoseSnoopingTheServiceStored)
{
    StateDir state;
    {
        Pty pty(state, {});
        start_configuring(pty, true);
        configure_vlans(pty, 500, 519, "nd snooping enable");
    }
    Result r = ndsh(state, {"-c", "show running-config | include ^vlan 5| nd snooping"});
    EXPECT_EQ(r.status, 0) << r.err;
    std::string expected;
    for (int v = 500; v <= 519; ++v)
        expected += "vlan " + std::to_string(v) + "\n nd snooping enable\n";
    EXPECT_EQ(r.out, expected);
}

TEST(NdshDurability, DamagedDatabaseHeaderIsReportedAndWriteKeepsTheStartupConfiguration)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, {"-c", kSnoopingSetup}).status, 0);
    std::string startup = read_file(state.file("flash/startup-config"));
    ASSERT_NE(startup.find("\nvlan 10\n nd snooping enable\n"), std::string::npos) << startup;

    scribble(state.file("ec_nd.db"), 0, 100, 'x');
    Result r = ndsh(state, {"-c", "show running-config | include nd; write"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "end\n"
                     "% The configuration database ec_nd is damaged (file is not a database).\n"
                     "\n% Not saved: the configuration database ec_nd is damaged (file is not a database); "
                     "the startup configuration is unchanged.\n");
    EXPECT_EQ(read_file(state.file("flash/startup-config")), startup);
}

TEST(NdshDurability, DamagedDatabasePageIsReportedAndWriteKeepsTheStartupConfiguration)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, {"-c", kSnoopingSetup}).status, 0);
    std::string startup = read_file(state.file("flash/startup-config"));

    scribble(state.file("ec_nd.db"), 4096, 4096, '\xab');
    Result r = ndsh(state, {"-c", "write"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind("\n% Not saved: the configuration database ec_nd is damaged (", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("); the startup configuration is unchanged.\n"), std::string::npos) << r.out;
    EXPECT_EQ(count(r.out, "\n"), 2u) << r.out;
    EXPECT_EQ(read_file(state.file("flash/startup-config")), startup);
}

TEST(NdshDurability, ReloadSetsTheDamagedDatabaseAsideAndRestoresTheStartupConfiguration)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, {"-c", kSnoopingSetup}).status, 0);
    scribble(state.file("ec_nd.db"), 0, 100, 'x');

    Result r = ndsh(state, {"-c", "reload; show running-config | include nd"});
    std::vector<std::string> aside = set_aside_files(state, "ec_nd");
    ASSERT_EQ(aside.size(), 1u) << r.out;
    EXPECT_EQ(r.out, "\nReloading...\n% The damaged configuration database ec_nd was kept as " + state.path() + "/" +
                         aside[0] + ".\n"
                         "nd snooping enable\n nd snooping enable\nend\n")
        << r.err;
    EXPECT_EQ(read_file(state.path() + "/" + aside[0]).substr(0, 100), std::string(100, 'x'));
    EXPECT_EQ(ndsh(state, {"-c", "write"}).out, "\nBuilding configuration...\n[OK]\n");
}

#endif

#ifdef NDSH_WITH_SERVICE

TEST(NdshDurability, ReplayCutOffHalfWayIsDoneAgainAtTheNextStart)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, {"-c", kSnoopingSetup}).status, 0);
    // What a replay killed half-way leaves: part of the configuration (here also a VLAN that the
    // startup configuration does not have) and the marker of the replay in progress.
    ASSERT_EQ(ndsh(state, {"-c", "configure terminal; vlan 77; end"}).status, 0);
    write_file(state.file("ndsh.replaying"), "");

    Result r = ndsh(state, {"-c", "show running-config | include ^vlan| nd "});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "% The last replay of the startup configuration did not finish: reloading.\n"
                     "vlan 1\nvlan 10\n nd snooping enable\n");
    EXPECT_NE(access(state.file("ndsh.replaying").c_str(), F_OK), 0);
}

#endif
