// The switch's answers to neighbor solicitations on the wire: fast response (an NS for a host
// the switch has bound is answered on the host's behalf, with the host's MAC, and not flooded),
// VXLAN suppression (likewise for a remote host of the suppression table, kept out of the tunnel),
// ND proxy on a VLAN interface (an NS for an address the switch routes elsewhere is answered
// with the switch's MAC; "anyway" also on the asker's own segment), local proxy between the
// sub-VLANs of a super VLAN, and the proxy address ranges of the other ND modules. It decides,
// builds and counts; the switch's devices, routes and bindings are asked through AnswerWorld,
// so that the rules are tested without a lab.
#ifndef NDSVC_WIRE_ANSWERS_H
#define NDSVC_WIRE_ANSWERS_H

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "nd_packet.h"
#include "snoop_bindings.h"

namespace ndsvc {

// The counters of `show nd fast-response statistics`, in the order of their record.
enum FastStatistic {
    kRxNdCount,        // ND messages read from the ports
    kRxNdDrop,         // of them, not taken: malformed, or an NS that snooping drops
    kRxNsCount,        // neighbor solicitations that parsed
    kRxNsDecFail,      // neighbor solicitations that did not
    kRxNsBadDad,       // duplicate address detection NS that break its rules
    kRxNdOptError,     // ND messages with a malformed option
    kRxTargetMcast,    // NS or NA for a multicast target
    kRxNsNoNapr,       // NS that nobody answers for: left to the target (forwarded to it by unicast forward)
    kRxNsNeedNa,       // NS that the switch answers
    kRxNaprLocal,      // of them, by fast response
    kRxNaprProxyIf,    // by the proxy of the asker's VLAN interface
    kRxNaprProxyLoc,   // by the local proxy of the asker's super VLAN
    kRxNaprProxyAddr,  // by a proxy address range
    kRxNaprFillFail,   // answers that could not be made
    kRxNaprDelay,      // answers sent after a delay
    kTxNaCount,        // advertisements sent
    kTxNaFail,         // advertisements the port did not take
    kTxGetSrcAddrFail, // no source address for a proxy's advertisement
    kTxGetLinkHdrFail, // no Ethernet header: the port or the switch's MAC is unknown
    kTxNewBufFail,     // no buffer for the frame
    kFastStatisticCount
};

struct AnswerConfig {
    bool fastResponse = true;
    std::set<uint16_t> proxyVlans;          // VLAN interfaces with `nd proxy enable`
    std::set<uint16_t> anywayVlans;         // with `ipv6 nd proxy anyway enable`
    std::set<uint16_t> localProxy;          // super VLANs with `nd local-proxy enable`
    std::map<uint16_t, uint16_t> subVlanOf; // sub-VLAN -> its super VLAN, where that has local proxy
    struct Range {
        Address6 begin{}, end{};
        bool operator==(const Range &) const = default;
    };
    std::vector<Range> proxyRanges; // published by the other ND modules
    // VXLAN instances with ND suppression: whether a solicitation for a host that the
    // suppression table does not hold is kept out of the tunnel (`missmatch discard`), and
    // whether one for a host it holds goes to that host alone rather than being answered
    // (`unicast forward`).
    struct Suppression {
        bool missDiscard = false;
        bool unicastForward = false;
        bool operator==(const Suppression &) const = default;
    };
    std::map<uint32_t, Suppression> suppression;
    bool operator==(const AnswerConfig &) const = default;
};

// What answering needs of the switch.
class AnswerWorld {
public:
    enum class Sent {
        Ok,
        NoPort, // the port is not there (any more)
        Failed, // the port did not take the frame
    };
    virtual ~AnswerWorld() = default;
    // The valid or static binding of an address in a VLAN; null when none.
    virtual const SnoopBindingEntry *binding(const Address6 &address, uint16_t vlan) const = 0;
    // The VXLAN instance whose tunnel joins a VLAN's bridge; 0 for none.
    virtual uint32_t vxlan_of(uint16_t vlan) const = 0;
    // Whether the switch routes the address, and through which VLAN's interface (0: another
    // device, or the switch's own address).
    virtual bool routed(const Address6 &address, uint16_t &vlan) const = 0;
    // The MAC and the link-local address of a VLAN's interface; false when it has none.
    virtual bool interface_mac(uint16_t vlan, Mac48 &mac) const = 0;
    virtual bool interface_address(uint16_t vlan, Address6 &address) const = 0;
    // Room for one frame; null when there is none.
    virtual uint8_t *frame_buffer(size_t &capacity) = 0;
    virtual Sent send(const std::string &device, const uint8_t *frame, size_t length) = 0;
    // Sends a frame into the VXLAN tunnel of a VLAN's bridge (vxlan_of), for the kernel's
    // VXLAN device to carry to the remote switch that its forwarding database names.
    virtual Sent into_tunnel(uint16_t vlan, const uint8_t *frame, size_t length) = 0;
    // Asks for an address on every port of a VLAN with the switch's own NS: the host that has
    // it answers, and so is heard there.
    virtual void solicit(const Address6 &target, uint16_t vlan) = 0;
};

class NdAnswers {
public:
    // A proxy address range's answer waits up to this (a random part of it), as an anycast
    // answer does, so that a host that holds the address itself answers first.
    static constexpr SnoopClock::duration kMaxRangeDelay = std::chrono::milliseconds(500);
    // Hosts of the sub-VLANs are remembered this long after they were last heard.
    static constexpr SnoopClock::duration kHostMemory = std::chrono::minutes(10);
    // A host not heard yet is sought in the other sub-VLANs at most this often.
    static constexpr SnoopClock::duration kSeekEvery = std::chrono::seconds(1);
    // Bounds against a flood: hosts remembered, and answers waiting (one more is not made).
    static constexpr size_t kHeardCeiling = 4096;
    static constexpr size_t kDelayedCeiling = 1024;

