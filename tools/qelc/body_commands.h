// The commands whose bodies qelc builds from options. Each is a row of the table in body_commands.cc.
#pragma once

#include "tools/qelc/subcommand_options.h"

#include <cstdint>
#include <span>
#include <string>

struct body_command {
    uint32_t code;
    const char *description;
    void (*add_options)(CLI::App &app, command_options &given);
    std::string (*body)(const command_options &given);
};

std::span<const body_command> body_commands();
