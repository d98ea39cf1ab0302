/* The platform functions that the ND command-line plug-in imports. On the switch they come
 * from the platform's own libraries; here the emulated platform (libndplat) defines them.
 * One line above each says what it does, who owns what, and what a failure returns; the
 * argument names that read a2, r1 and so on are passed as the plug-in has always passed them
 * and have no meaning of their own to it. */
#ifndef ND_PLATFORM_H
#define ND_PLATFORM_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* message framework client */
typedef void *CMF_CONTEXT; /* null: none */
typedef struct CMF_SERVICE_ADDR {
    uint32_t type, instance;
} CMF_SERVICE_ADDR;
/* Registers a client of `service` and fills its address. 0, or non-zero on failure. */
uint32_t CMF_ClientServiceReg(const char *service, CMF_SERVICE_ADDR *addr);
/* Opens a request context to the service; the caller closes it. Null on failure. */
CMF_CONTEXT CMF_ClientContextInit(const char *service, uint32_t type, uint32_t instance);
/* Sets the answer timeout, in the framework's units. 0, or a framework status. */
uint32_t CMF_ClientContextTimeoutSet(CMF_CONTEXT ctx, uint32_t timeout);
/* Attaches the request block, which must outlive the context. 0, or a framework status. */
uint32_t CMF_ClientContextObjSet(CMF_CONTEXT ctx, void *object); /* the NdCliParam */
/* Copies one item into the request. 0, or a framework status. */
uint32_t CMF_ClientParamEncode(CMF_CONTEXT ctx, uint32_t type, uint32_t length, const void *value);
/* Sends the request. 0; 5 when out of memory; another framework status on failure. */
uint32_t CMF_ClientRequestSend(CMF_CONTEXT ctx);
/* Waits for the answer. 0 or 13 (no further answer follows); a framework status, or the
 * service's own code (16 and above), on failure. */
uint32_t CMF_ClientResponseRecv(CMF_CONTEXT ctx);
/* The next item of the answer; *value points into the context and lives as long as it.
 * 0; 13 when no item is left; another framework status on failure. */
uint32_t CMF_ClientParamDecode(CMF_CONTEXT ctx, uint32_t *type, uint32_t *length, void **value);
/* Closes the context and frees what it holds. 0, or a framework status. */
uint32_t CMF_ClientContextClose(CMF_CONTEXT ctx);

/* service control */
/* The state of the service's process: 2 running; 0, 1 and 4 not running, to be started. */
int32_t DCM_Query(const char *service);
/* Starts the service's process. 2 once it runs; any other value is a failure. */
int32_t DCM_Start(const char *service, uint32_t how);

/* configuration database */
typedef void *DBM_HANDLE; /* null: not open */
typedef int32_t (*DBM_PROC_FN)(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg);
/* What the ND databases are opened with: DBM_Open(name, ND_DBM_OPEN_MODE, param, 0, 0, &h)
 * with `const uint32_t param[7] = ND_DBM_OPEN_PARAM;`. */
#define ND_DBM_OPEN_MODE 1u
/* clang-format off */
#define ND_DBM_OPEN_PARAM {1, 1, 256, 0, 0, 0, 0}
/* clang-format on */
/* Opens database `db` and stores its handle, which the caller closes. 0, or non-zero. */
uint32_t DBM_Open(const char *db, uint32_t mode, const uint32_t param[7],
                  uint32_t r1, uint32_t r2, DBM_HANDLE *handle);
/* Closes the handle. 0, or non-zero. */
uint32_t DBM_Close(DBM_HANDLE h);
/* Calls `fn` with each key of `valueType`. What the walk returned; the plug-in ignores it. */
int32_t DBM_Proc(DBM_HANDLE h, uint32_t valueType, DBM_PROC_FN fn, void *arg);
/* The length of the record of `key`; below 1 when there is none. */
int32_t DBM_GetLen(DBM_HANDLE h, const void *key, uint16_t keyLen);
/* Copies the record of `key` into buf, at most bufLen bytes. The bytes copied; below 1 on failure. */
int32_t DBM_GetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t flags,
                            void *buf, uint32_t bufLen);
/* Writes `length` bytes (copied) as the record of `key`. 0, or non-zero. */
int32_t DBM_SetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t valueType,
                            const void *value, uint32_t length, uint32_t flags);
/* Reads up to maxCount records of entrySize bytes into buf, continuing from *iterator, which
 * the caller frees with DBM_FreeIterator. The records read; below 1 when none or on failure. */
int32_t DBM_GetBulkFromSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, void **iterator,
                                uint32_t r1, uint32_t r2, uint32_t maxCount,
                                void *buf, uint32_t entrySize);
