// Crash consistency: a configuration script typed at the shell, the shell or the ND service
// killed with SIGKILL at a random point of it, and after a restart everything that was
// acknowledged before the kill is in the running configuration and every database passes
// SQLite's integrity check.
#include <gtest/gtest.h>

#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ndsh_support.h"

using namespace ndshtest;

#ifdef NDSH_WITH_SERVICE

namespace {

constexpr int kIterations = 50;
constexpr int kSteps = 24;

// One step of the script: the lines typed (the last one leaves the mode again) and the text the
// running configuration shows once the step was acknowledged.
struct Step {
    std::vector<std::string> lines;
    std::string shown;
};

Step make_step(std::mt19937 &rng, int index)
{
    int number = 100 + index;
    std::string n = std::to_string(number);
    switch (rng() % 4) {
    case 0:
        return {{"vlan " + n, "nd snooping enable", "exit"}, "\nvlan " + n + "\n nd snooping enable\n!"};
    case 1:
        return {{"interface vlan " + n, "nd proxy enable", "exit"}, "\ninterface vlan " + n + "\n nd proxy enable\n!"};
    case 2:
        return {{"interface loopback " + n, "exit"}, "\ninterface loopback " + n + "\n!"};
    default:
        return {{"vlan " + n, "exit"}, "\nvlan " + n + "\n!"};
    }
}

std::string integrity(const std::string &path)
{
    if (access(path.c_str(), F_OK) != 0)
        return "ok";
    sqlite3 *db = nullptr;
    std::string verdict = "cannot open";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_stmt *s = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr) == SQLITE_OK &&
            sqlite3_step(s) == SQLITE_ROW)
            verdict = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
        else
            verdict = sqlite3_errmsg(db);
        sqlite3_finalize(s);
    }
    sqlite3_close(db);
    return verdict;
}

} // namespace

TEST(NdshCrash, SigkillOfShellOrServiceAtARandomPointLosesNothingAcknowledged)
{
    for (int iteration = 0; iteration < kIterations; ++iteration) {
        SCOPED_TRACE("iteration " + std::to_string(iteration));
        std::mt19937 rng(static_cast<unsigned>(iteration) * 7919u + 1u);
        bool killService = iteration % 2 == 1;
        int killAt = static_cast<int>(rng() % kSteps);
        std::vector<Step> steps;
        for (int i = 0; i < kSteps; ++i)
            steps.push_back(make_step(rng, i));

        StateDir state;
        std::vector<std::string> acknowledged;
        {
            Pty pty(state, {});
            ASSERT_TRUE(pty.expect("switch#"));
            ASSERT_TRUE(pty.command("configure terminal", "switch(config)#"));
            ASSERT_TRUE(pty.command("nd snooping enable", "switch(config)#"));
            acknowledged.push_back("\nnd snooping enable\n");
            for (int i = 0; i < kSteps; ++i) {
                const Step &step = steps[static_cast<size_t>(i)];
                bool ok = true;
                size_t line = 0;
                // The kill lands inside a step: after one of its lines was sent, a random few
                // hundred microseconds later, whether or not that line has finished.
                size_t killLine = i == killAt ? rng() % step.lines.size() : step.lines.size();
                for (; line < step.lines.size(); ++line) {
                    size_t before = pty.all().size();
                    pty.send(step.lines[line] + "\r");
                    if (line == killLine)
                        break;
                    bool last = line + 1 == step.lines.size();
                    ASSERT_TRUE(pty.expect(last ? "switch(config)#" : ")#")) << pty.all();
                    ok = ok && pty.all().find('%', before) == std::string::npos;
                }
                if (line == killLine) {
                    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 3000));
                    if (killService) {
                        long pid = service_pid(state);
                        ASSERT_GT(pid, 0);
                        kill(static_cast<pid_t>(pid), SIGKILL);
                    }
                    break; // the shell is killed when the terminal goes (SIGKILL)
                }
                if (ok)
                    acknowledged.push_back(step.shown);
            }
        }
        // A killed service is gone before the restart. A killed shell leaves the service
        // running: the next shell uses it.
        for (int wait = 0; killService && wait < 500 && access(state.file("ndsvc.pid").c_str(), F_OK) == 0; ++wait) {
            long pid = service_pid(state);
            if (pid <= 0 || !process_alive(pid))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }

        Result after = ndsh(state, {"-c", "show running-config"});
        ASSERT_EQ(after.status, 0) << after.out << after.err;
        for (const std::string &shown : acknowledged)
            EXPECT_NE(after.out.find(shown), std::string::npos) << "lost:" << shown << "\nin:\n" << after.out;
        for (const char *db : {"ec_nd.db", "ndsh_inventory.db", "ec_nd_host_issu.db"})
            EXPECT_EQ(integrity(state.file(db)), "ok") << db;
    }
}

#endif
