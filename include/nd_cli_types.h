/* Records, codes and constants shared between the ND command-line plug-in, the ND service
 * and the platform. Every record that travels is read and written byte-wise at its offsets;
 * the structs here are only the in-memory forms that the two sides of a call agree on. */
#ifndef ND_CLI_TYPES_H
#define ND_CLI_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct NdCliParamItem {
    uint32_t type;     /* item type id */
    uint32_t length;   /* value length in bytes */
    const void *value; /* not owned */
} NdCliParamItem;

#define ND_CLI_PARAM_ITEM_MAX 32
#define ND_CLI_SERVICE_NAME_LEN 32

typedef struct NdCliParam {
    uint32_t cmdCode;         /* command code */
    uint32_t optKind;         /* ND_CLI_OPT_SHOW 0, _BULK 2, _SET 3, _UNDO 4 */
    uint32_t reserved;        /* always 0 */
    uint32_t serviceType;     /* always 234 */
    uint32_t serviceInstance; /* always 1 */
    uint32_t itemCount;
    uint32_t argIndex;
    char serviceName[ND_CLI_SERVICE_NAME_LEN]; /* "ipv6" */
    NdCliParamItem items[ND_CLI_PARAM_ITEM_MAX];
    uint32_t decodedCount; /* records handed to a renderer (VXLAN exchange) */
} NdCliParam;

/* Operation kinds, taken from a command's first keyword. */
enum {
    ND_CLI_OPT_SHOW = 0,
    ND_CLI_OPT_BULK = 2,
    ND_CLI_OPT_SET = 3,
    ND_CLI_OPT_UNDO = 4
};

#define ND_CLI_SERVICE_NAME "ipv6"
#define ND_CLI_SERVICE_TYPE 234u
#define ND_CLI_SERVICE_INSTANCE 1u
#define ND_CLI_MODULE_ID 296u /* the ND module's number with the platform */

/* Command codes of the requests to the ND service. */
enum {
    ND_CMD_PROXY_ENABLE = 0,
    ND_CMD_LOCAL_PROXY_ENABLE = 1,
    ND_CMD_FAST_RESPONSE = 2,
    ND_CMD_SNP_GLOBAL_ENABLE = 3,
    ND_CMD_SNP_LOOSE = 4,
    ND_CMD_SNP_VLAN_ENABLE = 5,
    ND_CMD_SNP_TRUST = 6,
    ND_CMD_SNP_DETECT = 7,
    ND_CMD_SNP_STATISTICS = 9,
    ND_CMD_SNP_PREFIX = 10,
    ND_CMD_SNP_USER_BIND = 11,
    ND_CMD_SNP_USER_BIND_ADDR = 12,
    ND_CMD_SNP_CLEAR_DYNAMIC = 13,
    ND_CMD_DEBUG = 14,
    ND_CMD_FORWARD_STATISTICS = 16,
    ND_CMD_SNP_ATTACK_LOG = 17,
    ND_CMD_PROXY_ADDRESS = 18,
    ND_CMD_VXLAN_FIRST = 19,
    ND_CMD_VXLAN_LAST = 24,
    ND_CMD_VXLAN_HOST = 25,
    ND_CMD_DIAGNOSE = 29,
    ND_CMD_PROXY_ANYWAY = 30
};

/* Result codes; gNdErrorStr holds the text of each. */
enum {
    ND_OK = 0,
    ND_ERR_SYSTEM_BUSY = 17,
    ND_ERR_OPERATION_FAILED = 18,
    ND_ERR_CMF_DECODE = 19,
    ND_ERR_CMF_ENCODE = 20,
    ND_ERR_CMF_RECEIVE = 21,
    ND_ERR_CMF_RESPONSE_FLAG = 22,
    ND_ERR_GET_IFINDEX = 23,
    ND_ERR_PROCESS_NOT_STOPPED = 24,
    ND_ERR_MEMORY_SHORT = 25,
    ND_ERR_GET_VLAN = 26,
    ND_ERR_GET_PORTMAP = 28,
    ND_ERR_DBM = 29,
    ND_ERR_CMF_CONTEXT_TO_ID = 30,
    ND_ERR_DDL_SEND = 31,
    ND_ERR_SUBSCRIBE_IF_EVENT = 32,
    ND_ERR_DDL_MULTISEND = 33,
    ND_ERR_UB_EXIST = 34,
    ND_ERR_UB_NOT_EXIST = 35,
    ND_ERR_SUPER_VLAN_ENABLED = 36,
    ND_ERR_SUPER_VLAN_DISABLED = 37,
    ND_ERR_VLAN_ENABLED = 38,
    ND_ERR_VLAN_DISABLED = 39,
    ND_ERR_IF_ENABLED = 40,
    ND_ERR_IF_DISABLED = 41,
    ND_ERR_PORT_TRUSTED = 42,
    ND_ERR_PORT_NOT_TRUSTED = 43,
    ND_ERR_SET_CPU_PACKET = 44,
    ND_ERR_UB_CEILING = 45,
    ND_ERR_GLOBAL_SNP_DISABLED = 46,
    ND_ERR_VXLAN_NO_SUPPRESS = 47,
    ND_ERR_CONFLICT_ANYWAY = 48,
    ND_ERR_CONFLICT_SUPPRESS = 49,
    ND_ERR_COUNT = 50
};

typedef int32_t (*NdCliPrintFn)(int32_t fd, const char *format, ...);

typedef struct NdCliScriptCtx {
    int32_t fd;
    uintptr_t arg2;
    uintptr_t arg3;
    uintptr_t arg4;
    uint32_t skip;      /* 1: global record callbacks print nothing */
    NdCliPrintFn print; /* nd_CliFdprintf */
} NdCliScriptCtx;

typedef struct GnlListHead {
    struct GnlListHead *next, *prev;
} GnlListHead;

typedef struct GnlHashNode {
    struct GnlHashNode *next, *prev;
    uint32_t hash;
} GnlHashNode;
typedef uint32_t (*GnlHashComputeFn)(const void *entry);
typedef int32_t (*GnlHashCompareFn)(const void *probe, const void *entry); /* 0 = equal */
typedef struct GnlHashTable {
    GnlHashNode **buckets;
    uint32_t nodeOffset;
    GnlHashComputeFn compute;
    GnlHashCompareFn compare;
    uint32_t count;
    uint32_t bucketCount;
    uint32_t magic; /* 0xCBCECBCE while live */
} GnlHashTable;

/* Renderer of the VXLAN exchange: (record, response code, record length). */
typedef uint32_t (*NdCliVxlanRenderFn)(const void *record, uint32_t code, uint32_t length);

typedef int32_t (*NdDbmLibIssuEntryFn)(const void *entry /* 80 bytes */, void *arg);
typedef struct NdDbmLibIssuIterCtx {
    NdDbmLibIssuEntryFn callback;
    void *arg;
} NdDbmLibIssuIterCtx;

#ifdef __cplusplus
}
#endif

#endif
