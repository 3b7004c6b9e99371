// The stand-in manager's own service: it takes the reports of hosts and answers them.
#pragma once

#include "tools/manager/options.h"

// Serves, each connection in a thread of its own, until the count of reports is reached or, if it keeps
// state, a signal ends it, and returns the tool's exit status; connections that are not finished by then end
// with the process. SIGHUP makes it read its control file: call it while the process has one thread only, so
// that no other takes the signals.
int serve(const serve_options &wanted);
