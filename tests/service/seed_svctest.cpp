// The seed file of the ND service: every count and value is held to the service's limits, a
// refusal names the faulty field, a refused seed changes nothing, and ndsvc given such a seed
// ends at once with status 1 instead of starting.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "nd_service.h"
#include "ndplat_service.h"
#include "ndplat_ports.h"
#include "ndplat_vxlan.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;

class SeedTest : public ndtest::PlatformTest {
protected:
    ndsvc::NdService svc;

    // The reason a seed is refused; "taken" when it is not.
    std::string refusal(const std::string &text)
    {
        std::string why;
        return svc.seed_text(text, &why) ? "taken" : why;
    }

    // The rows of one paged table (command code, table kind) as the service answers them.
    size_t pageRows(uint32_t code, uint32_t kind, size_t recordSize)
    {
        CmfRequest r;
        r.service = "ipv6";
        r.hasObject = true;
        r.cmdCode = code;
        r.optKind = ND_CLI_OPT_SHOW;
        uint8_t q[12] = {};
        uint16_t size = 15;
        memcpy(q, &kind, 4);
        memcpy(q + 6, &size, 2);
        r.items.push_back(CmfItem::of(9, q, 12));
        CmfResponse page = svc.handle(r);
        if (page.items.size() != 1 || page.items[0].bytes.size() < 12)
            return SIZE_MAX;
        return (page.items[0].bytes.size() - 12) / recordSize;
    }

    uint32_t debugShown()
    {
        CmfRequest r;
        r.service = "ipv6";
        r.hasObject = true;
        r.cmdCode = 14;
        r.optKind = ND_CLI_OPT_SHOW;
        r.items.push_back(CmfItem::u32(11, 0));
        CmfResponse answer = svc.handle(r);
        return answer.items.size() == 1 ? answer.items[0].as_u32() : UINT32_MAX;
    }
};

const char *const kBind = R"("ip":"2001:db8::1","mac":"00:10:00:00:00:01","vlan":10,"port":"gigabitethernet0/1")";

std::string binds(const std::string &fields)
{
    return std::string(R"({"dynamic_user_binds":[{)") + kBind + "," + fields + "}]}";
}

TEST_F(SeedTest, CountsBeyondTheCeilingAreRefusedBeforeAnythingIsMade)
{
    EXPECT_EQ(refusal(binds(R"("count":4294967295)")),
              "dynamic_user_binds[0].count: 4294967295 is out of range 1..65535");
    EXPECT_EQ(refusal(binds(R"("count":-1)")), "dynamic_user_binds[0].count: -1 is out of range 1..65535");
    EXPECT_EQ(refusal(binds(R"("count":0)")), "dynamic_user_binds[0].count: 0 is out of range 1..65535");
    EXPECT_EQ(refusal(R"({"vxlan_hosts":[{"vxlan":10,"ip":"2001:db8::1","mac":"00:00:00:00:00:01","count":-1}]})"),
              "vxlan_hosts[0].count: -1 is out of range 1..2097152");
    EXPECT_EQ(refusal(R"({"suppression_hosts":[{"vxlan":10,"ip":"2001:db8::1","mac":"00:00:00:00:00:01",)"
                      R"("count":4294967295}]})"),
              "suppression_hosts[0].count: 4294967295 is out of range 1..2097152");
    EXPECT_EQ(pageRows(11, 3, 72), 0u);
    EXPECT_EQ(svc.vxlan_host_count(), 0u);
    EXPECT_EQ(svc.suppression_count(), 0u);
}

