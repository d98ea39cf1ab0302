// Two labs joined by the kernel's VXLAN device: one VLAN of each becomes one segment (pings
// cross, the forwarding database learns, a solicitation is seen in the tunnel), another VLAN
// stays out, leaving takes the devices and the underlay away, and a lab deleted under a join
// leaves the other one working.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "lab_support.h"

namespace labtest {
namespace {

using nlohmann::json;

constexpr int kReached = 0;    // ping's status with an answer
constexpr int kNotReached = 1; // ping's status without one
constexpr int kUsageError = 2;
const std::string kFirst = "192.0.2.1";  // the underlay address of the lab whose name sorts first
const std::string kSecond = "192.0.2.2"; // that of the other

// The test's own lab is A; B is a second lab, named after A and owned here, so that it goes on
// every way out too. A's name sorts first: A has 192.0.2.1.
class VxlanTest : public LabTest {
protected:
    VxlanTest() : labB_(std::move(ndlab::Lab::adopt(b()).value())) {}

    const std::string &a() const { return name(); }
    std::string b() const { return name() + "-b"; }
    std::string swB() const { return ndlab::switch_namespace(b()); }
    std::string hostB(int port) const { return ndlab::host_namespace(b(), port); }

    void make_labs(int portsA, int portsB)
    {
        ASSERT_EQ(ndlab({"create", a(), "--ports", std::to_string(portsA)}).status, 0);
        ASSERT_EQ(ndlab({"create", b(), "--ports", std::to_string(portsB)}).status, 0);
    }
    void move_port(const std::string &lab, int port, int vlan)
    {
        Outcome moved = ndlab({"port", lab, std::to_string(port), "vlan", std::to_string(vlan)});
        ASSERT_EQ(moved.status, 0) << moved.err;
    }
    // An address of host K of `lab`, after the host's own duplicate address detection.
    void give_address(const std::string &lab, int port, const std::string &address)
    {
        Outcome given = ndlab({"exec", lab, "h" + std::to_string(port), "--", "ip", "-6", "addr", "add", address, "dev", "eth0"});
        ASSERT_EQ(given.status, 0) << given.err;
        ASSERT_TRUE(wait_addresses_settled(ndlab::host_namespace(lab, port), "eth0")) << lab << " h" << port;
    }
    int ping(const std::string &lab, int from, const std::string &address)
    {
        return ndlab({"exec", lab, "h" + std::to_string(from), "--", "ping", "-6", "-c1", "-W2", address}).status;
    }
    std::string joined(const std::string &vni, const std::string &vlanA, const std::string &vlanB) const
    {
        return lines({"ndlab: vxlan vx" + vni + " vni " + vni + " in " + sw() + " bridge vlan" + vlanA + " remote " + kSecond,
                      "ndlab: vxlan vx" + vni + " vni " + vni + " in " + swB() + " bridge vlan" + vlanB + " remote " + kFirst});
    }
    std::string underlay_made() const
    {
        return "ndlab: underlay " + sw() + " ul0 " + kFirst + "/24 <-> " + swB() + " ul0 " + kSecond + "/24\n";
    }

