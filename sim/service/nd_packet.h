// IPv6 Neighbor Discovery messages on the wire: a parser of received Ethernet frames and
// builders of the frames the service sends (neighbor solicitations and advertisements).
// Everything here is pure and allocation-free: the parser reads the caller's bytes with bounds
// and fills a fixed-size record; the builders write into the caller's buffer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace ndsvc::packet {

using Mac = std::array<uint8_t, 6>;
using Ip6 = std::array<uint8_t, 16>;

// ICMPv6 types of the five ND messages.
enum class NdType : uint8_t {
    RouterSolicitation = 133,
    RouterAdvertisement = 134,
    NeighborSolicitation = 135,
    NeighborAdvertisement = 136,
    Redirect = 137,
};

// Why a frame is not taken as an ND message; Ok when it is. Every value has its own text
// (reason_text), so that the service can count and log each one apart.
enum class ParseResult : uint8_t {
    Ok,
    TruncatedEthernet,            // shorter than the Ethernet header (with its 802.1Q tag)
    NotIpv6,                      // ethertype (after at most one 802.1Q tag) other than IPv6
    TruncatedIpv6,                // shorter than the IPv6 header
    BadIpVersion,                 // version field other than 6
    TruncatedPayload,             // the IPv6 payload length runs beyond the frame
    MulticastSource,              // IPv6 source is a multicast address
    TruncatedExtension,           // an extension header runs beyond the payload
    MisplacedHopByHop,            // hop-by-hop options anywhere but right after the IPv6 header
    RoutingNotFinal,              // routing header with segments left: not for this node yet
    Fragmented,                   // a fragment header: ND is never fragmented
    NotIcmpv6,                    // the upper layer is not ICMPv6
    TruncatedIcmp,                // fewer than the four bytes of the ICMPv6 header
    NotNd,                        // ICMPv6 type outside 133..137
    BadHopLimit,                  // IPv6 hop limit other than 255
    BadCode,                      // ICMPv6 code other than 0
    MessageTooShort,              // shorter than the fixed part of its type
    BadChecksum,                  // ICMPv6 checksum does not verify
    ZeroLengthOption,             // an option of length 0
    OptionOverrun,                // an option runs beyond the message
    BadLinkLayerOption,           // source/target link-layer option not 8 bytes (Ethernet)
    BadPrefixOption,              // prefix information option not 32 bytes, or prefix length > 128
    MulticastTarget,              // NS/NA target address is multicast
    DadNotToSolicitedNode,        // NS from :: not sent to a solicited-node multicast address
    UnspecifiedWithLinkLayer,     // NS or RS from :: carrying a source link-layer option
    SolicitedToMulticast,         // NA with the solicited flag sent to a multicast address
    SourceNotLinkLocal,           // RA or Redirect from other than a link-local address
    MulticastRedirectDestination, // Redirect destination address is multicast
    BadRedirectTarget,            // Redirect target neither link-local nor the destination itself
};

// Number of ParseResult values, for tables of counters indexed by the reason (BadRedirectTarget
// is the last one: a reason added after it moves this count too).
inline constexpr size_t kParseResultCount = static_cast<size_t>(ParseResult::BadRedirectTarget) + 1;

// A short fixed text per reason ("ok" for Ok); never null, also for out-of-range values.
const char *reason_text(ParseResult result);

// One prefix information option of a router advertisement.
struct PrefixInfo {
    Ip6 prefix{};
    uint8_t length = 0;
    bool on_link = false;    // L flag
    bool autonomous = false; // A flag
    uint32_t valid_lifetime = 0;
    uint32_t preferred_lifetime = 0;
};

// Prefix information options kept per router advertisement; later ones are only counted.
inline constexpr size_t kMaxPrefixes = 8;

// Router advertisement flag bits (ra_flags).
inline constexpr uint8_t kRaManaged = 0x80;
inline constexpr uint8_t kRaOtherConfig = 0x40;

