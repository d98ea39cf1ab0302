// The NS and NA builders: each frame is compared byte for byte with the same frame laid down
// by hand (or sent by the kernel), parses back to the fields it was built from, and carries a
// checksum that verifies under the tests' own sum. Fields the parser would refuse build nothing.
#include <gtest/gtest.h>

#include "frame_maker.h"
#include "kernel_frames.h"
#include "nd_packet.h"

namespace {

using namespace ndtest_packet;
using ndsvc::packet::build_na;
using ndsvc::packet::build_ns;
using ndsvc::packet::FrameAddress;
using ndsvc::packet::kMaxBuiltFrame;
using ndsvc::packet::multicast_mac;
using ndsvc::packet::NaFlags;
using ndsvc::packet::NdPacket;
using ndsvc::packet::NdType;
using ndsvc::packet::ParseResult;
using ndsvc::packet::solicited_node;

const Ip6 kSwitchGlobal = ip6(0x2001, 0x0db8, 0, 1, 0, 0, 0, 0x0001);

Bytes built(size_t length, const uint8_t *buf) { return Bytes(buf, buf + length); }

// The checksum of a built frame verifies under the tests' sum (0 over the message).
void expect_checksum_verifies(const Bytes &frame, size_t ipAt)
{
    Ip6 src, dst;
    std::memcpy(src.data(), frame.data() + ipAt + 8, 16);
    std::memcpy(dst.data(), frame.data() + ipAt + 24, 16);
    EXPECT_EQ(reference_checksum(src, dst, Bytes(frame.begin() + static_cast<long>(ipAt) + 40, frame.end())), 0);
}

TEST(PacketBuild, UnicastSolicitationWithSourceLinkLayer)
{
    FrameAddress a;
    a.eth_dst = kHostMac;
    a.eth_src = kSwitchMac;
    a.src = kSwitchGlobal;
    a.dst = kHostGlobal;
    uint8_t buf[kMaxBuiltFrame];
    const size_t n = build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf);
    ASSERT_EQ(n, 86u);
    const Bytes frame = built(n, buf);

    FrameRecipe expected;
    expected.eth_dst = kHostMac;
    expected.eth_src = kSwitchMac;
    expected.src = kSwitchGlobal;
    expected.dst = kHostGlobal;
    expected.type = 135;
    expected.body = neighbor_body(0, kHostGlobal);
    append(expected.body, lladdr_option(1, kSwitchMac));
    EXPECT_EQ(frame, expected.bytes());
    expect_checksum_verifies(frame, 14);

    NdPacket p;
    ASSERT_EQ(parse_exact(frame, p), ParseResult::Ok);
    EXPECT_EQ(p.type, NdType::NeighborSolicitation);
    EXPECT_EQ(p.eth_dst, kHostMac);
    EXPECT_EQ(p.eth_src, kSwitchMac);
    EXPECT_FALSE(p.has_vlan);
    EXPECT_EQ(p.src, kSwitchGlobal);
    EXPECT_EQ(p.dst, kHostGlobal);
    EXPECT_EQ(p.hop_limit, 255);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_TRUE(p.has_source_lladdr);
    EXPECT_EQ(p.source_lladdr, kSwitchMac);
    EXPECT_FALSE(p.has_target_lladdr);
    EXPECT_FALSE(ndsvc::packet::is_dad(p));
}

TEST(PacketBuild, MulticastSolicitationToTheSolicitedNodeGroup)
{
    FrameAddress a;
    a.src = kSwitchGlobal;
    a.dst = solicited_node(kHostGlobal);
    a.eth_dst = multicast_mac(a.dst);
    a.eth_src = kSwitchMac;
    uint8_t buf[kMaxBuiltFrame];
    const size_t n = build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf);
    ASSERT_EQ(n, 86u);
    const Bytes frame = built(n, buf);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), hex("3333ff000042"));
    expect_checksum_verifies(frame, 14);
    NdPacket p;
    ASSERT_EQ(parse_exact(frame, p), ParseResult::Ok);
    EXPECT_EQ(p.dst, kHostGlobalSolicited);
    EXPECT_EQ(p.target, kHostGlobal);
    EXPECT_EQ(p.source_lladdr, kSwitchMac);
}

