// What the embedded mirrors cost: a resynchronisation against dd with direct I/O and the same block size, in
// turns on the same two disks, and the watch of a level mirror. Prints table rows.
#include "base/fd.h"
#include "tw.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto watch_time = 30s;

[[noreturn]] void give_up(const std::string &what)
{
    fprintf(stderr, "bench-mirrors: %s\n", what.c_str());
    exit(1);
}

double seconds_since(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// The GUID of a disk without a SCSI identity.
std::string guid_of(const char *path)
{
    unsigned signature = 0;
    const unique_fd disk(open(path, O_RDONLY | O_CLOEXEC));
    if (!disk.is_open() || pread(disk.get(), &signature, sizeof signature, 440) != sizeof signature)
        give_up(std::string(path) + ": " + strerror(errno));
    char guid[64];
    snprintf(guid, sizeof guid, "%08x-0000-0000-0000-000000000000", signature);
    return guid;
}

bool is_level(const std::string &guid)
{
    tw_relationship *one = tw_disk_stat(guid.c_str());
    const bool result = one && strcmp(one->sync_state, "Sync Finished") == 0;
    tw_disk_stat_release(one);
    return result;
}

double time_resync(const std::string &guid)
{
    const auto start = steady_clock::now();
    if (tw_disk_resync(guid.c_str(), 0) != 0)
        give_up("the resynchronisation cannot be started");
    while (!is_level(guid))
        std::this_thread::sleep_for(5ms);
    return seconds_since(start);
}

// All but the first block, which holds the mirror's identity.
double time_dd(const std::string &source, const std::string &mirror)
{
    const std::string command =
        "dd if=" + source + " of=" + mirror +
        " bs=1M skip=1 seek=1 iflag=direct oflag=direct conv=fsync,notrunc status=none";
    const auto start = steady_clock::now();
    if (system(command.c_str()) != 0)
        give_up(command);
    return seconds_since(start);
}

double cpu_seconds()
{
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 6)
        give_up("usage: bench-mirrors NAME SOURCE MIRROR MIB ROUNDS");
    const std::string source = argv[2], mirror = argv[3], guid = guid_of(argv[2]);
    const double mib = atof(argv[4]);
    if (tw_disk_protect(guid.c_str(), guid_of(argv[3]).c_str()) != 0)
        give_up("the disk cannot be protected");
    std::vector<double> ours, dds, ratios;
    for (int round = 0; round < atoi(argv[5]); round++) {
        dds.push_back(time_dd(source, mirror));
        ours.push_back(time_resync(guid));
        ratios.push_back(dds.back() / ours.back());
    }
    const double before = cpu_seconds();
    std::this_thread::sleep_for(watch_time);
    const double cpu = (cpu_seconds() - before) / std::chrono::duration<double>(watch_time).count();
    printf("| %s | %.0f | %.0f | %.0f %% (%.0f to %.0f %%) | %.4f %% |\n", argv[1], mib / median(ours),
           mib / median(dds), 100 * median(ratios), 100 * *std::min_element(ratios.begin(), ratios.end()),
           100 * *std::max_element(ratios.begin(), ratios.end()), 100 * cpu);
    return tw_disk_unprotect(guid.c_str()) == 0 ? 0 : 1;
}
