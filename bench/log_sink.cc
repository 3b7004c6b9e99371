// Receives the system log's datagrams and drops them, so that a measured daemon has a reader for its log
// lines, but the reader's work is not measured.
//
//   bench-log SOCKET-PATH

#include "base/fd.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, argv[1], sizeof address.sun_path - 1);
    const unique_fd log(socket(AF_UNIX, SOCK_DGRAM, 0));
    if (!log.is_open() ||
        bind(log.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        perror("bench-log");
        return 1;
    }
    // A pause between rounds lets lines collect, so that not every line wakes this process.
    char line[8192];
    for (;;) {
        recv(log.get(), line, sizeof line, 0);
        while (recv(log.get(), line, sizeof line, MSG_DONTWAIT) >= 0)
            ;
        usleep(2000);
    }
}
