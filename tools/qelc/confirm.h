// Asking a person before something is lost.
#pragma once

#include "tools/qelc/outcome.h"
#include "tools/qelc/subcommand_options.h"

#include <string>

// True if somebody is to be asked: not with --yes, nor with --dry-run. Throws verb_end if there is then no
// terminal to ask at; WHAT begins the reason, e.g. "it overwrites disks".
bool has_to_ask(const verb_options &given, const std::string &what);

// Asks for the NAME of what will be lost; KIND is e.g. "disk to overwrite". True if it was typed.
bool is_typed(const std::string &kind, const std::string &name);

// The same, but throws verb_end if another text was typed.
void require_typed(const std::string &kind, const std::string &name);
