#include "tests/support/daemon.h"

#include "tests/support/files.h"
#include "tests/support/processes.h"
#include "tests/support/requests.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {
constexpr char sanitizer_report[] = "/var/tmp/sanitizer-report", output_path[] = "/var/tmp/output";

fs::path program_folder()
{
    return fs::read_symlink("/proc/self/exe").parent_path();
}

void fail_for_sanitizer_reports()
{
    for (const auto &entry : fs::directory_iterator(fs::path(sanitizer_report).parent_path())) {
        if (entry.path().string().starts_with(sanitizer_report)) {
            ADD_FAILURE() << read_file(entry.path());
            fs::remove(entry.path());
        }
    }
}
} // namespace

void write_config(const config_settings &settings)
{
    constexpr char document[] =
        "<?xml version=\"1.0\" "
        "encoding=\"utf-8\"?>\n<Tessaron><ClientGUID>%</ClientGUID><ClientAlias>%</ClientAlias>"
        "<ClientPort>%</ClientPort><ServerPort>%</ServerPort><IPAddrFilter>%</IPAddrFilter>%%</Tessaron>\n";
    const std::string manager =
        settings.manager_guid.empty()
            ? ""
            : filled("<Manager><ManagerGUID>%</ManagerGUID>%</Manager>", settings.manager_guid,
                     repeated("<ManagerIPAddr>%</ManagerIPAddr>", settings.manager_ips));
    write_file(config_file_path,
               filled(document, settings.guid, settings.alias, settings.port, settings.port + 1,
                      repeated("<IPAddr>%</IPAddr>", settings.filter), manager, settings.more));
}

qelcd::qelcd() : libraries_(program_folder().parent_path() / "lib/scripted")
{
    fs::remove(pid_file_path);
    fs::remove(unix_socket_path);
}

qelcd::~qelcd()
{
    stop();
    for (const pid_t pid : processes())
        kill(pid, SIGKILL);
    fail_for_sanitizer_reports();
    std::error_code ignored;
    for (const std::string &path : tools_)
        fs::remove(path, ignored);
}

void qelcd::tool(const std::string &name, const std::string &shell_script)
{
    tools_.push_back("/usr/local/sbin/" + name);
    write_file(tools_.back(), "#!/bin/sh\n" + shell_script + "\n");
    chmod(tools_.back().c_str(), 0755);
}

void qelcd::embed(const std::string &library)
{
    const fs::path folder = "/var/tmp/libraries";
    fs::create_directories(folder);
    for (const auto &entry : fs::directory_iterator(libraries_)) {
        if (!entry.path().filename().string().starts_with(library))
            fs::create_symlink(entry.path(), folder / entry.path().filename());
    }
    libraries_ = folder;
}

qelcd::outcome qelcd::run(const std::vector<std::string> &arguments)
{
    // A sanitized daemon reports to a file: its own streams lead nowhere. A frame may announce any length:
    // memory that is not there must be an answer, not the end. No cores: they would only fill the folder.
    constexpr char command[] =
        "ulimit -c 0; %export LD_LIBRARY_PATH=% log=log_path=% null=allocator_may_return_null=1;"
        "ASAN_OPTIONS=$ASAN_OPTIONS:$null:$log TSAN_OPTIONS=$TSAN_OPTIONS:$null:$log "
        "UBSAN_OPTIONS=$UBSAN_OPTIONS:$log "
        "exec timeout --foreground 20 %% >%";
    const int status = system(filled(command, limits_, libraries_, sanitizer_report, qelcd_path(),
                                     repeated(" %", arguments), output_path)
                                  .c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(output_path)};
}

void qelcd::start(const std::vector<std::string> &arguments)
{
    const outcome launched = run(arguments);
    EXPECT_EQ(launched.status, 0);
    EXPECT_EQ(launched.output, "");
    eventually([] { return is_serving() || processes().empty(); });
    ASSERT_TRUE(is_serving()) << "the daemon has " << (processes().empty() ? "ended" : "not begun to serve");
}

pid_t qelcd::supervisor()
{
    return atoi(read_file(pid_file_path).c_str());
}

pid_t qelcd::worker()
{
    const pid_t parent = supervisor();
    const auto children = parent > 0 ? children_of(parent) : std::vector<pid_t>{};
    return children.empty() ? 0 : children.front();
}

pid_t qelcd::wait_for_new_worker(pid_t former)
{
    EXPECT_TRUE(eventually([&] { return worker() != 0 && worker() != former && is_serving(); }))
        << "no new worker serves";
    return worker();
}

std::vector<pid_t> qelcd::processes()
{
    return processes_of(qelcd_path());
}

void qelcd::stop()
{
    if (supervisor() > 0)
        kill(supervisor(), SIGKILL);
    EXPECT_TRUE(wait_for_end()) << "a process of the daemon outlives its supervisor";
}

std::string qelcd_path()
{
    return program_folder() / "qelcd";
}