    ndlab::Lab labB_;
};

// The links of `netns` by name, with their details (an empty object for one that is missing).
json link_of(const std::string &netns, const std::string &device)
{
    json links = json::parse(ip({"-n", netns, "-j", "-d", "addr", "show"}), nullptr, false);
    for (const json &link : links) {
        if (link.value("ifname", "") == device)
            return link;
    }
    return json::object();
}

bool has_link(const std::string &netns, const std::string &device) { return !link_of(netns, device).empty(); }

std::string mac_of(const std::string &netns, const std::string &device) { return link_of(netns, device).value("address", ""); }

// Whether `text` has a line that starts with `start`.
bool has_line_starting(const std::string &text, const std::string &start)
{
    return ("\n" + text).find("\n" + start) != std::string::npos;
}

// What `ndlab show` prints from its underlay line on ("" without VXLAN lines).
std::string vxlan_lines(const std::string &shown)
{
    size_t at = std::min(shown.find("\nunderlay "), shown.find("\nvxlan "));
    return at == std::string::npos ? "" : shown.substr(at + 1);
}

TEST_F(VxlanTest, OneVlanOfEachLabIsOneSegmentThroughTheKernelsTunnel)
{
    make_labs(2, 1);
    move_port(a(), 1, 10);
    move_port(b(), 1, 10);
    Outcome made = ndlab({"vxlan", a(), b(), "100", "10"});
    EXPECT_EQ(made.out, underlay_made() + joined("100", "10", "10"));
    EXPECT_EQ(made.err, "");
    ASSERT_EQ(made.status, 0);

    // What the kernel holds: a VXLAN device of VNI 100 in each VLAN 10 bridge, learning, over a
    // veth underlay that carries IPv4 only.
    json vx = link_of(sw(), "vx100");
    EXPECT_EQ(vx["linkinfo"].value("info_kind", ""), "vxlan");
    EXPECT_EQ(vx["linkinfo"]["info_data"].value("id", 0), 100);
    EXPECT_EQ(vx["linkinfo"]["info_data"].value("port", 0), 4789);
    EXPECT_EQ(vx["linkinfo"]["info_data"].value("local", ""), kFirst);
    EXPECT_EQ(vx["linkinfo"]["info_data"].value("remote", ""), kSecond);
    EXPECT_EQ(vx["linkinfo"]["info_data"].value("learning", false), true);
    EXPECT_EQ(vx.value("master", ""), "vlan10");
    EXPECT_EQ(vx.value("mtu", 0), 1500);
    EXPECT_EQ(link_of(swB(), "vx100").value("master", ""), "vlan10");
    EXPECT_EQ(link_of(sw(), "ul0")["linkinfo"].value("info_kind", ""), "veth");
    EXPECT_EQ(read_in(sw(), "/proc/sys/net/ipv6/conf/ul0/disable_ipv6"), "1\n");
    EXPECT_EQ(read_in(swB(), "/proc/sys/net/ipv6/conf/vx100/disable_ipv6"), "1\n");

    Outcome shownA = ndlab({"show", a()});
    EXPECT_EQ(shownA.out.substr(0, shownA.out.find("\nbridge ") + 1),
              lines({"lab " + a() + " switch " + sw() + " ports 2 bridges 2", "port ge0-1 vlan 10 host " + host(1),
                     "port ge0-2 vlan 1 host " + host(2)}));
    EXPECT_EQ(vxlan_lines(shownA.out), lines({"underlay ul0 address " + kFirst + "/24 peer " + swB(),
                                              "vxlan vx100 vni 100 bridge vlan10 remote " + kSecond + " peer " + swB()}));
    EXPECT_EQ(vxlan_lines(ndlab({"show", b()}).out), lines({"underlay ul0 address " + kSecond + "/24 peer " + sw(),
                                                            "vxlan vx100 vni 100 bridge vlan10 remote " + kFirst + " peer " + sw()}));

    give_address(a(), 1, "2001:db8:100::a1/64");
    give_address(a(), 2, "2001:db8:100::a2/64");
    give_address(b(), 1, "2001:db8:100::b1/64");
    NsCounter onVxA(sw(), "vx100", "2001:db8:100::b1");
    NsCounter onUnderlay(sw(), "ul0", "2001:db8:100::b1", 100);
    NsCounter onVxB(swB(), "vx100", "2001:db8:100::b1");

    // Host 2 of A is in VLAN 1: its solicitations for B's host never enter the tunnel.
    EXPECT_EQ(ping(a(), 2, "2001:db8:100::b1"), kNotReached);
    NsCounter::Seen seen = onVxA.seen();
    EXPECT_EQ(seen.bare + seen.tunnelled, 0);
    seen = onUnderlay.seen();
    EXPECT_EQ(seen.bare + seen.tunnelled, 0);

    // Host 1 of A is in VLAN 10: its solicitation leaves through A's vx100, crosses the
    // underlay in VXLAN with VNI 100, comes out of B's vx100, and the ping is answered.
    EXPECT_EQ(ping(a(), 1, "2001:db8:100::b1"), kReached);
    seen = onVxA.seen();
    EXPECT_GE(seen.bare, 1);
    EXPECT_EQ(seen.tunnelled, 0);
    seen = onUnderlay.seen();
    EXPECT_EQ(seen.bare, 0);
    EXPECT_GE(seen.tunnelled, 1);
    EXPECT_GE(onVxB.seen().bare, 1);
    EXPECT_EQ(ping(b(), 1, "2001:db8:100::a1"), kReached);

    // Each switch's VXLAN forwarding database learned the host behind the other end.
    Outcome fdbA = ndlab({"exec", a(), "sw", "--", "bridge", "fdb", "show", "dev", "vx100"});
    ASSERT_EQ(fdbA.status, 0) << fdbA.err;
    EXPECT_TRUE(has_line_starting(fdbA.out, mac_of(hostB(1), "eth0") + " dst " + kSecond + " self")) << fdbA.out;
    EXPECT_TRUE(has_line_starting(fdbA.out, "00:00:00:00:00:00 dst " + kSecond + " self permanent")) << fdbA.out;
    Outcome fdbB = ndlab({"exec", b(), "sw", "--", "bridge", "fdb", "show", "dev", "vx100"});
    EXPECT_TRUE(has_line_starting(fdbB.out, mac_of(host(1), "eth0") + " dst " + kFirst + " self")) << fdbB.out;
    EXPECT_FALSE(has_line_starting(fdbB.out, mac_of(host(2), "eth0"))) << fdbB.out;
}

TEST_F(VxlanTest, LeavingRemovesTheDevicesAndTheUnderlayGoesWithTheLastVni)
{
    make_labs(1, 1);
    std::vector<std::string> told;
    auto tell = [&](const std::string &line) { told.push_back(line); };
    ASSERT_TRUE(ndlab::vxlan_join(a(), b(), 100, 10, 20, tell).ok());
    EXPECT_EQ(told, (std::vector<std::string>{"underlay " + sw() + " ul0 " + kFirst + "/24 <-> " + swB() + " ul0 " + kSecond + "/24",
                                              "bridge vlan10 in " + sw(),
                                              "vxlan vx100 vni 100 in " + sw() + " bridge vlan10 remote " + kSecond,
                                              "bridge vlan20 in " + swB(),
                                              "vxlan vx100 vni 100 in " + swB() + " bridge vlan20 remote " + kFirst}));
    // Named the other way round: the same underlay and addresses, no second one.
    told.clear();
    ASSERT_TRUE(ndlab::vxlan_join(b(), a(), 200, 30, 30, tell).ok());
    EXPECT_EQ(told, (std::vector<std::string>{"bridge vlan30 in " + swB(),
                                              "vxlan vx200 vni 200 in " + swB() + " bridge vlan30 remote " + kFirst,
                                              "bridge vlan30 in " + sw(),
                                              "vxlan vx200 vni 200 in " + sw() + " bridge vlan30 remote " + kSecond}));
    ndlab::Result<ndlab::LabState> state = ndlab::inspect(a());
    ASSERT_TRUE(state.ok()) << state.message();
    ASSERT_TRUE(state.value().underlay.has_value());
    EXPECT_EQ(state.value().underlay->address, kFirst + "/24");
    EXPECT_EQ(state.value().underlay->peer, swB());
    ASSERT_EQ(state.value().vxlans.size(), 2u);
    EXPECT_EQ(state.value().vxlans[0].device, "vx100");
    EXPECT_EQ(state.value().vxlans[0].vni, 100u);
    EXPECT_EQ(state.value().vxlans[0].vlan, 10);
    EXPECT_EQ(state.value().vxlans[0].remote, kSecond);
    EXPECT_EQ(state.value().vxlans[0].peer, swB());
    EXPECT_EQ(state.value().vxlans[1].vni, 200u);
    EXPECT_EQ(state.value().vxlans[1].vlan, 30);

    Outcome left = ndlab({"vxlan-del", a(), b(), "100"});
    EXPECT_EQ(left.out, lines({"ndlab: removed vxlan vx100 from " + sw(), "ndlab: removed vxlan vx100 from " + swB()}));
    EXPECT_EQ(left.err, "");
    EXPECT_EQ(left.status, 0);
    for (const std::string &netns : {sw(), swB()}) {
        EXPECT_FALSE(has_link(netns, "vx100")) << netns;
        EXPECT_TRUE(has_link(netns, "vx200")) << netns;
        EXPECT_TRUE(has_link(netns, "ul0")) << netns;
    }
    left = ndlab({"vxlan-del", b(), a(), "200"});
    EXPECT_EQ(left.out, lines({"ndlab: removed vxlan vx200 from " + swB(), "ndlab: removed vxlan vx200 from " + sw(),
                               "ndlab: removed underlay " + swB() + " ul0 <-> " + sw() + " ul0"}));
    EXPECT_EQ(left.err, "");
    EXPECT_EQ(left.status, 0);
    for (const std::string &netns : {sw(), swB()}) {
        EXPECT_EQ(ip({"-n", netns, "-o", "link", "show", "type", "vxlan"}), "") << netns;
        EXPECT_FALSE(has_link(netns, "ul0")) << netns;
    }
    EXPECT_EQ(vxlan_lines(ndlab({"show", a()}).out), "");
    EXPECT_EQ(vxlan_lines(ndlab({"show", b()}).out), "");

    Outcome again = ndlab({"vxlan-del", a(), b(), "100"});
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(again.err, "ndlab: no vni 100 between lab " + a() + " and lab " + b() + "\n");
    EXPECT_EQ(again.status, 1);
}

} // namespace
} // namespace labtest

