// The processes this benchmark starts and the scratch directory it works in: every service is
// stopped by its pid and the directory removed on every way out, a signal included, and the
// ndsh running at the time is killed and reaped.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ndbench {

// SIGINT, SIGTERM and SIGHUP end the benchmark with the clean-up above; SIGPIPE is ignored.
void installCleanupSignals();

// The run's directory /tmp/nd_bench.<pid>.XXXXXX and the services started in its state
// directories; at the end every service is stopped (by the pid that holds its lock) and the
// directory removed.
class RunDir {
public:
    RunDir();
    ~RunDir();
    RunDir(const RunDir &) = delete;
    RunDir &operator=(const RunDir &) = delete;
    bool ok() const { return !path_.empty(); }
    const std::string &path() const { return path_; }

    // A state directory of this run, made now.
    std::string stateDir(const std::string &name);
    // Starts the service of dir (with the extra arguments); false when it did not come up.
    bool startService(const std::string &dir, const std::vector<std::string> &args = {});
    void stopService(const std::string &dir);
    // Stops its service and removes a state directory that is no longer needed.
    void dropStateDir(const std::string &dir);
    // A lab of this run, which a signal deletes too (its owner deletes it otherwise).
    void trackLab(const std::string &name);

private:
    std::string path_;
    std::vector<std::string> stateDirs_;
};

// A child process (an ndsh) that a signal ends too; when the guard ends while the child still
// runs, it is killed and reaped.
class Child {
public:
    explicit Child(pid_t pid);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    pid_t pid() const { return pid_; }
    // Waits for the child, killing it after timeoutMs; its exit status (128+signal when
    // killed), -1 when it cannot be waited for.
    int reap(int timeoutMs);
    // True once the child has ended (it is then reaped).
    bool ended();

private:
    void forget();
    pid_t pid_;
};

// A field of /proc/<pid>/status (VmRSS, VmHWM) in KiB; -1 when it cannot be read.
long statusKiB(long pid, const char *field);
// The processor time that every thread of process pid now running has used, in ms (from the
// scheduler's nanosecond counts); -1 when unknown.
double threadsCpuMs(long pid);
// The processor time of this process so far, in ms.
double ownCpuMs();

} // namespace ndbench
