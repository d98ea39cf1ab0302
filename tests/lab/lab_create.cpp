// Making and removing labs: what `ndlab create` makes in the kernel and prints, what `delete`
// leaves, and a create over what a crashed lab left behind.
#include <arpa/inet.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include <nlohmann/json.hpp>

#include "lab_support.h"

namespace labtest {
namespace {

using nlohmann::json;

// The one link `device` of namespace `netns`, with its details.
json link_of(const std::string &netns, const std::string &device)
{
    json links = json::parse(ip({"-n", netns, "-j", "-d", "link", "show", "dev", device}), nullptr, false);
    if (!links.is_array() || links.size() != 1) {
        ADD_FAILURE() << "no link " << device << " in " << netns;
        return json::object();
    }
    return links[0];
}

bool is_up(const json &link)
{
    const json &flags = link.value("flags", json::array());
    return std::find(flags.begin(), flags.end(), "UP") != flags.end();
}

std::string kind(const json &link) { return link.value("linkinfo", json::object()).value("info_kind", ""); }

// The link-local address that a device of MAC address `mac` makes for itself (EUI-64).
std::string eui64_link_local(const std::string &mac)
{
    std::array<unsigned, 6> m{};
    EXPECT_EQ(std::sscanf(mac.c_str(), "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]), 6);
    std::array<unsigned char, 16> bytes{0xfe, 0x80, 0, 0, 0, 0, 0, 0, static_cast<unsigned char>(m[0] ^ 0x02),
                                        static_cast<unsigned char>(m[1]), static_cast<unsigned char>(m[2]), 0xff, 0xfe,
                                        static_cast<unsigned char>(m[3]), static_cast<unsigned char>(m[4]),
                                        static_cast<unsigned char>(m[5])};
    char text[INET6_ADDRSTRLEN];
    ::inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
    return text;
}

std::string created(const std::string &name, int ports)
{
    std::vector<std::string> each = {"ndlab: namespace ndlab-" + name + "-sw", "ndlab: bridge vlan1"};
    for (int k = 1; k <= ports; ++k) {
        std::string host = "ndlab-" + name + "-h" + std::to_string(k);
        each.push_back("ndlab: namespace " + host);
        each.push_back("ndlab: port ge0-" + std::to_string(k) + " <-> " + host + " eth0 in vlan1");
    }
    return lines(each);
}

TEST_F(LabTest, CreateMakesTheSwitchTheHostsTheirLinksAndTheBridge)
{
    Outcome made = ndlab({"create", name(), "--ports", "3"});
    const std::string n = name();
    EXPECT_EQ(made.out, "ndlab: namespace ndlab-" + n + "-sw\n"
                        "ndlab: bridge vlan1\n"
                        "ndlab: namespace ndlab-" + n + "-h1\n"
                        "ndlab: port ge0-1 <-> ndlab-" + n + "-h1 eth0 in vlan1\n"
                        "ndlab: namespace ndlab-" + n + "-h2\n"
                        "ndlab: port ge0-2 <-> ndlab-" + n + "-h2 eth0 in vlan1\n"
                        "ndlab: namespace ndlab-" + n + "-h3\n"
                        "ndlab: port ge0-3 <-> ndlab-" + n + "-h3 eth0 in vlan1\n");
    EXPECT_EQ(made.err, "");
    ASSERT_EQ(made.status, 0);
    EXPECT_EQ(lab_namespaces(), (std::vector<std::string>{host(1), host(2), host(3), sw()}));

    json bridge = link_of(sw(), "vlan1");
    EXPECT_EQ(kind(bridge), "bridge");
    EXPECT_TRUE(is_up(bridge));
    EXPECT_EQ(bridge.value("address", ""), ndlab::switch_mac(n));
    EXPECT_EQ(bridge["linkinfo"]["info_data"].value("mcast_snooping", -1), 0);
    for (const std::string &netns : {sw(), host(1), host(2), host(3)}) {
        EXPECT_TRUE(is_up(link_of(netns, "lo"))) << netns;
        EXPECT_EQ(read_in(netns, "/proc/sys/net/ipv6/conf/all/disable_ipv6"), "0\n") << netns;
        EXPECT_EQ(read_in(netns, "/proc/sys/net/ipv6/conf/default/disable_ipv6"), "0\n") << netns;
    }
    EXPECT_EQ(read_in(sw(), "/proc/sys/net/ipv6/conf/vlan1/disable_ipv6"), "0\n");
    for (int k = 1; k <= 3; ++k) {
        const std::string port = "ge0-" + std::to_string(k);
        json swEnd = link_of(sw(), port);
        EXPECT_EQ(kind(swEnd), "veth") << port;
        EXPECT_EQ(swEnd.value("master", ""), "vlan1") << port;
        EXPECT_TRUE(is_up(swEnd)) << port;
        EXPECT_EQ(read_in(sw(), "/proc/sys/net/ipv6/conf/" + port + "/disable_ipv6"), "1\n") << port;
        EXPECT_EQ(link_local(sw(), port), "") << port;

        json hostEnd = link_of(host(k), "eth0");
        EXPECT_EQ(kind(hostEnd), "veth") << k;
        EXPECT_TRUE(is_up(hostEnd)) << k;
        // The host's end is the peer of the switch's port of the same number.
        EXPECT_EQ(hostEnd.value("link_index", -1), swEnd.value("ifindex", -2)) << k;
        EXPECT_EQ(read_in(host(k), "/proc/sys/net/ipv6/conf/eth0/disable_ipv6"), "0\n") << k;
        EXPECT_EQ(read_in(host(k), "/proc/sys/net/ipv6/conf/eth0/accept_dad"), "1\n") << k;
    }

    // The bridge's link-local address comes from the switch's MAC once it has a carrier.
    ASSERT_TRUE(wait_addresses_settled(sw(), "vlan1"));
    Outcome shown = ndlab({"show", n});
    EXPECT_EQ(shown.out, "lab " + n + " switch ndlab-" + n + "-sw ports 3 bridges 1\n"
                         "port ge0-1 vlan 1 host ndlab-" + n + "-h1\n"
                         "port ge0-2 vlan 1 host ndlab-" + n + "-h2\n"
                         "port ge0-3 vlan 1 host ndlab-" + n + "-h3\n"
                         "bridge vlan1 ports ge0-1,ge0-2,ge0-3 addresses " + eui64_link_local(ndlab::switch_mac(n)) + "/64\n");
    EXPECT_EQ(shown.err, "");
    EXPECT_EQ(shown.status, 0);
}

TEST_F(LabTest, DeleteLeavesNoNamespaceOfTheLabAndIsIdempotent)
{
    ASSERT_EQ(ndlab({"create", name(), "--ports", "2"}).status, 0);
    Outcome deleted = ndlab({"delete", name()});
    EXPECT_EQ(deleted.out, lines({"ndlab: removed namespace " + sw(), "ndlab: removed namespace " + host(1),
                                  "ndlab: removed namespace " + host(2)}));
    EXPECT_EQ(deleted.err, "");
    EXPECT_EQ(deleted.status, 0);
    EXPECT_EQ(namespaces_starting("ndlab-" + name() + "-"), std::vector<std::string>{});

    Outcome again = ndlab({"delete", name()});
    EXPECT_EQ(again.out, "ndlab: no lab " + name() + ": nothing to delete\n");
    EXPECT_EQ(again.err, "");
    EXPECT_EQ(again.status, 0);

    Outcome shown = ndlab({"show", name()});
    EXPECT_EQ(shown.out, "");
    EXPECT_EQ(shown.err, "ndlab: no lab " + name() + " (no namespace " + sw() + ")\n");
    EXPECT_EQ(shown.status, 1);
}

TEST_F(LabTest, CreateOverNamespacesLeftByHandRemovesThemAndSparesOtherLabs)
{
    // What a crash may leave: the switch and a host the new lab will not have. A lab whose name
    // starts with ours and a dash is another lab, and stays.
    ndlab::Lab neighbour = std::move(ndlab::Lab::adopt(name() + "-h7").value());
    const std::string neighbourSwitch = ndlab::switch_namespace(name() + "-h7");
    for (const std::string &netns : {sw(), host(7), neighbourSwitch})
        ip({"netns", "add", netns});

    Outcome made = ndlab({"create", name(), "--ports", "2"});
    EXPECT_EQ(made.out, lines({"ndlab: removed leftover namespace " + sw(), "ndlab: removed leftover namespace " + host(7)}) +
                            created(name(), 2));
    EXPECT_EQ(made.err, "");
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(lab_namespaces(), (std::vector<std::string>{host(1), host(2), sw()}));
    EXPECT_EQ(namespaces_starting(neighbourSwitch), std::vector<std::string>{neighbourSwitch});
}

TEST_F(LabTest, CreateOverALabThatWasNeverDeletedLeavesExactlyTheNewLab)
{
    ASSERT_EQ(ndlab({"create", name(), "--ports", "3"}).status, 0);
    ASSERT_EQ(ndlab({"port", name(), "2", "vlan", "30"}).status, 0);

    Outcome made = ndlab({"create", name(), "--ports", "2"});
    EXPECT_EQ(made.out, lines({"ndlab: removed leftover namespace " + sw(), "ndlab: removed leftover namespace " + host(1),
                               "ndlab: removed leftover namespace " + host(2), "ndlab: removed leftover namespace " + host(3)}) +
                            created(name(), 2));
    EXPECT_EQ(made.err, "");
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(lab_namespaces(), (std::vector<std::string>{host(1), host(2), sw()}));
    Outcome shown = ndlab({"show", name()});
    EXPECT_EQ(shown.status, 0);
    // The new switch has only VLAN 1's bridge and both ports in it.
    EXPECT_NE(shown.out.find("lab " + name() + " switch " + sw() + " ports 2 bridges 1\n"
                             "port ge0-1 vlan 1 host " + host(1) + "\n"
                             "port ge0-2 vlan 1 host " + host(2) + "\n"
                             "bridge vlan1 ports ge0-1,ge0-2 addresses "),
              std::string::npos)
        << shown.out;
}

TEST_F(LabTest, ACreateThatFailsHalfwayRemovesWhatItMade)
{
    // An ip that refuses to make the second port's veth pair, and does everything else.
    const std::string fakeIp = scratch_.path() + "/ip";
    {
        std::ofstream script(fakeIp);
        script << "#!/bin/sh\n"
                  "if [ \"$3 $4 $5\" = \"link add ge0-2\" ]; then\n"
                  "  echo 'RTNETLINK answers: File exists' >&2\n"
                  "  exit 2\n"
                  "fi\n"
                  "exec " << ndlab::ip_program() << " \"$@\"\n";
    }
    ASSERT_EQ(::chmod(fakeIp.c_str(), 0755), 0);

    Outcome made = ndlab({"create", name(), "--ports", "3"}, {.env = {"NDLAB_IP=" + fakeIp}});
    EXPECT_EQ(made.out, lines({"ndlab: namespace " + sw(), "ndlab: bridge vlan1", "ndlab: namespace " + host(1),
                               "ndlab: port ge0-1 <-> " + host(1) + " eth0 in vlan1", "ndlab: namespace " + host(2)}));
    EXPECT_EQ(made.err, "ndlab: cannot add port ge0-2: RTNETLINK answers: File exists\n");
    EXPECT_EQ(made.status, 1);
    EXPECT_EQ(namespaces_starting("ndlab-" + name() + "-"), std::vector<std::string>{});
}

TEST_F(LabTest, SixtyFourPortsAndTheLongestNameAreAccepted)
{
    // A name of exactly 24 characters that starts with this test's own, so that it is unique.
    std::string longest = name() + "-";
    longest.resize(ndlab::kMaxNameLength, 'z');
    ndlab::Lab owner = std::move(ndlab::Lab::adopt(longest).value());
    Outcome made = ndlab({"create", longest, "--ports", "64"});
    EXPECT_EQ(made.out, created(longest, 64));
    EXPECT_EQ(made.err, "");
    ASSERT_EQ(made.status, 0);
    EXPECT_EQ(namespaces_starting(ndlab::host_namespace(longest, 64)), std::vector<std::string>{ndlab::host_namespace(longest, 64)});
    EXPECT_EQ(link_of(ndlab::switch_namespace(longest), "ge0-64").value("master", ""), "vlan1");
}

} // namespace
} // namespace labtest

namespace labtest {
namespace {

TEST_F(LabTest, ShowMarksPortsOutsideBridgesHostsGoneAndEmptyBridges)
{
    ASSERT_EQ(ndlab({"create", name(), "--ports", "2"}).status, 0);
    // Port 1 taken out of every bridge; host 2's interface carried off to another namespace (one
    // of another lab, removed by its own owner) before host 2's namespace goes; VLAN 30 made by
    // an address that is removed again.
    ip({"-n", sw(), "link", "set", "ge0-1", "nomaster"});
    ndlab::Lab elsewhere = std::move(ndlab::Lab::adopt(name() + "-x").value());
    const std::string elsewhereNs = ndlab::switch_namespace(name() + "-x");
    ip({"netns", "add", elsewhereNs});
    ip({"-n", host(2), "link", "set", "eth0", "netns", elsewhereNs});
    ip({"netns", "delete", host(2)});
    ASSERT_EQ(ndlab({"vlan-address", name(), "30", "add", "2001:db8:30::1/64"}).status, 0);
    ASSERT_EQ(ndlab({"vlan-address", name(), "30", "del", "2001:db8:30::1/64"}).status, 0);
    ASSERT_TRUE(wait_addresses_settled(sw(), "vlan1"));

    Outcome shown = ndlab({"show", name()});
    EXPECT_EQ(shown.out, "lab " + name() + " switch " + sw() + " ports 2 bridges 2\n"
                         "port ge0-1 vlan - host " + host(1) + "\n"
                         "port ge0-2 vlan 1 host -\n"
                         "bridge vlan1 ports ge0-2 addresses " + eui64_link_local(ndlab::switch_mac(name())) + "/64\n"
                         "bridge vlan30 ports - addresses -\n");
    EXPECT_EQ(shown.status, 0);
}

} // namespace
} // namespace labtest
