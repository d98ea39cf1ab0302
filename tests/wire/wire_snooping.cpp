// ND snooping between real hosts: learning from the hosts' own duplicate address detection,
// forged advertisements and rogue routers stopped where they enter, loose NS checking,
// detection of a host that is gone, static bindings, clearing, and a flood of claims. Each test
// asserts on what the hosts saw as well as on the switch's tables and counters.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "test_support.h"

#include "wire_support.h"

namespace {

using namespace std::chrono_literals;
using wiretest::user_bind_row;
using wiretest::within;
using wiretest::WireSwitch;

constexpr const char *kSnoopVlan1 = "configure terminal; nd snooping enable; vlan 1; nd snooping enable; end";

// Two hosts of VLAN 1 with their global addresses bound; the listing holds both.
void bindTwoHosts(const WireSwitch &sw)
{
    ASSERT_EQ(sw.ndsh(kSnoopVlan1), "");
    ASSERT_TRUE(sw.add_address(1, "2001:db8:1::1/64"));
    ASSERT_TRUE(sw.add_address(2, "2001:db8:1::2/64"));
    std::string row1 = user_bind_row("2001:db8:1::1", sw.dotted_mac(1), 1, 1);
    std::string row2 = user_bind_row("2001:db8:1::2", sw.dotted_mac(2), 1, 2);
    std::string listing;
    ASSERT_TRUE(within(5s, [&] {
        listing = sw.ndsh("show nd snooping user-bind dynamic");
        return listing.find(row1) != std::string::npos && listing.find(row2) != std::string::npos;
    })) << listing;
}

TEST(WireSnooping, AHostsOwnDadMakesItsBindingAndBoundHostsReachEachOther)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    int status = -1;
    sw.host(1, {"ping", "-6", "-c", "2", "-W", "2", "2001:db8:1::2"}, &status);
    EXPECT_EQ(status, 0) << "ping between two bound hosts";
    std::string neighbours = sw.host(1, {"ip", "-6", "neigh", "show", "2001:db8:1::2"});
    EXPECT_EQ(neighbours.rfind("2001:db8:1::2 dev eth0 lladdr " + sw.mac(2) + " ", 0), 0u) << neighbours;
    EXPECT_GE(sw.counter("dadPacketDeal"), 2);
    EXPECT_GE(sw.counter("nsPacketPass"), 1);
    EXPECT_EQ(sw.counter("nsPacketDrop"), 0);
}

TEST(WireSnooping, AForgedNaFromAnotherPortIsDroppedAndPoisonsNoCache)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    ASSERT_EQ(sw.ndsh("configure terminal; nd snooping attack-log enable; end"), "");
    int status = -1;
    sw.host(1, {"ping", "-6", "-c", "1", "-W", "2", "2001:db8:1::2"}, &status);
    ASSERT_EQ(status, 0);
    long dropped = sw.counter("naPacketDrop");
    ASSERT_EQ(sw.forge(3, {"na", "2001:db8:1::2", "3"}), 0);
    EXPECT_TRUE(within(2s, [&] { return sw.counter("naPacketDrop") == dropped + 3; }))
        << sw.ndsh("show nd snooping statistics");
    std::string neighbours = sw.host(1, {"ip", "-6", "neigh", "show", "2001:db8:1::2"});
    EXPECT_EQ(neighbours.find(sw.mac(3)), std::string::npos) << "poisoned: " << neighbours;
    EXPECT_NE(neighbours.find(sw.mac(2)), std::string::npos) << neighbours;
    std::string line = "ndsvc: nd snooping attack: dropped NA on gigabitethernet0/3 vlan 1 from " + sw.mac(3) +
                       " for 2001:db8:1::2\n";
    EXPECT_TRUE(within(2s, [&] { return sw.service_log().find(line) != std::string::npos; })) << sw.service_log();
}

TEST(WireSnooping, ALinkLayerOptionThatNamesAnotherMacIsDroppedAsInvalid)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    long invalid = sw.counter("lladdrInvalid");
    // Host 1, bound, solicits host 2 naming host 3's MAC as its own: host 2 would send there.
    ASSERT_EQ(sw.forge(1, {"ns-lladdr", "2001:db8:1::1", "2001:db8:1::2", sw.mac(3), "2"}), 0);
    EXPECT_TRUE(within(2s, [&] { return sw.counter("lladdrInvalid") == invalid + 2; }))
        << sw.ndsh("show nd snooping statistics");
    std::string neighbours = sw.host(2, {"ip", "-6", "neigh", "show", "2001:db8:1::1"});
    EXPECT_EQ(neighbours.find(sw.mac(3)), std::string::npos) << "poisoned: " << neighbours;
}

