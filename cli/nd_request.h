// One request of a command handler to the ND service: the block on the handler's stack,
// zeroed before use, items appended in order, the error text of a failed exchange printed.
#ifndef ND_REQUEST_H
#define ND_REQUEST_H

#include <cstring>

#include "nd_cli_internal.h"

namespace ndcli {

class Request {
public:
    Request() { memset(&block_, 0, sizeof block_); }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    uint32_t init(const char *keyword, uint32_t code) { return nd_CliParamInit(&block_, keyword, code); }

    // The value is not copied: it must live until send() has returned.
    void add(uint32_t type, uint32_t length, const void *value, bool counted)
    {
        nd_CliParamSet(&block_, value, length, type, counted ? 1 : 0);
    }

    // Sends the request; a non-zero result has its text printed and is returned.
    uint32_t send()
    {
        uint32_t result = ndCliParamProc(&block_);
        if (result != ND_OK)
            nd_CliPrintErrorToVty(result);
        return result;
    }

    const NdCliParam &block() const { return block_; }

private:
    NdCliParam block_;
};

// The word at `index`, or null when the command has fewer words.
inline const char *wordAt(int32_t argc, char **argv, int32_t index)
{
    return argv && index >= 0 && index < argc ? argv[index] : nullptr;
}

// The same, reading a missing word as an empty text.
inline const char *textAt(int32_t argc, char **argv, int32_t index)
{
    const char *word = wordAt(argc, argv, index);
    return word ? word : "";
}

// The shell always passes the first word; a missing one reads as no keyword at all.
inline const char *firstWord(int32_t argc, char **argv)
{
    return wordAt(argc, argv, 0);
}

} // namespace ndcli

#endif
