// The network devices of the current network namespace, read from the kernel over rtnetlink
// (sysfs would show the namespace it was mounted in, not the one this thread entered).
#include "wire_links.h"

#include <linux/netlink.h>
#include <net/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>

namespace ndsvc {

namespace {

class NetlinkSocket {
public:
    NetlinkSocket() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
    ~NetlinkSocket()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    NetlinkSocket(const NetlinkSocket &) = delete;
    NetlinkSocket &operator=(const NetlinkSocket &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// One RTM_NEWLINK message: its index, name and master (other messages are passed over).
void readLink(const nlmsghdr *h, std::vector<WireLink> &links);

// Sends one request and hands every answering message to `take` until the kernel says it is
// done (a dump) or acknowledges (a change); false with the reason.
bool exchange(void *request, uint32_t length, const std::function<void(const nlmsghdr *)> &take, std::string &error)
{
    NetlinkSocket s;
    if (s.fd() < 0) {
        error = std::string("no netlink socket: ") + strerror(errno);
        return false;
    }
    if (send(s.fd(), request, length, 0) < 0) {
        error = std::string("netlink request failed: ") + strerror(errno);
        return false;
    }
    alignas(nlmsghdr) static thread_local uint8_t buffer[32768];
    for (;;) {
        ssize_t n = recv(s.fd(), buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = std::string("netlink answer failed: ") + strerror(errno);
            return false;
        }
        size_t left = static_cast<size_t>(n);
        for (const nlmsghdr *h = reinterpret_cast<const nlmsghdr *>(buffer); NLMSG_OK(h, left);
             h = NLMSG_NEXT(h, left)) {
            if (h->nlmsg_type == NLMSG_DONE)
                return true;
            if (h->nlmsg_type == NLMSG_ERROR) {
                nlmsgerr e{};
                if (h->nlmsg_len >= NLMSG_LENGTH(sizeof e))
                    memcpy(&e, NLMSG_DATA(h), sizeof e);
                if (e.error == 0)
                    return true;
                error = std::string("netlink refused: ") + strerror(-e.error);
                return false;
            }
            take(h);
            if (!(h->nlmsg_flags & NLM_F_MULTI))
                return true;
        }
    }
}

// The fixed part of a message of `type`; false for a message of another type, or one too short.
template <typename Fixed> bool fixed_part(const nlmsghdr *h, uint16_t type, Fixed &fixed)
{
    if (h->nlmsg_type != type || h->nlmsg_len < NLMSG_LENGTH(sizeof(Fixed)))
        return false;
    memcpy(&fixed, NLMSG_DATA(h), sizeof fixed);
    return true;
}

// Walks the attributes that follow a message's fixed part of `fixed` bytes.
void attributes(const nlmsghdr *h, size_t fixed, const std::function<void(uint16_t, const uint8_t *, size_t)> &take)
{
    const uint8_t *base = static_cast<const uint8_t *>(NLMSG_DATA(h));
    size_t offset = NLMSG_ALIGN(fixed);
    size_t end = h->nlmsg_len - NLMSG_HDRLEN;
    while (offset + sizeof(rtattr) <= end) {
        rtattr a;
        memcpy(&a, base + offset, sizeof a);
        if (a.rta_len < sizeof(rtattr) || offset + a.rta_len > end)
            break;
        take(a.rta_type, base + offset + RTA_LENGTH(0), a.rta_len - RTA_LENGTH(0));
        offset += RTA_ALIGN(a.rta_len);
    }
}

// A request: its header, its fixed part and room for a few attributes.
template <typename Fixed> struct Request {
    nlmsghdr header;
    Fixed fixed;
    uint8_t attributes[64];

    Request(uint16_t type, uint16_t flags)
    {
        memset(this, 0, sizeof *this);
        header.nlmsg_len = NLMSG_LENGTH(sizeof(Fixed));
        header.nlmsg_type = type;
        header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
        header.nlmsg_seq = 1;
    }
    void add(uint16_t type, const void *value, size_t length)
    {
        rtattr a{};
        a.rta_type = type;
        a.rta_len = static_cast<uint16_t>(RTA_LENGTH(length));
        uint8_t *at = reinterpret_cast<uint8_t *>(this) + NLMSG_ALIGN(header.nlmsg_len);
        memcpy(at, &a, sizeof a);
        memcpy(at + RTA_LENGTH(0), value, length);
        header.nlmsg_len = static_cast<uint32_t>(NLMSG_ALIGN(header.nlmsg_len) + RTA_ALIGN(a.rta_len));
    }
};

void readLink(const nlmsghdr *h, std::vector<WireLink> &links)
{
    ifinfomsg info;
    if (!fixed_part(h, RTM_NEWLINK, info))
        return;
    WireLink link;
    link.index = info.ifi_index;
    link.up = (info.ifi_flags & IFF_UP) != 0;
    attributes(h, sizeof(ifinfomsg), [&](uint16_t type, const uint8_t *value, size_t length) {
        if (type == IFLA_IFNAME)
            link.name.assign(reinterpret_cast<const char *>(value), strnlen(reinterpret_cast<const char *>(value), length));
        else if (type == IFLA_MASTER && length >= sizeof(uint32_t))
            memcpy(&link.masterIndex, value, sizeof(uint32_t));
        else if (type == IFLA_ADDRESS && length == link.mac.size())
            memcpy(link.mac.data(), value, link.mac.size());
    });
    links.push_back(std::move(link));
}

} // namespace

bool wire_links(std::vector<WireLink> &links, std::string &error)
{
    links.clear();
    Request<ifinfomsg> request(RTM_GETLINK, NLM_F_DUMP);
    request.fixed.ifi_family = AF_UNSPEC;
    if (!exchange(
            &request, request.header.nlmsg_len,
            [&](const nlmsghdr *h) { readLink(h, links); },
            error))
        return false;
    std::map<int, std::string> names;
    for (const WireLink &l : links)
        names[l.index] = l.name;
    for (WireLink &l : links)
        if (l.masterIndex)
            l.master = names[static_cast<int>(l.masterIndex)];
    return true;
}

} // namespace ndsvc

namespace ndsvc {

int wire_link_events(std::string &error)
{
    int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_LINK | RTMGRP_IPV6_IFADDR;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&groups), sizeof groups) != 0) {
        error = std::string("no netlink socket for the devices' news: ") + strerror(errno);
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

void wire_link_events_drain(int fd)
{
    uint8_t news[8192];
    while (recv(fd, news, sizeof news, 0) > 0) {
    }
}

bool wire_link_locals(std::map<int, Address6> &byIndex, std::string &error)
{
    byIndex.clear();
    Request<ifaddrmsg> request(RTM_GETADDR, NLM_F_DUMP);
    request.fixed.ifa_family = AF_INET6;
    return exchange(
        &request, request.header.nlmsg_len,
        [&](const nlmsghdr *h) {
            ifaddrmsg info;
            if (!fixed_part(h, RTM_NEWADDR, info))
                return;
            if (info.ifa_scope != RT_SCOPE_LINK || (info.ifa_flags & IFA_F_TENTATIVE))
                return;
            attributes(h, sizeof(ifaddrmsg), [&](uint16_t type, const uint8_t *value, size_t length) {
                Address6 a;
                if (type == IFA_ADDRESS && length == a.size() && !byIndex.count(static_cast<int>(info.ifa_index))) {
                    memcpy(a.data(), value, a.size());
                    byIndex[static_cast<int>(info.ifa_index)] = a;
                }
            });
        },
        error);
}

WireRoute wire_route(const Address6 &destination)
{
    Request<rtmsg> request(RTM_GETROUTE, 0);
    request.fixed.rtm_family = AF_INET6;
    request.fixed.rtm_dst_len = 128;
    request.add(RTA_DST, destination.data(), destination.size());
    WireRoute route;
    std::string error;
    exchange(
        &request, request.header.nlmsg_len,
        [&](const nlmsghdr *h) {
            rtmsg info;
            if (!fixed_part(h, RTM_NEWROUTE, info))
                return;
            if (info.rtm_type != RTN_UNICAST && info.rtm_type != RTN_LOCAL)
                return;
            route.local = info.rtm_type == RTN_LOCAL;
            attributes(h, sizeof(rtmsg), [&](uint16_t type, const uint8_t *value, size_t length) {
                if (type == RTA_OIF && length >= sizeof(uint32_t))
                    memcpy(&route.device, value, sizeof(uint32_t));
            });
        },
        error);
    return route;
}

bool wire_host_route(bool add, const Address6 &destination, int device, std::string &error)
{
    Request<rtmsg> request(add ? RTM_NEWROUTE : RTM_DELROUTE,
                           static_cast<uint16_t>(NLM_F_ACK | (add ? NLM_F_CREATE | NLM_F_REPLACE : 0)));
    request.fixed.rtm_family = AF_INET6;
    request.fixed.rtm_dst_len = 128;
    request.fixed.rtm_table = RT_TABLE_MAIN;
    request.fixed.rtm_protocol = kHostRouteProtocol;
    request.fixed.rtm_scope = RT_SCOPE_UNIVERSE;
    request.fixed.rtm_type = RTN_UNICAST;
    request.add(RTA_DST, destination.data(), destination.size());
    uint32_t oif = static_cast<uint32_t>(device);
    request.add(RTA_OIF, &oif, sizeof oif);
    return exchange(
        &request, request.header.nlmsg_len, [](const nlmsghdr *) {}, error);
}

} // namespace ndsvc