TEST_F(SeedTest, OutOfRangeValuesAreRefusedNamingTheField)
{
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::","length":4000000000}]})"),
              "prefixes[0].length: 4000000000 is out of range 0..128");
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::","length":129}]})"),
              "prefixes[0].length: 129 is out of range 0..128");
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::"},{"prefix":"2001:db8:2::","valid":-5}]})"),
              "prefixes[1].valid: -5 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::","preferred":4294967296}]})"),
              "prefixes[0].preferred: 4294967296 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"snooping_statistics":[{"member":-7}]})"),
              "snooping_statistics[0].member: -7 is out of range 0..7");
    EXPECT_EQ(refusal(R"({"forward_statistics":[{"member":8}]})"),
              "forward_statistics[0].member: 8 is out of range 0..7");
    EXPECT_EQ(refusal(R"({"forward_statistics":[{"instance":2}]})"),
              "forward_statistics[0].instance: 2 is out of range 0..1");
    EXPECT_EQ(refusal(R"({"snooping_statistics":[{"counters":[1,-2]}]})"),
              "snooping_statistics[0].counters[1]: -2 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"snooping_statistics":[{"counters":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]}]})"),
              "snooping_statistics[0].counters: 15 values, at most 14");
    EXPECT_EQ(refusal(binds(R"("vlan":4095)")), "dynamic_user_binds[0].vlan: 4095 is out of range 1..4094");
    EXPECT_EQ(refusal(binds(R"("vlan":0)")), "dynamic_user_binds[0].vlan: 0 is out of range 1..4094");
    EXPECT_EQ(refusal(binds(R"("part":"spu")")),
              "dynamic_user_binds[0].part: \"spu\" is neither \"mpu\" nor \"lpu\"");
    EXPECT_EQ(refusal(binds(R"("port_id":2147483648)")),
              "dynamic_user_binds[0].port_id: 2147483648 is out of range -2147483648..2147483647");
    EXPECT_EQ(refusal(R"({"proxy_addresses":[{"module":-1,"begin":"::1","end":"::2"}]})"),
              "proxy_addresses[0].module: -1 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"vxlan_hosts":[{"vxlan":16777216,"ip":"::1","mac":"00:00:00:00:00:01"}]})"),
              "vxlan_hosts[0].vxlan: 16777216 is out of range 1..16777215");
    EXPECT_EQ(refusal(R"({"vxlan_hosts":[{"vxlan":1,"ip":"::1","mac":"00:00:00:00:00:01","port_index":-3}]})"),
              "vxlan_hosts[0].port_index: -3 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"suppression_hosts":[{"vxlan":1,"ip":"::1","mac":"00:00:00:00:00:01","tunnel_id":-1}]})"),
              "suppression_hosts[0].tunnel_id: -1 is out of range 0..4294967295");
    EXPECT_EQ(refusal(R"({"debug":64})"), "debug: 64 is out of range 0..63");
}

TEST_F(SeedTest, FieldsOfTheWrongKindAreRefusedNamingTheField)
{
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::","length":"64"}]})"),
              "prefixes[0].length: \"64\" is not a number");
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"2001:db8:1::","length":64.5}]})"),
              "prefixes[0].length: 64.5 is not a whole number");
    EXPECT_EQ(refusal(R"({"prefixes":[{"length":64}]})"), "prefixes[0].prefix: missing");
    EXPECT_EQ(refusal(R"({"prefixes":[{"prefix":"zz"}]})"), "prefixes[0].prefix: bad IPv6 address \"zz\"");
    EXPECT_EQ(refusal(R"({"prefixes":{"prefix":"2001:db8:1::"}})"), "prefixes: not a list");
    EXPECT_EQ(refusal(R"({"prefixes":[7]})"), "prefixes[0]: not an object");
    EXPECT_EQ(refusal(binds(R"("port":7)")), "dynamic_user_binds[0].port: 7 is not a text");
    EXPECT_EQ(refusal(R"({"dynamic_user_binds":[{"ip":"::1","mac":"00:10"}]})"),
              "dynamic_user_binds[0].mac: bad MAC address \"00:10\"");
    EXPECT_EQ(refusal(R"({"vxlan_hosts":[{"ip":"::1","mac":"00:00:00:00:00:01"}]})"), "vxlan_hosts[0].vxlan: missing");
    EXPECT_EQ(refusal(R"({"snooping_statistics":[{"counters":3}]})"), "snooping_statistics[0].counters: not a list");
    EXPECT_EQ(refusal(R"({"debug":null})"), "debug: null is not a number");
}