namespace labtest {
namespace {

struct Refusal {
    std::vector<std::string> args;
    std::string err;
};

TEST_F(VxlanTest, MalformedJoinsAreUsageErrorsThatNameTheWord)
{
    const std::string A = a(), B = b();
    const std::vector<Refusal> refusals = {
        {{"vxlan", A, B, "0", "10"}, "ndlab: bad VNI '0': use 1 to 16777215\n"},
        {{"vxlan", A, B, "16777216", "10"}, "ndlab: bad VNI '16777216': use 1 to 16777215\n"},
        {{"vxlan", A, B, "1x", "10"}, "ndlab: bad VNI '1x': use 1 to 16777215\n"},
        {{"vxlan", A, A, "100", "10"}, "ndlab: lab " + A + " named twice: name two different labs\n"},
        {{"vxlan", "a/b", B, "100", "10"}, "ndlab: bad lab name 'a/b': use 1 to 24 letters, digits, '_' or '-'\n"},
        {{"vxlan", A, "", "100", "10"}, "ndlab: bad lab name '': use 1 to 24 letters, digits, '_' or '-'\n"},
        {{"vxlan", A, B, "100", "0"}, "ndlab: bad VLAN '0': use 1 to 4094\n"},
        {{"vxlan", A, B, "100", "10", "4095"}, "ndlab: bad VLAN '4095': use 1 to 4094\n"},
        {{"vxlan-del", A, B, "16777216"}, "ndlab: bad VNI '16777216': use 1 to 16777215\n"},
        {{"vxlan-del", B, B, "1"}, "ndlab: lab " + B + " named twice: name two different labs\n"},
    };
    for (const Refusal &refusal : refusals) {
        Outcome done = ndlab(refusal.args);
        EXPECT_EQ(done.err, refusal.err);
        EXPECT_EQ(done.out, "");
        EXPECT_EQ(done.status, kUsageError) << refusal.err;
    }
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"vxlan", A, B, "100"}, {"vxlan", A, B, "100", "10", "20", "30"}, {"vxlan-del", A, B}, {"vxlan-del", A, B, "1", "2"}}) {
        Outcome done = ndlab(args);
        EXPECT_EQ(done.err.rfind("usage: ndlab create NAME --ports N\n", 0), 0u) << done.err;
        EXPECT_NE(done.err.find("       ndlab vxlan NAME-A NAME-B VNI V-A [V-B]\n       ndlab vxlan-del NAME-A NAME-B VNI\n"),
                  std::string::npos);
        EXPECT_EQ(done.status, kUsageError);
    }
    EXPECT_EQ(namespaces_starting("ndlab-" + A + "-"), std::vector<std::string>{});

    // The library says the same, in words without the program's name.
    EXPECT_EQ(ndlab::vxlan_join(A, B, 0, 10, 10).message(), "bad VNI 0: use 1 to 16777215");
    EXPECT_EQ(ndlab::vxlan_join(A, B, 16777216, 10, 10).message(), "bad VNI 16777216: use 1 to 16777215");
    EXPECT_EQ(ndlab::vxlan_join(A, A, 100, 10, 10).message(), "lab " + A + " named twice: name two different labs");
    EXPECT_EQ(ndlab::vxlan_join(A, B, 100, 10, 4095).message(), "bad VLAN 4095: use 1 to 4094");
    EXPECT_EQ(ndlab::vxlan_leave(A, B, 0).message(), "bad VNI 0: use 1 to 16777215");
    EXPECT_TRUE(ndlab::check_vni(16777215).ok());
    EXPECT_TRUE(ndlab::check_vni(1).ok());
}

