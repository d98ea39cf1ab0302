/* Everything libnd-cli.so exports. One line above each declaration says what it does, who
 * owns what it is given or returns, and what a failure returns. Statuses are the small codes
 * of gNdErrorStr, 0 meaning success. The texts that handlers and renderers print are kept
 * exactly as they are: operators' scripts parse them. */
#ifndef ND_CLI_H
#define ND_CLI_H

#include "nd_cli_types.h"

#define ND_CLI_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* entry */
/* Starts the plug-in when the shell loads it: registers the service, commands, script
 * handlers, debug hook and event callback. 0; 17 when the service cannot be registered; what
 * the log call returned when the event callback cannot be. */
ND_CLI_EXPORT uint32_t dl_nd_cli_init(void);
/* The shell's entry pointer; points at dl_nd_cli_init. */
ND_CLI_EXPORT extern uint32_t (*dl_cli_init)(void);
/* Words the platform may read or set; all zero at load. */
ND_CLI_EXPORT extern uint32_t SYSTEM_SCRIPT_CHS;
ND_CLI_EXPORT extern uint32_t SYSTEM_SCRIPT_CHS_INTERFACE;
ND_CLI_EXPORT extern uint32_t VXLAN_VXPORT_MODE;
/* The service type of t (below 65536) with 0x7FFF0000 set; 0xFFFFFFFF for a larger t. */
ND_CLI_EXPORT uint32_t gipc_sys_type(uint32_t t);
/* The instance i (below 65536) of node n (1 to 4) as the framework numbers it; else 0xFFFFFFFF. */
ND_CLI_EXPORT uint32_t gipc_sys_instance(uint32_t i, uint32_t n);

/* request framework */
/* Prepares a zeroed block for command `code` typed with first word `keyword` (null: a plain
 * setting). The caller owns the block. 0; 18 for a null block. */
ND_CLI_EXPORT uint32_t nd_CliParamInit(NdCliParam *block, const char *keyword, uint32_t code);
/* Appends an item that points at `value` (not copied: it must outlive the send); a non-zero
 * `consumes` also moves the word index on. The new item count or word index; when the block
 * or value is null, or the block is full, what printf returned for the message printed. */
ND_CLI_EXPORT uint32_t nd_CliParamSet(NdCliParam *block, const void *value, uint32_t length,
                                      uint32_t type, uint32_t consumes);
/* The operation kind of a first word: undo for "no", "clear", "disable", show, bulk, else set. */
ND_CLI_EXPORT uint32_t nd_CliArgGetOptFlag(const char *keyword);
/* 1 when the service in DCM state `state` must be started before a setting, else 0. */
ND_CLI_EXPORT uint32_t IP6_IsNeedStart(int32_t state);
/* 1 when the chassis runs in FNS mode, else 0 (also when the mode cannot be read). */
ND_CLI_EXPORT uint32_t ndCliIsFnsMode(void);
/* Sends the block to the ND service (starting it for a setting when needed) and renders the
 * answer. The caller keeps the block. 0; 18, 19, 21 or 25 for framework failures; or the
 * service's own code. */
ND_CLI_EXPORT uint32_t ndCliParamProc(NdCliParam *block);
/* Sends the request prepared on `context` (the caller's, not closed here), receives and renders
 * the answer. 0, 18, 19, 21 or 25 for framework failures, or the service's own code. */
ND_CLI_EXPORT uint32_t ndCmfSendAndRev(void *context);
/* Prints "\n" and the text of a status; silent for 24 and for codes without a text. */
ND_CLI_EXPORT void nd_CliPrintErrorToVty(uint32_t code);
/* Formats into 256 bytes and writes that text to fd as a format of its own: a "%%" surviving
 * the first pass prints "%", as the running configuration always has. What dprintf returned. */
