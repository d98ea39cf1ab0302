// The emulated port management: names, port maps, lists and ranges, the single-port lookup,
// the configurability check and the hardware-address parser.
#include "ndplat_ports.h"
#include "test_support.h"

namespace {

class Ports : public ndtest::PlatformTest {};

std::vector<int32_t> parse(const char *text, int32_t *result = nullptr)
{
    std::vector<uint8_t> map(g_max_pbmp_bytes, 0xFF);
    int32_t r = cmdString2Portmap(text, map.data(), g_max_pbmp_bytes);
    if (result)
        *result = r;
    return ndplat::portmap_ports(map.data());
}

TEST_F(Ports, DefaultLayoutAfterReset)
{
    EXPECT_EQ(g_max_pbmp_bytes, 128u);
    std::vector<ndplat::PortInfo> all = ndplat::ports_all();
    ASSERT_EQ(all.size(), 24u + 32u);
    EXPECT_EQ(all[0].name, "gigabitethernet0/1");
    EXPECT_EQ(all[0].shortName, "ge0/1");
    EXPECT_EQ(all[0].id, 1);
    EXPECT_EQ(all[23].name, "gigabitethernet0/24");
    EXPECT_EQ(all[24].name, "link-aggregation1");
    EXPECT_EQ(all[24].shortName, "ag1");
    EXPECT_TRUE(all[24].aggregation);
}

TEST_F(Ports, NamesInEveryForm)
{
    EXPECT_EQ(ndplat::port_id("gigabitethernet0/7"), 7);
    EXPECT_EQ(ndplat::port_id("GigabitEthernet 0/7"), 7);
    EXPECT_EQ(ndplat::port_id("ge0/7"), 7);
    EXPECT_EQ(ndplat::port_id("gi0/7"), 7);
    EXPECT_EQ(ndplat::port_id("link-aggregation3"), ndplat::aggregation_id(3));
    EXPECT_EQ(ndplat::port_id("ag3"), 27);
    EXPECT_EQ(ndplat::port_id("gigabitethernet0/25"), 0);
    EXPECT_EQ(ndplat::port_id("fastethernet0/1"), 0);
    EXPECT_EQ(ndplat::port_id("7"), 0);
}

TEST_F(Ports, MultiMemberChassisNamesMemberSlotPort)
{
    ndplat::ports_layout_set(2, 2, 4, 2);
    EXPECT_EQ(ndplat::ports_all().size(), 18u);
    EXPECT_EQ(ndplat::port_id("gigabitethernet1/0/1"), 1);
    EXPECT_EQ(ndplat::port_id("gigabitethernet2/1/4"), 16);
    EXPECT_EQ(ndplat::port_id("gigabitethernet0/1"), 0);
    char name[40];
    EXPECT_EQ(portID2FmtString(16, name), 0);
    EXPECT_STREQ(name, "gigabitethernet2/1/4");
    EXPECT_EQ(portID2ShortString(16, name), 0);
    EXPECT_STREQ(name, "ge2/1/4");
    EXPECT_EQ(parse("gigabitethernet1/1/3-2/0/2"), (std::vector<int32_t>{7, 8, 9, 10}));
}

TEST_F(Ports, ListsAndRanges)
{
    int32_t r = -5;
    EXPECT_EQ(parse("gigabitethernet0/1", &r), (std::vector<int32_t>{1}));
    EXPECT_EQ(r, 0);
    EXPECT_EQ(parse("gigabitethernet0/1-4"), (std::vector<int32_t>{1, 2, 3, 4}));
    EXPECT_EQ(parse("ge0/2-ge0/3, gigabitethernet0/9"), (std::vector<int32_t>{2, 3, 9}));
    EXPECT_EQ(parse("gigabitethernet0/5-0/6"), (std::vector<int32_t>{5, 6}));
    EXPECT_EQ(parse("link-aggregation 2"), (std::vector<int32_t>{26}));
    EXPECT_EQ(parse("2"), (std::vector<int32_t>{26})); // a bare number is an aggregation
    EXPECT_EQ(parse("1-2"), (std::vector<int32_t>{25, 26}));
}

TEST_F(Ports, BadTextsLeaveAnEmptyMap)
{
    for (const char *bad : {"", "gigabitethernet", "gigabitethernet0/30", "gigabitethernet0/4-2", "ge0/1-ag2",
                            "xyz0/1", "ge0/1,", "gigabitethernet0/1 junk"}) {
        int32_t r = 0;
        EXPECT_TRUE(parse(bad, &r).empty()) << bad;
        EXPECT_EQ(r, -1) << bad;
    }
    EXPECT_EQ(cmdString2Portmap(nullptr, nullptr, 4), -1);
}

TEST_F(Ports, SinglePortLookup)
{
    char name[40] = "junk";
    int32_t id = 99;
    std::vector<uint8_t> none = ndplat::portmap_of({});
    EXPECT_EQ(portmap2PortID(none.data(), g_max_pbmp_bytes, &id, name), 0);
    EXPECT_EQ(id, 0);
    std::vector<uint8_t> two = ndplat::portmap_of({3, 30});
    EXPECT_EQ(portmap2PortID(two.data(), g_max_pbmp_bytes, &id, name), 0);
    EXPECT_LT(id, 0);
    std::vector<uint8_t> one = ndplat::portmap_of({30});
    EXPECT_EQ(portmap2PortID(one.data(), g_max_pbmp_bytes, &id, name), 0);
    EXPECT_EQ(id, 30);
    EXPECT_STREQ(name, "link-aggregation6");
    EXPECT_EQ(ndplat::trace_of("portmap2PortID").back(), "portmap2PortID(ptr, 128, ptr, ptr)");
}

TEST_F(Ports, CopyAndEmptiness)
{
    std::vector<uint8_t> src = ndplat::portmap_of({5, 1000});
    std::vector<uint8_t> dst(g_max_pbmp_bytes, 0);
    EXPECT_EQ(portmapIsEmpty(dst.data()), 1);
    portmapCopy(dst.data(), src.data());
    EXPECT_EQ(dst, src);
    EXPECT_EQ(portmapIsEmpty(dst.data()), 0);
    EXPECT_EQ(ndplat::portmap_ports(dst.data()), (std::vector<int32_t>{5, 1000}));
    ndplat::fault_inject("portmapIsEmpty", 7);
    EXPECT_EQ(portmapIsEmpty(dst.data()), 7);
}

TEST_F(Ports, ConfigurabilityWithItsOwnMessage)
{
    ndtest::Stdout out;
    EXPECT_EQ(isPmPortConfigurable(4, "NDP", 0, 1), 1);
    ndplat::port_configurable_set(4, false);
    EXPECT_EQ(isPmPortConfigurable(4, "NDP", 0, 1), 0);
    ndplat::port_configurable_set(5, false, "% Port gigabitethernet0/5 belongs to link-aggregation1.");
    EXPECT_EQ(isPmPortConfigurable(5, "NDP", 0, 1), 0);
    EXPECT_EQ(isPmPortConfigurable(999, "NDP", 0, 1), 0);
    ndplat::port_configurable_set(4, true);
    EXPECT_EQ(isPmPortConfigurable(4, "NDP", 0, 1), 1);
    EXPECT_EQ(out.take(), "\n% gigabitethernet0/4 is not allowed to configure NDP.\n"
                          "\n% Port gigabitethernet0/5 belongs to link-aggregation1.\n"
                          "\n% Invalid port 999.\n");
    EXPECT_EQ(ndplat::trace_of("isPmPortConfigurable")[0], "isPmPortConfigurable(4, \"NDP\", 0, 1)");
}

TEST_F(Ports, NamesOfUnknownPortsAreEmpty)
{
    char name[40] = "junk";
    EXPECT_EQ(portID2FmtString(0, name), -1);
    EXPECT_STREQ(name, "");
    ndplat::fault_inject("portID2ShortString", 9);
    strcpy(name, "kept");
    EXPECT_EQ(portID2ShortString(1, name), 9);
    EXPECT_STREQ(name, "kept");
}

TEST_F(Ports, HardwareAddresses)
{
    uint8_t mac[6] = {};
    EXPECT_EQ(enet_addr("0011.22aa.BBcc", mac), 0);
    EXPECT_EQ(std::vector<uint8_t>(mac, mac + 6), (std::vector<uint8_t>{0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc}));
    EXPECT_EQ(enet_addr("01:02:03:04:05:06", mac), 0);
    EXPECT_EQ(mac[5], 6);
    EXPECT_EQ(enet_addr("0a-0b-0c-0d-0e-0f", mac), 0);
    EXPECT_EQ(mac[0], 0x0a);
    for (const char *bad : {"", "0011.22aa.bbc", "0011.22aa.bbcg", "01:02-03:04:05:06", "01:02:03:04:05"})
        EXPECT_EQ(enet_addr(bad, mac), -1) << bad;
    EXPECT_EQ(mac[0], 0x0a);
    EXPECT_EQ(ndplat::trace_of("enet_addr")[0], "enet_addr(\"0011.22aa.BBcc\", ptr)");
}

TEST_F(Ports, PortmapSizeCanChangeAndResetRestoresIt)
{
    ndplat::portmap_bytes_set(16);
    EXPECT_EQ(ndplat::portmap_of({1}).size(), 16u);
    ndplat::reset();
    EXPECT_EQ(g_max_pbmp_bytes, 128u);
    EXPECT_EQ(ndplat::ports_all().size(), 56u);
}

} // namespace
