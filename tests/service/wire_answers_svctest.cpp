// The switch's answers to neighbor solicitations, decided and built without a lab: a switch of
// the test's making stands for the kernel's routes and devices and records what is sent. Every
// fast-response counter moves here; each answer is parsed back and checked field by field.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "wire_answers.h"

namespace {

using ndsvc::Address6;
using ndsvc::AnswerConfig;
using ndsvc::AnswerWorld;
using ndsvc::Mac48;
using ndsvc::NdAnswers;
using ndsvc::SnoopBindingEntry;
using namespace ndsvc::packet;
using std::chrono::milliseconds;

Address6 addr(uint16_t net, uint8_t last)
{
    return Address6{0x20, 0x01, 0x0d, 0xb8, static_cast<uint8_t>(net >> 8), static_cast<uint8_t>(net), 0, 0,
                    0,    0,    0,    0,    0,                              0,                           0, last};
}

Address6 linkLocal(uint8_t last)
{
    return Address6{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

Mac48 mac(uint8_t last)
{
    return Mac48{0x02, 0, 0, 0, 0, last};
}

const Mac48 kSwitchMac = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0x01};
const ndsvc::SnoopClock::time_point t0{};

struct SentFrame {
    std::string device;
    std::vector<uint8_t> bytes;
};

// A switch with VLAN interfaces 10 and 20 (and 30 without an address), routes given by the test.
class TestSwitch : public AnswerWorld {
public:
    std::map<std::pair<Address6, uint16_t>, SnoopBindingEntry> bindings;
    std::map<Address6, uint16_t> routes; // address -> VLAN of the route (0: another device)
    bool haveBuffer = true;
    Sent sendResult = Sent::Ok;
    std::vector<SentFrame> sent;

    void bind(const Address6 &a, const Mac48 &m, uint16_t vlan, const std::string &port)
    {
        SnoopBindingEntry e;
        e.address = a;
        e.mac = m;
        e.vlan = vlan;
        e.port = port;
        e.state = SnoopBindingEntry::State::Valid;
        bindings[{a, vlan}] = e;
    }
    const SnoopBindingEntry *binding(const Address6 &a, uint16_t vlan) const override
    {
        auto it = bindings.find({a, vlan});
        return it == bindings.end() ? nullptr : &it->second;
    }
    // VLAN 50's bridge holds the tunnel of VXLAN instance 5000.
    uint32_t vxlan_of(uint16_t vlan) const override { return vlan == 50 ? 5000 : 0; }
    bool routed(const Address6 &a, uint16_t &vlan) const override
    {
        auto it = routes.find(a);
        if (it == routes.end())
            return false;
        vlan = it->second;
        return true;
    }
    bool interface_mac(uint16_t vlan, Mac48 &m) const override
    {
        if (vlan != 10 && vlan != 20 && vlan != 30)
            return false;
        m = kSwitchMac;
        return true;
    }
    bool interface_address(uint16_t vlan, Address6 &a) const override
    {
        if (vlan != 10 && vlan != 20)
            return false;
        a = linkLocal(static_cast<uint8_t>(vlan));
        return true;
    }
    uint8_t *frame_buffer(size_t &capacity) override
    {
        capacity = sizeof buffer_;
        return haveBuffer ? buffer_ : nullptr;
    }
    std::vector<std::pair<Address6, uint16_t>> sought;
    void solicit(const Address6 &target, uint16_t vlan) override { sought.push_back({target, vlan}); }
    Sent send(const std::string &device, const uint8_t *frame, size_t length) override
    {
        if (sendResult == Sent::Ok)
            sent.push_back({device, std::vector<uint8_t>(frame, frame + length)});
        return sendResult;
    }
    std::vector<std::pair<uint16_t, std::vector<uint8_t>>> tunneled; // VLAN, frame
    Sent into_tunnel(uint16_t vlan, const uint8_t *frame, size_t length) override
    {
        tunneled.push_back({vlan, std::vector<uint8_t>(frame, frame + length)});
        return Sent::Ok;
    }

private:
    uint8_t buffer_[kMaxBuiltFrame];
};

// A multicast NS from `asker` (MAC mac(ask)) for `target`, parsed as the wire parses it.
NdPacket solicitation(const Address6 &asker, uint8_t ask, const Address6 &target)
{
    FrameAddress a;
    a.eth_src = mac(ask);
    a.src = asker;
    a.dst = solicited_node(target);
    a.eth_dst = multicast_mac(a.dst);
    Mac48 lladdr = mac(ask);
    uint8_t frame[kMaxBuiltFrame];
    size_t length = build_ns(a, target, is_unspecified(asker) ? nullptr : &lladdr, frame, sizeof frame);
    NdPacket p;
    EXPECT_EQ(parse(frame, length, p), ParseResult::Ok);
    return p;
}

std::array<uint32_t, ndsvc::kFastStatisticCount> only(std::map<ndsvc::FastStatistic, uint32_t> values)
{
    std::array<uint32_t, ndsvc::kFastStatisticCount> all{};
    for (const auto &[s, v] : values)
        all[s] = v;
    return all;
}

// The one frame sent, parsed: an NA.
NdPacket sentAdvertisement(const TestSwitch &sw, const std::string &device)
{
    NdPacket na;
    EXPECT_EQ(sw.sent.size(), 1u);
    if (sw.sent.empty())
        return na;
    EXPECT_EQ(sw.sent[0].device, device);
    EXPECT_EQ(parse(sw.sent[0].bytes.data(), sw.sent[0].bytes.size(), na), ParseResult::Ok);
    EXPECT_EQ(na.type, NdType::NeighborAdvertisement);
    return na;
}

TEST(WireAnswers, FastResponseAnswersForABoundHostWithItsOwnAddressAndMac)
{
    TestSwitch sw;
    sw.bind(addr(1, 3), mac(3), 10, "ge0-3");
    NdAnswers answers;
    NdPacket ns = solicitation(addr(1, 1), 1, addr(1, 3));
    answers.received(ParseResult::Ok, ns);
    answers.solicited(ns, "ge0-1", 10, false, t0, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-1");
    EXPECT_EQ(na.eth_src, mac(3));
    EXPECT_EQ(na.eth_dst, mac(1));
    EXPECT_EQ(na.src, addr(1, 3));
    EXPECT_EQ(na.dst, addr(1, 1));
    EXPECT_EQ(na.target, addr(1, 3));
    EXPECT_FALSE(na.router);
    EXPECT_TRUE(na.solicited);
    EXPECT_TRUE(na.override_flag);
    ASSERT_TRUE(na.has_target_lladdr);
    EXPECT_EQ(na.target_lladdr, mac(3));
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNdCount, 1},
                                          {ndsvc::kRxNsCount, 1},
                                          {ndsvc::kRxNsNeedNa, 1},
                                          {ndsvc::kRxNaprLocal, 1},
                                          {ndsvc::kTxNaCount, 1}}));
}

