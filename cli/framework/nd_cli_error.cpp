// Error texts and formatted output to a descriptor.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "nd_cli_internal.h"

// Not reformatted: eight codes a row, numbered.
// clang-format off
extern "C" const char *const gNdErrorStr[ND_ERR_COUNT] = {
    /*  0 */ "",
    /*  1 */ nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    /*  9 */ nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    /* 17 */ "System is busy, Other operation is processing.",
    /* 18 */ "Operation failed.",
    /* 19 */ "Cmf decode message failed.",
    /* 20 */ "Cmf encode message failed.",
    /* 21 */ "Cmf receive response message failed.",
    /* 22 */ "Cmf response flage set failed.",
    /* 23 */ "Get interface index failed.",
    /* 24 */ "Process is not stoped.",
    /* 25 */ "Memory short, Can't configure this command, please try later.",
    /* 26 */ "Get vlan information failed.",
    /* 27 */ nullptr,
    /* 28 */ "Get portmap failed.",
    /* 29 */ "Operate DBM data failed.",
    /* 30 */ "Cmf context change to id failed.",
    /* 31 */ "Ddl server send data to clinet failed, maybe LPU is not ready, try it later.",
    /* 32 */ "Subscribe interface event failed.",
    /* 33 */ "Ddl server multisend data to clinet failed.",
    /* 34 */ "Nd snooping user-bind table data is exist.",
    /* 35 */ "Nd snooping user-bind table data is not exist.",
    /* 36 */ "This super vlan is enabled.",
    /* 37 */ "This super vlan is not enabled.",
    /* 38 */ "The vlan is enabled.",
    /* 39 */ "The vlan is not enabled.",
    /* 40 */ "The interface is enabled.",
    /* 41 */ "The interface is not enabled.",
    /* 42 */ "The port is already trust port.",
    /* 43 */ "The port is not trust port.",
    /* 44 */ "Set cpu packet error",
    /* 45 */ "Nd snooping user-bind table has reached ceiling, please add after checking up.",
    /* 46 */ "The switch of global snooping is not enable.",
    /* 47 */ "% Vxlan 'nd suppression' not set",
    /* 48 */ "% Conflict, 'nd proxy anyway enable' is set!",
    /* 49 */ "% Conflict, 'nd suppression' is set!",
};
// clang-format on

extern "C" void nd_CliPrintErrorToVty(uint32_t code)
{
    // "Process is not stoped." stays silent: undoing what is not set is not an error to show.
    if (code == ND_ERR_PROCESS_NOT_STOPPED || code >= ND_ERR_COUNT || !gNdErrorStr[code])
        return;
    printf("\n%s", gNdErrorStr[code]);
}

namespace {

constexpr size_t kFdprintfBuffer = 256;

} // namespace

// The formatted text is passed to dprintf as its format, so a "%%" that survives the first
// formatting comes out as "%": that double formatting is part of the output. A conversion
// that would need an argument (which does not exist) is written out literally instead.
extern "C" int32_t nd_CliFdprintf(int32_t fd, const char *format, ...)
{
    char text[kFdprintfBuffer];
    memset(text, 0, sizeof text);
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);

    char safe[2 * kFdprintfBuffer];
    size_t out = 0;
    for (size_t i = 0; text[i]; ++i) {
        if (text[i] != '%') {
            safe[out++] = text[i];
            continue;
        }
        if (text[i + 1] == '%') {
            safe[out++] = '%';
            safe[out++] = '%';
            ++i;
            continue;
        }
        // A lone "%" or a conversion that would read an argument: printed as it stands.
        safe[out++] = '%';
        safe[out++] = '%';
    }
    safe[out] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    return dprintf(fd, safe);
#pragma GCC diagnostic pop
}
