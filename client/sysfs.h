// Reading the kernel's sysfs (see sysfs(5)).
#pragma once

#include <list>
#include <string>

// Stores the first line of a small file, at most 511 bytes, in DST. Returns its length, or -1 after a log
// line.
int sysfs_read_attribute(std::string *dst, const char *path);

struct dir_entry {
    std::string name;
    std::string path; // the folder's path, "/", the name
};

// Appends every entry of the folder except "." and "..". Returns 0, or an errno value after a log line.
int get_links_in_dir(std::list<dir_entry> &list, const char *dir);