TEST(PacketBuild, ProbeFromUnspecifiedCarriesNoLinkLayerOption)
{
    FrameAddress a;
    a.src = kUnspecified;
    a.dst = solicited_node(kHostGlobal);
    a.eth_dst = multicast_mac(a.dst);
    a.eth_src = kSwitchMac;
    uint8_t buf[kMaxBuiltFrame];
    const size_t n = build_ns(a, kHostGlobal, nullptr, buf, sizeof buf);
    ASSERT_EQ(n, 78u);
    const Bytes frame = built(n, buf);
    FrameRecipe expected = dad_frame();
    expected.eth_src = kSwitchMac;
    EXPECT_EQ(frame, expected.bytes());
    expect_checksum_verifies(frame, 14);
    NdPacket p;
    ASSERT_EQ(parse_exact(frame, p), ParseResult::Ok);
    EXPECT_TRUE(ndsvc::packet::is_dad(p));
    EXPECT_FALSE(p.has_source_lladdr);

    // Refused: a link-layer option from ::, or :: to anything but a solicited-node group.
    EXPECT_EQ(build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf), 0u);
    a.dst = kAllNodes;
    a.eth_dst = multicast_mac(kAllNodes);
    EXPECT_EQ(build_ns(a, kHostGlobal, nullptr, buf, sizeof buf), 0u);
    a.dst = kHostGlobal;
    EXPECT_EQ(build_ns(a, kHostGlobal, nullptr, buf, sizeof buf), 0u);
}

TEST(PacketBuild, SolicitedAdvertisementWithEachFlag)
{
    const NaFlags cases[] = {{false, true, false}, {true, true, false}, {false, true, true}, {true, true, true}, {false, false, false}};
    for (const NaFlags &flags : cases) {
        FrameAddress a;
        a.eth_dst = kOtherMac;
        a.eth_src = kSwitchMac;
        a.src = kHostGlobal;
        a.dst = kPeerGlobal;
        uint8_t buf[kMaxBuiltFrame];
        const size_t n = build_na(a, kHostGlobal, flags, &kHostMac, buf, sizeof buf);
        ASSERT_EQ(n, 86u);
        const Bytes frame = built(n, buf);

        FrameRecipe expected = na_frame();
        expected.eth_src = kSwitchMac;
        const uint8_t bits = static_cast<uint8_t>((flags.router ? 0x80 : 0) | (flags.solicited ? 0x40 : 0) |
                                                  (flags.override_flag ? 0x20 : 0));
        expected.body = neighbor_body(bits, kHostGlobal);
        append(expected.body, lladdr_option(2, kHostMac));
        EXPECT_EQ(frame, expected.bytes()) << int(bits);
        expect_checksum_verifies(frame, 14);

        NdPacket p;
        ASSERT_EQ(parse_exact(frame, p), ParseResult::Ok);
        EXPECT_EQ(p.type, NdType::NeighborAdvertisement);
        EXPECT_EQ(p.router, flags.router);
        EXPECT_EQ(p.solicited, flags.solicited);
        EXPECT_EQ(p.override_flag, flags.override_flag);
        EXPECT_EQ(p.target, kHostGlobal);
        EXPECT_TRUE(p.has_target_lladdr);
        EXPECT_EQ(p.target_lladdr, kHostMac);
        // Answered on a host's behalf from the switch's MAC: the option names the host.
        EXPECT_TRUE(ndsvc::packet::lladdr_disagrees(p));
    }
}

TEST(PacketBuild, UnsolicitedAdvertisementIsTheKernelsFrame)
{
    // The kernel's own unsolicited advertisement, rebuilt from its fields, byte for byte.
    FrameAddress a;
    a.eth_dst = multicast_mac(kAllNodes);
    a.eth_src = kKernelNewMac;
    a.src = ip6(0x2001, 0x0db8, 0, 0, 0, 0, 0, 1);
    a.dst = kAllNodes;
    uint8_t buf[kMaxBuiltFrame];
    const size_t n = build_na(a, a.src, NaFlags{false, false, true}, &kKernelNewMac, buf, sizeof buf);
    EXPECT_EQ(built(n, buf), hex(kKernelUnsolicitedNa));

    // Solicited to a multicast address is refused.
    EXPECT_EQ(build_na(a, a.src, NaFlags{false, true, true}, &kKernelNewMac, buf, sizeof buf), 0u);
}

TEST(PacketBuild, AdvertisementWithoutTargetLinkLayer)
{
    FrameAddress a;
    a.eth_dst = kOtherMac;
    a.eth_src = kHostMac;
    a.src = kHostGlobal;
    a.dst = kPeerGlobal;
    uint8_t buf[kMaxBuiltFrame];
    const size_t n = build_na(a, kHostGlobal, NaFlags{false, true, false}, nullptr, buf, sizeof buf);
    ASSERT_EQ(n, 78u);
    NdPacket p;
    ASSERT_EQ(parse_exact(built(n, buf), p), ParseResult::Ok);
    EXPECT_FALSE(p.has_target_lladdr);
    EXPECT_TRUE(p.solicited);
    expect_checksum_verifies(built(n, buf), 14);
}

