#include "bench_table.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "bench_common.h"

namespace ndbench {

std::string withThousands(uint64_t n)
{
    std::string digits = std::to_string(n), out;
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i && (digits.size() - i) % 3 == 0)
            out += ',';
        out += digits[i];
    }
    return out;
}

namespace {

// A goal as written: no trailing zeros.
std::string goalText(double v)
{
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

std::string cpuModel()
{
    std::ifstream in("/proc/cpuinfo");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("model name", 0) == 0) {
            size_t colon = line.find(':');
            return colon == std::string::npos ? line : line.substr(colon + 2);
        }
    return "unknown";
}

// One row of the table; its failure, if any, becomes a note.
void printRow(const Row &row, std::vector<std::string> &notes)
{
    std::string goal = "≤ " + goalText(row.goal) + " " + row.unit;
    if (row.samples.empty()) {
        printf("| %s | %s | no figure: %s | | 0 | |\n", row.measure.c_str(), goal.c_str(), row.failure.c_str());
        return;
    }
    std::vector<double> s = row.samples;
    std::sort(s.begin(), s.end());
    double mid = median(s);
    printf("| %s | %s | %s %s | %s..%s | %zu | %.2f |\n", row.measure.c_str(), goal.c_str(), figure(mid).c_str(),
           row.unit.c_str(), figure(s.front()).c_str(), figure(s.back()).c_str(), s.size(), mid / row.goal);
    if (!row.failure.empty())
        notes.push_back("runs without a figure in \"" + row.measure + "\": " + row.failure);
}

} // namespace

std::string figure(double v)
{
    char text[32];
    snprintf(text, sizeof text, v < 10 ? "%.2f" : v < 100 ? "%.1f"
                                                          : "%.0f",
             v);
    return text;
}

std::string loadAverage()
{
    std::string text = readFile("/proc/loadavg");
    std::istringstream in(text);
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

void printMachineLine()
{
    printf("Machine: nproc %u, CPU %s, load average at start %s\n", std::thread::hardware_concurrency(),
           cpuModel().c_str(), loadAverage().c_str());
    fflush(stdout);
}

bool printTable(const std::vector<Row> &rows, const std::vector<bool> &shown, std::vector<std::string> notes)
{
    bool complete = true;
    printf("\n| Measure | Goal | Median | Spread (min..max) | Runs | Median/goal |\n");
    printf("|---|---|---|---|---|---|\n");
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!shown[i])
            continue;
        if (rows[i].samples.empty() || !rows[i].failure.empty())
            complete = false;
        printRow(rows[i], notes);
    }
    printf("\n");
    for (const std::string &note : notes)
        printf("- %s\n", note.c_str());
    printf("- load average at the end: %s\n", loadAverage().c_str());
    return complete;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

} // namespace ndbench
