#include "bench_rows.h"

#include <algorithm>

namespace ndbench {

namespace {

constexpr uint32_t kSmallDivisor = 100;

std::vector<Row> makeRows(const Sizes &sizes)
{
    const uint32_t fileLines = 3 * sizes.vlans + 3;
    const std::string injected = "`nd mpos suppress ... " + std::to_string(sizes.injected) + "`: ";
    const std::string configuration = "full running configuration (" + withThousands(sizes.vlans) + " VLANs, " +
                                      withThousands(sizes.staticBinds) + " binds, " + withThousands(sizes.vxlans) +
                                      " VXLANs)";
    const std::string dbm = "opening and closing \"ec_nd\" once (`DBM_Open` + `DBM_Close`, mean of " +
                            withThousands(sizes.dbmPairs) + ")";
    const std::string memory = "ND service memory (VmRSS of ndsvc), " + withThousands(sizes.dynamicBinds) +
                               " bindings and " + withThousands(sizes.vxlanHosts) + " hosts";
    return {
        {"user-bind", "`show nd snooping user-bind dynamic`, " + withThousands(sizes.dynamicBinds) + " rows, wall", 100, "ms"},
        {"hosts", "`show ipv6 nd host vxlan`, " + withThousands(sizes.vxlanHosts) + " hosts, wall", 120, "ms"},
        {"inject", injected + "the command", 300, "ms"},
        {"inject", injected + "all hosts held by the service", 600, "ms"},
        {"running-config", configuration, 60, "ms"},
        {"dbm", dbm, 20, "µs"},
        {"ndsh-f", "configuration through `ndsh -f`, " + withThousands(fileLines) + " lines", 1.5, "s"},
        {"startup", "`ndsh` start to prompt, " + withThousands(sizes.vlans) + " VLANs in the inventory", 10, "ms"},
        {"memory", memory, 64, "MiB"},
    };
}

} // namespace

const std::vector<std::string> kRowKeys = {"user-bind", "hosts", "inject", "running-config", "dbm", "ndsh-f", "startup",
                                           "memory"};

Sizes smallSizes()
{
    Sizes s;
    for (uint32_t *v : {&s.dynamicBinds, &s.vxlanHosts, &s.injected, &s.vlans, &s.staticBinds, &s.vxlans,
                        &s.dbmPairs})
        *v = std::max<uint32_t>(1, *v / kSmallDivisor);
    return s;
}

Bench::Bench(const Sizes &s, int r, std::vector<std::string> chosen)
    : sizes(s), runs(r), only(std::move(chosen)), rows(makeRows(s))
{
}

bool Bench::want(RowId id) const
{
    return only.empty() || std::find(only.begin(), only.end(), rows[id].key) != only.end();
}

std::vector<bool> Bench::shown() const
{
    std::vector<bool> out;
    for (size_t i = 0; i < rows.size(); ++i)
        out.push_back(want(static_cast<RowId>(i)));
    return out;
}

} // namespace ndbench
