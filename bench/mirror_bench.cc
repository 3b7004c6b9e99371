#include "bench/mirror_bench.h"

#include "base/fd.h"
#include "tw.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
using std::chrono::steady_clock;

void give_up(const std::string &what)
{
    fprintf(stderr, "bench: %s\n", what.c_str());
    exit(1);
}

double seconds_since(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

std::string guid_of(const std::string &path)
{
    unsigned signature = 0;
    const unique_fd disk(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!disk.is_open() || pread(disk.get(), &signature, sizeof signature, 440) != sizeof signature)
        give_up(path + ": " + strerror(errno));
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

void protect_or_give_up(const std::string &guid, const std::string &mirror_guid)
{
    if (tw_disk_protect(guid.c_str(), mirror_guid.c_str()) != 0)
        give_up("the disk cannot be protected");
}

void unprotect_or_give_up(const std::string &guid)
{
    if (tw_disk_unprotect(guid.c_str()) != 0)
        give_up("the protection cannot be removed");
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

double cpu_seconds()
{
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// The first number of schedstat is the time on a processor in nanoseconds (the kernel's
// Documentation/scheduler/sched-stats.rst).
double engine_cpu_seconds()
{
    double sum = 0;
    for (const auto &thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(thread.path() / "comm") >> name;
        double nanoseconds = 0;
        std::ifstream(thread.path() / "schedstat") >> nanoseconds;
        if (name == "mirror")
            sum += nanoseconds / 1e9;
    }
    return sum;
}
