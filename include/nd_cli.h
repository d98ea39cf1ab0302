/* Everything libnd-cli.so exports. */
#ifndef ND_CLI_H
#define ND_CLI_H

#include "nd_cli_types.h"

#define ND_CLI_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* entry */
ND_CLI_EXPORT uint32_t dl_nd_cli_init(void);
ND_CLI_EXPORT extern uint32_t (*dl_cli_init)(void);
ND_CLI_EXPORT extern uint32_t SYSTEM_SCRIPT_CHS;
ND_CLI_EXPORT extern uint32_t SYSTEM_SCRIPT_CHS_INTERFACE;
ND_CLI_EXPORT extern uint32_t VXLAN_VXPORT_MODE;
ND_CLI_EXPORT uint32_t gipc_sys_type(uint32_t t);
ND_CLI_EXPORT uint32_t gipc_sys_instance(uint32_t i, uint32_t n);

/* request framework */
ND_CLI_EXPORT uint32_t nd_CliParamInit(NdCliParam *block, const char *keyword, uint32_t code);
ND_CLI_EXPORT uint32_t nd_CliParamSet(NdCliParam *block, const void *value, uint32_t length,
                                      uint32_t type, uint32_t consumes);
ND_CLI_EXPORT uint32_t nd_CliArgGetOptFlag(const char *keyword);
ND_CLI_EXPORT uint32_t IP6_IsNeedStart(int32_t state);
ND_CLI_EXPORT uint32_t ndCliIsFnsMode(void);
ND_CLI_EXPORT uint32_t ndCliParamProc(NdCliParam *block);
ND_CLI_EXPORT uint32_t ndCmfSendAndRev(void *context);
ND_CLI_EXPORT void     nd_CliPrintErrorToVty(uint32_t code);
ND_CLI_EXPORT int32_t  nd_CliFdprintf(int32_t fd, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
ND_CLI_EXPORT extern const char *const gNdErrorStr[ND_ERR_COUNT];

/* renderers */
ND_CLI_EXPORT void ndCliShowDebugInfo(const void *mask);
ND_CLI_EXPORT void ndCliShowFwdStInfo(const void *payload, uint32_t length);
ND_CLI_EXPORT void ndCliShowSnpStInfo(const void *payload, uint32_t length);
ND_CLI_EXPORT void ndCliShowUbInfo(const void *payload, uint32_t length, uint32_t *rows,
                                   uint8_t *titleShown);
ND_CLI_EXPORT void ndCliShowPrefixInfo(const void *payload, uint32_t length, uint32_t *rows,
                                       uint8_t *titleShown);
ND_CLI_EXPORT void ndCliShowProxyAddr(const void *payload, uint32_t length);

/* debug hook */
ND_CLI_EXPORT void ndCliDebugCtrlProc(uint32_t code);

/* running-configuration handlers */
ND_CLI_EXPORT int32_t ndGobleEnableScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
ND_CLI_EXPORT int32_t ndGobleScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
ND_CLI_EXPORT int32_t ndIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t ifName);
ND_CLI_EXPORT int32_t ndPortIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t portId);
ND_CLI_EXPORT int32_t ndVlanIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vlanId, uintptr_t a4);
ND_CLI_EXPORT int32_t ND_SuperVlanScriptHandler(int32_t fd, uintptr_t superVlanId);
ND_CLI_EXPORT int32_t nd_CliVxlanScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vxlanId, uintptr_t a4);

/* shell event callback */
ND_CLI_EXPORT int32_t ndCliEvtShellCb(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4);

/* generic list */
ND_CLI_EXPORT void GNL_INIT_LIST_HEAD(GnlListHead *head);
ND_CLI_EXPORT void gnl_list_add_tail(GnlListHead *item, GnlListHead *head);
ND_CLI_EXPORT void gnl_list_del(GnlListHead *item);

/* hash table */
ND_CLI_EXPORT int32_t  gnl_hash_init(GnlHashTable *t, uint32_t nodeOffset, GnlHashComputeFn compute,
                                     GnlHashCompareFn compare, uint32_t bucketCount);
ND_CLI_EXPORT void     gnl_hash_destroy(GnlHashTable *t);
ND_CLI_EXPORT uint32_t gnl_hash_insert(GnlHashTable *t, void *entry);
ND_CLI_EXPORT uint32_t gnl_hash_remove(GnlHashTable *t, void *entry);
ND_CLI_EXPORT void    *gnl_hash_find(GnlHashTable *t, const void *probe);
ND_CLI_EXPORT void    *gnl_hash_start(GnlHashTable *t, GnlHashNode **cursor);
ND_CLI_EXPORT void    *gnl_hash_next(GnlHashTable *t, GnlHashNode **cursor);
ND_CLI_EXPORT GnlHashNode *gnl_hash_next_cursor(GnlHashTable *t, GnlHashNode *node);
ND_CLI_EXPORT uint32_t gnl_hash_value(const void *key, uint32_t length, uint32_t initval);
ND_CLI_EXPORT uint32_t gnl_hash_value_3words(uint32_t a, uint32_t b, uint32_t c, uint32_t initval);
ND_CLI_EXPORT uint32_t gnl_hash_value_2words(uint32_t a, uint32_t b, uint32_t initval);

/* database session cache */
ND_CLI_EXPORT int32_t nd_CliDbmSessPull(uint32_t sessionId, uint32_t valueType);
ND_CLI_EXPORT int32_t nd_CliDbmGetUniqueBinary(uint32_t sessionId, uint32_t valueType, const void *key,
                                               uint16_t keyLen, void *buf, uint32_t bufLen);
ND_CLI_EXPORT int32_t nd_CliDbmSessFree(uint32_t sessionId, uint32_t valueType);
ND_CLI_EXPORT int32_t nd_CliDbmDiagnoseShow(void);

/* VXLAN exchange */
ND_CLI_EXPORT uint32_t ndCliVxlanSetProc(NdCliParam *block, NdCliVxlanRenderFn render);

/* ISSU host store */
ND_CLI_EXPORT int32_t nd_DbmLibIssuOpen(void);
ND_CLI_EXPORT int32_t nd_DbmLibIssuEntryInsert(const void *entry /* 80 bytes */);
ND_CLI_EXPORT int32_t nd_DbmLibSaveIssu(const char *path, uint32_t a2, uint32_t a3, uint32_t a4);
ND_CLI_EXPORT void    nd_DbmLibIssuClose(void);
ND_CLI_EXPORT int32_t nd_DbmLibIssuHandler(NdDbmLibIssuIterCtx *ctx);
ND_CLI_EXPORT void   *nd_DbmLibIssuEcHandleGet(void);
ND_CLI_EXPORT void    nd_DbmLibIssuEcHandleSet(void *handle);
ND_CLI_EXPORT int32_t nd_CliDbmDiagnoseShowIssu(int32_t argc, char **argv);

#ifdef __cplusplus
}
#endif

#endif
