// The progress of running synchronisations, live.
#pragma once

#include "tools/qelc/ask.h"

// Shows the progress of the running synchronisations until all have ended. Asks the daemon again SECONDS
// after each answer. On a terminal, each has a bar that is redrawn in place; elsewhere, each change is a
// line. Returns what the program ends with.
int watch_mirrors(const peer_options &peer, unsigned seconds);
