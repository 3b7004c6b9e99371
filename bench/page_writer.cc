#include "bench/page_writer.h"

#include "bench/mirror_bench.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

constexpr size_t page = 4096;

page_writer::page_writer(const std::string &path)
    : disk_(open(path.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC)),
      bytes_(static_cast<char *>(aligned_alloc(page, page)))
{
    if (!disk_.is_open() || !bytes_ || ioctl(disk_.get(), BLKGETSIZE64, &size_) != 0)
        give_up(path + ": " + strerror(errno));
}

void page_writer::write()
{
    const uint64_t place = 1 + random_() % (size_ / page - 1);
    memset(bytes_.get(), static_cast<int>(random_()), page);
    if (pwrite(disk_.get(), bytes_.get(), page, static_cast<off_t>(place * page)) != page)
        give_up(strerror(errno));
}

void page_writer::write_at_rate(double pages_per_second, const std::stop_token &end)
{
    using std::chrono::steady_clock;
    const auto start = steady_clock::now();
    for (int64_t i = 0; !end.stop_requested(); i++) {
        const std::chrono::duration<double> due(static_cast<double>(i) / pages_per_second);
        std::this_thread::sleep_until(start + std::chrono::duration_cast<steady_clock::duration>(due));
        write();
    }
}
