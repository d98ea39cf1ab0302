// The other ND components as the emulated platform provides them: their calls are traced
// with their words, can be made to fail, and answer with a little state of their own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nd_modules.h"
#include "nd_platform.h"
#include "test_support.h"

namespace {

using ndtest::PlatformTest;
using ndtest::Stdout;
using ndtest::run_handler;
using Lines = std::vector<std::string>;

class NdModulesTest : public PlatformTest {};

TEST_F(NdModulesTest, ShellProxyIsTracedWithItsWords)
{
    EXPECT_EQ(run_handler(shell_nd6_proxy, {"no", "nd", "proxy", "enable"}), 0);
    EXPECT_EQ(ndplat::trace_of("shell_nd6_proxy"), (Lines{R"(shell_nd6_proxy(4, "no", "nd", "proxy", "enable"))"}));
    EXPECT_EQ(ndplat::nd_modules_state().proxyCalls, 1u);
}

TEST_F(NdModulesTest, ShellProxyFault)
{
    ndplat::fault_inject("shell_nd6_proxy", -3);
    EXPECT_EQ(run_handler(shell_nd6_proxy, {"nd", "proxy", "enable"}), -3);
    EXPECT_EQ(ndplat::nd_modules_state().proxyCalls, 0u);
    EXPECT_EQ(run_handler(shell_nd6_proxy, {"nd", "proxy", "enable"}), 0);
}

TEST_F(NdModulesTest, PublisherTableAndStatistics)
{
    Stdout out;
    EXPECT_EQ(run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "publisher"}), 0);
    EXPECT_EQ(run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "publisher", "statistics"}), 0);
    EXPECT_EQ(out.take(),
              "\nPublisher  Subscribers  Debug\n---------  -----------  -----\nnd         3            off\n"
              "\nPublisher statistics:\n  Published : 128\n  Failed    : 0\n");
    EXPECT_EQ(ndplat::trace_of("nd_MposPublishRegShowCmd"),
              (Lines{R"(nd_MposPublishRegShowCmd(3, "show", "nd-ps", "publisher"))",
                     R"(nd_MposPublishRegShowCmd(4, "show", "nd-ps", "publisher", "statistics"))"}));
}

TEST_F(NdModulesTest, OutputModifierWordsAreLeftToTheShell)
{
    Stdout out;
    EXPECT_EQ(run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "publisher", "|", "include", "nd"}), 0);
    EXPECT_EQ(out.take(), "\nPublisher  Subscribers  Debug\n---------  -----------  -----\nnd         3            off\n");
}

TEST_F(NdModulesTest, SubscriberStatisticsAndClear)
{
    Stdout out;
    run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "subscriber", "nd-vxlan", "statisitcs"});
    EXPECT_EQ(run_handler(nd_MposPublishRegClearCmd, {"clear", "nd-ps", "subscriber", "all-modules", "statisitcs"}), 0);
    run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "subscriber", "all-modules", "statisitcs"});
    EXPECT_EQ(out.take(),
              "\nSubscriber        Received  Dropped\n----------------  --------  -------\n"
              "nd-vxlan          48        1\n"
              "\nSubscriber        Received  Dropped\n----------------  --------  -------\n"
              "nd-snooping       0         0\n"
              "nd-vxlan          0         0\n"
              "nd-mlag           0         0\n");
}

TEST_F(NdModulesTest, UnknownSubscriber)
{
    Stdout out;
    EXPECT_EQ(run_handler(nd_MposPublishRegShowCmd, {"show", "nd-ps", "subscriber", "bgp"}), 1);
    EXPECT_EQ(out.take(), "\n% Subscriber bgp does not exist.\n");
}

TEST_F(NdModulesTest, ClearPublisherStatistics)
{
    EXPECT_EQ(run_handler(nd_MposPublishRegClearCmd, {"clear", "nd-ps", "publisher", "statistics"}), 0);
    EXPECT_EQ(ndplat::nd_modules_state().published, 0u);
}

