// The ND service model: requests in, response records and "ec_nd" records out. The records
// are checked through the plug-in's own running-configuration handlers, so that what the
// service stores is exactly what they read.
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "nd_cli.h"
#include "nd_service.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"
#include "ndplat_service.h"
#include "ndplat_vxlan.h"
#include "service_requests.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;

using svctest::req;
using svctest::u16;

CmfItem text(uint32_t type, const std::string &s, uint32_t length)
{
    std::vector<uint8_t> b(length, 0);
    memcpy(b.data(), s.data(), std::min<size_t>(s.size(), length - 1));
    return CmfItem::of(type, b.data(), length);
}

CmfItem ip(uint32_t type, const char *address)
{
    uint8_t b[16] = {};
    inet_pton(AF_INET6, address, b);
    return CmfItem::of(type, b, 16);
}

CmfItem pageQuery(uint32_t kind, uint16_t start, uint16_t size)
{
    uint8_t q[12] = {};
    memcpy(q, &kind, 4);
    memcpy(q + 4, &start, 2);
    memcpy(q + 6, &size, 2);
    return CmfItem::of(9, q, 12);
}

template <typename T> T at(const std::vector<uint8_t> &b, size_t offset)
{
    T v{};
    memcpy(&v, b.data() + offset, sizeof v);
    return v;
}

std::string ipAt(const std::vector<uint8_t> &b, size_t offset)
{
    char t[64] = {};
    inet_ntop(AF_INET6, b.data() + offset, t, sizeof t);
    return t;
}

class ServiceTest : public ndtest::PlatformTest {
protected:
    ndsvc::NdService svc;

    uint32_t st(const CmfRequest &r) { return svc.handle(r).status; }

    std::string globalConfig()
    {
        ndtest::FdCapture out;
        ndGobleEnableScriptHandler(out.fd(), 0, 0, 0);
        ndGobleScriptHandler(out.fd(), 0, 0, 0);
        return out.text();
    }
    std::string vlanConfig(uint32_t vlan)
    {
        ndtest::FdCapture out;
        ndVlanIfScriptHandler(out.fd(), 0, vlan, 0);
        return out.text();
    }
    std::string ifConfig(const char *name)
    {
        ndtest::FdCapture out;
        ndIfScriptHandler(out.fd(), 0, 0, reinterpret_cast<uintptr_t>(name));
        return out.text();
    }
    std::string portConfig(int32_t portId)
    {
        ndtest::FdCapture out;
        ndPortIfScriptHandler(out.fd(), 0, 0, static_cast<uintptr_t>(portId));
        return out.text();
    }
    std::string superVlanConfig(uint32_t vlan)
    {
        ndtest::FdCapture out;
        ND_SuperVlanScriptHandler(out.fd(), vlan);
        return out.text();
    }
    std::string vxlanConfig(uint32_t id)
    {
        ndtest::FdCapture out;
        nd_CliVxlanScriptHandler(out.fd(), 0, id, 0);
        return out.text();
    }
    CmfRequest staticBind(const char *address, uint32_t vlan, const char *port, int32_t portId)
    {
        uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
        return req(11, ND_CLI_OPT_SET,
                   {ip(4, address), CmfItem::of(6, mac, 6), CmfItem::u32(2, vlan),
                    CmfItem::u32(3, static_cast<uint32_t>(portId)), text(1, port, 40)});
    }
};

// ---- global settings ---------------------------------------------------------------------------

