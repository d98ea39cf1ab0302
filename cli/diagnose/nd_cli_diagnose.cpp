// Hidden diagnose commands. Most diagnose text comes from the ND service: the plug-in asks for a
// dump (command code 29), the service writes "/tmp/.nd_diagnose", and the plug-in pages that
// file to the terminal and deletes it.
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "diagnose/nd_cli_diagnose.h"
#include "framework/nd_cli_owned.h"
#include "nd_request.h"

namespace {

constexpr int32_t kDispatchWord = 3;
constexpr size_t kLineSize = 1024;

// What one diagnose request sends: the kind, chosen by an optional fifth word, and for the
// global form a second value word.
struct DiagnoseRequest {
    uint32_t defaultKind;
    const char *qualifier;                  // fifth word that selects qualifiedKind; null: none
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
    NdCliParam block = {};
    uint32_t kind = request.defaultKind;
    uint32_t second = 0;
    uint32_t r = nd_CliParamInit(&block, argv[block.argIndex], ND_CMD_DIAGNOSE);
    if (r == ND_OK) {
        if (request.qualifier && argc == 5 && argv[4] && request.compare(argv[4], request.qualifier) == 0)
            kind = request.qualifiedKind;
        nd_CliParamSet(&block, &kind, sizeof kind, ndwire::kItemDiagnoseKind, 1);
        if (request.secondValue)
            nd_CliParamSet(&block, &second, sizeof second, ndwire::kItemVlan, 1);
        r = ndCliParamProc(&block);
    }
    if (r != ND_OK) {
        nd_CliPrintErrorToVty(r);
        return static_cast<int32_t>(r);
    }
    return 0;
}

// A missing word compares unequal to everything.
int32_t compareWord(int32_t argc, char **argv, int32_t index, const char *expected)
{
    const char *word = ndcli::wordAt(argc, argv, index);
    return word ? strcasecmp(word, expected) : -1;
}

} // namespace

extern "C" {

int32_t ndCliDiagnoseShowGlobal(int32_t argc, char **argv)
{
    return sendDiagnose(kGlobal, argc, argv);
}

int32_t ndCliDiagnoseShowStat(int32_t argc, char **argv)
{
    return sendDiagnose(kStat, argc, argv);
}

int32_t ndCliDiagnoseClearStat(int32_t argc, char **argv)
{
    return sendDiagnose(kStat, argc, argv);
}

int32_t ndCliDiagnoseShowIf(int32_t argc, char **argv)
{
    return sendDiagnose(kInterface, argc, argv);
}

int32_t ndCliDiagnoseDump(void)
{
    ndcli::OwnedFile file(__UMV2L_fopen(ndwire::kDiagnoseFile, "r"));
    if (!file.get())
        return 0;
    SHELL_MoreOrientOutput();
    printf("\n");
    char line[kLineSize];
    while (__UMV2L_fgets(line, sizeof line, file.get())) {
        printf("%s", line);
        if (SHELL_MoreBreakOutput() != 0)
            break;
    }
    // The dump is gone once shown, also when the operator quit the pager early.
    file.close();
    __UMV2L_unlink(ndwire::kDiagnoseFile);
    return SHELL_MoreFormatOutput();
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
