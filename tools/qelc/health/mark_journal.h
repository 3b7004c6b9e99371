// The marks that the agent of this host has noted, as they come.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

struct journal_mark {
    time_t time = 0;
    std::string group;  // "" for a mark of one mirror
    std::string mirror; // its GUID
    bool is_taken = false;
    std::string text; // the name of the snapshot, "" if no keeper keeps it; of one that failed, why
};

// Null for a line in another form.
std::optional<journal_mark> parse_mark(std::string_view line);

// Reads the journal from where it has come to, or a new one from its beginning.
class mark_journal {
public:
    // False, with errno, if there is a journal that cannot be read.
    bool read_new(const std::function<void(const journal_mark &)> &take);

private:
    ino_t file_ = 0;
    off_t position_ = 0;
};
