// Output modifiers and console questions. The paged parts run on a terminal
// (ndsh_interactive.cpp).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

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
    // Groups apart from each other are separated by a "--" line.
    EXPECT_EQ(r.out, "line 3\nline 4\nline 5\nline 6\nline 7\n--\nline 13\nline 14\nline 15\nline 16\nline 17\n");
    Result close = ndsh(state, probe_args({"-c", "lines 9 | include context ^line (4|6)$"}));
    EXPECT_EQ(close.out, "line 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\n");
    // Groups that touch (line 6 ends one, line 7 starts the next) are not.
    Result touching = ndsh(state, probe_args({"-c", "lines 20 | include context ^line (4|9)$"}));
    EXPECT_EQ(touching.out, "line 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\nline 9\nline 10\nline 11\n");
    Result three = ndsh(state, probe_args({"-c", "lines 30 | include context ^line (1|10|20)$"}));
    EXPECT_EQ(three.out, "\nline 1\nline 2\nline 3\n--\nline 8\nline 9\nline 10\nline 11\nline 12\n--\n"
                         "line 18\nline 19\nline 20\nline 21\nline 22\n");
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
    Result r = ndsh(state, probe_args({"-c", "lines 3 | redirect file /flash/out.txt; lines 2 | redirect file plain.txt"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(read_file(state.file("flash/out.txt")), "\nline 1\nline 2\nline 3");
    // A bare name is a file of /flash.
    EXPECT_EQ(read_file(state.file("flash/plain.txt")), "\nline 1\nline 2");
    EXPECT_FALSE(std::filesystem::exists(state.file("plain.txt")));
}

TEST(NdshOutput, ModifierErrorsRejectTheCommandBeforeItRuns)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include ((; lines 3 | redirect file /flash/nonexistent/dir/x"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Invalid regular expression (missing closing parenthesis).\n"
                     "% Cannot redirect to /flash/nonexistent/dir/x: there is no directory /flash/nonexistent.\n");
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

// ---- regular expressions ----

TEST(NdshOutput, APatternOfTwentyThousandNestedParenthesesIsRefusedAsTooLong)
{
    StateDir state;
    std::string pattern = std::string(20000, '(') + std::string(20000, ')');
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include " + pattern}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Regular expression too long (at most 1024 characters).\n");
    EXPECT_EQ(r.err, ""); // the handler did not run
}

TEST(NdshOutput, APatternOfTheMaximumLengthIsAcceptedAndOneCharacterMoreIsNot)
{
    StateDir state;
    std::string longest = "2$|" + std::string(1021, 'z');
    ASSERT_EQ(longest.size(), 1024u);
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include " + longest + "; lines 3 | include " + longest + "z"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "line 2\n% Regular expression too long (at most 1024 characters).\n");
}

TEST(NdshOutput, APatternNestedDeeperThanSixtyFourLevelsIsRefused)
{
    StateDir state;
    auto nested = [](int depth) { return std::string(depth, '(') + "2$" + std::string(depth, ')'); };
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include " + nested(64) + "; lines 3 | include " + nested(65)}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "line 2\n% Regular expression nested too deeply (at most 64 levels of parentheses).\n");
    // Escaped parentheses and those in brackets do not nest.
    std::string escaped;
    for (int i = 0; i < 100; ++i)
        escaped += "\\(";
    Result flat = ndsh(state, probe_args({"-c", "lines 3 | include [" + std::string(100, '(') + "]" + escaped + "|2$"}));
    EXPECT_EQ(flat.status, 0) << flat.out;
    EXPECT_EQ(flat.out, "line 2\n");
}

TEST(NdshOutput, BackReferencesAreRefusedRatherThanMatchedInExponentialTime)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include (a*)*\\1b"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Invalid regular expression (unsupported escape \\1).\n");
    EXPECT_EQ(r.err, "");
}

TEST(NdshOutput, APatternWhoseCompiledFormIsTooLargeIsRefused)
{
    StateDir state;
    std::string pattern;
    for (int i = 0; i < 5; ++i)
        pattern += "(abcdefghijklmnopqrstuvwxyz0123456789){1000}";
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include " + pattern}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Regular expression too complex (over 2 MB when compiled).\n");
}

