#include "tools/common/service_socket.h"

#include "protocol/stream.h"
#include "tools/common/exchange.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

std::string service_socket_path(const std::string &folder)
{
    return folder + "/socket";
}

int ask_service(const std::string &folder, const std::string &question, std::string &answer)
{
    std::string error;
    errno = 0;
    const unique_fd peer = connect_local(service_socket_path(folder), 2 * service_patience, error);
    if (!peer.is_open() || !send_text(peer, question))
        return errno ? errno : EIO;
    answer = read_text(peer, SIZE_MAX);
    return 0;
}

bool send_text(const unique_fd &peer, const std::string &text)
{
    const int count = static_cast<int>(text.size());
    return qelc_writen(peer.get(), text.data(), count) == count && shutdown(peer.get(), SHUT_WR) == 0;
}

std::string read_text(const unique_fd &peer, size_t most)
{
    std::string text;
    char piece[4096];
    for (ssize_t count = 1; count > 0 && text.size() < most;) {
        count = read(peer.get(), piece, sizeof piece);
        text.append(piece, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    return text;
}
