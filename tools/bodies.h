// The bodies of commands, built from options. A command that takes options is a row of the table in
// bodies.cc; the tool's options, its help and its complaints about wrong usage come from there.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct manager_record {
    std::string guid;
    std::vector<std::string> ips;
    optional_text target_iqn;
};

// What a manager sends about itself.
std::string manager_document(const manager_record &manager);

// A manager and a client that belong to it.
std::string pair_document(const std::string &server_guid, const std::string &client_guid);

// The options as given: name without dashes, and its values in their order.
using option_values = std::map<std::string, std::vector<std::string>>;

// Every option that some command takes.
std::vector<std::string> body_option_names();

// A line for each command that takes options.
std::string body_usage();

// Builds the body of the command from its options; BODY stays empty for a command that takes none. False when
// the options do not fit the command, and ERROR then names the one that does not.
bool build_body(uint32_t code, const option_values &given, optional_text &body, std::string &error);