TEST(PacketBuild, TaggedFrames)
{
    FrameAddress a;
    a.eth_dst = kHostMac;
    a.eth_src = kSwitchMac;
    a.has_vlan = true;
    a.vlan_id = 100;
    a.src = kSwitchGlobal;
    a.dst = kHostGlobal;
    uint8_t buf[kMaxBuiltFrame];
    size_t n = build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf);
    ASSERT_EQ(n, kMaxBuiltFrame);
    Bytes frame = built(n, buf);
    EXPECT_EQ(Bytes(frame.begin() + 12, frame.begin() + 18), hex("8100 0064 86dd"));
    expect_checksum_verifies(frame, 18);
    NdPacket p;
    ASSERT_EQ(parse_exact(frame, p), ParseResult::Ok);
    EXPECT_TRUE(p.has_vlan);
    EXPECT_EQ(p.vlan_id, 100);
    EXPECT_EQ(p.target, kHostGlobal);

    a.vlan_id = 4095;
    n = build_na(a, kSwitchGlobal, NaFlags{true, true, false}, &kSwitchMac, buf, sizeof buf);
    ASSERT_EQ(n, kMaxBuiltFrame);
    ASSERT_EQ(parse_exact(built(n, buf), p), ParseResult::Ok);
    EXPECT_EQ(p.vlan_id, 4095);
    EXPECT_TRUE(p.router);

    a.vlan_id = 4096;
    EXPECT_EQ(build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf), 0u);
    EXPECT_EQ(build_na(a, kSwitchGlobal, NaFlags{}, &kSwitchMac, buf, sizeof buf), 0u);
    // Untagged, the id is not used.
    a.has_vlan = false;
    n = build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf);
    ASSERT_EQ(n, 86u);
    ASSERT_EQ(parse_exact(built(n, buf), p), ParseResult::Ok);
    EXPECT_FALSE(p.has_vlan);
    EXPECT_EQ(p.vlan_id, 0);
}

TEST(PacketBuild, BufferTooSmallWritesNothing)
{
    FrameAddress a;
    a.eth_dst = kHostMac;
    a.eth_src = kSwitchMac;
    a.src = kSwitchGlobal;
    a.dst = kHostGlobal;
    for (size_t capacity = 0; capacity < 86; ++capacity) {
        uint8_t buf[kMaxBuiltFrame];
        std::memset(buf, 0xa5, sizeof buf);
        EXPECT_EQ(build_ns(a, kHostGlobal, &kSwitchMac, buf, capacity), 0u) << capacity;
        EXPECT_EQ(build_na(a, kHostGlobal, NaFlags{}, &kHostMac, buf, capacity), 0u) << capacity;
        for (uint8_t b : buf)
            ASSERT_EQ(b, 0xa5) << capacity;
    }
    // Exactly enough is enough, in an exact-size block.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[86]);
    EXPECT_EQ(build_ns(a, kHostGlobal, &kSwitchMac, exact.get(), 86), 86u);
    EXPECT_EQ(build_na(a, kHostGlobal, NaFlags{}, &kHostMac, exact.get(), 86), 86u);
    EXPECT_EQ(build_na(a, kHostGlobal, NaFlags{}, nullptr, exact.get(), 78), 78u);
    EXPECT_EQ(build_ns(a, kHostGlobal, nullptr, nullptr, 100), 0u);
}

TEST(PacketBuild, MulticastSourceOrTargetBuildsNothing)
{
    FrameAddress a;
    a.eth_dst = kHostMac;
    a.eth_src = kSwitchMac;
    a.src = kSwitchGlobal;
    a.dst = kHostGlobal;
    uint8_t buf[kMaxBuiltFrame];
    EXPECT_EQ(build_ns(a, kAllNodes, &kSwitchMac, buf, sizeof buf), 0u);
    EXPECT_EQ(build_na(a, kAllNodes, NaFlags{}, &kSwitchMac, buf, sizeof buf), 0u);
    a.src = kAllNodes;
    EXPECT_EQ(build_ns(a, kHostGlobal, &kSwitchMac, buf, sizeof buf), 0u);
    EXPECT_EQ(build_na(a, kHostGlobal, NaFlags{}, &kSwitchMac, buf, sizeof buf), 0u);
}

} // namespace