TEST_F(ServiceTest, GlobalSettingsShowInTheRunningConfigurationAndTheirNoFormsRemoveThem)
{
    EXPECT_EQ(globalConfig(), "");
    EXPECT_EQ(st(req(3, ND_CLI_OPT_SET)), 13u);
    EXPECT_EQ(st(req(4, ND_CLI_OPT_SET)), 13u);
    EXPECT_EQ(st(req(17, ND_CLI_OPT_SET)), 13u);
    EXPECT_EQ(st(req(2, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(st(req(7, ND_CLI_OPT_SET, {u16(7, 3), u16(8, 10)})), 13u);
    EXPECT_EQ(globalConfig(), "\nnd snooping enable"
                              "\nno nd fast-response"
                              "\nnd snooping ns-check-loose"
                              "\nnd snooping detect retransmit 3 interval 10"
                              "\nnd snooping attack-log enable");
    EXPECT_EQ(st(req(7, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(st(req(4, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(st(req(17, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(st(req(2, ND_CLI_OPT_SET)), 13u);
    EXPECT_EQ(globalConfig(), "\nnd snooping enable");
    EXPECT_EQ(st(req(3, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(globalConfig(), "");
}

TEST_F(ServiceTest, GlobalSnoopingOffDeletesAllSnoopingConfiguration)
{
    svc.handle(req(3, ND_CLI_OPT_SET));
    svc.handle(req(4, ND_CLI_OPT_SET));
    svc.handle(req(5, ND_CLI_OPT_SET, {u16(2, 10)}));
    svc.handle(req(6, ND_CLI_OPT_SET, {CmfItem::u32(3, 2), text(1, "gigabitethernet0/2", 40)}));
    svc.handle(staticBind("2001:db8::1", 10, "gigabitethernet0/1", 1));
    svc.handle(req(2, ND_CLI_OPT_UNDO));
    EXPECT_EQ(st(req(3, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(globalConfig(), "\nno nd fast-response");
    EXPECT_EQ(vlanConfig(10), "");
    EXPECT_EQ(portConfig(2), "");
}

// ---- VLAN, interface, super VLAN and port settings -----------------------------------------------

TEST_F(ServiceTest, VlanSnoopingNeedsGlobalSnoopingAndIsSetOnce)
{
    EXPECT_EQ(st(req(5, ND_CLI_OPT_SET, {u16(2, 4094)})), 46u);
    svc.handle(req(3, ND_CLI_OPT_SET));
    EXPECT_EQ(st(req(5, ND_CLI_OPT_SET, {u16(2, 4094)})), 13u);
    EXPECT_EQ(st(req(5, ND_CLI_OPT_SET, {u16(2, 4094)})), 38u);
    EXPECT_EQ(vlanConfig(4094), "\n nd snooping enable");
    EXPECT_EQ(vlanConfig(4093), "");
    EXPECT_EQ(st(req(5, ND_CLI_OPT_UNDO, {u16(2, 4094)})), 13u);
    EXPECT_EQ(st(req(5, ND_CLI_OPT_UNDO, {u16(2, 4094)})), 39u);
    EXPECT_EQ(vlanConfig(4094), "");
}

TEST_F(ServiceTest, InterfaceProxyAndProxyAnywayShareOneRecord)
{
    std::string name = "vlan-interface10";
    CmfItem object = CmfItem::of(1, name.c_str(), static_cast<uint32_t>(name.size() + 1));
    EXPECT_EQ(st(req(30, ND_CLI_OPT_SET, {CmfItem::u32(22, 1), object})), 13u);
    EXPECT_EQ(ifConfig(name.c_str()), "\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(st(req(0, ND_CLI_OPT_SET, {object})), 13u);
    EXPECT_EQ(st(req(0, ND_CLI_OPT_SET, {object})), 40u);
    EXPECT_EQ(ifConfig(name.c_str()), "\n nd proxy enable\n ipv6 nd proxy anyway enable");
    EXPECT_EQ(ifConfig("vlan-interface11"), "");
    EXPECT_EQ(st(req(30, ND_CLI_OPT_UNDO, {CmfItem::u32(22, 1), object})), 13u);
    EXPECT_EQ(st(req(30, ND_CLI_OPT_UNDO, {CmfItem::u32(22, 1), object})), 41u);
    EXPECT_EQ(ifConfig(name.c_str()), "\n nd proxy enable");
    EXPECT_EQ(st(req(0, ND_CLI_OPT_UNDO, {object})), 13u);
    EXPECT_EQ(st(req(0, ND_CLI_OPT_UNDO, {object})), 41u);
    EXPECT_EQ(ifConfig(name.c_str()), "");
}

TEST_F(ServiceTest, LocalProxyOnASuperVlan)
{
    EXPECT_EQ(st(req(1, ND_CLI_OPT_UNDO, {u16(1, 20)})), 37u);
    EXPECT_EQ(st(req(1, ND_CLI_OPT_SET, {u16(1, 20)})), 13u);
    EXPECT_EQ(st(req(1, ND_CLI_OPT_SET, {u16(1, 20)})), 36u);
    EXPECT_EQ(superVlanConfig(20), "\n nd local-proxy enable");
    EXPECT_EQ(superVlanConfig(21), "");
    EXPECT_EQ(st(req(1, ND_CLI_OPT_UNDO, {u16(1, 20)})), 13u);
    EXPECT_EQ(superVlanConfig(20), "");
}

TEST_F(ServiceTest, TrustedPortIsStoredUnderThePortName)
{
    int32_t id = ndplat::port_id("gigabitethernet0/3");
    ASSERT_GT(id, 0);
    CmfRequest set = req(6, ND_CLI_OPT_SET, {CmfItem::u32(3, static_cast<uint32_t>(id)), text(1, "gigabitethernet0/3", 40)});
    CmfRequest undo = set;
    undo.optKind = ND_CLI_OPT_UNDO;
    EXPECT_EQ(st(undo), 43u);
    EXPECT_EQ(st(set), 13u);
    EXPECT_EQ(st(set), 42u);
    EXPECT_EQ(portConfig(id), "\n nd snooping trust");
    EXPECT_EQ(portConfig(id + 1), "");
    EXPECT_EQ(st(undo), 13u);
    EXPECT_EQ(portConfig(id), "");
}

// ---- static user-binds ----------------------------------------------------------------------------

TEST_F(ServiceTest, StaticUserBindsAreStoredSortedAndListedByPages)
{
    int32_t p1 = ndplat::port_id("gigabitethernet0/1");
    EXPECT_EQ(st(staticBind("2001:db8::9", 10, "gigabitethernet0/1", p1)), 13u);
    EXPECT_EQ(st(staticBind("2001:db8::2", 4094, "gigabitethernet0/2", 0)), 13u); // replayed: no port ID
    EXPECT_EQ(st(staticBind("2001:db8::9", 11, "gigabitethernet0/1", p1)), 34u);
    EXPECT_EQ(globalConfig(), "\nnd snooping user-bind static 2001:db8::2 0011.22aa.bbcc vlan 4094 interface gigabitethernet0/2"
                              "\nnd snooping user-bind static 2001:db8::9 0011.22aa.bbcc vlan 10 interface gigabitethernet0/1");

    CmfResponse page = svc.handle(req(11, ND_CLI_OPT_SHOW, {pageQuery(2, 0, 15)}));
    ASSERT_EQ(page.items.size(), 1u);
    EXPECT_EQ(page.items[0].type, 11u);
    const std::vector<uint8_t> &b = page.items[0].bytes;
    ASSERT_EQ(b.size(), 12u + 2 * 72);
    EXPECT_EQ(at<uint16_t>(b, 4), 2u);
    EXPECT_EQ(at<uint32_t>(b, 8), 1u);
    EXPECT_EQ(ipAt(b, 12), "2001:db8::2");
    EXPECT_EQ(at<uint16_t>(b, 12 + 20), 4094u);
    EXPECT_EQ(at<uint16_t>(b, 12 + 22), static_cast<uint16_t>(ndplat::port_id("gigabitethernet0/2")));
    EXPECT_EQ(b[12 + 70], 2u);
    EXPECT_EQ(b[12 + 64], 0x00u);
    EXPECT_EQ(b[12 + 69], 0xccu);
    EXPECT_EQ(at<uint16_t>(b, 12 + 72 + 22), static_cast<uint16_t>(p1));

    EXPECT_EQ(st(req(11, ND_CLI_OPT_UNDO, {ip(4, "2001:db8::5")})), 35u);
    EXPECT_EQ(st(req(11, ND_CLI_OPT_UNDO, {ip(4, "2001:db8::9")})), 13u);
    EXPECT_EQ(globalConfig(), "\nnd snooping user-bind static 2001:db8::2 0011.22aa.bbcc vlan 4094 interface gigabitethernet0/2");
    EXPECT_EQ(st(req(11, ND_CLI_OPT_UNDO, {CmfItem::of(12, std::vector<uint8_t>(16, 0).data(), 16)})), 13u);
    EXPECT_EQ(globalConfig(), "");
    EXPECT_EQ(st(req(11, ND_CLI_OPT_UNDO, {CmfItem::of(12, std::vector<uint8_t>(16, 0).data(), 16)})), 35u);
}

TEST_F(ServiceTest, StaticUserBindTableHasACeiling)
{
    for (size_t i = 0; i < ndsvc::kStaticUserBindCeiling; ++i) {
        char address[64];
        snprintf(address, sizeof address, "2001:db8::%zx", i + 1);
        ASSERT_EQ(st(staticBind(address, 10, "gigabitethernet0/1", 1)), 13u) << i;
    }
    EXPECT_EQ(st(staticBind("2001:db8:1::1", 10, "gigabitethernet0/1", 1)), 45u);
    EXPECT_EQ(st(staticBind("2001:db8::1", 10, "gigabitethernet0/1", 1)), 34u) << "existence is checked first";
}

// ---- dynamic tables ------------------------------------------------------------------------------

TEST_F(ServiceTest, DynamicUserBindPagesFollowTheQuerysStartAndSize)
{
    std::string why;
    ASSERT_TRUE(svc.seed_text(R"({"dynamic_user_binds":[
        {"ip":"2001:db8::100","mac":"00:00:00:00:00:01","vlan":5,"port":"gigabitethernet0/4","count":20},
        {"ip":"2001:db8::200","mac":"00:00:00:00:00:02","vlan":6,"port":"gigabitethernet0/5","part":"lpu","count":3}]})",
                              &why))
        << why;
    CmfResponse first = svc.handle(req(11, ND_CLI_OPT_SHOW, {pageQuery(3, 0, 15)}));
    ASSERT_EQ(first.items.size(), 1u);
    const std::vector<uint8_t> &b = first.items[0].bytes;
    ASSERT_EQ(b.size(), 12u + 15 * 72);
    EXPECT_EQ(at<uint16_t>(b, 4), 15u);
    EXPECT_EQ(at<uint32_t>(b, 8), 0u);
    EXPECT_EQ(ipAt(b, 12 + 14 * 72), "2001:db8::10e");
    EXPECT_EQ(b[12 + 70], 1u) << "dynamic";

    CmfResponse second = svc.handle(req(11, ND_CLI_OPT_SHOW, {pageQuery(3, 15, 15)}));
    const std::vector<uint8_t> &c = second.items[0].bytes;
    ASSERT_EQ(c.size(), 12u + 5 * 72);
    EXPECT_EQ(at<uint16_t>(c, 4), 20u);
    EXPECT_EQ(at<uint32_t>(c, 8), 1u);

    CmfResponse pass2 = svc.handle(req(11, ND_CLI_OPT_SHOW, {pageQuery(4, 0, 2)}));
    const std::vector<uint8_t> &d = pass2.items[0].bytes;
    ASSERT_EQ(d.size(), 12u + 2 * 72);
    EXPECT_EQ(ipAt(d, 12), "2001:db8::200");
    EXPECT_EQ(at<uint16_t>(d, 12 + 20), 6u);
    EXPECT_EQ(at<uint32_t>(d, 8), 0u);

    EXPECT_EQ(st(req(13, ND_CLI_OPT_UNDO, {CmfItem::u32(10, 0)})), 13u);
    CmfResponse empty = svc.handle(req(11, ND_CLI_OPT_SHOW, {pageQuery(3, 0, 15)}));
    EXPECT_EQ(empty.items[0].bytes.size(), 12u);
    EXPECT_EQ(at<uint32_t>(empty.items[0].bytes, 8), 1u);
}

TEST_F(ServiceTest, OneAddressAnswersWithItsStaticAndDynamicEntries)
{
    svc.seed_text(R"({"dynamic_user_binds":[{"ip":"2001:db8::7","mac":"0000.0000.0007","vlan":7,"port":"ge0/7"}]})", nullptr);
    svc.handle(staticBind("2001:db8::7", 10, "gigabitethernet0/1", 1));
    CmfResponse r = svc.handle(req(12, ND_CLI_OPT_SHOW, {ip(4, "2001:db8::7")}));
    ASSERT_EQ(r.items.size(), 1u);
    EXPECT_EQ(r.items[0].type, 12u);
    const std::vector<uint8_t> &b = r.items[0].bytes;
    ASSERT_EQ(b.size(), 12u + 2 * 72);
    EXPECT_EQ(b[12 + 70], 2u);
    EXPECT_EQ(b[12 + 72 + 70], 1u);
    EXPECT_EQ(at<uint16_t>(b, 12 + 72 + 22), static_cast<uint16_t>(ndplat::port_id("ge0/7")));
    CmfResponse none = svc.handle(req(12, ND_CLI_OPT_SHOW, {ip(4, "2001:db8::8")}));
    EXPECT_EQ(none.items[0].bytes.size(), 12u);
}

TEST_F(ServiceTest, PrefixesArePagedAndCleared)
{
    svc.seed_text(R"({"prefixes":[{"prefix":"2001:db8:1::","length":64,"valid":100,"preferred":50},
                                   {"prefix":"2001:db8:2::","length":48,"valid":4294967295,"preferred":1}]})",
                  nullptr);
    CmfResponse r = svc.handle(req(10, ND_CLI_OPT_SHOW, {pageQuery(0, 0, 15)}));
    ASSERT_EQ(r.items.size(), 1u);
    EXPECT_EQ(r.items[0].type, 10u);
    const std::vector<uint8_t> &b = r.items[0].bytes;
    ASSERT_EQ(b.size(), 12u + 2 * 28);
    EXPECT_EQ(ipAt(b, 12), "2001:db8:1::");
    EXPECT_EQ(at<uint32_t>(b, 12 + 16), 100u);
    EXPECT_EQ(at<uint32_t>(b, 12 + 20), 50u);
    EXPECT_EQ(at<int32_t>(b, 12 + 24), 64);
    EXPECT_EQ(at<uint32_t>(b, 12 + 28 + 16), 4294967295u);
    uint8_t len = 64;
    EXPECT_EQ(st(req(10, ND_CLI_OPT_UNDO, {ip(4, "2001:db8:1::"), CmfItem::of(5, &len, 1)})), 13u);
    EXPECT_EQ(svc.handle(req(10, ND_CLI_OPT_SHOW, {pageQuery(0, 0, 15)})).items[0].bytes.size(), 12u + 28);
    len = 128;
    EXPECT_EQ(st(req(10, ND_CLI_OPT_UNDO, {ip(4, "::"), CmfItem::of(5, &len, 1), CmfItem::u32(12, 1)})), 13u);
    EXPECT_EQ(svc.handle(req(10, ND_CLI_OPT_SHOW, {pageQuery(0, 0, 15)})).items[0].bytes.size(), 12u);
}

TEST_F(ServiceTest, StatisticsCarryOneRecordPerMemberAndInstance)
{
    ASSERT_TRUE(svc.seed_text(R"({"snooping_statistics":[{"member":1,"instance":0,"counters":[1,2,3,4,5,6,7,8,9,10,11,12,13,14]},
                                                         {"member":0,"instance":1}],
                                  "forward_statistics":[{"member":2,"instance":1,"counters":[4294967295]}]})",
                              nullptr));
    CmfResponse s = svc.handle(req(9, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)}));
    ASSERT_EQ(s.items.size(), 1u);
    EXPECT_EQ(s.items[0].type, 9u);
    const std::vector<uint8_t> &b = s.items[0].bytes;
    ASSERT_EQ(b.size(), 12u + 2 * 60);
    EXPECT_EQ(b[12], 0u);
    EXPECT_EQ(b[13], 1u);
    EXPECT_EQ(at<uint32_t>(b, 12 + 4), 1u);
    EXPECT_EQ(at<uint32_t>(b, 12 + 56), 14u);
    EXPECT_EQ(b[72], 1u);
    EXPECT_EQ(b[73], 0u);

    CmfResponse f = svc.handle(req(16, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)}));
    EXPECT_EQ(f.items[0].type, 16u);
    ASSERT_EQ(f.items[0].bytes.size(), 12u + 84);
    EXPECT_EQ(at<uint32_t>(f.items[0].bytes, 16), 4294967295u);

    EXPECT_EQ(st(req(9, ND_CLI_OPT_UNDO, {CmfItem::u32(10, 0)})), 13u);
    EXPECT_EQ(at<uint32_t>(svc.handle(req(9, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)})).items[0].bytes, 16), 0u);
    EXPECT_EQ(st(req(16, ND_CLI_OPT_UNDO, {CmfItem::u32(9, 0)})), 13u);
    EXPECT_EQ(at<uint32_t>(svc.handle(req(16, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)})).items[0].bytes, 16), 0u);
}

TEST_F(ServiceTest, DebugMaskIsSwitchedBitByBit)
{
    EXPECT_EQ(st(req(14, ND_CLI_OPT_SET, {CmfItem::u32(11, 2)})), 13u);
    EXPECT_EQ(st(req(14, ND_CLI_OPT_SET, {CmfItem::u32(11, 16)})), 13u);
    CmfResponse r = svc.handle(req(14, ND_CLI_OPT_SHOW, {CmfItem::u32(11, 0)}));
    ASSERT_EQ(r.items.size(), 1u);
    EXPECT_EQ(r.items[0].type, 14u);
    EXPECT_EQ(r.items[0].as_u32(), 18u);
    svc.handle(req(14, ND_CLI_OPT_UNDO, {CmfItem::u32(11, 63)}));
    EXPECT_EQ(svc.debug_mask(), 0u);
    svc.handle(req(14, ND_CLI_OPT_SET, {CmfItem::u32(11, 63)}));
    EXPECT_EQ(svc.debug_mask(), 63u);
}

TEST_F(ServiceTest, ProxyAddressesHaveNoHeader)
{
    EXPECT_TRUE(svc.handle(req(18, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)})).items.empty());
    svc.seed_text(R"({"proxy_addresses":[{"module":3,"begin":"2001:db8::1","end":"2001:db8::ff"}]})", nullptr);
    CmfResponse r = svc.handle(req(18, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)}));
    ASSERT_EQ(r.items.size(), 1u);
    EXPECT_EQ(r.items[0].type, 18u);
    ASSERT_EQ(r.items[0].bytes.size(), 36u);
    EXPECT_EQ(at<uint32_t>(r.items[0].bytes, 0), 3u);
    EXPECT_EQ(ipAt(r.items[0].bytes, 4), "2001:db8::1");
    EXPECT_EQ(ipAt(r.items[0].bytes, 20), "2001:db8::ff");
}

