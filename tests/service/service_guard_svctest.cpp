// The real ndsvc against hostile local peers and unlucky operators: one service per state
// directory, owner-only files whatever the umask, only its own user or root served, a bounded
// number of connections, bodies that cost nothing until they arrive, and a diagnose dump that
// nothing planted in /tmp can redirect or replace.
#include <arpa/inet.h>
#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "nd_cli.h"
#include "nd_service.h"
#include "ndplat_service.h"
#include "service_requests.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;
using ndplat::FrameResult;
using Clock = std::chrono::steady_clock;

constexpr uid_t kNobody = 65534;

std::string freshStateDir()
{
    return svctest::fresh_state_dir("ndsg");
}

// A path in a fresh directory that nothing has made yet.
std::string freshName()
{
    return freshStateDir() + "/new";
}

// Stops the service of a state directory on every way out of a test.
struct StopsService {
    std::string dir;
    ~StopsService()
    {
        if (ndplat::service_running(dir))
            ndplat::service_stop(dir, true);
    }
};

// A process of the test's own, killed on every way out.
struct Child {
    pid_t pid = -1;
    ~Child()
    {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    bool alive() const
    {
        int status = 0;
        return pid > 0 && waitpid(pid, &status, WNOHANG) == 0;
    }
};

struct Fds {
    std::vector<int> fds;
    ~Fds()
    {
        for (int fd : fds)
            if (fd >= 0)
                close(fd);
    }
};

std::string readText(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

mode_t modeOf(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 01000000;
}

ino_t inodeOf(const std::string &path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

std::string lockPath(const std::string &dir)
{
    return dir + "/ndsvc.lock";
}


using svctest::req;
using svctest::u16;

// The status the service answers a request with on a connection of its own; ~0 for none.
uint32_t ask(const std::string &dir, const CmfRequest &r)
{
    int fd = ndtest::connect_unix(ndplat::service_socket_path(dir));
    if (fd < 0)
        return ~0u;
    std::vector<uint8_t> body;
    CmfResponse response;
    bool good = ndplat::frame_write(fd, ndplat::wire_encode_request(r), 5000) == FrameResult::ok &&
                ndplat::frame_read(fd, body, 5000) == FrameResult::ok &&
                ndplat::wire_decode_response(body.data(), body.size(), response);
    close(fd);
    return good ? response.status : ~0u;
}

long statusNumber(pid_t pid, const char *field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    size_t n = strlen(field);
    while (std::getline(in, line))
        if (line.compare(0, n, field) == 0 && line.size() > n && line[n] == ':')
            return strtol(line.c_str() + n + 1, nullptr, 10);
    return -1;
}

// Waits (bounded) until the peer closed fd, reading and dropping what it sent before.
bool closedWithin(int fd, int ms)
{
    auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    char b[256];
    while (Clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 20) <= 0)
            continue;
        ssize_t n = recv(fd, b, sizeof b, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno == ECONNRESET))
            return true;
    }
    return false;
}

// ndsvc run by the test itself, its standard error kept; killed when it outlives timeoutMs.
struct NdsvcRun {
    bool ended = false;
    int status = -1;
    std::string err;
};

NdsvcRun runNdsvc(const std::vector<std::string> &args, int timeoutMs)
{
    NdsvcRun run;
    std::vector<std::string> words{ndplat::service_executable()};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    int err[2];
    if (pipe2(err, O_CLOEXEC) != 0)
        return run;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(err[1], 2);
        int devnull = open("/dev/null", O_RDWR);
        dup2(devnull, 0);
        dup2(devnull, 1);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(err[1]);
    Child child{pid};
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    char b[512];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            break;
        pollfd p{err[0], POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0)
            continue;
        ssize_t n = read(err[0], b, sizeof b);
        if (n <= 0)
            break;
        run.err.append(b, static_cast<size_t>(n));
    }
    close(err[0]);
    while (Clock::now() < deadline) {
        if (waitpid(pid, &run.status, WNOHANG) == pid) {
            run.ended = true;
            child.pid = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return run;
}

// A child that turns into user nobody, sends one request frame on a new connection to
// socketPath and hands back everything that the service answered.
std::vector<uint8_t> askAsNobody(const std::string &socketPath, const CmfRequest &r, pid_t &childPid, int &exitCode)
{
    std::vector<uint8_t> frame(4);
    std::vector<uint8_t> body = ndplat::wire_encode_request(r);
    uint32_t length = static_cast<uint32_t>(body.size());
    memcpy(frame.data(), &length, 4);
    frame.insert(frame.end(), body.begin(), body.end());
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, socketPath.c_str());
    std::vector<uint8_t> got;
    int answer[2];
    if (pipe2(answer, O_CLOEXEC) != 0)
        return got;
    pid_t pid = fork();
    if (pid == 0) {
        // Only system calls from here on: the test process has threads.
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
            _exit(10);
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
            _exit(11);
        (void)!send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        char b[512];
        ssize_t n;
        while ((n = read(fd, b, sizeof b)) > 0)
            (void)!write(answer[1], b, static_cast<size_t>(n));
        _exit(0);
    }
    close(answer[1]);
    Child child{pid};
    childPid = pid;
    std::vector<uint8_t> more = ndtest::read_until_closed(answer[0], 5000);
    got.insert(got.end(), more.begin(), more.end());
    close(answer[0]);
    int status = 0;
    exitCode = -1;
    for (auto end = Clock::now() + std::chrono::seconds(2); Clock::now() < end;)
        if (waitpid(pid, &status, WNOHANG) == pid) {
            child.pid = -1;
            exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            break;
        }
    return got;
}

class GuardTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        ndplat::service_detach();
        PlatformTest::TearDown();
    }
};

// A show of the debug switches through the plug-in, as the shell sends it.
uint32_t showDebugThroughThePlugIn()
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "show", 14);
    uint32_t mask = 0;
    nd_CliParamSet(&block, &mask, 4, 11, 1);
    ndtest::Stdout out;
    uint32_t r = ndCliParamProc(&block);
    out.take();
    return r;
}

// ---- one service per state directory --------------------------------------------------------------

TEST_F(GuardTest, ASecondServiceOnTheSameStateDirectoryNamesTheHolderAndTouchesNothing)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    long first = ndplat::service_start(dir);
    ASSERT_GT(first, 0);
    ino_t socketBefore = inodeOf(ndplat::service_socket_path(dir));
    ASSERT_NE(socketBefore, 0u);
    ASSERT_EQ(readText(ndplat::service_pid_path(dir)), std::to_string(first) + "\n");

    NdsvcRun second = runNdsvc({"--state", dir}, 5000);
    ASSERT_TRUE(second.ended) << "the second service kept running";
    ASSERT_TRUE(WIFEXITED(second.status));
    EXPECT_EQ(WEXITSTATUS(second.status), 1);
    EXPECT_EQ(second.err, "ndsvc: state directory " + dir + " is in use by ndsvc pid " + std::to_string(first) + "\n");
    EXPECT_EQ(inodeOf(ndplat::service_socket_path(dir)), socketBefore);
    EXPECT_EQ(readText(ndplat::service_pid_path(dir)), std::to_string(first) + "\n");
    EXPECT_EQ(ask(dir, req(14, ND_CLI_OPT_SHOW, {CmfItem::u32(11, 0)})), ndwire::kCmfNoMore) << "the first still serves";

    EXPECT_TRUE(ndplat::service_stop(dir));
    EXPECT_NE(access(ndplat::service_socket_path(dir).c_str(), F_OK), 0);
    EXPECT_NE(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0);
}

