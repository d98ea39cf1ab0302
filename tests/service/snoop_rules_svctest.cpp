// The snooping table in a network namespace of its own: what it installs, how its sets change,
// and what it does to real frames entering a Linux bridge (dropped frames reach no port, and
// each decision moves its counter). Needs root and network namespaces: without them the tests
// fail and say so.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "snoop_rules.h"
#include "test_support.h"

namespace {

using ndsvc::SnoopCounter;
using ndsvc::SnoopRules;

bool ok(const std::vector<std::string> &argv)
{
    int status = -1;
    ndtest::run_capture(argv, status);
    return status == 0;
}

// A network namespace named after this test process, with a bridge "br0" and two ports: each
// port "geK" is a veth whose peer "hostK" stays outside the bridge, in the same namespace, and
// stands for the host on that port. Removed with everything in it on every way out.
class BridgeLab {
public:
    BridgeLab()
    {
        static std::atomic<int> counter{0};
        name_ = "ndsvc-rules-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
        ready_ = ok({"ip", "netns", "add", name_});
        if (!ready_) {
            why_ = "cannot create network namespace " + name_ + " (needs root and network namespaces)";
            return;
        }
        // No IPv6 stack of its own in the namespace: the only ND frames are the test's. The
        // bridge forwards IPv6 frames all the same.
        if (!ok({"ip", "netns", "exec", name_, "sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1",
                 "net.ipv6.conf.default.disable_ipv6=1"})) {
            ready_ = false;
            why_ = "cannot turn IPv6 off in " + name_;
            return;
        }
        std::vector<std::vector<std::string>> steps = {
            {"link", "add", "br0", "type", "bridge"},
            {"link", "set", "br0", "up"},
        };
        for (int k = 1; k <= 2; ++k) {
            std::string port = "ge" + std::to_string(k), host = "host" + std::to_string(k);
            steps.push_back({"link", "add", port, "type", "veth", "peer", "name", host});
            steps.push_back({"link", "set", port, "master", "br0"});
            steps.push_back({"link", "set", port, "up"});
            steps.push_back({"link", "set", host, "up"});
        }
        for (std::vector<std::string> step : steps) {
            step.insert(step.begin(), {"ip", "-n", name_});
            if (!ok(step)) {
                ready_ = false;
                why_ = "cannot build the bridge in " + name_;
                return;
            }
        }
    }
    ~BridgeLab()
    {
        if (!name_.empty())
            ok({"ip", "netns", "del", name_});
    }
    BridgeLab(const BridgeLab &) = delete;
    BridgeLab &operator=(const BridgeLab &) = delete;

    bool ready() const { return ready_; }
    const std::string &why() const { return why_; }
    const std::string &name() const { return name_; }

    // Runs fn on a thread that has entered the namespace, as the service's thread would.
    void inside(const std::function<void()> &fn) const
    {
        std::thread t([&] {
            int fd = open(("/run/netns/" + name_).c_str(), O_RDONLY | O_CLOEXEC);
            ASSERT_GE(fd, 0);
            ASSERT_EQ(setns(fd, CLONE_NEWNET), 0) << strerror(errno);
            close(fd);
            fn();
        });
        t.join();
    }

