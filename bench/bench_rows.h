// The benchmark's rows: the sizes they run at, the rows themselves and what every row
// measurement shares (sizes, runs, the rows chosen, notes), and the measurements, grouped by
// what they drive: the shell as a process (bench_ndsh.cpp) and the plug-in in process against
// the real service (bench_plugin_rows.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench_table.h"

namespace ndbench {

class RunDir;

struct Sizes {
    uint32_t dynamicBinds = 20480;
    uint32_t vxlanHosts = 100000;
    uint32_t injected = 1000000;
    uint32_t vlans = 4094;
    uint32_t staticBinds = 1000;
    uint32_t vxlans = 512;
    uint32_t dbmPairs = 1000; // open/close pairs timed per run, the run's figure is their mean
};

// Every size 100 times smaller (at least 1): a smoke run.
Sizes smallSizes();

// The rows in the order of the table.
enum RowId : size_t {
    kUserBind,
    kHosts,
    kInjectCommand,
    kInjectHeld,
    kRunningConfig,
    kDbm,
    kCommandFile,
    kStartup,
    kMemory,
};

// The names --only takes.
extern const std::vector<std::string> kRowKeys;

struct Bench {
    Bench(const Sizes &s, int r, std::vector<std::string> chosen);
    const Sizes sizes;
    const int runs;
    const std::vector<std::string> only; // the rows to measure; empty: all
    std::vector<Row> rows;
    std::vector<std::string> notes;

    Row &row(RowId id) { return rows[id]; }
    bool want(RowId id) const;
    std::vector<bool> shown() const;
};

// The paths of the shell and the service binaries.
struct Binaries {
    std::string ndsh;
    std::string ndsvc;
};

// ---- the shell as a process ----
// Configuration through `ndsh -f`, each run in a fresh state directory with its service
// running (once only when the row is not chosen: the other rows need the configured switch).
// The last configured state directory, empty when none was configured.
std::string measureCommandFile(Bench &bench, RunDir &runDir, const Binaries &bin);
// `ndsh -f file` in stateDir, its output into outPath; the wall time from the spawn to its end,
// or a negative value with the reason.
double runCommandFile(const Binaries &bin, const std::string &stateDir, const std::string &file,
                      const std::string &outPath, std::string &why);
// ND snooping on the wire, in a lab of two real hosts (root): how fast claims are learned and
// how long a host's duplicate address detection takes to become its listed binding; notes only.
void measureWire(Bench &bench, RunDir &runDir, const Binaries &bin);
// ndsh start to prompt in the configured state directory, the service running.
void measureStartup(Bench &bench, const Binaries &bin, const std::string &stateDir);

// ---- the plug-in in process ----
// Restarts the service of the configured state directory on a seed of learned bindings and
// VXLAN hosts, attaches the plug-in to it and measures, in this order, the listings and the
// service's memory, the running configuration, DBM open+close, the shell's start-up (while
// the plug-in stays attached) and the injection; with no configured switch, every one of
// those rows fails with the reason.
void measureOnSwitch(Bench &bench, RunDir &runDir, const Binaries &bin, const std::string &stateDir);

} // namespace ndbench
