// The copier on files in memory, with io_uring and where a policy denies it.
#include "platform/linux/mirror/block_copy.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

namespace {

constexpr uint64_t SIZE = 21 * copy_block + 512;

// From now on SYSTEM_CALL fails in this thread.
void deny(unsigned system_call)
{
    sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, system_call, 0, 1),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter = {std::size(program), program};
    EXPECT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

bool has_ring()
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) == "anon_inode:[io_uring]")
            return true;
    }
    return false;
}

struct file {
    explicit file(char seed, uint64_t size = SIZE) : fd(memfd_create("disk", MFD_CLOEXEC)), bytes(size, seed)
    {
        for (uint64_t page = 0; page < size; page += compared_page)
            bytes[page] = static_cast<char>(seed + static_cast<char>(page / compared_page % 101));
        EXPECT_EQ(pwrite(fd, bytes.data(), size, 0), static_cast<ssize_t>(size));
    }
    ~file() { close(fd); }
    std::string content() const
    {
        std::string now(SIZE, '\0');
        now.resize(static_cast<size_t>(pread(fd, now.data(), SIZE, 0)));
        return now;
    }
    std::string page(uint64_t end) const
    {
        char bytes_now[compared_page] = "";
        EXPECT_GT(pread(fd, bytes_now, sizeof bytes_now, static_cast<off_t>(end - sizeof bytes_now)), 0);
        return {bytes_now, sizeof bytes_now};
    }
    int fd;
    std::string bytes; // at first
};

class BlockCopy : public testing::TestWithParam<bool> {
protected:
    copy_result copy(copy_job job)
    {
        job.source = source.fd;
        job.mirror = mirror.fd;
        copy_result result;
        std::thread([&] {
            if (!GetParam())
                deny(SYS_io_uring_setup);
            const auto former = job.go_on;
            job.go_on = [&, former](uint64_t position) {
                EXPECT_EQ(has_ring(), GetParam());
                EXPECT_TRUE(position <= job.begin + copy_block ||
                            mirror.page(position) == source.page(position));
                return former(position);
            };
            result = copy_blocks(job);
        }).join();
        return result;
    }

    file source{'s'}, mirror{'m'};
};

TEST_P(BlockCopy, CopiesFromWhereItBeginsAndKeepsTheSignature)
{
    const uint64_t begin = 3 * copy_block;
    const copy_result rest = copy({.begin = begin, .end = SIZE, .own_signature = {{'s', 'i', 'g', 'n'}}});
    EXPECT_TRUE(rest.end == copy_end::done && rest.position == SIZE && rest.written == SIZE - begin);
    EXPECT_TRUE(mirror.content() == mirror.bytes.substr(0, begin) + source.bytes.substr(begin));
    EXPECT_EQ(copy({.begin = SIZE, .end = SIZE}).end, copy_end::done) << "nothing is left";
}

TEST_P(BlockCopy, WritesOnlyThePagesThatDiffer)
{
    ASSERT_EQ(copy({.end = SIZE}).written, SIZE);
    EXPECT_EQ(copy({.end = SIZE, .compare = true}).written, 0U);
    std::string wanted = source.bytes;
    for (const uint64_t at : {copy_block - 1, copy_block, 9 * copy_block, 10 * copy_block - 1, SIZE - 1})
        ASSERT_EQ(pwrite(mirror.fd, "x", 1, static_cast<off_t>(at)), 1);
    const copy_result result = copy({.end = SIZE, .compare = true, .own_signature = {{'s', 'i', 'g', 'n'}}});
    EXPECT_TRUE(result.end == copy_end::done && result.position == SIZE);
    EXPECT_EQ(result.written, 5 * compared_page + 512)
        << "the signature's page, and the last one is not whole";
    EXPECT_TRUE(mirror.content() == wanted.replace(440, 4, "sign"));
}

TEST_P(BlockCopy, TellsWhatFailedAndWhereAndHowFarItCame)
{
    ASSERT_EQ(ftruncate(source.fd, 10 * copy_block + 100), 0);
    const copy_result read = copy({.end = SIZE});
    EXPECT_TRUE(read.end == copy_end::source_failed && read.error == EIO);
    EXPECT_TRUE(read.failed_at == 10 * copy_block && read.position <= read.failed_at);
    ASSERT_EQ(ftruncate(mirror.fd, 4 * copy_block), 0);
    const copy_result compared = copy({.begin = 2 * copy_block, .end = 9 * copy_block, .compare = true});
    EXPECT_TRUE(compared.end == copy_end::mirror_failed && compared.error == EIO);
    EXPECT_TRUE(compared.failed_at == 4 * copy_block && compared.position <= compared.failed_at);
}

TEST_P(BlockCopy, StopsWhenItIsToldTo)
{
    int calls = 0;
    const copy_result result = copy({.end = SIZE, .go_on = [&](uint64_t) { return ++calls < 5; }});
    EXPECT_TRUE(result.end == copy_end::stopped && calls == 5);
    EXPECT_TRUE(result.position > 0 && result.position < SIZE);
}

INSTANTIATE_TEST_SUITE_P(Both, BlockCopy, testing::Bool(),
                         [](const auto &row) { return row.param ? "Ring" : "NoRing"; });

TEST(BlockCopyPolicy, ThatTakesTheRingAwayInTheMiddleEndsTheCopying)
{
    const file source('s'), mirror('m');
    copy_job job = {.source = source.fd, .mirror = mirror.fd, .end = SIZE};
    int calls = 0;
    job.go_on = [&](uint64_t) {
        if (++calls == 3)
            deny(SYS_io_uring_enter);
        return true;
    };
    std::thread([&] {
        const copy_result result = copy_blocks(job);
        EXPECT_TRUE(result.end != copy_end::done && result.error == EPERM && result.position < SIZE);
    }).join();
}

} // namespace
