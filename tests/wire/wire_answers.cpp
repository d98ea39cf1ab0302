// The switch's answers between real hosts: fast response for a bound host (the target never sees
// the solicitation), proxy on a VLAN interface between two subnets, proxy anyway on one segment,
// local proxy between the sub-VLANs of a super VLAN, a proxy address range, and the
// fast-response counters of malformed solicitations. Each test asserts on what the hosts saw
// (neighbour caches, ping, the solicitations that reached them) and on the counters.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <string>

#include "test_support.h"

#include "wire_support.h"

namespace {

using namespace std::chrono_literals;
using wiretest::NsWatch;
using wiretest::within;
using wiretest::WireSwitch;

bool ping(const WireSwitch &sw, int k, const std::string &address)
{
    int status = -1;
    sw.host(k, {"ping", "-6", "-c", "1", "-W", "2", address}, &status);
    return status == 0;
}

// Hosts 1..3 of VLAN 1 with their addresses bound by their own detection.
void bindThreeHosts(const WireSwitch &sw)
{
    ASSERT_EQ(sw.ndsh("configure terminal; nd snooping enable; vlan 1; nd snooping enable; end"), "");
    for (int k = 1; k <= 3; ++k)
        ASSERT_TRUE(sw.add_address(k, "2001:db8:1::" + std::to_string(k) + "/64"));
    std::string listing;
    ASSERT_TRUE(within(5s, [&] {
        listing = sw.ndsh("show nd snooping user-bind dynamic");
        return listing.find("2001:db8:1::1 ") != std::string::npos &&
               listing.find("2001:db8:1::2 ") != std::string::npos &&
               listing.find("2001:db8:1::3 ") != std::string::npos;
    })) << listing;
}

TEST(WireAnswers, FastResponseAnswersForABoundHostAndFloodsNothing)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindThreeHosts(sw);
    long answered = sw.fast_counter("rxNaprLocal"), sent = sw.fast_counter("txNaCount");
    NsWatch target(sw, 3, "2001:db8:1::3"), bystander(sw, 2, "2001:db8:1::3");
    ASSERT_TRUE(target.ready() && bystander.ready());
    EXPECT_TRUE(ping(sw, 1, "2001:db8:1::3"));
    EXPECT_EQ(target.stop(), 0) << "the target saw the solicitation";
    EXPECT_EQ(bystander.stop(), 0) << "the solicitation was flooded";
    EXPECT_EQ(sw.neighbour(1, "2001:db8:1::3").rfind("2001:db8:1::3 dev eth0 lladdr " + sw.mac(3) + " ", 0), 0u)
        << sw.neighbour(1, "2001:db8:1::3");
    // Host 1 asked for host 3, and host 3 for host 1 to answer the ping.
    EXPECT_GE(sw.fast_counter("rxNaprLocal"), answered + 2);
    EXPECT_GE(sw.fast_counter("txNaCount"), sent + 2);
    EXPECT_GE(sw.fast_counter("rxNsNeedNa"), 2);
    EXPECT_GE(sw.fast_counter("rxNdCount"), sw.fast_counter("rxNsCount"));
}

TEST(WireAnswers, AnUnknownTargetAndFastResponseOffAreSolicitedAsUsual)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindThreeHosts(sw);
    // Host 3's port is trusted from now on: its next address is not learned, so not known.
    ASSERT_EQ(sw.ndsh("configure terminal; interface gigabitethernet 0/3; nd snooping trust; end"), "");
    ASSERT_TRUE(sw.add_address(3, "2001:db8:1::33/64"));
    ASSERT_TRUE(sw.settled(3));
    long unanswered = sw.fast_counter("rxNsNoNapr");
    {
        NsWatch target(sw, 3, "2001:db8:1::33");
        ASSERT_TRUE(target.ready());
        EXPECT_TRUE(ping(sw, 1, "2001:db8:1::33"));
        EXPECT_GE(target.stop(), 1) << "an unknown target is solicited";
    }
    EXPECT_GE(sw.fast_counter("rxNsNoNapr"), unanswered + 1);
    ASSERT_EQ(sw.ndsh("configure terminal; no nd fast-response; end"), "");
    long answered = sw.fast_counter("rxNaprLocal");
    NsWatch target(sw, 2, "2001:db8:1::2");
    ASSERT_TRUE(target.ready());
    EXPECT_TRUE(ping(sw, 1, "2001:db8:1::2"));
    EXPECT_GE(target.stop(), 1) << "without fast response the target answers itself";
    EXPECT_EQ(sw.fast_counter("rxNaprLocal"), answered);
}

