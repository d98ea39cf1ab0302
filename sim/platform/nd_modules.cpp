// Other ND components, as far as the ND plug-in meets them: the publish-subscribe (nd-ps)
// and MLAG command handlers it registers, their debug controls that its debug hook calls,
// and the shell's own handling of the proxy command. Each keeps a little state so that an
// operator sees a plausible answer.
#include <cstdio>
#include <cstring>
#include <mutex>

#include "nd_modules.h"
#include "ndplat.h"

namespace {

constexpr uint32_t kDebugAllOn = 1;
constexpr uint32_t kDebugAllOff = 2;
constexpr uint32_t kDebugShow = 3;

ndplat::NdModulesState initialState()
{
    std::vector<ndplat::NdPsSubscriber> subscribers = {
        {"nd-snooping", 64, 0, false},
        {"nd-vxlan", 48, 1, false},
        {"nd-mlag", 16, 0, false},
    };
    return ndplat::NdModulesState{false, 128, 0, subscribers, false, "", 0};
}

struct ModulesState {
    std::mutex mutex;
    ndplat::NdModulesState state = initialState();
};

ModulesState &modules()
{
    static ModulesState s;
    return s;
}

void resetModules()
{
    std::lock_guard<std::mutex> hold(modules().mutex);
    modules().state = initialState();
}

const bool registered = (ndplat::on_reset(resetModules), true);

// The argument words of a handler call, for its trace line: `3, "show", "nd-ps", "publisher"`.
std::string wordsText(int32_t argc, char **argv)
{
    std::string text = std::to_string(argc);
    for (int32_t i = 0; argv && i < argc; ++i)
        text += ", " + ndplat::trace_str(argv[i]);
    return text;
}

// The words of a command up to its output modifiers, which the shell carries out itself.
std::vector<std::string> commandWords(int32_t argc, char **argv)
{
    std::vector<std::string> words;
    for (int32_t i = 0; argv && i < argc && argv[i] && strcmp(argv[i], "|") != 0; ++i)
        words.emplace_back(argv[i]);
    return words;
}

bool isNegated(const std::vector<std::string> &words)
{
    return !words.empty() && words[0] == "no";
}

// Index of the word after the first `word`, or the word count when there is none.
size_t afterWord(const std::vector<std::string> &words, const char *word)
{
    for (size_t i = 0; i < words.size(); ++i)
        if (words[i] == word)
            return i + 1;
    return words.size();
}

const char *onOff(bool on)
{
    return on ? "on" : "off";
}

// The subscribers that a "subscriber {all-modules | <name>}" selection names.
std::vector<ndplat::NdPsSubscriber *> selectSubscribers(ndplat::NdModulesState &s, const std::string &which)
{
    std::vector<ndplat::NdPsSubscriber *> out;
    for (ndplat::NdPsSubscriber &sub : s.subscribers)
        if (which == "all-modules" || sub.module == which)
            out.push_back(&sub);
    return out;
}

void printMlagDebugState(const ndplat::NdModulesState &s)
{
    if (s.mlagDebug && !s.mlagDebugAddress.empty())
        printf("\nnd mlag debug is on (ipv6 %s)", s.mlagDebugAddress.c_str());
    else
        printf("\nnd mlag debug is %s", onOff(s.mlagDebug));
    printf("\n");
}

void printPublishDebugState(const ndplat::NdModulesState &s)
{
    printf("\nnd-ps publisher debug is %s", onOff(s.publisherDebug));
    for (const ndplat::NdPsSubscriber &sub : s.subscribers)
        printf("\nnd-ps subscriber %s debug is %s", sub.module.c_str(), onOff(sub.debug));
    printf("\n");
}

} // namespace

namespace ndplat {

NdModulesState nd_modules_state()
{
    std::lock_guard<std::mutex> hold(modules().mutex);
    return modules().state;
}

} // namespace ndplat

