// The command line of qelc.
#pragma once

#include "tools/qelc/ask.h"
#include "tools/qelc/body_commands.h"
#include "tools/qelc/verbs.h"

#include <optional>
#include <string>
#include <vector>

struct options {
    // What was asked: either a verb, or a command by its name or code. Neither with --list.
    const verb *given_verb = nullptr;
    verb_options for_verb;
    std::string command;
    uint32_t code = 0; // of the command

    // The body of the command: as it was given, or from options if it is a command with options.
    std::vector<std::string> body_words;
    std::string body_file;
    const body_command *with_options = nullptr;
    command_options for_command;

    peer_options peer;
    bool raw = false;
    bool json = false;
    bool list = false;
    bool print_body = false;
};

// Returns what the program ends with if nothing is left to do: the help was printed, or the command line is
// wrong and that was reported.
std::optional<int> parse_command_line(int argc, const char *const *argv, options &wanted);
