// Hand-made ND frames for the packet tests: every byte is laid down here, and the checksum is
// this file's own sum (not the one under test), so that a frame's meaning never depends on the
// code it checks.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nd_packet.h"

namespace ndtest_packet {

using Bytes = std::vector<uint8_t>;
using ndsvc::packet::Ip6;
using ndsvc::packet::Mac;

inline Bytes hex(const std::string &text)
{
    Bytes out;
    std::string digits;
    for (char c : text)
        if (c != ' ' && c != '\n')
            digits += c;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return out;
}

// An IPv6 address from 8 groups written out (no :: shorthand, so that nothing is parsed).
inline Ip6 ip6(uint16_t a, uint16_t b, uint16_t c, uint16_t d, uint16_t e, uint16_t f, uint16_t g, uint16_t h)
{
    const uint16_t words[8] = {a, b, c, d, e, f, g, h};
    Ip6 out{};
    for (int i = 0; i < 8; ++i) {
        out[2 * i] = static_cast<uint8_t>(words[i] >> 8);
        out[2 * i + 1] = static_cast<uint8_t>(words[i]);
    }
    return out;
}

inline void append(Bytes &b, const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); }
inline void append16(Bytes &b, uint16_t v)
{
    b.push_back(static_cast<uint8_t>(v >> 8));
    b.push_back(static_cast<uint8_t>(v));
}
inline void append32(Bytes &b, uint32_t v)
{
    append16(b, static_cast<uint16_t>(v >> 16));
    append16(b, static_cast<uint16_t>(v));
}
template <size_t N>
void append(Bytes &b, const std::array<uint8_t, N> &a)
{
    b.insert(b.end(), a.begin(), a.end());
}

// RFC 1071 sum over the pseudo-header and the message, checksum field included as it stands.
inline uint16_t reference_checksum(const Ip6 &src, const Ip6 &dst, const Bytes &msg)
{
    Bytes all;
    append(all, src);
    append(all, dst);
    append32(all, static_cast<uint32_t>(msg.size()));
    append32(all, 58);
    append(all, msg);
    if (all.size() % 2)
        all.push_back(0);
    uint64_t sum = 0;
    for (size_t i = 0; i < all.size(); i += 2)
        sum += static_cast<uint64_t>(all[i] << 8 | all[i + 1]);
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xffff);
}

// Options.
inline Bytes lladdr_option(uint8_t type, const Mac &mac)
{
    Bytes b{type, 1};
    append(b, mac);
    return b;
}
inline Bytes prefix_option(const Ip6 &prefix, uint8_t length, uint8_t flags, uint32_t valid, uint32_t preferred)
{
    Bytes b{3, 4, length, flags};
    append32(b, valid);
    append32(b, preferred);
    append32(b, 0);
    append(b, prefix);
    return b;
}

// Message bodies after type, code and checksum.
inline Bytes neighbor_body(uint8_t flags, const Ip6 &target)
{
    Bytes b{flags, 0, 0, 0};
    append(b, target);
    return b;
}
inline Bytes ra_body(uint8_t hop, uint8_t flags, uint16_t lifetime, uint32_t reachable, uint32_t retrans)
{
    Bytes b{hop, flags};
    append16(b, lifetime);
    append32(b, reachable);
    append32(b, retrans);
    return b;
}
inline Bytes redirect_body(const Ip6 &target, const Ip6 &destination)
{
    Bytes b{0, 0, 0, 0};
    append(b, target);
    append(b, destination);
    return b;
}

// Extension headers: next header, length in 8-byte units beyond the first 8, padding options.
inline Bytes ext_header(uint8_t next, uint8_t units)
{
    Bytes b{next, units};
    // PadN filling the rest of the header.
    const size_t size = (size_t{units} + 1) * 8;
    b.push_back(1);
    b.push_back(static_cast<uint8_t>(size - 4));
    b.resize(size, 0);
    return b;
}
inline Bytes routing_header(uint8_t next, uint8_t segmentsLeft)
{
    Bytes b{next, 0, 0, segmentsLeft};
    b.resize(8, 0);
    return b;
}
inline Bytes fragment_header(uint8_t next)
{
    Bytes b{next, 0, 0, 0, 0, 0, 0x12, 0x34};
    return b;
}

inline const Mac kHostMac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
inline const Mac kOtherMac = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
inline const Mac kSwitchMac = {0x00, 0x1b, 0x21, 0x0a, 0x0b, 0x0c};
inline const Ip6 kUnspecified{};
inline const Ip6 kHostLinkLocal = ip6(0xfe80, 0, 0, 0, 0x0011, 0x22ff, 0xfe33, 0x4455);
inline const Ip6 kHostGlobal = ip6(0x2001, 0x0db8, 0, 1, 0, 0, 0, 0x0042);
inline const Ip6 kPeerGlobal = ip6(0x2001, 0x0db8, 0, 1, 0, 0, 0, 0x0099);
inline const Ip6 kRouterLinkLocal = ip6(0xfe80, 0, 0, 0, 0x021b, 0x21ff, 0xfe0a, 0x0b0c);
inline const Ip6 kAllNodes = ip6(0xff02, 0, 0, 0, 0, 0, 0, 1);
inline const Ip6 kAllRouters = ip6(0xff02, 0, 0, 0, 0, 0, 0, 2);
inline const Ip6 kHostGlobalSolicited = ip6(0xff02, 0, 0, 0, 0, 1, 0xff00, 0x0042);

