// How a verb has ended, for a person and for programs.
#pragma once

#include "tools/qelc/views/envelope.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// One of the things that a verb was about.
struct verb_item {
    const char *kind; // "disk", "group", "database", "snapshot", "volume", "file", "service", "host"
    std::string name;
    std::string guid = "";
    exit_status status = exit_ok;
    std::string text = "";                                       // what is so now, or why nothing was done
    std::vector<std::pair<const char *, std::string>> more = {}; // fields for programs, such as a device

    bool is_open() const { return status == exit_ok; }
    void refuse(exit_status why, const std::string &reason)
    {
        status = why;
        text = reason;
    }
};

struct outcome {
    exit_status status = exit_ok;
    std::string reason = ""; // why it is not done
    std::string hint = "";   // what to type next; "" for nothing
    std::vector<verb_item> items = {};
    bool is_dry_run = false;   // nothing was changed; the items are what would be
    std::string remark = "";   // for a person, if there are no items
    std::string headline = ""; // of the error, if it is not that the verb could not be done

    // What takes the place of the items: the text on standard output, unless it is "", and the results in
    // JSON, unless they are null.
    std::string page = "";
    std::shared_ptr<const json_object> records = nullptr;
};

// Thrown by a verb that ends early. What it had to say about single items is lost, so it comes before any
// change. main alone catches it.
struct verb_end {
    exit_status status;
    std::string reason;
    std::string hint;
};

// Done, refused or partly, as the items are. HINT goes with what is not done.
outcome outcome_of(std::vector<verb_item> items, const std::string &hint);

// The outcome of a verb that only shows something. RECORDS is an array of objects.
outcome page_outcome(std::string page, json_object &&records);

// Prints it: what is done on standard output, what is not on standard error, or JSON on standard output.
// COMMAND is the name of the verb. Returns what the program ends with.
int print_outcome(const std::string &command, const outcome &end, bool as_json);