TEST_F(NdModulesTest, PublishSubscribeDebugSwitches)
{
    Stdout out;
    run_handler(nd_MposPublishRegDebugCmd, {"debug", "nd-ps", "publisher"});
    run_handler(nd_MposPublishRegDebugCmd, {"debug", "nd-ps", "subscriber", "nd-mlag"});
    EXPECT_TRUE(ndplat::nd_modules_state().publisherDebug);
    run_handler(nd_MposPublishRegDebugCmd, {"no", "debug", "nd-ps", "publisher"});
    EXPECT_FALSE(ndplat::nd_modules_state().publisherDebug);
    nd_MposPublishCliDebugCtrl(3);
    EXPECT_EQ(out.take(), "\nnd-ps publisher debug is on\n"
                          "\nnd-ps subscriber nd-mlag debug is on\n"
                          "\nnd-ps publisher debug is off\n"
                          "\nnd-ps publisher debug is off"
                          "\nnd-ps subscriber nd-snooping debug is off"
                          "\nnd-ps subscriber nd-vxlan debug is off"
                          "\nnd-ps subscriber nd-mlag debug is on\n");
}

TEST_F(NdModulesTest, PublishSubscribeDebugControl)
{
    nd_MposPublishCliDebugCtrl(1);
    ndplat::NdModulesState s = ndplat::nd_modules_state();
    EXPECT_TRUE(s.publisherDebug);
    for (const ndplat::NdPsSubscriber &sub : s.subscribers)
        EXPECT_TRUE(sub.debug) << sub.module;
    nd_MposPublishCliDebugCtrl(2);
    EXPECT_FALSE(ndplat::nd_modules_state().publisherDebug);
    EXPECT_EQ(ndplat::trace_of("nd_MposPublishCliDebugCtrl"),
              (Lines{"nd_MposPublishCliDebugCtrl(1)", "nd_MposPublishCliDebugCtrl(2)"}));
}

TEST_F(NdModulesTest, DebugControlFaultSkipsTheWork)
{
    ndplat::fault_inject("nd_MposPublishCliDebugCtrl", 1);
    ndplat::fault_inject("nd_MlagDbgCtrl", 1);
    nd_MposPublishCliDebugCtrl(1);
    nd_MlagDbgCtrl(1);
    EXPECT_FALSE(ndplat::nd_modules_state().publisherDebug);
    EXPECT_FALSE(ndplat::nd_modules_state().mlagDebug);
    EXPECT_EQ(ndplat::trace_of("nd_MlagDbgCtrl"), (Lines{"nd_MlagDbgCtrl(1)"}));
}

TEST_F(NdModulesTest, MlagTables)
{
    Stdout out;
    EXPECT_EQ(run_handler(nd_MlagShowCmd, {"show", "nd", "mlag", "statistic"}), 0);
    EXPECT_EQ(run_handler(nd_MlagShowCmd, {"show", "nd", "mlag"}), 1);
    EXPECT_EQ(out.take(), "\nSync sent     : 0\nSync received : 0\nSync dropped  : 0\n");
    ndplat::fault_inject("nd_MlagShowCmd", 9);
    EXPECT_EQ(run_handler(nd_MlagShowCmd, {"show", "nd", "mlag", "pts-list"}), 9);
}

TEST_F(NdModulesTest, MlagDebugWithAndWithoutAddress)
{
    Stdout out;
    run_handler(nd_MlagDebugCmd, {"debug", "nd", "mlag", "ipv6", "2001:db8::1"});
    EXPECT_EQ(ndplat::nd_modules_state().mlagDebugAddress, "2001:db8::1");
    run_handler(nd_MlagDebugCmd, {"no", "debug", "nd", "mlag"});
    EXPECT_FALSE(ndplat::nd_modules_state().mlagDebug);
    nd_MlagDbgCtrl(1);
    nd_MlagDbgCtrl(3);
    EXPECT_EQ(out.take(), "\nnd mlag debug is on (ipv6 2001:db8::1)\n"
                          "\nnd mlag debug is off\n"
                          "\nnd mlag debug is on\n");
    EXPECT_EQ(ndplat::trace_of("nd_MlagDebugCmd"),
              (Lines{R"(nd_MlagDebugCmd(5, "debug", "nd", "mlag", "ipv6", "2001:db8::1"))",
                     R"(nd_MlagDebugCmd(4, "no", "debug", "nd", "mlag"))"}));
}

TEST_F(NdModulesTest, StateIsFreshAfterReset)
{
    nd_MlagDbgCtrl(1);
    nd_MposPublishCliDebugCtrl(1);
    ndplat::reset();
    ndplat::NdModulesState s = ndplat::nd_modules_state();
    EXPECT_FALSE(s.mlagDebug);
    EXPECT_FALSE(s.publisherDebug);
    EXPECT_EQ(s.published, 128u);
}

} // namespace
