// Sends command 57 from several clients, each on one connection after another, in turns to the daemon, to the
// bare server, to one that also logs and to one that also waits for both sockets with select, and prints how
// they compare.
//
//   bench-load DAEMON-PORT DAEMON-SOCKET BARE-PORT BARE-SOCKET LOGGING-PORT LOGGING-SOCKET
//              SELECTING-PORT SELECTING-SOCKET ROUNDS SECONDS

#include "base/fd.h"
#include "protocol/commands.h"
#include "protocol/head.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {
using steady = std::chrono::steady_clock;

struct target {
    sockaddr_storage address;
    socklen_t length;
};

struct result {
    double rate = 0; // requests per second
    double p50 = 0;  // microseconds
    double p99 = 0;
};

// Four system calls and no more, so that the clients take as little as they can from the servers.
bool one_request(const target &to)
{
    const unique_fd peer(socket(to.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    message_head head{};
    head.version = protocol_version;
    head.cmd = command::nop_command;
    return connect(peer.get(), reinterpret_cast<const sockaddr *>(&to.address), to.length) == 0 &&
           write(peer.get(), &head, sizeof head) == sizeof head &&
           recv(peer.get(), &head, sizeof head, MSG_WAITALL) == sizeof head &&
           head.cmd == command::nop_command;
}

void client(const target &to, steady::time_point end, std::vector<float> &latencies)
{
    for (auto start = steady::now(); start < end;) {
        if (!one_request(to)) {
            fprintf(stderr, "bench-load: a request failed\n");
            exit(1);
        }
        const auto done = steady::now();
        latencies.push_back(std::chrono::duration<float, std::micro>(done - start).count());
        start = done;
    }
}

result measure(const target &to, size_t clients, double seconds)
{
    const auto start = steady::now();
    const auto end =
        start + std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(seconds));
    std::vector<std::vector<float>> latencies(clients);
    {
        std::vector<std::jthread> threads;
        for (auto &own : latencies)
            threads.emplace_back([&to, end, &own] { client(to, end, own); });
    }
    const double elapsed = std::chrono::duration<double>(steady::now() - start).count();
    std::vector<float> all;
    for (const auto &own : latencies)
        all.insert(all.end(), own.begin(), own.end());
    std::sort(all.begin(), all.end());
    return {static_cast<double>(all.size()) / elapsed, all[all.size() / 2], all[all.size() * 99 / 100]};
}

// The middle one of several results by its rate.
result median(std::vector<result> results)
{
    std::sort(results.begin(), results.end(),
              [](const result &a, const result &b) { return a.rate < b.rate; });
    return results[results.size() / 2];
}

// Measures the servers in turns, so that other load on the machine affects all of them.
void compare(const char *name, const std::vector<target> &servers, size_t clients, int rounds, double seconds)
{
    std::vector<std::vector<result>> results(servers.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < servers.size(); ++i)
            results[i].push_back(measure(servers[i], clients, seconds));
    }
    const result daemon = median(results[0]);
    const result bare = median(results[1]);
    const result logging = median(results[2]);
    const result selecting = median(results[3]);
    printf("| %s | %zu | %.0f | %.0f | %.0f %% | %.0f %% | %.0f %% | %.0f / %.0f | %.0f / %.0f |\n", name,
           clients, daemon.rate, bare.rate, 100 * daemon.rate / bare.rate, 100 * daemon.rate / logging.rate,
           100 * daemon.rate / selecting.rate, daemon.p50, daemon.p99, bare.p50, bare.p99);
    fflush(stdout);
}

target at_port(const char *port)
{
    target to{.address = {}, .length = sizeof(sockaddr_in)};
    auto &address = reinterpret_cast<sockaddr_in &>(to.address);
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(atoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return to;
}

target at_path(const char *path)
{
    target to{.address = {}, .length = sizeof(sockaddr_un)};
    auto &address = reinterpret_cast<sockaddr_un &>(to.address);
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return to;
}
} // namespace

int main(int argc, char **argv)
{
    constexpr int first_setting = 9;
    if (argc != first_setting + 2)
        return 2;
    std::vector<target> tcp;
    std::vector<target> local;
    for (int i = 1; i < first_setting; i += 2) {
        tcp.push_back(at_port(argv[i]));
        local.push_back(at_path(argv[i + 1]));
    }
    const int rounds = atoi(argv[first_setting]);
    const double seconds = atof(argv[first_setting + 1]);

    puts("| socket | clients | daemon, requests/s | bare, requests/s | daemon / bare | daemon / bare that "
         "logs | daemon / bare that logs and selects |"
         " daemon p50 / p99, µs | bare p50 / p99, µs |");
    puts("|---|---:|---:|---:|---:|---:|---:|---:|---:|");
    for (const size_t clients : {1U, 8U, 64U}) {
        compare("UNIX", local, clients, rounds, seconds);
        compare("TCP", tcp, clients, rounds, seconds);
    }
}