    void configure(const AnswerConfig &config) { config_ = config; }
    const AnswerConfig &config() const { return config_; }

    // Every frame read from a port, with what the parser made of it.
    void received(packet::ParseResult result, const packet::NdPacket &packet);
    // A parsed NS entering `device` of `vlan`; `refused` when snooping drops it in the kernel.
    void solicited(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, bool refused,
                   SnoopClock::time_point now, AnswerWorld &world);
    // A host heard in a VLAN (an ND message's source, or the target of its own detection).
    void heard(const Address6 &address, uint16_t vlan, SnoopClock::time_point now);
    // Sends the delayed answers that are due, and forgets hosts not heard for long.
    void tick(SnoopClock::time_point now, AnswerWorld &world);

    // The remote hosts of the VXLAN suppression table (instance, address): their MACs.
    using SuppressionKey = std::pair<uint32_t, Address6>;
    void suppression_host(const SuppressionKey &key, const Mac48 &mac, bool add);
    const std::map<SuppressionKey, Mac48> &suppression_hosts() const { return suppression_; }

    // The hosts of sub-VLANs with local proxy: the switch routes to each through its VLAN.
    std::map<Address6, uint16_t> local_hosts() const;
    // Whether the switch answers an NS for a bound host of `vlan` (fast response).
    bool answers_bound() const { return config_.fastResponse; }

    std::array<uint32_t, kFastStatisticCount> statistics() const { return counters_; }
    void clear_statistics() { counters_.fill(0); }

private:
    struct Answer {
        FastStatistic by;
        std::string device;
        uint16_t vlan = 0;
        Mac48 mac{};          // the MAC the target is reached at
        bool onBehalf = true; // sent from the target's own address and MAC, not the switch's
        packet::Mac askerMac{};
        Address6 asker{}, target{};
        SnoopClock::time_point due{};
    };
    bool decide(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, AnswerWorld &world,
                Answer &answer) const;
    bool proxied(const packet::NdPacket &ns, uint16_t vlan, AnswerWorld &world, FastStatistic &by) const;
    bool forwarded(const packet::NdPacket &ns, uint16_t vlan, AnswerWorld &world);
    void send(const Answer &answer, AnswerWorld &world);
    void seek(const Address6 &target, uint16_t vlan, SnoopClock::time_point now, AnswerWorld &world);
    void count(FastStatistic statistic) { ++counters_[statistic]; }

    AnswerConfig config_;
    std::array<uint32_t, kFastStatisticCount> counters_{};
    struct Heard {
        uint16_t vlan = 0;
        SnoopClock::time_point at{};
    };
    std::map<Address6, Heard> heard_;
    std::vector<Answer> delayed_;
    std::map<Address6, SnoopClock::time_point> sought_;
    std::map<SuppressionKey, Mac48> suppression_;
    uint32_t random_ = 0x2545f491;
};

} // namespace ndsvc

#endif
