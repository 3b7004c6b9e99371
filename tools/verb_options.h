// What may be given to the verbs of qelc.
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
    std::string instance;
    optional_text user;
    optional_text password; // of the user; no option gives it
    std::string password_file;
    optional_text oracle_home;
    bool archive_log = false;
};

// Each adds options of a verb to its APP. GIVEN must live as long as APP.
void add_no_options(CLI::App &app, verb_options &given);
void add_words(CLI::App &app, verb_options &given);
void add_protect_options(CLI::App &app, verb_options &given);
void add_source_options(CLI::App &app, verb_options &given);
void add_schedule_options(CLI::App &app, verb_options &given);
void add_mirrors_options(CLI::App &app, verb_options &given);
void add_instance(CLI::App &app, verb_options &given);
void add_database_options(CLI::App &app, verb_options &given);

// Each returns what does not fit a verb; "" for nothing.
std::string no_complaint(const verb_options &given);
std::string protect_complaint(const verb_options &given);
std::string sources_complaint(const verb_options &given);
std::string volumes_complaint(const verb_options &given);
std::string source_complaint(const verb_options &given);
std::string schedule_complaint(const verb_options &given);
std::string group_complaint(const verb_options &given);       // any number of members
std::string new_members_complaint(const verb_options &given); // one or more
std::string old_member_complaint(const verb_options &given);  // just one
std::string group_name_complaint(const verb_options &given);  // none
