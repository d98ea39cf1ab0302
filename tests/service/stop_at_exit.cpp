// A program that starts a service and stops it from a static destructor that runs after the
// platform's own statics would have been destroyed (it was made before them). It must end with
// status 0 and leave no service behind.
#include <cstdio>
#include <string>

#include "ndplat_service.h"

namespace {

struct StopsAtEnd {
    std::string dir;
    ~StopsAtEnd()
    {
        if (!ndplat::service_stop(dir))
            fprintf(stderr, "stop_at_exit: the service of %s was not stopped\n", dir.c_str());
    }
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: stop_at_exit STATE_DIR\n");
        return 2;
    }
    static StopsAtEnd stops{argv[1]};
    return ndplat::service_start(argv[1]) > 0 ? 0 : 1;
}
