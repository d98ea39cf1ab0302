// The shell as the switch boots it: ndsvc started at boot for the state directory, commands
// reaching it over the socket, the configuration stored where the script handlers read it.
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

#ifdef NDSH_WITH_SERVICE

TEST(NdshService, ConfigurationTypedAtTheShellShowsUpInTheRunningConfiguration)
{
    StateDir state;
    Result r = ndsh(state, {"-c", "configure terminal; nd snooping enable; no nd fast-response; interface vlan 10;"
                                  "nd proxy enable; end; show running-config | include ^ ?(no )?nd "});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "nd snooping enable\nno nd fast-response\n nd proxy enable\n");
    // The service ends with the shell; the next start brings it up again and finds the
    // configuration in the database.
    Result again = ndsh(state, {"-c", "configure terminal; no nd snooping enable; end; show running-config | include ^ ?(no )?nd "});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, "\nIt will delete all configuration of nd snooping, Sure(Yes|No)?\nno nd fast-response\n"
                         " nd proxy enable\n");
}

#endif
