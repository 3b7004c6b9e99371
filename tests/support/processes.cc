#include "tests/support/processes.h"

#include "tests/support/files.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {
std::string folder_of(pid_t pid)
{
    return "/proc/" + std::to_string(pid);
}

// "" for a process that is gone, or a zombie.
std::string program_of(pid_t pid)
{
    std::error_code gone;
    return fs::read_symlink(folder_of(pid) + "/exe", gone);
}

size_t entry_count(pid_t pid, const char *folder)
{
    std::error_code gone;
    const fs::directory_iterator entries(folder_of(pid) + "/" + folder, gone);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}
} // namespace

bool is_alive(pid_t pid)
{
    return !program_of(pid).empty();
}

std::vector<pid_t> children_of(pid_t parent)
{
    std::istringstream children(
        read_file(folder_of(parent) + "/task/" + std::to_string(parent) + "/children"));
    std::vector<pid_t> alive;
    for (pid_t child; children >> child;) {
        if (is_alive(child))
            alive.push_back(child);
    }
    return alive;
}

std::vector<pid_t> processes_of(const std::string &program)
{
    std::vector<pid_t> found;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        const pid_t pid = atoi(entry.path().filename().c_str());
        if (pid > 0 && program_of(pid) == program)
            found.push_back(pid);
    }
    return found;
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
    const std::string maps = read_file(folder_of(pid) + "/maps");
    return static_cast<size_t>(std::count(maps.begin(), maps.end(), '\n'));
}

std::string writable_memory_with(pid_t pid, const std::string &text)
{
    std::istringstream maps(read_file(folder_of(pid) + "/maps"));
    std::ifstream memory(folder_of(pid) + "/mem", std::ios::binary);
    std::string found;
    for (std::string line; std::getline(maps, line);) {
        uint64_t first = 0, end = 0;
        char is_writable = 0;
        sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %*c%c", &first, &end, &is_writable);
        if (is_writable != 'w')
            continue;
        std::string content(end - first, '\0');
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(first));
        memory.read(content.data(), static_cast<std::streamsize>(content.size())); // it may be gone by now
        if (content.find(text) != std::string::npos)
            found += line + "\n";
    }
    return found;
}
