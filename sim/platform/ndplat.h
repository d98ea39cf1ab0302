// The emulated platform's own interface, for the shell, the service and the tests: the call
// trace, fault injection, the recorded registrations, the message-framework responder and the
// state behind the shell's environment values. The plug-in never sees this header; it calls
// the platform only through include/nd_platform.h.
#ifndef NDPLAT_H
#define NDPLAT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "nd_cli_wire.h"
#include "nd_platform.h"

namespace ndplat {

// ---- call trace -------------------------------------------------------------------------
// Every platform function records one line "Name(arg, arg, ...)" when it is called. Strings
// are quoted, null pointers read "null", other pointers "ptr".
void trace_call(const char *name); // a call without arguments
void trace_call(const char *name, const char *argFormat, ...) __attribute__((format(printf, 2, 3)));
std::vector<std::string> trace();                    // every line since the last clear
std::vector<std::string> trace_of(const char *name); // the lines of one function
void trace_clear();                                  // forgets every line kept so far
void trace_echo(FILE *stream);                       // also print each line as it happens; null: off
// Whether lines are kept for trace(): on by default, for tests. A long-running shell or
// service turns it off, so that the trace neither grows without bound nor costs a formatting
// per call (an echo still prints).
void trace_record_set(bool record);

// Formats a string argument for a trace line: "text" or null.
std::string trace_str(const char *s);

// ---- fault injection ----------------------------------------------------------------------
// The next `count` calls of the platform function `name` return `value` instead of doing
// their work (for functions returning a pointer, value 0 returns null); with `skip`, that
// many calls go through first.
void fault_inject(const std::string &name, int64_t value, uint32_t count = 1, uint32_t skip = 0);
void fault_clear(); // forgets every injection still due
// Called by a platform function on entry: the injected value, if one is due.
std::optional<int64_t> fault_next(const char *name);
// Parses "FUNC=VALUE" or "FUNC=VALUExN" (the shell's --fault option). False on a bad text.
bool fault_parse(const std::string &text);

// ---- allocator ---------------------------------------------------------------------------
long outstanding_allocations(); // __UMV2L_malloc minus __UMV2L_free

// ---- registrations ------------------------------------------------------------------------
struct CmdRegistration {
    uint32_t flags;
    uint32_t module;
    SHELL_CMD_FN fn;
    std::string definition;
    bool viaCmdRegister; // registered with cmd_register rather than SHELL_CmdRegByModule
};
struct ScriptRegistration {
    std::string module;
    SHELL_SCRIPT_FN fn;
    uint32_t section;
    uint32_t mode;
    uint32_t flags;
};
struct DebugRegistration {
    std::string module;
    DEBUG_CTRL_FN fn;
};
struct NotifyRegistration {
    uint32_t event, subevent;
    std::string client;
    uint32_t a4, a5;
    NOTIFY_FN fn;
    uint32_t a7;
};
// Copies of the registrations made since the last reset, in the order they were made.
std::vector<CmdRegistration> cmd_registrations();
std::vector<ScriptRegistration> script_registrations();
std::vector<DebugRegistration> debug_registrations();
std::vector<NotifyRegistration> notify_registrations();
// Raises a platform event to every callback registered for it (the shell's end of a display).
void notify_raise(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4);
// Extension point of the command language: called for each registered definition; a non-zero
// result is what SHELL_CmdRegByModule / cmd_register return.
using CmdRegistrationSink = uint32_t (*)(const CmdRegistration &registration);
void cmd_registration_sink_set(CmdRegistrationSink sink); // null: registrations are only recorded

// ---- log --------------------------------------------------------------------------------
struct LogRecord {
    uint32_t module, a2, a3, level;
    std::string text;
};
std::vector<LogRecord> log_records(); // copies of the records sent since the last reset
void log_echo(FILE *stream);          // also print each record as it is sent; null: off

// ---- message framework ---------------------------------------------------------------------
struct CmfItem {
    uint32_t type = 0;
    uint32_t length = 0;
    std::vector<uint8_t> bytes; // a copy of the value; empty for a null value