using ndplat::NdModulesState;
using ndplat::NdPsSubscriber;

namespace {

// Every emulated command records its call with its words and honours an injected fault; it
// then runs on the words with the modules' state held.
template <typename Run> int32_t runCommand(const char *name, int32_t argc, char **argv, Run run)
{
    ndplat::trace_call(name, "%s", wordsText(argc, argv).c_str());
    if (auto fault = ndplat::fault_next(name))
        return static_cast<int32_t>(*fault);
    std::vector<std::string> words = commandWords(argc, argv);
    std::lock_guard<std::mutex> hold(modules().mutex);
    return run(words, modules().state);
}

// The subscribers that "subscriber <name>" at `at` selects; empty, with the refusal printed,
// when there is none of that name.
std::vector<NdPsSubscriber *> namedSubscribers(NdModulesState &s, const std::vector<std::string> &words, size_t at)
{
    std::vector<NdPsSubscriber *> selected = selectSubscribers(s, words[at + 1]);
    if (selected.empty())
        printf("\n%% Subscriber %s does not exist.\n", words[at + 1].c_str());
    return selected;
}

// The subscribers that a "subscriber <name>" command at `at` selects; empty when the words are
// no such command, or (with the refusal printed) when none has that name.
std::vector<NdPsSubscriber *> commandSubscribers(NdModulesState &s, const std::vector<std::string> &words, size_t at)
{
    if (at + 1 >= words.size() || words[at] != "subscriber")
        return {};
    return namedSubscribers(s, words, at);
}

bool isPublisherCommand(const std::vector<std::string> &words, size_t at)
{
    return at < words.size() && words[at] == "publisher";
}

// A debug control call of another module records itself and honours an injected fault; all on
// and all off set its switches (`set` with the new state), show prints them.
template <typename Set, typename Show> void debugControl(const char *name, uint32_t code, Set set, Show show)
{
    ndplat::trace_call(name, "%u", code);
    if (ndplat::fault_next(name))
        return;
    std::lock_guard<std::mutex> hold(modules().mutex);
    NdModulesState &s = modules().state;
    if (code == kDebugAllOn || code == kDebugAllOff)
        set(s, code == kDebugAllOn);
    else if (code == kDebugShow)
        show(s);
}

} // namespace

extern "C" int32_t shell_nd6_proxy(int32_t argc, char **argv)
{
    return runCommand("shell_nd6_proxy", argc, argv, [](const std::vector<std::string> &, NdModulesState &s) {
        s.proxyCalls++;
        return 0;
    });
}

// show nd-ps publisher [statistics]; show nd-ps subscriber {all-modules | <name>} [statisitcs]
extern "C" int32_t nd_MposPublishRegShowCmd(int32_t argc, char **argv)
{
    return runCommand("nd_MposPublishRegShowCmd", argc, argv, [](const std::vector<std::string> &words, NdModulesState &s) {
        size_t at = afterWord(words, "nd-ps");
        if (isPublisherCommand(words, at)) {
            if (at + 1 < words.size())
                printf("\nPublisher statistics:\n  Published : %u\n  Failed    : %u\n", s.published, s.publishFailed);
            else
                printf("\nPublisher  Subscribers  Debug\n---------  -----------  -----\nnd         %-11zu  %s\n",
                       s.subscribers.size(), onOff(s.publisherDebug));
            return 0;
        }
        std::vector<NdPsSubscriber *> selected = commandSubscribers(s, words, at);
        if (selected.empty())
            return 1;
        bool counters = at + 2 < words.size();
        printf(counters ? "\nSubscriber        Received  Dropped\n----------------  --------  -------\n"
                        : "\nSubscriber        Debug\n----------------  -----\n");
        for (const NdPsSubscriber *sub : selected) {
            if (counters)
                printf("%-16s  %-8u  %u\n", sub->module.c_str(), sub->received, sub->dropped);
            else
                printf("%-16s  %s\n", sub->module.c_str(), onOff(sub->debug));
        }
        return 0;
    });
}

