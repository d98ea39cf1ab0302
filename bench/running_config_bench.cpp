// The running configuration of 4,094 VLANs, every one with ND snooping enabled, printed
// through the VLAN handler on the SQLite database: once during a running-configuration
// display (cached path, one database open per display) and once without (direct path, one
// open per VLAN). Also the throughput of gnl_hash_value.
//
//   nd_bench_running_config [repetitions]
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "dbm/nd_cli_dbm_internal.h"
#include "ndplat.h"
#include "ndplat_dbm.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kVlanCount = 4094;
constexpr uint32_t kNoSession = 0xFFFFFFFFu;
constexpr uint32_t kSession = 4711;

double seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

bool writeVlans()
{
    const uint32_t params[7] = {1, 1, 256, 0, 0, 0, 0};
    DBM_HANDLE h = nullptr;
    if (DBM_Open("ec_nd", 1, params, 0, 0, &h) != 0)
        return false;
    bool ok = true;
    for (uint32_t v = 1; v <= kVlanCount; ++v) {
        uint8_t record[56] = {};
        uint16_t vlan = static_cast<uint16_t>(v);
        memcpy(record + 12, &vlan, 2);
        char key[32];
        snprintf(key, sizeof key, "vlan %u", v);
        ok = ok && DBM_SetUniqueBinary(h, key, static_cast<uint16_t>(strlen(key)), 6, record, 56, 0) == 0;
    }
    DBM_Close(h);
    return ok;
}

// One display of every VLAN's section; returns the lines printed (counted from the output).
struct Display {
    double seconds;
    size_t opens;
    size_t lines;
};

Display display(bool cached, const std::string &outPath)
{
    int fd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ndplat::trace_clear();
    ndplat::running_cfg_session_set(cached ? kSession : kNoSession);
    Clock::time_point start = Clock::now();
    for (uint32_t v = 1; v <= kVlanCount; ++v)
        ndVlanIfScriptHandler(fd, 0, v, 0);
    if (cached)
        ndCliEvtShellCb(23, 8, 0, kSession);
    Clock::time_point end = Clock::now();
    close(fd);
    Display d{seconds(end - start), ndplat::trace_of("DBM_Open").size(), 0};
    FILE *f = fopen(outPath.c_str(), "r");
    char line[128];
    while (f && fgets(line, sizeof line, f))
        if (strcmp(line, " nd snooping enable\n") == 0 || strcmp(line, " nd snooping enable") == 0)
            ++d.lines;
    if (f)
        fclose(f);
    ndplat::trace_clear();
    return d;
}

double hashThroughput(size_t keySize, size_t totalBytes)
{
    std::vector<uint8_t> key(keySize);
    for (size_t i = 0; i < keySize; ++i)
        key[i] = static_cast<uint8_t>(i * 31 + 7);
    size_t rounds = totalBytes / keySize;
    volatile uint32_t sink = 0;
    Clock::time_point start = Clock::now();
    for (size_t r = 0; r < rounds; ++r) {
        key[0] = static_cast<uint8_t>(r);
        sink = sink + gnl_hash_value(key.data(), static_cast<uint32_t>(keySize), 0);
    }
    double s = seconds(Clock::now() - start);
    return static_cast<double>(rounds * keySize) / s;
}

} // namespace

int main(int argc, char **argv)
{
    int repetitions = argc > 1 ? atoi(argv[1]) : 5;
    if (repetitions < 1)
        repetitions = 1;
    char dir[] = "/tmp/nd-bench-XXXXXX";
    if (!mkdtemp(dir) || !ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite)) {
        fprintf(stderr, "no SQLite storage\n");
        return 1;
    }
    ndplat::dbm_state_dir_set(dir);
    if (!writeVlans()) {
        fprintf(stderr, "writing the VLAN records failed\n");
        return 1;
    }
    std::string out = std::string(dir) + "/out.txt";

    std::vector<double> direct, cached;
    bool ok = true;
    for (int r = 0; r < repetitions; ++r) {
        Display d = display(false, out);
        Display c = display(true, out);
        direct.push_back(d.seconds);
        cached.push_back(c.seconds);
        if (d.lines != kVlanCount || c.lines != kVlanCount || d.opens != kVlanCount || c.opens != 1) {
            fprintf(stderr, "unexpected: direct %zu lines %zu opens, cached %zu lines %zu opens\n", d.lines, d.opens,
                    c.lines, c.opens);
            ok = false;
        }
    }
    double md = median(direct), mc = median(cached);
    printf("running configuration of %u VLANs with snooping enabled, SQLite, median of %d\n", kVlanCount,
           repetitions);
    printf("  direct path (one open per VLAN):      %8.2f ms  (%u opens)\n", md * 1e3, kVlanCount);
    printf("  cached path (one open per display):   %8.2f ms  (1 open)\n", mc * 1e3);
    printf("  ratio direct / cached:                %8.1f\n", md / mc);
    printf("gnl_hash_value throughput\n");
    printf("  9-byte keys (\"vlan 1234\"):            %8.1f MB/s\n", hashThroughput(9, 64u << 20) / 1e6);
    printf("  64-byte keys:                         %8.1f MB/s\n", hashThroughput(64, 256u << 20) / 1e6);
    printf("  64 KiB keys:                          %8.1f MB/s\n", hashThroughput(65536, 512u << 20) / 1e6);

    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return ok ? 0 : 1;
}