TEST(WireAnswers, FastResponseOffOrAnUnknownTargetOrTheTargetsOwnPortLeavesTheNsToTheTarget)
{
    TestSwitch sw;
    sw.bind(addr(1, 3), mac(3), 10, "ge0-3");
    NdAnswers answers;
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 4)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 20, false, t0, sw); // other VLAN
    answers.solicited(solicitation(addr(1, 5), 5, addr(1, 3)), "ge0-3", 10, false, t0, sw); // its own port
    AnswerConfig off;
    off.fastResponse = false;
    answers.configure(off);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNsNoNapr, 4}}));
}

TEST(WireAnswers, VxlanSuppressionAnswersForARemoteHostOfItsTable)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.fastResponse = false;
    answers.configure(c);
    answers.suppression_host({5000, addr(9, 1)}, mac(91), true);
    answers.suppression_host({5000, addr(9, 2)}, mac(92), true);
    answers.suppression_host({5000, addr(9, 2)}, mac(92), false);
    answers.suppression_host({6000, addr(9, 3)}, mac(93), true);
    // Not while the instance does not suppress.
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 50, false, t0, sw);
    c.suppression[5000] = AnswerConfig::Suppression{};
    answers.configure(c);
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 2)), "ge0-5", 50, false, t0, sw); // removed
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 3)), "ge0-5", 50, false, t0, sw); // another instance
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 10, false, t0, sw); // VLAN without it
    EXPECT_TRUE(sw.sent.empty());
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 50, false, t0, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-5");
    EXPECT_EQ(na.eth_src, mac(91));
    EXPECT_EQ(na.src, addr(9, 1));
    EXPECT_EQ(na.target_lladdr, mac(91));
    EXPECT_TRUE(na.override_flag);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprLocal], 1u);
    EXPECT_EQ(answers.suppression_hosts().size(), 2u);
}

