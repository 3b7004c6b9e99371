// The daemon's outer process: it detaches from the shell, holds the PID file, and keeps one working process
// alive.
#pragma once

// Turns the calling process into a daemon with the PID file /var/run/NAME.pid, which stays open and locked
// for the life of the process. Returns the result of setsid(2); ends the process with status 1 on any
// failure.
int start_daemon(const char *name);

// Runs WORK in a child process, and in a new one whenever it ends by a signal or with a non-zero status.
// Returns 0 if the child exits with status 0 or after SIGTERM or SIGINT, which also end the child; -1 if fork
// fails.
int supervise(int (*work)());
