// The verbs of qelc: what a person wants done about mirrors, groups, snapshots and databases, as subcommands
// that take disks and times instead of documents. A verb is a row of the table in verbs.cc.
#pragma once

#include "tools/json_answer.h"
#include "tools/verb_options.h"

struct verb {
    const char *name;  // two words for a verb among others of its kind
    const char *usage; // what stands after the name
    const char *description;
    const char *note = ""; // at the end of its help
    uint32_t code;
    void (*add_options)(CLI::App &app, verb_options &given) = add_no_options;
    std::string (*complaint)(const verb_options &given) = no_complaint;
    optional_text (*body)(const verb_options &given); // when there is nothing to complain about

    // What a successful answer shows, none when the answer is something else; null: as every answer.
    optional_text (*view)(const char *answer) = nullptr;
    bool (*json)(const char *answer, json_object &object) = nullptr;

    // How many seconds the daemon may take; null: no more than for every command.
    unsigned (*seconds)(const verb_options &given) = nullptr;
};

// Adds the verbs to APP, which has the general options already. GIVEN must live as long as APP.
void add_verbs(CLI::App &app, verb_options &given);

// The name of a subcommand, after that of the one above it if there is one; "" for the whole program.
std::string full_name_of(const CLI::App &app);

// The verb that a subcommand stands for; null for an app that is none.
const verb *verb_of(const CLI::App &app);

// The innermost subcommand on the command line; APP itself for none.
const CLI::App &parsed_app(const CLI::App &app);
