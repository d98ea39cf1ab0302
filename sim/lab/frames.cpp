// Frames sent from a lab host, as the host itself would send them: a packet socket on its eth0,
// opened by a thread that has entered the host's namespace (which changes that thread only).
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "ndlab.h"

namespace ndlab {

namespace {

constexpr size_t kFrameCapacity = 2048;
constexpr int kSenderNice = 19;

class OwnedFd {
public:
    explicit OwnedFd(int fd) : fd_(fd) {}
    ~OwnedFd()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    OwnedFd(const OwnedFd &) = delete;
    OwnedFd &operator=(const OwnedFd &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

} // namespace

Result<size_t> send_frames(std::string_view name, int port, size_t count, const FrameMaker &make)
{
    if (Status named = check_name(name); !named)
        return Error{named.message()};
    std::string path = "/run/netns/" + host_namespace(name, port);
    size_t sent = 0;
    std::string failure;
    std::thread sender([&] {
        // The host's processor is not the switch's: in a lab they share one, so the sender
        // gives way to everything else.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kSenderNice);
        OwnedFd space(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (space.get() < 0 || setns(space.get(), CLONE_NEWNET) != 0) {
            failure = "cannot enter " + path + ": " + strerror(errno);
            return;
        }
        OwnedFd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
        if (fd.get() < 0) {
            failure = std::string("no packet socket: ") + strerror(errno);
            return;
        }
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex(kHostDevice));
        uint8_t frame[kFrameCapacity];
        for (size_t i = 0; i < count; ++i) {
            size_t length = make(i, frame, sizeof frame);
            if (length && length <= sizeof frame &&
                sendto(fd.get(), frame, length, 0, reinterpret_cast<sockaddr *>(&to), sizeof to) ==
                    static_cast<ssize_t>(length))
                ++sent;
        }
    });
    sender.join();
    if (!failure.empty())
        return Error{failure};
    return sent;
}

} // namespace ndlab
