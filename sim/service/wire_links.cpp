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

// One RTM_NEWLINK message: its index, name and master.
void readLink(const nlmsghdr *h, std::vector<WireLink> &links)
{
    if (h->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg)))
        return;
    ifinfomsg info;
    memcpy(&info, NLMSG_DATA(h), sizeof info);
    WireLink link;
    link.index = info.ifi_index;
    link.up = (info.ifi_flags & IFF_UP) != 0;
    const uint8_t *base = static_cast<const uint8_t *>(NLMSG_DATA(h));
    size_t offset = NLMSG_ALIGN(sizeof(ifinfomsg));
    size_t end = h->nlmsg_len - NLMSG_HDRLEN;
    while (offset + sizeof(rtattr) <= end) {
        rtattr a;
        memcpy(&a, base + offset, sizeof a);
        if (a.rta_len < sizeof(rtattr) || offset + a.rta_len > end)
            break;
        const uint8_t *value = base + offset + RTA_LENGTH(0);
        size_t valueLength = a.rta_len - RTA_LENGTH(0);
        if (a.rta_type == IFLA_IFNAME)
            link.name.assign(reinterpret_cast<const char *>(value), strnlen(reinterpret_cast<const char *>(value), valueLength));
        else if (a.rta_type == IFLA_MASTER && valueLength >= sizeof(uint32_t))
            memcpy(&link.masterIndex, value, sizeof(uint32_t));
        else if (a.rta_type == IFLA_ADDRESS && valueLength == link.mac.size())
            memcpy(link.mac.data(), value, link.mac.size());
        offset += RTA_ALIGN(a.rta_len);
    }
    links.push_back(std::move(link));
}

} // namespace

bool wire_links(std::vector<WireLink> &links, std::string &error)
{
    links.clear();
    NetlinkSocket s;
    if (s.fd() < 0) {
        error = std::string("no netlink socket: ") + strerror(errno);
        return false;
    }
    struct {
        nlmsghdr header;
        ifinfomsg info;
    } request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = 1;
    request.info.ifi_family = AF_UNSPEC;
    if (send(s.fd(), &request, request.header.nlmsg_len, 0) < 0) {
        error = std::string("netlink request failed: ") + strerror(errno);
        return false;
    }
    alignas(nlmsghdr) static thread_local uint8_t buffer[32768];
    bool done = false;
    while (!done) {
        ssize_t n = recv(s.fd(), buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = std::string("netlink answer failed: ") + strerror(errno);
            return false;
        }
        size_t left = static_cast<size_t>(n);
        for (const nlmsghdr *h = reinterpret_cast<const nlmsghdr *>(buffer); !done && NLMSG_OK(h, left);
             h = NLMSG_NEXT(h, left)) {
            if (h->nlmsg_type == NLMSG_ERROR) {
                error = "netlink refused the link dump";
                return false;
            }
            if (h->nlmsg_type == NLMSG_DONE)
                done = true;
            else if (h->nlmsg_type == RTM_NEWLINK)
                readLink(h, links);
        }
    }
    std::map<int, std::string> names;
    for (const WireLink &l : links)
        names[l.index] = l.name;
    for (WireLink &l : links)
        if (l.masterIndex)
            l.master = names[static_cast<int>(l.masterIndex)];
    return true;
}

} // namespace ndsvc
