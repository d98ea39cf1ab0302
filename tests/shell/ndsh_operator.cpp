// The operator's view of the switch's life cycle: ^C at the prompt, in the pager and during a
// listing never reaches the ND service; the service is the switch's, shared by every shell and
// outliving each of them until `ndsvc --stop`.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "ndsh_support.h"

using namespace ndshtest;

#ifdef NDSH_WITH_SERVICE

namespace {

// The probe plug-in, with the real ND service started at boot as on the switch.
std::vector<std::string> probe_with_service()
{
    return {"--plugin", NDSH_PROBE_PATH};
}

constexpr char kCtrlC[] = "\x03";

} // namespace

TEST(NdshInterrupt, CtrlCAtThePromptDropsTheLineAndLeavesTheServiceAlone)
{
    StateDir state;
    Pty pty(state, probe_with_service());
    ASSERT_TRUE(pty.expect("switch#"));
    long service = service_pid(state);
    ASSERT_TRUE(process_alive(service));
    pty.send("show deb");
    ASSERT_TRUE(pty.expect("show deb"));
    pty.send(kCtrlC);
    ASSERT_TRUE(pty.expect("^C\r\n"));
    ASSERT_TRUE(pty.expect("switch#"));
    // Had the words stayed, this would be "show deblines 2", an unknown command.
    pty.send("lines 2\r");
    ASSERT_TRUE(pty.expect("line 2")) << pty.all();
    ASSERT_TRUE(pty.expect("lines: done at 2")) << pty.all();
    EXPECT_EQ(pty.all().find("Unknown"), std::string::npos) << pty.all();
    EXPECT_EQ(pty.all().find("probe debug code"), std::string::npos) << pty.all();
    ASSERT_TRUE(pty.expect("switch#"));
    // ^C on an empty line too, typed the moment the prompt shows, and the shell goes on.
    pty.send(kCtrlC);
    ASSERT_TRUE(pty.expect("^C\r\n")) << pty.all();
    ASSERT_TRUE(pty.expect("switch#")) << pty.all();
    EXPECT_TRUE(process_alive(service));
    EXPECT_EQ(service_pid(state), service);
    pty.send("exit\r");
    EXPECT_EQ(pty.wait_exit(), 0);
    EXPECT_TRUE(process_alive(service)) << "the service outlives the shell";
}

TEST(NdshInterrupt, CtrlCAtMoreQuitsThePagerAndOtherKeysAreIgnored)
{
    StateDir state;
    Pty pty(state, probe_with_service(), 10);
    ASSERT_TRUE(pty.expect("switch#"));
    long service = service_pid(state);
    pty.send("lines 100\r");
    ASSERT_TRUE(pty.expect("line 8\r\n--More--"));
    // Keys other than space, Enter, q and ^C do nothing at the prompt.
    pty.send("xz1");
    pty.drain(300);
    EXPECT_EQ(pty.all().find("line 9"), std::string::npos) << pty.all();
    pty.send(kCtrlC);
    ASSERT_TRUE(pty.expect("lines: quit at 9")) << pty.all();
    ASSERT_TRUE(pty.expect("switch#"));
    EXPECT_EQ(pty.all().find("line 9"), std::string::npos) << pty.all();
    EXPECT_EQ(count(pty.all(), "--More--"), 1u);
    EXPECT_TRUE(process_alive(service));
    // The shell goes on with the next command.
    pty.send("lines 3\r");
    ASSERT_TRUE(pty.expect("lines: done at 3"));
    EXPECT_TRUE(process_alive(service));
}

TEST(NdshInterrupt, CtrlCDuringAListingStopsIt)
{
    StateDir state;
    setenv("PROBE_LINE_DELAY_US", "2000", 1);
    Pty pty(state, probe_with_service());
    unsetenv("PROBE_LINE_DELAY_US");
    ASSERT_TRUE(pty.expect("switch#"));
    long service = service_pid(state);
    pty.send("terminal length 0\r");
    ASSERT_TRUE(pty.expect("switch#"));
    pty.send("lines 100000\r");
    ASSERT_TRUE(pty.expect("line 50\r\n"));
    pty.send(kCtrlC);
    // The pager's break call answers 1 once ^C came: the handler stops long before the end.
    ASSERT_TRUE(pty.expect("lines: quit at ", 10000)) << pty.all().substr(pty.all().size() - 200);
    ASSERT_TRUE(pty.expect("switch#"));
    EXPECT_EQ(pty.all().find("line 100000"), std::string::npos);
    EXPECT_TRUE(process_alive(service));
    // The next command's output is not cut off.
    pty.send("lines 5\r");
    ASSERT_TRUE(pty.expect("line 5"));
    ASSERT_TRUE(pty.expect("lines: done at 5"));

    // A listing that never calls the pager is cut off as well.
    pty.send("flood 256\r");
    ASSERT_TRUE(pty.expect("00000100 "));
    pty.send(kCtrlC);
    ASSERT_TRUE(pty.expect("flood: done", 30000));
    ASSERT_TRUE(pty.expect("switch#"));
    EXPECT_EQ(pty.all().find("00262143 "), std::string::npos);
    EXPECT_TRUE(process_alive(service));
}

