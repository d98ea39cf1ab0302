// Child processes of the lab library: a program run with an argv vector (never a shell), its
// output captured or its standard streams inherited, and small writes made from inside a network
// namespace. Every child is waited for; every descriptor is close-on-exec.
#ifndef NDLAB_PROCESS_H
#define NDLAB_PROCESS_H

#include <string>
#include <string_view>
#include <vector>

#include "ndlab.h"

namespace ndlab::detail {

// How a child ended: its exit status, or 128 + the signal that ended it.
struct Output {
    int status = 0;
    std::string out;
    std::string err;
};

// Runs program `argv[0]` (a path) with standard input from /dev/null and its standard output and
// error captured. An error only when it could not be run at all.
Result<Output> run_capture(const std::vector<std::string> &argv);

// Runs program `argv[0]` (a path) with this process's standard streams.
Result<int> run_inherit(const std::vector<std::string> &argv);

// Writes `value` to file `path` from inside network namespace `netns` (a name under
// /var/run/netns): what /proc/sys/net shows depends on the namespace of whoever opens it.
Status write_in_namespace(const std::string &netns, const std::string &path, std::string_view value);

} // namespace ndlab::detail

#endif
