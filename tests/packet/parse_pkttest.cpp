// The ND frame parser: frames the Linux kernel sent (copied byte for byte from a veth port),
// hand-made frames of every message type with each field checked, and one frame per reason of
// refusal that produces exactly that reason.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

#include "frame_maker.h"
#include "kernel_frames.h"
#include "nd_packet.h"

namespace {

using namespace ndtest_packet;
using ndsvc::packet::is_dad;
using ndsvc::packet::kMaxPrefixes;
using ndsvc::packet::kParseResultCount;
using ndsvc::packet::lladdr_disagrees;
using ndsvc::packet::NdPacket;
using ndsvc::packet::NdType;
using ndsvc::packet::ParseResult;
using ndsvc::packet::reason_text;

ParseResult parse_recipe(const FrameRecipe &recipe, NdPacket &out) { return parse_exact(recipe.bytes(), out); }
ParseResult parse_recipe(const FrameRecipe &recipe)
{
    NdPacket out;
    return parse_exact(recipe.bytes(), out);
}

TEST(PacketKernelFrames, DadNeighborSolicitation)
{
    NdPacket p;
    ASSERT_EQ(parse_exact(hex(kKernelDadNs), p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborSolicitation);
    EXPECT_EQ(p.eth_dst, (Mac{0x33, 0x33, 0xff, 0x12, 0x34, 0x56}));
    EXPECT_EQ(p.eth_src, kKernelMac);
    EXPECT_FALSE(p.has_vlan);
    EXPECT_EQ(p.src, kUnspecified);
    EXPECT_EQ(p.dst, ip6(0xff02, 0, 0, 0, 0, 1, 0xff12, 0x3456));
    EXPECT_EQ(p.hop_limit, 255);
    EXPECT_EQ(p.target, kKernelLinkLocal);
    EXPECT_FALSE(p.has_source_lladdr);
    EXPECT_FALSE(p.has_target_lladdr);
    EXPECT_TRUE(is_dad(p));
    EXPECT_FALSE(lladdr_disagrees(p));
}

TEST(PacketKernelFrames, UnsolicitedNeighborAdvertisement)
{
    NdPacket p;
    ASSERT_EQ(parse_exact(hex(kKernelUnsolicitedNa), p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborAdvertisement);
    EXPECT_EQ(p.eth_dst, (Mac{0x33, 0x33, 0, 0, 0, 1}));
    EXPECT_EQ(p.eth_src, kKernelNewMac);
    EXPECT_EQ(p.src, ip6(0x2001, 0x0db8, 0, 0, 0, 0, 0, 1));
    EXPECT_EQ(p.dst, kAllNodes);
    EXPECT_EQ(p.target, ip6(0x2001, 0x0db8, 0, 0, 0, 0, 0, 1));
    EXPECT_FALSE(p.router);
    EXPECT_FALSE(p.solicited);
    EXPECT_TRUE(p.override_flag);
    EXPECT_TRUE(p.has_target_lladdr);
    EXPECT_EQ(p.target_lladdr, kKernelNewMac);
    EXPECT_FALSE(p.has_source_lladdr);
    EXPECT_FALSE(is_dad(p));
    EXPECT_FALSE(lladdr_disagrees(p));
}

TEST(PacketKernelFrames, RouterSolicitation)
{
    NdPacket p;
    ASSERT_EQ(parse_exact(hex(kKernelRs), p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::RouterSolicitation);
    EXPECT_EQ(p.src, kKernelLinkLocal);
    EXPECT_EQ(p.dst, kAllRouters);
    EXPECT_TRUE(p.has_source_lladdr);
    EXPECT_EQ(p.source_lladdr, kKernelMac);
    EXPECT_FALSE(lladdr_disagrees(p));
}

TEST(PacketKernelFrames, MldReportBehindHopByHopIsNotNd)
{
    // The hop-by-hop header is walked; what follows is ICMPv6 but not ND.
    NdPacket p;
    EXPECT_EQ(parse_exact(hex(kKernelMldReport), p), ParseResult::NotNd);
}

TEST(PacketKernelFrames, LiteralChecksumsAgreeWithTheReferenceSum)
{
    // The frames' own checksum fields verify under the tests' sum too (0 over the message).
    for (const char *text : {kKernelDadNs, kKernelUnsolicitedNa, kKernelRs}) {
        const Bytes f = hex(text);
        Ip6 src, dst;
        std::memcpy(src.data(), f.data() + 22, 16);
        std::memcpy(dst.data(), f.data() + 38, 16);
        const Bytes msg(f.begin() + 54, f.end());
        EXPECT_EQ(reference_checksum(src, dst, msg), 0) << text;
        EXPECT_EQ(ndsvc::packet::icmp6_checksum(src, dst, msg.data(), msg.size()), 0) << text;
    }
}

TEST(PacketParse, NeighborSolicitationEveryField)
{
    NdPacket p;
    ASSERT_EQ(parse_recipe(ns_frame(), p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborSolicitation);
    EXPECT_EQ(p.eth_dst, (Mac{0x33, 0x33, 0xff, 0, 0, 0x42}));
    EXPECT_EQ(p.eth_src, kHostMac);
    EXPECT_FALSE(p.has_vlan);
    EXPECT_EQ(p.vlan_id, 0);
    EXPECT_EQ(p.src, kPeerGlobal);
    EXPECT_EQ(p.dst, kHostGlobalSolicited);
    EXPECT_EQ(p.hop_limit, 255);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_TRUE(p.has_source_lladdr);
    EXPECT_EQ(p.source_lladdr, kHostMac);
    EXPECT_FALSE(p.has_target_lladdr);
    EXPECT_FALSE(p.router || p.solicited || p.override_flag);
    EXPECT_EQ(p.prefix_total, 0u);
    EXPECT_FALSE(is_dad(p));
    EXPECT_FALSE(lladdr_disagrees(p));
}

TEST(PacketParse, DadSolicitationWithoutOptions)
{
    NdPacket p;
    ASSERT_EQ(parse_recipe(dad_frame(), p), ParseResult::Ok);
    EXPECT_TRUE(is_dad(p));
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_FALSE(p.has_source_lladdr);
}

TEST(PacketParse, NeighborAdvertisementEveryField)
{
    FrameRecipe f = na_frame();
    f.body = neighbor_body(0xc0, kHostGlobal); // router and solicited, no override
    append(f.body, lladdr_option(2, kOtherMac));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborAdvertisement);
    EXPECT_EQ(p.eth_dst, kOtherMac);
    EXPECT_EQ(p.eth_src, kHostMac);
    EXPECT_EQ(p.src, kHostGlobal);
    EXPECT_EQ(p.dst, kPeerGlobal);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_TRUE(p.router);
    EXPECT_TRUE(p.solicited);
    EXPECT_FALSE(p.override_flag);
    EXPECT_TRUE(p.has_target_lladdr);
    EXPECT_EQ(p.target_lladdr, kOtherMac);
    EXPECT_FALSE(p.has_source_lladdr);
    EXPECT_FALSE(is_dad(p));
    // The option names another MAC than the frame's source.
    EXPECT_TRUE(lladdr_disagrees(p));
}

TEST(PacketParse, EachNeighborAdvertisementFlagAlone)
{
    const struct {
        uint8_t bits;
        bool r, s, o;
    } cases[] = {{0x80, true, false, false}, {0x40, false, true, false}, {0x20, false, false, true}, {0x1f, false, false, false}};
    for (const auto &c : cases) {
        FrameRecipe f = na_frame();
        f.body = neighbor_body(c.bits, kHostGlobal);
        NdPacket p;
        ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok) << int(c.bits);
        EXPECT_EQ(p.router, c.r) << int(c.bits);
        EXPECT_EQ(p.solicited, c.s) << int(c.bits);
        EXPECT_EQ(p.override_flag, c.o) << int(c.bits);
        EXPECT_FALSE(p.has_target_lladdr);
    }
}

TEST(PacketParse, SourceLinkLayerDisagreeingWithEthernetSource)
{
    FrameRecipe f = ns_frame();
    f.body = neighbor_body(0, kHostGlobal);
    append(f.body, lladdr_option(1, kOtherMac));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.source_lladdr, kOtherMac);
    EXPECT_TRUE(lladdr_disagrees(p));
}

TEST(PacketParse, RepeatedLinkLayerOptionKeepsTheFirst)
{
    FrameRecipe f = ns_frame();
    f.body = neighbor_body(0, kHostGlobal);
    append(f.body, lladdr_option(1, kHostMac));
    append(f.body, lladdr_option(1, kOtherMac));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.source_lladdr, kHostMac);
}

TEST(PacketParse, RouterSolicitationFromUnspecifiedWithoutOptions)
{
    FrameRecipe f = rs_frame();
    f.src = kUnspecified;
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::RouterSolicitation);
    EXPECT_EQ(p.src, kUnspecified);
    EXPECT_EQ(p.dst, kAllRouters);
    EXPECT_FALSE(p.has_source_lladdr);
    EXPECT_FALSE(is_dad(p));
}

