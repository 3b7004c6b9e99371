// What the stand-in manager serves with, from its command line and, while it runs, from a control file.
#pragma once

#include "protocol/commands.h"
#include "tools/bodies.h"
#include "tools/exchange.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

// The manager that all of the tool's subcommands are when nothing else is said, so that they are the same
// one.
constexpr char default_manager_guid[] = "5e9a11d0-0000-4000-8000-000000000001";

// How it treats a connection. A control file may change all of it.
struct treatment {
    manager_record manager{.guid = default_manager_guid, .ips = {}, .target_iqn = {}};
    uint16_t answer = status_ok;
    unsigned stall = 0; // seconds before an answer
    bool refuse = false;
    bool cut = false;
    unsigned chance = 100; // percent of the connections that meet the four above
    unsigned seed = 1;
    bool long_form = false;
};

struct serve_options {
    std::string bind = "0.0.0.0";
    uint16_t port = default_server_port;
    unsigned count = 0;
    std::string control;
    treatment treat;
};

// Each adds options to APP that are stored in the record, which must outlive its parsing.
void add_manager_options(CLI::App &app, manager_record &manager);
void add_serve_options(CLI::App &app, serve_options &wanted);

// Lays the control file's options, one a line ("stall 3"), over TREAT. False when the file cannot be read or
// a line is wrong: ERROR then names it, and TREAT is as it was.
bool apply_control_file(const std::string &path, treatment &treat, std::string &error);
