// The tests' own look at what crosses a device: a packet socket opened inside a lab's namespace
// (by a thread that enters it, which changes that thread only), counting neighbour
// solicitations bare and inside VXLAN.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/udp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <thread>

#include "lab_support.h"

namespace labtest {

namespace {

constexpr size_t kEthernetHeader = 14;
constexpr size_t kVxlanHeader = 8;
constexpr uint16_t kVxlanPort = 4789;
constexpr uint8_t kVxlanHasVni = 0x08;

uint16_t be16(const unsigned char *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

// Whether an Ethernet frame is an NS for `target`: IPv6 straight to ICMPv6 (an NS carries no
// extension header), type 135, the target address after the ICMPv6 header.
bool is_ns_for(const unsigned char *frame, size_t length, const std::array<unsigned char, 16> &target)
{
    const size_t icmp = kEthernetHeader + sizeof(ip6_hdr);
    if (length < icmp + sizeof(nd_neighbor_solicit) || be16(frame + 12) != ETH_P_IPV6)
        return false;
    const unsigned char *ip6 = frame + kEthernetHeader;
    if (ip6[6] != IPPROTO_ICMPV6 || frame[icmp] != ND_NEIGHBOR_SOLICIT)
        return false;
    return std::memcmp(frame + icmp + offsetof(nd_neighbor_solicit, nd_ns_target), target.data(), target.size()) == 0;
}

// The inner frame of a VXLAN packet over IPv4 with that VNI (any when 0); nullptr otherwise.
const unsigned char *vxlan_inner(const unsigned char *frame, size_t length, uint32_t vni, size_t &innerLength)
{
    if (length < kEthernetHeader + sizeof(iphdr) || be16(frame + 12) != ETH_P_IP)
        return nullptr;
    const unsigned char *ip = frame + kEthernetHeader;
    const size_t ipLength = (ip[0] & 0x0fU) * 4U;
    const size_t udp = kEthernetHeader + ipLength;
    if (ip[9] != IPPROTO_UDP || length < udp + sizeof(udphdr) + kVxlanHeader || be16(frame + udp + 2) != kVxlanPort)
        return nullptr;
    const unsigned char *vxlan = frame + udp + sizeof(udphdr);
    const uint32_t got = static_cast<uint32_t>(vxlan[4] << 16 | vxlan[5] << 8 | vxlan[6]);
    if (!(vxlan[0] & kVxlanHasVni) || (vni && got != vni))
        return nullptr;
    innerLength = length - (udp + sizeof(udphdr) + kVxlanHeader);
    return vxlan + kVxlanHeader;
}

} // namespace

NsCounter::NsCounter(const std::string &netns, const std::string &device, const std::string &target, uint32_t vni)
    : vni_(vni)
{
    EXPECT_EQ(::inet_pton(AF_INET6, target.c_str(), target_.data()), 1) << target;
    std::string failure;
    std::thread opener([&] {
        const std::string path = "/run/netns/" + netns;
        int space = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (space < 0 || ::setns(space, CLONE_NEWNET) != 0) {
            failure = "cannot enter " + path + ": " + std::strerror(errno);
            if (space >= 0)
                ::close(space);
            return;
        }
        ::close(space);
        fd_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
        sockaddr_ll at{};
        at.sll_family = AF_PACKET;
        at.sll_protocol = htons(ETH_P_ALL);
        at.sll_ifindex = static_cast<int>(::if_nametoindex(device.c_str()));
        if (fd_ < 0 || at.sll_ifindex == 0 || ::bind(fd_, reinterpret_cast<sockaddr *>(&at), sizeof at) != 0)
            failure = "cannot watch " + device + " in " + netns + ": " + std::strerror(errno);
    });
    opener.join();
    if (!failure.empty()) {
        ADD_FAILURE() << failure;
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }
}

NsCounter::~NsCounter()
{
    if (fd_ >= 0)
        ::close(fd_);
}

NsCounter::Seen NsCounter::seen()
{
    Seen result;
    if (fd_ < 0) {
        ADD_FAILURE() << "the counter has no socket";
        return result;
    }
    unsigned char frame[65536];
    for (;;) {
        ssize_t n = ::recv(fd_, frame, sizeof frame, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            EXPECT_EQ(errno, EAGAIN) << std::strerror(errno);
            break;
        }
        const size_t length = static_cast<size_t>(n);
        size_t innerLength = 0;
        if (is_ns_for(frame, length, target_))
            ++result.bare;
        else if (const unsigned char *inner = vxlan_inner(frame, length, vni_, innerLength); inner && is_ns_for(inner, innerLength, target_))
            ++result.tunnelled;
    }
    return result;
}

} // namespace labtest
