// Marks of a disk that is written to all the time: whether they are taken, and of which moment the copies are
// that a hook makes of the held mirror. Prints table rows.
//
//   bench-marks rates SOURCE MIRROR MARKS
//     random pages at four rates
//   bench-marks disk SOURCE MIRROR MARKS COPY
//     numbered blocks on the disk; the hook copies to COPY
//   bench-marks files SOURCE MIRROR MARKS COPY FOLDER CHECK [RATE [SOURCE2 MIRROR2]]
//     numbered blocks in files of FOLDER; "CHECK frozen" or "CHECK crashed" looks at the copy and mounts it
//     on COPY; mirrors follow no faster than RATE, so that a small one is level only when writers wait. With
//     a second disk the marks are those of a group, and FOLDER2 and COPY2 have a file that is written in turn
//     with one in FOLDER

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
#include <map>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr int missed_some = 3; // exit status: what was taken is right, but some marks failed

const std::string throttle = "/var/lib/twinvault/throttle";

std::atomic<unsigned> freezes, longest_freeze, whole_passes;

struct tally {
    int marks = 0, taken = 0, wrong = 0, in_five_seconds = 0;
    double longest = 0;
};

int call_mark(const std::vector<std::string> &guids)
{
    if (guids.size() == 1)
        return kav_call_disk_markcdp(("{" + guids.front() + "}").c_str());
    char name[] = "all";
    Kavdevgrp group{{}, {&group.devices, &group.devices}, name};
    std::list<Kavdev> devices;
    for (const std::string &guid : guids) {
        Kavdev &device = devices.emplace_back();
        ("{" + guid + "}").copy(device.guid, sizeof device.guid - 1);
        kav_list_append(&group.devices, &device.link);
    }
    return kav_call_grp_markcdp(&group);
}

bool take_mark(const std::vector<std::string> &guids, tally *sum)
{
    const auto start = steady_clock::now();
    const bool is_taken = call_mark(guids) == 0;
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

// Writes the same number first to the one, then to the other.
void write_in_turn(const std::string &folder, const std::string &other, const std::stop_token &end)
{
    const unique_fd first(open((folder + "/turn").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const unique_fd second(open((other + "/turn").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    for (uint64_t number = 1; !end.stop_requested(); number++) {
        for (const int file : {first.get(), second.get()}) {
            if (pwrite(file, &number, sizeof number, 0) != sizeof number || fdatasync(file) != 0)
                give_up(std::string("the writer of both: ") + strerror(errno));
        }
    }
}

uint64_t turn_in(const std::string &folder)
{
    uint64_t number = 0;
    std::ifstream(folder + "/turn").read(reinterpret_cast<char *>(&number), sizeof number);
    return number;
}

// FLUSHED: by each writer, before the mark.
std::string complaint_about_copy(const std::list<numbered_writer> &writers,
                                 const std::vector<uint64_t> &flushed, const std::string &copy,
                                 bool has_files, bool is_group)
{
    std::string all;
    size_t i = 0;
    for (const numbered_writer &writer : writers) {
        const std::string path = has_files ? copy + "/" + std::to_string(writer.ring().block) : copy;
        const std::string one = complaint_about(path, writer.ring(), flushed[i++]);
        all += one.empty() ? "" : one + "; ";
    }
    const uint64_t first = is_group ? turn_in(copy) : 1, second = is_group ? turn_in(copy + "2") : 1;
    if (second == 0 || first < second || first > second + 1)
        all += "turn " + std::to_string(first) + " beside " + std::to_string(second);
    return all;
}

bool run(const std::string &command)
{
    return system(command.c_str()) == 0;
}

// CHECK is empty for writers on the disk itself.
void mark_and_check(const std::vector<std::string> &mirrors, const std::list<numbered_writer> &writers,
                    const std::string &check, const std::string &copy, tally *sum)
{
    std::vector<uint64_t> flushed;
    for (const numbered_writer &writer : writers)
        flushed.push_back(writer.flushed());
    const unsigned freezes_before = freezes;
    if (!take_mark(mirrors, sum))
        return;
    const bool is_frozen = freezes > freezes_before;
    const bool is_whole = check.empty() || run(check + (is_frozen ? " frozen" : " crashed"));
    const std::string complaint =
        is_whole ? complaint_about_copy(writers, flushed, copy, !check.empty(), mirrors.size() > 1)
                 : "the file system of the copy is damaged";
    if (!check.empty())
        run("umount " + copy + (mirrors.size() > 1 ? " " + copy + "2" : ""));
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
    const int not_all = sum.taken > 0 ? missed_some : 1;
    return sum.wrong > 0 ? 1 : sum.taken < sum.marks ? not_all : 0;
}

// A mirror that is far behind is not frozen for, so it catches up before the next mark.
void wait_for_level(const std::string &guid)
{
    for (int looks = 0; looks < 10000 && !is_level(guid); looks++)
        std::this_thread::sleep_for(2ms);
}

// FOLDER and CHECK are empty for writers on the disk itself.
int check_marks(const std::string &source, const std::vector<std::string> &mirrors, int marks,
                const std::string &copy, const std::string &folder, const std::string &check,
                const std::string &rate)
{
    const std::list<numbered_writer> writers = start_writers(source, folder);
    std::jthread other;
    if (!folder.empty())
        other = std::jthread([&](const std::stop_token &end) { stir(folder, end); });
    std::jthread pair;
    if (mirrors.size() > 1)
        pair = std::jthread([&](const std::stop_token &end) { write_in_turn(folder, folder + "2", end); });
    tally sum;
    while (sum.marks < marks) {
        if (!rate.empty()) {
            std::ofstream(throttle + ".new") << rate << '\n';
            std::filesystem::rename(throttle + ".new", throttle);
            std::this_thread::sleep_for(1500ms); // it is read once a second
        }
        mark_and_check(mirrors, writers, check, copy, &sum);
        std::filesystem::remove(throttle);
        wait_for_level(guid_of(source));
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
            take_mark({mirror_guid}, &sum);
        print_row(std::to_string(rate) + " KiB/s", sum);
        result = std::max(result, sum.in_five_seconds == marks ? 0 : missed_some);
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
    const std::string what = argv[1], source = argv[2], mirror_guid = guid_of(argv[3]);
    const int marks = atoi(argv[4]);
    const auto text = [&](int i) { return std::string(argc > i ? argv[i] : ""); };
    std::map<std::string, std::string> pairs = {{guid_of(source), mirror_guid}}; // mirrors by source
    if (argc > 10)
        pairs.emplace(guid_of(text(9)), guid_of(text(10)));
    std::vector<std::string> mirrors;
    for (const auto &[one, its_mirror] : pairs) {
        protect_or_give_up(one, its_mirror);
        time_resync(one);
        mirrors.push_back(its_mirror);
    }
    const int result = what == "rates"
                           ? measure_rates(source, mirror_guid, marks)
                           : check_marks(source, mirrors, marks, text(5), text(6), text(7), text(8));
    for (const auto &[one, its_mirror] : pairs)
        unprotect_or_give_up(one);
    return result;
}
