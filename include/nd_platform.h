/* The platform functions that the ND command-line plug-in imports. On the switch they come
 * from the platform's own libraries; here the emulated platform (libndplat) defines them. */
#ifndef ND_PLATFORM_H
#define ND_PLATFORM_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* message framework client */
typedef void *CMF_CONTEXT;                                   /* null: none */
typedef struct CMF_SERVICE_ADDR { uint32_t type, instance; } CMF_SERVICE_ADDR;
uint32_t    CMF_ClientServiceReg(const char *service, CMF_SERVICE_ADDR *addr);
CMF_CONTEXT CMF_ClientContextInit(const char *service, uint32_t type, uint32_t instance);
uint32_t    CMF_ClientContextTimeoutSet(CMF_CONTEXT ctx, uint32_t timeout);
uint32_t    CMF_ClientContextObjSet(CMF_CONTEXT ctx, void *object);     /* the NdCliParam */
uint32_t    CMF_ClientParamEncode(CMF_CONTEXT ctx, uint32_t type, uint32_t length, const void *value);
uint32_t    CMF_ClientRequestSend(CMF_CONTEXT ctx);
uint32_t    CMF_ClientResponseRecv(CMF_CONTEXT ctx);
uint32_t    CMF_ClientParamDecode(CMF_CONTEXT ctx, uint32_t *type, uint32_t *length, void **value);
uint32_t    CMF_ClientContextClose(CMF_CONTEXT ctx);

/* service control */
int32_t DCM_Query(const char *service);
int32_t DCM_Start(const char *service, uint32_t how);

/* configuration database */
typedef void *DBM_HANDLE;                                    /* null: not open */
typedef int32_t (*DBM_PROC_FN)(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg);
/* What the ND databases are opened with: DBM_Open(name, ND_DBM_OPEN_MODE, param, 0, 0, &h)
 * with `const uint32_t param[7] = ND_DBM_OPEN_PARAM;`. */
#define ND_DBM_OPEN_MODE  1u
#define ND_DBM_OPEN_PARAM {1, 1, 256, 0, 0, 0, 0}
uint32_t DBM_Open(const char *db, uint32_t mode, const uint32_t param[7],
                  uint32_t r1, uint32_t r2, DBM_HANDLE *handle);
uint32_t DBM_Close(DBM_HANDLE h);
int32_t  DBM_Proc(DBM_HANDLE h, uint32_t valueType, DBM_PROC_FN fn, void *arg);
int32_t  DBM_GetLen(DBM_HANDLE h, const void *key, uint16_t keyLen);
int32_t  DBM_GetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t flags,
                             void *buf, uint32_t bufLen);
int32_t  DBM_SetUniqueBinary(DBM_HANDLE h, const void *key, uint16_t keyLen, uint32_t valueType,
                             const void *value, uint32_t length, uint32_t flags);
int32_t  DBM_GetBulkFromSortList(DBM_HANDLE h, const void *key, uint16_t keyLen, void **iterator,
                                 uint32_t r1, uint32_t r2, uint32_t maxCount,
                                 void *buf, uint32_t entrySize);
void     DBM_FreeIterator(void *iterator);
int32_t  DBM_Save(const char *path, uint32_t a2, uint32_t a3, uint32_t a4);

/* shell */
typedef int32_t (*SHELL_CMD_FN)(int32_t argc, char **argv);
typedef int32_t (*SHELL_SCRIPT_FN)(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4);
uint32_t SHELL_CmdRegByModule(uint32_t flags, uint32_t module, SHELL_CMD_FN fn, const char *def);
uint32_t cmd_register(SHELL_CMD_FN fn, const char *syntax);
uint32_t SHELL_ConfigScriptReg(const char *module, SHELL_SCRIPT_FN fn, uint32_t section,
                               uint32_t mode, uint32_t flags);
/* Environment ids of the shell's configuration modes, as the command handlers read them. */
enum {
    ND_SHELL_ENV_IF_NAME    = 1,    /* SHELL_GetEnv: the interface being configured */
    ND_SHELL_ENV_PORTMAP    = 19,   /* mpsh_get_env: the port map being configured */
    ND_SHELL_ENV_VLAN       = 53,   /* mpsh_get_int_env: the VLAN, super VLAN or VXLAN id */
    ND_SHELL_ENV_SUPER_VLAN = 136,
    ND_SHELL_ENV_VXLAN      = 164
};
char    *SHELL_GetEnv(uint32_t var);                         /* 1: current interface name */
uint32_t SHELL_GetRunningCfgProcSessionId(void);             /* 0xFFFFFFFF: none */
void     SHELL_MoreOrientOutput(void);
int32_t  SHELL_MoreBreakOutput(void);                        /* non-zero: operator quit */
int32_t  SHELL_MoreFormatOutput(void);
int32_t  GetConsoleRsp(const char *question);                /* non-zero: yes */
void    *mpsh_get_env(uint32_t var);                         /* 19: current port map */
int32_t  mpsh_get_int_env(uint32_t var);                     /* 53 VLAN, 136 super VLAN, 164 VXLAN */
int32_t  mpsh_in_interaceive_mode(void);

