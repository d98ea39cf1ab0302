// Real traffic through a lab: hosts of one VLAN reach each other and those of another do not,
// a port move changes that at once, and the switch's VLAN address answers its VLAN's hosts.
#include "lab_support.h"

namespace labtest {
namespace {

constexpr int kReached = 0;    // ping's status with an answer
constexpr int kNotReached = 1; // ping's status without one

class ReachTest : public LabTest {
protected:
    // A lab of `ports` hosts whose link-local addresses have passed duplicate address detection.
    void make(int ports)
    {
        Outcome made = ndlab({"create", name(), "--ports", std::to_string(ports)});
        ASSERT_EQ(made.status, 0) << made.err;
        for (int k = 1; k <= ports; ++k) {
            ASSERT_TRUE(wait_addresses_settled(host(k), "eth0")) << host(k);
            addresses_.push_back(link_local(host(k), "eth0") + "%eth0");
        }
    }
    const std::string &address(int k) const { return addresses_.at(k - 1); }

    std::vector<std::string> addresses_;
};

TEST_F(ReachTest, HostsOfOneVlanReachEachOtherAndAMoveChangesWhoIsReached)
{
    make(3);
    EXPECT_EQ(ping_from(1, address(2)), kReached);
    EXPECT_EQ(ping_from(1, address(3)), kReached);

    Outcome moved = ndlab({"port", name(), "3", "vlan", "2"});
    EXPECT_EQ(moved.out, "ndlab: bridge vlan2\nndlab: port ge0-3 in vlan2\n");
    EXPECT_EQ(moved.err, "");
    EXPECT_EQ(moved.status, 0);
    Outcome shown = ndlab({"show", name()});
    EXPECT_NE(shown.out.find("port ge0-1 vlan 1 host " + host(1) + "\n"
                             "port ge0-2 vlan 1 host " + host(2) + "\n"
                             "port ge0-3 vlan 2 host " + host(3) + "\n"
                             "bridge vlan1 ports ge0-1,ge0-2 addresses "),
              std::string::npos)
        << shown.out;
    EXPECT_NE(shown.out.find("\nbridge vlan2 ports ge0-3 addresses "), std::string::npos) << shown.out;
    EXPECT_EQ(ping_from(1, address(2)), kReached);
    EXPECT_EQ(ping_from(1, address(3)), kNotReached);

    // Back to VLAN 1, whose bridge exists: only the move is told. Then host 2 leaves for VLAN 2.
    moved = ndlab({"port", name(), "3", "vlan", "1"});
    EXPECT_EQ(moved.out, "ndlab: port ge0-3 in vlan1\n");
    EXPECT_EQ(moved.status, 0);
    moved = ndlab({"port", name(), "2", "vlan", "2"});
    EXPECT_EQ(moved.out, "ndlab: port ge0-2 in vlan2\n");
    EXPECT_EQ(moved.status, 0);
    EXPECT_EQ(ping_from(1, address(3)), kReached);
    EXPECT_EQ(ping_from(1, address(2)), kNotReached);
    EXPECT_EQ(ping_from(3, address(2)), kNotReached);
}

TEST_F(ReachTest, TheSwitchVlanAddressIsOnItsBridgeAndAnswersThatVlanOnly)
{
    make(2);
    Outcome added = ndlab({"vlan-address", name(), "10", "add", "2001:db8:10::1/64"});
    EXPECT_EQ(added.out, "ndlab: bridge vlan10\nndlab: address 2001:db8:10::1/64 on vlan10\n");
    EXPECT_EQ(added.err, "");
    EXPECT_EQ(added.status, 0);
    EXPECT_NE(ip({"-n", sw(), "-6", "-o", "addr", "show", "dev", "vlan10"}).find(" 2001:db8:10::1/64 "), std::string::npos);
    ASSERT_EQ(ndlab({"port", name(), "1", "vlan", "10"}).status, 0);

    // Both hosts take an address of the VLAN's prefix (with their own duplicate detection);
    // host 2 stays in VLAN 1.
    for (int k = 1; k <= 2; ++k) {
        Outcome given = ndlab({"exec", name(), "h" + std::to_string(k), "--", "ip", "-6", "addr", "add",
                           "2001:db8:10::1" + std::to_string(k) + "/64", "dev", "eth0"});
        ASSERT_EQ(given.status, 0) << given.err;
        ASSERT_TRUE(wait_addresses_settled(host(k), "eth0"));
    }
    EXPECT_EQ(ping_from(1, "2001:db8:10::1"), kReached);
    EXPECT_EQ(ping_from(2, "2001:db8:10::1"), kNotReached);

    Outcome shown = ndlab({"show", name()});
    EXPECT_NE(shown.out.find("\nbridge vlan10 ports ge0-1 addresses 2001:db8:10::1/64 fe80::"), std::string::npos)
        << shown.out;

    Outcome removed = ndlab({"vlan-address", name(), "10", "del", "2001:db8:10::1/64"});
    EXPECT_EQ(removed.out, "ndlab: address 2001:db8:10::1/64 removed from vlan10\n");
    EXPECT_EQ(removed.err, "");
    EXPECT_EQ(removed.status, 0);
    EXPECT_EQ(ip({"-n", sw(), "-6", "-o", "addr", "show", "dev", "vlan10"}).find("2001:db8:10::1/64"), std::string::npos);
    EXPECT_EQ(ping_from(1, "2001:db8:10::1"), kNotReached);

    Outcome again = ndlab({"vlan-address", name(), "10", "del", "2001:db8:10::1/64"});
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(again.err, "ndlab: cannot remove address 2001:db8:10::1/64 from vlan10: Error: ipv6: address not found.\n");
    EXPECT_EQ(again.status, 1);
}

TEST_F(LabTest, ExecRunsInTheNamedNamespaceAndPassesTheExitStatus)
{
    ASSERT_EQ(ndlab({"create", name(), "--ports", "2"}).status, 0);
    Outcome inSwitch = ndlab({"exec", name(), "sw", "--", "ip", "-o", "link", "show", "dev", "ge0-2"});
    EXPECT_EQ(inSwitch.status, 0);
    EXPECT_NE(inSwitch.out.find(": ge0-2@"), std::string::npos) << inSwitch.out;
    Outcome inHost = ndlab({"exec", name(), "h2", "--", "sh", "-c", "cat /proc/sys/net/ipv6/conf/eth0/disable_ipv6; exit 7"});
    EXPECT_EQ(inHost.out, "0\n");
    EXPECT_EQ(inHost.status, 7);
    // The command gets the standard streams and no descriptor of ndlab's own.
    Outcome descriptors = ndlab({"exec", name(), "h1", "--", "sh", "-c", "ls /proc/$$/fd"});
    EXPECT_EQ(descriptors.out, "0\n1\n2\n");
    EXPECT_EQ(descriptors.status, 0);
    Outcome missing = ndlab({"exec", name(), "h3", "--", "true"});
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "ndlab: no namespace " + host(3) + " in lab " + name() + "\n");
    EXPECT_EQ(missing.status, 1);
}

} // namespace
} // namespace labtest
