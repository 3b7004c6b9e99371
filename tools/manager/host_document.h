// The table of hosts as a text: what is kept over a restart, and what the service tells a command.
#pragma once

#include "tools/manager/host_table.h"

#include <optional>

std::string hosts_document(const std::map<std::string, known_host> &hosts);

// None if the text is no such document.
std::optional<std::vector<known_host>> read_hosts(const std::string &text);
