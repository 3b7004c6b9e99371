// The verbs of qelc: what a person wants done about mirrors, as subcommands that take disks and times instead
// of documents. A verb is a row of the table in verbs.cc.
#pragma once

#include "base/text.h"

#include <CLI/App.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What was given to a verb; each takes some of it.
struct verb_options {
    std::vector<std::string> words; // what stands after the verb without an option's name
    std::string disk;
    std::string group;
    std::string start;
    uint32_t every = 0;
    bool off = false;
    std::optional<unsigned> watch;
};

struct verb {
    const char *name;
    const char *usage; // what stands after the name
    const char *description;
    const char *note; // at the end of its help
    uint32_t code;
    void (*add_options)(CLI::App &app, verb_options &given);
    std::string (*complaint)(const verb_options &given); // what does not fit; "" for nothing
    optional_text (*body)(const verb_options &given);    // when there is nothing to complain about
    std::string (*view)(const char *answer);             // null: as every answer
};

// Adds the verbs to APP, which has the general options already. GIVEN must live as long as APP.
void add_verbs(CLI::App &app, verb_options &given);

// The verb that a subcommand stands for; null for an app that is none.
const verb *verb_of(const CLI::App &app);

// The verb on the command line; null for none.
const verb *parsed_verb(const CLI::App &app);
