// Fuzzes the ND frame parser: any bytes are parsed as a received Ethernet frame. A frame taken
// as a neighbor solicitation or advertisement is built again from its fields, and the rebuilt
// frame must parse to the same fields; a refused frame must name a known reason. Nothing may
// crash or read outside the frame.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "nd_packet.h"

namespace {

using namespace ndsvc::packet;

// The fields a rebuilt NS or NA carries over from the parsed one.
bool same_neighbor_fields(const NdPacket &a, const NdPacket &b)
{
    if (a.type != b.type || a.eth_dst != b.eth_dst || a.eth_src != b.eth_src || a.has_vlan != b.has_vlan ||
        a.vlan_id != b.vlan_id || a.src != b.src || a.dst != b.dst || a.hop_limit != b.hop_limit ||
        a.target != b.target)
        return false;
    if (a.type == NdType::NeighborSolicitation)
        return a.has_source_lladdr == b.has_source_lladdr && (!a.has_source_lladdr || a.source_lladdr == b.source_lladdr);
    return a.router == b.router && a.solicited == b.solicited && a.override_flag == b.override_flag &&
           a.has_target_lladdr == b.has_target_lladdr && (!a.has_target_lladdr || a.target_lladdr == b.target_lladdr);
}

void rebuild(const NdPacket &p)
{
    FrameAddress addr;
    addr.eth_dst = p.eth_dst;
    addr.eth_src = p.eth_src;
    addr.has_vlan = p.has_vlan;
    addr.vlan_id = p.vlan_id;
    addr.src = p.src;
    addr.dst = p.dst;
    uint8_t buf[kMaxBuiltFrame];
    size_t n = 0;
    if (p.type == NdType::NeighborSolicitation) {
        n = build_ns(addr, p.target, p.has_source_lladdr ? &p.source_lladdr : nullptr, buf, sizeof buf);
    } else {
        const NaFlags flags{p.router, p.solicited, p.override_flag};
        n = build_na(addr, p.target, flags, p.has_target_lladdr ? &p.target_lladdr : nullptr, buf, sizeof buf);
    }
    // What the parser took, the builder must be able to send.
    if (n == 0)
        __builtin_trap();
    NdPacket again;
    if (parse(buf, n, again) != ParseResult::Ok || !same_neighbor_fields(p, again))
        __builtin_trap();
    if (is_dad(p) != is_dad(again))
        __builtin_trap();
    // The checksum the builder wrote verifies.
    const size_t messageAt = 14 + (p.has_vlan ? 4 : 0) + 40; // Ethernet, tag, IPv6 header
    if (icmp6_checksum(again.src, again.dst, buf + messageAt, n - messageAt) != 0)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // An exact-size copy, so that a read past the frame's end is caught.
    std::unique_ptr<uint8_t[]> frame(new uint8_t[size]);
    if (size)
        std::memcpy(frame.get(), data, size);
    NdPacket p;
    const ParseResult r = parse(frame.get(), size, p);
    if (static_cast<size_t>(r) >= kParseResultCount || reason_text(r) == nullptr)
        __builtin_trap();
    if (r != ParseResult::Ok)
        return 0;
    if (p.hop_limit != 255 || p.prefix_count > kMaxPrefixes || p.prefix_count > p.prefix_total ||
        (p.prefix_total > p.prefix_count && p.prefix_count != kMaxPrefixes))
        __builtin_trap();
    (void)lladdr_disagrees(p);
    if (p.type == NdType::NeighborSolicitation || p.type == NdType::NeighborAdvertisement)
        rebuild(p);
    return 0;
}
