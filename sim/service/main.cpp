// ndsvc: the ND service process ("ipv6") of the emulated switch. It answers the plug-in's
// requests on the Unix-domain socket of the state directory until it is told to stop.
//
//   ndsvc [--state DIR] [--seed FILE] [--plugin PATH] [--config-delay-ms N] [--die-after N]
//         [--user-bind-ceiling N] [--max-connections N] [--idle-timeout-ms N]
//   ndsvc --stop [--state DIR]
//
// --die-after N makes the process end abruptly, without an answer, when the Nth request arrives
// (tests of a service that dies in the middle of a listing). --user-bind-ceiling N makes the
// static user-bind table full at N entries instead of 1,024 (tests of the full table).
// --max-connections and --idle-timeout-ms (also $NDSIM_SERVICE_MAX_CONNECTIONS and
// $NDSIM_SERVICE_IDLE_MS) set how many connections are served at once and after how long a
// connection without a request is closed.
//
// One service per state directory: it holds an flock on <state>/ndsvc.lock (which holds its pid)
// for as long as it runs. A second one finds the lock taken, says who holds it and ends without
// touching the socket or the pid file. Whoever holds the lock owns the socket and the pid file:
// those that a service which ended without cleaning up left behind are replaced, and at the end
// only the files this process made are removed.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nd_service.h"
#include "ndlab.h"
#include "ndplat_supervlan.h"
#include "snoop_wire.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

#ifndef ND_CLI_SO_PATH
#define ND_CLI_SO_PATH "libnd-cli.so"
#endif

namespace {

// How long a start tries for the lock: longer than anyone holds it only to look at it
// (service_lock_holder), far shorter than a service holds it.
constexpr int kLockTries = 50;
constexpr int kLockTryMs = 5;
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

std::atomic<ndplat::ServiceServer *> gServer{nullptr};

void onSignal(int)
{
    if (ndplat::ServiceServer *server = gServer.load())
        server->stop();
}

constexpr const char *kUsage =
    "usage: ndsvc [--state DIR] [--seed FILE] [--plugin PATH] [--config-delay-ms N] [--die-after N]\n"
    "             [--user-bind-ceiling N] [--max-connections N] [--idle-timeout-ms N]\n"
    "             [--lab NAME [--learned-ceiling N]]\n"
    "       ndsvc --stop [--state DIR]\n"
    "       ndsvc --help\n"
    "Serves the ND requests of every shell on the state directory (default: $NDSIM_STATE, else\n"
    "./ndsim-state) until it is stopped. --stop stops the service that holds DIR, if any.\n";

int usage()
{
    fputs(kUsage, stderr);
    return 2;
}

// ndsvc --stop: signals the process that holds the state directory's lock (and that its pid
// file names), and waits until it has ended.
int stopService(const std::string &stateDir)
{
    long holder = ndplat::service_lock_holder(stateDir);
    if (holder == 0) {
        printf("ndsvc: no service runs on %s\n", stateDir.c_str());
        return 0;
    }
    if (!ndplat::service_stop(stateDir)) {
        fprintf(stderr, "ndsvc: the service on %s could not be stopped\n", stateDir.c_str());
        return 1;
    }
    printf("ndsvc: stopped the service on %s (pid %ld)\n", stateDir.c_str(), holder);
    return 0;
}

// A positive number option; false on anything else.
bool positive(const char *text, unsigned long &value)
{
    char *end = nullptr;
    errno = 0;
    value = strtoul(text, &end, 10);
    return end && end != text && *end == '\0' && errno == 0 && value > 0 && value <= 0x7fffffffUL;
}

// The file made here, so that it is removed at the end only when it is still this one. A file
// made by someone else since may have the freed inode number again; its change time tells them
// apart.
struct OwnedFile {
    std::string path;
    ndplat::FileIdentity made;

