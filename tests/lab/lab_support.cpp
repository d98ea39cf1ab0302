#include "lab_support.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef NDLAB_PATH
#define NDLAB_PATH "ndlab"
#endif

namespace labtest {

namespace {

constexpr uid_t kNobody = 65534;

void write_all(int fd, const std::string &text)
{
    ssize_t n = ::write(fd, text.data(), text.size());
    (void)n;
}

// In the child: becomes root of a new user namespace that maps only itself.
bool enter_user_namespace()
{
    uid_t uid = ::geteuid();
    gid_t gid = ::getegid();
    if (::unshare(CLONE_NEWUSER) != 0)
        return false;
    auto put = [](const char *path, const std::string &text) {
        int fd = ::open(path, O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            return false;
        bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::close(fd);
        return ok;
    };
    return put("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") && put("/proc/self/setgroups", "deny") &&
           put("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n");
}

} // namespace

Outcome run(const std::vector<std::string> &argv, const RunOptions &options)
{
    Outcome result;
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2: " << std::strerror(errno);
        return result;
    }
    std::vector<char *> args;
    for (const std::string &arg : argv)
        args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {
        int devNull = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::dup2(devNull, 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        // Only what the test hands over: a descriptor the command sees came from ndlab.
        ::close_range(3, ~0U, 0);
        for (const std::string &entry : options.env)
            ::putenv(const_cast<char *>(entry.c_str()));
        if (options.asNobody &&
            (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) {
            write_all(2, "cannot become user 65534\n");
            ::_exit(126);
        }
        if (options.inUserNamespace && !enter_user_namespace()) {
            write_all(2, std::string("cannot enter a user namespace: ") + std::strerror(errno) + "\n");
            ::_exit(126);
        }
        ::execv(args[0], args.data());
        write_all(2, "cannot run " + argv[0] + "\n");
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string *texts[2] = {&result.out, &result.err};
    int open = 2;
    char buffer[4096];
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n <= 0) {
                fds[i].fd = -1;
                --open;
            } else {
                texts[i]->append(buffer, static_cast<size_t>(n));
            }
        }
    }
    ::close(out[0]);
    ::close(err[0]);
    int wstatus = 0;
    while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    return result;
}

Outcome ndlab(const std::vector<std::string> &args, const RunOptions &options)
{
    std::vector<std::string> argv = {NDLAB_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv, options);
}

std::string ip(const std::vector<std::string> &args)
{
    std::vector<std::string> argv = {ndlab::ip_program()};
    argv.insert(argv.end(), args.begin(), args.end());
    Outcome done = run(argv);
    EXPECT_EQ(done.status, 0) << "ip failed: " << done.err;
    return done.out;
}

std::string missing_prerequisites()
{
    if (::geteuid() != 0)
        return "the lab tests need root (they make network namespaces); effective uid is " +
               std::to_string(::geteuid());
    std::string program = ndlab::ip_program();
    if (::access(program.c_str(), X_OK) != 0)
        return "the lab tests need iproute2: cannot run " + program;
    pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(::unshare(CLONE_NEWNET) == 0 ? 0 : errno);
    int wstatus = 0;
    ::waitpid(pid, &wstatus, 0);
    if (!WIFEXITED(wstatus) || WEXITSTATUS(wstatus) != 0)
        return std::string("the lab tests need network namespaces: unshare(CLONE_NEWNET): ") +
               std::strerror(WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : EINVAL);
    return "";
}

Scratch::Scratch()
{
    static int counter = 0;
    name_ = "lt" + std::to_string(::getpid()) + "x" + std::to_string(++counter);
    path_ = "/tmp/" + name_;
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
    // Readable by all: the test that drops its rights still reads what is here.
    if (::mkdir(path_.c_str(), 0755) != 0)
        ADD_FAILURE() << "mkdir " << path_ << ": " << std::strerror(errno);
}

Scratch::~Scratch()
{
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::vector<std::string> namespaces_starting(const std::string &prefix)
{
    std::vector<std::string> result;
    std::istringstream listing(ip({"netns", "list"}));
    std::string line;
    while (std::getline(listing, line)) {
        std::string netns = line.substr(0, line.find(' '));
        if (netns.rfind(prefix, 0) == 0)
            result.push_back(netns);
    }
    std::sort(result.begin(), result.end());
    return result;
}

std::string read_in(const std::string &netns, const std::string &path)
{
    Outcome done = run({ndlab::ip_program(), "netns", "exec", netns, "cat", path});
    EXPECT_EQ(done.status, 0) << "cat " << path << " in " << netns << ": " << done.err;
    return done.out;
}

std::string link_local(const std::string &netns, const std::string &device)
{
    std::istringstream text(ip({"-n", netns, "-6", "-o", "addr", "show", "dev", device, "scope", "link"}));
    std::string word;
    while (text >> word) {
        if (word == "inet6" && text >> word)
            return word.substr(0, word.find('/'));
    }
    return "";
}

bool wait_addresses_settled(const std::string &netns, const std::string &device, double seconds)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        std::string all = ip({"-n", netns, "-6", "-o", "addr", "show", "dev", device});
        if (all.find("fe80::") != std::string::npos && all.find("tentative") == std::string::npos)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

std::string lines(const std::vector<std::string> &each)
{
    std::string text;
    for (const std::string &line : each)
        text += line + "\n";
    return text;
}

namespace {

ndlab::Lab owned(const std::string &name)
{
    ndlab::Result<ndlab::Lab> lab = ndlab::Lab::adopt(name);
    if (!lab) {
        std::fprintf(stderr, "cannot own lab %s: %s\n", name.c_str(), lab.message().c_str());
        std::abort();
    }
    return std::move(lab.value());
}

} // namespace

LabTest::LabTest() : lab_(owned(scratch_.name())) {}

void LabTest::SetUp()
{
    std::string missing = missing_prerequisites();
    if (!missing.empty())
        FAIL() << missing;
}

std::vector<std::string> LabTest::lab_namespaces() const
{
    std::vector<std::string> result;
    for (const std::string &netns : namespaces_starting("ndlab-" + name() + "-")) {
        // Another lab's name may start with ours and a dash; its namespaces end in -sw or -hK
        // after that longer name.
        std::string rest = netns.substr(("ndlab-" + name() + "-").size());
        if (rest == "sw" || (rest.size() > 1 && rest[0] == 'h' &&
                             rest.find_first_not_of("0123456789", 1) == std::string::npos))
            result.push_back(netns);
    }
    return result;
}

int LabTest::ping_from(int from, const std::string &address)
{
    Outcome done = ndlab({"exec", name(), "h" + std::to_string(from), "--", "ping", "-6", "-c1", "-W2", address});
    return done.status;
}

} // namespace labtest
