// The running configuration: sections, the order of the script handlers, their arguments, the
// session id and the end-of-display event; write, reload and the replay of the startup
// configuration.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "ndplat_dbm.h"
#include "ndsh_support.h"

using namespace ndshtest;

namespace {

const char *kProbeConfig = "configure terminal; vlan 20; interface vlan 10; interface loopback 2;"
                           "interface gigabitethernet 0/2; no switchport; interface gigabitethernet 0/1;"
                           "interface link-aggregation 3; vxlan 100; super-vlan 7; interface mgmt 0; end";

} // namespace

TEST(NdshRunningConfig, SectionsHandlersInSectionOrderAndTheirArguments)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", kProbeConfig})).status, 0);
    Result r = ndsh(state, probe_args({"-c", "show running-config"}));
    EXPECT_EQ(r.status, 0);
    // Global handlers by section number (10 before 50, although 50 registered first); VLAN
    // handlers get the VLAN id as third argument, interface handlers the name as fourth, port
    // handlers the port id, VXLAN handlers the VXLAN id as third.
    EXPECT_EQ(r.out, "\n! Current configuration"
                     "\n!"
                     "\nprobe global 10 args 0 0 0 session 1"
                     "\nprobe global 50"
                     "\n!"
                     "\nvlan 1"
                     "\n probe vlan 1 (0 0) session 1"
                     "\n!"
                     "\nvlan 20"
                     "\n probe vlan 20 (0 0) session 1"
                     "\n!"
                     "\nsuper-vlan 7"
                     "\n!"
                     "\ninterface vlan 10"
                     "\n probe kind 3 vlan10"
                     "\n!"
                     "\ninterface loopback 2"
                     "\n probe kind 4 loopback2"
                     "\n!"
                     "\ninterface mgmt 0"
                     "\n probe kind 4 mgmt0"
                     "\n!"
                     "\ninterface gigabitethernet 0/1"
                     "\n probe port 1 gigabitethernet0/1"
                     "\n!"
                     "\ninterface gigabitethernet 0/2"
                     "\n no switchport"
                     "\n probe kind 4 gigabitethernet0/2"
                     "\n probe port 2 gigabitethernet0/2"
                     "\n!"
                     "\ninterface link-aggregation 3"
                     "\n probe port 27 link-aggregation3"
                     "\n!"
                     "\nvxlan 100"
                     "\n probe vxlan 100"
                     "\n!"
                     "\nend\n");
}

TEST(NdshRunningConfig, EachDisplayHasItsSessionAndEndsWithTheEvent)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "show running-config | include session; probe;"
                                             "show running-config | include global 10"}));
    EXPECT_EQ(r.out, "probe global 10 args 0 0 0 session 1\n"
                     " probe vlan 1 (0 0) session 1\n"
                     "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n"
                     "probe global 10 args 0 0 0 session 2\n");
    // The event reaches the callback after the display, with the display's session id as
    // fourth argument; by then no display is in progress.
    EXPECT_EQ(r.err, "event 23 8 0 1, session now 4294967295\nevent 23 8 0 2, session now 4294967295\n");
}

TEST(NdshRunningConfig, ThePlugInsLinesComeFromTheDatabaseIntoTheirSections)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, {"--no-service", "-c", "configure terminal; vlan 10; interface vlan 10; vxlan 7"}).status, 0);
    ASSERT_TRUE(ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite));
    ndplat::dbm_state_dir_set(state.path());
    const uint32_t params[7] = {1, 1, 256, 0, 0, 0, 0};
    DBM_HANDLE h = nullptr;
    ASSERT_EQ(DBM_Open("ec_nd", 1, params, 0, 0, &h), 0u);
    auto put = [&](const std::string &key, uint32_t type, const std::vector<uint8_t> &value) {
        ASSERT_EQ(DBM_SetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), type, value.data(),
                                      static_cast<uint32_t>(value.size()), 0),
                  0);
    };
    auto u32 = [](uint32_t v) {
        std::vector<uint8_t> b(4);
        memcpy(b.data(), &v, 4);
        return b;
    };
    put("fast-response", 0, u32(0)); // "no nd fast-response", second global handler (321)
    put("snooping", 3, u32(1));      // "nd snooping enable", first global handler (27)
    std::vector<uint8_t> vlan(56, 0);
    uint16_t id = 10;
    memcpy(vlan.data() + 12, &id, 2);
    put("vlan 10", 6, vlan);
    std::vector<uint8_t> ifRecord(72, 0);
    memcpy(ifRecord.data(), "vlan10", 7);
    uint32_t flags = 3;
    memcpy(ifRecord.data() + 68, &flags, 4);
    put("nd_nbr_if_vlan10", 1, ifRecord);
    std::vector<uint8_t> vx(20, 0);
    uint32_t words[5] = {7, 0, 3, 360, 20480}; // advertise on, suppression on, defaults
    memcpy(vx.data(), words, 20);
    put("vxlan 7", 1, vx);
    DBM_Close(h);

    Result r = ndsh(state, {"--no-service", "-c", "show running-config"});
    EXPECT_EQ(r.out, "\n! Current configuration"
                     "\n!"
                     "\nnd snooping enable"
                     "\nno nd fast-response"
                     "\n!"
                     "\nvlan 1"
                     "\n!"
                     "\nvlan 10"
                     "\n nd snooping enable"
                     "\n!"
                     "\ninterface vlan 10"
                     "\n nd proxy enable"
                     "\n ipv6 nd proxy anyway enable"
                     "\n!"
                     "\nvxlan 7"
                     "\n ipv6 nd suppression"
                     "\n!"
                     "\nend\n");
}

