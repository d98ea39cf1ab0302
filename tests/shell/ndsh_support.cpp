#include "ndsh_support.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ndshtest {

StateDir::StateDir()
{
    char templ[] = "/tmp/ndsh-test-XXXXXX";
    const char *made = mkdtemp(templ);
    path_ = made ? made : "/tmp/ndsh-test-fallback";
}

StateDir::~StateDir()
{
    stop_service(*this);
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

int stop_service(const StateDir &state)
{
    return stop_service(state.path());
}

int stop_service(const std::string &stateDir)
{
#ifdef NDSVC_PATH
    // Only where a service ever ran: its lock file is there.
    if (access((stateDir + "/ndsvc.lock").c_str(), F_OK) != 0)
        return 0;
    pid_t pid = fork();
    if (pid == 0) {
        int devnull = open("/dev/null", O_WRONLY);
        if (devnull >= 0) {
            dup2(devnull, 1);
            close(devnull);
        }
        execl(NDSVC_PATH, NDSVC_PATH, "--stop", "--state", stateDir.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#else
    (void)stateDir;
    return 0;
#endif
}

long service_pid(const StateDir &state)
{
    std::string text = read_file(state.file("ndsvc.pid"));
    return text.empty() ? -1 : atol(text.c_str());
}

bool process_alive(long pid)
{
    if (pid <= 0)
        return false;
    // A process that ended but was not reaped yet is no longer alive.
    std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
    size_t close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] != 'Z' && stat[close + 2] != 'X';
}

std::vector<std::string> probe_args(std::vector<std::string> more)
{
    std::vector<std::string> args = {"--plugin", NDSH_PROBE_PATH, "--no-service"};
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

namespace {

std::vector<char *> argv_of(std::vector<std::string> &words)
{
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    return argv;
}

} // namespace

Result ndsh(const StateDir &state, const std::vector<std::string> &args, const std::string &input,
         const std::vector<std::string> &env, const RunOptions &options)
{
    int in[2], out[2], err[2];
    if (pipe(in) || pipe(out) || pipe(err))
        return {};
    std::vector<std::string> words = {NDSH_PATH};
    words.insert(words.end(), args.begin(), args.end());
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
            close(fd);
        setenv("NDSIM_STATE", state.path().c_str(), 1);
        for (const std::string &e : env)
            putenv(strdup(e.c_str()));
        if (options.fileSizeLimit >= 0) {
            signal(SIGXFSZ, SIG_IGN);
            rlimit limit{static_cast<rlim_t>(options.fileSizeLimit), static_cast<rlim_t>(options.fileSizeLimit)};
            setrlimit(RLIMIT_FSIZE, &limit);
        }
        std::vector<char *> argv = argv_of(words);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    signal(SIGPIPE, SIG_IGN);
    if (!input.empty() && write(in[1], input.data(), input.size()) < 0)
        perror("write");
    close(in[1]);
    Result run;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, 30000) <= 0)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            char buf[4096];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
                continue;
            }
            (i == 0 ? run.out : run.err).append(buf, static_cast<size_t>(n));
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path) << text;
}

size_t count(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++n;
    return n;
}

Pty::Pty(const StateDir &state, const std::vector<std::string> &args, int rows, int cols)
{
    winsize size{};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(cols);
    std::vector<std::string> words = {NDSH_PATH};
    words.insert(words.end(), args.begin(), args.end());
    pid_ = forkpty(&fd_, nullptr, nullptr, &size);
    if (pid_ == 0) {
        setenv("NDSIM_STATE", state.path().c_str(), 1);
        setenv("TERM", "vt100", 1);
        std::vector<char *> argv = argv_of(words);
        execv(argv[0], argv.data());
        _exit(127);
    }
}

Pty::~Pty()
{
    if (pid_ > 0) {
        int status;
        if (waitpid(pid_, &status, WNOHANG) == 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
    }
    if (fd_ >= 0)
        close(fd_);
}

bool Pty::expect(const std::string &text, int timeoutMs)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        size_t at = all_.find(text, mark_);
        if (at != std::string::npos) {
            mark_ = at + text.size();
            return true;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd p = {fd_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char buf[4096];
        ssize_t n = read(fd_, buf, sizeof buf);
        if (n <= 0)
            return false;
        all_.append(buf, static_cast<size_t>(n));
    }
}

void Pty::drain(int ms)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return;
        pollfd p = {fd_, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left.count())) <= 0)
            return;
        char buf[4096];
        ssize_t n = read(fd_, buf, sizeof buf);
        if (n <= 0)
            return;
        all_.append(buf, static_cast<size_t>(n));
    }
}

void Pty::send(const std::string &keys)
{
    if (write(fd_, keys.data(), keys.size()) < 0)
        perror("write");
}

int Pty::wait_exit(int timeoutMs)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        drain(20);
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    return -1;
}

} // namespace ndshtest