// ---- VXLAN ----------------------------------------------------------------------------------------

TEST_F(ServiceTest, VxlanSettingsAreStoredAsTheVxlanScriptReadsThem)
{
    CmfItem id = CmfItem::u32(15, 100);
    EXPECT_EQ(st(req(19, ND_CLI_OPT_SET, {id, CmfItem::u32(14, 45)})), 13u);
    EXPECT_EQ(st(req(20, ND_CLI_OPT_SET, {id, CmfItem::u32(16, 0)})), 13u);
    EXPECT_EQ(st(req(21, ND_CLI_OPT_UNDO, {id})), 13u);
    EXPECT_EQ(st(req(23, ND_CLI_OPT_SET, {id})), 47u);
    EXPECT_EQ(st(req(24, ND_CLI_OPT_SET, {id})), 47u);
    EXPECT_EQ(st(req(22, ND_CLI_OPT_SET, {id})), 13u);
    EXPECT_EQ(st(req(23, ND_CLI_OPT_SET, {id})), 13u);
    EXPECT_EQ(st(req(24, ND_CLI_OPT_SET, {id})), 13u);
    EXPECT_EQ(vxlanConfig(100), "\n ipv6 nd suppression"
                                "\n ipv6 nd suppression missmatch discard"
                                "\n ipv6 nd suppression unicast forward"
                                "\n no ipv6 nd host advertise"
                                "\n ipv6 nd host limited 0"
                                "\n ipv6 nd host timeout 45");
    EXPECT_EQ(vxlanConfig(101), "");
    EXPECT_EQ(st(req(22, ND_CLI_OPT_UNDO, {id})), 13u);
    EXPECT_EQ(st(req(19, ND_CLI_OPT_UNDO, {id, CmfItem::u32(14, 360)})), 13u);
    EXPECT_EQ(st(req(20, ND_CLI_OPT_UNDO, {id, CmfItem::u32(16, 20480)})), 13u);
    EXPECT_EQ(st(req(21, ND_CLI_OPT_SET, {id})), 13u);
    EXPECT_EQ(vxlanConfig(100), "");
}

