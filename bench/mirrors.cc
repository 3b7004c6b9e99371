// What the embedded mirrors cost: a resynchronisation against dd with direct I/O and the same block size, in
// turns on the same two disks, and the watch of a level mirror. Prints table rows.
#include "bench/mirror_bench.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto watch_time = 30s;

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
    std::vector<double> ours, dds, ratios;
    for (int round = 0; round < atoi(argv[5]); round++) {
        if (round > 0)
            unprotect_or_give_up(guid); // dd writes to the mirror
        dds.push_back(time_dd(source, mirror));
        protect_or_give_up(guid, guid_of(mirror));
        ours.push_back(time_resync(guid));
        ratios.push_back(dds.back() / ours.back());
    }
    const double before = cpu_seconds();
    std::this_thread::sleep_for(watch_time);
    const double cpu = (cpu_seconds() - before) / std::chrono::duration<double>(watch_time).count();
    printf("| %s | %.0f | %.0f | %.0f %% (%.0f to %.0f %%) | %.4f %% |\n", argv[1], mib / median(ours),
           mib / median(dds), 100 * median(ratios), 100 * *std::min_element(ratios.begin(), ratios.end()),
           100 * *std::max_element(ratios.begin(), ratios.end()), 100 * cpu);
    unprotect_or_give_up(guid);
}