TEST(WireAnswers, UnicastForwardSendsTheSolicitationToTheRemoteHostAloneThroughTheTunnel)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.fastResponse = false;
    c.suppression[5000] = AnswerConfig::Suppression{false, true};
    answers.configure(c);
    answers.suppression_host({5000, addr(9, 1)}, mac(91), true);
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 50, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty()) << "answered instead of forwarded";
    ASSERT_EQ(sw.tunneled.size(), 1u);
    EXPECT_EQ(sw.tunneled[0].first, 50);
    NdPacket ns;
    ASSERT_EQ(parse(sw.tunneled[0].second.data(), sw.tunneled[0].second.size(), ns), ParseResult::Ok);
    EXPECT_EQ(ns.type, NdType::NeighborSolicitation);
    EXPECT_EQ(ns.eth_dst, mac(91));
    EXPECT_EQ(ns.eth_src, mac(5));
    EXPECT_EQ(ns.src, addr(9, 5));
    EXPECT_EQ(ns.dst, solicited_node(addr(9, 1)));
    EXPECT_EQ(ns.target, addr(9, 1));
    EXPECT_TRUE(ns.has_source_lladdr);
    EXPECT_EQ(ns.source_lladdr, mac(5));
    // Not for a host the table lacks, for a detection, nor from a VLAN without the tunnel.
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 7)), "ge0-5", 50, false, t0, sw);
    answers.solicited(solicitation(Address6{}, 5, addr(9, 1)), "ge0-5", 50, false, t0, sw);
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 10, false, t0, sw);
    EXPECT_EQ(sw.tunneled.size(), 1u);
    EXPECT_TRUE(sw.sent.empty());
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNsNoNapr, 4}}));
    // Without unicast forward the switch answers for the host again.
    c.suppression[5000].unicastForward = false;
    answers.configure(c);
    answers.solicited(solicitation(addr(9, 5), 5, addr(9, 1)), "ge0-5", 50, false, t0, sw);
    EXPECT_EQ(sw.tunneled.size(), 1u);
    EXPECT_EQ(sentAdvertisement(sw, "ge0-5").eth_src, mac(91));
}

TEST(WireAnswers, DetectionUnicastAndRefusedSolicitationsAreNotAnswered)
{
    TestSwitch sw;
    sw.bind(addr(1, 3), mac(3), 10, "ge0-3");
    NdAnswers answers;
    answers.solicited(solicitation(Address6{}, 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    NdPacket unicast = solicitation(addr(1, 1), 1, addr(1, 3));
    unicast.dst = addr(1, 3);
    answers.solicited(unicast, "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, true, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNsNoNapr, 2}, {ndsvc::kRxNdDrop, 1}}));
}

TEST(WireAnswers, MalformedMessagesAreCountedByReason)
{
    NdAnswers answers;
    NdPacket ns;
    ns.type = NdType::NeighborSolicitation;
    NdPacket na;
    na.type = NdType::NeighborAdvertisement;
    answers.received(ParseResult::BadChecksum, ns);
    answers.received(ParseResult::DadNotToSolicitedNode, ns);
    answers.received(ParseResult::UnspecifiedWithLinkLayer, ns);
    answers.received(ParseResult::ZeroLengthOption, ns);
    answers.received(ParseResult::MulticastTarget, ns);
    answers.received(ParseResult::MulticastTarget, na);
    answers.received(ParseResult::OptionOverrun, na);
    // Not ND at all: not counted.
    answers.received(ParseResult::NotIpv6, ns);
    answers.received(ParseResult::NotNd, ns);
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNdCount, 7},
                                          {ndsvc::kRxNdDrop, 7},
                                          {ndsvc::kRxNsDecFail, 5},
                                          {ndsvc::kRxNsBadDad, 2},
                                          {ndsvc::kRxNdOptError, 2},
                                          {ndsvc::kRxTargetMcast, 2}}));
}