TEST_F(ServiceTest, UndoingAVxlanSettingThatIsNotSetSucceedsAndStoresNothing)
{
    CmfItem id = CmfItem::u32(15, 7);
    for (uint32_t code : {22u, 23u, 24u}) {
        CmfResponse r = svc.handle(req(code, ND_CLI_OPT_UNDO, {id}));
        EXPECT_EQ(r.status, 13u) << code;
        EXPECT_EQ(r.endStatus, 13u) << code;
        EXPECT_TRUE(r.items.empty());
    }
    EXPECT_EQ(svc.handle(req(19, ND_CLI_OPT_UNDO, {id, CmfItem::u32(14, 360)})).endStatus, 13u);
    EXPECT_EQ(svc.handle(req(20, ND_CLI_OPT_UNDO, {id, CmfItem::u32(16, 20480)})).endStatus, 13u);
    svc.handle(req(21, ND_CLI_OPT_UNDO, {id}));
    EXPECT_EQ(svc.handle(req(21, ND_CLI_OPT_UNDO, {id})).endStatus, 13u);
    // Host advertisement off is the one difference from the defaults: the rest stored nothing.
    EXPECT_EQ(vxlanConfig(7), "\n no ipv6 nd host advertise");
}

TEST_F(ServiceTest, ProxyAnywayAndSuppressionExcludeEachOther)
{
    std::string name = "vlan-interface5";
    CmfItem object = CmfItem::of(1, name.c_str(), static_cast<uint32_t>(name.size() + 1));
    EXPECT_EQ(st(req(22, ND_CLI_OPT_SET, {CmfItem::u32(15, 9)})), 13u);
    EXPECT_EQ(st(req(30, ND_CLI_OPT_SET, {CmfItem::u32(22, 1), object})), 49u);
    EXPECT_EQ(st(req(22, ND_CLI_OPT_UNDO, {CmfItem::u32(15, 9)})), 13u);
    EXPECT_EQ(st(req(30, ND_CLI_OPT_SET, {CmfItem::u32(22, 1), object})), 13u);
    EXPECT_EQ(st(req(22, ND_CLI_OPT_SET, {CmfItem::u32(15, 9)})), 48u);
}

