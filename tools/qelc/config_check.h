// Looks at the configuration as the daemon would read it, and tells a person what to mend. A daemon that
// cannot use its configuration only logs that, and ends with status 0.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct config_remarks {
    std::vector<std::string> faults; // with one of them the daemon does not serve
    std::vector<std::string> hints;  // it serves, but not all will be as the file wants it
    bool is_missing = false;         // there is no such file
};

// Each remark begins with the path, and the line where there is one. What the daemon's own reader has to say
// beside that goes to the log.
config_remarks check_config(const std::string &path);

// Whether another program listens on that port of the configuration; one remark more then. Not to be called
// while the daemon runs: it would be the other program.
void check_port_is_free(const std::string &path, config_remarks &remarks);

// The supervisor that holds its PID file; 0 if none does.
pid_t supervisor_pid();
bool is_daemon_running();