TEST_F(GuardTest, TwoStartsAtOnceEndWithOneService)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    // A started service ends with the thread that started it: both starters stay until the end.
    std::atomic<long> a{0}, b{0};
    std::atomic<int> started{0};
    std::atomic<bool> done{false};
    auto starter = [&](std::atomic<long> &result) {
        result = ndplat::service_start(dir);
        ++started;
        while (!done.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    std::thread one(starter, std::ref(a));
    std::thread two(starter, std::ref(b));
    struct Joins {
        std::atomic<bool> &done;
        std::thread &one, &two;
        ~Joins()
        {
            done = true;
            one.join();
            two.join();
        }
    } joins{done, one, two};
    for (auto end = Clock::now() + std::chrono::seconds(20); started.load() < 2 && Clock::now() < end;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_EQ(started.load(), 2);
    ASSERT_GT(a.load(), 0);
    EXPECT_EQ(a.load(), b.load()) << "both name the one service that runs";
    EXPECT_EQ(readText(ndplat::service_pid_path(dir)), std::to_string(a.load()) + "\n");
    EXPECT_EQ(ndplat::service_lock_holder(dir), a.load());
    EXPECT_TRUE(ndplat::service_stop(dir));
}

TEST_F(GuardTest, StopSignalsOnlyAProcessThatHoldsTheLock)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    Child sleeper;
    sleeper.pid = fork();
    ASSERT_GE(sleeper.pid, 0);
    if (sleeper.pid == 0) {
        execl("/bin/sleep", "sleep", "30", static_cast<char *>(nullptr));
        _exit(127);
    }
    // A pid file left by a crash, naming what is now somebody else's process.
    std::ofstream(ndplat::service_pid_path(dir)) << sleeper.pid << "\n";
    EXPECT_TRUE(ndplat::service_stop(dir)) << "no service runs";
    EXPECT_TRUE(sleeper.alive());

    long service = ndplat::service_start(dir);
    ASSERT_GT(service, 0);
    EXPECT_EQ(ndplat::service_lock_holder(dir), service);
    std::ofstream(ndplat::service_pid_path(dir)) << sleeper.pid << "\n";
    EXPECT_FALSE(ndplat::service_stop(dir)) << "the pid file does not name the holder";
    EXPECT_TRUE(sleeper.alive());
    EXPECT_TRUE(ndplat::service_running(dir));

    std::ofstream(ndplat::service_pid_path(dir)) << service << "\n";
    EXPECT_TRUE(ndplat::service_stop(dir));
    EXPECT_FALSE(ndplat::service_running(dir));
    EXPECT_EQ(ndplat::service_lock_holder(dir), 0);
}

TEST_F(GuardTest, ASocketAndPidFileLeftByACrashAreReplaced)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    long crashed = ndplat::service_start(dir);
    ASSERT_GT(crashed, 0);
    ASSERT_TRUE(ndplat::service_stop(dir, true));
    ASSERT_EQ(access(ndplat::service_socket_path(dir).c_str(), F_OK), 0) << "left behind";
    ASSERT_EQ(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0) << "left behind";
    EXPECT_FALSE(ndplat::service_running(dir));
    EXPECT_EQ(ndplat::service_lock_holder(dir), 0);

    ndplat::service_attach(dir);
    EXPECT_EQ(DCM_Query("ipv6"), 0);
    EXPECT_EQ(DCM_Start("ipv6", 1), 2);
    long next = ndplat::service_lock_holder(dir);
    EXPECT_GT(next, 0);
    EXPECT_NE(next, crashed);
    EXPECT_EQ(readText(ndplat::service_pid_path(dir)), std::to_string(next) + "\n");
    EXPECT_EQ(showDebugThroughThePlugIn(), 0u);
    EXPECT_TRUE(ndplat::service_stop(dir));
    EXPECT_NE(access(ndplat::service_socket_path(dir).c_str(), F_OK), 0);
    EXPECT_NE(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0);
}

