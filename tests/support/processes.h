// Other processes, as /proc shows them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

// True until the process has been waited for or is a zombie.
bool is_alive(pid_t pid);

std::vector<pid_t> children_of(pid_t parent);

// Those that run this program.
std::vector<pid_t> processes_of(const std::string &program);

// 0 for a process that is gone.
size_t thread_count(pid_t pid);
size_t descriptor_count(pid_t pid);
size_t mapping_count(pid_t pid); // pieces of memory, of which a thread's stack is two

// The lines of /proc/PID/maps of the writable memory in which TEXT occurs; "" for none.
std::string writable_memory_with(pid_t pid, const std::string &text);