// Host 1 in VLAN 10 (2001:db8:a::/64), host 2 in VLAN 20 (2001:db8:b::/64); each host takes the
// whole 2001:db8::/32 as on-link, so it asks for the other host with an NS.
void twoSubnets(const WireSwitch &sw)
{
    ASSERT_EQ(sw.ndsh("configure terminal; vlan 10; exit; vlan 20; exit; "
                      "interface gigabitethernet 0/1; switchport access vlan 10; exit; "
                      "interface gigabitethernet 0/2; switchport access vlan 20; exit; "
                      "interface vlan 10; ipv6 address 2001:db8:a::1/64; exit; "
                      "interface vlan 20; ipv6 address 2001:db8:b::1/64; end"),
              "");
    ASSERT_TRUE(sw.add_address(1, "2001:db8:a::10/64"));
    ASSERT_TRUE(sw.add_address(2, "2001:db8:b::20/64"));
    for (int k = 1; k <= 2; ++k) {
        sw.host(k, {"ip", "-6", "route", "add", "2001:db8::/32", "dev", "eth0"});
        ASSERT_TRUE(sw.settled(k));
    }
}

TEST(WireAnswers, ProxyOnAVlanInterfaceJoinsTwoSubnetsThroughTheSwitch)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    twoSubnets(sw);
    EXPECT_FALSE(ping(sw, 1, "2001:db8:b::20")) << "without proxy nobody answers for the other subnet";
    sw.flush_neighbours(1);
    ASSERT_EQ(sw.ndsh("configure terminal; interface vlan 10; nd proxy enable; exit; "
                      "interface vlan 20; nd proxy enable; end"),
              "");
    long proxied = sw.fast_counter("rxNaprProxyIf");
    EXPECT_TRUE(ping(sw, 1, "2001:db8:b::20"));
    std::string switchMac = ndlab::switch_mac(sw.lab());
    EXPECT_EQ(sw.neighbour(1, "2001:db8:b::20"), "2001:db8:b::20 dev eth0 lladdr " + switchMac + " router REACHABLE ");
    EXPECT_EQ(sw.neighbour(2, "2001:db8:a::10").rfind("2001:db8:a::10 dev eth0 lladdr " + switchMac + " router", 0),
              0u)
        << sw.neighbour(2, "2001:db8:a::10");
    EXPECT_GE(sw.fast_counter("rxNaprProxyIf"), proxied + 2);
    // Switched off on host 1's side, plain ND is back: its NS for the other subnet goes unanswered.
    ASSERT_EQ(sw.ndsh("configure terminal; interface vlan 10; no nd proxy enable; end"), "");
    sw.flush_neighbours(1);
    EXPECT_FALSE(ping(sw, 1, "2001:db8:b::20"));
    EXPECT_EQ(sw.neighbour(1, "2001:db8:b::20").find(switchMac), std::string::npos);
}