/* debug, log, events */
typedef void    (*DEBUG_CTRL_FN)(uint32_t code);
typedef int32_t (*NOTIFY_FN)(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4);
uint32_t DEBUG_ModuleReg(const char *module, DEBUG_CTRL_FN fn);
int32_t  NLOG_Send(uint32_t module, uint32_t a2, uint32_t a3, uint32_t level, const char *format, ...)
    __attribute__((format(printf, 5, 6)));
int32_t  notifyRegister(uint32_t event, uint32_t subevent, const char *client, uint32_t a4,
                        uint32_t a5, NOTIFY_FN fn, uint32_t a7);

/* port management */
extern uint32_t g_max_pbmp_bytes;
int32_t cmdString2Portmap(const char *text, void *map, uint32_t size);
void    portmapCopy(void *dst, const void *src);
int32_t portmapIsEmpty(const void *map);                     /* 1: empty */
int32_t portmap2PortID(const void *map, uint32_t size, int32_t *portId, char *name);
int32_t isPmPortConfigurable(int32_t portId, const char *module, uint32_t a3, uint32_t a4);
int32_t portID2FmtString(int32_t portId, char *buf);
int32_t portID2ShortString(int32_t portId, char *buf);

/* chassis and modules */
int32_t DMM_GetChsMode(uint32_t *mode);
int32_t MODULEMGMT_GetModName(uint32_t moduleId, char *name, uint32_t size);

/* VXLAN and ND libraries, and handlers of other ND modules */
/* The port information of VXLAN_GetVxportBasicInfo: the fields the ND handlers read. */
enum {
    ND_VXPORT_INFO_SIZE     = 1612,
    ND_VXPORT_INFO_KIND     = 4,    /* u16 ND_VXPORT_KIND_ATTACHED: a port with an ID */
    ND_VXPORT_INFO_PORT_ID  = 8,    /* i32 */
    ND_VXPORT_INFO_SVLAN    = 12,   /* u16 */
    ND_VXPORT_INFO_CVLAN    = 14,   /* u16 */
    ND_VXPORT_KIND_ATTACHED = 1
};
int32_t VXLAN_GetVxportBasicInfo(uint32_t portIndex, void *info /* ND_VXPORT_INFO_SIZE bytes */);
void   *nsm_vxlan_interaction_mgmt_get_handle(void);
int32_t ND_AddSuppressionHost(void *record, uint32_t count, uint32_t *out);
int32_t ND_DelSuppressionHost(void *record, uint32_t count, uint32_t *out);
int32_t ND_AddRemoteNbr(void *record, uint32_t count, uint32_t *out);
int32_t ND_DelRemoteNbr(void *record, uint32_t count, uint32_t *out);
int32_t shell_nd6_proxy(int32_t argc, char **argv);
int32_t IPAM_Struct2String(const void *address /* 20 bytes */, char *text /* 40 bytes */);
int32_t enet_addr(const char *text, uint8_t *mac /* 6 bytes */);
int32_t nd_MposPublishRegShowCmd(int32_t argc, char **argv);
int32_t nd_MposPublishRegClearCmd(int32_t argc, char **argv);
int32_t nd_MposPublishRegDebugCmd(int32_t argc, char **argv);
int32_t nd_MlagShowCmd(int32_t argc, char **argv);
int32_t nd_MlagDebugCmd(int32_t argc, char **argv);
void    nd_MposPublishCliDebugCtrl(uint32_t code);
void    nd_MlagDbgCtrl(uint32_t code);

/* generic runtime */
typedef void *GNL_SEM;
typedef void (*GNL_WT_JOB_FN)(uintptr_t a1, uintptr_t a2, void *data);
int32_t gnl_sem_mutex_init(const char *name, GNL_SEM *sem);
int32_t gnl_sem_take(GNL_SEM sem, int32_t timeout);          /* 0: wait until free */
int32_t gnl_sem_give(GNL_SEM sem);
int32_t gnl_mem_state(void);                                 /* non-zero: memory short */
size_t  gnl_strlcpy(char *dst, const char *src, size_t size);
int32_t gnl_wt_add_event_job(void *task, uint32_t prio, GNL_WT_JOB_FN job, void *data);
void   *__UMV2L_malloc(size_t size);
void    __UMV2L_free(void *p);
FILE   *__UMV2L_fopen(const char *path, const char *mode);
char   *__UMV2L_fgets(char *buf, int size, FILE *f);
int     __UMV2L_fclose(FILE *f);
int     __UMV2L_unlink(const char *path);

#ifdef __cplusplus
}
#endif

#endif
