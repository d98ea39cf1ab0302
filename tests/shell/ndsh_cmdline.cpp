// The command line: `?` help, abbreviations, errors with a caret, exit status, the ways
// commands arrive (-c, -f, a pipe), start-up and the debugging options.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "ndsh_support.h"

using namespace ndshtest;

TEST(NdshCommandLine, HelpListsTheCandidatesWithTheirHelpTexts)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "show ?; configure terminal; interface ?"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "switch#show ?\n"
                     "  debugging       Debugging switches\n"
                     "  history         The commands typed so far\n"
                     "  running-config  Current operating configuration\n"
                     "  startup-config  Saved startup configuration\n"
                     "  version         The switch, its ND plug-in and uptime\n"
                     "switch(config)#interface ?\n"
                     "  gigabitethernet   Gigabit Ethernet interface\n"
                     "  link-aggregation  Link-aggregation interface\n"
                     "  loopback          Loopback interface\n"
                     "  mgmt              Management interface\n"
                     "  vlan              VLAN interface\n");
}

TEST(NdshCommandLine, HelpOffersParametersAndCrWhereACommandMayEnd)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "lines ?; lines 5 ?; lines 5 | ?"}));
    EXPECT_EQ(r.out, "switch#lines ?\n"
                     "  <1-100000>  How many lines\n"
                     "switch#lines 5 ?\n"
                     "  |     Output modifiers\n"
                     "  <cr>\n"
                     "switch#lines 5 | ?\n"
                     "  begin     Begin with the line that matches\n"
                     "  exclude   Exclude lines that match\n"
                     "  include   Include lines that match\n"
                     "  redirect  Redirect output to other resource\n");
}

TEST(NdshCommandLine, HelpOfAPartialWordOffersOnlyTheWordsItStarts)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; interface l?"}));
    EXPECT_EQ(r.out, "switch(config)#interface l?\n"
                     "  link-aggregation  Link-aggregation interface\n"
                     "  loopback          Loopback interface\n");
}

TEST(NdshCommandLine, HiddenCommandsAreAcceptedButNeverOffered)
{
    StateDir state;
    Result help = ndsh(state, probe_args({"-c", "s?; secret ?"}));
    EXPECT_EQ(help.out, "switch#s?\n"
                        "  show  Show running system information\n"
                        "switch#secret ?\n"
                        "              ^\n"
                        "% Unknown command.\n");
    Result run = ndsh(state, probe_args({"-c", "secret word"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "\nargv: [secret] [word]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n");
}

TEST(NdshCommandLine, HiddenNodesOfThePlugInAreNotOffered)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "-c", "show nd ?"});
    EXPECT_EQ(r.out.find("mlag"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  proxy"), std::string::npos) << r.out;
}

TEST(NdshCommandLine, ThePlugInsCommandsAreHelpedInTheirModesOnly)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "-c", "show nd ?; configure terminal; vxlan 5; ipv6 nd ?; ?"});
    EXPECT_EQ(r.status, 0);
    // The hidden twins ("nd host ...", "nd suppression" without "ipv6") are not offered.
    EXPECT_EQ(r.out, "switch#show nd ?\n"
                     "  fast-response  Nd packet fast-response\n"
                     "  proxy          Nd proxy\n"
                     "  snooping       Nd snooping\n"
                     "switch(config-vxlan5)#ipv6 nd ?\n"
                     "  host         Configure ND host\n"
                     "  suppression  Set ND Broadcast suppression\n"
                     "switch(config-vxlan5)#?\n"
                     "  do          Run a privileged-mode command\n"
                     "  end         Return to privileged mode\n"
                     "  exit        Exit from the current mode\n"
                     "  help        Description of the interactive help system\n"
                     "  ipv6\n"
                     "  no          Negate a command or set its defaults\n"
                     "  vxlan-port  Define a VXLAN access port\n");
}

TEST(NdshCommandLine, UniqueAbbreviationsReachTheHandlerWithFullWords)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--echo", "-c", "con t; int vl 12; pro x y; en; sh run | inc ^interface"}));
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "switch#con t\n"
                     "switch(config)#int vl 12\n"
                     "switch(config-if-vlan12)#pro x y\n"
                     "\nargv: [probe] [x y]\n"
                     "if=vlan12 vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n"
                     "switch(config-if-vlan12)#en\n"
                     "switch#sh run | inc ^interface\n"
                     "interface vlan 12\n");
}

TEST(NdshCommandLine, ThePlugInsCommandsAcceptAbbreviations)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "--trace", "-c", "sh nd sn st"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("CMF_ClientRequestSend("), std::string::npos) << r.err;
}

