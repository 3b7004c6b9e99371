// Marks of a disk that is written to all the time: whether they are taken, and of which moment the copies are
// that a hook makes of the held mirror. Prints table rows.
//
//   bench-marks rates SOURCE MIRROR MARKS
//     random pages at four rates
//   bench-marks disk SOURCE MIRROR MARKS COPY
//     numbered blocks on the disk; the hook copies to COPY
//   bench-marks files SOURCE MIRROR MARKS COPY FOLDER CHECK [RATE]
//     numbered blocks in files of FOLDER; "CHECK frozen" or "CHECK crashed" looks at the copy and mounts it
//     on COPY; mirrors follow no faster than RATE, so that a small one is level only when writers wait

#include "base/log.h"
#include "bench/mirror_bench.h"
#include "bench/numbered_blocks.h"
#include "bench/page_writer.h"
#include "kavagt.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <list>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

const std::string throttle = "/var/lib/twinvault/throttle";

std::atomic<unsigned> freezes, longest_freeze, whole_passes;

struct tally {
    int marks = 0, taken = 0, wrong = 0, in_five_seconds = 0;
    double longest = 0;
    unsigned unfrozen = 0;
};

bool take_mark(const std::string &mirror_guid, tally *sum)
{
    const auto start = steady_clock::now();
    const bool is_taken = kav_call_disk_markcdp(("{" + mirror_guid + "}").c_str()) == 0;
    const double seconds = seconds_since(start);
    sum->marks++;
    sum->taken += is_taken;
    sum->in_five_seconds += is_taken && seconds <= 5;
    sum->longest = std::max(sum->longest, seconds);
    return is_taken;
}

std::list<numbered_writer> start_writers(const std::string &disk, const std::string &folder)
{
    std::list<numbered_writer> writers;
    uint64_t begin = 1 << 20;
    for (const size_t block : {512U, 4096U, 16384U, 65536U}) {
        if (folder.empty())
            writers.emplace_back(disk, block_ring{block, begin, true});
        else
            writers.emplace_back(folder + "/" + std::to_string(block), block_ring{block, 0, false});
        begin += ring_slots * block;
    }
    for (const numbered_writer &writer : writers) {
        while (writer.flushed() <= ring_slots)
            std::this_thread::sleep_for(10ms);
    }
    return writers;
}

