// ndlab: the emulated switch's lab of real hosts in Linux network namespaces.
//
// A lab NAME is a switch namespace "ndlab-NAME-sw" holding one Linux bridge per VLAN ("vlanV",
// made on demand), and N host namespaces "ndlab-NAME-hK" (K = 1..N), each joined to the switch
// by a veth pair: "ge0-K" in the switch (the emulated port gigabitethernet0/K, an access port of
// one VLAN's bridge) and "eth0" in the host. The kernel forwards; this library only builds,
// rewires and removes. Two labs' switches may be joined by the kernel's VXLAN device
// (vxlan_join). It drives iproute2 as a child process (never through a shell) and reports every
// failure as a value: nothing here throws. Any thread may call it: between fork
// and exec its children make only async-signal-safe calls, and it keeps no state of its own.
#ifndef NDLAB_H
#define NDLAB_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ndlab {

inline constexpr size_t kMaxNameLength = 24;
inline constexpr int kMinPorts = 1;
inline constexpr int kMaxPorts = 64;
inline constexpr int kMinVlan = 1;
inline constexpr int kMaxVlan = 4094;
inline constexpr int kDefaultVlan = 1;
inline constexpr uint32_t kMinVni = 1;
inline constexpr uint32_t kMaxVni = 16777215;
// The UDP port of VXLAN (IANA's), on which every VXLAN device of a lab sends and listens.
inline constexpr int kVxlanPort = 4789;

// What went wrong, in words fit for an operator (no "ndlab: " prefix).
struct Error {
    std::string message;
};

// Success, or an Error.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(Error error) : error_(std::move(error.message)), failed_(true) {}
    bool ok() const { return !failed_; }
    explicit operator bool() const { return ok(); }
    const std::string &message() const { return error_; }

private:
    std::string error_;
    bool failed_ = false;
};

// A value, or an Error.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : v_(std::move(value)) {}
    Result(Error error) : v_(std::move(error)) {}
    bool ok() const { return v_.index() == 0; }
    explicit operator bool() const { return ok(); }
    T &value() { return std::get<0>(v_); }
    const T &value() const { return std::get<0>(v_); }
    const std::string &message() const { return std::get<1>(v_).message; }
    Status status() const { return ok() ? Status() : Status(std::get<1>(v_)); }

private:
    std::variant<T, Error> v_;
};

// Told one line per thing made, moved or removed, e.g. "namespace ndlab-t1-sw" or
// "port ge0-1 <-> ndlab-t1-h1 eth0 in vlan1" (the command-line tool prefixes "ndlab: ").
using Progress = std::function<void(const std::string &line)>;

// Names. A lab name is 1..24 of [A-Za-z0-9_-]; check_name says why another is refused.
Status check_name(std::string_view name);
std::string switch_namespace(std::string_view name);         // ndlab-NAME-sw
std::string host_namespace(std::string_view name, int port); // ndlab-NAME-hK
std::string port_device(int port);                           // ge0-K
std::string bridge_device(int vlan);                         // vlanV
// The switch's MAC address, that of every VLAN bridge (so also their link-local addresses):
// locally administered, made from the lab's name, the same for the lab's whole life.
std::string switch_mac(std::string_view name);
inline constexpr const char *kHostDevice = "eth0";
// The switch's end of the underlay that joins it to another lab's switch (a veth pair whose
// ends have this name in both switches).
inline constexpr const char *kUnderlayDevice = "ul0";
std::string vxlan_device(uint32_t vni); // vxVNI

// The namespaces that belong to lab NAME (its switch and hosts, also what a crashed create left
// behind), sorted. Namespaces of another lab whose name merely starts with NAME- are not among
// them: only "ndlab-NAME-sw" and "ndlab-NAME-h<digits>" are.
Result<std::vector<std::string>> lab_namespaces(std::string_view name);

// Builds lab NAME with `ports` ports, every one in VLAN 1, after removing whatever of a lab of
// that name is left. On failure, removes what it made. Without the rights to make network
// namespaces the error is "cannot create network namespaces: <reason> (needs root or
// CAP_SYS_ADMIN)".
Status create(std::string_view name, int ports, const Progress &progress = {});

// Removes every namespace of lab NAME (their veths and bridges go with them). Answers how many
// there were: 0 when there was no such lab, which is no error.
Result<int> remove(std::string_view name, const Progress &progress = {});

// Moves port ge0-K to VLAN V's bridge, making the bridge when it is new.
Status set_port_vlan(std::string_view name, int port, int vlan, const Progress &progress = {});

// Whether `address` is an IPv6 "ADDR/LEN" (LEN 0..128); why not, when it is not.
Status check_address(std::string_view address);

// Adds or removes an IPv6 address ("ADDR/LEN") of VLAN V's bridge: the switch's own address on
// `interface vlan V`, added without duplicate address detection. Adding makes the bridge when
// it is new.
enum class AddressChange {
    add,
    del,
};
Status vlan_address(std::string_view name, int vlan, AddressChange change, std::string_view address,
                    const Progress &progress = {});

