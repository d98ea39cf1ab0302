// The operator at a terminal: line editing, TAB completion, `?` help, history, the pager and
// console questions, on a pseudo-terminal.
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

TEST(NdshInteractive, TabCompletesUniqueWordsAndTheCommandRuns)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("con\t");
    // The line editor writes only what TAB added.
    ASSERT_TRUE(pty.expect("figure ")) << pty.all();
    pty.send("t\t");
    ASSERT_TRUE(pty.expect("erminal ")) << pty.all();
    pty.send("\r");
    ASSERT_TRUE(pty.expect("switch(config)#"));
    pty.send("interface vl\t");
    ASSERT_TRUE(pty.expect("an ")) << pty.all();
    pty.send("8\r");
    ASSERT_TRUE(pty.expect("switch(config-if-vlan8)#"));
    pty.send("probe\r");
    ASSERT_TRUE(pty.expect("if=vlan8 "));
    pty.send("exit\rexit\rexit\r");
    EXPECT_EQ(pty.wait_exit(), 0);
}

TEST(NdshInteractive, TabCompletesThePlugInsCommands)
{
    StateDir state;
    Pty pty(state, {"--no-service", "--trace"});
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("configure terminal\r");
    ASSERT_TRUE(pty.expect("switch(config)#"));
    pty.send("nd snooping det\t");
    ASSERT_TRUE(pty.expect("ect ")) << pty.all();
    pty.send("retr\t");
    ASSERT_TRUE(pty.expect("ansmit ")) << pty.all();
    pty.send("3 int\t");
    ASSERT_TRUE(pty.expect("erval ")) << pty.all();
    pty.send("10\r");
    // The handler ran: its request went out.
    ASSERT_TRUE(pty.expect("CMF_ClientRequestSend(")) << pty.all();
    ASSERT_TRUE(pty.expect("switch(config)#"));
}

TEST(NdshInteractive, TabOnSeveralCandidatesListsThem)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("configure terminal\r");
    ASSERT_TRUE(pty.expect("switch(config)#"));
    pty.send("interface l\t");
    ASSERT_TRUE(pty.expect("  link-aggregation  Link-aggregation interface\r\n"
                           "  loopback          Loopback interface\r\n"));
    ASSERT_TRUE(pty.expect("switch(config)#interface l"));
    pty.send("oo\t2\r");
    ASSERT_TRUE(pty.expect("switch(config-if-loopback2)#"));
}

TEST(NdshInteractive, QuestionMarkShowsHelpAndKeepsTheLine)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show ?");
    ASSERT_TRUE(pty.expect("show ?\r\n"
                           "  debugging       Debugging switches\r\n"
                           "  history         The commands typed so far\r\n"
                           "  running-config  Current operating configuration\r\n"
                           "  startup-config  Saved startup configuration\r\n"
                           "  version         The switch, its ND plug-in and uptime\r\n"));
    ASSERT_TRUE(pty.expect("switch#show "));
    pty.send("debugging\r");
    ASSERT_TRUE(pty.expect("probe debug code 3"));
}

TEST(NdshInteractive, ErrorsPointAtTheWordOnTheScreen)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show runnning\r");
    ASSERT_TRUE(pty.expect("show runnning\r\n            ^\r\n% Unknown command.\r\n"));
}

TEST(NdshInteractive, HistoryRecallsThePreviousLine)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("probe first\r");
    ASSERT_TRUE(pty.expect("argv: [probe] [first]"));
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("\x1b[A\r");
    ASSERT_TRUE(pty.expect("argv: [probe] [first]"));
}