TEST_F(SeedTest, ARefusedSeedChangesNothing)
{
    EXPECT_EQ(refusal(std::string(R"({"dynamic_user_binds":[{)") + kBind + R"(,"count":20}],)" +
                      R"("prefixes":[{"prefix":"2001:db8:1::","length":64}],"debug":63,)" +
                      R"("vxlan_hosts":[{"vxlan":10,"ip":"2001:db8:a::1","mac":"00:0a:00:00:00:01","count":5}],)" +
                      R"("snooping_statistics":[{"member":1,"counters":[9]}],)" +
                      R"("suppression_hosts":[{"vxlan":10,"ip":"2001:db8:c::1","mac":"00:0c:00:00:00:01","count":-1}]})"),
              "suppression_hosts[0].count: -1 is out of range 1..2097152");
    EXPECT_EQ(pageRows(11, 3, 72), 0u);
    EXPECT_EQ(pageRows(10, 0, 28), 0u);
    EXPECT_EQ(svc.vxlan_host_count(), 0u);
    EXPECT_EQ(svc.suppression_count(), 0u);
    EXPECT_EQ(debugShown(), 0u);
}

TEST_F(SeedTest, ValuesAtTheLimitsAreTaken)
{
    EXPECT_EQ(refusal(std::string(R"({"dynamic_user_binds":[{)") + kBind + R"(,"vlan":4094,"count":65535}],)" +
                      R"("prefixes":[{"prefix":"2001:db8:1::","length":128,"valid":4294967295,"preferred":0}],)" +
                      R"("snooping_statistics":[{"member":7,"instance":1,"counters":[4294967295]}],)" +
                      R"("vxlan_hosts":[{"vxlan":16777215,"ip":"2001:db8:a::1","mac":"00:0a:00:00:00:01","count":3}],)" +
                      R"("debug":63})"),
              "taken");
    EXPECT_EQ(pageRows(11, 3, 72), 15u);
    EXPECT_EQ(pageRows(10, 0, 28), 1u);
    EXPECT_EQ(svc.vxlan_host_count(), 3u);
    EXPECT_EQ(debugShown(), 63u);
}

TEST_F(SeedTest, APartThatWouldOutgrowItsListingIsRefused)
{
    EXPECT_EQ(refusal(std::string(R"({"dynamic_user_binds":[{)") + kBind + R"(,"count":65000},{)" + kBind +
                      R"(,"part":"lpu","count":600},{)" + kBind + R"(,"count":536}]})"),
              "dynamic_user_binds[2].count: 536 is more than the 535 entries left of part \"mpu\" (at most 65535)");
    EXPECT_EQ(pageRows(11, 3, 72), 0u);
    EXPECT_EQ(pageRows(11, 4, 72), 0u);
}

std::string ports(const std::string &fields)
{
    return R"({"vxlan_ports":[{"port_index":1,"vxlan":10,"port":"gigabitethernet0/1","svlan":10,"cvlan":20},{)" +
           fields + "}]}";
}

TEST_F(SeedTest, VxlanPortsAreCheckedFieldByField)
{
    EXPECT_EQ(refusal(ports(R"("vxlan":10,"port":"ge0/2")")), "vxlan_ports[1].port_index: missing");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"port":"ge0/2")")), "vxlan_ports[1].vxlan: missing");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10)")), "vxlan_ports[1].port: missing");
    EXPECT_EQ(refusal(ports(R"("port_index":0,"vxlan":10,"port":"ge0/2")")),
              "vxlan_ports[1].port_index: 0 is out of range 1..65535");
    EXPECT_EQ(refusal(ports(R"("port_index":65536,"vxlan":10,"port":"ge0/2")")),
              "vxlan_ports[1].port_index: 65536 is out of range 1..65535");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":16777216,"port":"ge0/2")")),
              "vxlan_ports[1].vxlan: 16777216 is out of range 1..16777215");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":0,"port":"ge0/2")")),
              "vxlan_ports[1].vxlan: 0 is out of range 1..16777215");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10,"port":"ge0/2","svlan":4095)")),
              "vxlan_ports[1].svlan: 4095 is out of range 0..4094");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10,"port":"ge0/2","cvlan":-1)")),
              "vxlan_ports[1].cvlan: -1 is out of range 0..4094");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10,"port":"ge0/2","cvlan":"20")")),
              "vxlan_ports[1].cvlan: \"20\" is not a number");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10,"port":7)")), "vxlan_ports[1].port: 7 is not a text");
    EXPECT_EQ(refusal(ports(R"("port_index":2,"vxlan":10,"port":"ge0/99")")),
              "vxlan_ports[1].port: \"ge0/99\" is no interface of the switch");
    EXPECT_EQ(refusal(R"({"vxlan_ports":{}})"), "vxlan_ports: not a list");
    // The first entry was good each time: none of it was taken.
    EXPECT_TRUE(ndplat::vxports().empty());
}

