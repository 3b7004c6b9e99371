// What the stand-in manager is to do, from its command line and, while it serves, from a control file.
#pragma once

#include "protocol/commands.h"
#include "tools/common/bodies.h"
#include "tools/common/exchange.h"
#include "tools/common/service_socket.h"
#include "tools/manager/commands.h"

#include <cstdint>
#include <optional>
#include <string>

// The default of all subcommands, so that they play the same manager.
constexpr char default_manager_guid[] = "5e9a11d0-0000-4000-8000-000000000001";

// How a connection is treated. A control file can change all of it.
struct treatment {
    manager_record manager{.guid = default_manager_guid, .ips = {}, .target_iqn = {}};
    uint16_t answer = status_ok;
    unsigned stall = 0; // seconds before an answer
    bool refuse = false;
    bool cut = false;
    unsigned chance = 100; // percent of the connections that get the four above
    unsigned seed = 1;
    bool long_form = false;
};

struct serve_options {
    std::string bind = "0.0.0.0";
    uint16_t port = default_server_port;
    unsigned count = 0;
    std::string control;
    std::string state; // folder; "": nothing is kept
    treatment treat;
};

enum class manager_task { serve, scan, adopt, release, hosts, forget };

struct options {
    manager_task task = manager_task::serve;
    serve_options serve;

    // Of the other tasks:
    host_options host;
    manager_record manager{.guid = default_manager_guid, .ips = {}, .target_iqn = {}};
    std::string client_guid;
    std::string state = default_state_folder;
    std::string forgotten; // host
    bool as_json = false;
};

// Returns what the program ends with if nothing is left to do: the help was printed, or the command line is
// wrong and that was reported.
std::optional<int> parse_command_line(int argc, const char *const *argv, options &wanted);

// Overrides TREAT with the options of the control file, one a line ("stall 3"). If the file cannot be read or
// a line is wrong, returns false, names it in ERROR and leaves TREAT as it was.
bool apply_control_file(const std::string &path, treatment &treat, std::string &error);