TEST(PacketParse, RouterAdvertisementEveryField)
{
    FrameRecipe f = ra_frame();
    const Ip6 prefixA = ip6(0x2001, 0x0db8, 0, 1, 0, 0, 0, 0);
    const Ip6 prefixB = ip6(0x2001, 0x0db8, 0xabcd, 0, 0, 0, 0, 0);
    append(f.body, prefix_option(prefixA, 64, 0xc0, 2592000, 604800));
    append(f.body, hex("0501 0000 000005dc")); // MTU 1500, skipped
    append(f.body, prefix_option(prefixB, 48, 0x80, 0xffffffff, 0));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::RouterAdvertisement);
    EXPECT_EQ(p.eth_src, kSwitchMac);
    EXPECT_EQ(p.src, kRouterLinkLocal);
    EXPECT_EQ(p.dst, kAllNodes);
    EXPECT_EQ(p.cur_hop_limit, 64);
    EXPECT_EQ(p.ra_flags, ndsvc::packet::kRaManaged | ndsvc::packet::kRaOtherConfig);
    EXPECT_EQ(p.router_lifetime, 1800);
    EXPECT_EQ(p.reachable_time, 30000u);
    EXPECT_EQ(p.retrans_timer, 1000u);
    EXPECT_TRUE(p.has_source_lladdr);
    EXPECT_EQ(p.source_lladdr, kSwitchMac);
    ASSERT_EQ(p.prefix_count, 2u);
    EXPECT_EQ(p.prefix_total, 2u);
    EXPECT_EQ(p.prefixes[0].prefix, prefixA);
    EXPECT_EQ(p.prefixes[0].length, 64);
    EXPECT_TRUE(p.prefixes[0].on_link);
    EXPECT_TRUE(p.prefixes[0].autonomous);
    EXPECT_EQ(p.prefixes[0].valid_lifetime, 2592000u);
    EXPECT_EQ(p.prefixes[0].preferred_lifetime, 604800u);
    EXPECT_EQ(p.prefixes[1].prefix, prefixB);
    EXPECT_EQ(p.prefixes[1].length, 48);
    EXPECT_TRUE(p.prefixes[1].on_link);
    EXPECT_FALSE(p.prefixes[1].autonomous);
    EXPECT_EQ(p.prefixes[1].valid_lifetime, 0xffffffffu);
    EXPECT_EQ(p.prefixes[1].preferred_lifetime, 0u);
    EXPECT_FALSE(lladdr_disagrees(p));
}

