// Hosts as a text: what the service of qelc-manager keeps over a restart, and what it tells a command.
#pragma once

#include "tools/common/known_host.h"

#include <map>
#include <vector>

// By key. With an ID only the host that has it.
std::string hosts_document(const std::map<std::string, known_host> &hosts, const std::string &id = "");

// None if the text is no such document.
std::optional<std::vector<known_host>> read_hosts(const std::string &text);