// clear nd-ps publisher statistics; clear nd-ps subscriber {all-modules | <name>} statisitcs
extern "C" int32_t nd_MposPublishRegClearCmd(int32_t argc, char **argv)
{
    return runCommand("nd_MposPublishRegClearCmd", argc, argv, [](const std::vector<std::string> &words, NdModulesState &s) {
        size_t at = afterWord(words, "nd-ps");
        if (isPublisherCommand(words, at)) {
            s.published = 0;
            s.publishFailed = 0;
            return 0;
        }
        std::vector<NdPsSubscriber *> selected = commandSubscribers(s, words, at);
        for (NdPsSubscriber *sub : selected)
            sub->received = sub->dropped = 0;
        return selected.empty() ? 1 : 0;
    });
}

// [no] debug nd-ps publisher; [no] debug nd-ps subscriber {all-modules | <name>}
extern "C" int32_t nd_MposPublishRegDebugCmd(int32_t argc, char **argv)
{
    return runCommand("nd_MposPublishRegDebugCmd", argc, argv, [](const std::vector<std::string> &words, NdModulesState &s) {
        bool on = !isNegated(words);
        size_t at = afterWord(words, "nd-ps");
        if (isPublisherCommand(words, at)) {
            s.publisherDebug = on;
            printf("\nnd-ps publisher debug is %s\n", onOff(on));
            return 0;
        }
        std::vector<NdPsSubscriber *> selected = commandSubscribers(s, words, at);
        if (selected.empty())
            return 1;
        for (NdPsSubscriber *sub : selected) {
            sub->debug = on;
            printf("\nnd-ps subscriber %s debug is %s", sub->module.c_str(), onOff(on));
        }
        printf("\n");
        return 0;
    });
}

// show nd mlag {pts-list | cache-list | statistic}
extern "C" int32_t nd_MlagShowCmd(int32_t argc, char **argv)
{
    return runCommand("nd_MlagShowCmd", argc, argv, [](const std::vector<std::string> &words, NdModulesState &) {
        size_t at = afterWord(words, "mlag");
        const std::string what = at < words.size() ? words[at] : "";
        if (what == "pts-list") {
            printf("\nPeer-link  Port   State\n---------  -----  -----\n1          ge1/1  up\n");
            return 0;
        }
        if (what == "cache-list") {
            printf("\nIPv6 address  MAC address     Vlan\n------------  --------------  ----\nTotal: 0\n");
            return 0;
        }
        if (what == "statistic") {
            printf("\nSync sent     : 0\nSync received : 0\nSync dropped  : 0\n");
            return 0;
        }
        return 1;
    });
}

// debug nd mlag [ipv6 <address>]; no debug nd mlag
extern "C" int32_t nd_MlagDebugCmd(int32_t argc, char **argv)
{
    return runCommand("nd_MlagDebugCmd", argc, argv, [](const std::vector<std::string> &words, NdModulesState &s) {
        size_t at = afterWord(words, "ipv6");
        s.mlagDebug = !isNegated(words);
        s.mlagDebugAddress = s.mlagDebug && at < words.size() ? words[at] : "";
        printMlagDebugState(s);
        return 0;
    });
}

extern "C" void nd_MposPublishCliDebugCtrl(uint32_t code)
{
    debugControl(
        "nd_MposPublishCliDebugCtrl", code,
        [](NdModulesState &s, bool on) {
            s.publisherDebug = on;
            for (NdPsSubscriber &sub : s.subscribers)
                sub.debug = on;
        },
        printPublishDebugState);
}

extern "C" void nd_MlagDbgCtrl(uint32_t code)
{
    debugControl(
        "nd_MlagDbgCtrl", code,
        [](NdModulesState &s, bool on) {
            s.mlagDebug = on;
            s.mlagDebugAddress.clear();
        },
        printMlagDebugState);
}
