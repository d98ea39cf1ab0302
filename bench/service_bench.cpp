// The project's benchmark: every performance figure of the emulated switch, each measured
// several times, printed as one Markdown table (measure, goal, median, min..max, median/goal)
// after one line naming the machine.
//
// The plug-in is driven in process the way ndsh drives it (its command handlers, script
// handlers and the platform's socket transport) against a real ndsvc over the socket; the
// shell's rows run the real ndsh binary, on a pseudo-terminal for the start-up.
//
//   nd_bench_service [--runs N] [--small] [--only ROW,...] [--ndsh PATH] [--ndsvc PATH]
//
// --runs N   runs of every measure (default 5)
// --small    every size 100 times smaller (at least 1): a smoke run
// --only     measure these rows alone (user-bind, hosts, inject, running-config, dbm, ndsh-f,
//            startup, memory), e.g. under a profiler; the configuration through ndsh -f that
//            the other rows need still runs once
//
// The order of the work: the configuration rows through `ndsh -f` come first, each in a fresh
// state directory with a service started beforehand; the last of those directories (4,094
// snooping VLANs in "ec_nd" and in the shell's inventory) then serves everything else, with
// its service restarted on the seed of learned bindings and VXLAN hosts. Everything lives
// under one directory /tmp/nd_bench.<pid>.XXXXXX, removed on every way out, and every service
// started here is stopped by its pid, also when a signal ends the benchmark.
//
// The exit status is 0 when every row produced a number in every run, 1 otherwise, 2 on a
// usage error.
//
// The parts: bench_table (rows, figures, the table), bench_rows (sizes, the rows chosen),
// bench_control (services, the ndsh child, the scratch directory, signals), bench_ndsh (the
// shell's rows), bench_plugin and bench_plugin_rows (the plug-in's rows).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "bench_control.h"
#include "bench_rows.h"
#include "bench_table.h"
#include "ndplat.h"

namespace {

using namespace ndbench;

struct Options {
    int runs = 5;
    bool small = false;
    Binaries bin{ND_BENCH_NDSH, ND_BENCH_NDSVC};
    std::vector<std::string> only; // the rows to measure; empty: all
};

constexpr const char *kUsage =
    "usage: nd_bench_service [--runs N] [--small] [--only ROW,...] [--ndsh PATH] [--ndsvc PATH]\n"
    "rows: user-bind, hosts, inject, running-config, dbm, ndsh-f, startup, memory\n";

// The row names of an --only list; false on a name that is no row.
bool parseOnly(const char *list, std::vector<std::string> &only)
{
    std::stringstream in(list);
    for (std::string key; std::getline(in, key, ',');) {
        if (std::find(kRowKeys.begin(), kRowKeys.end(), key) == kRowKeys.end())
            return false;
        only.push_back(key);
    }
    return true;
}

bool parse(int argc, char **argv, Options &o)
{
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool hasValue = i + 1 < argc;
        if (a == "--small") {
            o.small = true;
        } else if (a == "--runs" && hasValue) {
            o.runs = atoi(argv[++i]);
            if (o.runs < 1)
                return false;
        } else if (a == "--ndsh" && hasValue) {
            o.bin.ndsh = argv[++i];
        } else if (a == "--ndsvc" && hasValue) {
            o.bin.ndsvc = argv[++i];
        } else if (a == "--only" && hasValue) {
            if (!parseOnly(argv[++i], o.only))
                return false;
        } else {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        fputs(kUsage, stderr);
        return 2;
    }
    Bench bench(options.small ? smallSizes() : Sizes{}, options.runs, options.only);
    // As in the shell: the platform's calls are not kept (the trace is a test aid).
    ndplat::trace_record_set(false);
    printMachineLine();

    RunDir runDir;
    if (!runDir.ok()) {
        fprintf(stderr, "cannot make the run's directory under /tmp\n");
        return 1;
    }
    installCleanupSignals();
    std::string mainDir = measureCommandFile(bench, runDir, options.bin);
    measureOnSwitch(bench, runDir, options.bin, mainDir);
    if (options.only.empty())
        measureWire(bench, runDir, options.bin);
    return printTable(bench.rows, bench.shown(), bench.notes) ? 0 : 1;
}
