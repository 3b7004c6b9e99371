// Whether a database can be reached.
#pragma once

#include <string>

// Opens a TCP connection and closes it again, within five seconds. False with the reason in WHY.
bool can_connect(const std::string &host, const std::string &port, std::string *why);
