// A plug-in for the shell's tests, loaded by ndsh with --plugin exactly as libnd-cli.so is:
// dlopen, then the entry through the data symbol dl_cli_init. Its commands, script handlers,
// debug hook and event callback print what the shell handed them, so that the tests can see
// argument vectors, environment values, handler arguments, session ids and pager answers.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <unistd.h>

#include "nd_platform.h"

namespace {

constexpr const char *kAllModes = "EN|CONF|IF|PORTIF|MIF|VLAN|SUPERVLAN|PORT|LINK_AGGREGATION|VXLAN";

int32_t probe(int32_t argc, char **argv)
{
    printf("\nargv:");
    for (int32_t i = 0; i < argc; ++i)
        printf(" [%s]", argv[i]);
    if (argv[argc] != nullptr)
        printf(" (argv not terminated)");
    const char *name = SHELL_GetEnv(1);
    printf("\nif=%s vlan=%d supervlan=%d vxlan=%d", name ? name : "(none)", mpsh_get_int_env(53),
           mpsh_get_int_env(136), mpsh_get_int_env(164));
    void *map = mpsh_get_env(19);
    if (!map) {
        printf(" ports=(none)");
    } else {
        int32_t id = 0;
        char portName[100] = {0};
        portmap2PortID(map, g_max_pbmp_bytes, &id, portName);
        char formatted[100] = {0};
        portID2FmtString(id, formatted);
        printf(" ports=%d:%s", id, formatted);
    }
    printf(" interactive=%d", mpsh_in_interaceive_mode());
    return 0;
}

// Prints "line 1" ... "line N" as a paged listing does; reports on standard error where the
// pager made it stop.
int32_t lines(int32_t argc, char **argv)
{
    int n = argc > 1 ? atoi(argv[1]) : 0;
    // A slow listing (microseconds per line), for an operator who interrupts it.
    const char *delay = getenv("PROBE_LINE_DELAY_US");
    useconds_t pause = delay ? static_cast<useconds_t>(atol(delay)) : 0;
    SHELL_MoreOrientOutput();
    int i = 1;
    for (; i <= n; ++i) {
        if (pause)
            usleep(pause);
        printf("\nline %d", i);
        if (SHELL_MoreBreakOutput() != 0)
            break;
    }
    fprintf(stderr, "lines: %s at %d\n", i <= n ? "quit" : "done", i <= n ? i : n);
    return SHELL_MoreFormatOutput();
}

// Prints N MiB as lines of 1 KiB ("00000000 xxx...x\n", numbered from 0) without a single
// pager call, as a listing that never ends would; with "ask", a console question follows.
int32_t flood(int32_t argc, char **argv)
{
    constexpr size_t kLine = 1024;
    long lines = (argc > 1 ? atol(argv[1]) : 0) * 1024;
    char line[kLine];
    for (long i = 0; i < lines; ++i) {
        int n = snprintf(line, sizeof line, "%08ld ", i);
        memset(line + n, 'x', kLine - 1 - static_cast<size_t>(n));
        line[kLine - 1] = '\n';
        fwrite(line, 1, kLine, stdout);
    }
    if (argc > 2 && strcmp(argv[2], "ask") == 0)
        printf("answer %d", GetConsoleRsp("Sure(Yes|No)?\n"));
    fprintf(stderr, "flood: done\n");
    return 0;
}

// Prints N MiB of 'x' on one line that never ends.
int32_t flood_line(int32_t argc, char **argv)
{
    long chunks = (argc > 1 ? atol(argv[1]) : 0) * 16;
    static char chunk[64 << 10];
    memset(chunk, 'x', sizeof chunk);
    for (long i = 0; i < chunks; ++i)
        fwrite(chunk, 1, sizeof chunk, stdout);
    fprintf(stderr, "flood-line: done\n");
    return 0;
}

// Reports on standard error the largest resident set the shell's process has had since it was
// started (VmHWM: counted from the exec, unlike the wait status's ru_maxrss, which includes
// the forked copy of the test program).
int32_t peak_memory(int32_t, char **)
{
    FILE *status = fopen("/proc/self/status", "r");
    char line[256];
    long kb = -1;
    while (status && fgets(line, sizeof line, status))
        if (strncmp(line, "VmHWM:", 6) == 0)
            kb = atol(line + 6);
    if (status)
        fclose(status);
    fprintf(stderr, "peak-memory: %ld\n", kb);
    return 0;
}

// Prints a line, then fails as an allocation fails in C++: what a command that runs out of
// memory does to the shell.
int32_t out_of_memory(int32_t, char **)
{
    printf("before the failure\n");
    throw std::bad_alloc();
}

int32_t ask(int32_t, char **)
{
    int32_t answer = GetConsoleRsp("\nSure(Yes|No)?");
    printf("\nanswer %d", answer);
    return 0;
}

int32_t script_global_late(int32_t fd, uintptr_t, uintptr_t, uintptr_t)
{
    return dprintf(fd, "\nprobe global 50");
}

int32_t script_global_early(int32_t fd, uintptr_t a2, uintptr_t a3, uintptr_t a4)
{
    return dprintf(fd, "\nprobe global 10 args %lu %lu %lu session %u", static_cast<unsigned long>(a2),
                   static_cast<unsigned long>(a3), static_cast<unsigned long>(a4), SHELL_GetRunningCfgProcSessionId());
}

int32_t script_vlan(int32_t fd, uintptr_t a2, uintptr_t vlan, uintptr_t a4)
{
    return dprintf(fd, "\n probe vlan %lu (%lu %lu) session %u", static_cast<unsigned long>(vlan),
                   static_cast<unsigned long>(a2), static_cast<unsigned long>(a4), SHELL_GetRunningCfgProcSessionId());
}

int32_t script_vlan_if(int32_t fd, uintptr_t, uintptr_t, uintptr_t name)
{
    return dprintf(fd, "\n probe kind 3 %s", reinterpret_cast<const char *>(name));
}

int32_t script_other_if(int32_t fd, uintptr_t, uintptr_t, uintptr_t name)
{
    return dprintf(fd, "\n probe kind 4 %s", reinterpret_cast<const char *>(name));
}

int32_t script_port(int32_t fd, uintptr_t, uintptr_t, uintptr_t port)
{
    char name[100] = {0};
    portID2FmtString(static_cast<int32_t>(port), name);
    return dprintf(fd, "\n probe port %lu %s", static_cast<unsigned long>(port), name);
}

int32_t script_vxlan(int32_t fd, uintptr_t, uintptr_t vxlan, uintptr_t)
{
    return dprintf(fd, "\n probe vxlan %lu", static_cast<unsigned long>(vxlan));
}

void debug_hook(uint32_t code)
{
    printf("\nprobe debug code %u", code);
}

int32_t end_of_display(uint32_t event, uint32_t subevent, uint32_t arg3, uint32_t arg4)
{
    fprintf(stderr, "event %u %u %u %u, session now %u\n", event, subevent, arg3, arg4,
            SHELL_GetRunningCfgProcSessionId());
    return 0;
}

// A show of the VLAN mode's own, beside the privileged one of the same words.
int32_t show_vlan_own(int32_t, char **)
{
    printf("\nthe VLAN mode's own show");
    return 0;
}

int32_t show_privileged(int32_t, char **)
{
    printf("\nthe privileged show");
    return 0;
}

uint32_t probe_init()
{
    char def[512];
    snprintf(def, sizeof def, "probe(%s,0,'Print what a handler sees'){_CR_(%s,0,''),_LINE_(%s,0,'Any words')}",
             kAllModes, kAllModes, kAllModes);
    SHELL_CmdRegByModule(0, 1, probe, def);
    SHELL_CmdRegByModule(0, 1, lines,
                         "lines(EN,0,'Print numbered lines'){_1_100000_(EN,0,'How many lines'){_CR_(EN,0,''),"
                         "|(EN,0,'Output modifiers'){begin(EN,0,'Begin with the line that matches'){_LINE_(EN,0,"
                         "'Regular Expression')},include(EN,0,'Include lines that match'){context(EN,0,'Include "
                         "two line before and after the match line'){_LINE_(EN,0,'Regular Expression')},_LINE_(EN,"
                         "0,'Regular Expression')},exclude(EN,0,'Exclude lines that match'){_LINE_(EN,0,'Regular "
                         "Expression')},redirect(EN,0,'Redirect output to other resource'){file(EN,0,'Output to "
                         "file'){_WORD_(EN,0,'Destination file name')}}}}}");
    SHELL_CmdRegByModule(0, 1, flood,
                         "flood(EN,0,'Print MiB of lines without pager calls'){_1_1024_(EN,0,'MiB'){_CR_(EN,0,''),"
                         "ask(EN,0,'Ask a question afterwards'),|(EN,0,'Output modifiers'){include(EN,0,'Include "
                         "lines that match'){_LINE_(EN,0,'Regular Expression')},exclude(EN,0,'Exclude lines that "
                         "match'){_LINE_(EN,0,'Regular Expression')},redirect(EN,0,'Redirect output to other "
                         "resource'){file(EN,0,'Output to file'){_WORD_(EN,0,'Destination file name')}}}}}");
    SHELL_CmdRegByModule(0, 1, flood_line,
                         "flood-line(EN,0,'Print MiB of one line'){_1_1024_(EN,0,'MiB'){_CR_(EN,0,''),|(EN,0,"
                         "'Output modifiers'){include(EN,0,'Include lines that match'){_LINE_(EN,0,'Regular "
                         "Expression')},exclude(EN,0,'Exclude lines that match'){_LINE_(EN,0,'Regular "
                         "Expression')}}}}");
    SHELL_CmdRegByModule(0, 1, show_vlan_own, "show(VLAN,0,'Show'){probe-show(VLAN,0,HIDE,'The mode has its own')}");
    SHELL_CmdRegByModule(0, 1, show_privileged, "show(EN,0,'Show'){probe-show(EN,0,HIDE,'The privileged one')}");
    SHELL_CmdRegByModule(0, 1, peak_memory, "peak-memory(EN,0,'Report the largest resident set so far')");
    SHELL_CmdRegByModule(0, 1, out_of_memory, "out-of-memory(EN,0,'Fail as an allocation fails')");
    SHELL_CmdRegByModule(0, 1, ask, "ask(EN|CONF,0,'Ask the operator a question')");
    SHELL_CmdRegByModule(0, 1, probe, "secret(EN,0,HIDE,'A hidden command'){word(EN,0,HIDE,'Hidden too')}");
    SHELL_ConfigScriptReg("PROBE", script_global_late, 50, 1, 32);
    SHELL_ConfigScriptReg("PROBE", script_global_early, 10, 1, 32);
    SHELL_ConfigScriptReg("PROBE", script_vlan, 8, 2, 16);
    SHELL_ConfigScriptReg("PROBE", script_vlan_if, 83, 3, 16);
    SHELL_ConfigScriptReg("PROBE", script_other_if, 60, 4, 16);
    SHELL_ConfigScriptReg("PROBE", script_port, 93, 5, 16);
    SHELL_ConfigScriptReg("PROBE", script_vxlan, 1, 13, 16);
    DEBUG_ModuleReg("PROBE", debug_hook);
    notifyRegister(23, 8, "PROBE", 2, 1, end_of_display, 0);
    const char *result = getenv("PROBE_INIT_RESULT");
    return result ? static_cast<uint32_t>(atoi(result)) : 0;
}

} // namespace

extern "C" {
extern uint32_t (*dl_cli_init)(void);
uint32_t (*dl_cli_init)(void) = probe_init;
extern const char *const gNdErrorStr[50];
const char *const gNdErrorStr[50] = {
    "", "probe error one", "", "", "", "", "", "", "", "", "", "", "", "", "", "", "",
    "System is busy, Other operation is processing."};
}