TEST(WireSnooping, ARogueRouterOnAnUntrustedPortReachesNoHost)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh(kSnoopVlan1), "");
    long dropped = sw.counter("raPacketDrop");
    ASSERT_EQ(sw.forge(3, {"ra", "2001:db8:bad::/64", "3"}), 0);
    EXPECT_TRUE(within(2s, [&] { return sw.counter("raPacketDrop") == dropped + 3; }));
    std::this_thread::sleep_for(500ms);
    std::string addressesAfter = sw.host(1, {"ip", "-6", "addr", "show", "dev", "eth0"});
    EXPECT_EQ(addressesAfter.find("2001:db8:bad:"), std::string::npos) << addressesAfter;
    EXPECT_EQ(sw.host(1, {"ip", "-6", "route", "show"}).find("2001:db8:bad::"), std::string::npos);
    EXPECT_EQ(sw.host(1, {"ip", "-6", "route", "show", "default"}), "");

    // Trusted, the same port's advertisement reaches the hosts, which take its prefix.
    ASSERT_EQ(sw.ndsh("configure terminal; interface gigabitethernet 0/3; nd snooping trust; end"), "");
    ASSERT_EQ(sw.forge(3, {"ra", "2001:db8:600d::/64", "1"}), 0);
    EXPECT_TRUE(within(3s, [&] {
        return sw.host(1, {"ip", "-6", "addr", "show", "dev", "eth0"}).find("2001:db8:600d:") != std::string::npos;
    }));
    EXPECT_GE(sw.counter("raPacketPass"), 1);

    // The trusted router's prefix is listed with its lifetimes, counting down from 86400 and
    // 14400 seconds; the untrusted one's is not. Clearing forgets it.
    std::string listed = sw.ndsh("show nd snooping prefix");
    char row[128];
    bool found = false;
    for (uint32_t elapsed = 0; elapsed <= 5 && !found; ++elapsed) {
        snprintf(row, sizeof row, "      %-40s%-11d%-20u%-20u\n", "2001:db8:600d::", 64, 86400 - elapsed, 14400 - elapsed);
        found = listed.find(row) != std::string::npos;
    }
    EXPECT_TRUE(found) << listed;
    EXPECT_EQ(listed.find("2001:db8:bad::"), std::string::npos) << listed;
    ASSERT_EQ(sw.ndsh("clear nd snooping prefix 2001:db8:600d::/64"), "");
    EXPECT_EQ(sw.ndsh("show nd snooping prefix").find("2001:db8:600d::"), std::string::npos);
}

TEST(WireSnooping, LooseNsCheckingChangesOnlyTheNsVerdicts)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    // Host 3's address is learned, then forgotten by a clear: its solicitations are unbound.
    ASSERT_TRUE(sw.add_address(3, "2001:db8:1::3/64"));
    ASSERT_TRUE(within(5s, [&] {
        return sw.ndsh("show nd snooping user-bind dynamic").find("2001:db8:1::3 ") != std::string::npos;
    }));
    ASSERT_EQ(sw.ndsh("clear nd snooping dynamic-user-bind"), "");
    long nsDrop = sw.counter("nsPacketDrop");
    int status = -1;
    sw.host(3, {"ip", "-6", "neigh", "flush", "dev", "eth0"});
    sw.host(3, {"ping", "-6", "-c", "1", "-W", "2", "-I", "2001:db8:1::3", "2001:db8:1::1"}, &status);
    EXPECT_NE(status, 0) << "an unbound source is not let through";
    EXPECT_GT(sw.counter("nsPacketDrop"), nsDrop);

    ASSERT_EQ(sw.ndsh("configure terminal; nd snooping ns-check-loose; end"), "");
    long nsDropLoose = sw.counter("nsPacketDrop");
    long nsPassLoose = sw.counter("nsPacketPass");
    long naDropLoose = sw.counter("naPacketDrop");
    sw.host(3, {"ip", "-6", "neigh", "flush", "dev", "eth0"});
    sw.host(3, {"ping", "-6", "-c", "1", "-W", "2", "-I", "2001:db8:1::3", "2001:db8:1::1"});
    EXPECT_EQ(sw.counter("nsPacketDrop"), nsDropLoose) << "loose: no NS is dropped";
    EXPECT_GT(sw.counter("nsPacketPass"), nsPassLoose)
        << "the unbound host's NS passed" << sw.ndsh("show nd snooping statistics")
        << sw.host(3, {"ip", "-6", "neigh", "show"});
    // The NA verdicts are not loosened: a forged NA is still dropped, and counted (host 3's
    // own unbound NAs may be dropped meanwhile too, so the count grows by two at least), and
    // host 1 still knows host 2 by host 2's MAC.
    long naDrop = sw.counter("naPacketDrop");
    EXPECT_GE(naDrop, naDropLoose);
    ASSERT_EQ(sw.forge(3, {"na", "2001:db8:1::2", "2"}), 0);
    EXPECT_TRUE(within(2s, [&] { return sw.counter("naPacketDrop") >= naDrop + 2; }))
        << sw.ndsh("show nd snooping statistics");
    std::string neighbours = sw.host(1, {"ip", "-6", "neigh", "show", "2001:db8:1::2"});
    EXPECT_EQ(neighbours.find(sw.mac(3)), std::string::npos) << "poisoned: " << neighbours;
}