TEST(NdshCommandLine, AnAmbiguousAbbreviationIsRefusedWithACaret)
{
    StateDir state;
    // "c" starts both "clear" (the plug-in) and "configure" (the shell).
    Result r = ndsh(state, {"--no-service", "-c", "c t"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "switch#c t\n       ^\n% Ambiguous command.\n");
}

TEST(NdshCommandLine, ErrorsPutTheCaretUnderTheOffendingWord)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "configure terminal; vlan 4095; vlan; interface vlan 10 20; bogus"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "switch(config)#vlan 4095\n"
                     "                    ^\n"
                     "% Unknown command.\n"
                     "switch(config)#vlan\n"
                     "                   ^\n"
                     "% Incomplete command.\n"
                     "switch(config)#interface vlan 10 20\n"
                     "                                 ^\n"
                     "% Unknown command.\n"
                     "switch(config)#bogus\n"
                     "               ^\n"
                     "% Unknown command.\n");
}

TEST(NdshCommandLine, ExitStatusTellsWhetherALineWasRejected)
{
    StateDir state;
    EXPECT_EQ(ndsh(state, probe_args({"-c", "probe; show ?"})).status, 0);
    EXPECT_EQ(ndsh(state, probe_args({"-c", "probe; nonsense; probe"})).status, 1);
    EXPECT_EQ(ndsh(state, probe_args({"-c", "nonsense ?"})).status, 1);
}

TEST(NdshCommandLine, CommandsFromAFileAndFromAPipe)
{
    StateDir state;
    write_file(state.file("cmds"), "configure terminal\nvxlan 9\nprobe\n");
    Result file = ndsh(state, probe_args({"-f", state.file("cmds")}));
    EXPECT_EQ(file.status, 0);
    EXPECT_EQ(file.out, "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=9 ports=(none) interactive=1\n");
    Result pipe = ndsh(state, probe_args({"--echo"}), "configure terminal\nvlan 9\nprobe\nwrong\n");
    EXPECT_EQ(pipe.status, 1);
    EXPECT_EQ(pipe.out, "switch#configure terminal\n"
                        "switch(config)#vlan 9\n"
                        "switch(config-vlan9)#probe\n"
                        "\nargv: [probe]\nif=(none) vlan=9 supervlan=0 vxlan=0 ports=(none) interactive=1\n"
                        "switch(config-vlan9)#wrong\n"
                        "                     ^\n"
                        "% Unknown command.\n");
}

TEST(NdshCommandLine, ACommandFileThatCannotBeReadIsAnErrorNamingIt)
{
    StateDir state;
    Result directory = ndsh(state, probe_args({"-f", state.path()}));
    EXPECT_EQ(directory.status, 2);
    EXPECT_EQ(directory.out, "");
    EXPECT_EQ(directory.err, "ndsh: cannot read command file " + state.path() + ": Is a directory\n");
    Result missing = ndsh(state, probe_args({"-f", state.file("missing")}));
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "ndsh: cannot read command file " + state.file("missing") + ": No such file or directory\n");
    // Nothing was started for either.
    EXPECT_FALSE(std::filesystem::exists(state.file("flash")));
}

TEST(NdshCommandLine, TheLastLineOfACommandFileNeedsNoNewline)
{
    StateDir state;
    write_file(state.file("cmds"), "vlan\nprobe");
    Result r = ndsh(state, probe_args({"-f", state.file("cmds")}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "switch#vlan\n       ^\n% Unknown command.\n"
                     "\nargv: [probe]\nif=(none) vlan=0 supervlan=0 vxlan=0 ports=(none) interactive=1\n");
}

TEST(NdshCommandLine, TraceEchoesEveryPlatformCall)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--trace", "-c", "configure terminal; interface vlan 5; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("SHELL_CmdRegByModule(0, 1, ptr, \"ask(EN|CONF,0,'Ask the operator a question')\")"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("SHELL_ConfigScriptReg(\"PROBE\", ptr, 50, 1, 32)"), std::string::npos);
    EXPECT_NE(r.err.find("SHELL_GetEnv(1)\n"), std::string::npos);
    EXPECT_NE(r.err.find("mpsh_get_int_env(164)\n"), std::string::npos);
    // The shell's own commands and database work are not traced.
    EXPECT_EQ(r.err.find("cmd_register"), std::string::npos);
    EXPECT_EQ(r.err.find("ndsh_inventory"), std::string::npos);
}

TEST(NdshCommandLine, FaultMakesAPlatformFunctionFailForItsNextCalls)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"--fault", "SHELL_GetEnv=1x2", "-c",
                                       "configure terminal; interface vlan 5; probe; probe; probe"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count(r.out, "if=(none)"), 2u) << r.out;
    EXPECT_EQ(count(r.out, "if=vlan5"), 1u) << r.out;
}

TEST(NdshCommandLine, AFailedStartUpIsReportedWithItsCodeAndText)
{
    StateDir state;
    Result real = ndsh(state, {"--no-service", "--fault", "CMF_ClientServiceReg=1", "-c", "show nd ?"});
    EXPECT_EQ(real.out, "% ND start-up failed with code 17: System is busy, Other operation is processing.\n"
                        "switch#show nd ?\n"
                        "            ^\n"
                        "% Unknown command.\n");
    Result probe = ndsh(state, probe_args({"-c", "probe"}), "", {"PROBE_INIT_RESULT=1"});
    EXPECT_EQ(probe.out.rfind("% ND start-up failed with code 1: probe error one\n", 0), 0u) << probe.out;
}

