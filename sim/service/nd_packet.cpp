// ND messages on the wire. The system's <netinet/ip6.h>/<netinet/icmp6.h> structures give
// sizes and field offsets only; every field is read and written byte-wise at its offset, in
// network order, so that no frame pointer is ever taken for a structure (the frame may sit at
// any alignment, and the compiler may not assume what a cast would let it assume).
#include "nd_packet.h"

#include <cstring>

#include <net/ethernet.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip6.h>

namespace ndsvc::packet {
namespace {

constexpr size_t kEthHeader = sizeof(ether_header);
constexpr size_t kEthTypeAt = offsetof(ether_header, ether_type);
constexpr size_t kVlanTag = 4;
constexpr uint16_t kVlanIdMask = 0x0fff;

constexpr size_t kIp6Header = sizeof(ip6_hdr);
constexpr size_t kIp6FlowAt = offsetof(ip6_hdr, ip6_flow);
constexpr size_t kIp6PlenAt = offsetof(ip6_hdr, ip6_plen);
constexpr size_t kIp6NextAt = offsetof(ip6_hdr, ip6_nxt);
constexpr size_t kIp6HlimAt = offsetof(ip6_hdr, ip6_hlim);
constexpr size_t kIp6SrcAt = offsetof(ip6_hdr, ip6_src);
constexpr size_t kIp6DstAt = offsetof(ip6_hdr, ip6_dst);
constexpr uint8_t kIp6Version = 6;
constexpr uint8_t kNdHopLimit = 255;

// Extension headers: next header and length (in 8-byte units, not counting the first 8).
constexpr size_t kExtNextAt = offsetof(ip6_ext, ip6e_nxt);
constexpr size_t kExtLenAt = offsetof(ip6_ext, ip6e_len);
constexpr size_t kExtUnit = 8;
constexpr size_t kRoutingSegLeftAt = offsetof(ip6_rthdr, ip6r_segleft);

constexpr size_t kIcmpHeader = offsetof(icmp6_hdr, icmp6_dataun);
constexpr size_t kIcmpTypeAt = offsetof(icmp6_hdr, icmp6_type);
constexpr size_t kIcmpCodeAt = offsetof(icmp6_hdr, icmp6_code);
constexpr size_t kIcmpSumAt = offsetof(icmp6_hdr, icmp6_cksum);
constexpr size_t kIcmpDataAt = kIcmpHeader; // first byte after type, code and checksum

// Fixed parts of the five messages.
constexpr size_t kRsLength = sizeof(nd_router_solicit);
constexpr size_t kRaLength = sizeof(nd_router_advert);
constexpr size_t kNsLength = sizeof(nd_neighbor_solicit);
constexpr size_t kNaLength = sizeof(nd_neighbor_advert);
constexpr size_t kRedirectLength = sizeof(nd_redirect);
constexpr size_t kNsTargetAt = offsetof(nd_neighbor_solicit, nd_ns_target);
constexpr size_t kNaTargetAt = offsetof(nd_neighbor_advert, nd_na_target);
constexpr size_t kRedirectTargetAt = offsetof(nd_redirect, nd_rd_target);
constexpr size_t kRedirectDstAt = offsetof(nd_redirect, nd_rd_dst);
constexpr size_t kRaReachableAt = offsetof(nd_router_advert, nd_ra_reachable);
constexpr size_t kRaRetransAt = offsetof(nd_router_advert, nd_ra_retransmit);
// The RA's hop limit, flags and lifetime sit in the ICMPv6 header's data words.
constexpr size_t kRaCurHopLimitAt = kIcmpDataAt;
constexpr size_t kRaFlagsAt = kIcmpDataAt + 1;
constexpr size_t kRaLifetimeAt = kIcmpDataAt + 2;
// The NA flags are the top bits of the first data byte.
constexpr size_t kNaFlagsAt = kIcmpDataAt;
constexpr uint8_t kNaRouter = 0x80;
constexpr uint8_t kNaSolicited = 0x40;
constexpr uint8_t kNaOverride = 0x20;

// Options: type, length in 8-byte units, body.
constexpr size_t kOptTypeAt = offsetof(nd_opt_hdr, nd_opt_type);
constexpr size_t kOptLenAt = offsetof(nd_opt_hdr, nd_opt_len);
constexpr size_t kOptUnit = 8;
constexpr size_t kOptHeader = sizeof(nd_opt_hdr);
constexpr size_t kLinkLayerOptUnits = 1; // type, length and a 6-byte MAC
constexpr size_t kPrefixOptLength = sizeof(nd_opt_prefix_info);
constexpr size_t kPrefixLenAt = offsetof(nd_opt_prefix_info, nd_opt_pi_prefix_len);
constexpr size_t kPrefixFlagsAt = offsetof(nd_opt_prefix_info, nd_opt_pi_flags_reserved);
constexpr size_t kPrefixValidAt = offsetof(nd_opt_prefix_info, nd_opt_pi_valid_time);
constexpr size_t kPrefixPreferredAt = offsetof(nd_opt_prefix_info, nd_opt_pi_preferred_time);
constexpr size_t kPrefixAddrAt = offsetof(nd_opt_prefix_info, nd_opt_pi_prefix);
constexpr uint8_t kPrefixMaxBits = 128;

constexpr uint8_t kFirstNdType = ND_ROUTER_SOLICIT;
constexpr uint8_t kLastNdType = ND_REDIRECT;

static_assert(kEthHeader == 14 && kIp6Header == 40 && kIcmpHeader == 4);
static_assert(kNsLength == 24 && kNaLength == 24 && kRaLength == 16 && kRedirectLength == 40);
static_assert(kPrefixOptLength == 32 && kPrefixAddrAt == 16);
static_assert(kMaxBuiltFrame == kEthHeader + kVlanTag + kIp6Header + kNsLength + kLinkLayerOptUnits * kOptUnit);

uint16_t get16(const uint8_t *p)
{
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

uint32_t get32(const uint8_t *p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

void put16(uint8_t *p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

template <size_t N>
std::array<uint8_t, N> get_bytes(const uint8_t *p)
{
    std::array<uint8_t, N> out;
    std::memcpy(out.data(), p, N);
    return out;
}

// One's complement sum of 16-bit big-endian words, an odd last byte padded with zero.
uint32_t sum_words(uint32_t sum, const uint8_t *p, size_t length)
{
    for (; length >= 2; p += 2, length -= 2)
        sum += get16(p);
    if (length)
        sum += uint32_t{p[0]} << 8;
    return sum;
}

// Where a frame's IPv6 header starts, and its 802.1Q tag.
struct Link {
    ParseResult result;
    size_t ip_at;
};

Link read_link(const uint8_t *frame, size_t length, NdPacket &out)
{
    if (length < kEthHeader)
        return {ParseResult::TruncatedEthernet, 0};
    out.eth_dst = get_bytes<6>(frame + offsetof(ether_header, ether_dhost));
    out.eth_src = get_bytes<6>(frame + offsetof(ether_header, ether_shost));
    size_t typeAt = kEthTypeAt;
    uint16_t type = get16(frame + typeAt);
    if (type == ETHERTYPE_VLAN) {
        if (length < kEthHeader + kVlanTag)
            return {ParseResult::TruncatedEthernet, 0};
        out.has_vlan = true;
        out.vlan_id = get16(frame + typeAt + 2) & kVlanIdMask;
        typeAt += kVlanTag;
        type = get16(frame + typeAt);
    }
    if (type != ETHERTYPE_IPV6)
        return {ParseResult::NotIpv6, 0};
    return {ParseResult::Ok, typeAt + 2};
}

// Where the ICMPv6 message starts inside the IPv6 payload, past the extension headers.
struct Upper {
    ParseResult result;
    size_t at; // offset from the start of the payload
};

Upper walk_extensions(uint8_t next, const uint8_t *payload, size_t length)
{
    size_t at = 0;
    bool first = true;
    for (;;) {
        switch (next) {
        case IPPROTO_ICMPV6:
            return {ParseResult::Ok, at};
        case IPPROTO_FRAGMENT:
            return {ParseResult::Fragmented, 0};
        case IPPROTO_HOPOPTS:
            if (!first)
                return {ParseResult::MisplacedHopByHop, 0};
            break;
        case IPPROTO_DSTOPTS:
        case IPPROTO_ROUTING:
            break;
        default:
            return {ParseResult::NotIcmpv6, 0};
        }
        // Every one of these starts with next header and length and is at least 8 bytes.
        if (length - at < kExtUnit)
            return {ParseResult::TruncatedExtension, 0};
        const size_t size = (size_t{payload[at + kExtLenAt]} + 1) * kExtUnit;
        if (length - at < size)
            return {ParseResult::TruncatedExtension, 0};
        if (next == IPPROTO_ROUTING && payload[at + kRoutingSegLeftAt] != 0)
            return {ParseResult::RoutingNotFinal, 0};
        next = payload[at + kExtNextAt];
        at += size;
        first = false;
    }
}

size_t min_length(uint8_t type)
{
    switch (type) {
    case ND_ROUTER_SOLICIT:
        return kRsLength;
    case ND_ROUTER_ADVERT:
        return kRaLength;
    case ND_NEIGHBOR_SOLICIT:
        return kNsLength;
    case ND_NEIGHBOR_ADVERT:
        return kNaLength;
    default:
        return kRedirectLength;
    }
}

size_t options_at(uint8_t type)
{
    return min_length(type);
}

ParseResult read_prefix(const uint8_t *opt, size_t size, NdPacket &out)
{
    if (size != kPrefixOptLength || opt[kPrefixLenAt] > kPrefixMaxBits)
        return ParseResult::BadPrefixOption;
    if (out.prefix_count < kMaxPrefixes) {
        PrefixInfo &info = out.prefixes[out.prefix_count++];
        info.length = opt[kPrefixLenAt];
        info.on_link = opt[kPrefixFlagsAt] & ND_OPT_PI_FLAG_ONLINK;
        info.autonomous = opt[kPrefixFlagsAt] & ND_OPT_PI_FLAG_AUTO;
        info.valid_lifetime = get32(opt + kPrefixValidAt);
        info.preferred_lifetime = get32(opt + kPrefixPreferredAt);
        info.prefix = get_bytes<16>(opt + kPrefixAddrAt);
    }
    ++out.prefix_total;
    return ParseResult::Ok;
}

// Walks the options after the fixed part: each one whole inside the message and of nonzero
// length; the link-layer and prefix options are read, the others skipped.
ParseResult read_options(const uint8_t *msg, size_t length, NdPacket &out)
{
    size_t at = options_at(msg[kIcmpTypeAt]);
    while (at < length) {
        if (length - at < kOptHeader)
            return ParseResult::OptionOverrun;
        const uint8_t type = msg[at + kOptTypeAt];
        const size_t size = size_t{msg[at + kOptLenAt]} * kOptUnit;
        if (size == 0)
            return ParseResult::ZeroLengthOption;
        if (length - at < size)
            return ParseResult::OptionOverrun;
        const uint8_t *opt = msg + at;
        switch (type) {
        case ND_OPT_SOURCE_LINKADDR:
        case ND_OPT_TARGET_LINKADDR: {
            if (size != kLinkLayerOptUnits * kOptUnit)
                return ParseResult::BadLinkLayerOption;
            const bool source = type == ND_OPT_SOURCE_LINKADDR;
            bool &has = source ? out.has_source_lladdr : out.has_target_lladdr;
            if (!has) {
                has = true;
                (source ? out.source_lladdr : out.target_lladdr) = get_bytes<6>(opt + kOptHeader);
            }
            break;
        }
        case ND_OPT_PREFIX_INFORMATION:
            if (out.type == NdType::RouterAdvertisement) {
                const ParseResult r = read_prefix(opt, size, out);
                if (r != ParseResult::Ok)
                    return r;
            }
            break;
        default:
            break;
        }
        at += size;
    }
    return ParseResult::Ok;
}

// The rules each message type adds once it is whole and its options are read.
ParseResult check_type_rules(NdPacket &out)
{
    switch (out.type) {
    case NdType::RouterSolicitation:
        if (is_unspecified(out.src) && out.has_source_lladdr)
            return ParseResult::UnspecifiedWithLinkLayer;
        break;
    case NdType::RouterAdvertisement:
        if (!is_link_local(out.src))
            return ParseResult::SourceNotLinkLocal;
        break;
    case NdType::NeighborSolicitation:
        if (is_multicast(out.target))
            return ParseResult::MulticastTarget;
        if (is_unspecified(out.src)) {
            if (!is_solicited_node(out.dst))
                return ParseResult::DadNotToSolicitedNode;
            if (out.has_source_lladdr)
                return ParseResult::UnspecifiedWithLinkLayer;
        }
        break;
    case NdType::NeighborAdvertisement:
        if (is_multicast(out.target))
            return ParseResult::MulticastTarget;
        if (out.solicited && is_multicast(out.dst))
            return ParseResult::SolicitedToMulticast;
        break;
    case NdType::Redirect:
        if (!is_link_local(out.src))
            return ParseResult::SourceNotLinkLocal;
        if (is_multicast(out.redirect_destination))
            return ParseResult::MulticastRedirectDestination;
        if (!is_link_local(out.target) && out.target != out.redirect_destination)
            return ParseResult::BadRedirectTarget;
        break;
    }
    return ParseResult::Ok;
}

void read_fixed(const uint8_t *msg, NdPacket &out)
{
    switch (out.type) {
    case NdType::RouterSolicitation:
        break;
    case NdType::RouterAdvertisement:
        out.cur_hop_limit = msg[kRaCurHopLimitAt];
        out.ra_flags = msg[kRaFlagsAt];
        out.router_lifetime = get16(msg + kRaLifetimeAt);
        out.reachable_time = get32(msg + kRaReachableAt);
        out.retrans_timer = get32(msg + kRaRetransAt);
        break;
    case NdType::NeighborSolicitation:
        out.target = get_bytes<16>(msg + kNsTargetAt);
        break;
    case NdType::NeighborAdvertisement:
        out.target = get_bytes<16>(msg + kNaTargetAt);
        out.router = msg[kNaFlagsAt] & kNaRouter;
        out.solicited = msg[kNaFlagsAt] & kNaSolicited;
        out.override_flag = msg[kNaFlagsAt] & kNaOverride;
        break;
    case NdType::Redirect:
        out.target = get_bytes<16>(msg + kRedirectTargetAt);
        out.redirect_destination = get_bytes<16>(msg + kRedirectDstAt);
        break;
    }
}

// Ethernet and IPv6 headers of a built frame; returns where the ICMPv6 message starts.
size_t put_headers(const FrameAddress &addr, size_t messageLength, uint8_t *buf)
{
    size_t at = 0;
    std::memcpy(buf + offsetof(ether_header, ether_dhost), addr.eth_dst.data(), addr.eth_dst.size());
    std::memcpy(buf + offsetof(ether_header, ether_shost), addr.eth_src.data(), addr.eth_src.size());
    at = kEthTypeAt;
    if (addr.has_vlan) {
        put16(buf + at, ETHERTYPE_VLAN);
        put16(buf + at + 2, addr.vlan_id);
        at += kVlanTag;
    }
    put16(buf + at, ETHERTYPE_IPV6);
    uint8_t *ip = buf + at + 2;
    std::memset(ip, 0, kIp6Header);
    ip[kIp6FlowAt] = kIp6Version << 4;
    put16(ip + kIp6PlenAt, static_cast<uint16_t>(messageLength));
    ip[kIp6NextAt] = IPPROTO_ICMPV6;
    ip[kIp6HlimAt] = kNdHopLimit;
    std::memcpy(ip + kIp6SrcAt, addr.src.data(), addr.src.size());
    std::memcpy(ip + kIp6DstAt, addr.dst.data(), addr.dst.size());
    return at + 2 + kIp6Header;
}

size_t frame_length(const FrameAddress &addr, size_t messageLength)
{
    return kEthHeader + (addr.has_vlan ? kVlanTag : 0) + kIp6Header + messageLength;
}

// An NS or NA: fixed part with its target, and at most one link-layer option.
size_t build_neighbor(const FrameAddress &addr, uint8_t type, uint8_t flags, const Ip6 &target,
                      uint8_t optType, const Mac *lladdr, uint8_t *buf, size_t capacity)
{
    const size_t messageLength = kNsLength + (lladdr ? kLinkLayerOptUnits * kOptUnit : 0);
    const size_t total = frame_length(addr, messageLength);
    if (!buf || capacity < total)
        return 0;
    uint8_t *msg = buf + put_headers(addr, messageLength, buf);
    std::memset(msg, 0, messageLength);
    msg[kIcmpTypeAt] = type;
    msg[kNaFlagsAt] = flags;
    static_assert(kNsTargetAt == kNaTargetAt);
    std::memcpy(msg + kNsTargetAt, target.data(), target.size());
    if (lladdr) {
        uint8_t *opt = msg + kNsLength;
        opt[kOptTypeAt] = optType;
        opt[kOptLenAt] = kLinkLayerOptUnits;
        std::memcpy(opt + kOptHeader, lladdr->data(), lladdr->size());
    }
    put16(msg + kIcmpSumAt, icmp6_checksum(addr.src, addr.dst, msg, messageLength));
    return total;
}

bool addressing_sendable(const FrameAddress &addr, const Ip6 &target)
{
    return !is_multicast(addr.src) && !is_multicast(target) && (!addr.has_vlan || addr.vlan_id <= kVlanIdMask);
}

} // namespace

// The text of each reason, in the order of ParseResult.
// clang-format off
constexpr std::array<const char *, kParseResultCount> kReasonTexts = {
    "ok", // Ok
    "truncated ethernet header", // TruncatedEthernet
    "not ipv6", // NotIpv6
    "truncated ipv6 header", // TruncatedIpv6
    "bad ip version", // BadIpVersion
    "payload length beyond frame", // TruncatedPayload
    "multicast source address", // MulticastSource
    "truncated extension header", // TruncatedExtension
    "misplaced hop-by-hop header", // MisplacedHopByHop
    "routing header with segments left", // RoutingNotFinal
    "fragment header", // Fragmented
    "not icmpv6", // NotIcmpv6
    "truncated icmpv6 header", // TruncatedIcmp
    "not an nd message", // NotNd
    "hop limit not 255", // BadHopLimit
    "icmpv6 code not 0", // BadCode
    "message too short", // MessageTooShort
    "bad checksum", // BadChecksum
    "zero-length option", // ZeroLengthOption
    "option beyond message", // OptionOverrun
    "bad link-layer address option", // BadLinkLayerOption
    "bad prefix information option", // BadPrefixOption
    "multicast target address", // MulticastTarget
    "dad not to solicited-node address", // DadNotToSolicitedNode
    "unspecified source with link-layer option", // UnspecifiedWithLinkLayer
    "solicited advertisement to multicast", // SolicitedToMulticast
    "source not link-local", // SourceNotLinkLocal
    "multicast redirect destination", // MulticastRedirectDestination
    "bad redirect target", // BadRedirectTarget
};
// clang-format on
static_assert(kReasonTexts.back() != nullptr, "a text for every reason");

const char *reason_text(ParseResult result)
{
    size_t index = static_cast<size_t>(result);
    return index < kReasonTexts.size() ? kReasonTexts[index] : "unknown";
}

ParseResult parse(const uint8_t *frame, size_t length, NdPacket &out)
{
    out = NdPacket{};
    if (!frame)
        length = 0;
    const Link link = read_link(frame, length, out);
    if (link.result != ParseResult::Ok)
        return link.result;
    if (length - link.ip_at < kIp6Header)
        return ParseResult::TruncatedIpv6;
    const uint8_t *ip = frame + link.ip_at;
    if (ip[kIp6FlowAt] >> 4 != kIp6Version)
        return ParseResult::BadIpVersion;
    // Anything after the payload is Ethernet padding.
    const size_t payloadLength = get16(ip + kIp6PlenAt);
    if (length - link.ip_at - kIp6Header < payloadLength)
        return ParseResult::TruncatedPayload;
    out.hop_limit = ip[kIp6HlimAt];
    out.src = get_bytes<16>(ip + kIp6SrcAt);
    out.dst = get_bytes<16>(ip + kIp6DstAt);
    if (is_multicast(out.src))
        return ParseResult::MulticastSource;

    const uint8_t *payload = ip + kIp6Header;
    const Upper upper = walk_extensions(ip[kIp6NextAt], payload, payloadLength);
    if (upper.result != ParseResult::Ok)
        return upper.result;
    const uint8_t *msg = payload + upper.at;
    const size_t msgLength = payloadLength - upper.at;
    if (msgLength < kIcmpHeader)
        return ParseResult::TruncatedIcmp;
    const uint8_t type = msg[kIcmpTypeAt];
    if (type < kFirstNdType || type > kLastNdType)
        return ParseResult::NotNd;
    out.type = static_cast<NdType>(type);
    if (out.hop_limit != kNdHopLimit)
        return ParseResult::BadHopLimit;
    if (msg[kIcmpCodeAt] != 0)
        return ParseResult::BadCode;
    if (msgLength < min_length(type))
        return ParseResult::MessageTooShort;
    if (icmp6_checksum(out.src, out.dst, msg, msgLength) != 0)
        return ParseResult::BadChecksum;
    read_fixed(msg, out);
    const ParseResult options = read_options(msg, msgLength, out);
    if (options != ParseResult::Ok)
        return options;
    return check_type_rules(out);
}

bool is_dad(const NdPacket &packet)
{
    return packet.type == NdType::NeighborSolicitation && is_unspecified(packet.src);
}

bool lladdr_disagrees(const NdPacket &packet)
{
    return (packet.has_source_lladdr && packet.source_lladdr != packet.eth_src) ||
           (packet.has_target_lladdr && packet.target_lladdr != packet.eth_src);
}

bool is_unspecified(const Ip6 &addr)
{
    return addr == Ip6{};
}

bool is_multicast(const Ip6 &addr)
{
    return addr[0] == 0xff;
}

bool is_link_local(const Ip6 &addr)
{
    return addr[0] == 0xfe && (addr[1] & 0xc0) == 0x80;
}

// ff02::1:ff00:0/104
constexpr Ip6 kSolicitedNodePrefix = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0xff, 0, 0, 0};
constexpr size_t kSolicitedNodePrefixBytes = 13;

bool is_solicited_node(const Ip6 &addr)
{
    return std::memcmp(addr.data(), kSolicitedNodePrefix.data(), kSolicitedNodePrefixBytes) == 0;
}

Ip6 solicited_node(const Ip6 &addr)
{
    Ip6 group = kSolicitedNodePrefix;
    std::memcpy(group.data() + kSolicitedNodePrefixBytes, addr.data() + kSolicitedNodePrefixBytes,
                group.size() - kSolicitedNodePrefixBytes);
    return group;
}

Mac multicast_mac(const Ip6 &group)
{
    Mac mac = {0x33, 0x33, 0, 0, 0, 0};
    std::memcpy(mac.data() + 2, group.data() + 12, 4);
    return mac;
}

uint16_t icmp6_checksum(const Ip6 &src, const Ip6 &dst, const uint8_t *message, size_t length)
{
    // Pseudo-header: source, destination, 32-bit upper-layer length, 24 zero bits, next header.
    uint32_t sum = 0;
    sum = sum_words(sum, src.data(), src.size());
    sum = sum_words(sum, dst.data(), dst.size());
    sum += static_cast<uint32_t>(length >> 16) + static_cast<uint32_t>(length & 0xffff);
    sum += IPPROTO_ICMPV6;
    // Fold as we go so that no message an IPv6 payload can hold overflows the sum.
    for (size_t done = 0; done < length;) {
        const size_t chunk = length - done < 0x10000 ? length - done : 0x10000;
        sum = sum_words(sum, message + done, chunk);
        sum = (sum & 0xffff) + (sum >> 16);
        done += chunk;
    }
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

size_t build_ns(const FrameAddress &addr, const Ip6 &target, const Mac *source_lladdr,
                uint8_t *buf, size_t capacity)
{
    if (!addressing_sendable(addr, target))
        return 0;
    if (is_unspecified(addr.src) && (source_lladdr || !is_solicited_node(addr.dst)))
        return 0;
    return build_neighbor(addr, ND_NEIGHBOR_SOLICIT, 0, target, ND_OPT_SOURCE_LINKADDR, source_lladdr, buf,
                          capacity);
}

size_t build_na(const FrameAddress &addr, const Ip6 &target, NaFlags flags, const Mac *target_lladdr,
                uint8_t *buf, size_t capacity)
{
    if (!addressing_sendable(addr, target))
        return 0;
    if (flags.solicited && is_multicast(addr.dst))
        return 0;
    const uint8_t bits = static_cast<uint8_t>((flags.router ? kNaRouter : 0) | (flags.solicited ? kNaSolicited : 0) |
                                              (flags.override_flag ? kNaOverride : 0));
    return build_neighbor(addr, ND_NEIGHBOR_ADVERT, bits, target, ND_OPT_TARGET_LINKADDR, target_lladdr, buf,
                          capacity);
}

} // namespace ndsvc::packet
