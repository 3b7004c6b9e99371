// A process that has the mirror library loaded, apart from the test, so that it can be killed, and that
// others can stand beside it. And the disks that it mirrors.
#pragma once

#include "tests/support/eventually.h"
#include "tests/support/loop_disk.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

class mirror_process {
public:
    mirror_process();
    ~mirror_process() { kill(); }
    mirror_process(const mirror_process &) = delete;
    mirror_process &operator=(const mirror_process &) = delete;

    // "protect A B", "unprotect A", "resync A", "stop A": what the library returns. "stat": every
    // relationship, "SOURCE state percent link link;". "hold B": holds that mirror at its next level, until
    // "release". "log": the lines since the last time. "threads": how
    // many.
    std::string ask(const std::string &command) const;
    // Whether some relationship's stat has that in time.
    bool reaches(const std::string &state, std::chrono::milliseconds limit = patience) const;
    void kill();

private:
    pid_t pid_ = -1;
    int fd_ = -1;
};

// Loop devices are the machine's, so a disk must not be taken for one of a test that runs beside: its number
// stands for a signature that is drawn.
uint32_t signature_of(unsigned number);
std::string guid_of(unsigned number);

// A loop device over a file of that size, blank but for its signature.
class test_disk {
public:
    test_disk(size_t bytes, unsigned number, bool read_only = false);

    const std::string &path() const { return device->path(); }
    void fill(size_t from, size_t bytes) const; // with something else at each place
    void write(size_t offset, const std::string &bytes) const { device->write(offset, bytes); }
    std::string content() const;
    uint64_t sectors_read() const { return counter(2); }
    uint64_t sectors_written() const { return counter(6); }
    bool is_claimed() const; // also by a process that was killed, until its last write has ended

    const std::string guid;
    const std::string image;
    std::optional<loop_disk> device;

private:
    uint64_t counter(int index) const; // as Documentation/block/stat.rst of the kernel numbers them
};

// The number in that variable of the environment, with which somebody asks for more than the usual.
int number_of(const char *variable, int usual);

constexpr size_t MIB = size_t{1} << 20;
const std::string FOLDER = "/var/lib/twinvault/";
const std::string A = guid_of(0xa), B = guid_of(0xb);
const std::string FINISHED = "Sync Finished 100 Up Up";

// Two disks in a private host without any relationship, whose writes are not tracked.
class Mirror : public testing::Test {
protected:
    void SetUp() override;
    // Gives the host a BPF file system, so that writes are tracked; skips the test where that is not allowed.
    static void allow_tracking();

    static void protect(const mirror_process &engine, const std::string &then = "stat");
    static void make_level(const mirror_process &engine);
    // The mirror has the signature of the disk with that number.
    void expect_equal(unsigned number = 0xb) const;
    static uint64_t saved_position();

    static constexpr size_t SIZE = 48 * MIB - 512; // the last block and its last page are not whole
    std::optional<test_disk> source, mirror;
};
