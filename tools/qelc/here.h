// What verbs share that work on this host themselves, without a daemon.
#pragma once

#include "tools/qelc/outcome.h"

#include <string>

// Throws verb_end for anybody but root. From then on standard error has what the rooms below log.
void require_root();

// A line for the person who waits, on standard error.
void say(const std::string &line);