// A whole frame; every field can be bent to make one fault.
struct FrameRecipe {
    Mac eth_dst = {0x33, 0x33, 0, 0, 0, 1};
    Mac eth_src = kHostMac;
    std::optional<uint16_t> tag;    // the 802.1Q tag control field when tagged
    std::optional<uint16_t> tag2;   // a second tag (never accepted)
    uint16_t ethertype = 0x86dd;
    uint8_t version = 6;
    uint8_t hop_limit = 255;
    Ip6 src = kHostLinkLocal;
    Ip6 dst = kAllNodes;
    uint8_t first_next = 58;        // next header of the IPv6 header
    Bytes extensions;               // extension headers, already chained to ICMPv6
    uint8_t type = 135;
    uint8_t code = 0;
    Bytes body;                     // after type, code and checksum, options included
    int checksum_delta = 0;         // added to the correct checksum
    std::optional<uint16_t> payload_length; // instead of the true one
    size_t padding = 0;             // Ethernet padding after the packet

    Bytes message() const
    {
        Bytes msg{type, code, 0, 0};
        append(msg, body);
        const uint16_t sum = static_cast<uint16_t>(reference_checksum(src, dst, msg) + checksum_delta);
        msg[2] = static_cast<uint8_t>(sum >> 8);
        msg[3] = static_cast<uint8_t>(sum);
        return msg;
    }

    Bytes bytes() const
    {
        Bytes f;
        append(f, eth_dst);
        append(f, eth_src);
        if (tag) {
            append16(f, 0x8100);
            append16(f, *tag);
        }
        if (tag2) {
            append16(f, 0x8100);
            append16(f, *tag2);
        }
        append16(f, ethertype);
        const Bytes msg = message();
        f.push_back(static_cast<uint8_t>(version << 4));
        f.push_back(0);
        f.push_back(0);
        f.push_back(0);
        append16(f, payload_length ? *payload_length : static_cast<uint16_t>(extensions.size() + msg.size()));
        f.push_back(first_next);
        f.push_back(hop_limit);
        append(f, src);
        append(f, dst);
        append(f, extensions);
        append(f, msg);
        f.resize(f.size() + padding, 0);
        return f;
    }
};

// Parses exactly the given bytes from a heap block of that size, so that AddressSanitizer sees
// any read past the frame's end.
inline ndsvc::packet::ParseResult parse_exact(const Bytes &frame, ndsvc::packet::NdPacket &out)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[frame.size()]);
    if (!frame.empty())
        std::memcpy(copy.get(), frame.data(), frame.size());
    return ndsvc::packet::parse(copy.get(), frame.size(), out);
}

// Frames of each message type, valid as they stand.
inline FrameRecipe ns_frame()
{
    FrameRecipe f;
    f.eth_dst = {0x33, 0x33, 0xff, 0x00, 0x00, 0x42};
    f.src = kPeerGlobal;
    f.dst = kHostGlobalSolicited;
    f.type = 135;
    f.body = neighbor_body(0, kHostGlobal);
    append(f.body, lladdr_option(1, kHostMac));
    return f;
}
inline FrameRecipe dad_frame()
{
    FrameRecipe f = ns_frame();
    f.src = kUnspecified;
    f.body = neighbor_body(0, kHostGlobal);
    return f;
}
inline FrameRecipe na_frame()
{
    FrameRecipe f;
    f.eth_dst = kOtherMac;
    f.src = kHostGlobal;
    f.dst = kPeerGlobal;
    f.type = 136;
    f.body = neighbor_body(0xe0, kHostGlobal);
    append(f.body, lladdr_option(2, kHostMac));
    return f;
}
inline FrameRecipe rs_frame()
{
    FrameRecipe f;
    f.eth_dst = {0x33, 0x33, 0, 0, 0, 2};
    f.dst = kAllRouters;
    f.type = 133;
    f.body = Bytes(4, 0);
    return f;
}
inline FrameRecipe ra_frame()
{
    FrameRecipe f;
    f.eth_src = kSwitchMac;
    f.src = kRouterLinkLocal;
    f.type = 134;
    f.body = ra_body(64, 0xc0, 1800, 30000, 1000);
    append(f.body, lladdr_option(1, kSwitchMac));
    return f;
}
inline FrameRecipe redirect_frame()
{
    FrameRecipe f;
    f.eth_src = kSwitchMac;
    f.eth_dst = kHostMac;
    f.src = kRouterLinkLocal;
    f.dst = kHostLinkLocal;
    f.type = 137;
    f.body = redirect_body(ip6(0xfe80, 0, 0, 0, 0, 0, 0, 0x77), kPeerGlobal);
    return f;
}

} // namespace ndtest_packet
