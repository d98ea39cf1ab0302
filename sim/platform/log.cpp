// NLOG_Send: the platform's log, kept as formatted records.
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "ndplat.h"

namespace {

struct LogState {
    std::mutex mutex;
    std::vector<ndplat::LogRecord> records;
    FILE *echo = nullptr;
};

LogState &state()
{
    static LogState s;
    return s;
}

void resetLog()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().records.clear();
}

const bool registered = (ndplat::on_reset(resetLog), true);

} // namespace

namespace ndplat {

std::vector<LogRecord> log_records()
{
    std::lock_guard<std::mutex> hold(state().mutex);
    return state().records;
}

void log_echo(FILE *stream)
{
    std::lock_guard<std::mutex> hold(state().mutex);
    state().echo = stream;
}

} // namespace ndplat

extern "C" int32_t NLOG_Send(uint32_t module, uint32_t a2, uint32_t a3, uint32_t level,
                             const char *format, ...)
{
    char text[1024];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    ndplat::trace_call("NLOG_Send", "%u, %u, %u, %u, %s", module, a2, a3, level,
                       ndplat::trace_str(text).c_str());
    if (auto fault = ndplat::fault_next("NLOG_Send"))
        return static_cast<int32_t>(*fault);
    LogState &s = state();
    std::lock_guard<std::mutex> hold(s.mutex);
    if (s.echo)
        fprintf(s.echo, "[log %u/%u] %s\n", module, level, text);
    s.records.push_back(ndplat::LogRecord{module, a2, a3, level, text});
    return n < 0 ? -1 : 0;
}
