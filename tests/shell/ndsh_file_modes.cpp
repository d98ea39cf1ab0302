// The switch's files are its owner's alone, whatever the umask of whoever starts the shell.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "ndsh_support.h"

using namespace ndshtest;

namespace {

// Sets the umask for the shells started while it lives.
class Umask {
public:
    explicit Umask(mode_t mask) : saved_(umask(mask)) {}
    ~Umask() { umask(saved_); }

private:
    mode_t saved_;
};

std::string mode_of(const std::string &path)
{
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0)
        return "missing";
    char text[8];
    snprintf(text, sizeof text, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    return text;
}

} // namespace

#ifdef NDSH_WITH_SERVICE

TEST(NdshFileModes, StateDirectoryFlashAndDatabasesAreOwnerOnlyUnderUmask000)
{
    StateDir scratch;
    std::string state = scratch.path() + "/state";
    ServiceGuard stops{state};
    Result r;
    {
        Umask open(0);
        r = ndsh(scratch, {"--state", state, "-c",
                           "configure terminal; nd snooping enable; vlan 10; nd snooping enable; end; write"});
    }
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(mode_of(state), "0700");
    EXPECT_EQ(mode_of(state + "/flash"), "0700");
    for (const char *file : {"ec_nd.db", "ndsh_inventory.db", "ndsh.booted", "flash/startup-config",
                             "flash/ec_nd.db", "flash/ndsh_inventory.db"})
        EXPECT_EQ(mode_of(state + "/" + file), "0600") << file;
}

#endif
