// A command that fails in a way the shell did not foresee ends alone: the shell says so and goes
// on with the next line.
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

TEST(NdshFailures, ACommandThatRunsOutOfMemoryEndsWithAMessageAndTheShellGoesOn)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "out-of-memory; configure terminal; vlan 5; end; "
                                             "show running-config | include ^vlan 5"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "before the failure\n% Not enough memory to carry out this command.\nvlan 5\n") << r.err;
}
