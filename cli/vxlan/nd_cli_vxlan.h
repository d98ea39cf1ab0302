// VXLAN ND commands: the paged exchange, the configuration, show and clear handlers, the
// running-configuration script and the hidden test-injection commands. Internal to the plug-in.
#ifndef ND_CLI_VXLAN_H
#define ND_CLI_VXLAN_H

#include "nd_cli_internal.h"
#include "nd_cmd.h" // the output-modifier subtree of the show commands

// Size of the buffer that keeps the last record of a response for the follow-up request.
constexpr uint32_t kNdCliVxlanLastRecordSize = 200;

// Responses one exchange follows at most. A table answers 64 records a response, so this is
// two million records, twice the largest table the switch keeps; a service that asks for
// follow-ups beyond it is not believed and the exchange fails with error 18.
constexpr uint32_t kNdCliVxlanMaxResponses = 32768;

extern "C" {

// 1 once a table title has been printed; the show handlers clear it when their exchange ends.
extern uint32_t gNdCliTitleShowed;

/* exchange */
uint32_t ndCliVxlanCmfSendAndRecv(CMF_CONTEXT context, NdCliParam *block, NdCliVxlanRenderFn render);
uint32_t ndCliVxlanCmfDecodeProc(CMF_CONTEXT context, NdCliParam *block, uint8_t *lastRecord,
                                 uint32_t continuation, NdCliVxlanRenderFn render);
bool ndCliVxlanIsCfgCmd(uint32_t code);

/* configuration handlers */
int32_t ndCliVxlanTimeoutSet(int32_t argc, char **argv);
int32_t ndCliVxlanLimitSet(int32_t argc, char **argv);
int32_t ndCliVxlanLocalAdvSet(int32_t argc, char **argv);
int32_t ndCliVxlanSuppressionSet(int32_t argc, char **argv);
int32_t ndCliVxlanSuppressionMissDiscardSet(int32_t argc, char **argv);
int32_t ndCliVxlanSuppressionUnicastFwdSet(int32_t argc, char **argv);
void nd_CliVxlanCmdRegister(void);

/* show, clear, diagnose */
int32_t ndCliVxlanSuppressionShow(int32_t argc, char **argv);
int32_t ndCliVxlanHostShow(int32_t argc, char **argv);
int32_t ndCliVxlanHostclear(int32_t argc, char **argv);
int32_t nd_CliVxlanDiagnoseShowVxlan(int32_t argc, char **argv);
uint32_t ndCliVxlanSuppressionShowRecv(const void *record, uint32_t code, uint32_t length);
uint32_t ndCliVxlanHostShowRecv(const void *record, uint32_t code, uint32_t length);

/* running configuration */
uint32_t ndCliVxlanScript(DBM_HANDLE handle, NdCliScriptCtx *context);

/* test injection */
void nd_CliVxlanDebugCmdReg(void);
int32_t ndCliVxlanSuppressTest(int32_t argc, char **argv);
int32_t ndCliVxlanNbrEntryTest(int32_t argc, char **argv);
void ndCliVxlanSuppressAddJob(uintptr_t a1, uintptr_t a2, void *record);
void ndCliVxlanSuppressDelJob(uintptr_t a1, uintptr_t a2, void *record);
void ndCliVxlanNbrEntryAddJob(uintptr_t a1, uintptr_t a2, void *record);
void ndCliVxlanNbrEntryDelJob(uintptr_t a1, uintptr_t a2, void *record);

// What the ISSU diagnose listing asks of the store's walk: the index wanted (0: all) and how
// many entries were shown.
struct NdCliIssuFilter {
    uint32_t index;
    uint32_t shown;
};

/* ISSU backup and recovery command, and the store's internals */
int32_t ndCliVxlanHostIssu(int32_t argc, char **argv);
int32_t ndDbmLibIssuIterateKeyCb(DBM_HANDLE handle, const void *key, uint16_t keyLen, void *context);
int32_t ndCliDbmShowIssuCb(const void *entry, void *filter); // filter: NdCliIssuFilter
}

// The 28 registrations of the VXLAN command table, in order.
struct NdCliVxlanCmdRow {
    SHELL_CMD_FN handler;
    const char *definition;
};
constexpr uint32_t kNdCliVxlanCmdCount = 28;
extern const NdCliVxlanCmdRow kNdCliVxlanCmdTable[kNdCliVxlanCmdCount];

// The four hidden test-injection syntaxes, in registration order.
constexpr uint32_t kNdCliVxlanTestCmdCount = 4;
extern const NdCliVxlanCmdRow kNdCliVxlanTestCmdTable[kNdCliVxlanTestCmdCount];

#endif