TEST_F(ServiceTest, VxlanHostTableComesIn64RecordAnswersWithFollowUps)
{
    ASSERT_TRUE(svc.seed_text(R"({"vxlan_hosts":[{"vxlan":5,"ip":"2001:db8::1","mac":"00:00:00:00:00:05","port_index":3,"count":150},
                                                  {"vxlan":6,"ip":"2001:db8::1","mac":"00:00:00:00:00:06","count":2}]})",
                              nullptr));
    CmfRequest first = req(25, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 5)});
    CmfResponse r1 = svc.handle(first);
    EXPECT_EQ(r1.status, 0u);
    ASSERT_EQ(r1.items.size(), 64u);
    EXPECT_EQ(r1.items[0].type, 17u);
    EXPECT_EQ(r1.items[0].length, 124u);
    const std::vector<uint8_t> &rec = r1.items[63].bytes;
    EXPECT_STREQ(reinterpret_cast<const char *>(rec.data()), "2001:db8::40");
    EXPECT_EQ(at<uint32_t>(rec, 96), 5u);
    EXPECT_EQ(at<uint32_t>(rec, 104), 3u);
    EXPECT_EQ(rec[121], 5u);

    CmfRequest follow = first;
    follow.items.push_back(CmfItem::of(19, rec.data(), 124));
    follow.items.push_back(CmfItem::u32(18, 1));
    CmfResponse r2 = svc.handle(follow);
    EXPECT_EQ(r2.status, 0u);
    ASSERT_EQ(r2.items.size(), 64u);
    EXPECT_STREQ(reinterpret_cast<const char *>(r2.items[0].bytes.data()), "2001:db8::41");

    follow.items[1] = CmfItem::of(19, r2.items[63].bytes.data(), 124);
    CmfResponse r3 = svc.handle(follow);
    EXPECT_EQ(r3.status, 13u);
    ASSERT_EQ(r3.items.size(), 22u + 1);
    EXPECT_EQ(r3.items.back().type, 20u) << "end of table";

    CmfResponse all = svc.handle(req(25, ND_CLI_OPT_SHOW));
    EXPECT_EQ(all.status, 0u);

    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO, {CmfItem::u32(15, 5), ip(4, "2001:db8::2")})), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 151u);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO, {CmfItem::u32(15, 5)})), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 2u);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 0u);
    CmfResponse empty = svc.handle(req(25, ND_CLI_OPT_SHOW));
    EXPECT_EQ(empty.status, 13u);
    ASSERT_EQ(empty.items.size(), 1u);
    EXPECT_EQ(empty.items[0].type, 20u);
}

