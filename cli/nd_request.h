// One request of a command handler to the ND service: the block on the handler's stack,
// zeroed before use, items appended in order, the error text of a failed exchange printed.
#ifndef ND_REQUEST_H
#define ND_REQUEST_H

#include <cstring>

#include "nd_cli_internal.h"

namespace ndcli {

// A handler's result is ND_OK or a status. Some handlers (VXLAN, ISSU), and nd_CliParamSet for
// an item it refuses, answer a failure they have printed with what printf returned, the length
// of the text, instead: non-zero like a status, so a caller that tests for success still sees
// the failure. The lengths are kept because they are what these functions have always returned
// to callers outside the plug-in. Printing and returning the length happens here alone.
int32_t printedResult(const char *format, ...) __attribute__((format(printf, 1, 2)));

// How a handler answers a block that could not be initialised.
struct InitFailure {
    enum class Answer {
        Status,       // print `text` (a format given the status, or nothing), return the status
        PrintedCount, // print `text`, return what printf returned
        StatusText,   // print the status's error text, return the status
    };
    const char *text;
    Answer answer;
};
constexpr InitFailure kInitSilent = {nullptr, InitFailure::Answer::Status};
constexpr InitFailure kInitFailed = {"nd cli param init failed\n", InitFailure::Answer::Status};
constexpr InitFailure kInitError = {"cli param init error %d!\n", InitFailure::Answer::Status};
constexpr InitFailure kInitErrorPrinted = {"cli param init error %d!", InitFailure::Answer::PrintedCount};
constexpr InitFailure kInitStatusText = {nullptr, InitFailure::Answer::StatusText};

class Request {
public:
    Request() { memset(&block_, 0, sizeof block_); }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    // Initialises the block for the command whose first word is `keyword`. False when that
    // failed: `failure` has been reported and result() holds what the handler returns.
    bool start(const char *keyword, uint32_t code, const InitFailure &failure);

    // The same for the handler's words; a missing first word reads as no keyword.
    bool start(int32_t argc, char **argv, uint32_t code, const InitFailure &failure);

    // The value is not copied: it must live until the request has been sent.
    void add(uint32_t type, uint32_t length, const void *value, bool counted)
    {
        nd_CliParamSet(&block_, value, length, type, counted ? 1 : 0);
    }

    // Sends the request; a non-zero status has its text printed and is returned.
    uint32_t send();

    // Sends the request and returns the status as the handler's result.
    int32_t finish() { return static_cast<int32_t>(send()); }

    // Sends the request by the VXLAN exchange, whose records go to `render`; a non-zero
    // status has its text printed and is returned.
    uint32_t sendVxlan(NdCliVxlanRenderFn render);

    // What the handler returns after start() failed.
    int32_t result() const { return result_; }

    NdCliParam &block() { return block_; }
    const NdCliParam &block() const { return block_; }

private:
    NdCliParam block_;
    int32_t result_ = 0;
};

// Defines the handler `name` as run(bound, argc, argv). The commands of one family differ only
// in what they bind; each keeps the name that its registration and its callers use, and the
// call is written once here instead of once per command.
#define ND_CLI_BOUND_HANDLER(name, run, bound) \
    int32_t name(int32_t argc, char **argv) { return run(bound, argc, argv); }

// A request of one zero word of `itemType`, answered by a renderer or by a status alone.
int32_t sendZeroWord(int32_t argc, char **argv, uint32_t code, uint32_t itemType);

// Encodes the block's items into the context in order. Returns 0, or the first non-zero
// status of the framework, after which nothing more is encoded.
uint32_t encodeItems(CMF_CONTEXT context, const NdCliParam &block);

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
