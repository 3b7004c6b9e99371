// Opens connections to the daemon, sends half a head on each and keeps them open; then creates a file to
// signal that they are open.
//
//   bench-idle DAEMON-PORT CONNECTIONS

#include "protocol/head.h"
#include "tools/common/exchange.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    init_tool();
    const endpoint daemon{"127.0.0.1", static_cast<uint16_t>(atoi(argv[1]))};
    std::vector<unique_fd> connections;
    for (int i = 0; i < atoi(argv[2]); ++i) {
        std::string error;
        connections.push_back(connect_tcp(daemon, 0, error));
        const message_head head{};
        if (!connections.back().is_open() || write(connections.back().get(), &head, sizeof head / 2) < 0) {
            perror("bench-idle");
            return 1;
        }
    }
    sleep(1); // until the daemon has read what was sent
    fclose(fopen("/var/run/bench-idle", "w"));
    pause();
}