TEST(WireAnswers, ProxyOnAnInterfaceAnswersForAnAddressRoutedThroughAnotherInterface)
{
    TestSwitch sw;
    sw.routes[addr(2, 20)] = 20;
    sw.routes[addr(1, 30)] = 10;
    NdAnswers answers;
    AnswerConfig c;
    c.proxyVlans = {10};
    answers.configure(c);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 30)), "ge0-1", 10, false, t0, sw); // same segment
    answers.solicited(solicitation(addr(1, 1), 1, addr(3, 9)), "ge0-1", 10, false, t0, sw);  // no route
    answers.solicited(solicitation(addr(2, 2), 2, addr(1, 1)), "ge0-2", 20, false, t0, sw);  // VLAN 20 has none
    EXPECT_TRUE(sw.sent.empty());
    answers.solicited(solicitation(addr(1, 1), 1, addr(2, 20)), "ge0-1", 10, false, t0, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-1");
    EXPECT_EQ(na.eth_src, kSwitchMac);
    EXPECT_EQ(na.eth_dst, mac(1));
    EXPECT_EQ(na.src, linkLocal(10));
    EXPECT_EQ(na.dst, addr(1, 1));
    EXPECT_EQ(na.target, addr(2, 20));
    EXPECT_TRUE(na.router);
    EXPECT_TRUE(na.solicited);
    EXPECT_FALSE(na.override_flag);
    EXPECT_EQ(na.target_lladdr, kSwitchMac);
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNsNoNapr, 3},
                                          {ndsvc::kRxNsNeedNa, 1},
                                          {ndsvc::kRxNaprProxyIf, 1},
                                          {ndsvc::kTxNaCount, 1}}));
}

TEST(WireAnswers, ProxyAnywayAnswersOnTheSameSegmentButNotForLinkLocalOrTheAskersOwnAddress)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.anywayVlans = {10};
    answers.configure(c);
    answers.solicited(solicitation(addr(1, 1), 1, linkLocal(7)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 1)), "ge0-1", 10, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-1");
    EXPECT_EQ(na.target, addr(1, 2));
    EXPECT_EQ(na.target_lladdr, kSwitchMac);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprProxyIf], 1u);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNsNoNapr], 2u);
}

TEST(WireAnswers, LocalProxyJoinsHostsHeardInSubVlansOfOneSuperVlan)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.localProxy = {100};
    c.subVlanOf = {{10, 100}, {20, 100}, {30, 300}};
    answers.configure(c);
    // Host 2 is heard through its own detection in VLAN 20, host 3 in VLAN 30 (another super VLAN).
    answers.solicited(solicitation(Address6{}, 2, addr(1, 2)), "ge0-2", 20, false, t0, sw);
    answers.solicited(solicitation(Address6{}, 3, addr(1, 3)), "ge0-3", 30, false, t0, sw);
    answers.heard(addr(1, 4), 10, t0); // in the asker's own sub-VLAN
    EXPECT_EQ(answers.local_hosts(), (std::map<Address6, uint16_t>{{addr(1, 2), 20}, {addr(1, 3), 30}, {addr(1, 4), 10}}));
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 4)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 9)), "ge0-1", 10, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-1");
    EXPECT_EQ(na.target, addr(1, 2));
    EXPECT_EQ(na.target_lladdr, kSwitchMac);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprProxyLoc], 1u);
    // Host 1 was heard as the asker; hosts are forgotten when not heard for long.
    EXPECT_EQ(answers.local_hosts().count(addr(1, 1)), 1u);
    answers.tick(t0 + NdAnswers::kHostMemory + milliseconds(1), sw);
    EXPECT_TRUE(answers.local_hosts().empty());
}

