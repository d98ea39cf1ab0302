// ndlab: builds, rewires, shows and removes a lab of real hosts around the emulated switch, in
// network namespaces (see README.md in this folder).
//
// Exit status: 0 done, 1 the work failed (the reason on standard error), 2 a usage error (a
// missing or malformed word; nothing was touched). `exec` answers the command's own status.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ndlab.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr const char *kUsage =
    "usage: ndlab create NAME --ports N\n"
    "       ndlab delete NAME\n"
    "       ndlab port NAME K vlan V\n"
    "       ndlab vlan-address NAME V add|del ADDR/LEN\n"
    "       ndlab show NAME\n"
    "       ndlab exec NAME sw|hK -- CMD [ARG...]\n"
    "       ndlab vxlan NAME-A NAME-B VNI V-A [V-B]\n"
    "       ndlab vxlan-del NAME-A NAME-B VNI\n"
    "       ndlab --help\n"
    "NAME: 1 to 24 of [A-Za-z0-9_-]; N, K: 1 to 64; V: 1 to 4094; VNI: 1 to 16777215.\n"
    "Needs root or CAP_SYS_ADMIN.\n";

void say(const std::string &line) { std::printf("ndlab: %s\n", line.c_str()); }

int fail(const std::string &reason)
{
    std::fflush(stdout);
    std::fprintf(stderr, "ndlab: %s\n", reason.c_str());
    return kExitFailure;
}

// A malformed word: named alone, without the whole usage.
int usage_error(const std::string &reason)
{
    std::fprintf(stderr, "ndlab: %s\n", reason.c_str());
    return kExitUsage;
}

int usage()
{
    std::fputs(kUsage, stderr);
    return kExitUsage;
}

std::optional<int> number(std::string_view text, int min, int max)
{
    if (text.empty() || text.size() > 9 || text[0] < '0' || text[0] > '9')
        return std::nullopt;
    int value = 0;
    auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (err != std::errc() || end != text.data() + text.size() || value < min || value > max)
        return std::nullopt;
    return value;
}

std::string range(long min, long max) { return "use " + std::to_string(min) + " to " + std::to_string(max); }

int create(const std::vector<std::string_view> &args)
{
    if (args.size() != 3 || args[1] != "--ports")
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    std::optional<int> ports = number(args[2], ndlab::kMinPorts, ndlab::kMaxPorts);
    if (!ports)
        return usage_error("bad number of ports '" + std::string(args[2]) + "': " + range(ndlab::kMinPorts, ndlab::kMaxPorts));
    if (ndlab::Status made = ndlab::create(args[0], *ports, say); !made)
        return fail(made.message());
    return 0;
}

int remove(const std::vector<std::string_view> &args)
{
    if (args.size() != 1)
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    ndlab::Result<int> removed = ndlab::remove(args[0], say);
    if (!removed)
        return fail(removed.message());
    if (removed.value() == 0)
        say("no lab " + std::string(args[0]) + ": nothing to delete");
    return 0;
}

int port(const std::vector<std::string_view> &args)
{
    if (args.size() != 4 || args[2] != "vlan")
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    std::optional<int> port = number(args[1], ndlab::kMinPorts, ndlab::kMaxPorts);
    if (!port)
        return usage_error("bad port number '" + std::string(args[1]) + "': " + range(ndlab::kMinPorts, ndlab::kMaxPorts));
    std::optional<int> vlan = number(args[3], ndlab::kMinVlan, ndlab::kMaxVlan);
    if (!vlan)
        return usage_error("bad VLAN '" + std::string(args[3]) + "': " + range(ndlab::kMinVlan, ndlab::kMaxVlan));
    if (ndlab::Status moved = ndlab::set_port_vlan(args[0], *port, *vlan, say); !moved)
        return fail(moved.message());
    return 0;
}