TEST(WireAnswers, ProxyAnywayAnswersOnTheSameSegmentAndOffRestoresPlainNd)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh("configure terminal; interface vlan 1; ipv6 address 2001:db8:1::ff/64; "
                      "ipv6 nd proxy anyway enable; end"),
              "");
    ASSERT_TRUE(sw.add_address(1, "2001:db8:1::1/64"));
    ASSERT_TRUE(sw.add_address(2, "2001:db8:1::2/64"));
    ASSERT_TRUE(sw.settled(1) && sw.settled(2));
    std::string switchMac = ndlab::switch_mac(sw.lab());
    {
        // The switch resolves host 2 for itself when it routes to it: only host 1's NS counts.
        NsWatch target(sw, 2, "2001:db8:1::2", "2001:db8:1::1");
        ASSERT_TRUE(target.ready());
        EXPECT_TRUE(ping(sw, 1, "2001:db8:1::2"));
        EXPECT_EQ(target.stop(), 0) << "the switch answers anyway: host 1's NS reaches nobody";
    }
    EXPECT_EQ(sw.neighbour(1, "2001:db8:1::2").rfind("2001:db8:1::2 dev eth0 lladdr " + switchMac + " router", 0), 0u)
        << sw.neighbour(1, "2001:db8:1::2");
    EXPECT_GE(sw.fast_counter("rxNaprProxyIf"), 1);
    ASSERT_EQ(sw.ndsh("configure terminal; interface vlan 1; no ipv6 nd proxy anyway enable; end"), "");
    for (int k = 1; k <= 2; ++k)
        sw.flush_neighbours(k);
    EXPECT_TRUE(ping(sw, 1, "2001:db8:1::2"));
    EXPECT_EQ(sw.neighbour(1, "2001:db8:1::2").rfind("2001:db8:1::2 dev eth0 lladdr " + sw.mac(2) + " ", 0), 0u)
        << sw.neighbour(1, "2001:db8:1::2");
}

TEST(WireAnswers, LocalProxyJoinsTwoSubVlansOfASuperVlan)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh("configure terminal; vlan 10; exit; vlan 20; exit; "
                      "interface gigabitethernet 0/1; switchport access vlan 10; exit; "
                      "interface gigabitethernet 0/2; switchport access vlan 20; exit; "
                      "super-vlan 100; subvlan 10; subvlan 20; exit; "
                      "interface vlan 100; ipv6 address 2001:db8:64::1/64; end"),
              "");
    ASSERT_TRUE(sw.add_address(1, "2001:db8:64::10/64"));
    ASSERT_TRUE(sw.add_address(2, "2001:db8:64::20/64"));
    ASSERT_TRUE(sw.settled(1) && sw.settled(2));
    EXPECT_FALSE(ping(sw, 1, "2001:db8:64::20")) << "sub-VLANs are apart without local proxy";
    sw.flush_neighbours(1);
    ASSERT_EQ(sw.ndsh("configure terminal; super-vlan 100; nd local-proxy enable; end"), "");
    long proxied = sw.fast_counter("rxNaprProxyLoc");
    std::string switchMac = ndlab::switch_mac(sw.lab());
    // The membership is read with the ports, every half second.
    EXPECT_TRUE(within(3s, [&] { return ping(sw, 1, "2001:db8:64::20"); }));
    EXPECT_EQ(sw.neighbour(1, "2001:db8:64::20").rfind("2001:db8:64::20 dev eth0 lladdr " + switchMac + " router", 0),
              0u)
        << sw.neighbour(1, "2001:db8:64::20");
    EXPECT_GE(sw.fast_counter("rxNaprProxyLoc"), proxied + 2);
    // The switch reaches each host through its sub-VLAN's interface.
    int status = -1;
    std::string routes = ndtest::run_capture({"ip", "-n", ndlab::switch_namespace(sw.lab()), "-6", "route"}, status);
    EXPECT_NE(routes.find("2001:db8:64::10 dev vlan10 proto 200 "), std::string::npos) << routes;
    EXPECT_NE(routes.find("2001:db8:64::20 dev vlan20 proto 200 "), std::string::npos) << routes;
    // An address the switch never heard (no detection) is sought in the other sub-VLAN.
    sw.host(2, {"ip", "-6", "addr", "add", "2001:db8:64::22/64", "dev", "eth0", "nodad"}, &status);
    ASSERT_EQ(status, 0);
    EXPECT_TRUE(ping(sw, 1, "2001:db8:64::22"));
}

