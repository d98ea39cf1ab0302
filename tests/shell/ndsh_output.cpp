// Output modifiers and console questions. The paged parts run on a terminal
// (ndsh_interactive.cpp).
#include <gtest/gtest.h>

#include "ndsh_support.h"

using namespace ndshtest;

TEST(NdshOutput, WithoutAModifierTheHandlersOutputPassesUnchanged)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3"}));
    EXPECT_EQ(r.out, "\nline 1\nline 2\nline 3\n");
    EXPECT_EQ(r.err, "lines: done at 3\n");
}

TEST(NdshOutput, BeginStartsAtTheFirstMatchingLine)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 12 | begin ^line 1"}));
    EXPECT_EQ(r.out, "line 1\nline 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\nline 9\nline 10\nline 11\n"
                     "line 12\n");
    Result later = ndsh(state, probe_args({"-c", "lines 12 | begin 1[01]"}));
    EXPECT_EQ(later.out, "line 10\nline 11\nline 12\n");
}

TEST(NdshOutput, IncludeKeepsOnlyMatchingLines)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 25 | include 2$"}));
    EXPECT_EQ(r.out, "line 2\nline 12\nline 22\n");
}

TEST(NdshOutput, IncludeContextAddsTwoLinesBeforeAndAfter)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 20 | include context ^line (5|15)$"}));
    EXPECT_EQ(r.out, "line 3\nline 4\nline 5\nline 6\nline 7\nline 13\nline 14\nline 15\nline 16\nline 17\n");
    Result close = ndsh(state, probe_args({"-c", "lines 9 | include context ^line (4|6)$"}));
    EXPECT_EQ(close.out, "line 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\n");
}

TEST(NdshOutput, ExcludeDropsMatchingLines)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 6 | exclude [135]"}));
    EXPECT_EQ(r.out, "\nline 2\nline 4\nline 6\n");
}

TEST(NdshOutput, RedirectWritesTheOutputToAFileInsteadOfTheTerminal)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | redirect file /flash/out.txt; lines 2 | redirect file " +
                                                 state.file("plain.txt")}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(read_file(state.file("flash/out.txt")), "\nline 1\nline 2\nline 3");
    EXPECT_EQ(read_file(state.file("plain.txt")), "\nline 1\nline 2");
}

TEST(NdshOutput, ModifierErrorsRejectTheCommandBeforeItRuns)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include ((; lines 3 | redirect file /nonexistent/dir/x"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Invalid regular expression.\n% Cannot open file /nonexistent/dir/x.\n");
    EXPECT_EQ(r.err, "");
}

TEST(NdshOutput, ModifiersApplyToShellCommandsToo)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 3; end; show running-config | include vlan"}));
    EXPECT_EQ(r.out, "vlan 1\n probe vlan 1 (0 0) session 1\nvlan 3\n probe vlan 3 (0 0) session 1\n");
}

TEST(NdshOutput, ConsoleQuestionsAreAnsweredFromTheOptionWithoutAnOperator)
{
    StateDir state;
    EXPECT_EQ(ndsh(state, probe_args({"-c", "ask"})).out, "\nSure(Yes|No)?\nanswer 1\n");
    EXPECT_EQ(ndsh(state, probe_args({"--yes", "-c", "ask"})).out, "\nSure(Yes|No)?\nanswer 1\n");
    EXPECT_EQ(ndsh(state, probe_args({"--no", "-c", "ask"})).out, "\nSure(Yes|No)?\nanswer 0\n");
}

TEST(NdshOutput, WithoutATerminalThereIsNoPager)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "terminal length 5; lines 200"}));
    EXPECT_EQ(r.out.find("--More--"), std::string::npos);
    EXPECT_NE(r.out.find("\nline 200\n"), std::string::npos);
    EXPECT_EQ(r.err, "lines: done at 200\n");
}
