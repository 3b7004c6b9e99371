#include "tests/platform/mirror_process.h"

#include "base/fd.h"
#include "platform/include/tw.h"
#include "platform/linux/mirror/level_hold.h"
#include "tests/platform/host.h"
#include "tests/support/captured_log.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <sstream>

namespace {

constexpr char BPF_FOLDER[] = "/sys/fs/bpf";

std::string stat_all()
{
    std::ostringstream text;
    tw_relationship *chain = tw_disk_stat(nullptr);
    for (const tw_relationship *one = chain; one; one = one->next)
        text << one->src_guid << ' ' << one->sync_state << ' ' << one->percent << ' ' << one->src_link << ' '
             << one->dest_link << ';';
    tw_disk_stat_release(chain);
    return text.str();
}

long worker_count()
{
    long count = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task"))
        count += read_file(task.path() / "comm") == "mirror\n";
    return count;
}

std::string answer(const std::string &command)
{
    std::istringstream words(command);
    std::string verb, one, other;
    words >> verb >> one >> other;
    if (verb == "protect")
        return std::to_string(tw_disk_protect(one.c_str(), other.c_str()));
    if (verb == "unprotect")
        return std::to_string(tw_disk_unprotect(one.c_str()));
    if (verb == "resync")
        return std::to_string(tw_disk_resync(one.c_str(), 0));
    if (verb == "stop")
        return std::to_string(tw_disk_stop_sync(one.c_str()));
    static unique_fd hold;
    if (verb == "hold") {
        hold.reset(tw_hold_at_level(one.c_str(), 10'000));
        return hold.is_open() ? "0" : strerror(errno);
    }
    if (verb == "release") {
        hold.reset();
        return "0";
    }
    if (verb == "workers")
        return std::to_string(worker_count());
    return verb == "log" ? take_log(LOG_INFO) : stat_all();
}

} // namespace

uint32_t signature_of(unsigned number)
{
    static const uint32_t base = (std::random_device{}() | 0x80000000) & 0xffffff00;
    return base + number;
}

std::string guid_of(unsigned number)
{
    char guid[64];
    snprintf(guid, sizeof guid, "%08x-0000-0000-0000-000000000000", signature_of(number));
    return guid;
}

std::string bytes_of_signature(unsigned number)
{
    const uint32_t signature = signature_of(number);
    return {reinterpret_cast<const char *>(&signature), sizeof signature};
}

// The library is not at work in the test itself, so a fork will do.
mirror_process::mirror_process()
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0 || (pid_ = fork()) < 0)
        ADD_FAILURE() << strerror(errno);
    fd_ = ends[0];
    if (pid_ == 0) {
        dup2(ends[1], STDIN_FILENO); // and nothing of the disks
        close_range(STDERR_FILENO + 1, ~0U, 0);
        char command[256];
        for (ssize_t count; (count = recv(STDIN_FILENO, command, sizeof command, 0)) > 0;) {
            const std::string text = answer({command, static_cast<size_t>(count)}) + "\n";
            send(STDIN_FILENO, text.data(), text.size(), MSG_NOSIGNAL);
        }
        _exit(0);
    }
    close(ends[1]);
}

std::string mirror_process::ask(const std::string &command) const
{
    char text[65536];
    send(fd_, command.data(), command.size(), MSG_NOSIGNAL);
    const ssize_t count = recv(fd_, text, sizeof text, 0);
    return count > 0 ? std::string(text, static_cast<size_t>(count) - 1) : "dead";
}

bool mirror_process::reaches(const std::string &state, std::chrono::milliseconds limit) const
{
    return eventually([&] { return ask("stat").find(state) != std::string::npos; }, limit);
}

void mirror_process::kill()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        close(fd_);
    }
    pid_ = -1;
}

test_disk::test_disk(size_t bytes, unsigned number, bool read_only)
    : guid(guid_of(number)), image("/run/image-of-" + std::to_string(reinterpret_cast<uintptr_t>(this)))
{
    write_file(image, std::string(440, '\0') + bytes_of_signature(number));
    std::filesystem::resize_file(image, bytes);
    device.emplace(image, read_only);
}

void test_disk::fill(size_t from, size_t bytes) const
{
    std::mt19937_64 next(from);
    std::string text(bytes, '\0');
    for (size_t i = 0; i + 8 <= bytes; i += 8) {
        const uint64_t number = next();
        memcpy(text.data() + i, &number, 8);
    }
    write(from, text);
}

std::string test_disk::content() const
{
    return device->read(0, std::filesystem::file_size(image));
}

uint64_t test_disk::counter(int index) const
{
    std::istringstream fields(read_file("/sys/block/" + device->name() + "/stat"));
    uint64_t field = 0;
    for (int i = 0; i <= index; i++)
        fields >> field;
    return field;
}

bool test_disk::is_claimed() const
{
    return !unique_fd(open(path().c_str(), O_RDONLY | O_CLOEXEC | O_EXCL)).is_open();
}

void Mirror::SetUp()
{
    if (access("/run/private-host", F_OK) != 0 || !loop_disk::unavailable().empty())
        GTEST_SKIP() << "no private host with loop devices";
    while (umount2(BPF_FOLDER, MNT_DETACH) == 0)
        ;
    std::filesystem::remove_all(FOLDER);
    source.emplace(SIZE, 0xa);
    mirror.emplace(SIZE + MIB, 0xb);
    source->fill(MIB, SIZE - MIB);
    mirror->fill(2 * MIB, 5 * MIB); // to be overwritten
}

int number_of(const char *variable, int usual)
{
    const char *text = getenv(variable);
    return text ? atoi(text) : usual;
}

void Mirror::allow_tracking()
{
    if (mount("bpf", BPF_FOLDER, "bpf", 0, nullptr) != 0)
        GTEST_SKIP() << "no BPF file system: " << strerror(errno);
}

void Mirror::protect(const mirror_process &engine, const std::string &then)
{
    ASSERT_EQ(engine.ask("protect " + A + " " + B), "0") << engine.ask("log");
    ASSERT_EQ(engine.ask(then), then == "stat" ? A + " UnSync 0 Up Up;" : "0");
}

void Mirror::make_level(const mirror_process &engine)
{
    ASSERT_NO_FATAL_FAILURE(protect(engine, "resync " + A));
    ASSERT_TRUE(engine.reaches(FINISHED)) << engine.ask("stat") << engine.ask("log");
}

void Mirror::expect_equal(unsigned number) const
{
    EXPECT_TRUE(mirror->content().substr(0, SIZE) ==
                source->content().replace(440, 4, bytes_of_signature(number)));
}

uint64_t Mirror::saved_position()
{
    const std::string text = read_file(FOLDER + A + ".mirror");
    const size_t at = text.find("\nposition ");
    return at == text.npos ? 0 : std::stoull(text.substr(at + 10));
}
