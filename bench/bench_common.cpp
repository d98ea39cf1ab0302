#include "bench_common.h"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace ndbench {

double sinceMs(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

size_t countOf(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++n;
    return n;
}

Words::Words(std::vector<std::string> words) : words_(std::move(words))
{
    for (std::string &w : words_)
        pointers_.push_back(w.data());
    pointers_.push_back(nullptr);
}

Fd::~Fd()
{
    if (fd_ >= 0)
        close(fd_);
}

} // namespace ndbench
