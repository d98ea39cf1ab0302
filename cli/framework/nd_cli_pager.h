// The shell's pager around one listing: oriented when the listing starts, asked between lines
// whether the operator quit, and closed when the listing ends, on every way out of it.
#ifndef ND_CLI_PAGER_H
#define ND_CLI_PAGER_H

#include "nd_platform.h"

namespace ndcli {

class Pager {
public:
    // When the pager is first oriented.
    enum class Start {
        Now,   // at once
        Later, // by the listing itself, page by page
    };

    // How the listing is closed. The listings end in different ways and each keeps its own.
    enum class End {
        BreakAndFormat, // the break check, then the page format that follows its answer
        FormatOnly,     // the page format alone
        Nothing,        // given up before the pager was used: no call at all
    };

    explicit Pager(Start start = Start::Now)
    {
        if (start == Start::Now)
            orient();
    }
    ~Pager() { close(End::BreakAndFormat); }
    Pager(const Pager &) = delete;
    Pager &operator=(const Pager &) = delete;

    void orient() { SHELL_MoreOrientOutput(); }

    // The break question between lines: true when the operator quit.
    bool quit() { return SHELL_MoreBreakOutput() != 0; }

    // Closes the listing once; later calls do nothing. Returns what the page format returned,
    // or 0 when it was not called.
    int32_t close(End end)
    {
        if (closed_)
            return 0;
        closed_ = true;
        if (end == End::Nothing)
            return 0;
        if (end == End::BreakAndFormat)
            SHELL_MoreBreakOutput();
        return SHELL_MoreFormatOutput();
    }

private:
    bool closed_ = false;
};

} // namespace ndcli

#endif