TEST(NdshRunningConfig, WriteSavesTheStartupConfigurationThatReloadReplays)
{
    StateDir state;
    Result w = ndsh(state, probe_args({"-c", "configure terminal; vlan 5; interface vlan 6; end; write"}));
    EXPECT_EQ(w.out, "\nBuilding configuration...\n[OK]\n");
    std::string saved = read_file(state.file("flash/startup-config"));
    EXPECT_EQ(saved, "\n! Current configuration"
                     "\n!"
                     "\nprobe global 10 args 0 0 0 session 1"
                     "\nprobe global 50"
                     "\n!\nvlan 1\n probe vlan 1 (0 0) session 1"
                     "\n!\nvlan 5\n probe vlan 5 (0 0) session 1"
                     "\n!\ninterface vlan 6\n probe kind 3 vlan6"
                     "\n!\nend\n");
    // The saved text is a configuration the shell can read back; add probe lines to see the
    // replay from the handlers' side.
    write_file(state.file("flash/startup-config"), "!\nvlan 5\n probe in vlan\n!\ninterface vlan 6\n probe\nend\n");
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 9; end; reload; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\nReloading...\n"
                     "\nargv: [probe] [in vlan]\nif=(none) vlan=5 supervlan=0 vxlan=0 ports=(none) interactive=0\n"
                     "\nargv: [probe]\nif=vlan6 vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=0\n"
                     "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n");
    // After the reload, the inventory is the startup configuration's: vlan 9 is gone.
    Result after = ndsh(state, probe_args({"-c", "show running-config | include ^(vlan|interface)"}));
    EXPECT_EQ(after.out, "vlan 1\nvlan 5\ninterface vlan 6\n");
}

TEST(NdshRunningConfig, TheFirstStartOfAFreshStateDirectoryReplaysTheStartupConfiguration)
{
    StateDir state;
    std::filesystem::create_directories(state.file("flash"));
    write_file(state.file("flash/startup-config"), "!\nask\nvxlan 4\n probe\n bogus\ndo reload\nend\nvlan 2\n");
    Result first = ndsh(state, probe_args({"--no", "-c", "ask"}));
    EXPECT_EQ(first.out, "\nSure(Yes|No)?\nanswer 1\n"
                         "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=4 ports=(none) interactive=0\n"
                         "switch(config-vxlan4)#bogus\n"
                         "                      ^\n"
                         "% Unknown command.\n"
                         "\n% reload is not available inside a configuration.\n"
                         "\nSure(Yes|No)?\nanswer 0\n");
    Result second = ndsh(state, probe_args({"-c", "probe"}));
    EXPECT_EQ(second.out, "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n");
    StateDir other;
    std::filesystem::create_directories(other.file("flash"));
    write_file(other.file("flash/startup-config"), "vlan 4\n probe\n");
    Result skipped = ndsh(other, probe_args({"--no-startup-config", "-c", "probe"}));
    EXPECT_EQ(skipped.out, "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n");
}

TEST(NdshRunningConfig, ShowStartupConfigPrintsTheSavedFile)
{
    StateDir state;
    Result none = ndsh(state, probe_args({"--no-startup-config", "-c", "show startup-config"}));
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "\n% There is no startup configuration.\n");
    ASSERT_TRUE(std::filesystem::is_directory(state.file("flash")));
    write_file(state.file("flash/startup-config"), "!\nvlan 3\nend\n");
    Result r = ndsh(state, probe_args({"--no-startup-config", "-c", "show startup-config | include vlan"}));
    EXPECT_EQ(r.out, "vlan 3\n");
}

// The running configuration opens with its header line; without global lines there is no
// empty "!" pair.
TEST(NdshRunningConfig, OpensWithItsHeaderAndHasNoEmptyPair)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "-c", "configure terminal; vlan 5; end; show running-config"});
    EXPECT_EQ(r.out, "\n! Current configuration\n!\nvlan 1\n!\nvlan 5\n!\nend\n");
}

TEST(NdshRunningConfig, SectionShowsWholeSectionsAndCountCountsLines)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 5; interface vlan 6; end;"
                                             "show running-config | section ^vlan 5$;"
                                             "show running-config | section kind 3;"
                                             "show running-config | count;"
                                             "show running-config | count ^vlan"}));
    EXPECT_EQ(r.out, "vlan 5\n probe vlan 5 (0 0) session 1\n"
                     "interface vlan 6\n probe kind 3 vlan6\n"
                     // header, !, two global lines, !, three sections of two lines and their
                     // !, end
                     "Number of lines: 15\n"
                     "Number of lines: 2\n")
        << r.out;
}