ND_CLI_EXPORT int32_t nd_CliFdprintf(int32_t fd, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
/* The message text of each status, indexed by the status. */
ND_CLI_EXPORT extern const char *const gNdErrorStr[ND_ERR_COUNT];

/* renderers: each prints one answer of the service to the terminal; the payload stays the
 * caller's and is read within `length`. The table renderers count rows in *rows and print the
 * title once, keeping *titleShown, across the pages of one listing. */
/* The six debug switches of a 32-bit mask; a null mask shows all off. */
ND_CLI_EXPORT void ndCliShowDebugInfo(const void *mask);
/* The fast-response statistics, one line a counter. */
ND_CLI_EXPORT void ndCliShowFwdStInfo(const void *payload, uint32_t length);
/* The snooping statistics, one line a counter. */
ND_CLI_EXPORT void ndCliShowSnpStInfo(const void *payload, uint32_t length);
/* One page of the user-bind table. */
ND_CLI_EXPORT void ndCliShowUbInfo(const void *payload, uint32_t length, uint32_t *rows,
                                   uint8_t *titleShown);
/* One page of the prefix table. */
ND_CLI_EXPORT void ndCliShowPrefixInfo(const void *payload, uint32_t length, uint32_t *rows,
                                       uint8_t *titleShown);
/* The proxy address ranges and the modules that own them. */
ND_CLI_EXPORT void ndCliShowProxyAddr(const void *payload, uint32_t length);

/* debug hook: code 1 turns every switch on, 2 off, 3 shows them; other codes do nothing. */
ND_CLI_EXPORT void ndCliDebugCtrlProc(uint32_t code);

/* running-configuration handlers: each writes its lines of the running configuration to fd
 * from the configuration database (the VLAN handler through the session cache during a
 * display). When the database will not open, what the log of that returned; else what the
 * close returned. The VXLAN handler returns the open's own status instead of logging. */
ND_CLI_EXPORT int32_t ndGobleEnableScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
ND_CLI_EXPORT int32_t ndGobleScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
ND_CLI_EXPORT int32_t ndIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t ifName);
ND_CLI_EXPORT int32_t ndPortIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t portId);
ND_CLI_EXPORT int32_t ndVlanIfScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vlanId, uintptr_t a4);
ND_CLI_EXPORT int32_t ND_SuperVlanScriptHandler(int32_t fd, uintptr_t superVlanId);
ND_CLI_EXPORT int32_t nd_CliVxlanScriptHandler(int32_t fd, uintptr_t a2, uintptr_t vxlanId, uintptr_t a4);

/* shell event callback: frees the cached database sessions of a running-configuration
 * display that has ended. Always 0. */
ND_CLI_EXPORT int32_t ndCliEvtShellCb(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4);

/* generic list, a circular doubly linked list whose nodes the caller owns */
/* Makes `head` an empty list. */
ND_CLI_EXPORT void GNL_INIT_LIST_HEAD(GnlListHead *head);
/* Appends `item` at the end of the list of `head`. */
ND_CLI_EXPORT void gnl_list_add_tail(GnlListHead *item, GnlListHead *head);
/* Unlinks `item` and poisons its links; the caller still owns it. */
ND_CLI_EXPORT void gnl_list_del(GnlListHead *item);

/* hash table with the node inside each entry (at `nodeOffset`); the entries stay the caller's */
/* Sets up an empty table of `bucketCount` buckets, which it allocates. 0; -1 when the count
 * is too large or the buckets cannot be allocated. */
ND_CLI_EXPORT int32_t gnl_hash_init(GnlHashTable *t, uint32_t nodeOffset, GnlHashComputeFn compute,
                                    GnlHashCompareFn compare, uint32_t bucketCount);
/* Frees the buckets, not the entries. A null table is ignored. */
ND_CLI_EXPORT void gnl_hash_destroy(GnlHashTable *t);
/* Links in `entry` without a duplicate check. The entry count after the insertion. */
ND_CLI_EXPORT uint32_t gnl_hash_insert(GnlHashTable *t, void *entry);
/* Unlinks `entry`, which must be in the table. The entry count after the removal. */
ND_CLI_EXPORT uint32_t gnl_hash_remove(GnlHashTable *t, void *entry);
/* The first entry that the compare function finds equal to `probe`, or null. */
ND_CLI_EXPORT void *gnl_hash_find(GnlHashTable *t, const void *probe);
/* Iteration: the first entry (null when empty) and the cursor one node ahead, so that the
 * entry just returned may be removed and freed before the next call. */
