// What ndlab refuses: malformed names and numbers (usage errors, status 2, nothing made), ports
// and labs that do not exist (status 1), and a create without the rights to make namespaces.
#include "lab_support.h"

namespace labtest {
namespace {

constexpr int kUsageError = 2;

struct Refusal {
    std::vector<std::string> args;
    std::string err;
};

TEST_F(LabTest, MalformedNamesAndNumbersAreRefusedWithTheirReason)
{
    const std::string n = name();
    const std::string tooLong(ndlab::kMaxNameLength + 1, 'a');
    const std::string nameRule = "': use 1 to 24 letters, digits, '_' or '-'\n";
    const std::vector<Refusal> refusals = {
        {{"create", "", "--ports", "1"}, "ndlab: bad lab name '" + nameRule},
        {{"create", tooLong, "--ports", "1"}, "ndlab: bad lab name '" + tooLong + nameRule},
        {{"create", "a/b", "--ports", "1"}, "ndlab: bad lab name 'a/b" + nameRule},
        {{"create", "a.b", "--ports", "1"}, "ndlab: bad lab name 'a.b" + nameRule},
        {{"create", "a b", "--ports", "1"}, "ndlab: bad lab name 'a b" + nameRule},
        {{"delete", "x:y"}, "ndlab: bad lab name 'x:y" + nameRule},
        {{"show", "../x"}, "ndlab: bad lab name '../x" + nameRule},
        {{"create", n, "--ports", "0"}, "ndlab: bad number of ports '0': use 1 to 64\n"},
        {{"create", n, "--ports", "65"}, "ndlab: bad number of ports '65': use 1 to 64\n"},
        {{"create", n, "--ports", "-1"}, "ndlab: bad number of ports '-1': use 1 to 64\n"},
        {{"create", n, "--ports", "3x"}, "ndlab: bad number of ports '3x': use 1 to 64\n"},
        {{"create", n, "--ports", ""}, "ndlab: bad number of ports '': use 1 to 64\n"},
        {{"port", n, "0", "vlan", "1"}, "ndlab: bad port number '0': use 1 to 64\n"},
        {{"port", n, "65", "vlan", "1"}, "ndlab: bad port number '65': use 1 to 64\n"},
        {{"port", n, "1", "vlan", "0"}, "ndlab: bad VLAN '0': use 1 to 4094\n"},
        {{"port", n, "1", "vlan", "4095"}, "ndlab: bad VLAN '4095': use 1 to 4094\n"},
        {{"vlan-address", n, "4095", "add", "2001:db8::1/64"}, "ndlab: bad VLAN '4095': use 1 to 4094\n"},
        {{"vlan-address", n, "10", "add", "2001:db8::1"}, "ndlab: bad IPv6 address '2001:db8::1': use ADDR/LEN\n"},
        {{"vlan-address", n, "10", "add", "2001:db8::1/129"}, "ndlab: bad IPv6 address '2001:db8::1/129': use ADDR/LEN\n"},
        {{"vlan-address", n, "10", "del", "192.0.2.1/24"}, "ndlab: bad IPv6 address '192.0.2.1/24': use ADDR/LEN\n"},
        {{"exec", n, "h0", "--", "true"}, "ndlab: bad namespace 'h0': use sw or h1 to h64\n"},
        {{"exec", n, "h65", "--", "true"}, "ndlab: bad namespace 'h65': use sw or h1 to h64\n"},
        {{"exec", n, "switch", "--", "true"}, "ndlab: bad namespace 'switch': use sw or h1 to h64\n"},
    };
    for (const Refusal &refusal : refusals) {
        Outcome done = ndlab(refusal.args);
        EXPECT_EQ(done.err, refusal.err) << refusal.args[0] << " " << refusal.args[1];
        EXPECT_EQ(done.out, "");
        EXPECT_EQ(done.status, kUsageError) << refusal.err;
    }
    EXPECT_EQ(namespaces_starting("ndlab-" + n + "-"), std::vector<std::string>{});

    // The library says the same, in words without the program's name.
    EXPECT_EQ(ndlab::create(n, 0).message(), "bad number of ports 0: use 1 to 64");
    EXPECT_EQ(ndlab::create(n, 65).message(), "bad number of ports 65: use 1 to 64");
    EXPECT_EQ(ndlab::create("a/b", 1).message(), "bad lab name 'a/b" + nameRule.substr(0, nameRule.size() - 1));
    EXPECT_TRUE(ndlab::check_name(std::string(ndlab::kMaxNameLength, 'a')).ok());
    EXPECT_TRUE(ndlab::check_name("Az09_-").ok());
    EXPECT_EQ(namespaces_starting("ndlab-" + n + "-"), std::vector<std::string>{});
}

TEST_F(LabTest, WrongWordsGiveTheUsage)
{
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {}, {"create", name()}, {"create", name(), "--port", "1"}, {"port", name(), "1", "vlans", "2"},
             {"vlan-address", name(), "1", "set", "2001:db8::1/64"}, {"exec", name(), "h1", "true"}, {"exec", name(), "h1", "--"}}) {
        Outcome done = ndlab(args);
        EXPECT_EQ(done.err.rfind("usage: ndlab create NAME --ports N\n", 0), 0u) << done.err;
        EXPECT_EQ(done.status, kUsageError);
    }
    Outcome unknown = ndlab({"build", name()});
    EXPECT_EQ(unknown.err.rfind("ndlab: unknown command 'build'\nusage: ndlab create NAME --ports N\n", 0), 0u) << unknown.err;
    EXPECT_EQ(unknown.status, kUsageError);
    Outcome help = ndlab({"--help"});
    EXPECT_EQ(help.out.rfind("usage: ndlab create NAME --ports N\n", 0), 0u);
    EXPECT_EQ(help.status, 0);
}

