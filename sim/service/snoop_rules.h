// The kernel's half of ND snooping on a switch whose data plane is the Linux bridge: an
// nftables table of the bridge family, owned by the service, that drops what snooping refuses.
// The service keeps its sets current (the snooped and the trusted ports, the bindings) and reads
// its counters, one per decision: the statistics are then what the kernel actually did.
//
// Every frame is judged once, where it enters the bridge (the prerouting hook), so a flooded
// frame is counted once and a dropped one reaches no port and not the switch itself.
#ifndef NDSVC_SNOOP_RULES_H
#define NDSVC_SNOOP_RULES_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "nft_session.h"

namespace ndsvc {

// The decisions the table counts, named as the snooping statistics name them. A trusted port's
// messages all pass, counted as passed.
enum class SnoopCounter {
    raPacketPass,  // router advertisement from a trusted port
    raPacketDrop,  // router advertisement from an untrusted port
    rdPacketPass,  // redirect from a trusted port
    rdPacketDrop,  // redirect from an untrusted port
    rsPacketPass,  // router solicitation
    dadPacketDeal, // duplicate address detection NS (source ::), left to the service
    nsPacketPass,  // NS whose (port, MAC, source) is bound, from a trusted port, or any when loose
    nsPacketDrop,  // NS that matches no binding
    naPacketPass,  // NA whose (port, MAC, target) is bound, or from a trusted port
    naPacketDrop,  // NA that matches no binding
    lladdrInvalid, // NS or NA of a bound host whose link-layer option names another MAC
};
constexpr size_t kSnoopCounterCount = 11;
const char *snoop_counter_name(SnoopCounter counter);

struct SnoopBinding {
    std::string port;            // the bridge port's device name
    std::array<uint8_t, 6> mac;  // the host's Ethernet address
    std::array<uint8_t, 16> ip6; // its IPv6 address
};

// A bound host: its port and its MAC.
using SnoopHost = std::pair<std::string, std::array<uint8_t, 6>>;

class SnoopRules {
public:
    static constexpr const char *kTable = "ndsvc_snooping";

    SnoopRules();
    ~SnoopRules();
    SnoopRules(const SnoopRules &) = delete;
    SnoopRules &operator=(const SnoopRules &) = delete;

    // Each call is one nftables transaction in the network namespace of the calling thread
    // when this object was made; false with nftables' reason in `error` (nothing changed).

    // Makes the table afresh, with empty sets and zero counters; `nsCheckLoose` lets every NS
    // pass unchecked (still counted as passed).
    bool install(bool nsCheckLoose, std::string &error);
    // Removes the table: the bridge forwards ND untouched again. No table is no error.
    bool remove(std::string &error);
    // Ports (device names) whose ND is judged, and which of them are trusted.
    bool add_port(const std::string &port, bool trusted, std::string &error);
    bool delete_port(const std::string &port, std::string &error);
    bool add_binding(const SnoopBinding &binding, std::string &error);
    bool delete_binding(const SnoopBinding &binding, std::string &error);
    // Many at once, in one transaction.
    bool change_bindings(const std::vector<SnoopBinding> &added, const std::vector<SnoopBinding> &removed,
                         std::string &error);
    // The (port, MAC) pairs of the bindings: a bound host's link-layer option must name the
    // MAC it sends from.
    bool add_host(const std::string &port, const std::array<uint8_t, 6> &mac, std::string &error);
    bool delete_host(const std::string &port, const std::array<uint8_t, 6> &mac, std::string &error);
    bool change_hosts(const std::vector<SnoopHost> &added, const std::vector<SnoopHost> &removed, std::string &error);
    // Every counter's packets, and zeroing them.
    bool counters(std::map<SnoopCounter, uint64_t> &packets, std::string &error);
    bool reset_counters(std::string &error);

    // The commands of install(), for a reader and for tests.
    static std::string ruleset(bool nsCheckLoose);

private:
    NftSession nft_;
};

} // namespace ndsvc

#endif
