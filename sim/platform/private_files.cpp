// Directories and files created owner-only, whatever the umask.
#include "private_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace ndplat {

bool make_private_dirs(const std::string &path)
{
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find('/', start);
        std::string partial = path.substr(0, slash);
        if (!partial.empty()) {
            if (mkdir(partial.c_str(), kPrivateDirMode) == 0)
                chmod(partial.c_str(), kPrivateDirMode); // the umask may have taken bits away
            else if (errno != EEXIST)
                return false;
        }
        if (slash == std::string::npos)
            break;
        start = slash + 1;
    }
    return true;
}

bool create_private_file(const std::string &path)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFileMode);
    if (fd < 0)
        return errno == EEXIST;
    fchmod(fd, kPrivateFileMode);
    close(fd);
    return true;
}

void sync_parent_dir(const std::string &path)
{
    size_t slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    fsync(fd);
    close(fd);
}

} // namespace ndplat
