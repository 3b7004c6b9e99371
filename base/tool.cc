#include "base/tool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

namespace {
class spawn_files {
public:
    explicit spawn_files(const tool_start &tool)
    {
        posix_spawn_file_actions_init(&actions_);
        add(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        add_stream(tool.output, STDOUT_FILENO);
        add_stream(tool.errors, STDERR_FILENO);
        if (tool.kept >= 0)
            add(posix_spawn_file_actions_adddup2(&actions_, tool.kept, kept_number));
        // Ours are closed on exec anyway; those of a site's library may not be.
        add(posix_spawn_file_actions_addclosefrom_np(&actions_, kept_number + (tool.kept < 0 ? 0 : 1)));
    }
    ~spawn_files() { posix_spawn_file_actions_destroy(&actions_); }
    spawn_files(const spawn_files &) = delete;
    spawn_files &operator=(const spawn_files &) = delete;

    const posix_spawn_file_actions_t *get() const { return &actions_; }
    int error() const { return error_; }

private:
    static constexpr int kept_number = STDERR_FILENO + 1;
    void add_stream(int from, int to)
    {
        add(from < 0 ? posix_spawn_file_actions_addopen(&actions_, to, "/dev/null", O_WRONLY, 0)
                     : posix_spawn_file_actions_adddup2(&actions_, from, to));
    }
    void add(int error) { error_ = error ? error : error_; }

    posix_spawn_file_actions_t actions_;
    int error_ = 0;
};

class spawn_attributes {
public:
    explicit spawn_attributes(bool leads_group)
    {
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        const int group = leads_group ? POSIX_SPAWN_SETPGROUP : 0;
        posix_spawnattr_setflags(&attributes_,
                                 static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | group));
    }
    ~spawn_attributes() { posix_spawnattr_destroy(&attributes_); }
    spawn_attributes(const spawn_attributes &) = delete;
    spawn_attributes &operator=(const spawn_attributes &) = delete;

    const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

// The texts as execve(2) takes them; valid as long as TEXTS.
std::vector<char *> pointers_to(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Calls TRY_PATH with the path of NAME in each folder until it finds the tool. Returns its last result that
// says more than that there is no such file.
template <class Try>
int try_folders(const std::string &name, Try try_path)
{
    int result = ENOENT;
    for (std::string_view rest = tool_path; !rest.empty();) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
        const int error = try_path(std::string(folder) + "/" + name);
        if (error != ENOENT && error != ENOTDIR)
            result = error;
        if (result != ENOENT && result != EACCES)
            break;
    }
    return result;
}
} // namespace

int start_tool(const tool_start &tool, pid_t *child)
{
    std::vector<std::string> words = tool.words;
    std::vector<std::string> variables = {std::string("PATH=") + tool_path, "LC_ALL=C", "HOME=/"};
    variables.insert(variables.end(), tool.variables.begin(), tool.variables.end());
    const std::vector<char *> argv = pointers_to(words), environment = pointers_to(variables);
    const spawn_files files(tool);
    const spawn_attributes attributes(tool.leads_group);
    if (files.error() != 0)
        return files.error();
    const auto try_path = [&](const std::string &path) {
        return posix_spawn(child, path.c_str(), files.get(), attributes.get(), argv.data(),
                           environment.data());
    };
    const std::string &name = words.front();
    return name.find('/') != std::string::npos ? try_path(name) : try_folders(name, try_path);
}

int wait_for_tool(pid_t child, int *status)
{
    while (waitpid(child, status, 0) < 0) {
        if (errno != EINTR)
            return errno;
    }
    return 0;
}