TEST(WireAnswers, AProxyAddressRangeIsAnsweredWithTheSwitchsMacAfterADelay)
{
    std::string seed = ndtest::fresh_scratch_dir("ndwire-seed") + "/seed.json";
    std::ofstream(seed) << R"({"proxy_addresses": [{"module": 1, "begin": "2001:db8:1::100", "end": "2001:db8:1::1ff"}]})";
    WireSwitch sw(3, "--seed " + seed);
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh("configure terminal; interface vlan 1; ipv6 address 2001:db8:1::ff/64; end"), "");
    ASSERT_TRUE(sw.add_address(1, "2001:db8:1::1/64"));
    ASSERT_TRUE(sw.settled(1));
    // One NS exactly (ndisc6 asks once): one answer, delayed.
    sw.host(1, {"ndisc6", "-r", "1", "-w", "1000", "2001:db8:1::150", "eth0"});
    EXPECT_TRUE(within(2s, [&] { return sw.fast_counter("txNaCount") == 1; }))
        << sw.ndsh("show nd fast-response statistics");
    EXPECT_EQ(sw.fast_counter("rxNaprProxyAddr"), 1);
    EXPECT_EQ(sw.fast_counter("rxNaprDelay"), 1);
    // The ping goes nowhere (no host has the address); host 1's kernel took the switch's answer.
    ping(sw, 1, "2001:db8:1::150");
    std::string switchMac = ndlab::switch_mac(sw.lab());
    EXPECT_EQ(sw.neighbour(1, "2001:db8:1::150").rfind("2001:db8:1::150 dev eth0 lladdr " + switchMac + " router", 0),
              0u)
        << sw.neighbour(1, "2001:db8:1::150");
    // However often the kernel asked, every range answer waited; none is made outside the range.
    long answered = sw.fast_counter("rxNaprProxyAddr");
    EXPECT_EQ(sw.fast_counter("rxNaprDelay"), answered);
    ping(sw, 1, "2001:db8:1::250");
    EXPECT_EQ(sw.neighbour(1, "2001:db8:1::250").find(switchMac), std::string::npos);
    EXPECT_EQ(sw.fast_counter("rxNaprProxyAddr"), answered);
}

// Host 1 of this switch (port 1 in VLAN 10, 2001:db8:100::1) and host 1 of a remote lab's switch
// (2001:db8:100::2) are one segment through the kernel's VXLAN device of instance 100; the
// suppression table holds the remote host. The remote lab goes with the object.
struct RemoteSegment {
    std::optional<ndlab::Lab> lab;
    std::string host;   // the remote host's namespace
    std::string mac;    // its MAC as Linux prints it
    std::string tunnel; // the local switch's namespace, which holds vx100
};

void joinRemote(const WireSwitch &sw, RemoteSegment &remote)
{
    std::string remoteName = sw.lab() + "r";
    ndlab::Result<ndlab::Lab> made = ndlab::Lab::create(remoteName, 1);
    ASSERT_TRUE(made) << made.message();
    remote.lab.emplace(std::move(made.value()));
    ASSERT_TRUE(remote.lab->set_port_vlan(1, 10));
    ASSERT_EQ(sw.ndsh("configure terminal; vlan 10; exit; interface gigabitethernet 0/1; switchport access vlan 10; end"),
              "");
    ndlab::Status joined = ndlab::vxlan_join(sw.lab(), remoteName, 100, 10, 10);
    ASSERT_TRUE(joined) << joined.message();
    remote.host = ndlab::host_namespace(remoteName, 1);
    remote.tunnel = ndlab::switch_namespace(sw.lab());
    int status = -1;
    ndtest::run_capture({"ip", "netns", "exec", remote.host, "ip", "-6", "addr", "add", "2001:db8:100::2/64", "dev",
                         "eth0"},
                        status);
    ASSERT_EQ(status, 0);
    ASSERT_TRUE(sw.add_address(1, "2001:db8:100::1/64"));
    ASSERT_TRUE(sw.settled(1));
    remote.mac = ndtest::run_capture({"ip", "netns", "exec", remote.host, "cat", "/sys/class/net/eth0/address"}, status);
    remote.mac.erase(remote.mac.find_last_not_of('\n') + 1);
    std::string hex;
    for (char c : remote.mac)
        if (c != ':')
            hex += c;
    ASSERT_EQ(hex.size(), 12u);
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; ipv6 nd suppression; end"), "");
    ASSERT_EQ(sw.ndsh("nd mpos suppress 100 7 2001:db8:100::2 192.0.2.2 " + hex.substr(0, 4) + "." + hex.substr(4, 4) +
                      "." + hex.substr(8, 4) + " 1"),
              "");
    std::this_thread::sleep_for(500ms);
}