TEST_F(LabTest, PortsAndLabsThatDoNotExistAreRefused)
{
    const std::string noLab = "ndlab: no lab " + name() + " (no namespace " + sw() + ")\n";
    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"port", name(), "1", "vlan", "2"}, {"vlan-address", name(), "2", "add", "2001:db8::1/64"}, {"show", name()}}) {
        Outcome done = ndlab(args);
        EXPECT_EQ(done.err, noLab) << args[0];
        EXPECT_EQ(done.status, 1) << args[0];
    }
    ASSERT_EQ(ndlab({"create", name(), "--ports", "2"}).status, 0);
    Outcome port = ndlab({"port", name(), "3", "vlan", "2"});
    EXPECT_EQ(port.out, "");
    EXPECT_EQ(port.err, "ndlab: lab " + name() + " has no port ge0-3\n");
    EXPECT_EQ(port.status, 1);
    Outcome address = ndlab({"vlan-address", name(), "20", "del", "2001:db8::1/64"});
    EXPECT_EQ(address.err, "ndlab: lab " + name() + " has no bridge vlan20\n");
    EXPECT_EQ(address.status, 1);
    // Nothing was made by the refusals: no bridge for VLAN 2 or 20.
    EXPECT_EQ(ip({"-n", sw(), "-o", "link", "show", "type", "bridge"}).find("vlan2"), std::string::npos);
}

TEST_F(LabTest, WithoutTheRightsCreateSaysSoAndMakesNothing)
{
    Outcome asNobody = ndlab({"create", name(), "--ports", "1"}, {.env = {}, .asNobody = true});
    EXPECT_EQ(asNobody.out, "");
    EXPECT_EQ(asNobody.err, "ndlab: cannot create network namespaces: Operation not permitted (needs root or CAP_SYS_ADMIN)\n");
    EXPECT_EQ(asNobody.status, 1);

    // Root of a user namespace holds CAP_SYS_ADMIN there, yet may not mount over the
    // machine's /run/netns: the refusal comes from `ip netns add` itself.
    Outcome inUserNs = ndlab({"create", name(), "--ports", "1"}, {.env = {}, .asNobody = false, .inUserNamespace = true});
    EXPECT_EQ(inUserNs.out, "");
    const std::string prefix = "ndlab: cannot create network namespaces: ";
    const std::string suffix = ": Operation not permitted (needs root or CAP_SYS_ADMIN)\n";
    EXPECT_EQ(inUserNs.err.rfind(prefix, 0), 0u) << inUserNs.err;
    ASSERT_GE(inUserNs.err.size(), suffix.size());
    EXPECT_EQ(inUserNs.err.substr(inUserNs.err.size() - suffix.size()), suffix) << inUserNs.err;
    EXPECT_EQ(inUserNs.status, 1);
    EXPECT_EQ(namespaces_starting("ndlab-" + name() + "-"), std::vector<std::string>{});
}

} // namespace
} // namespace labtest

namespace labtest {
namespace {

TEST_F(LabTest, AnIpProgramThatCannotRunIsNamed)
{
    const std::string missing = scratch_.path() + "/no-such-ip";
    Outcome made = ndlab({"create", name(), "--ports", "1"}, {.env = {"NDLAB_IP=" + missing}});
    EXPECT_EQ(made.out, "");
    EXPECT_EQ(made.err, "ndlab: cannot list the network namespaces: cannot run " + missing + ": No such file or directory\n");
    EXPECT_EQ(made.status, 1);
    EXPECT_EQ(namespaces_starting("ndlab-" + name() + "-"), std::vector<std::string>{});
}

} // namespace
} // namespace labtest