TEST(PacketParse, RouterAdvertisementKeepsEightPrefixesAndCountsAll)
{
    FrameRecipe f = ra_frame();
    for (uint16_t i = 0; i < 10; ++i)
        append(f.body, prefix_option(ip6(0x2001, 0x0db8, i, 0, 0, 0, 0, 0), 64, 0x40, 100 + i, 50 + i));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.prefix_count, kMaxPrefixes);
    EXPECT_EQ(p.prefix_total, 10u);
    for (uint16_t i = 0; i < kMaxPrefixes; ++i) {
        EXPECT_EQ(p.prefixes[i].prefix, ip6(0x2001, 0x0db8, i, 0, 0, 0, 0, 0));
        EXPECT_FALSE(p.prefixes[i].on_link);
        EXPECT_TRUE(p.prefixes[i].autonomous);
        EXPECT_EQ(p.prefixes[i].valid_lifetime, 100u + i);
        EXPECT_EQ(p.prefixes[i].preferred_lifetime, 50u + i);
    }
}

TEST(PacketParse, PrefixOptionOutsideAnAdvertisementIsSkipped)
{
    FrameRecipe f = ns_frame();
    append(f.body, prefix_option(kPeerGlobal, 64, 0xc0, 1, 1));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.prefix_count, 0u);
    EXPECT_EQ(p.prefix_total, 0u);
}