// A parsed ND message. Fields that the message type does not carry stay zero/false.
struct NdPacket {
    NdType type = NdType::RouterSolicitation;
    Mac eth_dst{};
    Mac eth_src{};
    bool has_vlan = false;
    uint16_t vlan_id = 0; // the 12-bit VLAN id of the 802.1Q tag
    Ip6 src{};
    Ip6 dst{};
    uint8_t hop_limit = 0;

    // NS, NA and Redirect: the target address; Redirect: also the destination address.
    Ip6 target{};
    Ip6 redirect_destination{};

    // NA flags.
    bool router = false;
    bool solicited = false;
    bool override_flag = false;

    // Link-layer address options (the first of each kind when repeated).
    bool has_source_lladdr = false;
    Mac source_lladdr{};
    bool has_target_lladdr = false;
    Mac target_lladdr{};

    // RA fixed part.
    uint8_t cur_hop_limit = 0;
    uint8_t ra_flags = 0;
    uint16_t router_lifetime = 0;
    uint32_t reachable_time = 0;
    uint32_t retrans_timer = 0;

    // RA prefix information options: the first prefix_count (at most kMaxPrefixes) are kept,
    // prefix_total counts them all.
    size_t prefix_count = 0;
    size_t prefix_total = 0;
    std::array<PrefixInfo, kMaxPrefixes> prefixes{};
};

// Parses one Ethernet II frame (optionally with one 802.1Q tag) holding an ND message. On any
// result other than Ok, out holds whatever had been read and must not be used.
ParseResult parse(const uint8_t *frame, size_t length, NdPacket &out);

// A neighbor solicitation from the unspecified address: duplicate address detection.
bool is_dad(const NdPacket &packet);

// A source or target link-layer option present and different from the Ethernet source.
bool lladdr_disagrees(const NdPacket &packet);

// Address helpers.
bool is_unspecified(const Ip6 &addr);
bool is_multicast(const Ip6 &addr);
bool is_link_local(const Ip6 &addr);     // fe80::/10
bool is_solicited_node(const Ip6 &addr); // ff02::1:ff00:0/104
Ip6 solicited_node(const Ip6 &addr);     // ff02::1:ffXX:XXXX of the address's last 24 bits
Mac multicast_mac(const Ip6 &group);     // 33:33 and the group's last 32 bits

// The ICMPv6 checksum of a message over the IPv6 pseudo-header: the value to store in the
// checksum field when that field holds zero, and 0 over a message whose checksum is right.
uint16_t icmp6_checksum(const Ip6 &src, const Ip6 &dst, const uint8_t *message, size_t length);

// Ethernet and IPv6 addressing of a frame to build. For a multicast destination the Ethernet
// destination is normally multicast_mac(dst).
struct FrameAddress {
    Mac eth_dst{};
    Mac eth_src{};
    bool has_vlan = false;
    uint16_t vlan_id = 0;
    Ip6 src{};
    Ip6 dst{};
};

// Largest frame a builder writes: Ethernet with a tag, IPv6, NS/NA and one link-layer option.
inline constexpr size_t kMaxBuiltFrame = 18 + 40 + 24 + 8;

// Builders: write the whole frame (hop limit 255, checksum filled in) into buf and return its
// length; 0 when buf is shorter than that, or when the fields make a message that parse()
// refuses (a multicast source or target, a DAD solicitation not to a solicited-node address or
// with a link-layer option, a solicited advertisement to a multicast address, a VLAN id over
// 4095 when tagged). A null link-layer address leaves its option out.
size_t build_ns(const FrameAddress &addr, const Ip6 &target, const Mac *source_lladdr,
                uint8_t *buf, size_t capacity);

struct NaFlags {
    bool router = false;
    bool solicited = false;
    bool override_flag = false;
};
size_t build_na(const FrameAddress &addr, const Ip6 &target, NaFlags flags, const Mac *target_lladdr,
                uint8_t *buf, size_t capacity);

} // namespace ndsvc::packet