TEST_F(VxlanTest, JoinsOfLabsThatDoNotExistOrAreTakenAreRefused)
{
    const std::string C = name() + "-c";
    ndlab::Lab labC = std::move(ndlab::Lab::adopt(C).value());
    const std::string noA = "ndlab: no lab " + a() + " (no namespace " + sw() + ")\n";
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{{"vxlan", a(), b(), "100", "10"}, {"vxlan-del", a(), b(), "100"}}) {
        Outcome done = ndlab(args);
        EXPECT_EQ(done.err, noA) << args[0];
        EXPECT_EQ(done.status, 1) << args[0];
    }
    ASSERT_EQ(ndlab({"create", a(), "--ports", "1"}).status, 0);
    Outcome noB = ndlab({"vxlan", a(), b(), "100", "10"});
    EXPECT_EQ(noB.out, "");
    EXPECT_EQ(noB.err, "ndlab: no lab " + b() + " (no namespace " + swB() + ")\n");
    EXPECT_EQ(noB.status, 1);
    EXPECT_FALSE(has_link(sw(), "ul0"));
    EXPECT_FALSE(has_link(sw(), "vlan10"));

    ASSERT_EQ(ndlab({"create", b(), "--ports", "1"}).status, 0);
    ASSERT_EQ(ndlab({"vxlan", a(), b(), "100", "10"}).status, 0);
    const std::vector<Refusal> refusals = {
        // A VNI is joined once, whichever way round and whatever the VLANs.
        {{"vxlan", a(), b(), "100", "10"}, "ndlab: vni 100 is already joined: lab " + a() + " has vx100\n"},
        {{"vxlan", b(), a(), "100", "20"}, "ndlab: vni 100 is already joined: lab " + b() + " has vx100\n"},
        // A lab is joined to one other lab.
        {{"vxlan", a(), C, "300", "10"}, "ndlab: lab " + a() + " is already joined to lab " + b() + " (ul0): a lab is joined to one other lab at a time\n"},
        {{"vxlan", C, b(), "300", "10"}, "ndlab: lab " + b() + " is already joined to lab " + a() + " (ul0): a lab is joined to one other lab at a time\n"},
        {{"vxlan-del", a(), C, "100"}, "ndlab: lab " + a() + "'s vx100 is joined to lab " + b() + ", not lab " + C + "\n"},
        {{"vxlan-del", a(), b(), "101"}, "ndlab: no vni 101 between lab " + a() + " and lab " + b() + "\n"},
    };
    ASSERT_EQ(ndlab({"create", C, "--ports", "1"}).status, 0);
    for (const Refusal &refusal : refusals) {
        Outcome done = ndlab(refusal.args);
        EXPECT_EQ(done.err, refusal.err);
        EXPECT_EQ(done.out, "");
        EXPECT_EQ(done.status, 1) << refusal.err;
    }
    // The refusals touched nothing: the join stands, the third lab has no VXLAN link.
    EXPECT_EQ(vxlan_lines(ndlab({"show", a()}).out), lines({"underlay ul0 address " + kFirst + "/24 peer " + swB(),
                                                            "vxlan vx100 vni 100 bridge vlan10 remote " + kSecond + " peer " + swB()}));
    EXPECT_EQ(vxlan_lines(ndlab({"show", C}).out), "");
    EXPECT_FALSE(has_link(ndlab::switch_namespace(C), "vlan10"));
    EXPECT_FALSE(has_link(swB(), "vlan20"));
}