// Host 1 pings an address of the remote host (2001:db8:100::2 unless told): the NS of host 1 for
// it seen on the switch's vx100 and at the remote host, all and of them those to a multicast MAC.
struct Crossed {
    bool pinged = false;
    int tunnel = 0, tunnelMulticast = 0;
    int target = 0, targetMulticast = 0;
};

void pingRemote(const WireSwitch &sw, const RemoteSegment &remote, Crossed &crossed,
                const std::string &address = "2001:db8:100::2")
{
    NsWatch tunnel(remote.tunnel, "vx100", address, "2001:db8:100::1");
    NsWatch target(remote.host, "eth0", address, "2001:db8:100::1");
    ASSERT_TRUE(tunnel.ready() && target.ready());
    crossed.pinged = ping(sw, 1, address);
    crossed.tunnel = tunnel.stop();
    crossed.tunnelMulticast = tunnel.multicast();
    crossed.target = target.stop();
    crossed.targetMulticast = target.multicast();
}

// What the switch knows of the segment, for a failure's message: the suppression table, the
// devices of VLAN 10's bridge and the service's log.
std::string segmentState(const WireSwitch &sw, const RemoteSegment &remote)
{
    int status = -1;
    return sw.ndsh("show ipv6 nd suppression; show running-config") +
           ndtest::run_capture({"ip", "-n", remote.tunnel, "-o", "link", "show", "master", "vlan10"}, status) +
           sw.service_log();
}

TEST(WireAnswers, VxlanSuppressionAnswersForARemoteHostAndSendsNoNsIntoTheTunnel)
{
    WireSwitch sw(2);
    ASSERT_TRUE(sw.ready()) << sw.why();
    RemoteSegment remote;
    ASSERT_NO_FATAL_FAILURE(joinRemote(sw, remote));
    Crossed crossed;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, crossed));
    EXPECT_TRUE(crossed.pinged);
    EXPECT_EQ(crossed.tunnel, 0) << "the NS went into the tunnel" << segmentState(sw, remote);
    EXPECT_EQ(crossed.target, 0) << "the remote host saw the NS";
    EXPECT_EQ(sw.neighbour(1, "2001:db8:100::2").rfind("2001:db8:100::2 dev eth0 lladdr " + remote.mac + " ", 0), 0u)
        << sw.neighbour(1, "2001:db8:100::2");
    EXPECT_GE(sw.fast_counter("rxNaprLocal"), 1);
    // A host the table does not hold: solicited through the tunnel, unless mismatches are discarded.
    int status = -1;
    ndtest::run_capture({"ip", "netns", "exec", remote.host, "ip", "-6", "addr", "add", "2001:db8:100::3/64", "dev",
                         "eth0", "nodad"},
                        status);
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; ipv6 nd suppression missmatch discard; end"), "");
    Crossed discarded;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, discarded, "2001:db8:100::3"));
    EXPECT_FALSE(discarded.pinged);
    EXPECT_EQ(discarded.tunnel, 0) << "missmatch discard let the NS into the tunnel";
    EXPECT_EQ(discarded.target, 0);
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no ipv6 nd suppression missmatch discard; end"), "");
    sw.flush_neighbours(1);
    Crossed solicited;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, solicited, "2001:db8:100::3"));
    EXPECT_TRUE(solicited.pinged);
    EXPECT_GE(solicited.tunnel, 1);
    EXPECT_GE(solicited.target, 1);
    // Switched off, the remote host is solicited through the tunnel again.
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no ipv6 nd suppression; end"), "");
    sw.flush_neighbours(1);
    Crossed off;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, off));
    EXPECT_TRUE(off.pinged);
    EXPECT_GE(off.tunnel, 1);
    EXPECT_GE(off.target, 1);
}

