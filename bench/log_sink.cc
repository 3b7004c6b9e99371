// Takes the system log's datagrams and forgets them, so that a measured daemon writes its log lines to a
// reader as on any host, but the reader's own work is not measured.
//
//   bench-log SOCKET-PATH

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
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        perror("bench-log");
        return 1;
    }
    // A pause between rounds lets lines gather, so that not each of them wakes this process.
    char line[8192];
    for (;;) {
        recv(fd, line, sizeof line, 0);
        while (recv(fd, line, sizeof line, MSG_DONTWAIT) >= 0)
            ;
        usleep(2000);
    }
}
