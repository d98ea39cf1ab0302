// ND on the wire. In the switch namespace of a lab (one Linux bridge "vlanV" per VLAN, ports
// "ge0-K"), the service reads the ND frames that enter each port, learns bindings first come
// first served from duplicate address detection, probes them when detection is on, answers the
// solicitations that fast response and the proxies answer, and keeps the kernel's snooping and
// answer tables and the routes to the hosts of local-proxy sub-VLANs current; the kernel
// forwards, routes and drops.
//
// A thread of its own reads the ports and keeps time; the service's requests only hand it
// the configuration and read its tables, under its lock, so that packet work never holds up
// the control channel.
#ifndef NDSVC_SNOOP_WIRE_H
#define NDSVC_SNOOP_WIRE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "answer_rules.h"
#include "snoop_bindings.h"
#include "snoop_rules.h"
#include "vxlan_host_table.h"
#include "wire_answers.h"

namespace ndsvc {

// What the operator configured for snooping, as the wire needs it.
struct SnoopConfig {
    bool enabled = false;          // global snooping
    std::set<uint16_t> vlans;      // VLANs with snooping
    std::set<std::string> trusted; // trusted ports, by device name
    bool nsLoose = false;
    bool attackLog = false;
    uint16_t retransmit = 0; // detection: probes before a binding is forgotten
    uint16_t interval = 0;   // and seconds between probes; 0: no detection
    struct Static {
        Address6 address{};
        Mac48 mac{};
        uint16_t vlan = 0;
        std::string port; // device name
        bool operator==(const Static &) const = default;
    };
    std::vector<Static> statics;
    bool operator==(const SnoopConfig &) const = default;
};

// The counters of `show nd snooping statistics`, in the order of its record.
enum SnoopStatistic {
    kLladdrInvalid,
    kDadPacketDeal,
    kNsPacketPass,
    kNsPacketDrop,
    kNaPacketPass,
    kNaPacketDrop,
    kRsPacketPass,
    kRsPacketDrop,
    kRaPacketPass,
    kRaPacketDrop,
    kRdPacketPass,
    kRdPacketDrop,
    kSendDtPktOk,
    kSendDtPktFail,
    kSnoopStatisticCount
};

class SnoopWire {
public:
    // A port of the lab's switch: "ge0-K" stands for gigabitethernet0/K.
    static std::string device_of(const std::string &portName);
    static std::string port_of(const std::string &device);

    explicit SnoopWire(size_t ceiling);
    ~SnoopWire();
    SnoopWire(const SnoopWire &) = delete;
    SnoopWire &operator=(const SnoopWire &) = delete;

    // Starts the thread in the calling thread's network namespace; false with the reason.
    bool start(std::string &error);
    void configure(const SnoopConfig &config);
    // What the operator configured for the answers; the sub-VLANs of the local-proxy super
    // VLANs come from `sub_vlans`, read again with the ports (the shells keep the membership).
    void configure_answers(const AnswerConfig &config);
    using SubVlanReader = std::function<std::map<uint16_t, uint16_t>()>;
    // Changes of the VXLAN suppression table: (instance, address), MAC, added or removed.
    struct SuppressionChange {
        NdAnswers::SuppressionKey key;
        Mac48 mac{};
        bool add = true;
    };
    void suppression_hosts(const std::vector<SuppressionChange> &changes);
    void read_sub_vlans_with(SubVlanReader reader);

    // The VXLAN local host table: the access ports (from `reader`, read again with the ports),
    // the instances' host settings, and the hosts heard on those ports.
    using AccessPortReader = std::function<std::map<uint32_t, VxlanAccessPort>()>;
    void read_access_ports_with(AccessPortReader reader);
    void configure_vxlan_hosts(const std::map<uint32_t, VxlanHostLimits> &limits);
    VxlanHostTable::Hosts vxlan_hosts() const;
    void forget_vxlan_hosts(uint32_t vxlan, const Address6 *address);
    void restore_vxlan_hosts(const VxlanHostTable::Hosts &hosts);

    // The learned (valid) bindings, and forgetting them (all VLANs for 0).
    std::vector<SnoopBindingEntry> learned() const;
    void clear_learned(uint16_t vlan);
    std::array<uint32_t, kSnoopStatisticCount> statistics();
    void clear_statistics();
    // `show nd fast-response statistics`, and its clear.
    std::array<uint32_t, kFastStatisticCount> fast_statistics();
    void clear_fast_statistics();

