// A switch between real hosts for the wire tests: a lab named after the test's scratch
// directory, a state directory, and ndsh --lab driving the ndsvc it starts. Everything is
// removed on every way out: the service stopped by its pid file, the lab deleted.
#ifndef WIRE_SUPPORT_H
#define WIRE_SUPPORT_H

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ndlab.h"

namespace wiretest {

class WireSwitch {
public:
    // A lab of `ports` hosts; extra words for every ndsvc started (e.g. a smaller ceiling).
    explicit WireSwitch(int ports, const std::string &serviceArgs = "");
    ~WireSwitch();
    WireSwitch(const WireSwitch &) = delete;
    WireSwitch &operator=(const WireSwitch &) = delete;

    bool ready() const { return lab_.has_value(); }
    const std::string &why() const { return why_; }
    const std::string &lab() const { return name_; }

    // ndsh -c with these commands (';'-separated); its standard output.
    std::string ndsh(const std::string &commands, int *status = nullptr) const;
    // A command in host K's namespace; its standard output.
    std::string host(int k, const std::vector<std::string> &argv, int *status = nullptr) const;
    // Host K's eth0 address, as the listings print MACs ("5604.cca8.ba49") and as Linux does.
    std::string dotted_mac(int k) const;
    std::string mac(int k) const;
    // Adds an address to host K's eth0: the kernel's own duplicate address detection runs.
    bool add_address(int k, const std::string &prefix) const;
    // Waits (up to 4 s) until host K's addresses have all passed their duplicate address
    // detection; whether they have.
    bool settled(int k) const;
    // Forged packets from host K (forge.py): their exit status.
    int forge(int k, const std::vector<std::string> &args) const;
    // A counter of `show nd snooping statistics` (or of another show command that prints
    // "name: value"); -1 when it is not shown.
    long counter(const std::string &name, const std::string &show = "show nd snooping statistics") const;
    long fast_counter(const std::string &name) const { return counter(name, "show nd fast-response statistics"); }
    // The service's log so far.
    std::string service_log() const;
    // Deletes host K's namespace: the host is gone.
    bool remove_host(int k) const;
    // Host K's neighbour entry for an address ("" when it has none): "ADDR dev eth0 lladdr ...".
    std::string neighbour(int k, const std::string &address) const;
    // Forgets host K's neighbour entries.
    void flush_neighbours(int k) const;
    // Sends `count` duplicate address detection NS for random addresses of 2001:db8:f::/64
    // from host K's eth0, as fast as its socket takes them; how many were sent.
    size_t flood_dad(int k, size_t count) const;

private:
    std::string name_, state_, why_, serviceArgs_;
    std::optional<ndlab::Lab> lab_;
};

// Counts the neighbor solicitations for one target that reach host K's eth0 while it lives
// (only those from one source address, when given).
class NsWatch {
public:
    NsWatch(const WireSwitch &sw, int k, const std::string &target, const std::string &from = "");
    // On any device of any namespace (a switch's VXLAN device, say).
    NsWatch(const std::string &netns, const std::string &device, const std::string &target,
            const std::string &from = "");
    ~NsWatch();
    NsWatch(const NsWatch &) = delete;
    NsWatch &operator=(const NsWatch &) = delete;
    bool ready() const { return ready_; }
    // Stops watching (after a short wait for what is still on its way); the count.
    int stop();
    // Of those counted, the ones sent to a multicast Ethernet address (after stop()).
    int multicast() const { return multicast_; }

private:
    std::string namespace_, device_ = ndlab::kHostDevice;
    std::array<uint8_t, 16> target_{}, from_{};
    bool anySource_ = true;
    std::atomic<bool> stop_{false}, ready_{false};
    std::atomic<int> seen_{0}, multicast_{0};
    std::thread thread_;
    void watch();
};

// Polls `done` every 100 ms until it holds or `limit` passes; whether it held.
bool within(std::chrono::milliseconds limit, const std::function<bool()> &done);

// One row of `show nd snooping user-bind` as the plug-in prints it.
std::string user_bind_row(const std::string &address, const std::string &dottedMac, int vlan, int port);

} // namespace wiretest

#endif
