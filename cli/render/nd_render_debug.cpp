// Renderer of response code 14: the debug switches of the ND service that are on.
#include <cstdio>
#include <cstring>

#include "nd_cli_internal.h"

namespace {

struct DebugStateLine {
    uint32_t bit;
    const char *line;
};

// In bit order, so "error" is reported before "serve".
constexpr DebugStateLine kDebugStateLines[] = {
    {1, "\nnd debug config is on"},
    {2, "\nnd debug event is on"},
    {4, "\nnd debug forward is on"},
    {8, "\nnd debug packet is on"},
    {16, "\nnd debug error is on"},
    {32, "\nnd debug serve is on"},
};

} // namespace

extern "C" void ndCliShowDebugInfo(const void *mask)
{
    if (!mask)
        return;
    uint32_t bits = 0;
    memcpy(&bits, mask, sizeof bits);
    for (const DebugStateLine &state : kDebugStateLines)
        if (bits & state.bit)
            printf("%s", state.line);
    printf("\n");
}