// With unicast forward the switch does not answer for the remote host: the NS crosses the tunnel
// as unicast to the host's MAC, the host itself answers, and no multicast NS enters the tunnel.
TEST(WireAnswers, VxlanUnicastForwardSendsTheNsToTheRemoteHostAlone)
{
    WireSwitch sw(2);
    ASSERT_TRUE(sw.ready()) << sw.why();
    RemoteSegment remote;
    ASSERT_NO_FATAL_FAILURE(joinRemote(sw, remote));
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; ipv6 nd suppression unicast forward; end"), "");
    ASSERT_EQ(sw.ndsh("clear nd fast-response statistics"), "");
    Crossed crossed;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, crossed));
    EXPECT_TRUE(crossed.pinged);
    EXPECT_GE(crossed.tunnel, 1) << "nothing went into the tunnel";
    EXPECT_EQ(crossed.tunnelMulticast, 0) << "a multicast NS went into the tunnel" << segmentState(sw, remote);
    EXPECT_GE(crossed.target, 1) << "the remote host did not see the NS";
    EXPECT_EQ(crossed.targetMulticast, 0);
    EXPECT_EQ(sw.neighbour(1, "2001:db8:100::2").rfind("2001:db8:100::2 dev eth0 lladdr " + remote.mac + " ", 0), 0u)
        << sw.neighbour(1, "2001:db8:100::2");
    EXPECT_EQ(sw.fast_counter("rxNaprLocal"), 0);
    EXPECT_EQ(sw.fast_counter("txNaCount"), 0);
    EXPECT_GE(sw.fast_counter("rxNsNoNapr"), 1);
    // Without it the switch answers again, and the remote host sees nothing.
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no ipv6 nd suppression unicast forward; end"), "");
    sw.flush_neighbours(1);
    Crossed answered;
    ASSERT_NO_FATAL_FAILURE(pingRemote(sw, remote, answered));
    EXPECT_TRUE(answered.pinged);
    EXPECT_EQ(answered.tunnel, 0);
    EXPECT_EQ(answered.target, 0);
    EXPECT_GE(sw.fast_counter("rxNaprLocal"), 1);
}

// One row of `show ipv6 nd host vxlan`.
std::string hostRow(int vxlan, const std::string &dottedMac, const std::string &address, const std::string &port,
                    const std::string &vlans)
{
    char row[256];
    snprintf(row, sizeof row, "\n%-10d %-20s %-48s %-20s %s", vxlan, dottedMac.c_str(), address.c_str(), port.c_str(),
             vlans.c_str());
    return row;
}

