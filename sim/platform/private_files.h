// The emulated switch's own files and directories (state directory, flash, databases) are the
// owner's alone: created with explicit modes, whatever the umask of whoever starts the process.
#ifndef NDPLAT_PRIVATE_FILES_H
#define NDPLAT_PRIVATE_FILES_H

#include <sys/types.h>

#include <string>

namespace ndplat {

constexpr mode_t kPrivateDirMode = 0700;
constexpr mode_t kPrivateFileMode = 0600;

// Creates every missing directory of `path`, each with mode 0700; directories that exist keep
// the modes they have. False when one cannot be created.
bool make_private_dirs(const std::string &path);

// Creates `path` as an empty file of mode 0600 unless something is there already (a symbolic
// link is not followed). False only when it cannot be created.
bool create_private_file(const std::string &path);

// Makes the last rename or creation inside the directory of `path` durable.
void sync_parent_dir(const std::string &path);

} // namespace ndplat

#endif