// What a lab is made of, as the kernel has it now.
struct PortState {
    int port = 0;     // K of ge0-K
    int vlan = 0;     // V of the bridge it is in; 0 when in none
    std::string host; // its host namespace; empty when that is missing
};
struct BridgeState {
    int vlan = 0;
    std::vector<int> ports;             // ascending
    std::vector<std::string> addresses; // IPv6 "ADDR/LEN", ascending by address
};
struct UnderlayState {
    std::string address; // its IPv4 "ADDR/LEN"; empty without one
    std::string peer;    // the switch namespace at its other end; empty when not known
};
struct VxlanState {
    std::string device; // vxVNI
    uint32_t vni = 0;
    int vlan = 0;       // V of the bridge it is in; 0 when in none
    std::string remote; // the underlay address it sends to; empty without one
    std::string peer;   // the switch namespace of the lab it joins; empty when that is gone
};
struct LabState {
    std::string name;
    std::vector<PortState> ports;          // ascending by port
    std::vector<BridgeState> bridges;      // ascending by VLAN
    std::optional<UnderlayState> underlay; // when the switch has one
    std::vector<VxlanState> vxlans;        // ascending by VNI
};
Result<LabState> inspect(std::string_view name);

// The text of `ndlab show` (see README.md), one line each:
//   lab NAME switch ndlab-NAME-sw ports N bridges M
//   port ge0-K vlan V host ndlab-NAME-hK        ("vlan -" outside any bridge, "host -" without one)
//   bridge vlanV ports ge0-1,ge0-3 addresses A/L B/L   ("ports -", "addresses -" when none)
//   underlay ul0 address 192.0.2.1/24 peer ndlab-B-sw   (when there is one; "-" for what is not known)
//   vxlan vx100 vni 100 bridge vlan10 remote 192.0.2.2 peer ndlab-B-sw   ("-" for what is missing)
std::string format(const LabState &state);

// Joins VLAN vlanA of lab A and VLAN vlanB of lab B into one layer-2 segment through the
// kernel's VXLAN device: a device vxVNI in each switch, in that VLAN's bridge (made when new),
// sending VNI `vni` over UDP 4789 to the other switch. The kernel encapsulates, floods and
// learns (each device's forwarding database learns the MACs behind the other end); nothing in
// user space forwards. The first VNI of a pair of labs also makes their underlay: a veth pair
// ul0 <-> ul0 between the two switches, IPv4 only, 192.0.2.1/24 in the lab whose name sorts
// first and 192.0.2.2/24 in the other. A lab is joined to one other lab at a time, and a VNI
// that either lab already has is refused, not joined again. On failure, removes what it made.
Status vxlan_join(std::string_view a, std::string_view b, uint32_t vni, int vlanA, int vlanB,
                  const Progress &progress = {});
// Removes the vxVNI devices that join labs A and B, and their underlay with the last of them.
// When one of the two labs no longer exists, the other's leftover device is still removed (a
// deleted lab takes its end of the underlay, and the other's, but not the other's devices);
// when neither exists, the error is the first one's "no lab".
Status vxlan_leave(std::string_view a, std::string_view b, uint32_t vni, const Progress &progress = {});
// Whether `vni` is a VXLAN network identifier (1..16777215); why not, when it is not.
Status check_vni(uint32_t vni);

// Where a command may run: "sw" (the switch) or "hK" (host K).
Result<std::string> namespace_of(std::string_view name, std::string_view where);

// Runs argv (argv[0] looked up in PATH) in that namespace of the lab with `ip netns exec`, with
// this process's standard input and output, and answers its exit status (128 + the signal when
// one ended it).
Result<int> exec(std::string_view name, std::string_view where, const std::vector<std::string> &argv);

// Sends `count` frames from host K's eth0 as that host would, as fast as its socket takes them:
// `make` writes frame `index` into buf (at most `capacity` bytes) and answers its length, 0 to
// send none. Answers how many were sent.
using FrameMaker = std::function<size_t(size_t index, uint8_t *buf, size_t capacity)>;
Result<size_t> send_frames(std::string_view name, int port, size_t count, const FrameMaker &make);

// The iproute2 program used: $NDLAB_IP when set, else /usr/sbin/ip, else "ip" found in PATH.
std::string ip_program();

// A lab owned by this object: removed when the object ends, also when a test fails halfway,
// unless released first.
class Lab {
public:
    // Builds lab NAME (see create) and owns it.
    static Result<Lab> create(std::string_view name, int ports, const Progress &progress = {});
    // Owns lab NAME, whether it exists yet or not (one made by another process, a leftover).
    static Result<Lab> adopt(std::string_view name);

    Lab(Lab &&other) noexcept : name_(std::exchange(other.name_, {})) {}
    Lab &operator=(Lab &&other) noexcept;
    Lab(const Lab &) = delete;
    Lab &operator=(const Lab &) = delete;
    ~Lab();

    const std::string &name() const { return name_; }
    Status set_port_vlan(int port, int vlan) const { return ndlab::set_port_vlan(name_, port, vlan); }
    Status vlan_address(int vlan, AddressChange change, std::string_view address) const
    {
        return ndlab::vlan_address(name_, vlan, change, address);
    }
    Result<LabState> inspect() const { return ndlab::inspect(name_); }
    // Removes the lab now; the object owns nothing after.
    Status remove();
    // Gives the lab up: it outlives the object. Answers its name.
    std::string release() { return std::exchange(name_, {}); }

private:
    explicit Lab(std::string name) : name_(std::move(name)) {}
    std::string name_;
};

} // namespace ndlab

#endif