ND_CLI_EXPORT void *gnl_hash_start(GnlHashTable *t, GnlHashNode **cursor);
/* The entry at the cursor and the cursor moved on; null at the end. */
ND_CLI_EXPORT void *gnl_hash_next(GnlHashTable *t, GnlHashNode **cursor);
/* The node after `node` in iteration order, or null. */
ND_CLI_EXPORT GnlHashNode *gnl_hash_next_cursor(GnlHashTable *t, GnlHashNode *node);
/* Hash values of `length` bytes, or of three or two words, mixed with `initval`. */
ND_CLI_EXPORT uint32_t gnl_hash_value(const void *key, uint32_t length, uint32_t initval);
ND_CLI_EXPORT uint32_t gnl_hash_value_3words(uint32_t a, uint32_t b, uint32_t c, uint32_t initval);
ND_CLI_EXPORT uint32_t gnl_hash_value_2words(uint32_t a, uint32_t b, uint32_t initval);

/* database session cache: copies of a running-configuration display's records, owned by the
 * cache until nd_CliDbmSessFree */
/* Loads the session's records of `valueType` unless cached. 0; -1 when the cache cannot be set up. */
ND_CLI_EXPORT int32_t nd_CliDbmSessPull(uint32_t sessionId, uint32_t valueType);
/* Copies the cached record of `key` into buf. The bytes copied; 0 when not cached; -1 when
 * the cache was never set up. */
ND_CLI_EXPORT int32_t nd_CliDbmGetUniqueBinary(uint32_t sessionId, uint32_t valueType, const void *key,
                                               uint16_t keyLen, void *buf, uint32_t bufLen);
/* Frees the session's cached records. 0; -1 when the cache was never set up. */
ND_CLI_EXPORT int32_t nd_CliDbmSessFree(uint32_t sessionId, uint32_t valueType);
/* Prints the cached sessions and records to the terminal. 0; -1 when the cache was never set up. */
ND_CLI_EXPORT int32_t nd_CliDbmDiagnoseShow(void);

/* VXLAN exchange */
/* Sends a VXLAN request, following the table over several answers and handing each record to
 * `render` (null: records are not shown); never starts the service. The caller keeps the
 * block. 0; 18 when no context opens; 20 when an item does not encode; else the transport's
 * or the service's status, unmapped. */
ND_CLI_EXPORT uint32_t ndCliVxlanSetProc(NdCliParam *block, NdCliVxlanRenderFn render);

/* ISSU host store "ec_nd_host_issu": one open handle at a time, held by the plug-in. The
 * int32_t functions return 0, or -1 after logging why. */
/* Opens the store and keeps its handle. */
ND_CLI_EXPORT int32_t nd_DbmLibIssuOpen(void);
/* Writes one 80-byte entry (the caller's) under a key made of its index and address. */
ND_CLI_EXPORT int32_t nd_DbmLibIssuEntryInsert(const void *entry /* 80 bytes */);
/* Saves the database to flash; `path` is ignored, the other words are passed on. */
ND_CLI_EXPORT int32_t nd_DbmLibSaveIssu(const char *path, uint32_t a2, uint32_t a3, uint32_t a4);
/* Closes the store when open and forgets the handle. */
ND_CLI_EXPORT void nd_DbmLibIssuClose(void);
/* Opens the store, hands every entry to ctx->callback, closes it. -1 for a null ctx too. */
ND_CLI_EXPORT int32_t nd_DbmLibIssuHandler(NdDbmLibIssuIterCtx *ctx);
/* The open handle (null: closed), and its setter. */
ND_CLI_EXPORT void *nd_DbmLibIssuEcHandleGet(void);
ND_CLI_EXPORT void nd_DbmLibIssuEcHandleSet(void *handle);
/* The hidden diagnose listing of the store, paged; 7 words select one index. 0, or -1 when
 * the store would not open. */
ND_CLI_EXPORT int32_t nd_CliDbmDiagnoseShowIssu(int32_t argc, char **argv);

#ifdef __cplusplus
}
#endif

#endif
