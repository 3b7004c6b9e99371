// Waiting for the daemon of this host.
#pragma once

#include <string>

// True if it answers now.
bool does_daemon_answer();

// Waits until it answers, for so many seconds. Returns why it does not, "" if it does.
std::string wait_for_daemon(unsigned seconds);