TEST(WireSnooping, DetectionForgetsAHostThatIsGoneWithinRetransmitTimesInterval)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    ASSERT_EQ(sw.ndsh("configure terminal; nd snooping detect retransmit 2 interval 3; end"), "");
    // Probes of a present host are answered: its binding stays past several intervals.
    std::this_thread::sleep_for(7s);
    EXPECT_NE(sw.ndsh("show nd snooping user-bind dynamic").find("2001:db8:1::2 "), std::string::npos);
    EXPECT_GE(sw.counter("sendDtPktOk"), 2);
    EXPECT_EQ(sw.counter("sendDtPktFail"), 0);

    ASSERT_TRUE(sw.remove_host(2));
    auto gone = std::chrono::steady_clock::now();
    EXPECT_TRUE(within(2 * 3s + 1s + 1s, [&] {
        return sw.ndsh("show nd snooping user-bind dynamic").find("2001:db8:1::2 ") == std::string::npos;
    }));
    EXPECT_LE(std::chrono::steady_clock::now() - gone, 8s);
    // Its port went with its namespace: the probes meant for it could not be sent.
    EXPECT_GE(sw.counter("sendDtPktFail"), 1);
    EXPECT_NE(sw.ndsh("show nd snooping user-bind dynamic").find("2001:db8:1::1 "), std::string::npos)
        << "the present host stays";
}

TEST(WireSnooping, ClearingEmptiesTheTableTheKernelsSetsAndTheCounters)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    std::vector<std::string> listSet = {"ip", "netns", "exec", ndlab::switch_namespace(sw.lab()), "nft", "list",
                                        "set", "bridge", "ndsvc_snooping", "sources"};
    int status = -1;
    std::string sources = ndtest::run_capture(listSet, status);
    ASSERT_EQ(status, 0);
    EXPECT_NE(sources.find(sw.mac(1) + " . 2001:db8:1::1"), std::string::npos) << sources;

    ASSERT_EQ(sw.ndsh("clear nd snooping dynamic-user-bind"), "");
    std::string listing = sw.ndsh("show nd snooping user-bind dynamic");
    EXPECT_NE(listing.find("Total number: 0"), std::string::npos) << listing;
    sources = ndtest::run_capture(listSet, status);
    EXPECT_EQ(sources.find("elements"), std::string::npos) << sources;

    EXPECT_GT(sw.counter("dadPacketDeal"), 0);
    ASSERT_EQ(sw.ndsh("clear nd snooping statistics"), "");
    // The hosts keep soliciting routers and confirming neighbours: the counters of what no
    // host does any more stay at zero.
    for (const char *name : {"dadPacketDeal", "nsPacketDrop", "naPacketDrop", "raPacketDrop", "sendDtPktOk"})
        EXPECT_EQ(sw.counter(name), 0) << name;

    // Snooping off: the table goes, and the bridge forwards ND untouched again.
    ASSERT_EQ(sw.ndsh("configure terminal; no nd snooping enable; end", &status),
              "\nIt will delete all configuration of nd snooping, Sure(Yes|No)?\n");
    ndtest::run_capture(listSet, status);
    EXPECT_NE(status, 0) << "no snooping table left";
}