// A shell without its plug-in has nothing to offer: it says why and ends before it starts.
TEST(NdshCommandLine, APlugInThatCannotBeLoadedEndsTheShellWithItsPathAndTheLoadersReason)
{
    StateDir state;
    Result missing = ndsh(state, {"--no-service", "--plugin", "/nonexistent/libnd-cli.so", "-c", "show ?"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "ndsh: cannot load the ND plug-in /nonexistent/libnd-cli.so: /nonexistent/libnd-cli.so: "
                           "cannot open shared object file: No such file or directory\n");
    EXPECT_NE(access(state.file("ndsh.booted").c_str(), F_OK), 0) << "nothing started";
}

TEST(NdshCommandLine, UsageErrorsNameTheOptionAndHelpGoesToStandardOutput)
{
    StateDir state;
    Result unknown = ndsh(state, probe_args({"--colour", "-c", "probe"}));
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err.rfind("ndsh: unknown option --colour\nusage: ndsh [options]\n", 0), 0u) << unknown.err;

    Result noValue = ndsh(state, probe_args({"--state"}));
    EXPECT_EQ(noValue.status, 2);
    EXPECT_EQ(noValue.err.rfind("ndsh: option --state needs a value\n", 0), 0u) << noValue.err;

    for (const char *bad : {"SHELL_GetEnv", "SHELL_GetEnv=", "=1", "SHELL_GetEnv=abc", "SHELL_GetEnv=1x0"}) {
        Result fault = ndsh(state, probe_args({"--fault", bad, "-c", "probe"}));
        EXPECT_EQ(fault.status, 2) << bad;
        EXPECT_EQ(fault.out, "") << bad;
        EXPECT_EQ(fault.err.rfind(std::string("ndsh: bad --fault ") + bad +
                                      " (expected FUNC=VALUE or FUNC=VALUExN)\nusage: ndsh",
                                  0),
                  0u)
            << fault.err;
    }

    Result help = ndsh(state, {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(help.out.rfind("usage: ndsh [options]\n", 0), 0u);
    EXPECT_NE(help.out.find("  --plugin PATH"), std::string::npos);
    Result late = ndsh(state, {"--no-service", "--help"});
    EXPECT_EQ(late.status, 0);
    EXPECT_EQ(late.out, help.out);
}

TEST(NdshCommandLine, EveryRegisteredCommandCanBeCompletedAndMatched)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "--bench-startup"});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("not accepted by the matcher: 0\n"), std::string::npos) << r.out;
}

TEST(NdshCommandLine, DebugHooksAreCalledWithTheirCodes)
{
    StateDir state;
    Result r = ndsh(state, probe_args({"-c", "show debugging; debug all; no debug all"}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\nprobe debug code 3\n\nprobe debug code 1\n\nprobe debug code 2\n");
}

// A prefix typed without its length is a host prefix: the command is accepted and the handler
// sends the address with its length.
TEST(NdshCommandLine, APrefixWithoutItsLengthIsAccepted)
{
    StateDir state;
    Result r = ndsh(state, {"--no-service", "--trace", "-c", "clear nd snooping prefix 2001:db8::1"});
    EXPECT_EQ(r.out.find("Unknown command"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("[trace] CMF_ClientParamEncode(ptr, 4, 16, ptr)\n[trace] CMF_ClientParamEncode(ptr, 5, 1, ptr)\n"
                         "[trace] CMF_ClientRequestSend(ptr)\n"),
              std::string::npos)
        << r.err;
    Result bad = ndsh(state, {"--no-service", "-c", "clear nd snooping prefix 2001:db8:::1"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.out.find("% Unknown command."), std::string::npos) << bad.out;
}

// `?` lists a word only when something visible can follow it, and after a word always prints
// something: the candidates, <cr>, or why nothing follows.
TEST(NdshCommandLine, HelpNeverDeadEnds)
{
    StateDir state;
    Result top = ndsh(state, {"--no-service", "-c", "?"});
    EXPECT_NE(top.out.find("\n  configure "), std::string::npos) << top.out;
    EXPECT_EQ(top.out.find("\n  nd"), std::string::npos) << top.out;
    Result r = ndsh(state, {"--no-service", "-c", "show ?"});
    EXPECT_EQ(r.out.find("  diagnose"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  nd              Neighbor discovery\n"), std::string::npos) << r.out;
    Result dead = ndsh(state, {"--no-service", "-c", "nd ?; no nd ?; show diagnose ?; show zz?"});
    EXPECT_EQ(dead.out, "switch#nd ?\n"
                        "          ^\n"
                        "% Unknown command.\n"
                        "switch#no nd ?\n"
                        "             ^\n"
                        "% Unknown command.\n"
                        "switch#show diagnose ?\n"
                        "                     ^\n"
                        "% Unknown command.\n"
                        "switch#show zz?\n"
                        "            ^\n"
                        "% Unknown command.\n");
    Result end = ndsh(state, {"--no-service", "-c", "show nd proxy address ?"});
    EXPECT_NE(end.out.find("  <cr>"), std::string::npos) << end.out;
}
