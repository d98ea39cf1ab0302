// The shell's environment values, pager and console question, as the handlers see them.
// The interactive shell sets the values as the operator changes mode and installs hooks for
// its real pager and console; tests set them directly.
#include <deque>
#include <map>
#include <mutex>

#include "ndplat.h"

namespace {

constexpr uint32_t kNoSession = 0xFFFFFFFFu;

struct EnvState {
    std::mutex mutex;
    std::map<uint32_t, std::string> text;
    std::map<uint32_t, int32_t> ints;
    std::map<uint32_t, void *> ptrs;
    bool interactive = true;
    const ndplat::ShellHooks *hooks = nullptr;
    int32_t quitAfter = -1;
    int32_t breakCalls = 0;
    std::deque<int32_t> answers;
};

EnvState &state()
{
    static EnvState s;
    return s;
}

// The running-configuration session belongs to the thread that builds the display.
thread_local uint32_t tRunningCfgSession = kNoSession;

void resetEnv()
{
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.text.clear();
    s.ints.clear();
    s.ptrs.clear();
    s.interactive = true;
    s.hooks = nullptr;
    s.quitAfter = -1;
    s.breakCalls = 0;
    s.answers.clear();
    tRunningCfgSession = kNoSession;
}

const bool registered = (ndplat::on_reset(resetEnv), true);

const ndplat::ShellHooks *hooks()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().hooks;
}

} // namespace

namespace ndplat {

void shell_env_set(uint32_t var, const char *value)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    if (value)
        state().text[var] = value;
    else
        state().text.erase(var);
}

void int_env_set(uint32_t var, int32_t value)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().ints[var] = value;
}

void ptr_env_set(uint32_t var, void *value)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().ptrs[var] = value;
}

void interactive_set(bool interactive)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().interactive = interactive;
}

void running_cfg_session_set(uint32_t sessionId)
{
    tRunningCfgSession = sessionId;
}

void shell_hooks_set(const ShellHooks *h)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().hooks = h;
}

void pager_quit_after(int32_t breakCalls)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().quitAfter = breakCalls;
    state().breakCalls = 0;
}

void console_answer(int32_t answer)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().answers.push_back(answer);
}

} // namespace ndplat

extern "C" char *SHELL_GetEnv(uint32_t var)
{
    ndplat::trace_call("SHELL_GetEnv", "%u", var);
    if (auto fault = ndplat::fault_next("SHELL_GetEnv"))
        return nullptr;
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    auto it = s.text.find(var);
    return it == s.text.end() ? nullptr : it->second.data();
}

extern "C" int32_t mpsh_get_int_env(uint32_t var)
{
    ndplat::trace_call("mpsh_get_int_env", "%u", var);
    if (auto fault = ndplat::fault_next("mpsh_get_int_env"))
        return static_cast<int32_t>(*fault);
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    auto it = s.ints.find(var);
    return it == s.ints.end() ? 0 : it->second;
}

extern "C" void *mpsh_get_env(uint32_t var)
{
    ndplat::trace_call("mpsh_get_env", "%u", var);
    if (auto fault = ndplat::fault_next("mpsh_get_env"))
        return nullptr;
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    auto it = s.ptrs.find(var);
    return it == s.ptrs.end() ? nullptr : it->second;
}

extern "C" int32_t mpsh_in_interaceive_mode(void)
{
    ndplat::trace_call("mpsh_in_interaceive_mode");
    if (auto fault = ndplat::fault_next("mpsh_in_interaceive_mode"))
        return static_cast<int32_t>(*fault);
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().interactive ? 1 : 0;
}

extern "C" uint32_t SHELL_GetRunningCfgProcSessionId(void)
{
    ndplat::trace_call("SHELL_GetRunningCfgProcSessionId");
    if (auto fault = ndplat::fault_next("SHELL_GetRunningCfgProcSessionId"))
        return static_cast<uint32_t>(*fault);
    return tRunningCfgSession;
}

extern "C" void SHELL_MoreOrientOutput(void)
{
    ndplat::trace_call("SHELL_MoreOrientOutput");
    if (const ndplat::ShellHooks *h = hooks(); h && h->moreOrient)
        h->moreOrient();
}

extern "C" int32_t SHELL_MoreBreakOutput(void)
{
    ndplat::trace_call("SHELL_MoreBreakOutput");
    if (auto fault = ndplat::fault_next("SHELL_MoreBreakOutput"))
        return static_cast<int32_t>(*fault);
    if (const ndplat::ShellHooks *h = hooks(); h && h->moreBreak)
        return h->moreBreak();
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    ++s.breakCalls;
    return s.quitAfter >= 0 && s.breakCalls >= s.quitAfter ? 1 : 0;
}

extern "C" int32_t SHELL_MoreFormatOutput(void)
{
    ndplat::trace_call("SHELL_MoreFormatOutput");
    if (auto fault = ndplat::fault_next("SHELL_MoreFormatOutput"))
        return static_cast<int32_t>(*fault);
    if (const ndplat::ShellHooks *h = hooks(); h && h->moreFormat)
        return h->moreFormat();
    return 0;
}

extern "C" int32_t GetConsoleRsp(const char *question)
{
    ndplat::trace_call("GetConsoleRsp", "%s", ndplat::trace_str(question).c_str());
    if (auto fault = ndplat::fault_next("GetConsoleRsp"))
        return static_cast<int32_t>(*fault);
    if (const ndplat::ShellHooks *h = hooks(); h && h->consoleRsp)
        return h->consoleRsp(question);
    EnvState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (s.answers.empty())
        return 1;
    int32_t answer = s.answers.front();
    s.answers.pop_front();
    return answer;
}
