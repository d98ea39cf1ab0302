// First-come-first-served learning of ND snooping: claims, defences, promotion after the
// detection time, the ceiling, static bindings and detection probes, on a clock the test moves.
#include <gtest/gtest.h>

#include "snoop_bindings.h"

namespace {

using ndsvc::Address6;
using ndsvc::Mac48;
using ndsvc::SnoopBindingEntry;
using ndsvc::SnoopBindingTable;
using Claim = SnoopBindingTable::Claim;
using State = SnoopBindingEntry::State;
using std::chrono::milliseconds;
using std::chrono::seconds;

Address6 addr(uint8_t last)
{
    return Address6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

Mac48 mac(uint8_t last)
{
    return Mac48{0x02, 0, 0, 0, 0, last};
}

const ndsvc::SnoopClock::time_point t0{};

TEST(SnoopBindings, AnUndefendedClaimBecomesValidAfterTheDetectionTime)
{
    SnoopBindingTable table(10);
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
    ASSERT_NE(table.find(addr(1), 10), nullptr);
    EXPECT_EQ(table.find(addr(1), 10)->state, State::Tentative);
    EXPECT_TRUE(table.promote(t0 + milliseconds(999)).empty());
    std::vector<SnoopBindingEntry> promoted = table.promote(t0 + seconds(1));
    ASSERT_EQ(promoted.size(), 1u);
    EXPECT_EQ(promoted[0].address, addr(1));
    EXPECT_EQ(promoted[0].mac, mac(1));
    EXPECT_EQ(promoted[0].vlan, 10);
    EXPECT_EQ(promoted[0].port, "ge0-1");
    EXPECT_EQ(table.find(addr(1), 10)->state, State::Valid);
    EXPECT_TRUE(table.promote(t0 + seconds(5)).empty()) << "promoted once";
}

TEST(SnoopBindings, ADefenceByAnotherHostEndsTheClaim)
{
    SnoopBindingTable table(10);
    ASSERT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
    EXPECT_FALSE(table.advertised(addr(1), mac(1), 10, "ge0-1")) << "the claimant's own NA defends nothing";
    EXPECT_TRUE(table.advertised(addr(1), mac(2), 10, "ge0-2"));
    EXPECT_EQ(table.find(addr(1), 10), nullptr);
    EXPECT_TRUE(table.promote(t0 + seconds(2)).empty());
    EXPECT_EQ(table.learned_count(), 0u);
}

TEST(SnoopBindings, FirstComeFirstServedAcrossPortsAndMacsAndPerVlan)
{
    SnoopBindingTable table(10);
    ASSERT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
    table.promote(t0 + seconds(1));
    EXPECT_EQ(table.claim(addr(1), mac(2), 10, "ge0-2", t0 + seconds(2)), Claim::Owned);
    EXPECT_EQ(table.claim(addr(1), mac(2), 10, "ge0-1", t0 + seconds(2)), Claim::Owned) << "another MAC";
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-2", t0 + seconds(2)), Claim::Owned) << "another port";
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0 + seconds(2)), Claim::Same);
    EXPECT_EQ(table.find(addr(1), 10)->port, "ge0-1");
    EXPECT_EQ(table.claim(addr(1), mac(2), 20, "ge0-2", t0 + seconds(2)), Claim::Tentative) << "another VLAN";
}