namespace {

// Runs a command line through the shell; its standard output and exit status.
Result run(const std::string &command)
{
    Result r;
    FILE *p = popen(command.c_str(), "r");
    if (!p)
        return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        r.out.append(buf, n);
    int status = pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

} // namespace

TEST(NdshServiceLife, TheServiceOutlivesTheShellThatStartedItAndServesTheNext)
{
    StateDir state;
    Pty first(state, {});
    ASSERT_TRUE(first.expect("switch#"));
    long service = service_pid(state);
    ASSERT_TRUE(process_alive(service));
    Pty second(state, {});
    ASSERT_TRUE(second.expect("switch#"));
    EXPECT_EQ(service_pid(state), service) << "the second shell shares the running service";

    first.send("configure terminal\r");
    ASSERT_TRUE(first.expect("switch(config)#"));
    first.send("nd snooping enable\r");
    ASSERT_TRUE(first.expect("switch(config)#"));
    first.send("end\rexit\r");
    EXPECT_EQ(first.wait_exit(), 0);
    EXPECT_TRUE(process_alive(service)) << "the exit of the shell that started it does not stop it";

    second.send("configure terminal\r");
    ASSERT_TRUE(second.expect("switch(config)#"));
    second.send("nd snooping detect retransmit 3 interval 10\r");
    ASSERT_TRUE(second.expect("switch(config)#"));
    second.send("do show running-config | include ^nd\r");
    ASSERT_TRUE(second.expect("nd snooping enable\r\nnd snooping detect retransmit 3 interval 10\r\n")) << second.all();
    EXPECT_EQ(second.all().find('%'), std::string::npos) << second.all();
    EXPECT_EQ(service_pid(state), service) << "no restart: learned state is kept";
    second.send("end\rexit\r");
    EXPECT_EQ(second.wait_exit(), 0);
    EXPECT_TRUE(process_alive(service));

    // The operator's stop: the service ends and takes its socket and pid file with it.
    Result stop = run(std::string(NDSVC_PATH) + " --stop --state " + state.path());
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(stop.out, "ndsvc: stopped the service on " + state.path() + " (pid " + std::to_string(service) + ")\n");
    EXPECT_FALSE(process_alive(service));
    EXPECT_FALSE(exists(state.file("ndsvc.pid")));
    EXPECT_FALSE(exists(state.file("ndsvc.sock")));
    Result again = run(std::string(NDSVC_PATH) + " --stop --state " + state.path());
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "ndsvc: no service runs on " + state.path() + "\n");

    // The next shell finds it absent and starts it again, on the stored configuration.
    Result shown = ndsh(state, {"-c", "show running-config | include ^nd snooping enable"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ(shown.out, "nd snooping enable\n");
    EXPECT_TRUE(process_alive(service_pid(state)));
    EXPECT_NE(service_pid(state), service);
}

// A pid file that names some other process (the service crashed, the pid was reused) is not
// signalled: only the holder of the state directory's lock is.
TEST(NdshServiceLife, StopSignalsOnlyTheHolderOfTheStateDirectory)
{
    StateDir state;
    Result r = ndsh(state, {"-c", "show running-config | include ^vlan 1$"});
    ASSERT_EQ(r.status, 0) << r.err;
    long service = service_pid(state);
    ASSERT_TRUE(process_alive(service));
    ASSERT_EQ(kill(static_cast<pid_t>(service), SIGKILL), 0);
    for (int i = 0; i < 500 && process_alive(service); ++i)
        usleep(10000);
    ASSERT_FALSE(process_alive(service));
    // A crash leaves the files; the pid file is made to name this test's own process.
    write_file(state.file("ndsvc.pid"), std::to_string(getpid()) + "\n");
    Result stop = run(std::string(NDSVC_PATH) + " --stop --state " + state.path());
    EXPECT_EQ(stop.status, 0);
    EXPECT_EQ(stop.out, "ndsvc: no service runs on " + state.path() + "\n");
    // The stale socket and pid file are replaced by the next start.
    Result next = ndsh(state, {"-c", "show running-config | include ^vlan 1$"});
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_EQ(next.out, "vlan 1\n");
    EXPECT_NE(service_pid(state), getpid());
    EXPECT_TRUE(process_alive(service_pid(state)));
}

TEST(NdshServiceLife, NdsvcHelpGoesToStandardOutput)
{
    Result help = run(std::string(NDSVC_PATH) + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: ndsvc [--state DIR]", 0), 0u) << help.out;
    EXPECT_NE(help.out.find("ndsvc --stop [--state DIR]"), std::string::npos);
    Result bad = run(std::string(NDSVC_PATH) + " --bogus 2>&1 >/dev/null");
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.out.rfind("ndsvc: unknown option, or one without its value: --bogus\nusage: ndsvc", 0), 0u) << bad.out;
}

#endif