// Files that come, grow, move and go, so that a file system has changes on its way all the time.
void stir(const std::string &folder, const std::stop_token &end)
{
    const std::string text(9000, 's');
    for (unsigned i = 0; !end.stop_requested(); i++) {
        const std::string name = folder + "/stirred-" + std::to_string(i % 50);
        std::error_code ignored;
        const unique_fd file(open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        if (write(file.get(), text.data(), i % text.size()) < 0)
            give_up(name + ": " + strerror(errno));
        if (i % 4 == 0)
            fsync(file.get());
        if (i % 3 == 0)
            std::filesystem::rename(name, name + "-moved", ignored);
        if (i % 7 == 0)
            std::filesystem::remove(name, ignored);
        std::this_thread::sleep_for(5ms);
    }
}

// FLUSHED: by each writer, before the mark.
std::string complaint_about_copy(const std::list<numbered_writer> &writers,
                                 const std::vector<uint64_t> &flushed, const std::string &copy,
                                 bool has_files)
{
    std::string all;
    size_t i = 0;
    for (const numbered_writer &writer : writers) {
        const std::string path = has_files ? copy + "/" + std::to_string(writer.ring().block) : copy;
        const std::string one = complaint_about(path, writer.ring(), flushed[i++]);
        all += one.empty() ? "" : one + "; ";
    }
    return all;
}

bool run(const std::string &command)
{
    return system(command.c_str()) == 0;
}

// CHECK is empty for writers on the disk itself.
void mark_and_check(const std::string &mirror_guid, const std::list<numbered_writer> &writers,
                    const std::string &check, const std::string &copy, tally *sum)
{
    std::vector<uint64_t> flushed;
    for (const numbered_writer &writer : writers)
        flushed.push_back(writer.flushed());
    const unsigned freezes_before = freezes;
    if (!take_mark(mirror_guid, sum))
        return;
    const bool is_frozen = freezes > freezes_before;
    sum->unfrozen += !is_frozen;
    const bool is_whole = check.empty() || run(check + (is_frozen ? " frozen" : " crashed"));
    const std::string complaint = is_whole ? complaint_about_copy(writers, flushed, copy, !check.empty())
                                           : "the file system of the copy is damaged";
    if (!check.empty())
        run("umount " + copy);
    if (complaint.empty())
        return;
    sum->wrong++;
    fprintf(stderr, "bench-marks: mark %d: %s\n", sum->marks, complaint.c_str());
}

int print_row(const std::string &what, const tally &sum)
{
    printf("| %s | %d | %d | %d | %d | %.1f | %u | %u | %u |\n", what.c_str(), sum.marks, sum.taken,
           sum.wrong, sum.in_five_seconds, sum.longest, freezes.load(), longest_freeze.load(),
           whole_passes.load());
    return sum.wrong == 0 && sum.taken == sum.marks ? 0 : 1;
}

// FOLDER and CHECK are empty for writers on the disk itself.
int check_marks(const std::string &source, const std::string &mirror_guid, int marks, const std::string &copy,
                const std::string &folder, const std::string &check, const std::string &rate)
{
    const std::list<numbered_writer> writers = start_writers(source, folder);
    std::jthread other;
    if (!folder.empty())
        other = std::jthread([&](const std::stop_token &end) { stir(folder, end); });
    tally sum;
    while (sum.marks < marks) {
        if (!rate.empty()) {
            std::ofstream(throttle) << rate << '\n';
            std::this_thread::sleep_for(1500ms); // it is read once a second
        }
        mark_and_check(mirror_guid, writers, check, copy, &sum);
        std::filesystem::remove(throttle);
    }
    return print_row(folder.empty() ? "disk" : folder.substr(folder.rfind('/') + 1), sum);
}

int measure_rates(const std::string &source, const std::string &mirror_guid, int marks)
{
    int result = 0;
    for (const int rate : {16, 64, 1024, 16384}) {
        page_writer writer(source);
        const std::jthread load([&](const std::stop_token &end) { writer.write_at_rate(rate / 4.0, end); });
        std::this_thread::sleep_for(1s);
        tally sum;
        while (sum.marks < marks)
            take_mark(mirror_guid, &sum);
        result |= print_row(std::to_string(rate) + " KiB/s", sum);
        result |= sum.in_five_seconds != marks;
        fflush(stdout);
    }
    return result;
}

} // namespace

void log_write(int level, const char *, int, const char *format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    unsigned ms = 0;
    if (const char *at = strstr(line, "were frozen for "); at && sscanf(at, "were frozen for %u", &ms) == 1) {
        freezes++;
        longest_freeze = std::max<unsigned>(longest_freeze, ms);
    }
    whole_passes += strstr(line, "is compared with its mirror as a whole") != nullptr;
    if (level <= LOG_WARNING || getenv("QELCD_VERBOSE"))
        fprintf(stderr, "%s\n", line);
}

int main(int argc, char **argv)
{
    if (argc < 5)
        give_up("usage: bench-marks rates|disk|files SOURCE MIRROR MARKS [COPY [FOLDER CHECK [RATE]]]");
    const std::string what = argv[1], source = argv[2], guid = guid_of(source),
                      mirror_guid = guid_of(argv[3]);
    protect_or_give_up(guid, mirror_guid);
    time_resync(guid);
    const int marks = atoi(argv[4]);
    const auto text = [&](int i) { return std::string(argc > i ? argv[i] : ""); };
    const int result = what == "rates"
                           ? measure_rates(source, mirror_guid, marks)
                           : check_marks(source, mirror_guid, marks, text(5), text(6), text(7), text(8));
    unprotect_or_give_up(guid);
    return result;
}
