// How a mirror follows a disk that is written to. Prints table rows.
//
//   bench-follow write SOURCE MIRROR           what one page costs
//   bench-follow rates SOURCE MIRROR SECONDS   how long the two are not level under a constant load
//   bench-follow idle SOURCE MIRROR SECONDS    what watching a level mirror costs
//   bench-follow held SOURCE MIRROR            tracks SOURCE and copies nothing until standard input ends

#include "bench/mirror_bench.h"
#include "bench/page_writer.h"
#include "platform/linux/mirror/level_hold.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

// The field of that index, as Documentation/block/stat.rst of the kernel numbers them.
uint64_t counter(const std::string &path, int index)
{
    std::ifstream stat("/sys/block/" + path.substr(5) + "/stat");
    uint64_t value = 0;
    for (int i = 0; i <= index; i++)
        stat >> value;
    return value;
}

uint64_t sectors_read(const std::string &path)
{
    return counter(path, 2);
}

uint64_t sectors_written(const std::string &path)
{
    return counter(path, 6);
}

// While nobody asks whether it is level.
double seconds_until_followed(page_writer &writer, const std::string &mirror)
{
    const uint64_t before = sectors_written(mirror);
    const auto start = steady_clock::now();
    writer.write();
    while (sectors_written(mirror) == before)
        std::this_thread::sleep_for(1ms);
    return seconds_since(start);
}

void measure_write(const std::string &source, const std::string &mirror, const std::string &guid)
{
    page_writer writer(source);
    constexpr int rounds = 9;
    uint64_t read_source = 0, read_mirror = 0;
    double longest = 0, longest_unasked = 0;
    for (int i = 0; i < rounds; i++) {
        const uint64_t source_before = sectors_read(source), mirror_before = sectors_read(mirror);
        writer.write();
        const auto start = steady_clock::now();
        while (!is_level(guid))
            std::this_thread::sleep_for(1ms);
        longest = std::max(longest, seconds_since(start));
        read_source = std::max(read_source, sectors_read(source) - source_before);
        read_mirror = std::max(read_mirror, sectors_read(mirror) - mirror_before);
        std::this_thread::sleep_for(300ms);
        longest_unasked = std::max(longest_unasked, seconds_until_followed(writer, mirror));
        std::this_thread::sleep_for(300ms);
    }
    printf("| %.0f | %.1f | %.1f | %.3f | %.3f |\n", static_cast<double>(writer.size()) / (1 << 30),
           static_cast<double>(read_source) / 2, static_cast<double>(read_mirror) / 2, longest,
           longest_unasked);
}

void measure_rate(page_writer &writer, const std::string &guid, double kib_per_second, double seconds)
{
    std::jthread load([&](const std::stop_token &end) { writer.write_at_rate(kib_per_second / 4, end); });
    std::this_thread::sleep_for(1s);
    const double cpu = engine_cpu_seconds();
    const auto start = steady_clock::now();
    auto last_level = start;
    double longest = 0;
    int looks = 0, level = 0;
    for (; seconds_since(start) < seconds; looks++) {
        const bool now_level = is_level(guid);
        if (now_level || seconds_since(last_level) > longest)
            longest = std::max(longest, seconds_since(last_level));
        if (now_level) {
            level++;
            last_level = steady_clock::now();
        }
        std::this_thread::sleep_for(2ms);
    }
    const double used = (engine_cpu_seconds() - cpu) / seconds_since(start);
    load.request_stop();
    printf("| %.0f | %.3f | %.0f %% | %.2f %% |\n", kib_per_second, longest, 100.0 * level / looks,
           100 * used);
    fflush(stdout);
}

// The writes of others then cost what tracking costs, and nothing else.
void hold_until_end_of_input(const std::string &mirror_guid)
{
    const unique_fd hold(tw_hold_at_level(mirror_guid.c_str(), 10000));
    if (!hold.is_open())
        give_up("the mirror cannot be held");
    puts("held");
    fflush(stdout);
    while (getchar() != EOF)
        ;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4)
        give_up("usage: bench-follow write|rates|idle|held SOURCE MIRROR [SECONDS]");
    const std::string what = argv[1], source = argv[2], mirror = argv[3], guid = guid_of(source);
    const double seconds = argc > 4 ? atof(argv[4]) : 10;
    protect_or_give_up(guid, guid_of(mirror));
    time_resync(guid);
    if (what == "write") {
        measure_write(source, mirror, guid);
    } else if (what == "rates") {
        page_writer writer(source);
        for (const double rate : {16.0, 64.0, 1024.0, 16384.0})
            measure_rate(writer, guid, rate, seconds);
    } else if (what == "held") {
        hold_until_end_of_input(guid_of(mirror));
    } else {
        const double before = cpu_seconds();
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        printf("| %.4f %% |\n", 100 * (cpu_seconds() - before) / seconds);
    }
    unprotect_or_give_up(guid);
}
