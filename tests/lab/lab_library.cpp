// The library as the shell uses it: a Lab object owns its lab and removes it when it ends,
// the port moves and addresses go through it, and what it reports matches the kernel.
#include "lab_support.h"

namespace labtest {
namespace {

TEST_F(LabTest, ALabObjectRemovesItsLabWhenItEndsUnlessReleased)
{
    // A name of its own, beside the fixture's.
    const std::string other = name() + "-lib";
    ndlab::Lab fallback = std::move(ndlab::Lab::adopt(other).value());
    std::vector<std::string> told;
    {
        ndlab::Result<ndlab::Lab> lab = ndlab::Lab::create(other, 2, [&](const std::string &line) { told.push_back(line); });
        ASSERT_TRUE(lab.ok()) << lab.message();
        EXPECT_EQ(told, (std::vector<std::string>{"namespace " + ndlab::switch_namespace(other), "bridge vlan1",
                                                  "namespace " + ndlab::host_namespace(other, 1),
                                                  "port ge0-1 <-> " + ndlab::host_namespace(other, 1) + " eth0 in vlan1",
                                                  "namespace " + ndlab::host_namespace(other, 2),
                                                  "port ge0-2 <-> " + ndlab::host_namespace(other, 2) + " eth0 in vlan1"}));
        EXPECT_EQ(lab.value().name(), other);
        ASSERT_TRUE(lab.value().set_port_vlan(2, 4094).ok());
        ASSERT_TRUE(lab.value().vlan_address(4094, ndlab::AddressChange::add, "2001:db8:ffe::1/64").ok());
        ndlab::Result<ndlab::LabState> state = lab.value().inspect();
        ASSERT_TRUE(state.ok()) << state.message();
        ASSERT_EQ(state.value().ports.size(), 2u);
        EXPECT_EQ(state.value().ports[0].vlan, 1);
        EXPECT_EQ(state.value().ports[1].vlan, 4094);
        EXPECT_EQ(state.value().ports[1].host, ndlab::host_namespace(other, 2));
        ASSERT_EQ(state.value().bridges.size(), 2u);
        EXPECT_EQ(state.value().bridges[1].vlan, 4094);
        EXPECT_EQ(state.value().bridges[1].ports, std::vector<int>{2});
        ASSERT_FALSE(state.value().bridges[1].addresses.empty());
        EXPECT_EQ(state.value().bridges[1].addresses[0], "2001:db8:ffe::1/64");
        EXPECT_EQ(namespaces_starting(ndlab::switch_namespace(other)).size(), 1u);

        // Moved into another owner, which removes it at the end of this block.
        ndlab::Lab moved = std::move(lab.value());
        EXPECT_EQ(moved.name(), other);
    }
    EXPECT_EQ(namespaces_starting("ndlab-" + other + "-"), std::vector<std::string>{});

    {
        ndlab::Result<ndlab::Lab> lab = ndlab::Lab::create(other, 1);
        ASSERT_TRUE(lab.ok()) << lab.message();
        EXPECT_EQ(lab.value().release(), other);
    }
    EXPECT_EQ(namespaces_starting("ndlab-" + other + "-"),
              (std::vector<std::string>{ndlab::host_namespace(other, 1), ndlab::switch_namespace(other)}));
    ndlab::Result<int> removed = ndlab::remove(other);
    ASSERT_TRUE(removed.ok()) << removed.message();
    EXPECT_EQ(removed.value(), 2);
    EXPECT_EQ(namespaces_starting("ndlab-" + other + "-"), std::vector<std::string>{});
}

TEST_F(LabTest, TheLibraryAnswersErrorsAsValues)
{
    ndlab::Status noLab = ndlab::set_port_vlan(name(), 1, 2);
    EXPECT_FALSE(noLab.ok());
    EXPECT_EQ(noLab.message(), "no lab " + name() + " (no namespace " + sw() + ")");
    EXPECT_EQ(ndlab::inspect(name()).message(), "no lab " + name() + " (no namespace " + sw() + ")");
    ndlab::Result<int> nothing = ndlab::remove(name());
    ASSERT_TRUE(nothing.ok());
    EXPECT_EQ(nothing.value(), 0);
    EXPECT_EQ(ndlab::Lab::adopt("no/name").message(), "bad lab name 'no/name': use 1 to 24 letters, digits, '_' or '-'");
    EXPECT_EQ(ndlab::namespace_of(name(), "h64").value(), ndlab::host_namespace(name(), 64));
    EXPECT_EQ(ndlab::exec(name(), "sw", {"true"}).message(), "no namespace " + sw() + " in lab " + name());
    EXPECT_EQ(ndlab::set_port_vlan(name(), 65, 1).message(), "no lab " + name() + " (no namespace " + sw() + ")");
    ASSERT_TRUE(ndlab::create(name(), 1).ok());
    EXPECT_EQ(ndlab::set_port_vlan(name(), 65, 1).message(), "bad port number 65: use 1 to 64");
    EXPECT_EQ(ndlab::set_port_vlan(name(), 1, 0).message(), "bad VLAN 0: use 1 to 4094");
    EXPECT_EQ(ndlab::vlan_address(name(), 1, ndlab::AddressChange::add, "::1/200").message(), "bad IPv6 address '::1/200': use ADDR/LEN");
    ndlab::Result<int> status = ndlab::exec(name(), "h1", {"sh", "-c", "kill -TERM $$"});
    ASSERT_TRUE(status.ok()) << status.message();
    EXPECT_EQ(status.value(), 128 + 15);
}

} // namespace
} // namespace labtest