TEST(NdshInteractive, PagerStopsAtTheScreenAndQuitReachesTheHandler)
{
    StateDir state;
    Pty pty(state, probe_args(), 10);
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("lines 100\r");
    ASSERT_TRUE(pty.expect("--More--"));
    std::string first = pty.since_mark();
    pty.send("q");
    ASSERT_TRUE(pty.expect("switch#"));
    std::string screen = pty.all();
    // Nine lines per screen: the empty first line and line 1 to line 8.
    EXPECT_NE(screen.find("line 8\r\n--More--"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("line 9"), std::string::npos) << screen;
    // The handler learnt from SHELL_MoreBreakOutput that the operator quit, and stopped.
    EXPECT_NE(screen.find("lines: quit at 9"), std::string::npos) << screen;
}

TEST(NdshInteractive, AListingWithoutPagerCallsIsPagedWhileItRunsAndQuitDropsTheRest)
{
    StateDir state;
    Pty pty(state, probe_args(), 10);
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("flood 64\r");
    ASSERT_TRUE(pty.expect("--More--"));
    std::string first = pty.all();
    // The first screen came while the handler was still printing: it had not finished.
    EXPECT_NE(first.find("00000008 xxx"), std::string::npos) << first;
    EXPECT_EQ(first.find("00000009 "), std::string::npos) << first;
    EXPECT_EQ(first.find("flood: done"), std::string::npos) << first;
    pty.send("q");
    ASSERT_TRUE(pty.expect("flood: done", 20000));
    ASSERT_TRUE(pty.expect("switch#"));
    EXPECT_EQ(pty.all().find("00000009 "), std::string::npos);
    EXPECT_EQ(count(pty.all(), "--More--"), 1u);
}

TEST(NdshInteractive, PagerSpaceShowsAPageAndEnterOneLine)
{
    StateDir state;
    Pty pty(state, probe_args(), 10);
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("lines 30\r");
    ASSERT_TRUE(pty.expect("line 8\r\n--More--"));
    pty.send(" ");
    ASSERT_TRUE(pty.expect("line 17\r\n--More--"));
    pty.send("\r");
    ASSERT_TRUE(pty.expect("line 18\r\n--More--"));
    pty.send(" ");
    ASSERT_TRUE(pty.expect("line 27\r\n--More--"));
    pty.send(" ");
    ASSERT_TRUE(pty.expect("line 30"));
    ASSERT_TRUE(pty.expect("lines: done at 30"));
}

TEST(NdshInteractive, TerminalLengthSetsThePageAndZeroDisablesThePager)
{
    StateDir state;
    Pty pty(state, probe_args(), 40);
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("terminal length 5\r");
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("lines 20\r");
    // Four lines per screen: the empty first line and line 1 to line 3.
    ASSERT_TRUE(pty.expect("line 3\r\n--More--"));
    pty.send("q");
    ASSERT_TRUE(pty.expect("lines: quit at 4"));
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("terminal length 0\r");
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("lines 60\r");
    ASSERT_TRUE(pty.expect("lines: done at 60"));
    EXPECT_EQ(pty.since_mark().find("--More--"), std::string::npos);
    EXPECT_EQ(count(pty.all(), "--More--"), 1u);
}

TEST(NdshInteractive, PagerQuitStopsTheRunningConfiguration)
{
    StateDir state;
    std::string vlans = "configure terminal";
    for (int v = 2; v <= 40; ++v)
        vlans += "; vlan " + std::to_string(v);
    ASSERT_EQ(ndsh(state, probe_args({"-c", vlans})).status, 0);
    Pty pty(state, probe_args({"--trace"}), 12);
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("show running-config\r");
    ASSERT_TRUE(pty.expect("--More--"));
    pty.send("q");
    ASSERT_TRUE(pty.expect("switch#"));
    std::string screen = pty.all();
    EXPECT_EQ(screen.find("vlan 40"), std::string::npos);
    EXPECT_EQ(screen.find("\r\nend"), std::string::npos);
    // One pager question per section until the quit, not one per VLAN.
    EXPECT_LT(count(screen, "SHELL_MoreBreakOutput()"), 10u) << screen;
    EXPECT_NE(screen.find("event 23 8 0 1"), std::string::npos);
}

TEST(NdshInteractive, ConsoleQuestionsAreAskedAtTheTerminal)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("ask\r");
    ASSERT_TRUE(pty.expect("Sure(Yes|No)?"));
    pty.send("yes\r");
    ASSERT_TRUE(pty.expect("answer 1"));
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("ask\r");
    ASSERT_TRUE(pty.expect("Sure(Yes|No)?"));
    pty.send("n\r");
    ASSERT_TRUE(pty.expect("answer 0"));
}

TEST(NdshInteractive, EndOfInputLeavesTheShell)
{
    StateDir state;
    Pty pty(state, probe_args());
    ASSERT_TRUE(pty.expect("switch#"));
    // A ^D that reaches the terminal while it is still in line mode is taken as end of input
    // by the terminal itself and can be lost when the line editor switches modes; an operator
    // is never that fast.
    pty.drain(300);
    pty.send("\x04");
    EXPECT_EQ(pty.wait_exit(), 0) << pty.all();
}
