// The libraries' side of a script: the folder of text files, named by the environment variable QELCD_SCRIPT,
// that says what the scripted platform libraries find and answer. It is read anew at each call, so a test
// changes the world while the daemon runs. Without the variable the world is empty, and every action is
// unforeseen.
//
// A file holds one entry a line: a key and, after one blank, a value up to the end of the line, blanks
// included. A key alone has no value.
//
//   disks          disk NAME, then its path, vendor, model, sectors, state; then partition NAME, each with
//                  its guid, fs, size and used
//   relationships  relationship, then percent, sync_state, status, src_link, src_path, src_guid,
//                  dest_link, dest_path, dest_guid
//   apps           app INSTANCE, then db_type, archive_log, db_name, db_user, db_passwd, oracle_home, host,
//                  port
//   scsi-guids     PATH GUID
//   part-types     PATH TYPE
//   results        once FUNCTION RESULT [ARGUMENT...]: what the next call with these arguments returns
//                  always FUNCTION RESULT [ARGUMENT...]: the same for every call
//                  A RESULT exit:N ends the process, one such as 0|-1 is drawn from its numbers.
//   delays         FUNCTION SECONDS N: what every call from the Nth on waits first
//
// and is written by the libraries, a line a time:
//
//   calls          FUNCTION [ARGUMENT...] of each call, when it begins
//   used           the number of each "once" line of results that a call has taken
//   unexpected     what the script does not foresee: an action without a result, a text that does not fit
#pragma once

#include <concepts>
#include <cstdlib>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

struct script_entry {
    std::string key;
    std::optional<std::string> value;
    int line; // in its file, from 1
};

std::vector<script_entry> script_read(const std::string &file);

// A fault of the script or of its user; fails the test at its end.
void script_unexpected(const std::string &what);

// One word of a call: a null text is "(null)", an empty one "\"\"", and blanks are escaped.
std::string script_word(const char *text);

// What the function answers to this call: notes the call, waits as long as scripted, and looks for a result.
// A query has a natural answer without one; an action must have been foreseen, and fails if not.
int script_query(const std::string &function, const std::vector<std::string> &arguments, int natural);
int script_action(const std::string &function, const std::vector<std::string> &arguments, int failure);

// A malloc copy of a value; null for none. Memory that runs out ends the process.
char *script_copy(const std::optional<std::string> &value);
void *script_allocate(size_t size);

template <class Record>
Record *script_new()
{
    return static_cast<Record *>(script_allocate(sizeof(Record)));
}

// Reads an entry into the field that it names, see script_fields.h.
struct field_reader {
    const script_entry &entry;

    void operator()(const char *key, char *&text) const
    {
        if (entry.key == key)
            text = script_copy(entry.value);
    }
    template <size_t Size>
    void operator()(const char *key, char (&characters)[Size]) const
    {
        const std::string value = entry.value.value_or("");
        if (entry.key == key && value.copy(characters, Size - 1) < value.size())
            script_unexpected(entry.key + " is too long");
    }
    void operator()(const char *key, std::integral auto &number) const
    {
        if (entry.key == key)
            number = static_cast<std::remove_reference_t<decltype(number)>>(
                strtoll(entry.value.value_or("").c_str(), nullptr, 0));
    }
};