TEST_F(GuardTest, AServiceIsStoppedSafelyWhileTheProgramEnds)
{
    // Test helpers and shells stop services from their statics' destructors: the platform's
    // state must still be there for them.
    std::string dir = freshStateDir();
    StopsService stops{dir};
    Child program;
    program.pid = fork();
    if (program.pid == 0) {
        execl(STOP_AT_EXIT_PATH, STOP_AT_EXIT_PATH, dir.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    ASSERT_GT(program.pid, 0);
    int status = 0;
    ASSERT_EQ(waitpid(program.pid, &status, 0), program.pid);
    program.pid = -1;
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ndplat::service_lock_holder(dir), 0) << "the service was stopped";
    EXPECT_NE(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0);
}

TEST_F(GuardTest, AServiceRemovesOnlyTheFilesItMade)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    long service = ndplat::service_start(dir);
    ASSERT_GT(service, 0);
    // Both names have been taken by someone else's files since.
    std::string sock = ndplat::service_socket_path(dir), pid = ndplat::service_pid_path(dir);
    ASSERT_EQ(unlink(sock.c_str()), 0);
    ASSERT_EQ(unlink(pid.c_str()), 0);
    int other = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, sock.c_str());
    ASSERT_EQ(bind(other, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    std::ofstream(pid) << "4242\n";
    ASSERT_EQ(kill(static_cast<pid_t>(service), SIGTERM), 0);
    bool ended = false;
    for (auto end = Clock::now() + std::chrono::seconds(10); !ended && Clock::now() < end;) {
        ended = waitpid(static_cast<pid_t>(service), nullptr, WNOHANG) == service;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(ended);
    EXPECT_EQ(access(sock.c_str(), F_OK), 0);
    EXPECT_EQ(readText(pid), "4242\n");
    close(other);
}

// ---- files and peers ---------------------------------------------------------------------------------

TEST_F(GuardTest, TheServiceFilesAreOwnerOnlyWhateverTheUmask)
{
    std::string dir = freshName() + "/state"; // made by the start
    StopsService stops{dir};
    mode_t old = umask(0);
    long pid = ndplat::service_start(dir);
    umask(old);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(modeOf(dir), 0700u);
    EXPECT_EQ(modeOf(ndplat::service_socket_path(dir)), 0600u);
    EXPECT_EQ(modeOf(ndplat::service_pid_path(dir)), 0600u);
    EXPECT_EQ(modeOf(lockPath(dir)), 0600u);
    EXPECT_TRUE(ndplat::service_stop(dir));
}

TEST_F(GuardTest, TheServiceMakesItsOwnStateDirectoryOwnerOnly)
{
    std::string dir = freshName();
    StopsService stops{dir};
    mode_t old = umask(0);
    Child service;
    service.pid = fork();
    if (service.pid == 0) {
        std::string exe = ndplat::service_executable();
        int devnull = open("/dev/null", O_RDWR);
        dup2(devnull, 0);
        dup2(devnull, 1);
        execl(exe.c_str(), exe.c_str(), "--state", dir.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    umask(old);
    ASSERT_GT(service.pid, 0);
    for (auto end = Clock::now() + std::chrono::seconds(10); Clock::now() < end && !ndplat::service_running(dir);)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(ndplat::service_running(dir));
    EXPECT_EQ(modeOf(dir), 0700u);
    EXPECT_EQ(modeOf(ndplat::service_socket_path(dir)), 0600u);
    EXPECT_EQ(modeOf(ndplat::service_pid_path(dir)), 0600u);
    EXPECT_EQ(modeOf(lockPath(dir)), 0600u);
    kill(service.pid, SIGTERM);
    int status = 0;
    for (auto end = Clock::now() + std::chrono::seconds(10); Clock::now() < end;)
        if (waitpid(service.pid, &status, WNOHANG) == service.pid) {
            service.pid = -1;
            break;
        }
    EXPECT_EQ(service.pid, -1);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(GuardTest, APeerOfAnotherUserIsRefusedAndChangesNothing)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to act as another user";
    std::string dir = freshStateDir();
    StopsService stops{dir};
    ASSERT_GT(ndplat::service_start(dir), 0);
    ASSERT_EQ(ask(dir, req(ND_CMD_SNP_GLOBAL_ENABLE, ND_CLI_OPT_SET)), ndwire::kCmfNoMore);
    ASSERT_EQ(ask(dir, req(ND_CMD_SNP_VLAN_ENABLE, ND_CLI_OPT_SET, {u16(2, 10)})), ndwire::kCmfNoMore);
    // As an umask of 000 once left it: the file modes alone would let anybody in.
    ASSERT_EQ(chmod(ndplat::service_socket_path(dir).c_str(), 0777), 0);

    pid_t child = 0;
    int exitCode = -1;
    std::vector<uint8_t> got =
        askAsNobody(ndplat::service_socket_path(dir), req(ND_CMD_SNP_GLOBAL_ENABLE, ND_CLI_OPT_UNDO), child, exitCode);
    ASSERT_EQ(exitCode, 0) << "the child could not connect";
    ASSERT_GE(got.size(), 4u);
    uint32_t length = 0;
    memcpy(&length, got.data(), 4);
    ASSERT_EQ(got.size(), 4u + length);
    CmfResponse response;
    ASSERT_TRUE(ndplat::wire_decode_response(got.data() + 4, length, response));
    std::string reason;
    ASSERT_TRUE(ndplat::wire_is_refusal(response, &reason));
    EXPECT_EQ(reason, "user 65534 (pid " + std::to_string(child) + ") is neither the service's user nor root");

    // Global snooping is still on and VLAN 10 still snooped: setting it again is "already set"
    // (38), where global snooping off would have made it 46.
    EXPECT_EQ(ask(dir, req(ND_CMD_SNP_VLAN_ENABLE, ND_CLI_OPT_SET, {u16(2, 10)})), 38u);
    EXPECT_TRUE(ndplat::service_stop(dir));
}

// ---- connections and bodies ---------------------------------------------------------------------------

TEST_F(GuardTest, IdleConnectionsAreBoundedAndAClientBeyondIsRefusedAtOnce)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    long pid = ndplat::service_start(dir, {"--max-connections", "8", "--idle-timeout-ms", "1500"});
    ASSERT_GT(pid, 0);
    // The connection that service_start made to see the service up may still hold a slot for a
    // moment, or not even be accepted yet: one answered request proves it was accepted (the
    // service accepts in order). The threads that served these two are kept for the next
    // connections: the main thread and at most those two.
    ASSERT_EQ(ask(dir, req(14, ND_CLI_OPT_SHOW, {CmfItem::u32(11, 0)})), ndwire::kCmfNoMore);
    ASSERT_LE(statusNumber(static_cast<pid_t>(pid), "Threads"), 3);
    constexpr int kPeers = 100;
    Fds idle;
    for (int i = 0; i < kPeers; ++i) {
        int fd = ndtest::connect_unix(ndplat::service_socket_path(dir));
        ASSERT_GE(fd, 0) << i;
        idle.fds.push_back(fd);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // every one accepted
    // Every connection beyond the 8 is answered a refusal and closed.
    int refused = 0;
    for (int fd : idle.fds) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 0) <= 0)
            continue;
        std::vector<uint8_t> body;
        CmfResponse response;
        if (ndplat::frame_read(fd, body, 1000) == FrameResult::ok &&
            ndplat::wire_decode_response(body.data(), body.size(), response) && ndplat::wire_is_refusal(response))
            ++refused;
    }
    EXPECT_EQ(refused, kPeers - 8);
    long threads = statusNumber(static_cast<pid_t>(pid), "Threads");
    EXPECT_GE(threads, 9);
    EXPECT_LE(threads, 8 + 3) << "one thread per served connection, no more";

    // A real command meanwhile fails at once with a framework failure and says why.
    ndplat::service_attach(dir);
    testing::internal::CaptureStderr();
    auto start = Clock::now();
    EXPECT_EQ(showDebugThroughThePlugIn(), 21u);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(2000)) << "no hang";
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("ndcmf client: refused by the service: too many connections (8 open)\n"), std::string::npos)
        << log;

    // The idle ones are closed after the idle time-out; then commands are served again.
    for (int i = 0; i < kPeers; ++i)
        EXPECT_TRUE(closedWithin(idle.fds[static_cast<size_t>(i)], 3000)) << i;
    EXPECT_EQ(showDebugThroughThePlugIn(), 0u);
    EXPECT_TRUE(ndplat::service_stop(dir));
}