TEST(PacketParse, RedirectEveryField)
{
    FrameRecipe f = redirect_frame();
    append(f.body, lladdr_option(2, kOtherMac));
    append(f.body, hex("0402 000000000000 0102030405060708")); // redirected header, skipped
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::Redirect);
    EXPECT_EQ(p.eth_dst, kHostMac);
    EXPECT_EQ(p.eth_src, kSwitchMac);
    EXPECT_EQ(p.src, kRouterLinkLocal);
    EXPECT_EQ(p.dst, kHostLinkLocal);
    EXPECT_EQ(p.target, ip6(0xfe80, 0, 0, 0, 0, 0, 0, 0x77));
    EXPECT_EQ(p.redirect_destination, kPeerGlobal);
    EXPECT_TRUE(p.has_target_lladdr);
    EXPECT_EQ(p.target_lladdr, kOtherMac);
    EXPECT_TRUE(lladdr_disagrees(p));
}

TEST(PacketParse, RedirectToTheDestinationItself)
{
    // A global target is allowed when it is the destination: that one is on-link.
    FrameRecipe f = redirect_frame();
    f.body = redirect_body(kPeerGlobal, kPeerGlobal);
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.target, kPeerGlobal);
    EXPECT_EQ(p.redirect_destination, kPeerGlobal);
}

TEST(PacketParse, VlanTagGivesItsId)
{
    FrameRecipe f = ns_frame();
    f.tag = 0xa064; // priority 5, DEI 0, VLAN 100
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_TRUE(p.has_vlan);
    EXPECT_EQ(p.vlan_id, 100);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_EQ(p.source_lladdr, kHostMac);
    f.tag = 0x1fff; // DEI set, VLAN 4095
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.vlan_id, 4095);
}

TEST(PacketParse, EthernetPaddingAfterThePacket)
{
    FrameRecipe f = rs_frame();
    f.padding = 14; // a 64-byte minimum frame carrying a 48-byte packet
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    f.padding = 1;
    EXPECT_EQ(parse_recipe(f, p), ParseResult::Ok);
}

TEST(PacketParse, HopByHopThenDestinationOptionsAccepted)
{
    FrameRecipe f = ns_frame();
    f.first_next = 0;
    f.extensions = ext_header(60, 0);
    append(f.extensions, ext_header(58, 1));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborSolicitation);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_EQ(p.source_lladdr, kHostMac);
}