    void remember(int fd) { made = ndplat::file_identity_of(fd); }
    void removeIfOurs() const
    {
        if (made.known && ndplat::file_identity_at(path) == made)
            unlink(path.c_str());
    }
};

// The state directory's lock, held until the end of the process's work.
struct HeldLock {
    int fd = -1;
    HeldLock() = default;
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;
    ~HeldLock()
    {
        if (fd >= 0)
            close(fd);
    }
};

// Removes, on every way out, the socket and pid file that this process made.
struct MadeFiles {
    ndplat::ServiceServer &server;
    OwnedFile &pidFile;
    MadeFiles(ndplat::ServiceServer &s, OwnedFile &p) : server(s), pidFile(p) {}
    MadeFiles(const MadeFiles &) = delete;
    MadeFiles &operator=(const MadeFiles &) = delete;
    ~MadeFiles()
    {
        gServer = nullptr;
        server.unlink_socket();
        pidFile.removeIfOurs();
    }
};

bool writeAll(int fd, const std::string &text)
{
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Takes the state directory's lock and writes this process's pid into it. -1 (with a line on
// stderr) when another process holds it.
int takeLock(const std::string &stateDir)
{
    std::string path = ndplat::service_lock_path(stateDir);
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
    if (fd < 0) {
        fprintf(stderr, "ndsvc: cannot open %s: %s\n", path.c_str(), strerror(errno));
        return -1;
    }
    fchmod(fd, kOwnerOnly);
    bool locked = false;
    for (int i = 0; i < kLockTries && !locked; ++i) {
        locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (!locked && errno != EWOULDBLOCK && errno != EINTR)
            break;
        if (!locked)
            std::this_thread::sleep_for(std::chrono::milliseconds(kLockTryMs));
    }
    if (!locked) {
        long holder = ndplat::service_lock_holder(stateDir);
        if (holder > 0)
            fprintf(stderr, "ndsvc: state directory %s is in use by ndsvc pid %ld\n", stateDir.c_str(), holder);
        else
            fprintf(stderr, "ndsvc: state directory %s is in use by another ndsvc\n", stateDir.c_str());
        close(fd);
        return -1;
    }
    std::string pid = std::to_string(static_cast<long>(getpid())) + "\n";
    if (ftruncate(fd, 0) != 0 || !writeAll(fd, pid))
        fprintf(stderr, "ndsvc: cannot write %s: %s\n", path.c_str(), strerror(errno));
    return fd;
}

// Writes the pid file anew (one left behind is replaced, never written through), owner-only.
bool writePidFile(OwnedFile &file)
{
    unlink(file.path.c_str());
    int fd = open(file.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
    if (fd < 0) {
        fprintf(stderr, "ndsvc: cannot write %s: %s\n", file.path.c_str(), strerror(errno));
        return false;
    }
    fchmod(fd, kOwnerOnly);
    bool good = writeAll(fd, std::to_string(static_cast<long>(getpid())) + "\n");
    file.remember(fd);
    close(fd);
    return good;
}

// What the command line asks for.
struct Options {
    std::string stateDir = ndplat::state_dir();
    std::string seed;
    std::string plugin;
    uint32_t delayMs = 0;
    unsigned long dieAfter = 0;
    size_t ceiling = ndsvc::kStaticUserBindCeiling;
    std::string lab;                                       // --lab: the lab whose switch this is
    size_t learnedCeiling = ndsvc::kLearnedBindingCeiling; // --learned-ceiling
    ndplat::ServiceLimits limits = ndplat::service_limits_from_env();
    bool stop = false;
};

// Reads the options into o. The exit status when the process ends here: after --help, or at
// an option it does not know or that lacks its value.
std::optional<int> parseOptions(int argc, char **argv, Options &o)
{
    const char *pluginEnv = getenv("NDSIM_PLUGIN");
    o.plugin = pluginEnv && *pluginEnv ? pluginEnv : ND_CLI_SO_PATH;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        unsigned long n = 0;
        if (arg == "--help" || arg == "-h") {
            fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--stop")
            o.stop = true;
        else if (arg == "--state" && hasValue)
            o.stateDir = argv[++i];
        else if (arg == "--seed" && hasValue)
            o.seed = argv[++i];
        else if (arg == "--plugin" && hasValue)
            o.plugin = argv[++i];
        else if (arg == "--config-delay-ms" && hasValue)
            o.delayMs = static_cast<uint32_t>(strtoul(argv[++i], nullptr, 10));
        else if (arg == "--die-after" && hasValue)
            o.dieAfter = strtoul(argv[++i], nullptr, 10);
        else if (arg == "--user-bind-ceiling" && hasValue)
            o.ceiling = strtoul(argv[++i], nullptr, 10);
        else if (arg == "--lab" && hasValue)
            o.lab = argv[++i];
        else if (arg == "--learned-ceiling" && hasValue && positive(argv[i + 1], n) && ++i)
            o.learnedCeiling = n;
        else if (arg == "--max-connections" && hasValue && positive(argv[i + 1], n) && ++i)
            o.limits.maxConnections = static_cast<uint32_t>(n);
        else if (arg == "--idle-timeout-ms" && hasValue && positive(argv[i + 1], n) && ++i)
            o.limits.idleMs = static_cast<uint32_t>(n);
        else {
            fprintf(stderr, "ndsvc: unknown option, or one without its value: %s\n", arg.c_str());
            return usage();
        }
    }
    return std::nullopt;
}

// The service's plug-in, test settings and seed; false (with a line) when the seed is bad.
bool configure(ndsvc::NdService &service, const Options &o)
{
    service.plugin_path_set(o.plugin);
    service.config_delay_set(o.delayMs);
    service.user_bind_ceiling_set(o.ceiling);
    if (o.seed.empty())
        return true;
    std::string why;
    if (service.seed_file(o.seed, &why))
        return true;
    fprintf(stderr, "ndsvc: seed %s: %s\n", o.seed.c_str(), why.c_str());
    return false;
}

// The switch of lab o.lab: this process enters the lab's switch namespace (before any thread
// starts, so that every thread is there) and snoops on its ports. Null, with a line, when it
// cannot.
std::unique_ptr<ndsvc::SnoopWire> joinLab(ndsvc::NdService &service, const Options &o)
{
    if (ndlab::Status named = ndlab::check_name(o.lab); !named) {
        fprintf(stderr, "ndsvc: --lab %s: %s\n", o.lab.c_str(), named.message().c_str());
        return nullptr;
    }
    std::string path = "/run/netns/" + ndlab::switch_namespace(o.lab);
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || setns(fd, CLONE_NEWNET) != 0) {
        fprintf(stderr, "ndsvc: cannot enter lab %s (%s): %s\n", o.lab.c_str(), path.c_str(), strerror(errno));
        if (fd >= 0)
            close(fd);
        return nullptr;
    }
    close(fd);
    auto wire = std::make_unique<ndsvc::SnoopWire>(o.learnedCeiling);
    std::string why;
    if (!wire->start(why)) {
        fprintf(stderr, "ndsvc: cannot snoop in lab %s: %s\n", o.lab.c_str(), why.c_str());
        return nullptr;
    }
    wire->read_sub_vlans_with(ndplat::sub_vlan_supers);
    service.wire_attach(wire.get());
    fprintf(stderr, "ndsvc: snooping on the ports of lab %s\n", o.lab.c_str());
    return wire;
}

// Listens on the state directory's socket and answers requests until a stop signal, with the
// pid file written first; the socket and the pid file are removed on every way out.
int serveUntilStopped(ndsvc::NdService &service, const Options &o)
{
    ndplat::ServiceServer server;
    server.limits_set(o.limits);
    OwnedFile pidFile;
    pidFile.path = ndplat::service_pid_path(o.stateDir);
    MadeFiles made{server, pidFile};
    // A stop asked for from here on ends the service, also one that arrives before it serves.
    gServer = &server;
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);
    // The pid file first: once the service accepts, it names this process.
    writePidFile(pidFile);
    if (!server.listen(ndplat::service_socket_path(o.stateDir)))
        return 1;

    std::atomic<unsigned long> requests{0};
    unsigned long dieAfter = o.dieAfter;
    server.serve([&service, &requests, dieAfter](const ndplat::CmfRequest &request, ndplat::ServiceConnection &) {
        if (dieAfter && ++requests >= dieAfter)
            _exit(3);
        return service.handle(request);
    });
    return 0;
}

int run(int argc, char **argv)
{
    // The platform's call trace is a test aid; a long-running service keeps none of it.
    ndplat::trace_record_set(false);
    Options o;
    if (std::optional<int> status = parseOptions(argc, argv, o))
        return *status;
    if (o.stop)
        return stopService(o.stateDir);
    if (!ndplat::service_state_dir_make(o.stateDir)) {
        fprintf(stderr, "ndsvc: cannot make state directory %s: %s\n", o.stateDir.c_str(), strerror(errno));
        return 1;
    }
    // Declared first, so that it is released last: until then the files are this process's.
    HeldLock lock;
    lock.fd = takeLock(o.stateDir);
    if (lock.fd < 0)
        return 1;
    setenv("NDSIM_STATE", o.stateDir.c_str(), 1);
    ndplat::dbm_state_dir_set(o.stateDir);

    ndsvc::NdService service;
    if (!configure(service, o))
        return 1;
    std::unique_ptr<ndsvc::SnoopWire> wire;
    if (!o.lab.empty() && !(wire = joinLab(service, o)))
        return 1;
    int status = serveUntilStopped(service, o);
    // The database connections kept for reuse are closed (their WAL checkpointed into the
    // files) while the lock is still held: whoever waits for the lock then finds the database
    // files complete and this process at its end.
    ndplat::dbm_close_idle();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    // Whatever escapes ends the process with a line and a status, never with an abort that
    // leaves the socket and the pid file behind.
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc &) {
        fprintf(stderr, "ndsvc: out of memory\n");
    } catch (const std::exception &e) {
        fprintf(stderr, "ndsvc: %s\n", e.what());
    }
    return 1;
}