TEST(NdshOutput, InvalidPatternsAreRefusedWithTheirFault)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | include a); lines 3 | include [z-a]; lines 3 | exclude *x; "
                                             "lines 3 | begin x{1001}; lines 3 | include [[:nope:]]; "
                                             "lines 3 | include [ab; lines 3 | include ab\\"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Invalid regular expression (unexpected closing parenthesis).\n"
                     "% Invalid regular expression (bad character range z-a).\n"
                     "% Invalid regular expression (nothing to repeat before *).\n"
                     "% Invalid regular expression (bad repetition count {1001}).\n"
                     "% Invalid regular expression (unknown character class [:nope:]).\n"
                     "% Invalid regular expression (missing closing bracket).\n"
                     "% Invalid regular expression (trailing backslash).\n");
    EXPECT_EQ(r.err, "");
}

TEST(NdshOutput, PosixClassesAndGnuWordOperatorsKeepTheirMeaning)
{
    StateDir state;
    EXPECT_EQ(ndsh(state, probe_args({"-c", "lines 12 | include 1\\>"})).out, "line 1\nline 11\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "lines 12 | include \\<2"})).out, "line 2\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "lines 12 | include ^[[:alpha:]]+[[:space:]][[:digit:]]{2}$"})).out,
              "line 10\nline 11\nline 12\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "lines 12 | include \\s1\\w$"})).out, "line 10\nline 11\nline 12\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "lines 12 | exclude \\b1"})).out,
              "\nline 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\nline 9\n");
}

// ---- capture of a handler's output ----

namespace {

// The largest resident set of ndsh after running `command`, in KB, as the probe's peak-memory
// command reports it on standard error (after what `command` itself printed there).
long peak_kb(const Result &r)
{
    const std::string key = "peak-memory: ";
    size_t at = r.err.rfind(key);
    return at == std::string::npos ? -1 : atol(r.err.c_str() + at + key.size());
}

std::string without_peak(const std::string &err)
{
    size_t at = err.rfind("peak-memory: ");
    return at == std::string::npos ? err : err.substr(0, at);
}

// The shell after a command that prints next to nothing.
long baseline_kb(const StateDir &state)
{
    return peak_kb(ndsh(state, probe_args({"-c", "lines 1; peak-memory"})));
}

constexpr long kCaptureSlackKb = 16 << 10; // what the capture may add, far below the output's size

} // namespace

TEST(NdshOutput, AHandlerPrintingWithoutPagerCallsDoesNotGrowTheShell)
{
    StateDir state;
    long base = baseline_kb(state);
    ASSERT_GT(base, 0);
    Result r = ndsh(state, probe_args({"-c", "flood 48; peak-memory"}));
    EXPECT_EQ(r.status, 0);
    ASSERT_EQ(r.out.size(), 48u << 20);
    EXPECT_EQ(r.out.substr(0, 12), "00000000 xxx");
    EXPECT_EQ(r.out.substr(r.out.size() - 1024, 9), "00049151 ");
    EXPECT_EQ(count(r.out, "\n"), 48u * 1024);
    EXPECT_EQ(without_peak(r.err), "flood: done\n");
    EXPECT_LT(peak_kb(r), base + kCaptureSlackKb) << "baseline " << base << " KB";

    Result filtered = ndsh(state, probe_args({"-c", "flood 48 | include ^0004(0000|9151) ; peak-memory"}));
    EXPECT_EQ(filtered.out, "00040000 " + std::string(1014, 'x') + "\n00049151 " + std::string(1014, 'x') + "\n");
    EXPECT_LT(peak_kb(filtered), base + kCaptureSlackKb) << "baseline " << base << " KB";
}

TEST(NdshOutput, AnEndlessLineIsMatchedInPiecesAndDoesNotGrowTheShell)
{
    StateDir state;
    long base = baseline_kb(state);
    ASSERT_GT(base, 0);
    Result none = ndsh(state, probe_args({"-c", "flood-line 48 | include y; peak-memory"}));
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(without_peak(none.err), "flood-line: done\n");
    EXPECT_LT(peak_kb(none), base + kCaptureSlackKb) << "baseline " << base << " KB";
    // Every 64 KiB piece matches on its own; together they give back the whole line (the
    // shell ends it, as it ends every command's output, before its next prompt).
    Result all = ndsh(state, probe_args({"-c", "flood-line 2 | include ^x+$"}));
    EXPECT_EQ(all.out, std::string(2 << 20, 'x') + "\n");
    EXPECT_EQ(ndsh(state, probe_args({"-c", "flood-line 2 | exclude x"})).out, "");
}

