// What the ND command table must register: the positions of the rows of this area, the
// definitions that are fixed word for word, and the output-modifier subtree built here from
// its description, independently of the plug-in's text.
#ifndef ND_TEST_CMD_ROWS_H
#define ND_TEST_CMD_ROWS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ndplat.h"

namespace ndtest {

// Rows 1-10, 32-40 and 44-46 of the table of 46; the snooping rows 11-31 and the diagnose
// rows 41-43 are registered in between by their own areas.
inline std::vector<int> ownRows()
{
    std::vector<int> rows;
    for (int n = 1; n <= 10; ++n)
        rows.push_back(n);
    for (int n = 32; n <= 40; ++n)
        rows.push_back(n);
    for (int n = 44; n <= 46; ++n)
        rows.push_back(n);
    return rows;
}

constexpr int kSnoopingRows = 21; // rows 11-31
constexpr int kDiagnoseRows = 3;  // rows 41-43

struct QuotedRow {
    int number;
    const char *definition;
};

inline const std::vector<QuotedRow> &quotedRows()
{
    static const std::vector<QuotedRow> rows = {
        {1, "nd(IF|PORTIF,0,'Neighbor discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){enable(IF|PORTIF,0,'Normal nd proxy')}}"},
        {3, "ipv6(IF|MIF|PORTIF,0,HIDE,''){nd(IF|MIF|PORTIF,0,HIDE,''){proxy(IF|MIF|PORTIF,0,HIDE,'Normal nd proxy')}}"},
        {5, "ipv6(IF|PORTIF,0,'Command ipv6'){nd(IF|PORTIF,0,'Neighbor Discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){anyway(IF|PORTIF, 0, 'Nd proxy anyway on this interface'){enable(IF|PORTIF, 0, 'Enable nd proxy anyway')}}}}"},
        {7, "nd(SUPERVLAN,0,'Neighbor discovery'){local-proxy(SUPERVLAN,0,'Normal nd local proxy'){enable(SUPERVLAN,0,'Normal nd local proxy')}}"},
        {9, "nd(CONF,0,'Neighbor discovery'){fast-response(CONF,0,'Nd packet fast-response')}"},
        {32, "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){proxy(EN, 0, 'Nd proxy'){address(EN, 0, 'Ipv6 address')}}}"},
        {35, "debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd serve debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}"},
        {36, "no(CONF, 0, ''){debug(EN, 0, ''){nd(EN, 0, 'Neighbor discovery debug'){config(EN, 0, 'Nd config debug'),event(EN, 0, 'Nd event debug'),forward(EN, 0, 'Nd forward debug'),packet(EN, 0, 'Nd packet debug'),serve(EN, 0, 'Nd show debug'),error(EN, 0, 'Nd error debug'),all(EN, 0, 'Nd all debug')}}}"},
        {44, "show(EN, 0, ''){nd(EN, 0, 'Neighbor discovery'){mlag(EN, 0, HIDE, ' '){pts-list(EN, 0, ' '),cache-list(EN, 0, ' '),statistic(EN,0,' ')}}}"},
    };
    return rows;
}

// The output modifiers: "|" with begin, include (context or a line), exclude and redirect
// (file, ftp, vrf), the nodes below "|" in mode `inner`.
inline std::string outputModifiers(const std::string &inner)
{
    auto node = [&](const std::string &word, const std::string &help) {
        return word + "(" + inner + ",0,'" + help + "')";
    };
    const std::string line = node("_LINE_", "Regular Expression");
    const std::string ftpChain = node("_WORD_", "Host name or ip address") + "{" + node("_WORD_", "User name") + "{" +
                                 node("_PASSWORD_", "User password") + "{" + node("_WORD_", "Destination file name") +
                                 "}}}";
    return "|(EN,0,'Output modifiers'){" +
           node("begin", "Begin with the line that matches") + "{" + line + "}," +
           node("include", "Include lines that match") + "{" +
               node("context", "Include two line before and after the match line") + "{" + line + "}," + line + "}," +
           node("exclude", "Exclude lines that match") + "{" + line + "}," +
           node("redirect", "Redirect output to other resource") + "{" +
               node("file", "Output to file") + "{" + node("_WORD_", "Destination file name,such as \"/flash/test\"") + "}," +
               node("ftp", "Output by FTP") + "{" + ftpChain + "}," +
               node("vrf", "Select VPN routing instance") + "{" +
                   node("_WORD_", "VPN Routing/Forwarding instance name") + "{" + ftpChain + "}}}}";
}

// Index in the registrations of row `number`, given which other areas have registered.
inline size_t expectedIndex(int number, bool withSnooping, bool withDiagnose)
{
    int index = number - 1;
    if (number > 31 && !withSnooping)
        index -= kSnoopingRows;
    if (number > 43 && !withDiagnose)
        index -= kDiagnoseRows;
    return static_cast<size_t>(index);
}

// Which other areas' rows are present, judged from where the fixed rows 32 and 44 stand.
struct TableShape {
    bool ok;
    bool withSnooping;
    bool withDiagnose;
};
inline TableShape tableShape(const std::vector<ndplat::CmdRegistration> &regs)
{
    auto indexOf = [&](int number) {
        for (const QuotedRow &q : quotedRows())
            if (q.number == number)
                for (size_t i = 0; i < regs.size(); ++i)
                    if (regs[i].definition == q.definition)
                        return static_cast<long>(i);
        return -1L;
    };
    const long at32 = indexOf(32);
    const long at44 = indexOf(44);
    const bool snooping = at32 == 31;
    const bool diagnose = at44 - at32 == 12;
    const bool ok = (at32 == 10 || at32 == 31) && (at44 - at32 == 9 || at44 - at32 == 12);
    return TableShape{ok, snooping, diagnose};
}

// The registration of row `number` out of the ND table's registrations.
inline const ndplat::CmdRegistration *row(const std::vector<ndplat::CmdRegistration> &regs, int number)
{
    TableShape shape = tableShape(regs);
    if (!shape.ok)
        return nullptr;
    size_t index = expectedIndex(number, shape.withSnooping, shape.withDiagnose);
    return index < regs.size() ? &regs[index] : nullptr;
}

} // namespace ndtest

#endif
