// The running configuration as the shell produces it: the plug-in loaded with dlopen, its
// registered script handlers called section by section on records written into the SQLite
// database, and the end-of-display event raised through the platform.
#include <dlfcn.h>

#include <string>
#include <vector>

#include "../database/dbm_fixture.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

SHELL_SCRIPT_FN registered(uint32_t mode, uint32_t section)
{
    for (const ndplat::ScriptRegistration &r : ndplat::script_registrations())
        if (r.module == "NDP" && r.mode == mode && r.section == section)
            return r.fn;
    return nullptr;
}

std::string run(SHELL_SCRIPT_FN fn, uintptr_t a3, uintptr_t a4)
{
    ndtest::FdCapture out;
    fn(out.fd(), 0, a3, a4);
    return out.text();
}

TEST(ScriptLoaded, RunningConfigurationFromTheDatabaseThroughTheLoadedPlugin)
{
    ndplat::reset();
    dbmtest::StorageScope sqlite(ndplat::dbm_storage_available(ndplat::DbmStorage::Sqlite)
                                     ? ndplat::DbmStorage::Sqlite
                                     : ndplat::DbmStorage::Memory);
    ASSERT_TRUE(sqlite.ok());
    ndtest::LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    ASSERT_EQ(plugin.start(), 0u);
    // The shell never unloads the plug-in, and the session cache lives as long as it does: a
    // second reference keeps it loaded past the end of the test.
    ASSERT_NE(dlopen(ND_CLI_SO_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);

    char port1[100] = {};
    portID2FmtString(1, port1);
    {
        Writer w;
        w.putU32("nd_snooping", 3, 1);
        w.putU32("nd_fast_response", 0, 0);
        w.put("nd_snp_detect", 4, Record(4).u16(0, 3).u16(2, 0));
        w.put("nd_nbr_if_vlan-if10", 0, Record(72).text(0, "vlan-if10").u32(68, 3));
        w.put(port1, 0, Record(56).u32(0, 1));
        w.put("vlan 10", 6, Record(56).u16(12, 10));
        w.put("vlan 30", 6, Record(56).u16(12, 30));
    }

    SHELL_SCRIPT_FN enable = registered(1, 27), global = registered(1, 321), ifMode3 = registered(3, 83),
                    ifMode4 = registered(4, 60), port = registered(5, 93), vlan = registered(2, 8);
    ASSERT_TRUE(enable && global && ifMode3 && ifMode4 && port && vlan);
    EXPECT_EQ(run(enable, 0, 0), "\nnd snooping enable");
    EXPECT_EQ(run(global, 0, 0), "\nno nd fast-response\nnd snooping detect retransmit 3 interval 0");
    EXPECT_EQ(run(ifMode3, 0, reinterpret_cast<uintptr_t>("vlan-if10")),
              "\n nd proxy enable\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(run(ifMode4, 0, reinterpret_cast<uintptr_t>("vlan-if10")),
              "\n nd proxy enable\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(run(port, 0, 1), "\n nd snooping trust");

    // One display of VLANs 1 to 40: one database open, the cache freed by the end event.
    ndplat::trace_clear();
    ndplat::running_cfg_session_set(12);
    std::string display;
    for (uintptr_t v = 1; v <= 40; ++v)
        display += run(vlan, v, 0);
    EXPECT_EQ(display, "\n nd snooping enable\n nd snooping enable");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 1u);
    ndplat::notify_raise(23, 8, 0, 12);
    ndplat::trace_clear();
    EXPECT_EQ(run(vlan, 10, 0), "\n nd snooping enable");
    EXPECT_EQ(ndplat::trace_of("DBM_Open").size(), 1u) << "a fresh copy after the end of the display";
    ndplat::notify_raise(23, 8, 0, 12);
    ndplat::running_cfg_session_set(0xFFFFFFFFu);
    EXPECT_EQ(run(vlan, 30, 0), "\n nd snooping enable");
    EXPECT_EQ(ndplat::dbm_open_handles(), 0);
    ndplat::reset();
}

} // namespace