TEST_F(GuardTest, DeclaredBodiesThatNeverArriveCostTheServiceNothing)
{
    std::string dir = freshStateDir();
    StopsService stops{dir};
    long pid = ndplat::service_start(dir);
    ASSERT_GT(pid, 0);
    constexpr int kPeers = 40;

    // Beyond the limit: closed at once.
    Fds huge;
    for (int i = 0; i < kPeers; ++i) {
        int fd = ndtest::connect_unix(ndplat::service_socket_path(dir));
        ASSERT_GE(fd, 0);
        huge.fds.push_back(fd);
        uint32_t declared = 64u << 20;
        ASSERT_EQ(send(fd, &declared, 4, MSG_NOSIGNAL), 4);
    }
    for (int fd : huge.fds)
        EXPECT_TRUE(closedWithin(fd, 2000));

    // At the limit, and nothing sent: nothing held for them. Measured from when the connections
    // and their threads exist, so that what grows is the bodies alone.
    Fds atLimit;
    for (int i = 0; i < kPeers; ++i) {
        int fd = ndtest::connect_unix(ndplat::service_socket_path(dir));
        ASSERT_GE(fd, 0);
        atLimit.fds.push_back(fd);
    }
    for (auto end = Clock::now() + std::chrono::seconds(5);
         statusNumber(static_cast<pid_t>(pid), "Threads") < kPeers + 1 && Clock::now() < end;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    long before = statusNumber(static_cast<pid_t>(pid), "VmRSS");
    ASSERT_GT(before, 0);
    for (int fd : atLimit.fds) {
        uint32_t declared = ndplat::kWireMaxBody;
        ASSERT_EQ(send(fd, &declared, 4, MSG_NOSIGNAL), 4);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    long grown = statusNumber(static_cast<pid_t>(pid), "VmRSS") - before;
    EXPECT_LT(grown, 24 * 1024) << grown << " KiB";
    EXPECT_EQ(ask(dir, req(14, ND_CLI_OPT_SHOW, {CmfItem::u32(11, 0)})), ndwire::kCmfNoMore);
    EXPECT_EQ(kill(static_cast<pid_t>(pid), 0), 0);
    EXPECT_TRUE(ndplat::service_stop(dir));
}

// ---- the diagnose dump in /tmp --------------------------------------------------------------------------

// Removes the planted paths and the dump on every way out.
struct Planted {
    std::vector<std::string> paths;
    ~Planted()
    {
        for (const std::string &p : paths)
            std::filesystem::remove_all(p);
        unlink(ndsvc::kDiagnoseFile);
    }
};

std::vector<std::string> diagnoseTemporaries()
{
    std::vector<std::string> found;
    glob_t g{};
    if (glob((std::string(ndsvc::kDiagnoseFile) + ".*").c_str(), 0, nullptr, &g) == 0)
        for (size_t i = 0; i < g.gl_pathc; ++i)
            found.emplace_back(g.gl_pathv[i]);
    globfree(&g);
    return found;
}

class DiagnoseDumpTest : public ndtest::PlatformTest {
protected:
    ndsvc::NdService svc;
    CmfRequest globalAcl() { return req(ND_CMD_DIAGNOSE, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 3), CmfItem::u32(2, 0)}); }
    const std::string kAclText = "nd global acl\n  snooping packets to cpu: off\n  trusted ports: 0\n  snooping vlans: 0\n";
};