TEST_F(VxlanTest, AJoinThatFailsHalfwayRemovesWhatItMade)
{
    make_labs(1, 1);
    // An ip that refuses to make B's VXLAN device, and does everything else.
    const std::string fakeIp = scratch_.path() + "/ip";
    {
        std::ofstream script(fakeIp);
        script << "#!/bin/sh\n"
                  "if [ \"$1 $2 $3 $4 $5\" = \"-n " << swB() << " link add vx100\" ]; then\n"
                  "  echo 'RTNETLINK answers: File exists' >&2\n"
                  "  exit 2\n"
                  "fi\n"
                  "exec " << ndlab::ip_program() << " \"$@\"\n";
    }
    ASSERT_EQ(::chmod(fakeIp.c_str(), 0755), 0);
    Outcome made = ndlab({"vxlan", a(), b(), "100", "10", "20"}, {.env = {"NDLAB_IP=" + fakeIp}});
    EXPECT_EQ(made.out, underlay_made() + "ndlab: bridge vlan10 in " + sw() + "\n" +
                            lines({"ndlab: vxlan vx100 vni 100 in " + sw() + " bridge vlan10 remote " + kSecond,
                                   "ndlab: bridge vlan20 in " + swB()}));
    EXPECT_EQ(made.err, "ndlab: cannot add vx100 to " + swB() + ": RTNETLINK answers: File exists\n");
    EXPECT_EQ(made.status, 1);
    for (const char *device : {"ul0", "vx100", "vlan10", "vlan20"}) {
        EXPECT_FALSE(has_link(sw(), device)) << device;
        EXPECT_FALSE(has_link(swB(), device)) << device;
    }
    EXPECT_EQ(ndlab({"vxlan", a(), b(), "100", "10", "20"}).status, 0);
}

} // namespace
} // namespace labtest