TEST_F(ServiceTest, VxlanIdZeroListsTheHostsOfEveryInstance)
{
    // Behind an output modifier the show handlers send id 0: every instance, as without an id.
    ASSERT_TRUE(svc.seed_text(R"({"vxlan_hosts":[{"vxlan":5,"ip":"2001:db8::5","mac":"00:00:00:00:00:05"},
                                                  {"vxlan":6,"ip":"2001:db8::6","mac":"00:00:00:00:00:06"}],
                               "suppression_hosts":[{"vxlan":7,"ip":"2001:db8::7","mac":"00:00:00:00:00:07","count":2},
                                                    {"vxlan":8,"ip":"2001:db8::8","mac":"00:00:00:00:00:08"}]})",
                              nullptr));
    CmfResponse hosts = svc.handle(req(25, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 0)}));
    EXPECT_EQ(hosts.status, 13u);
    ASSERT_EQ(hosts.items.size(), 3u);
    EXPECT_EQ(at<uint32_t>(hosts.items[0].bytes, 96), 5u);
    EXPECT_EQ(at<uint32_t>(hosts.items[1].bytes, 96), 6u);
    EXPECT_EQ(hosts.items[2].type, 20u) << "end of table";

    CmfResponse suppressed = svc.handle(req(22, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 0)}));
    EXPECT_EQ(suppressed.status, 13u);
    ASSERT_EQ(suppressed.items.size(), 4u);
    EXPECT_STREQ(reinterpret_cast<const char *>(suppressed.items[0].bytes.data()), "2001:db8::7");
    EXPECT_STREQ(reinterpret_cast<const char *>(suppressed.items[1].bytes.data()), "2001:db8::8");
    EXPECT_STREQ(reinterpret_cast<const char *>(suppressed.items[2].bytes.data()), "2001:db8::8");
    EXPECT_EQ(at<uint32_t>(suppressed.items[2].bytes, 96), 8u);

    CmfResponse one = svc.handle(req(22, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 8)}));
    ASSERT_EQ(one.items.size(), 2u) << "a real id still selects its instance";
    EXPECT_EQ(at<uint32_t>(one.items[0].bytes, 96), 8u);

    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO, {CmfItem::u32(15, 0)})), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 2u) << "a clear of id 0 is not a clear of everything";
}

TEST_F(ServiceTest, InjectedSuppressionHostsAreListed)
{
    uint8_t rec[52] = {};
    uint32_t vxlan = 8, tunnel = 77;
    memcpy(rec, &vxlan, 4);
    memcpy(rec + 4, &tunnel, 4);
    inet_pton(AF_INET6, "2001:db8::1", rec + 8);
    rec[24] = 2;
    inet_pton(AF_INET, "10.0.0.1", rec + 28);
    rec[44] = 0xaa;
    std::vector<uint8_t> two(rec, rec + 52);
    two.insert(two.end(), rec, rec + 52);
    two[52 + 23] = 2;
    EXPECT_EQ(st(req(ndsvc::kInjectSuppressionAdd, 0, {CmfItem::of(1, two.data(), 104)})), 13u);
    EXPECT_EQ(svc.suppression_count(), 2u);
    CmfResponse r = svc.handle(req(22, ND_CLI_OPT_SHOW));
    ASSERT_EQ(r.items.size(), 3u);
    const std::vector<uint8_t> &b = r.items[1].bytes;
    EXPECT_STREQ(reinterpret_cast<const char *>(b.data()), "2001:db8::2");
    EXPECT_STREQ(reinterpret_cast<const char *>(b.data() + 48), "10.0.0.1");
    EXPECT_EQ(at<uint32_t>(b, 96), 8u);
    EXPECT_EQ(at<uint32_t>(b, 100), 77u);
    EXPECT_EQ(b[116], 0xaau);
    EXPECT_EQ(st(req(ndsvc::kInjectSuppressionDel, 0, {CmfItem::of(1, rec, 52)})), 13u);
    EXPECT_EQ(svc.suppression_count(), 1u);
    EXPECT_EQ(st(req(ndsvc::kInjectSuppressionAdd, 0, {CmfItem::of(1, rec, 51)})), 18u) << "partial record";
}

TEST_F(ServiceTest, IssuBackupAndRecoveryUseThePlugInsStore)
{
    svc.plugin_path_set(ND_CLI_SO_PATH);
    svc.seed_text(R"({"vxlan_hosts":[{"vxlan":3,"ip":"2001:db8::1","mac":"00:00:00:00:00:33","count":3}]})", nullptr);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_SET, {CmfItem::u32(21, 1)})), 13u);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO)), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 0u);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_SET, {CmfItem::u32(21, 2)})), 13u);
    EXPECT_EQ(svc.vxlan_host_count(), 3u);
    CmfResponse r = svc.handle(req(25, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 3)}));
    ASSERT_EQ(r.items.size(), 4u);
    EXPECT_STREQ(reinterpret_cast<const char *>(r.items[2].bytes.data()), "2001:db8::3");
    EXPECT_EQ(r.items[2].bytes[121], 0x33u);
}

