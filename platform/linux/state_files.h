// The files of a state folder, each whole at any moment, whatever is cut off in the middle.
#pragma once

#include <string>

struct state_folder {
    const char *path;  // a folder of /var/lib
    const char *owner; // one word, which begins each of its records
};

// Makes the folder when it is missing. False after a log line.
bool make_state_folder(const state_folder &folder);

// Makes names that came or went in the folder last. False with errno.
bool sync_state_folder(const state_folder &folder);

enum class file_content { text, missing, foreign, failed };

// FOREIGN is whatever the owner does not write: a link, a folder, a device, a file larger than any record.
// FAILED comes with a log line.
file_content read_state_file(const std::string &path, std::string *text);

// Replaces the file, whose text must not be longer than a record may be. False after a log line. For one
// caller at a time.
bool write_state_file(const state_folder &folder, const std::string &path, const std::string &text);

// Gives the file a name that nothing has yet and nobody looks at, and says so in the log. False after a log
// line: then it still stands in the way.
bool set_aside(const state_folder &folder, const std::string &path);