    // The prefixes that router advertisements on trusted ports announced, with what is left of
    // their lifetimes in seconds (0xffffffff: for ever); forgetting one (length 128 and more
    // ignored when `all`) or all.
    struct LearnedPrefix {
        Address6 prefix{};
        uint8_t length = 0;
        uint32_t valid = 0, preferred = 0;
    };
    std::vector<LearnedPrefix> prefixes() const;
    void clear_prefixes(const Address6 *prefix, uint8_t length);

private:
    struct Port {
        int index = 0;
        uint16_t vlan = 0; // of the bridge it is in; 0 for none
        int fd = -1;       // its packet socket
    };
    // A VLAN's bridge: the switch's interface in that VLAN.
    struct Bridge {
        int index = 0;
        Mac48 mac{};
        bool hasAddress = false;
        Address6 linkLocal{};
    };
    // A VXLAN device "vxN" in a VLAN's bridge: the tunnel of instance N.
    struct Tunnel {
        uint32_t vxlan = 0;
        std::string device;
        int index = 0;
        bool operator==(const Tunnel &) const = default;
    };
    class Switch;

    void run();
    void receive(const std::string &device, const Port &port);
    void snoopLocked(const std::string &device, uint16_t vlan, const packet::NdPacket &p, bool refused,
                     SnoopClock::time_point now);
    void tick(SnoopClock::time_point now);
    void refreshPorts();
    // Reads the ports again; what changed in their VLANs (or the VLANs' tunnels) changes the
    // kernel's tables.
    void refreshPortsLocked();
    void applyLocked();
    void forgetInstalledLocked();
    bool installTableLocked();
    void syncPortsLocked(const std::set<std::pair<std::string, bool>> &wantPorts);
    void syncBindingsLocked();
    bool snoopedLocked(const std::string &device) const;
    void sendProbeLocked(const SnoopBindingEntry &binding);
    AnswerWorld::Sent sendLocked(const std::string &device, const Mac48 &to, const uint8_t *frame, size_t length);
    AnswerWorld::Sent sendOn(int fd, int index, const Mac48 &to, const uint8_t *frame, size_t length);
    bool refusedLocked(const std::string &device, uint16_t vlan, const packet::NdPacket &p) const;
    void solicitedLocked(const packet::NdPacket &ns, const std::string &device, uint16_t vlan, bool refused,
                         SnoopClock::time_point now);
    void answersTickLocked(SnoopClock::time_point now);
    void applyAnswersLocked();
    void syncAnsweredLocked(const std::vector<SnoopBindingEntry> &bound);
    // The valid and static bindings: what the kernel lets through, and fast response answers for.
    std::vector<SnoopBindingEntry> boundLocked() const;
    void syncRoutesLocked();
    void attackLogLocked(const char *what, const std::string &device, const Mac48 &mac, const Address6 &address);
    void closePorts();

    mutable std::mutex mutex_;
    SnoopConfig config_;
    SnoopBindingTable table_;
    SnoopRules rules_;
    std::map<std::string, Port> ports_;
    std::map<uint16_t, Bridge> bridges_;
    std::map<uint16_t, Tunnel> tunnels_; // by VLAN
    int tunnelFd_ = -1;                  // sends into the tunnels; reads nothing
    VxlanHostTable vxlanHosts_;
    AccessPortReader accessPortReader_;
    bool suppressionChanged_ = false;
    NdAnswers answers_;
    AnswerConfig answerConfig_;                  // as configured, without the sub-VLANs
    std::map<uint16_t, uint16_t> subVlanSupers_; // as the shells keep them
    SubVlanReader subVlanReader_;
    void answerConfigLocked();
    AnswerRules answerRules_;
    bool answersInstalled_ = false;
    std::set<AnsweredTarget> installedAnswered_;
    std::set<std::string> installedAnyway_;
    std::set<std::string> installedDiscard_;
    std::map<Address6, int> installedRoutes_; // host routes: address, bridge index
    struct Announced {
        uint32_t valid = 0, preferred = 0; // as announced
        SnoopClock::time_point at{};       // when
    };
    std::map<std::pair<Address6, uint8_t>, Announced> prefixes_;
    void learnPrefixesLocked(const void *packet, SnoopClock::time_point now);
    // What the kernel's table holds now.
    bool installed_ = false;
    bool installedLoose_ = false;
    std::set<std::pair<std::string, bool>> installedPorts_;  // device, trusted
    std::map<std::string, SnoopBinding> installedBindings_;  // by their keys
    std::set<std::pair<std::string, Mac48>> installedHosts_; // their (port, MAC)
    std::array<uint64_t, kSnoopStatisticCount> own_{};       // what the service counts itself
    SnoopClock::time_point lastLog_{};
    uint32_t logsThisSecond_ = 0;

    int wake_ = -1;
    int linkEvents_ = -1; // the kernel's news of the devices
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace ndsvc

#endif