TEST(WireSnooping, AStaticBindingKeepsItsAddressFromAnotherHost)
{
    WireSwitch sw(3);
    ASSERT_TRUE(sw.ready()) << sw.why();
    bindTwoHosts(sw);
    ASSERT_TRUE(sw.add_address(3, "2001:db8:1::3/64"));
    std::string command = "configure terminal; nd snooping user-bind static 2001:db8:1::9 " + sw.dotted_mac(1) +
                          " vlan 1 interface gigabitethernet0/1; end";
    ASSERT_EQ(sw.ndsh(command), "");
    // Host 2 takes the address: its DAD is unanswered (host 1 does not use it), but the
    // address stays host 1's, so whatever host 2 says from it is dropped.
    ASSERT_TRUE(sw.add_address(2, "2001:db8:1::9/64"));
    // Until its detection ends host 2 cannot send from the address at all.
    ASSERT_TRUE(sw.settled(2));
    std::this_thread::sleep_for(1s);
    std::string dynamic = sw.ndsh("show nd snooping user-bind dynamic");
    EXPECT_EQ(dynamic.find("2001:db8:1::9 "), std::string::npos) << dynamic;
    long nsDrop = sw.counter("nsPacketDrop");
    int status = -1;
    // Host 2 must ask for host 3 afresh: no entry it may hold already answers for it.
    sw.host(2, {"ip", "-6", "neigh", "flush", "dev", "eth0"});
    sw.host(2, {"ping", "-6", "-c", "1", "-W", "2", "-I", "2001:db8:1::9", "2001:db8:1::3"}, &status);
    EXPECT_NE(status, 0) << "host 2 cannot use host 1's address";
    EXPECT_GT(sw.counter("nsPacketDrop"), nsDrop);
    // The failed resolution of host 3 is forgotten first: the kernel keeps it per neighbour,
    // whatever the source address.
    sw.host(2, {"ip", "-6", "neigh", "flush", "dev", "eth0"});
    sw.host(2, {"ping", "-6", "-c", "1", "-W", "2", "-I", "2001:db8:1::2", "2001:db8:1::3"}, &status);
    EXPECT_EQ(status, 0) << "its own address still works";
}

TEST(WireSnooping, AFloodOfClaimsStopsAtTheCeilingAndTheShellKeepsAnswering)
{
    constexpr int kCeiling = 500;
    WireSwitch sw(3, "--learned-ceiling " + std::to_string(kCeiling));
    ASSERT_TRUE(sw.ready()) << sw.why();
    ASSERT_EQ(sw.ndsh(kSnoopVlan1), "");
    // The time the shell takes to answer is what the flood adds to a command: the median of
    // five `ndsh -c` during the flood less the median of five before it (the start of the
    // process, slower under the sanitizers, is the same in both).
    auto medianMs = [&] {
        std::vector<double> ms;
        for (int i = 0; i < 5; ++i) {
            auto t0 = std::chrono::steady_clock::now();
            int status = -1;
            sw.ndsh("show nd snooping statistics", &status);
            ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
            EXPECT_EQ(status, 0);
        }
        std::sort(ms.begin(), ms.end());
        return ms[2];
    };
    double quiet = medianMs();
    size_t sent = 0;
    std::thread flood([&] { sent = sw.flood_dad(3, 100000); });
    double flooded = medianMs();
    flood.join();
    EXPECT_EQ(sent, 100000u);
    EXPECT_LT(flooded - quiet, 100.0) << "median ms of a command during the flood " << flooded << ", before " << quiet;
    std::string listing;
    EXPECT_TRUE(within(5s, [&] {
        listing = sw.ndsh("show nd snooping user-bind dynamic");
        return listing.find("Total number: " + std::to_string(kCeiling) + "\n") != std::string::npos;
    })) << listing.substr(listing.size() > 300 ? listing.size() - 300 : 0);
    // The table is full of the flood, and stays so: a real host's claim is refused, no more.
    ASSERT_TRUE(sw.add_address(1, "2001:db8:1::1/64"));
    std::this_thread::sleep_for(2s);
    listing = sw.ndsh("show nd snooping user-bind dynamic");
    EXPECT_NE(listing.find("Total number: " + std::to_string(kCeiling) + "\n"), std::string::npos);
    EXPECT_EQ(listing.find("2001:db8:1::1 "), std::string::npos);
    // Clearing makes room again.
    ASSERT_EQ(sw.ndsh("clear nd snooping dynamic-user-bind"), "");
    sw.host(1, {"ip", "-6", "addr", "del", "2001:db8:1::1/64", "dev", "eth0"});
    ASSERT_TRUE(sw.add_address(1, "2001:db8:1::1/64"));
    EXPECT_TRUE(within(5s, [&] {
        return sw.ndsh("show nd snooping user-bind dynamic").find("2001:db8:1::1 ") != std::string::npos;
    }));
}

} // namespace