TEST(SnoopBindings, TheCeilingHoldsAgainstAFloodOfClaimsAndFreesWithTheLearned)
{
    SnoopBindingTable table(100);
    size_t refused = 0;
    for (uint32_t i = 0; i < 100000; ++i) {
        Address6 a = addr(0);
        a[12] = static_cast<uint8_t>(i >> 24);
        a[13] = static_cast<uint8_t>(i >> 16);
        a[14] = static_cast<uint8_t>(i >> 8);
        a[15] = static_cast<uint8_t>(i);
        if (table.claim(a, mac(1), 10, "ge0-1", t0) == Claim::Full)
            ++refused;
    }
    EXPECT_EQ(table.learned_count(), 100u);
    EXPECT_EQ(refused, 100000u - 100u);
    EXPECT_TRUE(table.add_static(addr(200), mac(9), 10, "ge0-9")) << "static bindings are outside the ceiling";
    EXPECT_EQ(table.clear_learned(20).size(), 0u);
    EXPECT_EQ(table.clear_learned(10).size(), 100u);
    EXPECT_EQ(table.learned_count(), 0u);
    EXPECT_NE(table.find(addr(200), 10), nullptr) << "clearing keeps the static ones";
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
}

TEST(SnoopBindings, StaticBindingsReplaceLearnedOnesAndCannotBeClaimed)
{
    SnoopBindingTable table(10);
    ASSERT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
    EXPECT_TRUE(table.add_static(addr(1), mac(5), 10, "ge0-5"));
    EXPECT_EQ(table.learned_count(), 0u);
    EXPECT_EQ(table.find(addr(1), 10)->state, State::Static);
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Owned);
    EXPECT_TRUE(table.add_static(addr(1), mac(5), 10, "ge0-5")) << "the same again";
    EXPECT_FALSE(table.add_static(addr(1), mac(6), 10, "ge0-6")) << "statically bound elsewhere";
    EXPECT_TRUE(table.promote(t0 + seconds(9)).empty());
    std::vector<SnoopBindingEntry> expired;
    EXPECT_TRUE(table.probes_due(t0 + seconds(9), seconds(1), 1, expired).empty()) << "never probed";
    EXPECT_TRUE(table.remove_static(addr(1), 10));
    EXPECT_FALSE(table.remove_static(addr(1), 10));
    EXPECT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
}

TEST(SnoopBindings, DetectionForgetsAGoneHostWithinRetransmitTimesIntervalPlusTheAnswerTime)
{
    SnoopBindingTable table(10);
    ASSERT_EQ(table.claim(addr(1), mac(1), 10, "ge0-1", t0), Claim::Tentative);
    ndsvc::SnoopClock::time_point valid = t0 + seconds(1);
    ASSERT_EQ(table.promote(valid).size(), 1u);
    const auto interval = seconds(10);
    const uint32_t retransmit = 3;
    std::vector<SnoopBindingEntry> expired;

    // Answered: the count of unanswered probes starts again.
    ndsvc::SnoopClock::time_point t = valid + SnoopBindingTable::kFirstProbeAfter;
    ASSERT_EQ(table.probes_due(t, interval, retransmit, expired).size(), 1u);
    EXPECT_EQ(table.find(addr(1), 10)->unanswered, 1u);
    EXPECT_FALSE(table.advertised(addr(1), mac(1), 10, "ge0-1"));
    EXPECT_EQ(table.find(addr(1), 10)->unanswered, 0u);
    EXPECT_TRUE(table.probes_due(t + interval - milliseconds(1), interval, retransmit, expired).empty());

    // Then the host is gone: three probes, the answer time, and the binding is forgotten.
    ndsvc::SnoopClock::time_point gone = t;
    size_t probes = 0;
    ndsvc::SnoopClock::time_point now = gone;
    while (expired.empty() && now < gone + seconds(60)) {
        now += milliseconds(100);
        probes += table.probes_due(now, interval, retransmit, expired).size();
    }
    ASSERT_EQ(expired.size(), 1u);
    EXPECT_EQ(probes, 3u);
    EXPECT_EQ(expired[0].address, addr(1));
    EXPECT_LE(now - gone, retransmit * interval + SnoopBindingTable::kAnswerTime);
    EXPECT_GE(now - gone, retransmit * interval);
    EXPECT_EQ(table.find(addr(1), 10), nullptr);
    EXPECT_EQ(table.learned_count(), 0u);
}

} // namespace
