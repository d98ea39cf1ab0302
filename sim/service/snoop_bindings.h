// The bindings that ND snooping learns from the wire, first come first served: an address
// belongs to the (port, MAC) whose duplicate address detection claimed it first and that
// nobody defended; another port cannot take it over while it is bound. Static bindings never
// age and cannot be claimed. Detection probes each learned binding and forgets the one whose
// host stopped answering. Time is given by the caller, so that the rules are tested without
// waiting.
#ifndef NDSVC_SNOOP_BINDINGS_H
#define NDSVC_SNOOP_BINDINGS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ndsvc {

using SnoopClock = std::chrono::steady_clock;
using Address6 = std::array<uint8_t, 16>;
using Mac48 = std::array<uint8_t, 6>;

struct SnoopBindingEntry {
    enum class State {
        Tentative, // its duplicate address detection runs
        Valid,     // learned: listed, and let through by the kernel's rules
        Static,    // configured by the operator
    };
    Address6 address{};
    Mac48 mac{};
    uint16_t vlan = 0;
    std::string port; // the bridge port's device
    State state = State::Tentative;
    SnoopClock::time_point since{};     // when it entered its state
    SnoopClock::time_point nextProbe{}; // Valid: when detection asks next
    uint32_t unanswered = 0;            // Valid: probes not answered in a row
};

class SnoopBindingTable {
public:
    // How long a claim waits for a defence: RetransTimer (1 s) times DupAddrDetectTransmits (1).
    static constexpr SnoopClock::duration kDadTime = std::chrono::seconds(1);
    // How long a host has to answer the last probe before its binding is forgotten.
    static constexpr SnoopClock::duration kAnswerTime = std::chrono::seconds(1);
    // A new binding is first probed after this; then every detection interval.
    static constexpr SnoopClock::duration kFirstProbeAfter = std::chrono::seconds(1);

    // At most `ceiling` bindings that are not static (tentative ones included).
    explicit SnoopBindingTable(size_t ceiling) : ceiling_(ceiling) {}

    enum class Claim {
        Tentative, // a new claim, now tentative
        Same,      // the address is already the claimant's (tentative or valid): nothing changes
        Owned,     // the address belongs to another port or MAC: the owner is left to defend it
        Full,      // the ceiling is reached
    };
    // A duplicate address detection NS for `address` from (port, mac) in `vlan`.
    Claim claim(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port,
                SnoopClock::time_point now);
    // An NA for `address` in `vlan` from (port, mac): a defence of a tentative claim by someone
    // else ends that claim (true); from the owner of a valid binding it answers detection.
    bool advertised(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port);
    // The tentative claims whose detection time has passed without a defence become valid;
    // answers them (for the kernel's sets and the listings).
    std::vector<SnoopBindingEntry> promote(SnoopClock::time_point now);

    // Detection every `interval`, forgetting a binding after `retransmit` unanswered probes
    // and the answer time: the valid bindings to probe now (their count of unanswered probes
    // goes up by one), and in `expired` those removed. A host gone right after answering is
    // forgotten within retransmit × interval plus the answer time.
    std::vector<SnoopBindingEntry> probes_due(SnoopClock::time_point now, SnoopClock::duration interval,
                                              uint32_t retransmit, std::vector<SnoopBindingEntry> &expired);

    // The operator's bindings: a static one replaces a learned one of the same address.
    // False when the address is statically bound elsewhere already.
    bool add_static(const Address6 &address, const Mac48 &mac, uint16_t vlan, const std::string &port);
    bool remove_static(const Address6 &address, uint16_t vlan);
    // Forgets learned bindings (all, or of one VLAN): answers those forgotten.
    std::vector<SnoopBindingEntry> clear_learned(uint16_t vlan = 0);

    const SnoopBindingEntry *find(const Address6 &address, uint16_t vlan) const;
    std::vector<SnoopBindingEntry> of_state(SnoopBindingEntry::State state) const;
    size_t learned_count() const { return learned_; }

private:
    using Key = std::pair<uint16_t, Address6>; // VLAN, address
    std::map<Key, SnoopBindingEntry> entries_;
    size_t ceiling_;
    size_t learned_ = 0; // entries that are not static
};

} // namespace ndsvc

#endif