TEST(PacketParse, RoutingHeaderWithNoSegmentsLeftAccepted)
{
    FrameRecipe f = na_frame();
    f.first_next = 60;
    f.extensions = ext_header(43, 0);
    append(f.extensions, routing_header(58, 0));
    NdPacket p;
    ASSERT_EQ(parse_recipe(f, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborAdvertisement);
    EXPECT_EQ(p.target_lladdr, kHostMac);
}

TEST(PacketParse, MinimumLengthOfEachType)
{
    // Exactly the fixed part is whole; one byte less is too short (checksum still right).
    const struct {
        FrameRecipe recipe;
        size_t fixed;
    } cases[] = {{rs_frame(), 8}, {ra_frame(), 16}, {ns_frame(), 24}, {na_frame(), 24}, {redirect_frame(), 40}};
    for (const auto &c : cases) {
        FrameRecipe f = c.recipe;
        f.body.resize(c.fixed - 4);
        EXPECT_EQ(parse_recipe(f), ParseResult::Ok) << int(f.type);
        f.body.resize(c.fixed - 5);
        EXPECT_EQ(parse_recipe(f), ParseResult::MessageTooShort) << int(f.type);
    }
}

// Every reason of refusal, each from a frame that has that one fault.
struct Refusal {
    std::string name;
    Bytes frame;
    ParseResult expected;
};

// Shown by the test listing instead of the bytes.
void PrintTo(const Refusal &r, std::ostream *os) { *os << r.name; }

std::vector<Refusal> refusals()
{
    std::vector<Refusal> out;
    auto add = [&](const std::string &name, const FrameRecipe &recipe, ParseResult expected) {
        out.push_back({name, recipe.bytes(), expected});
    };
    FrameRecipe f;

    const Bytes ns = ns_frame().bytes();
    out.push_back({"ethernet header cut", Bytes(ns.begin(), ns.begin() + 13), ParseResult::TruncatedEthernet});
    f = ns_frame();
    f.tag = 5;
    const Bytes tagged = f.bytes();
    out.push_back({"802.1Q tag cut", Bytes(tagged.begin(), tagged.begin() + 17), ParseResult::TruncatedEthernet});
    f = ns_frame();
    f.ethertype = 0x0800;
    add("ipv4 ethertype", f, ParseResult::NotIpv6);
    f = ns_frame();
    f.tag = 5;
    f.tag2 = 6;
    add("two 802.1Q tags", f, ParseResult::NotIpv6);
    out.push_back({"ipv6 header cut", Bytes(ns.begin(), ns.begin() + 14 + 39), ParseResult::TruncatedIpv6});
    f = ns_frame();
    f.version = 4;
    add("version 4", f, ParseResult::BadIpVersion);
    f = ns_frame();
    f.payload_length = static_cast<uint16_t>(f.message().size() + 1);
    add("payload length one byte beyond the frame", f, ParseResult::TruncatedPayload);
    f = na_frame();
    f.src = kAllNodes;
    add("multicast source", f, ParseResult::MulticastSource);
    f = ns_frame();
    f.first_next = 0;
    f.extensions = ext_header(58, 0);
    f.extensions[1] = 10; // 88 bytes claimed in a payload of 40
    add("hop-by-hop longer than the payload", f, ParseResult::TruncatedExtension);
    f = rs_frame();
    f.first_next = 60;
    f.payload_length = 7; // less than the 8 bytes of any extension header
    add("destination options cut under 8 bytes", f, ParseResult::TruncatedExtension);
    f = ns_frame();
    f.first_next = 60;
    f.extensions = ext_header(0, 0);
    append(f.extensions, ext_header(58, 0));
    add("hop-by-hop after destination options", f, ParseResult::MisplacedHopByHop);
    f = ns_frame();
    f.first_next = 43;
    f.extensions = routing_header(58, 1);
    add("routing header with a segment left", f, ParseResult::RoutingNotFinal);
    f = ns_frame();
    f.first_next = 44;
    f.extensions = fragment_header(58);
    add("fragment header", f, ParseResult::Fragmented);
    f = ns_frame();
    f.first_next = 0;
    f.extensions = ext_header(44, 0);
    append(f.extensions, fragment_header(58));
    add("fragment header after hop-by-hop", f, ParseResult::Fragmented);
    f = ns_frame();
    f.first_next = 17;
    add("udp", f, ParseResult::NotIcmpv6);
    f = ns_frame();
    f.first_next = 0;
    f.extensions = ext_header(59, 0);
    add("no next header", f, ParseResult::NotIcmpv6);
    f = ns_frame();
    f.payload_length = 3;
    add("icmpv6 header cut", f, ParseResult::TruncatedIcmp);
    f = ns_frame();
    f.type = 128;
    add("echo request", f, ParseResult::NotNd);
    f = ns_frame();
    f.type = 138;
    add("type 138", f, ParseResult::NotNd);
    f = ns_frame();
    f.hop_limit = 254;
    add("hop limit 254", f, ParseResult::BadHopLimit);
    f = ns_frame();
    f.code = 1;
    add("code 1", f, ParseResult::BadCode);
    f = na_frame();
    f.body.resize(19);
    add("advertisement of 23 bytes", f, ParseResult::MessageTooShort);
    f = ns_frame();
    f.checksum_delta = 1;
    add("checksum off by one", f, ParseResult::BadChecksum);
    f = ra_frame();
    f.checksum_delta = -0x100;
    add("advertisement checksum off", f, ParseResult::BadChecksum);
    f = ns_frame();
    append(f.body, hex("0e00 000000000000"));
    add("zero-length option", f, ParseResult::ZeroLengthOption);
    f = ns_frame();
    append(f.body, hex("0e02 000000000000"));
    add("option of 16 bytes in 8", f, ParseResult::OptionOverrun);
    f = ns_frame();
    f.body.push_back(14);
    add("option header cut", f, ParseResult::OptionOverrun);
    f = ns_frame();
    f.body = neighbor_body(0, kHostGlobal);
    append(f.body, hex("0102 0211223344550000 0000000000000000"));
    add("source link-layer option of 16 bytes", f, ParseResult::BadLinkLayerOption);
    f = na_frame();
    f.body = neighbor_body(0x20, kHostGlobal);
    append(f.body, hex("0202 0211223344550000 0000000000000000"));
    add("target link-layer option of 16 bytes", f, ParseResult::BadLinkLayerOption);
    f = ra_frame();
    append(f.body, prefix_option(kPeerGlobal, 129, 0xc0, 10, 10));
    add("prefix length 129", f, ParseResult::BadPrefixOption);
    f = ra_frame();
    {
        Bytes short_prefix = prefix_option(kPeerGlobal, 64, 0xc0, 10, 10);
        short_prefix[1] = 3;
        short_prefix.resize(24);
        append(f.body, short_prefix);
    }
    add("prefix option of 24 bytes", f, ParseResult::BadPrefixOption);
    f = ns_frame();
    f.body = neighbor_body(0, kAllNodes);
    add("solicitation for a multicast target", f, ParseResult::MulticastTarget);
    f = na_frame();
    f.body = neighbor_body(0x20, kAllNodes);
    add("advertisement for a multicast target", f, ParseResult::MulticastTarget);
    f = dad_frame();
    f.dst = kAllNodes;
    add("dad to all-nodes", f, ParseResult::DadNotToSolicitedNode);
    f = dad_frame();
    f.dst = kHostGlobal;
    add("dad to a unicast address", f, ParseResult::DadNotToSolicitedNode);
    f = dad_frame();
    append(f.body, lladdr_option(1, kHostMac));
    add("dad with a source link-layer option", f, ParseResult::UnspecifiedWithLinkLayer);
    f = rs_frame();
    f.src = kUnspecified;
    append(f.body, lladdr_option(1, kHostMac));
    add("router solicitation from :: with a source link-layer option", f, ParseResult::UnspecifiedWithLinkLayer);
    f = na_frame();
    f.dst = kAllNodes;
    f.body = neighbor_body(0x60, kHostGlobal);
    add("solicited advertisement to all-nodes", f, ParseResult::SolicitedToMulticast);
    f = ra_frame();
    f.src = kPeerGlobal;
    add("advertisement from a global address", f, ParseResult::SourceNotLinkLocal);
    f = redirect_frame();
    f.src = kPeerGlobal;
    add("redirect from a global address", f, ParseResult::SourceNotLinkLocal);
    f = redirect_frame();
    f.body = redirect_body(ip6(0xfe80, 0, 0, 0, 0, 0, 0, 0x77), kAllNodes);
    add("redirect for a multicast destination", f, ParseResult::MulticastRedirectDestination);
    f = redirect_frame();
    f.body = redirect_body(kHostGlobal, kPeerGlobal);
    add("redirect to a global target that is not the destination", f, ParseResult::BadRedirectTarget);
    return out;
}

// One test per refusal, named after it.
class PacketRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(PacketRefusal, GivesExactlyItsReason)
{
    const Refusal &r = GetParam();
    NdPacket p;
    const ParseResult got = parse_exact(r.frame, p);
    EXPECT_EQ(got, r.expected) << r.name << ": got " << reason_text(got) << ", expected " << reason_text(r.expected);
}

std::string refusal_name(const testing::TestParamInfo<Refusal> &info)
{
    std::string name;
    for (char c : info.param.name)
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Frames, PacketRefusal, testing::ValuesIn(refusals()), refusal_name);

TEST(PacketReasons, EveryReasonHasARefusalFrame)
{
    std::set<ParseResult> covered;
    for (const Refusal &r : refusals())
        covered.insert(r.expected);
    for (size_t i = 1; i < kParseResultCount; ++i)
        EXPECT_TRUE(covered.count(static_cast<ParseResult>(i))) << reason_text(static_cast<ParseResult>(i));
    EXPECT_FALSE(covered.count(ParseResult::Ok));
}

TEST(PacketReasons, TextsAreDistinct)
{
    std::set<std::string> texts;
    for (size_t i = 0; i < kParseResultCount; ++i) {
        const char *text = reason_text(static_cast<ParseResult>(i));
        ASSERT_NE(text, nullptr);
        EXPECT_NE(std::string(text), "unknown") << i;
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), kParseResultCount);
    EXPECT_STREQ(reason_text(ParseResult::Ok), "ok");
    EXPECT_STREQ(reason_text(ParseResult::BadChecksum), "bad checksum");
    EXPECT_STREQ(reason_text(static_cast<ParseResult>(kParseResultCount)), "unknown");
}