TEST(WireAnswers, LocalProxySeeksAHostNotHeardYetInTheOtherSubVlansOncePerSecond)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.localProxy = {100};
    c.subVlanOf = {{10, 100}, {20, 100}, {21, 100}, {30, 300}};
    answers.configure(c);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0 + milliseconds(999), sw);
    answers.solicited(solicitation(addr(1, 1), 1, linkLocal(2)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(3, 1), 3, addr(3, 2)), "ge0-3", 30, false, t0, sw); // no other sub-VLAN
    EXPECT_EQ(sw.sought, (std::vector<std::pair<Address6, uint16_t>>{{addr(1, 2), 20}, {addr(1, 2), 21}}));
    answers.tick(t0 + NdAnswers::kSeekEvery, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0 + NdAnswers::kSeekEvery, sw);
    EXPECT_EQ(sw.sought.size(), 4u);
    // Heard in VLAN 20 (its answer to the switch), it is answered for.
    answers.heard(addr(1, 2), 20, t0 + NdAnswers::kSeekEvery);
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 2)), "ge0-1", 10, false, t0 + NdAnswers::kSeekEvery, sw);
    EXPECT_EQ(sw.sought.size(), 4u);
    EXPECT_EQ(sentAdvertisement(sw, "ge0-1").target, addr(1, 2));
}

TEST(WireAnswers, AProxyAddressRangeIsAnsweredAfterADelay)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.proxyRanges.push_back({addr(5, 1), addr(5, 0xff)});
    answers.configure(c);
    answers.solicited(solicitation(addr(1, 1), 1, addr(5, 0)), "ge0-1", 10, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(5, 0x80)), "ge0-1", 10, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprDelay], 1u);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprProxyAddr], 1u);
    answers.tick(t0 + NdAnswers::kMaxRangeDelay, sw);
    NdPacket na = sentAdvertisement(sw, "ge0-1");
    EXPECT_EQ(na.target, addr(5, 0x80));
    EXPECT_EQ(na.target_lladdr, kSwitchMac);
    EXPECT_FALSE(na.override_flag);
    EXPECT_EQ(answers.statistics()[ndsvc::kTxNaCount], 1u);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNsNoNapr], 1u);
}

TEST(WireAnswers, WaitingAnswersAreBounded)
{
    TestSwitch sw;
    NdAnswers answers;
    AnswerConfig c;
    c.proxyRanges.push_back({addr(5, 1), addr(5, 0xff)});
    answers.configure(c);
    for (size_t i = 0; i <= NdAnswers::kDelayedCeiling; ++i)
        answers.solicited(solicitation(addr(1, 1), 1, addr(5, 9)), "ge0-1", 10, false, t0, sw);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprDelay], NdAnswers::kDelayedCeiling);
    EXPECT_EQ(answers.statistics()[ndsvc::kRxNaprFillFail], 1u);
    answers.tick(t0 + NdAnswers::kMaxRangeDelay, sw);
    EXPECT_EQ(sw.sent.size(), NdAnswers::kDelayedCeiling);
}

TEST(WireAnswers, EachWayOfFailingToSendHasItsCounter)
{
    TestSwitch sw;
    sw.bind(addr(1, 3), mac(3), 10, "ge0-3");
    sw.routes[addr(2, 20)] = 20;
    NdAnswers answers;
    AnswerConfig c;
    c.proxyVlans = {10, 30, 40};
    answers.configure(c);
    sw.haveBuffer = false;
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    sw.haveBuffer = true;
    sw.sendResult = AnswerWorld::Sent::Failed;
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    sw.sendResult = AnswerWorld::Sent::NoPort;
    answers.solicited(solicitation(addr(1, 1), 1, addr(1, 3)), "ge0-1", 10, false, t0, sw);
    sw.sendResult = AnswerWorld::Sent::Ok;
    // VLAN 30's interface has no address; VLAN 40 has no interface at all.
    answers.solicited(solicitation(addr(1, 1), 1, addr(2, 20)), "ge0-1", 30, false, t0, sw);
    answers.solicited(solicitation(addr(1, 1), 1, addr(2, 20)), "ge0-1", 40, false, t0, sw);
    EXPECT_TRUE(sw.sent.empty());
    EXPECT_EQ(answers.statistics(), only({{ndsvc::kRxNsNeedNa, 5},
                                          {ndsvc::kRxNaprLocal, 3},
                                          {ndsvc::kRxNaprProxyIf, 2},
                                          {ndsvc::kRxNaprFillFail, 4},
                                          {ndsvc::kTxNewBufFail, 1},
                                          {ndsvc::kTxNaFail, 1},
                                          {ndsvc::kTxGetLinkHdrFail, 2},
                                          {ndsvc::kTxGetSrcAddrFail, 1}}));
    answers.clear_statistics();
    EXPECT_EQ(answers.statistics(), only({}));
}

} // namespace