// The backup names a host's port by its name and VLANs; recovered, the host is at the access port
// that has them again, or at none.
TEST_F(ServiceTest, IssuRecoveryFindsTheHostsAccessPortAgain)
{
    svc.plugin_path_set(ND_CLI_SO_PATH);
    ndplat::Vxport port;
    port.portId = ndplat::port_id("gigabitethernet0/3");
    ASSERT_NE(port.portId, 0);
    port.svlan = 10;
    port.vxlan = 3;
    ASSERT_TRUE(ndplat::vxport_set(5, port));
    svc.seed_text(R"({"vxlan_hosts":[{"vxlan":3,"ip":"2001:db8::1","mac":"00:00:00:00:00:33","port_index":5},
                                     {"vxlan":3,"ip":"2001:db8::2","mac":"00:00:00:00:00:34","port_index":9}]})",
                  nullptr);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_SET, {CmfItem::u32(21, 1)})), 13u);
    EXPECT_EQ(st(req(25, ND_CLI_OPT_UNDO)), 13u);
    // The same port under another index: found by what it is, not by its old index.
    ASSERT_TRUE(ndplat::vxport_remove(5));
    ASSERT_TRUE(ndplat::vxport_set(6, port));
    EXPECT_EQ(st(req(25, ND_CLI_OPT_SET, {CmfItem::u32(21, 2)})), 13u);
    CmfResponse r = svc.handle(req(25, ND_CLI_OPT_SHOW, {CmfItem::u32(15, 3)}));
    ASSERT_EQ(r.items.size(), 3u);
    EXPECT_STREQ(reinterpret_cast<const char *>(r.items[0].bytes.data()), "2001:db8::1");
    EXPECT_EQ(at<uint32_t>(r.items[0].bytes, 104), 6u);
    EXPECT_STREQ(reinterpret_cast<const char *>(r.items[1].bytes.data()), "2001:db8::2");
    EXPECT_EQ(at<uint32_t>(r.items[1].bytes, 104), 0u);
}

TEST_F(ServiceTest, ConfigurationWhileAnotherIsInProgressIsBusy)
{
    svc.config_delay_set(300);
    std::atomic<uint32_t> first{0};
    std::thread t([&] { first = st(req(4, ND_CLI_OPT_SET)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(st(req(17, ND_CLI_OPT_SET)), 17u);
    EXPECT_EQ(svc.handle(req(14, ND_CLI_OPT_SHOW, {CmfItem::u32(11, 0)})).items.size(), 1u) << "shows are not held";
    t.join();
    EXPECT_EQ(first.load(), 13u);
    EXPECT_EQ(st(req(17, ND_CLI_OPT_SET)), 13u);
}

TEST_F(ServiceTest, UnknownRequestsFail)
{
    EXPECT_EQ(st(req(8, ND_CLI_OPT_SHOW)), 18u);
    EXPECT_EQ(st(req(26, ND_CLI_OPT_SHOW)), 18u);
    EXPECT_EQ(st(req(11, ND_CLI_OPT_SHOW, {CmfItem::u32(9, 0)})), 18u) << "a page query is 12 bytes";
    EXPECT_EQ(st(req(5, ND_CLI_OPT_SET)), 26u) << "no VLAN item";
}

TEST_F(ServiceTest, BadSeedsAreRefusedWithAReason)
{
    std::string why;
    EXPECT_FALSE(svc.seed_text("[1,2]", &why));
    EXPECT_EQ(why, "not a JSON object");
    EXPECT_FALSE(svc.seed_text(R"({"prefixes":[{"prefix":"zz"}]})", &why));
    EXPECT_EQ(why, "prefixes[0].prefix: bad IPv6 address \"zz\"");
    EXPECT_FALSE(svc.seed_file("/nonexistent/seed.json", &why));
    EXPECT_EQ(why, "cannot read /nonexistent/seed.json");
}

// ---- diagnose ------------------------------------------------------------------------------------

std::string readDiagnose()
{
    std::ifstream in(ndsvc::kDiagnoseFile);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST_F(ServiceTest, DiagnoseWritesItsTextIntoTheDumpFile)
{
    unlink(ndsvc::kDiagnoseFile);
    svc.handle(req(3, ND_CLI_OPT_SET));
    svc.handle(req(5, ND_CLI_OPT_SET, {u16(2, 10)}));
    EXPECT_EQ(st(req(29, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 3), CmfItem::u32(2, 0)})), 13u);
    EXPECT_EQ(readDiagnose(), "nd global acl\n  snooping packets to cpu: on\n  trusted ports: 0\n  snooping vlans: 1\n");

    EXPECT_EQ(st(req(29, ND_CLI_OPT_UNDO, {CmfItem::u32(13, 4)})), 13u);
    EXPECT_EQ(st(req(29, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 4)})), 13u);
    EXPECT_EQ(readDiagnose(), "nd service requests\n  code 29: 1\n");

    std::string name = "vlan-interface7";
    svc.handle(req(0, ND_CLI_OPT_SET, {CmfItem::of(1, name.c_str(), static_cast<uint32_t>(name.size() + 1))}));
    EXPECT_EQ(st(req(29, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 5)})), 13u);
    EXPECT_EQ(readDiagnose(), "nd interface neighbor\n  vlan-interface7: proxy on, proxy anyway off\n");

    svc.seed_text(R"({"vxlan_hosts":[{"vxlan":4,"ip":"2001:db8::1","mac":"00:00:00:00:00:04","port_index":2}]})", nullptr);
    EXPECT_EQ(st(req(29, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 1), CmfItem::u32(2, 4)})), 13u);
    EXPECT_EQ(readDiagnose(), "vxlan 4 local hosts\n  2001:db8::1 0000.0000.0004 port-index 2\n");
    unlink(ndsvc::kDiagnoseFile);
}