// Cutting a valid frame anywhere short of its end leaves a truncation reason, never a crash or
// a read past the end (AddressSanitizer watches the exact-size copies).
void expect_truncations(const Bytes &whole, size_t tagBytes)
{
    NdPacket p;
    ASSERT_EQ(parse_exact(whole, p), ParseResult::Ok);
    for (size_t length = 0; length < whole.size(); ++length) {
        const ParseResult r = parse_exact(Bytes(whole.begin(), whole.begin() + length), p);
        ParseResult expected = ParseResult::TruncatedPayload;
        if (length < 14 + tagBytes)
            expected = ParseResult::TruncatedEthernet;
        else if (length < 54 + tagBytes)
            expected = ParseResult::TruncatedIpv6;
        EXPECT_EQ(r, expected) << "length " << length << ": " << reason_text(r);
    }
    EXPECT_EQ(parse(nullptr, 0, p), ParseResult::TruncatedEthernet);
}

TEST(PacketTruncation, NeighborSolicitationAtEveryLength) { expect_truncations(ns_frame().bytes(), 0); }

TEST(PacketTruncation, KernelDadAtEveryLength) { expect_truncations(hex(kKernelDadNs), 0); }

TEST(PacketTruncation, TaggedAdvertisementWithExtensionsAtEveryLength)
{
    FrameRecipe f = ra_frame();
    f.tag = 7;
    f.first_next = 0;
    f.extensions = ext_header(58, 2);
    append(f.body, prefix_option(kPeerGlobal, 64, 0xc0, 10, 10));
    expect_truncations(f.bytes(), 4);
}

