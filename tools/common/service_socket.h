// The socket by which commands of the same host ask the service of qelc-manager. Whoever may enter its folder
// may ask.
#pragma once

#include "base/fd.h"

#include <string>

constexpr char default_state_folder[] = "/var/lib/qelc-manager";

std::string service_socket_path(const std::string &folder);

// Neither end keeps the other one waiting for longer.
constexpr unsigned service_patience = 5; // seconds

// Asks the service and sets ANSWER. Returns 0 or an error number: the service does not run.
int ask_service(const std::string &folder, const std::string &question, std::string &answer);

// What both ends do: a whole text is sent, and taken until the other end has no more or MOST is exceeded.
bool send_text(const unique_fd &peer, const std::string &text);
std::string read_text(const unique_fd &peer, size_t most);