TEST_F(DiagnoseDumpTest, ALinkPlantedAtTheOldTemporaryNameIsNotWrittenThrough)
{
    Planted planted;
    std::string victim = freshName();
    planted.paths.push_back(victim);
    std::ofstream(victim) << "root only\n";
    chmod(victim.c_str(), 0600);
    std::string guess = std::string(ndsvc::kDiagnoseFile) + "." + std::to_string(getpid());
    planted.paths.push_back(guess);
    unlink(guess.c_str());
    ASSERT_EQ(symlink(victim.c_str(), guess.c_str()), 0);
    unlink(ndsvc::kDiagnoseFile);

    EXPECT_EQ(svc.handle(globalAcl()).status, ndwire::kCmfNoMore);
    EXPECT_EQ(readText(victim), "root only\n");
    EXPECT_EQ(readText(ndsvc::kDiagnoseFile), kAclText);
    struct stat st {};
    ASSERT_EQ(lstat(ndsvc::kDiagnoseFile, &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0600u);
}

TEST_F(DiagnoseDumpTest, ALinkPlantedAtTheDumpNameIsReplacedNotFollowed)
{
    Planted planted;
    std::string victim = freshName();
    planted.paths.push_back(victim);
    std::ofstream(victim) << "root only\n";
    unlink(ndsvc::kDiagnoseFile);
    ASSERT_EQ(symlink(victim.c_str(), ndsvc::kDiagnoseFile), 0);

    EXPECT_EQ(svc.handle(globalAcl()).status, ndwire::kCmfNoMore);
    EXPECT_EQ(readText(victim), "root only\n");
    struct stat st {};
    ASSERT_EQ(lstat(ndsvc::kDiagnoseFile, &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(readText(ndsvc::kDiagnoseFile), kAclText);
}

TEST_F(DiagnoseDumpTest, APlantedDumpIsNeverShownAsTheServicesText)
{
    Planted planted;
    // What kept the old temporary file from being made: a directory in its place.
    std::string guess = std::string(ndsvc::kDiagnoseFile) + "." + std::to_string(getpid());
    planted.paths.push_back(guess);
    std::filesystem::remove_all(guess);
    ASSERT_EQ(mkdir(guess.c_str(), 0755), 0);
    unlink(ndsvc::kDiagnoseFile);
    std::ofstream(ndsvc::kDiagnoseFile) << "planted\n";

    EXPECT_EQ(svc.handle(globalAcl()).status, ndwire::kCmfNoMore);
    EXPECT_EQ(readText(ndsvc::kDiagnoseFile), kAclText);
}

TEST_F(DiagnoseDumpTest, ADumpThatCannotBePutInPlaceIsAnErrorAndLeavesNothingBehind)
{
    Planted planted;
    std::vector<std::string> before = diagnoseTemporaries();
    unlink(ndsvc::kDiagnoseFile);
    std::string blocker = ndsvc::kDiagnoseFile;
    planted.paths.push_back(blocker);
    ASSERT_EQ(mkdir(blocker.c_str(), 0755), 0);
    std::ofstream(blocker + "/planted") << "planted\n";

    EXPECT_EQ(svc.handle(globalAcl()).status, static_cast<uint32_t>(ND_ERR_OPERATION_FAILED));
    EXPECT_EQ(diagnoseTemporaries(), before) << "no temporary directory left";
}

} // namespace