/* Frees an iterator of DBM_GetBulkFromSortList; null is ignored. */
void DBM_FreeIterator(void *iterator);
/* Saves the databases under `path`. 0, or non-zero. */
int32_t DBM_Save(const char *path, uint32_t a2, uint32_t a3, uint32_t a4);

/* shell */
typedef int32_t (*SHELL_CMD_FN)(int32_t argc, char **argv);
typedef int32_t (*SHELL_SCRIPT_FN)(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
/* Registers the command `def` of module `module`, handled by fn. 0, or non-zero. */
uint32_t SHELL_CmdRegByModule(uint32_t flags, uint32_t module, SHELL_CMD_FN fn, const char *def);
/* Registers a command by its syntax alone. 0, or non-zero. */
uint32_t cmd_register(SHELL_CMD_FN fn, const char *syntax);
/* Registers a running-configuration handler of a section and mode. 0, or non-zero. */
uint32_t SHELL_ConfigScriptReg(const char *module, SHELL_SCRIPT_FN fn, uint32_t section,
                               uint32_t mode, uint32_t flags);
/* Environment ids of the shell's configuration modes, as the command handlers read them. */
enum {
    ND_SHELL_ENV_IF_NAME = 1,  /* SHELL_GetEnv: the interface being configured */
    ND_SHELL_ENV_PORTMAP = 19, /* mpsh_get_env: the port map being configured */
    ND_SHELL_ENV_VLAN = 53,    /* mpsh_get_int_env: the VLAN, super VLAN or VXLAN id */
    ND_SHELL_ENV_SUPER_VLAN = 136,
    ND_SHELL_ENV_VXLAN = 164
};
/* The text value `var` of the current mode, owned by the shell (ND_SHELL_ENV_IF_NAME: the
 * interface name). Null: unset. */
char *SHELL_GetEnv(uint32_t var);
/* The running-configuration display in progress on this thread; 0xFFFFFFFF: none. */
uint32_t SHELL_GetRunningCfgProcSessionId(void);
/* Pager: marks the start of a listing's output. */
void SHELL_MoreOrientOutput(void);
/* Pager: whether the operator quit at the last page break; non-zero: quit. */
int32_t SHELL_MoreBreakOutput(void);
/* Pager: ends the listing's output. 0, or non-zero. */
int32_t SHELL_MoreFormatOutput(void);
/* Asks the operator `question`; non-zero: yes. */
int32_t GetConsoleRsp(const char *question);
/* The pointer value `var` of the current mode, owned by the shell (19: the port map). Null: unset. */
void *mpsh_get_env(uint32_t var);
/* The number value `var` of the current mode (53 VLAN, 136 super VLAN, 164 VXLAN); 0: unset. */
int32_t mpsh_get_int_env(uint32_t var);
/* Non-zero when an operator types the command, 0 when configuration is replayed. */
int32_t mpsh_in_interaceive_mode(void);

/* debug, log, events */
typedef void (*DEBUG_CTRL_FN)(uint32_t code);
typedef int32_t (*NOTIFY_FN)(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4);
/* Registers the debug control hook of `module`. 0, or non-zero. */
uint32_t DEBUG_ModuleReg(const char *module, DEBUG_CTRL_FN fn);
/* Logs a formatted line for `module` at `level`. 0, or non-zero. */
int32_t NLOG_Send(uint32_t module, uint32_t a2, uint32_t a3, uint32_t level, const char *format, ...)
    __attribute__((format(printf, 5, 6)));
/* Registers fn for the shell's event and subevent under the client name. 0, or non-zero. */
int32_t notifyRegister(uint32_t event, uint32_t subevent, const char *client, uint32_t a4,
                       uint32_t a5, NOTIFY_FN fn, uint32_t a7);

/* port management */
/* The size of a port map in bytes. */
extern uint32_t g_max_pbmp_bytes;
/* Fills the caller's map from an interface text. 0, or non-zero when the text names no port. */
int32_t cmdString2Portmap(const char *text, void *map, uint32_t size);
/* Copies one port map onto another, both the caller's. */
void portmapCopy(void *dst, const void *src);
/* 1 when the map holds no port, else 0. */
int32_t portmapIsEmpty(const void *map);
/* The single port of a map and its name (40 bytes): *portId 0 when none, below 0 when several. */
int32_t portmap2PortID(const void *map, uint32_t size, int32_t *portId, char *name);
/* Whether module may configure the port; 0: not, after the port manager printed why. */
int32_t isPmPortConfigurable(int32_t portId, const char *module, uint32_t a3, uint32_t a4);
/* The port's full and short names into the caller's 40 bytes. 0, or non-zero for no such port. */
int32_t portID2FmtString(int32_t portId, char *buf);
int32_t portID2ShortString(int32_t portId, char *buf);

/* chassis and modules */
/* The chassis mode into *mode (2: FNS). 0, or non-zero when it cannot be read. */
int32_t DMM_GetChsMode(uint32_t *mode);
/* The name of a module into the caller's `size` bytes. 0, or non-zero for no such module. */
int32_t MODULEMGMT_GetModName(uint32_t moduleId, char *name, uint32_t size);

/* VXLAN and ND libraries, and handlers of other ND modules */
/* The port information of VXLAN_GetVxportBasicInfo: the fields the ND handlers read. */
enum {
    ND_VXPORT_INFO_SIZE = 1612,
    ND_VXPORT_INFO_KIND = 4,    /* u16 ND_VXPORT_KIND_ATTACHED: a port with an ID */
    ND_VXPORT_INFO_PORT_ID = 8, /* i32 */
    ND_VXPORT_INFO_SVLAN = 12,  /* u16 */
    ND_VXPORT_INFO_CVLAN = 14,  /* u16 */
    ND_VXPORT_KIND_ATTACHED = 1
};
/* The VXLAN port's information into the caller's ND_VXPORT_INFO_SIZE bytes. 0, or non-zero for
 * no such port. */
int32_t VXLAN_GetVxportBasicInfo(uint32_t portIndex, void *info);
/* The VXLAN interaction work task that test-injection jobs run on. */
void *nsm_vxlan_interaction_mgmt_get_handle(void);
/* The ND library: add or delete `count` suppression hosts or remote neighbours (the caller's
 * records). 0, or non-zero. */
int32_t ND_AddSuppressionHost(void *record, uint32_t count, uint32_t *out);
int32_t ND_DelSuppressionHost(void *record, uint32_t count, uint32_t *out);
int32_t ND_AddRemoteNbr(void *record, uint32_t count, uint32_t *out);
int32_t ND_DelRemoteNbr(void *record, uint32_t count, uint32_t *out);
/* The shell's own proxy command, run after the plug-in's request. Its result is the handler's. */
int32_t shell_nd6_proxy(int32_t argc, char **argv);
/* Formats a 20-byte address record (family byte, address at byte 4) into 40 bytes of text. */
int32_t IPAM_Struct2String(const void *address /* 20 bytes */, char *text /* 40 bytes */);
/* Parses a MAC address text into 6 bytes. 0, or non-zero when it is no address. */
int32_t enet_addr(const char *text, uint8_t *mac /* 6 bytes */);
/* Command handlers and debug controls of the MPOS and MLAG ND modules, registered or called by
 * the plug-in beside its own. */
int32_t nd_MposPublishRegShowCmd(int32_t argc, char **argv);
int32_t nd_MposPublishRegClearCmd(int32_t argc, char **argv);
int32_t nd_MposPublishRegDebugCmd(int32_t argc, char **argv);
int32_t nd_MlagShowCmd(int32_t argc, char **argv);
int32_t nd_MlagDebugCmd(int32_t argc, char **argv);
void nd_MposPublishCliDebugCtrl(uint32_t code);
void nd_MlagDbgCtrl(uint32_t code);

/* generic runtime */
typedef void *GNL_SEM;
typedef void (*GNL_WT_JOB_FN)(uintptr_t a1, uintptr_t a2, void *data);
/* Creates a mutex into *sem. 0, or non-zero. */
int32_t gnl_sem_mutex_init(const char *name, GNL_SEM *sem);
/* Takes the mutex, waiting up to timeout (0: until free). 0, or non-zero. */
int32_t gnl_sem_take(GNL_SEM sem, int32_t timeout);
/* Gives the mutex back. 0, or non-zero. */
int32_t gnl_sem_give(GNL_SEM sem);
/* Non-zero when the system is short of memory and settings should be refused. */
int32_t gnl_mem_state(void);
/* strlcpy: copies at most size - 1 bytes and terminates. The length of src. */
size_t gnl_strlcpy(char *dst, const char *src, size_t size);
/* Queues job(data) on a work task; the job then owns data. 0, or non-zero (data stays the caller's). */
int32_t gnl_wt_add_event_job(void *task, uint32_t prio, GNL_WT_JOB_FN job, void *data);
/* The platform's allocator and files; the same contracts as malloc, free, fopen, fgets,
 * fclose and unlink. */
void *__UMV2L_malloc(size_t size);
void __UMV2L_free(void *p);
FILE *__UMV2L_fopen(const char *path, const char *mode);
char *__UMV2L_fgets(char *buf, int size, FILE *f);
int __UMV2L_fclose(FILE *f);
int __UMV2L_unlink(const char *path);

#ifdef __cplusplus
}
#endif

#endif
