// The benchmark's table: its rows with their samples, the figures as printed, the machine line
// before the table and the Markdown table with its notes after the runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ndbench {

struct Row {
    Row(std::string k, std::string m, double g, std::string u)
        : key(std::move(k)), measure(std::move(m)), goal(g), unit(std::move(u))
    {
    }
    std::string key; // its name for --only
    std::string measure;
    double goal = 0;
    std::string unit;
    std::vector<double> samples;
    std::string failure; // the first reason a run produced no number
    void fail(const std::string &why)
    {
        if (failure.empty())
            failure = why;
    }
    // A run's figure when it produced one (ok), else the reason it did not.
    void record(bool ok, double value, const std::string &why)
    {
        if (ok)
            samples.push_back(value);
        else
            fail(why);
    }
};

std::string withThousands(uint64_t n);
double median(std::vector<double> values); // 0 for none
// A figure as printed: two decimals below 10, one below 100, none above.
std::string figure(double v);

std::string loadAverage();
// The line naming the machine, printed (and flushed) before any run.
void printMachineLine();

// The table of the rows shown, then the notes (each row's failure reason appended), then the
// load average at the end. True when every row shown produced a figure in every run.
bool printTable(const std::vector<Row> &rows, const std::vector<bool> &shown, std::vector<std::string> notes);

} // namespace ndbench
