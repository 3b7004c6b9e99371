// The command line: qelcd [-d | -h].

#include "base/log.h"
#include "daemon/supervisor.h"
#include "daemon/worker.h"

#include <unistd.h>

#include <cstdio>

namespace {
constexpr char usage[] = "kav tessaron daemon\n"
                         "  -d    set debug mode, print transport information into logfile\n"
                         "  -h    show this information and exit\n";
}

int main(int argc, char **argv)
{
    // Only the first option counts; any other word is ignored.
    const int option = getopt(argc, argv, "hd");
    debug_off();
    if (option == 'd')
        debug_on();
    if (option == 'h') {
        printf("%s: %s", argv[0], usage);
        return 0;
    }
    start_daemon("qelcd");
    return supervise(_main);
}
