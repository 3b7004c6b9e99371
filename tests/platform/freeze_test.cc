// File systems that are frozen for a moment are thawed, whatever happens meanwhile. In a private host.
#include "platform/linux/agent/freeze.h"
#include "platform/linux/state/folders.h"
#include "tests/platform/host.h"
#include "tests/support/eventually.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>
#include <thread>

namespace {

// Whoever freezes a file system that is frozen is told so.
bool is_frozen(const std::string &point)
{
    const unique_fd file(open(point.c_str(), O_RDONLY | O_CLOEXEC));
    if (ioctl(file.get(), FIFREEZE, 0) != 0)
        return errno == EBUSY;
    ioctl(file.get(), FITHAW, 0);
    return false;
}

void kill_guards(int signal)
{
    run("for one in /proc/[0-9]*; do [ $one/exe -ef " FREEZE_GUARD_FILE " ] && kill -" +
        std::to_string(signal) + " ${one#/proc/}; done");
}

// A disk with two partitions, file systems on both.
class Freeze : public disk_image {
protected:
    void make()
    {
        attach("truncate -s 96M $IMG && printf ',40M\\n,\\n' | sfdisk --label dos $IMG");
        if (HasFatalFailure() || IsSkipped())
            return;
        ASSERT_TRUE(run("partx --add $DEV; for n in 1 2; do rm -f ${DEV}p$n; mknod ${DEV}p$n b $(tr : ' ' "
                        "</sys/class/block/${DEV#/dev/}p$n/dev) || exit 1; done; mkdir -p /mnt/a /mnt/b"));
        ASSERT_TRUE(run("mkfs.ext4 -q ${DEV}p1 && mount ${DEV}p1 /mnt/a && mkfs.ext4 -q ${DEV}p2 && mount "
                        "${DEV}p2 /mnt/b && mount --bind /mnt/a /mnt/b/lost+found"));
    }
    ~Freeze() override { run("umount -R /mnt/b; umount /mnt/a"); }

    std::unique_ptr<freeze_guard> start(std::chrono::milliseconds deadline)
    {
        auto systems = open_file_systems({path}, {}, &why);
        return systems ? freeze_guard::start(FREEZE_GUARD_FILE, std::move(*systems), deadline, &why)
                       : nullptr;
    }

    std::string why;
};

TEST_F(Freeze, EndsInTimeOrSaysWhyNot)
{
    ASSERT_NO_FATAL_FAILURE(make());
    const struct {
        std::chrono::milliseconds deadline;
        std::function<void()> meanwhile;
        std::string why;
    } rows[] = {
        {20s, [] {}, ""},
        {20s, [] { kill_guards(SIGTERM); }, ""},
        {6s, [] { EXPECT_TRUE(eventually([] { return !is_frozen("/mnt/a"); })); },
         "were thawed at the deadline, after"},
        {20s, [] { kill_guards(SIGKILL); }, "the guard has ended before its time"},
        {20s, [] { EXPECT_TRUE(run("fsfreeze -u /mnt/b")); }, "somebody else has thawed /mnt/b"},
    };
    for (const auto &row : rows) {
        const auto guard = start(row.deadline);
        ASSERT_TRUE(guard && guard->sync(10s, &why)) << why;
        ASSERT_TRUE(guard->freeze(&why)) << why;
        EXPECT_TRUE(is_frozen("/mnt/a") && is_frozen("/mnt/b")) << row.why;
        row.meanwhile();
        why.clear();
        EXPECT_EQ(guard->thaw(&why), row.why.empty()) << why;
        EXPECT_TRUE(why.find(row.why) != std::string::npos && why.empty() == row.why.empty()) << why;
        EXPECT_FALSE(is_frozen("/mnt/a") || is_frozen("/mnt/b")) << row.why;
    }
}

TEST_F(Freeze, EndsWithTheProcessThatWantedIt)
{
    ASSERT_NO_FATAL_FAILURE(make());
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        const auto guard = start(60s);
        const char is_done = guard && guard->freeze(&why) ? 'y' : 'n';
        while (write(ends[1], &is_done, 1) == 1)
            pause();
    }
    char is_done = 0;
    EXPECT_TRUE(read(ends[0], &is_done, 1) == 1 && is_done == 'y' && is_frozen("/mnt/b"));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(eventually([] { return !is_frozen("/mnt/a") && !is_frozen("/mnt/b"); }));
    close(ends[0]), close(ends[1]);
}

TEST_F(Freeze, TouchesNothingThatTheHostNeedsOrThatSomebodyElseHasFrozen)
{
    ASSERT_NO_FATAL_FAILURE(make());
    ASSERT_TRUE(run("fsfreeze -f /mnt/b"));
    const auto guard = start(20s);
    ASSERT_TRUE(guard) << why;
    EXPECT_FALSE(guard->freeze(&why));
    EXPECT_EQ(why, "/mnt/b cannot be frozen: Device or resource busy");
    EXPECT_TRUE(!is_frozen("/mnt/a") && is_frozen("/mnt/b")) << "the other one's freeze stays";
    ASSERT_TRUE(run("fsfreeze -u /mnt/b"));
    for (const std::string where : {"/var/log", twinvault.path}) {
        ASSERT_TRUE(run("mkdir -p " + where + " && mount ${DEV}p1 " + where));
        EXPECT_FALSE(start(20s));
        EXPECT_NE(why.find(" holds " + where), std::string::npos) << why;
        EXPECT_TRUE(run("umount " + where));
    }
    EXPECT_FALSE(open_file_systems({path}, {"/mnt/b"}, &why)) << "the file of a mirror is there";
}

} // namespace
