// The VXLAN local host table on a test clock: which hosts are learned on which access ports,
// the instance's limit and timeout, and what forgets them.
#include <gtest/gtest.h>

#include "vxlan_host_table.h"

namespace {

using ndsvc::Address6;
using ndsvc::Mac48;
using ndsvc::VxlanAccessPort;
using ndsvc::VxlanHostLimits;
using ndsvc::VxlanHostTable;
using std::chrono::seconds;

Address6 addr(uint8_t last)
{
    return Address6{0x20, 0x01, 0x0d, 0xb8, 0, 0x64, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

Mac48 mac(uint8_t last)
{
    return Mac48{0x02, 0, 0, 0, 0, last};
}

const ndsvc::SnoopClock::time_point t0{};

// Port 1 (ge0-1) and port 2 (ge0-2, outer VLAN 20) carry instance 100; port 3 (ge0-1 too)
// carries instance 200.
std::map<uint32_t, VxlanAccessPort> threePorts()
{
    return {{1, {"ge0-1", 0, 100}}, {2, {"ge0-2", 20, 100}}, {3, {"ge0-1", 0, 200}}};
}

std::string row(const VxlanHostTable &t, uint32_t vxlan, const Address6 &a)
{
    auto it = t.hosts().find({vxlan, a});
    if (it == t.hosts().end())
        return "none";
    return "port " + std::to_string(it->second.portIndex) + " mac " + std::to_string(it->second.mac[5]);
}

TEST(VxlanHostTable, AHostIsLearnedInTheInstanceOfEachAccessPortItIsHeardOn)
{
    VxlanHostTable t(100);
    t.access_ports(threePorts());
    t.heard("ge0-1", 10, addr(1), mac(1), t0);
    EXPECT_EQ(row(t, 100, addr(1)), "port 1 mac 1");
    EXPECT_EQ(row(t, 200, addr(1)), "port 3 mac 1");
    // Port 2 carries only its outer VLAN's hosts; port 4 is no access port.
    t.heard("ge0-2", 10, addr(2), mac(2), t0);
    t.heard("ge0-4", 10, addr(4), mac(4), t0);
    EXPECT_EQ(row(t, 100, addr(2)), "none");
    EXPECT_EQ(row(t, 100, addr(4)), "none");
    t.heard("ge0-2", 20, addr(2), mac(2), t0);
    EXPECT_EQ(row(t, 100, addr(2)), "port 2 mac 2");
    // Link-local, multicast and unspecified addresses are no hosts of the table.
    t.heard("ge0-1", 10, Address6{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, mac(1), t0);
    t.heard("ge0-1", 10, Address6{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, mac(1), t0);
    t.heard("ge0-1", 10, Address6{}, mac(1), t0);
    EXPECT_EQ(t.hosts().size(), 3u);
}

TEST(VxlanHostTable, AHostHeardElsewhereMovesThere)
{
    VxlanHostTable t(100);
    t.access_ports(threePorts());
    t.heard("ge0-1", 20, addr(1), mac(1), t0);
    t.heard("ge0-2", 20, addr(1), mac(9), t0 + seconds(1));
    EXPECT_EQ(row(t, 100, addr(1)), "port 2 mac 9");
    EXPECT_EQ(row(t, 200, addr(1)), "port 3 mac 1");
}

TEST(VxlanHostTable, AnInstanceLearnsNoMoreThanItsLimitAndZeroIsNoLimit)
{
    VxlanHostTable t(6);
    t.access_ports(threePorts());
    t.limits({{100, VxlanHostLimits{360, 2}}, {200, VxlanHostLimits{360, 0}}});
    for (uint8_t k = 1; k <= 3; ++k)
        t.heard("ge0-1", 10, addr(k), mac(k), t0);
    EXPECT_EQ(row(t, 100, addr(1)), "port 1 mac 1");
    EXPECT_EQ(row(t, 100, addr(2)), "port 1 mac 2");
    EXPECT_EQ(row(t, 100, addr(3)), "none");
    EXPECT_EQ(row(t, 200, addr(3)), "port 3 mac 3");
    // A host of a full instance is still heard again.
    t.heard("ge0-2", 20, addr(2), mac(7), t0);
    EXPECT_EQ(row(t, 100, addr(2)), "port 2 mac 7");
    // Without a limit the table's ceiling (6) holds: 2 + 4 hosts.
    for (uint8_t k = 4; k <= 9; ++k)
        t.heard("ge0-1", 10, addr(k), mac(k), t0);
    EXPECT_EQ(t.hosts().size(), 6u);
    EXPECT_EQ(row(t, 200, addr(4)), "port 3 mac 4");
    EXPECT_EQ(row(t, 200, addr(5)), "none");
    // Forgetting one makes room again.
    Address6 one = addr(1);
    t.forget(100, &one);
    t.heard("ge0-1", 10, addr(3), mac(3), t0);
    EXPECT_EQ(row(t, 100, addr(3)), "port 1 mac 3");
}

TEST(VxlanHostTable, AHostNotHeardWithinItsInstancesTimeoutIsForgotten)
{
    VxlanHostTable t(100);
    t.access_ports(threePorts());
    t.limits({{200, VxlanHostLimits{0, 20480}}});
    t.heard("ge0-1", 10, addr(1), mac(1), t0);
    t.heard("ge0-1", 10, addr(2), mac(2), t0);
    t.heard("ge0-1", 10, addr(2), mac(2), t0 + seconds(100));
    t.tick(t0 + seconds(359));
    EXPECT_EQ(row(t, 100, addr(1)), "port 1 mac 1");
    // The default timeout is 360 s; instance 200's timeout is disabled.
    t.tick(t0 + seconds(360));
    EXPECT_EQ(row(t, 100, addr(1)), "none");
    EXPECT_EQ(row(t, 100, addr(2)), "port 1 mac 2");
    t.tick(t0 + seconds(460));
    EXPECT_EQ(row(t, 100, addr(2)), "none");
    t.tick(t0 + seconds(100000));
    EXPECT_EQ(row(t, 200, addr(1)), "port 3 mac 1");
    EXPECT_EQ(t.hosts().size(), 2u);
}

TEST(VxlanHostTable, ForgettingTakesAnInstanceOrOneAddressOrAll)
{
    VxlanHostTable t(100);
    t.access_ports(threePorts());
    for (uint8_t k = 1; k <= 2; ++k)
        t.heard("ge0-1", 10, addr(k), mac(k), t0);
    Address6 two = addr(2);
    t.forget(200, &two);
    EXPECT_EQ(t.hosts().size(), 3u);
    EXPECT_EQ(row(t, 100, addr(2)), "port 1 mac 2");
    t.forget(100, nullptr);
    EXPECT_EQ(t.hosts().size(), 1u);
    EXPECT_EQ(row(t, 200, addr(1)), "port 3 mac 1");
    t.forget(0, nullptr);
    EXPECT_TRUE(t.hosts().empty());
}

TEST(VxlanHostTable, AHostOfAnAccessPortThatWentOrChangedIsForgotten)
{
    VxlanHostTable t(100);
    t.access_ports(threePorts());
    t.heard("ge0-1", 20, addr(1), mac(1), t0);
    t.heard("ge0-2", 20, addr(2), mac(2), t0);
    t.restore({100, addr(9)}, mac(9), 42, t0);
    std::map<uint32_t, VxlanAccessPort> ports = threePorts();
    ports.erase(3);
    ports[2].svlan = 30;
    t.access_ports(ports);
    EXPECT_EQ(row(t, 100, addr(1)), "port 1 mac 1");
    EXPECT_EQ(row(t, 200, addr(1)), "none");
    EXPECT_EQ(row(t, 100, addr(2)), "none");
    // A restored host of a port the wire never knew stays until it ages.
    EXPECT_EQ(row(t, 100, addr(9)), "port 42 mac 9");
    t.tick(t0 + seconds(360));
    EXPECT_TRUE(t.hosts().empty());
}

TEST(VxlanHostTable, RestoringStaysWithinTheCeiling)
{
    VxlanHostTable t(2);
    t.restore({100, addr(1)}, mac(1), 1, t0);
    t.restore({100, addr(2)}, mac(2), 1, t0);
    t.restore({100, addr(3)}, mac(3), 1, t0);
    t.restore({100, addr(2)}, mac(5), 2, t0);
    EXPECT_EQ(t.hosts().size(), 2u);
    EXPECT_EQ(row(t, 100, addr(2)), "port 2 mac 5");
    EXPECT_EQ(row(t, 100, addr(3)), "none");
}

} // namespace
