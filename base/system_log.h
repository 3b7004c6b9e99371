// Lines to the system log, as syslog(3) sends them, but for one thing: nobody waits for a log that does not
// read.
//
// A line waits while the log is busy, so lines keep their order and none is lost in a burst. When the log has
// taken no line for a second, lines are dropped and counted. As soon as it takes lines again, a line says how
// many were dropped. Any thread may send at any time.
#pragma once

#include <sys/uio.h>

#include <span>

// IDENT begins every line from now on, after the time. It is kept, not copied; null stands for the program's
// name.
void system_log_open(const char *ident);

// The next line connects anew.
void system_log_close();

// Sends one line, made of PARTS, at a level of syslog(3). Without a system log it is dropped.
void system_log_send(int level, std::span<const iovec> parts);
