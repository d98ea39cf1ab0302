// Call trace and fault injection: the two test hooks that every platform function shares.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string_view>

#include "ndplat.h"

namespace ndplat {
namespace {

struct Fault {
    int64_t value;
    uint32_t remaining;
    uint32_t skip;
};

// Read without the lock on every platform call: nothing to do when neither is set.
std::atomic<bool> gRecording{true};
std::atomic<bool> gEchoing{false};

struct TraceState {
    std::mutex mutex;
    std::vector<std::string> lines;
    FILE *echo = nullptr;
    std::map<std::string, Fault, std::less<>> faults;
    // Whether faults holds any: every platform call asks, and almost always none is armed.
    std::atomic<bool> armed{false};
    void faultsChanged() { armed.store(!faults.empty(), std::memory_order_release); }
};

TraceState &state()
{
    static TraceState s;
    return s;
}

std::vector<ResetFn> &resetFns()
{
    static std::vector<ResetFn> fns;
    return fns;
}

void resetTraceAndFaults()
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.lines.clear();
    s.faults.clear();
    s.faultsChanged();
    gRecording = true;
}

const bool registered = (on_reset(resetTraceAndFaults), true);

} // namespace

namespace {
void recordLine(std::string line)
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (s.echo) {
        fprintf(s.echo, "[trace] %s\n", line.c_str());
        fflush(s.echo);
    }
    if (gRecording.load(std::memory_order_relaxed))
        s.lines.push_back(std::move(line));
}

bool traceWanted()
{
    return gRecording.load(std::memory_order_relaxed) || gEchoing.load(std::memory_order_relaxed);
}
} // namespace

void trace_call(const char *name)
{
    if (!traceWanted())
        return;
    recordLine(std::string(name) + "()");
}

void trace_call(const char *name, const char *argFormat, ...)
{
    if (!traceWanted())
        return;
    char args[512];
    va_list ap;
    va_start(ap, argFormat);
    vsnprintf(args, sizeof args, argFormat, ap);
    va_end(ap);
    recordLine(std::string(name) + "(" + args + ")");
}

std::vector<std::string> trace()
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    return s.lines;
}

std::vector<std::string> trace_of(const char *name)
{
    std::string prefix = std::string(name) + "(";
    std::vector<std::string> out;
    for (const std::string &line : trace())
        if (line.compare(0, prefix.size(), prefix) == 0)
            out.push_back(line);
    return out;
}

void trace_clear()
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.lines.clear();
}

void trace_echo(FILE *stream)
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.echo = stream;
    gEchoing = stream != nullptr;
}

void trace_record_set(bool record)
{
    gRecording = record;
}

std::string trace_str(const char *s)
{
    return s ? "\"" + std::string(s) + "\"" : std::string("null");
}

void fault_inject(const std::string &name, int64_t value, uint32_t count, uint32_t skip)
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (count == 0)
        s.faults.erase(name);
    else
        s.faults[name] = Fault{value, count, skip};
    s.faultsChanged();
}

void fault_clear()
{
    TraceState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    s.faults.clear();
    s.faultsChanged();
}

std::optional<int64_t> fault_next(const char *name)
{
    TraceState &s = state();
    if (!s.armed.load(std::memory_order_acquire))
        return std::nullopt;
    std::lock_guard<std::mutex> hold(s.mutex);
    auto it = s.faults.find(std::string_view(name));
    if (it == s.faults.end())
        return std::nullopt;
    if (it->second.skip > 0) {
        --it->second.skip;
        return std::nullopt;
    }
    int64_t value = it->second.value;
    if (--it->second.remaining == 0) {
        s.faults.erase(it);
        s.faultsChanged();
    }
    return value;
}

bool fault_parse(const std::string &text)
{
    size_t eq = text.find('=');
    if (eq == std::string::npos || eq == 0 || eq + 1 == text.size())
        return false;
    std::string name = text.substr(0, eq);
    std::string rest = text.substr(eq + 1);
    uint32_t count = 1;
    size_t x = rest.find('x', rest.compare(0, 2, "0x") == 0 ? 2 : 0);
    char *end = nullptr;
    if (x != std::string::npos) {
        unsigned long n = strtoul(rest.c_str() + x + 1, &end, 10);
        if (*end != '\0' || n == 0 || n > 0xFFFFFFFFul)
            return false;
        count = static_cast<uint32_t>(n);
        rest.resize(x);
    }
    long long value = strtoll(rest.c_str(), &end, 0);
    if (rest.empty() || *end != '\0')
        return false;
    fault_inject(name, value, count);
    return true;
}

void on_reset(ResetFn fn)
{
    resetFns().push_back(fn);
}

void reset()
{
    for (ResetFn fn : resetFns())
        fn();
}

} // namespace ndplat