namespace labtest {
namespace {

// The kernel destroys a deleted namespace in the background: the other end of its veth pairs
// goes a moment later. Whether `device` of `netns` is gone within a few seconds.
bool gone_soon(const std::string &netns, const std::string &device)
{
    for (int i = 0; i < 100; ++i) {
        if (!has_link(netns, device))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

TEST_F(VxlanTest, DeletingOneLabLeavesTheOtherWorkingAndThenNothing)
{
    make_labs(1, 2);
    move_port(a(), 1, 10);
    move_port(b(), 1, 10);
    move_port(b(), 2, 10);
    ASSERT_EQ(ndlab({"vxlan", a(), b(), "100", "10"}).status, 0);

    Outcome deleted = ndlab({"delete", a()});
    EXPECT_EQ(deleted.out, lines({"ndlab: removed namespace " + sw(), "ndlab: removed namespace " + host(1)}));
    EXPECT_EQ(deleted.err, "");
    EXPECT_EQ(deleted.status, 0);
    EXPECT_EQ(lab_namespaces(), std::vector<std::string>{});
    // B's end of the underlay went with A; its VXLAN device stays, in its bridge, its peer gone.
    ASSERT_TRUE(gone_soon(swB(), "ul0"));
    Outcome shown = ndlab({"show", b()});
    EXPECT_EQ(shown.out.substr(0, shown.out.find("\nbridge ") + 1),
              lines({"lab " + b() + " switch " + swB() + " ports 2 bridges 2", "port ge0-1 vlan 10 host " + hostB(1),
                     "port ge0-2 vlan 10 host " + hostB(2)}));
    EXPECT_EQ(vxlan_lines(shown.out), "vxlan vx100 vni 100 bridge vlan10 remote " + kFirst + " peer -\n");
    EXPECT_EQ(shown.status, 0);

    // B still switches: its hosts reach each other in VLAN 10, a move still parts them.
    give_address(b(), 1, "2001:db8:100::b1/64");
    give_address(b(), 2, "2001:db8:100::b2/64");
    EXPECT_EQ(ping(b(), 1, "2001:db8:100::b2"), kReached);
    Outcome moved = ndlab({"port", b(), "2", "vlan", "20"});
    EXPECT_EQ(moved.out, "ndlab: bridge vlan20\nndlab: port ge0-2 in vlan20\n");
    EXPECT_EQ(moved.status, 0);
    EXPECT_EQ(ping(b(), 1, "2001:db8:100::b2"), kNotReached);

    deleted = ndlab({"delete", b()});
    EXPECT_EQ(deleted.out, lines({"ndlab: removed namespace " + swB(), "ndlab: removed namespace " + hostB(1),
                                  "ndlab: removed namespace " + hostB(2)}));
    EXPECT_EQ(deleted.status, 0);
    EXPECT_EQ(namespaces_starting("ndlab-" + b() + "-"), std::vector<std::string>{});
    EXPECT_EQ(lab_namespaces(), std::vector<std::string>{});
}

TEST_F(VxlanTest, TheLeftoverOfADeletedLabIsRemovedByLeavingAndTheLabsJoinAgain)
{
    make_labs(1, 1);
    move_port(b(), 1, 10);
    ASSERT_EQ(ndlab({"vxlan", a(), b(), "100", "10"}).status, 0);
    ASSERT_EQ(ndlab({"vxlan", a(), b(), "200", "20"}).status, 0);
    ASSERT_TRUE(lab_.remove().ok());
    lab_ = std::move(ndlab::Lab::adopt(a()).value());
    ASSERT_TRUE(gone_soon(swB(), "ul0"));

    // With A gone, leaving takes B's leftover alone; a join needs A.
    Outcome left = ndlab({"vxlan-del", a(), b(), "200"});
    EXPECT_EQ(left.out, "ndlab: removed vxlan vx200 from " + swB() + "\n");
    EXPECT_EQ(left.err, "");
    EXPECT_EQ(left.status, 0);
    Outcome noA = ndlab({"vxlan", a(), b(), "300", "10"});
    EXPECT_EQ(noA.err, "ndlab: no lab " + a() + " (no namespace " + sw() + ")\n");
    EXPECT_EQ(noA.status, 1);

    // A made again: B's vx100 still holds VNI 100 until it is left.
    ASSERT_EQ(ndlab({"create", a(), "--ports", "1"}).status, 0);
    move_port(a(), 1, 10);
    Outcome refused = ndlab({"vxlan", a(), b(), "100", "10"});
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "ndlab: vni 100 is already joined: lab " + b() + " has vx100\n");
    EXPECT_EQ(refused.status, 1);
    EXPECT_FALSE(has_link(sw(), "ul0"));
    left = ndlab({"vxlan-del", a(), b(), "100"});
    EXPECT_EQ(left.out, "ndlab: removed vxlan vx100 from " + swB() + "\n");
    EXPECT_EQ(left.status, 0);

    Outcome made = ndlab({"vxlan", a(), b(), "100", "10"});
    EXPECT_EQ(made.out, underlay_made() + joined("100", "10", "10"));
    EXPECT_EQ(made.err, "");
    ASSERT_EQ(made.status, 0);
    give_address(a(), 1, "2001:db8:100::a1/64");
    give_address(b(), 1, "2001:db8:100::b1/64");
    EXPECT_EQ(ping(a(), 1, "2001:db8:100::b1"), kReached);
}

} // namespace
} // namespace labtest