// The VXLAN local host table is what the switch hears on the VXLAN access ports.
TEST(WireAnswers, VxlanAccessPortsLearnTheLocalHostTable)
{
    WireSwitch sw(2);
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh("configure terminal; vlan 10; exit; interface gigabitethernet 0/1; switchport access vlan 10; "
                      "interface gigabitethernet 0/2; switchport access vlan 10; exit; vxlan 100; "
                      "vxlan-port 1 interface gigabitethernet0/1 svlan 10; "
                      "vxlan-port 2 interface gigabitethernet0/2 svlan 20 cvlan 7; end"),
              "");
    std::this_thread::sleep_for(700ms); // the service reads the access ports every half second
    ASSERT_TRUE(sw.add_address(1, "2001:db8:100::1/64"));
    ASSERT_TRUE(sw.add_address(2, "2001:db8:100::2/64"));
    ASSERT_TRUE(sw.settled(1) && sw.settled(2));
    std::string one = hostRow(100, sw.dotted_mac(1), "2001:db8:100::1", "ge0/1", "10/-");
    std::string listing;
    EXPECT_TRUE(within(3s, [&] {
        listing = sw.ndsh("show ipv6 nd host vxlan");
        return listing.find(one) != std::string::npos;
    })) << listing;
    // Port 2 carries outer VLAN 20 only: host 2, in VLAN 10, is not a host of the table.
    EXPECT_EQ(listing.find("2001:db8:100::2"), std::string::npos) << listing;
    EXPECT_NE(listing.find("\nTotal vxlan host: 1"), std::string::npos) << listing;
    // Port 2 for every VLAN, but a limit of one host: host 2's NS teaches nothing yet.
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no vxlan-port 2; vxlan-port 2 interface gigabitethernet0/2; "
                      "ipv6 nd host limited 1; end"),
              "");
    std::this_thread::sleep_for(700ms);
    EXPECT_TRUE(ping(sw, 2, "2001:db8:100::1"));
    listing = sw.ndsh("show ipv6 nd host vxlan 100");
    EXPECT_EQ(listing.find("2001:db8:100::2"), std::string::npos) << listing;
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no ipv6 nd host limited; end"), "");
    std::string two = hostRow(100, sw.dotted_mac(2), "2001:db8:100::2", "ge0/2", "-/-");
    sw.flush_neighbours(2);
    EXPECT_TRUE(ping(sw, 2, "2001:db8:100::1"));
    EXPECT_TRUE(within(3s, [&] {
        listing = sw.ndsh("show ipv6 nd host vxlan");
        return listing.find(two) != std::string::npos;
    })) << listing;
    char title[256];
    snprintf(title, sizeof title, "\n%-10s %-20s %-48s %-20s %s", "VXLAN-ID", "MAC-Address", "IP-Address", "INTERFACE",
             "SVLAN/CVLAN");
    // (ndsh ends its output with a newline.)
    EXPECT_EQ(listing, title + one + two + "\nTotal vxlan host: 2\n");
    std::string full = listing;
    // Clearing one address, then all; the backup brings them back.
    ASSERT_EQ(sw.ndsh("ipv6 nd host issu backup"), "");
    ASSERT_EQ(sw.ndsh("clear ipv6 nd host vxlan 100 2001:db8:100::1"), "");
    listing = sw.ndsh("show ipv6 nd host vxlan");
    EXPECT_EQ(listing.find("2001:db8:100::1 "), std::string::npos) << listing;
    EXPECT_NE(listing.find(two), std::string::npos) << listing;
    ASSERT_EQ(sw.ndsh("clear ipv6 nd host vxlan all"), "");
    EXPECT_EQ(sw.ndsh("show ipv6 nd host vxlan"), "\nTotal vxlan host: 0\n");
    ASSERT_EQ(sw.ndsh("ipv6 nd host issu recover"), "");
    EXPECT_EQ(sw.ndsh("show ipv6 nd host vxlan"), full);
    // A port that is no access port any more forgets its hosts.
    ASSERT_EQ(sw.ndsh("configure terminal; vxlan 100; no vxlan-port 2; end"), "");
    EXPECT_TRUE(within(3s, [&] {
        listing = sw.ndsh("show ipv6 nd host vxlan");
        return listing.find("2001:db8:100::2") == std::string::npos;
    })) << listing;
    EXPECT_NE(listing.find(one), std::string::npos) << listing;
}

TEST(WireAnswers, MalformedSolicitationsAreCountedAndNotAnswered)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindThreeHosts(sw);
    ASSERT_EQ(sw.ndsh("clear nd fast-response statistics"), "");
    for (const char *kind : {"checksum", "dad-lladdr", "zero-option", "mcast-target"})
        ASSERT_EQ(sw.forge(1, {"ns-bad", kind, "2001:db8:1::1", "2001:db8:1::3"}), 0) << kind;
    EXPECT_TRUE(within(2s, [&] { return sw.fast_counter("rxNsDecFail") == 4; }))
        << sw.ndsh("show nd fast-response statistics");
    // The hosts' own ND goes on beside the forged messages.
    EXPECT_GE(sw.fast_counter("rxNdCount"), 4);
    EXPECT_GE(sw.fast_counter("rxNdDrop"), 4);
    EXPECT_EQ(sw.fast_counter("rxNsBadDad"), 1);
    EXPECT_EQ(sw.fast_counter("rxNdOptError"), 1);
    EXPECT_EQ(sw.fast_counter("rxTargetMcast"), 1);
    EXPECT_EQ(sw.fast_counter("rxTargetMcast") + sw.fast_counter("rxNsBadDad") + sw.fast_counter("rxNdOptError"), 3);
}

} // namespace
