// The command line of qelc.
#pragma once

#include "tools/bodies.h"
#include "tools/qelc_ask.h"
#include "tools/verbs.h"

#include <string>
#include <vector>

struct options {
    std::string command;
    std::vector<std::string> body_words;
    std::string body_file;
    option_values body_options;
    verb_options given_to_verb;
    peer_options peer;
    bool raw = false;
    bool json = false;
    bool list = false;
    bool print_body = false;
};

// Adds the general options, the commands and the verbs to APP. WANTED must live as long as APP.
void add_options(CLI::App &app, options &wanted);

// The daemon may take its time for a verb, for each of its disks say; it is waited for that long.
void allow_for_slowness(options &wanted, const verb &given);
