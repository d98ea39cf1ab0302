// Hidden diagnose commands. Most diagnose text comes from the ND service: the plug-in asks for a
// dump (command code 29), the service writes "/tmp/.nd_diagnose", and the plug-in pages that
// file to the terminal and deletes it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "diagnose/nd_cli_diagnose.h"
#include "framework/nd_cli_owned.h"
#include "framework/nd_cli_pager.h"
#include "nd_request.h"

namespace {

constexpr int32_t kDispatchWord = 3;

// "show diagnose nd vxlan <id> issu host": the only form of the ISSU listing with an index.
constexpr int32_t kIssuIndexWords = 7;
constexpr int32_t kIssuIndexWord = 4;
constexpr size_t kLineSize = 1024;

// What one diagnose request sends: the kind, chosen by an optional fifth word, and for the
// global form a second value word.
struct DiagnoseRequest {
    uint32_t defaultKind;
    const char *qualifier; // fifth word that selects qualifiedKind; null: none
    int (*compare)(const char *, const char *);
    uint32_t qualifiedKind;
    bool secondValue;
};

// "acl" is matched case-sensitively, "neighbor" without regard to case.
constexpr DiagnoseRequest kGlobal = {ndwire::kDiagnoseGeneral, "acl", strcmp, ndwire::kDiagnoseGlobalAcl, true};
constexpr DiagnoseRequest kStat = {ndwire::kDiagnoseRequests, nullptr, nullptr, ndwire::kDiagnoseRequests, false};
constexpr DiagnoseRequest kInterface = {ndwire::kDiagnoseGeneral, "neighbor", strcasecmp, ndwire::kDiagnoseInterfaces, false};

int32_t sendDiagnose(const DiagnoseRequest &request, int32_t argc, char **argv)
{
    ndcli::Request exchange;
    if (!exchange.start(argc, argv, ND_CMD_DIAGNOSE, ndcli::kInitStatusText))
        return exchange.result();
    uint32_t kind = request.defaultKind;
    const uint32_t second = 0;
    const char *qualifier = argc == 5 ? ndcli::wordAt(argc, argv, 4) : nullptr;
    if (request.qualifier && qualifier && request.compare(qualifier, request.qualifier) == 0)
        kind = request.qualifiedKind;
    exchange.add(ndwire::kItemDiagnoseKind, sizeof kind, &kind, true);
    if (request.secondValue)
        exchange.add(ndwire::kItemVlan, sizeof second, &second, true);
    return exchange.finish();
}

// A missing word compares unequal to everything.
int32_t compareWord(int32_t argc, char **argv, int32_t index, const char *expected)
{
    const char *word = ndcli::wordAt(argc, argv, index);
    return word ? strcasecmp(word, expected) : -1;
}

} // namespace

extern "C" {

ND_CLI_BOUND_HANDLER(ndCliDiagnoseShowGlobal, sendDiagnose, kGlobal)
ND_CLI_BOUND_HANDLER(ndCliDiagnoseShowStat, sendDiagnose, kStat)
ND_CLI_BOUND_HANDLER(ndCliDiagnoseClearStat, sendDiagnose, kStat)
ND_CLI_BOUND_HANDLER(ndCliDiagnoseShowIf, sendDiagnose, kInterface)

int32_t ndCliDiagnoseDump(void)
{
    ndcli::OwnedFile file(__UMV2L_fopen(ndwire::kDiagnoseFile, "r"));
    if (!file.get())
        return 0;
    ndcli::Pager pager;
    printf("\n");
    char line[kLineSize];
    while (__UMV2L_fgets(line, sizeof line, file.get())) {
        printf("%s", line);
        if (pager.quit())
            break;
    }
    // The dump is gone once shown, also when the operator quit the pager early.
    file.close();
    __UMV2L_unlink(ndwire::kDiagnoseFile);
    // Every line has asked the break question already.
    return pager.close(ndcli::Pager::End::FormatOnly);
}

int32_t ndCliDiagnoseShow(int32_t argc, char **argv)
{
    if (compareWord(argc, argv, kDispatchWord, "vxlan") == 0)
        nd_CliVxlanDiagnoseShowVxlan(argc, argv);
    if (compareWord(argc, argv, kDispatchWord, "global") == 0)
        ndCliDiagnoseShowGlobal(argc, argv);
    else if (compareWord(argc, argv, kDispatchWord, "stat") == 0)
        ndCliDiagnoseShowStat(argc, argv);
    else if (compareWord(argc, argv, kDispatchWord, "local-dbm") == 0)
        nd_CliDbmDiagnoseShow();
    else if (compareWord(argc, argv, kDispatchWord, "interface") == 0)
        ndCliDiagnoseShowIf(argc, argv);
    return ndCliDiagnoseDump();
}

int32_t ndCliDiagnoseClear(int32_t argc, char **argv)
{
    int32_t r = compareWord(argc, argv, kDispatchWord, "stat");
    if (r != 0)
        return r;
    return ndCliDiagnoseClearStat(argc, argv);
}

int32_t nd_CliDbmDiagnoseShowIssu(int32_t argc, char **argv)
{
    NdCliIssuFilter filter = {0, 0};
    if (argc == kIssuIndexWords)
        filter.index = static_cast<uint32_t>(atoi(ndcli::textAt(argc, argv, kIssuIndexWord)));
    ndcli::Pager pager;
    NdDbmLibIssuIterCtx ctx = {ndCliDbmShowIssuCb, &filter};
    int32_t r = nd_DbmLibIssuHandler(&ctx);
    if (r != 0) {
        // A store that would not open ends the listing without the break check.
        pager.close(ndcli::Pager::End::FormatOnly);
        return r;
    }
    pager.close(ndcli::Pager::End::BreakAndFormat);
    printf("\nTotal issu host entry: %d", static_cast<int32_t>(filter.shown));
    return 0;
}

int32_t ndCliDiagnoseIssuShow(int32_t argc, char **argv)
{
    int32_t r = compareWord(argc, argv, 5, "issu");
    if (r != 0)
        r = compareWord(argc, argv, 4, "issu");
    if (r != 0)
        return r;
    return nd_CliDbmDiagnoseShowIssu(argc, argv);
}

} // extern "C"