    static CmfItem of(uint32_t type, const void *value, uint32_t length); // copies the value
    static CmfItem u32(uint32_t type, uint32_t value);                    // 4 bytes in host order
    uint32_t as_u32() const;                                              // first 4 bytes in host order
};

// One request as the service receives it: the header of the object given to
// CMF_ClientContextObjSet, read when the request is sent, and the items encoded since the
// last send.
struct CmfRequest {
    std::string service; // of the context
    uint32_t contextType = 0, contextInstance = 0, timeout = 0;
    bool hasObject = false;
    uint32_t cmdCode = 0, optKind = 0, reserved = 0, serviceType = 0, serviceInstance = 0;
    uint32_t itemCount = 0, argIndex = 0;
    std::vector<CmfItem> items;
};

// One response: its status (0: more may follow, 13: the last one, 16 and above: an error code
// of the service; 1-15 a failure of the framework), its items, and the status that decoding
// returns once the items are used up (13 normally).
struct CmfResponse {
    uint32_t status = ndwire::kCmfNoMore;
    std::vector<CmfItem> items;
    uint32_t endStatus = ndwire::kCmfNoMore;
};

// The way a context reaches the service. Without a transport set, requests are answered in
// process: first from the scripted responses, then by the responder, else with status 13.
class CmfTransport {
public:
    virtual ~CmfTransport() = default;
    // Opens the connection of a new context; false when the service cannot be reached.
    virtual bool open(void **connection) = 0;
    // Sends one request and waits for its answer; 0, or the framework status of the failure.
    virtual uint32_t send(void *connection, const CmfRequest &request, uint32_t timeout) = 0;
    // The next answer into `response`; 0, or the framework status of the failure.
    virtual uint32_t receive(void *connection, CmfResponse &response, uint32_t timeout) = 0;
    // Releases what open() made; the connection is not used again.
    virtual void close(void *connection) = 0;
};
void cmf_transport_set(CmfTransport *transport); // null: in process

using CmfResponder = std::function<CmfResponse(const CmfRequest &)>;
void cmf_responder_set(CmfResponder responder); // answers what no script answers; empty: none
void cmf_script(const CmfResponse &response);   // answers the next request not yet answered
std::vector<CmfRequest> cmf_requests();         // every request sent, in order
long cmf_open_contexts();                       // opened and not yet closed
// Responses that never came from the service (unreachable, connection closed, timeout,
// malformed answer) or that it answered "busy" (17), counted since the process started.
unsigned long service_failures();
std::vector<std::pair<std::string, CMF_SERVICE_ADDR>> cmf_services(); // CMF_ClientServiceReg calls

// ---- service control ---------------------------------------------------------------------
// States of DCM_Query: 0, 1 and 4 mean that the service process must be started.
struct ServiceControl {
    int32_t (*query)(const char *service);
    int32_t (*start)(const char *service, uint32_t how);
};
void dcm_control_set(const ServiceControl *control); // null: the in-process state below
void dcm_state_set(int32_t state);                   // in process; DCM_Start sets it to 2

// ---- shell environment -----------------------------------------------------------------------
void shell_env_set(uint32_t var, const char *value); // SHELL_GetEnv; null unsets
void int_env_set(uint32_t var, int32_t value);       // mpsh_get_int_env
void ptr_env_set(uint32_t var, void *value);         // mpsh_get_env
void interactive_set(bool interactive);              // mpsh_in_interaceive_mode
void running_cfg_session_set(uint32_t sessionId);    // SHELL_GetRunningCfgProcSessionId, this thread

// The shell's pager and console. Without hooks: SHELL_MoreBreakOutput answers from the
// scripted quit point, GetConsoleRsp from the scripted answers (default yes).
struct ShellHooks {
    void (*moreOrient)();
    int32_t (*moreBreak)();
    int32_t (*moreFormat)();
    int32_t (*consoleRsp)(const char *question);
};
void shell_hooks_set(const ShellHooks *hooks); // kept, not copied; null: the scripted behaviour
void pager_quit_after(int32_t breakCalls);     // the Nth SHELL_MoreBreakOutput and later say quit; <0 never
void console_answer(int32_t answer);           // queued answer of the next GetConsoleRsp

// ---- chassis --------------------------------------------------------------------------------
void chassis_mode_set(uint32_t mode); // DMM_GetChsMode; 2 is the FNS mode

// ---- whole platform --------------------------------------------------------------------------
// Forgets every recorded call, registration, request, script, hook and setting: a fresh
// platform for the next test. Outstanding allocations are not forgotten.
void reset();

// Hooks of the platform's own parts into reset(): each part clears its state.
using ResetFn = void (*)();
void on_reset(ResetFn fn); // fn runs on every later reset()

} // namespace ndplat

#endif