TEST(PacketTruncation, ShorterPayloadLengthsInsideAWholeFrame)
{
    // The frame stays whole but the IPv6 header claims less: what is cut then is the message.
    const FrameRecipe base = ns_frame();
    const size_t whole = base.message().size();
    for (size_t plen = 0; plen < whole; ++plen) {
        FrameRecipe f = base;
        f.payload_length = static_cast<uint16_t>(plen);
        const ParseResult r = parse_recipe(f);
        if (plen < 4)
            EXPECT_EQ(r, ParseResult::TruncatedIcmp) << plen;
        else if (plen < 24)
            EXPECT_EQ(r, ParseResult::MessageTooShort) << plen;
        else
            EXPECT_EQ(r, ParseResult::BadChecksum) << plen; // the sum covered the whole message
    }
}

TEST(PacketAddress, Classification)
{
    using namespace ndsvc::packet;
    EXPECT_TRUE(is_unspecified(kUnspecified));
    EXPECT_FALSE(is_unspecified(ip6(0, 0, 0, 0, 0, 0, 0, 1)));
    EXPECT_TRUE(is_multicast(kAllNodes));
    EXPECT_FALSE(is_multicast(kHostLinkLocal));
    EXPECT_TRUE(is_link_local(ip6(0xfe80, 0, 0, 0, 0, 0, 0, 1)));
    EXPECT_TRUE(is_link_local(ip6(0xfebf, 0xffff, 0, 0, 0, 0, 0, 1)));
    EXPECT_FALSE(is_link_local(ip6(0xfec0, 0, 0, 0, 0, 0, 0, 1)));
    EXPECT_FALSE(is_link_local(ip6(0xfe7f, 0, 0, 0, 0, 0, 0, 1)));
    EXPECT_TRUE(is_solicited_node(ip6(0xff02, 0, 0, 0, 0, 1, 0xffab, 0xcdef)));
    EXPECT_FALSE(is_solicited_node(ip6(0xff02, 0, 0, 0, 0, 1, 0xfeab, 0xcdef)));
    EXPECT_FALSE(is_solicited_node(ip6(0xff05, 0, 0, 0, 0, 1, 0xffab, 0xcdef)));
    EXPECT_FALSE(is_solicited_node(kAllNodes));
}