    std::string nft(const std::vector<std::string> &args) const
    {
        std::vector<std::string> argv = {"ip", "netns", "exec", name_, "nft"};
        argv.insert(argv.end(), args.begin(), args.end());
        int status = -1;
        return ndtest::run_capture(argv, status);
    }

private:
    std::string name_, why_;
    bool ready_ = false;
};

// A raw socket on one device of the current namespace, closed when it ends.
class RawPort {
public:
    explicit RawPort(const char *device)
    {
        fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
        if (fd_ < 0)
            return;
        sockaddr_ll addr{};
        addr.sll_family = AF_PACKET;
        addr.sll_protocol = htons(ETH_P_ALL);
        addr.sll_ifindex = static_cast<int>(if_nametoindex(device));
        if (bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~RawPort()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    RawPort(const RawPort &) = delete;
    RawPort &operator=(const RawPort &) = delete;
    bool good() const { return fd_ >= 0; }
    bool send(const std::vector<uint8_t> &frame) const
    {
        return ::send(fd_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
    }
    // Whether a frame of this ICMPv6 type arrives within ms.
    bool receives(uint8_t icmpType, int ms) const
    {
        uint8_t buf[2048];
        for (;;) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, ms) <= 0)
                return false;
            ssize_t n = recv(fd_, buf, sizeof buf, 0);
            if (n > 54 && buf[12] == 0x86 && buf[13] == 0xdd && buf[20] == 58 && buf[54] == icmpType)
                return true;
        }
    }

private:
    int fd_ = -1;
};

constexpr uint8_t kRouterAdvert = 134, kNeighborSolicit = 135, kNeighborAdvert = 136;

// An IPv6 ND frame of the given type, source MAC/address and (for NS/NA) target. The kernel's
// rules look at the headers and the target only: the checksum is left zero.
// With `optionMacLast`, a link-layer option (source for NS, target for NA) of MAC
// 02:00:00:00:00:<optionMacLast> follows the target.
std::vector<uint8_t> ndFrame(uint8_t type, uint8_t macLast, const uint8_t (&src)[16], const uint8_t (&target)[16],
                             int optionMacLast = -1)
{
    std::vector<uint8_t> f = {0x33, 0x33, 0, 0, 0, 1, 0x02, 0, 0, 0, 0, macLast, 0x86, 0xdd};
    const uint16_t payload = optionMacLast < 0 ? 24 : 32;
    uint8_t ip6[40] = {0x60, 0, 0, 0, static_cast<uint8_t>(payload >> 8), static_cast<uint8_t>(payload), 58, 255};
    memcpy(ip6 + 8, src, 16);
    uint8_t allNodes[16] = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    memcpy(ip6 + 24, allNodes, 16);
    f.insert(f.end(), ip6, ip6 + 40);
    uint8_t icmp[32] = {type, 0, 0, 0, 0, 0, 0, 0};
    memcpy(icmp + 8, target, 16);
    uint8_t option[8] = {static_cast<uint8_t>(type == kNeighborSolicit ? 1 : 2), 1, 0x02, 0, 0, 0, 0,
                         static_cast<uint8_t>(optionMacLast)};
    memcpy(icmp + 24, option, sizeof option);
    f.insert(f.end(), icmp, icmp + payload);
    return f;
}

constexpr uint8_t kHostA[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0a};
constexpr uint8_t kLinkLocal[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};
constexpr uint8_t kUnspecified[16] = {};

ndsvc::SnoopBinding bindingOfHostA()
{
    ndsvc::SnoopBinding b;
    b.port = "ge1";
    b.mac = {0x02, 0, 0, 0, 0, 0x0a};
    memcpy(b.ip6.data(), kHostA, 16);
    return b;
}

TEST(SnoopRules, TheInstalledTableJudgesNdWhereFramesEnterTheBridge)
{
    BridgeLab lab;
    ASSERT_TRUE(lab.ready()) << lab.why();
    lab.inside([] {
        SnoopRules rules;
        std::string error;
        ASSERT_TRUE(rules.install(false, error)) << error;
        ASSERT_TRUE(rules.install(false, error)) << "installing again replaces the table: " << error;
        ASSERT_TRUE(rules.add_port("ge1", false, error)) << error;
        ASSERT_TRUE(rules.add_port("ge2", true, error)) << error;
        ASSERT_TRUE(rules.add_binding(bindingOfHostA(), error)) << error;
    });
    EXPECT_EQ(lab.nft({"list", "set", "bridge", "ndsvc_snooping", "sources"}),
              "table bridge ndsvc_snooping {\n"
              "\tset sources {\n"
              "\t\ttype ifname . ether_addr . ipv6_addr\n"
              "\t\telements = { \"ge1\" . 02:00:00:00:00:0a . 2001:db8::a }\n"
              "\t}\n"
              "}\n");
    EXPECT_EQ(lab.nft({"list", "set", "bridge", "ndsvc_snooping", "targets"}),
              "table bridge ndsvc_snooping {\n"
              "\tset targets {\n"
              "\t\ttypeof iifname . ether saddr . @th,64,128\n"
              "\t\telements = { \"ge1\" . 02:00:00:00:00:0a . 0x20010db800000000000000000000000a }\n"
              "\t}\n"
              "}\n");
    EXPECT_EQ(lab.nft({"list", "set", "bridge", "ndsvc_snooping", "trusted"}),
              "table bridge ndsvc_snooping {\n"
              "\tset trusted {\n"
              "\t\ttype ifname\n"
              "\t\telements = { \"ge2\" }\n"
              "\t}\n"
              "}\n");
}

TEST(SnoopRules, DroppedFramesReachNoPortAndEachDecisionMovesItsCounter)
{
    BridgeLab lab;
    ASSERT_TRUE(lab.ready()) << lab.why();
    lab.inside([] {
        SnoopRules rules;
        std::string error;
        ASSERT_TRUE(rules.install(false, error)) << error;
        ASSERT_TRUE(rules.add_port("ge1", false, error)) << error;
        ASSERT_TRUE(rules.add_port("ge2", false, error)) << error;
        ASSERT_TRUE(rules.add_binding(bindingOfHostA(), error)) << error;
        ASSERT_TRUE(rules.add_host("ge1", bindingOfHostA().mac, error)) << error;
        RawPort host1("host1"), host2("host2");
        ASSERT_TRUE(host1.good() && host2.good());

        // From untrusted host1: a router advertisement is dropped, a bound host's NA and NS
        // pass, an NA for an address bound to another MAC is dropped, a DAD NS passes.
        ASSERT_TRUE(host1.send(ndFrame(kRouterAdvert, 0x0a, kLinkLocal, kUnspecified)));
        EXPECT_FALSE(host2.receives(kRouterAdvert, 300));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0a, kHostA, kHostA)));
        EXPECT_TRUE(host2.receives(kNeighborAdvert, 1000));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0b, kHostA, kHostA)));
        EXPECT_FALSE(host2.receives(kNeighborAdvert, 300));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborSolicit, 0x0a, kHostA, kLinkLocal)));
        EXPECT_TRUE(host2.receives(kNeighborSolicit, 1000));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborSolicit, 0x0b, kHostA, kLinkLocal)));
        EXPECT_FALSE(host2.receives(kNeighborSolicit, 300));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborSolicit, 0x0c, kUnspecified, kHostA)));
        EXPECT_TRUE(host2.receives(kNeighborSolicit, 1000));

        std::map<SnoopCounter, uint64_t> packets;
        ASSERT_TRUE(rules.counters(packets, error)) << error;
        EXPECT_EQ(packets[SnoopCounter::raPacketDrop], 1u);
        EXPECT_EQ(packets[SnoopCounter::naPacketPass], 1u);
        EXPECT_EQ(packets[SnoopCounter::naPacketDrop], 1u);
        EXPECT_EQ(packets[SnoopCounter::nsPacketPass], 1u);
        EXPECT_EQ(packets[SnoopCounter::nsPacketDrop], 1u);
        EXPECT_EQ(packets[SnoopCounter::dadPacketDeal], 1u);
        EXPECT_EQ(packets[SnoopCounter::rdPacketDrop], 0u);
        EXPECT_EQ(packets[SnoopCounter::rsPacketPass], 0u);
        EXPECT_EQ(packets[SnoopCounter::raPacketPass], 0u);

        // A bound host whose link-layer option names another MAC is dropped; naming its own
        // passes.
        ASSERT_TRUE(host1.send(ndFrame(kNeighborSolicit, 0x0a, kHostA, kLinkLocal, 0x0b)));
        EXPECT_FALSE(host2.receives(kNeighborSolicit, 300));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0a, kHostA, kHostA, 0x0b)));
        EXPECT_FALSE(host2.receives(kNeighborAdvert, 300));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0a, kHostA, kHostA, 0x0a)));
        EXPECT_TRUE(host2.receives(kNeighborAdvert, 1000));
        ASSERT_TRUE(rules.counters(packets, error)) << error;
        EXPECT_EQ(packets[SnoopCounter::lladdrInvalid], 2u);
        EXPECT_EQ(packets[SnoopCounter::naPacketPass], 2u);

        // Trusted, the same port passes router advertisements and unbound NAs, counted as passed.
        ASSERT_TRUE(rules.add_port("ge1", true, error)) << error;
        ASSERT_TRUE(host1.send(ndFrame(kRouterAdvert, 0x0a, kLinkLocal, kUnspecified)));
        EXPECT_TRUE(host2.receives(kRouterAdvert, 1000));
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0b, kHostA, kHostA)));
        EXPECT_TRUE(host2.receives(kNeighborAdvert, 1000));
        ASSERT_TRUE(rules.counters(packets, error)) << error;
        EXPECT_EQ(packets[SnoopCounter::raPacketDrop], 1u);
        EXPECT_EQ(packets[SnoopCounter::raPacketPass], 1u);
        EXPECT_EQ(packets[SnoopCounter::naPacketPass], 3u);
        EXPECT_EQ(packets[SnoopCounter::naPacketDrop], 1u);

        // A cleared binding no longer lets its host's NA through; zeroed counters start again.
        ASSERT_TRUE(rules.add_port("ge1", false, error)) << error;
        ASSERT_TRUE(rules.delete_binding(bindingOfHostA(), error)) << error;
        ASSERT_TRUE(rules.reset_counters(error)) << error;
        ASSERT_TRUE(host1.send(ndFrame(kNeighborAdvert, 0x0a, kHostA, kHostA)));
        EXPECT_FALSE(host2.receives(kNeighborAdvert, 300));
        ASSERT_TRUE(rules.counters(packets, error)) << error;
        EXPECT_EQ(packets[SnoopCounter::naPacketDrop], 1u);
        EXPECT_EQ(packets[SnoopCounter::raPacketDrop], 0u);

        // Loose NS checking lets an unbound NS through, counted as passed.
        ASSERT_TRUE(rules.install(true, error)) << error;
        ASSERT_TRUE(rules.add_port("ge1", false, error)) << error;
        ASSERT_TRUE(rules.add_port("ge2", false, error)) << error;
        ASSERT_TRUE(host1.send(ndFrame(kNeighborSolicit, 0x0b, kHostA, kLinkLocal)));
        EXPECT_TRUE(host2.receives(kNeighborSolicit, 1000));
        ASSERT_TRUE(rules.counters(packets, error)) << error;
        EXPECT_EQ(packets[SnoopCounter::nsPacketPass], 1u);
        EXPECT_EQ(packets[SnoopCounter::nsPacketDrop], 0u);

        // Removed, the table no longer drops anything.
        ASSERT_TRUE(rules.remove(error)) << error;
        ASSERT_TRUE(rules.remove(error)) << "removing twice is no error: " << error;
        ASSERT_TRUE(host1.send(ndFrame(kRouterAdvert, 0x0a, kLinkLocal, kUnspecified)));
        EXPECT_TRUE(host2.receives(kRouterAdvert, 1000));
        EXPECT_FALSE(rules.counters(packets, error));
    });
}

TEST(SnoopRules, PortNamesThatCouldNotBeDevicesAreRefused)
{
    SnoopRules rules;
    std::string error;
    EXPECT_FALSE(rules.add_port("ge1\" }; flush ruleset; {", false, error));
    EXPECT_EQ(error, "bad port name");
    EXPECT_FALSE(rules.add_port("a-name-of-16-chs", false, error));
    EXPECT_EQ(error, "bad port name");
    ndsvc::SnoopBinding b = bindingOfHostA();
    b.port = "";
    EXPECT_FALSE(rules.add_binding(b, error));
    EXPECT_EQ(error, "bad port name");
}

TEST(SnoopRules, TheCountersAreNamedAsTheStatisticsNameThem)
{
    const char *names[] = {"raPacketPass", "raPacketDrop", "rdPacketPass", "rdPacketDrop",
                           "rsPacketPass", "dadPacketDeal", "nsPacketPass", "nsPacketDrop",
                           "naPacketPass", "naPacketDrop", "lladdrInvalid"};
    for (size_t i = 0; i < ndsvc::kSnoopCounterCount; ++i)
        EXPECT_STREQ(ndsvc::snoop_counter_name(static_cast<SnoopCounter>(i)), names[i]);
}

} // namespace
