// The verbs of qelc: subcommands for mirrors, groups, snapshots and databases that take disks and times
// instead of documents. A verb is a row of a table in verbs/.
#pragma once

#include "tools/qelc/host.h"
#include "tools/qelc/subcommand_options.h"
#include "tools/qelc/views/json_answer.h"

#include <span>

inline optional_text no_body(const verb_options & /*given*/)
{
    return std::nullopt;
}

inline std::string no_complaint(const verb_options & /*given*/)
{
    return "";
}

// Of who looks at a host: one whose daemon does not answer in this time is not well. In seconds.
constexpr unsigned look_patience = 10;

struct verb {
    const char *name;       // one word, or two: the kind and the verb
    const char *usage = ""; // what follows the name
    const char *description;
    const char *note = ""; // at the end of its help
    uint32_t code = 0;     // 0: the verb asks no daemon
    void (*add_options)(CLI::App &app, verb_options &given) = add_no_options;

    // What the options do not tell the parser about wrong usage; "" for nothing.
    std::string (*complaint)(const verb_options &given) = no_complaint;

    // Finds what was named, before the command of a verb that only shows something. Null: nothing is to be
    // found.
    void (*prepare)(host &at, verb_options &given) = nullptr;
    optional_text (*body)(const verb_options &given) = no_body;

    // The text and the results in JSON for a successful answer. None and false for an answer of another form;
    // null if the verb has nothing special to show.
    optional_text (*view)(const char *answer) = nullptr;
    bool (*json)(const char *answer, json_object &results) = nullptr;

    // For a verb that changes something: looks at the host, asks its daemon, and looks at what has become of
    // it. CODE and BODY are then what --print-body shows.
    outcome (*act)(host &at, const verb_options &given) = nullptr;

    // For a verb that is done here, without a daemon; CODE and BODY are then without meaning. The second one
    // prints everything itself, and returns what the program ends with. Both may throw verb_end.
    outcome (*act_here)(const verb_options &given) = nullptr;
    int (*run_here)(const verb_options &given, bool as_json) = nullptr;

    // For a verb that shows the state of a host, in whatever state that is: returns what the program ends
    // with. The daemon gets look_patience, unless --timeout is given.
    int (*look)(const peer_options &peer, const verb_options &given, bool as_json) = nullptr;

    // For one with ACT or ACT_HERE that changes nothing.
    bool only_shows = false;

    // How many seconds the daemon may take; null if it is no slower than for other commands.
    unsigned (*seconds)(const verb_options &given) = nullptr;

    bool asks_no_daemon() const { return act_here || run_here; }
};

// The first word of verbs with two.
struct verb_kind {
    const char *name;
    const char *description;
};

std::span<const verb_kind> verb_kinds();

// In the order of the help.
std::span<const std::span<const verb>> verb_families();

// Null if there is no such verb.
const verb *find_verb(const std::string &name);
