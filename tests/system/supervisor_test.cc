// The life of the daemon: its command line, its PID file, and what the supervisor makes of the end of a
// worker.
#include "tests/support/system_test.h"

#include <sys/stat.h>

#include <csignal>
#include <filesystem>

namespace fs = std::filesystem;

namespace {
class supervisor : public system_test {};

const std::vector<std::string> restart_after_kill = {
    "Working process has NOT exited normally, read returned status\\.",
    "WIFSIGNALED: \\[1\\]",
    "WTERMSIG: \\[9\\]",
    "WCOREDUMP: \\[0\\]",
    "WIFSTOPPED: \\[0\\]",
    "WSTOPSIG: \\[0\\]",
    "Try to restart working process\\.",
    "Create working process\\.",
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
    log.expect_match(LOG_DEBUG, "func: start_daemon line: \\d+ msg: Starting qelcd\\.\\.\\.");
    kill(qelcd::supervisor(), SIGKILL);
    ASSERT_TRUE(qelcd::wait_for_end());

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

TEST_F(supervisor, KilledWorkerIsReplaced)
{
    daemon.start();
    const size_t mark = log.expect(LOG_INFO, "Create working process.");
    const pid_t worker = qelcd::worker();
    kill(worker, SIGKILL);
    log.expect_sequence(LOG_INFO, restart_after_kill, mark);
    EXPECT_NE(qelcd::wait_for_new_worker(worker), worker);
    EXPECT_EQ(qelcd::processes().size(), 2U);
}

TEST_F(supervisor, WorkerThatExitsWithAnotherStatusThan0IsReplaced)
{
    world.once("kavdisk_get_devs", "exit:3");
    daemon.start();
    log.expect_sequence(LOG_INFO,
                        {"Create working process\\.", "Working process has exited with code \\[3\\]\\.",
                         "Working process has exited with non-zero status code, restart working process\\.",
                         "Create working process\\."});
}

TEST_F(supervisor, WorkerThatCannotStartEndsTheDaemon)
{
    const auto expect_end = [&](const std::string &error) {
        const size_t mark = log.size();
        EXPECT_EQ(daemon.run().status, 0);
        EXPECT_TRUE(qelcd::wait_for_end());
        log.expect(LOG_ERR, error, mark);
        log.expect_sequence(
            LOG_INFO,
            {"Working process has exited with code \\[0\\]\\.", "Working process has exited normally\\."},
            mark);
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

TEST_F(supervisor, KilledSupervisorTakesItsWorkerAlong)
{
    daemon.start();
    ASSERT_NE(qelcd::worker(), 0);
    kill(qelcd::supervisor(), SIGKILL);
    EXPECT_TRUE(qelcd::wait_for_end());
    daemon.start();
}
