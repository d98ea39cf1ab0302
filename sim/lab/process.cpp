#include "process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ndlab::detail {

namespace {

constexpr const char *kNetnsDir = "/var/run/netns/";
constexpr int kSignalStatusBase = 128;

// A descriptor closed when it goes out of scope.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }
    int get() const { return fd_; }
    void reset()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

struct Pipe {
    Fd read, write;
};

Result<Pipe> make_pipe()
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return Error{std::string("cannot make a pipe: ") + std::strerror(errno)};
    return Pipe{Fd(fds[0]), Fd(fds[1])};
}

std::string errno_text(int err) { return std::strerror(err); }

// What the child reports through its close-on-exec report pipe when it fails before exec: the
// step that failed and errno. An exec that works closes the pipe without a word.
struct ChildFailure {
    int step;
    int err;
};

// The child's side, between fork and exec: async-signal-safe calls only, since the parent may
// have other threads.
[[noreturn]] void child_fail(int reportFd, int step)
{
    ChildFailure failure{step, errno};
    ssize_t n = ::write(reportFd, &failure, sizeof failure);
    (void)n;
    ::_exit(127);
}

void child_reset_signals()
{
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction dfl {};
    dfl.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &dfl, nullptr);
}

// Waits for the child, retrying when a signal interrupts; its status as Output::status says.
Result<int> wait_child(pid_t pid)
{
    int wstatus = 0;
    while (::waitpid(pid, &wstatus, 0) < 0) {
        if (errno != EINTR)
            return Error{"cannot wait for child process: " + errno_text(errno)};
    }
    if (WIFEXITED(wstatus))
        return WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus))
        return kSignalStatusBase + WTERMSIG(wstatus);
    return kSignalStatusBase;
}

// Reads the report pipe after the child ended or exec'd; an Error when the child failed before
// its exec.
Status read_report(const Fd &report, const char *const steps[])
{
    ChildFailure failure{};
    size_t got = 0;
    while (got < sizeof failure) {
        ssize_t n = ::read(report.get(), reinterpret_cast<char *>(&failure) + got, sizeof failure - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    if (got < sizeof failure)
        return {};
    return Error{std::string(steps[failure.step]) + ": " + errno_text(failure.err)};
}

// Reads both pipes to their end without letting either fill up.
Status drain(Fd &out, Fd &err, std::string &outText, std::string &errText)
{
    char buffer[4096];
    pollfd fds[2] = {{out.get(), POLLIN, 0}, {err.get(), POLLIN, 0}};
    std::string *texts[2] = {&outText, &errText};
    int open = 2;
    while (open > 0) {
        int n = ::poll(fds, 2, -1);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return Error{"cannot wait for child output: " + errno_text(errno)};
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                fds[i].fd = -1;
                --open;
                continue;
            }
            texts[i]->append(buffer, static_cast<size_t>(got));
        }
    }
    out.reset();
    err.reset();
    return {};
}

std::vector<char *> c_argv(const std::vector<std::string> &argv)
{
    std::vector<char *> result;
    result.reserve(argv.size() + 1);
    for (const std::string &arg : argv)
        result.push_back(const_cast<char *>(arg.c_str()));
    result.push_back(nullptr);
    return result;
}

} // namespace

Result<Output> run_capture(const std::vector<std::string> &argv)
{
    if (argv.empty())
        return Error{"no program to run"};
    Result<Pipe> out = make_pipe(), err = make_pipe(), report = make_pipe();
    if (!out)
        return Error{out.message()};
    if (!err)
        return Error{err.message()};
    if (!report)
        return Error{report.message()};
    Fd devNull(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (devNull.get() < 0)
        return Error{"cannot open /dev/null: " + errno_text(errno)};
    std::vector<char *> args = c_argv(argv);
    std::string execStep = "cannot run " + argv[0];
    const char *const steps[] = {"cannot redirect the child's streams", execStep.c_str()};

    const int inFd = devNull.get(), outFd = out.value().write.get(), errFd = err.value().write.get();
    const int reportFd = report.value().write.get();

    pid_t pid = ::fork();
    if (pid < 0)
        return Error{"cannot fork: " + errno_text(errno)};
    if (pid == 0) {
        child_reset_signals();
        if (::dup2(inFd, STDIN_FILENO) < 0 || ::dup2(outFd, STDOUT_FILENO) < 0 || ::dup2(errFd, STDERR_FILENO) < 0)
            child_fail(reportFd, 0);
        ::execv(args[0], args.data());
        child_fail(reportFd, 1);
    }
    out.value().write.reset();
    err.value().write.reset();
    report.value().write.reset();
    Output result;
    Status drained = drain(out.value().read, err.value().read, result.out, result.err);
    Result<int> status = wait_child(pid);
    if (!drained)
        return Error{drained.message()};
    if (!status)
        return Error{status.message()};
    if (Status failed = read_report(report.value().read, steps); !failed)
        return Error{failed.message()};
    result.status = status.value();
    return result;
}

Result<int> run_inherit(const std::vector<std::string> &argv)
{
    if (argv.empty())
        return Error{"no program to run"};
    Result<Pipe> report = make_pipe();
    if (!report)
        return Error{report.message()};
    std::vector<char *> args = c_argv(argv);
    std::string execStep = "cannot run " + argv[0];
    const char *const steps[] = {execStep.c_str()};

    const int reportFd = report.value().write.get();

    pid_t pid = ::fork();
    if (pid < 0)
        return Error{"cannot fork: " + errno_text(errno)};
    if (pid == 0) {
        child_reset_signals();
        ::execv(args[0], args.data());
        child_fail(reportFd, 0);
    }
    report.value().write.reset();
    Result<int> status = wait_child(pid);
    if (!status)
        return status;
    if (Status failed = read_report(report.value().read, steps); !failed)
        return Error{failed.message()};
    return status;
}

Status write_in_namespace(const std::string &netns, const std::string &path, std::string_view value)
{
    Result<Pipe> report = make_pipe();
    if (!report)
        return Error{report.message()};
    std::string nsPath = kNetnsDir + netns;
    std::string text(value);
    std::string steps0 = "cannot open namespace " + netns;
    std::string steps1 = "cannot enter namespace " + netns;
    std::string steps2 = "cannot open " + path + " in " + netns;
    std::string steps3 = "cannot write " + path + " in " + netns;
    const char *const steps[] = {steps0.c_str(), steps1.c_str(), steps2.c_str(), steps3.c_str()};

    const int reportFd = report.value().write.get();
    const char *nsFile = nsPath.c_str();
    const char *file = path.c_str();

    pid_t pid = ::fork();
    if (pid < 0)
        return Error{"cannot fork: " + errno_text(errno)};
    if (pid == 0) {
        int nsFd = ::open(nsFile, O_RDONLY | O_CLOEXEC);
        if (nsFd < 0)
            child_fail(reportFd, 0);
        if (::setns(nsFd, CLONE_NEWNET) != 0)
            child_fail(reportFd, 1);
        int fileFd = ::open(file, O_WRONLY | O_CLOEXEC);
        if (fileFd < 0)
            child_fail(reportFd, 2);
        if (::write(fileFd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            child_fail(reportFd, 3);
        ::_exit(0);
    }
    report.value().write.reset();
    Result<int> status = wait_child(pid);
    if (!status)
        return status.status();
    if (Status failed = read_report(report.value().read, steps); !failed)
        return failed;
    if (status.value() != 0)
        return Error{steps3 + ": the child ended with status " + std::to_string(status.value())};
    return {};
}

} // namespace ndlab::detail
