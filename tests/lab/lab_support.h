// What the lab's tests share: the built ndlab run as a child, a scratch directory that names the
// test's lab, a fixture that owns that lab (removed on every way out of the test), and looks at
// the kernel's side of a lab through iproute2 directly.
#ifndef LAB_SUPPORT_H
#define LAB_SUPPORT_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ndlab.h"

namespace labtest {

struct Outcome {
    int status = -1; // exit status, or 128 + signal
    std::string out, err;
};

struct RunOptions {
    std::vector<std::string> env; // NAME=VALUE added to the environment
    bool asNobody = false;        // run as user and group 65534, without supplementary groups
    bool inUserNamespace = false; // run as root of a new user namespace (every capability there, none outside)
};

// Runs argv[0] (a path) with its output captured and standard input from /dev/null.
Outcome run(const std::vector<std::string> &argv, const RunOptions &options = {});
// Runs the built ndlab with these arguments.
Outcome ndlab(const std::vector<std::string> &args, const RunOptions &options = {});
// Runs `ip ARGS` and answers its standard output; a failure of ip fails the test.
std::string ip(const std::vector<std::string> &args);

// What the machine lacks for the lab tests ("" when nothing): root and network namespaces.
std::string missing_prerequisites();

// A directory of its own under /tmp, unique per test and process, removed with what it holds.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    const std::string &path() const { return path_; }
    const std::string &name() const { return name_; } // the directory's own name

private:
    std::string name_, path_;
};

// The network namespaces whose names start with `prefix`, sorted.
std::vector<std::string> namespaces_starting(const std::string &prefix);
// Reads a file inside a namespace (/proc/sys/net shows that namespace's values).
std::string read_in(const std::string &netns, const std::string &path);
// The link-local address of `device` in `netns` (without its length), "" without one.
std::string link_local(const std::string &netns, const std::string &device);
// Waits (up to `seconds`) until `device` in `netns` has a link-local address and no tentative
// one: duplicate address detection is over. Whether that happened.
bool wait_addresses_settled(const std::string &netns, const std::string &device, double seconds = 5);
// Joins lines, each with its "\n".
std::string lines(const std::vector<std::string> &each);

// Counts the ICMPv6 neighbour solicitations for one target address that cross `device` of
// `netns`, in either direction, from the moment it is made: bare (on a bridge port such as a
// VXLAN device) and carried in VXLAN, UDP port 4789, with VNI `vni` (on the underlay). A packet
// socket bound to the device queues what it sees; seen() reads the queue without waiting, so
// that what a finished ping sent is all there.
class NsCounter {
public:
    NsCounter(const std::string &netns, const std::string &device, const std::string &target, uint32_t vni = 0);
    ~NsCounter();
    NsCounter(const NsCounter &) = delete;
    NsCounter &operator=(const NsCounter &) = delete;
    struct Seen {
        int bare = 0;
        int tunnelled = 0;
    };
    // What crossed since the last call (or since the counter was made). Fails the test when the
    // socket could not be opened.
    Seen seen();

private:
    int fd_ = -1;
    std::array<unsigned char, 16> target_{};
    uint32_t vni_ = 0;
};

// A test that owns a lab named after its scratch directory. The lab is removed when the test
// ends, however it ends; the test fails at once on a machine that cannot run labs.
class LabTest : public ::testing::Test {
protected:
    LabTest();
    void SetUp() override;
    const std::string &name() const { return scratch_.name(); }
    std::string sw() const { return ndlab::switch_namespace(name()); }
    std::string host(int port) const { return ndlab::host_namespace(name(), port); }
    // The namespaces of this test's lab and of nothing else.
    std::vector<std::string> lab_namespaces() const;
    // ping -6 -c1 -W2 from host `from`'s namespace through `ndlab exec`; its exit status.
    int ping_from(int from, const std::string &address);

    Scratch scratch_;
    ndlab::Lab lab_;
};

} // namespace labtest

#endif
