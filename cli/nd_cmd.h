// The ND command table and the handlers it registers. Handlers are reached by the shell only
// through their registrations; they stay hidden in the library.
#ifndef ND_CMD_H
#define ND_CMD_H

#include "nd_cli_internal.h"

// The output modifiers that the shell offers after a show command with long output: the
// "|" node with begin, include, exclude and redirect. INNER is the mode text of the nodes
// below "|". Written once here and pasted into every definition that offers it.
// Not reformatted: laid out as the command tree it defines.
// clang-format off
#define ND_CLI_FTP_CHAIN(INNER)                                                                 \
    "_WORD_(" INNER ",0,'Host name or ip address'){"                                            \
    "_WORD_(" INNER ",0,'User name'){"                                                          \
    "_PASSWORD_(" INNER ",0,'User password'){"                                                  \
    "_WORD_(" INNER ",0,'Destination file name')}}}"

#define ND_CLI_OUTPUT_MODIFIERS_IN(INNER)                                                       \
    "|(EN,0,'Output modifiers'){"                                                               \
    "begin(" INNER ",0,'Begin with the line that matches'){"                                    \
        "_LINE_(" INNER ",0,'Regular Expression')},"                                            \
    "include(" INNER ",0,'Include lines that match'){"                                          \
        "context(" INNER ",0,'Include two line before and after the match line'){"              \
            "_LINE_(" INNER ",0,'Regular Expression')},"                                        \
        "_LINE_(" INNER ",0,'Regular Expression')},"                                            \
    "exclude(" INNER ",0,'Exclude lines that match'){"                                          \
        "_LINE_(" INNER ",0,'Regular Expression')},"                                            \
    "redirect(" INNER ",0,'Redirect output to other resource'){"                                \
        "file(" INNER ",0,'Output to file'){"                                                   \
            "_WORD_(" INNER ",0,'Destination file name,such as \"/flash/test\"')},"             \
        "ftp(" INNER ",0,'Output by FTP'){" ND_CLI_FTP_CHAIN(INNER) "},"                        \
        "vrf(" INNER ",0,'Select VPN routing instance'){"                                       \
            "_WORD_(" INNER ",0,'VPN Routing/Forwarding instance name'){"                       \
                ND_CLI_FTP_CHAIN(INNER) "}}}}"
// clang-format on

// The modifiers as most show commands offer them: every node in privileged mode.
#define ND_CLI_OUTPUT_MODIFIERS ND_CLI_OUTPUT_MODIFIERS_IN("EN")

// Where a show command may end: here, or with output modifiers.
#define ND_CLI_SHOW_END "_CR_(EN, 0, '')," ND_CLI_OUTPUT_MODIFIERS

extern "C" {

/* registration */
void ndCmdRegister(void);

/* proxy and fast-response */
int32_t ndArgProcForProxyEnable(int32_t argc, char **argv);
int32_t ndArgProcForProxyAnywayEnable(int32_t argc, char **argv);
int32_t ndArgProcForLocProxyEnable(int32_t argc, char **argv);
int32_t ndArgProcForFrEnable(int32_t argc, char **argv);
int32_t ndShowNdForwardPktStat(int32_t argc, char **argv);
int32_t ndShowProxyAddr(int32_t argc, char **argv);

/* debug switches */
int32_t ndDebugSnooping(int32_t argc, char **argv);
uint32_t ndCliSetDebugAllOn(void);
uint32_t ndCliSetDebugAllOff(void);
uint32_t ndCliShowDebuggingInfo(void);
}

#endif