TEST_F(ServiceTest, DiagnoseOfVxlanIdZeroShowsEveryInstanceWithItsHosts)
{
    unlink(ndsvc::kDiagnoseFile);
    EXPECT_EQ(st(req(19, ND_CLI_OPT_SET, {CmfItem::u32(15, 9), CmfItem::u32(14, 30)})), 13u);
    svc.seed_text(R"({"vxlan_hosts":[{"vxlan":4,"ip":"2001:db8::1","mac":"00:00:00:00:00:04","port_index":2}]})", nullptr);
    EXPECT_EQ(st(req(29, ND_CLI_OPT_SHOW, {CmfItem::u32(13, 0), CmfItem::u32(2, 0)})), 13u);
    EXPECT_EQ(readDiagnose(), "nd global\n  snooping: disable\n  ns-check-loose: disable\n  attack-log: disable\n"
                              "  fast-response: enable\n  static user-binds: 0\n  dynamic user-binds: 0\n  prefixes: 0\n"
                              "vxlan 4\n  suppression: off\n  missmatch discard: off\n  unicast forward: off\n"
                              "  host advertise: on\n  host limit: 20480\n  host timeout: 360\n  local hosts: 1\n"
                              "  suppression hosts: 0\n  remote neighbours: 0\n"
                              "vxlan 4 local hosts\n  2001:db8::1 0000.0000.0004 port-index 2\n"
                              "vxlan 9\n  suppression: off\n  missmatch discard: off\n  unicast forward: off\n"
                              "  host advertise: on\n  host limit: 20480\n  host timeout: 30\n  local hosts: 0\n"
                              "  suppression hosts: 0\n  remote neighbours: 0\n");
    unlink(ndsvc::kDiagnoseFile);
}

// ---- the real process --------------------------------------------------------------------------------

std::string freshStateDir()
{
    return svctest::fresh_state_dir("ndsvc-test");
}

TEST_F(ServiceTest, ServiceControlStartsQueriesAndLosesTheProcess)
{
    std::string dir = freshStateDir();
    ndplat::service_attach(dir);
    EXPECT_EQ(DCM_Query("ipv6"), 0);
    EXPECT_EQ(DCM_Start("ipv6", 1), 2);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
    EXPECT_EQ(DCM_Start("ipv6", 1), 2) << "already running";

    // A configuration request reaches the process; the database is shared through the files.
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "debug", 14);
    uint32_t mask = 8;
    nd_CliParamSet(&block, &mask, 4, 11, 1);
    EXPECT_EQ(ndCliParamProc(&block), 0u);

    EXPECT_TRUE(ndplat::service_stop(dir, true));
    EXPECT_EQ(DCM_Query("ipv6"), 0);
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "show", 14);
    nd_CliParamSet(&block, &mask, 4, 11, 1);
    EXPECT_EQ(ndCliParamProc(&block), 21u) << "a show does not start the service";
    ndplat::service_detach();
}

TEST_F(ServiceTest, AServiceThatCannotStartIsReported)
{
    std::string dir = freshStateDir();
    setenv("NDSIM_NDSVC", "/nonexistent/ndsvc", 1);
    ndplat::service_attach(dir);
    EXPECT_EQ(DCM_Start("ipv6", 1), 1);
    unsetenv("NDSIM_NDSVC");
    ndplat::service_detach();
}

} // namespace

namespace {

uint32_t suppressionRows(uint32_t vxlan)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "show", 22);
    nd_CliParamSet(&block, &vxlan, 4, 15, 0);
    ndtest::Stdout out;
    uint32_t r = ndCliVxlanSetProc(&block, [](const void *, uint32_t, uint32_t) -> uint32_t { return 0; });
    out.take();
    return r == 0 ? block.decodedCount : 0xFFFFFFFFu;
}

TEST_F(ServiceTest, NdLibraryRecordsReachTheAttachedServiceBeforeTheNextRequest)
{
    std::string dir = freshStateDir();
    ndplat::service_attach(dir);
    ASSERT_GT(ndplat::service_start(dir), 0);
    uint8_t records[3 * 52] = {};
    for (int i = 0; i < 3; ++i) {
        uint8_t *r = records + 52 * i;
        uint32_t vxlan = 12;
        memcpy(r, &vxlan, 4);
        inet_pton(AF_INET6, "2001:db8::1", r + 8);
        r[23] = static_cast<uint8_t>(i + 1);
        r[24] = 2;
    }
    uint32_t done = 0;
    EXPECT_EQ(ND_AddSuppressionHost(records, 3, &done), 0);
    EXPECT_EQ(done, 3u);
    EXPECT_EQ(suppressionRows(12), 3u) << "the request waits for the records handed over before it";
    EXPECT_EQ(ND_DelSuppressionHost(records + 52, 1, &done), 0);
    EXPECT_EQ(suppressionRows(12), 2u);
    EXPECT_EQ(suppressionRows(13), 0u);
    EXPECT_TRUE(ndplat::service_stop(dir));
    ndplat::service_detach();
}

TEST_F(ServiceTest, AStoppedServiceRemovesItsSocketAndPidFile)
{
    std::string dir = freshStateDir();
    ASSERT_GT(ndplat::service_start(dir), 0);
    EXPECT_EQ(access(ndplat::service_socket_path(dir).c_str(), F_OK), 0);
    EXPECT_EQ(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0);
    EXPECT_TRUE(ndplat::service_stop(dir));
    EXPECT_NE(access(ndplat::service_socket_path(dir).c_str(), F_OK), 0);
    EXPECT_NE(access(ndplat::service_pid_path(dir).c_str(), F_OK), 0);
    EXPECT_FALSE(ndplat::service_running(dir));
}

TEST_F(ServiceTest, ASeedThatCannotBeReadKeepsTheServiceFromStarting)
{
    std::string dir = freshStateDir();
    EXPECT_EQ(ndplat::service_start(dir, {"--seed", dir + "/missing.json"}), -1);
    setenv("NDSIM_NDSVC_ARGS", ("--seed " + dir + "/missing.json").c_str(), 1);
    ndplat::service_attach(dir);
    EXPECT_EQ(DCM_Start("ipv6", 1), 1);
    unsetenv("NDSIM_NDSVC_ARGS");
    EXPECT_EQ(DCM_Start("ipv6", 1), 2);
    EXPECT_EQ(DCM_Query("ipv6"), 2);
    EXPECT_TRUE(ndplat::service_stop(dir));
    ndplat::service_detach();
}

} // namespace
