// The session cache used from several threads at once: threads that pull, look up and free
// display sessions while another thread delivers the shell's end-of-display events. Built
// with ThreadSanitizer by the tsan preset.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "../database/dbm_fixture.h"
#include "dbm/nd_cli_dbm_internal.h"
#include "dbm_cache_scope.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

constexpr uint32_t kVlans = 64;
constexpr uint32_t kSessions = 6;
constexpr int kWorkers = 4;
constexpr int kRounds = 150;

class DbmCacheThreadsTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        dbmcache::drop();
        EXPECT_EQ(ndplat::dbm_open_handles(), 0);
        ndtest::PlatformTest::TearDown();
    }
};

TEST_F(DbmCacheThreadsTest, PullLookupAndFreeRaceWithEndOfDisplayEvents)
{
    ASSERT_EQ(ndplat::dbm_storage(), ndplat::DbmStorage::Memory);
    {
        Writer w;
        for (uint32_t v = 1; v <= kVlans; ++v)
            w.put("vlan " + std::to_string(v), 6, Record(56).u16(12, static_cast<uint16_t>(v)).u32(52, v * 7));
    }
    // The first initialisation is not made for two first pulls at once: it happens here.
    ASSERT_EQ(nd_CliDbmSessPull(1000, 6), 0);

    std::atomic<bool> stop{false};
    std::atomic<int> badCopies{0};
    std::atomic<int> fullHits{0};
    std::atomic<int> badResults{0};

    auto worker = [&](int index) {
        for (int round = 0; round < kRounds; ++round) {
            uint32_t session = static_cast<uint32_t>((index + round) % kSessions);
            if (nd_CliDbmSessPull(session, 6) != 0)
                ++badResults;
            for (uint32_t v = 1; v <= kVlans; v += 9) {
                std::string key = "vlan " + std::to_string(v);
                uint8_t buf[56];
                memset(buf, 0xEE, sizeof buf);
                int32_t n = nd_CliDbmGetUniqueBinary(session, 6, key.data(), static_cast<uint16_t>(key.size()), buf,
                                                     sizeof buf);
                if (n == 0)
                    continue; // freed by an event in between
                if (n != 56) {
                    ++badResults;
                    continue;
                }
                uint16_t vlan;
                uint32_t check;
                memcpy(&vlan, buf + 12, 2);
                memcpy(&check, buf + 52, 4);
                if (vlan != v || check != v * 7)
                    ++badCopies;
                else
                    ++fullHits;
            }
            if (round % 5 == index % 5 && nd_CliDbmSessFree(session, 6) != 0)
                ++badResults;
        }
    };
    std::thread events([&] {
        uint32_t session = 0;
        while (!stop.load()) {
            ndCliEvtShellCb(23, 8, 0, session);
            ndCliEvtShellCb(23, 7, 0, session); // not an end of display
            session = (session + 1) % kSessions;
            std::this_thread::yield();
        }
    });
    std::thread diagnose([&] {
        while (!stop.load()) {
            ndtest::Stdout quiet;
            if (nd_CliDbmDiagnoseShow() != 0)
                ++badResults;
        }
    });
    std::vector<std::thread> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.emplace_back(worker, i);
    for (std::thread &t : workers)
        t.join();
    stop = true;
    events.join();
    diagnose.join();

    EXPECT_EQ(badCopies.load(), 0);
    EXPECT_EQ(badResults.load(), 0);
    EXPECT_GT(fullHits.load(), 0);
    for (uint32_t s = 0; s < kSessions; ++s)
        EXPECT_EQ(nd_CliDbmSessFree(s, 6), 0);
    uint8_t buf[56];
    EXPECT_EQ(nd_CliDbmGetUniqueBinary(1000, 6, "vlan 1", 6, buf, 56), 56) << "an untouched session stays whole";
}

} // namespace