int vlan_address(const std::vector<std::string_view> &args)
{
    if (args.size() != 4 || (args[2] != "add" && args[2] != "del"))
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    std::optional<int> vlan = number(args[1], ndlab::kMinVlan, ndlab::kMaxVlan);
    if (!vlan)
        return usage_error("bad VLAN '" + std::string(args[1]) + "': " + range(ndlab::kMinVlan, ndlab::kMaxVlan));
    if (ndlab::Status valid = ndlab::check_address(args[3]); !valid)
        return usage_error(valid.message());
    ndlab::AddressChange change = args[2] == "add" ? ndlab::AddressChange::add : ndlab::AddressChange::del;
    if (ndlab::Status done = ndlab::vlan_address(args[0], *vlan, change, args[3], say); !done)
        return fail(done.message());
    return 0;
}

int show(const std::vector<std::string_view> &args)
{
    if (args.size() != 1)
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    ndlab::Result<ndlab::LabState> state = ndlab::inspect(args[0]);
    if (!state)
        return fail(state.message());
    std::fputs(ndlab::format(state.value()).c_str(), stdout);
    return 0;
}

// The two labs and the VNI that begin the words of vxlan and vxlan-del: a usage error, or none.
std::optional<int> check_join_words(const std::vector<std::string_view> &args, uint32_t &vni)
{
    for (size_t i = 0; i < 2; ++i) {
        if (ndlab::Status valid = ndlab::check_name(args[i]); !valid)
            return usage_error(valid.message());
    }
    if (args[0] == args[1])
        return usage_error("lab " + std::string(args[0]) + " named twice: name two different labs");
    std::optional<int> parsed = number(args[2], static_cast<int>(ndlab::kMinVni), static_cast<int>(ndlab::kMaxVni));
    if (!parsed)
        return usage_error("bad VNI '" + std::string(args[2]) + "': " + range(ndlab::kMinVni, ndlab::kMaxVni));
    vni = static_cast<uint32_t>(*parsed);
    return std::nullopt;
}

int vxlan(const std::vector<std::string_view> &args)
{
    if (args.size() != 4 && args.size() != 5)
        return usage();
    uint32_t vni = 0;
    if (std::optional<int> refused = check_join_words(args, vni))
        return *refused;
    std::optional<int> vlans[2];
    for (size_t i = 3; i < args.size(); ++i) {
        vlans[i - 3] = number(args[i], ndlab::kMinVlan, ndlab::kMaxVlan);
        if (!vlans[i - 3])
            return usage_error("bad VLAN '" + std::string(args[i]) + "': " + range(ndlab::kMinVlan, ndlab::kMaxVlan));
    }
    // One VLAN for both labs unless the second is given.
    if (ndlab::Status joined = ndlab::vxlan_join(args[0], args[1], vni, *vlans[0], vlans[1].value_or(*vlans[0]), say); !joined)
        return fail(joined.message());
    return 0;
}

int vxlan_del(const std::vector<std::string_view> &args)
{
    if (args.size() != 3)
        return usage();
    uint32_t vni = 0;
    if (std::optional<int> refused = check_join_words(args, vni))
        return *refused;
    if (ndlab::Status left = ndlab::vxlan_leave(args[0], args[1], vni, say); !left)
        return fail(left.message());
    return 0;
}

int exec(const std::vector<std::string_view> &args)
{
    if (args.size() < 4 || args[2] != "--")
        return usage();
    if (ndlab::Status valid = ndlab::check_name(args[0]); !valid)
        return usage_error(valid.message());
    if (ndlab::Result<std::string> netns = ndlab::namespace_of(args[0], args[1]); !netns)
        return usage_error(netns.message());
    std::vector<std::string> command(args.begin() + 3, args.end());
    std::fflush(stdout);
    ndlab::Result<int> status = ndlab::exec(args[0], args[1], command);
    if (!status)
        return fail(status.message());
    return status.value();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return usage();
    std::string_view command = argv[1];
    if (command == "--help" || command == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    std::vector<std::string_view> args(argv + 2, argv + argc);
    if (command == "create")
        return create(args);
    if (command == "delete")
        return remove(args);
    if (command == "port")
        return port(args);
    if (command == "vlan-address")
        return vlan_address(args);
    if (command == "show")
        return show(args);
    if (command == "exec")
        return exec(args);
    if (command == "vxlan")
        return vxlan(args);
    if (command == "vxlan-del")
        return vxlan_del(args);
    std::fprintf(stderr, "ndlab: unknown command '%s'\n", argv[1]);
    return usage();
}
