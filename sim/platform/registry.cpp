// The registrations that a plug-in makes with the shell, the debug framework and the event
// service. Each is recorded; the command language (a sink) turns definitions into commands.
#include <mutex>

#include "ndplat.h"

namespace {

struct RegistryState {
    std::mutex mutex;
    std::vector<ndplat::CmdRegistration> cmds;
    std::vector<ndplat::ScriptRegistration> scripts;
    std::vector<ndplat::DebugRegistration> debugs;
    std::vector<ndplat::NotifyRegistration> notifies;
    ndplat::CmdRegistrationSink sink = nullptr;
};

RegistryState &state()
{
    static RegistryState s;
    return s;
}

void resetRegistry()
{
    RegistryState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.cmds.clear();
    s.scripts.clear();
    s.debugs.clear();
    s.notifies.clear();
}

const bool registered = (ndplat::on_reset(resetRegistry), true);

uint32_t registerCommand(const ndplat::CmdRegistration &registration)
{
    ndplat::CmdRegistrationSink sink;
    {
        RegistryState &s = state();
        std::lock_guard<std::mutex> hold(s.mutex);
        s.cmds.push_back(registration);
        sink = s.sink;
    }
    return sink ? sink(registration) : 0;
}

} // namespace

namespace ndplat {

std::vector<CmdRegistration> cmd_registrations()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().cmds;
}

std::vector<ScriptRegistration> script_registrations()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().scripts;
}

std::vector<DebugRegistration> debug_registrations()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().debugs;
}

std::vector<NotifyRegistration> notify_registrations()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().notifies;
}

void notify_raise(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4)
{
    for (const NotifyRegistration &n : notify_registrations())
        if (n.event == event && n.subevent == subevent && n.fn)
            n.fn(event, subevent, arg3, arg4);
}

void cmd_registration_sink_set(CmdRegistrationSink sink)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().sink = sink;
}

} // namespace ndplat

extern "C" uint32_t SHELL_CmdRegByModule(uint32_t flags, uint32_t module, SHELL_CMD_FN fn,
                                         const char *def)
{
    ndplat::trace_call("SHELL_CmdRegByModule", "%u, %u, %s, %s", flags, module, fn ? "ptr" : "null",
                       ndplat::trace_str(def).c_str());
    if (auto fault = ndplat::fault_next("SHELL_CmdRegByModule"))
        return static_cast<uint32_t>(*fault);
    return registerCommand(ndplat::CmdRegistration{flags, module, fn, def ? def : "", false});
}

extern "C" uint32_t cmd_register(SHELL_CMD_FN fn, const char *syntax)
{
    ndplat::trace_call("cmd_register", "%s, %s", fn ? "ptr" : "null", ndplat::trace_str(syntax).c_str());
    if (auto fault = ndplat::fault_next("cmd_register"))
        return static_cast<uint32_t>(*fault);
    return registerCommand(ndplat::CmdRegistration{0, 0, fn, syntax ? syntax : "", true});
}

extern "C" uint32_t SHELL_ConfigScriptReg(const char *module, SHELL_SCRIPT_FN fn, uint32_t section,
                                          uint32_t mode, uint32_t flags)
{
    ndplat::trace_call("SHELL_ConfigScriptReg", "%s, %s, %u, %u, %u", ndplat::trace_str(module).c_str(),
                       fn ? "ptr" : "null", section, mode, flags);
    if (auto fault = ndplat::fault_next("SHELL_ConfigScriptReg"))
        return static_cast<uint32_t>(*fault);
    std::lock_guard<std::mutex> hold(state().mutex);
    state().scripts.push_back(ndplat::ScriptRegistration{module ? module : "", fn, section, mode, flags});
    return 0;
}

extern "C" uint32_t DEBUG_ModuleReg(const char *module, DEBUG_CTRL_FN fn)
{
    ndplat::trace_call("DEBUG_ModuleReg", "%s, %s", ndplat::trace_str(module).c_str(), fn ? "ptr" : "null");
    if (auto fault = ndplat::fault_next("DEBUG_ModuleReg"))
        return static_cast<uint32_t>(*fault);
    std::lock_guard<std::mutex> hold(state().mutex);
    state().debugs.push_back(ndplat::DebugRegistration{module ? module : "", fn});
    return 0;
}

extern "C" int32_t notifyRegister(uint32_t event, uint32_t subevent, const char *client, uint32_t a4,
                                  uint32_t a5, NOTIFY_FN fn, uint32_t a7)
{
    ndplat::trace_call("notifyRegister", "%u, %u, %s, %u, %u, %s, %u", event, subevent,
                       ndplat::trace_str(client).c_str(), a4, a5, fn ? "ptr" : "null", a7);
    if (auto fault = ndplat::fault_next("notifyRegister"))
        return static_cast<int32_t>(*fault);
    std::lock_guard<std::mutex> hold(state().mutex);
    state().notifies.push_back(ndplat::NotifyRegistration{event, subevent, client ? client : "", a4, a5, fn, a7});
    return 0;
}
