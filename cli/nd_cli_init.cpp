// The plug-in's entry: start-up registers everything through which the shell and the
// platform later call in; after that the plug-in only reacts to those calls.
#include "nd_cli_internal.h"
#include "nd_cmd.h"
#include "vxlan/nd_cli_vxlan.h"

namespace {

constexpr uint32_t kGipcMaxIndex = 0x10000;
constexpr uint32_t kGipcTypeBits = 0x7FFF0000u;
constexpr uint32_t kGipcInstanceBits = 0x7FFC0000u;
constexpr uint32_t kGipcInvalid = 0xFFFFFFFFu;

constexpr uint32_t kShellEvent = 23;
constexpr uint32_t kShellRunningConfigEnd = 8; // SHELL_NOTIFY_SHW_RCONFIG_END
constexpr const char *kEventClient = "ND_CLI";

// Running-configuration handlers, in the order the shell requires.
struct ScriptRegistration {
    const char *module;
    SHELL_SCRIPT_FN handler;
    uint32_t section;
    uint32_t mode;
    uint32_t flags;
};
constexpr ScriptRegistration kScripts[] = {
    {"NDP", ndGobleEnableScriptHandler, 27, 1, 32},
    {"NDP", ndGobleScriptHandler, 321, 1, 32},
    {"NDP", ndIfScriptHandler, 83, 3, 16},
    {"NDP", ndIfScriptHandler, 60, 4, 16},
    {"NDP", ndPortIfScriptHandler, 93, 5, 16},
    {"PROTOCOL_ND", nd_CliVxlanScriptHandler, 1, 13, 16},
    {"NDP", ndVlanIfScriptHandler, 8, 2, 16},
};
// The debug hook is registered between the sixth and the seventh script handler.
constexpr size_t kScriptsBeforeDebugHook = 6;

} // namespace

extern "C" {

uint32_t SYSTEM_SCRIPT_CHS = 0;
uint32_t SYSTEM_SCRIPT_CHS_INTERFACE = 0;
uint32_t VXLAN_VXPORT_MODE = 0;

uint32_t (*dl_cli_init)(void) = dl_nd_cli_init;

uint32_t gipc_sys_type(uint32_t t)
{
    return t < kGipcMaxIndex ? (t | kGipcTypeBits) : kGipcInvalid;
}

uint32_t gipc_sys_instance(uint32_t i, uint32_t n)
{
    if (i >= kGipcMaxIndex || n < 1 || n > 4)
        return kGipcInvalid;
    return ((n - 1) << 16) | kGipcInstanceBits | i;
}

uint32_t ndCliRegService(void)
{
    CMF_SERVICE_ADDR address = {0, 0};
    address.type = gipc_sys_type(ND_CLI_SERVICE_TYPE);
    address.instance = gipc_sys_instance(ND_CLI_SERVICE_INSTANCE, 1);
    if (CMF_ClientServiceReg(ND_CLI_SERVICE_NAME, &address) != 0)
        return ND_ERR_SYSTEM_BUSY;
    return ND_OK;
}

uint32_t ndCliEvtRegister(void)
{
    if (notifyRegister(kShellEvent, kShellRunningConfigEnd, kEventClient, 2, 1, ndCliEvtShellCb, 0) == 0)
        return ND_OK;
    return static_cast<uint32_t>(NLOG_Send(ND_CLI_MODULE_ID, 0, 8, 4,
                                           "Register shell  SHELL_NOTIFY_SHW_RCONFIG_END unsuccessfully "));
}

int32_t ndCliEvtShellCb(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4)
{
    (void)arg3;
    if (event != kShellEvent || subevent != kShellRunningConfigEnd)
        return 0;
    nd_CliDbmSessFree(arg4, ndwire::kTypeVlan);
    return 0;
}

uint32_t dl_nd_cli_init(void)
{
    uint32_t result = ndCliRegService();
    if (result != ND_OK)
        return result;

    ndCmdRegister();
    nd_CliVxlanCmdRegister();
    nd_CliVxlanDebugCmdReg();

    for (size_t i = 0; i < sizeof kScripts / sizeof kScripts[0]; ++i) {
        if (i == kScriptsBeforeDebugHook)
            DEBUG_ModuleReg("ND", ndCliDebugCtrlProc);
        const ScriptRegistration &r = kScripts[i];
        SHELL_ConfigScriptReg(r.module, r.handler, r.section, r.mode, r.flags);
    }

    return ndCliEvtRegister();
}

} // extern "C"