TEST(NdshOutput, OutputHandedOnWhileTheHandlerRunsKeepsItsOrderWithAQuestion)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "flood 3 ask"}));
    EXPECT_EQ(r.status, 0);
    const std::string tail = "00003071 " + std::string(1014, 'x') + "\nSure(Yes|No)?\nanswer 1\n";
    ASSERT_EQ(r.out.size(), (3u << 20) + tail.size() - 1024);
    EXPECT_EQ(r.out.substr(r.out.size() - tail.size()), tail);
}

// ---- redirect ----

TEST(NdshOutput, RedirectRefusesDotDotAndPathsOutsideFlash)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines 3 | redirect file /flash/../../../x; lines 3 | redirect file "
                                             "sub/../../ndsvc.pid; lines 3 | redirect file " +
                                                 state.file("x") + "; lines 3 | redirect file /flash/"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Cannot redirect to /flash/../../../x: \"..\" is not allowed in the path.\n"
                     "% Cannot redirect to sub/../../ndsvc.pid: \"..\" is not allowed in the path.\n"
                     "% Cannot redirect to " + state.file("x") + ": only files under /flash/ can be written.\n"
                     "% Cannot redirect to /flash/: no file name given.\n");
    EXPECT_EQ(r.err, ""); // no handler ran
    EXPECT_FALSE(std::filesystem::exists(state.file("x")));
    EXPECT_FALSE(std::filesystem::exists(state.file("ndsvc.pid")));
}

TEST(NdshOutput, RedirectFollowsNoSymbolicLink)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "lines 1"})).status, 0); // makes flash/
    write_file(state.file("ndsvc.pid"), "1234\n");
    ASSERT_EQ(symlink("../ndsvc.pid", state.file("flash/pid").c_str()), 0);
    ASSERT_EQ(symlink("..", state.file("flash/up").c_str()), 0);
    Result r = ndsh(state, probe_args({"-c", "lines 2 | redirect file /flash/up/ndsvc.pid; "
                                             "lines 2 | redirect file /flash/pid"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Cannot redirect to /flash/up/ndsvc.pid: /flash/up is not a directory (symbolic links "
                     "are not followed).\n");
    EXPECT_EQ(read_file(state.file("ndsvc.pid")), "1234\n");
    // The link itself is replaced by the file; what it pointed to stays as it was.
    struct stat st {};
    ASSERT_EQ(lstat(state.file("flash/pid").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(read_file(state.file("flash/pid")), "\nline 1\nline 2");
}

TEST(NdshOutput, RedirectCreatesItsFileForTheOwnerOnlyInAnExistingFolderOfFlash)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "lines 1"})).status, 0);
    std::filesystem::create_directory(state.file("flash/logs"));
    std::filesystem::create_directory(state.file("flash/dir"));
    Result r = ndsh(state, probe_args({"-c", "lines 2 | redirect file /flash/logs/a.txt; "
                                             "lines 2 | redirect file /flash/dir"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Cannot redirect to /flash/dir: it is a directory.\n");
    EXPECT_EQ(read_file(state.file("flash/logs/a.txt")), "\nline 1\nline 2");
    struct stat st {};
    ASSERT_EQ(stat(state.file("flash/logs/a.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(NdshOutput, ARedirectThatCannotBeWrittenWholeLeavesThePreviousFileInPlace)
{
    StateDir state;
    ASSERT_EQ(ndsh(state, probe_args({"-c", "lines 2 | redirect file /flash/out.txt"})).status, 0);
    ASSERT_EQ(read_file(state.file("flash/out.txt")), "\nline 1\nline 2");
    RunOptions limited;
    limited.fileSizeLimit = 256 << 10;
    Result r = ndsh(state, probe_args({"-c", "flood 1 | redirect file /flash/out.txt"}), "", {}, limited);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "% Cannot write /flash/out.txt: File too large.\n");
    EXPECT_EQ(read_file(state.file("flash/out.txt")), "\nline 1\nline 2");
    std::vector<std::string> left;
    for (const auto &entry : std::filesystem::directory_iterator(state.file("flash")))
        left.push_back(entry.path().filename().string());
    EXPECT_EQ(left, std::vector<std::string>{"out.txt"});
}