TEST_F(SeedTest, VxlanPortsAreSeedPortsThatNeverHideAConfiguredOne)
{
    ndplat::Vxport configured;
    configured.portId = ndplat::port_id("ge0/9");
    configured.vxlan = 20;
    ASSERT_TRUE(ndplat::vxport_set(1, configured));
    EXPECT_EQ(refusal(R"({"vxlan_ports":[{"port_index":1,"vxlan":10,"port":"gigabitethernet0/1","svlan":10,"cvlan":20},)"
                      R"({"port_index":2,"vxlan":10,"port":"ag3","cvlan":20},)"
                      R"({"port_index":65535,"vxlan":16777215,"port":"GE0/24","svlan":4094}]})"),
              "taken");
    auto seeded = [](const char *name, uint16_t svlan, uint16_t cvlan, uint32_t vxlan) {
        ndplat::Vxport p;
        p.portId = ndplat::port_id(name);
        p.svlan = svlan;
        p.cvlan = cvlan;
        p.vxlan = vxlan;
        p.origin = ndplat::VxportOrigin::Seed;
        return p;
    };
    EXPECT_EQ(ndplat::vxports(), (std::map<uint32_t, ndplat::Vxport>{{1, configured},
                                                                      {2, seeded("ag3", 0, 20, 10)},
                                                                      {65535, seeded("ge0/24", 4094, 0, 16777215)}}));
    EXPECT_EQ(ndplat::vxports(ndplat::VxportOrigin::Seed).at(1), seeded("gigabitethernet0/1", 10, 20, 10));
}

// A scratch state directory, removed on every path.
class ScratchDir {
public:
    ScratchDir()
    {
        char pattern[] = "/tmp/ndseed.XXXXXX";
        const char *made = mkdtemp(pattern);
        path_ = made ? made : "";
    }
    ~ScratchDir()
    {
        if (!path_.empty())
            std::filesystem::remove_all(path_);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

struct ProcessRun {
    int status = -1;
    std::string err;
};

// Runs ndsvc on a seed of this text; it must end by itself.
ProcessRun runNdsvc(const ScratchDir &dir, const std::string &seedText)
{
    const std::string seed = dir.path() + "/seed.json";
    std::ofstream(seed) << seedText;
    const std::string errFile = dir.path() + "/stderr";
    const std::string command = "timeout 20 " + ndplat::service_executable() + " --state " + dir.path() +
                                " --seed " + seed + " 2>" + errFile;
    ProcessRun run;
    const int raw = std::system(command.c_str());
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream in(errFile);
    std::stringstream text;
    text << in.rdbuf();
    run.err = text.str();
    return run;
}

TEST(SeedProcessTest, NdsvcRefusesABadSeedWithTheFieldAndDoesNotStart)
{
    ScratchDir dir;
    ASSERT_FALSE(dir.path().empty());
    ProcessRun run = runNdsvc(dir, R"({"prefixes":[{"prefix":"2001:db8:1::","length":4000000000}]})");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "ndsvc: seed " + dir.path() + "/seed.json: prefixes[0].length: 4000000000 is out of range 0..128\n");
    EXPECT_FALSE(std::filesystem::exists(ndplat::service_socket_path(dir.path())));
    EXPECT_FALSE(std::filesystem::exists(ndplat::service_pid_path(dir.path())));

    run = runNdsvc(dir, std::string(R"({"dynamic_user_binds":[{)") + kBind + R"(,"count":4294967295}]})");
    EXPECT_EQ(run.status, 1) << "no bad_alloc abort";
    EXPECT_EQ(run.err, "ndsvc: seed " + dir.path() +
                           "/seed.json: dynamic_user_binds[0].count: 4294967295 is out of range 1..65535\n");
    EXPECT_FALSE(std::filesystem::exists(ndplat::service_socket_path(dir.path())));

    run = runNdsvc(dir, R"({"vxlan_ports":[{"port_index":1,"vxlan":10,"port":"ge0/1","svlan":4095}]})");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "ndsvc: seed " + dir.path() + "/seed.json: vxlan_ports[0].svlan: 4095 is out of range 0..4094\n");
    EXPECT_FALSE(std::filesystem::exists(dir.path() + "/" + ndplat::kVxportDb + ".db"));
}

} // namespace
