// What the client side, the server side and the control of the service share about its socket:
// connecting, the time left before a deadline, and the transport's lines on stderr.
#ifndef NDPLAT_CMF_IO_H
#define NDPLAT_CMF_IO_H

#include <chrono>
#include <string>

namespace ndplat {

// A stream socket connected to the Unix-domain socket at path (close-on-exec), or -1.
int unix_socket_connect(const std::string &path);
// Whether something accepts connections on the socket at path.
bool unix_socket_accepts(const std::string &path);
// Whether bytes (or the end of the stream) arrive on fd within a few tens of microseconds,
// waited for awake; false at once on a machine with one processor.
bool readable_soon(int fd);
// Milliseconds left until deadline, 0 once it has passed.
int ms_until(std::chrono::steady_clock::time_point deadline);
// "ndcmf <side>: <text>" on stderr, flushed.
void cmf_log(const char *side, const std::string &text);

} // namespace ndplat

#endif
