// The life of the daemon: its command line, its PID file, and what the supervisor makes of the end of a
// worker.
#include "base/fd.h"
#include "protocol/commands.h"
#include "tests/support/system_test.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <thread>

namespace fs = std::filesystem;

namespace {
class supervisor : public system_test {};

// A system log in place of the test's, which takes lines until its queue is full.
class deaf_log {
public:
    deaf_log() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
        EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }

    // Empties the queue, and looks whether a line with TEXT comes when ACT makes the daemon log something.
    template <class Act>
    bool tells_after(const std::string &text, Act act) const
    {
        std::string lines;
        read_into(lines);
        EXPECT_TRUE(act());
        read_into(lines);
        return lines.find(text) != std::string::npos;
    }

private:
    void read_into(std::string &lines) const
    {
        char line[8192];
        for (ssize_t size = 0; (size = read(fd_.get(), line, sizeof line)) > 0;)
            lines.append(line, static_cast<size_t>(size));
    }

    unique_fd fd_;
};

bool socket_file_exists()
{
    struct stat status {};
    return lstat(unix_socket_path, &status) == 0;
}
} // namespace

TEST_F(supervisor, HelpPrintsUsageAndStartsNothing)
{
    const std::string usage = qelcd_path() +
                              ": kav tessaron daemon\n"
                              "  -d    set debug mode, print transport information into logfile\n"
                              "  -h    show this information and exit\n";
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"-h"}, {"-h", "-d"}, {"-hd"}}) {
        const auto result = daemon.run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, usage);
    }
    EXPECT_FALSE(fs::exists(pid_file_path));
    EXPECT_TRUE(qelcd::processes().empty());
    EXPECT_EQ(log.size(), 0U);
}

TEST_F(supervisor, OnlyTheFirstOptionCounts)
{
    daemon.start({"-d", "-h"});
    log.expect(LOG_DEBUG, "func: start_daemon line: * msg: Starting qelcd...");
    qelcd::stop(); // its worker goes with it

    const size_t mark = log.size();
    daemon.start({"-x"});
    const auto lines = log.lines();
    EXPECT_GT(lines.size(), mark);
    for (size_t at = mark; at < lines.size(); at++)
        EXPECT_LT(lines[at].level, LOG_DEBUG) << lines[at].text;
}

TEST_F(supervisor, SecondInstanceLeavesTheFirstOneAlone)
{
    daemon.start();
    const std::string pid_file = read_file(pid_file_path);
    const pid_t worker = qelcd::worker();
    EXPECT_EQ(pid_file, std::to_string(qelcd::supervisor()) + "\n");

    EXPECT_EQ(daemon.run().status, 0);
    log.expect(LOG_ERR, "Unable to lock pid file");
    EXPECT_TRUE(eventually([] { return qelcd::processes().size() == 2; }));
    EXPECT_EQ(read_file(pid_file_path), pid_file);
    EXPECT_EQ(qelcd::worker(), worker);
    EXPECT_TRUE(is_serving());
}

TEST_F(supervisor, NeitherFollowsALinkNorWaitsForAPipeInPlaceOfThePidFile)
{
    const auto expect_refusal = [&](const char *error) {
        const size_t mark = log.size();
        daemon.run();
        EXPECT_TRUE(qelcd::wait_for_end());
        log.expect(LOG_ERR, error, mark);
    };
    write_file("/var/tmp/victim", "alive");
    fs::create_symlink("/var/tmp/victim", pid_file_path);
    expect_refusal("Unable to create pid file");
    EXPECT_EQ(read_file("/var/tmp/victim"), "alive");
    fs::remove(pid_file_path);
    ASSERT_EQ(mkfifo(pid_file_path, 0600), 0);
    expect_refusal("Unable to create pid file");
    const unique_fd reader(open(pid_file_path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    expect_refusal("Failed to ftruncate the PID file: Invalid argument");
    fs::remove(pid_file_path); // the fixture reads what is there
}

TEST_F(supervisor, WorkerThatIsKilledOrFailsIsReplaced)
{
    world.once("kavdisk_get_devs", "exit:3");
    daemon.start();
    size_t mark =
        log.expect_steps(LOG_INFO, {"Create working process.", "Working process has exited with code [3].",
                                    "Create working process."});
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    mark = log.expect_steps(LOG_INFO, {"WTERMSIG: [9]", "Create working process."}, mark);
    EXPECT_NE(qelcd::wait_for_new_worker(worker), worker);
    EXPECT_EQ(qelcd::processes().size(), 2U);
}

TEST_F(supervisor, WorkerThatCannotStartEndsTheDaemon)
{
    const auto expect_end = [&](const std::string &error) {
        const size_t mark = log.size();
        EXPECT_EQ(daemon.run().status, 0);
        EXPECT_TRUE(qelcd::wait_for_end());
        log.expect(LOG_ERR, error, mark);
        log.expect(LOG_INFO, "Working process has exited normally.", mark);
        EXPECT_TRUE(fs::exists(pid_file_path));
    };
    fs::remove(config_file_path);
    expect_end("Failed to find '" + std::string(config_file_path) + "'");

    write_config();
    fs::create_directory(unix_socket_path); // which unlink does not remove
    expect_end("Failed to bind (Address already in use)");
    fs::remove(unix_socket_path);

    const peer occupant = listen_tcp(client_port);
    ASSERT_TRUE(occupant.connected());
    expect_end("Failed to bind (Address already in use)");
}

// As by a child of a worker that was killed.
TEST_F(supervisor, PortThatIsHeldForAMomentIsWaitedFor)
{
    std::optional<peer> occupant(listen_tcp(client_port));
    ASSERT_TRUE(occupant->connected());
    const std::jthread leaves([&] {
        std::this_thread::sleep_for(1s);
        occupant.reset();
    });
    daemon.start();
    EXPECT_EQ(qelcd::processes().size(), 2U);
}

// A worker that is stopped cannot end by itself, and a system log that nobody reads takes no line.
TEST_F(supervisor, StopsInSecondsWhateverTheWorkerAndTheLogDo)
{
    fs::remove("/dev/log");
    const deaf_log nobody_reads;
    daemon.start();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; i++)
        ASSERT_TRUE(ask(command::nop_command));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s) << "each line may wait a second at most, in all";
    EXPECT_TRUE(nobody_reads.tells_after("lines were dropped.",
                                         [] { return ask(command::nop_command).has_value(); }));

    kill(qelcd::worker(), SIGSTOP);
    kill(qelcd::supervisor(), SIGTERM);
    EXPECT_TRUE(qelcd::wait_for_end());
    EXPECT_FALSE(socket_file_exists());
}

TEST_F(supervisor, AskedToStopLeavesNothingButThePidFile)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        daemon.start(); // again: the address is free
        ASSERT_TRUE(socket_file_exists());
        kill(qelcd::supervisor(), signal);
        EXPECT_TRUE(qelcd::wait_for_end());
        EXPECT_FALSE(socket_file_exists());
        EXPECT_TRUE(fs::exists(pid_file_path));
        EXPECT_FALSE(connect_tcp().connected());
    }
}
