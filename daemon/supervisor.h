// The daemon's outer process: it detaches from the shell, holds the PID file, and keeps one working process
// alive.
#pragma once

// Turns the calling process into a daemon with the locked PID file /var/run/NAME.pid, which stays open,
// locked and in place for the life of the process. Returns the result of setsid(2); ends the process with
// status 1 on every failure.
int start_daemon(const char *name);

// Runs WORK in a child process, and in a new one each time it ends by a signal or with a non-zero status.
// Returns 0 when one has exited with status 0, -1 when none could be forked. SIGTERM and SIGINT end the
// child and then the calling process, with status 0.
int supervise(int (*work)());
