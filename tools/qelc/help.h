// The help of qelc.
#pragma once

#include <memory>
#include <string>

namespace CLI {
class App;
class FormatterBase;
} // namespace CLI

// How help is laid out, for the app before subcommands are added.
std::shared_ptr<CLI::FormatterBase> help_format();

// The name of a subcommand with those above it, "schedule set"; "" for the whole program.
std::string full_name_of(const CLI::App &app);
