#include "test_support.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>

namespace ndtest {

void PlatformTest::SetUp()
{
    ndplat::reset();
    allocationsAtStart_ = ndplat::outstanding_allocations();
}

void PlatformTest::TearDown()
{
    EXPECT_EQ(ndplat::outstanding_allocations(), allocationsAtStart_) << "platform allocations left behind";
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0) << "client contexts left open";
    ndplat::reset();
}

Stdout::Stdout() : capturing_(true)
{
    fflush(stdout);
    ::testing::internal::CaptureStdout();
}

Stdout::~Stdout()
{
    if (capturing_)
        take();
}

std::string Stdout::take()
{
    if (!capturing_)
        return {};
    capturing_ = false;
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

FdCapture::FdCapture()
{
    char name[] = "/tmp/ndtest-fd-XXXXXX";
    fd_ = mkstemp(name);
    path_ = name;
}

FdCapture::~FdCapture()
{
    if (fd_ >= 0)
        close(fd_);
    unlink(path_.c_str());
}

std::string FdCapture::text()
{
    std::string out;
    int in = open(path_.c_str(), O_RDONLY);
    if (in < 0)
        return out;
    char buf[4096];
    ssize_t n;
    while ((n = read(in, buf, sizeof buf)) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(in);
    return out;
}

LoadedPlugin::LoadedPlugin() : handle_(dlopen(ND_CLI_SO_PATH, RTLD_NOW | RTLD_GLOBAL))
{
    if (!handle_) {
        const char *e = dlerror();
        error_ = e ? e : "dlopen failed";
    }
}

LoadedPlugin::~LoadedPlugin()
{
    if (handle_)
        dlclose(handle_);
}

void *LoadedPlugin::symbol(const char *name) const
{
    return handle_ ? dlsym(handle_, name) : nullptr;
}

uint32_t LoadedPlugin::start()
{
    auto entry = static_cast<uint32_t (**)(void)>(symbol("dl_cli_init"));
    return entry && *entry ? (*entry)() : 0xFFFFFFFFu;
}

std::vector<uint8_t> u32_bytes(uint32_t v)
{
    std::vector<uint8_t> out(sizeof v);
    memcpy(out.data(), &v, sizeof v);
    return out;
}

std::vector<uint8_t> u16_bytes(uint16_t v)
{
    std::vector<uint8_t> out(sizeof v);
    memcpy(out.data(), &v, sizeof v);
    return out;
}

std::vector<uint8_t> text_bytes(const char *s, size_t length)
{
    return std::vector<uint8_t>(s, s + length);
}

SHELL_CMD_FN cmd_handler(size_t index)
{
    std::vector<ndplat::CmdRegistration> regs = ndplat::cmd_registrations();
    return index < regs.size() ? regs[index].fn : nullptr;
}

int32_t run_handler(SHELL_CMD_FN fn, const std::vector<std::string> &words)
{
    std::vector<std::string> copies = words;
    std::vector<char *> argv;
    for (std::string &w : copies)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    return fn(static_cast<int32_t>(words.size()), argv.data());
}

namespace {

// The scratch trees of one program, removed at its end.
struct ScratchTrees {
    std::mutex mutex;
    std::map<std::string, int> next; // root -> the number of the next directory
    ~ScratchTrees()
    {
        std::error_code ec;
        for (const auto &[root, n] : next)
            std::filesystem::remove_all(root, ec);
    }
};

} // namespace

int connect_unix(const std::string &path)
{
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path)
        return -1;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::vector<uint8_t> read_until_closed(int fd, int limitMs)
{
    std::vector<uint8_t> got;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    char b[512];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 50) <= 0)
            continue;
        ssize_t n = read(fd, b, sizeof b);
        if (n <= 0)
            break;
        got.insert(got.end(), b, b + n);
    }
    return got;
}

std::string fresh_scratch_dir(const std::string &prefix)
{
    static ScratchTrees trees;
    std::string root = "/tmp/" + prefix + "-" + std::to_string(getpid());
    int n;
    {
        std::lock_guard<std::mutex> hold(trees.mutex);
        n = trees.next[root]++;
    }
    mkdir(root.c_str(), 0755);
    std::string dir = root + "/" + std::to_string(n);
    mkdir(dir.c_str(), 0755);
    return dir;
}

namespace {

// Reads both pipes until each is at its end, so that a child that fills one never blocks.
void drainPipes(int outFd, int errFd, std::string &out, std::string &err)
{
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    int open = 2;
    char buf[4096];
    while (open > 0) {
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        for (pollfd &p : fds) {
            if (p.fd < 0 || !(p.revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            ssize_t n = read(p.fd, buf, sizeof buf);
            if (n > 0) {
                (&p == &fds[0] ? out : err).append(buf, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                p.fd = -1;
                --open;
            }
        }
    }
}

} // namespace

std::string run_capture(const std::vector<std::string> &argv, int &status, std::string *err)
{
    status = -1;
    int outPipe[2], errPipe[2];
    if (argv.empty() || pipe2(outPipe, O_CLOEXEC) != 0)
        return "";
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return "";
    }
    pid_t pid = fork();
    if (pid == 0) {
        int in = open("/dev/null", O_RDONLY);
        dup2(in, 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        std::vector<char *> args;
        for (const std::string &a : argv)
            args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    std::string out, errText;
    if (pid > 0)
        drainPipes(outPipe[0], errPipe[0], out, errText);
    close(outPipe[0]);
    close(errPipe[0]);
    int raw = 0;
    if (pid > 0 && waitpid(pid, &raw, 0) == pid && WIFEXITED(raw))
        status = WEXITSTATUS(raw);
    if (err)
        *err = errText;
    return out;
}

} // namespace ndtest
