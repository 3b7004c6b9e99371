// The files of a state folder. A crash at any moment leaves each of them complete.
#pragma once

#include <string>

struct state_folder {
    const char *path;  // a folder of /var/lib
    const char *owner; // one word; each of its records begins with it
};

// Creates the folder if it is missing. False after a log line.
bool make_state_folder(const state_folder &folder);

// fsyncs the folder, so that creations and removals survive a crash. False with errno.
bool sync_state_folder(const state_folder &folder);

enum class file_content { text, missing, foreign, failed };

// FOREIGN: not written by the owner, such as a link, a folder, a device, or a file larger than any record.
// FAILED comes with a log line.
file_content read_state_file(const std::string &path, std::string *text);

// Replaces the file. False after a log line, also if TEXT is longer than a record may be. Only for a caller
// that holds the lock of the files.
bool write_state_file(const state_folder &folder, const std::string &path, const std::string &text);

// Renames the file to an unused name that nothing reads, and logs it. False after a log line; the file then
// keeps its name.
bool set_aside(const state_folder &folder, const std::string &path);
