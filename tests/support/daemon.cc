#include "tests/support/daemon.h"

#include "tests/support/files.h"
#include "tests/support/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

namespace {
constexpr char sanitizer_report[] = "/var/tmp/sanitizer-report";

fs::path program_folder()
{
    return fs::read_symlink("/proc/self/exe").parent_path();
}

std::string element(const std::string &name, const std::string &text)
{
    return "<" + name + ">" + text + "</" + name + ">";
}

std::string elements(const std::string &name, const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += element(name, text);
    return all;
}

std::string inherited(const char *name, const char *otherwise = "")
{
    const char *value = getenv(name);
    return value ? value : otherwise;
}

// A sanitized daemon reports to a file: its own streams lead nowhere.
std::string sanitizer(const char *name, const std::string &options)
{
    return std::string(name) + "=" + inherited(name) + ":" + options + "log_path=" + sanitizer_report;
}

std::vector<std::string> environment(const std::string &tools)
{
    return {
        "PATH=" + tools + ":" + inherited("PATH", "/usr/sbin:/usr/bin:/sbin:/bin"),
        "LD_LIBRARY_PATH=" + (program_folder().parent_path() / "lib/scripted").string(),
        "QELCD_SCRIPT=" + inherited("QELCD_SCRIPT"),
        // A frame may announce any length: memory that is not there must be an answer, not the end.
        sanitizer("ASAN_OPTIONS", "allocator_may_return_null=1:"),
        sanitizer("UBSAN_OPTIONS", ""),
        sanitizer("TSAN_OPTIONS", "allocator_may_return_null=1:"),
    };
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

std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> all;
    for (std::string &text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

void set_limit(__rlimit_resource resource, rlim_t value)
{
    const rlimit limit{value, value};
    setrlimit(resource, &limit);
}

// In the new process, where only what is safe after fork may be done. No cores: they would only fill the
// folder.
[[noreturn]] void become(char *const *arguments, char *const *variables, int output,
                         const std::optional<unsigned> &descriptors)
{
    dup2(output, STDOUT_FILENO);
    set_limit(RLIMIT_CORE, 0);
    if (descriptors)
        set_limit(RLIMIT_NOFILE, *descriptors);
    execve(arguments[0], arguments, variables);
    _exit(127);
}

int wait_for_child(pid_t child)
{
    int status = 0;
    if (!eventually([&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

void write_config(const config_settings &settings)
{
    std::string manager;
    if (!settings.manager_guid.empty())
        manager = element("Manager", element("ManagerGUID", settings.manager_guid) +
                                         elements("ManagerIPAddr", settings.manager_ips));
    write_file(config_file_path,
               "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" +
                   element("Tessaron", element("ClientGUID", settings.guid) +
                                           element("ClientAlias", settings.alias) +
                                           element("ClientPort", std::to_string(settings.port)) +
                                           element("ServerPort", std::to_string(settings.port + 1)) +
                                           element("IPAddrFilter", elements("IPAddr", settings.filter)) +
                                           manager + settings.more) +
                   "\n");
}

qelcd::qelcd()
{
    fs::remove(pid_file_path);
    fs::remove(unix_socket_path);
    std::string folder = fs::temp_directory_path() / "tools-XXXXXX";
    if (!mkdtemp(folder.data()))
        ADD_FAILURE() << "cannot make " << folder;
    tools_ = folder;
}

qelcd::~qelcd()
{
    if (supervisor() > 0)
        kill(supervisor(), SIGKILL);
    EXPECT_TRUE(wait_for_end()) << "a process of the daemon outlives its supervisor";
    for (const pid_t pid : processes())
        kill(pid, SIGKILL);
    fail_for_sanitizer_reports();
    std::error_code ignored;
    fs::remove_all(tools_, ignored);
}

void qelcd::tool(const std::string &name, const std::string &shell_script)
{
    write_file(tools_ + "/" + name, "#!/bin/sh\n" + shell_script + "\n");
    chmod((tools_ + "/" + name).c_str(), 0755);
}

qelcd::outcome qelcd::run(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words{qelcd_path()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environment(tools_);
    const auto word_pointers = pointers(words);
    const auto variable_pointers = pointers(variables);
    const int output = memfd_create("output", MFD_CLOEXEC);

    const pid_t child = fork();
    if (child == 0)
        become(word_pointers.data(), variable_pointers.data(), output, descriptor_limit_);
    outcome result;
    result.status = wait_for_child(child);
    result.output = read_file("/proc/self/fd/" + std::to_string(output));
    close(output);
    return result;
}

void qelcd::start(const std::vector<std::string> &arguments)
{
    const outcome launched = run(arguments);
    EXPECT_EQ(launched.status, 0);
    EXPECT_EQ(launched.output, "");
    eventually([] { return is_serving() || processes().empty(); });
    ASSERT_FALSE(processes().empty()) << "the daemon has ended";
    ASSERT_TRUE(is_serving()) << "the daemon does not serve";
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

bool qelcd::wait_for_end()
{
    return eventually([] { return processes().empty(); });
}

std::string qelcd_path()
{
    return program_folder() / "qelcd";
}