TEST(PacketAddress, SolicitedNodeGroupAndItsMac)
{
    using namespace ndsvc::packet;
    const Ip6 addr = ip6(0x2001, 0x0db8, 0, 0, 0x1111, 0x2222, 0x3345, 0x6789);
    EXPECT_EQ(solicited_node(addr), ip6(0xff02, 0, 0, 0, 0, 1, 0xff45, 0x6789));
    EXPECT_EQ(multicast_mac(solicited_node(addr)), (Mac{0x33, 0x33, 0xff, 0x45, 0x67, 0x89}));
    EXPECT_EQ(multicast_mac(kAllNodes), (Mac{0x33, 0x33, 0, 0, 0, 1}));
    EXPECT_EQ(multicast_mac(kAllRouters), (Mac{0x33, 0x33, 0, 0, 0, 2}));
    EXPECT_EQ(solicited_node(kKernelLinkLocal), ip6(0xff02, 0, 0, 0, 0, 1, 0xff12, 0x3456));
}

TEST(PacketChecksum, AgreesWithTheReferenceSumAtOddAndEvenLengths)
{
    for (size_t length = 0; length < 70; ++length) {
        Bytes msg(length);
        for (size_t i = 0; i < length; ++i)
            msg[i] = static_cast<uint8_t>(0xf1 * (i + 3));
        EXPECT_EQ(ndsvc::packet::icmp6_checksum(kHostGlobal, kPeerGlobal, msg.data(), msg.size()),
                  reference_checksum(kHostGlobal, kPeerGlobal, msg))
            << length;
    }
}

} // namespace
