#include "tests/support/processes.h"

#include "tests/support/files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {
struct process_state {
    char state = 'X'; // as ps(1) has it; X: no such process
    pid_t parent = 0;
};

process_state state_of(pid_t pid)
{
    const std::string text = read_file("/proc/" + std::to_string(pid) + "/stat");
    process_state result;
    // The name, in brackets, may hold anything.
    const size_t name_end = text.rfind(')');
    if (name_end != std::string::npos)
        sscanf(text.c_str() + name_end + 1, " %c %d", &result.state, &result.parent);
    return result;
}

template <class Predicate>
std::vector<pid_t> live_processes(Predicate predicate)
{
    std::vector<pid_t> found;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        const pid_t pid = atoi(entry.path().filename().c_str());
        if (pid > 0 && predicate(pid) && is_alive(pid))
            found.push_back(pid);
    }
    return found;
}

size_t entry_count(pid_t pid, const char *folder)
{
    std::error_code gone;
    const fs::directory_iterator entries("/proc/" + std::to_string(pid) + "/" + folder, gone);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}
} // namespace

bool is_alive(pid_t pid)
{
    const char state = state_of(pid).state;
    return state != 'X' && state != 'Z';
}

std::vector<pid_t> children_of(pid_t parent)
{
    return live_processes([&](pid_t pid) { return state_of(pid).parent == parent; });
}

std::vector<pid_t> processes_of(const std::string &program)
{
    return live_processes([&](pid_t pid) {
        std::error_code gone;
        return fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone) == program;
    });
}

size_t thread_count(pid_t pid)
{
    return entry_count(pid, "task");
}

size_t descriptor_count(pid_t pid)
{
    return entry_count(pid, "fd");
}

size_t mapping_count(pid_t pid)
{
    const std::string maps = read_file("/proc/" + std::to_string(pid) + "/maps");
    return static_cast<size_t>(std::count(maps.begin(), maps.end(), '\n'));
}
