// Hidden diagnose commands: what the ND service dumps into its diagnose file, the local cache
// listing, and the VXLAN and ISSU listings. Internal to the plug-in.
#ifndef ND_CLI_DIAGNOSE_H
#define ND_CLI_DIAGNOSE_H

#include "vxlan/nd_cli_vxlan.h"

// Definition strings of the three diagnose commands of the ND table.
// Not reformatted: laid out as the command tree it defines.
// clang-format off
#define ND_CLI_DIAGNOSE_TAIL "{" ND_CLI_SHOW_END "}"
#define ND_CLI_DIAGNOSE_SHOW_DEF                                                                    \
    "show(EN, 0, '') {diagnose(EN, 0, HIDE, 'Diagnose information') {nd(EN, 0, 'Neighbor discovery') {" \
    "vxlan(EN, 0, 'Vxlan'){_0_2147483_(EN, 0, 'VxlanId'){"                                           \
    "host(EN, 0, 'Vxlan host entry')" ND_CLI_DIAGNOSE_TAIL ","                                         \
    "mac(EN, 0, 'Vxlan mac entry')" ND_CLI_DIAGNOSE_TAIL ","                                           \
    ND_CLI_SHOW_END "},"                                                                              \
    ND_CLI_SHOW_END "},"                                                                              \
    "global(EN, 0, 'Global information'){acl(EN, 0, 'Acl information')" ND_CLI_DIAGNOSE_TAIL "},"     \
    "stat(EN, 0, 'Statistics')" ND_CLI_DIAGNOSE_TAIL ","                                               \
    "interface(EN, 0, 'Interface information'){neighbor(EN, 0, 'Neighbor information')"              \
    ND_CLI_DIAGNOSE_TAIL "},"                                                                          \
    "local-dbm(EN, 0, 'Local dbm cache')" ND_CLI_DIAGNOSE_TAIL "}}}"
#define ND_CLI_DIAGNOSE_CLEAR_DEF                                                                   \
    "clear(EN, 0, '') {diagnose(EN, 0, HIDE, 'Diagnose information') {nd(EN, 0, 'Neighbor discovery') {" \
    "stat(EN, 0, 'Statistics')}}}"
#define ND_CLI_DIAGNOSE_ISSU_BRANCH "issu(EN, 0, 'Issu'){host(EN, 0, 'Issu host entry')}"
#define ND_CLI_DIAGNOSE_ISSU_DEF                                                                    \
    "show(EN, 0, '') {diagnose(EN, 0, HIDE, 'Diagnose information') {nd(EN, 0, 'Neighbor discovery') {" \
    "vxlan(EN, 0, 'Vxlan'){_0_2147483_(EN, 0, 'VxlanId'){" ND_CLI_DIAGNOSE_ISSU_BRANCH "},"           \
    ND_CLI_DIAGNOSE_ISSU_BRANCH "}}}}"
// clang-format on

extern "C" {

int32_t ndCliDiagnoseShow(int32_t argc, char **argv);
int32_t ndCliDiagnoseClear(int32_t argc, char **argv);
int32_t ndCliDiagnoseIssuShow(int32_t argc, char **argv);
int32_t ndCliDiagnoseShowGlobal(int32_t argc, char **argv);
int32_t ndCliDiagnoseShowStat(int32_t argc, char **argv);
int32_t ndCliDiagnoseClearStat(int32_t argc, char **argv);
int32_t ndCliDiagnoseShowIf(int32_t argc, char **argv);
int32_t ndCliDiagnoseDump(void);
}

#endif
