// The shell as the switch boots it: ndsvc started at boot for the state directory, commands
// reaching it over the socket, the configuration stored where the script handlers read it.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

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
    // The next shell uses the service that the first one started (it outlives that shell), and
    // the configuration is in its database.
    Result again = ndsh(state, {"-c", "configure terminal; no nd snooping enable; end; show running-config | include ^ ?(no )?nd "});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, "\nIt will delete all configuration of nd snooping, Sure(Yes|No)?\nno nd fast-response\n"
                         " nd proxy enable\n");
}

// The ND library hands its records to the service from a worker: a shell whose last command
// queued them delivers them before it ends, and the next shell lists them.
TEST(NdshService, RecordsThatTheLastCommandQueuedReachTheServiceBeforeTheShellEnds)
{
    StateDir state;
    Result r = ndsh(state, {"-c", "nd mpos suppress 10 7 2001:db8::1 192.0.2.9 0011.2233.4455 500"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    Result listed = ndsh(state, {"-c", "show ipv6 nd suppression"});
    EXPECT_EQ(listed.status, 0) << listed.err;
    size_t rows = 0;
    for (size_t at = listed.out.find("\n10         0011.2233.4455"); at != std::string::npos;
         at = listed.out.find("\n10         0011.2233.4455", at + 1))
        ++rows;
    EXPECT_EQ(rows, 500u) << listed.out.substr(listed.out.size() > 200 ? listed.out.size() - 200 : 0);
}

// A line that could not be carried out because the service never answered fails the run, as
// a rejected line does; a run whose lines made no request still succeeds.
TEST(NdshService, TheExitStatusIsOneWhenTheServiceCannotBeReached)
{
    StateDir state;
    const std::vector<std::string> noService = {"NDSIM_NDSVC=/nonexistent/ndsvc"};
    Result r = ndsh(state, {"-c", "show nd snooping user-bind static"}, "", noService);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% The ND service could not be started (1).\n");
    Result piped = ndsh(state, {}, "show running-config | include ^vlan\nshow nd snooping user-bind static\n", noService);
    EXPECT_EQ(piped.status, 1);
    EXPECT_EQ(piped.out, "% The ND service could not be started (1).\nvlan 1\n");
    Result local = ndsh(state, {"-c", "show running-config | include ^vlan"}, "", noService);
    EXPECT_EQ(local.status, 0);
    EXPECT_EQ(local.out, "% The ND service could not be started (1).\nvlan 1\n");
}

TEST(NdshService, TheExitStatusIsOneWhenTheServiceIsBusy)
{
    StateDir state;
    // The service holds the first shell's configuration request for 3 s; the second shell's
    // request arrives meanwhile and is answered "busy".
    const std::vector<std::string> slow = {"NDSIM_NDSVC_ARGS=--config-delay-ms 3000"};
    Result first;
    std::thread background([&] { first = ndsh(state, {"-c", "configure terminal; nd snooping enable"}, "", slow); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    Result second = ndsh(state, {"-c", "configure terminal; nd snooping ns-check-loose"}, "", slow);
    background.join();
    EXPECT_EQ(second.out, "\nSystem is busy, Other operation is processing.\n");
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(first.out, "");
    EXPECT_EQ(first.status, 0);
}

#endif
